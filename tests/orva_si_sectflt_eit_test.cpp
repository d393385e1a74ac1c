// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: requests for services, the filters each kind may hold, sub-tables, ageing.
#include "support/client.h"
#include "support/filters.h"
#include "support/model.h"

using namespace test;
using si::task_row;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::uint32_t disabled = 0x20065;
constexpr std::uint16_t ts = 0x11;
constexpr std::uint16_t onid = 0x22;
constexpr task_row act_pf = si::act_pf_eit_task;
constexpr task_row other_pf = si::other_pf_eit_task;
constexpr task_row act_sch = si::act_sch_eit_task;
constexpr task_row other_sch = si::other_sch_eit_task;

class EitFilters : public Filters {
protected:
    using ids = std::vector<std::uint16_t>;
    EitFilters() { tune(1); }

    static ids services(std::uint16_t count)
    {
        ids all(count);
        for (std::uint16_t i = 0; i < count; ++i)
            all[i] = static_cast<std::uint16_t>(i + 1);
        return all;
    }
    static std::uint32_t start_pf(const ids &of)
    {
        return Si_SectFlt_StartActPfEit(ts, onid, of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static std::uint32_t start_sch(const ids &of)
    {
        return Si_SectFlt_StartActSchEit(ts, onid, 1, of.data(),
                                         static_cast<std::uint32_t>(of.size()));
    }
    static std::vector<SiEitRequest> requests(std::uint16_t count)
    {
        std::vector<SiEitRequest> all;
        for (std::uint16_t i = 1; i <= count; ++i)
            all.push_back({static_cast<std::uint16_t>(100 + i), onid, i});
        return all;
    }
    static std::uint32_t start_other_pf(const std::vector<SiEitRequest> &of)
    {
        return Si_SectFlt_StartOtherPfEit(of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static std::uint32_t start_other_sch(const std::vector<SiEitRequest> &of)
    {
        return Si_SectFlt_StartOtherSchEit(of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static task_item_eit &request(task_row row, std::size_t index)
    {
        return item<task_item_eit>(row, index);
    }
    static ids queued(task_row row)
    {
        ids all;
        for (const task_item_eit *of : items<task_item_eit>(row))
            all.push_back(of->service_id);
        return all;
    }
    // Services that the records of a row serve; 0: none.
    static std::vector<int> served(task_row row)
    {
        std::vector<int> all;
        for (const pid_filter *of : records_of(row))
            all.push_back(of->item == nullptr ? 0
                                              : si::item_as<task_item_eit>(of->item)->service_id);
        return all;
    }
};

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

// ---- Later turns of a schedule

// Sections of a service's schedule in the event store, as the dispatcher would put them there.
class EitTurns : public EitFilters {
protected:
    EitTurns()
    {
        test::tune(474000, 1);
        enable_all();
    }
    ~EitTurns() override
    {
        Orva_Si_EraseAllEitRawData();
        Orva_Si_DestorySectModel();
    }
    // A sub-table of one segment.
    static void come(std::uint8_t table_id, std::uint8_t number, std::uint8_t segment_last,
                     std::uint8_t version = 4, std::uint8_t last_table_id = 0x50)
    {
        deliver(make(eit{.table_id = table_id,
                         .service = 1,
                         .ts = ts,
                         .original_network = onid,
                         .version = version,
                         .section_number = number,
                         .last_section_number = segment_last,
                         .segment_last_section_number = segment_last,
                         .last_table_id = last_table_id}));
    }
    static void deliver(const octets &section) { Si_Model_ProcessModel(received{section, 0x12}); }
    static void age(int runs)
    {
        for (int run = 0; run < runs; ++run)
            EXPECT_EQ(Si_SectFlt_ActSchEitBgService(), ORVA_SI_OK);
    }
    // The version that the first filter passes over; -1: none.
    int passed_over() const
    {
        const SiDmxFilterParam param = loaded(5);
        return param.negate[5] == 0 ? -1 : param.match[5] >> 1;
    }
};

TEST_F(EitTurns, OnlySubTablePassesItsVersionOverOnceNothingIsMissing)
{
    start_sch({1});
    come(0x50, 0, 1); // complete for the store, which needs one section of a segment
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 0, 1);
    age(1);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 1);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    EXPECT_EQ(request(act_sch, 0).version, 4);
}

TEST_F(EitTurns, OnlySubTablePassesItsVersionOverAfterItsTimeWhateverIsMissing)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 0, 1);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    age(255); // not for ever again
    EXPECT_EQ(loads(5), 3U);
}

TEST_F(EitTurns, RepeatsLoadNoFilterAnew)
{
    start_sch({1});
    come(0x50, 0, 1);
    for (int repeat = 0; repeat < 9; ++repeat)
        come(0x50, 0, 1);
    EXPECT_EQ(loads(5), 2U); // the start, and the end of the first turn
}

TEST_F(EitTurns, AnotherVersionOfTheOnlySubTableGetsAllTheTimeAgain)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 1, 1);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    age(40);
    come(0x50, 0, 2, 5);
    come(0x50, 1, 2, 5);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 2, 5);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 2, 2, 5);
    age(1);
    EXPECT_EQ(passed_over(), 5);
}

TEST_F(EitTurns, LateSectionsOfAVersionPassedOverAreLetBe)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    const unsigned before = loads(5);
    come(0x50, 0, 0);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    EXPECT_EQ(loads(5), before);
}

