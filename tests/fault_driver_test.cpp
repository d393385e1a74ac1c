// SPDX-License-Identifier: LGPL-2.1-or-later
// Drivers and platforms that fail: each slot of the driver's table missing, or failing once, later
// or for ever; callbacks at every wrong moment and with everything wrong about them; a section
// thread that is not ready; timers that do not exist. Every buffer comes back, nobody is stuck, and
// a driver that works again makes the library work again.
#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <thread>

#include "support/effort.h"
#include "support/fault_driver.h"
#include "support/fault_scenarios.h"

namespace {

using namespace test;

// ---- What a receiver goes through; each begins with a start of its own

bool retune()
{
    return whole_multiplex() && next_multiplex();
}

bool event_requests()
{
    start();
    return requests_of_all_kinds();
}

bool data()
{
    start();
    return data_carousels();
}

bool stop_and_start()
{
    return whole_multiplex() && everything_stops() && whole_multiplex();
}

constexpr scenario scenarios[] = {
    {"a whole multiplex", nothing, whole_multiplex},
    {"a retune", nothing, retune},
    {"events", nothing, all_events},
    {"requests of events", nothing, event_requests},
    {"data carousels", nothing, data},
    {"a latched program", nothing, latched_program},
    {"a scan", nothing, scan},
    {"a stop and a start", nothing, stop_and_start},
};

// ---- A driver that fails

struct failure {
    const char *name;
    bool missing;
    call_range calls;
};
constexpr failure failures[] = {
    {"is missing", true, never},
    {"fails the first time", false, {1, 1}},
    {"fails the second time", false, {2, 2}},
    {"fails the third time", false, {3, 3}},
    {"fails the fifth time", false, {5, 5}},
    {"fails the eighth time", false, {8, 8}},
    {"fails for ever", false, {1, for_ever}},
    {"fails from the second time on", false, {2, for_ever}},
    {"fails from the sixth time on", false, {6, for_ever}},
};

// How often a driver without fault is called in a whole life of its filters.
std::array<unsigned, fake::slots> usual_calls(const scenario &what)
{
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
    EXPECT_TRUE(what.act()) << what.name;
    EXPECT_EQ(broken_promise(), "") << what.name;
    close_filters();
    return faulty.calls;
}

bool said(const char *beginning)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == ORVA_DEBUG_ERROR && line.text.starts_with(beginning);
    });
}

bool said_missing(fake::slot slot)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == ORVA_DEBUG_ERROR && line.text == "NULL pointer!\n" &&
               line.function == wrappers[slot];
    });
}

// What is to be said of a slot that failed; null where nothing is.
const char *text_of_failure(fake::slot slot)
{
    switch (slot) {
    case fake::demux_init:
        return "Init Dmx Section filters register map error\n";
    case fake::remove_filter:
        return "Remove filter ";
    case fake::add_filter:
        return "i = ";
    case fake::update_filter:
        return "Start filter failed: 119\n";
    default:
        return nullptr;
    }
}

void expect_told(const driver_fault &fault, unsigned usual_calls_of_slot)
{
    if (fault.missing && usual_calls_of_slot != 0) {
        EXPECT_TRUE(said_missing(fault.slot));
    }
    if (const char *text = text_of_failure(fault.slot); text != nullptr && faulty.struck != 0) {
        EXPECT_TRUE(said(text)) << fake::log_text();
    }
}

// A driver without slot 1 keeps what it has lent.
void expect_promises(const driver_fault &fault)
{
    if (fault.missing && fault.slot == fake::free_data) {
        EXPECT_EQ(held_lock(), "");
        EXPECT_EQ(fake::driver().wrongly_returned(), 0u);
        return;
    }
    EXPECT_EQ(broken_promise(), "");
}

// Filters are requested once in the life of a library, which a client can only do over from the
// beginning; and those that did not go off go on in the driver until they are given back.
bool needs_new_filters(fake::slot slot)
{
    return slot != fake::free_data && slot != fake::enable_filter && slot != fake::update_filter;
}

