// SPDX-License-Identifier: LGPL-2.1-or-later
#include <csignal>
#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <span>
#include <string_view>
#include <thread>

#include "orva_platform.h"

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t max_threads = 32;
constexpr std::size_t max_timers = 64; // of one thread
constexpr std::uint32_t no_timer = 0xFFFFFFFF;
constexpr std::uint32_t unknown = 1;

using short_name = std::array<char, 32>;

struct timer {
    short_name name{};
    std::uint32_t (*function)(SiWord) = nullptr;
    SiWord user = 0;
    milliseconds interval{};
    bool repeat = false;
    bool paused = false;
    bool triggered = false;
    bool running = false;
    clock_type::time_point due{};
};

// One thread and its timers. The mutex is a leaf: a timer's function runs without it, and nobody
// waits for one.
struct facility {
    std::mutex mutex;
    std::condition_variable changed;
    std::array<timer, max_timers> timers;
    std::size_t count = 0;
    bool paused = false;
    short_name name{};
};

// Never freed: the threads run as long as the process.
constinit std::mutex registry_mutex;
constinit std::array<facility *, max_threads> registry{};
constinit std::size_t registered = 0;

short_name shortened(const char *text)
{
    short_name kept{};
    const std::string_view whole = text != nullptr ? text : "";
    std::ranges::copy(whole.substr(0, kept.size() - 1), kept.begin());
    return kept;
}

void start_interval(timer &of)
{
    of.due = clock_type::now() + of.interval;
}

// The timer whose turn it is next: one that was triggered, else the one that is due first; null
// when all pause.
timer *next_timer(facility &of)
{
    timer *next = nullptr;
    for (timer &t : std::span{of.timers}.first(of.count)) {
        if (t.triggered)
            return &t;
        const bool active = !t.paused && !of.paused;
        if (active && (next == nullptr || t.due < next->due))
            next = &t;
    }
    return next;
}

void call(timer &of, std::unique_lock<std::mutex> &lock)
{
    of.triggered = false;
    of.running = true;
    of.paused = of.paused || !of.repeat; // before the call: the function may resume its own timer
    const auto function = of.function;
    const SiWord user = of.user;
    lock.unlock();
    function(user);
    lock.lock();
    of.running = false;
    start_interval(of);
}

void serve(facility &of)
{
    std::unique_lock lock{of.mutex};
    for (;;) {
        timer *next = next_timer(of);
        if (next == nullptr)
            of.changed.wait(lock);
        else if (next->triggered || next->due <= clock_type::now())
            call(*next, lock);
        else
            of.changed.wait_until(lock, clock_type::time_point{next->due});
    }
}

void *run_timer_thread(void *param)
{
    auto &of = *static_cast<facility *>(param);
    prctl(PR_SET_NAME, of.name.data());
    serve(of);
    return nullptr;
}

// Signals are for the program's own threads; those that a fault of the thread itself raises stay
// open.
bool start_thread(facility &of)
{
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    pthread_t thread{};
    const bool started = pthread_create(&thread, nullptr, run_timer_thread, &of) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started)
        pthread_detach(thread);
    return started;
}

facility *facility_of(std::int32_t handle)
{
    const std::lock_guard lock{registry_mutex};
    const bool known = handle >= 0 && static_cast<std::size_t>(handle) < registered;
    return known ? registry[static_cast<std::size_t>(handle)] : nullptr;
}

// Applies a change under the lock and lets the thread look again.
template <class Change>
std::uint32_t change_timer(std::int32_t handle, std::uint32_t timer_id, Change change)
{
    facility *of = facility_of(handle);
    if (of == nullptr)
        return unknown;
    const std::lock_guard lock{of->mutex};
    if (timer_id >= of->count)
        return unknown;
    change(of->timers[timer_id]);
    of->changed.notify_one();
    return 0;
}

} // namespace

extern "C" {

std::int32_t Orva_Util_Timer_Init(const char *name)
{
    const std::lock_guard lock{registry_mutex};
    if (registered == registry.size())
        return -1;
    auto *made = new (std::nothrow) facility;
    if (made == nullptr)
        return -1;
    made->name = shortened(name);
    if (!start_thread(*made)) {
        delete made;
        return -1;
    }
    registry[registered] = made;
    return static_cast<std::int32_t>(registered++);
}

std::uint32_t Orva_Util_Timer_Add(std::int32_t handle, const char *name,
                                  std::uint32_t (*function)(SiWord user), SiWord user,
                                  std::uint32_t interval_ms, std::uint32_t repeat)
{
    facility *of = facility_of(handle);
    if (of == nullptr || function == nullptr)
        return no_timer;
    const std::lock_guard lock{of->mutex};
    if (of->count == of->timers.size())
        return no_timer;
    timer &added = of->timers[of->count];
    added.name = shortened(name);
    added.function = function;
    added.user = user;
    added.interval = milliseconds{std::max(interval_ms, 1u)};
    added.repeat = repeat != 0;
    start_interval(added);
    of->changed.notify_one();
    return static_cast<std::uint32_t>(of->count++);
}

std::uint32_t Orva_Util_Timer_Pause(std::int32_t handle, std::uint32_t timer_id,
                                    std::uint32_t pause)
{
    return change_timer(handle, timer_id, [pause](timer &of) {
        if (of.paused && pause == 0)
            start_interval(of);
        of.paused = pause != 0;
    });
}

std::uint32_t Orva_Util_Timer_PauseAll(std::int32_t handle, std::uint32_t pause)
{
    facility *of = facility_of(handle);
    if (of == nullptr)
        return unknown;
    const std::lock_guard lock{of->mutex};
    if (of->paused && pause == 0)
        std::ranges::for_each(of->timers, start_interval);
    of->paused = pause != 0;
    of->changed.notify_one();
    return 0;
}

std::uint32_t Orva_Util_Timer_Trigger(std::int32_t handle, std::uint32_t timer_id)
{
    return change_timer(handle, timer_id, [](timer &of) { of.triggered = true; });
}

std::uint32_t Orva_Util_Timer_UpdateInterval(std::int32_t handle, std::uint32_t timer_id,
                                             std::uint32_t interval_ms)
{
    if (interval_ms == 0)
        return unknown;
    return change_timer(handle, timer_id, [interval_ms](timer &of) {
        of.interval = milliseconds{interval_ms};
        start_interval(of);
    });
}

std::uint32_t Orva_Util_Timer_GetRunningState(std::int32_t handle, std::uint32_t timer_id,
                                              std::uint32_t *running)
{
    if (running == nullptr)
        return 2;
    return change_timer(handle, timer_id, [running](timer &of) { *running = of.running ? 1 : 0; });
}

std::uint32_t Orva_Util_Delay(std::uint32_t ms)
{
    std::this_thread::sleep_for(milliseconds{ms});
    return 0;
}

} // extern "C"
