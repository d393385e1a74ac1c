// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/broadcast.h"

namespace test {

namespace {

constexpr std::uint16_t any_service = 0xFFFF;
constexpr unsigned segment_size = 8;

// Spreads neighbouring numbers over the whole range (a step of SplitMix64).
std::uint64_t scatter(std::uint64_t number)
{
    number += 0x9E3779B97F4A7C15;
    number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9;
    number = (number ^ number >> 27) * 0x94D049BB133111EB;
    return number ^ number >> 31;
}

moment phase_of(const event_table &table, std::uint8_t number, moment period)
{
    const std::uint64_t identity = std::uint64_t{table.of.ts} << 32 |
                                   std::uint64_t{table.of.service} << 16 |
                                   std::uint64_t{table.table_id} << 8 | number;
    return moment{scatter(identity) % static_cast<std::uint64_t>(period.count())};
}

} // namespace

std::size_t broadcast::add(const event_table &table)
{
    const std::size_t index = tables.size();
    const std::size_t first = sent.size();
    std::uint8_t last = 0;
    for (std::size_t segment = 0; segment < table.segments.size(); ++segment) {
        const moment period = segment < table.near_segments ? table.near_period : table.period;
        for (unsigned i = 0; i < table.segments[segment]; ++i) {
            last = static_cast<std::uint8_t>(segment * segment_size + i);
            by_service[table.of.service].push_back(sent.size());
            by_service[any_service].push_back(sent.size());
            sent.push_back({index, last, period, phase_of(table, last, period), false});
        }
    }
    tables.push_back({table, 0, last, first, sent.size() - first});
    return index;
}

void broadcast::set_version(std::size_t table, std::uint8_t version)
{
    tables[table].version = version;
    std::erase_if(built, [&](const auto &entry) { return sent[entry.first].table == table; });
}

void broadcast::omit(std::size_t table, std::uint8_t number)
{
    for (std::size_t i = 0; i < tables[table].count; ++i)
        if (sent_section &section = sent[tables[table].first + i]; section.number == number)
            section.missing = true;
}

void broadcast::omit(std::size_t table)
{
    for (std::size_t i = 0; i < tables[table].count; ++i)
        sent[tables[table].first + i].missing = true;
}

const std::vector<std::size_t> &broadcast::of_service(std::uint16_t service_id) const
{
    static const std::vector<std::size_t> none;
    const auto found = by_service.find(service_id);
    return found == by_service.end() ? none : found->second;
}

moment broadcast::next(std::size_t section, moment from) const
{
    const sent_section &of = sent[section];
    if (from <= of.phase)
        return of.phase;
    const auto rounds = (from - of.phase + of.period - moment{1}) / of.period;
    return of.phase + rounds * of.period;
}

const octets &broadcast::content(std::size_t section) const
{
    octets &bytes = built[section];
    if (!bytes.empty())
        return bytes;
    const sent_section &of = sent[section];
    const table_on_air &table = tables[of.table];
    const unsigned segment = of.number / segment_size;
    const unsigned segment_last = segment * segment_size + table.made_of.segments[segment] - 1;
    bytes = make(eit{.table_id = table.made_of.table_id,
                     .service = table.made_of.of.service,
                     .ts = table.made_of.of.ts,
                     .original_network = table.made_of.of.original_network,
                     .version = table.version,
                     .section_number = of.number,
                     .last_section_number = table.last_section_number,
                     .segment_last_section_number = static_cast<int>(segment_last),
                     .last_table_id = table.made_of.last_table_id,
                     .events = {{.id = static_cast<std::uint16_t>(of.number + 1)}}});
    return bytes;
}

} // namespace test
