// SPDX-License-Identifier: LGPL-2.1-or-later
// A library that takes sections or packets and answers, as the benchmark sees it.
#ifndef BENCH_PEERS_CANDIDATE_H
#define BENCH_PEERS_CANDIDATE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "mux.h"
#include "orva_si.h"

namespace bench {

// A section in the driver's buffer.
struct received {
    std::uint16_t pid;
    std::span<std::uint8_t> bytes;
};

struct listed_service {
    std::uint16_t id;
    SiDvbString name;
};

// A process starts one candidate, once. A null function: the library has nothing for that.
struct candidate {
    const char *name;
    bool knows_repeats;      // a section that comes again is counted once
    unsigned rounds_to_tell; // how often everything comes before all of it is known; mostly once

    // ---- Sections
    void (*start)(const mux &of);
    void (*forget)(); // as if just started
    bool (*take)(std::span<const received> batch);
    void (*settle)(); // waits until its own threads have nothing to do
    counts (*counted)(const mux &of);

    // ---- Questions, after everything was taken once. Where nothing is stored they are put to the
    // sections or tables that a client would have kept and found, and start times are left as the
    // library has them.
    bool (*event_name)(const mux &of, std::uint16_t service, unsigned event, SiDvbString &name);
    std::size_t (*events)(const mux &of, std::uint16_t service, std::span<SiBasicEvent> events);
    std::size_t (*service_ids)(const mux &of, std::span<std::uint16_t> ids);
    std::size_t (*service_names)(const mux &of, std::span<listed_service> services);

    // ---- A file of packets, from the first to the last one
    counts (*demultiplex)(const std::string &path, const mux &of);
};

extern const candidate orva_candidate;
extern const candidate libucsi_candidate;
extern const candidate libdvbpsi_candidate;
extern const candidate libdvbv5_candidate;
extern const candidate gstreamer_candidate;

} // namespace bench

#endif
