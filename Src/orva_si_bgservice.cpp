// SPDX-License-Identifier: LGPL-2.1-or-later
// The periodic services that move filters on when a table does not come.
#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

#include "orva_si/background.h"
#include "orva_si/filter.h"
#include "orva_si_log.h"

namespace si {

namespace {

constexpr std::int32_t shortest_interval = 100; // milliseconds
constexpr std::int32_t no_handle = -1;
constexpr std::uint32_t poll_interval = 10; // milliseconds
constexpr std::chrono::milliseconds longest_wait{101};

constinit std::int32_t timer_handle = no_handle;

constinit std::array<SiBgService, 3> services{{
    {.id = 0,
     .name = "Si_BG_CheckPMT",
     .service = Si_SectFlt_PmtBgService,
     .timer_id = 0,
     .interval = 1000,
     .enabled = 0,
     .paused = 0,
     .user = 0},
    {.id = 1,
     .name = "Si_BG_CheckActualPFEit",
     .service = Si_SectFlt_ActPfEitBgService,
     .timer_id = 0,
     .interval = 1000,
     .enabled = 0,
     .paused = 0,
     .user = 0},
    {.id = 2,
     .name = "Si_BG_CheckActualSchEit",
     .service = Si_SectFlt_ActSchEitBgService,
     .timer_id = 0,
     .interval = 1000,
     .enabled = 0,
     .paused = 0,
     .user = 0},
}};

// What the timer calls: the services themselves take no word.
template <std::size_t Row>
std::uint32_t run_service(SiWord)
{
    return services[Row].service();
}

using timer_function = std::uint32_t (*)(SiWord);

template <std::size_t... Rows>
constexpr std::array<timer_function, sizeof...(Rows)>
make_timer_functions(std::index_sequence<Rows...>)
{
    return {run_service<Rows>...};
}

constexpr auto timer_functions = make_timer_functions(std::make_index_sequence<services.size()>{});

// The record once it is registered, else null. The section thread may ask while the list is still
// being made.
SiBgService *registered(std::uint32_t id)
{
    SiBgService *service = FindBGServiceByID(id);
    return service != nullptr && load_acquire(service->enabled) != 0 ? service : nullptr;
}

bool is_paused(const SiBgService &service)
{
    return load_relaxed(service.paused) != 0;
}

void set_paused(SiBgService &service, bool paused)
{
    Orva_Util_Timer_Pause(timer_handle, service.timer_id, paused ? 1 : 0);
    store_relaxed(service.paused, paused ? 1 : 0);
}

std::uint32_t change_paused(std::uint32_t id, bool paused)
{
    SiBgService *service = registered(id);
    if (service == nullptr)
        return ORVA_SI_UNKNOWN_SERVICE;
    if (is_paused(*service) != paused)
        set_paused(*service, paused);
    return ORVA_SI_OK;
}

bool is_running(const SiBgService &service)
{
    std::uint32_t running = 0;
    Orva_Util_Timer_GetRunningState(timer_handle, service.timer_id, &running);
    return running != 0;
}

// Measured with the steady clock: the time of day may be set meanwhile.
std::uint32_t wait_until_idle(site here, const SiBgService &service)
{
    using clock = std::chrono::steady_clock;
    for (const auto begin = clock::now(); is_running(service);) {
        if (clock::now() - begin >= longest_wait) {
            SI_LOG_AT(here, level::error, "Wating too long!\n");
            return ORVA_SI_SERVICE_RUNNING;
        }
        Orva_Util_Delay(poll_interval);
    }
    return ORVA_SI_OK;
}

void register_service(std::size_t row)
{
    SiBgService &service = services[row];
    service.timer_id = Orva_Util_Timer_Add(timer_handle, service.name, timer_functions[row],
                                           service.user, service.interval, 1);
    set_paused(service, true);
    store_release(service.enabled, 1);
}

} // namespace

} // namespace si

using namespace si;

SiBgService *FindBGServiceByID(std::uint32_t id)
{
    for (SiBgService &service : services)
        if (service.id == id)
            return &service;
    return nullptr;
}

std::uint32_t Si_BG_InitServiceList(void)
{
    timer_handle = Orva_Util_Timer_Init("SIBGThread");
    if (timer_handle == no_handle)
        return ORVA_SI_FAILURE;
    Orva_Util_Timer_PauseAll(timer_handle, 1);
    for (std::size_t row = 0; row < services.size(); ++row)
        register_service(row);
    return ORVA_SI_OK;
}

std::uint32_t Si_BG_SetServiceInterval(std::uint32_t id, std::int32_t interval)
{
    if (interval < shortest_interval) {
        SI_LOG(level::trace, "Time Interval is too small:%d, min:%d\n", interval,
               shortest_interval);
        return ORVA_SI_FAILURE;
    }
    SiBgService *service = registered(id);
    if (service == nullptr)
        return ORVA_SI_UNKNOWN_SERVICE;
    service->interval = static_cast<std::uint32_t>(interval);
    Orva_Util_Timer_UpdateInterval(timer_handle, service->timer_id, service->interval);
    return ORVA_SI_OK;
}

std::uint32_t Si_BG_PauseService(std::uint32_t id)
{
    return change_paused(id, true);
}

std::uint32_t Si_BG_ResumeService(std::uint32_t id)
{
    return change_paused(id, false);
}

std::uint32_t Si_BG_EnableAllService(void)
{
    Orva_Util_Timer_PauseAll(timer_handle, 0);
    return ORVA_SI_OK;
}

std::uint32_t Si_BG_DisableAllService(void)
{
    Orva_Util_Timer_PauseAll(timer_handle, 1);
    return ORVA_SI_OK;
}

std::uint32_t Si_BG_InsertFastService(std::uint32_t id)
{
    const SiBgService *service = registered(id);
    if (service == nullptr || is_paused(*service))
        return ORVA_SI_UNKNOWN_SERVICE;
    Orva_Util_Timer_Trigger(timer_handle, service->timer_id);
    return ORVA_SI_OK;
}

std::uint32_t Si_BG_WaitServiceTerminate(std::uint32_t id)
{
    const SiBgService *service = registered(id);
    if (service == nullptr)
        return ORVA_SI_UNKNOWN_SERVICE;
    return wait_until_idle(SI_HERE, *service);
}

// One thread runs all services, so at most one of them is running.
std::uint32_t Si_BG_WaitAllServiceTerminate(void)
{
    for (const SiBgService &service : services)
        if (load_acquire(service.enabled) != 0 && is_running(service))
            return wait_until_idle(SI_HERE, service);
    return ORVA_SI_OK;
}
