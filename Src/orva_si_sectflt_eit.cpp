// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: one request for every service and kind of event table, a few filters for each kind
// that go round them. The tuned service's present/following events keep a filter.
#include "orva_si_sectflt_eit.h"

#include <algorithm>
#include <span>

#include "orva_si/channel.h"

namespace si {

namespace {

constexpr std::uint32_t most_services = 0xFF; // of one request
constexpr std::uint32_t most_act_pf_filters = 2;
constexpr std::uint32_t most_act_sch_filters = 5;

std::uint8_t act_pf_started;
std::uint8_t act_sch_started;

bool is_rotating(task_row row) SI_NEEDS(pool)
{
    return task_at(row).mode == mode::rotating;
}

// ---- Requests

// Whether two items ask for the same. Not by table_id: that of a schedule item moves on.
bool same_request(const task_item_eit &one, const task_item_eit &other)
{
    return one.service_id == other.service_id &&
           one.transport_stream_id == other.transport_stream_id &&
           one.original_network_id == other.original_network_id;
}

task_item_eit *make_item(const eit_kind &kind, const SiEitRequest &request)
{
    auto *item = new_item<task_item_eit>();
    if (item == nullptr)
        return nullptr;
    item->table_id = kind.table_id;
    item->table_id_mask = kind.mask;
    item->last_table_id = kind.last_table_id;
    item->version = any_version;
    item->service_id = request.service_id;
    item->transport_stream_id = request.transport_stream_id;
    item->original_network_id = request.original_network_id;
    item->list_length = request.service_id == SI_ANY_EXT ? kind.any_list : std::uint16_t{1};
    item->limit = kind.limit;
    return item;
}

enum class queued { added, duplicate, no_memory };

struct queued_item {
    queued how;
    task_item_eit *item; // when added
};

queued_item queue_request(const eit_kind &kind, const SiEitRequest &request) SI_NEEDS(pool)
{
    filter_task &task = task_at(kind.task);
    // More services than the event store takes are not asked for either.
    task_item_eit *item =
        task.task_count < limit::eit_services ? make_item(kind, request) : nullptr;
    if (item == nullptr)
        return {queued::no_memory, nullptr};
    for (const task_item_eit &known : items<task_item_eit>(task)) {
        if (!same_request(known, *item))
            continue;
        release_record(item);
        return {queued::duplicate, nullptr};
    }
    Si_SectFlt_AddNewTask(&task, item);
    return {queued::added, item};
}

// Sets the quota to the number of items but at most this many, and fetches what is missing.
void fill_quota(site here, filter_task &task, std::uint32_t most) SI_NEEDS(pool)
{
    task.filter_quota = static_cast<std::uint8_t>(std::min<std::uint32_t>(task.task_count, most));
    if (task.filter_count < task.filter_quota)
        fetch_filters(here, task, task.filter_quota - task.filter_count);
}

constexpr const char *service_count_text = "(array_count>0) && (array_count<=0xFF)";
constexpr bool is_service_count(std::uint32_t array_count)
{
    return array_count > 0 && array_count <= most_services;
}

struct service_list {
    std::uint16_t transport_stream_id;
    std::uint16_t original_network_id;
    std::span<const std::uint16_t> ids;
};

// The tuned service's item comes first and is never given up.
std::uint32_t start_act_pf(site here, const service_list &services, std::uint16_t tuned)
    SI_NEEDS(pool)
{
    filter_task &task = task_at(act_pf.task);
    task_item_eit *tuned_item = nullptr;
    bool complete = true;
    for (const std::uint16_t id : services.ids) {
        if (id == SI_ANY_EXT && services.ids.size() != 1)
            continue;
        const auto [how, item] =
            queue_request(act_pf, {services.transport_stream_id, services.original_network_id, id});
        if (how == queued::duplicate)
            SI_LOG_AT(here, level::error, "Duplicated acutal PF EIT tasks: service_id: %#x!\n", id);
        complete = how != queued::no_memory;
        if (!complete)
            break;
        if (how == queued::added && id == tuned) {
            item->wanted = 0;
            tuned_item = item;
        }
    }
    fill_quota(here, task, most_act_pf_filters);
    if (tuned_item != nullptr)
        serve_first(task, head_of(*tuned_item));
    const std::uint32_t result = Si_SectFlt_TriggerFilterTask(&task);
    SI_LOG_AT(here, level::notice, "Open %d filters for %d actual PF EIT\n", task.filter_count,
              task.task_count);
    return complete ? result : std::uint32_t{ORVA_SI_FAILURE};
}

// False when memory is exhausted.
bool queue_unpinned(site here, const eit_kind &kind, const SiEitRequest &request) SI_NEEDS(pool)
{
    const queued how = queue_request(kind, request).how;
    if (how == queued::duplicate)
        SI_LOG_AT(here, level::notice, "Duplicated EIT tasks!\n");
    return how != queued::no_memory;
}

std::uint32_t start_act_sch(site here, const service_list &services) SI_NEEDS(pool)
{
    filter_task &task = task_at(act_sch.task);
    bool complete = true;
    for (const std::uint16_t id : services.ids) {
        if (id == SI_ANY_EXT)
            continue;
        complete = queue_unpinned(here, act_sch,
                                  {services.transport_stream_id, services.original_network_id, id});
        if (!complete)
            break;
    }
    if (task.filter_count == 0)
        fill_quota(here, task, most_act_sch_filters);
    std::uint32_t result = Si_SectFlt_TriggerFilterTask(&task);
    if (!complete)
        result = ORVA_SI_FAILURE;
    SI_LOG_AT(here, level::notice, "Open %d filters for %d actual schedule EIT, ret = %#x\n",
              task.filter_count, task.task_count, result);
    return result;
}

constexpr SiEitRequest every_service{SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

// One filter goes round the services of other multiplexes.
std::uint32_t start_other(site here, const eit_kind &kind, std::span<const SiEitRequest> requests)
    SI_NEEDS(pool)
{
    filter_task &task = task_at(kind.task);
    bool complete = true;
    for (const SiEitRequest &request : requests) {
        complete = queue_unpinned(here, kind, request);
        if (!complete)
            break;
    }
    if (task.filter_count == 0) {
        task.filter_quota = 1;
        fetch_one_filter(here, task);
    }
    const std::uint32_t result = Si_SectFlt_TriggerFilterTask(&task);
    return complete ? result : std::uint32_t{ORVA_SI_FAILURE};
}

std::uint32_t start_other_kind(site here, const eit_kind &kind, const SiEitRequest *request_array,
                               std::uint32_t count)
{
    if (kind.enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    std::span<const SiEitRequest> requests{&every_service, 1};
    if (request_array != nullptr && count != 0)
        requests = {request_array, count};
    std::uint32_t result = ORVA_SI_OK;
    bool rotates = false;
    {
        const scope_lock lock{pool, here};
        if (kind.enabled() == 0) // stopped while this thread waited
            return ORVA_SI_TABLE_DISABLED;
        result = start_other(here, kind, requests);
        rotates = is_rotating(kind.task);
    }
    if (rotates) // nothing else moves the filter on
        Si_BG_ResumeService(kind.bg_service);
    return result;
}

// ---- Stops

std::uint32_t stop_actual(site here, const eit_kind &kind, const eit_kind &other,
                          std::uint8_t &started)
{
    std::uint32_t result = ORVA_SI_OK;
    bool other_rotates = false;
    {
        const scope_lock lock{pool, here};
        result = Si_SectFlt_StopFilterTask(&task_at(kind.task));
        other_rotates = is_rotating(other.task);
    }
    store_relaxed(started, 0);
    Si_BG_PauseService(kind.bg_service);
    if (other_rotates)
        Si_BG_ResumeService(other.bg_service);
    return result;
}

// ---- Duplicates

void drop_null_items(site here, filter_task &task) SI_NEEDS(pool)
{
    while (GSList *cell = g_slist_find(task.task_list, nullptr)) {
        SI_LOG_AT(here, level::error, "Null data pointer, remove it!\n");
        task.task_list = g_slist_delete_link(task.task_list, cell);
        --task.task_count;
    }
    settle_rotation(task);
}

void free_filter_of(filter_task &task, const task_item &item) SI_NEEDS(pool)
{
    for (pid_filter &record : filters(task))
        if (record.item == &item)
            switch_off(record);
}

task_item_eit *find_duplicate(GSList *later, const task_item_eit &of)
{
    for (task_item_eit &item : slist_range<task_item_eit>{later})
        if (same_request(item, of))
            return &item;
    return nullptr;
}

} // namespace

void clear_eit_started()
{
    store_relaxed(act_pf_started, 0);
    store_relaxed(act_sch_started, 0);
}

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_IsEitEnabled(std::uint32_t table_id, std::uint32_t)
{
    const eit_kind *kind = kind_of(table_id);
    return kind != nullptr ? kind->enabled() : 0;
}

std::uint32_t Si_SectFlt_StartEitFilterTask(pid_filter *record, void *item)
{
    SI_ASSERT(record != nullptr, "pid_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    SI_ASSERT(item != nullptr, "task_item!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    auto &request = *static_cast<task_item_eit *>(item);
    if (Si_SectFlt_IsEitEnabled(request.table_id, request.service_id) == 0)
        return ORVA_SI_TABLE_DISABLED;
    pool.assume_held();
    record->table_id = request.table_id;
    record->service_id = request.service_id;
    record->match_table_id = request.table_id;
    record->mask_table_id = request.table_id_mask;
    record->version = request.version;
    record->table_id_ext = request.service_id;
    record->header_a = request.transport_stream_id;
    record->header_b = request.original_network_id;
    return arm(*record, head_of(request), request.list_length);
}

std::uint32_t Si_SectFlt_StartActPfEit(std::uint32_t transport_stream_id,
                                       std::uint32_t original_network_id,
                                       const std::uint16_t *sid_array, std::uint32_t array_count)
{
    SI_ASSERT(sid_array != nullptr, "sid_array != ((void *)0)", ORVA_SI_NULL_ARGUMENT);
    SI_ASSERT(is_service_count(array_count), service_count_text, ORVA_SI_INVALID_ARGUMENT);
    if (act_pf.enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const auto tuned = static_cast<std::uint16_t>(Si_Ctl_GetTunningProgNo());
    if (tuned == 0 || tuned == SI_NO_PROGRAM) {
        SI_LOG(level::fatal, "Bad current service id: %#x\n", tuned);
        return ORVA_SI_FAILURE;
    }
    std::uint32_t result = ORVA_SI_OK;
    {
        const scope_lock lock{pool, SI_HERE};
        if (act_pf.enabled() == 0) // stopped while this thread waited
            return ORVA_SI_TABLE_DISABLED;
        result = start_act_pf(
            SI_HERE,
            {low16(transport_stream_id), low16(original_network_id), {sid_array, array_count}},
            tuned);
    }
    store_relaxed(act_pf_started, 1);
    Si_BG_ResumeService(act_pf.bg_service);
    return result;
}

std::uint32_t Si_SectFlt_StartActSchEit(std::uint32_t transport_stream_id,
                                        std::uint32_t original_network_id, std::uint32_t cur_sid,
                                        const std::uint16_t *sid_array, std::uint32_t array_count)
{
    SI_ASSERT(sid_array != nullptr, "sid_array != ((void *)0)", ORVA_SI_NULL_ARGUMENT);
    SI_ASSERT(low16(cur_sid) != SI_NO_PROGRAM, "cur_sid != 0xFFFF", ORVA_SI_INVALID_ARGUMENT);
    SI_ASSERT(is_service_count(array_count), service_count_text, ORVA_SI_INVALID_ARGUMENT);
    if (act_sch.enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    std::uint32_t result = ORVA_SI_OK;
    {
        const scope_lock lock{pool, SI_HERE};
        if (act_sch.enabled() == 0) // stopped while this thread waited
            return ORVA_SI_TABLE_DISABLED;
        result = start_act_sch(
            SI_HERE,
            {low16(transport_stream_id), low16(original_network_id), {sid_array, array_count}});
    }
    store_relaxed(act_sch_started, 1);
    Si_BG_ResumeService(act_sch.bg_service);
    return result;
}

std::uint32_t Si_SectFlt_StartOtherPfEit(const SiEitRequest *request_array, std::uint32_t count)
{
    return start_other_kind(SI_HERE, other_pf, request_array, count);
}

std::uint32_t Si_SectFlt_StartOtherSchEit(const SiEitRequest *request_array, std::uint32_t count)
{
    return start_other_kind(SI_HERE, other_sch, request_array, count);
}

std::uint32_t Si_SectFlt_StopActPfEit(void)
{
    return stop_actual(SI_HERE, act_pf, other_pf, act_pf_started);
}

std::uint32_t Si_SectFlt_StopActSchEit(void)
{
    return stop_actual(SI_HERE, act_sch, other_sch, act_sch_started);
}

std::uint32_t Si_SectFlt_StopOtherPfEit(void)
{
    return stop_task(SI_HERE, other_pf.task);
}

std::uint32_t Si_SectFlt_StopOtherSchEit(void)
{
    return stop_task(SI_HERE, other_sch.task);
}

std::uint32_t Si_SectFlt_StopAllEIT(void)
{
    std::uint32_t result = ORVA_SI_OK;
    {
        const scope_lock lock{pool, SI_HERE};
        result = stop_tasks(act_pf.task, other_sch.task);
    }
    clear_eit_started();
    Si_BG_PauseService(bg_service::act_pf_eit);
    Si_BG_PauseService(bg_service::act_sch_eit);
    return result;
}

std::uint32_t Si_SectFlt_RemoveDupEitTasks(filter_task *task)
{
    SI_REQUIRE(task);
    drop_null_items(SI_HERE, *task);
    for (GSList *cell = task->task_list; cell != nullptr; cell = cell->next) {
        const auto &kept = *static_cast<task_item_eit *>(cell->data);
        while (task_item_eit *later = find_duplicate(cell->next, kept)) {
            free_filter_of(*task, head_of(*later));
            drop_item(*task, head_of(*later));
        }
    }
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_PrintEitFilterTask(void)
{
    const scope_lock lock{pool, SI_HERE};
    for (const eit_kind *kind : kinds) {
        const filter_task &task = task_at(kind->task);
        SI_LOG(level::notice, "task id: %d, mode: %d, filters: %d, tasks: %d, next: %d\n",
               static_cast<int>(task.task_id), static_cast<int>(task.mode), task.filter_count,
               task.task_count, task.next_task_index);
        for (const task_item_eit &item : items<task_item_eit>(task))
            SI_LOG(level::notice,
                   "service_id: %#x, ts_id: %#x, on_id: %#x, table_id: %#x, last: %#x, "
                   "version: %d, active: %d, finished: %d\n",
                   item.service_id, item.transport_stream_id, item.original_network_id,
                   item.table_id, item.last_table_id, item.version, item.active,
                   static_cast<int>(item.finished));
    }
    return ORVA_SI_OK;
}
