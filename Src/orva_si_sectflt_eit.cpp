// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: one request for every service and kind of event table, a few filters for each kind
// that go round them. The tuned service's present/following events keep a filter.
#include <algorithm>
#include <iterator>
#include <span>

#include "orva_si/channel.h"
#include "orva_si/readiness.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::uint32_t most_services = 0xFF; // of one request
constexpr std::uint32_t most_act_pf_filters = 2;
constexpr std::uint32_t most_act_sch_filters = 5;

std::uint8_t act_pf_started;
std::uint8_t act_sch_started;

// What the requests of a row have in common.
struct eit_kind {
    task_row task;
    std::uint32_t (*enabled)();
    std::uint8_t table_id;
    std::uint8_t mask;
    std::uint8_t last_table_id;
    std::uint16_t any_list;      // sections of a batch when a request is for any service, else 1
    std::uint16_t limit;         // background runs that a request keeps its filter, less one
    std::uint16_t longest_limit; // up to which that is doubled with each time-out
    std::uint32_t bg_service;    // what ages the row
};
constexpr eit_kind act_pf{.task = act_pf_eit_task,
                          .enabled = Si_CtlHelper_IsActPfEitEnabled,
                          .table_id = tid_eit_pf_actual,
                          .mask = 0xFF,
                          .last_table_id = tid_eit_pf_actual,
                          .any_list = 1,
                          .limit = 10,
                          .longest_limit = 10,
                          .bg_service = bg_service::act_pf_eit};
// Of other multiplexes nothing tells that a table is complete, so that every request times out. The
// first round is quick. Were all of them shorter than the time after which sections come again,
// those that come between two turns might do so for ever: 10 seconds, terrestrial 20 (ETSI TS 101
// 211, 4.4).
constexpr eit_kind other_pf{.task = other_pf_eit_task,
                            .enabled = Si_CtlHelper_IsOtherPfEitEnabled,
                            .table_id = tid_eit_pf_other,
                            .mask = 0xFF,
                            .last_table_id = tid_eit_pf_other,
                            .any_list = 5,
                            .limit = 5,
                            .longest_limit = 20,
                            .bg_service = bg_service::act_pf_eit};
// Filters walk a service's sub-tables, as far as its sections say there are any.
constexpr eit_kind act_sch{.task = act_sch_eit_task,
                           .enabled = Si_CtlHelper_IsActSchEitEnabled,
                           .table_id = tid_eit_schedule_actual,
                           .mask = 0xFF,
                           .last_table_id = tid_eit_schedule_actual,
                           .any_list = 1,
                           .limit = 50,
                           .longest_limit = 50,
                           .bg_service = bg_service::act_sch_eit};
// Nothing tells how many sub-tables there are: all of them at once. Those of the first day come
// again after 60 seconds.
constexpr eit_kind other_sch{.task = other_sch_eit_task,
                             .enabled = Si_CtlHelper_IsOtherSchEitEnabled,
                             .table_id = tid_eit_schedule_other,
                             .mask = 0xF0,
                             .last_table_id = tid_eit_last,
                             .any_list = 5,
                             .limit = 50,
                             .longest_limit = 60,
                             .bg_service = bg_service::act_sch_eit};
constexpr const eit_kind *kinds[] = {&act_pf, &other_pf, &act_sch, &other_sch};

const eit_kind *kind_of(std::uint32_t table_id)
{
    const std::uint32_t task = task_of(table_id);
    const auto *found =
        std::ranges::find_if(kinds, [&](const eit_kind *kind) { return kind->task == task; });
    return found == std::end(kinds) ? nullptr : *found;
}

constexpr bool is_schedule(std::uint8_t table_id)
{
    return table_id >= tid_eit_schedule_actual;
}

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

