// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>

#include <utility>
#include <vector>

#include "demux/pending.h"
#include "demux/stream.h"
#include "orva_ts_sections.h"

using namespace si::demux;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint16_t pid = 0x0100;

// A private section of a wanted size, with a right CRC_32.
octets sized(std::size_t size, std::uint8_t number = 0)
{
    return make(
        private_table{.table_id = 0x80,
                      .section_number = number,
                      .last_section_number = 255,
                      .payload = octets(size - 12, static_cast<std::uint8_t>(0x30 + number))});
}

class Assembler : public testing::Test {
protected:
    void read(const stream &from)
    {
        for (std::size_t at = 0; at < from.bytes.size(); at += ts_packet)
            take_packet(assembler, si::bytes{from.bytes}.subspan(at).first<packet_bytes>());
    }
    octets payload(std::uint8_t pointer, std::initializer_list<octets> parts)
    {
        octets all{pointer};
        for (const octets &part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }
    static octets part(const octets &of, std::size_t from, std::size_t count)
    {
        return {of.begin() + static_cast<std::ptrdiff_t>(from),
                of.begin() + static_cast<std::ptrdiff_t>(from + count)};
    }

    std::vector<octets> found;
    std::vector<std::uint16_t> found_pids;
    section_assembler assembler{[this](std::uint16_t from, si::bytes section) {
        found_pids.push_back(from);
        found.emplace_back(section.begin(), section.end());
    }};
    const section_counters &counted = assembler.counters;
    stream ts;
};

TEST_F(Assembler, OneSectionInOnePacket)
{
    const octets section = make(pat{.ts = 9});
    read(ts.section(0, section));
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_THAT(found_pids, ElementsAre(0));
    EXPECT_EQ(counted.sections, 1u);
}

TEST_F(Assembler, SeveralSectionsInOnePacket)
{
    const std::vector<octets> sections{sized(20), sized(30, 1), sized(40, 2)};
    read(ts.sections(pid, sections));
    EXPECT_EQ(ts.bytes.size(), ts_packet);
    EXPECT_EQ(found, sections);
}

TEST_F(Assembler, SectionsAcrossPackets)
{
    const std::vector<octets> sections{sized(4096), sized(500, 1), sized(13, 2), sized(1024, 3)};
    read(ts.sections(pid, sections));
    EXPECT_EQ(found, sections);
    EXPECT_EQ(counted.cut_sections + counted.bad_sections + counted.continuity_errors, 0u);
}

TEST_F(Assembler, SectionsOfEverySizeBackToBack)
{
    std::vector<octets> sections;
    for (std::size_t size = 12; size < 600; ++size)
        sections.push_back(sized(size, static_cast<std::uint8_t>(size)));
    read(ts.sections(pid, sections));
    EXPECT_EQ(found, sections);
}

TEST_F(Assembler, HeaderAcrossPackets)
{
    // The second section begins in the last byte, the last two bytes, and three bytes of a packet.
    for (const std::size_t left : {1u, 2u, 3u}) {
        found.clear();
        ts = {};
        const octets first = sized(ts_payload - 1 - left);
        const octets second = sized(100, 1);
        ts.packet(pid, payload(0, {first, part(second, 0, left)}), {.start = true});
        ts.packet(pid, part(second, left, 100 - left));
        assembler.pids[pid] = nullptr;
        read(ts);
        EXPECT_THAT(found, ElementsAre(first, second)) << left;
    }
}

TEST_F(Assembler, StuffingBehindASectionIsPassedOver)
{
    const octets section = sized(50);
    octets rest(40, 0xFF);
    rest.push_back(0x80); // what stands behind stuffing is stuffing
    read(ts.packet(pid, payload(0, {section, rest}), {.start = true}));
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_EQ(counted.bad_sections, 0u);
}

TEST_F(Assembler, NothingBeginsBehindASectionWithoutAUnitStart)
{
    const octets first = sized(200);
    const octets second = sized(50, 1);
    ts.packet(pid, payload(0, {part(first, 0, 183)}), {.start = true});
    octets rest = part(first, 183, 17);
    rest.insert(rest.end(), second.begin(), second.end());
    read(ts.packet(pid, rest));
    EXPECT_THAT(found, ElementsAre(first));
}

TEST_F(Assembler, PointerBeyondThePacketDropsIt)
{
    const octets first = sized(200);
    ts.packet(pid, payload(0, {part(first, 0, 183)}), {.start = true});
    ts.packet(pid, payload(183, {part(first, 183, 17)}), {.start = true});
    ts.packet(pid, payload(0, {first}),
              {.start = true, .adaptation = octets(100, 0)}); // the pointer fits
    ts.packet(pid, payload(90, {first}), {.start = true, .adaptation = octets(100, 0)});
    read(ts);
    EXPECT_THAT(found, IsEmpty());
    EXPECT_EQ(counted.bad_sections, 2u);
    EXPECT_EQ(counted.cut_sections, 2u);
}

TEST_F(Assembler, UnitStartCutsASectionThatIsNotComplete)
{
    const octets lost = sized(400);
    const octets good = sized(60, 1);
    ts.packet(pid, payload(0, {part(lost, 0, 183)}), {.start = true});
    read(ts.packet(pid, payload(20, {part(lost, 183, 20), good}), {.start = true}));
    EXPECT_THAT(found, ElementsAre(good));
    EXPECT_EQ(counted.cut_sections, 1u);
}

TEST_F(Assembler, EndOfTheStreamCutsWhatIsInProgress)
{
    read(ts.packet(pid, payload(0, {part(sized(400), 0, 183)}), {.start = true}));
    EXPECT_EQ(counted.cut_sections, 0u);
    end_of_packets(assembler);
    end_of_packets(assembler);
    EXPECT_EQ(counted.cut_sections, 1u);
}

TEST_F(Assembler, OneDuplicatePacketIsLegal)
{
    const octets section = sized(300);
    ts.packet(pid, payload(0, {part(section, 0, 183)}), {.start = true, .continuity = 4});
    ts.packet(pid, payload(0, {part(section, 0, 183)}), {.start = true, .continuity = 4});
    read(ts.packet(pid, part(section, 183, 117), {.continuity = 5}));
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_EQ(counted.duplicates, 1u);
    EXPECT_EQ(counted.continuity_errors, 0u);
}

TEST_F(Assembler, SecondRepetitionIsAContinuityError)
{
    const octets section = sized(100);
    for (int i = 0; i < 3; ++i)
        ts.packet(pid, payload(0, {section}), {.start = true, .continuity = 4});
    read(ts);
    EXPECT_EQ(found.size(), 2u);
    EXPECT_EQ(counted.duplicates, 1u);
    EXPECT_EQ(counted.continuity_errors, 1u);
}

TEST_F(Assembler, LostPacketDiscardsTheSectionInProgressOnly)
{
    const octets lost = sized(400);
    const octets good = sized(60, 1);
    ts.packet(pid, payload(0, {part(lost, 0, 183)}), {.start = true, .continuity = 14});
    ts.packet(pid, part(lost, 183, 184), {.continuity = 0}); // 15 is missing
    ts.packet(pid, payload(0, {good}), {.start = true, .continuity = 1});
    read(ts);
    EXPECT_THAT(found, ElementsAre(good));
    EXPECT_EQ(counted.continuity_errors, 1u);
    EXPECT_EQ(counted.cut_sections, 1u);
}

TEST_F(Assembler, AnnouncedDiscontinuityIsNoError)
{
    const octets lost = sized(400);
    const octets good = sized(60, 1);
    ts.packet(pid, payload(0, {part(lost, 0, 183)}), {.start = true, .continuity = 3});
    ts.packet(pid, payload(0, {good}), {.start = true, .continuity = 9, .adaptation = {0x80}});
    read(ts);
    EXPECT_THAT(found, ElementsAre(good));
    EXPECT_EQ(counted.continuity_errors, 0u);
    EXPECT_EQ(counted.cut_sections, 1u);
}

TEST_F(Assembler, AdaptationFieldsArePassedOver)
{
    const octets section = sized(300);
    ts.packet(pid, payload(0, {part(section, 0, 100)}),
              {.start = true, .adaptation = octets(82, 0x00)});
    ts.packet(pid, {}, {.adaptation = octets(183, 0x00), .payload = false});
    ts.packet(pid, part(section, 100, 184));
    ts.packet(pid, part(section, 284, 16));
    read(ts);
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_EQ(counted.continuity_errors, 0u);
}

TEST_F(Assembler, AdaptationFieldLongerThanThePacketHasNoPayload)
{
    stream bad;
    bad.packet(0, payload(0, {make(pat{})}), {.start = true, .adaptation = {0x00}});
    for (const int length : {183, 184, 255}) {
        bad.bytes[4] = static_cast<std::uint8_t>(length);
        read(bad);
    }
    EXPECT_THAT(found, IsEmpty());
}

TEST_F(Assembler, ErroneousPacketsAreDropped)
{
    const octets section = sized(60);
    ts.packet(pid, payload(0, {section}), {.start = true, .error = true});
    read(ts.packet(0x1FFE, {}, {.error = true}));
    EXPECT_THAT(found, IsEmpty());
    EXPECT_EQ(counted.transport_errors, 2u);
}

TEST_F(Assembler, ScrambledPacketsAreDroppedAndCountedOnSectionPids)
{
    const octets section = sized(60);
    ts.packet(pid, payload(0, {section}),
              {.start = true, .scrambling = 2}); // nothing is known of the PID yet
    ts.packet(pid, payload(0, {section}), {.start = true});
    ts.packet(pid, payload(0, {section}), {.start = true, .scrambling = 3});
    ts.packet(0x200, pes_start(), {.start = true});
    ts.packet(0x200, octets(184, 1), {.scrambling = 2});
    read(ts);
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_EQ(counted.scrambled, 1u);
}

TEST_F(Assembler, DamagedSectionsAreDropped)
{
    const octets good = sized(60, 1);
    read(ts.sections(pid, {damage(sized(50)), good, damage(make(sdt{}))}));
    EXPECT_THAT(found, ElementsAre(good));
    EXPECT_EQ(counted.crc_errors, 2u);
    EXPECT_EQ(counted.sections, 1u);
}

TEST_F(Assembler, TotIsCheckedWithoutSyntaxIndicator)
{
    const octets good = make(tot{});
    ASSERT_EQ(good[1] & 0x80, 0);
    read(ts.sections(0x14, {damage(good), good}));
    EXPECT_THAT(found, ElementsAre(good));
    EXPECT_EQ(counted.crc_errors, 1u);
}

TEST_F(Assembler, ShortSectionsHaveNoCrc)
{
    const octets time = make(tdt{.utc_bcd = 0x123456});
    octets other = time;
    other[0] = 0x71;
    read(ts.sections(0x14, {time, other, octets{0x72, 0x70, 0x00}}));
    EXPECT_THAT(found, ElementsAre(time, other, octets{0x72, 0x70, 0x00}));
}

TEST_F(Assembler, SectionLengthOutOfRangeEndsThePacket)
{
    const octets largest = set_length(sized(100), 4093);
    for (const std::size_t length : {4094u, 4095u})
        ts.packet(pid, payload(0, {set_length(sized(100), length), sized(30, 1)}), {.start = true});
    read(ts);
    EXPECT_EQ(counted.bad_sections, 2u);
    ts.bytes.clear();
    read(ts.packet(pid, payload(0, {largest}), {.start = true})); // may go on
    EXPECT_EQ(counted.bad_sections, 2u);
    EXPECT_THAT(found, IsEmpty());
}

TEST_F(Assembler, TooShortForItsKindIsBad)
{
    const auto counts_as_bad = [&](const octets &section) {
        const auto before = counted.bad_sections;
        read(stream{}.packet(pid, payload(0, {section}), {.start = true}));
        assembler.pids[pid] = nullptr;
        return counted.bad_sections == before + 1;
    };
    EXPECT_TRUE(counts_as_bad(set_length(sized(40), 8)));
    EXPECT_FALSE(counts_as_bad(set_length(sized(40), 9)));
    EXPECT_TRUE(counts_as_bad(set_length(make(tot{}), 10)));
    EXPECT_FALSE(counts_as_bad(set_length(make(tdt{}), 0)));
}

TEST_F(Assembler, BadLengthAcrossPacketsIsSeenWhenItIsComplete)
{
    const octets first = sized(ts_payload - 3);
    ts.packet(pid, payload(0, {first, {0x80, 0xBF}}), {.start = true});
    ts.packet(pid, octets(184, 0xFE));
    const octets next = sized(40, 1);
    ts.packet(pid, payload(0, {next}), {.start = true});
    read(ts);
    EXPECT_THAT(found, ElementsAre(first, next));
    EXPECT_EQ(counted.bad_sections, 1u);
    EXPECT_EQ(counted.cut_sections, 0u);
}

TEST_F(Assembler, PesPidsCarryNoSections)
{
    const octets section = sized(60);
    ts.packet(0x200, octets(184, 0x00));
    ts.packet(0x200, pes_start(), {.start = true});
    ts.packet(0x200, payload(0, {section}));
    ts.packet(0x200, octets(184, 0x00), {.continuity = 9});
    read(ts);
    EXPECT_THAT(found, IsEmpty());
    EXPECT_EQ(counted.continuity_errors, 0u);
    EXPECT_EQ(assembler.pids[0x200], nullptr);
}

TEST_F(Assembler, PidMayChangeItsContent)
{
    const octets section = sized(60);
    ts.packet(pid, payload(0, {part(sized(300), 0, 183)}), {.start = true});
    ts.packet(pid, pes_start(), {.start = true});
    ts.packet(pid, payload(0, {section}), {.start = true});
    read(ts);
    EXPECT_THAT(found, ElementsAre(section));
    EXPECT_EQ(counted.cut_sections, 1u);
}

TEST_F(Assembler, NullPacketsAreIgnored)
{
    read(ts.packet(0x1FFF, payload(0, {sized(60)}), {.start = true}));
    EXPECT_THAT(found, IsEmpty());
}

TEST_F(Assembler, PidsDoNotDisturbEachOther)
{
    const octets one = sized(300, 1);
    const octets two = sized(300, 2);
    ts.packet(pid, payload(0, {part(one, 0, 183)}), {.start = true});
    ts.packet(pid + 1, payload(0, {part(two, 0, 183)}), {.start = true});
    ts.packet(pid + 1, part(two, 183, 117));
    ts.packet(pid, part(one, 183, 117));
    read(ts);
    EXPECT_THAT(found, ElementsAre(two, one));
    EXPECT_THAT(found_pids, ElementsAre(pid + 1, pid));
}

TEST_F(Assembler, AnyBytesAreSurvived)
{
    std::uint32_t random = 1;
    for (int i = 0; i < 200'000; ++i) {
        std::array<std::uint8_t, packet_bytes> p;
        for (std::uint8_t &b : p)
            b = static_cast<std::uint8_t>((random = random * 1664525 + 1013904223) >> 24);
        p[1] = static_cast<std::uint8_t>(p[1] & 0x40); // no errors, few PIDs
        p[2] &= 0x03;
        p[3] &= 0x3F;
        take_packet(assembler, p);
    }
    end_of_packets(assembler);
    EXPECT_GT(counted.bad_sections, 0u);
    EXPECT_GT(counted.crc_errors, 0u);
    for (const octets &section : found)
        EXPECT_EQ(section.size(), si::section_size(section.data()));
}

} // namespace
