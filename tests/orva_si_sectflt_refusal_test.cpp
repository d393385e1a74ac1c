// SPDX-License-Identifier: LGPL-2.1-or-later
// Filters whose driver refuses what it is loaded with, now and then or for good: nothing is left
// running, bound twice or waiting for ever.
#include <random>

#include <cstdint>
#include <set>
#include <vector>

#include "support/filters.h"

using namespace test;

namespace {

SiPmtPidList programs(std::uint16_t count, std::uint16_t tuned)
{
    SiPmtPidList list{};
    for (std::uint16_t i = 0; i < count; ++i)
        list.pmtpid_array[i] = {static_cast<std::uint16_t>(i + 1),
                                static_cast<std::uint16_t>(0x100 + i)};
    list.count = count;
    list.cur_prog_num = tuned;
    return list;
}

std::vector<std::uint16_t> services(std::uint16_t count)
{
    std::vector<std::uint16_t> ids;
    for (std::uint16_t i = 1; i <= count; ++i)
        ids.push_back(i);
    return ids;
}

class Refusal : public Filters {
protected:
    void refuse(std::size_t index) { driver.refused_loads.insert(driver.filter_id(index)); }

    // Refuses or grants one of the dynamic filters, at random.
    void change_mind(std::mt19937 &random, std::size_t filters)
    {
        const auto id = driver.filter_id(5 + random() % filters);
        if (random() % 2 != 0)
            driver.refused_loads.insert(id);
        else
            driver.refused_loads.erase(id);
    }

    // An item has one record at most, one that is served has exactly one, and no record runs for
    // nothing.
    static void expect_sound(si::task_row row)
    {
        for (task_item *item : items<task_item>(row)) {
            int bound = 0;
            int enabled = 0;
            for (const pid_filter *record : records_of(row)) {
                bound += record->item == item ? 1 : 0;
                enabled += record->item == item ? record->enabled : 0;
            }
            EXPECT_LE(bound, 1);
            if (item->active != 0) {
                EXPECT_EQ(enabled, 1);
            }
        }
        for (const pid_filter *record : records_of(row))
            if (record->enabled != 0) {
                EXPECT_NE(record->item, nullptr);
            }
    }

