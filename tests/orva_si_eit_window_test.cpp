// SPDX-License-Identifier: LGPL-2.1-or-later
// Events by time: which ones a window takes, and what a programme grid is told of them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/event_getters.h"

namespace {

using namespace test;

using ids = std::vector<std::uint16_t>;

constexpr std::uint32_t minute = 60;
constexpr std::uint32_t hour = 3600;
constexpr std::uint32_t latest = 0xFFFFFFFF;

auto from(std::uint32_t start)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetGetEventIDsByStartTime(network, stream, sid, start, list, count);
    };
}
auto between(std::uint32_t start, std::uint32_t end)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetGetEventIDsByStartTimeAndEndTime(network, stream, sid, start, end, list,
                                                           count);
    };
}
auto grid(std::uint32_t language, std::uint32_t start, std::uint32_t end)
{
    return [=](SiBasicEvent *list, std::uint32_t *count) {
        return Orva_Si_GetOneServBscEvtInfos(network, stream, sid, language, start, end, list,
                                             count);
    };
}

// What is listed with room to spare, and that the result fits it.
template <class Get>
ids listed(Get get)
{
    const auto answer = ask<std::uint16_t>(get, 16);
    EXPECT_EQ(answer.result, answer.count != 0 ? ORVA_SI_OK : ORVA_SI_NO_DATA);
    return answer.items;
}
ids in_grid(std::uint32_t start, std::uint32_t end)
{
    const auto answer = ask<SiBasicEvent>(grid(english, start, end), 16);
    EXPECT_EQ(answer.result, answer.count != 0 ? ORVA_SI_OK : ORVA_SI_NOT_FOUND);
    ids found;
    for (const SiBasicEvent &one : answer.items)
        found.push_back(one.event_id);
    return found;
}

// ---- From a time on

class FromATime : public EventQuery {
protected:
    FromATime()
    {
        // 20:00 to 20:30, 20:30 to 20:30, 20:30 to 22:00, 22:00 to midnight
        deliver(guide(0x50, 0,
                      {{.id = 1, .mjd = the_day, .start_bcd = 0x200000, .duration_bcd = 0x003000},
                       {.id = 2, .mjd = the_day, .start_bcd = 0x203000, .duration_bcd = 0}}));
        deliver(
            guide(0x60, 1,
                  {{.id = 3, .mjd = the_day, .start_bcd = 0x203000, .duration_bcd = 0x013000},
                   {.id = 4, .mjd = the_day, .start_bcd = 0x220000, .duration_bcd = 0x020000}}));
        deliver(guide(
            0x4E, 0, {{.id = 9, .mjd = the_day, .start_bcd = 0x200000, .duration_bcd = 0x230000}}));
    }
    static constexpr std::uint32_t eight = midnight + 20 * hour;
};

TEST_F(FromATime, EventsThatRunThenOrStartLaterAreTaken)
{
    struct row {
        std::uint32_t time;
        ids taken;
    };
    for (const row &r : {
             row{0, {1, 2, 3, 4}},
             row{eight - 1, {1, 2, 3, 4}},
             row{eight, {1, 2, 3, 4}},
             row{eight + 1, {1, 2, 3, 4}},
             row{eight + 30 * minute - 1, {1, 2, 3, 4}},
             row{eight + 30 * minute, {2, 3, 4}}, // the first has ended, the second is a moment
             row{eight + 30 * minute + 1, {3, 4}},
             row{eight + 2 * hour - 1, {3, 4}},
             row{eight + 2 * hour, {4}},
             row{eight + 4 * hour - 1, {4}},
             row{eight + 4 * hour, {}},
             row{latest, {}},
         })
        EXPECT_EQ(listed(from(r.time)), r.taken) << r.time - eight;
}

