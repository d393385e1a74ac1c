// SPDX-License-Identifier: LGPL-2.1-or-later
// Where a section has its lengths and its descriptors (EN 300 468, 5.2; ISO/IEC 13818-1, 2.4.4),
// as far as its own lengths can be believed.
#ifndef FUZZ_OUTLINE_H
#define FUZZ_OUTLINE_H

#include "fuzz.h"

namespace fuzz {

// Descriptors one behind the other.
struct descriptor_loop {
    std::size_t begin;
    std::size_t end;
    // Positions of the 12-bit lengths that count its bytes, innermost first; 0 where there is none.
    std::size_t length_at;
    std::size_t outer_length_at;
};

struct outline {
    std::vector<descriptor_loop> loops;
    std::vector<std::size_t> lengths; // positions of all 12-bit lengths, section_length included
};
outline outline_of(bytes section);

// The position of each descriptor in a loop.
std::vector<std::size_t> descriptors_in(bytes section, const descriptor_loop &loop);

std::size_t length12(bytes section, std::size_t at);
void set_length12(octets &section, std::size_t at, std::size_t value);

// section_length and CRC_32 as they ought to be; a section too short for them stays as it is.
void repair_length(octets &section);
void repair_crc(octets &section);
// Whether the section is long enough and its CRC_32 right.
bool is_intact(bytes section);

} // namespace fuzz

#endif
