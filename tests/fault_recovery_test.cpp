// SPDX-License-Identifier: LGPL-2.1-or-later
// A driver that refuses what a filter is loaded with, now and then or for a while, and works again
// later, while the channel goes on: nobody starts it anew.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/fault_driver.h"

namespace {

using namespace test;

class RefusedLoads : public FaultyDriver {
protected:
    // Of what the steps load once a channel runs, the n-th is refused, three more behind it, or
    // all, until the driver works again. Then the background services alone bring about the
    // outcome.
    void expect_recovery(unsigned most, void (*steps)(), bool (*outcome)())
    {
        for (unsigned n = 1; n <= most; ++n)
            for (const unsigned last : {n, n + 3, for_ever}) {
                SCOPED_TRACE("load " + std::to_string(n) + " to " + std::to_string(last));
                ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
                ASSERT_TRUE(start());
                faulty.calls = {};
                faulty.fault = {.slot = fake::update_filter, .calls = {n, last}};
                turns_at_most = impatient;
                steps();
                turns_at_most = patient;
                EXPECT_GT(faulty.struck, 0u);
                heal_driver();
                EXPECT_TRUE(outcome());
                EXPECT_EQ(broken_promise(), "");
                close_filters();
                expect_rest();
            }
    }
};

void pmts_of_a_pat()
{
    receive(carousel{{0x00, pat_section()}} + pmts());
}

TEST_F(RefusedLoads, OfPmtsAreTriedAgain)
{
    expect_recovery(7, pmts_of_a_pat, [] { return receive(pmts()) && receive(pmts(1)); });
}

TEST_F(RefusedLoads, OfALatchedProgramAreTriedAgain)
{
    expect_recovery(
        6,
        [] {
            pmts_of_a_pat();
            Orva_Si_LatchPmt(3);
            receive(pmts(1));
        },
        [] { // nothing goes round any more
            const bool kept = receive({pmts(2).at(0), pmts(2).at(2)});
            Orva_Si_UnLatchPmt(3);
            return kept && receive(pmts(2));
        });
}

TEST_F(RefusedLoads, OfPresentAndFollowingAreTriedAgain)
{
    expect_recovery(
        5,
        [] {
            ask_for_present_following();
            receive(present_following(0x4E, 3));
        },
        [] {
            return receive(present_following(0x4E, 3)) && receive(present_following(0x4E, 3, 1));
        });
}

TEST_F(RefusedLoads, OfSchedulesAreTriedAgain)
{
    expect_recovery(
        2,
        [] {
            Orva_Si_StartActualScheduleEIT(1, 1, 1, three_services.data(), 1);
            receive(schedule(0x50, 1, 24));
        },
        [] { return receive(schedule(0x50, 1, 24)); });
}

} // namespace
