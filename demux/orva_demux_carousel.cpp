// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_carousel.h"

#include <algorithm>
#include <array>

#include "orva_ts_sections.h"

namespace si::demux {
namespace {

constexpr std::size_t section_overhead = 80; // of one kept section, its heap block included
constexpr std::size_t table_overhead = 320;
// From so many bytes on sections of a file are read again where their packets stand no further
// apart: one that is spread over much of the file would take too long.
constexpr std::size_t most_in_memory = std::size_t{8} << 20;
constexpr std::uint64_t longest_span = 65536;

constexpr std::size_t long_header_bytes = 8;
constexpr std::size_t segment_last_byte = 12;
constexpr std::size_t segment_sections = 8; // EN 300 468, 5.2.4

constexpr std::uint8_t table_id_pat = 0x00;
constexpr std::uint8_t table_id_nit_actual = 0x40;
constexpr std::uint8_t table_id_sdt_actual = 0x42;
constexpr std::uint8_t table_id_sdt_other = 0x46;

constexpr bool is_eit(std::uint8_t table_id)
{
    return table_id >= 0x4E && table_id <= 0x6F;
}
constexpr bool is_schedule(std::uint8_t table_id)
{
    return table_id >= 0x50 && table_id <= 0x6F;
}

// A stream has one PAT, NIT actual and SDT actual. Two in turn, from before and after a change of
// the stream, would tell the receiver of a change each time.
constexpr bool is_single(std::uint8_t table_id)
{
    return table_id == table_id_pat || table_id == table_id_nit_actual ||
           table_id == table_id_sdt_actual;
}

// What a receiver cannot do without is given up last: the tables of the multiplex and its programs.
constexpr bool is_essential(std::uint8_t table_id)
{
    return table_id <= 0x02 || (table_id >= 0x40 && table_id <= 0x4E) || table_id == table_id_tdt ||
           table_id == table_id_tot;
}

// The further ids that tell sub-tables apart; what is too short to have them has none.
std::uint32_t networks_of(bytes section)
{
    if (is_eit(section[0]) && section.size() >= eit_header_bytes)
        return be32(section.subspan(long_header_bytes).first<4>());
    if ((section[0] == table_id_sdt_actual || section[0] == table_id_sdt_other) &&
        section.size() > long_header_bytes + 2)
        return be16(section.subspan(long_header_bytes).first<2>());
    return 0;
}

// A short section is a table of one section and one version.
version_id version_id_of(bytes section)
{
    if (!is_long_section(section))
        return {};
    return {be16(section.subspan(3).first<2>()), networks_of(section), version_of(section[5]),
            section[7]};
}

sub_table_key key_of(std::uint16_t pid, bytes section, const version_id &id)
{
    const bool is_long = is_long_section(section);
    const bool single = is_long && is_single(section[0]);
    return {.pid = pid,
            .table_id = section[0],
            .is_long = is_long,
            .current = !is_long || (section[5] & 1) != 0,
            .extension = single ? std::uint16_t{0} : id.extension,
            .networks = single ? 0 : id.networks};
}

// Of each segment of eight the sections up to its segment_last_section_number; the rest of a
// segment is not sent.
bool schedule_is_complete(const table_version &of)
{
    std::array<bool, 256> there{};
    std::array<int, 256 / segment_sections> last_of_segment;
    last_of_segment.fill(-1);
    for (const kept_section &section : of.sections) {
        there[section.section_number] = true;
        last_of_segment[section.section_number / segment_sections] =
            section.start[segment_last_byte];
    }
    for (std::size_t segment = 0; segment <= of.id.last_section_number / segment_sections;
         ++segment) {
        const auto first = static_cast<int>(segment * segment_sections);
        if (last_of_segment[segment] < first)
            return false;
        for (int number = first;
             number <= std::min<int>(last_of_segment[segment], of.id.last_section_number); ++number)
            if (!there[static_cast<std::size_t>(number)])
                return false;
    }
    return true;
}

bool is_complete(const sub_table_key &key, const table_version &of)
{
    if (key.is_long && is_schedule(key.table_id))
        return schedule_is_complete(of);
    return of.sections.size() == std::size_t{of.id.last_section_number} + 1;
}

std::size_t memory_of(const kept_section &section)
{
    return section.all().size() + section_overhead;
}

void forget(carousel &in, std::optional<table_version> &version)
{
    if (version)
        for (const kept_section &section : version->sections)
            in.used -= memory_of(section);
    version.reset();
}

bool can_be_read_again(const carousel &in, bytes section, section_place place)
{
    return in.rereads && in.used >= most_in_memory && is_long_section(section) &&
           place.end > place.first && place.end - place.first <= longest_span;
}

void fill(carousel &in, kept_section &kept, bytes section, section_place place)
{
    kept.size = static_cast<std::uint16_t>(section.size());
    kept.crc = crc_field(section.data());
    std::ranges::copy(section.first(std::min(section.size(), kept.start.size())),
                      kept.start.begin());
    kept.data.reset();
    if (can_be_read_again(in, section, place)) {
        kept.first = place.first;
        kept.span = static_cast<std::uint32_t>(place.end - place.first);
    } else {
        kept.data = std::make_unique_for_overwrite<std::uint8_t[]>(section.size());
        std::ranges::copy(section, kept.data.get());
    }
    in.used += memory_of(kept);
}

// Where only the head is there, the CRC_32 speaks for the rest.
bool is_unchanged(const kept_section &kept, bytes section)
{
    if (kept.data != nullptr)
        return std::ranges::equal(kept.all(), section);
    return kept.size == section.size() && kept.crc == crc_field(section.data()) &&
           std::ranges::equal(kept.head(), section.first(kept.head().size()));
}

// Puts a section into its version. A changed content takes the place of the former.
std::uint64_t put(carousel &in, table_version &to, std::uint8_t section_number, bytes section,
                  section_place place)
{
    const auto at =
        std::ranges::lower_bound(to.sections, section_number, {}, &kept_section::section_number);
    if (at == to.sections.end() || at->section_number != section_number) {
        kept_section kept{.content = ++in.contents,
                          .size = 0,
                          .section_number = section_number,
                          .start{},
                          .data{}};
        fill(in, kept, section, place);
        to.sections.insert(at, std::move(kept));
        return in.contents;
    }
    if (!is_unchanged(*at, section)) {
        in.used -= memory_of(*at);
        fill(in, *at, section, place);
        at->content = ++in.contents;
    }
    return at->content;
}

// The version that a section belongs to: the complete one, the one being collected, or a new one in
// its place.
table_version &version_for(carousel &in, sub_table &of, const version_id &id)
{
    if (of.complete && of.complete->id == id)
        return *of.complete;
    if (!of.current || of.current->id != id) {
        forget(in, of.current);
        of.current.emplace(table_version{.id = id, .sections = {}});
    }
    return *of.current;
}

// A version that has become complete takes over.
void settle(carousel &in, sub_table &of)
{
    if (!of.current || !is_complete(of.key, *of.current))
        return;
    forget(in, of.complete);
    of.complete = std::move(of.current);
    of.current.reset();
}

// Gives up an eighth of the memory at once, what was not seen for longest first.
void make_room(carousel &in)
{
    std::vector<sub_table *> order;
    order.reserve(in.tables.size());
    for (auto &[key, table] : in.tables)
        order.push_back(&table);
    std::ranges::sort(order, {}, [](const sub_table *table) {
        return std::pair{is_essential(table->key.table_id), table->last_seen};
    });
    for (sub_table *table : order) {
        if (in.used <= in.limit - in.limit / 8)
            return;
        forget(in, table->complete);
        forget(in, table->current);
        in.used -= table_overhead;
        bump(in.evicted);
        const sub_table_key key = table->key;
        in.tables.erase(key);
    }
}

} // namespace

std::size_t key_hash::operator()(const sub_table_key &key) const
{
    const std::uint64_t where = std::uint64_t{key.pid} << 32 | std::uint64_t{key.table_id} << 24 |
                                std::uint64_t{key.is_long} << 17 |
                                std::uint64_t{key.current} << 16 | key.extension;
    std::uint64_t mixed = (where ^ std::uint64_t{key.networks} << 29) * 0x9E3779B97F4A7C15u;
    mixed ^= mixed >> 32;
    return static_cast<std::size_t>(mixed * 0xD6E8FEB86659FD93u >> 16);
}

std::uint64_t keep(carousel &in, std::uint16_t pid, bytes section, section_place place)
{
    const version_id id = version_id_of(section);
    const std::uint8_t section_number = is_long_section(section) ? section[6] : std::uint8_t{0};
    const bool schedule = is_long_section(section) && is_schedule(section[0]);
    if (section_number > id.last_section_number || (schedule && section.size() < eit_header_bytes))
        return 0;
    if (in.used + section.size() + section_overhead + table_overhead > in.limit)
        make_room(in);
    const auto [entry, added] = in.tables.try_emplace(key_of(pid, section, id));
    sub_table &table = entry->second;
    table.last_seen = ++in.seen;
    if (added) {
        table.key = entry->first;
        table.first_seen = in.seen;
        in.used += table_overhead;
    }
    const std::uint64_t former = in.contents;
    const std::uint64_t content =
        put(in, version_for(in, table, id), section_number, section, place);
    if (in.contents != former) // a repetition completes nothing
        settle(in, table);
    return content;
}

void close_carousel(carousel &of)
{
    for (auto &[key, table] : of.tables)
        of.by_pid[key.pid].push_back(&table);
    for (auto &[pid, list] : of.by_pid)
        std::ranges::sort(list, {}, &sub_table::first_seen);
}

const std::vector<sub_table *> &tables_of(const carousel &of, std::uint16_t pid)
{
    static const std::vector<sub_table *> none;
    const auto found = of.by_pid.find(pid);
    return found == of.by_pid.end() ? none : found->second;
}

} // namespace si::demux
