// SPDX-License-Identifier: LGPL-2.1-or-later
// Lifecycle, channel control, routing of tables, the calls for events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "support/control.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

// ---- Lifecycle

const texts init_steps{"orva_debug_category_new(SI, 4, SI DEBUG)", "Si_SectFlt_InitPidFlts()",
                       "Orva_Init_Lib()", "Orva_CreateThread()", "Si_BG_InitServiceList()"};
const texts init_again{init_steps.begin() + 1, init_steps.end()};

SiDmxSectHandler handlers{};

TEST(Init, SetsUpTheModulesInOrder)
{
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(init_steps));
    EXPECT_EQ(last_handler_table, &handlers);
    EXPECT_EQ(last_thread_body, reinterpret_cast<const void *>(Ts_Monitor_Fn));
    EXPECT_NE(si_debug, nullptr);
    EXPECT_TRUE(logged_by("Orva_Si_Init", 3, "Init SI Module!\n")) << fake::log_text();
}

TEST(Init, IsANoOpTheSecondTime)
{
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_FALSE(fake::logged("is Inited before, don't Init again\n"));
    calls.clear();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_TRUE(logged_by("Orva_Si_Init", 3, "is Inited before, don't Init again\n"));
    EXPECT_FALSE(fake::logged("Init SI Module!\n"));
}

TEST(Init, RestartsNothingAfterDeInit)
{
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    calls.clear();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_TRUE(fake::logged(3, "is Inited before, don't Init again\n"));
}

TEST(Init, FailsWithItsHookAndMayBeRepeated)
{
    answers["Orva_Init_Lib"] = 7;
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "error of library init.\n")) << fake::log_text();
    EXPECT_THAT(taken_calls(), ElementsAreArray(init_steps.begin(), init_steps.begin() + 3));

    answers.clear();
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(init_again)); // the debug category is used again
}

TEST(Init, FailsWithoutTheControlThreadAndMayBeRepeated)
{
    answers["Orva_CreateThread"] = 1;
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Create the control thread error\n")) << fake::log_text();
    EXPECT_THAT(taken_calls(), ElementsAreArray(init_steps.begin(), init_steps.begin() + 4));

    answers.clear();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(init_again));
    EXPECT_FALSE(fake::logged("is Inited before, don't Init again\n"));
}

TEST(Init, DoesNotAskHowTheFiltersAndServicesFared)
{
    answers["Si_SectFlt_InitPidFlts"] = 1;
    answers["Si_BG_InitServiceList"] = 1;
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_Init(&handlers), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(init_steps));
}

const texts deinit_steps = joined({stop_steps, {"Orva_Exit_Lib()", "Si_SectFlt_DeInitPidFlts()"}});

TEST(DeInit, StopsAndReleasesAlsoWhenNoChannelWasStarted)
{
    Orva_Si_Init(&handlers);
    calls.clear();
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(deinit_steps));
    EXPECT_FALSE(fake::logged("error when exit the Si library\n"));
}

TEST(DeInit, GoesOnWhenItsHookFails)
{
    Orva_Si_Init(&handlers);
    calls.clear();
    answers["Orva_Exit_Lib"] = 1;
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(deinit_steps));
    EXPECT_TRUE(logged_by("Orva_Si_DeInit", 2, "error when exit the Si library\n"));
}

TEST(DeInit, AnswersSuccessWhenTheFiltersCannotBeReleased)
{
    answers["Si_SectFlt_DeInitPidFlts"] = 1;
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
}

TEST(Hooks, DoNothing)
{
    EXPECT_EQ(__real_Orva_Init_Lib(), ORVA_SI_OK);
    EXPECT_EQ(__real_Orva_Exit_Lib(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_PrintMemSize(), ORVA_SI_OK);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

// ---- Channel

TEST(StartChannel, EmptiesTheStoreAndStartsAllStaticTables)
{
    EXPECT_EQ(tune(474000, 0x0101), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(joined({busy_and_flag, empty_tables, empty_rest, enable,
                                                tables_of_scan, time_tables, services})));
    EXPECT_THAT(under_lock, ElementsAre("Orva_Si_DeleteCaches", "Orva_Si_ResetScanFlag",
                                        "Orva_Si_ResetTimeSection", "Si_Model_ResetPmtPidList",
                                        "Si_SectFlt_StopAllDsmFilters"));
    EXPECT_FALSE(ctl_is_locked());
    EXPECT_EQ(Orva_Si_IsScanMode(), 0u);
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 0x0101u);
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 1u);
    EXPECT_EQ(Si_CtlHelper_IsTdtTotEnabled(), 1u);
}

