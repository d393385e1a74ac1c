// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "orva_si/os.h"
#include "orva_si_alloc.h"
#include "support/model.h"
#include "support/store.h"
#include "support/store_fixture.h"

namespace {

const pthread_mutex_t *mutex_that_fails = nullptr;
std::vector<const pthread_mutex_t *> mutexes_made;

} // namespace

extern "C" {

std::uint32_t __real_Orva_InitMutex(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_InitMutex(pthread_mutex_t *mutex);

std::uint32_t __wrap_Orva_InitMutex(pthread_mutex_t *mutex)
{
    mutexes_made.push_back(mutex);
    return mutex == mutex_that_fails ? std::uint32_t{ORVA_SI_FAILURE}
                                     : __real_Orva_InitMutex(mutex);
}

} // extern "C"

namespace {

using namespace test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr std::uint16_t any = SI_ANY_EXT;
constexpr std::uint16_t pid_nit = 0x10;
constexpr std::uint16_t pid_sdt = 0x11;
constexpr std::uint16_t pid_eit = 0x12;
constexpr std::uint16_t pid_time = 0x14;

// ---- Start and end of the store

TEST(InitTables, CreatesEmptyListsAndTheThreeLocksInOrder)
{
    EXPECT_EQ(Orva_Si_GetTableList(), nullptr);
    EXPECT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    ASSERT_EQ(Orva_Si_InitTables(), ORVA_SI_OK);
    ASSERT_NE(Orva_Si_GetTableList(), nullptr);
    ASSERT_NE(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 0);
    EXPECT_EQ(Orva_Si_GetDvbEitList()->nb_elt, 0);
    EXPECT_THAT(mutexes_made, ElementsAre(&Ts_Ctl_Mutex, &Ts_Time_Mutex, &Ts_Eit_Mutex));
}

TEST(InitTables, FailsWithoutMemoryForTheTableList)
{
    fake::fail_allocation(1);
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Init tables list error\n")) << fake::log_text();
    EXPECT_THAT(mutexes_made, IsEmpty());
}

TEST(InitTables, FailsWithoutMemoryForTheEventList)
{
    fake::fail_allocation(2);
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Init tables list error\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_THAT(mutexes_made, IsEmpty());
}

TEST(InitTables, ReportsTheControlLock)
{
    mutex_that_fails = &Ts_Ctl_Mutex;
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Create the control mutex error\n")) << fake::log_text();
    EXPECT_THAT(mutexes_made, ElementsAre(&Ts_Ctl_Mutex));
}

TEST(InitTables, ReportsTheTimeLockWithTheTextOfTheControlLock)
{
    mutex_that_fails = &Ts_Time_Mutex;
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Create the control mutex error\n")) << fake::log_text();
    EXPECT_THAT(mutexes_made, ElementsAre(&Ts_Ctl_Mutex, &Ts_Time_Mutex));
}

TEST(InitTables, ReportsTheEventLockAndKeepsWhatItMade)
{
    mutex_that_fails = &Ts_Eit_Mutex;
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Create the eit mutex error\n")) << fake::log_text();
    EXPECT_NE(Orva_Si_GetTableList(), nullptr);
    EXPECT_NE(Orva_Si_GetDvbEitList(), nullptr);
}

TEST_F(Store, GivesTheListItself)
{
    SiTable *table = create(pid_sdt, 0x42, 7);
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 1);
    EXPECT_EQ(si_list_get(Orva_Si_GetTableList(), 0), table);
}

TEST_F(Store, DestructionFreesEveryTableAndForgetsTheList)
{
    store(make(sdt{.ts = 1}));
    store(make(sdt{.table_id = 0x46, .ts = 2}));
    EXPECT_EQ(Orva_Si_DestorySectModel(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetTableList(), nullptr);
}

TEST(DestroyedStore, IsAnsweredWithTheFailureOfEachFunction)
{
    EXPECT_EQ(Orva_Si_DestorySectModel(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_FindTableById(SI_ANY_PID, SI_ANY_TABLE_ID, any, any, any), nullptr);
    EXPECT_EQ(Orva_Si_DelMissedPmtCaches(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_DeleteAllPmtCaches(), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_DeleteCaches(0), ORVA_SI_OK);
}

TEST(DestroyedStore, CanBeCreatedAgain)
{
    init_store();
    store(make(sdt{.ts = 1}));
    recreate_store();
    EXPECT_EQ(Orva_Si_FindTableById(0x11, 0x42, 1, any, any), nullptr);
    SiTable *table = store(make(sdt{.ts = 1}));
    EXPECT_EQ(Orva_Si_FindTableById(0x11, 0x42, 1, any, any), table);
    end_store();
}

// ---- Creation

using CreateTable = Store;

TEST_F(CreateTable, TakesExtensionAndLastNumberFromTheSectionAndStartsEmpty)
{
    SiTable *table = Orva_Si_CreateTable(pid_sdt, 0x42, first_section(0x42, 0xA1B2, 9).data());
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->pid, pid_sdt);
    EXPECT_EQ(table->table_id, 0x42);
    EXPECT_EQ(table->ext, 0xA1B2);
    EXPECT_EQ(table->last_section_number, 9);
    EXPECT_THAT(table->sect_map, Each(0));
    EXPECT_EQ(table->completed, 0);
    EXPECT_EQ(table->crc, 0U);
    ASSERT_NE(table->psect_list, nullptr);
    EXPECT_EQ(table->psect_list->nb_elt, 0);
    EXPECT_TRUE(fake::logged(4, "add table: pid = 0x11, table id = 0x42\n")) << fake::log_text();
}

TEST_F(CreateTable, GoesByItsArgumentsNotByTheBytesForPidAndTableId)
{
    SiTable *table = Orva_Si_CreateTable(0x1234, 0x77, first_section(0x42, 1).data());
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->pid, 0x1234);
    EXPECT_EQ(table->table_id, 0x77);
}

TEST_F(CreateTable, AppendsInOrderOfCreation)
{
    SiTable *third = create(pid_sdt, 0x46, 3);
    SiTable *first = create(0, 0, 1);
    SiTable *second = create(pid_sdt, 0x42, 2);
    EXPECT_THAT(tables(), ElementsAre(third, first, second));
}

TEST_F(CreateTable, OnTheEventPidKeepsBytesEightToElevenAsExtensions)
{
    const octets section = make(eit{.service = 5, .ts = 0x0102, .original_network = 0x0304});
    SiTable *table = Orva_Si_CreateTable(pid_eit, 0x4E, section.data());
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->ext, 5);
    EXPECT_EQ(table->ext1, 0x0102);
    EXPECT_EQ(table->ext2, 0x0304);
    EXPECT_TRUE(fake::logged(4, "ext_id1 = 0x102, ext_id2=0x304\n")) << fake::log_text();
}

TEST_F(CreateTable, OnAnyOtherPidHasNoFurtherExtensionsWhateverTheSectionHolds)
{
    const octets section = make(eit{.ts = 0x0102, .original_network = 0x0304});
    for (const std::uint16_t pid :
         std::to_array<std::uint16_t>({0x00, 0x10, 0x11, 0x13, 0x14, 0x100, 0x1FFF})) {
        SiTable *table = Orva_Si_CreateTable(pid, 0x4E, section.data());
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->ext1, 0xFFFF) << pid;
        EXPECT_EQ(table->ext2, 0xFFFF) << pid;
    }
}

