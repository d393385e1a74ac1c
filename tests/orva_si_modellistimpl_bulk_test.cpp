// SPDX-License-Identifier: LGPL-2.1-or-later
// Deletions of many tables at once, and what a hostile multiplex can make the store hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "orva_si/lifecycle.h"
#include "orva_si_model.h"
#include "support/model.h"
#include "support/store.h"
#include "support/store_fixture.h"

namespace {

unsigned memory_prints = 0;

} // namespace

extern "C" {

std::uint32_t __real_Orva_Si_PrintMemSize(void);
std::uint32_t __wrap_Orva_Si_PrintMemSize(void);

std::uint32_t __wrap_Orva_Si_PrintMemSize(void)
{
    ++memory_prints;
    return __real_Orva_Si_PrintMemSize();
}

} // extern "C"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t any = SI_ANY_EXT;
constexpr std::uint16_t pid_sdt = 0x11;
constexpr std::uint16_t pid_time = 0x14;

// ---- Bulk deletions

void list_program(std::uint16_t number, std::uint16_t pid)
{
    si::store_pmt_entry(PmtPidList, PmtPidList.count, {number, pid});
    ++PmtPidList.count;
}

using DelMissedPmtCaches = Store;

TEST_F(DelMissedPmtCaches, RemovesThePmtOfAProgramThatLeftThePat)
{
    create(0x105, 0x02, 5);
    SiTable *kept = create(0x106, 0x02, 6);
    list_program(6, 0x106);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_THAT(tables(), ElementsAre(kept));
    EXPECT_EQ(find(0x105, 0x02, 5), nullptr);
}

TEST_F(DelMissedPmtCaches, RemovesThePmtOfAProgramThatMovedToAnotherPid)
{
    create(0x105, 0x02, 5);
    list_program(5, 0x107);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(DelMissedPmtCaches, RemovesNeighboursAndTouchesNothingButPmts)
{
    SiTable *services = create(pid_sdt, 0x42, 1);
    create(0x101, 0x02, 1);
    create(0x102, 0x02, 2);
    SiTable *kept = create(0x103, 0x02, 3);
    create(0x104, 0x02, 4);
    SiTable *programs = create(0, 0x00, 1);
    create(0x105, 0x02, 5);
    list_program(3, 0x103);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_THAT(tables(), ElementsAre(services, kept, programs));
}

TEST_F(DelMissedPmtCaches, PassesOverNullElements)
{
    add_null(-1);
    create(0x101, 0x02, 1);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_THAT(tables(), ElementsAre(nullptr));
    si_list_remove(Orva_Si_GetTableList(), 0);
}

using DeleteAllPmtCaches = Store;

TEST_F(DeleteAllPmtCaches, RemovesEveryPmtWhateverThePatLists)
{
    SiTable *services = create(pid_sdt, 0x42, 1);
    create(0x101, 0x02, 1);
    create(0x102, 0x02, 2);
    SiTable *programs = create(0, 0x00, 1);
    create(0x103, 0x02, 3);
    list_program(1, 0x101);
    EXPECT_EQ(Orva_Si_DeleteAllPmtCaches(), ORVA_SI_OK);
    EXPECT_THAT(tables(), ElementsAre(services, programs));
    EXPECT_TRUE(fake::logged(4, "will remove pmtpid = 0x101, pg_num = 0x1\n"));
    EXPECT_TRUE(fake::logged(4, "will remove pmtpid = 0x102, pg_num = 0x2\n"));
    EXPECT_TRUE(fake::logged(4, "will remove pmtpid = 0x103, pg_num = 0x3\n")) << fake::log_text();
}

class LargeStore : public Store {
protected:
    LargeStore() { fake::set_log_level(0); }

    static void stuff(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
            create(pid_time, 0x72, static_cast<std::uint16_t>(i));
    }
};

TEST_F(LargeStore, ScansOf256TablesEnd)
{
    stuff(256);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_DeleteAllPmtCaches(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 256);
}

TEST_F(LargeStore, ScansReachTheLastOf255Tables)
{
    stuff(254);
    create(0x101, 0x02, 1);
    Orva_Si_DeleteAllPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 254);
    create(0x101, 0x02, 1);
    Orva_Si_DelMissedPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 254);
}

TEST_F(LargeStore, ScansReachPosition255OfALargerStore)
{
    stuff(255);
    create(0x101, 0x02, 1);
    stuff(40);
    Orva_Si_DeleteAllPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 295);
}

TEST_F(LargeStore, ARemovalGivesTheScanAnother256Positions)
{
    stuff(10);
    create(0x101, 0x02, 1);
    stuff(245);
    create(0x101, 0x02, 2); // position 256, then 255
    stuff(40);
    Orva_Si_DeleteAllPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 295);
}

TEST_F(LargeStore, ScansDoNotReachBeyondPosition255)
{
    stuff(256);
    create(0x101, 0x02, 1);
    Orva_Si_DeleteAllPmtCaches();
    Orva_Si_DelMissedPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 257);
}

