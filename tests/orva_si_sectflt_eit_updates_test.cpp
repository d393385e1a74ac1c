// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: versions and sub-tables that have come, ageing.
#include "support/eit_filters.h"

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// ---- Updates

TEST_F(EitFilters, UpdateOfPfWithAFilterForEachArmsItForAnotherVersion)
{
    start_pf({1, 2});
    ASSERT_EQ(task(act_pf).mode, 0U);
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 2, 9, 1), ORVA_SI_OK);
    EXPECT_EQ(request(act_pf, 1).version, 9);
    EXPECT_EQ(request(act_pf, 1).flag, 1);
    EXPECT_EQ(loaded(6).match[5], (9 << 1) | 1);
    EXPECT_EQ(loaded(6).negate[5], 0x3E);
}

TEST_F(EitFilters, UpdateOfPfInRotationKeepsTheTunedServiceAndMovesOthersOn)
{
    start_pf(services(4));
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 1, 9, 1), ORVA_SI_FAILURE);
    EXPECT_THAT(served(act_pf), ElementsAre(1, 2));
    EXPECT_EQ(request(act_pf, 0).version, 9);
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 2, 9, 1), ORVA_SI_FAILURE);
    EXPECT_THAT(served(act_pf), ElementsAre(1, 3));
    EXPECT_EQ(request(act_pf, 1).active, 0);
    EXPECT_EQ(request(act_pf, 1).finished, 1U);
}

TEST_F(EitFilters, UpdateOfAServiceThatNoFilterServesIsOnlyTraced)
{
    start_pf(services(4));
    fake::clear_log();
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 4, 9, 1), ORVA_SI_FAILURE);
    for (const fake::log_line &line : fake::log_lines())
        EXPECT_GE(line.level, 4U) << line.text;
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x42, 4, 9, 1), ORVA_SI_FAILURE); // no event table
}

TEST_F(EitFilters, UpdateUnderAFilterForEveryServiceChangesNothing)
{
    start_pf({0xFFFF});
    driver.forget_calls();
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 5, 9, 1), ORVA_SI_OK);
    EXPECT_THAT(driver.calls(), IsEmpty());
    EXPECT_EQ(request(act_pf, 0).version, 0xFF);
    EXPECT_EQ(request(act_pf, 0).finished, 0U);
}

TEST_F(EitFilters, UpdateOfADisabledKindIsRefused)
{
    start_pf({1});
    Si_CtlHelper_SetActPfEitEnableFlag(0);
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 1, 9, 1), disabled);
    EXPECT_EQ(loads(5), 1U);
}

TEST_F(EitFilters, UpdateOfAnUnboundFilterIsReported)
{
    start_pf({1});
    request(act_pf, 0).active = 0;
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 1, 9, 1), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "The filter has no active task, table_id: 0x4e!\n"));
}

TEST_F(EitFilters, FilterWalksTheSubTablesOfItsService)
{
    start_sch({1, 2});
    EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x52), ORVA_SI_OK);
    for (const int next : {0x51, 0x52}) {
        EXPECT_EQ(Si_SectFlt_UpdateEit(static_cast<std::uint32_t>(next - 1), 1, 4, 1), ORVA_SI_OK);
        EXPECT_EQ(loaded(5).match[0], next);
        EXPECT_EQ(loaded(5).negate[5], 0); // any version
        EXPECT_EQ(request(act_sch, 0).active, 1);
    }
    EXPECT_EQ(request(act_sch, 0).flag, 0);
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x52, 1, 4, 1), ORVA_SI_OK); // the service is complete
    EXPECT_EQ(request(act_sch, 0).flag, 1);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    EXPECT_EQ(loaded(5).negate[5], 0); // each sub-table has a version of its own
}

TEST_F(EitFilters, FilterGoesThroughSubTablesBeforeItMovesOnInRotation)
{
    start_sch(services(7));
    Si_SectFlt_UpdateEitLastTableId(0x50, 3, 0x51);
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x50, 3, 4, 1), ORVA_SI_OK);
    EXPECT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x51, 3, 4, 1), ORVA_SI_FAILURE);
    EXPECT_THAT(served(act_sch), ElementsAre(1, 2, 6, 4, 5));
    EXPECT_EQ(request(act_sch, 2).table_id, 0x50);
}

TEST_F(EitFilters, LateSectionsOfALeftSubTableAreNoFailure)
{
    start_sch({1});
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x51);
    Si_SectFlt_UpdateEit(0x50, 1, 4, 1);
    fake::clear_log();
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x50, 1, 4, 1), ORVA_SI_FAILURE);
    for (const fake::log_line &line : fake::log_lines())
        EXPECT_GE(line.level, 4U) << line.text;
    EXPECT_EQ(loaded(5).match[0], 0x51);
}

