// SPDX-License-Identifier: LGPL-2.1-or-later
#include "event_outline.h"

#include <algorithm>
#include <array>
#include <optional>

#include "language.h"
#include "sections_reader.h"
#include "store_walk.h"

namespace tool {
namespace {

class event_store_lock {
public:
    event_store_lock() { Orva_MutexP(&Ts_Eit_Mutex); }
    ~event_store_lock() { Orva_MutexV(&Ts_Eit_Mutex); }
    event_store_lock(const event_store_lock &) = delete;
    event_store_lock &operator=(const event_store_lock &) = delete;
};

bool is_of(const SiEitService &stored, const SiEitRequest &service)
{
    return stored.original_network_id == service.original_network_id &&
           stored.transport_stream_id == service.transport_stream_id &&
           stored.service_id == service.service_id;
}

std::optional<std::uint32_t> language_at(bytes data, std::size_t at)
{
    constexpr std::size_t code = 3;
    if (data.size() < at + code)
        return std::nullopt;
    return language_id(data[at], data[at + 1], data[at + 2]);
}

void note(event_outline &in, const descriptor &d)
{
    in.tags[d.tag] = true;
    if (d.tag == short_event_tag)
        if (const auto language = language_at(d.data, 0))
            in.name_languages.push_back(*language);
    if (d.tag == extended_event_tag)
        if (const auto language = language_at(d.data, 1); // behind its numbers
            language &&
            std::ranges::find(in.extended_languages, *language) == in.extended_languages.end())
            in.extended_languages.push_back(*language);
}

constexpr std::uint32_t all_ones_24 = 0xFFFFFF;

constexpr unsigned segment_of(std::uint8_t section_number)
{
    return section_number / 8u;
}

constexpr std::size_t long_header_bytes = 8;
constexpr std::size_t eit_header_bytes = 14; // up to last_table_id (EN 300 468, 5.2.4)

// What stands in front of the events; the section must be as long.
section_outline read_header(bytes eit)
{
    return {.table_id = eit[0],
            .version = si::version_of(eit[5]),
            .section_number = eit[6],
            .last_section_number = eit[7],
            .segment_last_section_number = eit[12],
            .last_table_id = eit[13],
            .events = {}};
}

// Which sections of a sub-table there are, and which there should be.
struct sub_table_progress {
    std::bitset<256> held;
    std::bitset<256> due;
    std::bitset<32> segments;
    std::uint8_t last_section_number = 0;
    std::uint8_t version = 0;
    bool one_version = true;

    void add(const section_outline &section)
    {
        one_version = one_version && (held.none() || section.version == version);
        version = section.version;
        last_section_number = section.last_section_number;
        segments.set(segment_of(section.section_number));
        held.set(section.section_number);
        const unsigned first = segment_of(section.section_number) * 8;
        for (unsigned n = first; n <= section.segment_last_section_number && n < first + 8; ++n)
            due.set(n);
    }
    bool is_whole() const
    {
        return held.any() && one_version && (due & ~held).none() &&
               segments.count() == segment_of(last_section_number) + 1;
    }
};

// The same for all sub-tables of a schedule of the tuned multiplex.
struct schedule_progress {
    std::array<sub_table_progress, 16> tables;
    std::size_t last = 0;
    bool begun = false;

    void add(const section_outline &section)
    {
        if (!is_schedule_actual(section.table_id))
            return;
        begun = true;
        tables[section.table_id & 0x0Fu].add(section);
        last = std::max<std::size_t>(last, section.last_table_id & 0x0Fu);
    }
    bool is_whole() const
    {
        return std::all_of(tables.begin(), tables.begin() + static_cast<std::ptrdiff_t>(last + 1),
                           [](const sub_table_progress &table) { return table.is_whole(); });
    }
    schedule_state state() const
    {
        return {begun, is_whole(), begun ? static_cast<unsigned>(last + 1) : 0};
    }
};

} // namespace

section_outline read_outline(bytes eit)
{
    const auto body = payload(eit);
    if (!body || eit.size() < eit_header_bytes + si::crc_bytes)
        return {};
    section_outline read = read_header(eit);
    byte_reader in{*body};
    in.span(eit_header_bytes - long_header_bytes);
    while (in.ok && in.more()) {
        event_outline event;
        event.event_id = in.u16();
        const std::uint16_t day = in.u16();
        const std::uint32_t time = in.u24();
        event.has_start = day != 0xFFFF || time != all_ones_24;
        event.has_duration = in.u24() != all_ones_24;
        const byte_reader loop = nested12(in);
        if (!in.ok)
            break;
        each_descriptor(loop, [&](const descriptor &d) { note(event, d); });
        read.events.push_back(std::move(event));
    }
    return read;
}

bool is_whole_schedule(const std::vector<section_outline> &sections)
{
    schedule_progress progress;
    for (const section_outline &section : sections)
        progress.add(section);
    return progress.is_whole();
}

bool is_whole_table(const std::vector<std::vector<std::uint8_t>> &sections)
{
    sub_table_progress progress;
    for (const std::vector<std::uint8_t> &section : sections)
        if (section.size() >= eit_header_bytes)
            progress.add(read_header(section));
    return progress.is_whole();
}

std::map<std::uint16_t, schedule_state> schedule_states(const std::set<std::uint16_t> &services)
{
    std::map<std::uint16_t, schedule_progress> progress;
    for (const std::uint16_t service : services)
        progress.try_emplace(service);
    const event_store_lock held;
    each_element<SiEitService>(Orva_Si_GetDvbEitList(), [&](const SiEitService &stored) {
        const auto of = progress.find(stored.service_id);
        if (of == progress.end())
            return;
        each_element<SiEitSection>(stored.sections, [&](const SiEitSection &part) {
            if (part.section != nullptr && part.sect_len >= eit_header_bytes)
                of->second.add(read_header({part.section, eit_header_bytes}));
        });
    });
    std::map<std::uint16_t, schedule_state> states;
    for (const auto &[service, reached] : progress)
        states.emplace(service, reached.state());
    return states;
}

std::uint64_t count_event_sections()
{
    std::uint64_t total = 0;
    const event_store_lock held;
    each_element<SiEitService>(Orva_Si_GetDvbEitList(), [&](const SiEitService &stored) {
        if (stored.sections != nullptr)
            total += static_cast<std::uint64_t>(stored.sections->nb_elt);
    });
    return total;
}

std::vector<SiEitRequest> stored_services()
{
    std::vector<SiEitRequest> services;
    const event_store_lock held;
    each_element<SiEitService>(Orva_Si_GetDvbEitList(), [&](const SiEitService &stored) {
        services.push_back(
            {stored.transport_stream_id, stored.original_network_id, stored.service_id});
    });
    return services;
}

std::vector<std::vector<std::uint8_t>> stored_event_sections(const SiEitRequest &service)
{
    std::vector<std::vector<std::uint8_t>> copies;
    const event_store_lock held;
    each_element<SiEitService>(Orva_Si_GetDvbEitList(), [&](const SiEitService &stored) {
        if (!is_of(stored, service))
            return;
        each_element<SiEitSection>(stored.sections, [&](const SiEitSection &part) {
            if (part.section != nullptr)
                copies.emplace_back(part.section, part.section + part.sect_len);
        });
    });
    return copies;
}

std::vector<section_outline> outline_of(const SiEitRequest &service)
{
    std::vector<section_outline> outlines;
    for (const std::vector<std::uint8_t> &copy : stored_event_sections(service))
        outlines.push_back(read_outline(copy));
    return outlines;
}

} // namespace tool
