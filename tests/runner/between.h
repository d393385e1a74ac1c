// SPDX-License-Identifier: LGPL-2.1-or-later
// What tests that share a process leave behind for one another, and who tidies it up.
#ifndef TESTS_RUNNER_BETWEEN_H
#define TESTS_RUNNER_BETWEEN_H

#include <vector>

namespace test {

// Called after each test of several in one process; filled before main.
inline std::vector<void (*)()> &between_tests()
{
    static std::vector<void (*)()> all;
    return all;
}

} // namespace test

#endif
