// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_query.h"

#include "orva_si_loops.h"

namespace si {

namespace {

// A PMT on the PID of the EIT counts before it is complete.
bool needs_completion(const SiTableKey &key)
{
    return !(key.table_id == tid_pmt && key.pid == pid_eit);
}

bool is_queryable(site here, const SiTable &table, const SiTableKey &key)
{
    if (Orva_Si_IsEqualTableById(&table, key.pid, key.table_id, key.ext, key.ext1, key.ext2) == 0) {
        SI_LOG_AT(here, level::trace, "IS NOT eqaul, table id = %#x\n", table.table_id);
        return false;
    }
    if (table.psect_list == nullptr || table.psect_list->nb_elt == 0)
        return false;
    if (table.completed == 0 && needs_completion(key)) {
        SI_LOG_AT(here, level::trace, "table not finished, pid = %#x, tableid = %#x\n", table.pid,
                  table.table_id);
        return false;
    }
    return true;
}

} // namespace

// By position, because a missing record is traced and not just passed over.
step walk_sections(site here, si_list *sections, section_visitor visit)
{
    for (std::int32_t at = 0; si_list_eol(sections, at) == 0; ++at) {
        const auto *record = static_cast<const SiSection *>(si_list_get(sections, at));
        if (record == nullptr || record->section == nullptr) {
            SI_LOG_AT(here, level::trace, "int_psect = null\n");
            continue;
        }
        if (const step answer = visit(record->section); answer != step::next)
            return answer;
    }
    return step::next;
}

step walk_tables(site here, const SiTableKey &key, section_visitor visit)
{
    int walked = 0;
    for (const SiTable &table : elements<SiTable>(Orva_Si_GetTableList())) {
        ++walked;
        if (!is_queryable(here, table, key))
            continue;
        const step answer = walk_sections(here, table.psect_list, visit);
        if (answer == step::found || answer == step::full)
            return answer;
    }
    SI_LOG_AT(here, level::trace, "all are looped of count=%d\n", walked);
    return step::next;
}

} // namespace si
