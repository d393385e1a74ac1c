// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/notify.h"
#include "orva_si/time.h"
#include "support/time_sections.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace test;

constexpr std::uint32_t reason_tdt = 3;
constexpr std::uint32_t reason_tot = 16;
constexpr std::uint32_t no_data = 0x2000D;

struct told {
    std::uint32_t reason;
    std::uint32_t flag;
    SiWord data;
    std::uint32_t seconds;
    bool operator==(const told &) const = default;
};
std::vector<told> &notifications()
{
    static std::vector<told> kept;
    return kept;
}

// Sections are given in buffers of their exact size, so that the address sanitizer sees every byte
// too far.
class TimeTables : public testing::Test {
protected:
    TimeTables()
    {
        Orva_Si_InstallCallback([](std::uint32_t reason, std::uint32_t flag, SiWord data,
                                   std::uint32_t value) -> std::uint32_t {
            notifications().push_back({reason, flag, data, value});
            return 0;
        });
    }
    static std::uint32_t tot_parse(const octets &section)
    {
        return Orva_Si_TotParse(section.data(), static_cast<std::uint32_t>(section.size()));
    }
    static std::uint32_t tdt_parse(const octets &section)
    {
        return Orva_Si_TdtParse(section.data(), static_cast<std::uint32_t>(section.size()), 0x14);
    }
    // The countries of the stored TOT; empty also when there is none.
    static std::vector<std::string> stored_countries()
    {
        std::array<SiLocalTimeOffset, 128> entries{};
        std::uint32_t count = entries.size();
        Orva_Si_GetLocalTimeOffset(entries.data(), &count);
        std::vector<std::string> found;
        for (std::uint32_t i = 0; i < count; ++i)
            found.emplace_back(entries.at(i).country_code);
        return found;
    }
};

bool reported_missing(const std::string &name)
{
    return fake::logged(2, "[" + name + "\n");
}

octets tot_of(std::string_view country)
{
    return make(tot{.descriptors = {local_time_offset({{.country = country}})}});
}

// ---- Conversions

std::uint32_t utc_of(std::uint16_t mjd, std::uint32_t bcd)
{
    std::uint32_t seconds = 1;
    EXPECT_EQ(Orva_Si_GetUTCTimeFromMJD(mjd, bcd, &seconds), 0u);
    return seconds;
}

TEST(UtcTime, CountsFrom1970)
{
    EXPECT_EQ(utc_of(40587, 0x000000), 0u);
    EXPECT_EQ(utc_of(45218, 0x124525), 400164325u); // the example of EN 300 468 annex C
}

TEST(UtcTime, IsModulo32Bits)
{
    EXPECT_EQ(utc_of(40586, 0x235959), 0xFFFFFFFFu);
    EXPECT_EQ(utc_of(0, 0), static_cast<std::uint32_t>(-40587LL * 86400));
    EXPECT_EQ(utc_of(65535, 0), 2155507200u);
}

TEST(UtcTime, TakesTheLow24BitsAndDigitsAboveNineAsTheyStand)
{
    EXPECT_EQ(utc_of(40587, 0xAB000001), 1u);
    EXPECT_EQ(utc_of(40587, 0xFFFFFF), 165u * 3600 + 165u * 60 + 165u);
}

TEST(UtcTime, NullIsReported)
{
    EXPECT_EQ(Orva_Si_GetUTCTimeFromMJD(40587, 0, nullptr), 2u);
    EXPECT_TRUE(reported_missing("pUTCTime != NULL"));
}

SiDate date_of(std::uint16_t mjd, std::uint32_t bcd)
{
    SiDate date{};
    EXPECT_EQ(Orva_Si_GetDateTimeFromMJD(mjd, bcd, &date), 0u);
    return date;
}

std::string text_of(const SiDate &date)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%d-%02d-%02d %02d:%02d:%02d", date.year, date.month,
                  date.day, date.hour, date.minute, date.second);
    return text.data();
}

TEST(DateTime, IsThatOfTheStandardsExample)
{
    EXPECT_EQ(text_of(date_of(45218, 0x124525)), "1982-09-06 12:45:25");
}

