// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: requests for services, the filters each kind may hold, their start and stop.
#include "support/eit_filters.h"

using namespace test;
using testing::ElementsAre;

namespace {

// ---- Start of actual present/following

TEST_F(EitFilters, ActPfChecksItsArguments)
{
    const ids one{1};
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartActPfEit(ts, onid, nullptr, 1); }),
                is_assertion("Si_SectFlt_StartActPfEit", "sid_array != ((void *)0)"));
    EXPECT_EQ(result, 2U);
    for (const std::uint32_t count : {0U, 256U}) {
        EXPECT_THAT(
            printed([&] { result = Si_SectFlt_StartActPfEit(ts, onid, one.data(), count); }),
            is_assertion("Si_SectFlt_StartActPfEit", "(array_count>0) && (array_count<=0xFF)"));
        EXPECT_EQ(result, 5U);
    }
    EXPECT_EQ(task(act_pf).task_count, 0);
}

TEST_F(EitFilters, ActPfNeedsATunedProgram)
{
    for (const std::uint16_t none : {std::uint16_t{0}, std::uint16_t{0xFFFF}}) {
        tune(none);
        EXPECT_EQ(start_pf({5}), ORVA_SI_FAILURE);
        EXPECT_TRUE(fake::logged(1, none == 0 ? "Bad current service id: 0\n"
                                              : "Bad current service id: 0xffff\n"))
            << fake::log_text();
        EXPECT_EQ(task(act_pf).task_count, 0);
    }
}

TEST_F(EitFilters, DisabledKindsAreRefused)
{
    const auto some = requests(1);
    Si_CtlHelper_SetTableEnableFlag(); // clears all four kinds
    EXPECT_EQ(start_pf({1}), disabled);
    EXPECT_EQ(start_sch({1}), disabled);
    EXPECT_EQ(start_other_pf(some), disabled);
    EXPECT_EQ(start_other_sch(some), disabled);
    for (const task_row row : {act_pf, other_pf, act_sch, other_sch})
        EXPECT_EQ(task(row).task_count, 0);
    EXPECT_TRUE(paused(1) && paused(2));
}

TEST_F(EitFilters, ActPfItemIsMadeForItsService)
{
    EXPECT_EQ(start_pf({1, 2}), ORVA_SI_OK);
    const task_item_eit &other = request(act_pf, 1);
    EXPECT_EQ(other.table_id, 0x4E);
    EXPECT_EQ(other.table_id_mask, 0xFF);
    EXPECT_EQ(other.last_table_id, 0x4E);
    EXPECT_EQ(other.version, 0xFF);
    EXPECT_EQ(other.service_id, 2);
    EXPECT_EQ(other.transport_stream_id, ts);
    EXPECT_EQ(other.original_network_id, onid);
    EXPECT_EQ(other.list_length, 1);
    EXPECT_EQ(other.limit, 10);
    EXPECT_EQ(other.wanted, 1U);
    EXPECT_EQ(other.flag, 0);
    EXPECT_EQ(request(act_pf, 0).wanted, 0U); // tuned
}

TEST_F(EitFilters, ActPfFilterIsLoadedForItsService)
{
    tune(0x1234);
    start_pf({0x1234});
    const SiDmxFilterParam param = loaded(5);
    EXPECT_EQ(param.pid, 0x12);
    EXPECT_EQ(param.match[0], 0x4E);
    EXPECT_EQ(param.mask[0], 0xFF);
    EXPECT_EQ(param.match[3], 0x12);
    EXPECT_EQ(param.match[4], 0x34);
    EXPECT_EQ(param.match[8], ts >> 8);
    EXPECT_EQ(param.match[9], ts & 0xFF);
    EXPECT_EQ(param.match[10], onid >> 8);
    EXPECT_EQ(param.match[11], onid & 0xFF);
    EXPECT_EQ(param.filter_depth, 12);
    EXPECT_EQ(record(5).table_id, 0x4E);
    EXPECT_EQ(record(5).service_id, 0x1234);
}

