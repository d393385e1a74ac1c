// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tool tells of a channel while it changes.
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "demux/stream.h"
#include "support/process.h"
#include "support/sections.h"

namespace {

using namespace test;
using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;
using testing::SizeIs;

const scratch_folder &files()
{
    static const scratch_folder folder;
    return folder;
}

ended watch(const stream &made, std::vector<std::string> options)
{
    const std::string path = files().write("made.ts", made.bytes);
    options.insert(options.begin(), {ORVA_TOOL, "watch", path});
    return process{options}.wait();
}

// The lines about one table.
std::vector<json> lines_about(const stream &made, const std::string &table)
{
    const ended result = watch(made, {"--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::istringstream in{result.out};
    std::vector<json> lines;
    for (std::string line; std::getline(in, line);) {
        json told = json::parse(line, nullptr, false);
        EXPECT_EQ(told["schema"], "orva-si/1") << line;
        if (told["table"] == table)
            lines.push_back(std::move(told));
    }
    return lines;
}

stream tables()
{
    stream made;
    made.section(0x00,
                 make(pat{.ts = 7, .version = 3, .programs = {{.number = 100, .pid = 0x100}}}));
    made.section(0x100, make(pmt{.program = 100, .version = 4}));
    made.section(
        0x11,
        make(sdt{.ts = 7,
                 .version = 5,
                 .services = {{.id = 100, .descriptors = {service_descriptor(1, "P", "News")}}}}));
    return made;
}

eit banner(std::uint8_t version, const char *name)
{
    return {.table_id = 0x4E,
            .service = 100,
            .ts = 7,
            .version = version,
            .last_section_number = 1,
            .events = {
                {.id = 1, .start_bcd = 0x120000, .descriptors = {short_event("eng", name, "")}}}};
}

TEST(Watch, TellsVersionsAndContents)
{
    const auto pats = lines_about(tables(), "PAT");
    ASSERT_THAT(pats, SizeIs(1));
    EXPECT_EQ(pats[0]["version_number"], 3);
    EXPECT_EQ(pats[0]["transport_stream_id"], 7);
    EXPECT_EQ(pats[0]["changes"], json::parse(R"([{"change": "new", "id": 100, "name": ""}])"));
    const auto sdts = lines_about(tables(), "SDT");
    ASSERT_THAT(sdts, SizeIs(1));
    EXPECT_EQ(sdts[0]["version_number"], 5);
    EXPECT_EQ(sdts[0]["changes"], json::parse(R"([{"change": "new", "id": 100, "name": "News"}])"));
    const auto pmts = lines_about(tables(), "PMT");
    ASSERT_THAT(pmts, SizeIs(1));
    EXPECT_EQ(pmts[0]["version_number"], 4);
    EXPECT_EQ(pmts[0]["program_number"], 100);
}

// A channel that is sent by hand, as long as the tool listens.
class live_channel {
public:
    live_channel()
    {
        std::signal(SIGPIPE, SIG_IGN);
        int to_tool[2];
        int from_tool[2];
        EXPECT_EQ(pipe2(to_tool, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(from_tool, O_CLOEXEC), 0);
        tool.emplace(std::vector<std::string>{ORVA_TOOL, "watch", "--json", "-"}, to_tool[0],
                     from_tool[1]);
        close(to_tool[0]);
        close(from_tool[1]);
        in = to_tool[1];
        out = from_tool[0];
    }
    ~live_channel()
    {
        close(in);
        tool->wait();
        close(out);
    }
    live_channel(const live_channel &) = delete;
    live_channel &operator=(const live_channel &) = delete;

    // Sends a section again and again, as broadcasts do, until the tool tells of its table.
    json told_of(const std::string &table, std::uint16_t pid, const octets &section)
    {
        const auto end = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < end) {
            sent.bytes.clear();
            sent.section(pid, section);
            if (write(in, sent.bytes.data(), sent.bytes.size()) < 0)
                break;
            for (json line = next_line(); !line.is_null(); line = next_line())
                if (line["table"] == table)
                    return line;
        }
        ADD_FAILURE() << "nothing is told of the " << table;
        return {};
    }

private:
    // Null when none comes for a while.
    json next_line()
    {
        constexpr int milliseconds = 5;
        for (std::size_t end = 0; (end = unread.find('\n')) == std::string::npos;) {
            pollfd readable{out, POLLIN, 0};
            if (poll(&readable, 1, milliseconds) <= 0)
                return {};
            char read_now[4096];
            const ssize_t count = read(out, read_now, sizeof read_now);
            if (count <= 0)
                return {};
            unread.append(read_now, static_cast<std::size_t>(count));
        }
        const std::size_t end = unread.find('\n');
        json line = json::parse(unread.substr(0, end), nullptr, false);
        unread.erase(0, end + 1);
        return line;
    }

    std::optional<process> tool;
    int in = -1;
    int out = -1;
    stream sent;
    std::string unread;
};

TEST(Watch, TellsWhatOfAnSdtChanged)
{
    const auto version = [](std::uint8_t number, const std::vector<sdt_service> &services) {
        return make(sdt{.ts = 7, .version = number, .services = services});
    };
    const sdt_service two{.id = 101, .descriptors = {service_descriptor(1, "P", "Two")}};
    const auto named = [](const char *name) {
        return sdt_service{.id = 100, .descriptors = {service_descriptor(1, "P", name)}};
    };
    live_channel channel;
    channel.told_of("PAT", 0x00, make(pat{.ts = 7, .programs = {{.number = 100, .pid = 0x100}}}));
    EXPECT_EQ(channel.told_of("SDT", 0x11, version(5, {named("News")}))["version_number"], 5);
    EXPECT_EQ(channel.told_of("SDT", 0x11, version(6, {named("Old"), two}))["changes"],
              json::parse(R"([{"change": "changed", "id": 100, "name": "Old"},
                              {"change": "new", "id": 101, "name": "Two"}])"));
    EXPECT_EQ(channel.told_of("SDT", 0x11, version(7, {two}))["changes"],
              json::parse(R"([{"change": "gone", "id": 100, "name": ""}])"));
}

TEST(Watch, TellsNamesOfNewAndChangedEvents)
{
    stream made = tables();
    for (int repeat = 0; repeat < 400; ++repeat) // until events are asked for
        made.section(0x12, make(banner(1, "First")));
    made.section(0x12, make(banner(2, "Second")));
    const auto told = lines_about(made, "EIT");
    ASSERT_FALSE(told.empty());
    const json &last = told.back();
    EXPECT_EQ(last["service_id"], 100);
    EXPECT_EQ(last["name"], "News");
    EXPECT_EQ(last["table_id"], 0x4E);
    EXPECT_EQ(last["version_number"], 2);
    EXPECT_EQ(last["changes"][0]["name"], "Second");
}

TEST(Watch, LinesForPeopleNameTableServiceAndEvent)
{
    stream made = tables();
    made.section(0x12, make(banner(1, "First")));
    const ended told = watch(made, {"--tz", "UTC"});
    EXPECT_EQ(told.status, 0) << told.err;
    EXPECT_THAT(told.out,
                HasSubstr("PAT table_id 0x00 version_number 3 transport_stream_id 7; new: 100\n"));
    EXPECT_THAT(told.out, HasSubstr("service_id 100 \"News\"; new: "));
    EXPECT_THAT(told.out, HasSubstr("12:00 \"First\"\n"));
}

TEST(Watch, UnknownProgramIsSaid)
{
    const ended told = watch(tables(), {"--program", "999"});
    EXPECT_EQ(told.status, 1);
    EXPECT_THAT(told.err, HasSubstr("no program 999"));
    EXPECT_EQ(watch(tables(), {"--program", "100"}).status, 0);
}

TEST(Watch, TellsTheTime)
{
    stream made;
    made.section(0x14, make(tdt{.mjd = 61041, .utc_bcd = 0x123456}));
    const auto told = lines_about(made, "TDT");
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told[0]["UTC_time"], "2026-01-01T12:34:56Z");
}

TEST(Watch, StreamWithoutTablesIsSaid)
{
    stream made;
    for (int count = 0; count < 20; ++count)
        made.packet(0x200, octets(184, 0x55));
    const ended told = watch(made, {});
    EXPECT_EQ(told.status, 4);
    EXPECT_EQ(told.out, "");
    EXPECT_THAT(told.err, HasSubstr("no tables came"));
}

} // namespace
