// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections that are not as they should be, put before all questions about events.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "support/event_questions.h"

namespace {

using namespace test;
using HostileEvents = EventQuery;

// ---- Sections that are not as they should be

TEST_F(HostileEvents, ADamagedSectionIsPassedOver)
{
    expect_passed_over([](const octets &section) { return damage(section); }, "CRC_32");
    expect_passed_over(
        [](octets section) {
            section[20] ^= 1; // the event's start
            return section;
        },
        "content");
}

TEST_F(HostileEvents, ASectionWithoutTheSyntaxIndicatorIsPassedOver)
{
    expect_passed_over(
        [](const octets &section) { return with_byte(section, 1, section[1] & 0x7F); },
        "section_syntax_indicator");
}

TEST_F(HostileEvents, ASectionOfAnotherLengthThanItSaysIsPassedOver)
{
    expect_passed_over(
        [](octets section) {
            section.push_back(0);
            return section;
        },
        "a byte more");
    expect_passed_over(
        [](octets section) {
            section.pop_back();
            return section;
        },
        "a byte less");
    expect_passed_over(
        [](const octets &section) { return fix_crc(set_length(section, section.size() - 4)); },
        "says less, and that fits its CRC_32");
    expect_passed_over([](const octets &section) { return set_length(section, 0xFFF); },
                       "says most");
    expect_passed_over([](const octets &section) { return set_length(section, 0); }, "says 0");
}

TEST_F(HostileEvents, SectionsTooShortForAnEventArePassedOver)
{
    for (std::size_t size = 3; size < 7; ++size)
        expect_passed_over(
            [=](octets section) {
                section.resize(size);
                return set_length(section, size - 3);
            },
            "bytes: " + std::to_string(size));
    for (std::size_t size = 7; size < 30; ++size) // 30 are one event without descriptors
        expect_passed_over([=](const octets &section) { return cut(section, size); },
                           "bytes: " + std::to_string(size));
}

TEST_F(HostileEvents, ASectionWithoutEventsIsPassedOver)
{
    expect_passed_over([](const octets &section) { return guide(section[0], 0, {}); },
                       "section_length 15");
}

TEST_F(HostileEvents, AnEventWhoseLoopRunsOutOfTheSectionIsPassedOver)
{
    expect_passed_over([](const octets &section) { return with_length12(section, 24, 0xFFF); },
                       "descriptors_loop_length");
    expect_passed_over(
        [](const octets &section) {
            return with_length12(section, 24, section.size() - 30 + 1); // into the CRC_32
        },
        "descriptors_loop_length, by a byte");
}

TEST_F(HostileEvents, ASectionThatCannotBeDecodedIsTold)
{
    deliver(with_length12(full_section(0x50), 24, 0xFFF));
    const auto says_so = [](const fake::log_line &line) {
        return line.level == 4 && line.text.starts_with("@") &&
               line.text.find("eit_section == NULL") != std::string::npos;
    };
    for (const question &q : questions) {
        if (!q.is_about(in_schedule))
            continue;
        fake::clear_log();
        q.ask({});
        EXPECT_TRUE(std::ranges::any_of(fake::log_lines(), says_so)) << q.name << '\n'
                                                                     << fake::log_text();
    }
}

TEST_F(HostileEvents, BytesBehindTheLastEventSpoilTheSection)
{
    expect_passed_over(
        [](octets section) {
            section.insert(section.end() - 4, 5, 0x00);
            return fix_crc(set_length(section, section.size() - 3));
        },
        "half an event");
}

TEST_F(HostileEvents, ADescriptorThatRunsOutOfItsLoopSpoilsTheSection)
{
    expect_passed_over([](const octets &section) { return with_byte(section, 27, 0xFF); },
                       "descriptor_length");
}

TEST_F(HostileEvents, TheLargestSectionIs4096Bytes)
{
    const octets largest = full_section_of(4096);
    ASSERT_EQ(largest.size(), 4096u);
    deliver(largest);
    expect_answers({});
    for (const std::size_t size : {4097u, 4098u}) {
        Orva_Si_EraseAllEitRawData();
        deliver(full_section_of(size));
        ASSERT_EQ(records().at(0)->sect_len, size);
        expect_nothing({});
    }
}

} // namespace
