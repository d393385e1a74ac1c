// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections of which the carousel holds only the place in the file.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "demux/pending.h"
#include "demux/stream.h"
#include "orva_demux_reread.h"

using namespace si::demux;
using namespace test;

namespace {

constexpr std::uint16_t eit = 0x12;
constexpr std::size_t scarce = std::size_t{8} << 20; // from here on sections are read again

octets numbered(unsigned number, std::size_t size)
{
    return make(private_table{.table_id = 0x80,
                              .extension = static_cast<std::uint16_t>(number),
                              .payload = octets(size - 12, static_cast<std::uint8_t>(number))});
}

class Reread : public testing::Test {
protected:
    ~Reread() override { std::fclose(file); }

    void write(const octets &content)
    {
        ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), file), content.size());
        ASSERT_EQ(std::fflush(file), 0);
    }
    // Keeps what the file holds, as if memory were used up.
    void read()
    {
        ASSERT_EQ(open_input(in, ("/proc/self/fd/" + std::to_string(fileno(file))).c_str()),
                  ORVA_DEMUX_OK);
        kept.rereads = true;
        kept.used = scarce;
        section_assembler assembler{[&](std::uint16_t pid, si::bytes section) {
            keep(kept, pid, section, assembler.place);
        }};
        for (;;) {
            const si::bytes shown = window(in);
            const std::uint64_t position = window_position(in);
            consume(in, take_packets(sync, shown, in.ended, [&](packet p) {
                        assembler.position =
                            position + static_cast<std::uint64_t>(p.data() - shown.data());
                        take_packet(assembler, p);
                        return true;
                    }));
            if (in.ended)
                break;
            ASSERT_NE(read_more(in, {}), read_result::failed);
        }
        close_carousel(kept);
    }
    // Every section of the PID, and how many of them are in memory.
    std::vector<octets> fetched(std::uint16_t pid)
    {
        packet_reader again{in, sync.period};
        std::vector<octets> all;
        for (const sub_table *table : tables_of(kept, pid))
            for (const kept_section &section : table->served().sections) {
                const si::bytes got = fetch(again, pid, section);
                in_memory += section.data != nullptr ? 1 : 0;
                all.emplace_back(got.begin(), got.end());
            }
        return all;
    }

    std::FILE *file = std::tmpfile();
    input in;
    packet_sync sync;
    carousel kept{std::size_t{64} << 20};
    std::size_t in_memory = 0;
};

std::vector<octets> of_many_sizes()
{
    std::vector<octets> list;
    for (unsigned n = 0; n < 2000; ++n)
        list.push_back(numbered(n, 12 + n * 7 % 4085));
    return list;
}

TEST_F(Reread, SectionsOfEverySizeComeBack)
{
    const std::vector<octets> list = of_many_sizes();
    write(stream{}.sections(eit, list).bytes);
    read();
    EXPECT_EQ(fetched(eit), list);
    EXPECT_EQ(in_memory, 0u);
}

TEST_F(Reread, OtherPeriodsOfPackets)
{
    const std::vector<octets> list = of_many_sizes();
    write(stream{}.sections(eit, list).spaced(204));
    read();
    EXPECT_EQ(fetched(eit), list);
    EXPECT_EQ(in_memory, 0u);
}

TEST_F(Reread, PacketsOfOthersStandBetween)
{
    stream ts;
    std::vector<octets> list;
    for (unsigned n = 0; n < 300; ++n) {
        list.push_back(numbered(n, 150));
        ts.section(eit, list.back()).section(0x11, numbered(n, 100)).packet(0x100, pes_start());
    }
    write(ts.bytes);
    read();
    EXPECT_EQ(fetched(eit), list);
}

TEST_F(Reread, WhatIsSpreadTooFarStaysInMemory)
{
    stream ts;
    const octets section = numbered(1, 400);
    const octets first(section.begin(), section.begin() + ts_payload - 1);
    octets payload{0};
    payload.insert(payload.end(), first.begin(), first.end());
    ts.packet(eit, payload, {.start = true});
    for (unsigned n = 0; n < 400; ++n)
        ts.packet(0x100, pes_start());
    octets rest(section.begin() + ts_payload - 1, section.end());
    ts.packet(eit, {rest.begin(), rest.begin() + ts_payload});
    ts.packet(eit, {rest.begin() + ts_payload, rest.end()});
    write(ts.bytes);
    read();
    EXPECT_THAT(fetched(eit), testing::ElementsAre(section));
    EXPECT_EQ(in_memory, 1u);
}

TEST_F(Reread, FileThatWasCutGivesWhatIsLeft)
{
    const std::vector<octets> list = of_many_sizes();
    write(stream{}.sections(eit, list).bytes);
    read();
    ASSERT_EQ(ftruncate(fileno(file), 188 * 100), 0);
    const std::vector<octets> got = fetched(eit);
    ASSERT_EQ(got.size(), list.size());
    EXPECT_EQ(got.front(), list.front());
    EXPECT_TRUE(got.back().empty());
}

TEST_F(Reread, FileThatWasWrittenOverGivesNothingElse)
{
    const std::vector<octets> list = of_many_sizes();
    write(stream{}.sections(eit, list).bytes);
    read();
    std::rewind(file);
    std::vector<octets> others;
    for (unsigned n = 0; n < 2000; ++n)
        others.push_back(numbered(n + 1, 12 + n * 7 % 4085));
    write(stream{}.sections(eit, others).bytes);
    for (const octets &section : fetched(eit))
        EXPECT_TRUE(section.empty());
}

TEST_F(Reread, ChangedContentIsToldFromItsRepetition)
{
    kept.rereads = true;
    kept.used = scarce;
    const octets one = make(private_table{.table_id = 0x80, .payload = octets(100, 1)});
    const octets other = make(private_table{.table_id = 0x80, .payload = octets(100, 2)});
    const std::uint64_t first = keep(kept, eit, one, {0, 188});
    EXPECT_EQ(keep(kept, eit, one, {376, 564}), first);
    EXPECT_NE(keep(kept, eit, other, {188, 376}), first);
}

} // namespace
