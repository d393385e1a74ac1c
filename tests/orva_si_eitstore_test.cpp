// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store: what is kept of the sections of events, when a table of a service is complete,
// and what the client and the filters are told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/event_store.h"

namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

// ---- Before there is a store

TEST(WithoutAStore, ASectionIsDropped)
{
    ASSERT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_EQ(deliver(pf(0)), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(eit_lock_is_free());
}

TEST(WithoutAStore, ThereIsNothingToErase)
{
    ASSERT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_EQ(Orva_Si_EraseAllEitRawData(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_RemoveEitRawData(), ORVA_SI_OK);
    EXPECT_TRUE(eit_lock_is_free());
}

// ---- A new service, a new section

using Storing = EventStore;

TEST_F(Storing, TheFirstSectionCreatesItsService)
{
    const octets section = pf(0);
    EXPECT_EQ(deliver(section), ORVA_SI_OK);
    ASSERT_THAT(services(), SizeIs(1));
    EXPECT_EQ(services()[0]->original_network_id, 0x0506);
    EXPECT_EQ(services()[0]->transport_stream_id, 0x0304);
    EXPECT_EQ(services()[0]->service_id, sid);
    EXPECT_TRUE(fake::logged(4, "can't find the onid = 0x506, tsid = 0x304, servid = 0x102 eit\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "so we save it now\n"));
    EXPECT_TRUE(
        fake::logged(4, "create the new eit of onid = 0x506, tsid = 0x304, servid = 0x102 eit\n"));
    EXPECT_TRUE(fake::logged(5, unlock_trace));
}

TEST_F(Storing, KeepsTheSectionAsReceived)
{
    const octets section = schedule(3, 9);
    deliver(section);
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0]->table_id, 0x50);
    EXPECT_EQ(records()[0]->section_number, 3);
    EXPECT_EQ(records()[0]->sect_len, section.size());
    EXPECT_THAT(held(), ElementsAre(section));
}

TEST_F(Storing, ClearsTheBufferBehindTheSection)
{
    const octets section = pf(0);
    ASSERT_NE(section.size() % 32, 0U);
    deliver(section);
    for (std::size_t i = section.size(); i % 32 != 0; ++i)
        EXPECT_EQ(records()[0]->section[i], 0) << i;
}

TEST_F(Storing, AnotherSectionOfAKnownServiceCreatesNone)
{
    deliver(pf(0));
    forget();
    deliver(schedule(3, 9));
    ASSERT_THAT(services(), SizeIs(1));
    EXPECT_THAT(held(), ElementsAre(pf(0), schedule(3, 9)));
    EXPECT_FALSE(fake::logged("so we save it now\n"));
}

TEST_F(Storing, EachOfTheThreeIdsMakesAnotherService)
{
    deliver(make(eit{.service = 1, .ts = 1, .original_network = 1}));
    deliver(make(eit{.service = 2, .ts = 1, .original_network = 1}));
    deliver(make(eit{.service = 1, .ts = 2, .original_network = 1}));
    deliver(make(eit{.service = 1, .ts = 1, .original_network = 2}));
    deliver(make(eit{.service = 1, .ts = 1, .original_network = 1, .section_number = 1}));
    EXPECT_THAT(services(), SizeIs(4));
    EXPECT_THAT(records(0), SizeIs(2));
    EXPECT_EQ(services()[1]->service_id, 2);
    EXPECT_EQ(services()[2]->transport_stream_id, 2);
    EXPECT_EQ(services()[3]->original_network_id, 2);
}

TEST_F(Storing, SectionsStandInTheOrderOfTheirArrival)
{
    const std::vector<octets> all{schedule(9, 9), pf(1), schedule(0, 9), schedule(9, 9, 0, 1, 0x51),
                                  pf(0)};
    for (const octets &section : all)
        deliver(section);
    EXPECT_EQ(held(), all);
}

TEST_F(Storing, TellsTheClientOfANewSection)
{
    deliver(pf(0));
    deliver(schedule(3, 9));
    EXPECT_THAT(notices, ElementsAre(told(pf(0)), told(schedule(3, 9))));
    EXPECT_THAT(reasons(),
                ElementsAre(SI_REASON_EIT_PRESENT_FOLLOWING, SI_REASON_EIT_SCHEDULE_NEW));
    ASSERT_THAT(events, SizeIs(2));
    EXPECT_EQ(events[0].eit.crc, crc_of(pf(0)));
}

TEST_F(Storing, TheClientMayTakeTheLockAndReadInsideItsCallback)
{
    std::vector<std::size_t> seen;
    during_event = [&] {
        ASSERT_EQ(Orva_MutexTryP(&Ts_Eit_Mutex), ORVA_SI_OK);
        seen.push_back(records().size());
        Orva_MutexV(&Ts_Eit_Mutex);
    };
    deliver(pf(0));
    deliver(pf(1));
    deliver(pf(1, 0, 2));
    EXPECT_THAT(seen, ElementsAre(1U, 2U, 2U));
}

TEST_F(Storing, TheClientMayEraseEverythingInsideItsCallback)
{
    during_event = [] { Orva_Si_EraseAllEitRawData(); };
    deliver(pf(0));
    EXPECT_THAT(services(), IsEmpty());
    deliver(pf(1));
    EXPECT_THAT(services(), IsEmpty());
    EXPECT_THAT(notices, SizeIs(2));
}

TEST_F(Storing, PassesOverNullElements)
{
    si_list_add(Orva_Si_GetDvbEitList(), nullptr, 0);
    deliver(pf(0));
    ASSERT_THAT(services(), SizeIs(2));
    si_list_add(services()[1]->sections, nullptr, 0);
    deliver(pf(1));
    ASSERT_THAT(services(), SizeIs(2));
    EXPECT_THAT(records(1), SizeIs(3));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 0)));
}

