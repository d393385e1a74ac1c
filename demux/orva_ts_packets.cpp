// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_ts_packets.h"

#include <algorithm>
#include <cstring>

namespace si::demux {
namespace {

constexpr std::array<std::uint32_t, 3> periods{188, 192, largest_period};
constexpr std::size_t timestamp_bytes = 4; // before each packet of a 192-byte stream

// Packets that are looked at to tell packets from what looks like them: so many at most,
// and if others may follow, so many at least.
constexpr std::size_t most_compared = 4096;
constexpr std::size_t least_compared = 64;

// Whether the window reaches the sync byte of the last packet that confirms one at this position.
bool shows_enough(bytes window, std::size_t at, std::size_t period)
{
    return at + (sync_confirmations - 1) * period < window.size();
}

// Whether all sync bytes that confirm a packet at this position stand there, as far as the window
// shows them.
bool in_step(bytes window, std::size_t at, std::size_t period)
{
    for (std::size_t i = 0; i < sync_confirmations && at < window.size(); ++i, at += period)
        if (window[at] != sync_byte)
            return false;
    return true;
}

// The last packets of a stream are too few to confirm each other: they count when they are two or
// more, or when the one ends where the stream ends; those of a stream that has no others must also
// begin it.
bool in_step_to_the_end(const packet_sync &sync, bytes window, std::size_t at, std::size_t period)
{
    if (window.size() - at < packet_bytes || !in_step(window, at, period))
        return false;
    const std::uint64_t first = sync.skipped + at;
    if (sync.period == 0 && first != 0 &&
        !(period == packet_bytes + timestamp_bytes && first == timestamp_bytes))
        return false;
    const std::size_t left = window.size() - at;
    return left >= period + packet_bytes || left == packet_bytes || left == period;
}

// How many packets stand in step from a position on; all that the window shows count as the most.
std::size_t packets_in_step(bytes window, std::size_t at, std::size_t period)
{
    std::size_t count = 0;
    for (; count < most_compared && at < window.size(); ++count, at += period)
        if (window[at] != sync_byte)
            return count;
    return most_compared;
}

// What stands between packets may hold a byte like the sync byte: a time stamp does so for seconds,
// where it is one of its upper bytes. So what stands in step may be followed by the packets
// themselves, no further behind than what stands between them is long. They stay in step longest;
// where both do, they are the later.
template <class InStep>
sync_point behind_what_looks_alike(bytes window, sync_point first, bool at_end, InStep may_begin)
{
    const std::size_t between = first.period - packet_bytes;
    sync_point best = first;
    std::size_t longest = packets_in_step(window, first.offset, first.period);
    const std::size_t last = std::min(first.offset + between, window.size() - 1);
    for (std::size_t at = first.offset + 1; at <= last; ++at) {
        if (window[at] != sync_byte || !may_begin(at))
            continue;
        const std::size_t count = packets_in_step(window, at, first.period);
        if (count < longest)
            continue;
        longest = count;
        best.offset = at;
    }
    const bool told = best.offset == first.offset || longest < most_compared || at_end ||
                      window.size() - best.offset >= least_compared * first.period;
    return told ? best : sync_point{first.offset, 0};
}

} // namespace

sync_point find_sync(const packet_sync &sync, bytes window, std::size_t from, bool at_end)
{
    for (std::size_t at = from; at < window.size(); ++at) {
        const auto *next = static_cast<const std::uint8_t *>(
            std::memchr(&window[at], sync_byte, window.size() - at));
        if (next == nullptr)
            break;
        at = static_cast<std::size_t>(next - window.data());
        for (const std::uint32_t period : periods) {
            if (sync.period != 0 && sync.period != period)
                continue;
            if (shows_enough(window, at, period)) {
                if (in_step(window, at, period))
                    return behind_what_looks_alike(
                        window, {at, period}, at_end,
                        [&](std::size_t other) { return in_step(window, other, period); });
            } else if (!at_end) {
                return {at, 0};
            } else if (in_step_to_the_end(sync, window, at, period)) {
                return behind_what_looks_alike(
                    window, {at, period}, at_end, [&](std::size_t other) {
                        return in_step_to_the_end(sync, window, other, period);
                    });
            }
        }
    }
    return {window.size(), 0};
}

std::optional<std::size_t> resume(packet_sync &sync, bytes window, std::size_t at, bool at_end)
{
    if (!at_end && window.size() - at < sync_lookahead)
        return std::nullopt;
    bump(sync.losses);
    // A damaged sync byte alone leaves the packets behind it where they were.
    const std::size_t behind = at + sync.period;
    if (behind < window.size() && in_step(window, behind, sync.period))
        return behind;
    sync.locked = false;
    return at + 1;
}

} // namespace si::demux
