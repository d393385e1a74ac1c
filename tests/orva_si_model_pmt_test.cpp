// SPDX-License-Identifier: LGPL-2.1-or-later
// The programs of the PAT and the PMTs that belong to them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "fakes/platform.h"
#include "orva_si_model.h"
#include "support/client.h"
#include "support/model.h"
#include "support/store.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::ElementsAreArray;

class Programs : public testing::Test {
protected:
    Programs() { init_store(); }
    ~Programs() override { end_store(); }
    Programs(const Programs &) = delete;
    Programs &operator=(const Programs &) = delete;

    static void list(std::uint16_t number, std::uint16_t pid)
    {
        si::store_pmt_entry(PmtPidList, PmtPidList.count, {number, pid});
        ++PmtPidList.count;
    }
};

// ---- State

TEST(PmtPidListAtStart, NamesNoProgram)
{
    EXPECT_EQ(PmtPidList.count, 0U);
    EXPECT_EQ(PmtPidList.cur_prog_num, 0xFFFF);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x2000);
}

using ResetPmtPidList = Programs;

TEST_F(ResetPmtPidList, ForgetsEveryEntryAndTheTunedProgram)
{
    list(1, 0x101);
    list(2, 0x102);
    PmtPidList.cur_prog_num = 2;
    PmtPidList.cur_pmt_pid = 0x102;
    EXPECT_EQ(Si_Model_ResetPmtPidList(), ORVA_SI_OK);
    EXPECT_EQ(PmtPidList.count, 0U);
    EXPECT_EQ(PmtPidList.cur_prog_num, 0xFFFF);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x2000);
    for (const unsigned i : {0U, 1U}) {
        EXPECT_EQ(PmtPidList.pmtpid_array[i].program_number, 0xFFFF);
        EXPECT_EQ(PmtPidList.pmtpid_array[i].pmt_pid, 0x2000);
    }
}

TEST_F(ResetPmtPidList, TouchesNoEntryBehindTheCount)
{
    list(1, 0x101);
    list(2, 0x102);
    PmtPidList.count = 1;
    Si_Model_ResetPmtPidList();
    EXPECT_EQ(PmtPidList.pmtpid_array[0].program_number, 0xFFFF);
    EXPECT_EQ(PmtPidList.pmtpid_array[1].program_number, 2);
    EXPECT_EQ(PmtPidList.pmtpid_array[1].pmt_pid, 0x102);
}

TEST_F(ResetPmtPidList, ForgetsAFullList)
{
    for (std::uint16_t i = 0; i < 255; ++i)
        list(i, 0x100);
    Si_Model_ResetPmtPidList();
    EXPECT_EQ(PmtPidList.pmtpid_array[254].program_number, 0xFFFF);
    EXPECT_EQ(PmtPidList.pmtpid_array[254].pmt_pid, 0x2000);
    EXPECT_EQ(PmtPidList.count, 0U);
}

TEST_F(ResetPmtPidList, EndsWhateverTheCountSays)
{
    for (const std::uint32_t count : {256U, 511U, 0xFFFFFFFFU}) {
        PmtPidList.count = count;
        EXPECT_EQ(Si_Model_ResetPmtPidList(), ORVA_SI_OK);
        EXPECT_EQ(PmtPidList.count, 0U);
        EXPECT_EQ(PmtPidList.cur_prog_num, 0xFFFF);
        EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x2000);
    }
}

TEST_F(Programs, TheTunedProgramAloneCanBeForgotten)
{
    list(1, 0x101);
    PmtPidList.cur_prog_num = 1;
    PmtPidList.cur_pmt_pid = 0x101;
    Si_Model_ResetCurTuningProgramNum();
    EXPECT_EQ(PmtPidList.cur_prog_num, 0xFFFF);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x101);
    EXPECT_EQ(PmtPidList.count, 1U);
}

// ---- The tuned program

using UpdateCurPmtInfo = Programs;

TEST_F(UpdateCurPmtInfo, TakesThePmtPidOfTheTunedProgram)
{
    tune(1, 5);
    list(4, 0x104);
    list(5, 0x105);
    list(5, 0x106); // the first counts
    EXPECT_EQ(Si_Model_UpdateCurPmtInfo(), 0U);
    EXPECT_EQ(PmtPidList.cur_prog_num, 5);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x105);
}

TEST_F(UpdateCurPmtInfo, FailsWhenThePatDoesNotListTheProgram)
{
    tune(1, 0x123);
    list(4, 0x104);
    EXPECT_EQ(Si_Model_UpdateCurPmtInfo(), 1U);
    EXPECT_EQ(PmtPidList.cur_prog_num, 0x123);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x2000);
    EXPECT_TRUE(fake::logged(4, "can't find the prog_no = 0x123\n")) << fake::log_text();
}

TEST_F(UpdateCurPmtInfo, IsContentWithoutATunedProgram)
{
    tune(1);
    list(0xFFFF, 0x104);
    PmtPidList.cur_prog_num = 7;
    EXPECT_EQ(Si_Model_UpdateCurPmtInfo(), 0U);
    EXPECT_EQ(PmtPidList.cur_prog_num, 0xFFFF);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x2000);
}