TEST_F(EitFilters, PresentAndFollowingComeAgainOnceTheStoreWasErased)
{
    start_pf({2, 3});
    Si_SectFlt_UpdateEit(0x4E, 2, 4, 1);
    ASSERT_EQ(request(act_pf, 0).version, 4);
    const auto &first = loaded(5);
    ASSERT_NE(first.negate[5], 0);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(request(act_pf, 0).version, 0xFF);
    EXPECT_EQ(loaded(5).negate[5], 0);
}

TEST_F(EitFilters, VersionPassedOverIsHeardAgainOnceFiltersGoRound)
{
    start_pf({2, 3});
    Si_SectFlt_UpdateEit(0x4E, 2, 4, 1);
    ASSERT_EQ(request(act_pf, 0).version, 4);
    start_pf({4});
    ASSERT_EQ(task(act_pf).mode, 1U);
    for (int run = 0; run < 11; ++run)
        Si_SectFlt_ActPfEitBgService();
    EXPECT_EQ(request(act_pf, 0).version, 0xFF);
}

TEST_F(EitFilters, RefusedSubTableIsTriedAgainByTheNextPoll)
{
    start_sch({1});
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x51);
    driver.answers[fake::update_filter] = 8;
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x50, 1, 4, 1), 8U);
    EXPECT_EQ(record(5).enabled, 0);
    driver.answers[fake::update_filter] = 0;
    Si_SectFlt_ActSchEitBgService();
    EXPECT_EQ(record(5).enabled, 1);
    EXPECT_EQ(loaded(5).match[0], 0x51);
}

// ---- Last table id

TEST_F(EitFilters, LastTableIdIsRaisedForItsService)
{
    start_sch({1, 2});
    EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x50, 2, 0x53), ORVA_SI_OK);
    EXPECT_EQ(request(act_sch, 1).last_table_id, 0x53);
    EXPECT_EQ(request(act_sch, 0).last_table_id, 0x50);
    EXPECT_TRUE(fake::logged(3,
                             "Update last_table_id: 0x50: 0x53, service_id: 0x2, filter_count: 2, "
                             "task_count: 2!\n"))
        << fake::log_text();
}

TEST_F(EitFilters, LastTableIdIsNeitherLoweredNorTakenFromAnotherRange)
{
    start_sch({1});
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x53);
    for (const std::uint32_t last : {0x53U, 0x51U, 0x63U, 0xFFU}) {
        fake::clear_log();
        EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x50, 1, last), ORVA_SI_OK);
        EXPECT_EQ(request(act_sch, 0).last_table_id, 0x53);
        EXPECT_TRUE(fake::logged(
            5, "We do not need to update the last table id: table_id: 80, last_table_id: " +
                   std::to_string(last) + "!\n"))
            << fake::log_text();
    }
}

TEST_F(EitFilters, LastTableIdOfAnUnknownServiceOrTableFails)
{
    start_sch({1});
    start_pf({1});
    EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x50, 9, 0x53), ORVA_SI_FAILURE);
    EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x4E, 1, 0x53), ORVA_SI_FAILURE);
    Si_CtlHelper_SetActSchEitEnableFlag(0);
    EXPECT_EQ(Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x53), disabled);
}

// ---- Duplicates and print

TEST_F(EitFilters, DuplicatesAndNullItemsAreRemoved)
{
    start_sch({1, 2, 3});
    filter_task &row = task(act_sch);
    request(act_sch, 2).service_id = 1; // now the same as the first, and served
    row.task_list = g_slist_insert(row.task_list, nullptr, 1);
    ++row.task_count;
    row.next_task_index = 3;
    EXPECT_EQ(Si_SectFlt_RemoveDupEitTasks(&row), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, "Null data pointer, remove it!\n"));
    EXPECT_THAT(queued(act_sch), ElementsAre(1, 2));
    EXPECT_EQ(row.task_count, 2);
    EXPECT_EQ(row.next_task_index, 0);
    EXPECT_EQ(record(7).item, nullptr);
    EXPECT_EQ(record(7).enabled, 0);
    EXPECT_EQ(driver.times_called(fake::disable_filter), 1U);
    EXPECT_EQ(Si_SectFlt_RemoveDupEitTasks(nullptr), 2U);
    EXPECT_TRUE(fake::logged(2, "[task\n"));
}

