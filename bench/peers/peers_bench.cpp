// SPDX-License-Identifier: LGPL-2.1-or-later
// What a section, a question and a packet cost with Orva SI and with other libraries, on the same
// data, side by side. Every figure is CPU time of all threads of a process that runs one candidate
// alone; the candidates take turns, and of several rounds the median is told. A candidate that did
// not see every section, or gave a wrong answer, ends the run; a round in which one crashed is left
// out.
//
//     peers_bench [ROUNDS]    one line for each figure, fields separated by tabs:
//                             section fresh|repeated, question NAME, packets: CANDIDATE SERVICES NS
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../measure.h"
#include "candidate.h"

namespace {

using namespace bench;

constexpr const candidate *candidates[] = {
    &orva_candidate,      &libucsi_candidate,
#ifdef WITH_LIBDVBPSI
    &libdvbpsi_candidate,
#endif
#ifdef WITH_LIBDVBV5
    &libdvbv5_candidate,
#endif
#ifdef WITH_GSTREAMER
    &gstreamer_candidate,
#endif
};

constexpr std::uint16_t sizes[] = {10, 30, 100, 300, 1000};

bool *failed = nullptr; // in memory that the processes share

[[noreturn]] void fail(const char *who, const char *what)
{
    std::fprintf(stderr, "peers_bench: %s: %s\n", who, what);
    if (failed != nullptr)
        *failed = true;
    std::_Exit(2);
}

// ---- Time

double clock_seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// CPU time of this thread between start and stop, and of all other threads all the time.
class stopwatch {
public:
    void start() { started = thread_seconds(); }
    void stop() { own += thread_seconds() - started; }
    double seconds() const { return own + others() - others_before; }

private:
    static double others()
    {
        const double own_now = thread_seconds();
        return clock_seconds(CLOCK_PROCESS_CPUTIME_ID) - own_now;
    }

