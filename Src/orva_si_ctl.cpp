// SPDX-License-Identifier: LGPL-2.1-or-later
// Lifecycle, and the control of channel, scan and events.
#include <array>

#include "orva_si/background.h"
#include "orva_si/channel.h"
#include "orva_si/filter.h"
#include "orva_si/lifecycle.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/readiness.h"
#include "orva_si/store.h"
#include "orva_si/time.h"
#include "orva_si_lock.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_siids.h"

extern "C" {

OrvaDebugCategory *si_debug = nullptr;

} // extern "C"

namespace si {

namespace {

// Start-up, from one thread of the client.
std::uint8_t init_count;
pthread_t control_thread;

// Read and written by several threads without a lock.
std::uint8_t si_started;
std::uint8_t scan_mode;
std::uint16_t tuning_program = SI_NO_PROGRAM;
std::uint32_t last_frequency;
std::uint16_t scan_time;

// Set and cleared by the client's controlling thread alone.
SiScanParam scan_param;

constexpr std::uint32_t scan_frequency = 0; // no multiplex: a scan
constexpr std::uint32_t settle_count = 100;
constexpr std::uint32_t detect_count = 2000;
constexpr std::uint32_t default_completion_count = 6000;

// GLib's slices are safe for threads from the start; older ones had to be told.
void make_slices_thread_safe() {}

struct start_kind {
    const char *not_stopped;
    std::uint32_t (*stop)(void);
    bool with_time_tables;
};

constexpr start_kind channel_start{"The upper layer do not stop the SI before start channel!\n",
                                   Orva_Si_StopChannel, true};
constexpr start_kind scan_start{"The upper layer do not stop the SI before start scan!\n",
                                Orva_Si_StopScanChannel, false};

void mark_started(site here, const start_kind &kind)
{
    if (load_relaxed(si_started) != 0) {
        SI_LOG_AT(here, level::error, "%s", kind.not_stopped);
        kind.stop();
    }
    store_relaxed(si_started, 1);
}

void start_tables(const start_kind &kind)
{
    if (scan_param.network_mode != 0) {
        Si_SectFlt_StartNit(scan_param.nit_selector, scan_param.network_id);
        return;
    }
    Si_SectFlt_StartPat();
    Si_SectFlt_StartCat();
    Si_SectFlt_StartNit(scan_param.nit_selector, SI_ANY_EXT);
    Si_SectFlt_StartSdtBat();
    if (kind.with_time_tables)
        Si_SectFlt_StartTdtTot();
}

// What a channel and a scan have in common once the library is marked as started.
std::uint32_t start(site here, const start_kind &kind, std::uint32_t frequency,
                    std::uint16_t program)
{
    if (Si_SectFlt_CheckRunningStatus() != 0) {
        SI_LOG_AT(here, level::fatal, "Can not start SI!\n");
        return ORVA_SI_FAILURE;
    }
    Orva_Si_SetCtlFlag();
    {
        const late_release after_unlocking;
        const scope_lock lock{ctl, here};
        Orva_Si_ResetRunningStatus(frequency, program);
    }
    Si_CtlHelper_SetTableEnableFlag();
    Si_SectFlt_EnableProcessData(1);
    start_tables(kind);
    Si_BG_EnableAllService();
    return ORVA_SI_OK;
}

bool canceled(site here)
{
    if (Orva_Si_IsCancel() == 0)
        return false;
    SI_LOG_AT(here, level::notice, "scan channel is canceled by user\n");
    return true;
}

// A cancel ends these waits at once: after it no section could bring what they wait for.
std::uint32_t has_sdt_or_canceled()
{
    return Orva_Si_IsDetectActSDT() | Orva_Si_IsCancel();
}

std::uint32_t has_nit_or_canceled()
{
    return Orva_Si_IsDetectActNIT() | Orva_Si_IsCancel();
}

// Waits until the kinds of table on the multiplex are known, then until those are complete.
void wait_for_tables(site here)
{
    const bool whole_multiplex = scan_param.network_mode == 0;
    Orva_Wait2CondTrue(settle_count, 0);
    Orva_Wait2FuncTrue(detect_count, Orva_Si_IsGotSection);
    if (canceled(here))
        return;
    if (Orva_Si_IsGotSection() == 0) {
        SI_LOG_AT(here, level::notice, "can't get any sections\n");
        return;
    }
    SI_LOG_AT(here, level::trace, "get some sections\n");
    if (whole_multiplex)
        Orva_Wait2FuncTrue(detect_count, has_sdt_or_canceled);
    if (canceled(here))
        return;
    if (whole_multiplex || scan_param.nit_selector != 0) {
        Orva_Wait2FuncTrue(detect_count, has_nit_or_canceled);
        if (whole_multiplex && scan_param.wait_time != 0)
            Orva_Wait2FuncTrue(scan_param.wait_time / 5, Orva_Si_IsCancel);
    }
    if (canceled(here))
        return;
    Orva_Si_SetDetectReady();
    const std::uint16_t set_time = load_relaxed(scan_time);
    const std::uint32_t scan_count = set_time != 0 ? set_time : default_completion_count;
    Orva_Wait2FuncTrue(whole_multiplex ? scan_count : scan_param.wait_time,
                       Orva_Si_DoAllTablesReady);
    canceled(here);
}

std::uint32_t conclude_scan(site here)
{
    if (Orva_Si_IsCancel() != 0) {
        SI_LOG_AT(here, level::notice, "user canceled the scan channel\n");
        return ORVA_SI_FAILURE;
    }
    SI_LOG_AT(here, level::trace, "want to check all table is ready or not\n");
    if (Orva_Si_DoAllTablesReady() == 0) {
        SI_LOG_AT(here, level::error, "scan channel is error\n");
        return ORVA_SI_FAILURE;
    }
    SI_LOG_AT(here, level::trace, "all detected table are completed\n");
    return ORVA_SI_OK;
}

void trace_change(site here, std::uint16_t pid, std::uint8_t table_id)
{
    if (pid == pid_pat)
        SI_LOG_AT(here, level::trace, "pat is updated\n");
    else if (pid == pid_cat)
        SI_LOG_AT(here, level::trace, "cat is updated\n");
    else if (pid == pid_nit)
        SI_LOG_AT(here, level::trace, "nit is updated\n");
    else if (pid == pid_sdt_bat)
        SI_LOG_AT(here, level::trace, "%s",
                  table_id == tid_bat ? "bat is updated\n" : "sdt is updated\n");
    else if (table_id == tid_pmt)
        SI_LOG_AT(here, level::trace, "pmt is updated, pid = %#x\n", pid);
    else
        SI_LOG_AT(here, level::trace, " the table_id = %#x\n", table_id);
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_Init(SiDmxSectHandler *handler_table)
{
    if (init_count != 0) {
        SI_LOG(level::notice, "is Inited before, don't Init again\n");
        return ORVA_SI_OK;
    }
    if (load_acquire(si_debug) == nullptr)
        store_release(si_debug, orva_debug_category_new("SI", 4, "SI DEBUG"));
    SI_LOG(level::notice, "Init SI Module!\n");
    make_slices_thread_safe();
    Si_SectFlt_InitPidFlts(handler_table);
    if (Orva_Init_Lib() != ORVA_SI_OK) {
        SI_LOG(level::error, "error of library init.\n");
        return ORVA_SI_FAILURE;
    }
    if (Orva_CreateThread(&control_thread, Ts_Monitor_Fn, nullptr) != ORVA_SI_OK) {
        SI_LOG(level::error, "Create the control thread error\n");
        return ORVA_SI_FAILURE;
    }
    Si_BG_InitServiceList();
    ++init_count;
    return ORVA_SI_OK;
}

uint32_t Orva_Si_DeInit(void)
{
    Orva_Si_StopChannel();
    if (Orva_Exit_Lib() != ORVA_SI_OK)
        SI_LOG(level::error, "error when exit the Si library\n");
    Si_SectFlt_DeInitPidFlts();
    return ORVA_SI_OK;
}

uint32_t Orva_Si_StartChannel(const SiTuneParam *ptune)
{
    mark_started(SI_HERE, channel_start);
    SI_REQUIRE_AS(ptune, "ptune", ORVA_SI_FAILURE);
    return start(SI_HERE, channel_start, ptune->frequency, ptune->program_number);
}

uint32_t Si_Ctl_StartScanChannel(void)
{
    mark_started(SI_HERE, scan_start);
    return start(SI_HERE, scan_start, scan_frequency, SI_NO_PROGRAM);
}

uint32_t Orva_Si_StopChannel(void)
{
    const call_banner banner{SI_HERE};
    store_relaxed(si_started, 0);
    Orva_Si_ResetCtlFlag();
    Si_SectFlt_EnableProcessData(0);
    Si_CtlHelper_ResetTableEnableFlag();
    Si_BG_DisableAllService();
    Si_SectFlt_StopAllFilters();
    Si_Model_ResetCurTuningProgramNum();
    return ORVA_SI_OK;
}

uint32_t Orva_Si_StartScanChannel(void)
{
    SI_LOG(level::trace, "start scan channel...\n");
    Si_Ctl_StartScanChannel();
    wait_for_tables(SI_HERE);
    const std::uint32_t result = conclude_scan(SI_HERE);
    Orva_Si_StopScanChannel();
    return result;
}

uint32_t Orva_Si_StopScanChannel(void)
{
    scan_param = {};
    Orva_Si_StopChannel();
    return ORVA_SI_OK;
}

uint32_t Orva_Si_CancelScanChannel(void)
{
    return Orva_Si_ResetCtlFlag();
}

uint32_t Orva_Si_SetScanParam(const SiScanParam *pScanParam)
{
    SI_REQUIRE(pScanParam);
    scan_param = *pScanParam;
    return ORVA_SI_OK;
}

uint32_t Orva_Si_SetScanTime(uint16_t seconds)
{
    const std::uint32_t product = seconds * 100u;
    store_relaxed(scan_time, static_cast<std::uint16_t>(product)); // above 655 s it wraps
    SI_LOG(level::trace, "|------------------------------------|\n");
    SI_LOG(level::trace, "the setting scan time is %d seconds\n", seconds);
    return product;
}

uint32_t Orva_Si_IsScanMode(void)
{
    return load_relaxed(scan_mode);
}

uint32_t Si_Ctl_GetTunningProgNo(void)
{
    return load_relaxed(tuning_program);
}

uint32_t Orva_Si_ResetRunningStatus(uint32_t frequency, uint32_t program_number)
{
    ctl.assume_held();
    const std::uint32_t last = load_relaxed(last_frequency);
    const bool scanning = frequency == scan_frequency;
    store_relaxed(tuning_program, static_cast<std::uint16_t>(program_number));
    store_relaxed(scan_mode, scanning ? 1 : 0);
    SI_LOG(level::notice, "the current freq = %d, the last = %d\n", frequency, last);
    SI_LOG(level::notice, "the scanstatus = %d\n", scanning ? 1 : 0);
    if (scanning || frequency != last) {
        Orva_Si_DeleteCaches(0);
        if (scanning)
            Orva_Si_EraseAllEitRawData();
        Si_Model_ResetPmtPidList();
        Orva_Si_ResetScanFlag();
        Orva_Si_ResetTimeSection();
    }
    const std::uint32_t result = Si_SectFlt_StopAllDsmFilters();
    store_relaxed(last_frequency, frequency);
    return result;
}

uint32_t Orva_Si_NotifyTableStatus(uint16_t pid, uint8_t table_id, uint16_t extension)
{
    if (Orva_Si_IsCancel() != 0) {
        SI_LOG(level::notice, "upper level is stop the monitoring job.\n");
        return ORVA_SI_OK;
    }
    const auto route = Orva_Si_IsScanMode() != 0 ? Orva_Si_CommScanCase : Orva_Si_CommTunningCase;
    const std::uint32_t result = route(pid, table_id, extension);
    SI_LOG(level::trace, "ret = %d\n", result);
    return result;
}

uint32_t Orva_Si_CommTunningCase(uint16_t pid, uint8_t table_id, uint16_t extension)
{
    ctl.assume_held();
    trace_change(SI_HERE, pid, table_id);
    const scope_gap gap{ctl, SI_HERE}; // the client may query from inside its callback
    Orva_Si_NotifyUpdate(load_relaxed(last_frequency), extension, pid, table_id);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_StartActualPFEIT(uint32_t id1, uint32_t id2, uint32_t cur_sid,
                                  const uint16_t *list, uint32_t count)
{
    Orva_Si_StartCurrentPFEIT(id1, id2,
                              cur_sid); // so that its events come before the rest of the list
    return Si_SectFlt_StartActPfEit(id1, id2, list, count);
}

uint32_t Orva_Si_StartCurrentPFEIT(uint32_t id1, uint32_t id2, uint32_t service_id)
{
    Si_CtlHelper_SetActPfEitEnableFlag(1);
    const std::array current{static_cast<std::uint16_t>(service_id)};
    return Si_SectFlt_StartActPfEit(id1, id2, current.data(), current.size());
}

uint32_t Orva_Si_StartActualScheduleEIT(uint32_t id1, uint32_t id2, uint32_t id3,
                                        const uint16_t *list, uint32_t count)
{
    Si_CtlHelper_SetActSchEitEnableFlag(1);
    return Si_SectFlt_StartActSchEit(id1, id2, id3, list, count);
}

uint32_t Orva_Si_StartOtherPFEIT(const SiEitRequest *list, uint32_t count)
{
    Si_CtlHelper_SetOtherPfEitEnableFlag(1);
    return Si_SectFlt_StartOtherPfEit(list, count);
}

uint32_t Orva_Si_StartOtherSchedulEIT(const SiEitRequest *list, uint32_t second)
{
    Si_CtlHelper_SetOtherSchEitEnableFlag(1);
    return Si_SectFlt_StartOtherSchEit(list, second);
}

uint32_t Orva_Si_StopActualPFEIT(void)
{
    Si_CtlHelper_SetActPfEitEnableFlag(0);
    return Si_SectFlt_StopActPfEit();
}

uint32_t Orva_Si_StopOtherPFEIT(void)
{
    Si_CtlHelper_SetOtherPfEitEnableFlag(0);
    return Si_SectFlt_StopOtherPfEit();
}

uint32_t Orva_Si_StopActualScheduleEIT(void)
{
    Si_CtlHelper_SetActSchEitEnableFlag(0);
    return Si_SectFlt_StopActSchEit();
}

uint32_t Orva_Si_StopOtherScheduleEIT(void)
{
    Si_CtlHelper_SetOtherSchEitEnableFlag(0);
    return Si_SectFlt_StopOtherSchEit();
}

uint32_t Orva_Si_StopAllEIT(void)
{
    Si_CtlHelper_SetActPfEitEnableFlag(0);
    Si_CtlHelper_SetOtherPfEitEnableFlag(0);
    Si_CtlHelper_SetActSchEitEnableFlag(0);
    Si_CtlHelper_SetOtherSchEitEnableFlag(0);
    return Si_SectFlt_StopAllEIT();
}
