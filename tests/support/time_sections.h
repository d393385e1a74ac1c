// SPDX-License-Identifier: LGPL-2.1-or-later
// The descriptor that the TOT is sent for.
#ifndef TESTS_SUPPORT_TIME_SECTIONS_H
#define TESTS_SUPPORT_TIME_SECTIONS_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/sections.h"

namespace test {

struct time_offset {
    std::string_view country = "GBR";
    std::uint8_t region = 0;
    std::uint8_t polarity = 0;
    std::uint16_t offset_bcd = 0x0100; // 0x0130: an hour and a half
    std::uint16_t change_mjd = 0xEB00;
    std::uint32_t change_bcd = 0x010000;
    std::uint16_t next_bcd = 0;
};

// local_time_offset_descriptor (EN 300 468, 6.2.20)
inline octets local_time_offset(const std::vector<time_offset> &entries)
{
    octets payload;
    const auto put = [&](std::uint32_t value, unsigned count) {
        for (unsigned shift = 8 * count; shift != 0; shift -= 8)
            payload.push_back(static_cast<std::uint8_t>(value >> (shift - 8)));
    };
    for (const time_offset &entry : entries) {
        payload.insert(payload.end(), entry.country.begin(), entry.country.end());
        put(static_cast<std::uint32_t>(entry.region << 2 | 0x02 | entry.polarity), 1);
        put(entry.offset_bcd, 2);
        put(entry.change_mjd, 2);
        put(entry.change_bcd, 3);
        put(entry.next_bcd, 2);
    }
    return raw(0x58, payload);
}

} // namespace test

#endif
