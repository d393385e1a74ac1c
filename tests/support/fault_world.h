// SPDX-License-Identifier: LGPL-2.1-or-later
// A whole library, its section thread included, on a recording driver: each step is over before the
// next begins, so that the n-th of something is the same one in every run. And what such a library
// must have given back, whatever failed. For one source of a test whose target includes
// support/fault.cmake.
#ifndef TESTS_SUPPORT_FAULT_WORLD_H
#define TESTS_SUPPORT_FAULT_WORLD_H

#include <glib.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si.h"
#include "orva_si_sectflt.h"
#include "support/client.h"
#include "support/sections.h"
#include "support/store.h"

#if defined(__clang__) // the pool's records are looked at while nothing runs
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace test {

// ---- Memory

inline std::atomic<std::size_t> frees{0};

// Blocks of the library that are in use.
inline std::size_t live_blocks()
{
    return fake::allocations() - frees.load();
}

// ---- Locks

// Every mutex that was ever taken through the library's own function, those without a name too.
inline std::array<std::atomic<pthread_mutex_t *>, 16> known_locks{};
inline std::atomic<unsigned> wrong_unlocks{0}; // by a thread that does not hold it
inline thread_local std::vector<const pthread_mutex_t *> held_here;

inline void know_lock(pthread_mutex_t *mutex)
{
    for (std::atomic<pthread_mutex_t *> &known : known_locks) {
        pthread_mutex_t *expected = nullptr;
        if (known.load() == mutex || known.compare_exchange_strong(expected, mutex) ||
            expected == mutex)
            return;
    }
    ADD_FAILURE() << "more locks than there is room for";
}

inline bool comes_free(pthread_mutex_t &mutex)
{
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds patience{5}; // the section thread may be about to fall asleep
    for (const auto begin = clock::now(); clock::now() - begin < patience; sched_yield())
        if (pthread_mutex_trylock(&mutex) == 0)
            return pthread_mutex_unlock(&mutex) == 0;
    return false;
}

inline std::string name_of(const pthread_mutex_t *mutex)
{
    const std::array<std::pair<const pthread_mutex_t *, const char *>, 4> names{
        {{&Ts_Ctl_Mutex, "Ts_Ctl_Mutex"},
         {&Ts_Eit_Mutex, "Ts_Eit_Mutex"},
         {&Ts_Time_Mutex, "Ts_Time_Mutex"},
         {&si::filter_pool_mutex, "the filter pool's"}}};
    for (const auto &[known, name] : names)
        if (known == mutex)
            return name;
    return "a module's own";
}

// The first lock that somebody still holds; empty when there is none.
inline std::string held_lock()
{
    know_lock(&Ts_Ctl_Mutex);
    know_lock(&Ts_Eit_Mutex);
    know_lock(&Ts_Time_Mutex);
    know_lock(&si::filter_pool_mutex);
    for (const std::atomic<pthread_mutex_t *> &known : known_locks)
        if (known.load() != nullptr && !comes_free(*known.load()))
            return name_of(known.load());
    return {};
}

// ---- Time: none passes but for what a test lets happen where the library sleeps.

inline std::function<void()> while_asleep;

// ---- The broadcast

struct transmission {
    std::uint16_t pid;
    octets section;
};
using carousel = std::vector<transmission>;

inline carousel operator+(carousel one, const carousel &other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

// Waits until the section thread has done with all that was delivered and sleeps: else a start may
// find it busy, for here no time passes while that asks again. A lock that was forgotten would stop
// the next step for ever: that ends the test.
inline void settle()
{
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds patience{20};
    for (const auto begin = clock::now();
         Si_SectFlt_GetPendingCount() != 0 || Si_SectFlt_CheckRunningStatus() != 0; sched_yield())
        if (clock::now() - begin > patience) {
            std::fputs("the section thread is stuck\n", stderr);
            std::abort();
        }
    if (const std::string lock = held_lock(); !lock.empty()) {
        std::fprintf(stderr, "nobody gives up a lock: %s\n", lock.c_str());
        std::abort();
    }
}

// To every filter that lets it pass, as a demultiplexer would, but one after the other: the section
// thread is done with one before the next comes.
inline void send(const transmission &sent)
{
    fake::recording_driver &driver = fake::driver();
    const std::size_t granted_last = std::min(driver.filter_count(), si::pool_records().size());
    std::vector<std::uint32_t> takers;
    for (std::size_t at = driver.filter_count() - granted_last; at < driver.filter_count(); ++at) {
        const std::uint32_t id = driver.filter_id(at);
        const fake::driver_filter filter = driver.filter(id);
        if (filter.running && filter.loaded.pid == sent.pid &&
            fake::passes(filter.loaded, sent.section))
            takers.push_back(id);
    }
    for (const std::uint32_t id : takers) {
        if (driver.filter(id).loaded.list_mode != 0)
            driver.deliver_batch(id, {sent.section});
        else
            driver.deliver(id, sent.section);
        settle();
    }
}

inline std::uint16_t word_at(const octets &section, std::size_t at)
{
    return static_cast<std::uint16_t>(section.at(at) << 8 | section.at(at + 1));
}

inline bool is_event_section(const transmission &sent)
{
    return sent.pid == 0x12 && sent.section.at(0) >= 0x4E && sent.section.at(0) <= 0x6F;
}

// Elements of both stores' lists of sections have these members.
template <class Stored>
bool has_bytes(const Stored *stored, const octets &section)
{
    return stored->section != nullptr &&
           std::ranges::equal(std::span{stored->section, stored->sect_len}, section);
}

template <class Stored>
bool holds(si_list *list, const octets &section)
{
    for (std::int32_t at = 0; si_list_eol(list, at) == 0; ++at)
        if (has_bytes(static_cast<const Stored *>(si_list_get(list, at)), section))
            return true;
    return false;
}

inline bool holds_table_section(const transmission &sent)
{
    const SiTable *table = Orva_Si_FindTableById(sent.pid, sent.section.at(0),
                                                 word_at(sent.section, 3), SI_ANY_EXT, SI_ANY_EXT);
    return table != nullptr && holds<SiSection>(table->psect_list, sent.section);
}

inline bool holds_event_section(const octets &section)
{
    si_list *const services = Orva_Si_GetDvbEitList();
    for (std::int32_t at = 0; si_list_eol(services, at) == 0; ++at) {
        const auto *service = static_cast<const SiEitService *>(si_list_get(services, at));
        if (service->service_id == word_at(section, 3) &&
            service->transport_stream_id == word_at(section, 8) &&
            service->original_network_id == word_at(section, 10) &&
            holds<SiEitSection>(service->sections, section))
            return true;
    }
    return false;
}

inline bool is_stored(const transmission &sent)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_MutexP(&Ts_Eit_Mutex);
    const bool there =
        is_event_section(sent) ? holds_event_section(sent.section) : holds_table_section(sent);
    Orva_MutexV(&Ts_Eit_Mutex);
    Orva_MutexV(&Ts_Ctl_Mutex);
    return there;
}

inline bool are_stored(const carousel &all)
{
    return std::ranges::all_of(all, is_stored);
}

// A second of the background services, of those that the library has resumed.
inline void run_timers()
{
    if (fake::timers().all_paused)
        return;
    for (std::size_t id = 0; id < fake::timers().timers.size(); ++id)
        if (const fake::timer timer = fake::timers().timers[id]; !timer.paused)
            timer.function(timer.user);
}

// How often a carousel turns, at most: longer than any request keeps its filter.
inline constexpr unsigned patient = 70;
inline constexpr unsigned impatient = 3;
inline unsigned turns_at_most = patient;

// Turns the carousel until all of it is stored, as the library asks for it by and by. A turn takes
// a second, after which the background services run.
inline bool receive(const carousel &all)
{
    for (unsigned turn = 0; turn < turns_at_most && !are_stored(all); ++turn) {
        for (const transmission &sent : all)
            send(sent);
        run_timers();
    }
    return are_stored(all);
}

// ---- The library

// Whether a call did what it was asked to; a refusal is kept in mind.
inline bool was_refused = false;
inline bool granted(std::uint32_t result)
{
    was_refused = was_refused || result != ORVA_SI_OK;
    return result == ORVA_SI_OK;
}

inline constexpr std::uint32_t first_frequency = 474000;
inline constexpr std::uint32_t second_frequency = 482000;

inline bool start(std::uint32_t on = first_frequency, std::uint16_t program = 1)
{
    const SiTuneParam param{on, 0, 0, program};
    return granted(Orva_Si_StartChannel(&param));
}

// The driver as it was at the beginning, for a library that was taken down.
inline void renew_driver()
{
    std::destroy_at(&fake::driver());
    std::construct_at(&fake::driver());
}

inline void prepare_platform()
{
    fake::timers().real_delay = false;
    fake::set_log_level(ORVA_DEBUG_ERROR);
    Orva_Si_InstallCallback(note_event);
}

inline void open_library()
{
    prepare_platform();
    ASSERT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    while (Orva_Si_GetTableList() == nullptr && clock::now() - begin < std::chrono::seconds{20})
        sched_yield();
    ASSERT_NE(Orva_Si_GetTableList(), nullptr);
}

// Stops everything and empties the stores: what is in use now was there from the beginning.
inline void come_to_rest()
{
    settle();
    Orva_Si_StopAllEIT();
    Si_SectFlt_StopAllDsmFilters();
    Orva_Si_StopScanChannel();
    Orva_Si_SetScanTime(0);
    settle();
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_DeleteCaches(0);
    Orva_Si_EraseAllEitRawData();
    Orva_Si_ResetRunningStatus(0, SI_NO_PROGRAM);
    Orva_MutexV(&Ts_Ctl_Mutex);
    while_asleep = nullptr;
    during_event = nullptr;
    events.clear();
    fake::clear_log();
    fake::driver().forget_calls();
}

// What holds whenever nothing runs, whatever failed before. Empty, or what is broken.
inline std::string broken_promise()
{
    if (const std::string lock = held_lock(); !lock.empty())
        return "a lock is held: " + lock;
    if (wrong_unlocks != 0)
        return "a lock was given up by who does not hold it";
    if (fake::driver().returned() != fake::driver().lent())
        return "buffers of the driver were not given back";
    if (fake::driver().wrongly_returned() != 0)
        return "a buffer was given back that is not lent";
    return {};
}

// The same of a library at rest.
inline std::string broken_rest(std::size_t blocks_at_first)
{
    if (const std::string broken = broken_promise(); !broken.empty())
        return broken;
    if (live_blocks() != blocks_at_first)
        return "memory: " + std::to_string(live_blocks()) + " blocks, " +
               std::to_string(blocks_at_first) + " at first";
    for (std::uint32_t row = 0; row < si::task_total; ++row) {
        const filter_task &task = si::task_at(static_cast<si::task_row>(row));
        if (task.task_list != nullptr || task.filter_list != nullptr)
            return "task " + std::to_string(row) + " is not empty";
    }
    for (const pid_filter &record : si::pool_records())
        if (record.used != 0 || record.enabled != 0 || record.item != nullptr)
            return "a filter is in use";
    return {};
}

} // namespace test

extern "C" {

void __real_g_slice_free1(gsize size, gpointer memory);
void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    if (memory != nullptr)
        ++test::frees;
    __real_g_slice_free1(size, memory);
}

std::uint32_t __real_Orva_MutexP(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexP(pthread_mutex_t *mutex)
{
    test::know_lock(mutex);
    const std::uint32_t result = __real_Orva_MutexP(mutex);
    test::held_here.push_back(mutex);
    return result;
}

std::uint32_t __real_Orva_MutexTryP(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexTryP(pthread_mutex_t *mutex)
{
    const std::uint32_t result = __real_Orva_MutexTryP(mutex);
    if (result == ORVA_SI_OK)
        test::held_here.push_back(mutex);
    return result;
}

std::uint32_t __real_Orva_MutexV(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexV(pthread_mutex_t *mutex)
{
    const auto found = std::ranges::find(test::held_here, mutex);
    if (found == test::held_here.end())
        ++test::wrong_unlocks;
    else
        test::held_here.erase(found);
    return __real_Orva_MutexV(mutex);
}

std::uint32_t __wrap_Orva_Sleep(std::uint32_t)
{
    if (test::while_asleep)
        test::while_asleep();
    return 0;
}

} // extern "C"

#endif
