// SPDX-License-Identifier: LGPL-2.1-or-later
// What a section costs from the dispatcher to the store, by the number of tables held. On air
// nearly every section is a repeat of one that is held: its cost must not grow with the store, or a
// large network starves the receiver.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "sections.h"

namespace {

using namespace bench;

constexpr std::size_t section_bytes = 200;
constexpr std::size_t fresh_batch = 32;

// A one-section table with a right CRC_32: an SDT of another multiplex, or a PMT.
section make_table(std::uint16_t ext, std::uint8_t version, bool pmt)
{
    constexpr std::size_t header_and_crc = 12;
    const auto pid = static_cast<std::uint16_t>(pmt ? 0x100 : 0x11);
    const auto table_id = static_cast<std::uint8_t>(pmt ? 0x02 : 0x46);
    return make_section({.pid = pid, .table_id = table_id, .ext = ext, .version = version},
                        octets(section_bytes - header_and_crc, 0x55));
}

// The last eighth are PMTs: the store keeps its last eighth for such tables, and 4,000 nearly fill
// it.
std::vector<section> make_tables(std::size_t count, std::uint8_t version)
{
    std::vector<section> tables;
    for (std::size_t i = 0; i < count; ++i)
        tables.push_back(
            make_table(static_cast<std::uint16_t>(i), version, i >= count - count / 8));
    return tables;
}

std::vector<section> make_pmts(std::size_t first, std::size_t count)
{
    std::vector<section> tables;
    for (std::size_t i = first; i < first + count; ++i)
        tables.push_back(make_table(static_cast<std::uint16_t>(i), 1, true));
    return tables;
}

void hold(std::vector<section> &tables)
{
    empty_store();
    for (section &each : tables)
        deliver(each);
}

// Checks that the store holds what the figure claims.
bool holds(benchmark::State &state, std::size_t count)
{
    if (static_cast<std::size_t>(Orva_Si_GetTableList()->nb_elt) == count)
        return true;
    state.SkipWithError("the store does not hold the tables");
    return false;
}

// Repeats of all tables, the next one a stride further on.
void repeats(benchmark::State &state, std::size_t stride)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<section> tables = make_tables(count, 1);
    hold(tables);
    if (!holds(state, count))
        return;
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(deliver(tables[next]));
        next = (next + stride) % count;
    }
    state.SetItemsProcessed(state.iterations());
}

// In the order in which they came first, as a broadcaster's carousel repeats them.
void repeated_section(benchmark::State &state)
{
    repeats(state, 1);
}

// In no such order: the same work, with what the processor's caches add to it. 17 is prime to every
// size.
void repeated_section_scattered(benchmark::State &state)
{
    repeats(state, 17);
}

void new_version(benchmark::State &state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<std::vector<section>> versions{make_tables(count, 1), make_tables(count, 2)};
    hold(versions[0]);
    if (!holds(state, count))
        return;
    std::size_t next = 0;
    std::size_t version = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(deliver(versions[version][next]));
        if (++next == count) {
            next = 0;
            version = 1 - version;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The first section of tables not held yet; they are removed again outside the measurement.
void fresh_section(benchmark::State &state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<section> held = make_tables(count, 1);
    std::vector<section> fresh = make_pmts(count, fresh_batch);
    hold(held);
    if (!holds(state, count))
        return;
    for (auto _ : state) {
        const double start = thread_seconds();
        for (section &each : fresh)
            benchmark::DoNotOptimize(deliver(each));
        state.SetIterationTime((thread_seconds() - start) / fresh_batch);
        si_list *list = Orva_Si_GetTableList();
        if (!holds(state, count + fresh_batch))
            return;
        while (static_cast<std::size_t>(list->nb_elt) > count) {
            const std::int32_t last = list->nb_elt - 1;
            Orva_Si_RemoveTable(static_cast<SiTable *>(si_list_get(list, last)));
            si_list_remove(list, last);
        }
        deliver(held[0]); // finds its tables again after a client changed the list
    }
    state.SetItemsProcessed(state.iterations());
}

void sizes(benchmark::internal::Benchmark *of)
{
    of->ArgName("tables")->Arg(10)->Arg(100)->Arg(1000)->Arg(4000);
}

BENCHMARK(repeated_section)->Apply(sizes);
BENCHMARK(repeated_section_scattered)->Apply(sizes);
BENCHMARK(new_version)->Apply(sizes);
// A fixed number: making room again costs far more than what is measured.
BENCHMARK(fresh_section)->Apply(sizes)->UseManualTime()->Iterations(2000);

} // namespace