TEST_F(FaultyDriver, LosesNothingAndIsUsedAgainWhicheverSlotFails)
{
    unsigned number = 0;
    unsigned cases = 0;
    unsigned struck = 0;
    for (const scenario &what : scenarios) {
        const auto usual = usual_calls(what);
        for (unsigned slot = 0; slot < fake::slots; ++slot)
            for (const failure &how : failures) {
                if (number++ % ORVA_TEST_DIVISOR != 0)
                    continue;
                ++cases;
                SCOPED_TRACE(std::string{what.name} + ": slot " + std::to_string(slot) + " " +
                             how.name);
                const driver_fault fault{static_cast<fake::slot>(slot), how.missing, how.calls};
                fake::clear_log();
                Si_SectFlt_InitPidFlts(driver_with(fault));
                turns_at_most = impatient;
                what.act();
                turns_at_most = patient;
                expect_promises(fault);
                Orva_Si_StopChannel();
                if (needs_new_filters(fault.slot))
                    Orva_Si_DeInit();
                expect_told(fault, usual[slot]);
                struck += faulty.struck != 0 || (fault.missing && usual[slot] != 0) ? 1 : 0;

                if (fault.missing && fault.slot == fake::free_data) { // it would not forget
                    Orva_Si_DeInit();
                    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
                }
                heal_driver();
                if (needs_new_filters(fault.slot)) {
                    EXPECT_EQ(Si_SectFlt_InitPidFlts(&faulty.table), ORVA_SI_OK);
                }
                EXPECT_TRUE(what.act()) << "it does not come right any more";
                EXPECT_EQ(close_filters(), ORVA_SI_OK);
                expect_rest();
            }
    }
    std::printf("%u drivers, of which %u failed\n", cases, struck);
    RecordProperty("cases", static_cast<int>(cases));
    EXPECT_GE(cases, part_of(300));
    EXPECT_GE(struck, part_of(200));
}

// ---- Callbacks that are wrong, at any time

struct moment {
    const char *name;
    void (*come)();
    bool is_open; // the filter of the PAT is
};
constexpr moment moments[] = {
    {"before a start", nothing, false},
    {"while a channel runs", [] { start(); }, true},
    {"after a stop", [] { start(), Orva_Si_StopChannel(); }, false},
    {"while nothing is processed", [] { start(), Si_SectFlt_EnableProcessData(0); }, true},
    {"after a cancel", [] { start(), Orva_Si_CancelScanChannel(); }, true},
    {"after the end of the library", [] { start(), Orva_Si_DeInit(); }, false},
};

constexpr std::uint32_t foreign_filter = 0x7777;

const std::string invalid = "Invalid callback: ";
const std::string closed = "This filter has been closed, ";
const std::string bad_length = "Bad section length! ";
const std::string invalid_listed = "Invalid section: ";

// A delivery of one buffer, which is to come back; what is said of it while its filter is open, and
// what while it is closed.
struct delivery {
    const char *name;
    void (*make)(std::uint32_t filter_id, std::uint8_t *bytes, std::uint32_t size, SiWord handle);
    std::string text;
    bool also_when_closed = false; // what is wrong is seen before the filter is looked for
};

void deliver_one(std::uint32_t filter_id, SiDmxSection section)
{
    Si_SectFlt_PidFltCallback(fake::driver_demux, filter_id, 0, &section);
}

template <std::size_t N>
void deliver_list(std::uint32_t filter_id, std::array<SiDmxSection, N> sections, SiWord handle,
                  std::uint32_t count = N)
{
    SiDmxSectionList list{count, sections.data(), handle};
    Si_SectFlt_PidFltSecListCallback(fake::driver_demux, filter_id, 0, &list);
}

using u8 = std::uint8_t;

