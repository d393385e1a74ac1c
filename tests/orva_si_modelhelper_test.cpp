// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "fakes/platform.h"
#include "support/model.h"
#include "support/store.h"

namespace {

using namespace test;
using testing::Each;

using section_map = std::array<std::uint8_t, 32>;

// ---- Section map

TEST(SectMap, HasOneBitPerSectionNumberFromTheLowestUp)
{
    for (unsigned number = 0; number < 256; ++number) {
        section_map map{};
        EXPECT_EQ(Orva_Si_SetSectMap(map.data(), static_cast<std::uint8_t>(number)), 1U);
        section_map expected{};
        expected[number / 8] = static_cast<std::uint8_t>(1U << (number % 8));
        EXPECT_EQ(map, expected) << number;
    }
}

TEST(SectMap, KeepsTheBitsThatAreSet)
{
    section_map map{};
    Orva_Si_SetSectMap(map.data(), 9);
    Orva_Si_SetSectMap(map.data(), 8);
    Orva_Si_SetSectMap(map.data(), 9);
    EXPECT_EQ(map[1], 0x03);
}

TEST(SectMap, RefusesNull)
{
    EXPECT_EQ(Orva_Si_SetSectMap(nullptr, 0), 0U);
}

TEST(SectMap, TestAnswersZeroWhateverIsSet)
{
    section_map map{};
    map.fill(0xFF);
    for (unsigned number = 0; number < 256; ++number)
        EXPECT_EQ(Orva_Si_TestSectMap(map.data(), static_cast<std::uint8_t>(number)), 0U);
    EXPECT_EQ(Orva_Si_TestSectMap(nullptr, 0), 0U);
}

section_map map_of(const std::vector<unsigned> &numbers)
{
    section_map map{};
    for (const unsigned number : numbers)
        Orva_Si_SetSectMap(map.data(), static_cast<std::uint8_t>(number));
    return map;
}

std::uint32_t is_completed(const section_map &map, unsigned last)
{
    return Orva_Si_IsSegSectCompleted(map.data(), static_cast<std::uint8_t>(last), nullptr);
}

TEST(IsSegSectCompleted, NeedsEverySectionUpToTheLast)
{
    EXPECT_EQ(is_completed(map_of({0, 2}), 2), 0U);
    EXPECT_EQ(is_completed(map_of({0, 1, 2}), 2), 1U);
    EXPECT_EQ(is_completed(map_of({0}), 0), 1U);
    EXPECT_EQ(is_completed(map_of({1}), 0), 0U);
    EXPECT_EQ(is_completed(map_of({}), 0), 0U);
}

TEST(IsSegSectCompleted, LooksIntoTheNextByteForSectionEight)
{
    EXPECT_EQ(is_completed(map_of({0, 1, 2, 3, 4, 5, 6, 7}), 7), 1U);
    EXPECT_EQ(is_completed(map_of({0, 1, 2, 3, 4, 5, 6, 7}), 8), 0U);
    EXPECT_EQ(is_completed(map_of({0, 1, 2, 3, 4, 5, 6, 7, 8}), 8), 1U);
}

TEST(IsSegSectCompleted, IgnoresSectionsBehindTheLast)
{
    EXPECT_EQ(is_completed(map_of({0, 1, 5, 200}), 1), 1U);
}

TEST(IsSegSectCompleted, ExaminesAllOf256Sections)
{
    section_map map{};
    map.fill(0xFF);
    EXPECT_EQ(is_completed(map, 255), 1U);
    map[31] = 0x7F;
    EXPECT_EQ(is_completed(map, 255), 0U);
    EXPECT_EQ(is_completed(map, 254), 1U);
}

TEST(IsSegSectCompleted, WithoutSegmentsIsEverySectionFromZero)
{
    std::mt19937 random{3};
    for (unsigned round = 0; round < 400; ++round) {
        section_map map{};
        map.fill(0xFF);
        for (unsigned holes = static_cast<unsigned>(random() % 4); holes != 0; --holes)
            map[random() % 32] &= static_cast<std::uint8_t>(random());
        unsigned present = 0; // sections from 0 on without a gap
        while (present < 256 && (map[present / 8] >> (present % 8) & 1) != 0)
            ++present;
        for (unsigned last = 0; last < 256; ++last)
            ASSERT_EQ(is_completed(map, last), last < present ? 1U : 0U) << last;
    }
}

TEST(IsSegSectCompleted, EachSegmentEndsAtItsOwnLastSection)
{
    section_map segments{};
    segments[0] = 0x02;
    segments[1] = 0x0A;
    segments[2] = 0x17;
    const auto held = [&](const std::vector<unsigned> &numbers) {
        return Orva_Si_IsSegSectCompleted(map_of(numbers).data(), 0x17, segments.data());
    };
    EXPECT_EQ(held({0, 1, 2, 8, 9, 10, 16, 17, 18, 19, 20, 21, 22, 23}), 1U);
    EXPECT_EQ(held({0, 1, 8, 9, 10, 16, 17, 18, 19, 20, 21, 22, 23}), 0U);
    EXPECT_EQ(held({0, 1, 2, 8, 10, 16, 17, 18, 19, 20, 21, 22, 23}), 0U);
    EXPECT_EQ(held({0, 1, 2, 8, 9, 10, 16, 17, 18, 19, 20, 21, 22}), 0U);
}

TEST(IsSegSectCompleted, ASegmentEndsNoLaterThanTheTable)
{
    section_map segments{};
    segments[0] = 0x07;
    segments[1] = 0x0F;
    EXPECT_EQ(Orva_Si_IsSegSectCompleted(map_of({0, 1, 2, 3, 4, 5, 6, 7, 8}).data(), 0x08,
                                         segments.data()),
              1U);
    EXPECT_EQ(Orva_Si_IsSegSectCompleted(map_of({0, 1}).data(), 0x01, segments.data()), 1U);
}

// ---- Comparison of CRC_32

// A section of private data that ends with the given CRC_32, fitting or not.
octets with_crc(octets section, std::uint32_t crc)
{
    for (unsigned i = 0; i < 4; ++i)
        section[section.size() - 4 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
    return section;
}

TEST(IsCrcEqual, ComparesTheLastFourBytes)
{
    const octets a = with_crc(make(sdt{.ts = 1}), 0x01020304);
    const octets b = with_crc(make(sdt{.ts = 1}), 0x01020305);
    EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), a.data()), 1U);
    EXPECT_TRUE(fake::logged(4, "the crcA value = 0x1020304\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the crcB value = 0x1020304\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "crc are same.\n")) << fake::log_text();
    fake::clear_log();
    EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), b.data()), 0U);
    EXPECT_TRUE(fake::logged(4, "the crcA value = 0x1020304\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the crcB value = 0x1020305\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the crc data are different.\n")) << fake::log_text();
}

