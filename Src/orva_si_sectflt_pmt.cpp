// SPDX-License-Identifier: LGPL-2.1-or-later
// PMT filters: one request for every program, few filters that go round them. The tuned program and
// those that the client latches keep a filter of their own.
#include <algorithm>

#include "orva_si/channel.h"
#include "orva_si/readiness.h"
#include "orva_si_model.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::uint16_t pmt_time_out = 4; // background runs
constexpr std::uint16_t most_pmt_filters = 2;

constexpr bool is_program(std::uint32_t program_number)
{
    return program_number != 0 && program_number != SI_NO_PROGRAM;
}

bool is_tuned(std::uint16_t program_number)
{
    return program_number == (Si_Ctl_GetTunningProgNo() & 0xFFFF);
}

struct requests {
    task_item_pmt *tuned; // the one that never times out; null when the list lacks it
    bool complete;        // false when memory was exhausted half-way
};

// Queues a request for each program of the list.
requests queue_programs(filter_task &task, const SiPmtPidList &list) SI_NEEDS(pool)
{
    const std::uint16_t tuned = load_relaxed(list.cur_prog_num);
    requests queued{nullptr, true};
    for (std::uint32_t i = 0; i < pmt_entries(list); ++i) {
        const pmt_entry entry = load_pmt_entry(list, i);
        if (!is_program(entry.program_number) || entry.pmt_pid == SI_ANY_PID)
            continue;
        auto *item = new_item<task_item_pmt>();
        if (item == nullptr)
            return {queued.tuned, false};
        item->program_number = entry.program_number;
        item->pid = entry.pmt_pid;
        item->version = any_version;
        item->timeout = pmt_time_out;
        Si_SectFlt_AddNewTask(&task, item);
        if (entry.program_number == tuned && queued.tuned == nullptr) { // a PAT may repeat it
            item->wanted = 0;
            queued.tuned = item;
        }
    }
    return queued;
}

task_item_pmt *find_request(const filter_task &task, std::uint16_t program_number) SI_NEEDS(pool)
{
    for (task_item_pmt &item : items<task_item_pmt>(task))
        if (item.program_number == program_number)
            return &item;
    return nullptr;
}

pid_filter *find_serving(const filter_task &task, std::uint16_t program_number) SI_NEEDS(pool)
{
    for (pid_filter &record : filters(task))
        if (record.item != nullptr &&
            item_as<task_item_pmt>(record.item)->program_number == program_number)
            return &record;
    return nullptr;
}

// The last filter that may be taken from the program it serves.
pid_filter *find_candidate(const filter_task &task) SI_NEEDS(pool)
{
    pid_filter *candidate = nullptr;
    for (pid_filter &record : filters(task))
        if (record.item != nullptr && record.item->wanted != 0)
            candidate = &record;
    return candidate;
}

std::uint32_t latch(filter_task &task, std::uint16_t program_number) SI_NEEDS(pool)
{
    if (task.mode == mode::one_each) // every program has a filter already
        return ORVA_SI_FAILURE;
    if (pid_filter *serving = find_serving(task, program_number)) {
        serving->item->wanted = 0;
        return ORVA_SI_OK;
    }
    pid_filter *record = find_candidate(task);
    task_item_pmt *request = find_request(task, program_number);
    if (record == nullptr || request == nullptr)
        return ORVA_SI_FAILURE;
    displace(*record);
    request->version = any_version;
    request->wanted = 0;
    const std::uint32_t result = serve(task, *record, head_of(*request));
    silence_unless_armed(*record);
    return result;
}

std::uint32_t unlatch(filter_task &task, std::uint16_t program_number) SI_NEEDS(pool)
{
    pid_filter *serving = find_serving(task, program_number);
    if (serving == nullptr)
        return ORVA_SI_FAILURE;
    serving->item->wanted = 1;
    item_as<task_item_pmt>(serving->item)->version = any_version;
    return ORVA_SI_OK;
}

using latch_step = std::uint32_t (*)(filter_task &, std::uint16_t);

