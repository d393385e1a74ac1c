// SPDX-License-Identifier: LGPL-2.1-or-later
// Lists of events, events by their position, and when an event starts and how long it lasts.
#include <gtest/gtest.h>
#include <libucsi/dvb/eit_section.h>
#include <libucsi/section.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/event_getters.h"

namespace {

using namespace test;

using ids = std::vector<std::uint16_t>;

auto schedule_ids = [](std::uint16_t *list, std::uint32_t *count) {
    return Orva_Si_GetOneServEvtIds(network, stream, sid, list, count);
};

auto ids_of_section(std::uint32_t table_id, std::uint32_t number)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetOneSectEvtIds(network, stream, sid, table_id, number, list, count);
    };
}

struct found_event {
    std::uint32_t result;
    std::uint16_t id;
};
found_event by_position(std::uint32_t index)
{
    std::uint16_t id = 0xA5A5;
    const std::uint32_t result = Orva_Si_GetBnrEvtId(network, stream, sid, index, &id);
    return {result, id};
}

// ---- All events of a service

using ServiceEvents = EventQuery;

TEST_F(ServiceEvents, AreListedInTheOrderOfArrival)
{
    deliver(guide(0x51, 8, {{.id = 50}}));
    deliver(guide(0x50, 3, {{.id = 9}, {.id = 2}, {.id = 0xFFFF}}));
    deliver(guide(0x50, 0, {{.id = 7}, {.id = 0}}));
    deliver(guide(0x6F, 0, {{.id = 60}}));
    expect_events<std::uint16_t>(schedule_ids, {50, 9, 2, 0xFFFF, 7, 0, 60});
}

TEST_F(ServiceEvents, AFullListIsToldInItsOwnWords)
{
    deliver(guide(0x50, 0, {{.id = 1}, {.id = 2}}));
    expect_list<std::uint16_t>(schedule_ids, {1, 2}, "error:Need more room\n");
}

