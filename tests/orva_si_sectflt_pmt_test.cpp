// SPDX-License-Identifier: LGPL-2.1-or-later
// PMT filters: requests of all programs, pinned ones, rotation and ageing.
#include "orva_si_model.h"
#include "support/filters.h"

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::uint32_t disabled = 0x20065;

class PmtFilters : public Filters {
protected:
    // Programs 1 to count on the PIDs from 0x101 on.
    static SiPmtPidList programs(std::uint32_t count, std::uint16_t tuned = SI_NO_PROGRAM)
    {
        SiPmtPidList list{};
        for (std::uint32_t i = 0; i < count; ++i)
            si::store_pmt_entry(list, i, {static_cast<std::uint16_t>(i + 1), pid_of(i + 1)});
        list.count = count;
        list.cur_prog_num = tuned;
        return list;
    }
    static std::uint16_t pid_of(std::uint32_t program)
    {
        return static_cast<std::uint16_t>(0x100 + program);
    }
    static std::uint32_t start(std::uint32_t count, std::uint16_t tuned = SI_NO_PROGRAM)
    {
        if (tuned != SI_NO_PROGRAM)
            tune(tuned);
        const SiPmtPidList list = programs(count, tuned);
        return Si_SectFlt_StartPmt(&list);
    }
    static filter_task &row() { return task(si::pmt_task); }
    static task_item_pmt &request(std::size_t index)
    {
        return item<task_item_pmt>(si::pmt_task, index);
    }
    // Program numbers that the records serve, in the order of the filter list; 0: none.
    static std::vector<int> served()
    {
        std::vector<int> all;
        for (const pid_filter *of : records_of(si::pmt_task))
            all.push_back(
                of->item == nullptr ? 0 : si::item_as<task_item_pmt>(of->item)->program_number);
        return all;
    }
    static std::uint32_t update(std::uint32_t program, std::uint32_t version = 1)
    {
        return Si_SectFlt_UpdatePmt(program, pid_of(program), version, 1);
    }
};

// ---- Start

TEST_F(PmtFilters, NullListPrintsAnAssertion)
{
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartPmt(nullptr); }),
                is_assertion("Si_SectFlt_StartPmt", "pmtpid_list != ((void *)0)"));
    EXPECT_EQ(result, 2U);
}

TEST_F(PmtFilters, OneProgramHasQuotaOne)
{
    EXPECT_EQ(start(1, 1), ORVA_SI_OK);
    EXPECT_EQ(row().filter_quota, 1);
    EXPECT_EQ(row().filter_count, 1);
    EXPECT_EQ(row().mode, 0U);
    EXPECT_EQ(request(0).wanted, 0U);
}

TEST_F(PmtFilters, FortyProgramsWithTheTunedOneShareTwoFilters)
{
    EXPECT_EQ(start(40, 7), ORVA_SI_OK);
    EXPECT_EQ(row().filter_quota, 2);
    EXPECT_EQ(row().task_count, 40);
    EXPECT_EQ(row().mode, 1U);
    EXPECT_THAT(served(), ElementsAre(7, 1)); // the tuned one first
    EXPECT_TRUE(fake::logged(3, "Open 2 filters for 40 PMT table, current service_id: 0x7\n"))
        << fake::log_text();
    std::vector<int> turns;
    for (int turn = 0; turn < 39; ++turn) {
        EXPECT_EQ(update(static_cast<std::uint32_t>(served()[1])), ORVA_SI_FAILURE);
        EXPECT_EQ(served()[0], 7);
        turns.push_back(served()[1]);
    }
    for (int program = 2; program <= 40; ++program) // every other program had its turn
        EXPECT_EQ(std::ranges::count(turns, program), program == 7 ? 0 : 1) << program;
    EXPECT_EQ(turns.back(), 1);
}

TEST_F(PmtFilters, RequestCarriesItsProgram)
{
    start(2, 2);
    const task_item_pmt &other = request(0);
    EXPECT_EQ(other.program_number, 1);
    EXPECT_EQ(other.pid, 0x101);
    EXPECT_EQ(other.version, 0xFF);
    EXPECT_EQ(other.timeout, 4);
    EXPECT_EQ(other.wanted, 1U);
    EXPECT_EQ(request(1).wanted, 0U);
    EXPECT_EQ(request(1).timeout, 4);
}