TEST(StartChannel, ClearsTheTsSemaphoreFlag)
{
    Orva_Si_SetTsSemFlag();
    tune(474000);
    EXPECT_EQ(Orva_Si_GetTsSemFlag(), 0u);
}

TEST(StartChannel, OfTheSameFrequencyKeepsTheStoreAndOnlyStopsTheDsmccFilters)
{
    tune(474000, 1);
    test::store(test::make(test::pat{.programs = {{1, 0x100}}}));
    Orva_Si_SetDetectBit(0x11, 0x42);
    Orva_Si_StopChannel();
    calls.clear();
    EXPECT_EQ(tune(474000, 2), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(joined({busy_and_flag, keep_all, enable, tables_of_scan,
                                                time_tables, services})));
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 1);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 1u);
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 2u);
}

TEST(StartChannel, OfAnotherFrequencyEmptiesTheTablesButKeepsTheEvents)
{
    tune(474000);
    test::store(test::make(test::pat{.programs = {{1, 0x100}}}));
    Orva_Si_SetDetectBit(0x11, 0x42);
    Orva_Si_StopChannel();
    calls.clear();
    tune(482000);
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 0);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0u);
    EXPECT_THAT(calls, Not(Contains("Orva_Si_EraseAllEitRawData()")));
}

TEST(StartChannel, OfFrequencyZeroIsAScanThatAlsoAsksForTheTimeTables)
{
    tune(474000);
    test::store(test::make(test::pat{.programs = {{1, 0x100}}}));
    Orva_Si_StopChannel();
    calls.clear();
    EXPECT_EQ(tune(0, 5), ORVA_SI_OK);
    EXPECT_THAT(calls,
                ElementsAreArray(joined({busy_and_flag, empty_tables, empty_events, empty_rest,
                                         enable, tables_of_scan, time_tables, services})));
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 0);
    EXPECT_EQ(Orva_Si_IsScanMode(), 1u);
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 5u);
    EXPECT_EQ(Si_CtlHelper_IsTdtTotEnabled(), 0u); // asked for, but not armed

    calls.clear();
    notify_locked(0x11, 0x42, 7);
    EXPECT_THAT(calls, ElementsAre("Orva_Si_CommScanCase(17, 66, 7)"));
}

TEST(StartChannel, TwiceStopsFirst)
{
    tune(474000);
    calls.clear();
    EXPECT_FALSE(fake::logged(channel_not_stopped));
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_TRUE(logged_by("Orva_Si_StartChannel", 2, channel_not_stopped)) << fake::log_text();
    EXPECT_THAT(calls, ElementsAreArray(joined({stop_steps, busy_and_flag, keep_all, enable,
                                                tables_of_scan, time_tables, services})));
}

TEST(StartChannel, OfAnotherFrequencyWhileStartedEmptiesTheStore)
{
    tune(474000);
    calls.clear();
    tune(482000);
    EXPECT_THAT(calls, Contains("Orva_Si_DeleteCaches(0)"));
}

TEST(StartChannel, RefusesANullRecordButCountsAsStarted)
{
    EXPECT_EQ(Orva_Si_StartChannel(nullptr), ORVA_SI_FAILURE);
    EXPECT_TRUE(logged_by("Orva_Si_StartChannel", 2, "[ptune\n")) << fake::log_text();
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, channel_not_stopped));
}

TEST(StartChannel, OfANullRecordWhileStartedStopsAllTheSame)
{
    tune(474000);
    calls.clear();
    EXPECT_EQ(Orva_Si_StartChannel(nullptr), ORVA_SI_FAILURE);
    EXPECT_THAT(calls, ElementsAreArray(stop_steps));
}

