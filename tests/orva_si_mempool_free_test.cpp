// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/mempool_fixture.h"

namespace {

using namespace test;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using MemoryPoolFallBack = MemoryPool;
using MemoryPoolFree = MemoryPool;
using MemoryPoolCleanup = MemoryPool;
using MemoryPoolThreads = MemoryPool;

// --- what the pool cannot serve

TEST_F(MemoryPoolFallBack, AsksTheHeapForTheSizeAndAHeader)
{
    make(64);
    void *const memory = watched_malloc(100);
    ASSERT_NE(memory, nullptr);
    EXPECT_THAT(heap().asked, ElementsAre(104U));
    EXPECT_EQ(header_of(memory), heap().answers.front());
    EXPECT_EQ(header(memory), allocated_bit | 104U);
    EXPECT_TRUE(all_zero(memory, 100));
    orva_mempool_free(memory);
}

TEST_F(MemoryPoolFallBack, IsCountedWhenServedAndNotWhenFreed)
{
    make(64);
    std::vector<void *> taken;
    for (std::uint32_t served = 0; served < 10; ++served) {
        EXPECT_EQ(orva_mempool_getmalloccnt(), served);
        taken.push_back(take(61 + served));
    }
    std::ranges::for_each(taken, orva_mempool_free);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 10U);
    take_at(60, 0, 64);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 10U);
}

TEST_F(MemoryPoolFallBack, GivesTheHeaderBackToTheHeap)
{
    make(64);
    void *const memory = take(100);
    watched_free(memory);
    EXPECT_THAT(heap().freed, ElementsAre(static_cast<void *>(header_of(memory))));
    expect_one_free_root(64);
}

TEST_F(MemoryPoolFallBack, IsNoPartOfTheUsedBytes)
{
    make(2048);
    void *const memory = take(5000);
    EXPECT_EQ(info(), info_line(base, 2, 0, 1));
    orva_mempool_free(memory);
    EXPECT_EQ(info(), info_line(base, 2, 0, 1));
}

TEST_F(MemoryPoolFallBack, OfAnExhaustedHeapIsNullAndNotCounted)
{
    make(64);
    EXPECT_EQ(exhausted_malloc(100), nullptr);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    void *const served = exhausted_malloc(60);
    ASSERT_NE(served, nullptr);
    EXPECT_EQ(offset(served), 0);
    EXPECT_EQ(exhausted_malloc(0), nullptr);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
}

TEST_F(MemoryPoolFallBack, ServesEverythingBeforeThereIsAPool)
{
    std::vector<void *> early;
    for (const std::uint32_t size : {0U, 1U, 60U, 5000U}) {
        early.push_back(take(size));
        EXPECT_EQ(header(early.back()), allocated_bit | (size + 4));
    }
    EXPECT_EQ(orva_mempool_getmalloccnt(), 4U);
    EXPECT_EQ(exhausted_malloc(10), nullptr);
    make(64);
    std::ranges::for_each(early, orva_mempool_free);
    expect_one_free_root(64);
}

TEST_F(MemoryPoolFallBack, ServesEverythingAfterCleanup)
{
    make(64);
    ASSERT_EQ(orva_mempool_cleanup(), yes);
    void *const memory = take(20);
    EXPECT_TRUE(from_heap(memory));
    orva_mempool_free(memory);
}

TEST_F(MemoryPoolFallBack, OfUpToAGibibyteIsAskedForInSilence)
{
    make(64);
    for (const std::uint32_t size : {61U, 0x10000000U, 0x3FFFFFFBU, 0x3FFFFFFCU})
        EXPECT_THAT(printed([size] { EXPECT_EQ(exhausted_malloc(size), nullptr); }), IsEmpty());
}

TEST_F(MemoryPoolFallBack, WarnsOfABlockWithoutAPowerOfTwoAndAsksTheHeap)
{
    make(64);
    for (const std::uint32_t size : {0x7FFFFFFDU, 0x80000000U, 0xFFFFFF00U, 0xFFFFFFFBU}) {
        const std::string text =
            printed([size] { EXPECT_EQ(watched_malloc(size), nullptr) << size; });
        EXPECT_THAT(text, AnyOf(block_too_large(size), block_too_large(size + 4)));
        EXPECT_THAT(heap().asked, ElementsAre(std::size_t{size} + 4));
    }
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    expect_one_free_root(64);
}

TEST_F(MemoryPoolFallBack, WithoutRoomForTheHeaderInTheNumberRangeIsNull)
{
    make(64);
    for (const std::uint32_t size : {0xFFFFFFFCU, 0xFFFFFFFDU, 0xFFFFFFFEU, 0xFFFFFFFFU})
        EXPECT_EQ(orva_mempool_malloc(size), nullptr) << size;
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    expect_one_free_root(64);
}

