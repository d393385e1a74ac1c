// SPDX-License-Identifier: LGPL-2.1-or-later
// The Program Association Table: its programs and its transport_stream_id.
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_program.h"
#include "orva_si_model.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using program_list = std::vector<std::pair<std::uint16_t, std::uint16_t>>;

program_list entries_of(const SiPmtPidList &list)
{
    program_list all;
    for (std::uint32_t i = 0; i < list.count; ++i)
        all.emplace_back(list.pmtpid_array[i].program_number, list.pmtpid_array[i].pmt_pid);
    return all;
}

// As the dispatcher does it: with the lock held.
std::uint32_t parse(SiTable *table, SiPmtPidList *list = &PmtPidList)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    const std::uint32_t result = Si_Pat_ParsePmtPidList(table, list);
    Orva_MutexV(&Ts_Ctl_Mutex);
    return result;
}

pat of_programs(std::uint16_t from, std::uint16_t count)
{
    pat table{.last_section_number = 1};
    for (std::uint16_t i = 0; i < count; ++i)
        table.programs.push_back(
            {static_cast<std::uint16_t>(from + i), static_cast<std::uint16_t>(0x100 + i)});
    return table;
}

bool is_stored(std::uint16_t pid, std::uint16_t program)
{
    return Orva_Si_FindTableById(pid, 0x02, program, SI_ANY_EXT, SI_ANY_EXT) != nullptr;
}

TEST(PmtPids, AreTakenInTheOrderOfThePat)
{
    SiTable *table = store(make(pat{.programs = {{5, 0x150}, {3, 0x130}, {9, 0x1FFF}}}));
    EXPECT_EQ(parse(table), ORVA_SI_OK);
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{5, 0x150}, {3, 0x130}, {9, 0x1FFF}}));
    EXPECT_TRUE(fake::logged(4, "index = 0, prog_num:0x5, pmt_pid: 0x150\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "index = 2, prog_num:0x9, pmt_pid: 0x1fff\n"));
    EXPECT_EQ(Orva_Si_GetPmtPid(3), 0x130u);
}

TEST(PmtPids, TheNetworkPidAndProgramFFFFAreNoPrograms)
{
    SiTable *table = store(make(pat{.programs = {{0, 0x10}, {5, 0x150}, {0xFFFF, 0x160}}}));
    parse(table);
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{5, 0x150}}));
}

TEST(PmtPids, OfThePidThirteenBitsCount)
{
    auto section = make(pat{.programs = {{5, 0x150}}});
    section[10] &= 0x1F; // the reserved bits
    parse(store(fix_crc(section)));
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{5, 0x150}}));
}

TEST(PmtPids, ReplaceTheOnesBefore)
{
    parse(store(make(pat{.ts = 1, .programs = {{5, 0x150}, {6, 0x160}}})));
    PmtPidList.cur_prog_num = 5;
    PmtPidList.cur_pmt_pid = 0x150;
    parse(store(make(pat{.ts = 2, .programs = {{7, 0x170}}})));
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{7, 0x170}}));
    EXPECT_EQ(PmtPidList.pmtpid_array[1].program_number, SI_NO_PROGRAM);
    EXPECT_EQ(PmtPidList.cur_prog_num, SI_NO_PROGRAM);
    EXPECT_EQ(PmtPidList.cur_pmt_pid, SI_ANY_PID);
}

TEST(PmtPids, ComeFromAllSections)
{
    store(make(pat{.last_section_number = 1, .programs = {{5, 0x150}}}));
    SiTable *table =
        store(make(pat{.section_number = 1, .last_section_number = 1, .programs = {{6, 0x160}}}));
    parse(table);
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{5, 0x150}, {6, 0x160}}));
}

TEST(PmtPids, ADamagedSectionIsPassedOver)
{
    store(damage(make(pat{.last_section_number = 1, .programs = {{5, 0x150}}})));
    SiTable *table =
        store(make(pat{.section_number = 1, .last_section_number = 1, .programs = {{6, 0x160}}}));
    parse(table);
    EXPECT_EQ(entries_of(PmtPidList), (program_list{{6, 0x160}}));
}

