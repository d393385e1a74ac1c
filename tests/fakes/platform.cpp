// SPDX-License-Identifier: LGPL-2.1-or-later
#include "fakes/platform.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "runner/between.h"
#include "support/store.h"

struct OrvaDebugCategory {
    std::string name;
    std::uint32_t flags;
    std::string description;
};

std::uint32_t __orva_debug_min = ORVA_DEBUG_VERBOSE;

namespace fake {

namespace {

std::mutex log_mutex;
std::mutex timer_mutex; // the library's calls only; tests look while nothing else runs
std::vector<log_line> &lines()
{
    static auto &kept = *new std::vector<log_line>; // the section thread logs until the very end
    return kept;
}

} // namespace

std::vector<log_line> log_lines()
{
    const std::lock_guard lock{log_mutex};
    return lines();
}

void clear_log()
{
    const std::lock_guard lock{log_mutex};
    lines().clear();
}

void set_log_level(std::uint32_t level)
{
    __atomic_store_n(&__orva_debug_min, level, __ATOMIC_RELAXED);
}

std::size_t times_logged(const std::string &text)
{
    const auto kept = log_lines();
    return static_cast<std::size_t>(
        std::ranges::count_if(kept, [&](const log_line &line) { return line.text == text; }));
}

bool logged(const std::string &text)
{
    return times_logged(text) != 0;
}

bool logged(std::uint32_t level, const std::string &text)
{
    return std::ranges::any_of(log_lines(), [&](const log_line &line) {
        return line.level == level && line.text == text;
    });
}

std::string log_text()
{
    std::string all;
    for (const log_line &line : log_lines())
        all += std::to_string(line.level) + " " + line.file + " " + line.function + ": " + line.text;
    return all;
}

timer_facility &timers()
{
    static timer_facility facility;
    return facility;
}

namespace {

// All as a test finds it that has a process of its own.
void start_afresh()
{
    test::end_store();
    clear_log();
    set_log_level(ORVA_DEBUG_VERBOSE);
    timers() = {};
}

[[maybe_unused]] const bool set = (test::tidy_up = start_afresh) != nullptr;

} // namespace

} // namespace fake

extern "C" {

OrvaDebugCategory *orva_debug_category_new(const char *name, uint32_t flags, const char *description)
{
    static OrvaDebugCategory category;
    category = {name, flags, description};
    fake::lines().reserve(64);
    return &category;
}

void orva_debug_log(OrvaDebugCategory *, uint32_t level, const char *file, const char *function, uint32_t,
                    const char *format, ...)
{
    if (__atomic_load_n(&__orva_debug_min, __ATOMIC_RELAXED) < level)
        return;
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const std::lock_guard lock{fake::log_mutex};
    fake::lines().push_back({level, file, function, text.data()});
}

void orva_debug_dump(OrvaDebugCategory *, uint32_t, const char *, const char *, uint32_t, const void *, uint32_t) {}

int32_t Orva_Util_Timer_Init(const char *name)
{
    const std::lock_guard lock{fake::timer_mutex};
    fake::timers().inits.emplace_back(name);
    return fake::timers().init_result;
}

uint32_t Orva_Util_Timer_Add(int32_t, const char *name, uint32_t (*function)(SiWord), SiWord user,
                             uint32_t interval_ms, uint32_t repeat)
{
    const std::lock_guard lock{fake::timer_mutex};
    auto &timers = fake::timers().timers;
    timers.push_back({name, function, user, interval_ms, repeat});
    return static_cast<uint32_t>(timers.size() - 1);
}

uint32_t Orva_Util_Timer_Pause(int32_t, uint32_t timer_id, uint32_t pause)
{
    const std::lock_guard lock{fake::timer_mutex};
    fake::timers().timers.at(timer_id).paused = pause != 0;
    return 0;
}

uint32_t Orva_Util_Timer_PauseAll(int32_t, uint32_t pause)
{
    const std::lock_guard lock{fake::timer_mutex};
    fake::timers().all_paused = pause != 0;
    return 0;
}

uint32_t Orva_Util_Timer_Trigger(int32_t, uint32_t timer_id)
{
    const std::lock_guard lock{fake::timer_mutex};
    ++fake::timers().timers.at(timer_id).triggered;
    return 0;
}

uint32_t Orva_Util_Timer_UpdateInterval(int32_t, uint32_t timer_id, uint32_t interval_ms)
{
    const std::lock_guard lock{fake::timer_mutex};
    fake::timers().timers.at(timer_id).interval_ms = interval_ms;
    return 0;
}

uint32_t Orva_Util_Timer_GetRunningState(int32_t, uint32_t timer_id, uint32_t *running)
{
    *running = fake::timers().running ? fake::timers().running(timer_id) : 0;
    return 0;
}

uint32_t Orva_Util_Delay(uint32_t ms)
{
    {
        const std::lock_guard lock{fake::timer_mutex};
        fake::timers().delays.push_back(ms);
    }
    if (fake::timers().real_delay)
        usleep(ms * 1000);
    return 0;
}

} // extern "C"
