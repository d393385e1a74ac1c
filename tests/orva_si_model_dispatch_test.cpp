// SPDX-License-Identifier: LGPL-2.1-or-later
// The road of a section through the dispatcher.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "orva_si/filter.h"
#include "support/dispatcher.h"

namespace {

using namespace test;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint16_t pid_nit = 0x10;
constexpr std::uint16_t pid_pat = 0x00;
constexpr std::uint16_t pid_cat = 0x01;
constexpr std::uint16_t pid_sdt = 0x11;
constexpr std::uint16_t pid_eit = 0x12;
constexpr std::uint16_t pid_time = 0x14;
constexpr std::uint16_t pid_data = 0x200;

// ---- Entry checks

using ProcessModel = Dispatcher;

TEST_F(ProcessModel, ANullRecordIsNoFailure)
{
    EXPECT_EQ(Si_Model_ProcessModel(nullptr), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, "bad pointer\n")) << fake::log_text();
}

TEST_F(ProcessModel, ARecordWithoutBytesIsNoFailure)
{
    SiSection record{};
    record.sect_len = 100;
    EXPECT_EQ(Si_Model_ProcessModel(&record), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(2, "bad pointer\n")) << fake::log_text();
}

TEST_F(ProcessModel, RefusesASectionLongerThanItsBuffer)
{
    octets section = make(private_table{.table_id = 0x42, .extension = 1, .payload = octets(80)});
    section.resize(100);
    section = set_length(section, 98);
    EXPECT_EQ(deliver(section, pid_sdt, 12), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "The section length is larger than the buffer size: 101 - 100, "
                                "table_id=0x42, pid=0x11, filter_id=12\n"))
        << fake::log_text();
    EXPECT_THAT(tables(), IsEmpty());
    EXPECT_EQ(Orva_Si_IsGotSection(), 0U);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ProcessModel, TakesASectionThatFillsItsBuffer)
{
    EXPECT_EQ(deliver(set_length(octets(101, 0x42), 98), pid_sdt), ORVA_SI_OK);
    EXPECT_THAT(tables(), SizeIs(1));
}

TEST_F(ProcessModel, TakesTwelveBitsOfSectionLength)
{
    octets section = services(0, 0);
    section[1] |= 0xF0;
    EXPECT_EQ(deliver(section), ORVA_SI_OK);
    EXPECT_THAT(tables(), SizeIs(1));
}

TEST_F(ProcessModel, RefusesABufferWithoutAHeader)
{
    for (std::uint16_t size = 0; size < 3; ++size) {
        forget();
        octets buffer{0x42, 0x00};
        received record{octets(buffer.begin(), buffer.begin() + size), pid_sdt};
        std::uint8_t nothing = 0;
        if (size == 0)
            record->section = &nothing;
        EXPECT_EQ(Si_Model_ProcessModel(record), ORVA_SI_FAILURE) << size;
        const auto lines = fake::log_lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const fake::log_line &line) {
            return line.level == 1 &&
                   line.text.starts_with("The section length is larger than the buffer size: ");
        })) << fake::log_text();
        EXPECT_THAT(tables(), IsEmpty());
    }
}

TEST_F(ProcessModel, TracesWhatItGot)
{
    const octets section = services(0, 0);
    deliver(section);
    EXPECT_TRUE(fake::logged(4, "Generic section\n")) << fake::log_text();
    const auto length = static_cast<unsigned>(section.size());
    EXPECT_TRUE(fake::logged(4, text("section pid = 0x11, tableid = 0x42, section length = %#x\n",
                                     length)) ||
                fake::logged(4, text("section pid = 0x11, tableid = 0x42, section length = %#x\n",
                                     length - 3)))
        << fake::log_text();
}