TEST(PmtPids, The256thIsRefusedAndTheFirst255Stay)
{
    store(make(of_programs(1, 200)));
    auto second = of_programs(201, 56);
    second.section_number = 1;
    SiTable *table = store(make(second));
    EXPECT_EQ(parse(table), ORVA_SI_OK);
    EXPECT_EQ(PmtPidList.count, 255u);
    EXPECT_EQ(PmtPidList.pmtpid_array[254].program_number, 255);
    EXPECT_EQ(PmtPidList.cur_prog_num, SI_NO_PROGRAM);
    EXPECT_TRUE(fake::logged(2, "need more memory\n")) << fake::log_text();
}

TEST(PmtPids, Exactly255Fit)
{
    store(make(of_programs(1, 200)));
    auto second = of_programs(201, 55);
    second.section_number = 1;
    parse(store(make(second)));
    EXPECT_EQ(PmtPidList.count, 255u);
    EXPECT_FALSE(fake::logged("need more memory\n"));
}

TEST(PmtPids, StoredPmtsThatAreNoLongerListedGo)
{
    store(make(pmt{.program = 5}), 0x150);
    store(make(pmt{.program = 6}), 0x160);
    store(make(pmt{.program = 7}), 0x170);
    parse(store(make(pat{.programs = {{5, 0x150}, {7, 0x171}}})));
    EXPECT_TRUE(is_stored(0x150, 5));
    EXPECT_FALSE(is_stored(0x160, 6)); // dropped
    EXPECT_FALSE(is_stored(0x170, 7)); // moved to another PID
}

TEST(PmtPids, AnotherRecordIsFilledFromItsStart)
{
    SiPmtPidList mine{};
    mine.count = 7;
    parse(store(make(pat{.programs = {{5, 0x150}}})), &mine);
    EXPECT_EQ(entries_of(mine), (program_list{{5, 0x150}}));
    EXPECT_EQ(PmtPidList.count, 0u);
}

TEST(PmtPids, AnEmptyTableEmptiesTheList)
{
    SiTable *table = store(make(pat{.programs = {{5, 0x150}}}));
    parse(table);
    Orva_Si_RemoveTableSections(table);
    EXPECT_EQ(parse(table), ORVA_SI_OK);
    EXPECT_EQ(PmtPidList.count, 0u);
}

TEST(PmtPids, NullArgumentsAreRefused)
{
    SiTable *table = store(make(pat{}));
    PmtPidList.count = 0;
    expect_refused([&] { return Si_Pat_ParsePmtPidList(nullptr, &PmtPidList); }, "ptbl");
    expect_refused([&] { return Si_Pat_ParsePmtPidList(table, nullptr); }, "pmt_pid_list");
}

TEST(PatTransportStream, IsTheExtensionOfThePat)
{
    store(make(pat{.ts = 0x1234, .programs = {{5, 0x150}}}));
    std::uint16_t ts = 0;
    EXPECT_EQ(Orva_Si_GetPatTsId(&ts), ORVA_SI_OK);
    EXPECT_EQ(ts, 0x1234);
    EXPECT_TRUE(fake::logged(4, "pat transport stream id: 0x1234\n")) << fake::log_text();
}

TEST(PatTransportStream, APatWithoutProgramsHasOneToo)
{
    store(make(pat{.ts = 3}));
    std::uint16_t ts = 0;
    EXPECT_EQ(Orva_Si_GetPatTsId(&ts), ORVA_SI_OK);
    EXPECT_EQ(ts, 3);
}

TEST(PatTransportStream, WithoutAPatThereIsNone)
{
    init_store();
    std::uint16_t ts = 99;
    EXPECT_EQ(Orva_Si_GetPatTsId(&ts), ORVA_SI_NOT_FOUND);
    EXPECT_EQ(ts, 99);
    expect_refused([] { return Orva_Si_GetPatTsId(nullptr); }, "ptsid");
}

} // namespace
