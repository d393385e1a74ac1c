// SPDX-License-Identifier: LGPL-2.1-or-later
// What a section costs on its whole road: from the driver's callback through the queue and the
// section thread to the store, in CPU time of both threads and in memory, with all the services of
// a satellite position. Beside it what a program with libucsi alone pays for the same sections:
// copy, check, CRC_32, tables decoded, nothing kept.
//
//     reception_bench                          10, 100 and 1,000 services made here
//     reception_bench --sections=FILE ...      a file of sections: of each the PID and the length,
//                                              16 bits each, lower byte first, then its bytes
//     reception_bench --play=ROUNDS [--list]   plays them so many times and measures nothing:
//                                              for counting instructions
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "events.h"
#include "measure.h"
#include "plain_decoder.h"

namespace {

using namespace bench;

constexpr std::uint16_t pid_pat = 0x0000;
constexpr std::uint32_t frequency = 474000; // of nothing in particular
constexpr std::size_t burst = 64;           // sections sent before the driver waits
constexpr std::size_t longest_list = 200;

// ---- What is sent

// The events of so many services, 25 to a multiplex, of which the first is tuned; the PAT first.
std::vector<section> make_mux(unsigned services)
{
    octets programs;
    for (unsigned service = 0; service < std::min<unsigned>(services, services_per_stream);
         ++service) {
        put(programs, service, 2);
        put(programs, 0xE000 | (0x100 + service), 2);
    }
    std::vector<section> made{make_section({.pid = pid_pat, .table_id = 0x00, .ext = 1}, programs)};
    const auto each_service = [&](auto make) {
        for (std::uint16_t service = 0; service < services; ++service)
            made.push_back(
                make(service, stream_of(service) == 1 ? multiplex::tuned : multiplex::other));
    };
    for (unsigned number = 0; number < 2; ++number)
        each_service([&](std::uint16_t service, multiplex of) {
            return present_following(service, number, of);
        });
    for (unsigned segment = 0; segment < schedule_tables * segments_per_table; ++segment)
        each_service([&](std::uint16_t service, multiplex of) {
            return schedule(service, segment / segments_per_table, segment % segments_per_table,
                            of);
        });
    return made;
}

// The PAT first, for its programs are what PMT filters are made of. Empty when there is no such
// file.
std::vector<section> read_mux(const std::string &path)
{
    std::ifstream file{path, std::ios::binary};
    const octets all{std::istreambuf_iterator<char>{file}, {}};
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint16_t>(all[at] | all[at + 1] << 8);
    };
    std::vector<section> made;
    for (std::size_t at = 0; at + 4 <= all.size();) {
        const auto first = all.begin() + static_cast<std::ptrdiff_t>(at) + 4;
        const std::size_t size = word(at + 2);
        if (size > all.size() - at - 4)
            return {};
        made.push_back({word(at), {first, first + static_cast<std::ptrdiff_t>(size)}});
        at += 4 + size;
    }
    std::ranges::stable_partition(made, [](const section &of) { return of.pid == pid_pat; });
    return made;
}

double bytes_of(const std::vector<section> &sections)
{
    double sum = 0;
    for (const section &each : sections)
        sum += static_cast<double>(each.bytes.size());
    return sum;
}

// ---- The driver: it knows which filter was loaded first for a PID and still is.

constexpr std::uint32_t first_filter = 64;
constexpr std::size_t filters = 31;
constexpr std::uint16_t no_pid = 0x2000;

std::array<std::atomic<std::uint16_t>, filters> pid_of_filter;
std::array<std::atomic<std::uint32_t>, no_pid> filter_of_pid; // 0: none

void give_pid_to_next(std::uint16_t pid)
{
    filter_of_pid[pid] = 0;
    for (std::size_t index = 0; index < filters && filter_of_pid[pid] == 0; ++index)
        if (pid_of_filter[index] == pid)
            filter_of_pid[pid] = first_filter + static_cast<std::uint32_t>(index);
}

void load(std::uint32_t filter, std::uint16_t pid)
{
    const std::uint16_t before = pid_of_filter[filter - first_filter].exchange(pid);
    if (before == pid)
        return;
    if (before < no_pid)
        give_pid_to_next(before);
    if (pid < no_pid)
        give_pid_to_next(pid);
}

