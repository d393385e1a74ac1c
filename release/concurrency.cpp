// SPDX-License-Identifier: LGPL-2.1-or-later
// Everybody at once, for long: two drivers that flood, a controlling client, four clients that ask,
// the platform's timer thread with the background services every millisecond, and the client's
// callback, which calls back whatever it may. A sanitizer watches the threads; a watchdog ends the
// process when one call takes longer than two seconds. In the end nobody is stuck, every buffer
// came back within its callback, and all memory is given up.
//
//     concurrency SECONDS [SEED]
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include "live_memory.h"
#include "orva_platform.h"
#include "orva_si.h"
#include "plain_driver.h"
#include "support/getter_table.h"
#include "support/promises.h"
#include "support/random_broadcast.h"
#include "support/store.h"
#include "support/stress.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

// ---- Calls, and who is in one

struct seat {
    const char *thread = "somebody";
    std::atomic<const char *> call{nullptr}; // that it is in
    std::atomic<std::size_t> calls{0};       // that it has begun
};

// The timer and section threads take theirs when they first call.
std::array<seat, 16> seats;
std::atomic<std::size_t> seats_taken{0};

thread_local const char *thread_name = "somebody";

seat &own_seat()
{
    thread_local seat &own = seats.at(seats_taken++);
    if (own.calls.load(std::memory_order_relaxed) == 0)
        own.thread = thread_name;
    return own;
}

// One call into the library, which the watchdog looks at.
template <class Call>
auto watched(const char *name, Call call)
{
    seat &own = own_seat();
    struct return_to {
        seat &of;
        const char *outer;
        ~return_to() { of.call.store(outer, std::memory_order_release); }
    } const back{own, own.call.load(std::memory_order_relaxed)};
    own.calls.fetch_add(1, std::memory_order_relaxed);
    own.call.store(name, std::memory_order_release);
    return call();
}

constexpr const char *scan = "Orva_Si_StartScanChannel";
constexpr auto patience = 2000ms;
constexpr auto scan_goes_on = 500ms; // until it is cancelled

// Its time is its own: what the whole machine stood still for is nobody's fault.
class call_watch {
public:
    call_watch() : thread{[this] { watch(); }} {}
    ~call_watch()
    {
        over = true;
        thread.join();
    }
    call_watch(const call_watch &) = delete;
    call_watch &operator=(const call_watch &) = delete;

    std::chrono::milliseconds longest() const { return longest_call; }
    const char *longest_name() const { return longest_call_name; }

private:
    static constexpr auto look = 10ms;

    struct seen {
        std::size_t calls = 0;
        std::chrono::milliseconds since{0};
    };

    void watch()
    {
        while (!over) {
            const auto before = std::chrono::steady_clock::now();
            std::this_thread::sleep_for(look);
            const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - before);
            for (std::size_t at = 0; at < std::min(seats_taken.load(), seats.size()); ++at)
                look_at(seats[at], last_look[at],
                        std::min<std::chrono::milliseconds>(passed, 2 * look));
        }
    }

    void look_at(seat &of, seen &last, std::chrono::milliseconds passed)
    {
        const char *const call = of.call.load(std::memory_order_acquire);
        const std::size_t calls = of.calls.load(std::memory_order_relaxed);
        last.since = call != nullptr && calls == last.calls ? last.since + passed : 0ms;
        last.calls = calls;
        const bool scans = call == scan;
        if (scans && last.since >= scan_goes_on)
            Orva_Si_CancelScanChannel();
        const auto blocked = scans ? last.since - scan_goes_on : last.since;
        if (blocked > longest_call) {
            longest_call = blocked;
            longest_call_name = call;
        }
        if (blocked <= patience)
            return;
        std::fprintf(stderr, "%s is stuck in %s\n", of.thread, call);
        for (const seat &other : seats)
            if (const char *in = other.call.load(std::memory_order_acquire); in != nullptr)
                std::fprintf(stderr, "    %s is in %s\n", other.thread, in);
        std::abort();
    }

    std::array<seen, seats.size()> last_look{};
    std::chrono::milliseconds longest_call{0};
    const char *longest_call_name = "none";
    std::atomic<bool> over{false};
    std::thread thread;
};

