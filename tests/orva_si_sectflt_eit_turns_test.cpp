// SPDX-License-Identifier: LGPL-2.1-or-later
// EIT filters: later turns of a schedule, which end when nothing is missing.
#include "support/client.h"
#include "support/eit_filters.h"
#include "support/model.h"

using namespace test;
using testing::ElementsAre;

namespace {

// ---- Later turns of a schedule

// Sections of a service's schedule in the event store, as the dispatcher would put them there.
class EitTurns : public EitFilters {
protected:
    EitTurns()
    {
        test::tune(474000, 1);
        enable_all();
    }
    ~EitTurns() override { end_store(); }
    // A sub-table of one segment.
    static void come(std::uint8_t table_id, std::uint8_t number, std::uint8_t segment_last,
                     std::uint8_t version = 4, std::uint8_t last_table_id = 0x50)
    {
        deliver(make(eit{.table_id = table_id,
                         .service = 1,
                         .ts = ts,
                         .original_network = onid,
                         .version = version,
                         .section_number = number,
                         .last_section_number = segment_last,
                         .segment_last_section_number = segment_last,
                         .last_table_id = last_table_id}));
    }
    static void deliver(const octets &section) { Si_Model_ProcessModel(received{section, 0x12}); }
    static void age(int runs)
    {
        for (int run = 0; run < runs; ++run)
            EXPECT_EQ(Si_SectFlt_ActSchEitBgService(), ORVA_SI_OK);
    }
    // The version that the first filter passes over; -1: none.
    int passed_over() const
    {
        const SiDmxFilterParam param = loaded(5);
        return param.negate[5] == 0 ? -1 : param.match[5] >> 1;
    }
};

TEST_F(EitTurns, OnlySubTablePassesItsVersionOverOnceNothingIsMissing)
{
    start_sch({1});
    come(0x50, 0, 1); // complete for the store, which needs one section of a segment
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 0, 1);
    age(1);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 1);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    EXPECT_EQ(request(act_sch, 0).version, 4);
}

TEST_F(EitTurns, OnlySubTablePassesItsVersionOverAfterItsTimeWhateverIsMissing)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 0, 1);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    age(255); // not for ever again
    EXPECT_EQ(loads(5), 3U);
}

TEST_F(EitTurns, RepeatsLoadNoFilterAnew)
{
    start_sch({1});
    come(0x50, 0, 1);
    for (int repeat = 0; repeat < 9; ++repeat)
        come(0x50, 0, 1);
    EXPECT_EQ(loads(5), 2U); // the start, and the end of the first turn
}

TEST_F(EitTurns, AnotherVersionOfTheOnlySubTableGetsAllTheTimeAgain)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 1, 1);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    age(40);
    come(0x50, 0, 2, 5);
    come(0x50, 1, 2, 5);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 2, 5);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 2, 2, 5);
    age(1);
    EXPECT_EQ(passed_over(), 5);
}

TEST_F(EitTurns, LateSectionsOfAVersionPassedOverAreLetBe)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    const unsigned before = loads(5);
    come(0x50, 0, 0);
    age(1);
    EXPECT_EQ(passed_over(), 4);
    EXPECT_EQ(loads(5), before);
}

TEST_F(EitTurns, SubTableThatLacksASectionKeepsTheFilterForItsTime)
{
    start_sch({1});
    come(0x50, 0, 1, 4, 0x51);
    come(0x51, 0, 0, 4, 0x51);
    ASSERT_EQ(request(act_sch, 0).flag, 1);
    ASSERT_EQ(loaded(5).match[0], 0x50);
    come(0x50, 0, 1, 4, 0x51);
    age(50);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x51);
}

TEST_F(EitTurns, SubTableWithoutGapsIsLeftInTheNextRun)
{
    start_sch({1});
    for (const std::uint8_t table_id : {std::uint8_t{0x50}, std::uint8_t{0x51}})
        come(table_id, 0, 0, 4, 0x51);
    age(3);
    EXPECT_EQ(loaded(5).match[0], 0x50); // nothing has come in this turn
    come(0x50, 0, 0, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x51);
    come(0x51, 0, 0, 4, 0x51);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    EXPECT_EQ(passed_over(), -1);
}

TEST_F(EitTurns, AFilterThatGoesRoundStaysWithAServiceThatLacksASection)
{
    start_sch(services(6));
    come(0x50, 0, 1);
    ASSERT_THAT(served(act_sch), ElementsAre(6, 2, 3, 4, 5));
    Si_SectFlt_UpdateEit(0x50, 6, 4, 1);
    ASSERT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    come(0x50, 0, 1);
    age(1);
    EXPECT_THAT(served(act_sch), ElementsAre(1, 2, 3, 4, 5));
    come(0x50, 1, 1);
    age(1);
    EXPECT_THAT(served(act_sch), ElementsAre(6, 2, 3, 4, 5));
    EXPECT_EQ(request(act_sch, 0).version, 0xFF);
}