TEST(IsCrcEqual, EveryByteOfTheFieldCounts)
{
    const octets a = with_crc(make(sdt{.ts = 1}), 0x11223344);
    for (const std::uint32_t other : {0x91223344U, 0x11A23344U, 0x1122B344U, 0x112233C4U})
        EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), with_crc(a, other).data()), 0U) << other;
}

TEST(IsCrcEqual, DifferentSectionsWithOneCrcAreEqual)
{
    const octets a = with_crc(make(sdt{.ts = 1}), 0xDEADBEEF);
    const octets b =
        with_crc(make(nit{.network = 9, .descriptors = {network_name("Long name")}}), 0xDEADBEEF);
    EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), b.data()), 1U);
}

TEST(IsCrcEqual, SectionLengthSaysWhereTheFieldIs)
{
    octets a(24, 0x11);
    a = set_length(a, 13); // the field is bytes 12 to 15
    octets b = a;
    b[20] = 0x22;
    EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), b.data()), 1U);
    b[12] = 0x22;
    EXPECT_EQ(Orva_Si_IsCrcEqual(a.data(), b.data()), 0U);
}

TEST(IsCrcEqual, ASectionWithoutContentHasTheCrcZero)
{
    const octets empty{0x72, 0x70, 0x00};
    EXPECT_EQ(Orva_Si_IsCrcEqual(empty.data(), empty.data()), 1U);
    EXPECT_TRUE(fake::logged(4, "the crcA value = 0\n")) << fake::log_text();
    const octets zero = with_crc(make(sdt{.ts = 1}), 0);
    EXPECT_EQ(Orva_Si_IsCrcEqual(empty.data(), zero.data()), 1U);
    const octets one = with_crc(make(sdt{.ts = 1}), 1);
    EXPECT_EQ(Orva_Si_IsCrcEqual(empty.data(), one.data()), 0U);
}

TEST(IsCrcEqual, ReadsNothingBehindTheShortestSections)
{
    for (std::size_t section_length = 1; section_length <= 4; ++section_length) {
        octets bytes(3 + section_length, 0xA5);
        const octets section = set_length(bytes, section_length);
        EXPECT_EQ(Orva_Si_IsCrcEqual(section.data(), section.data()), 1U) << section_length;
    }
}

TEST(IsCrcEqual, RefusesANullFirstSection)
{
    const octets section = make(sdt{});
    EXPECT_EQ(Orva_Si_IsCrcEqual(nullptr, section.data()), 0U);
    EXPECT_TRUE(fake::logged(2, "[psect\n")) << fake::log_text();
}

