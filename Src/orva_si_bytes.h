// SPDX-License-Identifier: LGPL-2.1-or-later
// Every reader of broadcast bytes: fixed-size spans carry their bound in the type, byte_reader
// carries it at run time. Also the one CRC-32 of sections.
#ifndef SRC_ORVA_SI_BYTES_H
#define SRC_ORVA_SI_BYTES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

extern "C" std::uint32_t crc32tbl[]; // libucsi's table: MPEG-2 CRC-32, most significant bit first

namespace si {

using bytes = std::span<const std::uint8_t>;

inline constexpr std::size_t section_header_bytes =
    3; // table_id and section_length (ISO/IEC 13818-1, 2.4.4)
inline constexpr std::size_t eit_header_bytes = 14;      // up to last_table_id (EN 300 468, 5.2.4)
inline constexpr std::size_t crc_bytes = 4;              // CRC_32 at the end of a section
inline constexpr std::size_t largest_section = 4096;     // of any kind, header included
inline constexpr std::size_t largest_psi_section = 1024; // PAT, CAT, PMT, NIT, SDT, BAT, TOT

constexpr std::uint16_t be16(std::span<const std::uint8_t, 2> b)
{
    return static_cast<std::uint16_t>(b[0] << 8 | b[1]);
}

constexpr std::uint32_t be24(std::span<const std::uint8_t, 3> b)
{
    return static_cast<std::uint32_t>(b[0] << 16 | b[1] << 8 | b[2]);
}

constexpr std::uint32_t be32(std::span<const std::uint8_t, 4> b)
{
    return static_cast<std::uint32_t>(b[0]) << 24 | be24(b.last<3>());
}

// Identifiers travel as 32 bits, of which the low 16 count.
constexpr std::uint16_t low16(std::uint32_t id)
{
    return static_cast<std::uint16_t>(id);
}

// Two BCD digits; digits above 9 count as they stand.
constexpr unsigned from_bcd(unsigned byte)
{
    return (byte >> 4 & 0x0F) * 10 + (byte & 0x0F);
}

// The 12-bit section_length: what follows the three header bytes.
constexpr std::size_t section_length(std::span<const std::uint8_t, section_header_bytes> head)
{
    return static_cast<std::size_t>((head[1] & 0x0F) << 8 | head[2]);
}

// A whole section: header and section_length. The pointer must reach three bytes.
constexpr std::size_t section_size(const std::uint8_t *section)
{
    return section_header_bytes +
           section_length(
               std::span<const std::uint8_t, section_header_bytes>{section, section_header_bytes});
}

// The CRC_32 field of a section, its last four bytes; 0 for one that is too short to carry it.
constexpr std::uint32_t crc_field(const std::uint8_t *section)
{
    const std::size_t size = section_size(section);
    if (size <= section_header_bytes)
        return 0;
    return be32(std::span<const std::uint8_t, crc_bytes>{section + size - crc_bytes, crc_bytes});
}

// The version_number of a long section, from its byte 5.
constexpr std::uint8_t version_of(std::uint8_t byte5)
{
    return byte5 >> 1 & 0x1F;
}

// Reads a stretch of bytes once, front to back. A read past the end answers 0 and clears ok for
// good: read a whole entry, test once.
class byte_reader {
public:
    constexpr explicit byte_reader(bytes of) : rest{of} {}

    constexpr bool more() const { return ok && !rest.empty(); }
    constexpr std::size_t left() const { return rest.size(); }

    constexpr std::uint8_t u8() { return take(1) ? at(0) : std::uint8_t{0}; }
    constexpr std::uint16_t u16()
    {
        return take(2) ? static_cast<std::uint16_t>(at(0) << 8 | at(1)) : std::uint16_t{0};
    }
    constexpr std::uint32_t u24() { return take(3) ? be24(taken.first<3>()) : 0; }
    constexpr std::uint32_t u32() { return take(4) ? be32(taken.first<4>()) : 0; }

    // The next count bytes; empty when fewer are left.
    constexpr bytes span(std::size_t count) { return take(count) ? taken : bytes{}; }
    // A reader of exactly the next count bytes.
    constexpr byte_reader nested(std::size_t count) { return byte_reader{span(count)}; }
    // A length byte and exactly that many bytes.
    constexpr byte_reader nested8() { return nested(u8()); }
    constexpr bytes all() const { return rest; }

    bool ok = true;

private:
    constexpr std::uint8_t at(std::size_t i) const { return taken[i]; }
    constexpr bool take(std::size_t count)
    {
        if (!ok || count > rest.size()) {
            ok = false;
            return false;
        }
        taken = rest.first(count);
        rest = rest.subspan(count);
        return true;
    }

    bytes rest;
    bytes taken{};
};

// MPEG-2 CRC-32 (ISO/IEC 13818-1 annex A): initial value all ones, no final inversion. Over a whole
// section, its CRC_32 field included, the result is 0 when the section is undamaged.
std::uint32_t crc32_mpeg(bytes of);

} // namespace si

#endif
