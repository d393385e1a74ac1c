// SPDX-License-Identifier: LGPL-2.1-or-later
// The tables that have a filter of their own: PAT, CAT, NIT, SDT/BAT, TDT/TOT.
#include "orva_si/readiness.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

struct static_table {
    task_row task;
    std::size_t record; // its place in the pool
    std::uint32_t (*enabled)();
    bool checked_at_start;
    std::uint16_t pid;
    std::uint8_t table_id;
};
constexpr static_table pat_table{pat_task, 0, Si_CtlHelper_IsPatEnabled, true, pid_pat, tid_pat};
constexpr static_table cat_table{cat_task, 1, Si_CtlHelper_IsCatEnabled, true, pid_cat, tid_cat};
constexpr static_table nit_table{nit_task, 2,       Si_CtlHelper_IsNitEnabled,
                                 true,     pid_nit, tid_nit_actual};
constexpr static_table sdt_bat_table{sdt_bat_task, 3,           Si_CtlHelper_IsSdtBatEnabled,
                                     true,         pid_sdt_bat, tid_sdt_actual};
constexpr static_table tdt_tot_table{tdt_tot_task, 4,           Si_CtlHelper_IsTdtTotEnabled,
                                     false,        pid_tdt_tot, tid_tdt};

bool may_start(const static_table &table)
{
    return !table.checked_at_start || table.enabled() != 0;
}

void keep(task_item_plain &) {}

// Queues one item; the first start also attaches the table's record and arms it.
template <class Item, class Fill>
std::uint32_t start_table(site here, const static_table &table, Fill fill)
{
    if (!may_start(table))
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, here};
    if (!may_start(table)) // stopped while this thread waited
        return ORVA_SI_TABLE_DISABLED;
    filter_task &task = task_at(table.task);
    Item *item = new_item<Item>();
    if (item == nullptr)
        return ORVA_SI_FAILURE;
    item->version = any_version;
    fill(*item);
    Si_SectFlt_AddNewTask(&task, item);
    if (task.filter_count == 0) {
        pid_filter &record = pool_records()[table.record];
        task.init_func(&record);
        Si_SectFlt_AddNewFilter(&task, &record);
    }
    task.filter_quota = 1;
    if (task.task_count != 1 || task.filter_count != 1)
        return ORVA_SI_FAILURE; // was started before
    return Si_SectFlt_TriggerFilterTask(&task);
}

template <class Item, class Remember>
std::uint32_t update_table(site here, const static_table &table, std::uint32_t finished,
                           Remember remember)
{
    if (table.enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, here};
    filter_task &task = task_at(table.task);
    pid_filter *record =
        Si_SectFlt_GetFilterFromFilterList(task.filter_list, table.pid, table.table_id, SI_ANY_EXT);
    task_item *item = finish_item(here, record, table.table_id, finished);
    if (item == nullptr)
        return ORVA_SI_FAILURE;
    if (keeps_filter(task, *item))
        remember(*item_as<Item>(item));
    return go_on(here, task, *record, table.table_id);
}

std::uint32_t update_version(site here, const static_table &table, std::uint32_t version,
                             std::uint32_t finished)
{
    return update_table<task_item_plain>(here, table, finished, [=](task_item_plain &item) {
        item.version = static_cast<std::uint8_t>(version);
    });
}

