// SPDX-License-Identifier: LGPL-2.1-or-later
// Enable flags, control flag, detected and complete tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/channel.h"
#include "orva_si/os.h"
#include "orva_si/query_network.h"
#include "orva_si/query_program.h"
#include "orva_si/readiness.h"
#include "orva_si/result.h"
#include "orva_si/store.h"
#include "orva_si_model.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using texts = std::vector<std::string>;

std::uint32_t scan_mode = 0;
std::vector<std::uint32_t> asked_capacities; // of Orva_Si_GetTsGrpByNetworkId

} // namespace

extern "C" {

std::uint32_t __wrap_Orva_Si_IsScanMode(void)
{
    return scan_mode;
}

std::uint32_t __real_Orva_Si_GetTsGrpByNetworkId(std::uint32_t nid, std::uint16_t *tsgrp,
                                                 std::uint32_t *pcount);
std::uint32_t __wrap_Orva_Si_GetTsGrpByNetworkId(std::uint32_t nid, std::uint16_t *tsgrp,
                                                 std::uint32_t *pcount)
{
    asked_capacities.push_back(*pcount);
    return __real_Orva_Si_GetTsGrpByNetworkId(nid, tsgrp, pcount);
}

} // extern "C"

namespace {

// ---- Which tables may be filtered

const struct {
    std::string name;
    std::uint32_t (*enabled)();
} kinds[] = {
    {"PAT", Si_CtlHelper_IsPatEnabled},
    {"CAT", Si_CtlHelper_IsCatEnabled},
    {"PMT", Si_CtlHelper_IsPmtEnabled},
    {"NIT", Si_CtlHelper_IsNitEnabled},
    {"SDT/BAT", Si_CtlHelper_IsSdtBatEnabled},
    {"TDT/TOT", Si_CtlHelper_IsTdtTotEnabled},
    {"actual p/f", Si_CtlHelper_IsActPfEitEnabled},
    {"other p/f", Si_CtlHelper_IsOtherPfEitEnabled},
    {"actual schedule", Si_CtlHelper_IsActSchEitEnabled},
    {"other schedule", Si_CtlHelper_IsOtherSchEitEnabled},
    {"DSM-CC", Si_CtlHelper_IsDSMCCEnabled},
};

texts enabled()
{
    texts on;
    for (const auto &kind : kinds) {
        EXPECT_LE(kind.enabled(), 1u) << kind.name;
        if (kind.enabled() != 0)
            on.push_back(kind.name);
    }
    return on;
}

const struct {
    std::string name;
    std::uint32_t (*set)(std::uint32_t on);
} switches[] = {
    {"actual p/f", Si_CtlHelper_SetActPfEitEnableFlag},
    {"other p/f", Si_CtlHelper_SetOtherPfEitEnableFlag},
    {"actual schedule", Si_CtlHelper_SetActSchEitEnableFlag},
    {"other schedule", Si_CtlHelper_SetOtherSchEitEnableFlag},
    {"DSM-CC", Si_CtlHelper_SetDSMCCEnableFlag},
};

TEST(EnableFlags, AreClearAtFirst)
{
    EXPECT_THAT(enabled(), IsEmpty());
}

TEST(EnableFlags, AreSetForTheStaticTablesAtAStart)
{
    EXPECT_EQ(Si_CtlHelper_SetTableEnableFlag(), ORVA_SI_OK);
    EXPECT_THAT(enabled(), ElementsAre("PAT", "CAT", "PMT", "NIT", "SDT/BAT", "TDT/TOT"));
}

TEST(EnableFlags, LeaveTheTimeTablesOutInScanMode)
{
    Si_CtlHelper_SetTableEnableFlag();
    scan_mode = 1;
    EXPECT_EQ(Si_CtlHelper_SetTableEnableFlag(), ORVA_SI_OK);
    EXPECT_THAT(enabled(), ElementsAre("PAT", "CAT", "PMT", "NIT", "SDT/BAT"));
}

TEST(EnableFlags, OfEventsAndDsmccAreSetAndClearedOneByOne)
{
    for (const auto &one : switches) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(one.set(1), ORVA_SI_OK);
        EXPECT_THAT(enabled(), ElementsAre(one.name));
        EXPECT_EQ(one.set(0), ORVA_SI_OK);
        EXPECT_THAT(enabled(), IsEmpty());
    }
    for (const auto &one : switches)
        one.set(1);
    for (const auto &one : switches) {
        one.set(0);
        EXPECT_EQ(enabled().size(), 4u) << one.name;
        one.set(1);
    }
    EXPECT_EQ(enabled().size(), 5u);
}

