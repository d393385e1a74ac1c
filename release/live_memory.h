// SPDX-License-Identifier: LGPL-2.1-or-later
// What the library holds: its blocks and bytes, counted where it asks GLib for them, and what the
// process holds of the machine. Programs wrap g_slice_alloc and g_slice_free1 at link time.
#ifndef RELEASE_LIVE_MEMORY_H
#define RELEASE_LIVE_MEMORY_H

#include <cstddef>

namespace release {

struct ledger {
    std::ptrdiff_t blocks;
    std::ptrdiff_t bytes;

    bool operator==(const ledger &) const = default;
};

ledger live();
std::size_t allocations(); // so far

std::size_t resident_kib();

} // namespace release

#endif
