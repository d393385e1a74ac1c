// SPDX-License-Identifier: LGPL-2.1-or-later
// The eleven filter tasks: a table row each, and the rotation of filters over items.
#include <algorithm>
#include <array>
#include <utility>

#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

// ---- The task table

template <class Item>
std::uint32_t flush_item(void *item, filter_task *task)
{
    SI_REQUIRE(item);
    SI_REQUIRE(task);
    for (pid_filter &record : filters(*task))
        if (record.item == item)
            record.item = nullptr;
    release_record(static_cast<Item *>(item));
    --task->task_count;
    return ORVA_SI_OK;
}

using init_function = std::uint32_t (*)(pid_filter *);
using filter_function = std::uint32_t (*)(pid_filter *, void *);

template <class Item>
constexpr filter_task row(task_row id, init_function init, filter_function filter,
                          std::uint8_t quota)
{
    filter_task task{};
    task.task_id = id;
    task.mode = mode::idle;
    task.filter_quota = quota;
    task.init_func = init;
    task.filter_func = filter;
    task.flush_task_func = flush_item<Item>;
    return task;
}

constexpr filter_task eit_row(task_row id, std::uint8_t quota)
{
    return row<task_item_eit>(id, Si_SectFlt_InitEitFilter, Si_SectFlt_StartEitFilterTask, quota);
}

constexpr std::array<filter_task, task_total> initial_tasks{{
    row<task_item_plain>(pat_task, Si_SectFlt_InitPatFilter, Si_SectFlt_StartPatFilterTask, 1),
    row<task_item_plain>(cat_task, Si_SectFlt_InitCatFilter, Si_SectFlt_StartCatFilterTask, 1),
    row<task_item_pmt>(pmt_task, Si_SectFlt_InitPmtFilter, Si_SectFlt_StartPmtFilterTask, 1),
    row<task_item_nit>(nit_task, Si_SectFlt_InitNitFilter, Si_SectFlt_StartNitFilterTask, 1),
    row<task_item_plain>(sdt_bat_task, Si_SectFlt_InitSdtBatFilter,
                         Si_SectFlt_StartSdtBatFilterTask, 1),
    row<task_item_plain>(tdt_tot_task, Si_SectFlt_InitTdtTotFilter,
                         Si_SectFlt_StartTdtTotFilterTask, 1),
    eit_row(act_pf_eit_task, 1),
    eit_row(other_pf_eit_task, 0),
    eit_row(act_sch_eit_task, 5),
    eit_row(other_sch_eit_task, 0),
    row<task_item_dsm>(dsmcc_task, Si_SectFlt_InitDsmFilter, Si_SectFlt_StartDsmFilterTask, 0),
}};
static_assert([] {
    for (std::uint32_t i = 0; i < task_total; ++i)
        if (initial_tasks[i].task_id != i)
            return false;
    return true;
}());

constinit std::array<filter_task, task_total> filter_tasks SI_GUARDED_BY(pool) = initial_tasks;

struct table_range {
    std::uint32_t first;
    std::uint32_t last;
    task_row task;
};
constexpr table_range table_tasks[] = {
    {tid_pat, tid_pat, pat_task},
    {tid_cat, tid_cat, cat_task},
    {tid_pmt, tid_pmt, pmt_task},
    {tid_nit_actual, tid_nit_actual, nit_task},
    {tid_sdt_actual, tid_sdt_actual, sdt_bat_task},
    {tid_tdt, tid_tdt, tdt_tot_task},
    {tid_eit_pf_actual, tid_eit_pf_actual, act_pf_eit_task},
    {tid_eit_pf_other, tid_eit_pf_other, other_pf_eit_task},
    {tid_eit_schedule_actual, tid_eit_schedule_other - 1, act_sch_eit_task},
    {tid_eit_schedule_other, tid_eit_last, other_sch_eit_task},
    {tid_dsmcc_un_message, tid_dsmcc_un_message, dsmcc_task},
};

constexpr std::uint32_t lookup_task(std::uint32_t table_id)
{
    for (const table_range &range : table_tasks)
        if (table_id >= range.first && table_id <= range.last)
            return range.task;
    return no_task;
}
static_assert(lookup_task(0x5F) == act_sch_eit_task && lookup_task(0x60) == other_sch_eit_task &&
              lookup_task(0x46) == no_task && lookup_task(0x3C) == no_task);

// ---- Choosing filters and items

// The record of a task nearest to its tail that a predicate accepts; null when there is none.
template <class Accepts>
pid_filter *last_filter(const filter_task &task, Accepts accepts)
{
    pid_filter *found = nullptr;
    for (pid_filter &record : filters(task))
        if (accepts(record))
            found = &record;
    return found;
}

bool serves_nothing(const pid_filter &record)
{
    return record.item == nullptr || record.item->active == 0;
}

