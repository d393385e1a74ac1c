// SPDX-License-Identifier: LGPL-2.1-or-later
// The blocking scan: its waits, its ends, its cancellation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>

#include "fakes/platform.h"
#include "support/control.h"

using namespace test;

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class Scan : public testing::Test {
protected:
    // Runs a scan; whatever its end, acquisition is stopped and the parameters are cleared.
    std::uint32_t scan()
    {
        const std::uint32_t result = Orva_Si_StartScanChannel();
        EXPECT_TRUE(std::ranges::equal(stop_steps, texts(calls.end() - 6, calls.end())));
        waits = calls_of("Orva_Wait2");
        calls.clear();
        Si_Ctl_StartScanChannel();
        EXPECT_FALSE(fake::logged(scan_not_stopped));
        EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAreArray(tables_of_scan));
        return result;
    }

    static void detect(std::initializer_list<std::pair<std::uint16_t, std::uint8_t>> tables)
    {
        for (const auto &[pid, table_id] : tables)
            Orva_Si_SetDetectBit(pid, table_id);
    }
    static void complete(std::initializer_list<std::pair<std::uint16_t, std::uint8_t>> tables)
    {
        for (const auto &[pid, table_id] : tables)
            Orva_Si_SetReadyBit(pid, table_id);
    }
    // What every multiplex has.
    static void detect_usual() { detect({{0, 0}, {0x11, 0x42}, {0x10, 0x40}}); }
    static void complete_usual() { complete({{0, 0}, {0x11, 0x42}, {0x10, 0x40}}); }

    // The client's cancel, from another thread in life.
    static void cancel() { EXPECT_EQ(Orva_Si_CancelScanChannel(), ORVA_SI_OK); }

    static void expect_cancelled(std::size_t times_met)
    {
        EXPECT_EQ(fake::times_logged("scan channel is canceled by user\n"), times_met);
        EXPECT_TRUE(fake::logged(3, "scan channel is canceled by user\n")) << fake::log_text();
        EXPECT_TRUE(fake::logged(3, "user canceled the scan channel\n"));
        EXPECT_FALSE(fake::logged("want to check all table is ready or not\n"));
        EXPECT_FALSE(fake::logged("scan channel is error\n"));
        EXPECT_FALSE(fake::logged("all detected table are completed\n"));
    }

    texts waits;
};

const std::string settle = "Orva_Wait2CondTrue(100, 0)";
const std::string ten_seconds = "Orva_Wait2FuncTrue(2000)";

TEST_F(Scan, EndsWhenAllDetectedTablesAreComplete)
{
    at(600, detect_usual);
    at(700, complete_usual);
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_EQ(now_ms, 700u);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, ten_seconds, ten_seconds,
                                   "Orva_Wait2FuncTrue(6000)"));
    EXPECT_TRUE(fake::logged(4, "start scan channel...\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "get some sections\n"));
    EXPECT_TRUE(fake::logged(4, "want to check all table is ready or not\n"));
    EXPECT_TRUE(fake::logged(4, "all detected table are completed\n"));
    EXPECT_FALSE(fake::logged("scan channel is canceled by user\n"));
}

TEST_F(Scan, SettlesHalfASecondWhateverComes)
{
    at(10, detect_usual);
    at(20, complete_usual);
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_EQ(now_ms, 500u);
}

TEST_F(Scan, WithoutAnySectionFailsAfterTenAndAHalfSeconds)
{
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 10500u);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds));
    EXPECT_TRUE(fake::logged(3, "can't get any sections\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(2, "scan channel is error\n"));
    EXPECT_FALSE(fake::logged("get some sections\n"));
}

TEST_F(Scan, WithIncompleteTablesFailsAfterHalfAMinute)
{
    at(600, detect_usual);
    at(700, [] { complete({{0, 0}, {0x11, 0x42}}); });
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 600u + 30000u);
    EXPECT_TRUE(fake::logged(2, "scan channel is error\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("all detected table are completed\n"));
}

TEST_F(Scan, WaitsTenSecondsEachForSdtAndNit)
{
    at(600, [] { detect({{0, 0}}); });
    at(700, [] { complete({{0, 0}}); });
    EXPECT_EQ(scan(), ORVA_SI_OK); // what is not on the multiplex is not waited for any longer
    EXPECT_EQ(now_ms, 600u + 20000u);
}

TEST_F(Scan, ClosesTheSetOfKindsBeforeItWaitsForCompletion)
{
    at(600, detect_usual);
    at(650, [] { detect({{0x10, 0x41}}); }); // too late: NIT other is not waited for
    at(700, complete_usual);
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_EQ(now_ms, 700u);
    EXPECT_TRUE(fake::logged(4, "the table_detect_ready is ready\n"));
}

TEST_F(Scan, ScanTimeBoundsTheCompletionWait)
{
    Orva_Si_SetScanTime(10);
    at(600, detect_usual);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(1000)");
    EXPECT_EQ(now_ms, 600u + 5000u);
}

TEST_F(Scan, ScanTimeAbove655SecondsWraps)
{
    EXPECT_EQ(Orva_Si_SetScanTime(700), 70000u);
    at(600, detect_usual);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(4464)");
}

TEST_F(Scan, ScanTimeStaysForTheNextScan)
{
    Orva_Si_SetScanTime(10);
    at(600, detect_usual);
    scan();
    Orva_Si_StopScanChannel();
    at(now_ms + 600, detect_usual);
    scan();
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(1000)");
}

TEST_F(Scan, WaitTimeAddsADelayOnceTheNitWasMet)
{
    set_scan_param({1000, 0, 0, 0});
    at(600, detect_usual);
    at(700, complete_usual);
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, ten_seconds, ten_seconds,
                                   "Orva_Wait2FuncTrue(200)", "Orva_Wait2FuncTrue(6000)"));
    EXPECT_EQ(now_ms, 600u + 1000u);
}