// ---- Repeats and updates

using Updating = EventStore;

TEST_F(Updating, TheSameSectionTwiceIsOneNotification)
{
    deliver(schedule(3, 9));
    deliver(schedule(3, 9));
    EXPECT_THAT(notices, ElementsAre(told(schedule(3, 9))));
    EXPECT_THAT(held(), ElementsAre(schedule(3, 9)));
    EXPECT_EQ(fake::times_logged(unlock_trace), 2U) << fake::log_text();
}

TEST_F(Updating, ARepeatIsKnownByItsCrcFieldAlone)
{
    octets other = pf(0);
    other[15] ^= 0x55; // the CRC_32 field stays
    deliver(pf(0));
    deliver(other);
    EXPECT_THAT(held(), ElementsAre(pf(0)));
    EXPECT_THAT(notices, SizeIs(1));
}

TEST_F(Updating, AnotherCrcReplacesTheSectionInItsPlace)
{
    deliver(schedule(3, 9));
    deliver(schedule(4, 9));
    SiEitSection *record = records()[0];
    forget();
    octets longer = make(eit{.table_id = 0x50,
                             .service = sid,
                             .ts = 0x0304,
                             .original_network = 0x0506,
                             .version = 1,
                             .section_number = 3,
                             .last_section_number = 9,
                             .events = {{.id = 1}, {.id = 2}, {.id = 3}, {.id = 4}}});
    deliver(longer);
    EXPECT_THAT(held(), ElementsAre(longer, schedule(4, 9)));
    EXPECT_EQ(records()[0], record);
    EXPECT_EQ(record->sect_len, longer.size());
    EXPECT_EQ(record->table_id, 0x50);
    EXPECT_EQ(record->section_number, 3);
    EXPECT_THAT(notices, ElementsAre(told(longer, 1)));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_EIT_SCHEDULE_CHANGED));
    EXPECT_TRUE(fake::logged(5, unlock_trace));
    deliver(schedule(3, 9));
    EXPECT_THAT(held(), ElementsAre(schedule(3, 9), schedule(4, 9)));
}

TEST_F(Updating, AChangedPresentFollowingSectionIsToldAsChanged)
{
    deliver(pf(0));
    forget();
    deliver(pf(0, 0, 2));
    EXPECT_THAT(notices, ElementsAre(told(pf(0, 0, 2), 1)));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_EIT_PRESENT_FOLLOWING));
}

TEST_F(Updating, FreesTheOldBufferWithItsRoundedSize)
{
    deliver(pf(0));
    const void *buffer = records()[0]->section;
    const std::size_t size = (pf(0).size() + 31) / 32 * 32;
    note_frees = true;
    deliver(pf(0, 0, 2));
    note_frees = false;
    EXPECT_THAT(freed, ElementsAre(Pair(buffer, size)));
}

