// SPDX-License-Identifier: LGPL-2.1-or-later
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "orva_platform.h"

namespace {

using namespace std::chrono_literals;
using clock_type = std::chrono::steady_clock;

// A timer function that counts its calls and can be held.
class probe {
public:
    // Waits until there were that many calls; false after ten seconds.
    bool called(unsigned times)
    {
        std::unique_lock lock{mutex};
        return changed.wait_for(lock, 10s, [&] { return begins.size() >= times; });
    }
    bool ended(unsigned times)
    {
        std::unique_lock lock{mutex};
        return changed.wait_for(lock, 10s, [&] { return ends.size() >= times; });
    }
    std::size_t calls()
    {
        const std::lock_guard lock{mutex};
        return begins.size();
    }
    void hold()
    {
        const std::lock_guard lock{mutex};
        held = true;
    }
    void let_go()
    {
        const std::lock_guard lock{mutex};
        held = false;
        changed.notify_all();
    }
    clock_type::duration between_end_and_begin(std::size_t n)
    {
        const std::lock_guard lock{mutex};
        return begins.at(n + 1) - ends.at(n);
    }
    static std::uint32_t run(SiWord user)
    {
        auto &self = *reinterpret_cast<probe *>(user);
        std::unique_lock lock{self.mutex};
        self.begins.push_back(clock_type::now());
        self.changed.notify_all();
        if (self.inside) {
            lock.unlock();
            self.inside();
            lock.lock();
        }
        self.changed.wait(lock, [&] { return !self.held; });
        self.ends.push_back(clock_type::now());
        self.changed.notify_all();
        return 0;
    }
    SiWord word() { return reinterpret_cast<SiWord>(this); }

    std::function<void()> inside; // set before the timer runs

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<clock_type::time_point> begins;
    std::vector<clock_type::time_point> ends;
    bool held = false;
};

// Probes outlive the timers, which never end.
probe &new_probe()
{
    static std::vector<probe *> kept;
    kept.push_back(new probe);
    return *kept.back();
}

class Timer : public testing::Test {
protected:
    Timer() : handle{Orva_Util_Timer_Init("SIBGThread")} { EXPECT_GE(handle, 0); }
    ~Timer() override { Orva_Util_Timer_PauseAll(handle, 1); }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    std::uint32_t add(probe &of, std::uint32_t interval_ms, std::uint32_t repeat = 1) const
    {
        return Orva_Util_Timer_Add(handle, "probe", probe::run, of.word(), interval_ms, repeat);
    }
    std::uint32_t running(std::uint32_t id) const
    {
        std::uint32_t answer = 7;
        EXPECT_EQ(Orva_Util_Timer_GetRunningState(handle, id, &answer), 0u);
        return answer;
    }
    bool stops_running(std::uint32_t id) const
    {
        for (int i = 0; i < 1000 && running(id) != 0; ++i)
            Orva_Util_Delay(10);
        return running(id) == 0;
    }

    std::int32_t handle;
};

void quiet_while()
{
    Orva_Util_Delay(200); // many times the intervals in use
}

TEST_F(Timer, RunsAgainAndAgainWithItsWord)
{
    probe &p = new_probe();
    EXPECT_EQ(add(p, 5), 0u);
    EXPECT_TRUE(p.called(5));
}

TEST_F(Timer, IdsCountFromZeroForEachHandle)
{
    EXPECT_EQ(add(new_probe(), 60000), 0u);
    EXPECT_EQ(add(new_probe(), 60000), 1u);
    const std::int32_t other = Orva_Util_Timer_Init("other");
    EXPECT_NE(other, handle);
    EXPECT_EQ(Orva_Util_Timer_Add(other, "probe", probe::run, new_probe().word(), 60000, 1), 0u);
}

TEST_F(Timer, ThreadHasTheNameAndBlocksSignals)
{
    static std::string name;
    static int blocked = -1;
    probe &p = new_probe();
    p.inside = [] {
        char own[16] = {};
        prctl(PR_GET_NAME, own);
        name = own;
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM);
    };
    add(p, 1, 0);
    ASSERT_TRUE(p.ended(1));
    EXPECT_EQ(name, "SIBGThread");
    EXPECT_EQ(blocked, 1);
}

TEST_F(Timer, NamesLongerThanTheKernelKeepsAreCut)
{
    static std::string name;
    const std::int32_t other = Orva_Util_Timer_Init("a name much longer than fifteen characters");
    ASSERT_GE(other, 0);
    probe &p = new_probe();
    p.inside = [] {
        char own[16] = {};
        prctl(PR_GET_NAME, own);
        name = own;
    };
    Orva_Util_Timer_Add(other, nullptr, probe::run, p.word(), 1, 0);
    ASSERT_TRUE(p.ended(1));
    EXPECT_EQ(name, "a name much lon");
}

TEST_F(Timer, OneThatDoesNotRepeatIsCalledOnceAndThenPaused)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 5, 0);
    ASSERT_TRUE(p.ended(1));
    quiet_while();
    EXPECT_EQ(p.calls(), 1u);
    Orva_Util_Timer_Pause(handle, id, 0);
    EXPECT_TRUE(p.called(2));
}