// ---- PMT PIDs

using GetPmtPid = Programs;

TEST_F(GetPmtPid, AnswersTheFirstEntryOfTheProgram)
{
    list(4, 0x104);
    list(5, 0x105);
    list(5, 0x106);
    EXPECT_EQ(Si_Model_GetPmtPid(5), 0x105U);
    EXPECT_EQ(Orva_Si_GetPmtPid(5), 0x105U);
    EXPECT_EQ(Orva_Si_GetPmtPid(6), 0x2000U);
    EXPECT_EQ(Si_Model_GetPmtPid(6), 0x2000U);
}

TEST_F(GetPmtPid, TakesTheLowSixteenBits)
{
    list(5, 0x105);
    EXPECT_EQ(Orva_Si_GetPmtPid(0xABCD0005), 0x105U);
}

TEST_F(GetPmtPid, HasNoPidForProgramZero)
{
    list(0, 0x10);
    EXPECT_EQ(Orva_Si_GetPmtPid(0), 0x2000U);
    EXPECT_TRUE(fake::logged(2, "[prog_num\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(Si_Model_GetPmtPid(0), 0x2000U);
    EXPECT_TRUE(fake::logged(2, "[prog_num\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_GetPmtPid(0x10000), 0x2000U);
    EXPECT_TRUE(fake::logged(2, "[prog_num\n")) << fake::log_text();
}

TEST_F(GetPmtPid, TracesTheEntriesItVisits)
{
    list(4, 0x104);
    list(5, 0x105);
    list(6, 0x106);
    Orva_Si_GetPmtPid(5);
    EXPECT_TRUE(fake::logged(4, "PmtPidList.pmtpid_array[0] = 0x4 -> 0x104\n"));
    EXPECT_TRUE(fake::logged(4, "PmtPidList.pmtpid_array[1] = 0x5 -> 0x105\n"));
    EXPECT_FALSE(fake::logged("PmtPidList.pmtpid_array[2] = 0x6 -> 0x106\n")) << fake::log_text();
}

TEST_F(GetPmtPid, LooksAtAFullListButNotBeyond)
{
    for (std::uint16_t i = 1; i <= 255; ++i)
        list(i, static_cast<std::uint16_t>(0x100 + i));
    EXPECT_EQ(Orva_Si_GetPmtPid(255), 0x1FFU);
    PmtPidList.count = 0xFFFFFFFF;
    EXPECT_EQ(Orva_Si_GetPmtPid(256), 0x2000U);
    PmtPidList.count = 254;
    EXPECT_EQ(Orva_Si_GetPmtPid(255), 0x2000U);
}

// ---- Membership

using IsPmtExisted = Programs;

TEST_F(IsPmtExisted, SaysWhetherThePatListsTheProgram)
{
    list(0x45, 0x105);
    EXPECT_EQ(Orva_Si_IsPmtExisted(0x45), 1U);
    EXPECT_TRUE(fake::logged(4, "found the prog_no = 0x45\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_IsPmtExisted(0x46), 0U);
    EXPECT_TRUE(fake::logged(4, "can't find the prog_no = 0x46\n")) << fake::log_text();
}

TEST_F(IsPmtExisted, NoProgramIsNeverListed)
{
    list(0xFFFF, 0x105);
    EXPECT_EQ(Orva_Si_IsPmtExisted(0xFFFF), 0U);
}

using IsPmtExistedByPidAndProgNum = Programs;

TEST_F(IsPmtExistedByPidAndProgNum, NeedsBothInOneEntryProgramFirst)
{
    list(5, 0x105);
    list(6, 0x106);
    list(5, 0x107);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(5, 0x105), 1U);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(5, 0x107), 1U);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(5, 0x106), 0U);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(0x105, 5), 0U);
}

TEST_F(IsPmtExistedByPidAndProgNum, KeepsItsTextWithoutALineEnd)
{
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(5, 0x105), 0U);
    EXPECT_TRUE(fake::logged(4, "can't find the prog_no = 0x5, pid = 0x105n")) << fake::log_text();
}

TEST_F(IsPmtExistedByPidAndProgNum, NoPidIsNeverThePidOfAListedProgram)
{
    list(5, 0x2000);
    list(0xFFFF, 0x105);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(5, 0x2000), 0U);
    EXPECT_EQ(Orva_Si_IsPmtExistedByPidAndProgNum(0xFFFF, 0x105), 0U);
}

// ---- All PMTs there

using DoAllPmtReady = Programs;

TEST_F(DoAllPmtReady, IsFalseForAnEmptyList)
{
    store(make(pmt{.program = 5}), 0x105);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 0U);
    EXPECT_TRUE(fake::logged(4, "no valid pmt got \n")) << fake::log_text();
}

TEST_F(DoAllPmtReady, IsTrueOnceEveryListedProgramHasItsTable)
{
    list(5, 0x105);
    list(6, 0x106);
    store(make(pmt{.program = 5}), 0x105);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 0U);
    EXPECT_FALSE(fake::logged("no valid pmt got \n"));
    store(make(pmt{.program = 6}), 0x106);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 1U);
    EXPECT_TRUE(fake::logged(4, "all pmt are got \n")) << fake::log_text();
}

