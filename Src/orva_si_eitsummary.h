// SPDX-License-Identifier: LGPL-2.1-or-later
// What is asked of the sections of a service over and over, side by side in a few cache lines, so
// that a search does not wait for the memory of every section. It is kept beside the list of the
// sections and freed with it.
//
// The list stays the truth: once a client added or took out elements itself, the summary no longer
// fits and is built anew from the list. No client writes into a record of the store.
#ifndef SRC_ORVA_SI_EITSUMMARY_H
#define SRC_ORVA_SI_EITSUMMARY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "orva_si/store.h"
#include "orva_si_bytes.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"
#include "orva_si_siids.h"

namespace si {

// Bytes that the section is too short to have are 0.
struct section_summary {
    std::uint32_t crc;      // CRC_32
    std::uint16_t table_id; // of the record: folded
    std::uint16_t size;     // bytes that are there
    std::uint8_t section_number;
    std::uint8_t received_table_id;
    std::uint8_t version;
    std::uint8_t last_section_number;

    bool held() const { return size != 0; }
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

inline section_summary summary_of(const SiEitSection &stored, std::uint32_t crc)
{
    const bytes section = bytes_of(stored);
    return {.crc = crc,
            .table_id = stored.table_id,
            .size = static_cast<std::uint16_t>(section.size()),
            .section_number = stored.section_number,
            .received_table_id = byte_at(section, 0),
            .version = version_of(byte_at(section, 5)),
            .last_section_number = byte_at(section, 7)};
}

inline section_summary summary_of(const SiEitSection &stored)
{
    return summary_of(stored, crc_of(bytes_of(stored)));
}

enum class progress_state : std::uint8_t { counting, complete, other_version };

// What the sections of one table, met in their order, add up to: whether they are of one version,
// and enough of them to make the table complete. A segment of a schedule counts as soon as one of
// its sections up to the table's last one is there.
struct table_progress {
    constexpr explicit table_progress(std::uint8_t received_table_id) : table_id{received_table_id}
    {
    }
    bool concerns(const section_summary &known) const
    {
        return known.held() && known.received_table_id == table_id;
    }
    bool has_ended() const { return state != progress_state::counting; }
    // Of present and following there are two sections.
    bool is_out_of_place(const section_summary &known) const
    {
        return table_id == tid_eit_pf_actual && known.section_number > 1;
    }
    // One that concerns the table, before it has ended.
    void add(const section_summary &known);

    std::uint32_t met = 0; // sections of the service that were looked at, by who keeps this
    std::uint32_t all = 0; // a bit for each segment
    std::uint32_t done = 0;
    std::array<std::uint8_t, 32> segments{}; // a bit for each section
    std::uint8_t table_id;
    std::uint8_t version = 0;
    std::uint8_t present_following = 0; // a bit for each section
    progress_state state = progress_state::counting;
    bool any = false;
    bool met_one_out_of_place = false;
};

// Which events a section may carry: a set of event_ids as the bits that each of them sets. A
// section without one of an event's bits does not carry that event, one with all of them mostly
// does.
using event_marks = std::uint64_t;

constexpr void mark_event(event_marks &in, std::uint16_t event_id)
{
    const std::uint64_t mixed = event_id * 0x9E3779B97F4A7C15u;
    in |= event_marks{1} << (mixed >> 58);
    in |= event_marks{1} << (mixed >> 52 & 63);
    in |= event_marks{1} << (mixed >> 46 & 63);
}

constexpr event_marks marks_of(std::uint16_t event_id)
{
    event_marks made = 0;
    mark_event(made, event_id);
    return made;
}

// Of the events in front of the first one that does not lie wholly in the section.
event_marks marks_of_events(bytes section);

// All sections of one list in their order, null elements left out.
struct service_summary {
    std::span<const section_summary> known;
    SiEitSection *const *record;  // as many
    std::uint8_t *const *content; // as many
    const event_marks *events;    // as many

    bool empty() const { return known.empty(); }
    // What bytes_of says of the record, which is not read.
    bytes bytes_at(std::size_t at) const { return {content[at], known[at].size}; }
};

// Each of these runs with the list's lock held. An empty summary says nothing: walk the list.

// The summary, if there is one that fits; nothing is allocated.
service_summary fitting_summary(const si_list *sections);
// The same, and builds one where that is needed and there is memory.
service_summary ready_summary(si_list *sections);
// A record was just appended to the list; crc: see crc_of.
void summary_appended(si_list *sections, SiEitSection *appended, std::uint32_t crc);
// A record of the list has other bytes now.
void summary_replaced(si_list *sections, const SiEitSection *stored);

struct summary_entry {
    const section_summary *known; // null: there is none
    SiEitSection *record;
};
// The only section of that folded table_id and number. No answer without a summary, or when some
// number is there twice.
std::optional<summary_entry> only_section(si_list *sections, std::uint8_t table_id,
                                          std::uint8_t section_number);
// Lets the memory come that only_section will read, for a list whose summary fits.
void fetch_section(const si_list *sections, std::uint8_t table_id, std::uint8_t section_number);
// Whether a table is complete, of a received table_id. No answer without a summary, or when a
// section is out of place, which a walk is to report.
std::optional<bool> known_complete(si_list *sections, std::uint8_t received_table_id);

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
