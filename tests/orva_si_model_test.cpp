// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections into tables: insertion, completion, removal and search.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "support/model.h"
#include "support/store.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::SizeIs;

constexpr std::uint16_t pid_nit = 0x10;
constexpr std::uint16_t pid_sdt = 0x11;
constexpr std::uint16_t pid_eit = 0x12;
constexpr std::uint16_t pid_time = 0x14;

class Table : public testing::Test {
protected:
    Table() { init_store(); }
    ~Table() override { end_store(); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    static SiTable *create(std::uint16_t pid, const octets &section)
    {
        return Orva_Si_CreateTable(pid, section[0], section.data());
    }
    static std::uint32_t insert(SiTable *table, const octets &section)
    {
        return Orva_Si_InsertSection(table, received{section, table->pid});
    }
    static std::uint32_t check(SiTable *table, const octets &section)
    {
        return Orva_Si_CheckTableCompleted(table, received{section, table->pid});
    }
    static std::uint32_t insert_and_check(SiTable *table, const octets &section)
    {
        EXPECT_EQ(insert(table, section), ORVA_SI_OK);
        return check(table, section);
    }
};

octets services(std::uint8_t number, std::uint8_t last, std::uint8_t version = 0)
{
    return make(sdt{.ts = 1,
                    .version = version,
                    .section_number = number,
                    .last_section_number = last,
                    .services = {{.id = number}}});
}

// ---- Insertion

using InsertSection = Table;

TEST_F(InsertSection, KeepsACopyOfTheWholeSection)
{
    const octets section = services(3, 5);
    octets delivered = section;
    delivered.resize(section.size() + 20, 0xEE); // the buffer may be longer than the section
    SiTable *table = create(pid_sdt, section);
    {
        received record{delivered, 0x1ABC, 17};
        EXPECT_EQ(Orva_Si_InsertSection(table, record), ORVA_SI_OK);
        record->section[3] = 0x99;
    }
    ASSERT_THAT(sections_of(table), ElementsAre(section));
    const auto *stored = static_cast<SiSection *>(si_list_get(table->psect_list, 0));
    EXPECT_EQ(stored->pid, 0x1ABC);
    EXPECT_EQ(stored->sect_len, section.size());
    EXPECT_NE(stored->filter_id, 17);
    EXPECT_TRUE(fake::logged(4, "pid=0x1abc,table_id=0x42\n") ||
                fake::logged(4, "pid=0x11,table_id=0x42\n"))
        << fake::log_text();
}

TEST_F(InsertSection, MarksTheSectionNumber)
{
    SiTable *table = create(pid_sdt, services(9, 20));
    insert(table, services(9, 20));
    std::array<std::uint8_t, 32> expected{};
    expected[1] = 0x02;
    EXPECT_THAT(table->sect_map, testing::ElementsAreArray(expected));
}

TEST_F(InsertSection, KeepsTheOrderOfArrival)
{
    const octets a = services(2, 3);
    const octets b = services(0, 3);
    const octets c = services(1, 3);
    SiTable *table = create(pid_sdt, a);
    for (const octets &section : {a, b, c})
        insert(table, section);
    EXPECT_THAT(sections_of(table), ElementsAre(a, b, c));
}

TEST_F(InsertSection, DoesNotLookForTheSameNumber)
{
    const octets section = services(0, 3);
    SiTable *table = create(pid_sdt, section);
    insert(table, section);
    insert(table, section);
    EXPECT_THAT(sections_of(table), ElementsAre(section, section));
}

TEST_F(InsertSection, LeavesTheCombinedCrcAtZero)
{
    SiTable *table = create(pid_sdt, services(0, 0));
    insert(table, services(0, 0));
    EXPECT_EQ(table->crc, 0U);
}

TEST_F(InsertSection, MasksTheCombinedCrcWithTheNewOne)
{
    const octets section = services(0, 0);
    SiTable *table = create(pid_sdt, section);
    table->crc = 0xFFFFFFFF;
    insert(table, section);
    EXPECT_EQ(table->crc, crc_of(section));
}

TEST_F(InsertSection, ClearsTheBufferBehindTheSection)
{
    const octets section = make(sdt{.ts = 1});
    ASSERT_NE(section.size() % 32, 0U);
    SiTable *table = create(pid_sdt, section);
    insert(table, section);
    const auto *stored = static_cast<SiSection *>(si_list_get(table->psect_list, 0));
    for (std::size_t i = section.size(); i < (section.size() + 31) / 32 * 32; ++i)
        EXPECT_EQ(stored->section[i], 0) << i;
}

TEST_F(InsertSection, ASectionWithoutANumberCountsAsNumberZero)
{
    for (std::size_t size = 3; size < 7; ++size) {
        SiTable *table = create(pid_time, make(private_table{.table_id = 0x72}));
        const octets section = set_length(octets(size, 0x72), size - 3);
        EXPECT_EQ(insert(table, section), ORVA_SI_OK);
        EXPECT_EQ(table->sect_map[0], 0x01) << size;
        EXPECT_THAT(sections_of(table), ElementsAre(section));
    }
}

TEST_F(InsertSection, RefusesANullTable)
{
    EXPECT_EQ(Orva_Si_InsertSection(nullptr, received{services(0, 0), pid_sdt}),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl != NULL\n")) << fake::log_text();
}

TEST_F(InsertSection, RefusesANullRecord)
{
    SiTable *table = create(pid_sdt, services(0, 0));
    EXPECT_EQ(Orva_Si_InsertSection(table, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psection != NULL\n")) << fake::log_text();
}

TEST_F(InsertSection, RefusesARecordWithoutBytes)
{
    SiTable *table = create(pid_sdt, services(0, 0));
    const SiSection record{};
    EXPECT_EQ(Orva_Si_InsertSection(table, &record), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psection->section != NULL\n")) << fake::log_text();
}

TEST_F(InsertSection, RefusesATableWithoutAList)
{
    SiTable table{};
    EXPECT_EQ(Orva_Si_InsertSection(&table, received{services(0, 0), pid_sdt}),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl->psect_list != NULL\n")) << fake::log_text();
}

TEST_F(InsertSection, NamesTheFirstOfSeveralMissingThings)
{
    SiTable table{};
    const SiSection record{};
    EXPECT_EQ(Orva_Si_InsertSection(&table, &record), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psection->section != NULL\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_InsertSection(nullptr, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl != NULL\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("[psection != NULL\n"));
}

// The record, its buffer and its link are allocated in this order.
struct insertion_failure {
    unsigned allocation;
    const char *text;
};

class FailedInsertion : public Table, public testing::WithParamInterface<insertion_failure> {};

TEST_P(FailedInsertion, LeavesTheTableAsItWas)
{
    const octets held = services(0, 3);
    SiTable *table = create(pid_sdt, held);
    insert(table, held);
    fake::fail_allocation(GetParam().allocation);
    EXPECT_EQ(insert(table, services(1, 3)), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(1, GetParam().text)) << fake::log_text();
    EXPECT_THAT(sections_of(table), ElementsAre(held));
    EXPECT_EQ(table->sect_map[0], 0x01);
    EXPECT_EQ(insert(table, services(1, 3)), ORVA_SI_OK);
    EXPECT_THAT(sections_of(table), ElementsAre(held, services(1, 3)));
}

INSTANTIATE_TEST_SUITE_P(
    Allocations, FailedInsertion,
    testing::Values(insertion_failure{1, "fatal error: cannot malloc memory!!!\n"},
                    insertion_failure{2, "fatal error: cant malloc memory!!!\n"},
                    insertion_failure{3, "can't add the section into table\n"}),
    [](const auto &of) { return text("Allocation%u", of.param.allocation); });

// ---- Completion

using CheckTableCompleted = Table;

TEST_F(CheckTableCompleted, WaitsForTheMissingSection)
{
    SiTable *table = create(pid_sdt, services(0, 2));
    EXPECT_EQ(insert_and_check(table, services(0, 2)), 0U);
    EXPECT_EQ(insert_and_check(table, services(2, 2)), 0U);
    EXPECT_EQ(table->completed, 0);
    EXPECT_FALSE(fake::logged("the table is completed\n"));
    EXPECT_EQ(insert_and_check(table, services(1, 2)), 1U);
    EXPECT_EQ(table->completed, 1);
    EXPECT_TRUE(fake::logged(4, "the table is completed\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "ptbl->pid = 0x11\n"));
}

TEST_F(CheckTableCompleted, ASingleSectionIsATable)
{
    SiTable *table = create(pid_sdt, services(0, 0));
    EXPECT_EQ(insert_and_check(table, services(0, 0)), 1U);
    EXPECT_EQ(table->completed, 1);
}

TEST_F(CheckTableCompleted, APmtIsCompleteWithAnySection)
{
    const octets section = make(pmt{.program = 5, .section_number = 1, .last_section_number = 3});
    SiTable *table = create(0x100, section);
    EXPECT_EQ(insert_and_check(table, section), 1U);
    EXPECT_EQ(table->completed, 1);
    EXPECT_TRUE(fake::logged(4, "this is a pmt\n")) << fake::log_text();
}

TEST_F(CheckTableCompleted, APmtOnTheEventPidIsComplete)
{
    const octets section = make(pmt{.program = 5});
    SiTable *table = create(pid_eit, section);
    EXPECT_EQ(insert_and_check(table, section), 1U);
    EXPECT_EQ(table->completed, 1);
}

TEST_F(CheckTableCompleted, TheTableSaysWhetherItIsAPmt)
{
    const octets section = make(pmt{.program = 5, .section_number = 1, .last_section_number = 3});
    SiTable *table = Orva_Si_CreateTable(0x100, 0x77, section.data());
    EXPECT_EQ(insert_and_check(table, section), 0U);
    EXPECT_FALSE(fake::logged("this is a pmt\n"));
}

TEST_F(CheckTableCompleted, NineSectionsReachIntoTheSecondByteOfTheMap)
{
    SiTable *table = create(pid_sdt, services(0, 8));
    for (std::uint8_t number = 0; number < 8; ++number)
        EXPECT_EQ(insert_and_check(table, services(number, 8)), 0U);
    EXPECT_EQ(table->completed, 0);
    EXPECT_EQ(insert_and_check(table, services(8, 8)), 1U);
}

TEST_F(CheckTableCompleted, ATableOf256SectionsIsPossible)
{
    fake::set_log_level(0);
    SiTable *table = create(pid_sdt, services(0, 255));
    for (unsigned number = 255; number > 0; --number)
        ASSERT_EQ(insert_and_check(table, services(static_cast<std::uint8_t>(number), 255)), 0U);
    EXPECT_EQ(insert_and_check(table, services(0, 255)), 1U);
}

TEST_F(CheckTableCompleted, NeverOnTheEventPid)
{
    const octets section = make(private_table{.table_id = 0x4D});
    SiTable *table = create(pid_eit, section);
    EXPECT_EQ(insert_and_check(table, section), 0U);
    EXPECT_EQ(table->completed, 0);
}

TEST_F(CheckTableCompleted, TheLastNumberIsThatOfTheSectionJustReceived)
{
    SiTable *table = create(pid_sdt, services(0, 9));
    EXPECT_EQ(insert_and_check(table, services(0, 9)), 0U);
    EXPECT_EQ(insert_and_check(table, services(1, 1)), 1U);
    EXPECT_EQ(table->last_section_number, 9);
}

TEST_F(CheckTableCompleted, ACompleteTableStaysCompleteWhenMoreArrives)
{
    SiTable *table = create(pid_sdt, services(0, 0));
    ASSERT_EQ(insert_and_check(table, services(0, 0)), 1U);
    EXPECT_EQ(insert_and_check(table, services(5, 5)), 0U);
    EXPECT_EQ(table->completed, 1);
}

TEST_F(CheckTableCompleted, RefusesANullTable)
{
    EXPECT_EQ(Orva_Si_CheckTableCompleted(nullptr, received{services(0, 0), pid_sdt}),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl != NULL\n")) << fake::log_text();
}

TEST_F(CheckTableCompleted, RefusesANullRecord)
{
    SiTable table{};
    EXPECT_EQ(Orva_Si_CheckTableCompleted(&table, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psect != NULL\n")) << fake::log_text();
}

TEST_F(CheckTableCompleted, RefusesARecordWithoutBytes)
{
    SiTable table{};
    const SiSection record{};
    EXPECT_EQ(Orva_Si_CheckTableCompleted(&table, &record), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psect->section != NULL\n")) << fake::log_text();
}

// ---- Removal of one section

using RemoveSectInTable = Table;

TEST_F(RemoveSectInTable, FreesTheRecordAndLeavesMapAndCompletion)
{
    SiTable *table = create(pid_sdt, services(0, 1));
    insert_and_check(table, services(0, 1));
    insert_and_check(table, services(1, 1));
    auto *second = static_cast<SiSection *>(si_list_get(table->psect_list, 1));
    fake::clear_log();
    EXPECT_EQ(Orva_Si_RemoveSectInTable(table, second), ORVA_SI_OK);
    EXPECT_THAT(sections_of(table), ElementsAre(services(0, 1)));
    EXPECT_EQ(table->sect_map[0], 0x03);
    EXPECT_EQ(table->completed, 1);
    EXPECT_TRUE(fake::logged(4, "found the pos = 1\n")) << fake::log_text();
}

TEST_F(RemoveSectInTable, GoesByThePointerNotByTheContent)
{
    SiTable *table = create(pid_sdt, services(0, 1));
    insert(table, services(0, 1));
    EXPECT_EQ(Orva_Si_RemoveSectInTable(table, received{services(0, 1), pid_sdt}), ORVA_SI_OK);
    EXPECT_THAT(sections_of(table), SizeIs(1));
    EXPECT_TRUE(fake::logged(4, "wrong pos.\n")) << fake::log_text();
}

TEST_F(RemoveSectInTable, RefusesANullTable)
{
    EXPECT_EQ(Orva_Si_RemoveSectInTable(nullptr, received{services(0, 1), pid_sdt}),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl\n")) << fake::log_text();
}

TEST_F(RemoveSectInTable, RefusesANullRecord)
{
    EXPECT_EQ(Orva_Si_RemoveSectInTable(create(pid_sdt, services(0, 1)), nullptr),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psect\n")) << fake::log_text();
}

TEST_F(RemoveSectInTable, RefusesATableWithoutAList)
{
    SiTable table{};
    EXPECT_EQ(Orva_Si_RemoveSectInTable(&table, received{services(0, 1), pid_sdt}),
              ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[ptbl->psect_list\n")) << fake::log_text();
}

// ---- Search for a held section

using FindSection = Table;

TEST_F(FindSection, MatchesPidAndSectionNumberOnly)
{
    SiTable *table = create(pid_sdt, services(0, 3));
    insert(table, services(0, 3));
    insert(table, services(2, 3));
    const auto held = elements_of<SiSection>(table->psect_list);
    EXPECT_EQ(Si_Model_FindSection(table, received{services(2, 9, 7), pid_sdt}), held.at(1));
    EXPECT_EQ(Si_Model_FindSection(table, received{services(0, 3), pid_sdt}), held.at(0));
    EXPECT_EQ(Si_Model_FindSection(table, received{services(1, 3), pid_sdt}), nullptr);
    EXPECT_EQ(Si_Model_FindSection(table, received{services(0, 3), pid_nit}), nullptr);
}

TEST_F(FindSection, FindsNothingInATableWithoutAList)
{
    SiTable table{};
    EXPECT_EQ(Si_Model_FindSection(&table, received{services(0, 0), pid_sdt}), nullptr);
    EXPECT_TRUE(fake::logged(2, "[ptbl->psect_list\n")) << fake::log_text();
}

TEST_F(FindSection, PassesOverRecordsWithoutABuffer)
{
    SiTable *table = create(pid_sdt, services(0, 3));
    SiSection empty{};
    empty.pid = pid_sdt;
    si_list_add(table->psect_list, &empty, -1);
    si_list_add(table->psect_list, nullptr, -1);
    insert(table, services(0, 3));
    EXPECT_EQ(Si_Model_FindSection(table, received{services(0, 3), pid_sdt}),
              si_list_get(table->psect_list, 2));
    si_list_remove(table->psect_list, 1);
    si_list_remove(table->psect_list, 0);
}

TEST_F(FindSection, IsAComparisonOfPidAndNumber)
{
    received a{services(1, 3), pid_sdt};
    received same{services(1, 9, 5), pid_sdt};
    received number{services(2, 3), pid_sdt};
    received pid{services(1, 3), pid_nit};
    const SiSection *record = a;
    EXPECT_EQ(find_section(record, static_cast<const SiSection *>(same)), 0);
    EXPECT_NE(find_section(record, static_cast<const SiSection *>(number)), 0);
    EXPECT_NE(find_section(record, static_cast<const SiSection *>(pid)), 0);
}

} // namespace