std::uint32_t change_latch(site here, std::uint32_t program_number, latch_step step)
{
    const auto program = static_cast<std::uint16_t>(program_number & 0xFFFF);
    if (is_tuned(program)) // never loses its filter
        return ORVA_SI_OK;
    if (Si_CtlHelper_IsPmtEnabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, here};
    if (Si_CtlHelper_IsPmtEnabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    return step(task_at(pmt_task), program);
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_StartPmt(const SiPmtPidList *pmtpid_list)
{
    SI_ASSERT(pmtpid_list != nullptr, "pmtpid_list != ((void *)0)", ORVA_SI_NULL_ARGUMENT);
    if (Si_CtlHelper_IsPmtEnabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    if (Si_CtlHelper_IsPmtEnabled() == 0) // stopped while this thread waited
        return ORVA_SI_TABLE_DISABLED;
    filter_task &task = task_at(pmt_task);
    if (task.filter_count > 0) {
        SI_LOG(level::fatal, "All ready have %d PMT filters\n", task.filter_count);
        return ORVA_SI_FAILURE;
    }
    const requests queued = queue_programs(task, *pmtpid_list);
    task.filter_quota = static_cast<std::uint8_t>(std::min(task.task_count, most_pmt_filters));
    // Without a tuned program, as in a scan, every filter that is free helps.
    fetch_filters(SI_HERE, task, queued.tuned != nullptr ? task.filter_quota : task.task_count);
    if (queued.tuned != nullptr)
        serve_first(task, head_of(*queued.tuned));
    const std::uint32_t result = Si_SectFlt_TriggerFilterTask(&task);
    SI_LOG(level::notice, "Open %d filters for %d PMT table, current service_id: %#x\n",
           task.filter_count, task.task_count, load_relaxed(pmtpid_list->cur_prog_num));
    return queued.complete ? result : std::uint32_t{ORVA_SI_FAILURE};
}

std::uint32_t Si_SectFlt_UpdatePmt(std::uint32_t program_number, std::uint32_t pid,
                                   std::uint32_t version, std::uint32_t finished)
{
    if (Si_CtlHelper_IsPmtEnabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    filter_task &task = task_at(pmt_task);
    pid_filter *record =
        Si_SectFlt_GetFilterFromFilterList(task.filter_list, static_cast<std::uint16_t>(pid),
                                           tid_pmt, static_cast<std::uint16_t>(program_number));
    task_item *item = finish_item(SI_HERE, record, tid_pmt, finished);
    if (item == nullptr)
        return ORVA_SI_FAILURE;
    if (keeps_filter(task, *item))
        item_as<task_item_pmt>(item)->version = static_cast<std::uint8_t>(version);
    return go_on(SI_HERE, task, *record, tid_pmt);
}

std::uint32_t Si_SectFlt_StopPmt(void)
{
    const std::uint32_t result = stop_task(SI_HERE, pmt_task);
    return Si_CtlHelper_IsPmtEnabled() != 0 ? result : std::uint32_t{ORVA_SI_TABLE_DISABLED};
}

std::uint32_t Si_SectFlt_StartPmtFilterTask(pid_filter *record, void *item)
{
    const std::uint32_t checked = check_arming(SI_HERE, record, item, Si_CtlHelper_IsPmtEnabled());
    if (checked != ORVA_SI_OK)
        return checked;
    pool.assume_held();
    auto &request = *static_cast<task_item_pmt *>(item);
    store_relaxed(record->pid, request.pid);
    record->service_id = request.program_number;
    record->table_id_ext = request.program_number;
    record->version = request.version;
    SI_LOG(level::verbose, "PMT filter id: %d, program_no: %#x, pid: %#x\n", record->filter_id,
           request.program_number, request.pid);
    return arm(*record, head_of(request), single_delivery);
}

std::uint32_t Orva_Si_LatchPmt(std::uint32_t program_number)
{
    return change_latch(SI_HERE, program_number, latch);
}

std::uint32_t Orva_Si_UnLatchPmt(std::uint32_t program_number)
{
    return change_latch(SI_HERE, program_number, unlatch);
}

void Si_SectFlt_DisableTimeOutPmtFilterFunc(void *record, void *)
{
    if (record == nullptr) {
        SI_LOG_MISSING("record");
        return;
    }
    auto &filter = *static_cast<pid_filter *>(record);
    if (filter.item != nullptr)
        time_out(SI_HERE, filter, item_as<task_item_pmt>(filter.item)->timeout);
}

std::uint32_t Si_SectFlt_PmtBgService(void)
{
    const scope_lock lock{pool, SI_HERE};
    filter_task &task = task_at(pmt_task);
    if (task.mode == mode::rotating)
        for (pid_filter &record : filters(task))
            Si_SectFlt_DisableTimeOutPmtFilterFunc(&record, &task);
    poll_filters(task);
    return ORVA_SI_OK;
}
