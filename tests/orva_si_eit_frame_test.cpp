// SPDX-License-Identifier: LGPL-2.1-or-later
// What all questions about events have in common: which sections they read, what they answer when
// there is nothing, and a lock that cannot be taken.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "support/event_questions.h"

// ---- A lock that cannot be taken

static bool eit_lock_fails = false;
static unsigned unlocked_in_vain = 0;

extern "C" std::uint32_t __real_Orva_MutexP(pthread_mutex_t *mutex);
extern "C" std::uint32_t __wrap_Orva_MutexP(pthread_mutex_t *mutex)
{
    if (eit_lock_fails && mutex == &Ts_Eit_Mutex)
        return ORVA_SI_FAILURE;
    return __real_Orva_MutexP(mutex);
}
extern "C" std::uint32_t __real_Orva_MutexV(pthread_mutex_t *mutex);
extern "C" std::uint32_t __wrap_Orva_MutexV(pthread_mutex_t *mutex)
{
    if (!eit_lock_fails || mutex != &Ts_Eit_Mutex)
        return __real_Orva_MutexV(mutex);
    ++unlocked_in_vain;
    return ORVA_SI_OK;
}

namespace {

using namespace test;
// ---- First, because a store that was made stays

TEST(BeforeThereIsAStore, NothingIsFound)
{
    ASSERT_EQ(Orva_Si_GetDvbEitList(), nullptr);
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_nothing({.banner = banner});
    EXPECT_TRUE(eit_lock_is_free());
}

using Frame = EventQuery;

// ---- What is read

TEST_F(Frame, AnEventOfTheScheduleIsFoundThereOnly)
{
    deliver(full_section(0x50));
    expect_answers({.banner = in_schedule});
    expect_nothing({.banner = in_banner});
}

TEST_F(Frame, APresentOrFollowingEventIsFoundThereOnly)
{
    deliver(full_section(0x4E));
    expect_answers({.banner = in_banner});
    expect_nothing({.banner = in_schedule});
}

TEST_F(Frame, EveryTableOfActualAndOtherMultiplexesIsRead)
{
    for (unsigned table_id = 0x4E; table_id <= 0x6F; ++table_id) {
        SCOPED_TRACE(table_id);
        Orva_Si_EraseAllEitRawData();
        deliver(full_section(static_cast<std::uint8_t>(table_id)));
        const std::uint8_t banner = table_id < 0x50 ? in_banner : in_schedule;
        for (const question &q : questions) {
            if (!q.is_about(banner) || q.name == "GetOneSectEvtIds") // it names the table
                continue;
            EXPECT_EQ(q.ask({.banner = banner}).result, ORVA_SI_OK) << q.name;
        }
        expect_nothing({.banner = banner == in_banner ? in_schedule : in_banner});
    }
}

TEST_F(Frame, AnyBannerArgumentButZeroMeansTheBanner)
{
    deliver(full_section(0x4E));
    for (const unsigned banner : {2u, 0x80u, 0xFFu})
        expect_answers({.banner = static_cast<std::uint8_t>(banner)});
}

TEST_F(Frame, ASectionOfAnotherKindIsNotRead)
{
    deliver_as(with_byte(full_section(0x50), 0, 0x42), 0x50, 0);
    deliver_as(with_byte(full_section(0x50), 0, 0x70), 0x51, 0);
    deliver_as(with_byte(full_section(0x4E), 0, 0x4D), 0x4E, 0);
    for (const question &q : questions) {
        if (q.name == "GetOneSectEvtIds") // it goes by the place in the store
            continue;
        for (const std::uint8_t banner : {in_schedule, in_banner}) {
            const answer given = q.ask({.banner = banner});
            EXPECT_EQ(given.result, q.none) << q.name;
            EXPECT_FALSE(given.told) << q.name;
        }
    }
}

TEST_F(Frame, OfIdentifiersTheLow16BitsCount)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.onid = 0x10000u | network,
                        .ts = 0xABCD0000u | stream,
                        .service = 0xFFFF0000u | sid,
                        .banner = banner,
                        .event = 0x30000u | wanted});
}

TEST_F(Frame, AllThreeNumbersNameTheService)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const std::uint8_t banner : {in_schedule, in_banner}) {
        expect_nothing({.onid = network + 1, .banner = banner});
        expect_nothing({.ts = stream + 1, .banner = banner});
        expect_nothing({.service = sid + 1, .banner = banner});
        expect_nothing({.onid = 0xFFFF, .ts = 0xFFFF, .service = 0xFFFF, .banner = banner});
        expect_nothing({.onid = sid, .ts = stream, .service = network, .banner = banner});
    }
    EXPECT_TRUE(fake::logged("mismatch service 3 param value\n")) << fake::log_text();
}