    double own = 0;
    double started = 0;
    double others_before = others();
};

// ---- Sections

void check(const candidate &of, const counts &got, const counts &all, std::size_t times)
{
    const auto agrees = [&](std::size_t told, std::size_t expected) {
        return told == not_told || told == (of.knows_repeats ? 1 : times) * expected;
    };
    const auto number = [](std::size_t told) {
        return told == not_told ? std::string{"untold"} : std::to_string(told);
    };
    const bool told_nothing = got.sections == not_told && got.events == not_told;
    if (!told_nothing && agrees(got.sections, all.sections) && agrees(got.events, all.events) &&
        agrees(got.services, all.services))
        return;
    std::fprintf(stderr, "%s sections, %s events, %s services\n", number(got.sections).c_str(),
                 number(got.events).c_str(), number(got.services).c_str());
    fail(of.name, "not everything was seen");
}

// All sections once, from where reception has just put them: memory that the caches hold.
void play(const candidate &of, const mux &data, stopwatch &watch)
{
    constexpr std::size_t burst = 64; // sections handed in before the driver waits
    constexpr std::size_t room = 4096;
    static octets buffer(burst * room);
    static std::array<received, burst> batch;
    for (std::size_t at = 0; at < data.sections.size();) {
        const std::size_t count = at == 0 ? 1 : std::min(burst, data.sections.size() - at);
        auto place = buffer.begin();
        for (std::size_t i = 0; i < count; ++i) {
            const section &from = data.sections[at + i];
            batch[i] = {from.pid, {place, from.bytes.size()}};
            place = std::ranges::copy(from.bytes, place).out;
        }
        watch.start();
        const bool taken = of.take(std::span{batch}.first(count));
        watch.stop();
        if (!taken)
            fail(of.name, "a section was refused");
        if (of.settle != nullptr)
            of.settle();
        at += count;
    }
}

// Rounds that make a figure: small multiplexes are played more often.
std::size_t rounds_of(const mux &data)
{
    constexpr std::size_t enough = 20000;
    return 1 + enough / data.sections.size();
}

double seconds_of(const candidate &of, const mux &data, std::size_t rounds)
{
    stopwatch watch;
    for (std::size_t round = 0; round < rounds; ++round)
        play(of, data, watch);
    return watch.seconds();
}

// Where everything has to come twice, what the second time takes as a repeat is not counted.
double fresh_section(const candidate &of, const mux &data)
{
    double sum = 0;
    for (std::size_t round = 0; round < rounds_of(data); ++round) {
        of.forget();
        fill_caches();
        sum += seconds_of(of, data, of.rounds_to_tell);
        check(of, of.counted(data), data.all, of.rounds_to_tell);
        sum -= seconds_of(of, data, of.rounds_to_tell - 1);
    }
    return sum / static_cast<double>(rounds_of(data) * data.sections.size());
}

double repeated_section(const candidate &of, const mux &data)
{
    of.forget();
    seconds_of(of, data, of.rounds_to_tell);
    const double taken = seconds_of(of, data, rounds_of(data));
    check(of, of.counted(data), data.all, of.rounds_to_tell + rounds_of(data));
    return taken / static_cast<double>(rounds_of(data) * data.sections.size());
}

// ---- Questions

std::string_view text_of(const SiDvbString &of)
{
    return {reinterpret_cast<const char *>(of.text), of.length};
}

// So long that the clock does not matter.
template <class Ask>
double time_of(Ask ask)
{
    constexpr double long_enough = 0.02;
    std::size_t asked = 0;
    const double before = thread_seconds();
    double taken = 0;
    for (std::size_t more = 1; taken < long_enough; more *= 2) {
        for (std::size_t i = 0; i < more; ++i)
            ask(asked++);
        taken = thread_seconds() - before;
    }
    return taken / static_cast<double>(asked);
}

std::uint16_t nth_service(const mux &data, std::size_t n)
{
    return static_cast<std::uint16_t>(n * 7 % data.services);
}

double name_of_event(const candidate &of, const mux &data)
{
    SiDvbString name{};
    return time_of([&](std::size_t n) {
        const std::uint16_t service = nth_service(data, n);
        const auto event = static_cast<unsigned>(n * 31 % schedule_events);
        if (!of.event_name(data, service, event, name))
            fail(of.name, "no name of an event");
        if (n < 1000 && text_of(name) != name_of(service, event))
            fail(of.name, "wrong name of an event");
    });
}

double events_of_service(const candidate &of, const mux &data)
{
    static std::vector<SiBasicEvent> found(schedule_events + 1);
    return time_of([&](std::size_t n) {
        const std::uint16_t service = nth_service(data, n);
        if (of.events(data, service, found) != schedule_events)
            fail(of.name, "not all events");
        const auto event = static_cast<unsigned>(n * 31 % schedule_events);
        if (found[event].event_id != event ||
            text_of(found[event].event_name) != name_of(service, event))
            fail(of.name, "wrong event");
    });
}

double ids_of_services(const candidate &of, const mux &data)
{
    std::vector<std::uint16_t> found(data.services + 1u);
    return time_of([&](std::size_t n) {
        const std::uint16_t service = nth_service(data, n);
        if (of.service_ids(data, found) != data.services || found[service] != service)
            fail(of.name, "wrong list of services");
    });
}

double names_of_services(const candidate &of, const mux &data)
{
    std::vector<listed_service> found(data.services + 1u);
    return time_of([&](std::size_t n) {
        const std::uint16_t service = nth_service(data, n);
        if (of.service_names(data, found) != data.services || found[service].id != service ||
            text_of(found[service].name) != name_of_service(service))
            fail(of.name, "wrong names of services");
    });
}

// ---- Figures

using measurement = double (*)(const candidate &of, const mux &data);

struct kind {
    const char *name;
    measurement measure;
};

constexpr kind kinds[] = {
    {"section fresh", fresh_section},
    {"section repeated", repeated_section},
    {"question name of an event", name_of_event},
    {"question events of a service", events_of_service},
    {"question services", ids_of_services},
    {"question services with names", names_of_services},
};

using figures = std::array<double, std::size(kinds)>;

template <class T>
T *shared_memory()
{
    void *made =
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (made == MAP_FAILED)
        fail("mmap", "no shared memory");
    return static_cast<T *>(made);
}

// In a process of its own. Nothing when that ended of itself.
template <class T, class Work>
std::optional<T> measured_alone(const char *who, Work work)
{
    static T *shared = shared_memory<T>();
    const double done = in_child([&] {
        keep_freed_memory();
        *shared = work();
        return 1.0;
    });
    if (*failed)
        std::_Exit(2);
    if (done == 1.0)
        return *shared;
    std::fprintf(stderr, "peers_bench: %s: crashed\n", who);
    return std::nullopt;
}

std::optional<figures> measure_all(const candidate &of, const mux &data)
{
    return measured_alone<figures>(of.name, [&] {
        of.start(data);
        seconds_of(of, data, of.rounds_to_tell); // takes the memory from the system
        figures made{};
        for (std::size_t at = 0; at < std::size(kinds); ++at)
            made[at] = kinds[at].measure(of, data);
        return made;
    });
}

double median(std::vector<double> of)
{
    std::ranges::sort(of);
    return of[of.size() / 2];
}

void tell(const std::string &what, const char *who, unsigned services, double seconds)
{
    std::printf("%s\t%s\t%u\t%.1f\n", what.c_str(), who, services, 1e9 * seconds);
    std::fflush(stdout);
}

void compare(std::uint16_t services, unsigned rounds)
{
    const mux data = make_mux(services, std::min(services, services_per_stream));
    std::vector<std::vector<figures>> all(std::size(candidates));
    for (unsigned round = 0; round < rounds; ++round)
        for (std::size_t i = 0; i < std::size(candidates); ++i) {
            const std::size_t at = (i + round) % std::size(candidates);
            if (const auto made = measure_all(*candidates[at], data))
                all[at].push_back(*made);
        }
    for (std::size_t what = 0; what < std::size(kinds); ++what)
        for (std::size_t at = 0; at < std::size(candidates); ++at) {
            if (all[at].empty())
                continue;
            std::vector<double> of;
            for (const figures &each : all[at])
                of.push_back(each[what]);
            tell(kinds[what].name, candidates[at]->name, services, median(of));
        }
}

// ---- Packets

// A file that is gone with its last user.
struct temporary {
    explicit temporary(const octets &content) : file{std::tmpfile()}
    {
        if (file == nullptr ||
            std::fwrite(content.data(), 1, content.size(), file) != content.size() ||
            std::fflush(file) != 0)
            fail("packets", "no temporary file");
    }
    ~temporary() { std::fclose(file); }
    temporary(const temporary &) = delete;
    temporary &operator=(const temporary &) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fileno(file)); }

    std::FILE *file;
};