TEST_F(Updating, TheSameNumberOfAnotherTableIsAnotherSection)
{
    deliver(schedule(3, 9));
    deliver(schedule(3, 9, 0, 1, 0x51));
    EXPECT_THAT(records(), SizeIs(2));
    EXPECT_THAT(notices, SizeIs(2));
}

TEST_F(Updating, ActualAndOtherShareTheirPlace)
{
    deliver(schedule(3, 9));
    deliver(schedule(3, 9, 0, 1, 0x60));
    EXPECT_THAT(held(), ElementsAre(schedule(3, 9, 0, 1, 0x60)));
    EXPECT_EQ(records()[0]->table_id, 0x50);
    EXPECT_THAT(notices, ElementsAre(told(schedule(3, 9)), told(schedule(3, 9, 0, 1, 0x60), 1)));
}

TEST_F(Updating, SectionsThatANewVersionNoLongerUsesStay)
{
    deliver(schedule(8, 8));
    deliver(schedule(0, 8));
    deliver(schedule(0, 0, 1));
    EXPECT_THAT(held(), ElementsAre(schedule(8, 8), schedule(0, 0, 1)));
}

class TwoRecordsOfOneSection : public EventStore {
protected:
    // Two records under one key, which only whoever holds the lock can make.
    TwoRecordsOfOneSection()
    {
        deliver(first);
        deliver(second, 0x0506, 0x0304, 0x7777, 0x50, 3);
        void *moved = si_list_get(services()[1]->sections, 0);
        si_list_remove(services()[1]->sections, 0);
        si_list_add(services()[0]->sections, moved, -1);
        forget();
    }
    const octets first = schedule(3, 9, 0, 1);
    const octets second = schedule(3, 9, 0, 2);
};

TEST_F(TwoRecordsOfOneSection, TheSearchGoesOnBehindARepeat)
{
    deliver(first);
    EXPECT_THAT(held(), ElementsAre(first, first));
    EXPECT_THAT(notices, ElementsAre(told(first, 1)));
    forget();
    deliver(first);
    EXPECT_THAT(held(), ElementsAre(first, first));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(TwoRecordsOfOneSection, TheSearchEndsAtTheFirstThatDiffers)
{
    const octets third = schedule(3, 9, 0, 3);
    deliver(third);
    EXPECT_THAT(held(), ElementsAre(third, second));
    EXPECT_THAT(notices, ElementsAre(told(third, 1)));
}

// ---- Without memory

using WithoutMemory = EventStore;

TEST_F(WithoutMemory, ThereIsNoService)
{
    deliver_without_memory(pf(0), 1);
    EXPECT_THAT(services(), IsEmpty());
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(fake::logged(2, no_service)) << fake::log_text();
}

TEST_F(WithoutMemory, AServiceNeedsItsList)
{
    note_frees = true;
    deliver_without_memory(pf(0), 2);
    EXPECT_THAT(freed, Contains(Pair(testing::_, sizeof(SiEitService))));
    EXPECT_THAT(services(), IsEmpty());
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(fake::logged(2, "no mem yet\n")) << fake::log_text();
}

TEST_F(WithoutMemory, AServiceThatCannotBeListedIsNotKept)
{
    deliver_without_memory(pf(0), 3);
    EXPECT_THAT(services(), IsEmpty());
    deliver(pf(0));
    ASSERT_THAT(services(), SizeIs(1));
    EXPECT_THAT(held(), ElementsAre(pf(0)));
}

TEST_F(WithoutMemory, ASectionIsToldThoughItIsNotKept)
{
    deliver(schedule(0, 0x17));
    for (const unsigned n : {1U, 2U}) {
        forget();
        deliver_without_memory(schedule(3, 0x17), n);
        EXPECT_THAT(held(), ElementsAre(schedule(0, 0x17)));
        EXPECT_THAT(notices, ElementsAre(told(schedule(3, 0x17)))) << n;
        EXPECT_THAT(filter_calls, IsEmpty()) << n;
        EXPECT_TRUE(fake::logged(2, no_section)) << fake::log_text();
        EXPECT_TRUE(fake::logged(5, unlock_trace));
    }
}

TEST_F(WithoutMemory, ASectionThatCannotBeListedIsToldAndChecked)
{
    deliver(pf(0));
    forget();
    deliver_without_memory(pf(1), 3);
    EXPECT_THAT(held(), ElementsAre(pf(0)));
    EXPECT_THAT(notices, ElementsAre(told(pf(1))));
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(fake::logged(2, "Insert one section failed! tbl_id:0x4e, sect_no:1\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(5, unlock_trace));

    deliver(schedule(0, 7));
    forget();
    deliver_without_memory(schedule(1, 7), 3);
    EXPECT_THAT(filter_calls, ElementsAre(last_table(0x50, sid, 0x50), complete(0x50, sid, 0)));
    EXPECT_TRUE(fake::logged(2, "Insert one section failed! tbl_id:0x50, sect_no:1\n"));
}

TEST_F(WithoutMemory, AnUpdateLeavesARecordWithoutASection)
{
    deliver(pf(0));
    deliver(pf(1));
    forget();
    deliver_without_memory(pf(0, 0, 2), 1);
    ASSERT_THAT(records(), SizeIs(2));
    EXPECT_EQ(records()[0]->section, nullptr);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(fake::logged(2, no_update)) << fake::log_text();
    EXPECT_TRUE(fake::logged(5, unlock_trace));
}

TEST_F(WithoutMemory, ARecordWithoutASectionIsFilledByTheNextArrival)
{
    deliver(schedule(0, 7));
    deliver_without_memory(schedule(0, 7, 0, 2), 1);
    forget();
    deliver(schedule(0, 7));
    EXPECT_THAT(held(), ElementsAre(schedule(0, 7)));
    EXPECT_THAT(notices, ElementsAre(told(schedule(0, 7), 1)));
}

TEST_F(WithoutMemory, TheCheckPassesOverARecordWithoutASection)
{
    deliver(pf(0));
    deliver_without_memory(pf(0, 0, 2), 1);
    forget();
    deliver(pf(1));
    EXPECT_THAT(filter_calls, IsEmpty());
    deliver(pf(0));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 0)));
}

