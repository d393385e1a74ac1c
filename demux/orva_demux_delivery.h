// SPDX-License-Identifier: LGPL-2.1-or-later
// Section filters and the delivery to their callbacks. One thread delivers; filters are armed from
// any. No lock is held while a callback runs, nor while room is waited for.
#ifndef DEMUX_ORVA_DEMUX_DELIVERY_H
#define DEMUX_ORVA_DEMUX_DELIVERY_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "orva_demux_carousel.h"
#include "orva_demux_given.h"
#include "orva_demux_input.h"
#include "orva_demux_reread.h"
#include "orva_si/filter.h"
#include "orva_ts_sections.h"

namespace si::demux {

inline constexpr std::uint32_t filter_ids = 257; // 0 to 256 without SI_NO_FILTER: 256 filters
inline constexpr std::uint32_t room = 64; // sections that may be pending before one more is taken
inline constexpr std::size_t burst = 48;  // sections in full batches that are given in one go
inline constexpr std::uint32_t congestion = 100; // from so many on the receiver drops
inline constexpr std::size_t most_lent =
    1024; // buffers that are with the receiver: no room with more
inline constexpr std::size_t most_given =
    65536; // contents that a filter remembers as given: an input without end has ever more
inline constexpr std::size_t most_spare = 16; // buffers kept to be lent again
inline constexpr std::chrono::milliseconds effect_delay{1};
inline constexpr std::chrono::milliseconds settled{20}; // without a new setting: reading begins
inline constexpr std::chrono::milliseconds longest_start{
    200}; // after the first setting: it begins anyway
inline constexpr std::chrono::milliseconds batch_patience{100};
inline constexpr std::chrono::milliseconds reload_distance{
    20}; // of two carousel runs, when a filter is loaded again
inline constexpr std::chrono::seconds carousel_period{1};

// What a callback is shown: one section, or the sections of a batch one behind the other.
struct delivery_buffer {
    std::vector<std::uint8_t> data;
    std::vector<std::uint32_t> sizes;
    std::vector<SiDmxSection> list;
};

// A batch that waits for others to be full, so that the receiver is woken once for all of them.
struct full_batch {
    std::uint32_t id; // of the filter
    std::unique_ptr<delivery_buffer> sections;
};

// The way of a filter through the carousel: every sub-table of its PID, of each every section.
struct carousel_run {
    bool active = false;
    bool completed = false;       // once at least since the filter was loaded
    steady::time_point start;     // of the next run
    steady::time_point started{}; // of the last one, under whatever setting
    std::size_t table = 0;        // position among the sub-tables of the PID
    std::size_t first = 0;        // section at which this sub-table was begun
    std::size_t visited = 0;      // sections of it so far
};

struct section_filter {
    bool used = false;
    bool enabled = false;
    SiDmxFilterParam setting{};
    steady::time_point effective;
    std::unique_ptr<delivery_buffer> batch; // sections that wait for more
    steady::time_point batch_due;
    given_contents given; // under this setting, that may still be queued
    std::uint64_t given_epoch = 0;
    std::array<std::uint64_t, 2>
        times{}; // contents of the last TDT and TOT given under this setting
    carousel_run run;
};

// Everything is guarded by lock unless it says otherwise.
struct delivery {
    delivery() { spare.reserve(most_spare); } // the slots allocate nothing

    std::mutex lock;
    std::atomic<unsigned> wanted = 0; // other threads that wait for the lock; any thread
    std::condition_variable
        work; // for the delivering thread: filters have changed, or it is to stop
    std::condition_variable idle; // for those who wait for a callback to end
    bool open = false;
    std::atomic<bool> stopping = false;
    bool live = false;      // the input does not wait: sections go to the receiver, room or not
    std::thread::id thread; // the delivering one
    std::array<section_filter, filter_ids> filters;
    std::uint32_t used_ids = 0;                                // all ids in use are below
    std::deque<full_batch> full;                               // in the order they became it
    std::size_t in_full = 0;                                   // sections of these
    std::optional<std::uint32_t> running;                      // the filter whose callback runs
    std::uint64_t callbacks = 0;                               // that have ended
    std::array<std::atomic<std::uint16_t>, pid_total> armed{}; // enabled filters of each PID
    std::unordered_map<SiWord, std::unique_ptr<delivery_buffer>> lent;
    std::atomic<std::size_t> lent_count = 0;
    std::vector<std::unique_ptr<delivery_buffer>> spare;
    SiWord last_handle = 0;
    std::uint64_t delivered = 0;
    std::uint64_t congested = 0;
    std::uint32_t pending = 0; // as last asked; delivering thread only
    std::uint64_t epoch = 0;   // grows when all that was given is done; delivering thread only
    std::uint64_t delivered_before = 0; // as of the last epoch; delivering thread only
    steady::time_point first_due{};     // no batch is due before; delivering thread only
};

// The one delivery of the process: the handlers carry no context.
delivery &the_delivery();

// ---- Any thread.

using held_lock = std::unique_lock<std::mutex>;

// The lock as other threads than the delivering one take it, the library's locks in hand: a mutex
// is not fair, and who lets it go only to take it again at once would keep them out.
class urgent_lock : public held_lock {
public:
    explicit urgent_lock(delivery &of) : held_lock{of.lock, std::defer_lock}
    {
        ++of.wanted;
        lock();
        --of.wanted;
    }
};

// False when it is open already.
bool open_delivery();
// Ends every wait of the delivering thread.
void stop_delivery();
// Frees all filters and buffers, when the delivering thread has ended.
void close_delivery();

struct delivery_counts {
    std::uint64_t delivered;
    std::uint64_t congested;
    bool idle; // every enabled filter was given once all that the carousel has for it
};
delivery_counts count_deliveries();

extern SiDmxSectHandler handler_table;

// ---- Delivering thread.

inline bool stopped()
{
    return the_delivery().stopping.load(std::memory_order_relaxed);
}
// Waits until a setting has taken effect, and those that a client loads with it. False: stopped.
bool wait_for_setting();
// Waits until a point in time while batches go out. False: stopped.
bool wait_until(steady::time_point until);
// Waits until the receiver has room. False: stopped.
bool wait_for_room();

// Gives a section to every filter that it passes. content: see keep.
void offer(std::uint16_t pid, bytes section, std::uint64_t content);
// Batches that are full or due go out; all: every batch. To be called before input is waited for.
void flush_batches(bool all = false);
// When the next batch is due; the far future when none is begun.
steady::time_point next_batch_due();
// Lets those who wait for the lock take it first.
void let_others_pass();
// Serves the filters from a closed carousel until stopped. again: for sections that it does not
// have in memory.
void serve(carousel &from, packet_reader &again);

// ---- Steps of the delivery; the lock is held. flush_batch releases it while the callback runs:
// what is known of any filter may be out of date behind it.

// All that waits for delivery to a filter.
void drop_batches(std::uint32_t id);
bool still_queued(section_filter &filter, std::uint64_t content);
// Adds a section to the batch of a filter; answers whether that is full.
bool give(std::uint32_t id, bytes section, std::uint64_t content);
void flush_batch(held_lock &held, std::uint32_t id);
// A filter whose batch is due; all: any batch.
std::optional<std::uint32_t> due_batch(delivery &of, steady::time_point now, bool all);

bool is_armed(const section_filter &filter);

} // namespace si::demux

#endif
