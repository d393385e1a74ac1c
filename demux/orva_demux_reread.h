// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections that are assembled a second time, from a file that was read before.
#ifndef DEMUX_ORVA_DEMUX_REREAD_H
#define DEMUX_ORVA_DEMUX_REREAD_H

#include <cstdint>
#include <vector>

#include "orva_demux_carousel.h"
#include "orva_demux_input.h"
#include "orva_ts_sections.h"

namespace si::demux {

struct packet_reader {
    packet_reader(const input &of, std::uint32_t packet_period);

    const input &in;
    std::uint32_t period;
    const kept_section *wanted = nullptr;
    std::vector<std::uint8_t> packets;
    std::vector<std::uint8_t> section; // that was wanted; empty: not there
    section_assembler assembler;
};

// A kept section: from memory, or from the file, valid until the next one is asked for. Empty when
// the file has changed meanwhile.
bytes fetch(packet_reader &by, std::uint16_t pid, const kept_section &section);

} // namespace si::demux

#endif
