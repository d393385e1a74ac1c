// SPDX-License-Identifier: LGPL-2.1-or-later
// The CRC of a section: the demultiplexer checks each section, and every query each one it reads.
// All ways that run on this processor, and a plain loop of one byte a step over libucsi's table.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "orva_si_crc.h"

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

void measure(benchmark::State &state, si::crc_function crc)
{
    const auto section = section_of(state.range(0));
    if (crc(section) != bytewise(section))
        state.SkipWithError("wrong CRC_32");
    for (auto _ : state)
        benchmark::DoNotOptimize(crc(section));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void add(const std::string &name, si::crc_function crc)
{
    benchmark::RegisterBenchmark(("crc/" + name).c_str(), measure, crc)
        ->ArgName("bytes")
        ->ArgsProduct({{12, 16, 24, 32, 48, 64, 188, 1024, 1046, 4096}});
}

const bool added = [] {
    add("bytewise", bytewise);
    for (const si::crc_way &way : si::crc_ways())
        if (way.runs_here())
            add(way.name, way.crc);
    add("chosen", si::crc32_mpeg);
    return true;
}();

} // namespace