SiDmxSectHandler driver()
{
    SiDmxSectHandler made{};
    made.DemuxInit = [](std::uint32_t) { return std::uint32_t{0}; };
    made.FreeSecData = [](std::uint32_t, std::uint32_t, SiWord) { return std::uint32_t{0}; };
    made.RemoveSecFilter = [](std::uint32_t, std::uint32_t) { return std::uint32_t{0}; };
    made.EnableSecFilter = made.RemoveSecFilter;
    made.DisableSecFilter = [](std::uint32_t, std::uint32_t filter) {
        load(filter, no_pid);
        return std::uint32_t{0};
    };
    made.AddSecFilter = [](std::uint32_t, std::uint32_t *filter, SiDmxFilterParam) {
        static std::uint32_t next = first_filter;
        pid_of_filter[next - first_filter] = no_pid;
        *filter = next++;
        return std::uint32_t{0};
    };
    made.UpdateSecFilter = [](std::uint32_t, std::uint32_t filter, SiDmxFilterParam param) {
        load(filter, param.pid);
        return std::uint32_t{0};
    };
    return made;
}

// ---- The library, started once as a client does

std::atomic<clockid_t> section_clock{CLOCK_THREAD_CPUTIME_ID}; // known once something was told

// The client hears of everything on the section thread.
std::uint32_t note_thread(std::uint32_t, std::uint32_t, SiWord, std::uint32_t)
{
    clockid_t clock{};
    if (pthread_getcpuclockid(pthread_self(), &clock) == 0)
        section_clock = clock;
    return 0;
}