// Not held by an item that must never lose its filter.
bool may_be_taken(const pid_filter &record)
{
    return record.item == nullptr || record.item->wanted != 0;
}

bool any_filter(const pid_filter &)
{
    return true;
}

// In which order surplus filters are given up.
using filter_test = bool (*)(const pid_filter &);
constexpr std::array<filter_test, 3> dispensable_first{serves_nothing, may_be_taken, any_filter};

std::uint16_t next_index(const filter_task &task)
{
    return static_cast<std::uint16_t>((task.next_task_index + 1u) % task.task_count);
}

// The first pending item from the position of the rotation on, which is left at that item.
task_item *next_pending(filter_task &task)
{
    GSList *cell = g_slist_nth(task.task_list, task.next_task_index);
    for (std::uint32_t seen = 0; seen < task.task_count && cell != nullptr; ++seen) {
        auto *item = static_cast<task_item *>(cell->data);
        if (item != nullptr && item->active == 0)
            return item;
        task.next_task_index = next_index(task);
        cell = task.next_task_index == 0 ? task.task_list : cell->next;
    }
    return nullptr;
}

void log_counts(site here, const filter_task &task)
{
    SI_LOG_AT(here, level::verbose, "We have already got %d filters and %d tasks!\n",
              task.filter_count, task.task_count);
}

// Gives a record back to the pool. What it served is pending again.
void return_filter(filter_task &task, pid_filter &record) SI_NEEDS(pool)
{
    switch_off(record);
    record.used = 0;
    --task.filter_count;
}

// Takes filters beyond a donor's quota; the number taken, at most count.
std::uint32_t take_surplus(filter_task &donor, std::uint32_t count) SI_NEEDS(pool)
{
    std::uint32_t taken = 0;
    while (taken < count && donor.filter_count > donor.filter_quota) {
        pid_filter *record = last_filter(donor, may_be_taken);
        if (record == nullptr)
            break;
        drop_filter(donor, *record);
        ++taken;
    }
    Si_SectFlt_SetFilterMode(&donor);
    return taken;
}

// Which task gives up filters first when another has none.
constexpr std::array donors{pmt_task, act_sch_eit_task, other_sch_eit_task, other_pf_eit_task,
                            act_pf_eit_task};

// The next free dynamic filter that the driver has granted: counting others would keep a task from
// rotating over those it has. One may lie behind records without a filter, where the driver gave an
// id that stands for none.
pid_filter *next_granted_filter() SI_NEEDS(pool)
{
    pid_filter *const record = Si_SectFlt_GetAvalibleDynamicFilter();
    if (record == nullptr || record->filter_id != SI_NO_FILTER)
        return record;
    const auto behind = std::span{record, pool_records().data() + pool_records().size()};
    const auto found = std::ranges::find_if(behind, [](const pid_filter &other) {
        return other.used == 0 && other.filter_id != SI_NO_FILTER;
    });
    return found == behind.end() ? nullptr : &*found;
}

} // namespace

// ---- Shared steps

std::uint32_t task_of(std::uint32_t table_id)
{
    return lookup_task(table_id);
}

filter_task *find_task(std::uint32_t task_id)
{
    auto *found = std::ranges::find(filter_tasks, task_id, &filter_task::task_id);
    return found == filter_tasks.end() ? nullptr : found;
}

filter_task &task_at(task_row row)
{
    return filter_tasks[row];
}

std::uint32_t stop_task(site here, task_row row)
{
    const scope_lock lock{pool, here};
    return Si_SectFlt_StopFilterTask(&task_at(row));
}

std::uint32_t stop_tasks(task_row first, task_row last)
{
    std::uint32_t result = ORVA_SI_OK;
    for (std::uint32_t row = first; row <= last; ++row) {
        const std::uint32_t stopped = Si_SectFlt_StopFilterTask(&filter_tasks[row]);
        if (result == ORVA_SI_OK)
            result = stopped;
    }
    return result;
}

std::uint32_t check_arming(site here, const pid_filter *record, const void *item,
                           std::uint32_t enabled)
{
    if (record == nullptr) {
        print_assertion(here, "pid_filter!=((void *)0)");
        return ORVA_SI_NULL_ARGUMENT;
    }
    if (item == nullptr) {
        print_assertion(here, "task_item!=((void *)0)");
        return ORVA_SI_NULL_ARGUMENT;
    }
    return enabled != 0 ? ORVA_SI_OK : ORVA_SI_TABLE_DISABLED;
}

std::uint32_t arm(pid_filter &record, task_item &item, std::uint32_t list_length)
{
    record.ticks = 0;
    const std::uint32_t result = Si_SectFlt_StartFilter(&record, list_length);
    if (result != ORVA_SI_OK)
        return result;
    item.active = 1;
    item.finished = 0;
    return ORVA_SI_OK;
}