    // The table is switched off after the update has checked that it is on: what a stop at that
    // moment does.
    template <class Update>
    static void switched_off_half_way(si::task_row row, Update update)
    {
        static std::uint32_t (*real)(pid_filter *, void *);
        real = task(row).filter_func;
        task(row).filter_func = [](pid_filter *record, void *item) {
            Si_CtlHelper_ResetTableEnableFlag();
            return real(record, item);
        };
        update();
        task(row).filter_func = real;
    }
};

TEST_F(Refusal, NothingRunsOnWhenATableIsSwitchedOffWhileItIsArmedAgain)
{
    Si_SectFlt_StartPat();
    switched_off_half_way(si::pat_task, [] {
        EXPECT_EQ(Si_SectFlt_UpdatePat(3, 1), static_cast<std::uint32_t>(ORVA_SI_TABLE_DISABLED));
    });
    Si_SectFlt_StopAllFilters();
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(Refusal, NothingRunsOnWhenPmtsAreSwitchedOffWhileAFilterMovesOn)
{
    tune(1);
    const SiPmtPidList list = programs(10, 1);
    Si_SectFlt_StartPmt(&list);
    switched_off_half_way(si::pmt_task, [] { Si_SectFlt_UpdatePmt(2, 0x101, 3, 1); });
    Si_SectFlt_StopAllFilters();
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(Refusal, ARefusedRecordIsBoundToNothing)
{
    tune(1);
    const SiPmtPidList list = programs(10, 1);
    Si_SectFlt_StartPmt(&list);
    refuse(5);
    Si_SectFlt_UpdatePmt(1, 0x100, 3, 1);
    EXPECT_EQ(record(5).item, nullptr);
    expect_sound(si::pmt_task);
}

TEST_F(Refusal, AnOnlyPmtThatWasRefusedOnceIsTriedAgain)
{
    tune(1);
    const SiPmtPidList list = programs(1, 1);
    Si_SectFlt_StartPmt(&list);
    refuse(5);
    Si_SectFlt_UpdatePmt(1, 0x100, 3, 1);
    EXPECT_EQ(record(5).enabled, 0);
    driver.refused_loads.clear();
    Si_SectFlt_PmtBgService();
    EXPECT_EQ(record(5).enabled, 1);
}

TEST_F(Refusal, AnOnlyServiceThatWasRefusedOnceIsTriedAgain)
{
    tune(1);
    const std::uint16_t one = 1;
    Si_SectFlt_StartActPfEit(1, 2, &one, 1);
    refuse(5);
    Si_SectFlt_UpdateEit(0x4E, 1, 3, 1);
    EXPECT_EQ(record(5).enabled, 0);
    driver.refused_loads.clear();
    Si_SectFlt_ActPfEitBgService();
    EXPECT_EQ(record(5).enabled, 1);
}

TEST_F(Refusal, PmtsStaySoundUnderARandomDriver)
{
    tune(1);
    const SiPmtPidList list = programs(10, 1);
    Si_SectFlt_StartPmt(&list);
    std::mt19937 random{1};
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        if (random() % 4 == 0)
            change_mind(random, 2);
        const auto program = static_cast<std::uint16_t>(1 + random() % 10);
        for (const pid_filter *record : records_of(si::pmt_task)) {
            if (record->enabled == 0 || record->service_id != program)
                continue;
            Si_SectFlt_UpdatePmt(program, 0xFFU + program, program, 1); // its number for a version
            break;
        }
        if (random() % 3 == 0)
            Si_SectFlt_PmtBgService();
        if (random() % 20 == 0)
            Orva_Si_LatchPmt(program);
        if (random() % 20 == 0)
            Orva_Si_UnLatchPmt(program);
        expect_sound(si::pmt_task);
        for (const task_item_pmt *item : items<task_item_pmt>(si::pmt_task))
            EXPECT_TRUE(item->version == 0xFF || item->version == item->program_number) << i;
    }
}

TEST_F(Refusal, EventsStaySoundUnderARandomDriver)
{
    tune(1);
    const auto ids = services(12);
    Si_SectFlt_StartActPfEit(1, 2, ids.data(), 12);
    Si_SectFlt_StartActSchEit(1, 2, 1, ids.data(), 12);
    std::mt19937 random{2};
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        if (random() % 4 == 0)
            change_mind(random, 7);
        const auto service = static_cast<std::uint16_t>(1 + random() % 12);
        if (random() % 10 == 0)
            Si_SectFlt_UpdateEitLastTableId(0x50, service, 0x50 + random() % 4);
        for (const auto row : {si::act_pf_eit_task, si::act_sch_eit_task}) {
            for (const pid_filter *record : records_of(row)) {
                if (record->enabled == 0 || record->service_id != service)
                    continue;
                Si_SectFlt_UpdateEit(record->table_id, service, service, 1);
                break;
            }
        }
        if (random() % 3 == 0) {
            Si_SectFlt_ActPfEitBgService();
            Si_SectFlt_ActSchEitBgService();
        }
        for (const auto row : {si::act_pf_eit_task, si::act_sch_eit_task}) {
            expect_sound(row);
            for (const task_item_eit *item : items<task_item_eit>(row))
                EXPECT_TRUE(item->version == 0xFF || item->version == item->service_id) << i;
        }
    }
}

TEST_F(Refusal, AStoppedDsmPidRunsOnNoOtherRecord)
{
    refuse(5);
    Orva_Si_StartDsmFilter(0x100); // its record is refused
    Orva_Si_StartDsmFilter(0x200); // brings the record that serves the first PID
    Orva_Si_StopDsmFilter(0x100);
    for (const pid_filter *record : records_of(si::dsmcc_task))
        EXPECT_FALSE(record->enabled != 0 && record->pid == 0x100);
    EXPECT_EQ(Si_SectFlt_IsDsmccPid(0x100), 0U);
    expect_sound(si::dsmcc_task);
}

TEST_F(Refusal, NoPidStopsNoDsmFilter)
{
    Orva_Si_StartDsmFilter(0x100);
    Orva_Si_StopDsmFilter(SI_ANY_PID);
    EXPECT_EQ(Si_SectFlt_IsDsmccPid(0x100), 1U);
}

TEST_F(Refusal, ServiceFfffOnAirIsNoWildcard)
{
    tune(1);
    const std::uint16_t any = 0xFFFF;
    ASSERT_EQ(Si_SectFlt_StartActPfEit(1, 2, &any, 1), static_cast<std::uint32_t>(ORVA_SI_OK));
    EXPECT_EQ(Si_SectFlt_UpdateEit(0x4E, 0xFFFF, 7, 1), static_cast<std::uint32_t>(ORVA_SI_OK));
    EXPECT_EQ(loaded(5).negate[5], 0); // the version of one service must not hide all others
}

TEST_F(Refusal, ServiceFfffOnAirDoesNotTouchTheTunedOne)
{
    tune(1);
    const std::uint16_t one = 1;
    const std::uint16_t any = 0xFFFF;
    Si_SectFlt_StartActPfEit(1, 2, &one, 1);
    Si_SectFlt_StartActPfEit(1, 2, &any, 1);
    Si_SectFlt_UpdateEit(0x4E, 0xFFFF, 7, 1);
    EXPECT_EQ(item<task_item_eit>(si::act_pf_eit_task, 0).version, 0xFF);
}

TEST_F(Refusal, ThreeDynamicFiltersRotateOverAllPrograms)
{
    Si_SectFlt_DeInitPidFlts();
    driver.grants = static_cast<std::uint32_t>(driver.filter_count()) +
                    8; // five for the static tables and three more
    EXPECT_NE(Si_SectFlt_InitPidFlts(driver.table()), static_cast<std::uint32_t>(ORVA_SI_OK));
    const SiPmtPidList list = programs(10, SI_NO_PROGRAM);
    Si_SectFlt_StartPmt(&list);
    EXPECT_EQ(task(si::pmt_task).filter_count, 3);
    std::set<std::uint16_t> served;
    for (int run = 0; run < 60; ++run) {
        for (const pid_filter *record : records_of(si::pmt_task))
            if (record->enabled != 0)
                served.insert(record->service_id);
        Si_SectFlt_PmtBgService();
    }
    EXPECT_EQ(served.size(), 10U);
}

TEST_F(Refusal, ATunedProgramThatThePatRepeatsIsPinnedOnce)
{
    tune(1);
    SiPmtPidList list = programs(10, 1);
    list.pmtpid_array[9].program_number = 1;
    Si_SectFlt_StartPmt(&list);
    int pinned = 0;
    for (const task_item_pmt *item : items<task_item_pmt>(si::pmt_task))
        pinned += item->wanted == 0 ? 1 : 0;
    EXPECT_EQ(pinned, 1);
}

TEST_F(Refusal, RequestsBeyondTheEventStoreAreNotQueued)
{
    fake::set_log_level(0);
    std::vector<SiEitRequest> requests;
    for (std::uint32_t i = 0; i < 9000; ++i)
        requests.push_back({static_cast<std::uint16_t>(i), 1, 1});
    Si_SectFlt_StartOtherPfEit(requests.data(), 9000);
    EXPECT_EQ(task(si::other_pf_eit_task).task_count, 8192);
}

} // namespace