TEST_F(PmtFilters, FilterIsLoadedForItsProgram)
{
    start(1, 1);
    const SiDmxFilterParam param = loaded(5);
    EXPECT_EQ(param.pid, 0x101);
    EXPECT_EQ(param.match[0], 0x02);
    EXPECT_EQ(param.match[3], 0x00);
    EXPECT_EQ(param.match[4], 0x01);
    EXPECT_EQ(param.mask[3] & param.mask[4], 0xFF);
    EXPECT_EQ(param.list_length, 1U);
    EXPECT_TRUE(fake::logged(5, "PMT filter id: 69, program_no: 0x1, pid: 0x101\n"))
        << fake::log_text();
    EXPECT_EQ(record(5).pid, 0x101);
    EXPECT_EQ(record(5).service_id, 1);
}

TEST_F(PmtFilters, EntriesThatAreNoProgramGetNoRequest)
{
    SiPmtPidList list{};
    si::store_pmt_entry(list, 0, {0, 0x10}); // the network PID
    si::store_pmt_entry(list, 1, {0xFFFF, 0x101});
    si::store_pmt_entry(list, 2, {5, 0x2000});
    si::store_pmt_entry(list, 3, {6, 0x106});
    list.count = 4;
    list.cur_prog_num = SI_NO_PROGRAM;
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), ORVA_SI_OK);
    EXPECT_EQ(row().task_count, 1);
    EXPECT_EQ(request(0).program_number, 6);
}

TEST_F(PmtFilters, CountBeyondTheListIsClamped)
{
    SiPmtPidList list = programs(255);
    list.count = 0xFFFFFFFF;
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), ORVA_SI_OK);
    EXPECT_EQ(row().task_count, 255);
}

TEST_F(PmtFilters, EmptyListLeavesTheTaskIdle)
{
    EXPECT_EQ(start(0), ORVA_SI_OK);
    EXPECT_EQ(row().mode, 2U);
    EXPECT_EQ(row().filter_quota, 0);
}

TEST_F(PmtFilters, WithoutATunedProgramAllFreeFiltersAreTaken)
{
    EXPECT_EQ(start(40), ORVA_SI_OK);
    EXPECT_EQ(row().filter_quota, 2);
    EXPECT_EQ(row().filter_count, 26);
    EXPECT_EQ(row().mode, 1U);
    EXPECT_EQ(driver.running(), 26U);
    EXPECT_FALSE(fake::logged("Fetch filter sucessfully!\n"));
}

TEST_F(PmtFilters, WithoutATunedProgramAFewProgramsHaveAFilterEach)
{
    EXPECT_EQ(start(6), ORVA_SI_OK);
    EXPECT_EQ(row().filter_count, 6);
    EXPECT_EQ(row().mode, 0U);
}

TEST_F(PmtFilters, TunedProgramThatIsNotListedPinsNothing)
{
    tune(99);
    const SiPmtPidList list = programs(3, 99);
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), ORVA_SI_OK);
    EXPECT_EQ(row().filter_count, 3);
    for (const task_item_pmt *of : items<task_item_pmt>(si::pmt_task))
        EXPECT_EQ(of->wanted, 1U);
}

TEST_F(PmtFilters, SecondStartWithoutAStopIsRefused)
{
    start(3, 1);
    fake::clear_log();
    const SiPmtPidList list = programs(5, 1);
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "All ready have 2 PMT filters\n"));
    EXPECT_EQ(row().task_count, 3);
}