std::uint32_t serve(filter_task &task, pid_filter &record, task_item &item)
{
    const bool was_enabled = record.enabled != 0;
    const std::uint32_t result = task.filter_func(&record, &item);
    if (result == ORVA_SI_OK) {
        record.item = &item;
        return result;
    }
    displace(record);               // the next poll tries again
    record.service_id = SI_ANY_EXT; // nor is it found for an item that another record serves
    if (was_enabled)
        silence_unless_armed(record);
    return result;
}

void silence_unless_armed(const pid_filter &record)
{
    if (record.enabled == 0)
        Si_SectFlt_DisableSecFilter(demux_index, record.filter_id);
}

void displace(pid_filter &record)
{
    store_release(record.enabled, 0);
    if (record.item != nullptr)
        record.item->active = 0;
    record.item = nullptr;
}

void switch_off(pid_filter &record)
{
    const bool was_enabled = record.enabled != 0;
    displace(record);
    if (was_enabled)
        Si_SectFlt_DisableSecFilter(demux_index, record.filter_id);
}

void serve_first(filter_task &task, task_item &item)
{
    for (pid_filter &record : filters(task)) {
        displace(record);
        serve(task, record, item);
        silence_unless_armed(record);
        return;
    }
}

task_item *finish_item(site here, pid_filter *record, std::uint32_t table_id,
                       std::uint32_t finished)
{
    if (record == nullptr || serves_nothing(*record)) {
        SI_LOG_AT(here, level::fatal, "The filter has no active task, table_id: %#x!\n", table_id);
        return nullptr;
    }
    record->item->finished = finished;
    record->item->active = 0;
    return record->item;
}

bool keeps_filter(const filter_task &task, const task_item &item)
{
    return task.mode == mode::one_each || (task.mode == mode::rotating && item.wanted == 0);
}

std::uint32_t go_on(site here, filter_task &task, pid_filter &record, std::uint32_t table_id)
{
    if (task.mode == mode::idle) {
        SI_LOG_AT(here, level::fatal, "Wrong task mode: %d, table_id: %#x!\n",
                  static_cast<int>(task.mode), table_id);
        return ORVA_SI_FAILURE;
    }
    if (keeps_filter(task, *record.item)) {
        const std::uint32_t result = serve(task, record, *record.item);
        return task.mode == mode::one_each ? result : std::uint32_t{ORVA_SI_FAILURE};
    }
    displace(record);
    Si_SectFlt_PollNewTaskFunc(&record, &task);
    silence_unless_armed(record);
    return ORVA_SI_FAILURE;
}

void fetch_filters(site here, filter_task &task, std::uint32_t count)
{
    Si_SectFlt_AddAvailableFilters(&task, count);
    if (task.filter_count >= task.filter_quota)
        return;
    const std::uint32_t missing = task.filter_quota - task.filter_count;
    Si_SectFlt_ReduceTaskFilterList(&task, missing);
    Si_SectFlt_AddAvailableFilters(&task, missing);
    if (task.filter_count >= task.filter_quota)
        SI_LOG_AT(here, level::notice, "Fetch filter sucessfully!\n");
}

bool fetch_one_filter(site here, filter_task &task)
{
    pid_filter *record = next_granted_filter();
    if (record == nullptr) {
        Si_SectFlt_ReduceTaskFilterList(&task, 1);
        record = next_granted_filter();
    }
    if (record == nullptr)
        return false;
    SI_LOG_AT(here, level::notice, "Fetch filter sucessfully: %d!\n", record->filter_id);
    task.init_func(record);
    Si_SectFlt_AddNewFilter(&task, record);
    return true;
}

void drop_filter(filter_task &task, pid_filter &record)
{
    return_filter(task, record);
    task.filter_list = g_slist_remove(task.filter_list, &record);
}

void drop_item(filter_task &task, task_item &item)
{
    task.task_list = g_slist_remove(task.task_list, &item);
    task.flush_task_func(&item, &task);
    settle_rotation(task);
}

void settle_rotation(filter_task &task)
{
    if (task.next_task_index >= task.task_count)
        task.next_task_index = 0;
}

void poll_filters(filter_task &task)
{
    for (pid_filter &record : filters(task))
        Si_SectFlt_PollNewTaskFunc(&record, &task);
}

bool time_out(site here, pid_filter &record, std::uint16_t limit)
{
    if (record.enabled == 0 || record.item == nullptr || record.item->wanted == 0)
        return false;
    if (record.ticks++ < limit)
        return false;
    SI_LOG_AT(here, level::notice, "Filter %d time out: %d!\n", record.filter_id, record.ticks);
    switch_off(record);
    return true;
}

} // namespace si

using namespace si;

// ---- Operations on a task