TEST_F(EitFilters, SingleWildcardIdQueuesAnItemForEveryService)
{
    EXPECT_EQ(start_pf({0xFFFF}), ORVA_SI_OK);
    EXPECT_THAT(queued(act_pf), ElementsAre(0xFFFF));
    EXPECT_EQ(loaded(5).mask[3] | loaded(5).mask[4], 0);
    EXPECT_EQ(task(act_pf).mode, 0U);
}

TEST_F(EitFilters, WildcardIdAmongOthersIsSkipped)
{
    EXPECT_EQ(start_pf({0xFFFF, 1}), ORVA_SI_OK);
    EXPECT_THAT(queued(act_pf), ElementsAre(1));
}

TEST_F(EitFilters, FortyServicesShareTwoFiltersAndTheTunedOneIsFirst)
{
    tune(20);
    EXPECT_EQ(start_pf(services(40)), ORVA_SI_OK);
    EXPECT_EQ(task(act_pf).filter_count, 2);
    EXPECT_EQ(task(act_pf).filter_quota, 2);
    EXPECT_EQ(task(act_pf).task_count, 40);
    EXPECT_EQ(task(act_pf).mode, 1U);
    EXPECT_THAT(served(act_pf), ElementsAre(20, 1));
    EXPECT_TRUE(fake::logged(3, "Open 2 filters for 40 actual PF EIT\n"));
    const auto calls = driver.calls();
    const auto first = std::ranges::find(calls, fake::update_filter, &fake::driver_call::which);
    ASSERT_NE(first, calls.end());
    EXPECT_EQ(first->filter_id, driver.filter_id(5)); // the record that serves the tuned service
}

TEST_F(EitFilters, LaterStartGivesTheFirstFilterToTheTunedService)
{
    tune(9);
    start_pf({1, 2}); // both filters are in use
    ASSERT_THAT(served(act_pf), ElementsAre(1, 2));
    EXPECT_EQ(start_pf({9}), ORVA_SI_OK);
    EXPECT_THAT(served(act_pf), ElementsAre(9, 2));
    EXPECT_EQ(request(act_pf, 0).active, 0); // waits for the rotation
    EXPECT_EQ(task(act_pf).mode, 1U);
    EXPECT_EQ(request(act_pf, 2).wanted, 0U);
}

TEST_F(EitFilters, DuplicateActPfRequestIsReportedAndNotQueued)
{
    start_pf({1, 2});
    EXPECT_EQ(start_pf({2}), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, "Duplicated acutal PF EIT tasks: service_id: 0x2!\n"));
    EXPECT_THAT(queued(act_pf), ElementsAre(1, 2));
}

TEST_F(EitFilters, ServiceOfAnotherMultiplexIsNoDuplicate)
{
    const ids one{1};
    start_pf(one);
    Si_SectFlt_StartActPfEit(ts + 1, onid, one.data(), 1);
    Si_SectFlt_StartActPfEit(ts, onid + 1, one.data(), 1);
    EXPECT_EQ(task(act_pf).task_count, 3);
}

TEST_F(EitFilters, ActPfStartResumesItsService)
{
    ASSERT_TRUE(paused(1));
    start_pf({1});
    EXPECT_FALSE(paused(1));
    EXPECT_TRUE(paused(2));
}

TEST_F(EitFilters, MissingFiltersAreTakenFromOtherTasks)
{
    filter_task &donor = task(si::pmt_task);
    for (std::uint16_t i = 1; i <= 26; ++i) {
        auto *of = si::new_item<task_item_pmt>();
        of->program_number = i;
        Si_SectFlt_AddNewTask(&donor, of);
    }
    Si_SectFlt_AddAvailableFilters(&donor, 26);
    donor.filter_quota = 2;
    Si_SectFlt_TriggerFilterTask(&donor);
    EXPECT_EQ(start_pf(services(4)), ORVA_SI_OK);
    EXPECT_EQ(task(act_pf).filter_count, 2);
    EXPECT_EQ(donor.filter_count, 24);
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully!\n"));
    EXPECT_EQ(start_other_pf(requests(2)), ORVA_SI_OK);
    EXPECT_EQ(donor.filter_count, 23);
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully: 92!\n")) << fake::log_text();
}

