// SPDX-License-Identifier: LGPL-2.1-or-later
// How fast packets go through the demultiplexer: from a file in the page cache to assembled
// sections, without a library behind. Packets that nobody wants are by far the most of a multiplex;
// a stream of service information alone is the other end.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "orva_demux_input.h"
#include "orva_ts_sections.h"

namespace {

using namespace si::demux;
using octets = std::vector<std::uint8_t>;

constexpr std::size_t payload_bytes = packet_bytes - 4;
constexpr std::uint16_t eit_pid = 0x12;

// Packets of a period one behind the other.
struct stream {
    explicit stream(std::size_t distance) : period{distance} {}

    void add(std::uint16_t pid, bool start, si::bytes payload)
    {
        if (period == 192)
            all.resize(all.size() + 4);
        const auto count = static_cast<std::uint8_t>(counters[pid]++ & 0x0F);
        all.insert(all.end(), {sync_byte, static_cast<std::uint8_t>((start ? 0x40 : 0) | pid >> 8),
                               static_cast<std::uint8_t>(pid), std::uint8_t(0x10 | count)});
        all.insert(all.end(), payload.begin(), payload.end());
        all.resize(all.size() + payload_bytes - payload.size(), 0xFF);
        if (period == 204)
            all.resize(all.size() + 16);
        ++packets;
    }

    std::size_t period;
    octets all;
    std::vector<std::uint8_t> counters = octets(pid_total);
    std::int64_t packets = 0;
};

// Video, as PES packets of 60 kB, on eight PIDs.
stream unwanted(std::size_t period, std::size_t size)
{
    stream made{period};
    octets payload(payload_bytes, 0x55);
    const octets pes{0, 0, 1, 0xE0, 0, 0};
    while (made.all.size() < size) {
        const auto n = static_cast<unsigned>(made.packets);
        const bool start = n / 8 % 330 == 0;
        std::fill_n(payload.begin(), pes.size(), std::uint8_t{0x55});
        if (start)
            std::ranges::copy(pes, payload.begin());
        made.add(static_cast<std::uint16_t>(0x100 + n % 8), start, payload);
    }
    return made;
}

octets section_of(std::size_t size, std::uint32_t number)
{
    octets made(size);
    std::uint32_t seed = number;
    for (std::uint8_t &byte : made)
        byte = static_cast<std::uint8_t>((seed = seed * 1664525 + 1013904223) >> 24);
    const std::size_t length = size - si::section_header_bytes;
    made[0] = 0x50;
    made[1] = static_cast<std::uint8_t>(0xF0 | length >> 8);
    made[2] = static_cast<std::uint8_t>(length);
    const std::uint32_t crc = si::crc32_mpeg(si::bytes{made}.first(size - si::crc_bytes));
    for (std::size_t i = 0; i < si::crc_bytes; ++i)
        made[size - 1 - i] = static_cast<std::uint8_t>(crc >> 8 * i);
    return made;
}

// Sections of one size back to back, on one PID.
stream sections(std::size_t period, std::size_t section, std::size_t size, std::int64_t &count)
{
    octets bytes;
    std::vector<std::size_t> starts;
    for (std::uint32_t n = 0; bytes.size() < size; ++n) {
        starts.push_back(bytes.size());
        const octets one = section_of(section, n);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    count = static_cast<std::int64_t>(starts.size());
    stream made{period};
    std::size_t at = 0;
    while (at < bytes.size()) {
        const auto next = std::ranges::lower_bound(starts, at);
        const std::size_t before = next == starts.end() ? payload_bytes : *next - at;
        const bool start = before < payload_bytes - 1;
        const std::size_t room = start ? payload_bytes - 1 : std::min(before, payload_bytes);
        const std::size_t taken = std::min(room, bytes.size() - at);
        octets payload;
        if (start)
            payload.push_back(static_cast<std::uint8_t>(before));
        payload.insert(payload.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + taken));
        made.add(eit_pid, start, payload);
        at += taken;
    }
    return made;
}

// A file that is gone with its last user.
class temporary {
public:
    explicit temporary(const octets &content) : file{std::tmpfile()}
    {
        if (file == nullptr ||
            std::fwrite(content.data(), 1, content.size(), file) != content.size() ||
            std::fflush(file) != 0)
            throw std::runtime_error{"no temporary file"};
    }
    ~temporary() { std::fclose(file); }
    temporary(const temporary &) = delete;
    temporary &operator=(const temporary &) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fileno(file)); }

private:
    std::FILE *file;
};

struct outcome {
    std::int64_t packets = 0;
    std::int64_t sections = 0;
};

outcome read_all(const std::string &path)
{
    outcome done;
    input in;
    packet_sync sync;
    section_assembler assembler{[&](auto...) { ++done.sections; }};
    if (open_input(in, path.c_str()) != ORVA_DEMUX_OK)
        return done;
    for (;;) {
        consume(in, take_packets(sync, window(in), in.ended, [&](packet p) {
                    if (can_matter(assembler, p))
                        take_packet(assembler, p);
                    return true;
                }));
        if (in.ended)
            break;
        read_more(in, {});
    }
    done.packets = static_cast<std::int64_t>(sync.packets);
    return done;
}

void measure(benchmark::State &state, const stream &from, std::int64_t expected)
{
    const temporary file{from.all};
    outcome got;
    for (auto _ : state)
        got = read_all(file.path());
    if (got.packets != from.packets || got.sections != expected)
        state.SkipWithError("packets or sections are missing");
    state.SetItemsProcessed(state.iterations() * from.packets);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(from.all.size()));
}

constexpr std::size_t stream_bytes = std::size_t{32} << 20;

void unwanted_packets(benchmark::State &state)
{
    measure(state, unwanted(static_cast<std::size_t>(state.range(0)), stream_bytes), 0);
}
BENCHMARK(unwanted_packets)->ArgName("period")->Arg(188)->Arg(192)->Arg(204);

void sections_only(benchmark::State &state)
{
    std::int64_t count = 0;
    const stream from = sections(static_cast<std::size_t>(state.range(0)),
                                 static_cast<std::size_t>(state.range(1)), stream_bytes, count);
    measure(state, from, count);
    state.counters["sections"] = benchmark::Counter(static_cast<double>(state.iterations() * count),
                                                    benchmark::Counter::kIsRate);
}
BENCHMARK(sections_only)
    ->ArgNames({"period", "section"})
    ->ArgsProduct({{188, 192, 204}, {1046}})
    ->ArgsProduct({{188}, {20, 100, 4096}});

} // namespace
