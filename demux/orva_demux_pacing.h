// SPDX-License-Identifier: LGPL-2.1-or-later
// The pace of a broadcast: when a packet was sent, by the PCR of one program (ISO/IEC
// 13818-1, 2.4.3.5).
#ifndef DEMUX_ORVA_DEMUX_PACING_H
#define DEMUX_ORVA_DEMUX_PACING_H

#include <cstdint>
#include <optional>

#include "orva_demux_input.h"
#include "orva_ts_packets.h"

namespace si::demux {

struct pacer {
    std::uint16_t pid = 0xFFFF; // whose PCR counts; 0xFFFF: none yet
    std::uint32_t others = 0;   // PCRs of other PIDs since the last of this one
    std::uint64_t pcr = 0;      // the last one, in 27 MHz
    steady::time_point due;     // when it was due
};

// When a packet that carries the PCR is due; nothing for every other packet.
std::optional<steady::time_point> due_time(pacer &by, packet p, steady::time_point now);

} // namespace si::demux

#endif