TEST_F(ProcessModel, TracesSectionsOfTheTimePidAsPrivate)
{
    deliver(make(private_table{.table_id = 0x72}), pid_time);
    EXPECT_TRUE(fake::logged(4, "Ungeneric private section\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("Generic section\n"));
}

TEST_F(ProcessModel, ReportsEverySectionAsDetected)
{
    EXPECT_EQ(Orva_Si_IsGotSection(), 0U);
    deliver(make(nit{.network = 1, .last_section_number = 5}));
    EXPECT_EQ(Orva_Si_IsDetectActNIT(), 1U);
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 0U);
    deliver(services(3, 9));
    EXPECT_EQ(Orva_Si_IsDetectActSDT(), 1U);
}

// ---- Routing

using Routing = Dispatcher;

TEST_F(Routing, HandsDsmccSectionsOfARequestedPidToTheClient)
{
    Orva_Si_StartDsmFilter(pid_data);
    ASSERT_EQ(Si_SectFlt_IsDsmccPid(pid_data), 1U);
    for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x3B, 0x3C, 0x3D})) {
        forget();
        const octets section = make(private_table{.table_id = table_id, .payload = octets(20)});
        octets delivered = section;
        delivered.resize(section.size() + 7);
        received record{delivered, pid_data};
        EXPECT_EQ(Si_Model_ProcessModel(record), ORVA_SI_OK);
        ASSERT_THAT(reasons(), ElementsAre(SI_REASON_DSMCC));
        EXPECT_EQ(events[0].dsmcc.pid, pid_data);
        EXPECT_EQ(events[0].dsmcc.length, section.size());
        EXPECT_EQ(events[0].dsmcc.section, record->section);
        const auto trace = [&](std::size_t length) {
            return fake::logged(4,
                                text("DSMCC section psection->pid=%#x tableid=%#x sect_len=%#x\n",
                                     pid_data, table_id, static_cast<unsigned>(length)));
        };
        EXPECT_TRUE(trace(delivered.size()) || trace(section.size())) << fake::log_text();
    }
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(Routing, StoresOtherTableIdsOfADsmccPid)
{
    Orva_Si_StartDsmFilter(pid_data);
    for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x38, 0x3A, 0x3E, 0x3F}))
        EXPECT_EQ(deliver(make(private_table{.table_id = table_id}), pid_data), ORVA_SI_OK);
    EXPECT_THAT(tables(), SizeIs(4));
    EXPECT_THAT(reasons(), testing::Not(testing::Contains(SI_REASON_DSMCC)));
}

TEST_F(Routing, StoresDsmccSectionsOfAPidThatNobodyRequested)
{
    EXPECT_EQ(deliver(make(private_table{.table_id = 0x3B}), pid_data), ORVA_SI_OK);
    EXPECT_NE(find(pid_data, 0x3B, 1), nullptr);
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_OTHER_TABLE));
}

TEST_F(Routing, HandsTheTimeTablesOn)
{
    EXPECT_EQ(deliver(make(tdt{.mjd = 40587, .utc_bcd = 0x000001}), pid_time), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "post time section ret = 0\n")) << fake::log_text();
    EXPECT_EQ(deliver(make(tot{.mjd = 40587, .utc_bcd = 0x000002}), pid_time), ORVA_SI_OK);
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_TIME_FROM_TDT, SI_REASON_TIME_FROM_TOT));
    EXPECT_EQ(events.at(0).value, 1U);
    EXPECT_EQ(events.at(1).value, 2U);
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(Routing, AnswersWhatTheTimeTablesAnswer)
{
    EXPECT_EQ(deliver(damage(make(tot{})), pid_time), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(4, "post time section ret = 0x1\n")) << fake::log_text();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Routing, StoresTheStuffingTableOfTheTimePid)
{
    EXPECT_EQ(deliver(make(private_table{.table_id = 0x72}), pid_time), ORVA_SI_OK);
    EXPECT_EQ(deliver(make(private_table{.table_id = 0x71}), pid_time), ORVA_SI_OK);
    EXPECT_NE(find(pid_time, 0x72, 1), nullptr);
    EXPECT_NE(find(pid_time, 0x71, 1), nullptr);
}

TEST_F(Routing, StoresTimeTablesOfAnotherPid)
{
    EXPECT_EQ(deliver(make(tdt{}), 0x15), ORVA_SI_OK);
    EXPECT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(reasons(), testing::Not(testing::Contains(SI_REASON_TIME_FROM_TDT)));
}