const delivery deliveries[] = {
    {"a section",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_one(id, {at, size, nullptr, 0, h});
     },
     ""},
    {"a section in two parts",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_one(id, {at, 5, at + 5, size - 5, h});
     },
     ""},
    {"a section without bytes",
     [](u32 id, u8 *, u32 size, SiWord h) {
         deliver_one(id, {nullptr, size, nullptr, 0, h});
     },
     invalid, true},
    {"a section of no length",
     [](u32 id, u8 *at, u32, SiWord h) {
         deliver_one(id, {at, 0, nullptr, 0, h});
     },
     invalid, true},
    {"a second part without bytes",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_one(id, {at, size, nullptr, 9, h});
     },
     invalid, true},
    {"a section to no filter",
     [](u32, u8 *at, u32 size, SiWord h) {
         deliver_one(SI_NO_FILTER, {at, size, nullptr, 0, h});
     },
     invalid, true},
    {"a section to a foreign filter",
     [](u32, u8 *at, u32 size, SiWord h) {
         deliver_one(foreign_filter, {at, size, nullptr, 0, h});
     },
     closed, true},
    {"three bytes",
     [](u32 id, u8 *at, u32, SiWord h) {
         deliver_one(id, {at, 3, nullptr, 0, h});
     },
     bad_length},
    {"a section that is cut off",
     [](u32 id, u8 *at, u32, SiWord h) {
         deliver_one(id, {at, 7, nullptr, 0, h});
     },
     ""},
    {"a section that is too long",
     [](u32 id, u8 *at, u32, SiWord h) {
         deliver_one(id, {at, 4097, nullptr, 0, h});
     },
     bad_length},
    {"parts whose length wraps",
     [](u32 id, u8 *at, u32, SiWord h) {
         deliver_one(id, {at, 0xFFFFFFFF, at, 9, h});
     },
     bad_length},
    {"a batch",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_list<2>(id, {{{at, size, nullptr, 0, 0}, {at, size, nullptr, 0, 0}}}, h);
     },
     ""},
    {"a batch without sections", [](u32 id, u8 *, u32, SiWord h) { deliver_list<1>(id, {}, h, 0); },
     invalid, true},
    {"a batch of too many", [](u32 id, u8 *, u32, SiWord h) { deliver_list<1>(id, {}, h, 201); },
     invalid, true},
    {"a batch of as many as can be said",
     [](u32 id, u8 *, u32, SiWord h) { deliver_list<1>(id, {}, h, 0xFFFFFFFF); }, invalid, true},
    {"a batch without its list",
     [](u32 id, u8 *, u32, SiWord h) {
         SiDmxSectionList list{3, nullptr, h};
         Si_SectFlt_PidFltSecListCallback(fake::driver_demux, id, 0, &list);
     },
     invalid, true},
    {"a batch to no filter",
     [](u32, u8 *at, u32 size, SiWord h) {
         deliver_list<1>(SI_NO_FILTER, {{{at, size, nullptr, 0, 0}}}, h);
     },
     invalid, true},
    {"a batch to a foreign filter",
     [](u32, u8 *at, u32 size, SiWord h) {
         deliver_list<1>(foreign_filter, {{{at, size, nullptr, 0, 0}}}, h);
     },
     closed, true},
    {"a batch with a section without bytes",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_list<2>(id, {{{nullptr, size, nullptr, 0, 0}, {at, size, nullptr, 0, 0}}}, h);
     },
     invalid_listed},
    {"a batch with sections that are too short and too long",
     [](u32 id, u8 *at, u32 size, SiWord h) {
         deliver_list<3>(
             id, {{{at, 1, nullptr, 0, 0}, {at, 4097, nullptr, 0, 0}, {at, size, nullptr, 0, 0}}},
             h);
     },
     bad_length},
};

bool said_at_any_level(const std::string &beginning)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.text.starts_with(beginning);
    });
}

TEST_F(FaultyDriver, GetsItsBufferBackWhateverIsWrongAboutACallbackAndWhenever)
{
    unsigned cases = 0;
    const octets bytes = pat_section();
    for (const moment &now : moments)
        for (const delivery &what : deliveries) {
            SCOPED_TRACE(std::string{now.name} + ": " + what.name);
            ++cases;
            ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
            now.come();
            fake::clear_log();
            const SiWord handle = fake::driver().lend(bytes);
            what.make(fake::driver().filter_id(0), fake::driver().bytes_of(handle),
                      static_cast<u32>(bytes.size()), handle);
            EXPECT_EQ(fake::driver().returned(), 1u); // before the call is over
            EXPECT_EQ(fake::driver().returned_demux(), fake::driver_demux);
            const std::string &expected = now.is_open || what.also_when_closed ? what.text : closed;
            if (expected.empty()) {
                EXPECT_FALSE(said_at_any_level(closed) || said_at_any_level(invalid));
            } else {
                EXPECT_TRUE(said_at_any_level(expected)) << fake::log_text();
            }
            settle();
            EXPECT_EQ(broken_promise(), "");
            close_filters();
            expect_rest();
        }
    std::printf("%u callbacks\n", cases);
    ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
    EXPECT_TRUE(whole_multiplex());
    close_filters();
    expect_rest();
}

