// SPDX-License-Identifier: LGPL-2.1-or-later
// The tables of a channel as sections, as users of the tool see them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "demux/stream.h"
#include "e2e/scanning.h"
#include "support/descriptors.h"
#include "support/process.h"
#include "support/sections.h"

namespace {

using namespace test;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

std::string hexadecimal(const octets &all)
{
    std::string text;
    for (const auto byte : all) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

ended dump(const stream &made, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {ORVA_TOOL, "dump", files().write("dump.ts", made.bytes)});
    return process{options}.wait();
}

json dump_json(const stream &made, std::vector<std::string> options = {}, int expected_status = 0)
{
    options.emplace_back("--json");
    const ended result = dump(made, std::move(options));
    EXPECT_EQ(result.status, expected_status) << result.err;
    return json::parse(result.out, nullptr, false);
}

// One section of each kind of table, by the name of its kind and in the order in which they are
// told.
struct sent {
    std::uint16_t pid;
    const char *table;
    octets section;
};

std::vector<sent> one_of_each()
{
    return {
        {0x00, "PAT", make(pat{.ts = 7, .programs = {{.number = 100, .pid = 0x100}}})},
        {0x01, "CAT", make(cat{.version = 9})},
        {0x10, "NIT", make(nit{.network = 3, .transports = {{.ts = 7}}})},
        {0x10, "NIT", make(nit{.table_id = 0x41, .network = 4})},
        {0x11, "SDT", make(sdt{.ts = 7, .original_network = 2, .services = {{.id = 100}}})},
        {0x11, "SDT", make(sdt{.table_id = 0x46, .ts = 8, .original_network = 2})},
        {0x11, "BAT", make(bat{.bouquet = 6})},
        {0x100, "PMT", make(pmt{.program = 100, .version = 31})},
        {0x12, "EIT", make(eit{.service = 100, .ts = 7, .original_network = 2})},
        {0x12, "EIT", make(eit{.table_id = 0x50, .service = 100, .ts = 7, .original_network = 2})},
        {0x12, "EIT", make(eit{.table_id = 0x4F, .service = 5, .ts = 8, .original_network = 2})},
    };
}

stream stream_of(const std::vector<sent> &all)
{
    stream made;
    for (const sent &one : all)
        made.section(one.pid, one.section);
    return made;
}

TEST(Dump, HasEachTableByteForByte)
{
    const auto all = one_of_each();
    const json told = dump_json(stream_of(all));
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["complete"], true);
    ASSERT_EQ(told["tables"].size(), all.size()) << told;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const json &table = told["tables"][i];
        EXPECT_EQ(table["table"], all[i].table) << table;
        EXPECT_EQ(table["PID"], all[i].pid) << table;
        EXPECT_EQ(table["table_id"], all[i].section[0]) << table;
        EXPECT_EQ(table["complete"], true) << table;
        ASSERT_EQ(table["sections"].size(), 1u) << table;
        EXPECT_EQ(table["sections"][0]["section_raw"], hexadecimal(all[i].section)) << table;
    }
}

TEST(Dump, NamesEachTableByItsNumbers)
{
    std::map<int, json> named;
    const json told = dump_json(stream_of(one_of_each()));
    for (json table : told["tables"]) {
        const int table_id = table["table_id"];
        for (const char *other : {"table", "PID", "table_id", "complete", "sections"})
            table.erase(other);
        named[table_id] = table;
    }
    EXPECT_EQ(named[0x00], json::parse(R"({"transport_stream_id": 7})"));
    EXPECT_EQ(named[0x01], json::object());
    EXPECT_EQ(named[0x02], json::parse(R"({"program_number": 100})"));
    EXPECT_EQ(named[0x41], json::parse(R"({"network_id": 4})"));
    EXPECT_EQ(named[0x46], json::parse(R"({"transport_stream_id": 8, "original_network_id": 2})"));
    EXPECT_EQ(named[0x4A], json::parse(R"({"bouquet_id": 6})"));
    EXPECT_EQ(named[0x4F], json::parse(R"({"service_id": 5, "transport_stream_id": 8,
                                           "original_network_id": 2})"));
}