TEST_F(CreateTable, RefusesANullSection)
{
    EXPECT_EQ(Orva_Si_CreateTable(pid_sdt, 0x42, nullptr), nullptr);
    EXPECT_TRUE(fake::logged(2, "[psection\n")) << fake::log_text();
    EXPECT_THAT(tables(), IsEmpty());
}

TEST(CreateTableWithoutStore, IsRefused)
{
    EXPECT_EQ(Orva_Si_CreateTable(pid_sdt, 0x42, first_section(0x42, 1).data()), nullptr);
    EXPECT_TRUE(fake::logged(2, "[tables_list\n")) << fake::log_text();
}

TEST(CreateTableWithoutStore, NamesTheNullSectionFirst)
{
    EXPECT_EQ(Orva_Si_CreateTable(pid_sdt, 0x42, nullptr), nullptr);
    EXPECT_TRUE(fake::logged(2, "[psection\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("[tables_list\n"));
}

// The record, its list of sections and its link are allocated in this order.
TEST_F(CreateTable, LeavesTheStoreAloneWithoutMemoryForTheRecord)
{
    fake::fail_allocation(1);
    EXPECT_EQ(create(pid_sdt, 0x42, 1), nullptr);
    EXPECT_TRUE(fake::logged(4, "no mem yet\n")) << fake::log_text();
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(CreateTable, LeavesTheStoreAloneWithoutMemoryForTheSectionList)
{
    fake::fail_allocation(2);
    EXPECT_EQ(create(pid_sdt, 0x42, 1), nullptr);
    EXPECT_TRUE(fake::logged(4, "no mem yet\n")) << fake::log_text();
    EXPECT_THAT(tables(), IsEmpty());
}

TEST_F(CreateTable, LeavesTheStoreAloneWithoutMemoryForTheLink)
{
    fake::fail_allocation(3);
    EXPECT_EQ(create(pid_sdt, 0x42, 1), nullptr);
    EXPECT_TRUE(fake::logged(4, "can't insert ptbl into tables_list\n")) << fake::log_text();
    EXPECT_THAT(tables(), IsEmpty());
    EXPECT_EQ(find(pid_sdt, 0x42, 1), nullptr);
}

TEST_F(CreateTable, WorksAgainAfterEachFailedAllocation)
{
    SiTable *kept = create(pid_sdt, 0x42, 1);
    for (const unsigned n : {1U, 2U, 3U}) {
        fake::fail_allocation(n);
        EXPECT_EQ(create(pid_sdt, 0x46, 2), nullptr);
        EXPECT_EQ(find(pid_sdt, 0x46, 2), nullptr);
    }
    SiTable *added = create(pid_sdt, 0x46, 2);
    EXPECT_THAT(tables(), ElementsAre(kept, added));
    EXPECT_EQ(find(pid_sdt, 0x46, 2), added);
}

// ---- Matching

// A key is compared with a table; only the key has wildcards.
SiTable table_of(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext,
                 std::uint16_t ext1 = any, std::uint16_t ext2 = any)
{
    SiTable table{};
    table.pid = pid;
    table.table_id = table_id;
    table.ext = ext;
    table.ext1 = ext1;
    table.ext2 = ext2;
    return table;
}

std::int32_t compare(const SiTableKey &key, const SiTable &table)
{
    return find_table(&key, &table);
}

TEST(FindTable, MatchesEqualFields)
{
    EXPECT_EQ(compare({0x12, 0x4E, 1, 2, 3}, table_of(0x12, 0x4E, 1, 2, 3)), 0);
}

TEST(FindTable, EachWildcardOfTheKeyMatchesAnything)
{
    const SiTable table = table_of(0x12, 0x4E, 1, 2, 3);
    EXPECT_EQ(compare({SI_ANY_PID, 0x4E, 1, 2, 3}, table), 0);
    EXPECT_EQ(compare({0x12, SI_ANY_TABLE_ID, 1, 2, 3}, table), 0);
    EXPECT_EQ(compare({0x12, 0x4E, any, 2, 3}, table), 0);
    EXPECT_EQ(compare({0x12, 0x4E, 1, any, 3}, table), 0);
    EXPECT_EQ(compare({0x12, 0x4E, 1, 2, any}, table), 0);
    EXPECT_EQ(compare({SI_ANY_PID, SI_ANY_TABLE_ID, any, any, any}, table), 0);
}

TEST(FindTable, WildcardsOfTheTableMatchOnlyThemselves)
{
    EXPECT_EQ(compare({0x11, 0x42, 1, 2, 3}, table_of(SI_ANY_PID, 0x42, 1, 2, 3)), -1);
    EXPECT_EQ(compare({0x11, 0x42, 1, 2, 3}, table_of(0x11, SI_ANY_TABLE_ID, 1, 2, 3)), -1);
    EXPECT_EQ(compare({0x11, 0x42, 1, 2, 3}, table_of(0x11, 0x42, any, 2, 3)), -1);
    EXPECT_EQ(compare({0x11, 0x42, 1, 2, 3}, table_of(0x11, 0x42, 1, any, 3)), -1);
    EXPECT_EQ(compare({0x11, 0x42, 1, 2, 3}, table_of(0x11, 0x42, 1, 2, any)), -1);
}

TEST(FindTable, SaysWhichPidsDiffer)
{
    EXPECT_EQ(compare({0x10, 1, 1, 1, 1}, table_of(0x11, 2, 2, 2, 2)), -1);
    EXPECT_TRUE(fake::logged(5, "pid not match of ta->pid=0x10,tb->pid=0x11\n"))
        << fake::log_text();
    EXPECT_THAT(fake::log_lines(), SizeIs(1)); // the first mismatch ends it
}

TEST(FindTable, SaysWhichTableIdsDiffer)
{
    EXPECT_EQ(compare({0x11, 0x42, 1, 1, 1}, table_of(0x11, 0x46, 2, 2, 2)), -1);
    EXPECT_TRUE(fake::logged(5, "table id not match of ta->table_id=0x42, tb->table_id=0x46\n"))
        << fake::log_text();
    EXPECT_THAT(fake::log_lines(), SizeIs(1));
}

TEST(FindTable, SaysWhichExtensionsDiffer)
{
    EXPECT_EQ(compare({0x11, 0x42, 0xA, 1, 1}, table_of(0x11, 0x42, 0xB, 2, 2)), -1);
    EXPECT_TRUE(fake::logged(5, "ta->ext= 0xa, ext=0xb\n")) << fake::log_text();
    EXPECT_THAT(fake::log_lines(), SizeIs(1));
}

TEST(FindTable, SaysThatTheSecondExtensionDiffers)
{
    EXPECT_EQ(compare({0x12, 0x4E, 1, 0xA, 1}, table_of(0x12, 0x4E, 1, 0xB, 2)), -1);
    EXPECT_TRUE(fake::logged(5, "ext1=0xa\n") || fake::logged(5, "ext1=0xb\n")) << fake::log_text();
    EXPECT_THAT(fake::log_lines(), SizeIs(1));
}

TEST(FindTable, SaysThatTheThirdExtensionDiffers)
{
    EXPECT_EQ(compare({0x12, 0x4E, 1, 2, 0xA}, table_of(0x12, 0x4E, 1, 2, 0xB)), -1);
    EXPECT_TRUE(fake::logged(5, "ext2=0xa\n") || fake::logged(5, "ext2=0xb\n")) << fake::log_text();
    EXPECT_THAT(fake::log_lines(), SizeIs(1));
}

TEST(FindTable, NullOnEitherSideIsNoMatch)
{
    const SiTable table = table_of(0x11, 0x42, 1);
    const SiTableKey key{SI_ANY_PID, SI_ANY_TABLE_ID, any, any, any};
    EXPECT_EQ(find_table(nullptr, &table), -1);
    EXPECT_TRUE(fake::logged(4, "bad pointer\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(find_table(&key, nullptr), -1);
    EXPECT_TRUE(fake::logged(4, "bad pointer\n")) << fake::log_text();
}

TEST(IsEqualTableById, ServiceAndBouquetTablesShareAKeyOfAnyTableId)
{
    const SiTable services = table_of(0x11, 0x42, 9);
    const SiTable bouquet = table_of(0x11, 0x4A, 9);
    EXPECT_EQ(Orva_Si_IsEqualTableById(&services, 0x11, SI_ANY_TABLE_ID, 9, any, any), 1U);
    EXPECT_EQ(Orva_Si_IsEqualTableById(&bouquet, 0x11, SI_ANY_TABLE_ID, 9, any, any), 1U);
    EXPECT_EQ(Orva_Si_IsEqualTableById(&bouquet, 0x11, SI_ANY_TABLE_ID, 8, any, any), 0U);
}

TEST(IsEqualTableById, TracesTheTableItLooksAt)
{
    const SiTable table = table_of(0x11, 0x42, 0xABC);
    Orva_Si_IsEqualTableById(&table, 0x11, 0x42, 1, 2, 3);
    EXPECT_TRUE(fake::logged(4, "current ptbl -> pid = 0x11, tblid = 0x42, ext_id = 0xabc\n"))
        << fake::log_text();
    EXPECT_FALSE(fake::logged("want to find pid=0x11, tblid=0x42,ext=0x1,ext1=0x2,ext2=0x3\n"));
    EXPECT_FALSE(fake::logged("PMT: want to find pid=0x11,tblid=0x42,ext=0x1,ext1=0x2,ext2=0x3\n"));
}

TEST(IsEqualTableById, TracesAKeyOfTheEventPid)
{
    const SiTable table = table_of(0x11, 0x42, 1);
    Orva_Si_IsEqualTableById(&table, 0x12, 0x4E, 1, 2, 3);
    EXPECT_TRUE(fake::logged(4, "want to find pid=0x12, tblid=0x4e,ext=0x1,ext1=0x2,ext2=0x3\n"))
        << fake::log_text();
}

TEST(IsEqualTableById, TracesAKeyOfAPmt)
{
    const SiTable table = table_of(0x100, 0x02, 1);
    EXPECT_EQ(Orva_Si_IsEqualTableById(&table, SI_ANY_PID, 0x02, 1, any, any), 1U);
    EXPECT_TRUE(
        fake::logged(4, "PMT: want to find pid=0x2000,tblid=0x2,ext=0x1,ext1=0xffff,ext2=0xffff\n"))
        << fake::log_text();
}

TEST(IsEqualTableById, ANullTableIsNoMatch)
{
    EXPECT_EQ(Orva_Si_IsEqualTableById(nullptr, SI_ANY_PID, SI_ANY_TABLE_ID, any, any, any), 0U);
}

// ---- Look-up

// With every comparison traced (5) the list is walked, else (4) its index is asked.
class FindTableById : public Store, public testing::WithParamInterface<std::uint32_t> {
protected:
    FindTableById() { fake::set_log_level(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Levels, FindTableById, testing::Values(4U, 5U));

TEST_P(FindTableById, AllWildcardsFindTheFirstTable)
{
    SiTable *first = create(pid_nit, 0x40, 3);
    create(0, 0, 1);
    EXPECT_EQ(Orva_Si_FindTableById(0x2000, 0xFF, 0xFFFF, 0xFFFF, 0xFFFF), first);
}

TEST_P(FindTableById, TheOldestMatchWins)
{
    create(pid_sdt, 0x42, 1);
    SiTable *oldest = create(pid_sdt, 0x46, 2);
    create(pid_sdt, 0x46, 2);
    create(pid_sdt, 0x46, 3);
    EXPECT_EQ(find(pid_sdt, 0x46, 2), oldest);
    EXPECT_EQ(find(pid_sdt, 0x46, any), oldest);
}

TEST_P(FindTableById, TheNextOldestIsFoundOnceTheOldestHasGone)
{
    create(pid_sdt, 0x46, 2);
    SiTable *next = create(pid_sdt, 0x46, 2);
    remove(0);
    EXPECT_EQ(find(pid_sdt, 0x46, 2), next);
}

TEST_P(FindTableById, AnExtensionOfAllOnesIsAWildcardEvenWhenATableHasIt)
{
    SiTable *older = create(pid_sdt, 0x4A, 1);
    create(pid_sdt, 0x4A, 0xFFFF);
    EXPECT_EQ(find(pid_sdt, 0x4A, 0xFFFF), older);
}

TEST_P(FindTableById, ATableIdOfAllOnesIsAWildcardEvenWhenATableHasIt)
{
    SiTable *older = create(pid_time, 0x72, 1);
    create(pid_time, 0xFF, 1);
    EXPECT_EQ(find(pid_time, 0xFF, 1), older);
}

TEST_P(FindTableById, AWildcardPidIsAWildcardEvenWhenATableHasIt)
{
    SiTable *older = create(0x100, 0x72, 1);
    create(0x2000, 0x72, 1);
    EXPECT_EQ(find(0x2000, 0x72, 1), older);
}

TEST_P(FindTableById, ComparesTheFurtherExtensions)
{
    const octets first = make(eit{.service = 1, .ts = 2, .original_network = 3});
    const octets second = make(eit{.service = 1, .ts = 2, .original_network = 4});
    SiTable *older = Orva_Si_CreateTable(pid_eit, 0x30, first.data());
    SiTable *newer = Orva_Si_CreateTable(pid_eit, 0x30, second.data());
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, 2, 3), older);
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, 2, 4), newer);
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, any, 4), newer);
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, any, any), older);
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, 2, 5), nullptr);
    EXPECT_EQ(Orva_Si_FindTableById(pid_eit, 0x30, 1, 9, any), nullptr);
}