TEST_F(EitTurns, SectionsOfAnotherVersionFillNoGap)
{
    start_sch({1});
    come(0x50, 0, 2);
    come(0x50, 1, 2);
    come(0x50, 2, 2, 3); // left over from a version before
    come(0x50, 0, 2);
    age(1);
    EXPECT_EQ(passed_over(), -1);
}

TEST_F(EitTurns, SectionsThatTheVersionHasNoNumbersForAreNotWaitedFor)
{
    start_sch({1});
    come(0x50, 0, 1);
    come(0x50, 2, 2, 3); // left over
    come(0x50, 1, 1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, ASegmentWithoutEndIsListenedToForItsTime)
{
    start_sch({1});
    const auto endless = make(eit{.table_id = 0x50,
                                  .service = 1,
                                  .ts = ts,
                                  .original_network = onid,
                                  .last_section_number = 0,
                                  .segment_last_section_number = 0x18});
    deliver(endless);
    deliver(endless);
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 0);
}

TEST_F(EitTurns, AreThoroughAfterALastSubTableThatNeverCompletes)
{
    start_sch({1});
    come(0x50, 0, 1, 4, 0x51);
    age(51);
    ASSERT_EQ(loaded(5).match[0], 0x50);
    come(0x50, 0, 1, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x50);
    EXPECT_EQ(request(act_sch, 0).flag, 1);
}

TEST_F(EitTurns, AreQuickWhileNothingWouldEndThem)
{
    start_sch({1, 2});
    Si_BG_PauseService(2);
    come(0x50, 0, 1, 4, 0x51);
    come(0x51, 0, 1, 4, 0x51);
    come(0x50, 0, 1, 4, 0x51);
    EXPECT_EQ(loaded(5).match[0], 0x51);
    Si_SectFlt_UpdateEit(0x50, 2, 4, 1); // has nowhere to go
    Si_SectFlt_UpdateEit(0x50, 2, 4, 1);
    EXPECT_EQ(loaded(6).negate[5], 0);
}

TEST_F(EitTurns, NoRunAgesAFilterThatItSentOn)
{
    start_sch({1});
    for (const std::uint8_t table_id : {std::uint8_t{0x50}, std::uint8_t{0x51}})
        come(table_id, 0, 0, 4, 0x51);
    come(0x50, 0, 0, 4, 0x51);
    age(51); // the first sends it on
    EXPECT_EQ(loaded(5).match[0], 0x51);
    age(1);
    EXPECT_EQ(loaded(5).match[0], 0x50);
}

TEST_F(EitTurns, OneOfAnyMultiplexDoesNotStandForAnotherThatLacksASection)
{
    const ids one{1};
    Si_SectFlt_StartActSchEit(0xFFFF, 0xFFFF, 1, one.data(), 1);
    // Whole, from a multiplex before.
    deliver(make(eit{.table_id = 0x50,
                     .service = 1,
                     .ts = ts + 1,
                     .original_network = onid,
                     .version = 4,
                     .last_section_number = 0,
                     .segment_last_section_number = 0,
                     .last_table_id = 0x50}));
    come(0x50, 0, 1);
    come(0x50, 0, 1);
    age(1);
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 1, 1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, VersionPassedOverComesAgainOnceTheStoreWasErased)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    age(1);
    ASSERT_EQ(passed_over(), 4);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(passed_over(), -1);
    come(0x50, 0, 0);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

TEST_F(EitTurns, WhatWasHeardBeforeTheStoreWasErasedEndsNoTurn)
{
    start_sch({1});
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    const unsigned before = loads(5);
    Orva_Si_EraseAllEitRawData();
    age(50);
    EXPECT_EQ(passed_over(), -1);
    EXPECT_EQ(loads(5), before); // it let all versions through already
}

// Others may send the service under as many ids as they like.
TEST_F(EitTurns, ServiceOfAnyMultiplexIsNotLookedForWithoutEnd)
{
    const ids one{1};
    Si_SectFlt_StartActSchEit(0xFFFF, 0xFFFF, 1, one.data(), 1);
    come(0x50, 0, 0);
    come(0x50, 0, 0);
    for (std::uint16_t other = 0; other < 17 * 256; ++other)
        deliver(make(eit{.table_id = 0x50,
                         .service = 1,
                         .ts = other,
                         .original_network = onid + 1,
                         .version = 4,
                         .last_section_number = 0,
                         .segment_last_section_number = 0,
                         .last_table_id = 0x50}));
    age(50);
    EXPECT_EQ(passed_over(), -1);
    age(1);
    EXPECT_EQ(passed_over(), 4);
}

} // namespace
