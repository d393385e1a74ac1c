// SPDX-License-Identifier: LGPL-2.1-or-later
// Every recorded stream against its golden answer: which sections it carries, and what is wrong
// with it.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "demux/pending.h"
#include "orva_demux_carousel.h"
#include "orva_ts_sections.h"
#include "support/files.h"

using namespace si::demux;
using nlohmann::json;
using testing::UnorderedElementsAreArray;

namespace {

std::string captures()
{
    const char *folder = std::getenv("ORVA_CAPTURES");
    return folder == nullptr ? std::string{} : folder;
}

// PID, table_id, extension, original_network_id (EIT only), transport_stream_id (EIT only),
// version_number, current_next_indicator, section_number, length, CRC_32.
using section_fact = std::tuple<int, int, int, int, int, int, int, int, int, std::string>;

std::string hex32(std::uint32_t value)
{
    char text[9];
    std::snprintf(text, sizeof text, "%08x", value);
    return text;
}

constexpr bool is_eit(int table_id)
{
    return table_id >= 0x4E && table_id <= 0x6F;
}

// The tables that golden files describe, on the PIDs on which they look for them.
bool is_described(std::uint16_t pid, si::bytes s, const std::set<int> &pmt_pids)
{
    const int id = s[0];
    return (pid == 0 && id == 0) || (pid == 1 && id == 1) ||
           (pid == 0x10 && (id == 0x40 || id == 0x41)) ||
           (pid == 0x11 && (id == 0x42 || id == 0x46 || id == 0x4A)) ||
           (pid == 0x12 && is_eit(id)) || (id == 2 && pmt_pids.contains(pid));
}

section_fact fact_of(std::uint16_t pid, si::bytes s)
{
    const bool eit = is_eit(s[0]);
    const int extension = s[0] == 0x01 ? 0 : s[3] << 8 | s[4]; // reserved in the CAT
    return {pid,
            s[0],
            extension,
            eit ? s[10] << 8 | s[11] : 0,
            eit ? s[8] << 8 | s[9] : 0,
            s[5] >> 1 & 0x1F,
            s[5] & 1,
            s[6],
            static_cast<int>(s.size()),
            hex32(si::crc_field(s.data()))};
}

// One content of a section of a golden version; some versions came with several contents.
void add_golden(std::map<section_fact, int> &to, int pid, int table_id, int ext, int onid, int ts,
                const json &version)
{
    for (const json &section : version.at("sections")) {
        const auto crcs = section.contains("crc32_all") ? section.at("crc32_all")
                                                        : json::array({section.at("crc32")});
        for (const json &crc : crcs)
            to[{pid, table_id, ext, onid, ts, version.at("version_number"),
                version.at("current_next_indicator"), section.at("number"), section.at("length"),
                crc}] += crcs.size() == 1 ? section.at("seen").get<int>() : 0;
    }
}

// What a golden entry calls its table_id_extension.
const std::map<std::string, std::string> extension_names{
    {"PAT", "transport_stream_id"}, {"PMT", "program_number"}, {"NIT", "network_id"},
    {"SDT", "transport_stream_id"}, {"BAT", "bouquet_id"},     {"CAT", ""}};

std::map<section_fact, int> golden_sections(const json &golden)
{
    std::map<section_fact, int> all;
    for (const auto &[table, ext] : extension_names)
        for (const json &entry : golden.at(table))
            for (const json &version : entry.at("versions"))
                add_golden(all, entry.at("pid"), entry.at("table_id"),
                           ext.empty() ? 0 : entry.at(ext).get<int>(), 0, 0, version);
    for (const json &service : golden.at("EIT"))
        for (const json &sub_table : service.at("sub_tables"))
            for (const json &version : sub_table.at("versions"))
                add_golden(all, 0x12, sub_table.at("table_id"), service.at("service_id"),
                           service.at("original_network_id"), service.at("transport_stream_id"),
                           version);
    return all;
}

// Reads the packets of one PID, or of all (0xFFFF).
void assemble(section_assembler &to, const std::vector<std::uint8_t> &file, std::uint16_t pid,
              packet_sync &sync)
{
    take_packets(sync, file, true, [&](packet p) {
        if (pid == 0xFFFF || ((p[1] & 0x1F) << 8 | p[2]) == pid)
            take_packet(to, p);
        return true;
    });
}

// Parsed once where tests share a process.
const json &golden_answer(const std::filesystem::path &path)
{
    static std::map<std::filesystem::path, json> known;
    const auto [at, fresh] = known.try_emplace(path);
    if (fresh)
        at->second = test::read_json(path);
    return at->second;
}

class Capture : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        if (captures().empty())
            GTEST_SKIP() << "ORVA_CAPTURES is not set";
        const std::filesystem::path folder{captures()};
        file = test::read_file(folder / (GetParam() + ".ts"));
        ASSERT_FALSE(file.empty()) << "no such stream in " << folder;
        golden = &golden_answer(folder / "golden" / (GetParam() + ".json"));
    }

    std::vector<std::uint8_t> file;
    const json *golden = nullptr;
};