struct counters {
    tally flooded, starts, started, scans, notifications, answered, asked, service_runs;
    tally broken; // promises: none
} counted;

void fault(std::string_view of, const char *what)
{
    ++counted.broken;
    std::fprintf(stderr, "%.*s: %s\n", static_cast<int>(of.size()), of.data(), what);
}

// ---- The broadcast: made before it begins, so that a driver floods

using corpus = std::vector<transmission>;

// The section that each question has an answer in, in four versions.
void add_answered(corpus &all)
{
    for (const answered &row : getter_table()) {
        const octets section = row.section();
        const bool is_long = (section[1] & 0x80) != 0;
        const std::uint16_t pid = section[0] >= 0x70 ? 0x14 : usual_pid(section[0]);
        for (std::uint8_t version = 0; version < (is_long ? 4 : 1); ++version) {
            octets changed = section;
            if (is_long)
                changed = with_byte(changed, 5,
                                    static_cast<std::uint8_t>((section[5] & 0xC1) | version << 1));
            all.push_back({pid, std::move(changed)});
        }
    }
}

corpus make_corpus(unsigned seed)
{
    constexpr unsigned by_chance = 4000;
    corpus all;
    add_answered(all);
    dice d{seed};
    for (unsigned left = by_chance; left != 0; --left)
        all.push_back(random_table(d));
    const auto valid = static_cast<std::uint32_t>(all.size());
    for (unsigned left = by_chance / 4; left != 0; --left) {
        transmission some = all[d.below(valid)];
        some.section = spoiled(d, std::move(some.section));
        if (some.section.empty())
            some.section.push_back(d.byte());
        all.push_back(std::move(some));
    }
    return all;
}

corpus on_air;

const transmission &any_of(dice &d)
{
    return on_air[d.below(static_cast<std::uint32_t>(on_air.size()))];
}

// ---- Drivers

void flood(dice &d)
{
    for (unsigned left = 200; left != 0; --left) {
        const transmission &sent = any_of(d);
        counted.flooded.add(watched("a driver's callback",
                                    [&] { return release::broadcast(sent.pid, sent.section); }));
    }
}

// Sections that no filter asked for, batches, and records that no driver should make.
void misbehave(dice &d)
{
    const std::uint32_t filter = d.below(release::filters + 2);
    const octets &section = any_of(d).section;
    std::array<std::uint8_t, 16> few{};
    watched("a callback of a broken driver", [&] {
        switch (d.below(6)) {
        case 0:
            return release::force(filter, SiDmxSection{nullptr, 5, nullptr, 0, 0});
        case 1: // the sum of the sizes does not fit 32 bits
            return release::force(filter, SiDmxSection{few.data(), 0xFFFFFFFF, few.data(), 5, 0});
        case 2: // in two parts, which is right
            return release::force(filter, SiDmxSection{few.data(), 8, few.data() + 8, 8, 0});
        case 3:
            return release::force(filter,
                                  SiDmxSectionList{d.one_in(2) ? 0xFFFFFFFF : 1, nullptr, 0});
        default:
            return d.one_in(2) ? release::force(filter, section)
                               : release::force_batch(filter, section, 1 + d.below(200));
        }
    });
}

void driver(dice &d)
{
    flood(d);
    for (unsigned left = d.below(20); left != 0; --left)
        misbehave(d);
    if (d.one_in(4)) // else the library is never idle
        d.rest(3000);
}

// ---- The controlling client

const event_requests of_interest{.actual = {1, 2, 3, 4, 5, 0xFFFF},
                                 .other = {{1, 1, 1}, {2, 1, 2}, {0xFFFF, 0xFFFF, 0xFFFF}}};

void start_channel(dice &d)
{
    const SiTuneParam tune{d.below(4), 0, 0,
                           d.one_in(4) ? std::uint16_t{SI_NO_PROGRAM} : d.id(programs)};
    ++counted.starts;
    counted.started.add(
        watched("Orva_Si_StartChannel", [&] { return Orva_Si_StartChannel(&tune); }) == ORVA_SI_OK);
}

void stop_channel()
{
    watched("Orva_Si_StopChannel", Orva_Si_StopChannel);
}