TEST_F(LargeStore, RemovalsBringLaterTablesIntoReach)
{
    for (std::uint16_t i = 0; i < 10; ++i)
        create(0x100, 0x02, i);
    stuff(250);
    create(0x101, 0x02, 100); // position 260, 250 once the ten are gone
    Orva_Si_DeleteAllPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 250);
}

TEST_F(LargeStore, ScansLeaveWhatEightBitPositionsLeave)
{
    std::mt19937 random{7};
    for (unsigned round = 0; round < 60; ++round) {
        const auto size = static_cast<unsigned>(200 + random() % 400);
        const auto pmts_in_ten = static_cast<unsigned>(random() % 10);
        PmtPidList.count = 0;
        for (unsigned i = 0; i < size; ++i) {
            if (random() % 10 >= pmts_in_ten) {
                create(pid_time, 0x72, static_cast<std::uint16_t>(i));
                continue;
            }
            create(0x100, 0x02, static_cast<std::uint16_t>(i));
            if (random() % 2 == 0 && PmtPidList.count < 255)
                list_program(static_cast<std::uint16_t>(i), 0x100);
        }
        std::vector<SiTable *> expected = tables();
        scan_with_8_bit_positions(expected, [](const SiTable *table) {
            return table->table_id == 0x02 &&
                   Orva_Si_IsPmtExistedByPidAndProgNum(table->ext, table->pid) == 0;
        });
        ASSERT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
        ASSERT_EQ(tables(), expected) << "round " << round;
        scan_with_8_bit_positions(expected,
                                  [](const SiTable *table) { return table->table_id == 0x02; });
        ASSERT_EQ(Orva_Si_DeleteAllPmtCaches(), ORVA_SI_OK);
        ASSERT_EQ(tables(), expected) << "round " << round;
        Orva_Si_DeleteCaches(0);
    }
}

using DeleteCaches = Store;

TEST_F(DeleteCaches, EmptiesTheStoreWhateverItsArgument)
{
    for (const std::uint32_t mode : {0U, 1U, 0xFFFFFFFFU}) {
        store(make(pat{.ts = 1}));
        store(make(sdt{.ts = 2}));
        create(0x100, 0x02, 3);
        memory_prints = 0;
        fake::clear_log();
        EXPECT_EQ(Orva_Si_DeleteCaches(mode), ORVA_SI_OK);
        EXPECT_THAT(tables(), IsEmpty());
        EXPECT_EQ(find(SI_ANY_PID, SI_ANY_TABLE_ID, any), nullptr);
        EXPECT_EQ(memory_prints, 1U);
        EXPECT_TRUE(fake::logged(4, "pid=0, tblid=0\n"));
        EXPECT_TRUE(fake::logged(4, "pid=0x11, tblid=0x42\n"));
        EXPECT_TRUE(fake::logged(4, "pid=0x100, tblid=0x2\n")) << fake::log_text();
    }
}

