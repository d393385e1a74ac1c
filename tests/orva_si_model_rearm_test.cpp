// SPDX-License-Identifier: LGPL-2.1-or-later
// What a complete table does to the filters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si/background.h"
#include "orva_si/filter.h"
#include "orva_si_model.h"
#include "support/dispatcher.h"

namespace {

using namespace test;

// Calls of the dispatcher into the filter layer, in order.
std::vector<std::string> calls;

} // namespace

extern "C" {

std::uint32_t __real_Si_SectFlt_UpdatePat(std::uint32_t version, std::uint32_t finished);
std::uint32_t __wrap_Si_SectFlt_UpdatePat(std::uint32_t version, std::uint32_t finished);
std::uint32_t __real_Si_SectFlt_UpdateCat(std::uint32_t version, std::uint32_t finished);
std::uint32_t __wrap_Si_SectFlt_UpdateCat(std::uint32_t version, std::uint32_t finished);
std::uint32_t __real_Si_SectFlt_UpdatePmt(std::uint32_t program, std::uint32_t pid,
                                          std::uint32_t version, std::uint32_t finished);
std::uint32_t __wrap_Si_SectFlt_UpdatePmt(std::uint32_t program, std::uint32_t pid,
                                          std::uint32_t version, std::uint32_t finished);
std::uint32_t __real_Si_SectFlt_StopPmt(void);
std::uint32_t __wrap_Si_SectFlt_StopPmt(void);
std::uint32_t __real_Si_SectFlt_StartPmt(const SiPmtPidList *list);
std::uint32_t __wrap_Si_SectFlt_StartPmt(const SiPmtPidList *list);
std::uint32_t __real_Si_BG_ResumeService(std::uint32_t id);
std::uint32_t __wrap_Si_BG_ResumeService(std::uint32_t id);

std::uint32_t __wrap_Si_SectFlt_UpdatePat(std::uint32_t version, std::uint32_t finished)
{
    calls.push_back(text("UpdatePat(%u, %u)", version, finished));
    return __real_Si_SectFlt_UpdatePat(version, finished);
}

std::uint32_t __wrap_Si_SectFlt_UpdateCat(std::uint32_t version, std::uint32_t finished)
{
    calls.push_back(text("UpdateCat(%u, %u)", version, finished));
    return __real_Si_SectFlt_UpdateCat(version, finished);
}

std::uint32_t __wrap_Si_SectFlt_UpdatePmt(std::uint32_t program, std::uint32_t pid,
                                          std::uint32_t version, std::uint32_t finished)
{
    calls.push_back(text("UpdatePmt(%u, %#x, %u, %u)", program, pid, version, finished));
    return __real_Si_SectFlt_UpdatePmt(program, pid, version, finished);
}

std::uint32_t __wrap_Si_SectFlt_StopPmt(void)
{
    calls.emplace_back("StopPmt");
    return __real_Si_SectFlt_StopPmt();
}

std::uint32_t __wrap_Si_SectFlt_StartPmt(const SiPmtPidList *list)
{
    calls.push_back(text("StartPmt(%u programs, tuned %#x)", list->count, list->cur_prog_num));
    return __real_Si_SectFlt_StartPmt(list);
}

std::uint32_t __wrap_Si_BG_ResumeService(std::uint32_t id)
{
    calls.push_back(text("ResumeService(%u)", id));
    return __real_Si_BG_ResumeService(id);
}

} // extern "C"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint16_t pid_pat = 0x00;
constexpr std::uint16_t pid_cat = 0x01;
constexpr std::uint16_t pid_data = 0x200;

// ---- Re-arming

octets programs(std::uint16_t ts, std::uint8_t version, const std::vector<pat_program> &list)
{
    return make(pat{.ts = ts, .version = version, .programs = list});
}

const std::vector<pat_program> two_programs{{.number = 1, .pid = 0x101},
                                            {.number = 5, .pid = 0x105}};

class Rearming : public Dispatcher {
protected:
    Rearming() { calls.clear(); }

    static void forget()
    {
        Dispatcher::forget();
        calls.clear();
    }
};

TEST_F(Rearming, ACompletePatOpensThePmtFiltersThenWaitsForAnotherVersion)
{
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("StopPmt", "StartPmt(2 programs, tuned 0xffff)",
                                   "ResumeService(0)", "UpdatePat(9, 1)"));
    EXPECT_EQ(PmtPidList.count, 2U);
    EXPECT_EQ(Orva_Si_GetPmtPid(5), 0x105U);
}

TEST_F(Rearming, TheTunedProgramGoesWithThePmtList)
{
    tune(frequency + 1, 5);
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("StopPmt", "StartPmt(2 programs, tuned 0x5)", "ResumeService(0)",
                                   "UpdatePat(9, 1)"));
    EXPECT_EQ(PmtPidList.cur_pmt_pid, 0x105);
}

