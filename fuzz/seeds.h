// SPDX-License-Identifier: LGPL-2.1-or-later
// What fuzzing begins with: a good section of every table, with every descriptor that is known.
#ifndef FUZZ_SEEDS_H
#define FUZZ_SEEDS_H

#include "fuzz.h"

namespace fuzz {

const std::vector<octets> &seed_sections();
const std::vector<octets> &seed_descriptors();

// The same section with the next version_number, its CRC_32 right.
octets next_version_of(octets section);

// Each section in a frame of its own, and in two versions one behind the other.
std::vector<octets> seed_frames(std::uint8_t channel);

} // namespace fuzz

#endif