TEST_F(FromATime, AnEndLimitsTheStart)
{
    struct row {
        std::uint32_t start, end;
        ids taken;
    };
    constexpr std::uint32_t half_past = eight + 30 * minute, ten = eight + 2 * hour;
    for (const row &r : {
             row{0, latest, {1, 2, 3, 4}},
             row{0, eight, {}}, // the end is not included
             row{0, eight + 1, {1}},
             row{eight - hour, eight, {}},
             row{eight, eight, {}},
             row{eight, half_past, {1}},
             row{eight, half_past + 1, {1, 2, 3}},
             row{half_past - 1, half_past, {1}},     // overlaps its last second
             row{half_past, half_past, {}},          // nothing starts before the end
             row{half_past, half_past + 1, {2, 3}},  // the first has ended
             row{half_past + 1, ten, {3}},           // lies within the third
             row{half_past + 5, half_past + 6, {3}}, // a second of it
             row{eight - hour, ten + hour, {1, 2, 3, 4}},
             row{ten, ten + 1, {4}},
             row{ten + 2 * hour - 1, latest, {4}},
             row{ten + 2 * hour, latest, {}},
             row{0, 0, {}},
             row{latest, latest, {}},
             row{ten, eight, {}}, // a window that ends before it starts
         }) {
        SCOPED_TRACE(::testing::Message() << r.start << " to " << r.end);
        EXPECT_EQ(listed(between(r.start, r.end)), r.taken);
        if (r.start != 0 || r.end != 0) {
            EXPECT_EQ(in_grid(r.start, r.end), r.taken);
        }
    }
}

TEST_F(FromATime, AnEndBeforeTheStartTakesWhatRunsOnBeyondIt)
{
    // 20:00 to 20:30 ends behind 20:20 and starts before 20:10.
    EXPECT_EQ(listed(between(eight + 20 * minute, eight + 10 * minute)), ids{1});
    EXPECT_EQ(in_grid(eight + 20 * minute, eight + 10 * minute), ids{1});
}

TEST_F(FromATime, ExactRoomIsEnough)
{
    for (const std::uint32_t capacity : {4u, 5u, 300u}) {
        fake::clear_log();
        for (const auto &answer : {ask<std::uint16_t>(from(0), capacity),
                                   ask<std::uint16_t>(between(0, latest), capacity)}) {
            EXPECT_EQ(answer.result, ORVA_SI_OK);
            EXPECT_EQ(answer.items, (ids{1, 2, 3, 4}));
        }
        EXPECT_FALSE(told_full());
    }
}

TEST_F(FromATime, TooLittleRoomCutsTheList)
{
    for (const std::uint32_t capacity : {3u, 1u}) {
        for (const bool with_end : {false, true}) {
            fake::clear_log();
            const auto answer = with_end ? ask<std::uint16_t>(between(0, latest), capacity)
                                         : ask<std::uint16_t>(from(0), capacity);
            EXPECT_EQ(answer.result, ORVA_SI_ARRAY_FULL);
            EXPECT_EQ(answer.items, capacity == 3 ? (ids{1, 2, 3}) : (ids{1}));
            EXPECT_TRUE(told_full()) << fake::log_text();
        }
    }
}

TEST_F(FromATime, EventsOutsideTheWindowNeedNoRoom)
{
    EXPECT_EQ(ask<std::uint16_t>(from(eight + 2 * hour), 1).result, ORVA_SI_OK);
    EXPECT_EQ(ask<std::uint16_t>(between(0, eight + 1), 1).result, ORVA_SI_OK);
    EXPECT_EQ(ask<SiBasicEvent>(grid(english, eight, eight + 1), 1).result, ORVA_SI_OK);
}

TEST_F(FromATime, NoRoomAtAllIsRefused)
{
    std::uint16_t id = 0xA5A5;
    std::uint32_t count = 0;
    expect_refused([&] { return from(0)(&id, &count); }, "*array_count > 0");
    expect_refused([&] { return between(0, latest)(&id, &count); }, "*array_count > 0");
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(id, 0xA5A5);
}

TEST_F(FromATime, OfNoneTheCountIs0)
{
    for (const auto &answer :
         {ask<std::uint16_t>(from(latest), 3), ask<std::uint16_t>(between(0, 1), 3)}) {
        EXPECT_EQ(answer.result, ORVA_SI_NO_DATA);
        EXPECT_EQ(answer.count, 0u);
    }
    const auto basic = ask<SiBasicEvent>(grid(english, 0, 1), 3);
    EXPECT_EQ(basic.result, ORVA_SI_NOT_FOUND);
    EXPECT_EQ(basic.count, 0u);
}

