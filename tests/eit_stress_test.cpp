// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store under all of its users at once: two drivers that send the events of 200 services,
// with changes of version and content and now and then hostile sections, a controlling client that
// starts and stops events, retunes and erases, four clients that ask, the background services on
// the platform's own timers, and the client's callback, which asks too. An event says which it is,
// so that every answer can be checked. ORVA_STRESS_SECONDS says for how long (2), in rounds: after
// each the erased store holds not a byte more than at the beginning.
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/driver.h"
#include "orva_si.h"
#include "support/sections.h"
#include "support/stress.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

struct counters {
    tally sections, hostile, stored, stream_changes; // drivers
    tally tunings, pf_starts, schedule_starts, other_pf_starts, other_schedule_starts, erasures;
    tally notifications, banner_notifications, changed_notifications, new_notifications;
    tally answers, answers_in_callback, hostile_answers;
    tally pf_runs, schedule_runs, locked_language_calls;
    tally wrong_answers, wrong_notifications, calls_with_a_lock_held; // none of these
} counted;

// ---- Locks and memory of the library

thread_local int locks_held = 0;

struct ledger {
    std::ptrdiff_t blocks;
    std::ptrdiff_t bytes;

    bool operator==(const ledger &) const = default;
};

std::atomic<std::ptrdiff_t> live_blocks{0};
std::atomic<std::ptrdiff_t> live_bytes{0};

void enter(std::ptrdiff_t blocks, std::ptrdiff_t bytes)
{
    live_blocks.fetch_add(blocks, std::memory_order_relaxed);
    live_bytes.fetch_add(bytes, std::memory_order_relaxed);
}

ledger live()
{
    return {live_blocks.load(std::memory_order_relaxed),
            live_bytes.load(std::memory_order_relaxed)};
}

void PrintTo(const ledger &of, std::ostream *out)
{
    *out << of.blocks << " blocks, " << of.bytes << " bytes";
}

} // namespace

