// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/background.h"
#include "orva_si/filter.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint32_t unknown_service = 0x20063;
constexpr std::uint32_t still_running = 0x20064;

class Service : public testing::Test {
protected:
    Service() { EXPECT_EQ(Si_BG_InitServiceList(), 0u); }
    static fake::timer &timer(std::uint32_t id) { return fake::timers().timers.at(id); }
};

TEST(ServiceList, StartsTheThreadAndRegistersThreePausedServices)
{
    ASSERT_EQ(Si_BG_InitServiceList(), 0u);
    EXPECT_THAT(fake::timers().inits, ElementsAre("SIBGThread"));
    EXPECT_TRUE(fake::timers().all_paused);
    const std::vector<std::string> names{"Si_BG_CheckPMT", "Si_BG_CheckActualPFEit",
                                         "Si_BG_CheckActualSchEit"};
    ASSERT_THAT(fake::timers().timers, SizeIs(3));
    for (std::uint32_t id = 0; id < 3; ++id) {
        const fake::timer &timer = fake::timers().timers[id];
        EXPECT_EQ(timer.name, names[id]);
        EXPECT_EQ(timer.interval_ms, 1000u);
        EXPECT_EQ(timer.repeat, 1u);
        EXPECT_EQ(timer.user, 0u);
        EXPECT_TRUE(timer.paused);

        const SiBgService *service = FindBGServiceByID(id);
        ASSERT_NE(service, nullptr);
        EXPECT_EQ(service->id, id);
        EXPECT_EQ(service->name, names[id]);
        EXPECT_EQ(service->timer_id, id);
        EXPECT_EQ(service->interval, 1000u);
        EXPECT_EQ(service->enabled, 1);
        EXPECT_EQ(service->paused, 1);
        EXPECT_EQ(service->user, 0u);
    }
}

TEST(ServiceList, NamesTheServiceFunctions)
{
    EXPECT_EQ(FindBGServiceByID(0)->service, Si_SectFlt_PmtBgService);
    EXPECT_EQ(FindBGServiceByID(1)->service, Si_SectFlt_ActPfEitBgService);
    EXPECT_EQ(FindBGServiceByID(2)->service, Si_SectFlt_ActSchEitBgService);
    EXPECT_EQ(FindBGServiceByID(3), nullptr);
}

TEST(ServiceList, FailsWithoutATimerThread)
{
    fake::timers().init_result = -1;
    EXPECT_EQ(Si_BG_InitServiceList(), 1u);
    EXPECT_THAT(fake::timers().timers, IsEmpty());
    EXPECT_EQ(FindBGServiceByID(0)->enabled, 0);
}

TEST(ServiceList, NothingIsKnownBeforeItIsMade)
{
    EXPECT_EQ(Si_BG_SetServiceInterval(0, 100), unknown_service);
    EXPECT_EQ(Si_BG_PauseService(0), unknown_service);
    EXPECT_EQ(Si_BG_ResumeService(0), unknown_service);
    EXPECT_EQ(Si_BG_InsertFastService(0), unknown_service);
    EXPECT_EQ(Si_BG_WaitServiceTerminate(0), unknown_service);
    EXPECT_EQ(Si_BG_WaitAllServiceTerminate(), 0u);
}

TEST_F(Service, UnknownIdsAreRefused)
{
    EXPECT_EQ(Si_BG_SetServiceInterval(3, 100), unknown_service);
    EXPECT_EQ(Si_BG_PauseService(3), unknown_service);
    EXPECT_EQ(Si_BG_ResumeService(3), unknown_service);
    EXPECT_EQ(Si_BG_InsertFastService(0xFFFFFFFF), unknown_service);
    EXPECT_EQ(Si_BG_WaitServiceTerminate(3), unknown_service);
}

TEST_F(Service, TimerRunsTheServiceOfItsOwnRow)
{
    static std::vector<int> runs;
    FindBGServiceByID(0)->service = [] { return runs.push_back(0), 10u; };
    FindBGServiceByID(1)->service = [] { return runs.push_back(1), 11u; };
    FindBGServiceByID(2)->service = [] { return runs.push_back(2), 12u; };
    for (const std::uint32_t id : {1u, 0u, 2u})
        EXPECT_EQ(timer(id).function(timer(id).user), 10 + id);
    EXPECT_THAT(runs, ElementsAre(1, 0, 2));
}

TEST_F(Service, IntervalBelowTheShortestIsRefused)
{
    EXPECT_EQ(Si_BG_SetServiceInterval(0, 99), 1u);
    EXPECT_TRUE(fake::logged(4, "Time Interval is too small:99, min:100\n")) << fake::log_text();
    EXPECT_EQ(FindBGServiceByID(0)->interval, 1000u);
    EXPECT_EQ(timer(0).interval_ms, 1000u);
    EXPECT_EQ(Si_BG_SetServiceInterval(0, -5), 1u);
    EXPECT_TRUE(fake::logged(4, "Time Interval is too small:-5, min:100\n")) << fake::log_text();
}

TEST_F(Service, IntervalIsTestedBeforeTheId)
{
    EXPECT_EQ(Si_BG_SetServiceInterval(3, 99), 1u);
}

