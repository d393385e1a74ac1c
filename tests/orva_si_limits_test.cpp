// SPDX-License-Identifier: LGPL-2.1-or-later
// What a broadcast can make the library hold: each limit is reached, counted and left again.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/broadcaster.h"
#include "support/sections.h"

using namespace test;

namespace {

constexpr std::uint16_t pid_pat = 0x00;
constexpr std::uint16_t pid_cat = 0x01;
constexpr std::uint16_t pid_sdt = 0x11;
constexpr std::uint16_t pid_eit = 0x12;
constexpr std::uint32_t here = 474000;
constexpr std::uint32_t elsewhere = 482000;
constexpr std::size_t largest = 4096;
// What the largest sections count: their bytes and their records.
constexpr std::uint32_t in_tables = largest + 32;
constexpr std::uint32_t in_events = largest + 96;

octets as_large_as_possible(octets section)
{
    section.resize(largest, 0xFF);
    return fix_crc(set_length(section, largest - 3));
}

class Limits : public BroadcastLibrary {
protected:
    Limits() { tune(here); }

    static void flood(std::uint16_t pid, const octets &section, unsigned total)
    {
        extension_flood all{section};
        for (unsigned extension = 0; extension < total; ++extension)
            deliver(pid, all[extension]);
        settle();
    }
    // A table of another multiplex reaches the store.
    static bool takes_another_table(std::uint16_t ts)
    {
        const std::uint32_t before = counts().tables.used;
        deliver(pid_sdt, make(sdt{.table_id = 0x46, .ts = ts}));
        settle();
        return counts().tables.used == before + 1;
    }
    // With every event of every other multiplex asked for.
    static void ask_for_events()
    {
        ASSERT_EQ(Orva_Si_StartOtherSchedulEIT(nullptr, 0), ORVA_SI_OK);
    }
    // Keeps the section thread from going on behind one section, so that the queue fills.
    class standstill {
    public:
        standstill()
        {
            Orva_MutexP(&Ts_Ctl_Mutex);
            deliver(pid_sdt, make(sdt{.table_id = 0x46, .ts = 0x7777}));
            EXPECT_TRUE(wait_for([] { return Si_SectFlt_CheckRunningStatus() != 0; }));
        }
        ~standstill()
        {
            Orva_MutexV(&Ts_Ctl_Mutex);
            settle();
        }
        standstill(const standstill &) = delete;
        standstill &operator=(const standstill &) = delete;
    };
};

TEST_F(Limits, NothingIsCountedWhileNothingIsRefused)
{
    deliver(pid_sdt, make(sdt{.ts = 7}));
    deliver(pid_sdt, make(sdt{.table_id = 0x46, .ts = 8}));
    settle();
    const SiLimitCounts now = counts();
    for (const SiLimitCount &each :
         {now.tables, now.table_bytes, now.event_services, now.event_bytes, now.queued_sections,
          now.queued_bytes, now.busy_queue})
        EXPECT_EQ(each.refused, 0U);
    EXPECT_EQ(now.tables.used, 2U);
    EXPECT_EQ(now.table_bytes.used, 2 * (32U + 32U)); // two short sections with their records
}

TEST_F(Limits, AreThoseThatAreDocumented)
{
    const SiLimitCounts now = counts();
    EXPECT_EQ(now.tables.most, 4096U);
    EXPECT_EQ(now.table_bytes.most, 16U << 20);
    EXPECT_EQ(now.event_services.most, 8192U);
    EXPECT_EQ(now.event_bytes.most, 128U << 20);
    EXPECT_EQ(now.queued_sections.most, 2048U);
    EXPECT_EQ(now.queued_bytes.most, 4U << 20);
    EXPECT_EQ(now.busy_queue.most, 100U);
}

TEST_F(Limits, ARecordIsRequired)
{
    fake::set_log_level(2);
    EXPECT_EQ(Orva_Si_GetLimitCounts(nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[pcounts\n")) << fake::log_text();
}

TEST_F(Limits, TablesAreCountedAndRoomAgainAfterARetune)
{
    flood(pid_sdt, make(sdt{.table_id = 0x46}), 4000);
    EXPECT_EQ(counts().tables.used, 3584U); // seven eighths
    EXPECT_EQ(counts().tables.refused, 416U);
    EXPECT_FALSE(takes_another_table(5000));
    EXPECT_EQ(counts().tables.refused, 417U);

    tune(elsewhere);
    EXPECT_EQ(counts().tables.used, 0U);
    EXPECT_TRUE(takes_another_table(5000));
    EXPECT_EQ(counts().tables.refused, 417U);
}

TEST_F(Limits, BytesOfTablesAreCountedAndRoomAgainAfterARetune)
{
    constexpr unsigned each = 2000;
    for (std::uint8_t number = 0; number < 2; ++number)
        flood(pid_sdt,
              as_large_as_possible(
                  make(sdt{.table_id = 0x46, .section_number = number, .last_section_number = 1})),
              each);
    const SiLimitCounts full = counts();
    EXPECT_EQ(full.tables.refused, 0U);
    EXPECT_LE(full.table_bytes.used, 14U << 20); // seven eighths
    EXPECT_GT(full.table_bytes.used, 13U << 20);
    EXPECT_EQ(full.table_bytes.refused, 2 * each - full.table_bytes.used / in_tables);

    tune(elsewhere);
    EXPECT_EQ(counts().table_bytes.used, 0U);
    deliver(pid_sdt, as_large_as_possible(make(sdt{.table_id = 0x46, .ts = 1})));
    settle();
    EXPECT_EQ(counts().table_bytes.used, in_tables);
    EXPECT_EQ(counts().table_bytes.refused, full.table_bytes.refused);
}

TEST_F(Limits, ServicesWithEventsAreCountedAndRoomAgainWhenTheyAreErased)
{
    ask_for_events();
    flood(pid_eit, make(eit{.table_id = 0x60}), 8000);
    EXPECT_EQ(counts().event_services.used, 7168U);
    EXPECT_EQ(counts().event_services.refused, 832U);

    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(counts().event_services.used, 0U);
    flood(pid_eit, make(eit{.table_id = 0x60}), 10);
    EXPECT_EQ(counts().event_services.used, 10U);
    EXPECT_EQ(counts().event_services.refused, 832U);
}

TEST_F(Limits, BytesOfEventsAreCountedAndRoomAgainWhenTheyAreErased)
{
    ask_for_events();
    const octets section = as_large_as_possible(make(eit{.table_id = 0x60}));
    constexpr unsigned room = (112U << 20) / in_events; // seven eighths
    for (unsigned number = 0; number < room / 7168 + 1; ++number) {
        octets numbered = section;
        numbered[6] = static_cast<std::uint8_t>(number);
        numbered[7] = 255;
        flood(pid_eit, fix_crc(numbered), 7168);
    }
    const SiLimitCounts full = counts();
    EXPECT_EQ(full.event_bytes.used, room * in_events);
    EXPECT_EQ(full.event_bytes.refused, 7168U * (room / 7168 + 1) - room);
    EXPECT_EQ(full.event_services.refused, 0U);

    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(counts().event_bytes.used, 0U);
    flood(pid_eit, section, 1);
    EXPECT_EQ(counts().event_bytes.used, in_events);
    EXPECT_EQ(counts().event_bytes.refused, full.event_bytes.refused);
}

TEST_F(Limits, QueuedSectionsAreCountedAndRoomAgainWhenTheyAreProcessed)
{
    const octets other = make(sdt{.table_id = 0x46, .ts = 8});
    {
        const standstill still;
        driver.deliver(pid_sdt, other, 2000);
    }
    EXPECT_EQ(counts().queued_sections.refused, 2000U - 1792U);
    EXPECT_EQ(counts().queued_sections.used, 0U);
    EXPECT_TRUE(takes_another_table(9));
    EXPECT_EQ(counts().queued_sections.refused, 2000U - 1792U);
}

TEST_F(Limits, QueuedBytesAreCountedAndRoomAgainWhenTheyAreProcessed)
{
    const octets other = as_large_as_possible(make(sdt{.table_id = 0x46, .ts = 8}));
    {
        const standstill still;
        driver.deliver(pid_sdt, other, 1000);
    }
    EXPECT_EQ(counts().queued_bytes.refused, 1000U - 896U); // 3.5 MiB
    EXPECT_EQ(counts().queued_bytes.used, 0U);
    EXPECT_EQ(counts().queued_sections.refused, 0U);
    EXPECT_TRUE(takes_another_table(9));
}

TEST_F(Limits, WhatABusyQueueRefusesIsCounted)
{
    ask_for_events();
    {
        const standstill still;
        driver.deliver(pid_sdt, make(private_table{.table_id = 0x72}), 120);
        driver.deliver(pid_sdt, make(sdt{.ts = 7}), 5); // always admitted
        driver.deliver(pid_eit, make(eit{.table_id = 0x60}), 30);
    }
    EXPECT_EQ(counts().busy_queue.refused, 20U + 30U);
    EXPECT_EQ(counts().queued_sections.refused, 0U);
    deliver(pid_eit, make(eit{.table_id = 0x60}));
    settle();
    EXPECT_EQ(counts().event_services.used, 1U);
    EXPECT_EQ(counts().busy_queue.refused, 20U + 30U);
}

// Who announces other CATs leaves room for the programs.
TEST_F(Limits, TheCatTakesNoMoreThanAQuarterOfTheReserve)
{
    flood(pid_sdt, make(sdt{.table_id = 0x46}), 4000);
    flood(pid_cat, make(cat{}), 4000);
    EXPECT_EQ(counts().tables.used, 3584U + 128U);
    deliver(pid_pat, make(pat{.ts = 7}));
    settle();
    EXPECT_EQ(counts().tables.used, 3584U + 128U + 1U);
}

// Short sections cost more in records than in bytes, which count too.
TEST_F(Limits, RecordsCountAsBytes)
{
    for (unsigned number = 0; number < 4; ++number)
        flood(pid_sdt,
              make(sdt{.table_id = 0x46,
                       .section_number = static_cast<std::uint8_t>(number),
                       .last_section_number = 255}),
              3584);
    EXPECT_EQ(counts().table_bytes.used, 3584U * 4 * (32 + 32));
}

// The counts are read while the section thread is at work.
TEST_F(Limits, AreReadWhileSectionsCome)
{
    extension_flood all{make(sdt{.table_id = 0x46})};
    std::uint32_t last = 0;
    for (unsigned extension = 0; extension < 6000; ++extension) {
        deliver(pid_sdt, all[extension]);
        if (extension % 16 == 0) {
            const SiLimitCounts now = counts();
            EXPECT_LE(now.tables.used, 3584U);
            EXPECT_GE(now.tables.refused, last);
            last = now.tables.refused;
        }
    }
    settle();
    EXPECT_EQ(counts().tables.refused, 6000U - 3584U);
}

} // namespace