TEST_F(Timer, IntervalRunsFromTheEndOfACallToTheNext)
{
    probe &p = new_probe();
    p.hold();
    add(p, 50);
    ASSERT_TRUE(p.called(1));
    Orva_Util_Delay(100);
    p.let_go();
    ASSERT_TRUE(p.called(2));
    EXPECT_GE(p.between_end_and_begin(0), 50ms);
}

TEST_F(Timer, PauseStopsOneTimerAndNotTheOthers)
{
    probe &first = new_probe();
    probe &second = new_probe();
    const std::uint32_t id = add(first, 5);
    add(second, 5);
    ASSERT_TRUE(first.called(1));
    EXPECT_EQ(Orva_Util_Timer_Pause(handle, id, 1), 0u);
    ASSERT_TRUE(stops_running(id));
    const auto before = first.calls();
    const auto of_the_other = second.calls();
    quiet_while();
    EXPECT_EQ(first.calls(), before);
    EXPECT_TRUE(second.called(static_cast<unsigned>(of_the_other) + 2));
}

TEST_F(Timer, ResumedTimerStartsAWholeInterval)
{
    probe &p = new_probe();
    Orva_Util_Timer_PauseAll(handle, 1);
    const std::uint32_t id = add(p, 100);
    Orva_Util_Timer_Pause(handle, id, 1);
    Orva_Util_Timer_PauseAll(handle, 0);
    Orva_Util_Delay(150);
    const auto resumed = clock_type::now();
    Orva_Util_Timer_Pause(handle, id, 0);
    ASSERT_TRUE(p.called(1));
    EXPECT_GE(clock_type::now() - resumed, 100ms);
}

TEST_F(Timer, ResumingOneThatRunsDoesNotPutItOff)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 300);
    for (int i = 0; i < 300 && p.calls() == 0; ++i) {
        Orva_Util_Timer_Pause(handle, id, 0);
        Orva_Util_Timer_PauseAll(handle, 0);
        Orva_Util_Delay(10);
    }
    EXPECT_GE(p.calls(), 1u);
}

TEST_F(Timer, PauseOfAllIsBesideEachTimersOwn)
{
    probe &open = new_probe();
    probe &paused = new_probe();
    EXPECT_EQ(Orva_Util_Timer_PauseAll(handle, 1), 0u);
    add(open, 5);
    const std::uint32_t id = add(paused, 5);
    Orva_Util_Timer_Pause(handle, id, 1);
    quiet_while();
    EXPECT_EQ(open.calls() + paused.calls(), 0u);
    EXPECT_EQ(Orva_Util_Timer_PauseAll(handle, 0), 0u);
    EXPECT_TRUE(open.called(3));
    EXPECT_EQ(paused.calls(), 0u);
    Orva_Util_Timer_Pause(handle, id, 0);
    EXPECT_TRUE(paused.called(1));
}

TEST_F(Timer, AllResumedStartAWholeInterval)
{
    probe &p = new_probe();
    Orva_Util_Timer_PauseAll(handle, 1);
    add(p, 100);
    Orva_Util_Delay(150);
    const auto resumed = clock_type::now();
    Orva_Util_Timer_PauseAll(handle, 0);
    ASSERT_TRUE(p.called(1));
    EXPECT_GE(clock_type::now() - resumed, 100ms);
}

TEST_F(Timer, PauseOfOneStaysWhenAllAreResumed)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 1000000);
    Orva_Util_Timer_Pause(handle, id, 1);
    Orva_Util_Timer_PauseAll(handle, 1);
    Orva_Util_Timer_UpdateInterval(handle, id, 5);
    Orva_Util_Timer_PauseAll(handle, 0);
    quiet_while();
    EXPECT_EQ(p.calls(), 0u);
}

TEST_F(Timer, PausesDoNotWaitForARunningFunction)
{
    probe &p = new_probe();
    p.hold();
    const std::uint32_t id = add(p, 1);
    ASSERT_TRUE(p.called(1));
    EXPECT_EQ(Orva_Util_Timer_Pause(handle, id, 1), 0u); // would never return
    EXPECT_EQ(Orva_Util_Timer_PauseAll(handle, 1), 0u);
    EXPECT_EQ(running(id), 1u);
    p.let_go();
    EXPECT_TRUE(stops_running(id));
    quiet_while();
    EXPECT_EQ(p.calls(), 1u);
}

TEST_F(Timer, TriggerRunsItOnceAtOnce)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 1000000);
    EXPECT_EQ(Orva_Util_Timer_Trigger(handle, id), 0u);
    EXPECT_TRUE(p.ended(1));
    quiet_while();
    EXPECT_EQ(p.calls(), 1u);
}