TEST_F(PmtFilters, MissingFiltersAreTakenFromOtherTasks)
{
    // An event row that holds all filters but may keep five.
    filter_task &donor = task(si::act_sch_eit_task);
    for (int i = 0; i < 26; ++i) {
        auto *of = si::new_item<task_item_eit>();
        of->table_id = of->last_table_id = 0x50;
        of->service_id = static_cast<std::uint16_t>(i);
        of->list_length = 1;
        Si_SectFlt_AddNewTask(&donor, of);
    }
    ASSERT_EQ(Si_SectFlt_AddAvailableFilters(&donor, 26), 26U);
    donor.filter_quota = 5;
    Si_SectFlt_TriggerFilterTask(&donor);
    EXPECT_EQ(start(4, 1), ORVA_SI_OK);
    EXPECT_EQ(row().filter_count, 2);
    EXPECT_EQ(donor.filter_count, 24);
    EXPECT_EQ(donor.mode, 1U);
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully!\n"));
    EXPECT_THAT(served(), ElementsAre(1, 2));
}

TEST_F(PmtFilters, WithoutAnyFilterTheTaskStaysIdle)
{
    use_up_dynamic_filters();
    EXPECT_EQ(start(4, 1), ORVA_SI_OK);
    EXPECT_EQ(row().mode, 2U);
    EXPECT_EQ(row().task_count, 4);
    EXPECT_FALSE(fake::logged("Fetch filter sucessfully!\n"));
    free_dynamic_filters();
}

TEST_F(PmtFilters, WithoutMemoryWhatIsQueuedGoesOn)
{
    const SiPmtPidList list = programs(4);
    fake::fail_allocations_from(3);
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), ORVA_SI_FAILURE);
    fake::fail_allocations_from(0);
    EXPECT_EQ(row().task_count, 2);
    EXPECT_EQ(row().filter_count, 2);
    EXPECT_EQ(row().mode, 0U);
}

TEST_F(PmtFilters, DisabledPmtsAreRefused)
{
    start(3, 1);
    Si_CtlHelper_ResetTableEnableFlag();
    const SiPmtPidList list = programs(3, 1);
    task_item_pmt one{};
    EXPECT_EQ(Si_SectFlt_StartPmt(&list), disabled);
    EXPECT_EQ(update(1), disabled);
    EXPECT_EQ(Orva_Si_LatchPmt(3), disabled);
    EXPECT_EQ(Orva_Si_UnLatchPmt(3), disabled);
    EXPECT_EQ(Si_SectFlt_StartPmtFilterTask(&record(9), &one), disabled);
    EXPECT_EQ(Si_SectFlt_StopPmt(), disabled); // and stops all the same
    EXPECT_EQ(row().task_count + row().filter_count, 0);
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(PmtFilters, StopFreesRequestsAndFilters)
{
    start(40, 7);
    EXPECT_EQ(Si_SectFlt_StopPmt(), ORVA_SI_OK);
    EXPECT_EQ(row().task_count + row().filter_count, 0);
    EXPECT_EQ(driver.running(), 0U);
    EXPECT_EQ(record(5).used, 0);
}

TEST_F(PmtFilters, RefusedFilterIsTriedAgain)
{
    driver.refused_loads = {driver.filter_id(5)};
    start(3, 1);
    EXPECT_THAT(served(), ElementsAre(0, 1)); // the other filter takes the tuned program
    driver.refused_loads.clear();
    Si_SectFlt_PmtBgService();
    EXPECT_THAT(served(), ElementsAre(2, 1));
}

// ---- Updates

TEST_F(PmtFilters, UpdateWithAFilterForEachArmsItForAnotherVersion)
{
    start(2, 1);
    ASSERT_EQ(row().mode, 0U);
    EXPECT_EQ(update(2, 9), ORVA_SI_OK);
    EXPECT_EQ(request(1).version, 9);
    EXPECT_THAT(served(), ElementsAre(1, 2));
    EXPECT_EQ(loaded(6).match[5], (9 << 1) | 1);
    EXPECT_EQ(loaded(6).negate[5], 0x3E);
}

TEST_F(PmtFilters, UpdateInRotationKeepsThePinnedFilter)
{
    start(40, 7);
    EXPECT_EQ(update(7, 3), ORVA_SI_FAILURE); // the result of a rotating task
    EXPECT_THAT(served(), ElementsAre(7, 1));
    EXPECT_EQ(request(6).version, 3);
    EXPECT_EQ(request(6).active, 1);
    EXPECT_EQ(loaded(5).negate[5], 0x3E);
}

TEST_F(PmtFilters, UpdateOfAProgramWithoutAFilterIsReported)
{
    start(40, 7);
    fake::clear_log();
    EXPECT_EQ(update(30), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "The filter has no active task, table_id: 0x2!\n"));
    EXPECT_EQ(Si_SectFlt_UpdatePmt(7, 0x1FF, 1, 1), ORVA_SI_FAILURE); // on another PID
}