TEST_F(WithoutMemory, ARecordWithoutASectionIsErased)
{
    deliver(pf(0));
    deliver_without_memory(pf(0, 0, 2), 1);
    EXPECT_EQ(Orva_Si_EraseAllEitRawData(), ORVA_SI_OK);
    EXPECT_THAT(services(), IsEmpty());
}

// ---- Completion

using Completion = EventStore;

TEST_F(Completion, PresentAndFollowingTogetherAreComplete)
{
    deliver(pf(0, 5));
    EXPECT_THAT(filter_calls, IsEmpty());
    deliver(pf(1, 5));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 5)));
    EXPECT_TRUE(fake::logged(4, "Actual PF EIT table 0x4e for service 258 is completed!\n"))
        << fake::log_text();
    forget();
    deliver(pf(0, 5));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 5)));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Completion, TheOrderOfPresentAndFollowingDoesNotMatter)
{
    deliver(pf(1, 31));
    deliver(pf(0, 31));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 31)));
}

TEST_F(Completion, AThirdPresentFollowingSectionIsStoredAndToldButInvalid)
{
    deliver(pf(2));
    EXPECT_THAT(held(), ElementsAre(pf(2)));
    EXPECT_THAT(notices, ElementsAre(told(pf(2))));
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(fake::logged(2, "Invalid Actual PF EIT section number: 2\n")) << fake::log_text();
}

TEST_F(Completion, InvalidPresentFollowingSectionsArePassedOver)
{
    deliver(pf(255));
    EXPECT_TRUE(fake::logged(2, "Invalid Actual PF EIT section number: 255\n"));
    deliver(pf(0));
    deliver(pf(1));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 0)));
}

TEST_F(Completion, EventsOfOtherMultiplexesAreNeverChecked)
{
    deliver(pf(0, 0, 1, 0x4F));
    deliver(pf(1, 0, 1, 0x4F));
    ASSERT_THAT(records(), SizeIs(2));
    EXPECT_EQ(records()[0]->table_id, 0x4E);
    EXPECT_THAT(held(), ElementsAre(pf(0, 0, 1, 0x4F), pf(1, 0, 1, 0x4F)));
    ASSERT_THAT(notices, SizeIs(2));
    EXPECT_EQ(notices[0].table_id, 0x4E);
    for (unsigned table_id = 0x60; table_id <= 0x6F; ++table_id)
        deliver(schedule(0, 0, 0, 1, static_cast<std::uint8_t>(table_id)));
    EXPECT_THAT(filter_calls, IsEmpty());
}