TEST_F(Scan, OfANetworkWaitsForItsNitOnly)
{
    set_scan_param({600, 7, 1, 0});
    at(600, [] { detect({{0x10, 0x41}}); });
    at(800, [] { complete({{0x10, 0x41}}); });
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, "Orva_Wait2FuncTrue(600)"));
    EXPECT_EQ(now_ms, 800u);
}

TEST_F(Scan, OfANetworkIsBoundByTheWaitTime)
{
    Orva_Si_SetScanTime(10); // counts only without a network
    set_scan_param({600, 7, 1, 0});
    at(600, [] { detect({{0x10, 0x41}}); });
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 600u + 3000u);
}

TEST_F(Scan, OfANetworkWithASelectorWaitsForTheNitActual)
{
    set_scan_param({600, 7, 1, 1});
    at(600, [] { detect({{0x10, 0x41}}); });
    at(4000, [] { detect({{0x10, 0x40}}); });
    at(4100, [] { complete({{0x10, 0x41}, {0x10, 0x40}}); });
    EXPECT_EQ(scan(), ORVA_SI_OK);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, ten_seconds, "Orva_Wait2FuncTrue(600)"));
    EXPECT_EQ(now_ms, 4100u);
}

TEST_F(Scan, OfANetworkWithoutWaitTimeTakesThingsAsTheyAre)
{
    set_scan_param({0, 7, 1, 0});
    at(600, [] { detect({{0x10, 0x40}}); });
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(0)");
    EXPECT_EQ(now_ms, 600u);
    Orva_Si_StopScanChannel();

    set_scan_param({0, 7, 1, 0});
    at(now_ms + 600, [] {
        detect({{0x10, 0x40}});
        complete({{0x10, 0x40}});
    });
    EXPECT_EQ(scan(), ORVA_SI_OK);
}

TEST_F(Scan, CancelledWhileItSettlesEndsWithThat)
{
    at(100, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 500u);
    expect_cancelled(1);
    EXPECT_FALSE(fake::logged("can't get any sections\n"));
}

TEST_F(Scan, CancelledInItsFirstWaitEndsAtOnce)
{
    at(2000, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 2000u);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds));
    expect_cancelled(1);
}

TEST_F(Scan, CancelledWhileItWaitsForTheSdtEndsAtOnce)
{
    at(600, [] { detect({{0, 0}}); });
    at(2000, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 2000u);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, ten_seconds));
    expect_cancelled(1);
}

TEST_F(Scan, CancelledWhileItWaitsForTheNitEndsAtOnce)
{
    at(600, [] { detect({{0x11, 0x42}}); });
    at(2000, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 2000u);
    EXPECT_THAT(waits, ElementsAre(settle, ten_seconds, ten_seconds, ten_seconds));
    expect_cancelled(1);
}

TEST_F(Scan, CancelledInItsWaitTimeEndsAtOnce)
{
    set_scan_param({5000, 0, 0, 0});
    at(600, detect_usual);
    at(2000, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 2000u);
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(1000)");
    expect_cancelled(1);
}

TEST_F(Scan, CancelledWhileItWaitsForCompletionEndsAtOnce)
{
    at(600, detect_usual);
    at(2000, cancel);
    EXPECT_EQ(scan(), ORVA_SI_FAILURE);
    EXPECT_EQ(now_ms, 2000u);
    EXPECT_EQ(waits.back(), "Orva_Wait2FuncTrue(6000)");
    expect_cancelled(1);
}

TEST_F(Scan, OfABusyLibraryLooksCancelled)
{
    answers["Si_SectFlt_CheckRunningStatus"] = 1;
    EXPECT_EQ(Orva_Si_StartScanChannel(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, busy_text)) << fake::log_text();
    EXPECT_EQ(now_ms, 500u);
    expect_cancelled(1);
}

TEST_F(Scan, CancelledByAnotherThreadReturnsSoon)
{
    real_time = true;
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    std::thread client{[] {
        std::this_thread::sleep_for(std::chrono::milliseconds{800});
        cancel();
    }};
    EXPECT_EQ(Orva_Si_StartScanChannel(), ORVA_SI_FAILURE);
    const auto took = clock::now() - begin;
    client.join();
    EXPECT_GE(took, std::chrono::milliseconds{800});
    EXPECT_LT(took, std::chrono::seconds{5});
    expect_cancelled(1);
}

} // namespace
