// SPDX-License-Identifier: LGPL-2.1-or-later
// A receiver that runs for months, in minutes: a multiplex that goes round and changes its
// versions, clients' questions, restarts, scans and retunes, and in each round floods of 65,536
// tables on each PID that lets so many pass. After every retune the library holds not a block more
// than before the first one; once all has happened, in the first rounds, the process grows no more.
//
//     soak [SECTIONS]        ten million
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "live_memory.h"
#include "orva_platform.h"
#include "orva_si.h"
#include "plain_driver.h"
#include "support/descriptors.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/stress.h"

using namespace test;

namespace {

constexpr int warm_rounds = 3;
constexpr int last_rounds = 3;
constexpr std::size_t most_growth_kib = 256;
constexpr double longest_hold_allowed_ms = 10;

struct counters {
    std::size_t sections = 0;
    std::size_t retunes = 0;
    std::size_t restarts = 0;
    std::size_t scans = 0;
    std::size_t floods = 0;
    std::size_t answers = 0;
    std::size_t blocks_checked = 0;
} counted;
tally versions; // tables and sections of events that the client was told of

unsigned faults = 0;

void check(bool holds, const char *text)
{
    if (holds)
        return;
    if (++faults <= 20)
        std::fprintf(stderr, "FAULT in round %zu: %s\n", counted.floods / 5, text);
}

// ---- How long a thread works with the lock of the tables held

std::atomic<bool> measures{false};
double longest_hold_ms = 0; // written with the lock held
thread_local double since_ms = -1;

double thread_time_ms()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

} // namespace