TEST_F(ServiceEvents, AreToldInTheLog)
{
    deliver(guide(0x50, 0, {{.id = 4711}}));
    ask<std::uint16_t>(schedule_ids, 1);
    EXPECT_TRUE(fake::logged(4, "found the event id = 4711\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged("all are looped of count=1\n"));
}

TEST_F(ServiceEvents, OfPresentAndFollowingAreLeftOut)
{
    deliver(guide(0x4E, 0, {{.id = 1}}));
    deliver(guide(0x50, 0, {{.id = 2}}));
    deliver(guide(0x4F, 1, {{.id = 3}}));
    expect_events<std::uint16_t>(schedule_ids, {2});
    EXPECT_TRUE(fake::logged(4, "ingore the banner eit table\n")) << fake::log_text();
    std::uint32_t count = 0;
    EXPECT_EQ(Orva_Si_GetOneServEvtCount(network, stream, sid, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 1u);
}

TEST_F(ServiceEvents, ThatComeTwiceAreListedTwice)
{
    deliver(guide(0x50, 0, {{.id = 5}, {.id = 5}}));
    deliver(guide(0x50, 1, {{.id = 5}}));
    expect_events<std::uint16_t>(schedule_ids, {5, 5, 5});
}

TEST_F(ServiceEvents, OfOtherServicesAreLeftOut)
{
    for (const std::uint16_t other : std::to_array<std::uint16_t>({1, 2, 3}))
        deliver(make(eit{.table_id = 0x50, .service = other, .events = {{.id = other}}}));
    deliver(guide(0x50, 0, {{.id = 10}}));
    deliver(make(eit{.table_id = 0x50, .service = sid, .ts = stream, .events = {{.id = 11}}}));
    expect_events<std::uint16_t>(schedule_ids, {10});
}

TEST_F(ServiceEvents, OfNoneThereIsNoData)
{
    expect_empty<std::uint16_t>(schedule_ids, ORVA_SI_NO_DATA);
    deliver(guide(0x4E, 0, {{.id = 1}}));
    deliver(guide(0x50, 0, {}));
    expect_empty<std::uint16_t>(schedule_ids, ORVA_SI_NO_DATA);
}

TEST_F(ServiceEvents, AFullListIsNotFullForWhatIsPassedOver)
{
    deliver(guide(0x50, 0, {{.id = 1}}));
    deliver(damage(guide(0x50, 1, {{.id = 2}})));
    deliver(guide(0x4E, 0, {{.id = 3}}));
    deliver(guide(0x50, 2, {}));
    expect_events<std::uint16_t>(schedule_ids, {1});
}

TEST_F(ServiceEvents, AnUpdateReplacesThoseOfItsSection)
{
    deliver(guide(0x50, 0, {{.id = 1}, {.id = 2}}));
    deliver(guide(0x50, 1, {{.id = 3}}));
    deliver(guide(0x50, 0, {{.id = 4}}));
    expect_events<std::uint16_t>(schedule_ids, {4, 3});
    Orva_Si_EraseAllEitRawData();
    expect_empty<std::uint16_t>(schedule_ids, ORVA_SI_NO_DATA);
}

TEST_F(ServiceEvents, AreAsManyAsTheLongestSectionHolds)
{
    std::vector<eit_event> listed(338); // of 12 bytes each
    ids expected;
    for (eit_event &one : listed) {
        one.id = static_cast<std::uint16_t>(1000 + expected.size());
        expected.push_back(one.id);
    }
    const octets section = guide(0x50, 0, listed);
    ASSERT_EQ(section.size(), 4074u);
    deliver(section);
    expect_list<std::uint16_t>(schedule_ids, expected, "error:Need more room\n");
    EXPECT_EQ(expected.size(), 338u);
}

TEST_F(ServiceEvents, AreCountedWithoutAskingForACapacity)
{
    deliver(guide(0x50, 0, {{.id = 1}, {.id = 2}}));
    deliver(damage(guide(0x50, 1, {{.id = 3}})));
    deliver(guide(0x61, 0, {{.id = 2}}));
    for (std::uint32_t count : {0u, 1u, 77u, ~0u}) {
        EXPECT_EQ(Orva_Si_GetOneServEvtCount(network, stream, sid, &count), ORVA_SI_OK);
        EXPECT_EQ(count, 3u);
    }
}

TEST_F(ServiceEvents, OfNoneTheCountIs0)
{
    deliver(guide(0x4E, 0, {{.id = 1}}));
    std::uint32_t count = 77;
    EXPECT_EQ(Orva_Si_GetOneServEvtCount(network, stream, sid, &count), ORVA_SI_NO_DATA);
    EXPECT_EQ(count, 0u);
}

// ---- The events of one section

using SectionEvents = EventQuery;

TEST_F(SectionEvents, AreThoseOfThatTableAndNumber)
{
    deliver(guide(0x50, 0, {{.id = 1}}));
    deliver(guide(0x51, 8, {{.id = 2}}));
    deliver(guide(0x50, 8, {{.id = 3}, {.id = 4}, {.id = 3}}));
    deliver(guide(0x4E, 0, {{.id = 5}}));
    deliver(guide(0x4E, 1, {{.id = 6}}));
    expect_events<std::uint16_t>(ids_of_section(0x50, 8), {3, 4, 3});
    EXPECT_TRUE(fake::logged(4, "ingore the wrong eit table\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "ingore the wrong section number\n"));
    expect_events<std::uint16_t>(ids_of_section(0x51, 8), {2});
    expect_events<std::uint16_t>(ids_of_section(0x4E, 0), {5});
    expect_events<std::uint16_t>(ids_of_section(0x4E, 1), {6});
    for (const std::uint32_t table_id : {0x4Du, 0x51u, 0x52u, 0u, 0xFFu, 0x42u})
        expect_empty<std::uint16_t>(ids_of_section(table_id, 0), ORVA_SI_NO_DATA);
    for (const std::uint32_t number : {1u, 7u, 9u, 255u})
        expect_empty<std::uint16_t>(ids_of_section(0x50, number), ORVA_SI_NO_DATA);
}

TEST_F(SectionEvents, ActualAndOtherTablesAreOne)
{
    deliver(guide(0x63, 4, {{.id = 1}}));
    deliver(guide(0x55, 5, {{.id = 2}}));
    deliver(guide(0x4F, 0, {{.id = 3}}));
    deliver(guide(0x4E, 1, {{.id = 4}}));
    for (const std::uint32_t table_id : {0x53u, 0x63u})
        expect_events<std::uint16_t>(ids_of_section(table_id, 4), {1});
    for (const std::uint32_t table_id : {0x55u, 0x65u})
        expect_events<std::uint16_t>(ids_of_section(table_id, 5), {2});
    for (const std::uint32_t table_id : {0x4Eu, 0x4Fu}) {
        expect_events<std::uint16_t>(ids_of_section(table_id, 0), {3});
        expect_events<std::uint16_t>(ids_of_section(table_id, 1), {4});
    }
    expect_empty<std::uint16_t>(ids_of_section(0x43, 4), ORVA_SI_NO_DATA);
}

TEST_F(SectionEvents, OfTableAndNumberTheLow8BitsCount)
{
    deliver(guide(0x50, 255, {{.id = 1}}));
    expect_events<std::uint16_t>(ids_of_section(0xAB50, 0xFFFFFFFF), {1});
    expect_events<std::uint16_t>(ids_of_section(0x1060, 0x1FF), {1});
}

TEST_F(SectionEvents, OfADamagedOrEmptySectionThereIsNoData)
{
    deliver(damage(guide(0x50, 0, {{.id = 1}})));
    deliver(guide(0x50, 1, {}));
    expect_empty<std::uint16_t>(ids_of_section(0x50, 0), ORVA_SI_NO_DATA);
    expect_empty<std::uint16_t>(ids_of_section(0x50, 1), ORVA_SI_NO_DATA);
}

// ---- Present and following

using BannerEvents = EventQuery;

TEST_F(BannerEvents, ArePresentAndFollowing)
{
    deliver(guide(0x4E, 0, {{.id = 100}}));
    deliver(guide(0x4E, 1, {{.id = 200}}));
    deliver(guide(0x50, 0, {{.id = 300}}));
    EXPECT_EQ(by_position(0).result, ORVA_SI_OK);
    EXPECT_EQ(by_position(0).id, 100);
    EXPECT_EQ(by_position(1).result, ORVA_SI_OK);
    EXPECT_EQ(by_position(1).id, 200);
    EXPECT_TRUE(fake::logged(4, "found the index=0x1 event id = 200\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "found the index=0 event id = 100\n"));
}

TEST_F(BannerEvents, AreCountedInTheOrderOfArrival)
{
    deliver(guide(0x4E, 1, {{.id = 200}}));
    deliver(guide(0x50, 0, {{.id = 300}, {.id = 301}}));
    deliver(guide(0x4E, 2, {}));
    deliver(guide(0x4F, 0, {{.id = 100}, {.id = 101}}));
    const ids expected{200, 100, 101};
    for (std::uint32_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(by_position(index).result, ORVA_SI_OK);
        EXPECT_EQ(by_position(index).id, expected[index]) << index;
    }
}

TEST_F(BannerEvents, BehindTheLastAreNotFound)
{
    deliver(guide(0x4E, 0, {{.id = 100}}));
    deliver(damage(guide(0x4E, 1, {{.id = 200}})));
    for (const std::uint32_t index : {1u, 2u, 0x100u, 0x10000u, ~0u}) {
        EXPECT_EQ(by_position(index).result, ORVA_SI_NOT_FOUND) << index;
        EXPECT_EQ(by_position(index).id, 0xA5A5) << index;
    }
}

// ---- Which event is meant

TEST(EventId, TheLow16BitsDecideAndTheSequenceDoesNot)
{
    const dvb_eit_section section{};
    dvb_eit_event one{};
    one.event_id = 0x1234;
    for (const std::uint32_t sequence : {0u, 1u, ~0u}) {
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0x1234, sequence), 1u);
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0xABCD1234, sequence), 1u);
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0x3412, sequence), 0u);
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0x1235, sequence), 0u);
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0x0034, sequence), 0u);
        EXPECT_EQ(Orva_Si_IsEqual_EventId(&section, &one, 0x12340000, sequence), 0u);
    }
}

