// SPDX-License-Identifier: LGPL-2.1-or-later
// What tests that share a process leave behind for one another, and who tidies it up.
#ifndef TESTS_RUNNER_BETWEEN_H
#define TESTS_RUNNER_BETWEEN_H

namespace test {

// Called after each test of several in one process; set before main.
inline void (*tidy_up)() = nullptr;

} // namespace test

#endif