TEST(DateTime, AgreesWithTheCalendarFromMarch1900On)
{
    using namespace std::chrono;
    for (int mjd = 15079; mjd <= 0xFFFF; ++mjd) {
        const year_month_day day{sys_days{days{mjd - 40587}}};
        const SiDate date = date_of(static_cast<std::uint16_t>(mjd), 0x235959);
        ASSERT_EQ(date.year, static_cast<int>(day.year())) << mjd;
        ASSERT_EQ(date.month, static_cast<unsigned>(day.month())) << mjd;
        ASSERT_EQ(date.day, static_cast<unsigned>(day.day())) << mjd;
    }
}

TEST(DateTime, HourOf24OrMoreRollsIntoTheNextDay)
{
    EXPECT_EQ(text_of(date_of(45218, 0x240000)), "1982-09-07 00:00:00");
    EXPECT_EQ(text_of(date_of(45218, 0x253001)), "1982-09-07 01:30:01");
    EXPECT_EQ(text_of(date_of(45218, 0x990000)), "1982-09-07 75:00:00"); // once only
}

TEST(DateTime, RolledDayIsCarriedIntoTheNextMonthAndYear)
{
    EXPECT_EQ(text_of(date_of(60583, 0x240000)), "2024-10-01 00:00:00"); // from 30 September
    EXPECT_EQ(text_of(date_of(60614, 0x240000)), "2024-11-01 00:00:00"); // from 31 October
    EXPECT_EQ(text_of(date_of(60675, 0x240000)), "2025-01-01 00:00:00"); // from 31 December
}

TEST(DateTime, RolledDayOfFebruaryStays)
{
    EXPECT_EQ(text_of(date_of(60003, 0x240000)), "2023-02-29 00:00:00"); // from 28 February 2023
    EXPECT_EQ(text_of(date_of(60369, 0x240000)), "2024-02-30 00:00:00"); // from 29 February 2024
}

TEST(DateTime, ReservedByteIsLeftAsItIs)
{
    SiDate date{};
    date.reserved = 0xA5;
    Orva_Si_GetDateTimeFromMJD(45218, 0x124525, &date);
    EXPECT_EQ(date.reserved, 0xA5);
}

TEST(DateTime, NullIsReported)
{
    EXPECT_EQ(Orva_Si_GetDateTimeFromMJD(40587, 0, nullptr), 2u);
    EXPECT_TRUE(reported_missing("siDatePtr != NULL"));
}

// ---- Routing

using TimeCase = TimeTables;

TEST_F(TimeCase, RoutesByTableId)
{
    const octets of_tdt = make(tdt{.mjd = 40587, .utc_bcd = 0x000007});
    const octets of_tot = make(tot{.mjd = 40587, .utc_bcd = 0x000009});
    EXPECT_EQ(Orva_Si_TimeCase(of_tdt.data(), static_cast<std::uint32_t>(of_tdt.size()), 20), 0u);
    EXPECT_EQ(Orva_Si_TimeCase(of_tot.data(), static_cast<std::uint32_t>(of_tot.size()), 20), 0u);
    EXPECT_THAT(notifications(), ElementsAre(told{reason_tdt, 1, 0, 7}, told{reason_tot, 1, 0, 9}));
}

