// SPDX-License-Identifier: LGPL-2.1-or-later
#include "seeds.h"

#include <iterator>
#include <set>

#include "frames.h"
#include "outline.h"
#include "support/descriptors.h"
#include "support/getter_table.h"
#include "support/sections.h"

namespace fuzz {

namespace {

using namespace test;

// Tables that no question of the table of getters is about, and shapes that it has none of.
std::vector<octets> more_sections()
{
    const octets named = short_event("eng", "Name", "Text");
    const auto event = [&](std::uint16_t id) {
        return eit_event{.id = id, .descriptors = {named}};
    };
    return {
        make(cat{.descriptors = {ca(0x0500, 0x1F0)}}),
        make(tdt{.utc_bcd = 0x123456}),
        make(pat{.programs = {{.number = 0, .pid = 0x10}, {.number = 1, .pid = 0x100}}}),
        make(pat{.last_section_number = 1}),
        make(pat{.section_number = 1, .last_section_number = 1, .programs = {{2, 0x200}}}),
        make(pmt{.descriptors = {ca(0x0500, 0x1F0)},
                 .streams = {{.descriptors = {iso639("eng"), ac3()}},
                             {.type = 0x06, .pid = 0x102, .descriptors = {teletext({{}})}}}}),
        make(nit{
            .table_id = 0x41,
            .descriptors = {network_name("Other")},
            .transports = {{.descriptors = {cable()}}, {.ts = 2, .descriptors = {satellite()}}}}),
        make(sdt{
            .services = {{.id = 1}, {.id = 2, .descriptors = {service_descriptor(1, "P", "N")}}}}),
        make(sdt{.table_id = 0x46,
                 .ts = 2,
                 .services = {{.descriptors = {service_descriptor(1, "", "")}}}}),
        make(bat{.descriptors = {bouquet_name("B")},
                 .transports = {{.descriptors = {service_list({{1, 1}})}}, {.ts = 2}}}),
        make(eit{.section_number = 1, .last_section_number = 1, .events = {event(2)}}),
        make(eit{.table_id = 0x4F, .ts = 2, .events = {event(1)}}),
        make(eit{.table_id = 0x50,
                 .last_section_number = 8,
                 .last_table_id = 0x51,
                 .events = {event(1), event(2)}}),
        make(eit{.table_id = 0x60, .ts = 2, .last_section_number = 8, .events = {event(3)}}),
        make(private_table{.table_id = 0x3B, .payload = {1, 2, 3}}),
        make(private_table{.table_id = 0x72, .payload = octets(20, 0xFF)}),
    };
}

std::vector<octets> all_sections()
{
    std::vector<octets> all;
    for (const answered &row : getter_table())
        all.push_back(row.section());
    for (octets &section : more_sections())
        all.push_back(std::move(section));
    return all;
}

std::vector<octets> all_descriptors()
{
    std::set<octets> all;
    for (const octets &section : seed_sections())
        for (const descriptor_loop &loop : outline_of(section).loops)
            for (const std::size_t at : descriptors_in(section, loop)) {
                const auto begin = section.begin() + static_cast<std::ptrdiff_t>(at);
                all.insert({begin, begin + 2 + section[at + 1]});
            }
    return {all.begin(), all.end()};
}

} // namespace

const std::vector<octets> &seed_sections()
{
    static const std::vector<octets> all = all_sections();
    return all;
}

const std::vector<octets> &seed_descriptors()
{
    static const std::vector<octets> all = all_descriptors();
    return all;
}

octets next_version_of(octets section)
{
    if (section.size() < 12) // which has none
        return section;
    section[5] = static_cast<std::uint8_t>((section[5] & 0xC1) | ((section[5] + 2) & 0x3E));
    repair_crc(section);
    return section;
}

std::vector<octets> seed_frames(std::uint8_t channel)
{
    std::vector<octets> all;
    for (const octets &section : seed_sections()) {
        all.push_back(packed({{channel, section}}));
        all.push_back(packed({{channel, section}, {channel, next_version_of(section)}}));
    }
    return all;
}

} // namespace fuzz