TEST_P(Capture, PacketsAreFound)
{
    packet_sync sync;
    section_assembler assembler{[](std::uint16_t, si::bytes) {}};
    assemble(assembler, file, 0xFFFF, sync);
    const json &stream = golden->at("stream");
    EXPECT_EQ(sync.period, stream.at("packet_size"));
    EXPECT_EQ(sync.packets, stream.at("packets"));
    EXPECT_EQ(sync.losses, stream.at("sync_losses"));
    EXPECT_EQ(sync.skipped, stream.at("first_sync_offset"));
}

TEST_P(Capture, FaultsOfEachPid)
{
    for (const auto &[name, expected] : golden->at("si_pids").items()) {
        const auto pid = static_cast<std::uint16_t>(std::stoul(name, nullptr, 16));
        packet_sync sync;
        section_assembler assembler{[](std::uint16_t, si::bytes) {}};
        assemble(assembler, file, pid, sync);
        const section_counters &found = assembler.counters;
        EXPECT_EQ(found.continuity_errors, expected.value("continuity_errors", 0u)) << name;
        EXPECT_EQ(found.transport_errors, expected.value("transport_errors", 0u)) << name;
        EXPECT_EQ(found.duplicates, expected.value("duplicates", 0u)) << name;
        EXPECT_EQ(found.scrambled, expected.value("scrambled", 0u)) << name;
        EXPECT_EQ(found.cut_sections, expected.value("truncated_sections", 0u)) << name;
        std::uint64_t bad_crc = 0;
        for (const auto &[where, count] : golden->at("bad_crc").items())
            bad_crc += where.starts_with(name + "/") ? count.get<std::uint64_t>() : 0;
        EXPECT_EQ(found.crc_errors, bad_crc) << name;
        EXPECT_EQ(found.bad_sections, 0u) << name;
    }
}

TEST_P(Capture, SectionsAreThoseOfTheGoldenAnswer)
{
    std::set<int> pmt_pids;
    for (const json &pmt : golden->at("PMT"))
        pmt_pids.insert(pmt.at("pid").get<int>());
    const std::map<section_fact, int> expected = golden_sections(*golden);

    std::map<section_fact, int> found;
    std::map<int, int> time_sections;
    packet_sync sync;
    section_assembler assembler{[&](std::uint16_t pid, si::bytes section) {
        if (pid == 0x14 && (section[0] == table_id_tdt || section[0] == table_id_tot))
            ++time_sections[section[0]];
        if (is_long_section(section) && is_described(pid, section, pmt_pids))
            ++found[fact_of(pid, section)];
    }};
    assemble(assembler, file, 0xFFFF, sync);

    for (const auto &[fact, seen] : expected) {
        ASSERT_TRUE(found.contains(fact)) << testing::PrintToString(fact);
        if (seen != 0) {
            EXPECT_EQ(found[fact], seen) << testing::PrintToString(fact);
        }
    }
    for (const auto &[fact, seen] : found)
        EXPECT_TRUE(expected.contains(fact)) << testing::PrintToString(fact) << " seen " << seen;
    const auto times = [&](const char *table) {
        const json &entry = golden->at("time").at(table);
        return entry.is_null() ? 0 : entry.at("count").get<int>();
    };
    EXPECT_EQ(time_sections[table_id_tdt], times("TDT"));
    EXPECT_EQ(time_sections[table_id_tot], times("TOT"));
}

