// SPDX-License-Identifier: LGPL-2.1-or-later
// What every getter owes its caller, checked in one place. For unit tests with the fake platform.
#ifndef TESTS_SUPPORT_GETTERS_H
#define TESTS_SUPPORT_GETTERS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/result.h"

namespace test {

// What a list getter answered.
template <class T>
struct listing {
    std::uint32_t result;
    std::uint32_t count;
    std::vector<T> items;
};

// Asks with an array of exactly that many elements, so that a sanitizer sees the one too many. get
// is called with the array and the count.
template <class T, class Get>
listing<T> ask(Get get, std::uint32_t capacity)
{
    const std::unique_ptr<T[]> room{new T[capacity]{}};
    std::uint32_t count = capacity;
    const std::uint32_t result = get(room.get(), &count);
    EXPECT_LE(count, capacity);
    return {result, count, {room.get(), room.get() + std::min(count, capacity)}};
}

// The list comes out whole when there is room, also just enough of it; with less it is cut, the
// result says so and, where full_text is not empty, the log does.
template <class T, class Get, class Same = std::equal_to<>>
void expect_list(Get get, const std::vector<T> &expected,
                 const std::string &full_text = "need more room\n", Same same = {})
{
    ASSERT_FALSE(expected.empty());
    const auto size = static_cast<std::uint32_t>(expected.size());
    for (const std::uint32_t capacity : {size, size + 1, size + 300}) {
        const auto whole = ask<T>(get, capacity);
        EXPECT_EQ(whole.result, ORVA_SI_OK) << "capacity " << capacity;
        EXPECT_TRUE(std::ranges::equal(whole.items, expected, same)) << "capacity " << capacity;
    }
    for (const std::uint32_t capacity : {size - 1, 0u}) {
        fake::clear_log();
        const auto part = ask<T>(get, capacity);
        EXPECT_EQ(part.result, ORVA_SI_ARRAY_FULL) << "capacity " << capacity;
        EXPECT_EQ(part.count, capacity);
        const std::vector<T> head(expected.begin(), expected.begin() + capacity);
        EXPECT_TRUE(std::ranges::equal(part.items, head, same)) << "capacity " << capacity;
        EXPECT_TRUE(full_text.empty() || fake::logged(2, full_text)) << fake::log_text();
    }
}

// An empty answer with that result, and a count of 0 whatever the capacity.
template <class T, class Get>
void expect_empty(Get get, std::uint32_t result)
{
    for (const std::uint32_t capacity : {5u, 0u}) {
        const auto none = ask<T>(get, capacity);
        EXPECT_EQ(none.result, result) << "capacity " << capacity;
        EXPECT_EQ(none.count, 0u) << "capacity " << capacity;
    }
}

// The call is refused for a missing argument of that name, before any lock is taken.
template <class Call>
void expect_refused(Call call, const std::string &name)
{
    fake::clear_log();
    EXPECT_EQ(call(), ORVA_SI_NULL_ARGUMENT) << name;
    EXPECT_TRUE(fake::logged(2, "[" + name + "\n")) << fake::log_text();
    EXPECT_EQ(fake::times_logged("~~~Mutex Lock~~~\n"), 0u);
}

} // namespace test

#endif
