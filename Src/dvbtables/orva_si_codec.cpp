// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_codec.h"

#include <algorithm>

#ifdef SI_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace si {

#ifdef SI_ADDRESS_SANITIZER
void allow_access(bytes memory)
{
    ASAN_UNPOISON_MEMORY_REGION(memory.data(), memory.size());
}
#endif

namespace {

#ifdef SI_ADDRESS_SANITIZER
// A buffer that is used once more may have been filled less before.
void allow_access_to_first(bytes buffer, std::size_t size)
{
    allow_access(buffer.first(size));
    ASAN_POISON_MEMORY_REGION(buffer.data() + size, buffer.size() - size);
}
#else
void allow_access_to_first(bytes, std::size_t) {}
#endif

// section_length of the shortest long section: five bytes of header behind it and the CRC_32.
constexpr std::size_t shortest_long_section = 9;
constexpr std::uint8_t syntax_indicator = 0x80; // of byte 1

bool is_sound(bytes section)
{
    return section.size() >= section_header_bytes + shortest_long_section &&
           (section[1] & syntax_indicator) != 0 && crc32_mpeg(section) == 0;
}

// Where the CRC_32 of a section with decoded header begins.
std::uint8_t *end_of(section_ext *section)
{
    return reinterpret_cast<std::uint8_t *>(section) + section_ext_length(section);
}

// The codecs of NIT and BAT walk the transport streams up to the CRC_32 whatever the loop's own
// length says, the accessors go by that length alone.
template <class Section, class Part2>
Section *with_bounded_loop(Section *section, Part2 *loop)
{
    const auto room = end_of(&section->head) - reinterpret_cast<const std::uint8_t *>(loop + 1);
    const auto length = std::clamp<std::ptrdiff_t>(room, 0, loop->transport_stream_loop_length);
    loop->transport_stream_loop_length = static_cast<std::uint16_t>(length & 0xFFF);
    return section;
}

// A 12-bit length field in network order, with whatever stands in its upper four bits.
std::size_t swap_length(std::uint8_t *field)
{
    const std::size_t length = be16(std::span<const std::uint8_t, 2>{field, 2}) & 0x0FFFu;
    bswap16(field);
    return length;
}

// A descriptor loop of that length fits between at and end, and its descriptors fill it exactly.
bool holds_descriptors(std::uint8_t *at, const std::uint8_t *end, std::size_t length)
{
    return length <= static_cast<std::size_t>(end - at) && verify_descriptors(at, length) == 0;
}

} // namespace

bytes copy_section(std::span<std::uint8_t> buffer, const std::uint8_t *stored)
{
    const std::size_t size = section_size(stored);
    if (size > buffer.size())
        return {};
    allow_access_to_first(buffer, size);
    std::copy_n(stored, size, buffer.begin());
    const bytes copy = buffer.first(size);
    return is_sound(copy) ? copy : bytes{};
}

section_ext *load_section(std::span<std::uint8_t> buffer, const std::uint8_t *stored)
{
    const std::size_t size = copy_section(buffer, stored).size();
    section *head =
        section_codec(buffer.data(), size); // refuses the 0 bytes of a section that is not sound
    return head != nullptr ? section_ext_decode(head, 0) : nullptr;
}

dvb_sdt_section *sdt_codec(section_ext *section)
{
    return dvb_sdt_section_codec(section);
}

dvb_nit_section *nit_codec(section_ext *section)
{
    dvb_nit_section *nit = dvb_nit_section_codec(section);
    return nit != nullptr ? with_bounded_loop(nit, dvb_nit_section_part2(nit)) : nullptr;
}

dvb_bat_section *bat_codec(section_ext *section)
{
    dvb_bat_section *bat = dvb_bat_section_codec(section);
    return bat != nullptr ? with_bounded_loop(bat, dvb_bat_section_part2(bat)) : nullptr;
}

dvb_eit_section *eit_codec(section_ext *section)
{
    return dvb_eit_section_codec(section);
}

mpeg_pat_section *pat_codec(section_ext *section)
{
    return mpeg_pat_section_codec(section);
}

// Not libucsi's: as packaged, its codec reads es_info_length before it has swapped it and so
// refuses nearly every PMT. The contract is the same: fields swapped in place, null when a length
// does not fit.
mpeg_pmt_section *pmt_codec(section_ext *section)
{
    auto *const start = reinterpret_cast<std::uint8_t *>(section);
    const std::uint8_t *const end = end_of(section);
    if (section_ext_length(section) < sizeof(mpeg_pmt_section))
        return nullptr;
    std::uint8_t *at = start + sizeof(section_ext);
    bswap16(at); // PCR_PID
    const std::size_t program_info_length = swap_length(at + 2);
    at = start + sizeof(mpeg_pmt_section);
    if (!holds_descriptors(at, end, program_info_length))
        return nullptr;
    for (at += program_info_length; at != end;) {
        if (static_cast<std::size_t>(end - at) < sizeof(mpeg_pmt_stream))
            return nullptr;
        bswap16(at + 1); // elementary_PID
        const std::size_t es_info_length = swap_length(at + 3);
        at += sizeof(mpeg_pmt_stream);
        if (!holds_descriptors(at, end, es_info_length))
            return nullptr;
        at += es_info_length;
    }
    return reinterpret_cast<mpeg_pmt_section *>(section);
}

} // namespace si
