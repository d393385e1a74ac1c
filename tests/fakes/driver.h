// SPDX-License-Identifier: LGPL-2.1-or-later
// A demultiplexer driver that records: it keeps what the library loads into each filter, lends
// section buffers that it counts until they come back, and misbehaves on demand.
//
//   Si_SectFlt_InitPidFlts(fake::driver().table());
//   Si_SectFlt_StartPat();
//   fake::driver().deliver(fake::driver().filter_id(0), make(pat{...}));   // or broadcast(0x0000,
//   ...)
#ifndef TESTS_FAKES_DRIVER_H
#define TESTS_FAKES_DRIVER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <span>
#include <vector>

#include "orva_si/filter.h"

namespace fake {

// The slots of the handler table, in its order.
enum slot : unsigned {
    demux_init,
    free_data,
    remove_filter,
    enable_filter,
    disable_filter,
    add_filter,
    update_filter
};
inline constexpr std::size_t slots = 7;

struct driver_call {
    slot which;
    std::uint32_t demux;
    std::uint32_t filter_id; // 0 for demux_init and for a refused add_filter
};

struct driver_filter {
    SiDmxFilterParam requested{}; // as it came with slot 5
    SiDmxFilterParam loaded{};    // as it came last with slot 6
    unsigned loads = 0;
    bool running = false; // loaded, and neither disabled nor removed since
};

class recording_driver {
public:
    // What the library gets: all slots filled; a test may take some out.
    SiDmxSectHandler *table() { return &handlers; }

    // ---- Knobs
    std::uint32_t first_id = 64;                // filter ids are granted from here on, 32 left out
    std::uint32_t grants = 1000;                // requests that are granted before refuse_with
    std::uint32_t refuse_with = 0x77;           // answer of slot 5 after that
    std::array<std::uint32_t, slots> answers{}; // what each slot returns; not 0: it does nothing
    std::set<std::uint32_t> refused_loads;      // filter ids on which slot 6 answers refuse_with

    // ---- What happened
    std::vector<driver_call> calls() const;
    std::size_t times_called(slot which) const;
    // Index 0 is the filter that was requested first.
    std::uint32_t filter_id(std::size_t index) const { return granted.at(index); }
    std::size_t filter_count() const { return granted.size(); }
    driver_filter filter(std::uint32_t filter_id) const;
    std::size_t running() const; // filters that are
    void forget_calls();

    // ---- Buffers
    std::size_t lent() const;             // sections and batches given to the library so far
    std::size_t returned() const;         // of these, the ones that came back
    std::size_t wrongly_returned() const; // given back twice, or never lent
    std::uint32_t returned_demux() const; // first argument of the last return

    // ---- Sections. Each of these lends one buffer and calls the callback of the filter's last
    // block on the calling thread; a filter without that callback gets nothing: false.
    using octets = std::vector<std::uint8_t>;
    bool deliver(std::uint32_t filter_id, const octets &section);
    // The section in two parts: the first of that many bytes.
    bool deliver_split(std::uint32_t filter_id, const octets &section, std::size_t first);
    bool deliver_batch(std::uint32_t filter_id, const std::vector<octets> &sections);
    // Gives the section to every running filter on this PID that lets it pass; how many did.
    std::size_t broadcast(std::uint16_t pid, const octets &section);

    // Lends a buffer of these bytes for a test that fills a descriptor itself: its handle. The
    // bytes are freed when it comes back.
    SiWord lend(const octets &bytes);
    std::uint8_t *bytes_of(SiWord handle);

    // For the slots; not for tests.
    std::uint32_t record(slot which, std::uint32_t demux, std::uint32_t filter_id);
    std::uint32_t add(std::uint32_t demux, std::uint32_t *filter_id, const SiDmxFilterParam &param);
    std::uint32_t update(std::uint32_t demux, std::uint32_t filter_id,
                         const SiDmxFilterParam &param);
    std::uint32_t switch_off(slot which, std::uint32_t demux, std::uint32_t filter_id);
    std::uint32_t take_back(std::uint32_t demux, std::uint32_t filter_id, SiWord handle);

    recording_driver();

private:
    mutable std::mutex lock; // never held while the library is called
    SiDmxSectHandler handlers;
    std::vector<driver_call> recorded;
    std::vector<std::uint32_t> granted;
    std::map<std::uint32_t, driver_filter> filters;
    std::map<SiWord, octets> buffers; // lent and not back
    std::size_t lent_count = 0;
    std::size_t returned_count = 0;
    std::size_t wrong_count = 0;
    std::uint32_t last_demux = 0;
};

recording_driver &driver();

// The demux index that the driver names itself with in callbacks.
inline constexpr std::uint32_t driver_demux = 3;

// Whether a filter with this block lets a section pass.
bool passes(const SiDmxFilterParam &param, std::span<const std::uint8_t> section);

} // namespace fake

#endif
