// SPDX-License-Identifier: LGPL-2.1-or-later
// How the sample multiplex writes fields, descriptors and sections.
#ifndef TOOLS_SAMPLE_BYTES_H
#define TOOLS_SAMPLE_BYTES_H

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "orva_si_bytes.h"

namespace sample {

using octets = std::vector<std::uint8_t>;

// Appends fields; a length is written when what it counts is complete.
class writer {
public:
    writer &u8(unsigned value)
    {
        data.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    writer &u16(unsigned value) { return u8(value >> 8).u8(value & 0xFF); }
    writer &u24(unsigned value) { return u8(value >> 16).u16(value & 0xFFFF); }
    writer &u32(std::uint32_t value) { return u16(value >> 16).u16(value & 0xFFFF); }
    writer &text(std::string_view bytes)
    {
        for (const char c : bytes)
            u8(static_cast<unsigned char>(c));
        return *this;
    }
    writer &append(const octets &bytes)
    {
        for (const std::uint8_t byte : bytes)
            u8(byte);
        return *this;
    }
    writer &text8(std::string_view bytes)
    {
        return u8(static_cast<unsigned>(bytes.size())).text(bytes);
    }
    // Twelve bits of length behind four reserved ones.
    writer &counted12(const octets &bytes)
    {
        return u16(0xF000 | static_cast<unsigned>(bytes.size())).append(bytes);
    }

    octets data;
};

inline octets descriptor(std::uint8_t tag, const writer &payload)
{
    return writer{}
        .u8(tag)
        .u8(static_cast<unsigned>(payload.data.size()))
        .append(payload.data)
        .data;
}

inline octets joined(std::initializer_list<octets> parts)
{
    writer all;
    for (const octets &part : parts)
        all.append(part);
    return all.data;
}

// A section with the long header and its CRC_32.
inline octets section(std::uint8_t table_id, std::uint16_t extension, const octets &body,
                      unsigned number = 0, unsigned last = 0)
{
    constexpr unsigned version_1_current = 0xC0 | 1 << 1 | 1;
    const bool psi = table_id < 0x40; // whose header has a 0 where SI has a reserved 1
    writer out;
    out.u8(table_id).u16((psi ? 0xB000u : 0xF000u) | static_cast<unsigned>(body.size() + 9));
    out.u16(extension).u8(version_1_current).u8(number).u8(last).append(body);
    out.u32(si::crc32_mpeg(out.data));
    return out.data;
}

} // namespace sample

#endif