TEST(EventId, BothNumbersAreTold)
{
    const dvb_eit_section section{};
    dvb_eit_event one{};
    one.event_id = 4711;
    Orva_Si_IsEqual_EventId(&section, &one, 4711, 0);
    EXPECT_TRUE(fake::logged(4, "evt_id = 4711, event_id = 4711\n")) << fake::log_text();
    Orva_Si_IsEqual_EventId(&section, &one, 12, 0);
    EXPECT_TRUE(fake::logged(4, "evt_id = 4711, event_id = 12\n") ||
                fake::logged(4, "evt_id = 12, event_id = 4711\n"));
}

// ---- When an event is

class EventTime : public EventQuery {
protected:
    static constexpr std::uint32_t untouched = 0xA5A5A5A5;

    static std::uint32_t start(std::uint32_t event_id, std::uint8_t banner = in_schedule)
    {
        std::uint32_t time = untouched;
        const std::uint32_t result =
            Orva_Si_GetEvtStartUTCTime(network, stream, sid, event_id, &time, banner);
        EXPECT_EQ(result, time == untouched ? ORVA_SI_FAILURE : ORVA_SI_OK);
        return time;
    }
    static std::uint32_t duration(std::uint32_t event_id, std::uint8_t banner = in_schedule)
    {
        std::uint32_t time = untouched;
        const std::uint32_t result =
            Orva_Si_GetEvtDuringTime(network, stream, sid, event_id, &time, banner);
        EXPECT_EQ(result, time == untouched ? ORVA_SI_FAILURE : ORVA_SI_OK);
        return time;
    }
};

