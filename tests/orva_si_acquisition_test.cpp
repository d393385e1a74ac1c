// SPDX-License-Identifier: LGPL-2.1-or-later
// The whole library behind a recording driver: from start-up to what the client hears and reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si.h"
#include "support/sections.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool wait_for(const std::function<bool()> &condition)
{
    for (int i = 0; i < 10000 && !condition(); ++i)
        std::this_thread::sleep_for(1ms);
    return condition();
}

// Threads of the process that carry the library's name.
unsigned control_threads()
{
    unsigned count = 0;
    for (const auto &task : std::filesystem::directory_iterator{"/proc/self/task"}) {
        std::ifstream file{task.path() / "comm"};
        std::string name;
        std::getline(file, name);
        count += name == "stack SiRunThre" ? 1 : 0;
    }
    return count;
}

// PIDs of the filters that are on.
std::set<std::uint16_t> filtered_pids()
{
    std::set<std::uint16_t> pids;
    for (std::size_t i = 0; i < fake::driver().filter_count(); ++i) {
        const fake::driver_filter filter = fake::driver().filter(fake::driver().filter_id(i));
        if (filter.running)
            pids.insert(filter.loaded.pid);
    }
    return pids;
}

std::mutex heard_mutex;
std::vector<std::pair<std::uint32_t, SiWord>> heard; // reason and data; no data of records
std::function<void()> meanwhile;                     // what the client does inside the callback

std::uint32_t client(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
{
    if (meanwhile)
        meanwhile();
    const std::lock_guard lock{heard_mutex};
    heard.emplace_back(reason, reason >= 8 && reason <= 12 ? 0 : data);
    return 0;
}

std::vector<std::pair<std::uint32_t, SiWord>> what_was_heard()
{
    const std::lock_guard lock{heard_mutex};
    return heard;
}

class Library : public testing::Test {
protected:
    Library()
    {
        EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
        EXPECT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
        EXPECT_TRUE(wait_for([] { return fake::logged(4, "I am ready!\n"); }));
    }
    static std::uint32_t tune(std::uint32_t frequency, std::uint16_t program = SI_NO_PROGRAM)
    {
        const SiTuneParam param{frequency, 0, 0, program};
        return Orva_Si_StartChannel(&param);
    }
    static void broadcast(std::uint16_t pid, const octets &section)
    {
        EXPECT_EQ(fake::driver().broadcast(pid, section), 1u) << "PID " << pid;
    }
    // Until the library has taken in all that was delivered.
    static void settle()
    {
        EXPECT_TRUE(wait_for([] {
            return Si_SectFlt_GetPendingCount() == 0 && Si_SectFlt_CheckRunningStatus() == 0;
        }));
    }
    static inline const octets pat_section = make(pat{.ts = 7, .programs = {{1, 0x100}}});
    static inline const octets sdt_section = make(sdt{.ts = 7, .services = {{.id = 1}}});
    static inline const octets nit_section = make(nit{.network = 9, .transports = {{.ts = 7}}});
};

TEST_F(Library, HasOneThreadHoweverOftenItIsInitialised)
{
    EXPECT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(3, "is Inited before, don't Init again\n"));
    EXPECT_EQ(control_threads(), 1u);
    EXPECT_EQ(fake::driver().times_called(fake::add_filter), 31u);
    EXPECT_EQ(fake::timers().inits.size(), 1u);
}

TEST_F(Library, ReleasesItsFiltersWithoutEverHavingStarted)
{
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    EXPECT_EQ(fake::driver().times_called(fake::remove_filter), 31u);
    EXPECT_TRUE(fake::logged(3, "Flush the tmp list!\n"));

    EXPECT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK); // restarts nothing
    EXPECT_EQ(control_threads(), 1u);
    EXPECT_EQ(fake::driver().times_called(fake::add_filter), 31u);
}

