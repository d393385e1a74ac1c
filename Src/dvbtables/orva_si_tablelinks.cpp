// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_tablelinks.h"

#include <array>

#include "orva_si_alloc.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"

namespace si {

namespace {

constexpr std::uint16_t nowhere = 0xFFFF;
constexpr unsigned chain_bits = 12;

// A table and, for each link, the place of the next one of its chain.
struct linked_table {
    SiTable *table;
    std::array<std::uint16_t, table_links> next;
};
static_assert(limit::tables < nowhere);

using chain_heads = std::array<std::uint16_t, std::size_t{1} << chain_bits>;

// For the list that had these changes when the links were made. Only read and written with
// Ts_Ctl_Mutex held.
struct links_of_list {
    const si_list *list = nullptr;
    std::uint64_t changes = 0;
    bool usable = false;
    std::array<linked_table, limit::tables> tables;
    std::array<chain_heads, table_links> first;
};
links_of_list links;

std::size_t chain_of(std::uint16_t one, std::uint16_t other)
{
    const std::uint32_t both = static_cast<std::uint32_t>(one) << 16 | other;
    return both * 0x9E3779B1u >> (32 - chain_bits);
}

std::uint16_t &head_of(table_link link, std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
{
    chain_heads &heads = links.first[static_cast<std::size_t>(link)];
    switch (link) {
    case table_link::id_and_extension:
        return heads[chain_of(table_id, ext)];
    case table_link::pid_and_extension:
        return heads[chain_of(pid, ext)];
    case table_link::pid_and_id:
    default:
        return heads[chain_of(pid, table_id)];
    }
}

// Notes the tables of a list in their order, null elements left out; how many, or none where there
// are too many.
std::optional<std::uint16_t> note_tables(si_list *tables)
{
    std::uint16_t count = 0;
    for (SiTable &table : elements<SiTable>(tables)) {
        if (count == links.tables.size())
            return std::nullopt;
        links.tables[count++].table = &table;
    }
    return count;
}

// From the last one, so that each chain begins with the first.
void link_tables(std::uint16_t count)
{
    for (chain_heads &heads : links.first)
        heads.fill(nowhere);
    while (count-- != 0) {
        linked_table &each = links.tables[count];
        const SiTable &table = *each.table;
        for (std::size_t link = 0; link < table_links; ++link) {
            std::uint16_t &head =
                head_of(static_cast<table_link>(link), table.pid, table.table_id, table.ext);
            each.next[link] = head;
            head = count;
        }
    }
}

bool links_fit(si_list *tables)
{
    const std::uint64_t changes = list_changes(tables);
    if (links.list != tables || links.changes != changes) {
        const auto count = note_tables(tables);
        if (count)
            link_tables(*count);
        links.usable = count.has_value();
        links.list = tables;
        links.changes = changes;
    }
    return links.usable;
}

// The link that a key names wholly, the one with fewest tables in a chain first.
std::optional<table_link> link_of(const SiTableKey &key)
{
    const bool pid = key.pid != SI_ANY_PID;
    const bool table_id = key.table_id != SI_ANY_TABLE_ID;
    const bool ext = key.ext != SI_ANY_EXT;
    if (table_id && ext)
        return table_link::id_and_extension;
    if (pid && ext)
        return table_link::pid_and_extension;
    if (pid && table_id)
        return table_link::pid_and_id;
    return std::nullopt;
}

} // namespace

SiTable &linked_tables::iterator::operator*() const
{
    return *links.tables[at].table;
}

linked_tables::iterator &linked_tables::iterator::operator++()
{
    at = links.tables[at].next[static_cast<std::size_t>(link)];
    return *this;
}

bool linked_tables::iterator::operator==(std::default_sentinel_t) const
{
    return at == nowhere;
}

std::optional<linked_tables> find_linked_tables(si_list *tables, const SiTableKey &key)
{
    const auto link = link_of(key);
    if (!link || tables == nullptr || !links_fit(tables))
        return std::nullopt;
    return linked_tables{*link, head_of(*link, key.pid, key.table_id, key.ext)};
}

} // namespace si