TEST_P(FindTableById, TracesWhatItFound)
{
    SiTable *table = create(pid_sdt, 0x42, 7);
    fake::clear_log();
    EXPECT_EQ(Orva_Si_FindTableById(pid_sdt, 0x42, 7, any, any), table);
    EXPECT_TRUE(
        fake::logged(4, "want to find pid=0x11,tblid=0x42,ext=0x7,ext1=0xffff,ext2=0xffff\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(
        4, text("ptbl = %#x the psect_list=%#x\n", address(table), address(table->psect_list))))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "ptbl is existed\n"));
    EXPECT_FALSE(fake::logged("ptbl is not existed\n"));
}

TEST_P(FindTableById, TracesThatItFoundNothing)
{
    create(pid_sdt, 0x42, 7);
    fake::clear_log();
    EXPECT_EQ(Orva_Si_FindTableById(pid_sdt, 0x42, 8, any, any), nullptr);
    EXPECT_TRUE(fake::logged(4, "ptbl is not existed\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("ptbl is existed\n"));
}

TEST_P(FindTableById, PassesOverNullElements)
{
    add_null(-1);
    SiTable *table = create(pid_sdt, 0x42, 7);
    add_null(-1);
    EXPECT_EQ(find(SI_ANY_PID, SI_ANY_TABLE_ID, any), table);
    EXPECT_EQ(find(pid_sdt, 0x42, 7), table);
    EXPECT_EQ(find(pid_sdt, 0x42, 8), nullptr);
    si_list_remove(Orva_Si_GetTableList(), 2);
    si_list_remove(Orva_Si_GetTableList(), 0);
}

TEST_P(FindTableById, SeesATableThatAClientPutInFront)
{
    create(pid_sdt, 0x42, 7);
    SiTable *moved = create(pid_sdt, 0x42, 7);
    si_list_remove(Orva_Si_GetTableList(), 1);
    si_list_add(Orva_Si_GetTableList(), moved, 0);
    EXPECT_EQ(find(pid_sdt, 0x42, 7), moved);
}

TEST_P(FindTableById, DoesNotFindATableThatAClientTookOut)
{
    SiTable *table = create(pid_sdt, 0x42, 7);
    EXPECT_EQ(find(pid_sdt, 0x42, 7), table);
    si_list_remove(Orva_Si_GetTableList(), 0);
    EXPECT_EQ(find(pid_sdt, 0x42, 7), nullptr);
    Orva_Si_RemoveTable(table);
}

// First link and count are the same before and after.
TEST_P(FindTableById, SeesThatAClientExchangedTwoTables)
{
    create(0, 0, 1);
    SiTable *out = create(pid_sdt, 0x42, 7);
    create(1, 1, 1);
    SiTable *in = create(pid_sdt, 0x46, 8);
    si_list_remove(Orva_Si_GetTableList(), 3);
    ASSERT_EQ(find(pid_sdt, 0x42, 7), out);
    si_list_remove(Orva_Si_GetTableList(), 1);
    si_list_add(Orva_Si_GetTableList(), in, 1);
    EXPECT_EQ(find(pid_sdt, 0x42, 7), nullptr);
    EXPECT_EQ(find(pid_sdt, 0x46, 8), in);
    Orva_Si_RemoveTable(out);
}

TEST_P(FindTableById, SeesTheOrderThatAClientMade)
{
    SiTable *first = create(pid_sdt, 0x46, 7);
    SiTable *second = create(pid_sdt, 0x46, 7);
    ASSERT_EQ(find(pid_sdt, 0x46, 7), first);
    si_list_remove(Orva_Si_GetTableList(), 0);
    si_list_add(Orva_Si_GetTableList(), first, -1);
    EXPECT_EQ(find(pid_sdt, 0x46, 7), second);
}

// The members of a list are visible, so a client may change them without the list's functions.
TEST_P(FindTableById, SeesACountThatAClientChangedByHand)
{
    SiTable *first = create(pid_sdt, 0x46, 7);
    SiTable *second = create(pid_sdt, 0x46, 8);
    ASSERT_EQ(find(pid_sdt, 0x46, 8), second);
    Orva_Si_GetTableList()->nb_elt = 1;
    EXPECT_EQ(find(pid_sdt, 0x46, 8), nullptr);
    EXPECT_EQ(find(pid_sdt, 0x46, 7), first);
    Orva_Si_GetTableList()->nb_elt = 2;
    EXPECT_EQ(find(pid_sdt, 0x46, 8), second);
}

// ---- Removal

using RemoveTableSections = Store;

TEST_F(RemoveTableSections, EmptiesTheTableAndStartsItAfresh)
{
    const octets first = make(sdt{.ts = 1, .last_section_number = 1});
    const octets second =
        make(sdt{.ts = 1, .section_number = 1, .last_section_number = 1, .services = {{.id = 2}}});
    store(first);
    SiTable *table = store(second);
    ASSERT_EQ(table->completed, 1);
    const auto held = elements_of<SiSection>(table->psect_list);
    ASSERT_THAT(held, SizeIs(2));
    std::vector<std::string> removals;
    for (const SiSection *record : held)
        removals.push_back(text("want to remove the pos=%d psect: %p, section: %p, length = %d\n",
                                0, static_cast<const void *>(record),
                                static_cast<const void *>(record->section), record->sect_len));
    fake::clear_log();
    EXPECT_EQ(Orva_Si_RemoveTableSections(table), ORVA_SI_OK);
    EXPECT_EQ(table->psect_list->nb_elt, 0);
    EXPECT_THAT(table->sect_map, Each(0));
    EXPECT_EQ(table->completed, 0);
    EXPECT_EQ(table->last_section_number, 0);
    EXPECT_EQ(table->crc, 0U);
    EXPECT_THAT(tables(), ElementsAre(table));
    EXPECT_EQ(find(pid_sdt, 0x42, 1), table);
    EXPECT_TRUE(fake::logged(4, "ptbl->psect_list->nb_elt = 2\n")) << fake::log_text();
    for (const std::string &removal : removals)
        EXPECT_TRUE(fake::logged(4, removal)) << removal << fake::log_text();
}

TEST_F(RemoveTableSections, LeavesATableWithoutSectionsInTheStore)
{
    SiTable *table = create(pid_sdt, 0x42, 1);
    table->completed = 1;
    table->sect_map[3] = 0x80;
    EXPECT_EQ(Orva_Si_RemoveTableSections(table), ORVA_SI_OK);
    EXPECT_THAT(tables(), ElementsAre(table));
    EXPECT_EQ(table->completed, 0);
    EXPECT_THAT(table->sect_map, Each(0));
    EXPECT_TRUE(fake::logged(4, "ptbl->psect_list->nb_elt = 0\n")) << fake::log_text();
}

TEST_F(RemoveTableSections, ClearsTheCombinedCrc)
{
    SiTable *table = create(pid_sdt, 0x42, 1);
    table->crc = 0x12345678;
    Orva_Si_RemoveTableSections(table);
    EXPECT_EQ(table->crc, 0U);
}

TEST_F(RemoveTableSections, FreesARecordThatHasNoBuffer)
{
    SiTable *table = create(pid_sdt, 0x42, 1);
    si_list_add(table->psect_list, si::allocate_record<SiSection>(), -1);
    EXPECT_EQ(Orva_Si_RemoveTableSections(table), ORVA_SI_OK);
    EXPECT_EQ(table->psect_list->nb_elt, 0);
}

TEST_F(RemoveTableSections, RefusesNull)
{
    EXPECT_EQ(Orva_Si_RemoveTableSections(nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl\n")) << fake::log_text();
}

using RemoveTable = Store;

TEST_F(RemoveTable, LeavesTheLinkToItsCaller)
{
    store(make(sdt{.ts = 1}));
    SiTable *table = tables().at(0);
    EXPECT_EQ(Orva_Si_RemoveTable(table), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 1);
    EXPECT_EQ(si_list_remove(Orva_Si_GetTableList(), 0), 0);
    EXPECT_EQ(find(pid_sdt, 0x42, 1), nullptr);
}

TEST_F(RemoveTable, RefusesNull)
{
    EXPECT_EQ(Orva_Si_RemoveTable(nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl\n")) << fake::log_text();
}

// ---- Change of stream

struct stream_case {
    const char *name;
    std::uint16_t stored_pid;
    std::uint8_t stored_table_id;
    std::uint16_t stored_ext;
    std::uint16_t pid;
    std::uint8_t table_id;
    std::uint16_t ext;
    bool changed;
};

void PrintTo(const stream_case &c, std::ostream *out)
{
    *out << c.name;
}

class IsStreamChanged : public Store, public testing::WithParamInterface<stream_case> {};

TEST_P(IsStreamChanged, ComparesWithTheStoredTable)
{
    const stream_case &c = GetParam();
    create(0x100, 0x02, 77); // never says anything
    create(c.stored_pid, c.stored_table_id, c.stored_ext);
    fake::clear_log();
    EXPECT_EQ(Orva_Si_IsStreamChanged(c.pid, c.table_id, c.ext), c.changed ? 1U : 0U);
    EXPECT_EQ(fake::logged(2, "the stream is changed\n"), c.changed) << fake::log_text();
}

constexpr std::array stream_cases{
    stream_case{"PatOfAnotherStream", 0, 0x00, 1, 0, 0x00, 2, true},
    stream_case{"PatOfTheSameStream", 0, 0x00, 1, 0, 0x00, 1, false},
    stream_case{"OtherTableIdOnThePatPid", 0, 0x00, 1, 0, 0x77, 2, true},
    stream_case{"PatBesideAnotherTableIdOnItsPid", 0, 0x77, 1, 0, 0x00, 2, true},
    stream_case{"AllOnesIsNoWildcardHere", 0, 0x00, 1, 0, 0x00, 0xFFFF, true},
    stream_case{"NitActualOfAnotherNetwork", 0x10, 0x40, 1, 0x10, 0x40, 2, true},
    stream_case{"NitActualOfTheSameNetwork", 0x10, 0x40, 1, 0x10, 0x40, 1, false},
    stream_case{"NitOtherOfAnotherNetwork", 0x10, 0x41, 1, 0x10, 0x41, 2, false},
    stream_case{"NitOtherBesideNitActual", 0x10, 0x40, 1, 0x10, 0x41, 2, false},
    stream_case{"NitActualBesideNitOther", 0x10, 0x41, 1, 0x10, 0x40, 2, false},
    stream_case{"SdtActualOfAnotherStream", 0x11, 0x42, 1, 0x11, 0x42, 2, true},
    stream_case{"SdtActualOfTheSameStream", 0x11, 0x42, 1, 0x11, 0x42, 1, false},
    stream_case{"SdtOtherOfAnotherStream", 0x11, 0x46, 1, 0x11, 0x46, 2, false},
    stream_case{"SdtOtherBesideSdtActual", 0x11, 0x42, 1, 0x11, 0x46, 2, false},
    stream_case{"AnotherBouquet", 0x11, 0x4A, 1, 0x11, 0x4A, 2, false},
    stream_case{"AnotherCat", 0x01, 0x01, 1, 0x01, 0x01, 2, false},
    stream_case{"AnotherPmt", 0x200, 0x02, 1, 0x200, 0x02, 2, false},
    stream_case{"NitActualOnAnotherPid", 0x20, 0x40, 1, 0x20, 0x40, 2, false},
    stream_case{"SdtActualOnTheNitPid", 0x10, 0x42, 1, 0x10, 0x42, 2, false},
    stream_case{"PatOnAnotherPid", 0x20, 0x00, 1, 0x20, 0x00, 2, false},
    stream_case{"PatWhereNoneIsStored", 0x20, 0x00, 1, 0x00, 0x00, 2, false},
};

INSTANTIATE_TEST_SUITE_P(Sections, IsStreamChanged, testing::ValuesIn(stream_cases),
                         [](const auto &of) { return std::string{of.param.name}; });

using StreamChange = Store;

TEST_F(StreamChange, OneDifferingTableAmongOthersIsEnough)
{
    create(0, 0x00, 1);
    create(0, 0x70, 2);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 1), 1U);
}

TEST_F(StreamChange, AnEmptyStoreHasNoStreamToLeave)
{
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 1), 0U);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0x10, 0x40, 1), 0U);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0x11, 0x42, 1), 0U);
}

TEST_F(StreamChange, NullElementsAreReportedAndPassedOver)
{
    add_null(-1);
    create(0, 0x00, 1);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 1), 0U);
    EXPECT_TRUE(fake::logged(2, "the ptblb is null !!!!\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 1U);
    si_list_remove(Orva_Si_GetTableList(), 0);
}

TEST_F(StreamChange, IsOverOnceTheTableHasGone)
{
    create(0, 0x00, 1);
    remove(0);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 0U);
}

TEST_F(StreamChange, AnEmptiedTableStillNamesItsStream)
{
    Orva_Si_RemoveTableSections(create(0, 0x00, 1));
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 1U);
}

TEST_F(StreamChange, SeesATableThatAClientAddedOrTookOut)
{
    SiTable *table = create(0, 0x00, 1);
    ASSERT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 1U);
    si_list_remove(Orva_Si_GetTableList(), 0);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 0U);
    si_list_add(Orva_Si_GetTableList(), table, 0);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 1U);
}

TEST(StreamChangeWithoutStore, IsNone)
{
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 0U);
    EXPECT_TRUE(fake::logged(2, "[tables_list\n")) << fake::log_text();
}

} // namespace