TEST_F(EitFilters, WithoutAnyFilterItemsStayQueued)
{
    use_up_dynamic_filters();
    EXPECT_EQ(start_pf({1, 2}), ORVA_SI_OK);
    EXPECT_EQ(start_sch({1, 2}), ORVA_SI_OK);
    EXPECT_EQ(start_other_pf(requests(2)), ORVA_SI_OK);
    for (const task_row row : {act_pf, act_sch, other_pf}) {
        EXPECT_EQ(task(row).task_count, 2);
        EXPECT_EQ(task(row).mode, 2U);
    }
    free_dynamic_filters();
}

TEST_F(EitFilters, WithoutMemoryWhatIsQueuedGoesOn)
{
    fake::fail_allocations_from(3);
    EXPECT_EQ(start_pf(services(5)), ORVA_SI_FAILURE);
    fake::fail_allocations_from(0);
    EXPECT_THAT(queued(act_pf), ElementsAre(1, 2));
    EXPECT_THAT(served(act_pf), ElementsAre(1, 2));
    EXPECT_FALSE(paused(1));
    fake::fail_allocation(1);
    EXPECT_EQ(start_sch(services(5)), ORVA_SI_FAILURE);
    fake::fail_allocation(1);
    EXPECT_EQ(start_other_pf(requests(2)), ORVA_SI_FAILURE);
    EXPECT_EQ(task(act_sch).task_count + task(other_pf).task_count, 0);
}

// ---- Start of actual schedule

TEST_F(EitFilters, ActSchChecksItsArguments)
{
    const ids one{1};
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartActSchEit(ts, onid, 0xFFFF, nullptr, 0); }),
                is_assertion("Si_SectFlt_StartActSchEit", "sid_array != ((void *)0)"));
    EXPECT_EQ(result, 2U);
    EXPECT_THAT(
        printed([&] { result = Si_SectFlt_StartActSchEit(ts, onid, 0xFFFF, one.data(), 0); }),
        is_assertion("Si_SectFlt_StartActSchEit", "cur_sid != 0xFFFF"));
    EXPECT_EQ(result, 5U);
    for (const std::uint32_t count : {0U, 256U}) {
        EXPECT_THAT(
            printed([&] { result = Si_SectFlt_StartActSchEit(ts, onid, 1, one.data(), count); }),
            is_assertion("Si_SectFlt_StartActSchEit", "(array_count>0) && (array_count<=0xFF)"));
        EXPECT_EQ(result, 5U);
    }
    EXPECT_EQ(task(act_sch).task_count, 0);
}

TEST_F(EitFilters, ActSchServicesShareFiveFilters)
{
    tune(0xFFFF); // needs no tuned program
    EXPECT_EQ(start_sch(services(40)), ORVA_SI_OK);
    EXPECT_EQ(task(act_sch).filter_count, 5);
    EXPECT_EQ(task(act_sch).filter_quota, 5);
    EXPECT_EQ(task(act_sch).mode, 1U);
    EXPECT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_TRUE(fake::logged(3, "Open 5 filters for 40 actual schedule EIT, ret = 0\n"))
        << fake::log_text();
    EXPECT_FALSE(paused(2));
    EXPECT_EQ(request(act_sch, 0).table_id, 0x50);
    EXPECT_EQ(request(act_sch, 0).last_table_id, 0x50);
    EXPECT_EQ(request(act_sch, 0).limit, 50);
    EXPECT_EQ(request(act_sch, 0).wanted, 1U);
}

TEST_F(EitFilters, ActSchSkipsWildcardIdsAlways)
{
    EXPECT_EQ(start_sch({0xFFFF}), ORVA_SI_OK);
    EXPECT_EQ(task(act_sch).task_count, 0);
    EXPECT_EQ(task(act_sch).mode, 2U);
}

