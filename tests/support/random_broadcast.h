// SPDX-License-Identifier: LGPL-2.1-or-later
// A broadcast by chance: a few multiplexes, programs and versions, so that tables are new, known
// and changed in turn.
#ifndef TESTS_SUPPORT_RANDOM_BROADCAST_H
#define TESTS_SUPPORT_RANDOM_BROADCAST_H

#include <cstdint>

#include "support/sections.h"
#include "support/stress.h"

namespace test {

inline constexpr std::uint32_t programs = 5; // 1 to so many
inline constexpr std::uint16_t first_pmt_pid = 0x100;
inline constexpr std::uint16_t dsmcc_pid = 0x600; // and the five behind it

struct transmission {
    std::uint16_t pid;
    octets section;
};

// A valid section of any table.
transmission random_table(dice &d);

} // namespace test

#endif
