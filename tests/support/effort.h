// SPDX-License-Identifier: LGPL-2.1-or-later
// How much of what could be tried for ever is tried: all that a test names where the machine's own
// optimised code runs, a part of it under a sanitizer, for another word size or under an emulator.
#ifndef TESTS_SUPPORT_EFFORT_H
#define TESTS_SUPPORT_EFFORT_H

#include <algorithm>

#ifndef ORVA_TEST_DIVISOR
#define ORVA_TEST_DIVISOR 1
#endif

namespace test {

// That many seeds, steps or services of so many.
constexpr unsigned part_of(unsigned number)
{
    return std::max(1U, number / ORVA_TEST_DIVISOR);
}

// From one value to the next where all those of a byte or of a length are tried. It divides 255:
// 0x00 and 0xFF are among them.
#ifndef ORVA_SWEEP_STEP
#define ORVA_SWEEP_STEP ORVA_TEST_DIVISOR
#endif
inline constexpr unsigned sweep_step = ORVA_SWEEP_STEP;
static_assert(255 % sweep_step == 0);

} // namespace test

#endif