TEST_F(Frame, AServiceIsFoundBehindOthers)
{
    for (std::uint16_t other = 1; other < 4; ++other)
        deliver(make(eit{.table_id = 0x50, .service = other, .events = {{.id = wanted}}}));
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
}

TEST_F(Frame, AnEventIsFoundBehindOthers)
{
    for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x50, 0x4E})) {
        deliver(guide(table_id, 0, {{.id = 1}, {.id = 2, .descriptors = all_descriptors()}}));
        deliver(guide(table_id, 1,
                      {{.id = 3, .descriptors = {raw(0x42, {})}},
                       {.id = wanted, .mjd = the_day, .descriptors = all_descriptors()},
                       {.id = 4}}));
    }
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner, .section = 1});
}

TEST_F(Frame, ASubTableNeedNotBeComplete)
{
    deliver(
        make(eit{.table_id = 0x50,
                 .service = sid,
                 .ts = stream,
                 .original_network = network,
                 .section_number = 0,
                 .last_section_number = 248,
                 .segment_last_section_number = 7,
                 .last_table_id = 0x5F,
                 .events = {{.id = wanted, .mjd = the_day, .descriptors = all_descriptors()}}}));
    expect_answers({});
}

TEST_F(Frame, NumbersAtOddsDoNotMatter)
{
    deliver(
        make(eit{.table_id = 0x50,
                 .service = sid,
                 .ts = stream,
                 .original_network = network,
                 .version = 31,
                 .current_next = false,
                 .section_number = 200,
                 .last_section_number = 3,
                 .segment_last_section_number = 255,
                 .last_table_id = 0,
                 .events = {{.id = wanted, .mjd = the_day, .descriptors = all_descriptors()}}}));
    expect_answers({.section = 200});
}

TEST_F(Frame, SectionsOfTwoVersionsAreBothRead)
{
    deliver(schedule(0, 1, 4, 1));
    deliver(schedule(1, 1, 5, 2));
    expect_events<std::uint16_t>(
        [](auto *list, auto *count) {
            return Orva_Si_GetOneServEvtIds(network, stream, sid, list, count);
        },
        {1, 2});
}

TEST_F(Frame, TellsHowFarItCame)
{
    deliver(full_section(0x50));
    deliver(full_section(0x50, 1));
    for (const question &q : questions) {
        if (!q.is_about(in_schedule))
            continue;
        fake::clear_log();
        q.ask({});
        EXPECT_TRUE(fake::logged(4, "found the service entry and the secion counts = 2\n"))
            << q.name << '\n'
            << fake::log_text();
    }
}

TEST_F(Frame, TellsWhichServiceIsMeant)
{
    const auto names_it = [](const fake::log_line &line) {
        return line.level == 4 &&
               line.text.starts_with("on_id: 1286, ts_id: 772, serv_id: 258, count: ");
    };
    for (const question &q : questions) {
        fake::clear_log();
        q.ask({.onid = 0x10000u | network, .service = 0x20000u | sid});
        EXPECT_TRUE(std::ranges::any_of(fake::log_lines(), names_it)) << q.name << '\n'
                                                                      << fake::log_text();
    }
}

TEST_F(Frame, ALogThatIsOffChangesNoAnswer)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    fake::clear_log();
    fake::set_log_level(0);
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
    fake::set_log_level(5);
    EXPECT_TRUE(fake::log_lines().empty());
}

TEST_F(Frame, WhoTakesABannerArgumentTellsIt)
{
    for (const question &q : questions) {
        if (q.reads != place::chosen || q.name == "GetOneSectEvtIds")
            continue;
        fake::clear_log();
        q.ask({.banner = 3});
        EXPECT_TRUE(fake::logged(4, "invoked bisbanner = 3\n")) << q.name << '\n'
                                                                << fake::log_text();
    }
}

TEST_F(Frame, AllocatesNothing)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    const std::size_t before = fake::allocations();
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
    EXPECT_EQ(fake::allocations(), before);
}

// ---- Nothing there

TEST_F(Frame, InAnEmptyStoreNothingIsFound)
{
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_nothing({.banner = banner});
}