TEST_F(MemoryPoolFallBack, OfMoreThanAGibibyteIsStillKnownAsTheHeaps)
{
    make(64);
    heap().folded = true;
    void *const memory = watched_malloc(0x40000000);
    ASSERT_NE(memory, nullptr);
    EXPECT_THAT(heap().asked, ElementsAre(0x40000004U));
    EXPECT_EQ(header(memory) & (allocated_bit | pool_bit), allocated_bit);
    EXPECT_TRUE(all_zero(memory, 1U << 20));
    EXPECT_EQ(orva_mempool_getmalloccnt(), 1U);
    watched_free(memory);
    EXPECT_THAT(heap().freed, ElementsAre(static_cast<void *>(header_of(memory))));
    expect_one_free_root(64);
}

// --- free

TEST_F(MemoryPoolFree, OfNullDoesNothing)
{
    EXPECT_THAT(printed([] { orva_mempool_free(nullptr); }), IsEmpty());
    make(64);
    take_at(12, 0, 16);
    const std::string before = info();
    watched_free(nullptr);
    EXPECT_EQ(info(), before);
    EXPECT_THAT(heap().freed, IsEmpty());
}

TEST_F(MemoryPoolFree, ZeroesTheBlockAndNothingElse)
{
    make(1024);
    void *const before = take_at(60, 0, 64);
    void *const middle = take_at(40, 64, 64);
    void *const after = take_at(60, 128, 64);
    std::memset(before, 0x11, 60);
    std::memset(middle, 0x22, 60); // to the end of its block
    std::memset(after, 0x33, 60);
    orva_mempool_free(middle);
    EXPECT_EQ(word(64), 64U);
    EXPECT_TRUE(all_zero(base + 68, 60));
    EXPECT_TRUE(all_are(before, 60, 0x11));
    EXPECT_TRUE(all_are(after, 60, 0x33));
    EXPECT_EQ(header(before), used_block(64));
    EXPECT_EQ(header(after), used_block(64));
}

TEST_F(MemoryPoolFree, KeepsTheBlockWithThePool)
{
    make(1024);
    void *const memory = take(60);
    watched_free(memory);
    EXPECT_THAT(heap().freed, IsEmpty());
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
}

TEST_F(MemoryPoolFree, MergingStopsAtABuddyInUse)
{
    make(1024);
    void *const low = take_at(60, 0, 64);
    void *const buddy = take_at(60, 64, 64);
    orva_mempool_free(low);
    EXPECT_EQ(word(0), 64U);
    EXPECT_EQ(header(buddy), used_block(64));
    EXPECT_EQ(blocks(), 5);
    orva_mempool_free(buddy);
    expect_one_free_root(1024);
}

TEST_F(MemoryPoolFree, MergingStopsAtABuddyThatIsSplit)
{
    make(256);
    void *const low = take_at(60, 0, 64);
    void *const small = take_at(28, 64, 32);
    orva_mempool_free(low);
    EXPECT_EQ(word(0), 64U);
    EXPECT_EQ(word(64), used_block(32));
    EXPECT_EQ(blocks(), 4);
    orva_mempool_free(small);
    expect_one_free_root(256);
}

TEST_F(MemoryPoolFree, MergesWithTheBuddyBelow)
{
    make(256);
    void *const low = take_at(60, 0, 64);
    void *const high = take_at(60, 64, 64);
    void *const third = take_at(60, 128, 64);
    orva_mempool_free(low);
    orva_mempool_free(high);
    EXPECT_EQ(word(0), 128U);
    EXPECT_EQ(word(64), 0U); // merged away
    EXPECT_EQ(word(128), used_block(64));
    EXPECT_EQ(blocks(), 3);
    orva_mempool_free(third);
    expect_one_free_root(256);
}

TEST_F(MemoryPoolFree, MergesWithWhatLiesBeyondTheMemory)
{
    make(600);
    void *const lower = take_at(508, 0, 512);
    void *const upper = take_at(60, 512, 64);
    orva_mempool_free(upper);
    EXPECT_EQ(word(512), 512U);
    EXPECT_EQ(word(576), 0U);
    EXPECT_EQ(blocks(), 2);
    orva_mempool_free(lower);
    expect_one_free_root(1024);
}

TEST_F(MemoryPoolFree, MergesWithABuddyWhoseHeaderDoesNotFit)
{
    for (const std::int32_t size : {577, 578, 579}) {
        make(size);
        void *const lower = take_at(508, 0, 512);
        void *const upper = take_at(60, 512, 64); // its buddy at 576 has no room for a header
        EXPECT_TRUE(all_zero(base + 576, static_cast<std::size_t>(size - 576)));
        orva_mempool_free(lower);
        orva_mempool_free(upper);
        expect_one_free_root(1024);
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

// --- cleanup

TEST_F(MemoryPoolCleanup, WithoutAPoolFailsInSilence)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(orva_mempool_cleanup(), no); }), IsEmpty());
}

