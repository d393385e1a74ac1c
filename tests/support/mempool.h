// SPDX-License-Identifier: LGPL-2.1-or-later
// What tests of the memory pool read: its output, and the headers of its blocks.
#ifndef TESTS_SUPPORT_MEMPOOL_H
#define TESTS_SUPPORT_MEMPOOL_H

#include <cstdarg>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "orva_si/mempool.h"

namespace test {

inline std::string printed(const std::function<void()> &call)
{
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

inline std::uint32_t low32(const void *pointer)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char *format, ...)
{
    std::array<char, 256> text{};
    va_list values;
    va_start(values, format);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    return text.data();
}

inline std::string info_line(const void *base, int total_kib, int used_kib, int blocks)
{
    return formatted("\tmempool:0x%x\ttotalsz:%dK\tusedsz:%dK\tnblk:%d\n", low32(base), total_kib,
                     used_kib, blocks);
}

inline std::string info()
{
    return printed(orva_mempool_printinfo);
}

// The number behind "nblk:".
inline int blocks()
{
    const std::string line = info();
    const auto at = line.find("nblk:");
    return at == std::string::npos ? -1 : std::atoi(line.c_str() + at + 5);
}

// The memory starts four bytes in front of the pointer.
inline std::uint8_t *header_of(void *pointer)
{
    return static_cast<std::uint8_t *>(pointer) - 4;
}

inline std::uint32_t word_at(const std::uint8_t *address)
{
    std::uint32_t word = 0;
    std::memcpy(&word, address, sizeof word);
    return word;
}

inline std::uint32_t header(void *pointer)
{
    return word_at(header_of(pointer));
}

inline constexpr std::uint32_t allocated_bit = 0x80000000;
inline constexpr std::uint32_t pool_bit = 0x40000000;

// The header of a block of the pool that is in use.
constexpr std::uint32_t used_block(std::uint32_t size)
{
    return allocated_bit | pool_bit | size;
}

inline bool from_heap(void *pointer)
{
    return (header(pointer) & pool_bit) == 0;
}

inline bool all_are(const void *memory, std::size_t size, std::uint8_t value)
{
    const auto *bytes = static_cast<const std::uint8_t *>(memory);
    return size == 0 || (bytes[0] == value && std::memcmp(bytes, bytes + 1, size - 1) == 0);
}

inline bool all_zero(const void *memory, std::size_t size)
{
    return all_are(memory, size, 0);
}

} // namespace test

#endif