TEST(IsCrcEqual, RefusesANullSecondSection)
{
    const octets section = make(sdt{});
    EXPECT_EQ(Orva_Si_IsCrcEqual(section.data(), nullptr), 0U);
    EXPECT_TRUE(fake::logged(2, "[psectb\n")) << fake::log_text();
}

TEST(IsCrcEqual, TwoNullSectionsAreNotEqual)
{
    EXPECT_EQ(Orva_Si_IsCrcEqual(nullptr, nullptr), 0U);
    EXPECT_TRUE(fake::logged(2, "[psect\n")) << fake::log_text();
}

// ---- CRC summaries

class Summary : public testing::Test {
protected:
    Summary() { init_store(); }
    ~Summary() override { end_store(); }
    Summary(const Summary &) = delete;
    Summary &operator=(const Summary &) = delete;

    static constexpr std::uint32_t untouched = 0xABABABAB;

    static std::uint32_t pat_crc()
    {
        std::uint32_t crc = untouched;
        EXPECT_EQ(Orva_Si_GetPATCRC(&crc), ORVA_SI_OK);
        return crc;
    }
    static std::uint32_t nit_crc(std::uint32_t network_id)
    {
        std::uint32_t crc = untouched;
        EXPECT_EQ(Orva_Si_GetNITCRC(network_id, &crc), ORVA_SI_OK);
        return crc;
    }
    static std::uint32_t sdt_crc(std::uint32_t ts)
    {
        std::uint32_t crc = untouched;
        EXPECT_EQ(Orva_Si_GetSDTCRC(ts, &crc), ORVA_SI_OK);
        return crc;
    }
    static std::uint32_t bat_crc(std::uint32_t bouquet)
    {
        std::uint32_t crc = untouched;
        EXPECT_EQ(Orva_Si_GetBATCRC(bouquet, &crc), ORVA_SI_OK);
        return crc;
    }
};

using PatCrc = Summary;

TEST_F(PatCrc, IsTheCombinationOfAllItsSections)
{
    const octets first =
        make(pat{.ts = 1, .last_section_number = 1, .programs = {{.number = 1, .pid = 0x101}}});
    const octets second = make(pat{.ts = 1,
                                   .section_number = 1,
                                   .last_section_number = 1,
                                   .programs = {{.number = 2, .pid = 0x102}}});
    store(first);
    store(second);
    EXPECT_EQ(pat_crc(), crc_of(first) ^ crc_of(second));
}

TEST_F(PatCrc, OfAnIncompletePatIsZero)
{
    store(make(pat{.ts = 1, .last_section_number = 1}));
    EXPECT_EQ(pat_crc(), 0U);
    EXPECT_TRUE(fake::logged(4, "table not finished, pid = 0, tableid = 0\n")) << fake::log_text();
}

TEST_F(PatCrc, OfAnAbsentPatIsZero)
{
    store(make(sdt{.ts = 1}));
    fake::clear_log();
    EXPECT_EQ(pat_crc(), 0U);
    EXPECT_TRUE(fake::logged(4, "IS NOT eqaul, table id = 0x42\n")) << fake::log_text();
}

TEST_F(PatCrc, FoldsEveryPatWhateverItsStream)
{
    const octets first = make(pat{.ts = 1});
    const octets second = make(pat{.ts = 2});
    store(first);
    store(second);
    EXPECT_EQ(pat_crc(), crc_of(first) ^ crc_of(second));
}

TEST_F(PatCrc, LeavesOtherTablesOfThePatPidOut)
{
    const octets pat_section = make(pat{.ts = 1});
    store(pat_section);
    store(make(private_table{.table_id = 0x77, .extension = 1}), 0);
    EXPECT_EQ(pat_crc(), crc_of(pat_section));
}

TEST_F(PatCrc, SaysHowManyTablesItLookedAt)
{
    store(make(pat{.ts = 1}));
    store(make(sdt{.ts = 1}));
    store(make(nit{.network = 1}));
    fake::clear_log();
    pat_crc();
    EXPECT_TRUE(fake::logged(4, "all are looped of count=3\n")) << fake::log_text();
}

TEST_F(PatCrc, PassesOverNullElementsAndEmptyTables)
{
    const octets section = make(pat{.ts = 1});
    si_list_add(Orva_Si_GetTableList(), nullptr, -1);
    SiTable *emptied = store(make(pat{.ts = 2}));
    Orva_Si_RemoveTableSections(emptied);
    emptied->completed = 1;
    store(section);
    EXPECT_EQ(pat_crc(), crc_of(section));
    si_list_remove(Orva_Si_GetTableList(), 0);
}

TEST_F(PatCrc, PassesOverTablesWithoutAList)
{
    SiTable without{};
    without.completed = 1;
    without.ext = without.ext1 = without.ext2 = SI_ANY_EXT;
    si_list_add(Orva_Si_GetTableList(), &without, -1);
    EXPECT_EQ(pat_crc(), 0U);
    si_list_remove(Orva_Si_GetTableList(), 0);
}