TEST_F(MemoryPoolCleanup, OfABlockInUseSaysSoAndLeavesThePool)
{
    make(1000);
    void *const memory = take_at(60, 0, 64);
    std::memset(memory, 0x77, 60);
    {
        const heap_watch watch;
        EXPECT_EQ(printed([] { EXPECT_EQ(orva_mempool_cleanup(), no); }),
                  "can't cleanup mempool!mempool are still in use, total:1000B, used:64B\n");
        EXPECT_THAT(heap().freed, testing::Not(Contains(base)));
    }
    EXPECT_TRUE(all_are(memory, 60, 0x77));
    take_at(60, 64, 64);
    orva_mempool_free(memory);
    EXPECT_EQ(printed([] { EXPECT_EQ(orva_mempool_cleanup(), no); }), in_use(1000, 64));
}

TEST_F(MemoryPoolCleanup, GivesTheMemoryBackInSilence)
{
    make(1000);
    orva_mempool_free(take(60));
    std::uint32_t done = no;
    const std::string text = printed([&done] {
        const heap_watch watch;
        done = orva_mempool_cleanup();
    });
    EXPECT_EQ(done, yes);
    EXPECT_THAT(text, IsEmpty());
    EXPECT_THAT(heap().freed, ElementsAre(static_cast<void *>(base)));
    EXPECT_EQ(orva_mempool_cleanup(), no);
    EXPECT_EQ(info(), info_line(nullptr, 0, 0, 0));
}

TEST_F(MemoryPoolCleanup, TakesNoNoticeOfBlocksOfTheHeap)
{
    make(64);
    void *const memory = take(100);
    std::memset(memory, 0x55, 100);
    EXPECT_EQ(orva_mempool_cleanup(), yes);
    EXPECT_TRUE(all_are(memory, 100, 0x55));
    watched_free(memory);
    EXPECT_THAT(heap().freed, ElementsAre(static_cast<void *>(header_of(memory))));
}

TEST_F(MemoryPoolCleanup, LeavesTheFallBackCount)
{
    make(64);
    expect_fall_back(100);
    expect_fall_back(100);
    EXPECT_EQ(orva_mempool_cleanup(), yes);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 2U);
}

// --- threads

TEST_F(MemoryPoolThreads, ShareThePoolWithoutSharingABlock)
{
    constexpr std::uint32_t rounds = 5000;
    make(1024);
    std::atomic<std::uint32_t> heap_blocks{0};
    const auto work = [&heap_blocks](std::uint8_t mark) {
        std::array<void *, 8> mine{};
        std::array<std::uint32_t, 8> sizes{};
        std::uint32_t random = mark;
        for (std::uint32_t round = 0; round < rounds; ++round) {
            random = random * 1664525U + 1013904223U;
            const std::size_t slot = (random >> 24U) % mine.size();
            if (mine.at(slot) != nullptr) {
                EXPECT_TRUE(all_are(mine.at(slot), sizes.at(slot), mark));
                orva_mempool_free(mine.at(slot));
                mine.at(slot) = nullptr;
                continue;
            }
            sizes.at(slot) = (random >> 8U) % 300;
            mine.at(slot) = orva_mempool_malloc(sizes.at(slot));
            EXPECT_TRUE(all_zero(mine.at(slot), sizes.at(slot)));
            std::memset(mine.at(slot), mark, sizes.at(slot));
            heap_blocks += from_heap(mine.at(slot)) ? 1 : 0;
        }
        std::ranges::for_each(mine, orva_mempool_free);
    };
    std::vector<std::thread> threads;
    for (std::uint8_t mark = 1; mark <= 4; ++mark)
        threads.emplace_back(work, mark);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(heap_blocks, 0U); // the pool was full at times
    EXPECT_EQ(orva_mempool_getmalloccnt(), heap_blocks);
    expect_one_free_root(1024);
    EXPECT_EQ(orva_mempool_cleanup(), yes);
}

TEST_F(MemoryPoolThreads, MakeOnePoolAtATimeTogether)
{
    constexpr int count = 8;
    std::atomic<int> succeeded{0};
    const std::string text = printed([&succeeded] {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back(
                [&succeeded] { succeeded += orva_mempool_init(1024) == yes ? 1 : 0; });
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_EQ(succeeded, count);
    std::string others;
    for (int i = 1; i < count; ++i)
        others += "mempool has been initialized previously!\n";
    EXPECT_EQ(text, others);
    void *const first = take(60);
    void *const second = take(60);
    EXPECT_EQ(header_of(second) - header_of(first), 64);
    orva_mempool_free(first);
    orva_mempool_free(second);
    EXPECT_EQ(orva_mempool_cleanup(), yes);
    EXPECT_EQ(orva_mempool_cleanup(), no);
}

} // namespace