void scan_once(dice &d)
{
    const SiScanParam param{static_cast<std::uint16_t>(d.below(100)), d.id(2), d.below(2),
                            static_cast<std::uint8_t>(d.below(2))};
    stop_channel();
    watched("Orva_Si_SetScanTime", [&] { return Orva_Si_SetScanTime(d.id(3)); });
    watched("Orva_Si_SetScanParam", [&] { return Orva_Si_SetScanParam(&param); });
    watched(scan, Orva_Si_StartScanChannel);
    ++counted.scans;
}

// What a client may do at any time, in its callback too.
void use_channel(dice &d)
{
    const auto data_pid = static_cast<std::uint32_t>(dsmcc_pid + d.below(6));
    const std::uint32_t program = d.id(programs);
    switch (d.below(6)) {
    case 0:
        watched("Orva_Si_StartDsmFilter", [&] { return Orva_Si_StartDsmFilter(data_pid); });
        break;
    case 1:
        watched("Orva_Si_StopDsmFilter", [&] { return Orva_Si_StopDsmFilter(data_pid); });
        break;
    case 2:
        watched("Orva_Si_LatchPmt", [&] { return Orva_Si_LatchPmt(program); });
        break;
    case 3:
        watched("Orva_Si_UnLatchPmt", [&] { return Orva_Si_UnLatchPmt(program); });
        break;
    case 4:
        watched("a stop of events", [&] { return stop_events(d); });
        break;
    default:
        watched("a start of events", [&] { return start_events(d, of_interest, program); });
    }
}

void use_services(dice &d)
{
    const std::uint32_t service = d.below(4);
    switch (d.below(6)) {
    case 0:
        watched("Si_BG_PauseService", [&] { return Si_BG_PauseService(service); });
        break;
    case 1:
        watched("Si_BG_ResumeService", [&] { return Si_BG_ResumeService(service); });
        break;
    case 2:
        watched("Si_BG_EnableAllService", Si_BG_EnableAllService);
        break;
    case 3:
        watched("Si_BG_DisableAllService", Si_BG_DisableAllService);
        break;
    case 4:
        watched("Si_BG_WaitAllServiceTerminate", Si_BG_WaitAllServiceTerminate);
        break;
    default:
        watched("Si_BG_InsertFastService", [&] { return Si_BG_InsertFastService(service); });
    }
}

void use_tables(dice &d)
{
    switch (d.below(4)) {
    case 0:
        watched("Si_SectFlt_UpdateNit",
                [&] { return Si_SectFlt_UpdateNit(d.id(2), d.below(4), 1); });
        break;
    case 1:
        watched("Si_SectFlt_UpdateSdtBat", [&] { return Si_SectFlt_UpdateSdtBat(d.below(4), 1); });
        break;
    case 2:
        watched("Orva_Si_EraseAllEitRawData", Orva_Si_EraseAllEitRawData);
        break;
    default:
        watched("Orva_Si_DoAllTablesReady", Orva_Si_DoAllTablesReady);
    }
}

void controlling_client(dice &d)
{
    d.one_in(20) ? scan_once(d) : start_channel(d);
    for (std::uint32_t left = d.below(60); left != 0; --left) {
        switch (d.below(8)) {
        case 0:
            use_services(d);
            break;
        case 1:
            use_tables(d);
            break;
        default:
            use_channel(d);
        }
        d.rest(1000);
    }
    if (d.one_in(2))
        stop_channel();
}

// ---- Clients that ask: any question, with any room, and what it promises must hold

std::vector<const getter *> all_getters()
{
    std::vector<const getter *> all;
    for (const answered &row : getter_table())
        for (const getter &each : row.getters)
            all.push_back(&each);
    return all;
}
std::vector<const getter *> questions;

void ask_any(dice &d)
{
    const getter &of = *questions[d.below(static_cast<std::uint32_t>(questions.size()))];
    const std::uint32_t capacity = d.below(plenty(of) + 1);
    const told answer = watched(of.name.data(), [&] { return ask(of, capacity); });
    ++counted.asked;
    counted.answered.add(is_success(of, answer.result));
    if (const complaint broken = judge(of, answer, capacity); broken != none)
        fault(of.name, broken);
}

