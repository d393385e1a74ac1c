// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_tableindex.h"

#include <array>
#include <bit>
#include <cstddef>

#include "orva_si_alloc.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"
#include "orva_si_siids.h"

namespace si::table_index {

namespace {

// Twice the tables that the store may hold: probes stay short and always end.
constexpr std::size_t slots = 2 * limit::tables;
static_assert(std::has_single_bit(slots));

// Tables of one kind whose table_id_extension names the multiplex. As long as all of them agree,
// one value answers for all.
struct stream_mark {
    std::uint32_t tables = 0;
    std::uint16_t ext = 0;
    bool mixed = false;
};

// Tables with a key that an older one has already are left out, and counted: the oldest is the one
// found.
struct state {
    std::array<SiTable *, slots> table{};
    si_list *list = nullptr;
    std::uint64_t changes = 0;
    std::int32_t elements = 0;
    std::uint32_t hidden = 0;
    bool usable = false;
    std::array<stream_mark, 3> marks{};
};
state index;

constexpr std::size_t slot_of(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
{
    const std::uint64_t key = std::uint64_t{pid} << 24 | std::uint64_t{table_id} << 16 | ext;
    return key * 0x9E3779B97F4A7C15u >> (64 - std::countr_zero(slots));
}

std::size_t slot_of(const SiTable &table)
{
    return slot_of(table.pid, table.table_id, table.ext);
}

constexpr std::size_t next(std::size_t slot)
{
    return (slot + 1) % slots;
}

bool has_key(const SiTable &table, std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
{
    return table.pid == pid && table.table_id == table_id && table.ext == ext;
}

// On PID 0 any table_id counts, on the other two only the table that describes the tuned multiplex.
stream_mark *mark_of(std::uint16_t pid, std::uint8_t table_id)
{
    if (pid == pid_pat)
        return &index.marks[0];
    if (pid == pid_nit && table_id == tid_nit_actual)
        return &index.marks[1];
    if (pid == pid_sdt_bat && table_id == tid_sdt_actual)
        return &index.marks[2];
    return nullptr;
}

void count_stream(const SiTable &table)
{
    stream_mark *mark = mark_of(table.pid, table.table_id);
    if (mark == nullptr)
        return;
    if (mark->tables++ == 0)
        *mark = {.tables = 1, .ext = table.ext, .mixed = false};
    else if (mark->ext != table.ext)
        mark->mixed = true;
}

// After a removal from a mixed kind only a walk could tell which values are left.
void uncount_stream(const SiTable &table)
{
    stream_mark *mark = mark_of(table.pid, table.table_id);
    if (mark == nullptr)
        return;
    index.usable = index.usable && !mark->mixed;
    --mark->tables;
}

void put(SiTable *table)
{
    std::size_t slot = slot_of(*table);
    for (; index.table[slot] != nullptr; slot = next(slot)) {
        if (has_key(*index.table[slot], table->pid, table->table_id, table->ext)) {
            ++index.hidden;
            return;
        }
    }
    index.table[slot] = table;
}

// Takes a slot out and moves up what was pushed past it, so that every probe still meets what it
// looks for.
void clear_slot(std::size_t gap)
{
    for (std::size_t slot = next(gap); index.table[slot] != nullptr; slot = next(slot)) {
        const std::size_t home = slot_of(*index.table[slot]);
        if ((slot - home) % slots >= (slot - gap) % slots) {
            index.table[gap] = index.table[slot];
            gap = slot;
        }
    }
    index.table[gap] = nullptr;
}

void note_list(si_list *tables)
{
    index.list = tables;
    index.changes = list_changes(tables);
    index.elements = tables->nb_elt;
}

bool matches_list(si_list *tables)
{
    return index.list == tables && index.changes == list_changes(tables) &&
           index.elements == tables->nb_elt;
}

void rebuild(si_list *tables)
{
    index = {};
    note_list(tables);
    if (tables->nb_elt < 0 || static_cast<std::size_t>(tables->nb_elt) > limit::tables)
        return;
    std::int32_t found = 0;
    for (SiTable &table : elements<SiTable>(tables)) {
        put(&table);
        count_stream(table);
        ++found;
    }
    index.usable = found == tables->nb_elt; // a null element is for a walk to report
}

bool ready(si_list *tables)
{
    if (tables == nullptr)
        return false;
    if (!matches_list(tables) || (!index.usable && index.elements == 0))
        rebuild(tables);
    return index.usable;
}

} // namespace

std::optional<SiTable *> find(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                              std::uint16_t ext)
{
    if (pid == SI_ANY_PID || table_id == SI_ANY_TABLE_ID || ext == SI_ANY_EXT || !ready(tables))
        return std::nullopt;
    for (std::size_t slot = slot_of(pid, table_id, ext); index.table[slot] != nullptr;
         slot = next(slot))
        if (has_key(*index.table[slot], pid, table_id, ext))
            return index.table[slot];
    return nullptr;
}

std::optional<bool> other_stream(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                                 std::uint16_t ext)
{
    if (!ready(tables))
        return std::nullopt;
    const stream_mark *mark = mark_of(pid, table_id);
    return mark != nullptr && mark->tables != 0 && (mark->mixed || mark->ext != ext);
}

void added(si_list *tables, SiTable *table)
{
    // Of the two changes that may lie between, only the one just made is known.
    if (index.list != tables || index.changes + 1 != list_changes(tables) || !index.usable) {
        index.usable = false;
        return;
    }
    put(table);
    count_stream(*table);
    note_list(tables);
}

void removing(si_list *tables, SiTable *table)
{
    // A client may have freed what the index still names since it last fitted the list.
    index.usable = index.usable && tables != nullptr && matches_list(tables);
    if (!index.usable)
        return;
    for (std::size_t slot = slot_of(*table); index.table[slot] != nullptr; slot = next(slot)) {
        if (index.table[slot] != table)
            continue;
        clear_slot(slot);
        uncount_stream(*table);
        index.usable = index.usable && index.hidden == 0; // a younger one may now be the oldest
        return;
    }
    index.usable = false;
}

void unlinked(si_list *tables)
{
    if (index.list == tables && index.changes + 1 == list_changes(tables))
        note_list(tables);
    else
        index.usable = false;
}

} // namespace si::table_index