extern "C" {

std::uint32_t __real_Orva_MutexP(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexP(pthread_mutex_t *mutex)
{
    const std::uint32_t result = __real_Orva_MutexP(mutex);
    locks_held += result == ORVA_SI_OK ? 1 : 0;
    return result;
}

std::uint32_t __real_Orva_MutexV(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexV(pthread_mutex_t *mutex)
{
    --locks_held;
    return __real_Orva_MutexV(mutex);
}

gpointer __real_g_slice_alloc(gsize size);
gpointer __wrap_g_slice_alloc(gsize size)
{
    enter(1, static_cast<std::ptrdiff_t>(size));
    return __real_g_slice_alloc(size);
}

void __real_g_slice_free1(gsize size, gpointer memory);
void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    if (memory != nullptr)
        enter(-1, -static_cast<std::ptrdiff_t>(size));
    __real_g_slice_free1(size, memory);
}

std::uint32_t __real_Si_SectFlt_ActPfEitBgService();
std::uint32_t __wrap_Si_SectFlt_ActPfEitBgService()
{
    ++counted.pf_runs;
    return __real_Si_SectFlt_ActPfEitBgService();
}

std::uint32_t __real_Si_SectFlt_ActSchEitBgService();
std::uint32_t __wrap_Si_SectFlt_ActSchEitBgService()
{
    ++counted.schedule_runs;
    return __real_Si_SectFlt_ActSchEitBgService();
}

} // extern "C"

namespace {

std::atomic<bool> calm{false}; // the broadcast pauses, so that a start finds the library idle

// ---- What is broadcast

constexpr std::uint16_t onid = 1;
constexpr std::uint16_t tuned_ts = 1;
constexpr std::uint16_t other_ts = 2;
constexpr std::uint32_t actual_services = 120;
constexpr std::uint32_t all_services = 200;
constexpr std::uint16_t first_hostile_service = 0x0100; // as high as this: no event can be trusted
constexpr std::uint16_t pid_eit = 0x0012;

constexpr std::uint16_t ts_of(std::uint32_t service)
{
    return service <= actual_services ? tuned_ts : other_ts;
}

// The sections of a service: present and following, then two sub-tables of two segments each.
struct place {
    std::uint8_t table; // 0: present/following, else the schedule's sub-tables from 1 on
    std::uint8_t number;
    std::uint8_t last;
    std::uint32_t first_event; // the index of it
    std::uint32_t events;
};
constexpr std::array<place, 6> places{{{0, 0, 1, 0, 1},
                                       {0, 1, 1, 1, 1},
                                       {1, 0, 8, 8, 3},
                                       {1, 8, 8, 16, 3},
                                       {2, 0, 8, 24, 3},
                                       {2, 8, 8, 32, 3}}};

std::uint8_t table_id_at(const place &at, bool actual)
{
    if (at.table == 0)
        return actual ? 0x4E : 0x4F;
    return static_cast<std::uint8_t>((actual ? 0x50 : 0x60) + at.table - 1);
}

octets section_of(std::uint16_t service, const place &at, std::uint32_t version,
                  std::uint32_t revision)
{
    const bool actual = ts_of(service) == tuned_ts;
    eit table{.table_id = table_id_at(at, actual),
              .service = service,
              .ts = ts_of(service),
              .original_network = onid,
              .version = static_cast<std::uint8_t>(version % 32),
              .section_number = at.number,
              .last_section_number = at.last};
    if (at.table != 0)
        table.last_table_id = actual ? 0x51 : 0x61;
    for (std::uint32_t i = 0; i < at.events; ++i)
        table.events.push_back(told_event(event_id_of(service, at.first_event + i), revision));
    return make(table);
}

struct service_on_air {
    std::uint16_t id = 0;
    std::uint32_t version = 0;
    std::uint32_t revision = 0;
    std::array<octets, places.size()> sections{};
};

void make_section(service_on_air &of, std::size_t at)
{
    of.sections[at] = section_of(of.id, places[at], of.version, of.revision);
}

void make_sections(service_on_air &of)
{
    for (std::size_t at = 0; at < places.size(); ++at)
        make_section(of, at);
}

// ---- Drivers: each goes round services of its own

class carousel {
public:
    carousel(std::uint32_t first, std::uint32_t last)
    {
        for (std::uint32_t id = first; id <= last; ++id) {
            services.push_back({.id = static_cast<std::uint16_t>(id)});
            make_sections(services.back());
        }
    }
    // The next one, or the same again: as a new version, or with new content under the same
    // version.
    const service_on_air &turn(dice &d)
    {
        if (d.one_in(2))
            at = (at + 1) % services.size();
        service_on_air &of = services[at];
        switch (d.below(6)) {
        case 0:
            ++of.version;
            make_sections(of);
            break;
        case 1:
            ++of.revision;
            make_section(of, d.below(places.size()));
            break;
        default:
            break;
        }
        return of;
    }

private:
    std::vector<service_on_air> services;
    std::size_t at = 0;
};

void send(std::uint16_t pid, const octets &section)
{
    counted.sections.add(fake::driver().broadcast(pid, section));
}

// Past every filter's matching, as a broken driver would.
void force(dice &d, const octets &section)
{
    const auto filters = static_cast<std::uint32_t>(fake::driver().filter_count());
    const std::uint32_t filter_id = fake::driver().filter_id(d.below(filters));
    counted.hostile.add(fake::driver().deliver(filter_id, section) ? 1 : 0);
}

// Of services that nobody trusts, whatever their sections say; or trusted ones that were damaged.
octets hostile_section(dice &d, const service_on_air &trusted)
{
    const octets &good = trusted.sections[d.below(places.size())];
    if (d.one_in(4))
        return damage(good);
    const auto service = static_cast<std::uint16_t>(first_hostile_service + d.below(8));
    octets section = spoiled(d, section_of(service, places[d.below(places.size())], 0, 0));
    if (section.size() > 3)
        section[3] = first_hostile_service >> 8;
    return section;
}

void send_other_tables(dice &d)
{
    const auto version = static_cast<std::uint8_t>(d.below(32));
    switch (d.below(3)) {
    case 0:
        send(0x0000, make(pat{.ts = tuned_ts, .version = version, .programs = {{1, 0x100}}}));
        break;
    case 1:
        send(0x0011, make(sdt{.ts = tuned_ts, .version = version, .services = {{.id = 1}}}));
        break;
    default:
        send(0x0014, make(tdt{.utc_bcd = d.below(0x60)}));
    }
}

// The receiver is suddenly on another multiplex: all that is stored goes.
void change_stream(dice &d)
{
    const auto version = static_cast<std::uint8_t>(d.below(32));
    const std::size_t taken = fake::driver().broadcast(
        0x0000, make(pat{.ts = 77, .version = version, .programs = {{1, 0x100}}}));
    counted.stream_changes.add(taken);
}

void drive(dice &d, carousel &services)
{
    if (calm || Si_SectFlt_GetPendingCount() > 300) {
        std::this_thread::sleep_for(200us);
        return;
    }
    const service_on_air &of = services.turn(d);
    for (const octets &section : of.sections)
        send(pid_eit, section);
    if (d.one_in(8))
        force(d, hostile_section(d, of));
    if (d.one_in(8))
        send_other_tables(d);
    if (d.one_in(400))
        change_stream(d);
    if (d.one_in(200))
        fake::driver().forget_calls();
}

carousel &tuned_services()
{
    static carousel services{1, actual_services};
    return services;
}

carousel &other_services()
{
    static carousel services{actual_services + 1, all_services};
    return services;
}

void tuned_driver(dice &d)
{
    drive(d, tuned_services());
}

void other_driver(dice &d)
{
    drive(d, other_services());
}

// ---- The controlling client

event_requests all_requests()
{
    event_requests all;
    for (std::uint32_t id = 1; id <= all_services; ++id)
        if (const auto service = static_cast<std::uint16_t>(id); ts_of(id) == tuned_ts)
            all.actual.push_back(service);
        else
            all.other.push_back({other_ts, onid, service});
    return all;
}
const event_requests requests = all_requests();

// Frequency 0 is a scan, which erases the events.
std::uint16_t tune(dice &d)
{
    const SiTuneParam param{d.one_in(6) ? 0u : d.id(3), 0, 0, d.id(actual_services)};
    calm = true;
    counted.tunings.add(Orva_Si_StartChannel(&param) == ORVA_SI_OK ? 1 : 0);
    calm = false;
    return param.program_number;
}

void count_start(tally &of, std::uint32_t result)
{
    of.add(result == ORVA_SI_OK ? 1 : 0);
}

// All services, or those next to the tuned one, which the filters are soon through with.
void start_all(dice &d, std::uint16_t program)
{
    const std::uint32_t count = d.one_in(2) ? actual_services : 1 + d.below(10);
    const std::uint32_t first = d.below(actual_services - count + 1);
    const std::uint16_t *ids = requests.actual.data() + first;
    const auto others = static_cast<std::uint32_t>(requests.other.size());
    constexpr std::uint16_t every = 0xFFFF;
    count_start(counted.pf_starts,
                d.one_in(2) ? Orva_Si_StartActualPFEIT(tuned_ts, onid, program, ids, count)
                            : Orva_Si_StartActualPFEIT(every, every, program, &every, 1));
    count_start(counted.schedule_starts,
                Orva_Si_StartActualScheduleEIT(tuned_ts, onid, program, ids, count));
    count_start(counted.other_pf_starts,
                d.one_in(2) ? Orva_Si_StartOtherPFEIT(requests.other.data(), others)
                            : Orva_Si_StartOtherPFEIT(nullptr, 0));
    count_start(counted.other_schedule_starts,
                d.one_in(2) ? Orva_Si_StartOtherSchedulEIT(requests.other.data(), others)
                            : Orva_Si_StartOtherSchedulEIT(nullptr, 0));
}

// As a client may look at the store itself.
std::size_t stored_sections()
{
    std::size_t found = 0;
    Orva_MutexP(&Ts_Eit_Mutex);
    si_list *services = Orva_Si_GetDvbEitList();
    for (std::int32_t at = 0; si_list_eol(services, at) == 0; ++at)
        found += static_cast<std::size_t>(
            static_cast<SiEitService *>(si_list_get(services, at))->sections->nb_elt);
    Orva_MutexV(&Ts_Eit_Mutex);
    return found;
}

void erase()
{
    counted.stored.add(stored_sections());
    Orva_Si_EraseAllEitRawData();
    ++counted.erasures;
}

void controlling_client(dice &d)
{
    const std::uint16_t program = tune(d);
    start_all(d, program);
    // Now and then long enough for the background services.
    std::this_thread::sleep_for(d.one_in(3) ? 130ms : 10ms);
    for (std::uint32_t left = d.below(20); left != 0; --left) {
        d.one_in(3) ? stop_events(d) : void(start_events(d, requests, program));
        if (d.one_in(4))
            Si_BG_InsertFastService(1 + d.below(2));
        d.rest(2000);
    }
    if (d.one_in(3))
        erase();
    if (d.one_in(2))
        Orva_Si_StopChannel();
}

// ---- Clients that ask

asked some_event(dice &d, std::uint32_t service)
{
    const place &at = places[d.below(places.size())];
    return {.onid = onid,
            .ts = ts_of(service),
            .service = service,
            .event = event_id_of(service, at.first_event + d.below(at.events)),
            .language = d.one_in(2) ? english : german,
            .banner = static_cast<std::uint8_t>(at.table == 0 ? 1 : 0),
            .room = d.below(20)};
}

void ask(dice &d, std::uint32_t service, tally &told)
{
    const reply given = ask_about(d, some_event(d, service));
    told.add(given.told ? 1 : 0);
    counted.wrong_answers.add(given.right ? 0 : 1);
}

void ask_about_hostile_service(dice &d)
{
    const asked about = some_event(d, first_hostile_service + d.below(8));
    counted.hostile_answers.add(ask_about(d, about).told ? 1 : 0);
}

void querying_client(dice &d)
{
    for (std::uint32_t left = 20; left != 0; --left)
        d.one_in(10) ? ask_about_hostile_service(d) : ask(d, d.id(all_services), counted.answers);
    if (d.one_in(50))
        __atomic_store_n(&__orva_debug_min, d.one_in(4) ? ORVA_DEBUG_VERBOSE : 0, __ATOMIC_RELAXED);
    d.rest(500);
}

std::uint32_t note_language(const char *code, std::uint32_t *language)
{
    counted.locked_language_calls.add(locks_held == 1 ? 1 : 0);
    return number_of_language(code, language);
}

// ---- The client's callback

// Null for what is not about events.
tally *kind_of(std::uint32_t reason)
{
    switch (reason) {
    case SI_REASON_EIT_PRESENT_FOLLOWING:
        return &counted.banner_notifications;
    case SI_REASON_EIT_SCHEDULE_CHANGED:
        return &counted.changed_notifications;
    case SI_REASON_EIT_SCHEDULE_NEW:
        return &counted.new_notifications;
    default:
        return nullptr;
    }
}

bool is_right(std::uint32_t reason, const SiEitNotify &of)
{
    if (of.service_id >= first_hostile_service)
        return true;
    const bool banner = reason == SI_REASON_EIT_PRESENT_FOLLOWING;
    return of.original_network_id == onid && of.transport_stream_id == ts_of(of.service_id) &&
           (banner ? of.table_id == 0x4E : of.table_id == 0x50 || of.table_id == 0x51);
}

std::uint32_t client(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
{
    thread_local dice d{99};
    ++counted.notifications;
    counted.calls_with_a_lock_held.add(locks_held != 0 ? 1 : 0);
    tally *kind = kind_of(reason);
    if (kind == nullptr)
        return 0;
    ++*kind;
    const auto &of = *reinterpret_cast<const SiEitNotify *>(data);
    counted.wrong_notifications.add(is_right(reason, of) ? 0 : 1);
    if (of.service_id < first_hostile_service)
        ask(d, of.service_id, counted.answers_in_callback);
    return 0;
}

// ---- All of them

std::array<worker, 7> workers{{{"driver of the tuned multiplex", tuned_driver},
                               {"driver of other multiplexes", other_driver},
                               {"controlling client", controlling_client},
                               {"querying client 1", querying_client},
                               {"querying client 2", querying_client},
                               {"querying client 3", querying_client},
                               {"querying client 4", querying_client}}};

constexpr unsigned rounds = 4;
constexpr auto grace = 30s; // for a machine that is too busy for all of the work

// Everybody stops, then the client gives up what is stored. Answers what is left.
ledger play_round(unsigned number, std::chrono::duration<double> length)
{
    {
        const crew threads{workers, 1 + number * 100};
        std::this_thread::sleep_for(length);
    }
    Orva_Si_StopChannel();
    EXPECT_TRUE(wait_for([] { return Si_SectFlt_GetPendingCount() == 0; }));
    EXPECT_EQ(fake::driver().running(), 0u);
    EXPECT_EQ(fake::driver().returned(), fake::driver().lent());
    counted.stored.add(stored_sections());
    empty_stores();
    EXPECT_EQ(stored_sections(), 0u);
    return live();
}

const piece_of_work work[] = {{"sections", counted.sections},
                              {"hostile sections", counted.hostile},
                              {"stored before erasures", counted.stored},
                              {"tunings", counted.tunings},
                              {"p/f starts", counted.pf_starts},
                              {"schedule starts", counted.schedule_starts},
                              {"other p/f starts", counted.other_pf_starts},
                              {"other schedule starts", counted.other_schedule_starts},
                              {"erasures", counted.erasures},
                              {"notifications", counted.notifications},
                              {"p/f notifications", counted.banner_notifications},
                              {"changed schedule", counted.changed_notifications},
                              {"new schedule", counted.new_notifications},
                              {"answers", counted.answers},
                              {"answers in the callback", counted.answers_in_callback},
                              {"p/f service runs", counted.pf_runs},
                              {"schedule service runs", counted.schedule_runs},
                              {"locked language calls", counted.locked_language_calls}};

void report_work()
{
    report(work);
    std::printf("%-28s %zu\n%-28s %zu\n", "stream changes", std::size_t{counted.stream_changes},
                "about hostile services", std::size_t{counted.hostile_answers});
}

TEST(EitStress, AnswersAreRightAndTheErasedStoreHoldsNothing)
{
    const watchdog dog{duration(2s) + 60s, workers};
    orva_debug_set_sink([](auto...) {}, nullptr);
    ASSERT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
    ASSERT_EQ(Orva_Si_InstallISO639toIDFunc(note_language), ORVA_SI_OK);
    ASSERT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    ASSERT_TRUE(wait_for([] { return Orva_Si_GetDvbEitList() != nullptr; }));
    for (const std::uint32_t service : {1u, 2u})
        ASSERT_EQ(Si_BG_SetServiceInterval(service, 100), ORVA_SI_OK);

    tuned_services(); // made here, for it takes a while
    other_services();

    empty_stores();
    const ledger baseline = live();
    const auto length = duration(2s) / double{rounds};
    const auto end = std::chrono::steady_clock::now() + duration(2s) + grace;
    const auto goes_on = [&] {
        return !all_is_done(work) && std::chrono::steady_clock::now() < end;
    };
    for (unsigned round = 0; round < rounds || goes_on(); ++round)
        EXPECT_EQ(play_round(round, length), baseline) << "round " << round;

    EXPECT_EQ(fake::driver().wrongly_returned(), 0u);
    EXPECT_EQ(counted.calls_with_a_lock_held, 0u);
    EXPECT_EQ(counted.wrong_answers, 0u);
    EXPECT_EQ(counted.wrong_notifications, 0u);
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    report_work();
}

} // namespace