TEST_F(Completion, SectionsOfOtherMultiplexesDoNotCount)
{
    deliver(pf(0, 0, 1, 0x4F));
    deliver(pf(1));
    EXPECT_THAT(filter_calls, IsEmpty());
    deliver(schedule(0, 8, 9, 1, 0x60));
    forget();
    deliver(schedule(8, 8));
    EXPECT_THAT(filter_calls, ElementsAre(last_table(0x50, sid, 0x50)));
}

TEST_F(Completion, AScheduleNeedsOneSectionOfEachSegment)
{
    deliver(schedule(0x03, 0x17, 4));
    deliver(schedule(0x17, 0x17, 4));
    EXPECT_THAT(filter_calls, testing::Each(last_table(0x50, sid, 0x50)));
    forget();
    deliver(schedule(0x08, 0x17, 4));
    EXPECT_THAT(filter_calls, ElementsAre(last_table(0x50, sid, 0x50), complete(0x50, sid, 4)));
    EXPECT_TRUE(fake::logged(4, "Actual Schedule EIT table 0x50 for service 258 is completed!\n"))
        << fake::log_text();
    forget();
    deliver(schedule(0x08, 0x17, 4));
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 4)));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Completion, OnlyTheFirstSectionsOfASegmentCountUpToTheLastOfAll)
{
    deliver(schedule(0x03, 0x12)); // bits 0 to 2 count
    deliver(schedule(0x0A, 0x12));
    deliver(schedule(0x12, 0x12));
    EXPECT_THAT(filter_calls, testing::Not(Contains(complete(0x50, sid, 0))));
    deliver(schedule(0x02, 0x12));
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
}

TEST_F(Completion, TheLastSectionOfASegmentIsNotAsked)
{
    octets section = make(eit{.table_id = 0x50,
                              .service = sid,
                              .last_section_number = 7,
                              .segment_last_section_number = 5});
    deliver(section);
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
}

TEST_F(Completion, ASectionBehindTheLastSegmentSpoilsTheMask)
{
    deliver(schedule(0x08, 0x00));
    deliver(schedule(0x00, 0x00));
    EXPECT_THAT(filter_calls, testing::Not(Contains(complete(0x50, sid, 0))));
}

TEST_F(Completion, TheLargestScheduleHas32Segments)
{
    for (unsigned segment = 0; segment < 32; ++segment) {
        EXPECT_THAT(filter_calls, testing::Not(Contains(complete(0x5F, sid, 1))));
        deliver(schedule(static_cast<std::uint8_t>(8 * segment + 7), 0xFF, 1, 1, 0x5F));
    }
    EXPECT_THAT(filter_calls, Contains(complete(0x5F, sid, 1)));
}

TEST_F(Completion, EveryTableOfTheScheduleIsOnItsOwn)
{
    for (unsigned table_id = 0x50; table_id <= 0x5F; ++table_id) {
        forget();
        deliver(schedule(0, 0, static_cast<std::uint8_t>(table_id & 0xF), 1,
                         static_cast<std::uint8_t>(table_id)));
        EXPECT_THAT(filter_calls, ElementsAre(last_table(table_id, sid, table_id),
                                              complete(table_id, sid, table_id & 0xF)));
    }
}

TEST_F(Completion, TheFilterIsToldTheLastTableOfAnActualSchedule)
{
    deliver(make(
        eit{.table_id = 0x52, .service = sid, .last_section_number = 8, .last_table_id = 0x54}));
    EXPECT_THAT(filter_calls, ElementsAre(last_table(0x52, sid, 0x54)));
    forget();
    deliver(pf(0));
    EXPECT_THAT(filter_calls, IsEmpty());
}

TEST_F(Completion, TwoVersionsStopTheCheckUntilTheOldIsReplaced)
{
    deliver(pf(0, 3));
    deliver(pf(1, 4));
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_TRUE(
        fake::logged(4, "Version number changes: 3: 4, table_id: 0x4e service_id: 0x102\n") ||
        fake::logged(4, "Version number changes: 4: 3, table_id: 0x4e service_id: 0x102\n"))
        << fake::log_text();
    deliver(pf(0, 4));
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 4)));
}

TEST_F(Completion, TwoVersionsOfAScheduleStopTheCheck)
{
    deliver(schedule(8, 8, 1));
    deliver(schedule(0, 0, 2));
    EXPECT_THAT(filter_calls, testing::Each(last_table(0x50, sid, 0x50)));
    EXPECT_TRUE(
        fake::logged(4, "Version number changes: 1: 2, table_id: 0x50 service_id: 0x102\n") ||
        fake::logged(4, "Version number changes: 2: 1, table_id: 0x50 service_id: 0x102\n"))
        << fake::log_text();
}

