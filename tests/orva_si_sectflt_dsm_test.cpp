// SPDX-License-Identifier: LGPL-2.1-or-later
// DSM-CC filters: one for each PID that the client asks for.
#include "support/filters.h"

using namespace test;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

constexpr std::uint32_t disabled = 0x20065;

class DsmFilters : public Filters {
protected:
    static filter_task &row() { return task(si::dsmcc_task); }
    static std::vector<int> pids()
    {
        std::vector<int> all;
        for (const task_item_dsm *of : items<task_item_dsm>(si::dsmcc_task))
            all.push_back(of->pid);
        return all;
    }
};

TEST_F(DsmFilters, StartArmsAFilterForThePid)
{
    Si_CtlHelper_SetDSMCCEnableFlag(0);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x321), ORVA_SI_OK);
    EXPECT_EQ(Si_CtlHelper_IsDSMCCEnabled(), 1U);
    EXPECT_EQ(row().filter_quota, 1);
    EXPECT_EQ(row().mode, 0U);
    EXPECT_THAT(pids(), ElementsAre(0x321));
    const SiDmxFilterParam param = loaded(5);
    EXPECT_EQ(param.pid, 0x321);
    EXPECT_EQ(param.match[0], 0x3B);
    EXPECT_EQ(param.mask[0], 0xF8);
    EXPECT_EQ(param.filter_depth, 1);
    EXPECT_EQ(param.list_length, 1U);
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully: 69!\n"));
    EXPECT_EQ(item<task_item>(si::dsmcc_task, 0).active, 1);
}

TEST_F(DsmFilters, SixthStartReturnsOneAndAddsNothing)
{
    for (std::uint32_t pid = 0x300; pid < 0x305; ++pid)
        EXPECT_EQ(Orva_Si_StartDsmFilter(pid), ORVA_SI_OK);
    EXPECT_EQ(row().filter_count, 5);
    EXPECT_EQ(row().mode, 0U);
    EXPECT_EQ(driver.running(), 5U);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x305), ORVA_SI_FAILURE);
    EXPECT_EQ(row().filter_count, 5);
    EXPECT_EQ(row().task_count, 5);
}

TEST_F(DsmFilters, StartOfAPidThatIsFilteredReplacesItsFilter)
{
    for (std::uint32_t pid = 0x300; pid < 0x305; ++pid)
        Orva_Si_StartDsmFilter(pid);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x302), ORVA_SI_OK);
    EXPECT_THAT(pids(), ElementsAre(0x300, 0x301, 0x303, 0x304, 0x302));
    EXPECT_EQ(row().filter_count, 5);
    EXPECT_EQ(driver.times_called(fake::disable_filter), 1U);
    EXPECT_EQ(driver.running(), 5U);
}

TEST_F(DsmFilters, EveryFilterServesItsOwnPid)
{
    for (std::uint32_t pid = 0x300; pid < 0x305; ++pid)
        Orva_Si_StartDsmFilter(pid);
    for (const pid_filter *of : records_of(si::dsmcc_task)) {
        ASSERT_NE(of->item, nullptr);
        EXPECT_EQ(of->pid, si::item_as<task_item_dsm>(of->item)->pid);
        EXPECT_EQ(of->enabled, 1);
    }
}

TEST_F(DsmFilters, FilterIsTakenFromAnotherTaskWhenNoneIsFree)
{
    filter_task &donor = task(si::pmt_task);
    for (std::uint16_t i = 0; i < 26; ++i) {
        auto *of = si::new_item<task_item_pmt>();
        of->program_number = static_cast<std::uint16_t>(i + 1);
        Si_SectFlt_AddNewTask(&donor, of);
    }
    Si_SectFlt_AddAvailableFilters(&donor, 26);
    donor.filter_quota = 2;
    Si_SectFlt_TriggerFilterTask(&donor);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x300), ORVA_SI_OK);
    EXPECT_EQ(donor.filter_count, 25);
    EXPECT_THAT(records_of(si::dsmcc_task), ElementsAre(&record(30)));
    EXPECT_TRUE(fake::logged(3, "Fetch filter sucessfully: 94!\n"));
}

