// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tests of the questions about events share. For executables that wrap what event_store.h
// defines.
#ifndef TESTS_SUPPORT_EVENT_GETTERS_H
#define TESTS_SUPPORT_EVENT_GETTERS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "orva_si/query_event.h"
#include "orva_si/query_text.h"
#include "support/event_store.h"
#include "support/getters.h"

namespace test {

// The service of the tests; its service_id is event_store.h's.
inline constexpr std::uint16_t network = 0x0506;
inline constexpr std::uint16_t stream = 0x0304;

// The event that questions about one event are about.
inline constexpr std::uint16_t wanted = 0x0777;

// The values of bisbanner.
inline constexpr std::uint8_t in_schedule = 0;
inline constexpr std::uint8_t in_banner = 1;

// 2023-02-25: its Modified Julian Date, and the seconds from 1970 to its beginning (19,413 days).
inline constexpr std::uint16_t the_day = 60000;
inline constexpr std::uint32_t midnight = 19413u * 86400u;

// A section of that service with these events.
inline octets guide(std::uint8_t table_id, std::uint8_t number,
                    const std::vector<eit_event> &listed)
{
    return make(eit{.table_id = table_id,
                    .service = sid,
                    .ts = stream,
                    .original_network = network,
                    .section_number = number,
                    .last_section_number = number,
                    .events = listed});
}
// One event in section 0 of the schedule.
inline octets scheduled(const eit_event &event)
{
    return guide(0x50, 0, {event});
}
inline octets scheduled(std::uint16_t event_id, const std::vector<octets> &descriptors)
{
    return scheduled({.id = event_id, .mjd = the_day, .descriptors = descriptors});
}

// The client's language table: these three, all others have no number.
inline constexpr std::uint32_t english = 0x10000001;
inline constexpr std::uint32_t german = 2;
inline constexpr std::uint32_t french = 3;
inline constexpr std::uint32_t unknown = 0;

inline std::uint32_t number_of_language(const char *code, std::uint32_t *language)
{
    EXPECT_EQ(std::strlen(code), 3u);
    EXPECT_EQ(*language, 0u);
    if (std::strcmp(code, "eng") == 0)
        *language = english;
    else if (std::strcmp(code, "deu") == 0)
        *language = german;
    else if (std::strcmp(code, "fra") == 0)
        *language = french;
    return 1; // which is nothing to the library
}

// The question of that getter for the languages of an event.
template <auto Getter>
auto languages(std::uint32_t event_id = wanted, std::uint8_t banner = in_schedule)
{
    return [=](std::uint32_t *list, std::uint32_t *count) {
        return Getter(network, stream, sid, event_id, list, count, banner);
    };
}

// An event store, and a client that tells languages apart.
class EventQuery : public EventStore {
protected:
    EventQuery()
    {
        if (SiLanguageFunc == nullptr)
            Orva_Si_InstallISO639toIDFunc(number_of_language);
    }
};

// The words for a full array.
inline bool told_full()
{
    return fake::logged(2, "error:Need more room\n") || fake::logged(2, "need list room!\n");
}

// expect_list for a list of events or of parts of one.
template <class T, class Get, class Same = std::equal_to<>>
void expect_events(Get get, const std::vector<T> &expected, Same same = {})
{
    expect_list<T>(get, expected, "", same);
    for (std::uint32_t capacity = 0; capacity < expected.size(); ++capacity) {
        fake::clear_log();
        EXPECT_EQ(ask<T>(get, capacity).result, ORVA_SI_ARRAY_FULL);
        EXPECT_TRUE(told_full()) << "capacity " << capacity << '\n' << fake::log_text();
    }
    fake::clear_log();
    ask<T>(get, static_cast<std::uint32_t>(expected.size()));
    EXPECT_FALSE(told_full()) << fake::log_text();
}

} // namespace test

#endif