TEST_F(Rearming, APatWithoutTheTunedProgramLeavesThePmtFilters)
{
    tune(frequency + 1, 6);
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("UpdatePat(9, 1)"));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_PAT));
}

TEST_F(Rearming, ARepeatedPatWaitsForAnotherVersionOnly)
{
    deliver(programs(1, 9, two_programs));
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("UpdatePat(9, 1)"));
    EXPECT_THAT(events, IsEmpty());
    EXPECT_THAT(sections_of(find(pid_pat, 0x00, 1)), SizeIs(1));
}

TEST_F(Rearming, ARepeatOfAnIncompletePatDoesNothing)
{
    const octets half = make(pat{.ts = 1, .last_section_number = 1});
    deliver(half);
    deliver(half);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Rearming, ARepeatedPatOpensThePmtFiltersForAProgramTunedMeanwhile)
{
    tune(frequency + 1, 5);
    deliver(programs(1, 9, two_programs));
    Si_Model_ResetCurTuningProgramNum(); // as a stop of the channel does
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("StartPmt(2 programs, tuned 0x5)", "ResumeService(0)",
                                   "UpdatePat(9, 1)"));
    EXPECT_THAT(events, IsEmpty());
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("UpdatePat(9, 1)"));
}

TEST_F(Rearming, ARepeatedPatWithoutTheProgramTunedMeanwhileOpensNothing)
{
    deliver(programs(1, 9, two_programs));
    tune(frequency, 6); // the same multiplex: the store stays
    forget();
    deliver(programs(1, 9, two_programs));
    EXPECT_THAT(calls, ElementsAre("UpdatePat(9, 1)"));
}

TEST_F(Rearming, OnlyThePatOnItsPidIsThePat)
{
    deliver(make(pat{.ts = 1}), 0x20);
    deliver(make(private_table{.table_id = 0x77, .extension = 1}), pid_pat);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Rearming, APmtWaitsForAnotherVersionOnItsPid)
{
    const octets section = make(pmt{.program = 77, .version = 31});
    deliver(section, 0x321);
    EXPECT_THAT(calls, ElementsAre("UpdatePmt(77, 0x321, 31, 1)"));
    forget();
    deliver(section, 0x321);
    EXPECT_THAT(calls, ElementsAre("UpdatePmt(77, 0x321, 31, 1)"));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Rearming, ACatWaitsForAnotherVersion)
{
    const octets section = make(cat{.version = 4});
    deliver(section);
    deliver(section);
    EXPECT_THAT(calls, ElementsAre("UpdateCat(4, 1)", "UpdateCat(4, 1)"));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_CAT));
}

TEST_F(Rearming, OnlyTheCatOnItsPidIsTheCat)
{
    deliver(make(cat{}), 0x20);
    deliver(make(private_table{.table_id = 0x77}), pid_cat);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Rearming, OtherTablesStayArmedForAnyVersion)
{
    for (unsigned round = 0; round < 2; ++round) {
        deliver(services(0, 0));
        deliver(make(sdt{.table_id = 0x46, .ts = 2}));
        deliver(make(bat{}));
        deliver(make(nit{}));
        deliver(make(nit{.table_id = 0x41, .network = 2}));
        deliver(make(private_table{.table_id = 0x3E}), pid_data);
    }
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Rearming, TheVersionIsFiveBitsOfTheSixthByte)
{
    for (const std::uint8_t version : std::to_array<std::uint8_t>({0, 1, 16, 31})) {
        calls.clear();
        for (const bool current_next : {false, true}) {
            octets section = make(cat{.version = version, .current_next = current_next});
            section[5] ^= 0xC0; // reserved
            deliver(fix_crc(section));
        }
        EXPECT_THAT(calls, Each(text("UpdateCat(%u, 1)", version)));
        EXPECT_THAT(calls, SizeIs(2));
    }
}

TEST_F(Rearming, ANewPatWithoutAProgramDropsItsPmt)
{
    deliver(programs(1, 0, two_programs));
    deliver(make(pmt{.program = 1}), 0x101);
    deliver(make(pmt{.program = 5}), 0x105);
    deliver(programs(1, 1, {{.number = 1, .pid = 0x101}}));
    EXPECT_NE(find(0x101, 0x02, 1), nullptr);
    EXPECT_EQ(find(0x105, 0x02, 5), nullptr);
}

TEST_F(Rearming, ANewPatThatMovesAProgramDropsItsPmt)
{
    deliver(programs(1, 0, two_programs));
    deliver(make(pmt{.program = 1}), 0x101);
    deliver(make(pmt{.program = 5}), 0x105);
    deliver(programs(1, 1, {{.number = 1, .pid = 0x101}, {.number = 5, .pid = 0x106}}));
    EXPECT_NE(find(0x101, 0x02, 1), nullptr);
    EXPECT_EQ(find(0x105, 0x02, 5), nullptr);
    EXPECT_EQ(Orva_Si_GetPmtPid(5), 0x106U);
}