TEST_F(Routing, HandsEventTablesToTheEventStore)
{
    for (unsigned table_id = 0x4E; table_id <= 0x6F; ++table_id)
        EXPECT_EQ(deliver(make(eit{.table_id = static_cast<std::uint8_t>(table_id),
                                   .service = static_cast<std::uint16_t>(table_id)})),
                  ORVA_SI_OK);
    EXPECT_THAT(tables(), IsEmpty());
    EXPECT_THAT(services_with_events(), SizeIs(0x6F - 0x4E + 1));
}

TEST_F(Routing, StoresTheNeighboursOfTheEventTables)
{
    deliver(make(private_table{.table_id = 0x4D}), pid_eit);
    deliver(make(private_table{.table_id = 0x70}), pid_eit);
    EXPECT_THAT(tables(), SizeIs(2));
    EXPECT_THAT(tables(), Each(Field(&SiTable::completed, 0)));
    EXPECT_THAT(services_with_events(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Routing, StoresEventTablesOfAnotherPid)
{
    deliver(make(eit{.table_id = 0x4E, .service = 9}), pid_sdt);
    EXPECT_NE(find(pid_sdt, 0x4E, 9), nullptr);
    EXPECT_THAT(services_with_events(), IsEmpty());
}

TEST_F(Routing, StoresEverythingElse)
{
    for (const std::uint8_t table_id :
         std::to_array<std::uint8_t>({0x00, 0x01, 0x02, 0x3E, 0x40, 0x41, 0x42, 0x46, 0x4A, 0x80}))
        EXPECT_EQ(deliver(make(private_table{.table_id = table_id, .extension = 7})), ORVA_SI_OK);
    EXPECT_THAT(tables(), SizeIs(10));
}

// ---- Event tables

struct folding_case {
    std::uint8_t received;
    std::uint8_t stored;
};

class EventTable : public Dispatcher, public testing::WithParamInterface<folding_case> {};

TEST_P(EventTable, IsStoredUnderTheFoldedTableId)
{
    deliver(make(eit{.table_id = GetParam().received, .section_number = 1}));
    EXPECT_THAT(event_table_ids(), ElementsAre(GetParam().stored));
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].eit.table_id, GetParam().stored);
    EXPECT_EQ(events[0].eit.section_number, 1);
}

INSTANTIATE_TEST_SUITE_P(Ids, EventTable,
                         testing::Values(folding_case{0x4E, 0x4E}, folding_case{0x4F, 0x4E},
                                         folding_case{0x50, 0x50}, folding_case{0x5F, 0x5F},
                                         folding_case{0x60, 0x50}, folding_case{0x65, 0x55},
                                         folding_case{0x6F, 0x5F}),
                         [](const auto &of) { return text("Id%x", of.param.received); });

using HandleEitTables = Dispatcher;

TEST_F(HandleEitTables, TakesTheIdsFromTheSection)
{
    const octets section = make(eit{.service = 0x0102, .ts = 0x0304, .original_network = 0x0506});
    EXPECT_EQ(Si_Model_HandleEitTables(received{section, pid_eit}), ORVA_SI_OK);
    ASSERT_THAT(services_with_events(), SizeIs(1));
    EXPECT_EQ(services_with_events()[0]->service_id, 0x0102);
    EXPECT_EQ(services_with_events()[0]->transport_stream_id, 0x0304);
    EXPECT_EQ(services_with_events()[0]->original_network_id, 0x0506);
    EXPECT_TRUE(fake::logged(4, "transport_stream_id=0x304, orignal_network_id=0x506\n"))
        << fake::log_text();
    const auto length = static_cast<unsigned>(section.size());
    EXPECT_TRUE(fake::logged(4, text("section_length =%#x\n", length)) ||
                fake::logged(4, text("section_length =%#x\n", length - 3)))
        << fake::log_text();
    const auto stored = elements_of<SiEitSection>(services_with_events()[0]->sections);
    ASSERT_THAT(stored, SizeIs(1));
    EXPECT_EQ(stored[0]->sect_len, section.size());
}

TEST_F(HandleEitTables, RefusesARecordWithoutBytes)
{
    SiSection record{};
    record.pid = pid_eit;
    EXPECT_EQ(Si_Model_HandleEitTables(&record), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psect->section!=NULL\n")) << fake::log_text();
}

TEST_F(HandleEitTables, RefusesAnotherPid)
{
    EXPECT_EQ(Si_Model_HandleEitTables(received{make(eit{}), 0x13}), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "wrong eit pid\n")) << fake::log_text();
    EXPECT_THAT(services_with_events(), IsEmpty());
}