TEST_F(FaultyDriver, MayDeliverNothingAtAll)
{
    for (const moment &now : moments) {
        SCOPED_TRACE(now.name);
        ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
        now.come();
        const u32 filter_id = fake::driver().filter_id(0);
        fake::clear_log();
        Si_SectFlt_PidFltCallback(fake::driver_demux, filter_id, 0, nullptr);
        Si_SectFlt_PidFltSecListCallback(fake::driver_demux, filter_id, 0, nullptr);
        EXPECT_TRUE(fake::logged(ORVA_DEBUG_FATAL, "Invalid callback: section = NULL!\n"));
        EXPECT_TRUE(fake::logged(ORVA_DEBUG_FATAL, "Invalid callback: sec_list = NULL!\n"));
        EXPECT_EQ(fake::driver().times_called(fake::free_data), 0u);
        close_filters();
        expect_rest();
    }
}

// A driver's thread knows nothing of stops and starts, nor of the end.
TEST_F(FaultyDriver, MayDeliverAllTheTimeWhileFiltersComeAndGo)
{
    const octets bytes = pat_section();
    std::atomic<u32> filter_of_pat{SI_NO_FILTER};
    std::atomic<bool> over{false};
    const auto request_filters = [&] {
        EXPECT_EQ(Si_SectFlt_InitPidFlts(&faulty.table), ORVA_SI_OK);
        filter_of_pat = fake::driver().filter_id(fake::driver().filter_count() - 31);
    };
    driver_with({});
    request_filters();
    std::thread delivering{[&] {
        while (!over) {
            const SiWord handle = fake::driver().lend(bytes);
            deliver_one(filter_of_pat, {fake::driver().bytes_of(handle),
                                        static_cast<u32>(bytes.size()), nullptr, 0, handle});
        }
    }};
    const auto wait_for_deliveries = [] {
        const std::size_t some_more = fake::driver().lent() + 5;
        while (fake::driver().lent() < some_more)
            std::this_thread::yield();
    };
    for (unsigned times = part_of(60); times != 0; --times) {
        start(times % 2 == 0 ? first_frequency : second_frequency);
        wait_for_deliveries();
        if (times % 3 == 0) {
            Orva_Si_DeInit();
            wait_for_deliveries();
            request_filters();
        }
        wait_for_deliveries();
        Orva_Si_StopChannel();
    }
    over = true;
    delivering.join();
    close_filters();
    expect_rest();
}

} // namespace

// ---- The section thread is not ready yet

namespace {

std::atomic<bool> stores_may_be_made{true};
std::atomic<bool> stores_are_due{false};

} // namespace

extern "C" {

std::uint32_t __real_Orva_Si_InitTables(void);
std::uint32_t __wrap_Orva_Si_InitTables(void)
{
    stores_are_due = true;
    while (!stores_may_be_made)
        sched_yield();
    return __real_Orva_Si_InitTables();
}

} // extern "C"

