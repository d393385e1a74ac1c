// SPDX-License-Identifier: LGPL-2.1-or-later
// Packets of a transport stream in a stretch of bytes: synchronisation, its loss and recovery.
// Packets stand 188 bytes apart, 192 with a time stamp before each, 204 with check bytes behind
// each.
#ifndef DEMUX_ORVA_TS_PACKETS_H
#define DEMUX_ORVA_TS_PACKETS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "orva_si_bytes.h"
#include "orva_si_shared.h"

namespace si::demux {

inline constexpr std::size_t packet_bytes = 188; // ISO/IEC 13818-1, 2.4.3.2
inline constexpr std::uint8_t sync_byte = 0x47;
inline constexpr std::size_t largest_period = 204;
inline constexpr std::size_t sync_confirmations = 5; // packets in a row that make synchronisation

// What a look at the stream needs ahead of a packet to judge whether it is one.
inline constexpr std::size_t sync_lookahead = (sync_confirmations + 2) * largest_period;

using packet = std::span<const std::uint8_t, packet_bytes>;

// Written by the one thread that reads the stream, read by any (relaxed).
struct packet_sync {
    std::uint32_t period = 0; // distance of packets in bytes; 0 until found
    bool locked = false;
    std::uint64_t skipped = 0; // bytes passed before the first synchronisation
    std::uint64_t packets = 0;
    std::uint64_t losses = 0;
};

// Adds to a counter that only the calling thread writes.
template <class T>
void bump(T &counter, std::type_identity_t<T> by = 1)
{
    store_relaxed(counter, static_cast<T>(counter + by));
}

// The next synchronisation at or behind a position. Nothing found has period 0, and the position up
// to which the window was searched.
struct sync_point {
    std::size_t offset;
    std::uint32_t period;
};
sync_point find_sync(const packet_sync &sync, bytes window, std::size_t from, bool at_end);

// What to do about a byte that should begin a packet and does not: where to go on, or nothing when
// the window shows too little to tell.
std::optional<std::size_t> resume(packet_sync &sync, bytes window, std::size_t at, bool at_end);

// Visits the packets of a window in order, until visit answers false. Answers how many bytes are
// done with; the rest belongs in front of the next window. at_end: nothing follows this window.
template <class Visit>
std::size_t take_packets(packet_sync &sync, bytes window, bool at_end, Visit &&visit)
{
    std::size_t at = 0;
    for (;;) {
        if (!sync.locked) {
            const auto [offset, period] = find_sync(sync, window, at, at_end);
            if (sync.period == 0)
                sync.skipped += offset - at;
            at = offset;
            if (period == 0)
                return at;
            store_relaxed(sync.period, period);
            sync.locked = true;
        }
        const std::size_t whole = at_end ? packet_bytes : sync.period;
        while (window.size() - at >= whole && window[at] == sync_byte) {
            bump(sync.packets);
            const bool more = visit(window.subspan(at).first<packet_bytes>());
            at = std::min<std::size_t>(at + sync.period, window.size());
            if (!more)
                return at;
        }
        if (window.size() - at < whole)
            return at_end ? window.size() : at;
        const std::optional<std::size_t> next = resume(sync, window, at, at_end);
        if (!next)
            return at;
        at = *next;
    }
}

} // namespace si::demux

#endif