TEST_F(HandleEitTables, DoesNotNeedTheControlLock)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(deliver(make(eit{})), ORVA_SI_OK);
    EXPECT_EQ(deliver(make(tdt{}), pid_time), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

// ---- Short sections: nothing behind the buffer is read, missing bytes count as 0

struct short_case {
    std::uint16_t pid;
    std::uint8_t table_id;
};

// GoogleTest would print its bytes, of which one is nobody's.
void PrintTo(const short_case &of, std::ostream *to)
{
    *to << of.pid << ' ' << unsigned{of.table_id};
}

class ShortSection : public Dispatcher, public testing::WithParamInterface<short_case> {};

TEST_P(ShortSection, IsTakenWithoutReadingBehindIt)
{
    for (std::size_t size = 3; size < 16; ++size) {
        octets section = set_length(octets(size, 0x11), size - 3);
        section[0] = GetParam().table_id;
        EXPECT_EQ(deliver(section, GetParam().pid), ORVA_SI_OK) << size;
        EXPECT_EQ(deliver(section, GetParam().pid), ORVA_SI_OK) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ShortSection,
                         testing::Values(short_case{pid_pat, 0x00}, short_case{pid_cat, 0x01},
                                         short_case{0x100, 0x02}, short_case{pid_nit, 0x40},
                                         short_case{pid_sdt, 0x42}, short_case{pid_sdt, 0x4A},
                                         short_case{pid_eit, 0x4D}, short_case{pid_eit, 0x4E},
                                         short_case{pid_eit, 0x4F}, short_case{pid_eit, 0x50},
                                         short_case{pid_eit, 0x60}, short_case{pid_time, 0x72}),
                         [](const auto &of) {
                             return text("Pid%xId%x", of.param.pid, of.param.table_id);
                         });

TEST_F(Dispatcher, MissingBytesOfAShortSectionCountAsZero)
{
    deliver({0x72, 0x70, 0x00}, pid_time);
    deliver({0x72, 0x70, 0x01, 0xAB}, pid_time);
    ASSERT_THAT(tables(), SizeIs(2));
    EXPECT_EQ(tables()[0]->ext, 0);
    EXPECT_EQ(tables()[0]->last_section_number, 0);
    EXPECT_EQ(tables()[0]->completed, 1);
    EXPECT_EQ(tables()[1]->ext, 0xAB00);
}

// ---- Table branch

using CollectTables = Dispatcher;

TEST_F(CollectTables, StoresACompleteTableAndTellsTheClient)
{
    EXPECT_EQ(deliver(services(0, 0), pid_sdt, 4), ORVA_SI_OK);
    SiTable *table = find(pid_sdt, 0x42, 1);
    ASSERT_NE(table, nullptr);
    EXPECT_THAT(sections_of(table), ElementsAre(services(0, 0)));
    EXPECT_EQ(table->completed, 1);
    ASSERT_THAT(reasons(), ElementsAre(SI_REASON_SDT));
    EXPECT_EQ(events[0].data, 1U);
    EXPECT_TRUE(fake::logged(5, "Collect table: 0x42!\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, text("ptbl = %#x, psectb = %#x\n", address(table), 0U)));
    EXPECT_TRUE(fake::logged(5, "Insert table 0x42, ext_id: 0x1\n"));
    EXPECT_TRUE(
        fake::logged(5, "Notify table :0x42 update, filter_id: 4, pid: 0x11, ext_id: 0x1!\n"));
    EXPECT_TRUE(fake::logged(4, "ret = 0\n"));
}

// It is exported, so a caller may come without the dispatcher's checks.
TEST_F(CollectTables, StoresNothingOfARecordThatTheDispatcherWouldRefuse)
{
    SiSection without_bytes{};
    without_bytes.pid = pid_sdt;
    Si_Model_CollectTables(nullptr);
    Si_Model_CollectTables(&without_bytes);
    for (const std::size_t size : {1U, 2U, 3U, 19U}) {
        octets section = services(0, 0);
        section.resize(size);
        Si_Model_CollectTables(received{section, pid_sdt});
    }
    EXPECT_THAT(tables(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(CollectTables, TellsNothingOfAnIncompleteTable)
{
    EXPECT_EQ(deliver(services(1, 1)), ORVA_SI_OK);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(find(pid_sdt, 0x42, 1)->completed, 0);
}

TEST_F(CollectTables, TellsOfACompleteTableAgainWhenMoreArrivesThatCompletesIt)
{
    deliver(services(0, 0));
    deliver(services(1, 1));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_SDT, SI_REASON_SDT));
}

TEST_F(CollectTables, ARepeatChangesNothing)
{
    deliver(services(0, 0));
    SiTable *table = find(pid_sdt, 0x42, 1);
    const auto *held = static_cast<SiSection *>(si_list_get(table->psect_list, 0));
    forget();
    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_OK);
    EXPECT_THAT(elements_of<SiSection>(table->psect_list), ElementsAre(held));
    EXPECT_THAT(events, IsEmpty());
    EXPECT_TRUE(fake::logged(4, "got the existed and same crc section\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, text("ptbl = %#x, psectb = %#x\n", address(table), address(held))));
}

TEST_F(CollectTables, ARepeatIsKnownByItsCrcAlone)
{
    deliver(services(0, 0));
    octets other = services(0, 0);
    other[12] ^= 0x55; // the CRC_32 field stays
    deliver(other);
    EXPECT_THAT(sections_of(find(pid_sdt, 0x42, 1)), ElementsAre(services(0, 0)));
}

TEST_F(CollectTables, ANewVersionStartsTheTableAfresh)
{
    deliver(services(0, 1));
    deliver(services(1, 1));
    ASSERT_THAT(reasons(), ElementsAre(SI_REASON_SDT));
    SiTable *table = find(pid_sdt, 0x42, 1);
    forget();

    const octets next = services(1, 1, 1);
    EXPECT_EQ(deliver(next), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, text("got the existed but found the crc is different, %#x: %#x\n",
                                     crc_of(next), crc_of(services(1, 1)))))
        << fake::log_text();
    EXPECT_EQ(find(pid_sdt, 0x42, 1), table);
    EXPECT_THAT(sections_of(table), ElementsAre(next));
    EXPECT_EQ(table->completed, 0);
    EXPECT_EQ(table->sect_map[0], 0x02);
    EXPECT_THAT(events, IsEmpty());

    deliver(services(0, 1, 1));
    EXPECT_EQ(table->completed, 1);
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_SDT));
}

TEST_F(CollectTables, TwoNetworksWithOneStreamIdShareATable)
{
    const octets first = make(sdt{.table_id = 0x46, .ts = 7, .original_network = 1});
    const octets second = make(sdt{.table_id = 0x46, .ts = 7, .original_network = 2});
    const octets third = make(sdt{.table_id = 0x46,
                                  .ts = 7,
                                  .original_network = 3,
                                  .section_number = 1,
                                  .last_section_number = 1});
    deliver(first);
    deliver(second);
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(sections_of(tables()[0]), ElementsAre(second));
    deliver(third);
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(sections_of(tables()[0]), ElementsAre(second, third));
}

TEST_F(CollectTables, AnExtensionOfAllOnesFallsIntoTheFirstTable)
{
    deliver(make(bat{.bouquet = 5, .last_section_number = 1}));
    deliver(make(bat{.bouquet = 0xFFFF, .section_number = 1, .last_section_number = 1}));
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_EQ(tables()[0]->ext, 5);
    EXPECT_EQ(tables()[0]->completed, 1);
    ASSERT_THAT(reasons(), ElementsAre(SI_REASON_BAT));
    EXPECT_EQ(events[0].data, 5U);
}

TEST_F(CollectTables, ATableIdOfAllOnesFallsIntoTheFirstTableOfItsExtension)
{
    deliver(make(bat{.bouquet = 4}));
    deliver(make(bat{.bouquet = 5, .last_section_number = 1}));
    deliver(make(private_table{
                .table_id = 0xFF, .extension = 5, .section_number = 1, .last_section_number = 1}),
            pid_sdt);
    ASSERT_THAT(tables(), SizeIs(2));
    EXPECT_THAT(sections_of(tables()[1]), SizeIs(2));
    EXPECT_EQ(tables()[1]->completed, 1);
}

TEST_F(CollectTables, AnotherStreamEmptiesBothStoresBeforeThePatIsStored)
{
    deliver(make(pat{.ts = 1}));
    deliver(services(0, 0));
    deliver(make(nit{.network = 3}));
    deliver(make(eit{}));
    ASSERT_THAT(tables(), SizeIs(3));
    ASSERT_THAT(services_with_events(), SizeIs(1));
    forget();

    EXPECT_EQ(deliver(make(pat{.ts = 2})), ORVA_SI_OK);
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_EQ(tables()[0]->ext, 2);
    EXPECT_EQ(tables()[0]->completed, 1);
    EXPECT_THAT(services_with_events(), IsEmpty());
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_PAT));
    EXPECT_TRUE(fake::logged(3, "the stream changed, so we delete all saved rawdata, pid: 0, "
                                "table_id: 0, ext_id: 0x2\n"))
        << fake::log_text();
}

TEST_F(CollectTables, AnotherNetworkOrServiceTableOfTheTunedStreamIsAChangeToo)
{
    deliver(make(nit{.network = 1}));
    deliver(make(nit{.network = 2}));
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_TRUE(fake::logged(3, "the stream changed, so we delete all saved rawdata, pid: 0x10, "
                                "table_id: 0x40, ext_id: 0x2\n"))
        << fake::log_text();
    deliver(make(sdt{.ts = 1}));
    ASSERT_THAT(tables(), SizeIs(2));
    deliver(make(sdt{.ts = 2}));
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_EQ(tables()[0]->ext, 2);
}

TEST_F(CollectTables, OtherNetworksAndServiceTablesLiveSideBySide)
{
    deliver(make(nit{.network = 1}));
    deliver(make(nit{.table_id = 0x41, .network = 2}));
    deliver(make(nit{.table_id = 0x41, .network = 3}));
    deliver(make(sdt{.ts = 1}));
    deliver(make(sdt{.table_id = 0x46, .ts = 2}));
    deliver(make(bat{.bouquet = 3}));
    deliver(make(bat{.bouquet = 4}));
    EXPECT_THAT(tables(), SizeIs(7));
}

TEST_F(CollectTables, AnswersFourWithoutMemoryForTheTable)
{
    for (const unsigned n : {1U, 2U, 3U}) {
        fake::clear_log();
        fake::fail_allocation(n);
        EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_NO_TABLE);
        EXPECT_TRUE(fake::logged(2, "no mem yet\n")) << fake::log_text();
        EXPECT_TRUE(fake::logged(4, "ret = 0x4\n"));
        EXPECT_THAT(tables(), IsEmpty());
    }
    EXPECT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_OK);
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_SDT));
}