extern "C" {

std::uint32_t __real_Orva_MutexP(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexP(pthread_mutex_t *mutex)
{
    const std::uint32_t result = __real_Orva_MutexP(mutex);
    if (mutex == &Ts_Ctl_Mutex && measures.load(std::memory_order_relaxed))
        since_ms = thread_time_ms();
    return result;
}

std::uint32_t __real_Orva_MutexV(pthread_mutex_t *mutex);
std::uint32_t __wrap_Orva_MutexV(pthread_mutex_t *mutex)
{
    if (mutex == &Ts_Ctl_Mutex && since_ms >= 0)
        longest_hold_ms = std::max(longest_hold_ms, thread_time_ms() - std::exchange(since_ms, -1));
    return __real_Orva_MutexV(mutex);
}

} // extern "C"

namespace {

// ---- The multiplex

constexpr std::uint16_t own_ts = 1;
constexpr std::uint16_t programs = 12;
constexpr std::uint16_t first_pmt_pid = 0x100;
constexpr std::uint8_t versions_of_a_table = 32;

// A section in all its versions.
struct sent_section {
    std::uint16_t pid;
    std::array<octets, versions_of_a_table> content;
};

template <class Table>
sent_section in_versions(std::uint16_t pid, Table table)
{
    sent_section made{pid, {}};
    for (std::uint8_t version = 0; version < versions_of_a_table; ++version) {
        table.version = version;
        made.content.at(version) = make(table);
    }
    return made;
}

std::vector<sdt_service> services_of(std::uint16_t first)
{
    std::vector<sdt_service> all;
    for (std::uint16_t i = 0; i < programs; ++i)
        all.push_back({.id = static_cast<std::uint16_t>(first + i),
                       .descriptors = {service_descriptor(1, "Provider", "Service")}});
    return all;
}

std::vector<eit_event> events_of(unsigned first, unsigned count)
{
    std::vector<eit_event> all;
    for (unsigned i = 0; i < count; ++i)
        all.push_back({.id = static_cast<std::uint16_t>(first + i),
                       .descriptors = {short_event("eng", "Name", std::string(100, 't'))}});
    return all;
}

std::vector<sent_section> make_multiplex()
{
    std::vector<sent_section> all;
    pat programs_of_ts{.ts = own_ts, .programs = {{0, 0x10}}};
    for (std::uint16_t i = 0; i < programs; ++i)
        programs_of_ts.programs.push_back(
            {static_cast<std::uint16_t>(i + 1), static_cast<std::uint16_t>(first_pmt_pid + i)});
    all.push_back(in_versions(0x00, programs_of_ts));
    all.push_back(in_versions(0x01, cat{.descriptors = {ca(0x100, 0x500)}}));
    all.push_back(
        in_versions(0x10, nit{.descriptors = {network_name("Network")}, .transports = {{}}}));
    for (std::uint16_t i = 0; i < programs; ++i)
        all.push_back(in_versions(static_cast<std::uint16_t>(first_pmt_pid + i),
                                  pmt{.program = static_cast<std::uint16_t>(i + 1),
                                      .streams = {{0x02, 0x200}, {0x04, 0x201, {iso639("eng")}}}}));
    all.push_back(in_versions(0x11, sdt{.ts = own_ts, .services = services_of(1)}));
    for (std::uint16_t ts = 2; ts < 20; ++ts) {
        all.push_back(
            in_versions(0x11, sdt{.table_id = 0x46,
                                  .ts = ts,
                                  .services = services_of(static_cast<std::uint16_t>(ts * 64))}));
        all.push_back(
            in_versions(0x11, bat{.bouquet = ts, .descriptors = {bouquet_name("Bouquet")}}));
        all.push_back(in_versions(
            0x10, nit{.table_id = 0x41, .network = ts, .descriptors = {network_name("Other")}}));
    }
    for (std::uint16_t service = 1; service <= programs; ++service)
        for (std::uint8_t number = 0; number < 2; ++number) {
            all.push_back(in_versions(0x12, eit{.service = service,
                                                .ts = own_ts,
                                                .section_number = number,
                                                .last_section_number = 1,
                                                .events = events_of(number, 1)}));
            const auto first_of_segment = static_cast<std::uint8_t>(number * 8);
            all.push_back(in_versions(0x12, eit{.table_id = 0x50,
                                                .service = service,
                                                .ts = own_ts,
                                                .section_number = first_of_segment,
                                                .last_section_number = 8,
                                                .segment_last_section_number = first_of_segment,
                                                .events = events_of(2 + number * 4u, 4)}));
        }
    all.push_back({0x14, {}});
    all.back().content.fill(make(tdt{.utc_bcd = 0x120000}));
    return all;
}

void let_it_catch_up(std::uint32_t at_most)
{
    while (Si_SectFlt_GetPendingCount() > at_most)
        sched_yield();
}

void send(std::uint16_t pid, const octets &section)
{
    constexpr std::uint32_t room = 64; // above, sections are dropped
    let_it_catch_up(room);
    counted.sections += release::broadcast(pid, section);
}

// ---- The client

std::uint32_t client(std::uint32_t reason, std::uint32_t, SiWord, std::uint32_t)
{
    if (reason != SI_REASON_TIME_FROM_TDT && reason != SI_REASON_TIME_FROM_TOT)
        ++versions;
    return 0;
}

constexpr std::uint16_t watched_program = 3;

void ask()
{
    std::array<std::uint16_t, 2 * programs> list{};
    std::array<SiBasicEvent, 16> events;
    std::uint16_t id = 0;
    auto count = static_cast<std::uint32_t>(list.size());
    counted.answers += Orva_Si_GetActServIdList(list.data(), &count) == ORVA_SI_OK ? 1 : 0;
    counted.answers += Orva_Si_GetVideoPID(watched_program, &id) == ORVA_SI_OK ? 1 : 0;
    count = events.size();
    counted.answers += Orva_Si_GetOneServBscEvtInfos(1, own_ts, watched_program, 0, 0, 0,
                                                     events.data(), &count) == ORVA_SI_OK
                           ? 1
                           : 0;
}

bool is_answered()
{
    std::array<std::uint16_t, 2 * programs> list{};
    std::uint16_t ts = 0;
    std::uint16_t pid = 0;
    auto count = static_cast<std::uint32_t>(list.size());
    return Orva_Si_GetPatTsId(&ts) == ORVA_SI_OK && ts == own_ts &&
           Orva_Si_GetActServIdList(list.data(), &count) == ORVA_SI_OK && count == programs &&
           Orva_Si_GetVideoPID(watched_program, &pid) == ORVA_SI_OK && pid == 0x200;
}

std::uint32_t frequency = 1;

void start_channel()
{
    const SiTuneParam tune{frequency, 0, 0, watched_program};
    check(Orva_Si_StartChannel(&tune) == ORVA_SI_OK, "no start");
    std::array<std::uint16_t, programs> services;
    for (std::uint16_t i = 0; i < programs; ++i)
        services.at(i) = static_cast<std::uint16_t>(i + 1);
    Orva_Si_StartActualPFEIT(own_ts, 1, watched_program, services.data(), programs);
    Orva_Si_StartActualScheduleEIT(own_ts, 1, watched_program, services.data(), programs);
    Orva_Si_StartOtherSchedulEIT(nullptr, 0);
}

void restart()
{
    let_it_catch_up(0);
    Orva_Si_StopChannel();
    start_channel();
    ++counted.restarts;
}

release::ledger baseline{};

// To another multiplex: what was stored of the last one goes, and its events with the client's
// will.
void retune()
{
    Orva_Si_StopChannel();
    let_it_catch_up(0);
    Orva_Si_EraseAllEitRawData();
    frequency = 3 - frequency;
    start_channel();
    ++counted.retunes;
    const release::ledger now = release::live();
    if (baseline.blocks == 0)
        baseline = now;
    ++counted.blocks_checked;
    if (now != baseline) {
        std::fprintf(stderr, "%td blocks of %td bytes, were %td of %td\n", now.blocks, now.bytes,
                     baseline.blocks, baseline.bytes);
        check(false, "memory of the last multiplex is kept");
    }
}

void scan(const std::vector<sent_section> &multiplex)
{
    Orva_Si_StopChannel();
    let_it_catch_up(0);
    check(Si_Ctl_StartScanChannel() == ORVA_SI_OK, "no scan");
    for (const sent_section &each : multiplex)
        send(each.pid, each.content[0]);
    let_it_catch_up(0);
    Orva_Si_StopScanChannel();
    start_channel();
    ++counted.scans;
}

// ---- A round: what goes round on air, and then the floods

// Passes of the carousel, of which some sections have the next version.
void play(const std::vector<sent_section> &multiplex, dice &d, unsigned passes)
{
    static std::vector<std::uint8_t> version(multiplex.size());
    constexpr unsigned changes_one_in = 12;
    for (; passes != 0; --passes) {
        for (std::size_t at = 0; at < multiplex.size(); ++at) {
            std::uint8_t &of = version[at];
            if (d.one_in(changes_one_in))
                of = static_cast<std::uint8_t>((of + 1) % versions_of_a_table);
            send(multiplex[at].pid, multiplex[at].content.at(of));
        }
        if (d.one_in(4))
            ask();
    }
}

struct flood_of {
    const char *name;
    std::uint16_t pid;
    std::uint32_t filter; // of the library's, in the order of its requests
    octets section;       // whose extension is counted up
};

const std::vector<flood_of> &floods()
{
    static const std::vector<flood_of> all{
        {"SDT other", 0x11, 3, make(sdt{.table_id = 0x46, .services = services_of(1)})},
        {"BAT", 0x11, 3, make(bat{.descriptors = {bouquet_name("Bouquet")}})},
        {"NIT other", 0x10, 2, make(nit{.table_id = 0x41, .descriptors = {network_name("Other")}})},
        {"CAT", 0x01, 1, make(cat{.descriptors = {ca(0x100, 0x500)}})},
        {"time PID", 0x14, 4, make(private_table{.table_id = 0x72, .payload = octets(100)})}};
    return all;
}

// Within the limits, which did refuse something by now.
void check_limits()
{
    SiLimitCounts now{};
    Orva_Si_GetLimitCounts(&now);
    check(now.tables.used <= now.tables.most && now.table_bytes.used <= now.table_bytes.most,
          "the store goes beyond its limits");
    check(now.event_services.used <= now.event_services.most &&
              now.event_bytes.used <= now.event_bytes.most,
          "so do the events");
    check(now.tables.refused != 0, "no flood reached a limit");
}

void flood(const flood_of &with, const std::vector<sent_section> &multiplex)
{
    constexpr std::uint32_t extensions = 0x10000;
    octets section = with.section;
    measures = true;
    for (std::uint32_t extension = 0; extension < extensions; ++extension) {
        section[3] = static_cast<std::uint8_t>(extension >> 8);
        section[4] = static_cast<std::uint8_t>(extension);
        section = fix_crc(std::move(section));
        let_it_catch_up(64);
        release::force(with.filter, section);
        ++counted.sections;
    }
    for (unsigned version = 1; version <= 2; ++version) // and is changed meanwhile
        for (const sent_section &each : multiplex)
            send(each.pid, each.content.at(version));
    let_it_catch_up(0);
    measures = false;
    check(is_answered(), with.name);
    check_limits();
    ++counted.floods;
}

void play_round(const std::vector<sent_section> &multiplex, dice &d)
{
    constexpr unsigned turns = 20;
    for (unsigned turn = 0; turn < turns; ++turn) {
        play(multiplex, d, 100);
        if (turn % 2 == 0)
            restart();
        if (turn % 5 == 0)
            scan(multiplex);
        play(multiplex, d, 50);
        check(is_answered(), "the tuned multiplex is not answered");
        retune();
    }
    for (const flood_of &each : floods()) {
        play(multiplex, d, 20);
        flood(each, multiplex);
        retune();
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::size_t wanted = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
    if (wanted == 0 || argc > 2) {
        std::fputs("usage: soak [SECTIONS]\n", stderr);
        return 2;
    }
    orva_debug_set_sink([](auto...) {}, nullptr);
    __atomic_store_n(&__orva_debug_min, 0, __ATOMIC_RELAXED);
    Orva_Si_InstallCallback(client);
    Orva_Si_InstallISO639toIDFunc(number_of_language);
    check(Orva_Si_Init(release::driver_table()) == ORVA_SI_OK, "no library");
    check(wait_for([] { return Orva_Si_GetTableList() != nullptr; }), "no store");

    const std::vector<sent_section> multiplex = make_multiplex();
    dice d{1};
    start_channel();
    retune();
    std::vector<std::size_t> resident; // KiB after each round
    while (counted.sections < wanted || versions < wanted / 100 ||
           resident.size() < warm_rounds + last_rounds) {
        play_round(multiplex, d);
        resident.push_back(release::resident_kib());
        check(resident.back() != 0, "the system does not tell its memory");
        std::printf("round %2zu: %9zu sections, %7zu versions, resident %zu KiB, live %td blocks\n",
                    resident.size(), counted.sections, std::size_t{versions}, resident.back(),
                    release::live().blocks);
        std::fflush(stdout);
    }
    // What is kept of the last rounds, not what one of them borrowed, against the most of the
    // first.
    const std::size_t warm = *std::max_element(resident.begin(), resident.begin() + warm_rounds);
    const std::size_t kept = *std::min_element(resident.end() - last_rounds, resident.end());
    const std::size_t growth = kept - std::min(kept, warm);
    check(growth <= most_growth_kib, "the process grows");
    check(longest_hold_ms <= longest_hold_allowed_ms, "the lock of the tables is held too long");
    check(counted.answers != 0, "nothing is answered");
    Orva_Si_DeInit();
    check(release::running_filters() == 0, "a filter still runs");
    check(release::driver_counted.lost_buffers == 0, "a buffer did not come back");
    check(release::driver_counted.wrong_buffers == 0, "a buffer came back twice");
    std::printf("%zu sections, %zu versions, %zu retunes, %zu restarts, %zu scans, %zu floods, %zu "
                "answers\n"
                "growth after %d rounds: %zu KiB; the lock of the tables held for %.2f ms at most\n"
                "%u faults\n",
                counted.sections, std::size_t{versions}, counted.retunes, counted.restarts,
                counted.scans, counted.floods, counted.answers, warm_rounds, growth,
                longest_hold_ms, faults);
    return faults == 0 ? 0 : 1;
}
