// SPDX-License-Identifier: LGPL-2.1-or-later
// Getters of all kinds asked in one way, so that tests of what they share can be tables. The memory
// that they fill is of exactly its size, for a sanitizer to see what is written beyond.
#ifndef TESTS_SUPPORT_QUESTIONS_H
#define TESTS_SUPPORT_QUESTIONS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <vector>

#include "orva_si/result.h"
#include "support/getters.h"

namespace test {

// The result, and how many entries came with it: 1 for a single value.
struct answer {
    std::uint32_t result;
    std::uint32_t count;

    bool operator==(const answer &) const = default;
};
inline void PrintTo(const answer &of, std::ostream *out)
{
    *out << "result " << of.result << " count " << of.count;
}

// How a getter of one table is asked: by the id of the table, with so much room for a list, and
// with each of its pointers null.
struct asking {
    std::function<answer(std::uint32_t id, std::uint32_t capacity)> ask;
    std::vector<std::function<std::uint32_t()>> ask_without;
    bool sums_up = false; // lists and counts; others answer from the first place that can
};

// One value, or a list, in memory of exactly its size.
template <class T, class Get>
asking value(Get get)
{
    return {.ask =
                [get](std::uint32_t id, std::uint32_t) {
                    const auto room = std::make_unique<T>();
                    const std::uint32_t result = get(id, room.get());
                    return answer{result, result == ORVA_SI_OK};
                },
            .ask_without = {[get] { return get(1, static_cast<T *>(nullptr)); }}};
}
template <class T, class Get>
asking list(Get get)
{
    const auto room = std::make_shared<T>();
    const auto capacity = std::make_shared<std::uint32_t>(1);
    return {.ask =
                [get](std::uint32_t id, std::uint32_t most) {
                    const auto asked = test::ask<T>(
                        [&](T *out, std::uint32_t *count) { return get(id, out, count); }, most);
                    return answer{asked.result, asked.count};
                },
            .ask_without = {
                [=] {
                    const std::uint32_t result = get(1, static_cast<T *>(nullptr), capacity.get());
                    EXPECT_EQ(*capacity, 1u);
                    return result;
                },
                [=] { return get(1, room.get(), static_cast<std::uint32_t *>(nullptr)); }},
            .sums_up = true};
}
// Bytes: every sample has one. The length changes on success only.
template <class Get>
asking bytes(Get get)
{
    auto way = list<std::uint8_t>(get);
    const auto ask = way.ask;
    way.ask = [ask](std::uint32_t id, std::uint32_t capacity) {
        const answer asked = ask(id, capacity);
        return asked.result == ORVA_SI_OK ? asked : answer{asked.result, 0};
    };
    way.sums_up = false;
    return way;
}
template <class Get>
asking number(Get get)
{
    return {.ask =
                [get](std::uint32_t id, std::uint32_t) {
                    std::uint32_t count = 0xDEAD;
                    const std::uint32_t result = get(id, &count);
                    return answer{result, count};
                },
            .ask_without = {[get] { return get(1, static_cast<std::uint32_t *>(nullptr)); }},
            .sums_up = true};
}

} // namespace test

#endif
