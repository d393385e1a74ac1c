// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of a satellite position, section by section.
#ifndef BENCH_EVENTS_H
#define BENCH_EVENTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "orva_si/query_text.h"
#include "sections.h"

namespace bench {

// ---- Eight days of a service: a section for each segment of three hours, of six events each
// (EN 300 468, 5.2.4; ETSI TS 101 211, 4.1.4), and its present and its following event.

inline constexpr std::uint16_t services_per_stream = 25;
inline constexpr std::uint16_t network = 1;
inline constexpr unsigned segments_per_table = 32;
inline constexpr unsigned schedule_tables = 2;
inline constexpr unsigned events_per_section = 6;
inline constexpr unsigned events_per_table = segments_per_table * events_per_section;
inline constexpr unsigned schedule_events = schedule_tables * events_per_table;
inline constexpr std::size_t sections_per_service = schedule_tables * segments_per_table + 2;
inline constexpr std::uint16_t first_day = 61364; // 20 November 2026, as a Modified Julian Date

inline std::uint16_t stream_of(std::uint16_t service)
{
    return static_cast<std::uint16_t>(1 + service / services_per_stream);
}

inline unsigned bcd(unsigned number)
{
    return number / 10 << 4 | number % 10;
}

inline std::string name_of(std::uint16_t service, unsigned event)
{
    return "Programme " + std::to_string(event) + " of service " + std::to_string(service);
}

inline octets event_descriptors(std::uint16_t service, unsigned event)
{
    octets named;
    put(named, "eng");
    put_text(named, name_of(service, event));
    put_text(named, std::string(80, static_cast<char>('a' + event % 26)));
    octets made = descriptor(0x4D, named);
    put(made, descriptor(0x50, {0xF1, 0x01, 0x01, 'e', 'n', 'g'}));
    put(made, descriptor(0x54, {static_cast<std::uint8_t>(event), 0x00}));
    put(made, descriptor(0x55, {'G', 'B', 'R', 0x03}));
    return made;
}

// Half an hour each, one behind the other.
inline void put_event(octets &to, std::uint16_t service, unsigned event)
{
    put(to, event, 2);
    put(to, first_day + event / 48, 2);
    put(to, bcd(event / 2 % 24) << 16 | (event % 2 != 0 ? 0x3000u : 0u), 3);
    put(to, 0x003000, 3);
    put_loop(to, 0, event_descriptors(service, event));
}

inline octets eit_payload(std::uint16_t service, std::uint8_t segment_last, std::uint8_t last_table)
{
    octets payload;
    put(payload, stream_of(service), 2);
    put(payload, network, 2);
    put(payload, segment_last, 1);
    put(payload, last_table, 1);
    return payload;
}

// The tables of the tuned multiplex are checked for completeness at each section; those of other
// multiplexes are spared that.
enum class multiplex { tuned, other };

constexpr std::uint8_t present_following_table(multiplex of)
{
    return of == multiplex::tuned ? 0x4E : 0x4F;
}

constexpr std::uint8_t first_schedule_table(multiplex of)
{
    return of == multiplex::tuned ? 0x50 : 0x60;
}

inline table_head eit_head(std::uint16_t service, std::uint8_t table_id, unsigned number,
                           unsigned last)
{
    return {.pid = 0x12,
            .table_id = table_id,
            .ext = service,
            .number = static_cast<std::uint8_t>(number),
            .last_number = static_cast<std::uint8_t>(last)};
}

inline section present_following(std::uint16_t service, unsigned number,
                                 multiplex of = multiplex::tuned)
{
    const std::uint8_t table_id = present_following_table(of);
    octets payload = eit_payload(service, 1, table_id);
    put_event(payload, service, number);
    return make_section(eit_head(service, table_id, number, 1), payload);
}

inline section schedule(std::uint16_t service, unsigned table, unsigned segment,
                        multiplex of = multiplex::tuned)
{
    const std::uint8_t first = first_schedule_table(of);
    const auto number = static_cast<std::uint8_t>(8 * segment);
    octets payload =
        eit_payload(service, number, static_cast<std::uint8_t>(first + schedule_tables - 1));
    for (unsigned i = 0; i < events_per_section; ++i)
        put_event(payload, service, table * events_per_table + segment * events_per_section + i);
    return make_section(eit_head(service, static_cast<std::uint8_t>(first + table), number,
                                 8 * (segments_per_table - 1)),
                        payload);
}

// ---- Their language, as the client numbers it

inline constexpr std::uint32_t language = 7;

// Before a question that names it; more than once too.
inline void know_language()
{
    static const std::uint32_t installed =
        Orva_Si_InstallISO639toIDFunc([](const char *code, std::uint32_t *number) {
            *number = std::string_view{code} == "eng" ? language : 0;
            return std::uint32_t{0};
        });
    static_cast<void>(installed);
}

} // namespace bench

#endif