double section_thread_seconds()
{
    timespec now{};
    clock_gettime(section_clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Program 0 is the network's PID.
std::uint16_t first_program(const std::vector<section> &sections)
{
    constexpr std::size_t header = 8;
    constexpr std::size_t entry = 4;
    const octets &pat = sections.front().bytes;
    const auto number = [&](std::size_t at) {
        return static_cast<std::uint16_t>(pat[at] << 8 | pat[at + 1]);
    };
    std::size_t at = header;
    while (at + 2 * entry < pat.size() && number(at) == 0)
        at += entry;
    return number(at);
}

// All tables, and the events of every service.
void tune(const std::vector<section> &sections)
{
    static SiDmxSectHandler handlers = driver();
    static const bool started = [] {
        Orva_Si_InstallCallback(note_thread);
        return Orva_Si_Init(&handlers) == ORVA_SI_OK;
    }();
    if (!started)
        return;
    while (Orva_Si_GetDvbEitList() == nullptr) // made by the section thread
        std::this_thread::yield();
    Orva_Si_StopChannel();
    const SiTuneParam channel{frequency, 0, 0, first_program(sections)};
    while (Orva_Si_StartChannel(&channel) != ORVA_SI_OK)
        Orva_Si_StopChannel();
    constexpr std::uint16_t every_service = SI_ANY_EXT;
    Orva_Si_StartActualPFEIT(SI_ANY_EXT, SI_ANY_EXT, channel.program_number, &every_service, 1);
    Orva_Si_StartOtherPFEIT(nullptr, 0);
    Orva_Si_StartOtherSchedulEIT(nullptr, 0);
}

std::size_t held_sections()
{
    const auto length = [](const si_list *of) { return static_cast<std::size_t>(of->nb_elt); };
    std::size_t held = 0;
    Orva_MutexP(&Ts_Ctl_Mutex);
    for (std::int32_t at = 0; at < Orva_Si_GetTableList()->nb_elt; ++at)
        held += length(static_cast<SiTable *>(si_list_get(Orva_Si_GetTableList(), at))->psect_list);
    Orva_MutexV(&Ts_Ctl_Mutex);
    Orva_MutexP(&Ts_Eit_Mutex);
    for (std::int32_t at = 0; at < Orva_Si_GetDvbEitList()->nb_elt; ++at)
        held +=
            length(static_cast<SiEitService *>(si_list_get(Orva_Si_GetDvbEitList(), at))->sections);
    Orva_MutexV(&Ts_Eit_Mutex);
    return held;
}

void forget_all()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_ClearCache();
    Orva_MutexV(&Ts_Ctl_Mutex);
    Orva_Si_EraseAllEitRawData();
}

// ---- Playing

enum class delivery { single, list };

struct cost {
    double driver = 0; // CPU seconds
    double section_thread = 0;
    std::size_t sections = 0;
};

// Sections of one filter in a driver's buffer.
struct lent_sections {
    std::uint32_t filter;
    std::vector<SiDmxSection> parts;
};

// Puts them where a driver has just received them: into memory that the caches hold. Or leaves them
// where they are, when it is instructions that count.
enum class placing { in_caches, in_place };

class driver_buffer {
public:
    template <class At>
    const std::vector<lent_sections> &fill(At first, At last, placing where = placing::in_caches)
    {
        lists.clear();
        room.clear();
        room.reserve(longest_list * si::largest_section); // stays where it is
        for (; first != last; ++first) {
            const std::uint32_t filter = filter_of_pid[first->pid];
            if (filter == 0)
                continue;
            const std::uint8_t *at = first->bytes.data();
            if (where == placing::in_caches) {
                at = room.data() + room.size();
                room.insert(room.end(), first->bytes.begin(), first->bytes.end());
            }
            if (lists.empty() || lists.back().filter != filter)
                lists.push_back({filter, {}});
            lists.back().parts.push_back({const_cast<std::uint8_t *>(at),
                                          static_cast<std::uint32_t>(first->bytes.size()), nullptr,
                                          0, 0});
        }
        return lists;
    }

private:
    octets room;
    std::vector<lent_sections> lists;
};

void send(lent_sections &lent, delivery how)
{
    if (how == delivery::list) {
        SiDmxSectionList list{static_cast<std::uint32_t>(lent.parts.size()), lent.parts.data(), 0};
        Si_SectFlt_PidFltSecListCallback(0, lent.filter, 0, &list);
        return;
    }
    for (SiDmxSection &each : lent.parts)
        Si_SectFlt_PidFltCallback(0, lent.filter, 0, &each);
}

void wait_until_stored(std::chrono::microseconds poll)
{
    while (Si_SectFlt_GetPendingCount() != 0)
        std::this_thread::sleep_for(poll);
}

// Sends everything once. What has no filter, PMTs of other programs, is left out.
cost play(const std::vector<section> &sections, delivery how, placing where = placing::in_caches)
{
    // Hardly ever where instructions count, for the counter runs the threads in turns.
    const std::chrono::microseconds poll{where == placing::in_caches ? 50 : 2000};
    static driver_buffer buffer;
    cost taken;
    const double before = section_thread_seconds();
    const std::size_t most = how == delivery::list ? longest_list : burst;
    for (std::size_t at = 0; at < sections.size();) {
        const std::size_t count = at == 0 ? 1 : std::min(most, sections.size() - at);
        const auto first = sections.begin() + static_cast<std::ptrdiff_t>(at);
        auto lists = buffer.fill(first, first + static_cast<std::ptrdiff_t>(count), where);
        for (lent_sections &each : lists) {
            const double start = thread_seconds();
            send(each, how);
            taken.driver += thread_seconds() - start;
            taken.sections += each.parts.size();
            if (how == delivery::list) // which are not taken when much is queued
                wait_until_stored(poll);
        }
        wait_until_stored(poll);
        at += count;
    }
    taken.section_thread = section_thread_seconds() - before;
    return taken;
}

// ---- What is measured

// Of what was sent, all but TDT and TOT. PMT filters go round, so PMTs of earlier rounds may be
// there too.
bool holds(benchmark::State &state, std::size_t sent, std::size_t all)
{
    const std::size_t held = held_sections();
    if (held <= all && held + 2 >= sent)
        return true;
    state.SkipWithError("the store does not hold the sections");
    return false;
}

void report(benchmark::State &state, const cost &sum)
{
    const auto sections = static_cast<double>(sum.sections);
    state.counters["driver_ns"] = 1e9 * sum.driver / sections;
    state.counters["thread_ns"] = 1e9 * sum.section_thread / sections;
    state.SetItemsProcessed(state.iterations());
}

void add(benchmark::State &state, cost &sum, const cost &more)
{
    state.SetIterationTime((more.driver + more.section_thread) /
                           static_cast<double>(more.sections));
    sum.driver += more.driver;
    sum.section_thread += more.section_thread;
    sum.sections += more.sections;
}

void fresh(benchmark::State &state, const std::vector<section> &sections, delivery how)
{
    keep_freed_memory();
    tune(sections);
    play(sections, how); // takes the memory from the system
    cost sum;
    for (auto _ : state) {
        forget_all();
        tune(sections);
        fill_caches();
        const cost taken = play(sections, how);
        if (!holds(state, taken.sections, sections.size()))
            return;
        add(state, sum, taken);
    }
    report(state, sum);
}

void repeated(benchmark::State &state, const std::vector<section> &sections, delivery how)
{
    constexpr std::size_t enough = 20000; // sections of a round: the fewer, the more rounds
    forget_all();
    tune(sections);
    play(sections, how);
    cost sum;
    for (auto _ : state) {
        cost taken;
        while (taken.sections < enough) {
            const cost more = play(sections, how);
            taken.driver += more.driver;
            taken.section_thread += more.section_thread;
            taken.sections += more.sections;
        }
        add(state, sum, taken);
    }
    holds(state, play(sections, how).sections, sections.size());
    report(state, sum);
}

double resident_bytes()
{
    std::ifstream statm{"/proc/self/statm"};
    double total = 0;
    double resident = 0;
    statm >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// In a process of its own that has held nothing before.
double memory_per_section(const std::vector<section> &sections, double (*measure)())
{
    return in_child([&] {
        tune(sections);
        play({sections.begin(), sections.begin() + 1}, delivery::single);
        const double before = measure();
        const auto kept = static_cast<double>(play(sections, delivery::single).sections);
        return (measure() - before) / kept;
    });
}

void memory(benchmark::State &state, const std::vector<section> &sections)
{
    for (auto _ : state) {
        state.counters["section_bytes"] = bytes_of(sections) / static_cast<double>(sections.size());
        state.counters["live_bytes"] = memory_per_section(sections, heap_in_use);
        state.counters["rss_bytes"] = memory_per_section(sections, resident_bytes);
    }
}

void libucsi_alone(benchmark::State &state, const std::vector<section> &sections)
{
    tune(sections); // what has a filter is what is decoded
    driver_buffer buffer;
    std::size_t refused = 0;
    for (auto _ : state) {
        double taken = 0;
        for (std::size_t at = 0; at < sections.size(); at += burst) {
            const std::size_t count = std::min(burst, sections.size() - at);
            const auto first = sections.begin() + static_cast<std::ptrdiff_t>(at);
            const auto &lists = buffer.fill(first, first + static_cast<std::ptrdiff_t>(count));
            const double start = thread_seconds();
            for (const lent_sections &list : lists)
                for (const SiDmxSection &each : list.parts)
                    refused +=
                        decode_alone(each.pPrimaraySectionData, each.PrimaraySectionSize) ? 0 : 1;
            taken += thread_seconds() - start;
        }
        state.SetIterationTime(taken / static_cast<double>(sections.size()));
    }
    if (refused != 0)
        state.SkipWithError("sections were refused");
}

struct mux {
    std::string name;
    std::vector<section> sections;
};

void register_all(const std::vector<mux> &all)
{
    const auto add = [](const std::string &name, auto run, int rounds) {
        benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime()->Iterations(rounds);
    };
    for (const mux &of : all) // before there are threads to be lost in a child
        benchmark::RegisterBenchmark(("memory/" + of.name).c_str(), [&](benchmark::State &state) {
            memory(state, of.sections);
        })->Iterations(1);
    for (const mux &of : all) {
        add(
            "libucsi_alone/" + of.name,
            [&](benchmark::State &state) { libucsi_alone(state, of.sections); }, 3);
        for (const delivery how : {delivery::single, delivery::list}) {
            const std::string tail =
                (how == delivery::single ? "_section/" : "_section_in_list/") + of.name;
            add(
                "fresh" + tail,
                [&of, how](benchmark::State &state) { fresh(state, of.sections, how); }, 3);
            add(
                "repeated" + tail,
                [&of, how](benchmark::State &state) { repeated(state, of.sections, how); }, 5);
        }
    }
}

// For counting instructions.
int play_rounds(const std::vector<mux> &all, int rounds, delivery how)
{
    for (const mux &of : all) {
        tune(of.sections);
        std::size_t sent = 0;
        for (int round = 0; round < rounds; ++round)
            sent += play(of.sections, how, placing::in_place).sections;
        std::printf("sections %zu\n", sent);
    }
    return 0;
}

} // namespace

int main(int count, char **arguments)
{
    std::vector<mux> all;
    std::vector<char *> others{arguments[0]};
    int rounds = -1;
    delivery how = delivery::single;
    for (int at = 1; at < count; ++at) {
        const std::string_view given{arguments[at]};
        const auto is = [&](std::string_view name) { return given.substr(0, name.size()) == name; };
        const std::string value{given.substr(std::min(given.find('=') + 1, given.size()))};
        if (is("--sections="))
            all.push_back({value, read_mux(value)});
        else if (is("--services="))
            all.push_back({value, make_mux(static_cast<unsigned>(std::stoul(value)))});
        else if (is("--play="))
            rounds = std::stoi(value);
        else if (given == "--list")
            how = delivery::list;
        else
            others.push_back(arguments[at]);
    }
    const bool none_given = all.empty();
    for (const unsigned services : {10U, 100U, 1000U})
        if (none_given)
            all.push_back({std::to_string(services), make_mux(services)});
    for (const mux &of : all)
        if (of.sections.empty()) {
            std::fprintf(stderr, "no sections in %s\n", of.name.c_str());
            return 1;
        }
    if (rounds >= 0)
        return play_rounds(all, rounds, how);
    register_all(all);
    int left = static_cast<int>(others.size());
    benchmark::Initialize(&left, others.data());
    if (benchmark::ReportUnrecognizedArguments(left, others.data()))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    std::fflush(stdout);
    std::_Exit(0); // the section thread never ends
}
