// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_query.h"

#include <unistd.h>

#include "orva_si_loops.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_tablelinks.h"

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

bool is_service(const SiEitService &service, const service_key &key)
{
    return service.original_network_id == key.original_network_id &&
           service.transport_stream_id == key.transport_stream_id &&
           service.service_id == key.service_id;
}

// The trace tells of each entry that is passed over, and how many were walked.
const SiEitService *find_service(site here, const service_key &key, int &walked) SI_NEEDS(eit)
{
    if (!log_enabled(level::trace))
        return find_eit_service(key.original_network_id, key.transport_stream_id, key.service_id);
    for (const SiEitService &service : elements<SiEitService>(Orva_Si_GetDvbEitList())) {
        ++walked;
        if (is_service(service, key))
            return &service;
        SI_LOG_AT(here, level::trace, "mismatch service 3 param value\n");
    }
    return nullptr;
}

// By position, because a missing record is traced and not just passed over.
template <class Record, class Visit>
step walk_records(site here, si_list *records, Visit visit)
{
    for (std::int32_t at = 0; si_list_eol(records, at) == 0; ++at) {
        const auto *record = static_cast<const Record *>(si_list_get(records, at));
        if (record == nullptr || record->section == nullptr) {
            SI_LOG_AT(here, level::trace, "int_psect = null\n");
            continue;
        }
        if (const step answer = visit(*record); answer != step::next)
            return answer;
    }
    return step::next;
}

// A question on its way through the tables.
struct table_walk {
    const SiTableKey &key;
    section_visitor visit;
    int walked = 0;            // tables
    std::size_t looked_at = 0; // bytes of sections since the lock was taken
    bool interrupted = false;
};

// What takes a millisecond or two to check and to decode. Only somebody who fills the store brings
// about that one question looks at more.
constexpr std::size_t most_at_once = std::size_t{1} << 20;

step ask_table(site here, const SiTable &table, table_walk &walk)
{
    const step answer =
        walk_records<SiSection>(here, table.psect_list, [&walk](const SiSection &stored) {
            walk.looked_at += stored.sect_len;
            return walk.visit(stored.section);
        });
    return answer == step::table_done ? step::next : answer;
}

// Asks each of some tables that the key matches, from where the walk is. Interrupts it when others
// have waited for long enough.
template <class Tables>
step ask_tables(site here, const Tables &tables, table_walk &walk)
{
    int passed = 0;
    for (const SiTable &table : tables) {
        if (passed++ < walk.walked)
            continue;
        walk.interrupted = walk.looked_at >= most_at_once;
        if (walk.interrupted)
            return step::next;
        ++walk.walked;
        if (!is_queryable(here, table, walk.key))
            continue;
        if (const step answer = ask_table(here, table, walk); answer != step::next)
            return answer;
    }
    return step::next;
}

step ask_store(site here, table_walk &walk) SI_NEEDS(ctl)
{
    si_list *tables = Orva_Si_GetTableList();
    walk.interrupted = false;
    walk.looked_at = 0;
    if (!log_enabled(level::trace))
        if (const auto linked = find_linked_tables(tables, walk.key))
            return ask_tables(here, *linked, walk);
    return ask_tables(here, elements<SiTable>(tables), walk);
}

// Lets those who wait for the lock have it, which takes them a moment. False when the store was
// emptied meanwhile: what is there now is no part of the answer.
bool give_way(site here)
{
    constexpr unsigned moment_us = 50;
    ctl.assume_held();
    const std::uint32_t before = times_emptied();
    {
        const scope_gap gap{ctl, here};
        usleep(moment_us);
    }
    return times_emptied() == before;
}

} // namespace

bool is_of_network(site here, std::uint16_t original_network_id, std::uint32_t onid)
{
    if (original_network_id != low16(onid)) {
        SI_LOG_AT(here, level::trace, "get a not matched original network!\n");
        return false;
    }
    SI_LOG_AT(here, level::trace, "get the match orig_id = %#4x\n", original_network_id);
    return true;
}

step walk_sections(site here, si_list *sections, section_visitor visit)
{
    return walk_records<SiSection>(here, sections,
                                   [&](const SiSection &stored) { return visit(stored.section); });
}

step walk_tables(site here, const SiTableKey &key, section_visitor visit)
{
    table_walk walk{key, visit};
    step answer = step::next;
    do
        answer = ask_store(here, walk);
    while (answer == step::next && walk.interrupted && give_way(here));
    if (answer == step::next)
        SI_LOG_AT(here, level::trace, "all are looped of count=%d\n", walk.walked);
    return answer;
}

service_summary known_sections(const service_key &key)
{
    if (log_enabled(level::trace))
        return {};
    const SiEitService *service =
        find_eit_service(key.original_network_id, key.transport_stream_id, key.service_id);
    return service != nullptr ? fitting_summary(service->sections) : service_summary{};
}

step walk_events(site here, const service_key &key, event_visitor visit)
{
    int walked = 0;
    if (const SiEitService *service = find_service(here, key, walked)) {
        SI_LOG_AT(here, level::trace, "found the service entry and the secion counts = %d\n",
                  service->sections != nullptr ? service->sections->nb_elt : 0);
        const step answer =
            walk_records<SiEitSection>(here, service->sections, [&](const SiEitSection &stored) {
                return is_whole(bytes_of(stored)) ? visit(summary_of(stored), stored) : step::next;
            });
        if (answer != step::next)
            return answer;
    }
    SI_LOG_AT(here, level::trace, "all are looped of count=%d\n", walked);
    return step::next;
}

} // namespace si
