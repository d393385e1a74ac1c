// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections as a broadcaster sends them, and the way into the store that received ones take.
#ifndef BENCH_SECTIONS_H
#define BENCH_SECTIONS_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include "orva_si.h"
#include "orva_si_bytes.h"

namespace bench {

using octets = std::vector<std::uint8_t>;

// ---- Parts of a section

// Appends a number of so many bytes.
inline void put(octets &to, std::uint64_t value, std::size_t size)
{
    while (size-- > 0)
        to.push_back(static_cast<std::uint8_t>(value >> 8 * size));
}

inline void put(octets &to, const octets &more)
{
    for (const std::uint8_t byte : more)
        to.push_back(byte);
}

inline void put(octets &to, std::string_view text)
{
    for (const char letter : text)
        to.push_back(static_cast<std::uint8_t>(letter));
}

// A text behind its length byte.
inline void put_text(octets &to, std::string_view text)
{
    put(to, text.size(), 1);
    put(to, text);
}

// A loop behind its length of 12 bits, which shares two bytes with what stands in front of it.
inline void put_loop(octets &to, unsigned front, const octets &loop)
{
    put(to, front << 12 | loop.size(), 2);
    put(to, loop);
}

inline octets descriptor(std::uint8_t tag, const octets &payload)
{
    octets made{tag};
    put(made, payload.size(), 1);
    put(made, payload);
    return made;
}

// ---- Whole sections

struct table_head {
    std::uint16_t pid;
    std::uint8_t table_id;
    std::uint16_t ext;
    std::uint8_t version = 1;
    std::uint8_t number = 0;
    std::uint8_t last_number = 0;
};

struct section {
    std::uint16_t pid;
    octets bytes;
};

// With a right section_length and CRC_32.
inline section make_section(const table_head &head, const octets &payload)
{
    constexpr std::size_t behind_length = 5; // up to last_section_number
    constexpr std::size_t crc_bytes = 4;
    octets bytes;
    put(bytes, head.table_id, 1);
    put(bytes, 0xB000 | (behind_length + payload.size() + crc_bytes), 2);
    put(bytes, head.ext, 2);
    put(bytes, 0xC1u | unsigned{head.version} << 1, 1);
    put(bytes, head.number, 1);
    put(bytes, head.last_number, 1);
    put(bytes, payload);
    put(bytes, si::crc32_mpeg(bytes), crc_bytes);
    return {head.pid, std::move(bytes)};
}

// A table of entries that do not break over sections, each section's payload as long as it may be
// at most. Wrap makes a payload of the entries of one section.
template <class Wrap>
std::vector<section> make_table(table_head head, const std::vector<octets> &entries,
                                std::size_t largest, Wrap wrap)
{
    std::vector<octets> loops(1);
    for (const octets &entry : entries) {
        if (loops.back().size() + entry.size() > largest)
            loops.emplace_back();
        put(loops.back(), entry);
    }
    std::vector<section> made;
    head.last_number = static_cast<std::uint8_t>(loops.size() - 1);
    for (std::size_t number = 0; number < loops.size(); ++number) {
        head.number = static_cast<std::uint8_t>(number);
        made.push_back(make_section(head, wrap(loops[number])));
    }
    return made;
}

// ---- Into the store

// With a client that hears of everything, and nothing held of what earlier measurements stored.
inline void empty_store()
{
    if (Orva_Si_GetTableList() == nullptr) {
        Orva_Si_InitTables();
        Orva_Si_InstallCallback(
            [](std::uint32_t, std::uint32_t, SiWord, std::uint32_t) { return std::uint32_t{0}; });
    }
    Orva_Si_ClearCache();
    Orva_Si_EraseAllEitRawData();
}

// As the receiving thread hands sections in.
inline std::uint32_t deliver(section &from)
{
    SiSection record{from.pid, 1, static_cast<std::uint16_t>(from.bytes.size()), from.bytes.data()};
    return Si_Model_ProcessModel(&record);
}

// ---- Time of this thread alone, in seconds: other processes do not count

inline double thread_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

} // namespace bench

#endif