TEST_F(PmtFilters, UpdateOfAnIdleTaskIsReported)
{
    start(2, 1);
    row().mode = 2;
    EXPECT_EQ(update(1), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "Wrong task mode: 2, table_id: 0x2!\n"));
}

// ---- Latching

TEST_F(PmtFilters, LatchOfTheTunedProgramChangesNothing)
{
    start(40, 7);
    driver.forget_calls();
    EXPECT_EQ(Orva_Si_LatchPmt(7), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_LatchPmt(0x10007), ORVA_SI_OK); // 16 bits count
    EXPECT_THAT(driver.calls(), IsEmpty());
    EXPECT_THAT(served(), ElementsAre(7, 1));
}

TEST_F(PmtFilters, LatchTakesOverTheRotatingFilter)
{
    start(40, 7);
    request(29).version = 4;
    EXPECT_EQ(Orva_Si_LatchPmt(30), ORVA_SI_OK);
    EXPECT_THAT(served(), ElementsAre(7, 30));
    EXPECT_EQ(request(29).wanted, 0U);
    EXPECT_EQ(request(29).version, 0xFF);
    EXPECT_EQ(request(29).active, 1);
    EXPECT_EQ(request(0).active, 0); // waits for the rotation
    EXPECT_EQ(loaded(6).pid, 0x11E);
    update(30); // keeps its filter
    EXPECT_THAT(served(), ElementsAre(7, 30));
}

TEST_F(PmtFilters, LatchOfAProgramBeingServedOnlyPinsIt)
{
    start(40, 7);
    driver.forget_calls();
    EXPECT_EQ(Orva_Si_LatchPmt(1), ORVA_SI_OK);
    EXPECT_EQ(request(0).wanted, 0U);
    EXPECT_THAT(driver.calls(), IsEmpty());
}

TEST_F(PmtFilters, LatchWithoutARotatingFilterFails)
{
    start(40, 7);
    Orva_Si_LatchPmt(1);
    EXPECT_EQ(Orva_Si_LatchPmt(2), ORVA_SI_FAILURE); // both filters are pinned
    EXPECT_THAT(served(), ElementsAre(7, 1));
}

TEST_F(PmtFilters, LatchOfAnUnknownProgramDisturbsNothing)
{
    start(40, 7);
    driver.forget_calls();
    EXPECT_EQ(Orva_Si_LatchPmt(1000), ORVA_SI_FAILURE);
    EXPECT_THAT(served(), ElementsAre(7, 1));
    EXPECT_EQ(request(0).active, 1);
    EXPECT_THAT(driver.calls(), IsEmpty());
}

TEST_F(PmtFilters, LatchWithAFilterForEachFails)
{
    start(2, 1);
    EXPECT_EQ(Orva_Si_LatchPmt(2), ORVA_SI_FAILURE);
    EXPECT_EQ(request(1).wanted, 1U);
}

TEST_F(PmtFilters, LatchOfAnIdleTaskFails)
{
    EXPECT_EQ(Orva_Si_LatchPmt(2), ORVA_SI_FAILURE);
}

TEST_F(PmtFilters, LatchAnswersTheDriversStatus)
{
    start(40, 7);
    driver.answers[fake::update_filter] = 0x55;
    EXPECT_EQ(Orva_Si_LatchPmt(30), 0x55U);
    EXPECT_THAT(served(), ElementsAre(7, 0));
    driver.answers[fake::update_filter] = 0;
    Si_SectFlt_PmtBgService();
    EXPECT_EQ(driver.running(), 2U);
}

