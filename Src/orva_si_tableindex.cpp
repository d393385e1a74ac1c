// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_tableindex.h"

#include <array>

#include "orva_si_alloc.h"
#include "orva_si_recordindex.h"
#include "orva_si_siids.h"

namespace si::table_index {

namespace {

constexpr std::uint64_t key_of(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
{
    return std::uint64_t{pid} << 24 | std::uint64_t{table_id} << 16 | ext;
}

std::uint64_t key_of_table(const SiTable &table)
{
    return key_of(table.pid, table.table_id, table.ext);
}

// Tables of one kind whose table_id_extension names the multiplex. As long as all of them agree,
// one value answers for all.
struct stream_mark {
    std::uint32_t tables = 0;
    std::uint16_t ext = 0;
    bool mixed = false;
};

record_index<SiTable, limit::tables, key_of_table> index;
std::array<stream_mark, 3> marks;

// On PID 0 any table_id counts, on the other two only the table that describes the tuned multiplex.
stream_mark *mark_of(std::uint16_t pid, std::uint8_t table_id)
{
    if (pid == pid_pat)
        return &marks[0];
    if (pid == pid_nit && table_id == tid_nit_actual)
        return &marks[1];
    if (pid == pid_sdt_bat && table_id == tid_sdt_actual)
        return &marks[2];
    return nullptr;
}

void count_stream(const SiTable *table)
{
    if (table == nullptr) { // the index begins anew
        marks = {};
        return;
    }
    stream_mark *mark = mark_of(table->pid, table->table_id);
    if (mark == nullptr)
        return;
    if (mark->tables++ == 0)
        *mark = {.tables = 1, .ext = table->ext, .mixed = false};
    else if (mark->ext != table->ext)
        mark->mixed = true;
}

// After a removal from a mixed kind only a walk could tell which values are left.
void uncount_stream(const SiTable &table)
{
    stream_mark *mark = mark_of(table.pid, table.table_id);
    if (mark == nullptr)
        return;
    if (mark->mixed)
        index.give_up();
    --mark->tables;
}

} // namespace

std::optional<SiTable *> find(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                              std::uint16_t ext)
{
    const bool exact = pid != SI_ANY_PID && table_id != SI_ANY_TABLE_ID && ext != SI_ANY_EXT;
    if (!exact || !index.ready(tables, count_stream))
        return std::nullopt;
    return index.find(key_of(pid, table_id, ext));
}

std::optional<bool> other_stream(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                                 std::uint16_t ext)
{
    if (!index.ready(tables, count_stream))
        return std::nullopt;
    const stream_mark *mark = mark_of(pid, table_id);
    return mark != nullptr && mark->tables != 0 && (mark->mixed || mark->ext != ext);
}

void added(si_list *tables, SiTable *table)
{
    if (index.added(tables, table))
        count_stream(table);
}

void removing(si_list *tables, SiTable *table)
{
    if (index.removing(tables, table))
        uncount_stream(*table);
}

void unlinked(si_list *tables)
{
    index.unlinked(tables);
}

void emptied(si_list *tables)
{
    index.ready(tables, count_stream);
}

} // namespace si::table_index
