// SPDX-License-Identifier: LGPL-2.1-or-later
// The CRC of a section: every query checks each section it reads, so this is most of a query's
// cost. Against the plain loop over libucsi's table, one byte a step, in the same run.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "orva_si_bytes.h"

namespace {

std::uint32_t bytewise(si::bytes of)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : of)
        crc = crc << 8 ^ crc32tbl[crc >> 24 ^ byte];
    return crc;
}

std::vector<std::uint8_t> section_of(std::int64_t size)
{
    std::vector<std::uint8_t> made(static_cast<std::size_t>(size));
    std::uint32_t seed = 1;
    for (std::uint8_t &byte : made)
        byte = static_cast<std::uint8_t>((seed = seed * 1664525 + 1013904223) >> 24);
    return made;
}

template <std::uint32_t (*Crc)(si::bytes)>
void crc(benchmark::State &state)
{
    const auto section = section_of(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(Crc(section));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(crc<bytewise>)->ArgName("bytes")->Arg(64)->Arg(1024)->Arg(4096);
BENCHMARK(crc<si::crc32_mpeg>)->ArgName("bytes")->Arg(64)->Arg(1024)->Arg(4096);

} // namespace