std::uint32_t arm_plain(site here, const static_table &table, pid_filter *record, void *item)
{
    const std::uint32_t checked = check_arming(here, record, item, table.enabled());
    if (checked != ORVA_SI_OK)
        return checked;
    pool.assume_held();
    auto &plain = *static_cast<task_item_plain *>(item);
    record->version = plain.version;
    return arm(*record, head_of(plain), single_delivery);
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_StartPat(void)
{
    return start_table<task_item_plain>(SI_HERE, pat_table, keep);
}

std::uint32_t Si_SectFlt_StartCat(void)
{
    return start_table<task_item_plain>(SI_HERE, cat_table, keep);
}

std::uint32_t Si_SectFlt_StartSdtBat(void)
{
    return start_table<task_item_plain>(SI_HERE, sdt_bat_table, keep);
}

std::uint32_t Si_SectFlt_StartTdtTot(void)
{
    return start_table<task_item_plain>(SI_HERE, tdt_tot_table, keep);
}

std::uint32_t Si_SectFlt_StartNit(std::uint32_t flag, std::uint32_t network_id)
{
    return start_table<task_item_nit>(SI_HERE, nit_table, [=](task_item_nit &item) {
        item.flag = static_cast<std::uint8_t>(flag);
        item.network_id = static_cast<std::uint16_t>(network_id);
    });
}

std::uint32_t Si_SectFlt_UpdatePat(std::uint32_t version, std::uint32_t finished)
{
    return update_version(SI_HERE, pat_table, version, finished);
}

std::uint32_t Si_SectFlt_UpdateCat(std::uint32_t version, std::uint32_t finished)
{
    return update_version(SI_HERE, cat_table, version, finished);
}

std::uint32_t Si_SectFlt_UpdateSdtBat(std::uint32_t version, std::uint32_t finished)
{
    return update_version(SI_HERE, sdt_bat_table, version, finished);
}

std::uint32_t Si_SectFlt_UpdateNit(std::uint32_t network_id, std::uint32_t version,
                                   std::uint32_t finished)
{
    return update_table<task_item_nit>(SI_HERE, nit_table, finished, [=](task_item_nit &item) {
        item.network_id = static_cast<std::uint16_t>(network_id);
        item.version = static_cast<std::uint8_t>(version);
    });
}

std::uint32_t Si_SectFlt_StopPat(void)
{
    return stop_task(SI_HERE, pat_task);
}

std::uint32_t Si_SectFlt_StopCat(void)
{
    return stop_task(SI_HERE, cat_task);
}

std::uint32_t Si_SectFlt_StopNit(void)
{
    return stop_task(SI_HERE, nit_task);
}

std::uint32_t Si_SectFlt_StopSdtBat(void)
{
    return stop_task(SI_HERE, sdt_bat_task);
}

std::uint32_t Si_SectFlt_StopTdtTot(void)
{
    return stop_task(SI_HERE, tdt_tot_task);
}

std::uint32_t Si_SectFlt_StartPatFilterTask(pid_filter *record, void *item)
{
    return arm_plain(SI_HERE, pat_table, record, item);
}

std::uint32_t Si_SectFlt_StartCatFilterTask(pid_filter *record, void *item)
{
    return arm_plain(SI_HERE, cat_table, record, item);
}

std::uint32_t Si_SectFlt_StartSdtBatFilterTask(pid_filter *record, void *item)
{
    return arm_plain(SI_HERE, sdt_bat_table, record, item);
}

std::uint32_t Si_SectFlt_StartTdtTotFilterTask(pid_filter *record, void *item)
{
    return arm_plain(SI_HERE, tdt_tot_table, record, item);
}

// With the flag only the NIT of this network, whatever its id; else the NIT of one network, whether
// it is called actual or other here.
std::uint32_t Si_SectFlt_StartNitFilterTask(pid_filter *record, void *item)
{
    const std::uint32_t checked = check_arming(SI_HERE, record, item, Si_CtlHelper_IsNitEnabled());
    if (checked != ORVA_SI_OK)
        return checked;
    pool.assume_held();
    auto &nit = *static_cast<task_item_nit *>(item);
    record->match_table_id = tid_nit_actual;
    record->mask_table_id = nit.flag != 0 ? 0xFF : 0xFE;
    record->table_id_ext = nit.flag != 0 ? std::uint16_t{SI_ANY_EXT} : nit.network_id;
    record->version = nit.version;
    return arm(*record, head_of(nit), single_delivery);
}