// What is answered without a lock, or without a section.
using state_question = std::uint32_t (*)();
constexpr state_question states[] = {
    Orva_Si_IsScanMode,
    Si_Ctl_GetTunningProgNo,
    Orva_Si_GetCtlFlag,
    Orva_Si_IsCancel,
    Orva_Si_IsGotSection,
    Orva_Si_IsDetectActNIT,
    Orva_Si_IsDetectActSDT,
    Si_CtlHelper_IsPatEnabled,
    Si_CtlHelper_IsActPfEitEnabled,
    Si_CtlHelper_IsOtherSchEitEnabled,
    Si_CtlHelper_IsDSMCCEnabled,
    Si_SectFlt_GetPendingCount,
    Si_SectFlt_PrintEitFilterTask,
    [] { return Orva_Si_GetPmtPid(1); },
    [] {
        SiLimitCounts counts;
        return Orva_Si_GetLimitCounts(&counts);
    },
    [] { return Orva_Si_IsPmtExisted(1); },
    [] { return Si_SectFlt_IsDsmccPid(dsmcc_pid); },
    [] { return Si_SectFlt_IsEitEnabled(0x4E, 1); },
    [] {
        SiLimitCounts counts{};
        return Orva_Si_GetLimitCounts(&counts);
    },
};

void ask_state(dice &d)
{
    watched("a question about the state",
            [&] { return states[d.below(static_cast<std::uint32_t>(std::size(states)))](); });
}

void asking_client(dice &d)
{
    for (unsigned left = 50; left != 0; --left)
        d.one_in(4) ? ask_state(d) : ask_any(d);
    if (d.one_in(2000))
        watched("Orva_Si_CancelScanChannel", Orva_Si_CancelScanChannel);
    if (d.one_in(200))
        __atomic_store_n(&__orva_debug_min, d.one_in(4) ? ORVA_DEBUG_VERBOSE : 0, __ATOMIC_RELAXED);
    d.rest(300); // else the lock is never free: nobody queues for it
}

// ---- The client's callback

std::uint32_t client(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
{
    thread_local dice d{99};
    thread_name = "section thread";
    ++counted.notifications;
    if (reason == SI_REASON_DSMCC)
        counted.answered.add(sum_of_section(data) & 1u);
    if (d.one_in(5))
        ask_any(d);
    if (d.one_in(40))
        use_channel(d);
    if (d.one_in(300))
        stop_channel();
    if (d.one_in(1000)) // is refused, after a quarter of a second
        start_channel(d);
    return 0;
}

// ---- The timer thread: each service every millisecond, whatever was asked for

} // namespace