TEST_F(EitFilters, DuplicateActSchRequestIsReportedAndNotQueued)
{
    start_sch({1, 2});
    start_sch({2, 3});
    EXPECT_TRUE(fake::logged(3, "Duplicated EIT tasks!\n"));
    EXPECT_THAT(queued(act_sch), ElementsAre(1, 2, 3));
}

TEST_F(EitFilters, ActSchFetchesFiltersOnlyWhenItHasNone)
{
    start_sch({1, 2});
    start_sch({3, 4, 5});
    EXPECT_EQ(task(act_sch).filter_count, 2);
    EXPECT_EQ(task(act_sch).mode, 1U);
}

// ---- Start of other multiplexes

TEST_F(EitFilters, OtherPfIsServedByOneFilter)
{
    EXPECT_EQ(start_other_pf(requests(5)), ORVA_SI_OK);
    EXPECT_EQ(task(other_pf).filter_count, 1);
    EXPECT_EQ(task(other_pf).filter_quota, 1);
    EXPECT_EQ(task(other_pf).mode, 1U);
    EXPECT_EQ(request(other_pf, 0).table_id, 0x4F);
    EXPECT_EQ(request(other_pf, 0).list_length, 1);
    EXPECT_EQ(request(other_pf, 0).limit, 5);
    EXPECT_EQ(request(other_pf, 4).transport_stream_id, 105);
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully: 69!\n"));
    EXPECT_FALSE(paused(1)); // nothing else would move it on
}

TEST_F(EitFilters, OtherPfWithoutRequestsAsksForEveryService)
{
    const auto some = requests(1);
    EXPECT_EQ(Si_SectFlt_StartOtherPfEit(nullptr, 3), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StartOtherPfEit(some.data(), 0), ORVA_SI_OK); // the same once more
    EXPECT_EQ(task(other_pf).task_count, 1);
    const task_item_eit &all = request(other_pf, 0);
    EXPECT_EQ(all.service_id & all.transport_stream_id & all.original_network_id, 0xFFFF);
    EXPECT_EQ(all.list_length, 5);
    EXPECT_TRUE(fake::logged(3, "Duplicated EIT tasks!\n"));
    EXPECT_EQ(loaded(5).list_mode, 1U);
    EXPECT_EQ(loaded(5).list_length, 5U);
    EXPECT_EQ(loaded(5).filter_depth, 6);
    EXPECT_TRUE(paused(1)); // nothing rotates
}

TEST_F(EitFilters, OtherPfRequestForAnyServiceOfAMultiplexComesInBatches)
{
    start_other_pf({{7, onid, 0xFFFF}});
    EXPECT_EQ(request(other_pf, 0).list_length, 5);
    EXPECT_EQ(loaded(5).match[9], 7);
}

TEST_F(EitFilters, OtherSchTakesAllSubTablesAtOnce)
{
    EXPECT_EQ(start_other_sch(requests(2)), ORVA_SI_OK);
    EXPECT_EQ(request(other_sch, 0).table_id, 0x60);
    EXPECT_EQ(request(other_sch, 0).table_id_mask, 0xF0);
    EXPECT_EQ(request(other_sch, 0).last_table_id, 0x6F);
    EXPECT_EQ(request(other_sch, 0).limit, 50);
    EXPECT_EQ(loaded(5).match[0], 0x60);
    EXPECT_EQ(loaded(5).mask[0], 0xF0);
    EXPECT_FALSE(paused(2));
    EXPECT_TRUE(paused(1));
}

// ---- The start of a filter

TEST_F(EitFilters, ArmingPrintsAssertionsForNullArguments)
{
    task_item_eit one{};
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartEitFilterTask(nullptr, &one); }),
                is_assertion("Si_SectFlt_StartEitFilterTask", "pid_filter!=((void *)0)"));
    EXPECT_EQ(result, 2U);
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartEitFilterTask(&record(5), nullptr); }),
                is_assertion("Si_SectFlt_StartEitFilterTask", "task_item!=((void *)0)"));
    EXPECT_EQ(result, 2U);
}

