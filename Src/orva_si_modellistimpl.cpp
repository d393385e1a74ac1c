// SPDX-License-Identifier: LGPL-2.1-or-later
// The table store: one record for each sub-table, its sections as they arrived.
#include "orva_si_modellistimpl.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "orva_si/lifecycle.h"
#include "orva_si_alloc.h"
#include "orva_si_bytes.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"
#include "orva_si_siids.h"
#include "orva_si_tableindex.h"

extern "C" {

pthread_mutex_t Ts_Ctl_Mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t Ts_Eit_Mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t Ts_Time_Mutex = PTHREAD_MUTEX_INITIALIZER;

} // extern "C"

namespace si {

namespace {

// Published when their locks exist; clients that wait for the store read them without a lock.
si_list *tables_list = nullptr;
si_list *eit_list = nullptr;
std::size_t table_bytes = 0;
std::uint32_t emptied = 0; // times

// To what this thread stores. The model spares a call for each look at it.
thread_local section_offer *offered __attribute__((tls_model("initial-exec"))) = nullptr;
thread_local late_release *releases __attribute__((tls_model("initial-exec"))) = nullptr;

// Removes the table at a position, its link included.
void drop_table_at(std::int32_t position)
{
    Orva_Si_RemoveTable(static_cast<SiTable *>(si_list_get(tables_list, position)));
    si_list_remove(tables_list, position);
    table_index::unlinked(tables_list);
}

// Removes every PMT that the predicate names. Positions are 8 bits wide and wrap: a store of fewer
// than 256 tables is scanned whole, and the scan ends when 256 positions in a row were passed
// without a removal.
template <class Doomed>
void remove_pmts(Doomed doomed)
{
    constexpr unsigned positions = 256;
    std::uint8_t position = 0;
    for (unsigned passed = 0; passed < positions && si_list_eol(tables_list, position) == 0;) {
        const auto *table = static_cast<const SiTable *>(si_list_get(tables_list, position));
        if (table != nullptr && table->table_id == tid_pmt && doomed(*table)) {
            drop_table_at(position);
            passed = 0;
            continue;
        }
        ++position;
        ++passed;
    }
}

// Wildcards are honoured on the key's side only.
bool ext_differs(std::uint16_t wanted, std::uint16_t held)
{
    return wanted != SI_ANY_EXT && wanted != held;
}

// The walk that defines the answer: the oldest table that the key matches.
SiTable *walk_for(const SiTableKey &key)
{
    return static_cast<SiTable *>(si_list_find(tables_list, &key, find_table));
}

SiTable *find_by_key(const SiTableKey &key)
{
    const bool narrow = key.ext1 != SI_ANY_EXT || key.ext2 != SI_ANY_EXT;
    if (narrow || log_enabled(level::verbose)) // each comparison is traced at this level
        return walk_for(key);
    const auto indexed = table_index::find(tables_list, key.pid, key.table_id, key.ext);
    return indexed ? *indexed : walk_for(key);
}

bool tells_another_stream(const SiTable &table, std::uint16_t pid, std::uint8_t table_id,
                          std::uint16_t ext)
{
    if (table.pid != pid || table.ext == ext)
        return false;
    if (pid == pid_pat)
        return true;
    const bool describes_stream = (pid == pid_nit && table_id == tid_nit_actual) ||
                                  (pid == pid_sdt_bat && table_id == tid_sdt_actual);
    return describes_stream && table.table_id == table_id;
}

bool walk_for_other_stream(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
{
    for (std::int32_t position = 0; si_list_eol(tables_list, position) == 0; ++position) {
        const auto *table = static_cast<const SiTable *>(si_list_get(tables_list, position));
        if (table == nullptr) {
            SI_LOG(level::error, "the ptblb is null !!!!\n");
            continue;
        }
        if (tells_another_stream(*table, pid, table_id, ext))
            return true;
    }
    return false;
}

void release_stored(SiSection *record)
{
    release_section(record->section, record->sect_len);
    release_record(record);
}

void release_sections(SiTable &table, void (*free_section)(SiSection *record))
{
    constexpr site here{SI_SOURCE, "Orva_Si_RemoveTableSections", __LINE__};
    if (table.psect_list != nullptr)
        SI_LOG_AT(here, level::trace, "ptbl->psect_list->nb_elt = %d\n", table.psect_list->nb_elt);
    while (si_list_eol(table.psect_list, 0) == 0) {
        auto *record = static_cast<SiSection *>(si_list_get(table.psect_list, 0));
        si_list_remove(table.psect_list, 0);
        if (record == nullptr)
            continue;
        SI_LOG_AT(
            here, level::trace, "want to remove the pos=%d psect: %p, section: %p, length = %d\n",
            0, static_cast<void *>(record), static_cast<void *>(record->section), record->sect_len);
        free_section(record);
    }
}

// Of a store that forgot the table and its bytes.
void release_table(void *element)
{
    auto *table = static_cast<SiTable *>(element);
    if (table == nullptr)
        return;
    release_sections(*table, release_stored);
    si_list_uninit(table->psect_list);
    release_record(table);
}

void release_links(si_list_node *links, void (*free_element)(void *element))
{
    while (si_list_node *const link = links) {
        links = link->next;
        free_element(link->element);
        release_record(link);
    }
}

void clear_summary(SiTable &table)
{
    std::fill(std::begin(table.sect_map), std::end(table.sect_map), std::uint8_t{0});
    table.completed = 0;
    table.crc = 0;
}

} // namespace

section_offer::section_offer(const SiSection &of) : section{of.section}, length{of.sect_len}
{
    offered = this;
}

section_offer::~section_offer()
{
    offered = nullptr;
}

std::uint8_t *keep_section(const std::uint8_t *section, std::size_t length)
{
    section_offer *const offer = offered;
    if (offer != nullptr && !offer->is_taken && offer->section == section &&
        offer->length == length) {
        offer->is_taken = true;
        return const_cast<std::uint8_t *>(section);
    }
    std::uint8_t *copy = allocate_section(length);
    if (copy != nullptr)
        std::memcpy(copy, section, length);
    return copy;
}

void drop_kept(std::uint8_t *kept, std::size_t length)
{
    section_offer *const offer = offered;
    if (offer != nullptr && offer->is_taken && offer->section == kept)
        offer->is_taken = false;
    else
        release_section(kept, length);
}

void drop_links(si_list_node *links, void (*free_element)(void *element))
{
    late_release *const later = releases;
    if (later != nullptr && later->count < later->kept.size())
        later->kept[later->count++] = {links, free_element};
    else
        release_links(links, free_element);
}

late_release::late_release() : outer{releases}
{
    releases = this;
}

late_release::~late_release()
{
    releases = outer;
    for (const dropped &each : std::span{kept}.first(count))
        release_links(each.links, each.free_element);
}

bool reserve_table_bytes(std::size_t length, std::uint8_t table_id)
{
    const std::size_t size = table_section_bytes(length);
    if (!has_room(limited::table_bytes, table_bytes, size, table_id))
        return false;
    table_bytes += size;
    return true;
}

void return_table_bytes(std::size_t length)
{
    table_bytes -= std::min(table_section_bytes(length), table_bytes);
}

std::uint32_t times_emptied()
{
    return emptied;
}

std::size_t table_bytes_held()
{
    return table_bytes;
}

void free_stored_section(SiSection *record)
{
    if (record->section != nullptr)
        return_table_bytes(record->sect_len);
    release_stored(record);
}

} // namespace si

using namespace si;

uint32_t Orva_Si_InitTables(void)
{
    struct start_up {
        pthread_mutex_t *mutex;
        const char *failure;
    };
    constexpr std::array<start_up, 3> mutexes{{
        {&Ts_Ctl_Mutex, "Create the control mutex error\n"},
        {&Ts_Time_Mutex, "Create the control mutex error\n"}, // the same words for both
        {&Ts_Eit_Mutex, "Create the eit mutex error\n"},
    }};
    si_list *tables = nullptr;
    si_list *events = nullptr;
    const si::on_exit publish{[&] { // what was created before a failure is kept
        store_release(tables_list, tables);
        store_release(eit_list, events);
    }};
    if (si_list_init(&tables) != 0 || si_list_init(&events) != 0) {
        SI_LOG(level::error, "Init tables list error\n");
        return ORVA_SI_FAILURE;
    }
    for (const start_up &step : mutexes) {
        if (Orva_InitMutex(step.mutex) != ORVA_SI_OK) {
            SI_LOG(level::error, "%s", step.failure);
            return ORVA_SI_FAILURE;
        }
    }
    return ORVA_SI_OK;
}

si_list *Orva_Si_GetTableList(void)
{
    return load_acquire(tables_list);
}

SiTable *Orva_Si_CreateTable(uint16_t pid, uint8_t table_id, const uint8_t *psection)
{
    SI_REQUIRE_AS(psection, "psection", nullptr);
    SI_REQUIRE_AS(tables_list, "tables_list", nullptr);
    const auto word = [psection](std::size_t at) {
        return be16(std::span<const std::uint8_t, 2>{psection + at, 2});
    };
    const auto held = static_cast<std::size_t>(tables_list->nb_elt);
    SiTable *table =
        has_room(limited::tables, held, 1, table_id) ? allocate_record<SiTable>() : nullptr;
    if (table == nullptr) {
        SI_LOG(level::trace, "no mem yet\n");
        return nullptr;
    }
    si::on_exit undo{[&] {
        si_list_uninit(table->psect_list);
        release_record(table);
    }};
    table->pid = pid;
    table->table_id = table_id;
    table->ext = word(3);
    table->ext1 = pid == pid_eit ? word(8) : std::uint16_t{SI_ANY_EXT};
    table->ext2 = pid == pid_eit ? word(10) : std::uint16_t{SI_ANY_EXT};
    table->last_section_number = psection[7];
    if (pid == pid_eit)
        SI_LOG(level::trace, "ext_id1 = %#x, ext_id2=%#x\n", table->ext1, table->ext2);
    if (si_list_init(&table->psect_list) != 0) {
        SI_LOG(level::trace, "no mem yet\n");
        return nullptr;
    }
    if (si_list_add(tables_list, table, -1) == -1) {
        SI_LOG(level::trace, "can't insert ptbl into tables_list\n");
        return nullptr;
    }
    undo.release();
    table_index::added(tables_list, table);
    SI_LOG(level::trace, "add table: pid = %#x, table id = %#x\n", pid, table_id);
    return table;
}

SiTable *Orva_Si_FindTableById(uint16_t pid, uint8_t table_id, uint16_t ext, uint16_t ext1,
                               uint16_t ext2)
{
    SI_LOG(level::trace, "want to find pid=%#x,tblid=%#x,ext=%#x,ext1=%#x,ext2=%#x\n", pid,
           table_id, ext, ext1, ext2);
    SiTable *table = find_by_key({pid, table_id, ext, ext1, ext2});
    if (table == nullptr) {
        SI_LOG(level::trace, "ptbl is not existed\n");
        return nullptr;
    }
    SI_LOG(level::trace, "ptbl = %#x the psect_list=%#x\n", address_of(table),
           address_of(table->psect_list));
    SI_LOG(level::trace, "ptbl is existed\n");
    return table;
}

uint32_t Orva_Si_IsEqualTableById(const SiTable *ptbl, uint16_t pid, uint8_t table_id, uint16_t ext,
                                  uint16_t ext1, uint16_t ext2)
{
    if (pid == pid_eit)
        SI_LOG(level::trace, "want to find pid=%#x, tblid=%#x,ext=%#x,ext1=%#x,ext2=%#x\n", pid,
               table_id, ext, ext1, ext2);
    if (table_id == tid_pmt)
        SI_LOG(level::trace, "PMT: want to find pid=%#x,tblid=%#x,ext=%#x,ext1=%#x,ext2=%#x\n", pid,
               table_id, ext, ext1, ext2);
    if (ptbl != nullptr)
        SI_LOG(level::trace, "current ptbl -> pid = %#x, tblid = %#x, ext_id = %#x\n", ptbl->pid,
               ptbl->table_id, ptbl->ext);
    const SiTableKey key{pid, table_id, ext, ext1, ext2};
    return find_table(&key, ptbl) == 0 ? 1 : 0;
}

int32_t find_table(const void *key, const void *table)
{
    if (key == nullptr || table == nullptr) {
        SI_LOG(level::trace, "bad pointer\n");
        return -1;
    }
    const auto &wanted = *static_cast<const SiTableKey *>(key);
    const auto &held = *static_cast<const SiTable *>(table);
    if (wanted.pid != SI_ANY_PID && wanted.pid != held.pid) {
        SI_LOG(level::verbose, "pid not match of ta->pid=%#x,tb->pid=%#x\n", wanted.pid, held.pid);
        return -1;
    }
    if (wanted.table_id != SI_ANY_TABLE_ID && wanted.table_id != held.table_id) {
        SI_LOG(level::verbose, "table id not match of ta->table_id=%#x, tb->table_id=%#x\n",
               wanted.table_id, held.table_id);
        return -1;
    }
    if (ext_differs(wanted.ext, held.ext)) {
        SI_LOG(level::verbose, "ta->ext= %#x, ext=%#x\n", wanted.ext, held.ext);
        return -1;
    }
    if (ext_differs(wanted.ext1, held.ext1)) {
        SI_LOG(level::verbose, "ext1=%#x\n", held.ext1);
        return -1;
    }
    if (ext_differs(wanted.ext2, held.ext2)) {
        SI_LOG(level::verbose, "ext2=%#x\n", held.ext2);
        return -1;
    }
    return 0;
}

uint32_t Orva_Si_RemoveTable(SiTable *ptbl)
{
    SI_REQUIRE(ptbl);
    table_index::removing(tables_list, ptbl);
    Orva_Si_RemoveTableSections(ptbl);
    si_list_uninit(ptbl->psect_list);
    release_record(ptbl);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_RemoveTableSections(SiTable *ptbl)
{
    SI_REQUIRE(ptbl);
    release_sections(*ptbl, free_stored_section);
    clear_summary(*ptbl);
    ptbl->last_section_number = 0;
    return ORVA_SI_OK;
}

uint32_t Orva_Si_DestorySectModel(void)
{
    while (si_list_get(tables_list, 0) != nullptr)
        drop_table_at(0);
    si_list_uninit(tables_list);
    store_release(tables_list, nullptr);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_IsStreamChanged(uint16_t pid, uint8_t table_id, uint16_t ext)
{
    SI_REQUIRE_AS(tables_list, "tables_list", 0);
    const auto indexed = table_index::other_stream(tables_list, pid, table_id, ext);
    const bool changed = indexed ? *indexed : walk_for_other_stream(pid, table_id, ext);
    if (!changed)
        return 0;
    SI_LOG(level::error, "the stream is changed\n");
    return 1;
}

uint32_t Orva_Si_DelMissedPmtCaches(void)
{
    remove_pmts([](const SiTable &pmt) {
        return Orva_Si_IsPmtExistedByPidAndProgNum(pmt.ext, pmt.pid) == 0;
    });
    return ORVA_SI_OK;
}

uint32_t Orva_Si_DeleteAllPmtCaches(void)
{
    remove_pmts([here = SI_HERE](const SiTable &pmt) {
        SI_LOG_AT(here, level::trace, "will remove pmtpid = %#x, pg_num = %#x\n", pmt.pid, pmt.ext);
        return true;
    });
    return ORVA_SI_OK;
}

uint32_t Orva_Si_DeleteCaches([[maybe_unused]] uint32_t mode)
{
    if (log_enabled(level::trace))
        for (const SiTable &table : elements<SiTable>(tables_list))
            SI_LOG(level::trace, "pid=%#x, tblid=%#x\n", table.pid, table.table_id);
    si_list_node *const deleted = take_links(tables_list);
    table_bytes = 0;
    ++emptied;
    table_index::emptied(tables_list);
    drop_links(deleted, release_table);
    Orva_Si_PrintMemSize();
    return ORVA_SI_OK;
}

uint32_t Orva_Si_ClearCache(void)
{
    return Orva_Si_DeleteCaches(0);
}

si_list *Orva_Si_GetDvbEitList(void)
{
    return load_acquire(eit_list);
}