TEST_F(TimeCase, OtherTablesAndNoBytesAreRefused)
{
    octets other = make(tdt{});
    other[0] = 0x71;
    EXPECT_EQ(Orva_Si_TimeCase(other.data(), static_cast<std::uint32_t>(other.size()), 20), 1u);
    const octets nothing(1, 0x70);
    EXPECT_EQ(Orva_Si_TimeCase(nothing.data() + 1, 0, 20), 1u);
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(TimeCase, NullIsReported)
{
    EXPECT_EQ(Orva_Si_TimeCase(nullptr, 8, 20), 2u);
    EXPECT_TRUE(reported_missing("psection"));
}

// ---- TDT

using Tdt = TimeTables;

TEST_F(Tdt, TellsItsTime)
{
    EXPECT_EQ(tdt_parse(make(tdt{.mjd = 45218, .utc_bcd = 0x124525})), 0u);
    EXPECT_THAT(notifications(), ElementsAre(told{reason_tdt, 1, 0, 400164325}));
}

TEST_F(Tdt, NullIsReported)
{
    EXPECT_EQ(Orva_Si_TdtParse(nullptr, 8, 20), 2u);
    EXPECT_TRUE(reported_missing("buf"));
}

TEST_F(Tdt, LengthThatIsNotItsOwnIsRefused)
{
    const octets section = make(tdt{});
    for (const std::uint32_t length : {0u, 1u, 2u, 3u, 7u, 9u}) {
        fake::clear_log();
        // As many bytes as are told of, as far as there are that many.
        const octets given(section.begin(), section.begin() + std::min<std::ptrdiff_t>(length, 8));
        EXPECT_EQ(
            Orva_Si_TdtParse(given.data() == nullptr ? section.data() : given.data(), length, 20),
            2u);
        EXPECT_TRUE(reported_missing("section")) << length;
    }
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(Tdt, SectionOfAnotherLengthIsNotDecoded)
{
    const octets section = make(tdt{});
    for (const std::size_t length : {0u, 1u, 4u, 6u, 1022u, 4095u}) {
        fake::clear_log();
        octets other = section;
        other.resize(3 + length);
        EXPECT_EQ(tdt_parse(set_length(other, length)), 2u);
        EXPECT_TRUE(reported_missing("tdt_section")) << length;
    }
    EXPECT_THAT(notifications(), IsEmpty());
}

// ---- TOT

using Tot = TimeTables;

TEST_F(Tot, IsStoredAndTellsItsTimeWithoutOffset)
{
    const auto offset = local_time_offset({{.country = "GBR", .offset_bcd = 0x0100}});
    EXPECT_EQ(tot_parse(make(tot{.mjd = 45218, .utc_bcd = 0x124525, .descriptors = {offset}})), 0u);
    EXPECT_THAT(notifications(), ElementsAre(told{reason_tot, 1, 0, 400164325}));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
    EXPECT_TRUE(fake::logged(5, "~~~Mutex Lock~~~\n"));
    EXPECT_TRUE(fake::logged(5, "===Mutex Unlock===\n"));
}

TEST_F(Tot, NullIsReported)
{
    EXPECT_EQ(Orva_Si_TotParse(nullptr, 8), 2u);
    EXPECT_TRUE(reported_missing("buf"));
}

TEST_F(Tot, Of1025BytesIsRefusedAndTheStoredOneStays)
{
    tot_parse(tot_of("GBR"));
    octets section = tot_of("DEU");
    section.resize(1025);
    notifications().clear();
    EXPECT_EQ(tot_parse(section), 1u);
    EXPECT_TRUE(fake::logged(2, "fatal error of the tot section length > 1024!!\n"));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(Tot, Of1024BytesIsTaken)
{
    std::vector<octets> fill{local_time_offset({{.country = "GBR"}})};
    // 14 bytes without descriptors; 15 for the first; 995 are left.
    for (int i = 0; i < 3; ++i)
        fill.push_back(raw(0x80, octets(255, 0)));
    fill.push_back(raw(0x80, octets(995 - 3 * 257 - 2, 0)));
    const octets section = make(tot{.descriptors = fill});
    ASSERT_EQ(section.size(), 1024u);
    EXPECT_EQ(tot_parse(section), 0u);
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
}

TEST_F(Tot, DamagedOneIsRefusedAndTheStoredOneStays)
{
    tot_parse(tot_of("GBR"));
    notifications().clear();
    EXPECT_EQ(tot_parse(damage(tot_of("DEU"))), 1u);
    EXPECT_TRUE(fake::logged(2, "crc error\n"));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(Tot, ThatClaimsMoreThan1024BytesIsADamagedOne)
{
    EXPECT_EQ(tot_parse(set_length(tot_of("GBR"), 1022)), 1u);
    EXPECT_EQ(tot_parse(set_length(tot_of("GBR"), 4095)), 1u);
    EXPECT_EQ(fake::times_logged("crc error\n"), 2u);
    EXPECT_THAT(stored_countries(), IsEmpty());
}

TEST_F(Tot, TooShortForAHeaderIsRefused)
{
    for (const std::uint32_t length : {0u, 1u, 2u}) {
        fake::clear_log();
        const octets section(std::max(length, 1u), 0x73);
        EXPECT_EQ(Orva_Si_TotParse(section.data(), length), 2u);
        EXPECT_TRUE(reported_missing("section")) << length;
    }
}

TEST_F(Tot, GivenWithMoreBytesThanItHasIsStoredButNotTold)
{
    octets section = tot_of("GBR");
    section.resize(section.size() + 5, 0xFF);
    EXPECT_EQ(tot_parse(section), 2u);
    EXPECT_TRUE(reported_missing("section"));
    EXPECT_THAT(notifications(), IsEmpty());
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
}

TEST_F(Tot, GivenWithFewerBytesThanItHasIsStoredButNotTold)
{
    const octets section = tot_of("GBR");
    EXPECT_EQ(Orva_Si_TotParse(section.data(), static_cast<std::uint32_t>(section.size()) - 4), 2u);
    EXPECT_TRUE(reported_missing("section"));
    EXPECT_THAT(notifications(), IsEmpty());
    EXPECT_THAT(stored_countries(), ElementsAre("GBR")); // only the CRC_32 was cut off
}

TEST_F(Tot, ShorterOneLeavesNothingOfTheOneBefore)
{
    const auto twice = local_time_offset({{.country = "GBR"}, {.country = "DEU"}});
    tot_parse(make(tot{.descriptors = {twice}}));
    tot_parse(tot_of("FRA"));
    EXPECT_THAT(stored_countries(), ElementsAre("FRA"));
}

TEST_F(Tot, ThatDoesNotDecodeIsNotTold)
{
    constexpr std::size_t loop_length_at = 8;
    EXPECT_EQ(tot_parse(with_length12(tot_of("GBR"), loop_length_at, 100)), 2u);
    EXPECT_TRUE(reported_missing("tot_section"));
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(Tot, TooShortForATimeIsNotTold)
{
    for (const std::size_t size : {7u, 8u, 12u, 13u}) {
        fake::clear_log();
        EXPECT_EQ(tot_parse(cut(make(tot{}), size)), 2u);
        EXPECT_TRUE(reported_missing("tot_section")) << size;
    }
    EXPECT_THAT(notifications(), IsEmpty());
}

TEST_F(Tot, ResetForgetsTheStoredOne)
{
    tot_parse(tot_of("GBR"));
    EXPECT_EQ(Orva_Si_ResetTimeSection(), 0u);
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), 1u);
    EXPECT_EQ(count, 0u);
}

// ---- Local time offsets

using LocalTimeOffset = TimeTables;

TEST_F(LocalTimeOffset, IsReadFieldByField)
{
    const auto offsets = local_time_offset({{.country = "DEU",
                                             .region = 0x2A,
                                             .polarity = 0,
                                             .offset_bcd = 0x0130,
                                             .change_mjd = 45218,
                                             .change_bcd = 0x124525,
                                             .next_bcd = 0x1245},
                                            {.country = "BRA", .region = 0x3F, .polarity = 1}});
    tot_parse(make(tot{.descriptors = {offsets}}));
    std::array<SiLocalTimeOffset, 2> entries{};
    std::uint32_t count = 2;
    ASSERT_EQ(Orva_Si_GetLocalTimeOffset(entries.data(), &count), 0u) << "an exact fit is not full";
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(entries[0].valid, 1);
    EXPECT_STREQ(entries[0].country_code, "DEU");
    EXPECT_EQ(entries[0].country_region_id, 0x2A);
    EXPECT_EQ(entries[0].local_time_offset_polarity, 0);
    EXPECT_EQ(entries[0].offset_hours, 1);
    EXPECT_EQ(entries[0].offset_minutes, 30);
    EXPECT_EQ(text_of(entries[0].time_of_change), "1982-09-06 12:45:25");
    EXPECT_EQ(entries[0].next_offset_hours, 12);
    EXPECT_EQ(entries[0].next_offset_minutes, 45);
    EXPECT_STREQ(entries[1].country_code, "BRA");
    EXPECT_EQ(entries[1].country_region_id, 0x3F);
    EXPECT_EQ(entries[1].local_time_offset_polarity, 1);
}

TEST_F(LocalTimeOffset, TimeOfChangeAtHour24RollsIntoTheNextDay)
{
    const auto offset = local_time_offset({{.change_mjd = 60583, .change_bcd = 0x240000}});
    tot_parse(make(tot{.descriptors = {offset}}));
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    ASSERT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), 0u);
    EXPECT_EQ(text_of(entry.time_of_change), "2024-10-01 00:00:00");
}

TEST_F(LocalTimeOffset, IsCollectedOverAllDescriptors)
{
    tot_parse(make(tot{.descriptors = {local_time_offset({{.country = "GBR"}, {.country = "IRL"}}),
                                       local_time_offset({{.country = "DEU"}})}}));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR", "IRL", "DEU"));
    EXPECT_TRUE(fake::logged(4, "invoked ...\n"));
    EXPECT_TRUE(fake::logged(4, "got count = 3\n"));
}

TEST_F(LocalTimeOffset, OtherTagsAndLengthsArePassedOver)
{
    octets odd = local_time_offset({{.country = "DEU"}});
    odd.push_back(0);
    odd[1] = 14;
    octets other_tag = local_time_offset({{.country = "FRA"}});
    other_tag[0] = 0x57;
    tot_parse(make(tot{.descriptors = {odd, raw(0x58, {}), other_tag, raw(0x58, octets(12, 0)),
                                       local_time_offset({{.country = "GBR"}})}}));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
}

TEST_F(LocalTimeOffset, MoreThanTheArrayHoldsIsFull)
{
    tot_parse(
        make(tot{.descriptors = {local_time_offset({{.country = "GBR"}, {.country = "IRL"}})}}));
    std::array<SiLocalTimeOffset, 2> entries{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(entries.data(), &count), 3u);
    EXPECT_EQ(count, 1u);
    EXPECT_STREQ(entries[0].country_code, "GBR");
    EXPECT_EQ(entries[1].valid, 0);
}

TEST_F(LocalTimeOffset, CapacityOfZeroIsAnEmptyResult)
{
    tot_parse(tot_of("GBR"));
    SiLocalTimeOffset entry{};
    std::uint32_t count = 0;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), no_data);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(entry.valid, 0);
}

