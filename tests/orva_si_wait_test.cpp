// SPDX-License-Identifier: LGPL-2.1-or-later
// The polling waits: how often they ask, how long they sleep.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/os.h"
#include "orva_si/result.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

bool real_sleep = false;
std::vector<std::uint32_t> sleeps; // milliseconds

} // namespace

extern "C" {

std::uint32_t __real_Orva_Sleep(std::uint32_t ms);
std::uint32_t __wrap_Orva_Sleep(std::uint32_t ms)
{
    sleeps.push_back(ms);
    return real_sleep ? __real_Orva_Sleep(ms) : 0;
}

} // extern "C"

namespace {

unsigned asked = 0;
unsigned true_at = 0; // the call that answers 1; 0: none

std::uint32_t predicate()
{
    return ++asked == true_at ? 7 : 0;
}

TEST(Wait2FuncTrue, OfZeroNeverAsks)
{
    true_at = 1;
    EXPECT_EQ(Orva_Wait2FuncTrue(0, predicate), 0u);
    EXPECT_EQ(asked, 0u);
    EXPECT_THAT(sleeps, IsEmpty());
    EXPECT_TRUE(fake::logged(4, "WaitCounter:0\n")) << fake::log_text();
}

TEST(Wait2FuncTrue, OfOneAsksOnceAndSleepsOnce)
{
    EXPECT_EQ(Orva_Wait2FuncTrue(1, predicate), 0u);
    EXPECT_EQ(asked, 1u);
    EXPECT_THAT(sleeps, ElementsAre(10u));
}

TEST(Wait2FuncTrue, DoesNotSleepWhenTheAnswerIsThere)
{
    true_at = 1;
    EXPECT_EQ(Orva_Wait2FuncTrue(1, predicate), 0u);
    EXPECT_EQ(asked, 1u);
    EXPECT_THAT(sleeps, IsEmpty());
    EXPECT_TRUE(fake::logged(4, "WaitCounter:1\n")) << fake::log_text();
}

TEST(Wait2FuncTrue, AsksHalfTheCountRoundedUpAndAnswersZeroAfterATimeOut)
{
    for (const auto &[count, rounds] : {std::pair{2u, 1u}, {3u, 2u}, {10u, 5u}, {2000u, 1000u}}) {
        asked = 0;
        sleeps.clear();
        fake::clear_log();
        EXPECT_EQ(Orva_Wait2FuncTrue(count, predicate), 0u);
        EXPECT_EQ(asked, rounds);
        EXPECT_THAT(sleeps, ElementsAreArray(std::vector<std::uint32_t>(rounds, 10)));
        EXPECT_TRUE(fake::logged(4, "WaitCounter:0\n")) << fake::log_text();
    }
}

TEST(Wait2FuncTrue, OfTheLargestCountWrapsToNone)
{
    EXPECT_EQ(Orva_Wait2FuncTrue(0xFFFFFFFF, predicate), 0u);
    EXPECT_EQ(asked, 0u);
}

TEST(Wait2FuncTrue, LogsTheRoundsThatAreLeft)
{
    true_at = 3;
    EXPECT_EQ(Orva_Wait2FuncTrue(10, predicate), 0u);
    EXPECT_EQ(asked, 3u);
    EXPECT_THAT(sleeps, ElementsAre(10u, 10u));
    EXPECT_TRUE(fake::logged(4, "WaitCounter:3\n")) << fake::log_text();
}

std::uint64_t slept()
{
    std::uint64_t sum = 0;
    for (const std::uint32_t ms : sleeps)
        sum += ms;
    return sum;
}

TEST(Wait2CondTrue, ReturnsAtOnceWhenTheConditionHolds)
{
    EXPECT_EQ(Orva_Wait2CondTrue(100, 1), 0u);
    EXPECT_EQ(Orva_Wait2CondTrue(100, 0x80), 0u);
    EXPECT_THAT(sleeps, IsEmpty());
}

TEST(Wait2CondTrue, SleepsHalfTheCountTimesTenMilliseconds)
{
    for (const auto &[count, ms] : {std::pair{100u, 500u}, {0u, 0u}, {1u, 10u}, {99u, 500u}}) {
        sleeps.clear();
        EXPECT_EQ(Orva_Wait2CondTrue(count, 0), ORVA_SI_CONDITION_FALSE);
        EXPECT_EQ(slept(), ms) << count;
    }
}

TEST(Wait2CondTrue, TakesHalfASecondForAHundred)
{
    real_sleep = true;
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    EXPECT_EQ(Orva_Wait2CondTrue(100, 0), ORVA_SI_CONDITION_FALSE);
    const auto took = clock::now() - begin;
    EXPECT_GE(took, std::chrono::milliseconds{500});
    EXPECT_LT(took, std::chrono::seconds{5});
}

} // namespace
