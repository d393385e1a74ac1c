// SPDX-License-Identifier: LGPL-2.1-or-later
// A driver for long runs: quick, and without a lock around all of it, which would put in order what
// a race detector is to find unordered. It remembers nothing but how its filters are loaded; a
// buffer lives as long as the callback that it is lent for, and must come back in it.
#ifndef RELEASE_PLAIN_DRIVER_H
#define RELEASE_PLAIN_DRIVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "orva_si/filter.h"
#include "support/stress.h"

namespace release {

using bytes = std::span<const std::uint8_t>;

inline constexpr std::uint32_t filters = 31;

// The seven slots, for Orva_Si_Init.
SiDmxSectHandler *driver_table();

// Whether a running filter is on this PID and lets the section pass; its setting then.
std::optional<SiDmxFilterParam> taker(std::uint32_t filter, std::uint16_t pid, bytes section);

// Gives the section to every filter that takes it; to how many.
std::size_t broadcast(std::uint16_t pid, bytes section);
// Past all matching: to a filter as a section, or so often as a batch.
void force(std::uint32_t filter, bytes section);
void force_batch(std::uint32_t filter, bytes section, std::uint32_t count);
// As a driver that is out of its mind: whatever these say, and wherever they point.
void force(std::uint32_t filter, SiDmxSection section);
void force(std::uint32_t filter, SiDmxSectionList list);

std::size_t running_filters();

struct driver_counters {
    test::tally callbacks;
    test::tally lost_buffers;  // not back at the end of the callback
    test::tally wrong_buffers; // given back more than once
};
extern driver_counters driver_counted;

} // namespace release

#endif