TEST_F(Service, IntervalFromTheShortestOnIsTaken)
{
    EXPECT_EQ(Si_BG_SetServiceInterval(0, 100), 0u);
    EXPECT_EQ(FindBGServiceByID(0)->interval, 100u);
    EXPECT_EQ(timer(0).interval_ms, 100u);
    EXPECT_EQ(timer(1).interval_ms, 1000u);
}

TEST_F(Service, ResumeAndPauseReachTheTimerAndTheRecord)
{
    EXPECT_EQ(Si_BG_ResumeService(1), 0u);
    EXPECT_FALSE(timer(1).paused);
    EXPECT_EQ(FindBGServiceByID(1)->paused, 0);
    EXPECT_TRUE(timer(0).paused);
    EXPECT_EQ(Si_BG_PauseService(1), 0u);
    EXPECT_TRUE(timer(1).paused);
    EXPECT_EQ(FindBGServiceByID(1)->paused, 1);
}

TEST_F(Service, PauseOfAPausedOneAndResumeOfARunningOneLeaveTheTimerAlone)
{
    timer(2).paused = false; // would be set again by a second pause
    EXPECT_EQ(Si_BG_PauseService(2), 0u);
    EXPECT_FALSE(timer(2).paused);
    Si_BG_ResumeService(2);
    timer(2).paused = true;
    EXPECT_EQ(Si_BG_ResumeService(2), 0u);
    EXPECT_TRUE(timer(2).paused);
}

TEST_F(Service, EnablingAndDisablingAllLeavesEachPausedFlag)
{
    Si_BG_ResumeService(1);
    EXPECT_EQ(Si_BG_EnableAllService(), 0u);
    EXPECT_FALSE(fake::timers().all_paused);
    EXPECT_EQ(Si_BG_DisableAllService(), 0u);
    EXPECT_TRUE(fake::timers().all_paused);
    EXPECT_EQ(FindBGServiceByID(0)->paused, 1);
    EXPECT_EQ(FindBGServiceByID(1)->paused, 0);
    EXPECT_TRUE(timer(0).paused);
    EXPECT_FALSE(timer(1).paused);
}

TEST_F(Service, FastRunOfAPausedOneIsRefusedAndDoesNotHappen)
{
    EXPECT_EQ(Si_BG_InsertFastService(0), unknown_service);
    EXPECT_EQ(timer(0).triggered, 0u);
}

TEST_F(Service, FastRunTriggersTheTimerOnce)
{
    Si_BG_ResumeService(0);
    EXPECT_EQ(Si_BG_InsertFastService(0), 0u);
    EXPECT_EQ(timer(0).triggered, 1u);
    EXPECT_EQ(timer(1).triggered, 0u);
}

TEST_F(Service, WaitEndsAtOnceWhenItDoesNotRun)
{
    EXPECT_EQ(Si_BG_WaitServiceTerminate(1), 0u);
    EXPECT_THAT(fake::timers().delays, IsEmpty());
}

TEST_F(Service, WaitPollsEveryTenMillisecondsUntilItEnds)
{
    int answers_left = 4;
    fake::timers().real_delay = false;
    fake::timers().running = [&](std::uint32_t id) {
        return id == 1 && answers_left-- > 0 ? 1u : 0u;
    };
    EXPECT_EQ(Si_BG_WaitServiceTerminate(1), 0u);
    EXPECT_FALSE(fake::timers().delays.empty());
    EXPECT_THAT(fake::timers().delays, Each(10u));
    EXPECT_LT(answers_left, 0);
    EXPECT_FALSE(fake::logged("Wating too long!\n"));
}

TEST_F(Service, WaitGivesUpAfterAHundredMilliseconds)
{
    fake::timers().running = [](std::uint32_t) { return 1u; };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Si_BG_WaitServiceTerminate(2), still_running);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{101});
    EXPECT_LE(fake::timers().delays.size(), 11u);
    EXPECT_TRUE(fake::logged(2, "Wating too long!\n")) << fake::log_text();
}

TEST_F(Service, WaitForAllWaitsForTheFirstRunningOneOnly)
{
    int answers_left = 3;
    fake::timers().real_delay = false;
    fake::timers().running = [&](std::uint32_t id) {
        if (id == 1)
            return answers_left-- > 0 ? 1u : 0u;
        return id == 2 ? 1u : 0u; // would never end
    };
    EXPECT_EQ(Si_BG_WaitAllServiceTerminate(), 0u);
    EXPECT_LT(answers_left, 0);
}

TEST_F(Service, WaitForAllTellsThatOneStillRuns)
{
    fake::timers().running = [](std::uint32_t id) { return id == 2 ? 1u : 0u; };
    EXPECT_EQ(Si_BG_WaitAllServiceTerminate(), still_running);
    EXPECT_TRUE(fake::logged(2, "Wating too long!\n")) << fake::log_text();
}

TEST_F(Service, WaitForAllEndsAtOnceWhenNoneRuns)
{
    EXPECT_EQ(Si_BG_WaitAllServiceTerminate(), 0u);
    EXPECT_THAT(fake::timers().delays, IsEmpty());
}

} // namespace