std::uint32_t Si_SectFlt_AddNewTask(filter_task *task, void *item)
{
    SI_REQUIRE(task);
    SI_REQUIRE(item);
    task->task_list = g_slist_append(task->task_list, item);
    ++task->task_count;
    log_counts(SI_HERE, *task);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_AddNewFilter(filter_task *task, pid_filter *record)
{
    SI_REQUIRE(task);
    SI_REQUIRE(record);
    record->used = 1;
    task->filter_list = g_slist_append(task->filter_list, record);
    ++task->filter_count;
    log_counts(SI_HERE, *task);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_SetFilterMode(filter_task *task)
{
    SI_REQUIRE(task);
    if (task->filter_count == 0 || task->task_count == 0)
        task->mode = mode::idle;
    else
        task->mode = task->filter_count == task->task_count ? mode::one_each : mode::rotating;
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_RemoveUselessFilters(filter_task *task)
{
    SI_REQUIRE(task);
    for (const auto accepts : dispensable_first) {
        while (task->filter_count > task->task_count) {
            pid_filter *record = last_filter(*task, accepts);
            if (record == nullptr)
                break;
            drop_filter(*task, *record);
        }
    }
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_TriggerFilterTask(filter_task *task)
{
    SI_REQUIRE(task);
    if (task->task_count < task->filter_count)
        Si_SectFlt_RemoveUselessFilters(task);
    Si_SectFlt_SetFilterMode(task);
    SI_LOG(level::verbose, "task id: %d, task mode: %d\n", static_cast<int>(task->task_id),
           static_cast<int>(task->mode));
    poll_filters(*task);
    return ORVA_SI_OK;
}

void Si_SectFlt_PollNewTaskFunc(void *record, void *task)
{
    if (record == nullptr || task == nullptr) {
        SI_LOG_MISSING(record == nullptr ? "record" : "task");
        return;
    }
    auto &idle = *static_cast<pid_filter *>(record);
    auto &of = *static_cast<filter_task *>(task);
    if (idle.enabled != 0 || of.task_count == 0 || of.next_task_index >= of.task_count)
        return;
    task_item *item = next_pending(of);
    if (item == nullptr)
        return;
    if (of.filter_func == nullptr) {
        SI_LOG(level::error, "filter_task->filter_func!=NULL");
        return;
    }
    if (serve(of, idle, *item) != ORVA_SI_OK)
        return;
    of.next_task_index = next_index(of);
    SI_LOG(level::trace, "filter_id: %d, filter_task->next_task_index = %d\n", idle.filter_id,
           of.next_task_index);
}

std::uint32_t Si_SectFlt_StopFilterTask(filter_task *task)
{
    SI_REQUIRE(task);
    for (pid_filter &record : filters(*task))
        return_filter(*task, record);
    SI_ASSERT(task->filter_count == 0, "filter_task->filter_count==0", ORVA_SI_FAILURE);
    g_slist_free(task->filter_list);
    task->filter_list = nullptr;
    if (task->flush_task_func == nullptr) {
        SI_LOG(level::error, "filter_task->flush_task_func!=NULL");
        return ORVA_SI_NULL_ARGUMENT;
    }
    for (GSList *cell = task->task_list; cell != nullptr; cell = cell->next)
        task->flush_task_func(std::exchange(cell->data, nullptr), task);
    SI_ASSERT(task->task_count == 0, "filter_task->task_count==0", ORVA_SI_FAILURE);
    g_slist_free(task->task_list);
    task->task_list = nullptr;
    task->mode = mode::idle;
    task->next_task_index = 0;
    task->filter_quota = 0;
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_AddAvailableFilters(filter_task *task, std::uint32_t count)
{
    if (task == nullptr) {
        SI_LOG_MISSING("task");
        return 0;
    }
    std::uint32_t added = 0;
    for (; added < count; ++added) {
        pid_filter *record = next_granted_filter();
        if (record == nullptr)
            break;
        task->init_func(record);
        Si_SectFlt_AddNewFilter(task, record);
    }
    return added;
}

std::uint32_t Si_SectFlt_ReduceTaskFilterList(filter_task *requester, std::uint32_t count)
{
    std::uint32_t freed = 0;
    for (const task_row donor : donors)
        if (&task_at(donor) != requester && freed < count)
            freed += take_surplus(task_at(donor), count - freed);
    return freed;
}

std::uint32_t Si_SectFlt_StopAllFilters(void)
{
    std::uint32_t result = ORVA_SI_OK;
    {
        const scope_lock lock{pool, SI_HERE};
        result = stop_tasks(pat_task, dsmcc_task);
        Si_SectFlt_FlushTmpList();
    }
    clear_eit_started();
    Si_BG_PauseService(bg_service::pmt);
    Si_BG_PauseService(bg_service::act_pf_eit);
    Si_BG_PauseService(bg_service::act_sch_eit);
    return result;
}