constexpr std::uint16_t low16(std::uint32_t id)
{
    return static_cast<std::uint16_t>(id & 0xFFFF);
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

// ---- Updates

// Whether a filter for any service lets this table through: one service's version must not be set
// for all of them.
bool is_under_wildcard(const filter_task &task, std::uint8_t table_id) SI_NEEDS(pool)
{
    for (const pid_filter &record : filters(task))
        if (record.item != nullptr && record.service_id == SI_ANY_EXT &&
            record.table_id == table_id)
            return true;
    return false;
}

// The sub-table is complete and the filter goes on to the next one of the same service.
std::uint32_t next_sub_table(filter_task &task, pid_filter &record, task_item_eit &item)
    SI_NEEDS(pool)
{
    ++item.table_id;
    item.version = any_version;
    return serve(task, record, head_of(item));
}

std::uint32_t update_record(site here, const eit_kind &kind, filter_task &task, pid_filter &record,
                            std::uint8_t version, std::uint32_t finished) SI_NEEDS(pool)
{
    task_item *head = finish_item(here, &record, record.table_id, finished);
    if (head == nullptr)
        return ORVA_SI_FAILURE;
    auto &item = *item_as<task_item_eit>(head);
    if (is_schedule(item.table_id) && item.table_id < item.last_table_id)
        return next_sub_table(task, record, item);
    item.flag = 1;
    item.table_id = kind.table_id;
    // Of several sub-tables each has a version of its own: none can be passed over.
    if (keeps_filter(task, *head))
        item.version = item.last_table_id == kind.table_id ? version : any_version;
    return go_on(here, task, record, item.table_id);
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

// ---- Ageing

bool has_sub_tables(const task_item_eit &item)
{
    return item.last_table_id > tid_eit_schedule_actual &&
           item.last_table_id < tid_eit_schedule_other;
}

// A sub-table that never completes, or is not sent, must not hide the later ones for ever.
void pass_over_sub_table(task_item_eit &item)
{
    item.table_id = item.table_id < item.last_table_id
                        ? static_cast<std::uint8_t>(item.table_id + 1)
                        : tid_eit_schedule_actual;
    item.version = any_version;
}

// Whether a filter must not wait for ever. In rotation none must; with a filter for every service
// only one that has sub-tables to walk can be stuck.
bool ages(const filter_task &task, const pid_filter &record)
{
    if (task.mode != mode::one_each)
        return task.mode == mode::rotating;
    return record.item != nullptr && has_sub_tables(*item_as<task_item_eit>(record.item));
}

// One run. The poll serves what is pending, also after the driver refused a filter.
void age(const eit_kind &kind) SI_NEEDS(pool)
{
    if (kind.enabled() == 0)
        return;
    filter_task &task = task_at(kind.task);
    for (pid_filter &record : filters(task))
        if (ages(task, record))
            Si_SectFlt_DisableTimeOutEitFilterFunc(&record, &task);
    poll_filters(task);
}

std::uint32_t enabled_or_not(const eit_kind &kind)
{
    return kind.enabled() != 0 ? ORVA_SI_OK : ORVA_SI_TABLE_DISABLED;
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
        for (const eit_kind *kind : kinds) {
            const std::uint32_t stopped = Si_SectFlt_StopFilterTask(&task_at(kind->task));
            if (result == ORVA_SI_OK)
                result = stopped;
        }
    }
    clear_eit_started();
    Si_BG_PauseService(bg_service::act_pf_eit);
    Si_BG_PauseService(bg_service::act_sch_eit);
    return result;
}

std::uint32_t Si_SectFlt_UpdateEit(std::uint32_t table_id, std::uint32_t service_id,
                                   std::uint32_t version, std::uint32_t finished)
{
    const auto id = static_cast<std::uint8_t>(table_id);
    const eit_kind *kind = kind_of(id);
    if (kind == nullptr)
        return ORVA_SI_FAILURE;
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    filter_task &task = task_at(kind->task);
    pid_filter *record = nullptr;
    if (low16(service_id) != SI_ANY_EXT) // as broadcast it is no wildcard
        record =
            Si_SectFlt_GetFilterFromFilterList(task.filter_list, pid_eit, id, low16(service_id));
    if (record != nullptr)
        return update_record(SI_HERE, *kind, task, *record, static_cast<std::uint8_t>(version),
                             finished);
    if (is_under_wildcard(task, id))
        return ORVA_SI_OK;
    // Usual: late sections of a sub-table that the filter has left.
    SI_LOG(level::trace, "No filter for the sub-table, table_id: %#x, service_id: %#x\n", id,
           low16(service_id));
    return ORVA_SI_FAILURE;
}

std::uint32_t Si_SectFlt_UpdateEitLastTableId(std::uint32_t table_id, std::uint32_t service_id,
                                              std::uint32_t last_table_id)
{
    const auto id = static_cast<std::uint8_t>(table_id);
    const auto last = static_cast<std::uint8_t>(last_table_id);
    const eit_kind *kind = kind_of(id);
    if (kind == nullptr || !is_schedule(id))
        return ORVA_SI_FAILURE;
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    filter_task &task = task_at(kind->task);
    std::uint32_t result = ORVA_SI_FAILURE;
    for (task_item_eit &item : items<task_item_eit>(task)) {
        if (item.service_id != low16(service_id))
            continue;
        result = ORVA_SI_OK;
        if ((last & 0xF0) != (id & 0xF0) || last <= item.last_table_id) {
            SI_LOG(level::verbose,
                   "We do not need to update the last table id: table_id: %d, last_table_id: %d!\n",
                   id, last);
            continue;
        }
        SI_LOG(level::notice,
               "Update last_table_id: %#x: %#x, service_id: %#x, filter_count: %d, "
               "task_count: %d!\n",
               item.last_table_id, last, item.service_id, task.filter_count, task.task_count);
        item.last_table_id = last;
    }
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

void Si_SectFlt_DisableTimeOutEitFilterFunc(void *record, void *)
{
    if (record == nullptr) {
        SI_LOG_MISSING("record");
        return;
    }
    auto &filter = *static_cast<pid_filter *>(record);
    if (filter.item == nullptr)
        return;
    auto &item = *item_as<task_item_eit>(filter.item);
    if (!time_out(SI_HERE, filter, item.limit))
        return;
    if (has_sub_tables(item))
        pass_over_sub_table(item);
    if (const eit_kind *kind = kind_of(item.table_id))
        item.limit = static_cast<std::uint16_t>(std::min<int>(item.limit * 2, kind->longest_limit));
}

// Each service ages two rows: the events of this multiplex, and those of others, whose filter
// nothing else moves on.
std::uint32_t Si_SectFlt_ActPfEitBgService(void)
{
    const scope_lock lock{pool, SI_HERE};
    age(act_pf);
    age(other_pf);
    return enabled_or_not(act_pf);
}

std::uint32_t Si_SectFlt_ActSchEitBgService(void)
{
    const scope_lock lock{pool, SI_HERE};
    age(act_sch);
    age(other_sch);
    return enabled_or_not(act_sch);
}