TEST_F(DeleteCaches, TakesNullElementsOutToo)
{
    add_null(-1);
    create(pid_sdt, 0x42, 1);
    add_null(-1);
    EXPECT_EQ(Orva_Si_DeleteCaches(0), ORVA_SI_OK);
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(DeleteCaches, KeepsTheListItself)
{
    si_list *list = Orva_Si_GetTableList();
    create(pid_sdt, 0x42, 1);
    Orva_Si_DeleteCaches(0);
    EXPECT_EQ(Orva_Si_GetTableList(), list);
}

TEST_F(DeleteCaches, IsWhatClearCacheDoes)
{
    store(make(sdt{.ts = 2}));
    EXPECT_EQ(Orva_Si_ClearCache(), ORVA_SI_OK);
    EXPECT_THAT(tables(), IsEmpty());
    EXPECT_EQ(memory_prints, 1U);
    EXPECT_TRUE(fake::logged(4, "pid=0x11, tblid=0x42\n")) << fake::log_text();
}

// ---- Limits under a hostile multiplex

class Limits : public Store {
protected:
    static constexpr int tables_in_all = 4096;
    static constexpr int tables_of_any_kind = tables_in_all - tables_in_all / 8;
    static constexpr std::size_t bytes_in_all = 16u << 20;
    static constexpr std::size_t bytes_of_any_kind = bytes_in_all - bytes_in_all / 8;
    static constexpr std::size_t slack = bytes_in_all / 16; // what records may count

    Limits() { fake::set_log_level(0); }

    // Stuffing tables until one is refused; answers how many there were.
    static int flood_with_tables(std::uint8_t table_id = 0x72)
    {
        int count = 0;
        while (create(pid_time, table_id, static_cast<std::uint16_t>(count)) != nullptr)
            ++count;
        return count;
    }
    // Sections of the largest size until one is refused; answers how many bytes were stored.
    static std::size_t flood_with_bytes(SiTable *table)
    {
        octets section(4096, 0x55);
        section[0] = table->table_id;
        section = set_length(section, section.size() - 3);
        received record{section, table->pid};
        std::size_t bytes = 0;
        while (Orva_Si_InsertSection(table, record) == ORVA_SI_OK)
            bytes += section.size();
        return bytes;
    }
};

TEST_F(Limits, StuffingTablesLeaveAnEighthOfTheTables)
{
    EXPECT_EQ(flood_with_tables(), tables_of_any_kind);
    fake::set_log_level(5);
    EXPECT_EQ(create(pid_time, 0x72, 0), nullptr);
    EXPECT_TRUE(fake::logged(4, "no mem yet\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, tables_of_any_kind);
}

TEST_F(Limits, TheLastEighthTakesTablesOfTheTunedMultiplexOnly)
{
    flood_with_tables();
    for (const std::uint8_t table_id :
         std::to_array<std::uint8_t>({0x41, 0x46, 0x4A, 0x3E, 0x70, 0xFF, 0x4F, 0x50}))
        EXPECT_EQ(create(pid_time, table_id, 1), nullptr) << int{table_id};
    for (const std::uint8_t table_id :
         std::to_array<std::uint8_t>({0x00, 0x01, 0x02, 0x40, 0x42, 0x4E}))
        EXPECT_NE(create(pid_time, table_id, 1), nullptr) << int{table_id};
    EXPECT_EQ(flood_with_tables(0x02), tables_in_all / 8 - 6);
    EXPECT_EQ(create(0, 0x00, 1), nullptr);
}

TEST_F(Limits, ARemovedTableMakesRoomForAnother)
{
    flood_with_tables();
    remove(100);
    EXPECT_NE(create(pid_time, 0x72, 1), nullptr);
    EXPECT_EQ(create(pid_time, 0x72, 2), nullptr);
}

TEST_F(Limits, AChangeOfMultiplexMakesRoomForAll)
{
    flood_with_tables();
    Orva_Si_DeleteCaches(0);
    EXPECT_EQ(flood_with_tables(), tables_of_any_kind);
    recreate_store();
    EXPECT_EQ(flood_with_tables(), tables_of_any_kind);
}

TEST_F(Limits, RefusedTablesTakeNoRoom)
{
    for (int i = 0; i < 5000; ++i) {
        fake::fail_allocation(1 + static_cast<unsigned>(i % 3));
        ASSERT_EQ(create(pid_time, 0x72, 1), nullptr);
    }
    EXPECT_EQ(flood_with_tables(), tables_of_any_kind);
}

TEST_F(Limits, StuffingSectionsLeaveAnEighthOfTheBytes)
{
    SiTable *stuffing = create(pid_time, 0x72, 1);
    const std::size_t stored = flood_with_bytes(stuffing);
    EXPECT_LE(stored, bytes_of_any_kind);
    EXPECT_GE(stored, bytes_of_any_kind - slack);
    const auto held = static_cast<std::size_t>(stuffing->psect_list->nb_elt);
    EXPECT_EQ(held * 4096, stored);

    fake::set_log_level(5);
    EXPECT_EQ(Orva_Si_InsertSection(stuffing, received{octets(4096, 0xFF), pid_time}),
              ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, "fatal error: cant malloc memory!!!\n")) << fake::log_text();
    fake::set_log_level(0);

    const std::size_t reserve = flood_with_bytes(create(0, 0x00, 1));
    EXPECT_LE(stored + reserve, bytes_in_all);
    EXPECT_GE(stored + reserve, bytes_in_all - slack);
}

TEST_F(Limits, EveryWayOutGivesTheBytesBack)
{
    SiTable *stuffing = create(pid_time, 0x72, 1);
    const std::size_t stored = flood_with_bytes(stuffing);

    auto *one = static_cast<SiSection *>(si_list_get(stuffing->psect_list, 7));
    ASSERT_EQ(Orva_Si_RemoveSectInTable(stuffing, one), ORVA_SI_OK);
    EXPECT_EQ(flood_with_bytes(stuffing), 4096U);

    Orva_Si_RemoveTableSections(stuffing);
    EXPECT_EQ(flood_with_bytes(stuffing), stored);

    remove(0);
    stuffing = create(pid_time, 0x72, 1);
    EXPECT_EQ(flood_with_bytes(stuffing), stored);

    Orva_Si_DeleteCaches(0);
    stuffing = create(pid_time, 0x72, 1);
    EXPECT_EQ(flood_with_bytes(stuffing), stored);

    recreate_store();
    stuffing = create(pid_time, 0x72, 1);
    EXPECT_EQ(flood_with_bytes(stuffing), stored);
}

TEST_F(Limits, RefusedSectionsTakeNoRoom)
{
    SiTable *stuffing = create(pid_time, 0x72, 1);
    octets section = set_length(octets(4096, 0x55), 4093);
    received record{section, pid_time};
    for (unsigned i = 0; i < 9000; ++i) {
        fake::fail_allocation(1 + i % 3);
        ASSERT_EQ(Orva_Si_InsertSection(stuffing, record), ORVA_SI_FAILURE);
    }
    EXPECT_GE(flood_with_bytes(stuffing), bytes_of_any_kind - slack);
}

} // namespace