TEST_F(PatCrc, PassesOverRecordsWithoutABuffer)
{
    const octets section = make(pat{.ts = 1});
    SiTable *table = store(section);
    SiSection empty{};
    si_list_add(table->psect_list, &empty, -1);
    si_list_add(table->psect_list, nullptr, -1);
    EXPECT_EQ(pat_crc(), crc_of(section));
    si_list_remove(table->psect_list, 2);
    si_list_remove(table->psect_list, 1);
}

TEST_F(PatCrc, RefusesANullPointerBeforeItLocks)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_GetPATCRC(nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pPATCRC\n")) << fake::log_text();
    Orva_MutexV(&Ts_Ctl_Mutex);
}

TEST_F(PatCrc, WaitsForTheControlLockAndGivesItBack)
{
    store(make(pat{.ts = 1}));
    std::atomic<bool> answered{false};
    Orva_MutexP(&Ts_Ctl_Mutex);
    std::thread reader{[&] {
        std::uint32_t crc = 0;
        Orva_Si_GetPATCRC(&crc);
        answered = true;
    }};
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    EXPECT_FALSE(answered);
    Orva_MutexV(&Ts_Ctl_Mutex);
    reader.join();
    EXPECT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

using NitCrc = Summary;

TEST_F(NitCrc, FoldsActualAndOtherOfTheNetwork)
{
    const octets actual = make(nit{.network = 5});
    const octets other = make(nit{.table_id = 0x41, .network = 5});
    store(actual);
    store(other);
    store(make(nit{.table_id = 0x41, .network = 6}));
    EXPECT_EQ(nit_crc(5), crc_of(actual) ^ crc_of(other));
}

TEST_F(NitCrc, LeavesAnIncompleteTableOut)
{
    const octets actual = make(nit{.network = 5});
    store(actual);
    store(make(nit{.table_id = 0x41, .network = 5, .last_section_number = 1}));
    EXPECT_EQ(nit_crc(5), crc_of(actual));
    EXPECT_TRUE(fake::logged(4, "table not finished, pid = 0x10, tableid = 0x41\n"))
        << fake::log_text();
}

TEST_F(NitCrc, OfAnUnknownNetworkIsZero)
{
    store(make(nit{.network = 5}));
    EXPECT_EQ(nit_crc(6), 0U);
}

TEST_F(NitCrc, TakesTheLowSixteenBits)
{
    const octets actual = make(nit{.network = 5});
    store(actual);
    EXPECT_EQ(nit_crc(0x70005), crc_of(actual));
}

TEST_F(NitCrc, RefusesANullPointer)
{
    EXPECT_EQ(Orva_Si_GetNITCRC(5, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pNITCRC\n")) << fake::log_text();
}

using SdtCrc = Summary;

TEST_F(SdtCrc, FoldsInTheBouquetOfTheSameNumber)
{
    const octets services = make(sdt{.ts = 7});
    const octets others = make(sdt{.table_id = 0x46, .ts = 7, .original_network = 2});
    const octets bouquet = make(bat{.bouquet = 7});
    store(services);
    EXPECT_EQ(sdt_crc(7), crc_of(services));
    store(others);
    store(bouquet);
    store(make(sdt{.table_id = 0x46, .ts = 8}));
    EXPECT_EQ(sdt_crc(7), crc_of(services) ^ crc_of(others) ^ crc_of(bouquet));
}

TEST_F(SdtCrc, LeavesOtherPidsOut)
{
    store(make(nit{.network = 7}));
    EXPECT_EQ(sdt_crc(7), 0U);
}

TEST_F(SdtCrc, RefusesANullPointer)
{
    EXPECT_EQ(Orva_Si_GetSDTCRC(7, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pSDTCRC\n")) << fake::log_text();
}

using BatCrc = Summary;

TEST_F(BatCrc, TakesBouquetsOnly)
{
    const octets bouquet = make(bat{.bouquet = 7});
    store(make(sdt{.ts = 7}));
    store(bouquet);
    store(make(bat{.bouquet = 8}));
    EXPECT_EQ(bat_crc(7), crc_of(bouquet));
    EXPECT_EQ(bat_crc(9), 0U);
}

TEST_F(BatCrc, RefusesANullPointer)
{
    EXPECT_EQ(Orva_Si_GetBATCRC(7, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pBATCRC\n")) << fake::log_text();
}

TEST(SummaryWithoutStore, IsZero)
{
    std::uint32_t crc = 5;
    EXPECT_EQ(Orva_Si_GetPATCRC(&crc), ORVA_SI_OK);
    EXPECT_EQ(crc, 0U);
}

} // namespace
