// SPDX-License-Identifier: LGPL-2.1-or-later
// The eleven filter tasks, the rotation of filters over items, and the tables with a filter of
// their own.
#include "support/filters.h"

using namespace test;
using si::task_row;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t disabled = 0x20065;

class FilterTask : public Filters {};

// ---- The task table

TEST_F(FilterTask, TableHasElevenRowsWithTheirInitialQuotas)
{
    constexpr std::array quotas{1, 1, 1, 1, 1, 1, 1, 0, 5, 0, 0};
    for (std::uint32_t id = 0; id < quotas.size(); ++id) {
        const filter_task *row = si::find_task(id);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->task_id, id);
        EXPECT_EQ(row->mode, 2U);
        EXPECT_EQ(row->filter_quota, quotas[id]) << id;
        EXPECT_EQ(row->filter_list, nullptr);
        EXPECT_EQ(row->task_list, nullptr);
        EXPECT_EQ(row->filter_count + row->task_count + row->next_task_index, 0);
    }
    EXPECT_EQ(si::find_task(11), nullptr);
}

TEST_F(FilterTask, TableNamesTheFunctionsOfEachTable)
{
    EXPECT_EQ(task(si::pat_task).init_func, Si_SectFlt_InitPatFilter);
    EXPECT_EQ(task(si::pat_task).filter_func, Si_SectFlt_StartPatFilterTask);
    EXPECT_EQ(task(si::cat_task).filter_func, Si_SectFlt_StartCatFilterTask);
    EXPECT_EQ(task(si::pmt_task).filter_func, Si_SectFlt_StartPmtFilterTask);
    EXPECT_EQ(task(si::nit_task).filter_func, Si_SectFlt_StartNitFilterTask);
    EXPECT_EQ(task(si::sdt_bat_task).filter_func, Si_SectFlt_StartSdtBatFilterTask);
    EXPECT_EQ(task(si::tdt_tot_task).filter_func, Si_SectFlt_StartTdtTotFilterTask);
    for (const task_row row : {si::act_pf_eit_task, si::other_pf_eit_task, si::act_sch_eit_task,
                               si::other_sch_eit_task}) {
        EXPECT_EQ(task(row).filter_func, Si_SectFlt_StartEitFilterTask);
        EXPECT_EQ(task(row).init_func, Si_SectFlt_InitEitFilter);
    }
    EXPECT_EQ(task(si::dsmcc_task).filter_func, Si_SectFlt_StartDsmFilterTask);
}

TEST_F(FilterTask, TableIdSelectsItsTask)
{
    EXPECT_EQ(si::task_of(0x00), 0U);
    EXPECT_EQ(si::task_of(0x01), 1U);
    EXPECT_EQ(si::task_of(0x02), 2U);
    EXPECT_EQ(si::task_of(0x40), 3U);
    EXPECT_EQ(si::task_of(0x42), 4U);
    EXPECT_EQ(si::task_of(0x70), 5U);
    EXPECT_EQ(si::task_of(0x4E), 6U);
    EXPECT_EQ(si::task_of(0x4F), 7U);
    EXPECT_EQ(si::task_of(0x50), 8U);
    EXPECT_EQ(si::task_of(0x5F), 8U);
    EXPECT_EQ(si::task_of(0x60), 9U);
    EXPECT_EQ(si::task_of(0x6F), 9U);
    EXPECT_EQ(si::task_of(0x3B), 10U);
    for (const std::uint32_t other :
         {0x03U, 0x3AU, 0x3CU, 0x41U, 0x46U, 0x4AU, 0x71U, 0x73U, 0xFFU, 0x100U})
        EXPECT_EQ(si::task_of(other), 11U) << other;
}

// ---- Start of the tables with a filter of their own

struct static_start {
    const char *name;
    std::uint32_t (*start)();
    task_row row;
    std::size_t record;
    std::uint16_t pid;
    std::uint8_t table_id;
};
const static_start starts[] = {
    {"PAT", Si_SectFlt_StartPat, si::pat_task, 0, 0x0000, 0x00},
    {"CAT", Si_SectFlt_StartCat, si::cat_task, 1, 0x0001, 0x01},
    {"NIT", [] { return Si_SectFlt_StartNit(0, 0xFFFF); }, si::nit_task, 2, 0x0010, 0x40},
    {"SDT/BAT", Si_SectFlt_StartSdtBat, si::sdt_bat_task, 3, 0x0011, 0x42},
    {"TDT/TOT", Si_SectFlt_StartTdtTot, si::tdt_tot_task, 4, 0x0014, 0x70},
};

