// SPDX-License-Identifier: LGPL-2.1-or-later
// The recording driver behind a table of slots of which one is missing, or fails when a test says
// so; and the timer facility likewise. For one source, as support/fault_world.h; the timers' calls
// are wrapped by the target.
#ifndef TESTS_SUPPORT_FAULT_DRIVER_H
#define TESTS_SUPPORT_FAULT_DRIVER_H

#include <array>
#include <cstdint>
#include <string>

#include "support/fault_scenarios.h"

namespace test {

using u32 = std::uint32_t;

// ---- Which calls fail

struct call_range {
    unsigned first; // counted from 1
    unsigned last;
    bool contains(unsigned call) const { return call >= first && call <= last; }
};
inline constexpr unsigned for_ever = 0xFFFFFFFF;
inline constexpr call_range never{1, 0};

// ---- The driver

inline constexpr std::uint32_t refusal = 0x77;

// What slot 5 does instead of refusing.
enum class grant { refused, no_filter, no_filter_in_low_bits, same_as_before, wide };

struct driver_fault {
    fake::slot slot = fake::demux_init;
    bool missing = false;
    call_range calls = never;
    grant how = grant::refused;
};

struct failing_driver {
    driver_fault fault;
    std::array<unsigned, fake::slots> calls{};
    unsigned struck = 0;
    std::uint32_t last_id = 0;
    SiDmxSectHandler table{};
    const SiDmxSectHandler *behind = nullptr;

    bool fails(fake::slot slot)
    {
        const bool now = fault.slot == slot && fault.calls.contains(++calls[slot]);
        if (fault.slot != slot)
            return false;
        struck += now ? 1 : 0;
        return now;
    }
};
inline failing_driver faulty;

inline std::uint32_t granted_id(grant how, std::uint32_t id)
{
    switch (how) {
    case grant::no_filter:
        return SI_NO_FILTER;
    case grant::no_filter_in_low_bits:
        return 0x10000 + SI_NO_FILTER;
    case grant::same_as_before:
        return faulty.last_id;
    default:
        return 0x10000 + id;
    }
}

inline std::uint32_t add_with_fault(std::uint32_t demux, std::uint32_t *filter_id,
                                    SiDmxFilterParam param)
{
    const bool strange = faulty.fails(fake::add_filter);
    if (strange && faulty.fault.how == grant::refused)
        return refusal;
    const std::uint32_t result = faulty.behind->AddSecFilter(demux, filter_id, param);
    if (strange)
        *filter_id = granted_id(faulty.fault.how, *filter_id);
    faulty.last_id = *filter_id;
    return result;
}

// The slots as they are when none is missing. A buffer that the driver does not want back is one
// that the library has given up all the same.
inline SiDmxSectHandler slots_with_fault()
{
    return {
        .DemuxInit = [](u32 demux) -> u32 {
            return faulty.fails(fake::demux_init) ? refusal : faulty.behind->DemuxInit(demux);
        },
        .FreeSecData = [](u32 demux, u32 filter_id, SiWord handle) -> u32 {
            const u32 result = faulty.behind->FreeSecData(demux, filter_id, handle);
            return faulty.fails(fake::free_data) ? refusal : result;
        },
        .RemoveSecFilter = [](u32 demux, u32 filter_id) -> u32 {
            return faulty.fails(fake::remove_filter)
                       ? refusal
                       : faulty.behind->RemoveSecFilter(demux, filter_id);
        },
        .EnableSecFilter = [](u32 demux, u32 filter_id) -> u32 {
            return faulty.fails(fake::enable_filter)
                       ? refusal
                       : faulty.behind->EnableSecFilter(demux, filter_id);
        },
        .DisableSecFilter = [](u32 demux, u32 filter_id) -> u32 {
            return faulty.fails(fake::disable_filter)
                       ? refusal
                       : faulty.behind->DisableSecFilter(demux, filter_id);
        },
        .AddSecFilter = add_with_fault,
        .UpdateSecFilter = [](u32 demux, u32 filter_id, SiDmxFilterParam param) -> u32 {
            return faulty.fails(fake::update_filter)
                       ? refusal
                       : faulty.behind->UpdateSecFilter(demux, filter_id, param);
        },
    };
}

inline void take_out(SiDmxSectHandler &table, fake::slot slot)
{
    switch (slot) {
    case fake::demux_init:
        table.DemuxInit = nullptr;
        break;
    case fake::free_data:
        table.FreeSecData = nullptr;
        break;
    case fake::remove_filter:
        table.RemoveSecFilter = nullptr;
        break;
    case fake::enable_filter:
        table.EnableSecFilter = nullptr;
        break;
    case fake::disable_filter:
        table.DisableSecFilter = nullptr;
        break;
    case fake::add_filter:
        table.AddSecFilter = nullptr;
        break;
    case fake::update_filter:
        table.UpdateSecFilter = nullptr;
        break;
    }
}

// The library's own functions, in whose name it says that a slot is missing.
inline constexpr std::array<const char *, fake::slots> wrappers{
    "Si_SectFlt_DemuxInit",       "Si_SectFlt_FreeSecData",      "Si_SectFlt_RemoveSecFilter",
    "Si_SectFlt_EnableSecFilter", "Si_SectFlt_DisableSecFilter", "Si_SectFlt_AddSecFilter",
    "Si_SectFlt_UpdateSecFilter"};

// A new driver with this fault; the library has not been told of it yet.
inline SiDmxSectHandler *driver_with(const driver_fault &fault)
{
    renew_driver();
    faulty = {};
    faulty.fault = fault;
    faulty.behind = fake::driver().table();
    faulty.table = slots_with_fault();
    if (fault.missing)
        take_out(faulty.table, fault.slot);
    return &faulty.table;
}

// The same driver, as it should have been.
inline void heal_driver()
{
    faulty.fault = {};
    faulty.table = slots_with_fault();
}

// ---- Tests

// Begins with a start of its own.
inline bool all_events()
{
    start();
    return first_present_following() && schedule_of_the_tuned() && present_following_of_others();
}

// Comes to rest and gives the filters back.
inline std::uint32_t close_filters()
{
    come_to_rest();
    return Orva_Si_DeInit();
}

class FaultyDriver : public testing::Test {
protected:
    FaultyDriver()
    {
        open_library();
        close_filters();
        blocks_at_first = live_blocks();
    }

