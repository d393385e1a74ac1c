// SPDX-License-Identifier: LGPL-2.1-or-later
// The memory pool against a plain model of its blocks, under random operations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/mempool.h"
#include "support/mempool_model.h"

namespace {

using test::header_size;
using test::model_pool;
using test::printed;
using test::word_at;

// What a client holds.
struct holding {
    std::uint8_t *memory = nullptr;
    std::uint32_t size = 0;
    std::optional<std::int64_t> at; // in the pool; nothing: of the system heap
    std::uint8_t mark = 0;
};

bool filled_with(const std::uint8_t *bytes, std::int64_t size, std::uint8_t value)
{
    return size <= 0 || test::all_are(bytes, static_cast<std::size_t>(size), value);
}

struct plan {
    std::int32_t size;
    std::uint32_t seed;
    int steps;
    std::uint32_t largest_request;
};

void PrintTo(const plan &each, std::ostream *out)
{
    *out << each.size << " bytes, seed " << each.seed;
}

class MemoryPoolModel : public testing::TestWithParam<plan> {
protected:
    ~MemoryPoolModel() override
    {
        for (const holding &each : held)
            orva_mempool_free(each.memory);
        orva_mempool_cleanup();
    }

    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); }

    // Makes the pool and learns where it stands: the first block is at its start.
    void make()
    {
        model = model_pool{GetParam().size};
        fall_backs = 0;
        base = nullptr;
        ASSERT_EQ(orva_mempool_init(GetParam().size), 1U);
        if (!model.has_header(0))
            return;
        void *const first = orva_mempool_malloc(0);
        ASSERT_NE(first, nullptr);
        base = static_cast<std::uint8_t *>(first) - header_size;
        orva_mempool_free(first);
    }

    // Mostly small, sometimes around a block size, sometimes anything.
    std::uint32_t some_size()
    {
        switch (below(4)) {
        case 0:
            return below(16);
        case 1:
            return (8U << below(8)) - 5 + below(3);
        case 2:
            return below(128);
        default:
            return below(GetParam().largest_request + 1);
        }
    }

    void allocate()
    {
        const std::uint32_t size = some_size();
        const auto expected = model.allocate(size);
        auto *const memory = static_cast<std::uint8_t *>(orva_mempool_malloc(size));
        ASSERT_NE(memory, nullptr);
        const bool in_pool = (word_at(memory - header_size) & 0x40000000U) != 0;
        ASSERT_EQ(in_pool, expected.has_value()) << "a request of " << size;
        if (expected) {
            ASSERT_EQ(memory - header_size - base, *expected) << "a request of " << size;
        } else {
            ++fall_backs;
            ASSERT_EQ(word_at(memory - header_size), 0x80000000U | (size + 4));
        }
        ASSERT_TRUE(filled_with(memory, size, 0)) << "a request of " << size;
        const auto mark = static_cast<std::uint8_t>(1 + below(255));
        std::memset(memory, mark, size);
        expect_alone(memory, size);
        held.push_back({memory, size, expected, mark});
    }

    // The new block touches no other and lies in the pool or apart from it.
    void expect_alone(const std::uint8_t *memory, std::uint32_t size) const
    {
        const auto start = reinterpret_cast<std::uintptr_t>(memory) - header_size;
        const auto end = reinterpret_cast<std::uintptr_t>(memory) + size;
        for (const holding &each : held) {
            const auto other = reinterpret_cast<std::uintptr_t>(each.memory);
            ASSERT_TRUE(end <= other - header_size || start >= other + each.size);
        }
        const auto pool = reinterpret_cast<std::uintptr_t>(base);
        const auto pool_end =
            pool + static_cast<std::uintptr_t>(std::max<std::int64_t>(model.total, 0));
        if (base == nullptr)
            return;
        if ((word_at(memory - header_size) & 0x40000000U) != 0) {
            ASSERT_TRUE(start >= pool && end <= pool_end);
        } else {
            ASSERT_TRUE(end <= pool || start >= pool_end);
        }
    }

    void release(std::size_t index)
    {
        const holding gone = held.at(index);
        held.at(index) = held.back();
        held.pop_back();
        ASSERT_TRUE(filled_with(gone.memory, gone.size, gone.mark)) << "a block of " << gone.size;
        orva_mempool_free(gone.memory);
        if (gone.at) {
            ASSERT_TRUE(filled_with(gone.memory, gone.size, 0)); // it is still the pool's memory
            model.release(*gone.at);
        }
    }

    void release_all()
    {
        while (!held.empty() && !HasFatalFailure())
            release(below(static_cast<std::uint32_t>(held.size())));
    }

    // Every byte of the pool: headers where the model has blocks, zero or the client's bytes
    // elsewhere.
    void compare_memory() const
    {
        if (base == nullptr)
            return;
        std::map<std::int64_t, const holding *> by_offset;
        for (const holding &each : held)
            if (each.at)
                by_offset[*each.at] = &each;
        for (const auto &[at, block] : model.blocks) {
            const std::uint8_t *const body = base + at + header_size;
            const std::int64_t end = std::min(at + block.size, model.total);
            const auto size = static_cast<std::uint32_t>(block.size);
            ASSERT_EQ(word_at(base + at), block.used ? 0xC0000000U | size : size) << "at " << at;
            const holding *const client = block.used ? by_offset.at(at) : nullptr;
            const std::int64_t written = client != nullptr ? client->size : 0;
            if (client != nullptr) {
                ASSERT_TRUE(filled_with(body, written, client->mark)) << "at " << at;
            }
            ASSERT_TRUE(filled_with(body + written, end - at - header_size - written, 0))
                << "at " << at;
        }
        const auto &[at, last] = *model.blocks.rbegin();
        const std::int64_t behind = at + last.size;
        ASSERT_TRUE(filled_with(base + behind, model.total - behind, 0));
    }

    void compare_numbers() const
    {
        ASSERT_EQ(orva_mempool_getmalloccnt(), fall_backs);
        unsigned address = 0;
        std::array<int, 3> seen{};
        const std::string line = printed(orva_mempool_printinfo);
        ASSERT_EQ(std::sscanf(line.c_str(), "\tmempool:0x%x\ttotalsz:%dK\tusedsz:%dK\tnblk:%d\n",
                              &address, &seen[0], &seen[1], &seen[2]),
                  4)
            << line;
        if (base != nullptr) {
            ASSERT_EQ(address, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(base)));
        }
        ASSERT_EQ(seen[0], model.total / 1024);
        ASSERT_EQ(seen[1], model.used / 1024);
        const auto counted = static_cast<std::int64_t>(model.blocks.size());
        ASSERT_GE(seen[2], counted);
        ASSERT_LE(seen[2], counted + model.blocks_without_header());
    }

    // To the byte, as long as something is in use.
    void compare_used() const
    {
        if (model.used == 0)
            return;
        std::array<char, 128> text{};
        std::snprintf(text.data(), text.size(),
                      "can't cleanup mempool!mempool are still in use, total:%dB, used:%dB\n",
                      GetParam().size, static_cast<int>(model.used));
        std::uint32_t result = 1;
        ASSERT_EQ(printed([&result] { result = orva_mempool_cleanup(); }), text.data());
        ASSERT_EQ(result, 0U);
    }

    void compare() const
    {
        ASSERT_NO_FATAL_FAILURE(compare_memory());
        ASSERT_NO_FATAL_FAILURE(compare_numbers());
        ASSERT_NO_FATAL_FAILURE(compare_used());
    }

    // Phases of growing and shrinking, so that the pool is full at times and empty at others.
    void step(int number)
    {
        const std::uint32_t chance = number / 200 % 2 == 0 ? 70 : 30;
        if (held.empty() || (held.size() < 200 && below(100) < chance))
            allocate();
        else
            release(below(static_cast<std::uint32_t>(held.size())));
    }

    std::mt19937 random{GetParam().seed};
    model_pool model{0};
    std::uint8_t *base = nullptr;
    std::vector<holding> held;
    std::uint32_t fall_backs = 0;
};