TEST_F(DsmFilters, StartWithoutAnyFilterQueuesTheRequest)
{
    use_up_dynamic_filters();
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x300), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(1, "Failed to fetch filter!\n"));
    EXPECT_THAT(pids(), ElementsAre(0x300));
    EXPECT_EQ(row().mode, 2U);
    free_dynamic_filters();
    EXPECT_EQ(Orva_Si_StopDsmFilter(0x300), 1U); // what never got a filter goes too
    EXPECT_THAT(pids(), SizeIs(0));
}

TEST_F(DsmFilters, StartWithoutMemoryChangesNothing)
{
    fake::fail_allocation(1);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x300), ORVA_SI_FAILURE);
    EXPECT_EQ(row().task_count + row().filter_count, 0);
}

TEST_F(DsmFilters, StopReleasesTheFilterAndAnswersOne)
{
    Orva_Si_StartDsmFilter(0x300);
    Orva_Si_StartDsmFilter(0x301);
    EXPECT_EQ(Orva_Si_StopDsmFilter(0x300), 1U);
    EXPECT_THAT(pids(), ElementsAre(0x301));
    EXPECT_EQ(record(5).used, 0);
    EXPECT_EQ(record(5).enabled, 0);
    EXPECT_EQ(driver.running(), 1U);
    EXPECT_FALSE(fake::logged("Invalid task pointer!\n"));
}

TEST_F(DsmFilters, StopOfAPidWithoutAFilterAnswersOne)
{
    EXPECT_EQ(Orva_Si_StopDsmFilter(0x300), 1U);
    Orva_Si_StartDsmFilter(0x301);
    EXPECT_EQ(Orva_Si_StopDsmFilter(0x300), 1U);
    EXPECT_THAT(pids(), ElementsAre(0x301));
}

TEST_F(DsmFilters, StopOfAFilterThatServesNothingIsReportedAndRemovesTheRequest)
{
    driver.answers[fake::update_filter] = 6;
    Orva_Si_StartDsmFilter(0x300); // could not be armed
    EXPECT_EQ(row().filter_count, 1);
    EXPECT_EQ(Orva_Si_StopDsmFilter(0x300), 1U);
    EXPECT_TRUE(fake::logged(1, "Invalid task pointer!\n"));
    EXPECT_EQ(row().task_count + row().filter_count, 0);
    EXPECT_EQ(record(5).used, 0);
}

TEST_F(DsmFilters, RotationStaysInRangeAfterARemoval)
{
    Orva_Si_StartDsmFilter(0x300);
    Orva_Si_StartDsmFilter(0x301);
    row().next_task_index = 1;
    Orva_Si_StopDsmFilter(0x300);
    EXPECT_EQ(row().next_task_index, 0);
    EXPECT_EQ(Orva_Si_StartDsmFilter(0x302), ORVA_SI_OK);
    EXPECT_EQ(driver.running(), 2U);
}

TEST_F(DsmFilters, StopAllClearsTheFlagAndTheTask)
{
    Orva_Si_StartDsmFilter(0x300);
    Orva_Si_StartDsmFilter(0x301);
    EXPECT_EQ(Si_SectFlt_StopAllDsmFilters(), ORVA_SI_OK);
    EXPECT_EQ(Si_CtlHelper_IsDSMCCEnabled(), 0U);
    EXPECT_EQ(row().task_count + row().filter_count, 0);
    EXPECT_EQ(driver.running(), 0U);
}

TEST_F(DsmFilters, RequestedPidsAreKnown)
{
    Orva_Si_StartDsmFilter(0x300);
    EXPECT_EQ(Si_SectFlt_IsDsmccPid(0x300), 1U);
    EXPECT_EQ(Si_SectFlt_IsDsmccPid(0x301), 0U);
    Orva_Si_StopDsmFilter(0x300);
    EXPECT_EQ(Si_SectFlt_IsDsmccPid(0x300), 0U);
}

TEST_F(DsmFilters, DisabledFilterIsNotArmed)
{
    Si_CtlHelper_SetDSMCCEnableFlag(0);
    task_item_dsm one{};
    EXPECT_EQ(Si_SectFlt_StartDsmFilterTask(&record(5), &one), disabled);
    EXPECT_EQ(loads(5), 0U);
}

} // namespace