TEST(StartChannel, FailsWhileTheControlThreadIsBusyAndCountsAsStarted)
{
    answers["Si_SectFlt_CheckRunningStatus"] = 1;
    EXPECT_EQ(tune(474000), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, busy_text)) << fake::log_text();
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_CheckRunningStatus()"));
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 0u);

    answers.clear();
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, channel_not_stopped));
}

TEST(StartChannel, GoesOnWhenATableCannotBeStarted)
{
    for (const char *table : {"Si_SectFlt_StartPat", "Si_SectFlt_StartCat", "Si_SectFlt_StartNit",
                              "Si_SectFlt_StartSdtBat", "Si_SectFlt_StartTdtTot"})
        answers[table] = 1;
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_THAT(calls, Contains("Si_BG_EnableAllService()"));
}

TEST(StartChannel, InNetworkModeStartsTheNitOnly)
{
    set_scan_param({0, 0x3001, 1, 3});
    EXPECT_EQ(tune(474000), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(joined({busy_and_flag,
                                                empty_tables,
                                                empty_rest,
                                                enable,
                                                {"Si_SectFlt_StartNit(3, 12289)"},
                                                services})));
}

TEST(StartChannel, PassesTheNitSelectorOn)
{
    set_scan_param({0, 0x3001, 0, 9});
    tune(474000);
    EXPECT_THAT(calls, Contains("Si_SectFlt_StartNit(9, 65535)"));
    EXPECT_THAT(calls, Contains("Si_SectFlt_StartPat()"));
}

TEST(StopChannel, ClosesEverythingInOrder)
{
    tune(474000);
    calls.clear();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_StopChannel(), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(stop_steps));
    EXPECT_TRUE(logged_by("Orva_Si_StopChannel", 5, " =========> \n")) << fake::log_text();
    EXPECT_TRUE(logged_by("Orva_Si_StopChannel", 5, " <========= \n"));
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 0u);
    EXPECT_EQ(Si_CtlHelper_IsPatEnabled(), 0u);

    tune(474000);
    EXPECT_FALSE(fake::logged(channel_not_stopped));
}

TEST(StopChannel, KeepsTheScanParameters)
{
    set_scan_param({0, 0x3001, 1, 0});
    Orva_Si_StopChannel();
    calls.clear();
    tune(474000);
    EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAre("Si_SectFlt_StartNit(0, 12289)"));
}

TEST(RunningStatus, TakesOverFrequencyAndProgramAndSaysSo)
{
    reset_locked(1000, 0xABCD0007);
    EXPECT_TRUE(fake::logged(3, "the current freq = 1000, the last = 0\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(3, "the scanstatus = 0\n"));
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 7u);
    fake::clear_log();
    reset_locked(0, 0xFFFF);
    EXPECT_TRUE(fake::logged(3, "the current freq = 0, the last = 1000\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(3, "the scanstatus = 1\n"));
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 0xFFFFu);
}

TEST(RunningStatus, AnswersAsTheDsmccStop)
{
    answers["Si_SectFlt_StopAllDsmFilters"] = 1;
    EXPECT_EQ(reset_locked(1000, 1), 1u); // another multiplex
    EXPECT_EQ(reset_locked(1000, 1), 1u); // the same one
    answers.clear();
    EXPECT_EQ(reset_locked(1000, 1), 0u);
}

TEST(RunningStatus, OfTheSameFrequencyOnlyStopsTheDsmccFilters)
{
    reset_locked(1000, 1);
    calls.clear();
    reset_locked(1000, 1);
    EXPECT_THAT(calls, ElementsAreArray(keep_all));
}

TEST(RunningStatus, OfFrequencyZeroTwiceEmptiesTwice)
{
    reset_locked(0, 0xFFFF);
    calls.clear();
    reset_locked(0, 0xFFFF);
    EXPECT_THAT(calls, ElementsAreArray(joined({empty_tables, empty_events, empty_rest})));
}

TEST(RunningStatus, AScanForgetsTheLastFrequency)
{
    reset_locked(1000, 1);
    reset_locked(0, 0xFFFF);
    calls.clear();
    reset_locked(1000, 1);
    EXPECT_THAT(calls, ElementsAreArray(joined({empty_tables, empty_rest})));
}

TEST(TuningProgram, IsNoneAtFirst)
{
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 0xFFFFu);
    EXPECT_EQ(Orva_Si_IsScanMode(), 0u);
}

// ---- The start of a scan, its parameters

TEST(StartScan, StartsAllButTheTimeTablesInScanMode)
{
    tune(474000, 1);
    Orva_Si_StopChannel();
    calls.clear();
    under_lock.clear();
    EXPECT_EQ(Si_Ctl_StartScanChannel(), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAreArray(joined({busy_and_flag, empty_tables, empty_events,
                                                empty_rest, enable, tables_of_scan, services})));
    EXPECT_THAT(under_lock,
                ElementsAre("Orva_Si_DeleteCaches", "Orva_Si_EraseAllEitRawData",
                            "Orva_Si_ResetScanFlag", "Orva_Si_ResetTimeSection",
                            "Si_Model_ResetPmtPidList", "Si_SectFlt_StopAllDsmFilters"));
    EXPECT_EQ(Orva_Si_IsScanMode(), 1u);
    EXPECT_EQ(Si_Ctl_GetTunningProgNo(), 0xFFFFu);
    EXPECT_EQ(Si_CtlHelper_IsTdtTotEnabled(), 0u);
}

TEST(StartScan, WhileStartedStopsFirst)
{
    tune(474000);
    calls.clear();
    EXPECT_EQ(Si_Ctl_StartScanChannel(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, scan_not_stopped)) << fake::log_text();
    EXPECT_FALSE(fake::logged(channel_not_stopped));
    EXPECT_THAT(calls,
                ElementsAreArray(joined({stop_steps, busy_and_flag, empty_tables, empty_events,
                                         empty_rest, enable, tables_of_scan, services})));
}

TEST(StartScan, WhileStartedLosesTheScanParameters)
{
    tune(474000);
    set_scan_param({0, 0x3001, 1, 3});
    calls.clear();
    Si_Ctl_StartScanChannel();
    EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAreArray(tables_of_scan));
}

