// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>

#include "demux/pending.h"
#include "orva_demux_filter.h"
#include "support/sections.h"

using namespace si::demux;
using test::make;
using test::octets;

namespace {

SiDmxFilterParam depth(std::uint8_t bytes)
{
    SiDmxFilterParam setting{};
    setting.filter_depth = bytes;
    return setting;
}

// The settings of a long section: table_id, current_next_indicator 1, another version than one that
// is held.
SiDmxFilterParam long_sections(std::uint8_t table_id, int not_version = -1)
{
    SiDmxFilterParam setting = depth(6);
    setting.match[0] = table_id;
    setting.mask[0] = 0xFF;
    setting.match[1] = setting.mask[1] = 0x80;
    setting.match[5] = static_cast<std::uint8_t>((not_version < 0 ? 0x3E : not_version << 1) | 1);
    setting.mask[5] = 0x01;
    setting.negate[5] = not_version < 0 ? 0x00 : 0x3E;
    return setting;
}

TEST(Match, MaskedBitsMustEqual)
{
    SiDmxFilterParam setting = depth(1);
    setting.match[0] = 0x42;
    setting.mask[0] = 0xF3; // SDT actual and other, BAT
    for (const int id : {0x42, 0x46, 0x4A, 0x4E})
        EXPECT_TRUE(passes(setting, octets{static_cast<std::uint8_t>(id), 0, 0})) << id;
    for (const int id : {0x40, 0x41, 0x43, 0x52, 0xC2})
        EXPECT_FALSE(passes(setting, octets{static_cast<std::uint8_t>(id), 0, 0})) << id;
}

TEST(Match, NothingWantedPassesEverything)
{
    EXPECT_TRUE(passes(depth(0), octets{0x80, 0, 0}));
    EXPECT_TRUE(passes(depth(20), octets{0x80, 0, 0}));
}

TEST(Match, LowByteOfTheLengthIsNeverCompared)
{
    SiDmxFilterParam setting = depth(6);
    setting.match[2] = 0x11;
    setting.mask[2] = 0xFF;
    setting.negate[2] = 0xFF;
    EXPECT_TRUE(passes(setting, make(test::pat{})));
}

TEST(Match, BytesBehindTheDepthAreNotCompared)
{
    SiDmxFilterParam setting = depth(3);
    setting.match[3] = 0xAA;
    setting.mask[3] = 0xFF;
    setting.negate[4] = 0xFF;
    EXPECT_TRUE(passes(setting, make(test::pat{.ts = 0})));
    setting.filter_depth = 4;
    EXPECT_FALSE(passes(setting, make(test::pat{.ts = 0})));
}

TEST(Match, ExtensionSectionNumberAndHeaderWords)
{
    const octets eit = make(test::eit{.service = 0x1234,
                                      .ts = 0x5678,
                                      .original_network = 0x9ABC,
                                      .section_number = 1,
                                      .last_section_number = 1});
    SiDmxFilterParam setting = long_sections(0x4E);
    setting.filter_depth = 12;
    const std::uint8_t wanted[] = {0, 0, 0, 0x12, 0x34, 0, 1, 0, 0x56, 0x78, 0x9A, 0xBC};
    for (const unsigned i : {3u, 4u, 6u, 8u, 9u, 10u, 11u}) {
        setting.match[i] = wanted[i];
        setting.mask[i] = 0xFF;
    }
    EXPECT_TRUE(passes(setting, eit));
    for (const unsigned i : {3u, 4u, 6u, 8u, 9u, 10u, 11u}) {
        SiDmxFilterParam other = setting;
        other.match[i] ^= 0x10;
        EXPECT_FALSE(passes(other, eit)) << i;
    }
}

TEST(Match, ByteThatTheSectionDoesNotHaveFails)
{
    SiDmxFilterParam setting = depth(6);
    EXPECT_TRUE(passes(setting, octets{0x72, 0x70, 0x00}));
    setting.mask[3] = 0x01;
    EXPECT_FALSE(passes(setting, octets{0x72, 0x70, 0x00}));
    setting.mask[3] = 0;
    setting.negate[3] = 0x01;
    EXPECT_FALSE(passes(setting, octets{0x72, 0x70, 0x00}));
}

TEST(Match, DepthBeyondTheArraysIsClamped)
{
    SiDmxFilterParam setting = depth(255);
    EXPECT_TRUE(passes(setting, octets(300, 0)));
    setting.match[19] = setting.mask[19] = 1;
    EXPECT_FALSE(passes(setting, octets(300, 0)));
}

TEST(Negate, OneDifferingBitIsEnough)
{
    for (std::uint8_t held = 0; held < 32; ++held)
        for (std::uint8_t version = 0; version < 32; ++version)
            EXPECT_EQ(passes(long_sections(0x00, held), make(test::pat{.version = version})),
                      version != held);
}

TEST(Negate, BitsOfAllBytesAreComparedTogether)
{
    SiDmxFilterParam setting = depth(5);
    setting.match[3] = 0x12;
    setting.match[4] = 0x34;
    setting.negate[3] = setting.negate[4] = 0xFF;
    EXPECT_FALSE(passes(setting, make(test::pat{.ts = 0x1234})));
    EXPECT_TRUE(passes(setting, make(test::pat{.ts = 0x1235})));
    EXPECT_TRUE(passes(setting, make(test::pat{.ts = 0x1334})));
    EXPECT_TRUE(passes(setting, make(test::pat{.ts = 0x4321})));
}

TEST(Negate, DoesNotReplaceTheMask)
{
    EXPECT_FALSE(
        passes(long_sections(0x00, 7), make(test::pat{.version = 8, .current_next = false})));
    EXPECT_TRUE(passes(long_sections(0x00), make(test::pat{.version = 31})));
    EXPECT_FALSE(passes(long_sections(0x02, 7), make(test::pat{.version = 8})));
}

TEST(ShortSections, PassWithSyntaxIndicatorZeroOnly)
{
    SiDmxFilterParam setting = depth(2);
    setting.match[0] = 0x70;
    setting.mask[0] = 0xFC;
    setting.mask[1] = 0x80;
    EXPECT_TRUE(passes(setting, make(test::tdt{})));
    EXPECT_TRUE(passes(setting, make(test::tot{})));
    EXPECT_FALSE(passes(setting, make(test::private_table{.table_id = 0x70})));
}

TEST(SubTables, AreJudgedByTableIdAndExtension)
{
    SiDmxFilterParam setting = long_sections(0x4E);
    EXPECT_TRUE(may_pass(setting, 0x4E));
    EXPECT_FALSE(may_pass(setting, 0x4F));
    EXPECT_TRUE(may_pass(setting, 0x4E, 0x1234));
    setting.match[3] = 0x12;
    setting.match[4] = 0x34;
    setting.mask[3] = setting.mask[4] = 0xFF;
    EXPECT_TRUE(may_pass(setting, 0x4E, 0x1234));
    EXPECT_FALSE(may_pass(setting, 0x4E, 0x1235));
    EXPECT_FALSE(may_pass(setting, 0x4E, 0x2234));
    setting.filter_depth = 1;
    EXPECT_TRUE(may_pass(setting, 0x4E, 0x1235));
}

TEST(BatchSize, IsOneToTwoHundredSections)
{
    SiDmxFilterParam setting{};
    setting.list_length = 50;
    EXPECT_EQ(batch_length(setting), 1u);
    setting.list_mode = 1;
    EXPECT_EQ(batch_length(setting), 50u);
    setting.list_length = 0;
    EXPECT_EQ(batch_length(setting), 1u);
    setting.list_length = 5000;
    EXPECT_EQ(batch_length(setting), 200u);
}

TEST(Delivery, NeedsTheCallbackOfItsKind)
{
    SiDmxFilterParam setting{};
    EXPECT_FALSE(delivers(setting));
    setting.section_callback = [](std::uint32_t, std::uint32_t, SiWord, SiDmxSection *) {
        return 0u;
    };
    EXPECT_TRUE(delivers(setting));
    setting.list_mode = 1;
    EXPECT_FALSE(delivers(setting));
    setting.section_list_callback = [](std::uint32_t, std::uint32_t, SiWord, SiDmxSectionList *) {
        return 0u;
    };
    EXPECT_TRUE(delivers(setting));
}

} // namespace