TEST_F(Timer, TriggerRunsAPausedTimerToo)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 5);
    Orva_Util_Timer_Pause(handle, id, 1);
    Orva_Util_Timer_PauseAll(handle, 1);
    ASSERT_TRUE(stops_running(id));
    const auto before = static_cast<unsigned>(p.calls());
    Orva_Util_Timer_Trigger(handle, id);
    EXPECT_TRUE(p.ended(before + 1));
    quiet_while();
    EXPECT_EQ(p.calls(), before + 1);
}

TEST_F(Timer, TriggerDuringARunMakesOneMore)
{
    probe &p = new_probe();
    p.hold();
    const std::uint32_t id = add(p, 1000000);
    Orva_Util_Timer_Trigger(handle, id);
    ASSERT_TRUE(p.called(1));
    Orva_Util_Timer_Trigger(handle, id);
    p.let_go();
    EXPECT_TRUE(p.ended(2));
    quiet_while();
    EXPECT_EQ(p.calls(), 2u);
}

TEST_F(Timer, NewIntervalStartsAnew)
{
    probe &p = new_probe();
    const std::uint32_t id = add(p, 1000000);
    EXPECT_EQ(Orva_Util_Timer_UpdateInterval(handle, id, 5), 0u);
    EXPECT_TRUE(p.called(2));
    Orva_Util_Timer_UpdateInterval(handle, id, 1000000);
    ASSERT_TRUE(stops_running(id));
    const auto before = p.calls();
    quiet_while();
    EXPECT_EQ(p.calls(), before);
}

TEST_F(Timer, RunningStateIsTrueWhileTheFunctionExecutes)
{
    probe &p = new_probe();
    p.hold();
    const std::uint32_t id = add(p, 1, 0);
    ASSERT_TRUE(p.called(1));
    EXPECT_EQ(running(id), 1u);
    p.let_go();
    EXPECT_TRUE(stops_running(id));
}

TEST_F(Timer, FunctionMayUseTheFacilityOnItself)
{
    probe &p = new_probe();
    static std::uint32_t state = 7;
    static std::int32_t own_handle = -1;
    own_handle = handle;
    p.inside = [] {
        Orva_Util_Timer_GetRunningState(own_handle, 0, &state);
        Orva_Util_Timer_UpdateInterval(own_handle, 0, 5);
        Orva_Util_Timer_PauseAll(own_handle, 1);
        Orva_Util_Timer_PauseAll(own_handle, 0);
        Orva_Util_Timer_Pause(own_handle, 0, 1);
    };
    ASSERT_EQ(add(p, 5), 0u);
    ASSERT_TRUE(p.ended(1));
    quiet_while();
    EXPECT_EQ(p.calls(), 1u);
    EXPECT_EQ(state, 1u);
}

TEST_F(Timer, FunctionThatResumesItsOwnTimerRunsAgain)
{
    static std::int32_t own_handle = -1;
    own_handle = handle;
    probe &p = new_probe();
    p.inside = [] { Orva_Util_Timer_Pause(own_handle, 0, 0); };
    add(p, 5, 0);
    EXPECT_TRUE(p.called(3));
}

TEST_F(Timer, UnknownHandlesTimersAndNullAreRefused)
{
    const std::uint32_t id = add(new_probe(), 1000000);
    std::uint32_t state = 7;
    for (const std::int32_t bad : {-1, handle + 1, INT32_MAX}) {
        EXPECT_EQ(Orva_Util_Timer_Add(bad, "x", probe::run, 0, 10, 1), 0xFFFFFFFFu);
        EXPECT_EQ(Orva_Util_Timer_Pause(bad, id, 1), 1u);
        EXPECT_EQ(Orva_Util_Timer_PauseAll(bad, 1), 1u);
        EXPECT_EQ(Orva_Util_Timer_Trigger(bad, id), 1u);
        EXPECT_EQ(Orva_Util_Timer_UpdateInterval(bad, id, 10), 1u);
        EXPECT_EQ(Orva_Util_Timer_GetRunningState(bad, id, &state), 1u);
    }
    for (const std::uint32_t bad : {id + 1, 0xFFFFFFFFu}) {
        EXPECT_EQ(Orva_Util_Timer_Pause(handle, bad, 1), 1u);
        EXPECT_EQ(Orva_Util_Timer_Trigger(handle, bad), 1u);
        EXPECT_EQ(Orva_Util_Timer_UpdateInterval(handle, bad, 10), 1u);
        EXPECT_EQ(Orva_Util_Timer_GetRunningState(handle, bad, &state), 1u);
    }
    EXPECT_EQ(state, 7u);
    EXPECT_EQ(Orva_Util_Timer_Add(handle, "x", nullptr, 0, 10, 1), 0xFFFFFFFFu);
    EXPECT_EQ(Orva_Util_Timer_UpdateInterval(handle, id, 0), 1u);
    EXPECT_EQ(Orva_Util_Timer_GetRunningState(handle, id, nullptr), 2u);
}

TEST(Delay, SleepsForMilliseconds)
{
    const auto begin = clock_type::now();
    EXPECT_EQ(Orva_Util_Delay(50), 0u);
    EXPECT_GE(clock_type::now() - begin, 50ms);
}

} // namespace