TEST_F(Completion, TheCheckEndsWhereTheTableIsComplete)
{
    deliver(pf(0, 1));
    deliver(pf(1, 1));
    forget();
    deliver(pf(2, 7)); // stands behind the two, never reached
    EXPECT_THAT(filter_calls, ElementsAre(complete(0x4E, sid, 7)));
    EXPECT_FALSE(fake::logged("Invalid Actual PF EIT section number: 2\n"));
}

TEST_F(Completion, VersionsOfOtherTablesAreNotCompared)
{
    deliver(schedule(0, 8, 9, 1, 0x51));
    deliver(pf(0, 1));
    deliver(pf(1, 1));
    EXPECT_THAT(filter_calls, Contains(complete(0x4E, sid, 1)));
}

TEST_F(Completion, AnotherServiceDoesNotCount)
{
    deliver(make(eit{.service = 1}));
    deliver(make(eit{.service = 2, .section_number = 1, .last_section_number = 1}));
    EXPECT_THAT(filter_calls, IsEmpty());
}

// ---- Short and lying sections: nothing behind the buffer is read

using Hostile = EventStore;

TEST_F(Hostile, ShortSectionsAreTakenWithoutReadingBehindThem)
{
    for (const std::uint8_t table_id :
         std::to_array<std::uint8_t>({0x4E, 0x4F, 0x50, 0x5F, 0x60, 0x6F}))
        for (std::size_t size = 3; size < 20; ++size)
            for (int repeat = 0; repeat < 2; ++repeat) {
                octets section = set_length(octets(size, 0x11), size - 3);
                section[0] = table_id;
                EXPECT_EQ(
                    deliver(section, 1, 2, 3, folded(table_id), static_cast<std::uint8_t>(size)),
                    ORVA_SI_OK);
            }
    EXPECT_THAT(records(), SizeIs(3 * 17));
}

TEST_F(Hostile, BuffersWithoutAHeaderAreNotRead)
{
    for (std::size_t size = 0; size < 3; ++size)
        for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x4E, 0x50, 0x60})) {
            octets section(size, 0xFF);
            if (size > 0)
                section[0] = table_id;
            EXPECT_EQ(deliver(section, 1, 2, 3, folded(table_id), 0), ORVA_SI_OK);
            EXPECT_EQ(deliver(section, 1, 2, 3, folded(table_id), 0), ORVA_SI_OK);
        }
    for (const notice &n : notices)
        EXPECT_EQ(n.crc, 0U);
}

TEST_F(Hostile, ASectionWithoutACrcHasCrc0)
{
    deliver({0x4F, 0x70, 0x00}, 1, 2, 3, 0x4E, 0);
    EXPECT_THAT(notices, ElementsAre(notice{1, 2, 3, 0x4E, 0, 0, 0}));
    deliver({0x4F, 0x70, 0x01, 0xAB}, 1, 2, 3, 0x4E, 1); // the field reaches into the header
    EXPECT_EQ(notices.at(1).crc, 0x4F7001ABU);
}

TEST_F(Hostile, ASectionShorterThanItClaimsHasCrc0)
{
    for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x4E, 0x50, 0x61})) {
        forget();
        octets section = pf(0, 0, 1, table_id);
        for (const std::size_t claimed :
             {section.size() - 2, std::size_t{200}, std::size_t{4095}}) {
            const octets lying = set_length(section, claimed);
            deliver(lying);
            deliver(lying);
        }
        notice expected = told(section);
        expected.crc = 0;
        EXPECT_THAT(notices, ElementsAre(expected)) << int{table_id};
    }
    for (const SiEitSection *record : records())
        EXPECT_EQ(record->sect_len, pf(0).size());
}

TEST_F(Hostile, AnHonestSectionReplacesALyingOneAndBack)
{
    const octets lying = set_length(pf(0), 4095);
    deliver(lying);
    deliver(pf(0));
    EXPECT_THAT(held(), ElementsAre(pf(0)));
    deliver(lying);
    EXPECT_THAT(held(), ElementsAre(lying));
    ASSERT_THAT(notices, SizeIs(3));
    EXPECT_EQ(notices[1], told(pf(0), 1));
    EXPECT_EQ(notices[2].crc, 0U);
    EXPECT_EQ(notices[2].changed, 1U);
}