TEST_F(CollectTables, LeavesAnEmptyTableWithoutMemoryForTheSection)
{
    fake::fail_allocations_from(4);
    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_FAILURE);
    fake::fail_allocation(0);
    EXPECT_TRUE(fake::logged(2, "can't insert psect = 0x42, ext_id: 0x1 to table list.\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "ret = 0x1\n"));
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(sections_of(tables()[0]), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);

    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_OK);
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_SDT));
}

TEST_F(CollectTables, LosesTheOldVersionWithoutMemoryForTheNewOne)
{
    deliver(services(0, 0));
    forget();
    fake::fail_allocation(1);
    EXPECT_EQ(deliver(services(0, 0, 1)), ORVA_SI_FAILURE);
    ASSERT_THAT(tables(), SizeIs(1));
    EXPECT_THAT(sections_of(tables()[0]), IsEmpty());
    EXPECT_EQ(tables()[0]->completed, 0);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(CollectTables, RefusesStuffingTablesBeyondTheLimitAndGoesOnWithTheTunedStream)
{
    fake::set_log_level(0);
    std::uint32_t result = ORVA_SI_OK;
    unsigned stored = 0;
    for (; result == ORVA_SI_OK; ++stored)
        result = deliver(
            make(private_table{.table_id = 0x72, .extension = static_cast<std::uint16_t>(stored)}),
            pid_time);
    EXPECT_EQ(result, ORVA_SI_NO_TABLE);
    EXPECT_EQ(stored - 1, 3584U);
    events.clear();
    EXPECT_EQ(deliver(make(sdt{.table_id = 0x46, .ts = 2})), ORVA_SI_NO_TABLE);
    EXPECT_EQ(deliver(make(pat{.ts = 1})), ORVA_SI_OK);
    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_OK);
    EXPECT_EQ(deliver(make(pat{.ts = 2})), ORVA_SI_OK); // all go
    EXPECT_EQ(deliver(make(sdt{.table_id = 0x46, .ts = 2})), ORVA_SI_OK);
    EXPECT_THAT(reasons(), ElementsAre(SI_REASON_PAT, SI_REASON_SDT, SI_REASON_PAT, SI_REASON_SDT));
}