TEST(Dump, TellsTheHeaderOfEachSectionByItsNumber)
{
    stream made = small_stream();
    for (const std::uint8_t number : octets{2, 0, 1}) // not in order
        made.section(0x10, make(nit{.table_id = 0x41,
                                    .network = 9,
                                    .version = 17,
                                    .section_number = number,
                                    .last_section_number = 2}));
    const json told = dump_json(made, {"--table", "0x41"});
    ASSERT_EQ(told["tables"].size(), 1u) << told;
    const json &sections = told["tables"][0]["sections"];
    ASSERT_EQ(sections.size(), 3u) << told;
    for (unsigned number = 0; number < 3; ++number) {
        EXPECT_EQ(sections[number]["section_number"], number);
        EXPECT_EQ(sections[number]["last_section_number"], 2);
        EXPECT_EQ(sections[number]["version_number"], 17);
        EXPECT_EQ(sections[number]["current_next_indicator"], true);
    }
}

TEST(Dump, SaysWhichTablesAreNotComplete)
{
    stream made = small_stream();
    made.section(0x11, make(bat{.bouquet = 6, .last_section_number = 1}));
    made.section(0x12, make(eit{.service = 100, .ts = 7, .last_section_number = 1}));
    std::map<int, json> complete;
    const json told = dump_json(made);
    for (const json &table : told["tables"])
        complete[table["table_id"]] = table["complete"];
    EXPECT_EQ(complete[0x42], true) << told;
    EXPECT_EQ(complete[0x4A], false) << told;
    EXPECT_EQ(complete[0x4E], false) << told;
    EXPECT_THAT(dump(made).out, HasSubstr("BAT  PID 0x0011  table_id 0x4A  bouquet_id 6  "
                                          "incomplete\n"));
}

TEST(Dump, ShowsPeopleTheBytesAndTheirLetters)
{
    const stream made =
        stream_of({{0x00, "PAT", make(pat{.ts = 7, .version = 5})}, //
                   {0x10, "NIT", make(nit{.descriptors = {network_name("Net\n")}})}});
    const octets all = make(pat{.ts = 7, .version = 5});
    EXPECT_THAT(dump(made, {"--table", "0"}).out,
                StartsWith("PAT  PID 0x0000  table_id 0x00  transport_stream_id 7\n"
                           "  section 0/0  version 5  12 bytes\n"
                           "    0000  00 b0 09 00 07 cb 00 00  "));
    const std::string text = dump(made, {"--table", "0x40"}).out;
    EXPECT_THAT(text, HasSubstr("40 04 4e 65 74 0a")); // network_name_descriptor
    EXPECT_THAT(text, HasSubstr("@.Net."));
    std::istringstream in{text};
    for (std::string line; std::getline(in, line);)
        EXPECT_LE(line.size(), 78u) << line;
}

TEST(Dump, PrintsTheTableAskedForAlone)
{
    const json told = dump_json(stream_of(one_of_each()), {"--table", "0x4A"});
    ASSERT_EQ(told["tables"].size(), 1u) << told;
    EXPECT_EQ(told["tables"][0]["bouquet_id"], 6);
    const ended none = dump(stream_of(one_of_each()), {"--table", "0x6F"});
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.out, "");
    EXPECT_THAT(none.err, HasSubstr("no sections of table_id 0x6F"));
}

TEST(Dump, HoldsTheLastVersionOfATableThatChanged)
{
    stream made = small_stream();
    made.section(0x11, make(bat{.bouquet = 6, .version = 1}));
    made.section(0x11, make(bat{.bouquet = 6, .version = 2}));
    const json told = dump_json(made, {"--table", "0x4A"});
    ASSERT_EQ(told["tables"].size(), 1u) << told;
    ASSERT_EQ(told["tables"][0]["sections"].size(), 1u) << told;
    EXPECT_EQ(told["tables"][0]["sections"][0]["version_number"], 2);
}

TEST(Dump, FailsWhereThereIsNothing)
{
    stream made;
    for (int i = 0; i < 20; ++i)
        made.packet(no_pid, {});
    const ended result = dump(made);
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("no sections of PAT, CAT"));
    const json told = dump_json(made, {}, 4);
    EXPECT_EQ(told["tables"], json::array());
    EXPECT_EQ(dump(small_stream(), {"--program", "5"}).status, 1);
}

} // namespace