TEST_P(MemoryPoolModel, AgreesAfterEveryRandomOperation)
{
    ASSERT_NO_FATAL_FAILURE(make());
    const int pause = GetParam().size > 5000 ? 101 : 17;
    for (int number = 0; number < GetParam().steps; ++number) {
        ASSERT_NO_FATAL_FAILURE(step(number)) << "step " << number;
        if (number % pause == 0) {
            ASSERT_NO_FATAL_FAILURE(compare()) << "step " << number;
        }
    }
    ASSERT_NO_FATAL_FAILURE(release_all());
    ASSERT_NO_FATAL_FAILURE(compare());
    EXPECT_EQ(model.used, 0);
    if (std::has_single_bit(static_cast<std::uint32_t>(GetParam().size)) && base != nullptr) {
        EXPECT_EQ(word_at(base), static_cast<std::uint32_t>(GetParam().size));
        EXPECT_TRUE(filled_with(base + header_size, model.total - header_size, 0));
    }
    EXPECT_EQ(orva_mempool_cleanup(), 1U);
}

TEST_P(MemoryPoolModel, AgreesWhenThePoolIsMadeAnewBetween)
{
    ASSERT_NO_FATAL_FAILURE(make());
    for (int round = 0; round < 8; ++round) {
        for (int number = 0; number < GetParam().steps / 16; ++number)
            ASSERT_NO_FATAL_FAILURE(step(number)) << "round " << round << ", step " << number;
        ASSERT_NO_FATAL_FAILURE(compare());
        ASSERT_NO_FATAL_FAILURE(release_all());
        ASSERT_NO_FATAL_FAILURE(compare());
        ASSERT_EQ(orva_mempool_cleanup(), 1U);
        ASSERT_NO_FATAL_FAILURE(make());
    }
}