TEST_F(CollectTables, WaitsForTheControlLock)
{
    std::atomic<bool> stored{false};
    Orva_MutexP(&Ts_Ctl_Mutex);
    std::thread section_thread{[&] {
        deliver(services(0, 0));
        stored = true;
    }};
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    EXPECT_FALSE(stored);
    EXPECT_THAT(tables(), IsEmpty());
    Orva_MutexV(&Ts_Ctl_Mutex);
    section_thread.join();
    EXPECT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

// ---- Notification

using Notification = Dispatcher;

TEST_F(Notification, ComesWithoutTheControlLock)
{
    deliver(services(0, 0));
    deliver(make(pat{.ts = 1}));
    deliver(make(pmt{.program = 1}));
    deliver(make(cat{}));
    ASSERT_THAT(events, SizeIs(4));
    EXPECT_THAT(events, Each(Field(&event::ctl_was_free, true)));
}

TEST_F(Notification, CarriesTheIdsOfTheTable)
{
    deliver(make(pat{.ts = 1}));
    deliver(make(pmt{.program = 0x345}));
    deliver(make(nit{.network = 0x12}));
    deliver(make(bat{.bouquet = 0x34}));
    deliver(make(cat{}));
    ASSERT_THAT(reasons(), ElementsAre(SI_REASON_PAT, SI_REASON_PMT, SI_REASON_NIT, SI_REASON_BAT,
                                       SI_REASON_CAT));
    EXPECT_EQ(events[0].data, frequency);
    EXPECT_EQ(events[1].pmt.program_number, 0x345);
    EXPECT_EQ(events[1].pmt.frequency, frequency);
    EXPECT_EQ(events[2].data, 0x12U);
    EXPECT_EQ(events[3].data, 0x34U);
    EXPECT_EQ(events[4].data, 0xFFFFU);
}

// A client may empty the store inside its callback; the table just stored is then gone.
TEST_F(Notification, MayEmptyTheStore)
{
    during_event = [] {
        Orva_MutexP(&Ts_Ctl_Mutex);
        Orva_Si_DeleteCaches(0);
        Orva_MutexV(&Ts_Ctl_Mutex);
    };
    for (const octets &section : {services(0, 0), make(pat{.ts = 1}), make(pmt{.program = 1}),
                                  make(cat{}), make(nit{.network = 1}), make(bat{.bouquet = 1})}) {
        EXPECT_EQ(deliver(section), ORVA_SI_OK);
        EXPECT_THAT(tables(), IsEmpty());
    }
    EXPECT_THAT(events, SizeIs(6));
}

TEST_F(Notification, ComesToNothingOnceTheClientHasStopped)
{
    Orva_Si_ResetCtlFlag();
    EXPECT_EQ(deliver(services(0, 0)), ORVA_SI_OK);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(find(pid_sdt, 0x42, 1)->completed, 1);
}

TEST_F(Notification, GoesToTheScanWhileScanning)
{
    tune(0);
    forget();
    deliver(services(0, 0));
    deliver(make(pat{.ts = 1}));
    EXPECT_THAT(events, IsEmpty());
    EXPECT_TRUE(fake::logged(3, "sdt act is ready\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(3, "pat is ready\n")) << fake::log_text();
}

} // namespace