TEST_F(FromATime, DamagedSectionsArePassedOver)
{
    deliver(damage(guide(0x50, 5, {{.id = 5, .mjd = the_day, .start_bcd = 0x210000}})));
    EXPECT_EQ(listed(from(0)), (ids{1, 2, 3, 4}));
    EXPECT_EQ(listed(between(0, latest)), (ids{1, 2, 3, 4}));
    EXPECT_EQ(in_grid(0, 0), (ids{1, 2, 3, 4}));
}

// ---- At the ends of what 32 bits and the fields can say

using WindowLimits = EventQuery;

TEST_F(WindowLimits, AnUndefinedTimeIsLikeAnyOther)
{
    // all ones: 2156111265, for 604065 seconds
    deliver(scheduled({.id = 1, .mjd = 0xFFFF, .start_bcd = 0xFFFFFF, .duration_bcd = 0xFFFFFF}));
    constexpr std::uint32_t start = 2156111265u, end = start + 604065u;
    for (const std::uint32_t time : {std::uint32_t{0}, midnight, start, end - 1})
        EXPECT_EQ(listed(from(time)), ids{1}) << time;
    EXPECT_EQ(listed(from(end)), ids{});
    EXPECT_EQ(listed(between(0, start)), ids{});
    EXPECT_EQ(listed(between(0, start + 1)), ids{1});
    EXPECT_EQ(listed(between(end, latest)), ids{});
    EXPECT_EQ(in_grid(end - 1, latest), ids{1});
}

TEST_F(WindowLimits, AnUndefinedDurationIsAWeekLong)
{
    deliver(scheduled({.id = 1, .mjd = the_day, .duration_bcd = 0xFFFFFF}));
    EXPECT_EQ(listed(from(midnight + 604064)), ids{1});
    EXPECT_EQ(listed(from(midnight + 604065)), ids{});
}

TEST_F(WindowLimits, AnEndBeyond32BitsWraps)
{
    // starts 60 seconds before 1970, which is 2^32 - 60, and ends 60 seconds later than 1970
    deliver(scheduled({.id = 1, .mjd = 40586, .start_bcd = 0x235900, .duration_bcd = 0x000200}));
    constexpr std::uint32_t start = latest - 59;
    EXPECT_EQ(listed(from(0)), ids{1});
    EXPECT_EQ(listed(from(1000)), ids{1}); // starts later
    EXPECT_EQ(listed(from(start)), ids{1});
    EXPECT_EQ(listed(from(start + 1)), ids{}); // neither ends nor starts later
    EXPECT_EQ(listed(from(latest)), ids{});
    EXPECT_EQ(listed(between(0, start)), ids{});
    EXPECT_EQ(listed(between(0, latest)), ids{1});
    EXPECT_EQ(in_grid(59, latest), ids{1});
    EXPECT_EQ(in_grid(start + 1, latest), ids{});
}

TEST_F(WindowLimits, TheFirstSecondOf1970IsATimeToo)
{
    deliver(scheduled({.id = 1, .mjd = 40587, .start_bcd = 0, .duration_bcd = 0}));
    EXPECT_EQ(listed(from(0)), ids{1});
    EXPECT_EQ(listed(from(1)), ids{});
    EXPECT_EQ(listed(between(0, 0)), ids{});
    EXPECT_EQ(listed(between(0, 1)), ids{1});
    EXPECT_EQ(in_grid(0, 1), ids{1});
}

// ---- What a programme grid shows

using ProgrammeGrid = EventQuery;