TEST_F(EitFilters, PrintShowsRowsAndItems)
{
    start_pf({1});
    fake::clear_log();
    EXPECT_EQ(Si_SectFlt_PrintEitFilterTask(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(3, "task id: 6, mode: 0, filters: 1, tasks: 1, next: 0\n"));
    EXPECT_TRUE(fake::logged(3, "task id: 9, mode: 2, filters: 0, tasks: 0, next: 0\n"));
    EXPECT_TRUE(
        fake::logged(3, "service_id: 0x1, ts_id: 0x11, on_id: 0x22, table_id: 0x4e, last: 0x4e, "
                        "version: 255, active: 1, finished: 0\n"))
        << fake::log_text();
}

// ---- Ageing

TEST_F(EitFilters, ActPfRequestTimesOutAfterItsLimitAndOneRun)
{
    start_pf(services(4));
    for (int run = 0; run < 10; ++run)
        EXPECT_EQ(Si_SectFlt_ActPfEitBgService(), ORVA_SI_OK);
    EXPECT_THAT(served(act_pf), ElementsAre(1, 2));
    Si_SectFlt_ActPfEitBgService();
    EXPECT_THAT(served(act_pf), ElementsAre(1, 3)); // the tuned one never loses its filter
    EXPECT_TRUE(fake::logged(3, "Filter 70 time out: 11!\n")) << fake::log_text();
}

TEST_F(EitFilters, PfServiceRotatesOtherMultiplexesToo)
{
    start_other_pf(requests(3));
    for (int run = 0; run < 6; ++run)
        Si_SectFlt_ActPfEitBgService();
    EXPECT_THAT(served(other_pf), ElementsAre(2));
    Si_CtlHelper_SetActPfEitEnableFlag(0);
    for (int run = 0; run < 6; ++run)
        EXPECT_EQ(Si_SectFlt_ActPfEitBgService(), disabled); // for its own row only
    EXPECT_THAT(served(other_pf), ElementsAre(3));
    Si_CtlHelper_SetOtherPfEitEnableFlag(0);
    for (int run = 0; run < 6; ++run)
        Si_SectFlt_ActPfEitBgService();
    EXPECT_THAT(served(other_pf), ElementsAre(3));
}

TEST_F(EitFilters, ActPfWithAFilterForEachDoesNotAge)
{
    tune(9);
    start_pf({1, 2});
    for (int run = 0; run < 30; ++run)
        Si_SectFlt_ActPfEitBgService();
    EXPECT_EQ(loads(5) + loads(6), 2U);
}

TEST_F(EitFilters, SchServiceRotatesBothRows)
{
    start_sch(services(7));
    start_other_sch(requests(2));
    for (int run = 0; run < 51; ++run)
        EXPECT_EQ(Si_SectFlt_ActSchEitBgService(), ORVA_SI_OK);
    EXPECT_THAT(served(act_sch), ElementsAre(6, 7, 1, 2, 3));
    EXPECT_THAT(served(other_sch), ElementsAre(2));
    Si_CtlHelper_SetActSchEitEnableFlag(0);
    for (int run = 0; run < 51; ++run)
        EXPECT_EQ(Si_SectFlt_ActSchEitBgService(), disabled);
    EXPECT_THAT(served(act_sch), ElementsAre(6, 7, 1, 2, 3));
    EXPECT_THAT(served(other_sch), ElementsAre(1));
}

TEST_F(EitFilters, SubTableThatNeverCompletesIsPassedOver)
{
    start_sch({1, 2}); // a filter for each
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x51);
    Si_SectFlt_UpdateEit(0x50, 1, 4, 1);
    ASSERT_EQ(loaded(5).match[0], 0x51);
    for (int run = 0; run < 51; ++run)
        Si_SectFlt_ActSchEitBgService();
    EXPECT_EQ(loaded(5).match[0], 0x50); // after the last the first again
    for (int run = 0; run < 51; ++run)
        Si_SectFlt_ActSchEitBgService();
    EXPECT_EQ(loaded(5).match[0], 0x51);
    EXPECT_EQ(loads(6), 1U); // a service with one sub-table stays as it is
}

TEST_F(EitFilters, RotationGoesOnWithTheNextSubTableAfterATimeOut)
{
    start_sch(services(6));
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x52);
    for (int run = 0; run < 51; ++run)
        Si_SectFlt_ActSchEitBgService();
    EXPECT_EQ(request(act_sch, 0).table_id, 0x51);
    EXPECT_EQ(request(act_sch, 1).table_id, 0x50);
    EXPECT_EQ(request(act_sch, 0).version, 0xFF);
}

TEST_F(EitFilters, TimeOutStepLeavesIdleRecordsAlone)
{
    Si_SectFlt_DisableTimeOutEitFilterFunc(nullptr, nullptr);
    EXPECT_TRUE(fake::logged(2, "[record\n"));
    Si_SectFlt_DisableTimeOutEitFilterFunc(&record(5), &task(act_pf));
    EXPECT_EQ(record(5).ticks, 0);
}

} // namespace
