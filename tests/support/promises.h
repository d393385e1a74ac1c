// SPDX-License-Identifier: LGPL-2.1-or-later
// What every getter promises its caller, whatever is broadcast: its result codes, its counts, and
// that it writes no more than it says. Each question is asked into memory that is alone in its heap
// block.
#ifndef TESTS_SUPPORT_PROMISES_H
#define TESTS_SUPPORT_PROMISES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "support/getter_table.h"

namespace test {

// ---- The caller's memory

inline constexpr std::uint8_t unwritten = 0xA5;

// Ends where its heap block ends, also when it is empty.
class exact_memory {
public:
    explicit exact_memory(std::size_t size) : bytes{size}, block{new std::uint8_t[in_front + size]}
    {
        std::memset(start(), unwritten, size);
    }
    std::uint8_t *start() const { return block.get() + in_front; }
    std::size_t size() const { return bytes; }
    bool is_unwritten_from(std::size_t at) const
    {
        if (at >= bytes)
            return true;
        const std::uint8_t *rest = start() + at; // each byte is like the one before
        return *rest == unwritten && std::memcmp(rest, rest + 1, bytes - at - 1) == 0;
    }
    bool begins_like(const exact_memory &other, std::size_t size) const
    {
        return std::memcmp(start(), other.start(), size) == 0;
    }

private:
    static constexpr std::size_t in_front = 16; // keeps the alignment
    std::size_t bytes;
    std::unique_ptr<std::uint8_t[]> block;
};

// More than any section of the sweep can fill.
inline std::uint32_t plenty(const getter &of)
{
    if (of.kind == gives::bytes)
        return 4096;
    return of.element > 256 ? 16 : 64;
}

struct told {
    std::uint32_t result;
    std::uint32_t count; // as the getter left it
    exact_memory memory;
};

inline told ask(const getter &of, std::uint32_t capacity)
{
    const bool counts = of.kind == gives::list || of.kind == gives::bytes;
    exact_memory memory{of.element * (counts ? capacity : 1)};
    const std::unique_ptr<std::uint32_t> count{new std::uint32_t{capacity}};
    const std::uint32_t result = of.ask(memory.start(), count.get());
    return {result, *count, std::move(memory)};
}

// ---- What is promised. Each answers what was broken, or nothing.

using complaint = const char *;
inline constexpr complaint none = nullptr;

inline bool is_success(const getter &of, std::uint32_t result)
{
    return result == ORVA_SI_OK || (of.kind == gives::list && result == ORVA_SI_FAILURE);
}

inline complaint judge_value(const getter &of, const told &answer)
{
    if (answer.result != ORVA_SI_OK && !of.ways.always_written &&
        !answer.memory.is_unwritten_from(0))
        return "wrote a value that it does not answer for";
    return none;
}

inline complaint judge_bytes(const told &answer, std::uint32_t capacity)
{
    if (answer.count > capacity)
        return "the length is above the capacity";
    if (answer.result != ORVA_SI_OK && answer.count != capacity)
        return "changed the length without success";
    if (!answer.memory.is_unwritten_from(answer.result == ORVA_SI_OK ? answer.count : 0))
        return "wrote behind the bytes";
    return none;
}

inline complaint judge_list(const getter &of, const told &answer, std::uint32_t capacity)
{
    // A capacity that is refused as an argument stays as it was.
    if (answer.count > capacity)
        return "the count is above the capacity";
    if (answer.result == ORVA_SI_ARRAY_FULL && answer.count != capacity)
        return "full below the capacity";
    if (answer.result != ORVA_SI_ARRAY_FULL && !is_success(of, answer.result) && answer.count != 0)
        return "counted elements that it does not answer for";
    if (!answer.memory.is_unwritten_from((answer.count + (of.ways.writes_ahead ? 1 : 0)) *
                                         of.element))
        return "wrote behind the last element";
    return none;
}

inline complaint judge(const getter &of, const told &answer, std::uint32_t capacity)
{
    if (std::ranges::find(of.codes, answer.result) == of.codes.end())
        return "answered a code that is not its own";
    switch (of.kind) {
    case gives::value:
        return judge_value(of, answer);
    case gives::bytes:
        return judge_bytes(answer, capacity);
    case gives::list:
        return judge_list(of, answer, capacity);
    case gives::nothing:
        break;
    }
    return none;
}

// How many elements or bytes there are, as far as there was room.
inline std::uint32_t amount(const getter &of, const told &whole)
{
    const bool cut = of.kind == gives::list && whole.result == ORVA_SI_ARRAY_FULL;
    return cut || is_success(of, whole.result) ? whole.count : 0;
}

// Against the answer with room for all: just enough room makes no difference, less of it cuts the
// list and says so, and bytes come whole or not at all.
inline complaint compare(const getter &of, const told &whole, const told &answer,
                         std::uint32_t capacity)
{
    const std::uint32_t all = amount(of, whole);
    if (capacity == 0 && of.kind == gives::list && answer.result == of.ways.without_room)
        return none;
    if (capacity >= all) {
        const bool looks_ahead = of.ways.writes_ahead || of.ways.checks_ahead;
        const bool may_be_full = looks_ahead && answer.result == ORVA_SI_ARRAY_FULL;
        if (answer.result != whole.result && !may_be_full)
            return "the result depends on room that is not needed";
    } else if (answer.result != ORVA_SI_ARRAY_FULL) {
        return "did not say that there was too little room";
    }
    const std::uint32_t filled =
        of.kind == gives::bytes && answer.result != ORVA_SI_OK ? 0 : std::min(all, capacity);
    if (of.kind == gives::list && answer.count != filled)
        return "the count is not that of what there was room for";
    if (!answer.memory.begins_like(whole.memory, filled * of.element))
        return "the first elements depend on the room";
    return none;
}

inline complaint first_broken_promise(const getter &of)
{
    const told whole = ask(of, plenty(of));
    if (const complaint broken = judge(of, whole, plenty(of)); broken != none)
        return broken;
    if (of.kind != gives::list && of.kind != gives::bytes)
        return none;
    const std::uint32_t all = amount(of, whole);
    std::set<std::uint32_t> capacities{0, 1, all};
    if (all != 0)
        capacities.insert(all - 1);
    for (const std::uint32_t capacity : capacities) {
        const told answer = ask(of, capacity);
        if (const complaint broken = judge(of, answer, capacity); broken != none)
            return broken;
        if (const complaint broken = compare(of, whole, answer, capacity); broken != none)
            return broken;
    }
    return none;
}

} // namespace test

#endif
