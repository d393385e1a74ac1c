// SPDX-License-Identifier: LGPL-2.1-or-later
// Allocations of the library that fail on demand. Test executables wrap g_slice_alloc at link time.
#ifndef TESTS_FAKES_ALLOCATION_H
#define TESTS_FAKES_ALLOCATION_H

#include <cstddef>

namespace fake {

// The n-th allocation from now on (1 is the next) answers null, later ones succeed; 0: none fails.
void fail_allocation(unsigned n);
// Every allocation from the n-th on answers null; 0: none fails.
void fail_allocations_from(unsigned n);
// How many have succeeded so far.
std::size_t allocations();
// The bytes of these, given back or not.
std::size_t allocated_bytes();

} // namespace fake

#endif