    // At rest, with filters that were given back.
    void expect_rest() const
    {
        EXPECT_EQ(broken_rest(blocks_at_first), "");
        EXPECT_EQ(fake::driver().running(), 0u);
    }

    std::size_t blocks_at_first = 0;
};

// ---- The timer facility

struct timer_fault {
    std::string function; // without what all their names begin with
    call_range calls = never;
};
inline timer_fault faulty_timer;
inline unsigned timer_calls = 0;
inline std::atomic<bool> timers_may_fail{false};

inline bool timer_fails(const char *function)
{
    return timers_may_fail && faulty_timer.function == function &&
           faulty_timer.calls.contains(++timer_calls);
}

inline bool is_timer(std::uint32_t timer_id)
{
    return timer_id < fake::timers().timers.size();
}

} // namespace test

extern "C" {

std::int32_t __real_Orva_Util_Timer_Init(const char *name);
std::int32_t __wrap_Orva_Util_Timer_Init(const char *name)
{
    return test::timer_fails("Init") ? -1 : __real_Orva_Util_Timer_Init(name);
}

std::uint32_t __real_Orva_Util_Timer_Add(std::int32_t handle, const char *name,
                                         std::uint32_t (*function)(SiWord), SiWord user,
                                         std::uint32_t interval_ms, std::uint32_t repeat);
std::uint32_t __wrap_Orva_Util_Timer_Add(std::int32_t handle, const char *name,
                                         std::uint32_t (*function)(SiWord), SiWord user,
                                         std::uint32_t interval_ms, std::uint32_t repeat)
{
    return test::timer_fails("Add")
               ? 0xFFFFFFFF
               : __real_Orva_Util_Timer_Add(handle, name, function, user, interval_ms, repeat);
}

std::uint32_t __real_Orva_Util_Timer_Pause(std::int32_t handle, std::uint32_t timer_id,
                                           std::uint32_t pause);
std::uint32_t __wrap_Orva_Util_Timer_Pause(std::int32_t handle, std::uint32_t timer_id,
                                           std::uint32_t pause)
{
    return test::timer_fails("Pause") || !test::is_timer(timer_id)
               ? 1
               : __real_Orva_Util_Timer_Pause(handle, timer_id, pause);
}

std::uint32_t __real_Orva_Util_Timer_PauseAll(std::int32_t handle, std::uint32_t pause);
std::uint32_t __wrap_Orva_Util_Timer_PauseAll(std::int32_t handle, std::uint32_t pause)
{
    return test::timer_fails("PauseAll") ? 1 : __real_Orva_Util_Timer_PauseAll(handle, pause);
}

std::uint32_t __real_Orva_Util_Timer_Trigger(std::int32_t handle, std::uint32_t timer_id);
std::uint32_t __wrap_Orva_Util_Timer_Trigger(std::int32_t handle, std::uint32_t timer_id)
{
    return test::timer_fails("Trigger") || !test::is_timer(timer_id)
               ? 1
               : __real_Orva_Util_Timer_Trigger(handle, timer_id);
}

std::uint32_t __real_Orva_Util_Timer_UpdateInterval(std::int32_t handle, std::uint32_t timer_id,
                                                    std::uint32_t interval_ms);
std::uint32_t __wrap_Orva_Util_Timer_UpdateInterval(std::int32_t handle, std::uint32_t timer_id,
                                                    std::uint32_t interval_ms)
{
    return test::timer_fails("UpdateInterval") || !test::is_timer(timer_id)
               ? 1
               : __real_Orva_Util_Timer_UpdateInterval(handle, timer_id, interval_ms);
}

std::uint32_t __real_Orva_Util_Timer_GetRunningState(std::int32_t handle, std::uint32_t timer_id,
                                                     std::uint32_t *running);
std::uint32_t __wrap_Orva_Util_Timer_GetRunningState(std::int32_t handle, std::uint32_t timer_id,
                                                     std::uint32_t *running)
{
    return test::timer_fails("GetRunningState") || !test::is_timer(timer_id)
               ? 1
               : __real_Orva_Util_Timer_GetRunningState(handle, timer_id, running);
}

} // extern "C"

#endif
