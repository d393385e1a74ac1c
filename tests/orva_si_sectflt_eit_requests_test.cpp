// SPDX-License-Identifier: LGPL-2.1-or-later
// Requests for events: the order of the checks, what is said about fetched filters, how long a
// request keeps one.
#include "orva_si_alloc.h"
#include "support/eit_filters.h"

using namespace test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;

namespace {

class EitRequests : public EitFilters {
protected:
    // Runs of a service until the first filter of a row serves another request.
    static int runs_until_the_next(si::task_row row, std::uint32_t (*service)())
    {
        const int served = served_by(row, 0);
        for (int run = 1; run < 1000; ++run) {
            service();
            if (served_by(row, 0) != served)
                return run;
        }
        return -1;
    }
};

using Checks = EitRequests;

TEST_F(Checks, OfArgumentsComeBeforeAnyLock)
{
    const std::vector<std::uint16_t> one{1};
    pthread_mutex_lock(&si::filter_pool_mutex); // who took it as well would never return
    EXPECT_EQ(Si_SectFlt_StartActPfEit(ts, onid, nullptr, 1), ORVA_SI_NULL_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActPfEit(ts, onid, one.data(), 256), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActSchEit(ts, onid, 1, nullptr, 1), ORVA_SI_NULL_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActSchEit(ts, onid, 0xFFFF, one.data(), 1), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActSchEit(ts, onid, 1, one.data(), 0), ORVA_SI_INVALID_ARGUMENT);
    Si_CtlHelper_SetTableEnableFlag(); // clears the four kinds of events
    EXPECT_EQ(start_pf(one), disabled);
    EXPECT_EQ(start_sch(one), disabled);
    EXPECT_EQ(Si_SectFlt_StartOtherPfEit(nullptr, 0), disabled);
    EXPECT_EQ(Si_SectFlt_StartOtherSchEit(nullptr, 0), disabled);
    pthread_mutex_unlock(&si::filter_pool_mutex);
}

TEST_F(Checks, OfTheTunedProgramComeBeforeTheLock)
{
    tune(0);
    pthread_mutex_lock(&si::filter_pool_mutex);
    EXPECT_EQ(start_pf({1}), ORVA_SI_FAILURE);
    pthread_mutex_unlock(&si::filter_pool_mutex);
    EXPECT_TRUE(paused(1)); // nothing was started
}

TEST_F(Checks, OfArgumentsComeBeforeThatOfTheEnableFlag)
{
    const std::vector<std::uint16_t> one{1};
    Si_CtlHelper_SetTableEnableFlag();
    EXPECT_EQ(Si_SectFlt_StartActPfEit(ts, onid, nullptr, 1), ORVA_SI_NULL_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActPfEit(ts, onid, one.data(), 0), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActSchEit(ts, onid, 0xFFFF, one.data(), 1), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_EQ(Si_SectFlt_StartActSchEit(ts, onid, 1, one.data(), 256), ORVA_SI_INVALID_ARGUMENT);
}

TEST_F(Checks, OfTheEnableFlagComeBeforeThatOfTheTunedProgram)
{
    tune(0);
    Si_CtlHelper_SetActPfEitEnableFlag(0);
    EXPECT_EQ(start_pf({1}), disabled);
    EXPECT_FALSE(fake::logged("Bad current service id: 0\n"));
}

TEST_F(Checks, TakeTheWholeOfAnArrayOf255)
{
    std::vector<std::uint16_t> ids(255);
    for (std::size_t i = 0; i < ids.size(); ++i)
        ids[i] = static_cast<std::uint16_t>(i + 1);
    EXPECT_EQ(start_pf(ids), ORVA_SI_OK);
    EXPECT_EQ(start_sch(ids), ORVA_SI_OK);
    EXPECT_EQ(queued(act_pf), ids);
    EXPECT_EQ(queued(act_sch), ids);
}

TEST_F(Checks, LeaveTheHighHalvesOfIdsOut)
{
    const std::vector<std::uint16_t> one{1};
    Si_SectFlt_StartActPfEit(0xABCD0000 | ts, 0xABCD0000 | onid, one.data(), 1);
    EXPECT_EQ(item<task_item_eit>(act_pf, 0).transport_stream_id, ts);
    EXPECT_EQ(item<task_item_eit>(act_pf, 0).original_network_id, onid);
}

// ---- Duplicates

using Duplicates = EitRequests;

TEST_F(Duplicates, InOneArrayAreQueuedOnce)
{
    EXPECT_EQ(start_pf({1, 2, 2, 1}), ORVA_SI_OK);
    EXPECT_EQ(start_sch({3, 3}), ORVA_SI_OK);
    EXPECT_THAT(queued(act_pf), ElementsAre(1, 2));
    EXPECT_THAT(queued(act_sch), ElementsAre(3));
    EXPECT_TRUE(fake::logged(2, "Duplicated acutal PF EIT tasks: service_id: 0x1!\n"));
    EXPECT_TRUE(fake::logged(2, "Duplicated acutal PF EIT tasks: service_id: 0x2!\n"));
    EXPECT_TRUE(fake::logged(3, "Duplicated EIT tasks!\n"));
}

TEST_F(Duplicates, OfTheTunedServiceDoNotDisturbIt)
{
    start_pf({1, 2, 3});
    EXPECT_EQ(start_pf({1}), ORVA_SI_OK);
    EXPECT_EQ(item<task_item_eit>(act_pf, 0).wanted, 0U);
    EXPECT_EQ(served_by(act_pf, 0), 0);
    EXPECT_EQ(loads(5), 1U);
}

// ---- What is said about filters

using Texts = EitRequests;

TEST_F(Texts, NothingIsFetchedWhereFiltersAreFree)
{
    start_pf({1, 2});
    start_sch({1, 2});
    EXPECT_FALSE(fake::logged("Fetch filter sucessfully!\n")) << fake::log_text();
}

TEST_F(Texts, AFetchThatIsShortIsNoSuccess)
{
    use_up_dynamic_filters();
    record(5).used = 0; // one is left
    start_sch({1, 2});
    EXPECT_EQ(task(act_sch).filter_count, 1);
    EXPECT_EQ(task(act_sch).filter_quota, 2);
    EXPECT_FALSE(fake::logged("Fetch filter sucessfully!\n"));
    Si_SectFlt_StartOtherPfEit(nullptr, 0);
    EXPECT_EQ(task(other_pf).filter_count, 0);
    for (const fake::log_line &line : fake::log_lines())
        EXPECT_FALSE(line.text.starts_with("Fetch filter")) << line.text;
    free_dynamic_filters();
}

TEST_F(Texts, TheScheduleSaysItsResult)
{
    fake::fail_allocation(2);
    EXPECT_EQ(start_sch({1, 2}), ORVA_SI_FAILURE);
    fake::fail_allocation(0);
    EXPECT_TRUE(fake::logged(3, "Open 1 filters for 1 actual schedule EIT, ret = 0x1\n"))
        << fake::log_text();
}

TEST_F(Texts, StandUnderTheNameOfTheFilterLayer)
{
    start_pf({1, 1});
    bool said = false;
    for (const fake::log_line &line : fake::log_lines())
        if (line.text.starts_with("Duplicated acutal")) {
            said = true;
            EXPECT_EQ(line.file, "Src/orva_si_sectflt");
            EXPECT_EQ(line.function, "Si_SectFlt_StartActPfEit");
        }
    EXPECT_TRUE(said);
}

// ---- How long a filter stays with a request whose table does not come

using Turns = EitRequests;

TEST_F(Turns, OfOtherMultiplexesGrowUntilTheyOutlastARepetition)
{
    const SiEitRequest two[] = {{1, onid, 1}, {1, onid, 2}};
    Si_SectFlt_StartOtherPfEit(two, 2);
    Si_SectFlt_StartOtherSchEit(two, 2);
    for (const int expected : {6, 6, 11, 11, 21, 21, 21, 21})
        EXPECT_EQ(runs_until_the_next(other_pf, Si_SectFlt_ActPfEitBgService), expected);
    for (const int expected : {51, 51, 61, 61, 61})
        EXPECT_EQ(runs_until_the_next(other_sch, Si_SectFlt_ActSchEitBgService), expected);
}

TEST_F(Turns, OfTheTunedMultiplexAreAllAlike)
{
    tune(9); // none of them keeps its filter
    start_pf({1, 2, 3, 4});
    start_sch({1, 2, 3, 4, 5, 6, 7});
    for (int turn = 0; turn < 5; ++turn) {
        EXPECT_EQ(runs_until_the_next(act_pf, Si_SectFlt_ActPfEitBgService), 11);
        EXPECT_EQ(runs_until_the_next(act_sch, Si_SectFlt_ActSchEitBgService), 51);
    }
}

TEST_F(Turns, BeginAnewWithEachRequest)
{
    const SiEitRequest one[] = {{1, onid, 1}, {1, onid, 2}};
    Si_SectFlt_StartOtherPfEit(one, 2);
    runs_until_the_next(other_pf, Si_SectFlt_ActPfEitBgService);
    Si_SectFlt_StopOtherPfEit();
    Si_SectFlt_StartOtherPfEit(one, 2);
    EXPECT_EQ(runs_until_the_next(other_pf, Si_SectFlt_ActPfEitBgService), 6);
}

TEST_F(Turns, ARefusedFilterIsTriedOnceInARun)
{
    start_sch({1, 2});
    Si_SectFlt_UpdateEitLastTableId(0x50, 1, 0x51);
    driver.answers[fake::update_filter] = 8;
    Si_SectFlt_UpdateEit(0x50, 1, 4, 1);
    driver.forget_calls();
    Si_SectFlt_ActSchEitBgService();
    EXPECT_EQ(driver.times_called(fake::update_filter), 1U);
}

} // namespace