TEST_F(FilterTask, StartArmsTheTablesOwnRecord)
{
    for (const static_start &of : starts) {
        EXPECT_EQ(of.start(), ORVA_SI_OK) << of.name;
        const filter_task &row = task(of.row);
        EXPECT_EQ(row.mode, 0U);
        EXPECT_EQ(row.filter_count, 1);
        EXPECT_EQ(row.task_count, 1);
        EXPECT_EQ(row.filter_quota, 1);
        EXPECT_EQ(record(of.record).used, 1);
        EXPECT_EQ(record(of.record).enabled, 1);
        EXPECT_THAT(records_of(of.row), ElementsAre(&record(of.record)));
        EXPECT_EQ(loaded(of.record).pid, of.pid) << of.name;
        EXPECT_EQ(loaded(of.record).match[0], of.table_id) << of.name;
        EXPECT_EQ(loaded(of.record).list_length, 1U);
        EXPECT_EQ(item<task_item>(of.row, 0).active, 1);
        EXPECT_EQ(item<task_item>(of.row, 0).finished, 0U);
        EXPECT_EQ(record(of.record).item, &item<task_item>(of.row, 0));
    }
}

TEST_F(FilterTask, StartTracesCountsAndMode)
{
    Si_SectFlt_StartPat();
    EXPECT_TRUE(fake::logged(5, "We have already got 0 filters and 1 tasks!\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(5, "We have already got 1 filters and 1 tasks!\n"));
    EXPECT_TRUE(fake::logged(5, "task id: 0, task mode: 0\n"));
    EXPECT_TRUE(fake::logged(4, "filter_id: 64, filter_task->next_task_index = 0\n"));
}

TEST_F(FilterTask, DisabledTableIsNotStarted)
{
    Si_CtlHelper_ResetTableEnableFlag();
    for (const static_start &of : starts) {
        if (of.row == si::tdt_tot_task)
            continue;
        EXPECT_EQ(of.start(), disabled) << of.name;
        EXPECT_EQ(task(of.row).task_count, 0);
    }
    EXPECT_EQ(driver.times_called(fake::update_filter), 0U);
}

// The time tables have no check of their own at the start, only when they are armed.
TEST_F(FilterTask, DisabledTimeTablesAreQueuedButNotArmed)
{
    Si_CtlHelper_ResetTableEnableFlag();
    EXPECT_EQ(Si_SectFlt_StartTdtTot(), ORVA_SI_OK);
    EXPECT_EQ(task(si::tdt_tot_task).task_count, 1);
    EXPECT_EQ(task(si::tdt_tot_task).filter_count, 1);
    EXPECT_EQ(record(4).enabled, 0);
    EXPECT_EQ(loads(4), 0U);
}

TEST_F(FilterTask, SecondStartWithoutAStopReturnsOneAndAddsAnItem)
{
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_FAILURE);
    EXPECT_EQ(task(si::pat_task).task_count, 2);
    EXPECT_EQ(task(si::pat_task).filter_count, 1);
    EXPECT_EQ(loads(0), 1U); // the armed record is left alone
    EXPECT_EQ(record(0).enabled, 1);
    Si_SectFlt_TriggerFilterTask(&task(si::pat_task));
    EXPECT_EQ(task(si::pat_task).mode, 1U);
}

TEST_F(FilterTask, StartWithoutMemoryChangesNothing)
{
    fake::fail_allocation(1);
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_FAILURE);
    EXPECT_EQ(task(si::pat_task).task_count, 0);
    EXPECT_EQ(task(si::pat_task).filter_count, 0);
    EXPECT_EQ(record(0).used, 0);
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_OK);
}

