// SPDX-License-Identifier: LGPL-2.1-or-later
// A platform that records: every log line is kept, timers run only when a test says so.
#ifndef TESTS_FAKES_PLATFORM_H
#define TESTS_FAKES_PLATFORM_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "orva_platform.h"

namespace fake {

struct log_line {
    std::uint32_t level;
    std::string file;
    std::string function;
    std::string text;
};

// Lines written so far, oldest first; the threshold starts at 5, so that everything is kept. Thread-safe.
std::vector<log_line> log_lines();
void clear_log();
void set_log_level(std::uint32_t level);

// Whether a line of exactly this text was written, at this level where one is given.
bool logged(const std::string &text);
bool logged(std::uint32_t level, const std::string &text);
std::size_t times_logged(const std::string &text);
// The whole log as one text, for messages of failed tests.
std::string log_text();

struct timer {
    std::string name;
    std::uint32_t (*function)(SiWord);
    SiWord user;
    std::uint32_t interval_ms;
    std::uint32_t repeat;
    bool paused = false;
    std::uint32_t triggered = 0;
};

// The timer facility: what the library asked for, and knobs for tests.
struct timer_facility {
    std::vector<std::string> inits; // names given to Orva_Util_Timer_Init
    std::int32_t init_result = 7;   // the handle that it answers
    std::vector<timer> timers;      // index = timer id
    bool all_paused = false;
    std::function<std::uint32_t(std::uint32_t)> running; // answers GetRunningState for a timer id; default 0
    bool real_delay = true;                              // Orva_Util_Delay sleeps
    std::vector<std::uint32_t> delays;
};
timer_facility &timers();

} // namespace fake

#endif