TEST_F(LocalTimeOffset, TotWithoutOffsetsIsAnEmptyResult)
{
    tot_parse(make(tot{}));
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), no_data);
    EXPECT_EQ(count, 0u);
}

TEST_F(LocalTimeOffset, FailsWithoutATot)
{
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), 1u);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(fake::logged(4, "bad pointer\n"));
}

TEST_F(LocalTimeOffset, FailsWithATotThatDoesNotDecode)
{
    tot_parse(with_length12(tot_of("GBR"), 8, 100));
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, &count), 1u);
    EXPECT_EQ(count, 0u);
}

TEST_F(LocalTimeOffset, CanBeReadAgain)
{
    tot_parse(tot_of("GBR"));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
    EXPECT_THAT(stored_countries(), ElementsAre("GBR"));
}

TEST_F(LocalTimeOffset, NullsAreReported)
{
    tot_parse(tot_of("GBR"));
    SiLocalTimeOffset entry{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(&entry, nullptr), 2u);
    EXPECT_TRUE(reported_missing("pcount"));
    EXPECT_EQ(Orva_Si_GetLocalTimeOffset(nullptr, &count), 2u);
    EXPECT_TRUE(reported_missing("localtimes"));
    EXPECT_EQ(count, 0u);
}

TEST_F(LocalTimeOffset, BroadcastTextIsMadeFitForTheLog)
{
    tot_parse(tot_of("\033\n\x9B"));
    EXPECT_THAT(stored_countries(), ElementsAre("\033\n\x9B"));
    const auto lines = fake::log_lines();
    EXPECT_TRUE(std::ranges::any_of(lines, [](const auto &line) {
        return line.text.starts_with("country ... ");
    })) << fake::log_text();
    EXPECT_THAT(fake::log_text(), testing::Not(HasSubstr("\033")));
}

TEST_F(LocalTimeOffset, IsNeverHalfOfTwoTots)
{
    fake::set_log_level(2);
    const octets first =
        make(tot{.descriptors = {local_time_offset({{.country = "AAA"}, {.country = "AAA"}})}});
    const octets second =
        make(tot{.descriptors = {local_time_offset({{.country = "BBB"}, {.country = "BBB"}})}});
    tot_parse(first);
    std::thread writer{[&] {
        for (int i = 0; i < 2000; ++i)
            tot_parse(i % 2 == 0 ? second : first);
    }};
    for (int i = 0; i < 2000; ++i) {
        const auto countries = stored_countries();
        ASSERT_EQ(countries.size(), 2u);
        ASSERT_EQ(countries[0], countries[1]);
    }
    writer.join();
}

} // namespace
