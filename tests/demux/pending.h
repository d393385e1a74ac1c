// SPDX-License-Identifier: LGPL-2.1-or-later
// Tests answer in place of the SI library how many sections are pending. Included once in every
// test program.
#ifndef TESTS_DEMUX_PENDING_H
#define TESTS_DEMUX_PENDING_H

#include <atomic>
#include <cstdint>

#include "orva_demux_pending.h"

namespace fake {

inline std::atomic<std::uint32_t> pending = 0;

} // namespace fake

std::uint32_t si::demux::pending_sections()
{
    return fake::pending;
}

#endif