std::vector<plan> plans()
{
    std::vector<plan> all;
    for (const std::int32_t size :
         {0,    1,    2,    3,    4,    5,    6,    7,     8,     9,    11,   12,   13,
          15,   16,   17,   31,   33,   63,   64,   65,    67,    68,   100,  127,  129,
          255,  256,  257,  511,  513,  577,  580,  600,   767,   769,  1000, 1001, 1023,
          1024, 1025, 2047, 2049, 4095, 4096, 4097, 10000, 10001, 12289})
        all.push_back({size, 7000U + static_cast<std::uint32_t>(size), 2000,
                       static_cast<std::uint32_t>(size + size / 4 + 8)});
    all.push_back({65536, 1, 30000, 4096});
    all.push_back({65535, 2, 20000, 4096});
    all.push_back({100003, 3, 20000, 8192});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Sizes, MemoryPoolModel, testing::ValuesIn(plans()),
                         [](const testing::TestParamInfo<plan> &each) {
                             return std::to_string(each.param.size) + "Bytes";
                         });

// Without a pool the model is the system heap.
class NoMemoryPool : public testing::TestWithParam<std::int32_t> {};

TEST_P(NoMemoryPool, AllBlocksAreOfTheHeap)
{
    ASSERT_EQ(orva_mempool_init(GetParam()), 0U);
    std::mt19937 random{static_cast<std::uint32_t>(GetParam())};
    std::vector<holding> held;
    for (int step = 0; step < 5000; ++step) {
        if (held.size() < 100 && random() % 2 == 0) {
            const auto size = static_cast<std::uint32_t>(random() % 3000);
            auto *const memory = static_cast<std::uint8_t *>(orva_mempool_malloc(size));
            ASSERT_NE(memory, nullptr);
            ASSERT_EQ(word_at(memory - header_size), 0x80000000U | (size + 4));
            ASSERT_TRUE(filled_with(memory, size, 0));
            std::memset(memory, step & 0xFF, size);
            held.push_back({memory, size, std::nullopt, static_cast<std::uint8_t>(step & 0xFF)});
        } else if (!held.empty()) {
            std::swap(held.at(random() % held.size()), held.back());
            ASSERT_TRUE(filled_with(held.back().memory, held.back().size, held.back().mark));
            orva_mempool_free(held.back().memory);
            held.pop_back();
        }
    }
    for (const holding &each : held)
        orva_mempool_free(each.memory);
    EXPECT_EQ(orva_mempool_cleanup(), 0U);
}

INSTANTIATE_TEST_SUITE_P(RefusedSizes, NoMemoryPool,
                         testing::Values(-1, -4, -5, -1024, INT32_MIN, INT32_MAX),
                         [](const testing::TestParamInfo<std::int32_t> &each) {
                             return "Case" + std::to_string(each.index);
                         });

} // namespace