// ---- What the driver sees of it

// The version byte of a filter that passes every version but one (ISO/IEC 13818-1, 2.4.4: bits 1 to
// 5 of byte 5), of sections that are valid now.
constexpr std::uint8_t version_match(unsigned version)
{
    return static_cast<std::uint8_t>((version << 1 & 0x3E) | 1);
}

class OnTheDriver : public Rearming {
protected:
    OnTheDriver()
    {
        Si_BG_InitServiceList();
        Si_SectFlt_InitPidFlts(driver.table());
        Si_SectFlt_StartPat();
        Si_SectFlt_StartCat();
        forget();
    }
    ~OnTheDriver() override { Si_SectFlt_StopAllFilters(); }
    OnTheDriver(const OnTheDriver &) = delete;
    OnTheDriver &operator=(const OnTheDriver &) = delete;

    // Running filters that would pass a section on a PID.
    std::size_t filters_for(std::uint16_t pid, const octets &section) const
    {
        std::size_t count = 0;
        for (std::size_t i = 0; i < driver.filter_count(); ++i) {
            const fake::driver_filter filter = driver.filter(driver.filter_id(i));
            if (filter.running && filter.loaded.pid == pid && fake::passes(filter.loaded, section))
                ++count;
        }
        return count;
    }
    fake::driver_filter pat_filter() const { return driver.filter(driver.filter_id(0)); }

    fake::recording_driver &driver = fake::driver();
};

TEST_F(OnTheDriver, ThePatFilterTurnsAwayTheVersionThatIsComplete)
{
    ASSERT_EQ(filters_for(0, programs(1, 9, two_programs)), 1U);
    deliver(programs(1, 9, two_programs));
    EXPECT_EQ(pat_filter().loads, 2U);
    EXPECT_EQ(pat_filter().loaded.match[5], version_match(9));
    EXPECT_EQ(pat_filter().loaded.negate[5], 0x3E);
    EXPECT_EQ(filters_for(0, programs(1, 9, two_programs)), 0U);
    EXPECT_EQ(filters_for(0, programs(1, 10, two_programs)), 1U);
}

TEST_F(OnTheDriver, ThePatFilterStaysWhileThePatIsIncomplete)
{
    deliver(make(pat{.ts = 1, .last_section_number = 1}));
    EXPECT_EQ(pat_filter().loads, 1U);
    EXPECT_EQ(pat_filter().loaded.negate[5], 0);
}

TEST_F(OnTheDriver, ARepeatArmsThePatFilterAgain)
{
    deliver(programs(1, 9, two_programs));
    deliver(programs(1, 9, two_programs));
    EXPECT_EQ(pat_filter().loads, 3U);
    EXPECT_EQ(filters_for(0, programs(1, 9, two_programs)), 0U);
}

TEST_F(OnTheDriver, TheCatFilterTurnsAwayTheVersionThatIsComplete)
{
    ASSERT_EQ(filters_for(1, make(cat{.version = 4})), 1U);
    deliver(make(cat{.version = 4}));
    EXPECT_EQ(filters_for(1, make(cat{.version = 4})), 0U);
    EXPECT_EQ(filters_for(1, make(cat{.version = 5})), 1U);
}

TEST_F(OnTheDriver, ACompletePatOpensAFilterForEachProgram)
{
    const octets first = make(pmt{.program = 1});
    const octets second = make(pmt{.program = 5});
    EXPECT_EQ(filters_for(0x101, first), 0U);
    deliver(programs(1, 9, two_programs));
    EXPECT_EQ(filters_for(0x101, first), 1U);
    EXPECT_EQ(filters_for(0x105, second), 1U);
    EXPECT_EQ(filters_for(0x105, first), 0U);
    EXPECT_FALSE(fake::timers().timers.at(0).paused);
}

TEST_F(OnTheDriver, ANewPatMovesThePmtFilters)
{
    deliver(programs(1, 0, two_programs));
    deliver(programs(1, 1, {{.number = 5, .pid = 0x106}}));
    EXPECT_EQ(filters_for(0x101, make(pmt{.program = 1})), 0U);
    EXPECT_EQ(filters_for(0x105, make(pmt{.program = 5})), 0U);
    EXPECT_EQ(filters_for(0x106, make(pmt{.program = 5})), 1U);
}

TEST_F(OnTheDriver, APmtFilterTurnsAwayTheVersionThatIsComplete)
{
    deliver(programs(1, 9, two_programs));
    deliver(make(pmt{.program = 5, .version = 3}), 0x105);
    EXPECT_EQ(filters_for(0x105, make(pmt{.program = 5, .version = 3})), 0U);
    EXPECT_EQ(filters_for(0x105, make(pmt{.program = 5, .version = 4})), 1U);
    EXPECT_EQ(filters_for(0x101, make(pmt{.program = 1, .version = 3})), 1U);
}

} // namespace
