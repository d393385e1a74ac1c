// SPDX-License-Identifier: LGPL-2.1-or-later
// What an EIT section costs when it is stored and when it comes again, what the store takes for it
// beside its bytes, and what a question about an event costs, by the number of services. A
// satellite position has a thousand services and sends all of their events all the time: no cost
// may grow with their number.
//
// Sections come in the order of a carousel, service after service; by day, all services of one day
// before the next, as a satellite sends them; or scattered: the same work, but each service lies
// then where the processor's caches are not.
#include <benchmark/benchmark.h>
#include <random>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "events.h"
#include "measure.h"

namespace {

using namespace bench;

enum order : std::int64_t { carousel, by_day, scattered };

// An item and when it is on air.
template <class T>
struct timed {
    double seconds;
    T item;
};

// Services in their order, and what each one sends in its own.
template <class T>
std::vector<T> in_order(std::vector<timed<T>> items, std::int64_t wanted)
{
    if (wanted == by_day)
        std::ranges::stable_sort(items, {}, &timed<T>::seconds);
    if (wanted == scattered)
        std::shuffle(items.begin(), items.end(), std::mt19937{1});
    std::vector<T> made;
    made.reserve(items.size());
    for (timed<T> &each : items)
        made.push_back(std::move(each.item));
    return made;
}

// The eight days take a minute, each an eighth of it, with the services one behind the other in
// each. Present and following come round in ten seconds (ETSI TS 101 211, 4.4), so they fall
// between the sections of the first two days.
double seconds_of_schedule(double day, double service, double services)
{
    return (day + service / services) * 60 / 8;
}

double seconds_of_present(double service, double services)
{
    return service / services * 10;
}

// Names a section: of the schedule, or present and following.
struct part {
    std::uint16_t service;
    bool scheduled;
    unsigned segment; // of all tables; else the section_number
};

section make_part(const part &of)
{
    return of.scheduled ? schedule(of.service, of.segment / segments_per_table,
                                   of.segment % segments_per_table)
                        : present_following(of.service, of.segment);
}

// Made in the order in which they are sent, so that they lie in memory like what was just received.
std::vector<section> make_sections(const benchmark::State &state)
{
    const auto services = static_cast<double>(state.range(0));
    std::vector<timed<part>> parts;
    for (std::uint16_t service = 0; service < state.range(0); ++service) {
        for (unsigned number = 0; number < 2; ++number)
            parts.push_back({seconds_of_present(service, services), {service, false, number}});
        for (unsigned segment = 0; segment < schedule_tables * segments_per_table; ++segment)
            parts.push_back(
                {seconds_of_schedule(segment / 8, service, services), {service, true, segment}});
    }
    std::vector<section> made;
    made.reserve(parts.size());
    for (const part &each : in_order(std::move(parts), state.range(1)))
        made.push_back(make_part(each));
    return made;
}

// ---- The store

void store(std::vector<section> &sections)
{
    for (section &each : sections)
        benchmark::DoNotOptimize(deliver(each));
}

// CPU seconds that a section takes, on average over some rounds. Each comes from where reception
// has just put it, in the processor's caches; the putting does not count.
double seconds_of_arrival(const std::vector<section> &sections, std::int64_t rounds)
{
    constexpr std::size_t batch_size = 32;
    std::vector<section> batch;
    double taken = 0;
    for (std::int64_t round = 0; round < rounds; ++round)
        for (std::size_t at = 0; at < sections.size(); at += batch.size()) {
            const auto first = sections.begin() + static_cast<std::ptrdiff_t>(at);
            const std::size_t count = std::min(batch_size, sections.size() - at);
            batch.assign(first, first + static_cast<std::ptrdiff_t>(count));
            const double start = thread_seconds();
            store(batch);
            taken += thread_seconds() - start;
        }
    return taken / static_cast<double>(sections.size()) / static_cast<double>(rounds);
}

// Checks that the store holds what the figure claims.
bool holds(benchmark::State &state)
{
    si_list *services = Orva_Si_GetDvbEitList();
    bool all = services->nb_elt == state.range(0);
    for (std::int32_t at = 0; all && at < services->nb_elt; ++at) {
        const auto *service = static_cast<SiEitService *>(si_list_get(services, at));
        all = service->sections->nb_elt == static_cast<std::int32_t>(sections_per_service);
    }
    if (!all)
        state.SkipWithError("the store does not hold the sections");
    return all;
}

double bytes_of(const std::vector<section> &sections)
{
    double sum = 0;
    for (const section &each : sections)
        sum += static_cast<double>(each.bytes.size());
    return sum;
}

// ---- What is measured

// Heap that a full store takes, beside the bytes of its sections, for each of them. First of all
// and in a process of its own: GLib keeps for the next ones what is freed.
void heap_per_section(benchmark::State &state)
{
    std::vector<section> sections = make_sections(state);
    const auto count = static_cast<double>(sections.size());
    const double bytes = bytes_of(sections);
    for (auto _ : state) {
        const double taken = in_child([&] {
            empty_store();
            const double before = heap_in_use();
            store(sections);
            return holds(state) ? heap_in_use() - before : -1;
        });
        if (taken < 0) {
            state.SkipWithError("not measured");
            return;
        }
        state.counters["section_bytes"] = bytes / count;
        state.counters["more_heap"] = (taken - bytes) / count;
    }
}

// Sections that are not held yet, into a store that fills from empty.
void fresh_section(benchmark::State &state)
{
    keep_freed_memory();
    empty_store();
    std::vector<section> sections = make_sections(state);
    store(sections); // takes the memory from the system
    for (auto _ : state) {
        empty_store();
        fill_caches();
        state.SetIterationTime(seconds_of_arrival(sections, 1));
        if (!holds(state))
            return;
    }
    state.SetItemsProcessed(state.iterations());
}

// Repeats of what is held, which is nearly all that is on air.
void repeated_section(benchmark::State &state)
{
    constexpr std::int64_t most_services = 1000; // the fewer, the more rounds
    empty_store();
    std::vector<section> sections = make_sections(state);
    store(sections);
    for (auto _ : state)
        state.SetIterationTime(seconds_of_arrival(sections, most_services / state.range(0)));
    holds(state);
    state.SetItemsProcessed(state.iterations());
}

struct question {
    std::uint16_t service;
    std::uint16_t event;
};

// The name of each event in turn, services in the order in which they are on air. An event in the
// middle of the schedule is found behind half of its service's sections.
void event_name(benchmark::State &state, unsigned events, std::uint8_t banner)
{
    empty_store();
    know_language();
    {
        std::vector<section> sections = make_sections(state);
        store(sections);
    }
    if (!holds(state))
        return;
    const auto services = static_cast<double>(state.range(0));
    std::vector<timed<question>> each;
    for (std::uint16_t service = 0; service < state.range(0); ++service)
        for (std::uint16_t event = 0; event < events; ++event)
            each.push_back(
                {event + service / services,
                 {service, static_cast<std::uint16_t>((event + 31 * service) % events)}});
    const std::vector<question> questions = in_order(std::move(each), state.range(1));
    std::size_t next = 0;
    for (auto _ : state) {
        const question asked = questions[next];
        SiDvbString name{};
        if (Orva_Si_GetEvtNameByID(network, stream_of(asked.service), asked.service, asked.event,
                                   &name, language, banner) != ORVA_SI_OK) {
            state.SkipWithError("no such event");
            return;
        }
        benchmark::DoNotOptimize(name);
        next = next + 1 == questions.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(state.iterations());
}

void name_of_present_event(benchmark::State &state)
{
    event_name(state, 2, 1);
}

void name_of_schedule_event(benchmark::State &state)
{
    event_name(state, schedule_events, 0);
}

void sizes(benchmark::internal::Benchmark *of)
{
    of->ArgNames({"services", "order"})
        ->ArgsProduct({{10, 100, 1000}, {carousel, by_day, scattered}});
}

BENCHMARK(heap_per_section)->Apply(sizes)->Iterations(1);
BENCHMARK(fresh_section)->Apply(sizes)->UseManualTime()->Iterations(5);
BENCHMARK(repeated_section)->Apply(sizes)->UseManualTime()->Iterations(5);
BENCHMARK(name_of_present_event)->Apply(sizes);
BENCHMARK(name_of_schedule_event)->Apply(sizes);

} // namespace
