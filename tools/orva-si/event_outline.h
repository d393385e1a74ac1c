// SPDX-License-Identifier: LGPL-2.1-or-later
// What the stored sections of events hold: which questions about an event have an answer, and what
// no question tells.
#ifndef TOOLS_EVENT_OUTLINE_H
#define TOOLS_EVENT_OUTLINE_H

#include <bitset>

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "orva_si.h"
#include "sections.h"

namespace tool {

// Descriptors of events (EN 300 468, 6.1).
enum event_tag : std::uint8_t {
    short_event_tag = 0x4D,
    extended_event_tag = 0x4E,
    component_tag = 0x50,
    ca_identifier_tag = 0x53,
    content_tag = 0x54,
    parental_rating_tag = 0x55
};

// An event without its contents.
struct event_outline {
    std::uint16_t event_id = 0;
    bool has_start = false; // else its start_time is "undefined", all bits set
    bool has_duration = false;
    std::bitset<256> tags;                         // of its descriptors
    std::vector<std::uint32_t> name_languages;     // of each short_event_descriptor
    std::vector<std::uint32_t> extended_languages; // each once
};

struct section_outline {
    std::uint8_t table_id = 0; // as broadcast
    std::uint8_t version = 0;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::uint8_t segment_last_section_number = 0;
    std::uint8_t last_table_id = 0;
    std::vector<event_outline> events;
};

inline constexpr std::uint8_t first_schedule_table = 0x50; // of the tuned multiplex

constexpr bool is_schedule_actual(std::uint8_t table_id)
{
    return (table_id & 0xF0) == first_schedule_table;
}

// Reads an undamaged EIT section; one that is damaged has no events.
section_outline read_outline(bytes eit);

// The services of which sections are stored, in the order of their arrival.
std::vector<SiEitRequest> stored_services();

// Copies of the stored sections of a service, in the order of their arrival.
std::vector<std::vector<std::uint8_t>> stored_event_sections(const SiEitRequest &service);

// The same as outlines; the order is that of the answers.
std::vector<section_outline> outline_of(const SiEitRequest &service);

// How far the schedule of a service of the tuned multiplex is stored.
struct schedule_state {
    bool begun = false;  // some of its sections are
    bool whole = false;  // as is_whole_schedule
    unsigned tables = 0; // sub-tables that it has, as far as its sections tell
};

// That of each of the services, by service_id, whatever multiplex they were announced for. Reads
// the headers of the sections where they are.
std::map<std::uint16_t, schedule_state> schedule_states(const std::set<std::uint16_t> &services);

// In the store of events.
std::uint64_t count_event_sections();

// Whether the sections are all that the schedule of a service of the tuned multiplex has: every
// sub-table up to the last, every segment of it up to its last section (ETSI TS 101 211, 4.1.4).
bool is_whole_schedule(const std::vector<section_outline> &sections);

// Whether the sections are all of their one sub-table: every segment of it up to its last section.
bool is_whole_table(const std::vector<std::vector<std::uint8_t>> &sections);

constexpr bool is_present_following(std::uint8_t table_id)
{
    return table_id == 0x4E || table_id == 0x4F;
}

} // namespace tool

#endif
