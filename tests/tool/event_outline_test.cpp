// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "event_outline.h"
#include "language.h"
#include "support/descriptors.h"
#include "support/sections.h"

namespace {

using test::eit;
using test::eit_event;
using test::make;
using test::octets;
using testing::ElementsAre;
using tool::is_whole_schedule;
using tool::read_outline;
using tool::section_outline;

std::vector<section_outline> outlines(const std::vector<eit> &sections)
{
    std::vector<section_outline> read;
    for (const eit &section : sections)
        read.push_back(read_outline(make(section)));
    return read;
}

eit schedule(std::uint8_t table_id, std::uint8_t number, std::uint8_t last, int segment_last,
             int last_table_id = -1)
{
    return {.table_id = table_id,
            .section_number = number,
            .last_section_number = last,
            .segment_last_section_number = segment_last,
            .last_table_id = last_table_id};
}

TEST(EventOutline, TellsHeaderTagsAndLanguages)
{
    const octets section = make(
        eit{.table_id = 0x51,
            .version = 9,
            .section_number = 8,
            .last_section_number = 16,
            .segment_last_section_number = 9,
            .last_table_id = 0x53,
            .events = {{.id = 7,
                        .descriptors = {test::short_event("eng", "N", "T"),
                                        test::short_event("deu", "N", "T"),
                                        test::extended_event({.number = 0, .last_number = 1}),
                                        test::extended_event({.number = 1, .last_number = 1})}}}});
    const section_outline read = read_outline(section);
    EXPECT_EQ(read.table_id, 0x51);
    EXPECT_EQ(read.version, 9);
    EXPECT_EQ(read.section_number, 8);
    EXPECT_EQ(read.last_section_number, 16);
    EXPECT_EQ(read.segment_last_section_number, 9);
    EXPECT_EQ(read.last_table_id, 0x53);
    ASSERT_EQ(read.events.size(), 1u);
    EXPECT_EQ(read.events[0].event_id, 7);
    EXPECT_TRUE(read.events[0].tags[0x4D]);
    EXPECT_TRUE(read.events[0].tags[0x4E]);
    EXPECT_FALSE(read.events[0].tags[0x54]);
    EXPECT_THAT(read.events[0].name_languages,
                ElementsAre(tool::language_id('e', 'n', 'g'), tool::language_id('d', 'e', 'u')));
    EXPECT_THAT(read.events[0].extended_languages, ElementsAre(tool::language_id('e', 'n', 'g')));
}

TEST(EventOutline, AllOnesMeanThatATimeIsNotGiven)
{
    const section_outline read = read_outline(make(
        eit{.events = {{.id = 1},
                       {.id = 2, .mjd = 0xFFFF, .start_bcd = 0xFFFFFF, .duration_bcd = 0xFFFFFF},
                       {.id = 3, .mjd = 0xFFFF, .start_bcd = 0x120000}}}));
    ASSERT_EQ(read.events.size(), 3u);
    EXPECT_TRUE(read.events[0].has_start);
    EXPECT_TRUE(read.events[0].has_duration);
    EXPECT_FALSE(read.events[1].has_start);
    EXPECT_FALSE(read.events[1].has_duration);
    EXPECT_TRUE(read.events[2].has_start);
}

TEST(EventOutline, DamagedSectionHasNoEvents)
{
    octets section = make(eit{.events = {{.id = 1}}});
    section[16] ^= 1;
    EXPECT_TRUE(read_outline(section).events.empty());
    EXPECT_TRUE(read_outline({}).events.empty());
}

TEST(EventOutline, ShortestDescriptorsHaveNoLanguage)
{
    const section_outline read = read_outline(make(eit{
        .events = {{.descriptors = {octets{0x4D, 2, 'e', 'n'}, octets{0x4E, 3, 0, 'e', 'n'}}}}}));
    ASSERT_EQ(read.events.size(), 1u);
    EXPECT_TRUE(read.events[0].name_languages.empty());
    EXPECT_TRUE(read.events[0].extended_languages.empty());
}

TEST(WholeSchedule, NeedsEverySegmentUpToItsLastSection)
{
    EXPECT_TRUE(is_whole_schedule(
        outlines({schedule(0x50, 0, 8, 1), schedule(0x50, 1, 8, 1), schedule(0x50, 8, 8, 8)})));
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x50, 0, 8, 1), schedule(0x50, 8, 8, 8)})));
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x50, 0, 8, 1), schedule(0x50, 1, 8, 1)})));
}

TEST(WholeSchedule, NeedsEverySubTable)
{
    EXPECT_TRUE(is_whole_schedule(
        outlines({schedule(0x50, 0, 0, 0, 0x51), schedule(0x51, 0, 0, 0, 0x51)})));
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x50, 0, 0, 0, 0x51)})));
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x51, 0, 0, 0, 0x51)})));
}

TEST(WholeSchedule, NeedsOneVersionOfASubTable)
{
    eit newer = schedule(0x50, 8, 8, 8);
    newer.version = 1;
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x50, 0, 8, 0), newer})));
}

TEST(WholeSchedule, OtherTablesAreNoPartOfIt)
{
    EXPECT_FALSE(is_whole_schedule({}));
    EXPECT_FALSE(is_whole_schedule(outlines({schedule(0x4E, 0, 0, 0), schedule(0x60, 0, 0, 0)})));
}

TEST(WholeTable, NeedsEverySegmentInOneVersion)
{
    const auto is_whole = [](const std::vector<eit> &sections) {
        std::vector<octets> made;
        for (const eit &section : sections)
            made.push_back(make(section));
        return tool::is_whole_table(made);
    };
    EXPECT_TRUE(is_whole({schedule(0x51, 0, 8, 0, 0x5F), schedule(0x51, 8, 8, 8, 0x5F)}));
    EXPECT_TRUE(is_whole({schedule(0x4E, 0, 1, 1), schedule(0x4E, 1, 1, 1)}));
    EXPECT_FALSE(is_whole({schedule(0x4E, 0, 1, 1)}));
    EXPECT_FALSE(is_whole({schedule(0x51, 0, 8, 0)}));
    eit newer = schedule(0x51, 8, 8, 8);
    newer.version = 1;
    EXPECT_FALSE(is_whole({schedule(0x51, 0, 8, 0), newer}));
    EXPECT_FALSE(is_whole({}));
    EXPECT_FALSE(tool::is_whole_table({octets{0x50, 0xF0, 0x05}}));
}

} // namespace