// The sub-table of the carousel that a golden entry describes.
const sub_table *kept_table(const carousel &kept, std::uint16_t pid, int table_id, int ext,
                            std::uint32_t networks)
{
    for (const sub_table *table : tables_of(kept, pid)) {
        const version_id &id = table->served().id;
        if (table->key.table_id == table_id && table->key.current &&
            (table_id == 1 || id.extension == ext) &&
            (!is_eit(table_id) || id.networks == networks))
            return table;
    }
    return nullptr;
}

std::set<int> section_numbers(const table_version &of)
{
    std::set<int> numbers;
    for (const kept_section &section : of.sections)
        numbers.insert(section.section_number);
    return numbers;
}

// A golden entry names the version that counts: the last complete one, else the last one seen.
void expect_kept(const carousel &kept, std::uint16_t pid, int ext, std::uint32_t networks,
                 const json &entry)
{
    const int table_id = entry.at("table_id");
    const sub_table *table = kept_table(kept, pid, table_id, ext, networks);
    ASSERT_NE(table, nullptr) << pid << " " << table_id << " " << ext;
    const table_version &version = table->served();
    EXPECT_EQ(version.id.version_number, entry.at("version_number")) << table_id << " " << ext;
    EXPECT_EQ(table->complete.has_value(), entry.at("complete").get<bool>())
        << table_id << " " << ext;
    for (const json &golden : entry.at("versions")) {
        if (golden.at("version_number") != version.id.version_number ||
            golden.at("current_next_indicator") != 1)
            continue;
        std::set<int> numbers;
        for (const json &section : golden.at("sections"))
            numbers.insert(section.at("number").get<int>());
        EXPECT_EQ(section_numbers(version), numbers) << table_id << " " << ext;
    }
}

TEST_P(Capture, CarouselHoldsTheVersionsThatCount)
{
    carousel kept{std::size_t{256} << 20};
    packet_sync sync;
    section_assembler assembler{
        [&](std::uint16_t pid, si::bytes section) { keep(kept, pid, section); }};
    assemble(assembler, file, 0xFFFF, sync);
    close_carousel(kept);

    for (const auto &[table, ext] : extension_names)
        for (const json &entry : golden->at(table))
            expect_kept(kept, entry.at("pid"), ext.empty() ? 0 : entry.at(ext).get<int>(), 0,
                        entry);
    for (const json &service : golden->at("EIT"))
        for (const json &sub_table : service.at("sub_tables"))
            expect_kept(kept, 0x12, service.at("service_id"),
                        service.at("transport_stream_id").get<std::uint32_t>() << 16 |
                            service.at("original_network_id").get<std::uint32_t>(),
                        sub_table);
}

std::vector<std::string> stream_names()
{
    std::vector<std::string> names;
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator{captures() + "/golden", none})
        if (entry.path().extension() == ".json")
            names.push_back(entry.path().stem());
    std::ranges::sort(names);
    return names;
}

std::string test_name(const testing::TestParamInfo<std::string> &info)
{
    std::string name;
    for (const char c : info.param)
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            name += c;
    return name;
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Capture);
INSTANTIATE_TEST_SUITE_P(Recorded, Capture, testing::ValuesIn(stream_names()), test_name);

TEST(Captures, AreThereWhereTheFolderIsNamed)
{
    if (captures().empty())
        GTEST_SKIP() << "ORVA_CAPTURES is not set";
    EXPECT_FALSE(stream_names().empty());
}

} // namespace
