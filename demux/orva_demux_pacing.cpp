// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_pacing.h"

namespace si::demux {
namespace {

constexpr std::uint64_t ticks_per_base = 300;
constexpr std::uint64_t nanoseconds_per_27_ticks = 1000;
constexpr std::uint64_t pcr_wrap = (std::uint64_t{1} << 33) * ticks_per_base;
// PCRs come every 100 ms at least; a larger step is a new time base.
constexpr std::uint64_t largest_step = 27'000'000;
// So many PCRs of other programs without one of ours: it has ended.
constexpr std::uint32_t patience = 64;

constexpr std::size_t adaptation_length_byte = 4;
constexpr std::size_t adaptation_flags_byte = 5;
constexpr std::size_t pcr_byte = 6;
constexpr std::uint8_t shortest_with_pcr = 7;

bool carries_pcr(packet p)
{
    return (p[1] & 0x80) == 0 && (p[3] & 0x20) != 0 &&
           p[adaptation_length_byte] >= shortest_with_pcr && (p[adaptation_flags_byte] & 0x10) != 0;
}

std::uint64_t pcr_of(packet p)
{
    const auto field = p.subspan<pcr_byte, 6>();
    const std::uint64_t base = std::uint64_t{be32(field.first<4>())} << 1 | field[4] >> 7;
    const std::uint64_t extension = static_cast<std::uint64_t>((field[4] & 1) << 8 | field[5]);
    return base * ticks_per_base + extension;
}

} // namespace

std::optional<steady::time_point> due_time(pacer &by, packet p, steady::time_point now)
{
    if (!carries_pcr(p))
        return std::nullopt;
    const auto pid = static_cast<std::uint16_t>((p[1] & 0x1F) << 8 | p[2]);
    const std::uint64_t pcr = pcr_of(p);
    const bool ours = by.pid == pid;
    if (!ours && by.pid <= 0x1FFF && ++by.others < patience)
        return std::nullopt;
    const std::uint64_t step = (pcr + pcr_wrap - by.pcr % pcr_wrap) % pcr_wrap;
    const bool continues = ours && step <= largest_step && (p[adaptation_flags_byte] & 0x80) == 0;
    by.due =
        continues ? by.due + std::chrono::nanoseconds{step * nanoseconds_per_27_ticks / 27} : now;
    by.pid = pid;
    by.others = 0;
    by.pcr = pcr;
    return by.due;
}

} // namespace si::demux