TEST(EnableFlags, GoByTheLowByteOfTheArgument)
{
    for (const auto &one : switches) {
        SCOPED_TRACE(one.name);
        one.set(0x80);
        EXPECT_THAT(enabled(), ElementsAre(one.name));
        one.set(0xFFFFFF00);
        EXPECT_THAT(enabled(), IsEmpty());
    }
}

TEST(EnableFlags, AStartForgetsEventsAndDsmcc)
{
    for (const auto &one : switches)
        one.set(1);
    Si_CtlHelper_SetTableEnableFlag();
    EXPECT_THAT(enabled(), ElementsAre("PAT", "CAT", "PMT", "NIT", "SDT/BAT", "TDT/TOT"));
}

TEST(EnableFlags, AreAllClearedAtAStop)
{
    Si_CtlHelper_SetTableEnableFlag();
    for (const auto &one : switches)
        one.set(1);
    EXPECT_EQ(Si_CtlHelper_ResetTableEnableFlag(), ORVA_SI_OK);
    EXPECT_THAT(enabled(), IsEmpty());
}

// ---- Whether acquisition is wanted

TEST(ControlFlag, IsSetByAStartAndClearedByAStop)
{
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 0u);
    EXPECT_EQ(Orva_Si_IsCancel(), 1u);
    EXPECT_EQ(Orva_Si_SetCtlFlag(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 1u);
    EXPECT_EQ(Orva_Si_IsCancel(), 0u);
    EXPECT_EQ(Orva_Si_ResetCtlFlag(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetCtlFlag(), 0u);
    EXPECT_EQ(Orva_Si_IsCancel(), 1u);
}

TEST(TsSemaphoreFlag, IsSetReadAndReset)
{
    EXPECT_EQ(Orva_Si_GetTsSemFlag(), 0u);
    EXPECT_EQ(Orva_Si_SetTsSemFlag(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetTsSemFlag(), 1u);
    EXPECT_TRUE(fake::logged(4, "set ts sem flag\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_ResetTsSemFlag(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetTsSemFlag(), 0u);
    EXPECT_TRUE(fake::logged(4, "reset ts sem flag\n")) << fake::log_text();
}

TEST(TsSemaphoreFlag, IsResetWhenTheControlFlagIsSet)
{
    Orva_Si_SetTsSemFlag();
    Orva_Si_SetCtlFlag();
    EXPECT_EQ(Orva_Si_GetTsSemFlag(), 0u);
}

// ---- What the multiplex carries

struct id {
    std::uint16_t pid;
    std::uint8_t table_id;
};

// The word, as the predicate logs it.
std::string detected()
{
    Orva_Si_SetCtlFlag();
    fake::clear_log();
    const std::uint32_t any = Orva_Si_IsGotSection();
    for (const fake::log_line &line : fake::log_lines())
        if (line.level == 4 && line.text.starts_with("the detect_bits = ")) {
            EXPECT_EQ(any, line.text == "the detect_bits = 0\n" ? 0u : 1u);
            return line.text.substr(sizeof "the detect_bits = " - 1);
        }
    return fake::log_text();
}

const struct {
    id table;
    std::string kind;
    std::string bit;
} detectable[] = {
    {{0x0000, 0x00}, "pat", "0x1\n"},       {{0x0011, 0x42}, "sdt act", "0x10\n"},
    {{0x0011, 0x46}, "sdt oth", "0x20\n"},  {{0x0010, 0x40}, "nit act", "0x100\n"},
    {{0x0010, 0x41}, "nit oth", "0x200\n"}, {{0x0100, 0x02}, "pmt", "0x1000000\n"},
    {{0x0010, 0x02}, "pmt", "0x1000000\n"}, {{0x0011, 0x02}, "pmt", "0x1000000\n"},
    {{0x0000, 0x02}, "pmt", "0x1000000\n"},
};

TEST(DetectBits, AreOnePerKind)
{
    for (const auto &c : detectable) {
        SCOPED_TRACE(c.kind);
        Orva_Si_ResetScanFlag();
        fake::clear_log();
        EXPECT_EQ(Orva_Si_SetDetectBit(c.table.pid, c.table.table_id), ORVA_SI_OK);
        EXPECT_TRUE(fake::logged(3, c.kind + " is detected\n")) << fake::log_text();
        EXPECT_TRUE(fake::logged(4, "detect_bits = " + c.bit) ||
                    fake::logged(4, "the detect_bits = " + c.bit))
            << fake::log_text();
        EXPECT_FALSE(fake::logged("fatal error\n"));
        EXPECT_EQ(detected(), c.bit);
    }
}

TEST(DetectBits, AddUp)
{
    for (const auto &c : detectable)
        Orva_Si_SetDetectBit(c.table.pid, c.table.table_id);
    EXPECT_EQ(detected(), "0x1000331\n");
}

TEST(DetectBits, OfThePmtIsAnnouncedOnce)
{
    Orva_Si_SetDetectBit(0x100, 0x02);
    Orva_Si_SetDetectBit(0x200, 0x02);
    EXPECT_EQ(fake::times_logged("pmt is detected\n"), 1u);
}

TEST(DetectBits, AreNeverSetForBatAndCat)
{
    Orva_Si_SetDetectBit(0x11, 0x4A);
    EXPECT_TRUE(fake::logged(3, "bat is detected\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("fatal error\n"));
    Orva_Si_SetDetectBit(0x01, 0x01);
    EXPECT_EQ(detected(), "0\n");
}

TEST(DetectBits, OfAStrayTableOnTheNitPidIsAFatalErrorAtTrace)
{
    Orva_Si_SetDetectBit(0x10, 0x72);
    EXPECT_TRUE(fake::logged(4, "fatal error\n")) << fake::log_text();
    EXPECT_EQ(detected(), "0\n");
}

TEST(DetectBits, OfAStrayTableOnTheSdtPidIsAFatalErrorAtError)
{
    Orva_Si_SetDetectBit(0x11, 0x72);
    EXPECT_TRUE(fake::logged(2, "fatal error\n")) << fake::log_text();
    EXPECT_EQ(detected(), "0\n");
}

TEST(DetectBits, AreNotTouchedByOtherTables)
{
    for (const id &table : {id{0x00, 0x40}, id{0x12, 0x4E}, id{0x14, 0x70}, id{0x100, 0x00},
                            id{0x100, 0x42}, id{0x100, 0x40}})
        Orva_Si_SetDetectBit(table.pid, table.table_id);
    EXPECT_FALSE(fake::logged("fatal error\n")) << fake::log_text();
    EXPECT_EQ(detected(), "0\n");
}

TEST(DetectBits, StayOnceTheSetIsClosed)
{
    Orva_Si_SetDetectBit(0x00, 0x00);
    EXPECT_EQ(Orva_Si_SetDetectReady(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "set table_detect_ready here\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_SetDetectBit(0x10, 0x40), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "the table_detect_ready is ready\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("nit act is detected\n"));
    EXPECT_EQ(detected(), "0x1\n");
}

TEST(DetectBits, AreForgottenWithTheClosedSet)
{
    Orva_Si_SetDetectBit(0x00, 0x00);
    Orva_Si_SetDetectReady();
    EXPECT_EQ(Orva_Si_ResetScanFlag(), ORVA_SI_OK);
    EXPECT_EQ(detected(), "0\n");
    Orva_Si_SetDetectBit(0x10, 0x40);
    EXPECT_EQ(detected(), "0x100\n");
}

TEST(Detected, NitAndSdtActualAreAskedFor)
{
    EXPECT_EQ(Orva_Si_IsDetectActNIT(), 0u);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0u);
    Orva_Si_SetDetectBit(0x10, 0x41);
    Orva_Si_SetDetectBit(0x11, 0x46);
    EXPECT_EQ(Orva_Si_IsDetectActNIT(), 0u);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0u);
    Orva_Si_SetDetectBit(0x10, 0x40);
    EXPECT_EQ(Orva_Si_IsDetectActNIT(), 1u);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0u);
    Orva_Si_SetDetectBit(0x11, 0x42);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 1u);
}

TEST(Detected, NitAndSdtActualDoNotFollowACancel)
{
    EXPECT_EQ(Orva_Si_IsCancel(), 1u);
    EXPECT_EQ(Orva_Si_IsDetectActNIT(), 0u);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0u);
}

TEST(GotSection, IsTrueAtOnceWhenCancelled)
{
    EXPECT_EQ(Orva_Si_IsGotSection(), 1u);
    EXPECT_FALSE(fake::logged("the detect_bits = 0\n"));
    Orva_Si_SetCtlFlag();
    EXPECT_EQ(Orva_Si_IsGotSection(), 0u);
    EXPECT_TRUE(fake::logged(4, "the detect_bits = 0\n")) << fake::log_text();
}

// ---- What is complete

const struct {
    id table;
    std::string kind;
    std::string bit;
} completable[] = {
    {{0x0000, 0x00}, "pat", "0x1\n"},       {{0x0011, 0x42}, "sdt act", "0x10\n"},
    {{0x0011, 0x46}, "sdt oth", "0x20\n"},  {{0x0010, 0x40}, "nit act", "0x100\n"},
    {{0x0010, 0x41}, "nit oth", "0x200\n"}, {{0x0011, 0x4A}, "bat", "0x100000\n"},
    {{0x0001, 0x01}, "cat", "0x200000\n"},  {{0x0100, 0x02}, "pmt", "0x1000000\n"},
    {{0x0011, 0x02}, "pmt", "0x1000000\n"},
};

TEST(ReadyBits, AreOnePerKindAndAnnouncedOnce)
{
    for (const auto &c : completable) {
        SCOPED_TRACE(c.kind);
        Orva_Si_ResetScanFlag();
        fake::clear_log();
        EXPECT_EQ(Orva_Si_SetReadyBit(c.table.pid, c.table.table_id), ORVA_SI_OK);
        EXPECT_EQ(Orva_Si_SetReadyBit(c.table.pid, c.table.table_id), ORVA_SI_OK);
        EXPECT_TRUE(fake::logged(3, c.kind + " is ready\n")) << fake::log_text();
        EXPECT_EQ(fake::times_logged(c.kind + " is ready\n"), 1u);
        EXPECT_TRUE(fake::logged(4, "ready_bits = " + c.bit)) << fake::log_text();
        EXPECT_FALSE(fake::logged("fatal error\n"));
    }
}

TEST(ReadyBits, AddUp)
{
    for (const auto &c : completable)
        Orva_Si_SetReadyBit(c.table.pid, c.table.table_id);
    EXPECT_TRUE(fake::logged(4, "ready_bits = 0x1300331\n")) << fake::log_text();
}

TEST(ReadyBits, TraceWhatTheyAreGiven)
{
    Orva_Si_SetReadyBit(0x11, 0x42);
    ASSERT_FALSE(fake::log_lines().empty());
    EXPECT_EQ(fake::log_lines().front().text, "pid = 0x11 table_id = 0x42\n");
    EXPECT_EQ(fake::log_lines().front().level, 4u);
}

TEST(ReadyBits, OfStrayTablesAreFatalErrors)
{
    for (const std::uint16_t pid : {std::uint16_t{0x10}, std::uint16_t{0x11}}) {
        fake::clear_log();
        Orva_Si_SetReadyBit(pid, 0x72);
        EXPECT_TRUE(fake::logged(2, "fatal error\n")) << fake::log_text();
    }
}

class AllReady : public testing::Test {
protected:
    AllReady() { Orva_Si_SetCtlFlag(); }
    static void detect(std::initializer_list<id> tables)
    {
        for (const id &table : tables)
            Orva_Si_SetDetectBit(table.pid, table.table_id);
        Orva_Si_SetDetectReady();
    }
    static constexpr id pat{0x00, 0x00}, pmt{0x100, 0x02}, sdt_act{0x11, 0x42}, sdt_oth{0x11, 0x46},
        nit_act{0x10, 0x40}, nit_oth{0x10, 0x41}, bat{0x11, 0x4A}, cat{0x01, 0x01};
};

TEST_F(AllReady, IsTrueWhenCancelled)
{
    detect({pat});
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
    Orva_Si_ResetCtlFlag();
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_TRUE(fake::logged(3, "user cancel scan channel\n")) << fake::log_text();
}

TEST_F(AllReady, IsFalseWhileTheSetOfKindsIsOpen)
{
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
    EXPECT_TRUE(fake::logged(3, "table_detect_ready is not ready\n")) << fake::log_text();
    Orva_Si_SetDetectReady();
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u); // nothing detected, nothing to wait for
    EXPECT_TRUE(fake::logged(4, "all detected tables are ready\n")) << fake::log_text();
}

TEST_F(AllReady, NamesTheFirstKindThatIsMissing)
{
    detect({pat, sdt_act, nit_act, nit_oth});
    const struct {
        id table;
        std::uint32_t level;
        std::string text;
    } order[] = {{pat, 3, "pat is not ready\n"},
                 {sdt_act, 3, "sdt act is not ready\n"},
                 {nit_act, 4, "nit act is not ready\n"},
                 {nit_oth, 3, "nit oth is not ready\n"}};
    for (const auto &missing : order) {
        SCOPED_TRACE(missing.text);
        fake::clear_log();
        EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
        EXPECT_TRUE(fake::logged(missing.level, missing.text)) << fake::log_text();
        for (const auto &other : order)
            EXPECT_EQ(fake::logged(other.text), other.text == missing.text) << other.text;
        Orva_Si_SetReadyBit(missing.table.pid, missing.table.table_id);
    }
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
}

TEST_F(AllReady, NitOtherHoldsUpCompletionWithoutSdtOther)
{
    detect({pat, sdt_act, nit_act, nit_oth});
    for (const id &table : {pat, sdt_act, nit_act})
        Orva_Si_SetReadyBit(table.pid, table.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
    EXPECT_TRUE(fake::logged(3, "nit oth is not ready\n")) << fake::log_text();
    Orva_Si_SetReadyBit(nit_oth.pid, nit_oth.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
}

TEST_F(AllReady, APmtThatNeverCompletesHoldsNothingUp)
{
    detect({pat, pmt});
    Orva_Si_SetReadyBit(pat.pid, pat.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_TRUE(fake::logged(4, "pmt is not ready\n")) << fake::log_text();
    Orva_Si_SetReadyBit(pmt.pid, pmt.table_id);
    fake::clear_log();
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_FALSE(fake::logged("pmt is not ready\n"));
}

TEST_F(AllReady, AnSdtOtherThatNeverCompletesHoldsNothingUp)
{
    detect({pat, sdt_oth});
    Orva_Si_SetReadyBit(pat.pid, pat.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_TRUE(fake::logged(4, "sdt oth is not ready\n")) << fake::log_text();
}

TEST_F(AllReady, PmtAndSdtOtherDoNotHideWhatIsMissingBehindThem)
{
    detect({pmt, sdt_oth, nit_oth});
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
    EXPECT_TRUE(fake::logged(4, "pmt is not ready\n"));
    EXPECT_TRUE(fake::logged(4, "sdt oth is not ready\n"));
    EXPECT_TRUE(fake::logged(3, "nit oth is not ready\n"));
}

TEST_F(AllReady, BatAndCatHoldNothingUp)
{
    detect({pat, bat, cat});
    Orva_Si_SetReadyBit(pat.pid, pat.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
}

TEST_F(AllReady, ANitOtherThatComesAfterTheSetWasClosedIsNotWaitedFor)
{
    detect({pat});
    Orva_Si_SetDetectBit(nit_oth.pid, nit_oth.table_id);
    Orva_Si_SetReadyBit(pat.pid, pat.table_id);
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
}

TEST_F(AllReady, AChangeOfMultiplexForgetsWhatWasReady)
{
    detect({pat});
    Orva_Si_SetReadyBit(pat.pid, pat.table_id);
    Orva_Si_ResetScanFlag();
    detect({pat});
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 0u);
}

// ---- The bookkeeping of a scan

// As the dispatcher calls it; the lock must be held again afterwards.
void book(std::uint16_t pid, std::uint8_t table_id, std::uint16_t extension)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_CommScanCase(pid, table_id, extension), ORVA_SI_OK);
    EXPECT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_FAILURE);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

void store_nit(std::uint16_t network, std::uint16_t ts_count)
{
    nit table{.network = network};
    for (std::uint16_t ts = 1; ts <= ts_count; ++ts)
        table.transports.push_back({.ts = ts});
    store(make(table));
}

void store_sdt(std::uint8_t table_id, std::uint16_t ts)
{
    store(make(sdt{.table_id = table_id, .ts = ts}));
}

void set_sdt_oth_ready()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_SetSdtOthReadyFlag(), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

const std::string list_set = "the bGetTsList is setted\n";
const std::string list_flagged = "bGetTsList is flagged\n";
const std::string sdt_oth_ready = "sdt oth is ready\n";

class ScanCase : public testing::Test {
protected:
    ScanCase() { init_store(); }
};

TEST_F(ScanCase, SetsTheReadyBitOfATable)
{
    const struct {
        id table;
        std::string text;
    } cases[] = {{{0x00, 0x00}, "pat is ready\n"},
                 {{0x01, 0x01}, "cat is ready\n"},
                 {{0x11, 0x42}, "sdt act is ready\n"},
                 {{0x11, 0x4A}, "bat is ready\n"},
                 {{0x10, 0x41}, "nit oth is ready\n"}};
    for (const auto &c : cases) {
        fake::clear_log();
        book(c.table.pid, c.table.table_id, 7);
        EXPECT_TRUE(fake::logged(3, c.text)) << fake::log_text();
        EXPECT_TRUE(fake::logged(4, "entering ... \n"));
        EXPECT_THAT(asked_capacities, IsEmpty());
    }
}

TEST_F(ScanCase, PmtsAreReadyWhenAllProgramsHaveTheirs)
{
    SiTable *table = store(make(pat{.programs = {{1, 0x100}, {2, 0x200}}}));
    ASSERT_EQ(Si_Pat_ParsePmtPidList(table, &PmtPidList), ORVA_SI_OK);
    store(make(pmt{.program = 1}), 0x100);
    book(0x100, 0x02, 1);
    EXPECT_TRUE(fake::logged(4, "want to check all pmt are got or not\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("pmt is ready\n"));
    store(make(pmt{.program = 2}), 0x200);
    book(0x200, 0x02, 2);
    EXPECT_TRUE(fake::logged(3, "pmt is ready\n"));
}

TEST_F(ScanCase, TheNitActualBringsTheTransportStreams)
{
    store_nit(0x3001, 3);
    book(0x10, 0x40, 0x3001);
    EXPECT_TRUE(fake::logged(3, "nit act is ready\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the nitwork id = 0x3001\n"));
    EXPECT_TRUE(fake::logged(4, list_set));
    EXPECT_FALSE(fake::logged(list_flagged));
    EXPECT_THAT(asked_capacities, ElementsAre(30u));

    book(0x10, 0x40, 0x3001);
    EXPECT_TRUE(fake::logged(4, list_flagged));
    EXPECT_EQ(asked_capacities.size(), 1u);
}

TEST_F(ScanCase, OfMoreThanThirtyTransportStreamsTakesNone)
{
    store_nit(0x3001, 31);
    book(0x10, 0x40, 0x3001);
    EXPECT_FALSE(fake::logged(list_set)) << fake::log_text();
}

TEST_F(ScanCase, OfThirtyTransportStreamsTakesAll)
{
    store_nit(0x3001, 30);
    book(0x10, 0x40, 0x3001);
    EXPECT_TRUE(fake::logged(list_set)) << fake::log_text();
}

TEST_F(ScanCase, OfANetworkWithoutTransportStreamsSetsNothing)
{
    store_nit(0x3001, 0);
    book(0x10, 0x40, 0x3001);
    EXPECT_FALSE(fake::logged(list_set)) << fake::log_text();
}

TEST_F(ScanCase, TheCountOfAFailedQuestionIsTheNextCapacity)
{
    book(0x10, 0x40, 0x3001); // nothing stored: the count becomes 0
    store_nit(0x3001, 3);
    book(0x10, 0x40, 0x3001);
    EXPECT_THAT(asked_capacities, ElementsAre(30u, 0u));
    EXPECT_FALSE(fake::logged(list_set)) << fake::log_text();

    EXPECT_EQ(Orva_Si_ResetTsList(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "reset the Ts List\n"));
    book(0x10, 0x40, 0x3001);
    EXPECT_EQ(asked_capacities.back(), 30u);
    EXPECT_TRUE(fake::logged(list_set));
}

TEST_F(ScanCase, AChangeOfMultiplexForgetsTheTransportStreams)
{
    store_nit(0x3001, 3);
    book(0x10, 0x40, 0x3001);
    fake::clear_log();
    Orva_Si_ResetScanFlag();
    EXPECT_TRUE(fake::logged(4, "reset the Ts List\n"));
    book(0x10, 0x40, 0x3001);
    EXPECT_THAT(asked_capacities, ElementsAre(30u, 30u));
}

TEST_F(ScanCase, AnSdtOtherAsksWhetherAllOfThemAreThere)
{
    book(0x11, 0x46, 7);
    EXPECT_TRUE(fake::logged(4, "want to check all sdt oth are got or not table_id = 0x46\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "entering ...\n"));
    EXPECT_FALSE(fake::logged(sdt_oth_ready));
}

TEST(RetrieveTsList, ReadsTheTransportStreamsOnce)
{
    store_nit(0x3001, 3);
    EXPECT_EQ(Orva_Si_RetrieveTsList(0x3001), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(3, "the nitwork id = 0x3001\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, list_set));
    EXPECT_EQ(Orva_Si_RetrieveTsList(0x3001), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, list_flagged));
    EXPECT_THAT(asked_capacities, ElementsAre(30u));
}

TEST(RetrieveTsList, AnswersAsTheNetworkWasAnswered)
{
    init_store();
    EXPECT_EQ(Orva_Si_RetrieveTsList(0x3001), ORVA_SI_NO_DATA);
    Orva_Si_ResetTsList();
    store_nit(0x3001, 31);
    EXPECT_EQ(Orva_Si_RetrieveTsList(0x3001), ORVA_SI_ARRAY_FULL);
    EXPECT_FALSE(fake::logged(list_set));
}

class SdtOther : public testing::Test {
protected:
    // A network of that many transport streams whose NIT actual is detected and complete.
    static void know_network(std::uint16_t ts_count)
    {
        store_nit(0x3001, ts_count);
        Orva_Si_SetDetectBit(0x10, 0x40);
        book(0x10, 0x40, 0x3001);
        fake::clear_log();
    }
};

TEST_F(SdtOther, IsNotReadyWithoutTheNitActual)
{
    store_nit(0x3001, 1);
    store_sdt(0x46, 1);
    book(0x10, 0x40, 0x3001); // complete, but not detected
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(4, "nit act is not ready\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged(sdt_oth_ready));

    Orva_Si_ResetScanFlag();
    Orva_Si_SetDetectBit(0x10, 0x40); // detected, but not complete
    EXPECT_EQ(Orva_Si_RetrieveTsList(0x3001), ORVA_SI_OK);
    fake::clear_log();
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(4, "nit act is not ready\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged(sdt_oth_ready));
}

TEST_F(SdtOther, IsNotReadyWithoutTheTransportStreams)
{
    init_store();
    Orva_Si_SetDetectBit(0x10, 0x40);
    Orva_Si_SetReadyBit(0x10, 0x40);
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(4, "bGetTsList is not setted\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged(sdt_oth_ready));
}

TEST_F(SdtOther, IsReadyWhenEveryTransportStreamHasAnSdt)
{
    know_network(3);
    store_sdt(0x46, 1);
    store_sdt(0x42, 2);
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(4, "entering ...\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the Count = 3\n"));
    EXPECT_TRUE(fake::logged(4, "i = 2\n"));
    EXPECT_FALSE(fake::logged(sdt_oth_ready));

    store_sdt(0x46, 3);
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(4, "i = 3\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(sdt_oth_ready));

    fake::clear_log();
    set_sdt_oth_ready(); // known by now
    EXPECT_FALSE(fake::logged("the Count = 3\n"));
    EXPECT_FALSE(fake::logged(sdt_oth_ready));
}

TEST_F(SdtOther, CountsAnSdtThatIsNotCompleteYet)
{
    know_network(1);
    store(make(sdt{.table_id = 0x46, .ts = 1, .section_number = 0, .last_section_number = 1}));
    set_sdt_oth_ready();
    EXPECT_TRUE(fake::logged(sdt_oth_ready)) << fake::log_text();
}

TEST_F(SdtOther, ATransportStreamWithoutSdtIsNeverReadyAndHoldsNothingUp)
{
    know_network(2);
    Orva_Si_SetDetectBit(0x11, 0x46);
    store_sdt(0x46, 1);
    book(0x11, 0x46, 1);
    EXPECT_TRUE(fake::logged(4, "i = 1\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged(sdt_oth_ready));

    Orva_Si_SetCtlFlag();
    Orva_Si_SetDetectReady();
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_TRUE(fake::logged(4, "sdt oth is not ready\n"));
}

TEST_F(SdtOther, IsCompleteThroughTheBookkeeping)
{
    know_network(1);
    Orva_Si_SetDetectBit(0x11, 0x46);
    store_sdt(0x46, 1);
    book(0x11, 0x46, 1);
    Orva_Si_SetCtlFlag();
    Orva_Si_SetDetectReady();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_DoAllTablesReady(), 1u);
    EXPECT_FALSE(fake::logged("sdt oth is not ready\n")) << fake::log_text();
}

TEST(FinishFlags, AreReset)
{
    EXPECT_EQ(Orva_Si_ResetTblFinishFlag(), ORVA_SI_OK);
}

} // namespace
