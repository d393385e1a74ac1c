// SPDX-License-Identifier: LGPL-2.1-or-later
// A multiplex that is out to fill the library: it announces every other transport stream, bouquet
// and network that there may be, and events of every service. The library keeps within its limits,
// goes on with the tuned multiplex, never holds the lock of its tables for long, and is as new
// after a change of multiplex.
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "fakes/allocation.h"
#include "orva_si.h"
#include "support/broadcaster.h"
#include "support/descriptors.h"
#include "support/effort.h"
#include "support/getter_table.h"
#include "support/promises.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/stress.h"

using namespace test;

namespace {

// ---- How long Ts_Ctl_Mutex is held at a time: processor time of the thread that holds it, which
// nothing else on the machine makes longer.

thread_local std::int64_t held_since = 0;
std::atomic<std::int64_t> longest_hold_ns{0};

std::int64_t thread_time_ns()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

tally frees;
tally freed_bytes;

} // namespace

extern "C" {

std::uint32_t __real_Orva_MutexP(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexP(pthread_mutex_t *mutex)
{
    const std::uint32_t result = __real_Orva_MutexP(mutex);
    if (mutex == &Ts_Ctl_Mutex)
        held_since = thread_time_ns();
    return result;
}

std::uint32_t __real_Orva_MutexV(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexV(pthread_mutex_t *mutex)
{
    if (mutex == &Ts_Ctl_Mutex) {
        const std::int64_t lasted = thread_time_ns() - held_since;
        std::int64_t longest = longest_hold_ns;
        while (lasted > longest && !longest_hold_ns.compare_exchange_weak(longest, lasted)) {
        }
    }
    return __real_Orva_MutexV(mutex);
}

void __real_g_slice_free1(gsize size, gpointer memory);
void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    frees.add(memory != nullptr ? 1 : 0);
    freed_bytes.add(memory != nullptr ? size : 0);
    __real_g_slice_free1(size, memory);
}

} // extern "C"

namespace {

constexpr std::uint16_t pid_pat = 0x00;
constexpr std::uint16_t pid_cat = 0x01;
constexpr std::uint16_t pid_nit = 0x10;
constexpr std::uint16_t pid_sdt = 0x11; // and BAT
constexpr std::uint16_t pid_eit = 0x12;
constexpr std::uint16_t pid_time = 0x14;
constexpr std::uint16_t pid_pmt = 0x100;

constexpr std::uint32_t english = 0x656E67;
constexpr std::uint16_t tuned_ts = 7;
constexpr std::uint16_t program = 0x1001;

constexpr unsigned every_id = part_of(65536);
constexpr unsigned most_tables = 3584; // that are not of the tuned multiplex
constexpr unsigned most_event_services = 7168;
constexpr bool is_fast = ORVA_TEST_DIVISOR == 1;
constexpr double most_ms = is_fast ? 10 : 20 * ORVA_TEST_DIVISOR; // of CPU time

class HostileMultiplex : public BroadcastLibrary {
protected:
    HostileMultiplex()
    {
        Orva_Si_InstallISO639toIDFunc(number_of_code);
        retune();
    }
    ~HostileMultiplex() override { Orva_Si_EraseAllEitRawData(); }

    static void retune()
    {
        settle();
        tune(frequency += 8000, program);
        EXPECT_EQ(Orva_Si_StartCurrentPFEIT(tuned_ts, 1, program), ORVA_SI_OK);
        EXPECT_EQ(Orva_Si_StartOtherSchedulEIT(nullptr, 0), ORVA_SI_OK);
    }
    // That many extensions of a table, or services of a table of events.
    static void flood(std::uint16_t pid, const octets &section, unsigned total = every_id)
    {
        extension_flood all{section};
        for (unsigned extension = 0; extension < total; ++extension)
            deliver(pid, all[extension]);
        settle();
    }
    // The same of so many section_numbers each.
    template <class Table>
    static void flood_sections(std::uint16_t pid, Table table, unsigned numbers, unsigned total)
    {
        table.last_section_number = static_cast<std::uint8_t>(numbers - 1);
        for (unsigned number = 0; number < numbers; ++number) {
            table.section_number = static_cast<std::uint8_t>(number);
            flood(pid, make(table), total);
        }
    }

    static void expect_limits_kept()
    {
        const SiLimitCounts now = counts();
        for (const SiLimitCount &each : {now.tables, now.table_bytes, now.event_services,
                                         now.event_bytes, now.queued_sections, now.queued_bytes})
            EXPECT_LE(each.used, each.most);
    }
    static void expect_short_holds(const std::string &during)
    {
        EXPECT_LT(static_cast<double>(longest_hold_ns.exchange(0)) / 1e6, most_ms) << during;
    }
    static std::size_t blocks() { return fake::allocations() - frees; }
    static std::size_t live_bytes() { return fake::allocated_bytes() - freed_bytes; }

    // The tuned multiplex sends its tables, and is asked about them.
    static void expect_tuned_multiplex_answers(std::uint8_t version)
    {
        deliver(pid_pat, make(pat{.ts = tuned_ts,
                                  .version = version,
                                  .programs = {{.number = program, .pid = pid_pmt}}}));
        settle();
        deliver(pid_pmt, make(pmt{.program = program,
                                  .pcr_pid = 0x123,
                                  .version = version,
                                  .streams = {{.type = 2, .pid = 0x123}}}));
        deliver(pid_sdt,
                make(sdt{.ts = tuned_ts,
                         .version = version,
                         .services = {{.id = program,
                                       .descriptors = {service_descriptor(1, "P", "News")}}}}));
        deliver(
            pid_eit,
            make(eit{.service = program,
                     .ts = tuned_ts,
                     .version = version,
                     .events = {{.id = 0x40, .descriptors = {short_event("eng", "Now", "")}}}}));
        settle();
        std::uint16_t id = 0;
        EXPECT_EQ(Orva_Si_GetPatTsId(&id), ORVA_SI_OK);
        EXPECT_EQ(id, tuned_ts);
        EXPECT_EQ(Orva_Si_GetPcrPID(program, &id), ORVA_SI_OK);
        EXPECT_EQ(id, 0x123);
        SiDvbString name{};
        EXPECT_EQ(Orva_Si_GetServiceName(program, &name), ORVA_SI_OK);
        EXPECT_EQ(text_of(name), "News");
        SiDvbString event{};
        EXPECT_EQ(Orva_Si_GetEvtNameByID(1, tuned_ts, program, 0x40, &event, english, 1),
                  ORVA_SI_OK);
        EXPECT_EQ(text_of(event), "Now");
    }
    // Every question that there is.
    static void ask_everything(const std::string &of)
    {
        for (const answered &row : getter_table())
            for (const getter &question : row.getters) {
                ask(question, 2000);
                expect_short_holds(std::string{question.name} + " of " + of);
            }
    }

private:
    static inline std::uint32_t frequency = 474000;
};

TEST_F(HostileMultiplex, EveryExtensionOfEveryTable)
{
    const std::size_t blocks_before = blocks();
    const std::uint32_t services_before = counts().event_services.used;
    flood(pid_sdt, make(sdt{.table_id = 0x46, .services = {{.id = 1}}}));
    flood(pid_sdt, make(bat{.descriptors = {bouquet_name("Bouquet")}}));
    flood(pid_nit, make(nit{.table_id = 0x41, .descriptors = {network_name("Network")}}));
    flood(pid_cat, make(cat{.descriptors = {ca(0x500, 0x200)}}));
    flood(pid_time, make(private_table{.table_id = 0x72}));
    flood(pid_eit, make(eit{.table_id = 0x60, .events = {{.id = 1}}}));
    expect_short_holds("the flood");
    expect_limits_kept();
    EXPECT_GE(counts().tables.used, most_tables);
    EXPECT_GE(counts().tables.refused, 5 * every_id - 4096);
    EXPECT_GE(counts().event_services.used, std::min(every_id, most_event_services));
    ask_everything("the flood");
    expect_tuned_multiplex_answers(1);
    expect_short_holds("the tuned multiplex");

    retune();
    expect_short_holds("a retune");
    EXPECT_EQ(counts().tables.used, 0U);
    EXPECT_EQ(counts().table_bytes.used, 0U);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(counts().event_services.used, services_before);
    EXPECT_LE(blocks(), blocks_before + 100); // memory that goes round, and PMT filters
    expect_tuned_multiplex_answers(2);
    flood(pid_sdt, make(sdt{.table_id = 0x46, .services = {{.id = 1}}}), 1000);
    EXPECT_EQ(counts().tables.used, 1003U);
}

// What does not wait for the library is stored or refused, and nothing is lost uncounted.
TEST_F(HostileMultiplex, FasterThanTheLibrary)
{
    extension_flood all{make(sdt{.table_id = 0x46, .services = {{.id = 1}}})};
    for (unsigned extension = 0; extension < every_id; ++extension) {
        driver.deliver(pid_sdt, all[extension]);
        if (extension % 4096 == 0)
            expect_limits_kept();
    }
    settle();
    expect_limits_kept();
    // One table_id_extension stands for any: it goes into the oldest of these tables.
    EXPECT_GE(counts().tables.used + counts().tables.refused + counts().queued_sections.refused,
              every_id - 1);
    expect_tuned_multiplex_answers(1);
    expect_short_holds("the flood");
}

// What takes longest to check and to decode.
TEST_F(HostileMultiplex, TheLargestTables)
{
    std::vector<sdt_service> services;
    for (std::uint16_t id = 2; id < 52; ++id)
        services.push_back({.id = id, .descriptors = {service_descriptor(1, "Provider", "Name")}});
    std::vector<transport> transports;
    for (std::uint16_t ts = 2; ts < 52; ++ts)
        transports.push_back({.ts = ts, .descriptors = {service_list({{2, 1}, {3, 1}})}});

    const unsigned total = part_of(most_tables);
    flood_sections(pid_sdt, sdt{.table_id = 0x46, .services = services}, 4, total);
    ask_everything("SDTs of other multiplexes");
    retune();
    flood_sections(pid_nit, nit{.table_id = 0x41, .transports = transports}, 4, total);
    ask_everything("other networks");
    retune();
    flood_sections(pid_sdt, bat{.transports = transports}, 4, total);
    ask_everything("bouquets");
    retune();
    expect_short_holds("a retune");
}

// What costs most memory, and takes longest to free.
TEST_F(HostileMultiplex, TheShortestSections)
{
    const std::size_t bytes_before = live_bytes();
    flood_sections(pid_sdt, private_table{.table_id = 0x46}, part_of(70), most_tables);
    flood_sections(pid_eit, eit{.table_id = 0x60, .ts = 2}, part_of(30), most_event_services);
    expect_short_holds("the flood");
    expect_limits_kept();
    if (is_fast) {
        EXPECT_GT(counts().table_bytes.refused, 0U);
    }
    // What is counted is all that they take, but for the records of tables and services and what
    // goes round through the queue.
    const std::size_t counted = counts().table_bytes.used + counts().event_bytes.used;
    EXPECT_LE(live_bytes() - bytes_before,
              counted + 256 * (most_tables + most_event_services) + (1U << 20));
    ask_everything("short sections");

    deliver(pid_pat, make(pat{.ts = 1}));
    deliver(pid_pat, make(pat{.ts = tuned_ts})); // another stream: both stores are emptied
    settle();
    expect_short_holds("a change of stream");
    EXPECT_EQ(counts().tables.used, 1U);
    EXPECT_EQ(counts().event_services.used, 0U);
    expect_tuned_multiplex_answers(1);
}

// A question that lets others have the lock answers from what is there, and ends when it is gone.
TEST_F(HostileMultiplex, AQuestionOutlivesTheStoreThatItAsks)
{
    const auto fill = [] {
        flood_sections(pid_nit, nit{.table_id = 0x41, .transports = {{.ts = 2}, {.ts = 3}}}, 1,
                       most_tables);
    };
    octets padding(200, 0x20);
    nit large{.table_id = 0x41, .transports = {{.ts = 2}}};
    for (int i = 0; i < 4; ++i)
        large.descriptors.push_back(raw(0x80, padding));
    fill();
    flood_sections(pid_nit, large, 1, most_tables);
    std::atomic<bool> over{false};
    tally questions;
    std::thread client{[&] {
        while (!over) {
            for (const answered &row : getter_table())
                for (const getter &question : row.getters)
                    ask(question, 2000);
            ++questions;
        }
    }};
    for (int round = 0; round < 4; ++round) {
        retune();
        flood_sections(pid_nit, large, 1, part_of(most_tables));
    }
    while (questions == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    over = true;
    client.join();
    expect_short_holds("the questions");
    expect_tuned_multiplex_answers(1);
}

} // namespace