TEST_F(FilterTask, RefusedFilterLeavesTheItemPendingForTheNextPoll)
{
    driver.answers[fake::update_filter] = 4;
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_OK);
    EXPECT_EQ(item<task_item>(si::pat_task, 0).active, 0);
    EXPECT_EQ(record(0).item, nullptr);
    EXPECT_EQ(record(0).enabled, 0);
    driver.answers[fake::update_filter] = 0;
    Si_SectFlt_TriggerFilterTask(&task(si::pat_task));
    EXPECT_EQ(item<task_item>(si::pat_task, 0).active, 1);
    EXPECT_EQ(record(0).enabled, 1);
}

TEST_F(FilterTask, NitWithTheFlagTakesActualOnlyWhateverItsNetwork)
{
    EXPECT_EQ(Si_SectFlt_StartNit(1, 0x1234), ORVA_SI_OK);
    EXPECT_EQ(item<task_item_nit>(si::nit_task, 0).network_id, 0x1234);
    EXPECT_EQ(item<task_item_nit>(si::nit_task, 0).flag, 1);
    EXPECT_EQ(loaded(2).match[0], 0x40);
    EXPECT_EQ(loaded(2).mask[0], 0xFF);
    EXPECT_EQ(loaded(2).mask[3] | loaded(2).mask[4], 0);
}

TEST_F(FilterTask, NitWithoutTheFlagTakesActualAndOtherOfTheNetwork)
{
    EXPECT_EQ(Si_SectFlt_StartNit(0, 0x1234), ORVA_SI_OK);
    EXPECT_EQ(loaded(2).match[0], 0x40);
    EXPECT_EQ(loaded(2).mask[0], 0xFE);
    EXPECT_EQ(loaded(2).match[3], 0x12);
    EXPECT_EQ(loaded(2).match[4], 0x34);
    EXPECT_EQ(loaded(2).mask[3] & loaded(2).mask[4], 0xFF);
}

// ---- Updates

struct static_update {
    const char *name;
    std::uint32_t (*start)();
    std::uint32_t (*update)(std::uint32_t version, std::uint32_t finished);
    task_row row;
    std::size_t record;
};
const static_update updates[] = {
    {"PAT", Si_SectFlt_StartPat, Si_SectFlt_UpdatePat, si::pat_task, 0},
    {"CAT", Si_SectFlt_StartCat, Si_SectFlt_UpdateCat, si::cat_task, 1},
    {"SDT/BAT", Si_SectFlt_StartSdtBat, Si_SectFlt_UpdateSdtBat, si::sdt_bat_task, 3},
    {"NIT", [] { return Si_SectFlt_StartNit(0, 7); },
     [](std::uint32_t version, std::uint32_t finished) {
         return Si_SectFlt_UpdateNit(9, version, finished);
     },
     si::nit_task, 2},
};

TEST_F(FilterTask, UpdateArmsTheSameFilterForAnotherVersion)
{
    for (const static_update &of : updates) {
        of.start();
        EXPECT_EQ(of.update(7, 1), ORVA_SI_OK) << of.name;
        EXPECT_EQ(loads(of.record), 2U);
        EXPECT_EQ(loaded(of.record).match[5], 0x0F) << of.name;
        EXPECT_EQ(loaded(of.record).negate[5], 0x3E) << of.name;
        EXPECT_EQ(item<task_item>(of.row, 0).active, 1);
        EXPECT_EQ(record(of.record).enabled, 1);
    }
    EXPECT_EQ(item<task_item_plain>(si::pat_task, 0).version, 7);
}

TEST_F(FilterTask, UpdateOfTheNitStoresNetworkAndVersion)
{
    Si_SectFlt_StartNit(0, 7);
    EXPECT_EQ(Si_SectFlt_UpdateNit(0x102, 5, 1), ORVA_SI_OK);
    EXPECT_EQ(item<task_item_nit>(si::nit_task, 0).network_id, 0x102);
    EXPECT_EQ(item<task_item_nit>(si::nit_task, 0).version, 5);
    EXPECT_EQ(loaded(2).match[3], 0x01);
    EXPECT_EQ(loaded(2).match[4], 0x02);
}