namespace {

// Everything that a client and a driver can do in the time between the start of the thread and its
// stores: the questions find nothing, the sections wait.
TEST(ThreadThatIsNotReady, LetsSectionsWaitAndFindsNothing)
{
    prepare_platform();
    stores_may_be_made = false;
    ASSERT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    while (!stores_are_due)
        sched_yield();
    EXPECT_TRUE(start());
    fake::driver().broadcast(0x00, pat_section());
    for (const transmission &sent : sdts(0x42, 1))
        fake::driver().broadcast(sent.pid, sent.section);
    EXPECT_EQ(fake::driver().returned(), fake::driver().lent());
    EXPECT_FALSE(questions_about_tables());
    Orva_Si_EraseAllEitRawData();
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_DeleteCaches(0);
    Orva_MutexV(&Ts_Ctl_Mutex);
    stores_may_be_made = true;
    while (Orva_Si_GetDvbEitList() == nullptr)
        sched_yield();
    settle();
    EXPECT_TRUE(are_stored(carousel{{0x00, pat_section()}} + sdts(0x42, 1)));
    EXPECT_TRUE(whole_multiplex());
    close_filters();
    constexpr std::size_t lists_of_stores = 2;
    EXPECT_EQ(broken_rest(lists_of_stores), "");
}

// Drivers that deliver as soon as a filter is requested, and clients that start before they
// initialise.
TEST(ThreadThatIsNotReady, FreesWhatCameBeforeIt)
{
    prepare_platform();
    ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
    EXPECT_TRUE(start());
    for (unsigned times = 0; times < 150; ++times)
        fake::driver().broadcast(0x00, pat_section());
    EXPECT_GT(Si_SectFlt_GetPendingCount(), 0u);
    ASSERT_EQ(Orva_Si_Init(&faulty.table), ORVA_SI_OK);
    while (Orva_Si_GetDvbEitList() == nullptr)
        sched_yield();
    settle();
    EXPECT_FALSE(is_stored({0x00, pat_section()}));
    Orva_Si_StopChannel();
    EXPECT_TRUE(whole_multiplex());
    close_filters();
    constexpr std::size_t lists_of_stores = 2;
    EXPECT_EQ(broken_rest(lists_of_stores), "");
}

// ---- Timers

constexpr const char *timer_functions[] = {
    "Init", "Add", "Pause", "PauseAll", "Trigger", "UpdateInterval", "GetRunningState"};
constexpr call_range timer_failures[] = {{1, 1}, {2, 2}, {3, 3}, {1, for_ever}, {2, for_ever}};

void use_all_services()
{
    for (const std::uint32_t service : {0u, 1u, 2u, 3u}) {
        Si_BG_ResumeService(service);
        Si_BG_InsertFastService(service);
        Si_BG_SetServiceInterval(service, 500);
        Si_BG_WaitServiceTerminate(service);
        Si_BG_PauseService(service);
    }
    Si_BG_WaitAllServiceTerminate();
}

TEST_F(FaultyDriver, MayComeWithTimersThatFail)
{
    unsigned cases = 0;
    for (const char *function : timer_functions)
        for (const call_range calls : timer_failures)
            for (const scenario &what : {scenarios[0], scenarios[2]}) {
                SCOPED_TRACE(std::string{what.name} + ": " + function + ", call " +
                             std::to_string(calls.first) + " to " + std::to_string(calls.last));
                ++cases;
                ASSERT_EQ(Si_SectFlt_InitPidFlts(driver_with({})), ORVA_SI_OK);
                faulty_timer = {function, calls};
                timer_calls = 0;
                timers_may_fail = true;
                const bool no_thread = faulty_timer.function == "Init" && calls.contains(1);
                EXPECT_EQ(Si_BG_InitServiceList(), no_thread ? ORVA_SI_FAILURE : ORVA_SI_OK);
                EXPECT_TRUE(what.act()) << "which needs no timer but for what the test runs itself";
                use_all_services();
                EXPECT_EQ(broken_promise(), "");
                timers_may_fail = false;
                EXPECT_EQ(Si_BG_InitServiceList(), ORVA_SI_OK);
                EXPECT_EQ(Si_BG_ResumeService(0), ORVA_SI_OK);
                EXPECT_TRUE(what.act());
                close_filters();
                expect_rest();
            }
    std::printf("%u facilities of timers\n", cases);
}

// The start has no use for the timers yet, and says nothing.
TEST(TimersThatDoNotStart, LeaveALibraryWithoutServices)
{
    prepare_platform();
    faulty_timer = {"Init", {1, for_ever}};
    timers_may_fail = true;
    ASSERT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    while (Orva_Si_GetDvbEitList() == nullptr)
        sched_yield();
    for (const auto change : {Si_BG_PauseService, Si_BG_ResumeService, Si_BG_InsertFastService,
                              Si_BG_WaitServiceTerminate})
        EXPECT_EQ(change(0), static_cast<u32>(ORVA_SI_UNKNOWN_SERVICE));
    EXPECT_EQ(Si_BG_WaitAllServiceTerminate(), ORVA_SI_OK);
    EXPECT_TRUE(whole_multiplex());
    EXPECT_TRUE(first_present_following());
    timers_may_fail = false;
    EXPECT_EQ(Si_BG_InitServiceList(), ORVA_SI_OK);
    EXPECT_EQ(Si_BG_ResumeService(0), ORVA_SI_OK);
    close_filters();
    constexpr std::size_t lists_of_stores = 2;
    EXPECT_EQ(broken_rest(lists_of_stores), "");
}

} // namespace
