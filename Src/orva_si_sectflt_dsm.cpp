// SPDX-License-Identifier: LGPL-2.1-or-later
// DSM-CC filters: one for each PID that the client asks for.
#include "orva_si/readiness.h"
#include "orva_si_sectflt.h"

namespace si {

namespace {

constexpr std::uint8_t most_dsm_filters = 5;

task_item_dsm *find_request(const filter_task &task, std::uint16_t pid) SI_NEEDS(pool)
{
    for (task_item_dsm &item : items<task_item_dsm>(task))
        if (item.pid == pid)
            return &item;
    return nullptr;
}

// The record on a PID: the one that serves, or else one that could not be armed for it.
pid_filter *find_record(const filter_task &task, std::uint16_t pid) SI_NEEDS(pool)
{
    pid_filter *found = nullptr;
    for (pid_filter &record : filters(task))
        if (record.pid == pid && (found == nullptr || record.item != nullptr))
            found = &record;
    return found;
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t Orva_Si_StartDsmFilter(std::uint32_t pid)
{
    Si_CtlHelper_SetDSMCCEnableFlag(1);
    Orva_Si_StopDsmFilter(pid); // a filter already on this PID is replaced
    const scope_lock lock{pool, SI_HERE};
    if (Si_CtlHelper_IsDSMCCEnabled() == 0) // stopped while this thread waited
        return ORVA_SI_TABLE_DISABLED;
    filter_task &task = task_at(dsmcc_task);
    if (task.filter_count >= most_dsm_filters)
        return ORVA_SI_FAILURE;
    auto *item = new_item<task_item_dsm>();
    if (item == nullptr)
        return ORVA_SI_FAILURE;
    item->pid = static_cast<std::uint16_t>(pid);
    Si_SectFlt_AddNewTask(&task, item);
    if (!fetch_one_filter(SI_HERE, task))
        SI_LOG(level::fatal, "Failed to fetch filter!\n");
    task.filter_quota = 1;
    return Si_SectFlt_TriggerFilterTask(&task);
}

// The answer is 1 whatever was found.
std::uint32_t Orva_Si_StopDsmFilter(std::uint32_t pid)
{
    const auto wanted = static_cast<std::uint16_t>(pid);
    const scope_lock lock{pool, SI_HERE};
    filter_task &task = task_at(dsmcc_task);
    pid_filter *record = find_record(task, wanted);
    task_item *served = nullptr;
    if (record != nullptr) {
        served = record->item;
        drop_filter(task, *record);
        if (served == nullptr)
            SI_LOG(level::fatal, "Invalid task pointer!\n");
    }
    if (served != nullptr)
        drop_item(task, *served);
    else if (task_item_dsm *queued = find_request(task, wanted)) // never got a filter
        drop_item(task, head_of(*queued));
    Si_SectFlt_SetFilterMode(&task);
    return ORVA_SI_FAILURE;
}

std::uint32_t Si_SectFlt_StopAllDsmFilters(void)
{
    Si_CtlHelper_SetDSMCCEnableFlag(0);
    return stop_task(SI_HERE, dsmcc_task);
}

std::uint32_t Si_SectFlt_IsDsmccPid(std::uint32_t pid)
{
    const scope_lock lock{pool, SI_HERE};
    return find_request(task_at(dsmcc_task), static_cast<std::uint16_t>(pid)) != nullptr ? 1 : 0;
}

std::uint32_t Si_SectFlt_StartDsmFilterTask(pid_filter *record, void *item)
{
    const std::uint32_t checked =
        check_arming(SI_HERE, record, item, Si_CtlHelper_IsDSMCCEnabled());
    if (checked != ORVA_SI_OK)
        return checked;
    pool.assume_held();
    auto &request = *static_cast<task_item_dsm *>(item);
    store_relaxed(record->pid, request.pid);
    return arm(*record, head_of(request), single_delivery);
}