TEST_F(ProgrammeGrid, TellsIdTimesAndName)
{
    deliver(guide(0x50, 0,
                  {{.id = 7,
                    .mjd = the_day,
                    .start_bcd = 0x201500,
                    .duration_bcd = 0x011530,
                    .descriptors = {short_event("deu", "Nachrichten", "Text"),
                                    short_event("eng", "News", "Text")}},
                   {.id = 8,
                    .mjd = the_day + 1,
                    .start_bcd = 0x000001,
                    .duration_bcd = 0x000500,
                    .descriptors = {short_event("eng", "\x05Wetter", "Text")}}}));
    const auto answer = ask<SiBasicEvent>(grid(english, 0, 0), 2);
    ASSERT_EQ(answer.result, ORVA_SI_OK);
    ASSERT_EQ(answer.count, 2u);
    EXPECT_EQ(answer.items[0].event_id, 7);
    EXPECT_EQ(answer.items[0].start_time, midnight + 20 * hour + 15 * minute);
    EXPECT_EQ(answer.items[0].duration, hour + 15 * minute + 30);
    EXPECT_EQ(text_of(answer.items[0].event_name), "News");
    EXPECT_EQ(answer.items[0].event_name.charset_type, std::uint32_t{'N'});
    EXPECT_EQ(answer.items[1].event_id, 8);
    EXPECT_EQ(answer.items[1].start_time, midnight + 86401);
    EXPECT_EQ(answer.items[1].duration, 300u);
    EXPECT_EQ(text_of(answer.items[1].event_name), "Wetter");
    EXPECT_EQ(answer.items[1].event_name.charset_type, 5u);
}

TEST_F(ProgrammeGrid, AnEventWithoutANameInTheLanguageHasAnEmptyOne)
{
    deliver(guide(0x50, 0,
                  {{.id = 1, .descriptors = {short_event("deu", "Nachrichten", "")}},
                   {.id = 2},
                   {.id = 3, .descriptors = {short_event("eng", "", "Text")}},
                   {.id = 4, .descriptors = {raw(0x4D, {'e', 'n', 'g', 9, 'X', 0})}},
                   {.id = 5, .descriptors = {short_event("eng", "News", "")}}}));
    std::vector<SiBasicEvent> room(6);
    std::memset(room.data(), 0xA5, room.size() * sizeof room[0]);
    std::uint32_t count = 6;
    ASSERT_EQ(grid(english, 0, 0)(room.data(), &count), ORVA_SI_OK);
    ASSERT_EQ(count, 5u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(room[i].event_id, i + 1);
        EXPECT_EQ(room[i].event_name.length, 0) << i;
        EXPECT_EQ(room[i].event_name.charset_type, 0u) << i;
    }
    EXPECT_EQ(text_of(room[4].event_name), "News");
    EXPECT_EQ(room[5].event_id, 0xA5A5);
}

TEST_F(ProgrammeGrid, TheFirstNameInTheLanguageCounts)
{
    deliver(scheduled(1, {short_event("eng", "First", ""), short_event("eng", "Second", "")}));
    const auto answer = ask<SiBasicEvent>(grid(english, 0, 0), 1);
    ASSERT_EQ(answer.count, 1u);
    EXPECT_EQ(text_of(answer.items[0].event_name), "First");
}

TEST_F(ProgrammeGrid, IsCutWhereTheRoomEnds)
{
    deliver(guide(0x50, 0, {{.id = 1}, {.id = 2}}));
    deliver(guide(0x4E, 0, {{.id = 9}}));
    deliver(guide(0x5F, 0, {{.id = 3}}));
    std::vector<SiBasicEvent> expected(3);
    for (std::uint16_t i = 0; i < 3; ++i)
        expected[i].event_id = static_cast<std::uint16_t>(i + 1);
    expect_events<SiBasicEvent>(
        grid(english, 0, 0), expected,
        [](const SiBasicEvent &a, const SiBasicEvent &b) { return a.event_id == b.event_id; });
}

TEST_F(ProgrammeGrid, OfNoEventsIsNotFound)
{
    deliver(guide(0x4E, 0, {{.id = 9}}));
    expect_empty<SiBasicEvent>(grid(english, 0, 0), ORVA_SI_NOT_FOUND);
}

TEST_F(ProgrammeGrid, OnlyBothTimesZeroTakeAll)
{
    deliver(scheduled({.id = 1, .mjd = the_day}));
    EXPECT_EQ(in_grid(0, 0), ids{1});
    EXPECT_EQ(in_grid(1, 0), ids{}); // nothing starts before 0
    EXPECT_EQ(in_grid(0, 1), ids{});
}

} // namespace
