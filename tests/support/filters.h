// SPDX-License-Identifier: LGPL-2.1-or-later
// The filter layer on a recording driver, everything enabled, as unit tests start it.
#ifndef TESTS_SUPPORT_FILTERS_H
#define TESTS_SUPPORT_FILTERS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si/channel.h"
#include "orva_si/readiness.h"
#include "orva_si_sectflt.h"

// Tests call the steps that need the lock on one thread, without it.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace test {

class Filters : public testing::Test {
protected:
    Filters()
    {
        Si_BG_InitServiceList();
        Si_SectFlt_InitPidFlts(driver.table());
        enable_all();
        fake::clear_log();
        driver.forget_calls();
    }

    // Every item goes back before the leak check.
    ~Filters() override
    {
        Si_SectFlt_StopAllFilters();
        EXPECT_EQ(driver.lent(), driver.returned());
        EXPECT_EQ(driver.wrongly_returned(), 0U);
    }

    static void enable_all()
    {
        Orva_Si_SetCtlFlag();
        Si_CtlHelper_SetTableEnableFlag();
        Si_CtlHelper_SetActPfEitEnableFlag(1);
        Si_CtlHelper_SetOtherPfEitEnableFlag(1);
        Si_CtlHelper_SetActSchEitEnableFlag(1);
        Si_CtlHelper_SetOtherSchEitEnableFlag(1);
        Si_CtlHelper_SetDSMCCEnableFlag(1);
    }

    // Makes a program the tuned one, nothing else.
    static void tune(std::uint16_t program)
    {
        Orva_Si_ResetRunningStatus(1, program);
        Si_CtlHelper_SetDSMCCEnableFlag(1);
        fake::clear_log();
    }

    static filter_task &task(si::task_row row) { return si::task_at(row); }

    static pid_filter &record(std::size_t index) { return si::pool_records()[index]; }

    // What record index was loaded with last.
    SiDmxFilterParam loaded(std::size_t index) const
    {
        return driver.filter(driver.filter_id(index)).loaded;
    }
    unsigned loads(std::size_t index) const { return driver.filter(driver.filter_id(index)).loads; }

    template <class Item>
    static std::vector<Item *> items(si::task_row row)
    {
        std::vector<Item *> all;
        for (Item &item : si::items<Item>(task(row)))
            all.push_back(&item);
        return all;
    }

    template <class Item>
    static Item &item(si::task_row row, std::size_t index)
    {
        return *items<Item>(row).at(index);
    }

    static std::vector<pid_filter *> records_of(si::task_row row)
    {
        std::vector<pid_filter *> all;
        for (pid_filter &of : si::filters(task(row)))
            all.push_back(&of);
        return all;
    }

    // Position in the task list of the item that the n-th record serves; -1: none.
    static int served_by(si::task_row row, std::size_t n)
    {
        const auto all = items<task_item>(row);
        const auto found = std::ranges::find(all, records_of(row).at(n)->item);
        return found == all.end() ? -1 : static_cast<int>(found - all.begin());
    }

    static bool paused(std::uint32_t service) { return fake::timers().timers.at(service).paused; }

    // Takes all dynamic records out of the pool.
    static void use_up_dynamic_filters()
    {
        for (std::size_t index = 5; index < si::pool_records().size(); ++index)
            record(index).used = 1;
    }
    static void free_dynamic_filters()
    {
        for (std::size_t index = 5; index < si::pool_records().size(); ++index)
            record(index).used = 0;
    }

    fake::recording_driver &driver = fake::driver();
};

// What a statement printed.
template <class Statement>
std::string printed(Statement statement)
{
    testing::internal::CaptureStdout();
    statement();
    return testing::internal::GetCapturedStdout();
}

// Matches the red line of a failed check in a function of the filter layer.
inline auto is_assertion(const std::string &function, const std::string &text)
{
    return testing::AllOf(
        testing::StartsWith("\n\033[0;34;41m ASSERT orva_failed, File:Src/orva_si_sectflt Line:"),
        testing::EndsWith(" Routine:" + function + ", " + text + " failed \033[0m \n"));
}

} // namespace test

#endif
