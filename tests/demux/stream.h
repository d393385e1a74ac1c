// SPDX-License-Identifier: LGPL-2.1-or-later
// Builds transport streams packet by packet for tests of the demultiplexer.
#ifndef TESTS_DEMUX_STREAM_H
#define TESTS_DEMUX_STREAM_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "support/sections.h"

namespace test {

inline constexpr std::size_t ts_packet = 188;
inline constexpr std::size_t ts_payload = 184;

struct packet_options {
    bool start = false;
    bool error = false;
    std::uint8_t scrambling = 0;
    int continuity = -1; // -1: the next of the PID
    octets adaptation{}; // what follows adaptation_field_length
    bool payload = true; // false: adaptation field only
};

// Packets one behind the other; continuity is counted for each PID.
struct stream {
    octets bytes;
    std::map<std::uint16_t, std::uint8_t> continuity;

    stream &packet(std::uint16_t pid, const octets &payload, const packet_options &with = {})
    {
        octets p{
            0x47,
            static_cast<std::uint8_t>((with.error ? 0x80 : 0) | (with.start ? 0x40 : 0) | pid >> 8),
            static_cast<std::uint8_t>(pid & 0xFF), static_cast<std::uint8_t>(with.scrambling << 6)};
        std::uint8_t &next = continuity[pid];
        const std::uint8_t count =
            with.continuity < 0 ? next : static_cast<std::uint8_t>(with.continuity);
        next = static_cast<std::uint8_t>(with.payload ? (count + 1) & 0x0F : count);
        p[3] = static_cast<std::uint8_t>(p[3] | count | (with.payload ? 0x10 : 0));
        if (!with.adaptation.empty()) {
            p[3] |= 0x20;
            p.push_back(static_cast<std::uint8_t>(with.adaptation.size()));
            p.insert(p.end(), with.adaptation.begin(), with.adaptation.end());
        }
        p.insert(p.end(), payload.begin(), payload.end());
        p.resize(ts_packet, 0xFF);
        bytes.insert(bytes.end(), p.begin(), p.end());
        return *this;
    }

    // Sections back to back from the start of a packet, with pointer_field wherever one begins.
    stream &sections(std::uint16_t pid, const std::vector<octets> &list)
    {
        octets all;
        std::vector<std::size_t> starts;
        for (const octets &section : list) {
            starts.push_back(all.size());
            all.insert(all.end(), section.begin(), section.end());
        }
        std::size_t at = 0;
        while (at < all.size()) {
            const auto first = std::lower_bound(starts.begin(), starts.end(), at);
            // A section that would begin in the byte that the pointer_field takes begins in the
            // next packet.
            const bool begins = first != starts.end() && *first < at + ts_payload - 1;
            const std::size_t room =
                begins ? ts_payload - 1 : next_start_or(starts, at, ts_payload);
            const std::size_t count = std::min(room, all.size() - at);
            octets payload;
            if (begins)
                payload.push_back(static_cast<std::uint8_t>(*first - at));
            payload.insert(payload.end(), all.begin() + static_cast<std::ptrdiff_t>(at),
                           all.begin() + static_cast<std::ptrdiff_t>(at + count));
            packet(pid, payload, {.start = begins});
            at += count;
        }
        return *this;
    }
    stream &section(std::uint16_t pid, const octets &one) { return sections(pid, {one}); }

    // The same packets 192 bytes apart behind a time stamp, or 204 with check bytes behind.
    octets spaced(std::size_t period) const
    {
        octets out;
        for (std::size_t at = 0; at < bytes.size(); at += ts_packet) {
            if (period == 192)
                out.insert(out.end(), {0x47, 0x00, 0x47, 0x01});
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + ts_packet));
            if (period == 204)
                out.resize(out.size() + 16, 0x47);
        }
        return out;
    }

private:
    static std::size_t next_start_or(const std::vector<std::size_t> &starts, std::size_t at,
                                     std::size_t room)
    {
        const auto next = std::lower_bound(starts.begin(), starts.end(), at);
        return next == starts.end() ? room : std::min(room, *next - at);
    }
};

// A PES packet header, as a video or audio PID begins a payload unit.
inline octets pes_start()
{
    return {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x00, 0x00};
}

} // namespace test

#endif
