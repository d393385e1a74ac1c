// SPDX-License-Identifier: LGPL-2.1-or-later
// Control with the other modules replaced: what it asks of them is written down and answered by the
// test; time passes only where the library sleeps, so that a scan of 40 seconds takes none. For one
// source of a test whose target includes support/control.cmake.
#ifndef TESTS_SUPPORT_CONTROL_H
#define TESTS_SUPPORT_CONTROL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/background.h"
#include "orva_si/channel.h"
#include "orva_si/filter.h"
#include "orva_si/lifecycle.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/readiness.h"
#include "orva_si/result.h"
#include "orva_si/store.h"
#include "orva_si/time.h"

namespace test {

using texts = std::vector<std::string>;

// ---- What was called, oldest first, and what is answered.

inline std::mutex note_mutex; // a cancel may come from another thread
inline texts calls;
inline std::set<std::string> under_lock; // functions that were called with Ts_Ctl_Mutex held
inline std::map<std::string, std::uint32_t> answers; // by function; 0 where nothing stands

inline bool ctl_is_locked()
{
    if (pthread_mutex_trylock(&Ts_Ctl_Mutex) != 0)
        return true;
    pthread_mutex_unlock(&Ts_Ctl_Mutex);
    return false;
}

inline std::string shown(const std::string &text)
{
    return text;
}
inline std::string shown(std::uint64_t number)
{
    return std::to_string(number);
}

template <class... Args>
std::uint32_t note(const std::string &function, const Args &...args)
{
    std::string line = function + "(";
    ((line += shown(args) + ", "), ...);
    if (sizeof...(args) != 0)
        line.resize(line.size() - 2);
    const std::lock_guard lock{note_mutex};
    calls.push_back(line + ")");
    if (ctl_is_locked())
        under_lock.insert(function);
    const auto answer = answers.find(function);
    return answer == answers.end() ? 0 : answer->second;
}

inline std::string list_of(const std::uint16_t *ids, std::uint32_t count)
{
    std::string line = "[";
    for (std::uint32_t i = 0; i < count; ++i)
        line += (i == 0 ? "" : " ") + std::to_string(ids[i]);
    return line + "]";
}

// Arguments that a line does not show.
inline const void *last_thread_body;
inline const void *last_handler_table;
inline const SiEitRequest *last_requests;

// ---- Time: moves on when the library sleeps; what a test planned happens on the way.

inline unsigned now_ms = 0;
inline bool real_time = false;
inline std::multimap<unsigned, std::function<void()>> plan;

inline void at(unsigned ms, std::function<void()> event)
{
    plan.emplace(ms, std::move(event));
}

// ---- The functions themselves. The first kind only answers, the second runs as well.

#define ANSWERED(function)                                                                         \
    std::uint32_t __wrap_##function(void)                                                          \
    {                                                                                              \
        return note(#function);                                                                    \
    }
#define RUN(function)                                                                              \
    std::uint32_t __real_##function(void);                                                         \
    std::uint32_t __wrap_##function(void)                                                          \
    {                                                                                              \
        note(#function);                                                                           \
        return __real_##function();                                                                \
    }
// The enable flag of a kind of events is set or cleared before the filters are asked.
#define EVENTS_STOP(function, kind)                                                                \
    std::uint32_t __wrap_##function(void)                                                          \
    {                                                                                              \
        EXPECT_EQ(Si_CtlHelper_Is##kind##Enabled(), 0u);                                           \
        return note(#function);                                                                    \
    }

extern "C" {

ANSWERED(Orva_Init_Lib)
ANSWERED(Orva_Exit_Lib)
ANSWERED(Si_BG_InitServiceList)
ANSWERED(Si_BG_EnableAllService)
ANSWERED(Si_BG_DisableAllService)
ANSWERED(Si_SectFlt_DeInitPidFlts)
ANSWERED(Si_SectFlt_CheckRunningStatus)
ANSWERED(Si_SectFlt_StopAllFilters)
ANSWERED(Si_SectFlt_StopAllDsmFilters)
ANSWERED(Si_SectFlt_StartPat)
ANSWERED(Si_SectFlt_StartCat)
ANSWERED(Si_SectFlt_StartSdtBat)
ANSWERED(Si_SectFlt_StartTdtTot)
EVENTS_STOP(Si_SectFlt_StopActPfEit, ActPfEit)
EVENTS_STOP(Si_SectFlt_StopActSchEit, ActSchEit)
EVENTS_STOP(Si_SectFlt_StopOtherPfEit, OtherPfEit)
EVENTS_STOP(Si_SectFlt_StopOtherSchEit, OtherSchEit)
ANSWERED(Si_SectFlt_StopAllEIT)
RUN(Orva_Si_SetCtlFlag)
RUN(Orva_Si_ResetCtlFlag)
RUN(Orva_Si_SetDetectReady)
RUN(Orva_Si_ResetScanFlag)
RUN(Orva_Si_EraseAllEitRawData)
RUN(Orva_Si_ResetTimeSection)
RUN(Si_Model_ResetPmtPidList)
RUN(Si_Model_ResetCurTuningProgramNum)
RUN(Si_CtlHelper_SetTableEnableFlag)
RUN(Si_CtlHelper_ResetTableEnableFlag)

// As they are.
std::uint32_t __real_Orva_Init_Lib(void);
std::uint32_t __real_Orva_Exit_Lib(void);

OrvaDebugCategory *__real_orva_debug_category_new(const char *name, std::uint32_t flags,
                                                  const char *description);
OrvaDebugCategory *__wrap_orva_debug_category_new(const char *name, std::uint32_t flags,
                                                  const char *description)
{
    note("orva_debug_category_new", std::string{name}, flags, std::string{description});
    return __real_orva_debug_category_new(name, flags, description);
}

std::uint32_t __wrap_Orva_CreateThread(pthread_t *thread, SiThreadFn fn, void *param)
{
    EXPECT_NE(thread, nullptr);
    EXPECT_EQ(param, nullptr);
    last_thread_body = reinterpret_cast<const void *>(fn);
    return note("Orva_CreateThread");
}

std::uint32_t __wrap_Si_SectFlt_InitPidFlts(SiDmxSectHandler *table)
{
    last_handler_table = table;
    return note("Si_SectFlt_InitPidFlts");
}

std::uint32_t __wrap_Si_SectFlt_EnableProcessData(std::uint32_t flag)
{
    return note("Si_SectFlt_EnableProcessData", flag);
}

std::uint32_t __wrap_Si_SectFlt_StartNit(std::uint32_t flag, std::uint32_t network_id)
{
    return note("Si_SectFlt_StartNit", flag, network_id);
}

std::uint32_t __real_Orva_Si_DeleteCaches(std::uint32_t mode);
std::uint32_t __wrap_Orva_Si_DeleteCaches(std::uint32_t mode)
{
    note("Orva_Si_DeleteCaches", mode);
    return __real_Orva_Si_DeleteCaches(mode);
}

std::uint32_t __wrap_Orva_Si_CommScanCase(std::uint16_t pid, std::uint8_t table_id,
                                          std::uint16_t extension)
{
    return note("Orva_Si_CommScanCase", pid, table_id, extension);
}

std::uint32_t __wrap_Orva_Si_NotifyUpdate(std::uint32_t frequency, std::uint16_t extension,
                                          std::uint16_t pid, std::uint8_t table_id)
{
    return note("Orva_Si_NotifyUpdate", frequency, extension, pid, table_id);
}

std::uint32_t __wrap_Si_SectFlt_StartActPfEit(std::uint32_t ts, std::uint32_t network,
                                              const std::uint16_t *ids, std::uint32_t count)
{
    EXPECT_EQ(Si_CtlHelper_IsActPfEitEnabled(), 1u);
    return note("Si_SectFlt_StartActPfEit", ts, network, list_of(ids, count), count);
}

std::uint32_t __wrap_Si_SectFlt_StartActSchEit(std::uint32_t ts, std::uint32_t network,
                                               std::uint32_t current, const std::uint16_t *ids,
                                               std::uint32_t count)
{
    EXPECT_EQ(Si_CtlHelper_IsActSchEitEnabled(), 1u);
    return note("Si_SectFlt_StartActSchEit", ts, network, current, list_of(ids, count), count);
}

std::uint32_t __wrap_Si_SectFlt_StartOtherPfEit(const SiEitRequest *requests, std::uint32_t count)
{
    EXPECT_EQ(Si_CtlHelper_IsOtherPfEitEnabled(), 1u);
    last_requests = requests;
    return note("Si_SectFlt_StartOtherPfEit", count);
}

std::uint32_t __wrap_Si_SectFlt_StartOtherSchEit(const SiEitRequest *requests, std::uint32_t count)
{
    EXPECT_EQ(Si_CtlHelper_IsOtherSchEitEnabled(), 1u);
    last_requests = requests;
    return note("Si_SectFlt_StartOtherSchEit", count);
}

std::uint32_t __real_Orva_Wait2FuncTrue(std::uint32_t count, std::uint32_t (*predicate)(void));
std::uint32_t __wrap_Orva_Wait2FuncTrue(std::uint32_t count, std::uint32_t (*predicate)(void))
{
    note("Orva_Wait2FuncTrue", count);
    return __real_Orva_Wait2FuncTrue(count, predicate);
}

std::uint32_t __real_Orva_Wait2CondTrue(std::uint32_t count, std::uint8_t condition);
std::uint32_t __wrap_Orva_Wait2CondTrue(std::uint32_t count, std::uint8_t condition)
{
    note("Orva_Wait2CondTrue", count, condition);
    return __real_Orva_Wait2CondTrue(count, condition);
}

std::uint32_t __real_Orva_Sleep(std::uint32_t ms);
std::uint32_t __wrap_Orva_Sleep(std::uint32_t ms)
{
    if (real_time)
        return __real_Orva_Sleep(ms);
    now_ms += ms;
    while (!plan.empty() && plan.begin()->first <= now_ms) {
        const auto event = plan.begin()->second;
        plan.erase(plan.begin());
        event();
    }
    return 0;
}

} // extern "C"

inline texts joined(std::initializer_list<texts> parts)
{
    texts all;
    for (const texts &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Calls since the last look whose text begins so.
inline texts calls_of(const std::string &beginning)
{
    texts found;
    std::ranges::copy_if(calls, std::back_inserter(found),
                         [&](const std::string &call) { return call.starts_with(beginning); });
    return found;
}

inline texts taken_calls()
{
    return std::exchange(calls, {});
}

// What a start, a stop and their steps ask of the other modules.
inline const texts stop_steps{"Orva_Si_ResetCtlFlag()",
                              "Si_SectFlt_EnableProcessData(0)",
                              "Si_CtlHelper_ResetTableEnableFlag()",
                              "Si_BG_DisableAllService()",
                              "Si_SectFlt_StopAllFilters()",
                              "Si_Model_ResetCurTuningProgramNum()"};
inline const texts busy_and_flag{"Si_SectFlt_CheckRunningStatus()", "Orva_Si_SetCtlFlag()"};
inline const texts empty_tables{"Orva_Si_DeleteCaches(0)"};
inline const texts empty_events{"Orva_Si_EraseAllEitRawData()"};
inline const texts empty_rest{"Si_Model_ResetPmtPidList()", "Orva_Si_ResetScanFlag()",
                              "Orva_Si_ResetTimeSection()", "Si_SectFlt_StopAllDsmFilters()"};
inline const texts keep_all{"Si_SectFlt_StopAllDsmFilters()"};
inline const texts enable{"Si_CtlHelper_SetTableEnableFlag()", "Si_SectFlt_EnableProcessData(1)"};
inline const texts tables_of_scan{"Si_SectFlt_StartPat()", "Si_SectFlt_StartCat()",
                                  "Si_SectFlt_StartNit(0, 65535)", "Si_SectFlt_StartSdtBat()"};
inline const texts time_tables{"Si_SectFlt_StartTdtTot()"};
inline const texts services{"Si_BG_EnableAllService()"};

inline const std::string busy_text = "Can not start SI!\n";
inline const std::string channel_not_stopped =
    "The upper layer do not stop the SI before start channel!\n";
inline const std::string scan_not_stopped =
    "The upper layer do not stop the SI before start scan!\n";

inline std::uint32_t tune(std::uint32_t frequency, std::uint16_t program = SI_NO_PROGRAM)
{
    const SiTuneParam param{frequency, 0x11111111, 0x22222222, program};
    return Orva_Si_StartChannel(&param);
}

// As the dispatcher calls it.
inline std::uint32_t notify_locked(std::uint16_t pid, std::uint8_t table_id,
                                   std::uint16_t extension)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    const std::uint32_t result = Orva_Si_NotifyTableStatus(pid, table_id, extension);
    EXPECT_TRUE(ctl_is_locked());
    Orva_MutexV(&Ts_Ctl_Mutex);
    return result;
}

inline void set_scan_param(const SiScanParam &param)
{
    EXPECT_EQ(Orva_Si_SetScanParam(&param), ORVA_SI_OK);
}

inline std::uint32_t reset_locked(std::uint32_t frequency, std::uint32_t program)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    const std::uint32_t result = Orva_Si_ResetRunningStatus(frequency, program);
    Orva_MutexV(&Ts_Ctl_Mutex);
    return result;
}

inline bool logged_by(const std::string &function, std::uint32_t level, const std::string &text)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == level && line.file == "Src/orva_si_ctl" && line.function == function &&
               line.text == text;
    });
}

} // namespace test

#endif
