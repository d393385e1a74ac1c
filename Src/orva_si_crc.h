// SPDX-License-Identifier: LGPL-2.1-or-later
// The ways to the CRC_32 of a section, for those who compare them; all others call crc32_mpeg.
#ifndef SRC_ORVA_SI_CRC_H
#define SRC_ORVA_SI_CRC_H

#include <cstdint>
#include <span>

#include "orva_si_bytes.h"

namespace si {

using crc_function = std::uint32_t (*)(bytes of);

struct crc_way {
    const char *name;
    crc_function crc;
    bool (*runs_here)(); // whether this processor has the instructions
};

// Every way that was compiled in, the best first; the last one runs everywhere.
std::span<const crc_way> crc_ways();

} // namespace si

#endif
