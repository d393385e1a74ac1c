// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <limits>

#include "time_words.h"

namespace {

using tool::parse_time;

constexpr std::uint32_t new_year = 1767225600; // 2026-01-01T00:00:00Z
constexpr std::uint32_t hour = 3600;

void in_zone(const char *zone)
{
    const auto setting = tool::time_zone_setting(zone);
    ASSERT_TRUE(setting.has_value()) << zone;
    tool::use_time_zone(*setting);
}

TEST(ParseTime, Rfc3339IsReadWhateverTheLocalTime)
{
    in_zone("-05:00");
    EXPECT_EQ(parse_time("2026-01-01T00:00:00Z"), new_year);
    EXPECT_EQ(parse_time("2026-01-01t00:00:00z"), new_year);
    EXPECT_EQ(parse_time("2026-01-01 00:00:00.999Z"), new_year);
    EXPECT_EQ(parse_time("2026-01-01T01:30:00+01:30"), new_year);
    EXPECT_EQ(parse_time("2025-12-31T22:00:00-02:00"), new_year);
}

TEST(ParseTime, WithoutOffsetTheTimeIsLocal)
{
    in_zone("+02:00");
    EXPECT_EQ(parse_time("2026-01-01"), new_year - 2 * hour);
    EXPECT_EQ(parse_time("2026-01-01 02:00"), new_year);
    EXPECT_EQ(parse_time("2026-01-01T02:00:07"), new_year + 7);
}

TEST(ParseTime, SummerTimeOfTheZoneCounts)
{
    in_zone("Europe/Berlin");
    EXPECT_EQ(parse_time("2026-01-01 01:00"), new_year);
    EXPECT_EQ(parse_time("2026-07-01 02:00"), parse_time("2026-07-01T00:00:00Z"));
}

TEST(ParseTime, WhatIsNoTimeIsRefused)
{
    in_zone("UTC");
    for (const char *text :
         {"", "today", "2026", "2026-1-1", "2026-02-29", "2026-13-01", "2026-00-10", "2026-01-00",
          "2026-01-01T", "2026-01-01 24:00", "2026-01-01 12:60", "2026-01-01 12:00:60",
          "2026-01-01 12:00x", "2026-01-01Z", "2026-01-01T12:00Z", "2026-01-01T12:00:00+1:00",
          "2026-01-01T12:00:00+25:00", "2026-01-01T12:00:00.Z", "2026-01-01T12:00:00Z "})
        EXPECT_EQ(parse_time(text), std::nullopt) << text;
}

TEST(ParseTime, OnlyTimesOf32BitsAreTaken)
{
    EXPECT_EQ(parse_time("1970-01-01T00:00:00Z"), 0u);
    EXPECT_EQ(parse_time("1969-12-31T23:59:59Z"), std::nullopt);
    EXPECT_EQ(parse_time("2106-02-07T06:28:15Z"), std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(parse_time("2106-02-07T06:28:16Z"), std::nullopt);
}

TEST(TimeZone, NamesThatAreNoneAreRefused)
{
    for (const char *zone : {"", "Atlantis/Poseidonis", "/etc/passwd", "../../../etc/passwd", "+1",
                             "+01", "+24:00", "+01:60", "+01:00x", "Europe"})
        EXPECT_EQ(tool::time_zone_setting(zone), std::nullopt) << zone;
}

TEST(TimeText, IsUtcForProgramsAndLocalForPeople)
{
    in_zone("+05:30");
    EXPECT_EQ(tool::utc_text(new_year), "2026-01-01T00:00:00Z");
    EXPECT_EQ(tool::day_text(new_year), "Thu 2026-01-01");
    EXPECT_EQ(tool::clock_text(new_year), "05:30");
    EXPECT_EQ(tool::second_text(new_year + 9), "05:30:09");
}

TEST(TimeText, ZonesWestOfGreenwichAreBehind)
{
    in_zone("-03:30");
    EXPECT_EQ(tool::day_text(new_year), "Wed 2025-12-31");
    EXPECT_EQ(tool::clock_text(new_year), "20:30");
}

TEST(TimeText, LastSecondOf32BitsIsIn2106)
{
    EXPECT_EQ(tool::utc_text(std::numeric_limits<std::uint32_t>::max()), "2106-02-07T06:28:15Z");
}

} // namespace