TEST_F(PmtFilters, UnlatchedProgramMayTimeOutAgain)
{
    start(40, 7);
    Orva_Si_LatchPmt(30);
    update(30, 5);
    ASSERT_EQ(request(29).version, 5);
    EXPECT_EQ(Orva_Si_UnLatchPmt(30), ORVA_SI_OK);
    EXPECT_EQ(request(29).wanted, 1U);
    EXPECT_EQ(request(29).version, 0xFF);
    EXPECT_EQ(Orva_Si_UnLatchPmt(31), ORVA_SI_FAILURE); // has no filter
    EXPECT_EQ(Orva_Si_UnLatchPmt(7), ORVA_SI_OK);       // stays pinned
    EXPECT_EQ(request(6).wanted, 0U);
}

// ---- Ageing

TEST_F(PmtFilters, RequestKeepsItsFilterForItsTimeOutAndOneRun)
{
    start(40, 7);
    for (int run = 0; run < 4; ++run)
        EXPECT_EQ(Si_SectFlt_PmtBgService(), ORVA_SI_OK);
    EXPECT_THAT(served(), ElementsAre(7, 1));
    driver.forget_calls();
    Si_SectFlt_PmtBgService();
    EXPECT_THAT(served(), ElementsAre(7, 2));
    EXPECT_TRUE(fake::logged(3, "Filter 70 time out: 5!\n")) << fake::log_text();
    EXPECT_EQ(driver.times_called(fake::disable_filter), 1U);
    EXPECT_EQ(request(0).active, 0);
}

TEST_F(PmtFilters, TimeOutOfThreeEndsAtTheFourthRun)
{
    task_item_pmt one{};
    one.active = 1;
    one.wanted = 1;
    one.timeout = 3;
    record(5).filter_id = static_cast<std::uint16_t>(driver.filter_id(5));
    record(5).enabled = 1;
    record(5).item = &si::head_of(one);
    for (int run = 0; run < 3; ++run)
        Si_SectFlt_DisableTimeOutPmtFilterFunc(&record(5), &row());
    EXPECT_EQ(record(5).enabled, 1);
    Si_SectFlt_DisableTimeOutPmtFilterFunc(&record(5), &row());
    EXPECT_EQ(record(5).enabled, 0);
    EXPECT_EQ(record(5).item, nullptr);
    EXPECT_EQ(one.active, 0);
    EXPECT_TRUE(fake::logged(3, "Filter 69 time out: 4!\n"));
}

TEST_F(PmtFilters, PinnedRequestNeverTimesOut)
{
    start(40, 7);
    for (int run = 0; run < 300; ++run)
        Si_SectFlt_PmtBgService();
    EXPECT_EQ(served()[0], 7);
    EXPECT_EQ(loads(5), 1U);
}

TEST_F(PmtFilters, ArmingStartsTheTimeOutAnew)
{
    start(40, 7);
    for (int run = 0; run < 4; ++run)
        Si_SectFlt_PmtBgService();
    update(1);
    EXPECT_THAT(served(), ElementsAre(7, 2));
    for (int run = 0; run < 4; ++run)
        Si_SectFlt_PmtBgService();
    EXPECT_THAT(served(), ElementsAre(7, 2));
}

TEST_F(PmtFilters, NothingAgesWithAFilterForEach)
{
    start(2, 1);
    for (int run = 0; run < 20; ++run)
        EXPECT_EQ(Si_SectFlt_PmtBgService(), ORVA_SI_OK);
    EXPECT_THAT(served(), ElementsAre(1, 2));
    EXPECT_EQ(loads(6), 1U);
}

TEST_F(PmtFilters, TimeOutStepLeavesIdleRecordsAlone)
{
    Si_SectFlt_DisableTimeOutPmtFilterFunc(nullptr, nullptr);
    EXPECT_TRUE(fake::logged(2, "[record\n"));
    Si_SectFlt_DisableTimeOutPmtFilterFunc(&record(5), &row());
    EXPECT_EQ(record(5).ticks, 0);
    EXPECT_EQ(driver.times_called(fake::disable_filter), 0U);
}

} // namespace
