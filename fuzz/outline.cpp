// SPDX-License-Identifier: LGPL-2.1-or-later
#include "outline.h"

#include "orva_si_bytes.h"

namespace fuzz {

namespace {

constexpr std::size_t crc_size = 4;
constexpr std::size_t long_header = 8;

// What differs between the tables: where their loops begin.
class outliner {
public:
    explicit outliner(bytes of) : section{of}, end{of.size() - crc_size} {}

    outline made()
    {
        found.lengths.push_back(1);
        const std::uint8_t table_id = section[0];
        if (table_id == 0x01)
            found.loops.push_back({long_header, end, 0, 0});
        else if (table_id == 0x02)
            program_map();
        else if (table_id == 0x40 || table_id == 0x41 || table_id == 0x4A)
            network();
        else if (table_id == 0x42 || table_id == 0x46)
            entries(11, end, 5, 0);
        else if (table_id >= 0x4E && table_id <= 0x6F)
            entries(14, end, 12, 0);
        else if (table_id == 0x73)
            loop_at(8, end, 0);
        return found;
    }

private:
    // A 12-bit length and the loop that it counts; answers the byte behind.
    std::size_t loop_at(std::size_t at, std::size_t limit, std::size_t outer_length_at)
    {
        if (at + 2 > limit)
            return limit;
        found.lengths.push_back(at);
        const std::size_t begin = at + 2;
        const std::size_t loop_end = std::min(begin + length12(section, at), limit);
        found.loops.push_back({begin, loop_end, at, outer_length_at});
        return loop_end;
    }
    // Entries whose fixed part ends with the length of their descriptors.
    void entries(std::size_t at, std::size_t limit, std::size_t fixed, std::size_t outer_length_at)
    {
        while (at + fixed <= limit)
            at = loop_at(at + fixed - 2, limit, outer_length_at);
    }
    void program_map() { entries(loop_at(10, end, 0), end, 5, 0); }
    void network()
    {
        const std::size_t at = loop_at(long_header, end, 0);
        if (at + 2 > end)
            return;
        found.lengths.push_back(at);
        entries(at + 2, std::min(at + 2 + length12(section, at), end), 6, at);
    }

    bytes section;
    std::size_t end;
    outline found;
};

} // namespace

outline outline_of(bytes section)
{
    return section.size() < long_header + crc_size ? outline{} : outliner{section}.made();
}

std::vector<std::size_t> descriptors_in(bytes section, const descriptor_loop &loop)
{
    std::vector<std::size_t> found;
    for (std::size_t at = loop.begin; at + 2 <= loop.end; at += 2u + section[at + 1])
        found.push_back(at);
    return found;
}

std::size_t length12(bytes section, std::size_t at)
{
    return static_cast<std::size_t>((section[at] & 0x0F) << 8 | section[at + 1]);
}

void set_length12(octets &section, std::size_t at, std::size_t value)
{
    section[at] = static_cast<std::uint8_t>((section[at] & 0xF0u) | (value >> 8 & 0x0F));
    section[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

void repair_length(octets &section)
{
    constexpr std::size_t behind = si::section_header_bytes;
    if (section.size() >= behind)
        set_length12(section, 1, std::min<std::size_t>(section.size() - behind, 0xFFF));
}

void repair_crc(octets &section)
{
    if (section.size() < si::section_header_bytes + crc_size)
        return;
    const std::size_t body = section.size() - crc_size;
    const std::uint32_t crc = si::crc32_mpeg(bytes{section}.first(body));
    for (std::size_t i = 0; i < crc_size; ++i)
        section[body + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i) & 0xFF);
}

bool is_intact(bytes section)
{
    return section.size() >= si::section_header_bytes + crc_size && si::crc32_mpeg(section) == 0;
}

} // namespace fuzz
