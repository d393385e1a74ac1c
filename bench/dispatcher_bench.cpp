// SPDX-License-Identifier: LGPL-2.1-or-later
// What a section costs from the dispatcher to the store, by the number of tables held. On air
// nearly every section is a repeat of one that is held: its cost must not grow with the store, or a
// large network starves the receiver.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "orva_si.h"
#include "orva_si_bytes.h"

namespace {

constexpr std::size_t section_bytes = 200;
constexpr std::size_t fresh_batch = 32;

using section = std::vector<std::uint8_t>;

// A one-section table with a right CRC_32: an SDT of another multiplex, or a PMT.
struct table {
    std::uint16_t pid;
    section bytes;
};

table make_table(std::uint16_t ext, std::uint8_t version, bool pmt)
{
    section bytes(section_bytes, 0x55);
    bytes[0] = pmt ? 0x02 : 0x46;
    bytes[1] = 0xB0;
    bytes[2] = static_cast<std::uint8_t>(section_bytes - 3);
    bytes[3] = static_cast<std::uint8_t>(ext >> 8);
    bytes[4] = static_cast<std::uint8_t>(ext);
    bytes[5] = static_cast<std::uint8_t>(0xC1 | version << 1);
    bytes[6] = bytes[7] = 0;
    const std::uint32_t crc = si::crc32_mpeg(std::span{bytes}.first(section_bytes - 4));
    for (std::size_t i = 0; i < 4; ++i)
        bytes[section_bytes - 4 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
    return {static_cast<std::uint16_t>(pmt ? 0x100 : 0x11), std::move(bytes)};
}

// The last eighth are PMTs: the store keeps its last eighth for such tables, and 4,000 nearly fill
// it.
std::vector<table> make_tables(std::size_t count, std::uint8_t version)
{
    std::vector<table> tables;
    for (std::size_t i = 0; i < count; ++i)
        tables.push_back(
            make_table(static_cast<std::uint16_t>(i), version, i >= count - count / 8));
    return tables;
}

std::vector<table> make_pmts(std::size_t first, std::size_t count)
{
    std::vector<table> tables;
    for (std::size_t i = first; i < first + count; ++i)
        tables.push_back(make_table(static_cast<std::uint16_t>(i), 1, true));
    return tables;
}

std::uint32_t deliver(table &from)
{
    SiSection record{from.pid, 1, static_cast<std::uint16_t>(from.bytes.size()), from.bytes.data()};
    return Si_Model_ProcessModel(&record);
}

void hold(std::vector<table> &tables)
{
    if (Orva_Si_GetTableList() == nullptr)
        Orva_Si_InitTables();
    Orva_Si_ClearCache();
    for (table &each : tables)
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
    std::vector<table> tables = make_tables(count, 1);
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
    std::vector<std::vector<table>> versions{make_tables(count, 1), make_tables(count, 2)};
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
    std::vector<table> held = make_tables(count, 1);
    std::vector<table> fresh = make_pmts(count, fresh_batch);
    hold(held);
    if (!holds(state, count))
        return;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        for (table &each : fresh)
            benchmark::DoNotOptimize(deliver(each));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count() / fresh_batch);
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

void sizes(benchmark::internal::Benchmark *bench)
{
    bench->ArgName("tables")->Arg(10)->Arg(100)->Arg(1000)->Arg(4000);
}

BENCHMARK(repeated_section)->Apply(sizes);
BENCHMARK(repeated_section_scattered)->Apply(sizes);
BENCHMARK(new_version)->Apply(sizes);
// A fixed number: making room again costs far more than what is measured.
BENCHMARK(fresh_section)->Apply(sizes)->UseManualTime()->Iterations(2000);

} // namespace