TEST_F(EventTime, IsInSecondsSince1970)
{
    struct row {
        std::uint16_t mjd;
        std::uint32_t bcd;
        std::uint32_t seconds;
    };
    for (const row &r : {
             row{40587, 0x000000, 0}, row{40587, 0x000001, 1},
             row{45218, 0x124525, 400164325}, // 1982-09-06 12:45:25, EN 300 468 annex C
             row{the_day, 0x000000, midnight}, row{the_day, 0x235959, midnight + 86399},
             row{40586, 0x235900, 4294967236},  // 60 seconds before 1970
             row{0, 0x000000, 788250496},       // 2^32 - 40587 days
             row{0xFFFF, 0x000000, 2155507200}, // the last day, in 2038
             row{0xFFFF, 0xFFFFFF, 2156111265}, // undefined: 165 hours, minutes and seconds on top
             row{the_day, 0x1A2B3C, midnight + 20 * 3600 + 31 * 60 + 42}, // digits above 9
         }) {
        deliver(scheduled({.id = 1, .mjd = r.mjd, .start_bcd = r.bcd}));
        EXPECT_EQ(start(1), r.seconds) << r.mjd << ' ' << std::hex << r.bcd;
    }
}

TEST_F(EventTime, DurationIsInSeconds)
{
    struct row {
        std::uint32_t bcd;
        std::uint32_t seconds;
    };
    for (const row &r : {row{0x000000, 0}, row{0x000001, 1}, row{0x014530, 6330},
                         row{0x235959, 86399}, row{0x990000, 356400}, row{0xFFFFFF, 604065}}) {
        deliver(scheduled({.id = 1, .duration_bcd = r.bcd}));
        EXPECT_EQ(duration(1), r.seconds) << std::hex << r.bcd;
    }
}

TEST_F(EventTime, TheFlagsBehindTheDurationAreNotPartOfIt)
{
    deliver(guide(0x50, 0,
                  {{.id = 1, .duration_bcd = 0x010203, .running_status = 7, .free_ca_mode = true},
                   {.id = 2, .duration_bcd = 0x010203}}));
    EXPECT_EQ(duration(1), 3723u);
    EXPECT_EQ(duration(2), 3723u);
}

TEST_F(EventTime, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0, {{.id = 1, .mjd = the_day, .duration_bcd = 0x000100}}));
    deliver(guide(0x50, 0, {{.id = 1, .mjd = the_day + 1, .duration_bcd = 0x000200}}));
    deliver(guide(0x4F, 1, {{.id = 2, .mjd = the_day + 2}}));
    deliver(guide(0x60, 1, {{.id = 3, .mjd = the_day + 3}}));
    EXPECT_EQ(start(1, in_banner), midnight);
    EXPECT_EQ(duration(1, in_banner), 60u);
    EXPECT_EQ(start(1, in_schedule), midnight + 86400);
    EXPECT_EQ(duration(1, in_schedule), 120u);
    EXPECT_EQ(start(2, in_banner), midnight + 2 * 86400);
    EXPECT_EQ(start(2, in_schedule), untouched);
    EXPECT_EQ(start(3, in_schedule), midnight + 3 * 86400);
    EXPECT_EQ(start(3, in_banner), untouched);
}

TEST_F(EventTime, TheFirstOfSeveralAnswers)
{
    deliver(damage(guide(0x50, 9, {{.id = 1, .duration_bcd = 0x000009}})));
    deliver(guide(0x50, 3,
                  {{.id = 2},
                   {.id = 1, .mjd = the_day, .duration_bcd = 0x000001},
                   {.id = 1, .mjd = the_day + 1, .duration_bcd = 0x000002}}));
    deliver(guide(0x50, 0, {{.id = 1, .mjd = the_day + 2, .duration_bcd = 0x000003}}));
    EXPECT_EQ(start(1), midnight);
    EXPECT_EQ(duration(1), 1u);
}

TEST_F(EventTime, OfNoEventNothingIsWritten)
{
    deliver(guide(0x50, 0, {{.id = 1}}));
    EXPECT_EQ(start(2), untouched);
    EXPECT_EQ(duration(2), untouched);
    EXPECT_EQ(start(0x100), untouched);
    EXPECT_EQ(duration(0x100), untouched);
}

} // namespace
