// SPDX-License-Identifier: LGPL-2.1-or-later
// What all candidates are given: the same sections, and a transport stream of them.
#ifndef BENCH_PEERS_MUX_H
#define BENCH_PEERS_MUX_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "../events.h"

namespace bench {

// What a candidate counts of the sections that it saw. Not each one can tell everything.
inline constexpr std::size_t not_told = SIZE_MAX;
struct counts {
    std::size_t sections = not_told;
    std::size_t events = not_told;
    std::size_t services = not_told;
};

// A PAT, the SDT of each transport stream and eight days of events of each service, by day as a
// satellite sends them.
struct mux {
    std::uint16_t services = 0;
    std::vector<section> sections;                   // the PAT first
    std::vector<std::size_t> sdts;                   // which of them: by transport stream
    std::vector<std::vector<std::size_t>> schedules; // by service, then by time
    counts all;
};

// The first services are of the tuned transport stream, with 25 services to each stream.
mux make_mux(std::uint16_t services, std::uint16_t tuned);

std::string name_of_service(std::uint16_t service);

// Packets of 188 bytes, all sections one behind the other, so many times.
octets make_stream(const mux &from, unsigned cycles);

} // namespace bench

#endif
