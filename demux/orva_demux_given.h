// SPDX-License-Identifier: LGPL-2.1-or-later
// The contents that a filter was given: numbers other than 0, in a table of which half at most is
// taken. Each section is looked up and put in, so neither allocates but when the table grows.
#ifndef DEMUX_ORVA_DEMUX_GIVEN_H
#define DEMUX_ORVA_DEMUX_GIVEN_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace si::demux {

class given_contents {
public:
    std::size_t size() const { return count; }
    bool contains(std::uint64_t content) const
    {
        return content != 0 && count != 0 && slots[slot_of(content)] == content;
    }
    void insert(std::uint64_t content)
    {
        if (2 * (count + 1) > slots.size())
            grow();
        put(content);
    }
    // What is small stays for the next; what grew goes back.
    void clear()
    {
        if (slots.size() > kept_slots)
            slots = std::vector<std::uint64_t>{};
        else if (count != 0)
            slots.assign(slots.size(), 0);
        count = 0;
    }

private:
    static constexpr std::size_t kept_slots = 256;

    // Contents are numbered one after the other: multiplied, they lie far apart.
    std::size_t slot_of(std::uint64_t content) const
    {
        const std::size_t mask = slots.size() - 1;
        auto at =
            static_cast<std::size_t>(content * 0x9E3779B97F4A7C15 >> (64 - std::bit_width(mask)));
        while (slots[at] != 0 && slots[at] != content)
            at = (at + 1) & mask;
        return at;
    }
    void put(std::uint64_t content)
    {
        std::uint64_t &slot = slots[slot_of(content)];
        count += slot == 0 ? 1 : 0;
        slot = content;
    }
    void grow()
    {
        const std::vector<std::uint64_t> former =
            std::exchange(slots, std::vector<std::uint64_t>(slots.empty() ? 16 : 2 * slots.size()));
        count = 0;
        for (const std::uint64_t content : former)
            if (content != 0)
                put(content);
    }

    std::vector<std::uint64_t> slots; // a power of two of them; 0: free
    std::size_t count = 0;
};

} // namespace si::demux

#endif