TEST_F(EitFilters, ArmingChecksTheKindOfTheItem)
{
    task_item_eit one{};
    one.list_length = 1;
    one.table_id = 0x4F;
    Si_CtlHelper_SetOtherPfEitEnableFlag(0);
    EXPECT_EQ(Si_SectFlt_StartEitFilterTask(&record(5), &one), disabled);
    one.table_id = 0x4E;
    record(5).ticks = 9;
    EXPECT_EQ(Si_SectFlt_StartEitFilterTask(&record(5), &one), ORVA_SI_OK);
    EXPECT_EQ(one.active, 1);
    EXPECT_EQ(record(5).ticks, 0);
}

TEST_F(EitFilters, KindIsFoundByTableId)
{
    struct {
        std::uint32_t first;
        std::uint32_t last;
        std::uint32_t (*set)(std::uint32_t);
    } const kinds[] = {
        {0x4E, 0x4E, Si_CtlHelper_SetActPfEitEnableFlag},
        {0x4F, 0x4F, Si_CtlHelper_SetOtherPfEitEnableFlag},
        {0x50, 0x5F, Si_CtlHelper_SetActSchEitEnableFlag},
        {0x60, 0x6F, Si_CtlHelper_SetOtherSchEitEnableFlag},
    };
    for (const auto &kind : kinds) {
        Si_CtlHelper_SetTableEnableFlag();
        kind.set(1);
        for (std::uint32_t table_id = 0; table_id < 0x100; ++table_id)
            EXPECT_EQ(Si_SectFlt_IsEitEnabled(table_id, 1),
                      table_id >= kind.first && table_id <= kind.last)
                << table_id;
    }
}

// ---- Stop

TEST_F(EitFilters, StopOfActualKindsEmptiesTheRowAndPausesTheService)
{
    start_pf(services(3));
    start_sch(services(3));
    EXPECT_EQ(Si_SectFlt_StopActPfEit(), ORVA_SI_OK);
    EXPECT_EQ(task(act_pf).task_count + task(act_pf).filter_count, 0);
    EXPECT_TRUE(paused(1));
    EXPECT_FALSE(paused(2));
    EXPECT_EQ(Si_SectFlt_StopActSchEit(), ORVA_SI_OK);
    EXPECT_EQ(task(act_sch).task_count + task(act_sch).filter_count, 0);
    EXPECT_TRUE(paused(2));
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(EitFilters, StopOfAnActualKindLeavesTheServiceToRotatingOthers)
{
    start_pf(services(3));
    start_sch(services(3));
    start_other_pf(requests(2));
    start_other_sch(requests(2));
    Si_SectFlt_StopActPfEit();
    Si_SectFlt_StopActSchEit();
    EXPECT_FALSE(paused(1));
    EXPECT_FALSE(paused(2));
}

TEST_F(EitFilters, StopOfOtherKindsEmptiesTheirRow)
{
    start_other_pf(requests(2));
    start_other_sch(requests(2));
    EXPECT_EQ(Si_SectFlt_StopOtherPfEit(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_StopOtherSchEit(), ORVA_SI_OK);
    EXPECT_EQ(task(other_pf).task_count + task(other_sch).task_count, 0);
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(EitFilters, StopAllEmptiesTheFourRows)
{
    start_pf(services(3));
    start_sch(services(3));
    start_other_pf(requests(2));
    start_other_sch(requests(2));
    Si_CtlHelper_SetTableEnableFlag(); // a stop works on disabled tables
    EXPECT_EQ(Si_SectFlt_StopAllEIT(), ORVA_SI_OK);
    for (const task_row row : {act_pf, other_pf, act_sch, other_sch})
        EXPECT_EQ(task(row).task_count + task(row).filter_count, 0);
    EXPECT_TRUE(paused(1) && paused(2));
    EXPECT_EQ(driver.running(), 0U);
}

} // namespace