TEST_F(FilterTask, UpdateOfADisabledTableIsRefused)
{
    for (const static_update &of : updates)
        of.start();
    Si_CtlHelper_ResetTableEnableFlag();
    for (const static_update &of : updates) {
        EXPECT_EQ(of.update(7, 1), disabled) << of.name;
        EXPECT_EQ(loads(of.record), 1U);
    }
}

TEST_F(FilterTask, UpdateOfAnUnboundFilterReturnsOneAndChangesNothing)
{
    EXPECT_EQ(Si_SectFlt_UpdatePat(3, 1), ORVA_SI_FAILURE); // never started
    EXPECT_TRUE(fake::logged(1, "The filter has no active task, table_id: 0!\n"))
        << fake::log_text();
    driver.answers[fake::update_filter] = 4;
    Si_SectFlt_StartCat(); // not armed
    EXPECT_EQ(Si_SectFlt_UpdateCat(3, 1), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "The filter has no active task, table_id: 0x1!\n"));
    EXPECT_EQ(item<task_item_plain>(si::cat_task, 0).version, 0xFF);
    EXPECT_EQ(item<task_item_plain>(si::cat_task, 0).finished, 0U);
}

TEST_F(FilterTask, UpdateInIdleModeReturnsOne)
{
    Si_SectFlt_StartPat();
    task(si::pat_task).mode = 2;
    EXPECT_EQ(Si_SectFlt_UpdatePat(3, 6), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "Wrong task mode: 2, table_id: 0!\n"));
    EXPECT_EQ(item<task_item>(si::pat_task, 0).finished, 6U);
    EXPECT_EQ(item<task_item>(si::pat_task, 0).active, 0);
}

TEST_F(FilterTask, UpdateWhoseFilterIsRefusedIsTriedAgainByTheNextPoll)
{
    Si_SectFlt_StartPat();
    driver.answers[fake::update_filter] = 4;
    EXPECT_EQ(Si_SectFlt_UpdatePat(3, 1), 4U);
    EXPECT_EQ(record(0).enabled, 0);
    driver.answers[fake::update_filter] = 0;
    Si_SectFlt_TriggerFilterTask(&task(si::pat_task));
    EXPECT_EQ(record(0).enabled, 1);
    EXPECT_EQ(loaded(0).match[5], 0x07); // with the version that was stored
}

TEST_F(FilterTask, UpdateInRotationMovesTheFilterOn)
{
    Si_SectFlt_StartPat();
    Si_SectFlt_StartPat();
    Si_SectFlt_TriggerFilterTask(&task(si::pat_task));
    ASSERT_EQ(served_by(si::pat_task, 0), 0);
    task(si::pat_task).next_task_index = 1; // as the first turn left it with two items
    EXPECT_EQ(Si_SectFlt_UpdatePat(3, 8), ORVA_SI_FAILURE);
    EXPECT_EQ(served_by(si::pat_task, 0), 1);
    EXPECT_EQ(item<task_item>(si::pat_task, 0).active, 0);
    EXPECT_EQ(item<task_item>(si::pat_task, 0).finished, 8U);
    EXPECT_EQ(item<task_item>(si::pat_task, 1).active, 1);
    EXPECT_EQ(loads(0), 2U);
}

TEST_F(FilterTask, ThreeItemsOnOneFilterGoRound)
{
    filter_task &row = task(si::pat_task);
    std::array<task_item_plain *, 3> three{};
    for (task_item_plain *&of : three) {
        of = si::new_item<task_item_plain>();
        of->version = 0xFF;
        Si_SectFlt_AddNewTask(&row, of);
    }
    row.init_func(&record(0));
    Si_SectFlt_AddNewFilter(&row, &record(0));
    Si_SectFlt_TriggerFilterTask(&row);
    std::vector<int> served{served_by(si::pat_task, 0)};
    std::vector<int> next{row.next_task_index};
    for (int turn = 0; turn < 4; ++turn) {
        Si_SectFlt_UpdatePat(1, 1);
        served.push_back(served_by(si::pat_task, 0));
        next.push_back(row.next_task_index);
    }
    EXPECT_THAT(served, ElementsAre(0, 1, 2, 0, 1));
    EXPECT_THAT(next, ElementsAre(1, 2, 0, 1, 2));
}

// ---- Trigger and poll