extern "C" {

std::uint32_t __real_Orva_Util_Timer_Add(std::int32_t handle, const char *name,
                                         std::uint32_t (*function)(SiWord), SiWord user,
                                         std::uint32_t interval_ms, std::uint32_t repeat);
std::uint32_t __wrap_Orva_Util_Timer_Add(std::int32_t handle, const char *name,
                                         std::uint32_t (*function)(SiWord), SiWord user,
                                         std::uint32_t, std::uint32_t repeat)
{
    return __real_Orva_Util_Timer_Add(handle, name, function, user, 1, repeat);
}

#define WATCHED_SERVICE(service)                                                                   \
    std::uint32_t __real_##service();                                                              \
    std::uint32_t __wrap_##service()                                                               \
    {                                                                                              \
        thread_name = "timer thread";                                                              \
        ++counted.service_runs;                                                                    \
        return watched(#service, __real_##service);                                                \
    }
WATCHED_SERVICE(Si_SectFlt_PmtBgService)
WATCHED_SERVICE(Si_SectFlt_ActPfEitBgService)
WATCHED_SERVICE(Si_SectFlt_ActSchEitBgService)

} // extern "C"

namespace {

// ---- All of them

template <auto Step>
void named_step(dice &d, const char *name)
{
    thread_name = name;
    Step(d);
}

std::array<worker, 7> workers{
    {{"driver 1", [](dice &d) { named_step<driver>(d, "driver 1"); }},
     {"driver 2", [](dice &d) { named_step<driver>(d, "driver 2"); }},
     {"controlling client",
      [](dice &d) { named_step<controlling_client>(d, "controlling client"); }},
     {"asking client 1", [](dice &d) { named_step<asking_client>(d, "asking client 1"); }},
     {"asking client 2", [](dice &d) { named_step<asking_client>(d, "asking client 2"); }},
     {"asking client 3", [](dice &d) { named_step<asking_client>(d, "asking client 3"); }},
     {"asking client 4", [](dice &d) { named_step<asking_client>(d, "asking client 4"); }}}};

unsigned faults = 0;

void check(bool holds, const char *text)
{
    if (holds)
        return;
    ++faults;
    std::fprintf(stderr, "FAULT: %s\n", text);
}

void start_library()
{
    orva_debug_set_sink([](auto...) {}, nullptr);
    check(Orva_Si_InstallCallback(client) == ORVA_SI_OK, "the callback is not installed");
    check(Orva_Si_InstallISO639toIDFunc(number_of_code) == ORVA_SI_OK, "nor the languages");
    check(Orva_Si_Init(release::driver_table()) == ORVA_SI_OK, "no library");
    check(wait_for([] { return Orva_Si_GetTableList() != nullptr; }), "no store");
}

// What a driver's buffers, filters and memory come to when all have stopped.
void check_the_end(const release::ledger &baseline)
{
    check(wait_for([] { return Si_SectFlt_GetPendingCount() == 0; }), "sections are left behind");
    check(release::running_filters() == 0, "a filter still runs");
    check(release::driver_counted.lost_buffers == 0, "a buffer did not come back");
    check(release::driver_counted.wrong_buffers == 0, "a buffer came back twice");
    check(counted.broken == 0, "an answer broke its promise");
    watched("emptying the stores", [] { empty_stores(); });
    check(release::live() == baseline, "memory is not given up");
}

void print(const char *what, std::size_t count)
{
    std::printf("%-24s %zu\n", what, count);
}

// It was not for nothing, unless all of the time went by in scans.
void print_work(const char *what, std::size_t count, long seconds)
{
    constexpr long enough = 10;
    print(what, count);
    check(count != 0 || seconds < enough, what);
}

// Of a driver its callbacks alone.
std::size_t all_calls()
{
    std::size_t all = release::driver_counted.callbacks;
    for (const seat &of : seats)
        if (!std::string_view{of.thread}.starts_with("driver"))
            all += of.calls.load();
    return all;
}

} // namespace

int main(int argc, char **argv)
{
    const long seconds = argc > 1 ? std::atol(argv[1]) : 0;
    const auto seed = static_cast<unsigned>(argc > 2 ? std::atol(argv[2]) : 1);
    if (seconds <= 0 || argc > 3) {
        std::fputs("usage: concurrency SECONDS [SEED]\n", stderr);
        return 2;
    }
    on_air = make_corpus(seed);
    questions = all_getters();
    thread_name = "main thread";
    start_library();
    {
        const call_watch watch;
        watched("emptying the stores", [] { empty_stores(); });
        const release::ledger baseline = release::live();
        {
            crew threads{workers, seed * 100};
            std::this_thread::sleep_for(std::chrono::seconds{seconds});
            threads.stop();
        }
        watched("Orva_Si_StopScanChannel", Orva_Si_StopScanChannel);
        check_the_end(baseline);
        watched("Orva_Si_DeInit", Orva_Si_DeInit);
        std::printf("%-24s %lld ms, %s\n", "longest call",
                    static_cast<long long>(watch.longest().count()), watch.longest_name());
    }
    print_work("sections taken", counted.flooded, seconds);
    print_work("starts", counted.starts, seconds);
    print_work("starts that succeeded", counted.started, seconds);
    print("scans", counted.scans);
    print_work("notifications", counted.notifications, seconds);
    print_work("questions", counted.asked, seconds);
    print_work("answers", counted.answered, seconds);
    print_work("service runs", counted.service_runs, seconds);
    print("calls", all_calls());
    std::printf("seed %u, %ld s: %u faults\n", seed, seconds, faults);
    return faults == 0 ? 0 : 1;
}
