// SPDX-License-Identifier: LGPL-2.1-or-later
// Changes to sections that keep them sections, mostly: descriptors come and go and the loops around
// them grow and shrink, inner lengths lie, versions move on; section_length and CRC_32 fit again
// afterwards, but for one time in sixteen each.
#ifndef FUZZ_MUTATE_H
#define FUZZ_MUTATE_H

#include "fuzz.h"

namespace fuzz {

// Changes bytes without knowing what they are; answers their new number.
using plain_mutator = std::size_t (*)(std::uint8_t *data, std::size_t size, std::size_t capacity);

// Changes an input in place; answers its new size.
std::size_t mutate(shape of, std::span<std::uint8_t> room, std::size_t size, unsigned seed,
                   plain_mutator plain);

} // namespace fuzz

#endif