TEST_F(Frame, OfAServiceWithoutSectionsNothingIsFound)
{
    // The service is kept when there was no memory for its first section.
    for (unsigned n = 1; n < 8 && (services().empty() || !records().empty()); ++n) {
        Orva_Si_EraseAllEitRawData();
        deliver_without_memory(full_section(0x50), n);
    }
    ASSERT_EQ(services().size(), 1u);
    ASSERT_TRUE(records().empty());
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_nothing({.banner = banner});
    deliver(full_section(0x50));
    expect_answers({});
}

TEST_F(Frame, AServiceWithoutAListIsPassedOver)
{
    deliver(full_section(0x50));
    si_list *kept = std::exchange(services()[0]->sections, nullptr);
    expect_nothing({});
    services()[0]->sections = kept;
    expect_answers({});
}

TEST_F(Frame, AnEmptySlotOfAListIsPassedOver)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    si_list_add(Orva_Si_GetDvbEitList(), nullptr, 0);
    si_list_add(services()[1]->sections, nullptr, 0);
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
}

TEST_F(Frame, ARecordThatLostItsSectionIsPassedOver)
{
    deliver(guide(0x50, 0, {{.id = 1}}));
    deliver_without_memory(full_section(0x50, 0), 1);
    ASSERT_EQ(records().at(0)->section, nullptr);
    fake::clear_log();
    expect_nothing({});
    EXPECT_TRUE(fake::logged(4, "int_psect = null\n")) << fake::log_text();
    deliver(full_section(0x50, 1));
    expect_answers({.section = 1});
}

TEST_F(Frame, AnotherEventIsNotTheOneWanted)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const question &q : questions) {
        const answer with = q.ask({.event = wanted});
        const answer without = q.ask({.event = wanted + 1});
        const bool about_one = q.reads == place::chosen && q.name != "GetOneSectEvtIds";
        EXPECT_EQ(with.told, q.is_about(in_schedule) || q.reads == place::banner) << q.name;
        EXPECT_EQ(without.told, with.told && !about_one) << q.name;
        if (about_one) {
            EXPECT_EQ(without.result, q.none) << q.name;
        }
    }
}

// ---- Locks

TEST_F(Frame, TheLockIsGivenBackWhateverTheAnswer)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const question &q : questions)
        for (const std::uint32_t event : {wanted, std::uint16_t{1}})
            for (const std::uint8_t banner : {in_schedule, in_banner}) {
                q.ask({.banner = banner, .event = event});
                EXPECT_TRUE(eit_lock_is_free()) << q.name;
            }
}

TEST_F(Frame, TheLockIsTraced)
{
    for (const question &q : questions) {
        fake::clear_log();
        q.ask({});
        EXPECT_TRUE(fake::logged(5, "~~~Mutex Lock~~~\n")) << q.name;
        EXPECT_TRUE(fake::logged(5, "===Mutex Unlock===\n")) << q.name;
    }
}

TEST_F(Frame, TheLockOfTheOtherTablesIsNotTaken)
{
    deliver(full_section(0x50));
    Orva_MutexP(&Ts_Ctl_Mutex);
    expect_answers({}); // would not return
    Orva_MutexV(&Ts_Ctl_Mutex);
}

TEST_F(Frame, WithoutTheLockNothingIsRead)
{
    deliver(full_section(0x50));
    deliver(full_section(0x4E));
    for (const std::uint8_t banner : {in_schedule, in_banner})
        for (const question &q : questions) {
            fake::clear_log();
            eit_lock_fails = true;
            const answer given = q.ask({.banner = banner});
            eit_lock_fails = false;
            EXPECT_EQ(given.result, q.locked_out) << q.name;
            EXPECT_FALSE(given.told) << q.name;
            EXPECT_TRUE(fake::logged(2, "%%%%%% mutex locked yet &&&&&&&&&&\n"))
                << q.name << '\n'
                << fake::log_text();
        }
    for (const std::uint8_t banner : {in_schedule, in_banner})
        expect_answers({.banner = banner});
}

TEST_F(Frame, ALockThatWasNotTakenIsNotGivenBack)
{
    deliver(full_section(0x50));
    unlocked_in_vain = 0;
    for (const question &q : questions) {
        eit_lock_fails = true;
        q.ask({});
        eit_lock_fails = false;
        EXPECT_EQ(std::exchange(unlocked_in_vain, 0), 0u) << q.name;
    }
}

} // namespace