TEST(StartScan, AChannelStartedWhileStartedKeepsTheScanParameters)
{
    tune(474000);
    set_scan_param({0, 0x3001, 1, 3});
    calls.clear();
    tune(474000);
    EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAre("Si_SectFlt_StartNit(3, 12289)"));
}

TEST(StartScan, FailsWhileTheControlThreadIsBusyAndCountsAsStarted)
{
    answers["Si_SectFlt_CheckRunningStatus"] = 1;
    EXPECT_EQ(Si_Ctl_StartScanChannel(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, busy_text)) << fake::log_text();
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_CheckRunningStatus()"));
    answers.clear();
    Si_Ctl_StartScanChannel();
    EXPECT_TRUE(fake::logged(2, scan_not_stopped));
}

TEST(StartScan, InNetworkModeStartsTheNitOnly)
{
    set_scan_param({0, 0x3001, 0x100, 0});
    EXPECT_EQ(Si_Ctl_StartScanChannel(), ORVA_SI_OK);
    EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAre("Si_SectFlt_StartNit(0, 12289)"));
}

TEST(StopScan, ClearsTheParametersAndStops)
{
    set_scan_param({0, 0x3001, 1, 3});
    Si_Ctl_StartScanChannel();
    calls.clear();
    EXPECT_EQ(Orva_Si_StopScanChannel(), ORVA_SI_OK);
    EXPECT_THAT(taken_calls(), ElementsAreArray(stop_steps));
    Si_Ctl_StartScanChannel();
    EXPECT_THAT(calls_of("Si_SectFlt_Start"), ElementsAreArray(tables_of_scan));
}