std::optional<double> read_stream(const candidate &of, const mux &data, const std::string &path)
{
    return measured_alone<double>(of.name, [&] {
        stopwatch watch;
        watch.start();
        const counts got = of.demultiplex(path, data);
        watch.stop();
        const double taken = watch.seconds();
        check(of, got, data.all, 1);
        return taken;
    });
}

void compare_packets(std::uint16_t services, unsigned rounds)
{
    constexpr unsigned cycles = 16;
    constexpr std::size_t packet_bytes = 188;
    const mux data = make_mux(services, 0);
    const octets stream = make_stream(data, cycles);
    const auto packets = static_cast<double>(stream.size() / packet_bytes);
    const temporary file{stream};
    std::vector<std::vector<double>> all(std::size(candidates));
    for (unsigned round = 0; round < rounds; ++round)
        for (std::size_t i = 0; i < std::size(candidates); ++i) {
            const std::size_t at = (i + round) % std::size(candidates);
            if (candidates[at]->demultiplex == nullptr)
                continue;
            if (const auto seconds = read_stream(*candidates[at], data, file.path()))
                all[at].push_back(*seconds / packets);
        }
    for (std::size_t at = 0; at < std::size(candidates); ++at)
        if (!all[at].empty())
            tell("packets", candidates[at]->name, services, median(all[at]));
}

} // namespace

int main(int count, char **arguments)
{
    const int wanted = count > 1 ? std::atoi(arguments[1]) : 5;
    if (wanted < 1)
        fail("usage", "peers_bench [ROUNDS]");
    const auto rounds = static_cast<unsigned>(wanted);
    failed = shared_memory<bool>();
    compare_packets(100, rounds);
    for (const std::uint16_t services : sizes)
        compare(services, rounds);
    return 0;
}
