// SPDX-License-Identifier: LGPL-2.1-or-later
// What is asked of the sections of a service over and over, side by side in a few cache lines, so
// that a search does not wait for the memory of every section. It is kept beside the list of the
// sections and freed with it.
//
// The list stays the truth: once a client added or took out elements itself, the summary no longer
// fits and is built anew from the list. No client writes into a record of the store.
#ifndef SRC_ORVA_SI_EITSUMMARY_H
#define SRC_ORVA_SI_EITSUMMARY_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "orva_si/store.h"
#include "orva_si_bytes.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"

namespace si {

// Bytes that the section is too short to have are 0.
struct section_summary {
    std::uint32_t crc;      // CRC_32
    std::uint16_t table_id; // of the record: folded
    std::uint8_t section_number;
    std::uint8_t received_table_id;
    std::uint8_t version;
    std::uint8_t last_section_number;
    bool held; // there are bytes
};

inline std::uint8_t byte_at(bytes section, std::size_t at)
{
    return at < section.size() ? section[at] : std::uint8_t{0};
}

inline bytes bytes_of(const SiEitSection &stored)
{
    return {stored.section, stored.section != nullptr ? stored.sect_len : 0u};
}

// The CRC_32 field; 0 for a section whose section_length reaches past its bytes.
inline std::uint32_t crc_of(bytes section)
{
    const bool whole =
        section.size() >= section_header_bytes && section_size(section.data()) <= section.size();
    return whole ? crc_field(section.data()) : 0;
}

inline section_summary summary_of(const SiEitSection &stored)
{
    const bytes section = bytes_of(stored);
    return {.crc = crc_of(section),
            .table_id = stored.table_id,
            .section_number = stored.section_number,
            .received_table_id = byte_at(section, 0),
            .version = version_of(byte_at(section, 5)),
            .last_section_number = byte_at(section, 7),
            .held = !section.empty()};
}

// Which events a section may carry: a set of event_ids as the bits that each of them sets. A
// section without one of an event's bits does not carry that event, one with all of them mostly
// does.
using event_marks = std::uint64_t;

constexpr event_marks marks_of(std::uint16_t event_id)
{
    const std::uint64_t mixed = event_id * 0x9E3779B97F4A7C15u;
    return event_marks{1} << (mixed >> 58) | event_marks{1} << (mixed >> 52 & 63) |
           event_marks{1} << (mixed >> 46 & 63);
}

// Of the events in front of the first one that does not lie wholly in the section.
event_marks marks_of_events(bytes section);

// All sections of one list in their order, null elements left out.
struct service_summary {
    std::span<const section_summary> known;
    SiEitSection *const *record; // as many
    const event_marks *events;   // as many

    bool empty() const { return known.empty(); }
};

// Each of these runs with the list's lock held. An empty summary says nothing: walk the list.

// The summary, if there is one that fits; nothing is allocated.
service_summary fitting_summary(const si_list *sections);
// The same, and builds one where that is needed and there is memory.
service_summary ready_summary(si_list *sections);
// A record was just appended to the list.
void summary_appended(si_list *sections, SiEitSection *appended);
// A record of the list has other bytes now.
void summary_replaced(si_list *sections, const SiEitSection *stored);

// Shows what is known of each section to a visitor, in order, until it answers true. The list must
// not change meanwhile.
template <class Visit>
void each_section(si_list *sections, Visit visit)
{
    const service_summary kept = ready_summary(sections);
    for (std::size_t at = 0; at < kept.known.size(); ++at)
        if (visit(kept.known[at], *kept.record[at]))
            return;
    if (!kept.empty())
        return;
    for (SiEitSection &stored : elements<SiEitSection>(sections))
        if (visit(summary_of(stored), stored))
            return;
}

} // namespace si

#endif