TEST_F(EitTurns, SubTableThatLacksASectionKeepsTheFilterForItsTime)
{
    start_sch({1});
    come(0x50, 0, 1, 4, 0x51);
    come(0x51, 0, 0, 4, 0x51);
    ASSERT_EQ(request(act_sch, 0).flag, 1);
    ASSERT_EQ(loaded(5).match[0], 0x50);
    come(0x50, 0, 1, 4, 0x51);
    age(50);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x51);
}

TEST_F(EitTurns, SubTableWithoutGapsIsLeftInTheNextRun)
{
    start_sch({1});
    for (const std::uint8_t table_id : {std::uint8_t{0x50}, std::uint8_t{0x51}})
        come(table_id, 0, 0, 4, 0x51);
    age(3);
    EXPECT_EQ(loaded(5).match[0], 0x50); // nothing has come in this turn
    come(0x50, 0, 0, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x51);
    come(0x51, 0, 0, 4, 0x51);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    EXPECT_EQ(passed_over(), -1);
}

TEST_F(EitTurns, AFilterThatGoesRoundStaysWithAServiceThatLacksASection)
{
    start_sch(services(6));
    come(0x50, 0, 1);
    ASSERT_THAT(served(act_sch), ElementsAre(6, 2, 3, 4, 5));
    Si_SectFlt_UpdateEit(0x50, 6, 4, 1);
    ASSERT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    come(0x50, 0, 1);
    age(1);
    EXPECT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    come(0x50, 1, 1);
    age(1);
    EXPECT_THAT(served(act_sch), ElementsAre(6, 2, 3, 4, 5));
    EXPECT_EQ(request(act_sch, 0).version, 0xFF);
}

TEST_F(EitTurns, SectionsOfAnotherVersionFillNoGap)
{
    start_sch({1});
    come(0x50, 0, 2);
    come(0x50, 1, 2);
    come(0x50, 2, 2, 3); // left over from a version before
    come(0x50, 0, 2);
    age(1);
    EXPECT_EQ(passed_over(), -1);
}

TEST_F(EitTurns, SectionsThatTheVersionHasNoNumbersForAreNotWaitedFor)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 2, 2, 3); // left over
    come(0x50, 1, 1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, ASegmentWithoutEndIsListenedToForItsTime)
{
    start_sch({1});
    const auto endless = make(eit{.table_id = 0x50,
                                  .service = 1,
                                  .ts = ts,
                                  .original_network = onid,
                                  .last_section_number = 0,
                                  .segment_last_section_number = 0x18});
    deliver(endless);
    deliver(endless);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 0);
}

TEST_F(EitTurns, AreThoroughAfterALastSubTableThatNeverCompletes)
{
    start_sch({1});
    come(0x50, 0, 1, 4, 0x51);
    age(51);
    ASSERT_EQ(loaded(5).match[0], 0x50);
    come(0x50, 0, 1, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    EXPECT_EQ(request(act_sch, 0).flag, 1);
}

TEST_F(EitTurns, AreQuickWhileNothingWouldEndThem)
{
    start_sch({1, 2});
    Si_BG_PauseService(2);
    come(0x50, 0, 1, 4, 0x51);
    come(0x51, 0, 1, 4, 0x51);
    come(0x50, 0, 1, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x51);
    Si_SectFlt_UpdateEit(0x50, 2, 4, 1); // has nowhere to go
    Si_SectFlt_UpdateEit(0x50, 2, 4, 1);
    EXPECT_EQ(loaded(6).negate[5], 0);
}

TEST_F(EitTurns, NoRunAgesAFilterThatItSentOn)
{
    start_sch({1});
    for (const std::uint8_t table_id : {std::uint8_t{0x50}, std::uint8_t{0x51}})
        come(table_id, 0, 0, 4, 0x51);
    come(0x50, 0, 0, 4, 0x51);
    age(51); // the first sends it on
    EXPECT_EQ(loaded(5).match[0], 0x51);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x50);
}

TEST_F(EitTurns, OneOfAnyMultiplexDoesNotStandForAnotherThatLacksASection)
{
    const ids one{1};
    Si_SectFlt_StartActSchEit(0xFFFF, 0xFFFF, 1, one.data(), 1);
    // Whole, from a multiplex before.
    deliver(make(eit{.table_id = 0x50,
                     .service = 1,
                     .ts = ts + 1,
                     .original_network = onid,
                     .version = 4,
                     .last_section_number = 0,
                     .segment_last_section_number = 0,
                     .last_table_id = 0x50}));
    come(0x50, 0, 1);
    come(0x50, 0, 1);
    age(1);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, VersionPassedOverComesAgainOnceTheStoreWasErased)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 0, 0);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, WhatWasHeardBeforeTheStoreWasErasedEndsNoTurn)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    const unsigned before = loads(5);
    Orva_Si_EraseAllEitRawData();
    age(50);
    EXPECT_EQ(passed_over(), -1);
    EXPECT_EQ(loads(5), before); // it let all versions through already
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

// Others may send the service under as many ids as they like.
TEST_F(EitTurns, ServiceOfAnyMultiplexIsNotLookedForWithoutEnd)
{
    const ids one{1};
    Si_SectFlt_StartActSchEit(0xFFFF, 0xFFFF, 1, one.data(), 1);
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    for (std::uint16_t other = 0; other < 17 * 256; ++other)
        deliver(make(eit{.table_id = 0x50,
                         .service = 1,
                         .ts = other,
                         .original_network = onid + 1,
                         .version = 4,
                         .last_section_number = 0,
                         .segment_last_section_number = 0,
                         .last_table_id = 0x50}));
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
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