TEST_F(DoAllPmtReady, WantsTheTableOnThePidOfThePat)
{
    list(5, 0x105);
    store(make(pmt{.program = 5}), 0x106);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 0U);
    store(make(private_table{.table_id = 0x42, .extension = 5}), 0x105);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 0U);
}

TEST_F(DoAllPmtReady, LeavesTheNetworkEntryAndEmptyEntriesOut)
{
    list(0, 0x10);
    list(0xFFFF, 0x105);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 0U);
    EXPECT_TRUE(fake::logged(4, "no valid pmt got \n")) << fake::log_text();
    list(5, 0x105);
    store(make(pmt{.program = 5}), 0x105);
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 1U);
}

TEST_F(DoAllPmtReady, CountsATableThatWasEmptied)
{
    list(5, 0x105);
    Orva_Si_RemoveTableSections(store(make(pmt{.program = 5}), 0x105));
    EXPECT_EQ(Orva_Si_DoAllPmtReady(), 1U);
}

// ---- The programs for the client

class GetPatProgList : public Programs {
protected:
    static constexpr std::uint16_t untouched = 0xABAB;

    GetPatProgList() { numbers.fill(untouched); }

    std::uint32_t get(std::int32_t capacity)
    {
        count = capacity;
        return Orva_Si_GetPatProgList(numbers.data(), &count);
    }

    std::array<std::uint16_t, 5> numbers{};
    std::int32_t count = 0;
};

TEST_F(GetPatProgList, CopiesUntilTheArrayIsFull)
{
    list(1, 0x101);
    list(2, 0x102);
    list(3, 0x103);
    EXPECT_EQ(get(2), ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(count, 2);
    EXPECT_THAT(numbers, ElementsAre(1, 2, untouched, untouched, untouched));
    EXPECT_TRUE(fake::logged(2, "error:need more room\n")) << fake::log_text();
}

TEST_F(GetPatProgList, AnArrayOfTheRightSizeIsEnough)
{
    list(1, 0x101);
    list(2, 0x102);
    list(3, 0x103);
    EXPECT_EQ(get(3), ORVA_SI_OK);
    EXPECT_EQ(count, 3);
    EXPECT_THAT(numbers, ElementsAre(1, 2, 3, untouched, untouched));
    EXPECT_FALSE(fake::logged("error:need more room\n"));
    EXPECT_TRUE(fake::logged(4, "the proglist[0] = 1\n"));
    EXPECT_TRUE(fake::logged(4, "the proglist[2] = 3\n")) << fake::log_text();
}

TEST_F(GetPatProgList, IsWithoutDataWhenNoProgramIsListed)
{
    EXPECT_EQ(get(3), 0x2000DU);
    EXPECT_EQ(count, 0);
}

TEST_F(GetPatProgList, WithoutRoomIsWithoutDataToo)
{
    list(1, 0x101);
    EXPECT_EQ(get(0), ORVA_SI_NO_DATA);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(fake::logged(2, "error:need more room\n")) << fake::log_text();
}

TEST_F(GetPatProgList, ANegativeCapacityIsNoRoom)
{
    list(1, 0x101);
    EXPECT_EQ(get(-1), ORVA_SI_NO_DATA);
    EXPECT_EQ(count, 0);
    EXPECT_THAT(numbers, ElementsAre(untouched, untouched, untouched, untouched, untouched));
}

TEST_F(GetPatProgList, LeavesEmptyEntriesOutAndKeepsTheOrder)
{
    list(9, 0x101);
    list(0xFFFF, 0x102);
    list(3, 0x103);
    list(0, 0x10);
    EXPECT_EQ(get(5), ORVA_SI_OK);
    EXPECT_EQ(count, 3);
    EXPECT_THAT(numbers, ElementsAre(9, 3, 0, untouched, untouched));
}

TEST_F(GetPatProgList, RefusesANullArrayBeforeItLocks)
{
    count = 3;
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_GetPatProgList(nullptr, &count), ORVA_SI_NULL_ARGUMENT);
    Orva_MutexV(&Ts_Ctl_Mutex);
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(fake::logged(2, "[proglist\n")) << fake::log_text();
}

TEST_F(GetPatProgList, RefusesANullCount)
{
    EXPECT_EQ(Orva_Si_GetPatProgList(numbers.data(), nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pcount\n")) << fake::log_text();
}

TEST_F(GetPatProgList, NamesTheArrayFirstWhenBothAreNull)
{
    EXPECT_EQ(Orva_Si_GetPatProgList(nullptr, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[proglist\n")) << fake::log_text();
}

TEST_F(GetPatProgList, GivesTheControlLockBack)
{
    list(1, 0x101);
    for (const std::int32_t capacity : {0, 1, 5}) {
        get(capacity);
        ASSERT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
        Orva_MutexV(&Ts_Ctl_Mutex);
    }
}

} // namespace
