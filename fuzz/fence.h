// SPDX-License-Identifier: LGPL-2.1-or-later
// Memory of which the address sanitizer lets only a stretch be touched. Without that sanitizer it
// is memory like any other.
#ifndef FUZZ_FENCE_H
#define FUZZ_FENCE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "orva_si_sanitizer.h"

#ifdef SI_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace fuzz {

inline void forbid([[maybe_unused]] const void *from, [[maybe_unused]] std::size_t size)
{
#ifdef SI_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(from, size);
#endif
}

inline void allow([[maybe_unused]] const void *from, [[maybe_unused]] std::size_t size)
{
#ifdef SI_ADDRESS_SANITIZER
    ASAN_UNPOISON_MEMORY_REGION(from, size);
#endif
}

// A copy of an input that ends where the memory that may be touched ends.
template <std::size_t Capacity>
class fenced {
public:
    fenced() { forbid(room.data(), room.size()); }
    ~fenced() { allow(room.data(), room.size()); }
    fenced(const fenced &) = delete;
    fenced &operator=(const fenced &) = delete;

    // At most Capacity bytes; valid until the next call.
    std::span<std::uint8_t> put(std::span<const std::uint8_t> of)
    {
        const std::size_t size = std::min(of.size(), Capacity);
        std::uint8_t *const end = room.data() + Capacity;
        forbid(end - held, held);
        allow(end - size, size);
        held = size;
        if (size != 0)
            std::memcpy(end - size, of.data(), size);
        return {end - size, size};
    }

private:
    static constexpr std::size_t behind = 512; // of which nothing is ever allowed
    static_assert(Capacity % 8 == 0, "the sanitizer's granule");
    alignas(8) std::array<std::uint8_t, Capacity + behind> room{};
    std::size_t held = 0;
};

// For a scope, nothing from here up to there may be touched; there everything was before.
class closed_behind {
public:
    closed_behind(const std::uint8_t *from, const std::uint8_t *to)
        : start{from}, size{from < to ? static_cast<std::size_t>(to - from) : 0}
    {
        if (size != 0)
            forbid(start, size);
    }
    ~closed_behind()
    {
        if (size != 0)
            allow(start, size);
    }
    closed_behind(const closed_behind &) = delete;
    closed_behind &operator=(const closed_behind &) = delete;

private:
    const std::uint8_t *start;
    std::size_t size;
};

} // namespace fuzz

#endif