TEST_F(FilterTask, TriggerSetsTheModeByTheCounts)
{
    filter_task &row = task(si::pat_task);
    EXPECT_EQ(Si_SectFlt_TriggerFilterTask(&row), ORVA_SI_OK);
    EXPECT_EQ(row.mode, 2U);
    Si_SectFlt_AddNewTask(&row, si::new_item<task_item_plain>());
    Si_SectFlt_TriggerFilterTask(&row);
    EXPECT_EQ(row.mode, 2U); // an item but no filter
    EXPECT_TRUE(fake::logged(5, "task id: 0, task mode: 2\n"));
    row.init_func(&record(0));
    Si_SectFlt_AddNewFilter(&row, &record(0));
    Si_SectFlt_TriggerFilterTask(&row);
    EXPECT_EQ(row.mode, 0U);
    Si_SectFlt_AddNewTask(&row, si::new_item<task_item_plain>());
    Si_SectFlt_TriggerFilterTask(&row);
    EXPECT_EQ(row.mode, 1U);
    EXPECT_TRUE(fake::logged(5, "task id: 0, task mode: 1\n"));
}

TEST_F(FilterTask, NullArgumentsAnswerTwo)
{
    EXPECT_EQ(Si_SectFlt_TriggerFilterTask(nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_StopFilterTask(nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_SetFilterMode(nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_RemoveUselessFilters(nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_AddNewTask(nullptr, nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_AddNewFilter(nullptr, nullptr), 2U);
    EXPECT_EQ(Si_SectFlt_AddAvailableFilters(nullptr, 1), 0U);
    EXPECT_TRUE(fake::logged(2, "[task\n"));
    EXPECT_EQ(Si_SectFlt_AddNewTask(&task(si::pat_task), nullptr), 2U);
    EXPECT_TRUE(fake::logged(2, "[item\n"));
    EXPECT_EQ(Si_SectFlt_AddNewFilter(&task(si::pat_task), nullptr), 2U);
    EXPECT_TRUE(fake::logged(2, "[record\n"));
    Si_SectFlt_PollNewTaskFunc(nullptr, &task(si::pat_task));
    Si_SectFlt_PollNewTaskFunc(&record(0), nullptr);
    EXPECT_EQ(task(si::pat_task).flush_task_func(nullptr, &task(si::pat_task)), 2U);
    EXPECT_EQ(task(si::pat_task).task_count, 0);
}

TEST_F(FilterTask, StartTaskFunctionsPrintAssertionsForNullArguments)
{
    struct {
        const char *name;
        std::uint32_t (*start)(pid_filter *, void *);
    } const functions[] = {
        {"Si_SectFlt_StartPatFilterTask", Si_SectFlt_StartPatFilterTask},
        {"Si_SectFlt_StartCatFilterTask", Si_SectFlt_StartCatFilterTask},
        {"Si_SectFlt_StartNitFilterTask", Si_SectFlt_StartNitFilterTask},
        {"Si_SectFlt_StartSdtBatFilterTask", Si_SectFlt_StartSdtBatFilterTask},
        {"Si_SectFlt_StartTdtTotFilterTask", Si_SectFlt_StartTdtTotFilterTask},
        {"Si_SectFlt_StartPmtFilterTask", Si_SectFlt_StartPmtFilterTask},
        {"Si_SectFlt_StartDsmFilterTask", Si_SectFlt_StartDsmFilterTask},
    };
    for (const auto &of : functions) {
        task_item_eit any_item{}; // the largest
        std::uint32_t result = 0;
        EXPECT_THAT(printed([&] { result = of.start(nullptr, &any_item); }),
                    is_assertion(of.name, "pid_filter!=((void *)0)"));
        EXPECT_EQ(result, 2U);
        EXPECT_THAT(printed([&] { result = of.start(&record(5), nullptr); }),
                    is_assertion(of.name, "task_item!=((void *)0)"));
        EXPECT_EQ(result, 2U);
    }
}

TEST_F(FilterTask, TableDisabledBetweenStartAndArmingIsNotArmed)
{
    Si_CtlHelper_ResetTableEnableFlag();
    task_item_plain plain{};
    task_item_nit nit{};
    for (const auto start : {Si_SectFlt_StartPatFilterTask, Si_SectFlt_StartCatFilterTask,
                             Si_SectFlt_StartSdtBatFilterTask, Si_SectFlt_StartTdtTotFilterTask})
        EXPECT_EQ(start(&record(0), &plain), disabled);
    EXPECT_EQ(Si_SectFlt_StartNitFilterTask(&record(2), &nit), disabled);
    EXPECT_EQ(driver.times_called(fake::update_filter), 0U);
}

TEST_F(FilterTask, PollWithoutAStartFunctionIsReported)
{
    filter_task row{};
    task_item_plain item{};
    row.task_list = g_slist_append(nullptr, &item);
    row.task_count = 1;
    Si_SectFlt_PollNewTaskFunc(&record(0), &row);
    EXPECT_TRUE(fake::logged(2, "filter_task->filter_func!=NULL"));
    EXPECT_EQ(item.active, 0);
    g_slist_free(row.task_list);
}

TEST_F(FilterTask, PollLeavesAnEnabledRecordAlone)
{
    Si_SectFlt_StartPat();
    Si_SectFlt_AddNewTask(&task(si::pat_task), si::new_item<task_item_plain>());
    Si_SectFlt_PollNewTaskFunc(&record(0), &task(si::pat_task));
    EXPECT_EQ(loads(0), 1U);
    EXPECT_EQ(served_by(si::pat_task, 0), 0);
}

TEST_F(FilterTask, PollDoesNothingWhenThePositionIsOutOfRange)
{
    filter_task &row = task(si::pat_task);
    Si_SectFlt_AddNewTask(&row, si::new_item<task_item_plain>());
    row.next_task_index = 1;
    row.init_func(&record(0));
    Si_SectFlt_PollNewTaskFunc(&record(0), &row);
    EXPECT_EQ(loads(0), 0U);
}

TEST_F(FilterTask, SurplusFiltersAreDroppedIdleOnesFirstThenFromTheTail)
{
    filter_task &row = task(si::pmt_task);
    std::array<task_item_pmt *, 3> three{};
    for (task_item_pmt *&of : three) {
        of = si::new_item<task_item_pmt>();
        Si_SectFlt_AddNewTask(&row, of);
    }
    three[2]->wanted = 0; // pinned
    EXPECT_EQ(Si_SectFlt_AddAvailableFilters(&row, 4), 4U);
    for (std::size_t i = 0; i < 3; ++i) { // record 7 serves nothing
        const std::size_t index = i == 2 ? 8 : 5 + i;
        ASSERT_EQ(Si_SectFlt_StartPmtFilterTask(&record(index), three[i]), ORVA_SI_OK);
        record(index).item = &si::head_of(*three[i]);
    }
    Si_SectFlt_RemoveUselessFilters(&row);
    EXPECT_THAT(records_of(si::pmt_task), ElementsAre(&record(5), &record(6), &record(8)));
    EXPECT_EQ(driver.times_called(fake::disable_filter), 0U); // it was not enabled
    EXPECT_EQ(record(7).used, 0);

    row.flush_task_func(three[0], &row); // two items, three filters: not the pinned one
    row.task_list = g_slist_remove(row.task_list, three[0]);
    record(5).item = nullptr;
    three[1]->active = 1;
    Si_SectFlt_RemoveUselessFilters(&row);
    EXPECT_THAT(records_of(si::pmt_task), ElementsAre(&record(6), &record(8)));
    EXPECT_EQ(driver.times_called(fake::disable_filter), 1U);

    row.flush_task_func(three[1], &row); // one item: an unpinned record goes before the pinned one
    row.task_list = g_slist_remove(row.task_list, three[1]);
    Si_SectFlt_RemoveUselessFilters(&row);
    EXPECT_THAT(records_of(si::pmt_task), ElementsAre(&record(8)));

    row.flush_task_func(three[2], &row); // no item
    row.task_list = g_slist_remove(row.task_list, three[2]);
    Si_SectFlt_RemoveUselessFilters(&row);
    EXPECT_THAT(records_of(si::pmt_task), IsEmpty());
    EXPECT_EQ(row.filter_count, 0);
}

// ---- Moving filters between tasks

class Donation : public Filters {
protected:
    // A task that holds this many filters, each serving an item.
    void fill(task_row row, std::uint32_t filters, std::uint8_t quota)
    {
        filter_task &of = task(row);
        for (std::uint32_t i = 0; i < filters; ++i) {
            auto *item = si::new_item<task_item_pmt>();
            item->program_number = static_cast<std::uint16_t>(i + 1);
            item->pid = static_cast<std::uint16_t>(0x100 + i);
            Si_SectFlt_AddNewTask(&of, item);
        }
        EXPECT_EQ(Si_SectFlt_AddAvailableFilters(&of, filters), filters);
        of.filter_quota = quota;
        Si_SectFlt_TriggerFilterTask(&of);
    }
};

TEST_F(Donation, SurplusOverTheQuotaIsTakenFromTheTail)
{
    fill(si::pmt_task, 6, 2);
    EXPECT_EQ(Si_SectFlt_ReduceTaskFilterList(&task(si::dsmcc_task), 3), 3U);
    EXPECT_THAT(records_of(si::pmt_task), ElementsAre(&record(5), &record(6), &record(7)));
    EXPECT_EQ(task(si::pmt_task).mode, 1U);
    EXPECT_EQ(driver.times_called(fake::disable_filter), 3U);
    EXPECT_EQ(record(10).used, 0);
    EXPECT_EQ(item<task_item>(si::pmt_task, 5).active, 0); // pending again
    EXPECT_EQ(driver.running(), 3U);
}

TEST_F(Donation, NothingBelowTheQuotaIsTaken)
{
    fill(si::pmt_task, 6, 2);
    EXPECT_EQ(Si_SectFlt_ReduceTaskFilterList(&task(si::dsmcc_task), 10), 4U);
    EXPECT_EQ(task(si::pmt_task).filter_count, 2);
    EXPECT_EQ(Si_SectFlt_ReduceTaskFilterList(&task(si::dsmcc_task), 1), 0U);
}

TEST_F(Donation, PinnedFiltersAreNotTaken)
{
    fill(si::pmt_task, 4, 0);
    item<task_item>(si::pmt_task, 3).wanted = 0;
    EXPECT_EQ(Si_SectFlt_ReduceTaskFilterList(&task(si::dsmcc_task), 4), 3U);
    EXPECT_THAT(records_of(si::pmt_task), ElementsAre(&record(8)));
}

TEST_F(Donation, TheRequesterIsNoDonor)
{
    fill(si::pmt_task, 6, 2);
    EXPECT_EQ(Si_SectFlt_ReduceTaskFilterList(&task(si::pmt_task), 1), 0U);
    EXPECT_EQ(task(si::pmt_task).filter_count, 6);
}

TEST_F(Donation, ClosedPoolAddsNothing)
{
    use_up_dynamic_filters();
    EXPECT_EQ(Si_SectFlt_AddAvailableFilters(&task(si::pmt_task), 3), 0U);
    EXPECT_EQ(task(si::pmt_task).filter_count, 0);
    free_dynamic_filters();
}

// ---- Stop

TEST_F(FilterTask, StopReleasesTheRecordAndFreesTheItems)
{
    for (const static_start &of : starts)
        of.start();
    Si_SectFlt_StartPat(); // a second item
    EXPECT_EQ(Si_SectFlt_StopPat(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StopCat(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StopNit(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StopSdtBat(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StopTdtTot(), ORVA_SI_OK);
    for (const static_start &of : starts) {
        const filter_task &row = task(of.row);
        EXPECT_EQ(row.mode, 2U);
        EXPECT_EQ(row.filter_quota, 0);
        EXPECT_EQ(row.next_task_index, 0);
        EXPECT_EQ(row.task_count + row.filter_count, 0);
        EXPECT_EQ(row.filter_list, nullptr);
        EXPECT_EQ(row.task_list, nullptr);
        EXPECT_EQ(record(of.record).used, 0);
        EXPECT_EQ(record(of.record).enabled, 0);
        EXPECT_EQ(record(of.record).item, nullptr);
    }
    EXPECT_EQ(driver.times_called(fake::disable_filter), 5U);
    EXPECT_EQ(driver.times_called(fake::remove_filter), 0U); // kept for the next start
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(FilterTask, StopWorksOnADisabledTable)
{
    Si_SectFlt_StartPat();
    Si_CtlHelper_ResetTableEnableFlag();
    EXPECT_EQ(Si_SectFlt_StopPat(), ORVA_SI_OK);
    EXPECT_EQ(task(si::pat_task).task_count, 0);
}

TEST_F(FilterTask, StopOfAnUnarmedRecordDoesNotDisableIt)
{
    driver.answers[fake::update_filter] = 4;
    Si_SectFlt_StartPat();
    EXPECT_EQ(Si_SectFlt_StopPat(), ORVA_SI_OK);
    EXPECT_EQ(driver.times_called(fake::disable_filter), 0U);
}

TEST_F(FilterTask, StopSurvivesADriverThatCannotDisable)
{
    Si_SectFlt_StartPat();
    driver.answers[fake::disable_filter] = 3;
    EXPECT_EQ(Si_SectFlt_StopPat(), ORVA_SI_OK);
    EXPECT_EQ(record(0).enabled, 0);
    EXPECT_EQ(Si_SectFlt_StartPat(), ORVA_SI_OK);
    driver.table()->DisableSecFilter = nullptr;
    EXPECT_EQ(Si_SectFlt_StopPat(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, "NULL pointer!\n"));
}

TEST_F(FilterTask, StopPrintsAnAssertionWhenFiltersAreLeft)
{
    Si_SectFlt_StartPat();
    task(si::pat_task).filter_count = 2;
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StopPat(); }),
                is_assertion("Si_SectFlt_StopFilterTask", "filter_task->filter_count==0"));
    EXPECT_EQ(result, ORVA_SI_FAILURE);
    task(si::pat_task).filter_count = 1; // what the next stop will count down
    record(0).enabled = 0;
}

TEST_F(FilterTask, StopPrintsAnAssertionWhenItemsAreLeft)
{
    Si_SectFlt_StartPat();
    task(si::pat_task).task_count = 2;
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StopPat(); }),
                is_assertion("Si_SectFlt_StopFilterTask", "filter_task->task_count==0"));
    EXPECT_EQ(result, ORVA_SI_FAILURE);
    task(si::pat_task).task_count = 0;
}

TEST_F(FilterTask, StopWithoutAFlushFunctionIsReported)
{
    filter_task row{};
    EXPECT_EQ(Si_SectFlt_StopFilterTask(&row), 2U);
    EXPECT_TRUE(fake::logged(2, "filter_task->flush_task_func!=NULL"));
}

TEST_F(FilterTask, StopAllStopsEveryTaskFlushesTheQueueAndPausesTheServices)
{
    for (const static_start &of : starts)
        of.start();
    Orva_Si_StartDsmFilter(0x300);
    for (std::uint32_t service = 0; service < 3; ++service)
        Si_BG_ResumeService(service);
    driver.deliver(driver.filter_id(0), std::vector<std::uint8_t>(20));
    ASSERT_EQ(Si_SectFlt_GetPendingCount(), 1U);
    EXPECT_EQ(Si_SectFlt_StopAllFilters(), ORVA_SI_OK);
    for (std::uint32_t id = 0; id < si::task_total; ++id)
        EXPECT_EQ(si::find_task(id)->task_count + si::find_task(id)->filter_count, 0) << id;
    EXPECT_TRUE(fake::logged(3, "Flush the tmp list!\n"));
    EXPECT_EQ(Si_SectFlt_GetPendingCount(), 0U);
    EXPECT_TRUE(paused(0) && paused(1) && paused(2));
}

TEST_F(FilterTask, FlushedItemLeavesNoRecordBehindThatPointsAtIt)
{
    Si_SectFlt_StartPat();
    filter_task &row = task(si::pat_task);
    task_item *served = record(0).item;
    row.task_list = g_slist_remove(row.task_list, served);
    EXPECT_EQ(row.flush_task_func(served, &row), ORVA_SI_OK);
    EXPECT_EQ(record(0).item, nullptr);
    EXPECT_EQ(row.task_count, 0);
}

} // namespace