TEST(ScanParam, RefusesNull)
{
    EXPECT_EQ(Orva_Si_SetScanParam(nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(logged_by("Orva_Si_SetScanParam", 2, "[pScanParam\n")) << fake::log_text();
}

TEST(ScanTime, IsAnsweredInHundredthsAndLogged)
{
    EXPECT_EQ(Orva_Si_SetScanTime(10), 1000u);
    EXPECT_TRUE(fake::logged(4, "|------------------------------------|\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the setting scan time is 10 seconds\n"));
    EXPECT_EQ(Orva_Si_SetScanTime(0), 0u);
    EXPECT_EQ(Orva_Si_SetScanTime(0xFFFF), 6553500u);
}
// ---- Routing of a table that became complete

TEST(Routing, DropsTablesOnceAcquisitionWasStopped)
{
    tune(474000);
    Orva_Si_StopChannel();
    calls.clear();
    EXPECT_EQ(notify_locked(0x11, 0x42, 7), ORVA_SI_OK);
    EXPECT_TRUE(
        logged_by("Orva_Si_NotifyTableStatus", 3, "upper level is stop the monitoring job.\n"));
    EXPECT_THAT(calls, IsEmpty());
}

TEST(Routing, AnswersAsTheBookkeepingOfAScan)
{
    Si_Ctl_StartScanChannel();
    calls.clear();
    answers["Orva_Si_CommScanCase"] = 5;
    EXPECT_EQ(notify_locked(0x10, 0x40, 0x3001), 5u);
    EXPECT_TRUE(fake::logged(4, "ret = 5\n")) << fake::log_text();
    EXPECT_THAT(calls, ElementsAre("Orva_Si_CommScanCase(16, 64, 12289)"));
    EXPECT_THAT(under_lock, Contains("Orva_Si_CommScanCase"));
}

TEST(Routing, TellsTheClientWithTheLockGivenUp)
{
    tune(474000);
    calls.clear();
    fake::clear_log();
    EXPECT_EQ(notify_locked(0x00, 0x00, 7), ORVA_SI_OK);
    EXPECT_THAT(calls, ElementsAre("Orva_Si_NotifyUpdate(474000, 7, 0, 0)"));
    EXPECT_THAT(under_lock, Not(Contains("Orva_Si_NotifyUpdate")));
    EXPECT_TRUE(fake::logged(4, "ret = 0\n")) << fake::log_text();
    EXPECT_TRUE(logged_by("Orva_Si_CommTunningCase", 5, "===Mutex Unlock===\n"));
    EXPECT_TRUE(logged_by("Orva_Si_CommTunningCase", 5, "~~~Mutex Lock~~~\n"));
}

TEST(Routing, DoesNotPassOnWhatTheNotificationAnswers)
{
    tune(474000);
    answers["Orva_Si_NotifyUpdate"] = 9;
    EXPECT_EQ(notify_locked(0x00, 0x00, 7), ORVA_SI_OK);
}

TEST(Routing, SaysWhatChanged)
{
    const struct {
        std::uint16_t pid;
        std::uint8_t table_id;
        std::string text;
    } cases[] = {
        {0x0000, 0x00, "pat is updated\n"},       {0x0001, 0x01, "cat is updated\n"},
        {0x0010, 0x40, "nit is updated\n"},       {0x0010, 0x41, "nit is updated\n"},
        {0x0011, 0x4A, "bat is updated\n"},       {0x0011, 0x42, "sdt is updated\n"},
        {0x0011, 0x46, "sdt is updated\n"},       {0x0100, 0x02, "pmt is updated, pid = 0x100\n"},
        {0x0014, 0x72, " the table_id = 0x72\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        fake::clear_log();
        calls.clear();
        Orva_MutexP(&Ts_Ctl_Mutex);
        EXPECT_EQ(Orva_Si_CommTunningCase(c.pid, c.table_id, 3), ORVA_SI_OK);
        Orva_MutexV(&Ts_Ctl_Mutex);
        EXPECT_TRUE(fake::logged(4, c.text)) << fake::log_text();
        EXPECT_THAT(calls, ElementsAre("Orva_Si_NotifyUpdate(0, 3, " + std::to_string(c.pid) +
                                       ", " + std::to_string(c.table_id) + ")"));
    }
}

// ---- Events: an enable flag and a call to the filters

class Events : public testing::Test {
protected:
    // The four flags: present/following and schedule, each actual and other.
    static texts enabled()
    {
        texts on;
        if (Si_CtlHelper_IsActPfEitEnabled() != 0)
            on.emplace_back("actual p/f");
        if (Si_CtlHelper_IsOtherPfEitEnabled() != 0)
            on.emplace_back("other p/f");
        if (Si_CtlHelper_IsActSchEitEnabled() != 0)
            on.emplace_back("actual schedule");
        if (Si_CtlHelper_IsOtherSchEitEnabled() != 0)
            on.emplace_back("other schedule");
        return on;
    }
    static void enable_all()
    {
        Si_CtlHelper_SetActPfEitEnableFlag(1);
        Si_CtlHelper_SetOtherPfEitEnableFlag(1);
        Si_CtlHelper_SetActSchEitEnableFlag(1);
        Si_CtlHelper_SetOtherSchEitEnableFlag(1);
    }
    static constexpr std::uint16_t services[3] = {21, 22, 23};
    static constexpr SiEitRequest requests[2] = {{1, 2, 3}, {4, 5, 6}};
};

TEST_F(Events, OfTheCurrentServiceAreRequestedFirst)
{
    answers["Si_SectFlt_StartActPfEit"] = 9;
    EXPECT_EQ(Orva_Si_StartActualPFEIT(7, 8, 20, services, 3), 9u);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartActPfEit(7, 8, [20], 1)",
                                   "Si_SectFlt_StartActPfEit(7, 8, [21 22 23], 3)"));
    EXPECT_THAT(enabled(), ElementsAre("actual p/f"));
}

TEST_F(Events, OfTheCurrentServiceAlone)
{
    answers["Si_SectFlt_StartActPfEit"] = 9;
    EXPECT_EQ(Orva_Si_StartCurrentPFEIT(7, 8, 20), 9u);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartActPfEit(7, 8, [20], 1)"));
    EXPECT_THAT(enabled(), ElementsAre("actual p/f"));
}

TEST_F(Events, OfTheSchedule)
{
    answers["Si_SectFlt_StartActSchEit"] = 9;
    EXPECT_EQ(Orva_Si_StartActualScheduleEIT(7, 8, 20, services, 3), 9u);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartActSchEit(7, 8, 20, [21 22 23], 3)"));
    EXPECT_THAT(enabled(), ElementsAre("actual schedule"));
}

TEST_F(Events, OfOtherMultiplexes)
{
    answers["Si_SectFlt_StartOtherPfEit"] = 9;
    EXPECT_EQ(Orva_Si_StartOtherPFEIT(requests, 2), 9u);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartOtherPfEit(2)"));
    EXPECT_EQ(last_requests, requests);
    EXPECT_THAT(enabled(), ElementsAre("other p/f"));
}

TEST_F(Events, OfTheScheduleOfOtherMultiplexes)
{
    answers["Si_SectFlt_StartOtherSchEit"] = 9;
    EXPECT_EQ(Orva_Si_StartOtherSchedulEIT(requests, 2), 9u);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartOtherSchEit(2)"));
    EXPECT_EQ(last_requests, requests);
    EXPECT_THAT(enabled(), ElementsAre("other schedule"));
}

TEST_F(Events, OfAllOtherServicesAreAskedForWithoutAList)
{
    EXPECT_EQ(Orva_Si_StartOtherPFEIT(nullptr, 0), ORVA_SI_OK);
    EXPECT_EQ(last_requests, nullptr);
    EXPECT_THAT(calls, ElementsAre("Si_SectFlt_StartOtherPfEit(0)"));
}

TEST_F(Events, AreStoppedKindByKind)
{
    const struct {
        std::uint32_t (*stop)();
        std::string filter;
        texts left;
    } cases[] = {
        {Orva_Si_StopActualPFEIT,
         "Si_SectFlt_StopActPfEit",
         {"other p/f", "actual schedule", "other schedule"}},
        {Orva_Si_StopOtherPFEIT,
         "Si_SectFlt_StopOtherPfEit",
         {"actual p/f", "actual schedule", "other schedule"}},
        {Orva_Si_StopActualScheduleEIT,
         "Si_SectFlt_StopActSchEit",
         {"actual p/f", "other p/f", "other schedule"}},
        {Orva_Si_StopOtherScheduleEIT,
         "Si_SectFlt_StopOtherSchEit",
         {"actual p/f", "other p/f", "actual schedule"}},
        {Orva_Si_StopAllEIT, "Si_SectFlt_StopAllEIT", {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.filter);
        enable_all();
        calls.clear();
        answers[c.filter] = 9;
        EXPECT_EQ(c.stop(), 9u);
        EXPECT_THAT(calls, ElementsAre(c.filter + "()"));
        EXPECT_THAT(enabled(), ElementsAreArray(c.left));
    }
}

} // namespace