TEST_F(Hostile, ABufferLongerThanTheSectionHasItsCrcWhereTheSectionEnds)
{
    octets section = pf(0);
    section.resize(section.size() + 40, 0xEE);
    deliver(section);
    EXPECT_THAT(notices, ElementsAre(told(pf(0))));
    forget();
    deliver(pf(0));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Hostile, AShortScheduleSectionNamesNoLastTable)
{
    for (std::size_t size = 3; size < 14; ++size) {
        octets section = set_length(octets(size, 0x5A), size - 3);
        section[0] = 0x50;
        deliver(section, 1, 2, 3, 0x50, static_cast<std::uint8_t>(size));
    }
    for (const std::string &call : filter_calls)
        EXPECT_THAT(call, testing::AnyOf(last_table(0x50, 3, 0), testing::StartsWith("complete")));
}

TEST_F(Hostile, TheLargestSectionIsKeptWhole)
{
    octets section(4098, 0x77);
    section[0] = 0x4E;
    section = set_length(section, 4095);
    deliver(section, 1, 2, 3, 0x4E, 0);
    EXPECT_THAT(held(), ElementsAre(section));
    ASSERT_THAT(notices, SizeIs(1));
    EXPECT_EQ(notices[0].crc, 0x77777777U);
}

// ---- Emptying

using Erasing = EventStore;

TEST_F(Erasing, EmptiesTheListThatStays)
{
    si_list *list = Orva_Si_GetDvbEitList();
    deliver(pf(0));
    deliver(pf(1));
    deliver(make(eit{.service = 7, .ts = 8, .original_network = 9}));
    forget();
    EXPECT_EQ(Orva_Si_EraseAllEitRawData(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetDvbEitList(), list);
    EXPECT_EQ(list->nb_elt, 0);
    EXPECT_TRUE(fake::logged(4, "will to remove the onid = 0x506, tsid = 0x304, servid=0x102\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "will to remove the onid = 0x9, tsid = 0x8, servid=0x7\n"));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Erasing, FreesBuffersWithTheirRoundedSize)
{
    deliver(pf(0));
    const void *buffer = records()[0]->section;
    note_frees = true;
    Orva_Si_EraseAllEitRawData();
    note_frees = false;
    EXPECT_THAT(freed, Contains(Pair(buffer, (pf(0).size() + 31) / 32 * 32)));
    EXPECT_THAT(freed, Contains(Pair(testing::_, sizeof(SiEitService))));
    EXPECT_THAT(freed, Contains(Pair(testing::_, sizeof(SiEitSection))));
}

TEST_F(Erasing, PassesOverNullElements)
{
    deliver(pf(0));
    si_list_add(services()[0]->sections, nullptr, 0);
    si_list_add(services()[0]->sections, nullptr, -1);
    si_list_add(Orva_Si_GetDvbEitList(), nullptr, 0);
    si_list_add(Orva_Si_GetDvbEitList(), nullptr, -1);
    Orva_Si_EraseAllEitRawData();
    EXPECT_THAT(services(), IsEmpty());
    EXPECT_TRUE(fake::logged(4, "the peit is null\n")) << fake::log_text();
    EXPECT_EQ(fake::times_logged("the peit is null\n"), 2U);
    EXPECT_TRUE(fake::logged(4, "the peit_section is null!!!\n")) << fake::log_text();
    EXPECT_EQ(fake::times_logged("the peit_section is null!!!\n"), 2U);
}

TEST_F(Erasing, TheStoreFillsAgain)
{
    deliver(pf(0));
    Orva_Si_EraseAllEitRawData();
    forget();
    deliver(pf(1));
    EXPECT_THAT(held(), ElementsAre(pf(1)));
    EXPECT_THAT(filter_calls, IsEmpty());
    EXPECT_THAT(notices, ElementsAre(told(pf(1))));
}

TEST_F(Erasing, MayBeDoneUnderTheControlLock)
{
    deliver(pf(0));
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_EraseAllEitRawData(), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
    EXPECT_THAT(services(), IsEmpty());
}

TEST_F(Erasing, RemovingRawDataDoesNothing)
{
    deliver(pf(0));
    EXPECT_EQ(Orva_Si_RemoveEitRawData(), ORVA_SI_OK);
    EXPECT_THAT(held(), ElementsAre(pf(0)));
}

} // namespace