TEST_F(Library, FiltersTheTimeTablesOfAChannel)
{
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_THAT(filtered_pids(), ElementsAre(0x00, 0x01, 0x10, 0x11, 0x14));
    EXPECT_FALSE(fake::timers().all_paused);
    EXPECT_EQ(Orva_Si_StopChannel(), ORVA_SI_OK);
    EXPECT_THAT(filtered_pids(), IsEmpty());
    EXPECT_TRUE(fake::timers().all_paused);
}

TEST_F(Library, DoesNotFilterTheTimeTablesOfFrequencyZero)
{
    EXPECT_EQ(tune(0), ORVA_SI_OK);
    EXPECT_THAT(filtered_pids(), ElementsAre(0x00, 0x01, 0x10, 0x11));
}

TEST_F(Library, TellsTheClientOfTablesWhichItMayReadAtOnce)
{
    std::atomic<std::uint16_t> ts{0};
    meanwhile = [&] {
        std::uint16_t id = 0;
        if (Orva_Si_GetPatTsId(&id) == ORVA_SI_OK)
            ts = id;
    };
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    broadcast(0x00, pat_section);
    settle();
    EXPECT_THAT(what_was_heard(), ElementsAre(std::pair{6u, SiWord{474000}}));
    EXPECT_EQ(ts, 7);
    broadcast(0x11, sdt_section);
    settle();
    EXPECT_EQ(what_was_heard().back(), (std::pair{7u, SiWord{7}}));
}

TEST_F(Library, CannotBeStartedFromInsideTheCallback)
{
    std::atomic<std::uint32_t> result{0xFFFF};
    meanwhile = [&] { result = tune(482000); };
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    broadcast(0x00, pat_section);
    settle();
    EXPECT_EQ(result, ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "Can not start SI!\n"));
}

TEST_F(Library, CanBeStoppedFromInsideTheCallback)
{
    meanwhile = [] { EXPECT_EQ(Orva_Si_StopChannel(), ORVA_SI_OK); };
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    broadcast(0x00, pat_section);
    settle();
    EXPECT_EQ(what_was_heard().size(), 1u);
    EXPECT_THAT(filtered_pids(), IsEmpty());
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
}

TEST_F(Library, KeepsTheTablesOfTheSameFrequencyOnly)
{
    std::uint16_t ts = 0;
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    broadcast(0x00, pat_section);
    settle();
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetPatTsId(&ts), ORVA_SI_OK);
    ASSERT_EQ(tune(482000), ORVA_SI_OK);
    EXPECT_NE(Orva_Si_GetPatTsId(&ts), ORVA_SI_OK);
}

TEST_F(Library, ScansInSilenceAndKeepsWhatItFound)
{
    std::atomic<bool> on_air{false};
    std::thread multiplex{[&] {
        on_air = true;
        on_air.notify_one();
        EXPECT_TRUE(wait_for([] { return filtered_pids().size() == 4; }));
        broadcast(0x00, pat_section);
        broadcast(0x11, sdt_section);
        broadcast(0x10, nit_section);
    }};
    on_air.wait(false); // a scan of 500 ms does not wait for a thread that is late
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Orva_Si_StartScanChannel(), ORVA_SI_OK) << fake::log_text();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 500ms);
    multiplex.join();
    EXPECT_THAT(filtered_pids(), IsEmpty());
    EXPECT_THAT(what_was_heard(), IsEmpty());
    std::uint16_t ts = 0;
    EXPECT_EQ(Orva_Si_GetActTsId(&ts), ORVA_SI_OK);
    EXPECT_EQ(ts, 7);
}

TEST_F(Library, HearsNothingOfTimeWhileScanning)
{
    ASSERT_EQ(Si_Ctl_StartScanChannel(), ORVA_SI_OK);
    EXPECT_EQ(fake::driver().broadcast(0x14, make(tdt{})), 0u);
    ASSERT_EQ(Orva_Si_StopScanChannel(), ORVA_SI_OK);
    ASSERT_EQ(tune(474000), ORVA_SI_OK);
    broadcast(0x14, make(tdt{}));
    settle();
    EXPECT_THAT(what_was_heard(), ElementsAre(std::pair{3u, SiWord{0}}));
}

} // namespace
