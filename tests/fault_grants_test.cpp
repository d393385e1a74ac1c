// SPDX-License-Identifier: LGPL-2.1-or-later
// Drivers that grant fewer filters than the library asks for, or filters whose ids nobody can use.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "support/fault_driver.h"
#include "support/model.h"

namespace {

using namespace test;

constexpr unsigned filters_of_library = 31;
constexpr unsigned filters_of_tables = 5; // one each, in the order in which they are started

constexpr std::array<std::uint16_t, filters_of_tables> pids_of_tables{0x00, 0x01, 0x10, 0x11, 0x14};

bool is_pmt(const transmission &sent)
{
    return sent.pid >= first_pmt_pid;
}

// What can be received without the filter of one table; those behind the tables' do all they can.
carousel multiplex_without(unsigned table)
{
    carousel rest = multiplex();
    if (table < filters_of_tables)
        std::erase_if(rest, [&](const transmission &sent) {
            return sent.pid == pids_of_tables[table] || (table == 0 && is_pmt(sent));
        });
    return rest;
}

// What can be received with the first so many filters. A single one for PMTs is the tuned
// program's.
carousel within_reach(unsigned filters)
{
    carousel rest = multiplex();
    std::erase_if(rest, [&](const transmission &sent) {
        if (is_pmt(sent))
            return filters <= filters_of_tables ||
                   (filters == filters_of_tables + 1 && sent.pid != first_pmt_pid);
        return std::ranges::find(pids_of_tables, sent.pid) - pids_of_tables.begin() >=
               static_cast<std::ptrdiff_t>(filters);
    });
    return rest;
}

class Grants : public FaultyDriver {
protected:
    static std::uint32_t request(unsigned index, unsigned last, grant how)
    {
        fake::clear_log();
        fake::set_log_level(ORVA_DEBUG_NOTICE);
        const std::uint32_t result =
            Si_SectFlt_InitPidFlts(driver_with({fake::add_filter, false, {index + 1, last}, how}));
        fake::set_log_level(ORVA_DEBUG_ERROR);
        return result;
    }

    // With a driver that grants all.
    void expect_recovery() const
    {
        close_filters();
        EXPECT_EQ(broken_promise(), "");
        heal_driver();
        EXPECT_EQ(Si_SectFlt_InitPidFlts(&faulty.table), ORVA_SI_OK);
        EXPECT_TRUE(whole_multiplex());
        close_filters();
        EXPECT_EQ(broken_rest(blocks_at_first), "");
    }
};

TEST_F(Grants, EndAtAnyFilterAndTheOnesBeforeAreUsed)
{
    for (unsigned index = 0; index < filters_of_library; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(request(index, for_ever, grant::refused), refusal);
        EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR,
                                 text("i = %u Req filter have error=%u\n", index, refusal)));
        EXPECT_TRUE(
            fake::logged(ORVA_DEBUG_NOTICE, text("request total %u filters for use.\n", index)));
        start();
        EXPECT_EQ(fake::driver().running(), std::min(index, filters_of_tables));
        EXPECT_TRUE(receive(within_reach(index)));
        expect_recovery();
    }
}

// An id that stands for no filter makes one of them useless, not those behind it.
void expect_one_useless_filter(unsigned index)
{
    start();
    EXPECT_EQ(fake::driver().running(), filters_of_tables - (index < filters_of_tables ? 1 : 0));
    EXPECT_EQ(fake::logged(ORVA_DEBUG_ERROR, "Invalid filter!\n"), index < filters_of_tables);
    EXPECT_TRUE(receive(multiplex_without(index)));
    if (index > 0) {
        EXPECT_TRUE(first_present_following());
        EXPECT_TRUE(data_carousels());
    }
}

TEST_F(Grants, OfAnIdThatMeansNoneCostsThatFilterAlone)
{
    for (unsigned index = 0; index < filters_of_library; ++index)
        for (const grant how : {grant::no_filter, grant::no_filter_in_low_bits}) {
            SCOPED_TRACE(index);
            EXPECT_EQ(request(index, index + 1, how), ORVA_SI_OK);
            expect_one_useless_filter(index);
            expect_recovery();
        }
}

// Wherever a driver begins to count: records are found by the ids of their filters.
TEST_F(Grants, OfAnyIdsAreAsGood)
{
    for (const unsigned first : {0u, 1u, 2u, 3u, 31u, 33u, 62u, 63u, 64u, 255u, 256u, 4095u, 65000u,
                                 0x10000u - filters_of_library}) {
        SCOPED_TRACE(first);
        SiDmxSectHandler *const table = driver_with({});
        fake::driver().first_id = first;
        EXPECT_EQ(Si_SectFlt_InitPidFlts(table), ORVA_SI_OK);
        EXPECT_TRUE(whole_multiplex());
        EXPECT_TRUE(first_present_following());
        EXPECT_TRUE(data_carousels());
        close_filters();
        expect_rest();
    }
}

// Of such ids the library keeps 16 bits, and of two with the same it takes the first.
TEST_F(Grants, OfIdsThatAreNotAFiltersOwnDoNoHarm)
{
    for (unsigned index = 1; index < filters_of_library; ++index)
        for (const grant how : {grant::same_as_before, grant::wide})
            for (const unsigned last : {index + 1, for_ever}) {
                SCOPED_TRACE(index);
                EXPECT_EQ(request(index, last, how), ORVA_SI_OK);
                turns_at_most = impatient;
                all_events();
                data_carousels();
                turns_at_most = patient;
                expect_recovery();
            }
}

} // namespace
