// SPDX-License-Identifier: LGPL-2.1-or-later
// Memory of records and sections: limits, then GLib's slice allocator. A limit that is reached acts
// like a failed allocation at the same place.
#ifndef SRC_ORVA_SI_ALLOC_H
#define SRC_ORVA_SI_ALLOC_H

#include <glib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "orva_si_sanitizer.h"

namespace si {

// What a hostile multiplex can make the library hold. Honest ones stay far below.
namespace limit {
inline constexpr std::size_t tables = 4096;
inline constexpr std::size_t table_bytes = 16u << 20;
inline constexpr std::size_t eit_services = 8192;
// A satellite position of 1,000 services with eight days of events is 69 MB: 66 sections of about
// 1 KiB for each service. What is not of the tuned multiplex must fit into seven eighths.
inline constexpr std::size_t eit_bytes = 128u << 20;
inline constexpr std::size_t queued_sections = 2048;
inline constexpr std::size_t queued_bytes = 4u << 20;
} // namespace limit

// The last eighth of each limit is kept for the tables of the tuned multiplex.
constexpr bool may_use_reserve(std::uint8_t table_id)
{
    return table_id == 0x00 || table_id == 0x01 || table_id == 0x02 || table_id == 0x40 ||
           table_id == 0x42 || table_id == 0x4E;
}

// What a table_id may use of a limit. Of the CAT there is one sub-table, but nothing tells which of
// its extensions is the true one: it takes no more than a quarter of the reserve, so that others
// than the true one leave room for the programs.
constexpr std::size_t allowed_of(std::size_t limit, std::uint8_t table_id)
{
    constexpr std::uint8_t cat = 0x01;
    const std::size_t reserve = limit / 8;
    if (!may_use_reserve(table_id))
        return limit - reserve;
    return table_id == cat ? limit - reserve + reserve / 4 : limit;
}

// True when used, after growing by more, stays within that.
constexpr bool within(std::size_t limit, std::size_t used, std::size_t more, std::uint8_t table_id)
{
    const std::size_t allowed = allowed_of(limit, table_id);
    return more <= allowed && used <= allowed - more;
}

// What clients are told of: how often each was the reason to refuse something.
enum class limited : std::uint8_t {
    tables,
    table_bytes,
    eit_services,
    eit_bytes,
    queued_sections,
    queued_bytes,
    busy_queue,
    total
};
// From so many queued sections on only some tables are taken, and no lists.
inline constexpr std::size_t busy_queue = 100;
constexpr std::array<std::size_t, static_cast<std::size_t>(limited::total)> limits{
    limit::tables,          limit::table_bytes,  limit::eit_services, limit::eit_bytes,
    limit::queued_sections, limit::queued_bytes, busy_queue};

void count_refusal(limited by, std::size_t times = 1); // any thread, no lock

// Whether a limit lets use grow by more for a section of this table_id; counted when it does not.
inline bool has_room(limited by, std::size_t used, std::size_t more, std::uint8_t table_id)
{
    const bool fits = within(limits[static_cast<std::size_t>(by)], used, more, table_id);
    if (!fits) [[unlikely]]
        count_refusal(by);
    return fits;
}

// Section buffers are allocated in steps of so many bytes, and freed with the same rounded size.
inline constexpr std::size_t section_step = 32;
constexpr std::size_t section_buffer_size(std::size_t length)
{
    return (length + section_step - 1) / section_step * section_step;
}

// What a stored section counts against a limit of bytes: its buffer, and about what its records
// take, which is more than itself where it is short.
inline constexpr std::size_t table_section_records = 32;
inline constexpr std::size_t eit_section_records = 96;
constexpr std::size_t table_section_bytes(std::size_t length)
{
    return section_buffer_size(length) + table_section_records;
}
constexpr std::size_t eit_section_bytes(std::size_t length)
{
    return section_buffer_size(length) + eit_section_records;
}

inline void *allocate(std::size_t size)
{
    return g_slice_alloc(size);
}

inline void release(void *memory, std::size_t size)
{
    if (memory != nullptr)
        g_slice_free1(size, memory);
}

// A record of plain type, all zero; null when memory is exhausted.
template <class T>
T *allocate_record()
{
    void *memory = allocate(sizeof(T));
    return memory == nullptr ? nullptr : new (memory) T{};
}

template <class T>
void release_record(T *record)
{
    release(record, sizeof(T));
}

// A buffer for a section of that length, which the caller fills: zero behind it. The last step is
// zeroed as a whole, which is quicker than the right part of it.
inline std::uint8_t *section_buffer_in(void *memory, std::size_t length)
{
    auto *buffer = static_cast<std::uint8_t *>(memory);
    if (length != 0)
        std::memset(buffer + section_buffer_size(length) - section_step, 0, section_step);
    return buffer;
}

// The same in new memory; null when that is exhausted.
inline std::uint8_t *allocate_section(std::size_t length)
{
    void *memory = allocate(section_buffer_size(length));
    return memory == nullptr ? nullptr : section_buffer_in(memory, length);
}

inline void release_section(std::uint8_t *section, std::size_t length)
{
    release(section, section_buffer_size(length));
}

} // namespace si

#endif
