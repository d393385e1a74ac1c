// SPDX-License-Identifier: LGPL-2.1-or-later
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/mempool_fixture.h"

namespace {

using namespace test;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;

using MemoryPoolInit = MemoryPool;
using MemoryPoolMalloc = MemoryPool;
using MemoryPoolInfo = MemoryPool;

// --- init

TEST_F(MemoryPoolInit, ObtainsTheSizeAndNotItsPowerOfTwo)
{
    for (const std::int32_t size : {4, 5, 1000, 1023, 1024, 1025, 100000}) {
        EXPECT_EQ(watched_init(size), yes);
        EXPECT_THAT(heap().asked, ElementsAre(static_cast<std::size_t>(size)));
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

TEST_F(MemoryPoolInit, WritesOneFreeRootOfTheNextPowerOfTwoIntoZeros)
{
    struct row {
        std::int32_t size;
        std::uint32_t span;
    };
    for (const row &each : {row{4, 4}, row{5, 8}, row{8, 8}, row{9, 16}, row{1000, 1024},
                            row{1024, 1024}, row{1025, 2048}, row{100000, 131072}}) {
        make(each.size);
        expect_one_free_root(each.span);
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

TEST_F(MemoryPoolInit, IsSilent)
{
    EXPECT_THAT(printed([] { orva_mempool_init(1000); }), IsEmpty());
}

TEST_F(MemoryPoolInit, SecondSaysSoAndLeavesTheFirstPool)
{
    make(1000);
    void *const kept = take(60);
    std::memset(kept, 0x11, 60);
    expect_fall_back(2000);
    EXPECT_EQ(printed([] { EXPECT_EQ(watched_init(50000), yes); }),
              "mempool has been initialized previously!\n");
    EXPECT_THAT(heap().asked, IsEmpty());
    EXPECT_THAT(heap().freed, IsEmpty());
    EXPECT_EQ(orva_mempool_getmalloccnt(), 1U);
    EXPECT_TRUE(all_are(kept, 60, 0x11));
    EXPECT_EQ(printed([] { EXPECT_EQ(orva_mempool_cleanup(), no); }), in_use(1000, 64));
    take_at(60, 64, 64);
}

TEST_F(MemoryPoolInit, SecondIsAnsweredBeforeItsSizeIsLookedAt)
{
    make(1000);
    for (const std::int32_t size : {0, -1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(printed([size] { EXPECT_EQ(orva_mempool_init(size), yes); }),
                  "mempool has been initialized previously!\n");
    EXPECT_EQ(info(), info_line(base, 0, 0, 1));
}

TEST_F(MemoryPoolInit, SetsTheFallBackCountToZero)
{
    void *const early = take(10);
    make(64);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    expect_fall_back(100);
    EXPECT_EQ(orva_mempool_cleanup(), yes);
    make(64);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    orva_mempool_free(early);
}

TEST_F(MemoryPoolInit, FailsWhenTheHeapIsExhaustedAndCanBeRepeated)
{
    {
        const exhausted_heap none;
        EXPECT_EQ(watched_init(1000), no);
    }
    EXPECT_THAT(heap().asked, ElementsAre(1000U));
    EXPECT_EQ(orva_mempool_cleanup(), no);
    make(1000);
    take_at(60, 0, 64);
}

TEST_F(MemoryPoolInit, RefusesMoreThanAGibibyteWithoutAskingTheHeap)
{
    for (const std::int32_t size : {0x40000001, 0x400003FF, 0x40000400, 0x60000000, INT32_MAX}) {
        const std::string text = printed([size] { EXPECT_EQ(watched_init(size), no); });
        EXPECT_THAT(text, AnyOf(too_large(size), block_too_large(static_cast<std::uint32_t>(size)) +
                                                     too_large(size)));
        EXPECT_THAT(heap().asked, IsEmpty());
        EXPECT_EQ(orva_mempool_cleanup(), no);
    }
    make(64);
    expect_one_free_root(64);
}

TEST_F(MemoryPoolInit, TellsTheRefusedSizeInKibibytes)
{
    EXPECT_THAT(printed([] { orva_mempool_init(0x40000400); }),
                EndsWith("[func:orva_mempool_init line:508] input size is too large! "
                         "input:1048577k,max:1048576k\n"));
}

TEST_F(MemoryPoolInit, AsksTheHeapForAGibibyte)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(watched_init(0x40000000), no); }), IsEmpty());
    EXPECT_THAT(heap().asked, ElementsAre(gibibyte));
}

TEST_F(MemoryPoolInit, TakesAGibibyte)
{
    heap().folded = true;
    make(0x40000000);
    EXPECT_EQ(word(0), 0x40000000U);
    EXPECT_TRUE(all_zero(base + 4, 1U << 20));
    EXPECT_EQ(info(), info_line(base, 0x100000, 0, 1));
    {
        const heap_watch watch;
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
    EXPECT_THAT(heap().freed, Contains(base));
}

TEST_F(MemoryPoolInit, RefusesNegativeSizesInSilence)
{
    for (const std::int32_t size : {-1, -4, -1000, INT32_MIN + 1, INT32_MIN}) {
        EXPECT_THAT(printed([size] { EXPECT_EQ(orva_mempool_init(size), no); }), IsEmpty());
        EXPECT_EQ(orva_mempool_cleanup(), no);
    }
    make(64);
    take_at(60, 0, 64);
}

TEST_F(MemoryPoolInit, WithLessThanAHeaderLeavesEverythingToTheHeap)
{
    for (const std::int32_t size : {0, 1, 2, 3}) {
        EXPECT_THAT(printed([size] { EXPECT_EQ(orva_mempool_init(size), yes); }), IsEmpty());
        for (const std::uint32_t request : {0U, 1U, 4U, 1000U})
            expect_fall_back(request);
        EXPECT_EQ(orva_mempool_getmalloccnt(), 4U);
        EXPECT_THAT(info(),
                    MatchesRegex("\tmempool:0x[0-9a-f]+\ttotalsz:0K\tusedsz:0K\tnblk:[01]\n"));
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

TEST_F(MemoryPoolInit, WorksAgainAfterCleanup)
{
    make(64);
    orva_mempool_free(take_at(60, 0, 64));
    ASSERT_EQ(orva_mempool_cleanup(), yes);
    make(4096);
    take_at(1000, 0, 1024);
    EXPECT_EQ(info(), info_line(base, 4, 1, 3));
}

// --- malloc

TEST_F(MemoryPoolMalloc, OfNothingTakesABlockOfFourBytes)
{
    make(64);
    void *const none = take_at(0, 0, 4);
    EXPECT_EQ(none, base + 4);
    EXPECT_EQ(printed([] { EXPECT_EQ(orva_mempool_cleanup(), no); }), in_use(64, 4));
    take_at(0, 4, 4);
    orva_mempool_free(none);
    take_at(0, 0, 4);
}

TEST_F(MemoryPoolMalloc, TakesTheSizeAndItsHeaderRoundedUpToAPowerOfTwo)
{
    struct row {
        std::uint32_t size;
        std::uint32_t block;
    };
    make(65536);
    for (const row &each : {row{0, 4}, row{1, 8}, row{3, 8}, row{4, 8}, row{5, 16}, row{12, 16},
                            row{13, 32}, row{28, 32}, row{29, 64}, row{60, 64}, row{61, 128},
                            row{124, 128}, row{125, 256}, row{1020, 1024}, row{1021, 2048},
                            row{32764, 32768}, row{32765, 65536}, row{65532, 65536}}) {
        void *const memory = take_at(each.size, 0, each.block);
        EXPECT_EQ(printed([] { orva_mempool_cleanup(); }),
                  in_use(65536, static_cast<int>(each.block)));
        orva_mempool_free(memory);
        expect_one_free_root(65536);
    }
    expect_fall_back(65533);
}

TEST_F(MemoryPoolMalloc, OfSixtyBytesTakesSixtyFourAndTheNextTheirBuddy)
{
    make(1024);
    void *const first = take_at(60, 0, 64);
    void *const second = take_at(60, 64, 64);
    orva_mempool_free(first);
    orva_mempool_free(second);
    expect_one_free_root(1024);
    void *const third = take_at(60, 0, 64);
    void *const fourth = take_at(60, 64, 64);
    orva_mempool_free(fourth);
    orva_mempool_free(third);
    expect_one_free_root(1024);
}

TEST_F(MemoryPoolMalloc, SplitLeavesAFreeHeaderOfEachHalfAtItsUpperHalf)
{
    make(64);
    take_at(0, 0, 4);
    for (const std::uint32_t half : {4U, 8U, 16U, 32U})
        EXPECT_EQ(word(half), half);
    EXPECT_EQ(blocks(), 5);
    EXPECT_TRUE(all_zero(base + 12, 4));
    EXPECT_TRUE(all_zero(base + 20, 12));
    EXPECT_TRUE(all_zero(base + 36, 28));
}

TEST_F(MemoryPoolMalloc, TakesTheWholePool)
{
    make(1024);
    void *const all = take_at(1020, 0, 1024);
    std::memset(all, 0xFF, 1020);
    EXPECT_EQ(info(), info_line(base, 1, 1, 1));
    expect_fall_back(0);
    orva_mempool_free(all);
    expect_one_free_root(1024);
}

TEST_F(MemoryPoolMalloc, FillsThePoolWithTheSmallestBlocks)
{
    make(256);
    std::vector<void *> taken;
    for (std::ptrdiff_t at = 0; at < 256; at += 4)
        taken.push_back(take_at(0, at, 4));
    EXPECT_EQ(blocks(), 64);
    expect_fall_back(0);
    std::ranges::for_each(taken, orva_mempool_free);
    expect_one_free_root(256);
}

TEST_F(MemoryPoolMalloc, TakesTheLowestFreeBlockThatSufficesAndNotTheSmallest)
{
    make(1024);
    void *const low = take_at(252, 0, 256);
    take_at(252, 256, 256);
    take_at(60, 512, 64);
    void *const small = take_at(60, 576, 64);
    take_at(60, 640, 64);
    orva_mempool_free(small);
    orva_mempool_free(low);
    take_at(60, 0, 64);
    take_at(124, 128, 128);
    take_at(60, 64, 64);
    take_at(60, 576, 64);
}

TEST_F(MemoryPoolMalloc, PassesOverFreeBlocksThatAreTooSmall)
{
    make(256);
    void *const first = take_at(28, 0, 32);
    take_at(28, 32, 32);
    orva_mempool_free(first);
    take_at(60, 64, 64);
    take_at(60, 128, 64);
    take_at(28, 0, 32);
}

TEST_F(MemoryPoolMalloc, NeighboursThatAreNoBuddiesDoNotServeALargerRequest)
{
    make(256);
    std::array<void *, 4> quarters{};
    for (std::size_t i = 0; i < quarters.size(); ++i)
        quarters.at(i) = take_at(60, static_cast<std::ptrdiff_t>(i * 64), 64);
    orva_mempool_free(quarters[1]);
    orva_mempool_free(quarters[2]);
    EXPECT_EQ(blocks(), 4);
    expect_fall_back(124);
    take_at(60, 64, 64);
    take_at(60, 128, 64);
}

TEST_F(MemoryPoolMalloc, NeverHandsOutWhatEndsBehindThePool)
{
    make(1000);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 0U);
    void *const large = take(600);
    EXPECT_EQ(header(large), allocated_bit | 604U);
    EXPECT_EQ(orva_mempool_getmalloccnt(), 1U);
    EXPECT_EQ(info(), info_line(base, 0, 0, 1));
    orva_mempool_free(large);
    take_at(252, 0, 256);
    take_at(252, 256, 256);
    take_at(252, 512, 256);
    expect_fall_back(252); // 768 to 1024
    take_at(124, 768, 128);
    expect_fall_back(124); // 896 to 1024
    take_at(60, 896, 64);
    expect_fall_back(60); // 960 to 1024
    take_at(28, 960, 32);
    expect_fall_back(12); // 992 to 1008
    take_at(4, 992, 8);
    expect_fall_back(0);
    EXPECT_EQ(printed([] { orva_mempool_cleanup(); }), in_use(1000, 1000));
}

TEST_F(MemoryPoolMalloc, ServesALastBlockThatEndsWithThePool)
{
    for (const std::int32_t size : {12, 68, 1028, 65540}) {
        make(size);
        const auto body = static_cast<std::uint32_t>(size - 4);
        void *const most = take_at(body - 4, 0, body);
        void *const last = take_at(0, size - 4, 4);
        expect_fall_back(0);
        orva_mempool_free(most);
        orva_mempool_free(last);
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

TEST_F(MemoryPoolMalloc, OfBlocksWithoutRoomForAHeaderFallsBack)
{
    for (const std::int32_t size : {5, 6, 7}) {
        make(size);
        void *const only = take_at(0, 0, 4);
        expect_fall_back(0);
        orva_mempool_free(only);
        expect_one_free_root(8);
        expect_fall_back(1); // 8 bytes, of which the last are not there
        EXPECT_EQ(orva_mempool_cleanup(), yes);
    }
}

TEST_F(MemoryPoolMalloc, SmallestPoolServesOneRequestOfNothing)
{
    make(4);
    expect_fall_back(1);
    void *const only = take_at(0, 0, 4);
    expect_fall_back(0);
    orva_mempool_free(only);
    expect_one_free_root(4);
}

TEST_F(MemoryPoolMalloc, OfABlockBeyondThePoolLeavesItSplit)
{
    make(600);
    void *const lower = take_at(508, 0, 512);
    EXPECT_EQ(word(512), 512U);
    expect_fall_back(252); // 512 to 768
    EXPECT_EQ(word(512), 256U);
    orva_mempool_free(lower);
    EXPECT_EQ(word(0), 512U);
    take_at(508, 0, 512);
    take_at(60, 512, 64);
}

TEST_F(MemoryPoolMalloc, IsZeroAgainAfterAFree)
{
    make(1024);
    for (const std::uint32_t size : {1020U, 60U, 508U, 0U, 200U, 1020U}) {
        void *const memory = take_at(size, 0, std::bit_ceil(size + 4));
        std::memset(memory, 0xFF, size);
        orva_mempool_free(memory);
    }
    void *const first = take(60);
    void *const second = take(60);
    std::memset(first, 0xEE, 60);
    std::memset(second, 0xDD, 60);
    orva_mempool_free(first);
    orva_mempool_free(second);
    EXPECT_TRUE(all_zero(take_at(124, 0, 128), 124));
}

// --- printinfo

TEST_F(MemoryPoolInfo, WithoutAPoolIsAllZero)
{
    EXPECT_EQ(info(), "\tmempool:0x0\ttotalsz:0K\tusedsz:0K\tnblk:0\n");
}

TEST_F(MemoryPoolInfo, IsOneLineOfWholeKibibytesAndAllBlocks)
{
    make(10000);
    EXPECT_EQ(info(), info_line(base, 9, 0, 1));
    take_at(1000, 0, 1024);
    EXPECT_EQ(info(), info_line(base, 9, 1, 5)); // and 1024, 2048, 4096, 8192
    take_at(500, 1024, 512);
    EXPECT_EQ(info(), info_line(base, 9, 1, 6));
    take_at(500, 1536, 512);
    EXPECT_EQ(info(), info_line(base, 9, 2, 6));
}

TEST_F(MemoryPoolInfo, EndsAtAHeaderThatWasOverwritten)
{
    make(1024);
    take_at(60, 0, 64);
    void *const damaged = take_at(60, 64, 64);
    std::memset(header_of(damaged), 0, 4);
    EXPECT_THAT(info(), MatchesRegex("\tmempool:0x[0-9a-f]+\ttotalsz:1K\tusedsz:0K\tnblk:[12]\n"));
}

// --- damage

// Runs in a child: standard output is what is looked at.
[[noreturn]] void malloc_with_output_on_stderr(std::uint32_t size)
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    orva_mempool_malloc(size);
    std::_Exit(0);
}

TEST_F(MemoryPoolMalloc, AbortsAtAHeaderOfSizeZero)
{
    make(1024);
    void *const first = take_at(60, 0, 64);
    void *const second = take_at(60, 64, 64);
    std::memset(header_of(second), 0, 4);
    EXPECT_EXIT(malloc_with_output_on_stderr(60), testing::KilledBySignal(SIGABRT),
                formatted("unknow error!blksz less than 0\\. start:0x%x sz:-?[0-9]+\n",
                          low32(header_of(second))));
    std::memset(header_of(first), 0, 4);
    EXPECT_EXIT(malloc_with_output_on_stderr(0), testing::KilledBySignal(SIGABRT),
                formatted("unknow error!blksz less than 0\\. start:0x%x sz:-?[0-9]+\n",
                          low32(header_of(first))));
}

TEST_F(MemoryPoolMalloc, DoesNotReachADamagedHeaderBehindAFreeBlock)
{
    make(1024);
    void *const first = take_at(60, 0, 64);
    void *const second = take_at(60, 64, 64);
    orva_mempool_free(first);
    std::memset(header_of(second), 0, 4);
    take_at(60, 0, 64);
}

} // namespace
