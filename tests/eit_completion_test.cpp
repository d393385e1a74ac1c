// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store with the filters that it lets go on: sections in through the dispatcher, out
// comes what the driver is loaded with.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/client.h"
#include "support/filters.h"
#include "support/model.h"

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint16_t onid = 0x22;
constexpr std::uint16_t ts = 0x11;
constexpr std::uint16_t service = 7;

// What a filter is set for.
struct setting {
    unsigned table_id;
    int other_than; // the version that does not pass; -1: all pass

    bool operator==(const setting &) const = default;
};
void PrintTo(const setting &of, std::ostream *out)
{
    *out << text("table %#x other than %d", of.table_id, of.other_than);
}

class EitCompletion : public Filters {
protected:
    EitCompletion()
    {
        test::tune(474000, service);
        enable_all();
        Si_SectFlt_StartActPfEit(ts, onid, &service, 1);           // record 5
        Si_SectFlt_StartActSchEit(ts, onid, service, &service, 1); // record 6
        const SiEitRequest other{ts, onid, service};
        Si_SectFlt_StartOtherPfEit(&other, 1); // record 7
        Orva_Si_InstallCallback(note_event);
        fake::clear_log();
    }
    ~EitCompletion() override { end_store(); }

    static octets section(std::uint8_t table_id, std::uint8_t number, std::uint8_t last,
                          std::uint8_t version = 0, int last_table_id = -1)
    {
        return make(eit{.table_id = table_id,
                        .service = service,
                        .ts = ts,
                        .original_network = onid,
                        .version = version,
                        .section_number = number,
                        .last_section_number = last,
                        .last_table_id = last_table_id});
    }
    static void deliver(const octets &of)
    {
        EXPECT_EQ(Si_Model_ProcessModel(received{of, 0x12}), ORVA_SI_OK);
    }
    setting set_for(std::size_t index) const
    {
        const SiDmxFilterParam param = loaded(index);
        return {param.match[0], param.negate[5] == 0 ? -1 : param.match[5] >> 1 & 0x1F};
    }
    static SiEitService *stored()
    {
        return elements_of<SiEitService>(Orva_Si_GetDvbEitList()).at(0);
    }
};

TEST_F(EitCompletion, TheSecondSectionLetsOnlyAnotherVersionPass)
{
    deliver(section(0x4E, 0, 1, 5));
    EXPECT_EQ(set_for(5), (setting{0x4E, -1}));
    EXPECT_EQ(loads(5), 1U);
    deliver(section(0x4E, 1, 1, 5));
    EXPECT_EQ(set_for(5), (setting{0x4E, 5}));
    EXPECT_EQ(loads(5), 2U);
}

TEST_F(EitCompletion, ARepeatArmsAgainAndIsNotTold)
{
    deliver(section(0x4E, 0, 1, 5));
    deliver(section(0x4E, 1, 1, 5));
    events.clear();
    deliver(section(0x4E, 0, 1, 5));
    EXPECT_EQ(loads(5), 3U);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(EitCompletion, ANewVersionArmsOnceBothSectionsHaveIt)
{
    for (const std::uint8_t number : {std::uint8_t{0}, std::uint8_t{1}})
        deliver(section(0x4E, number, 1, 31));
    deliver(section(0x4E, 1, 1, 0));
    EXPECT_EQ(set_for(5), (setting{0x4E, 31}));
    deliver(section(0x4E, 0, 1, 0));
    EXPECT_EQ(set_for(5), (setting{0x4E, 0}));
}

TEST_F(EitCompletion, PresentFollowingOfOtherMultiplexesArmsNothing)
{
    deliver(section(0x4F, 0, 1));
    deliver(section(0x4F, 1, 1));
    EXPECT_EQ(loads(5) + loads(6) + loads(7), 3U); // the start of each
}

TEST_F(EitCompletion, AScheduleOfThreeSegmentsIsCompleteWithASectionOfEach)
{
    deliver(section(0x50, 0x00, 0x17));
    deliver(section(0x50, 0x0F, 0x17));
    EXPECT_EQ(set_for(6), (setting{0x50, -1}));
    EXPECT_EQ(loads(6), 1U);
    deliver(section(0x50, 0x12, 0x17));
    EXPECT_EQ(set_for(6), (setting{0x50, -1})); // other sections of the segments may come yet
    EXPECT_EQ(loads(6), 2U);
}

TEST_F(EitCompletion, TheLastTableOfASectionSendsTheFilterFromTableToTable)
{
    deliver(section(0x50, 0, 0, 3, 0x52));
    EXPECT_EQ(set_for(6), (setting{0x51, -1}));
    deliver(section(0x50, 0, 0, 3, 0x52)); // too late: the filter has gone on
    EXPECT_EQ(set_for(6), (setting{0x51, -1}));
    deliver(section(0x51, 0, 0, 9, 0x52));
    EXPECT_EQ(set_for(6), (setting{0x52, -1}));
    deliver(section(0x52, 0, 0, 9, 0x52));
    EXPECT_EQ(set_for(6), (setting{0x50, -1})); // each has a version of its own
}

TEST_F(EitCompletion, ScheduleOfOtherMultiplexesNamesNoLastTable)
{
    deliver(section(0x60, 0, 0, 0, 0x6F));
    EXPECT_EQ(item<task_item_eit>(si::act_sch_eit_task, 0).last_table_id, 0x50);
    EXPECT_EQ(loads(6), 1U);
}

TEST_F(EitCompletion, AFilterOfAStoppedKindIsNotArmed)
{
    Si_SectFlt_StopActPfEit();
    const unsigned before = loads(5);
    deliver(section(0x4E, 0, 1));
    deliver(section(0x4E, 1, 1));
    EXPECT_EQ(loads(5), before);
}

// ---- The question alone

TEST_F(EitCompletion, IsAnsweredForAStoredService)
{
    const octets present = section(0x4E, 0, 1, 5);
    const octets following = section(0x4E, 1, 1, 5);
    deliver(present);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), present.data()), 0U);
    deliver(following);
    const unsigned before = loads(5);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), present.data()), 1U);
    EXPECT_EQ(loads(5), before + 1);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), section(0x50, 0, 0).data()), 0U);
}

TEST_F(EitCompletion, IsNeverAnsweredForOtherMultiplexes)
{
    deliver(section(0x4F, 0, 1));
    deliver(section(0x4F, 1, 1));
    deliver(section(0x60, 0, 0));
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), section(0x4F, 0, 1).data()), 0U);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), section(0x60, 0, 0).data()), 0U);
}

TEST_F(EitCompletion, IsNotAskedWithoutServiceOrSection)
{
    deliver(section(0x4E, 0, 1));
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(nullptr, section(0x4E, 0, 1).data()), 0U);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(stored(), nullptr), 0U);
}

// ---- Where the texts of the store come from

TEST_F(EitCompletion, TheStoreSpeaksUnderItsOwnName)
{
    deliver(section(0x4E, 0, 1));
    deliver(section(0x4E, 1, 1));
    deliver(section(0x4E, 2, 1));
    int said = 0;
    for (const fake::log_line &line : fake::log_lines())
        if (line.text == "so we save it now\n" ||
            line.text.find("is completed!") != line.text.npos) {
            ++said;
            EXPECT_EQ(line.file, "Src/orva_si_modellistimpl") << line.text;
        }
    EXPECT_GE(said, 2);
}

} // namespace
