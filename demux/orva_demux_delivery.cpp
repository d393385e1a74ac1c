// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_delivery.h"

#include <algorithm>

#include "orva_demux_filter.h"
#include "orva_demux_pending.h"

namespace si::demux {
namespace {

constexpr std::uint32_t demux_index = 0;
constexpr std::uint16_t time_pid = 0x0014;
constexpr steady::time_point far_future = steady::time_point::max();
constexpr std::chrono::microseconds shortest_pause{50};
constexpr std::chrono::microseconds longest_pause{1000};

std::unique_ptr<delivery_buffer> take_buffer(delivery &of)
{
    if (of.spare.empty())
        return std::make_unique<delivery_buffer>();
    std::unique_ptr<delivery_buffer> buffer = std::move(of.spare.back());
    of.spare.pop_back();
    buffer->data.clear();
    buffer->sizes.clear();
    return buffer;
}

void add_section(delivery_buffer &to, bytes section)
{
    to.data.insert(to.data.end(), section.begin(), section.end());
    to.sizes.push_back(static_cast<std::uint32_t>(section.size()));
}

// Hands a buffer out until slot 1 gives it back. A handle is never 0.
SiWord lend(delivery &of, std::unique_ptr<delivery_buffer> buffer)
{
    do
        ++of.last_handle;
    while (of.last_handle == 0 || of.lent.contains(of.last_handle));
    of.lent.emplace(of.last_handle, std::move(buffer));
    of.lent_count.store(of.lent.size(), std::memory_order_relaxed);
    return of.last_handle;
}

template <class Callback>
void run_callback(held_lock &held, std::uint32_t id, Callback callback)
{
    delivery &state = the_delivery();
    state.running = id;
    held.unlock();
    callback();
    held.lock();
    state.running.reset();
    ++state.callbacks;
    state.idle.notify_all();
}

void deliver(held_lock &held, std::uint32_t id, std::unique_ptr<delivery_buffer> buffer)
{
    delivery &state = the_delivery();
    const SiDmxFilterParam setting = state.filters[id].setting;
    delivery_buffer &shown = *buffer;
    const SiWord handle = lend(state, std::move(buffer));
    state.delivered += shown.sizes.size();
    if (state.pending >= congestion)
        state.congested += shown.sizes.size();

    shown.list.clear();
    std::uint8_t *at = shown.data.data();
    for (const std::uint32_t size : shown.sizes) {
        shown.list.push_back({at, size, nullptr, 0, handle});
        at += size;
    }
    if (setting.list_mode == 0) {
        SiDmxSection section = shown.list.front();
        run_callback(held, id, [&] { setting.section_callback(demux_index, id, 0, &section); });
        return;
    }
    SiDmxSectionList list{static_cast<std::uint32_t>(shown.list.size()), shown.list.data(), handle};
    run_callback(held, id, [&] { setting.section_list_callback(demux_index, id, 0, &list); });
}

void remember(section_filter &filter, bytes section, std::uint64_t content)
{
    if (content == 0)
        return;
    if (filter.given_epoch != the_delivery().epoch || filter.given.size() >= most_given) {
        filter.given.clear();
        filter.given_epoch = the_delivery().epoch;
    }
    filter.given.insert(content);
    if (filter.setting.pid != time_pid)
        return;
    if (section[0] == table_id_tdt)
        filter.times[0] = content;
    if (section[0] == table_id_tot)
        filter.times[1] = content;
}

} // namespace

delivery &the_delivery()
{
    static delivery &state =
        *new delivery; // never destroyed: a late handler call may come at any time
    return state;
}

bool open_delivery()
{
    delivery &state = the_delivery();
    const held_lock held{state.lock};
    if (state.open)
        return false;
    state.open = true;
    state.stopping = false;
    state.live = false;
    state.delivered = 0;
    state.congested = 0;
    state.delivered_before = 0;
    state.pending = 0;
    return true;
}

void stop_delivery()
{
    delivery &state = the_delivery();
    const urgent_lock held{state};
    state.stopping = true;
    state.work.notify_all();
}

void close_delivery()
{
    delivery &state = the_delivery();
    const held_lock held{state.lock};
    for (section_filter &filter : state.filters)
        filter = {};
    for (std::atomic<std::uint16_t> &count : state.armed)
        count = 0;
    state.used_ids = 0;
    state.lent.clear();
    state.lent_count = 0;
    state.full.clear();
    state.in_full = 0;
    state.spare.clear();
    state.thread = {};
    state.open = false;
    state.idle.notify_all();
}

delivery_counts count_deliveries()
{
    delivery &state = the_delivery();
    const urgent_lock held{state};
    const bool idle =
        !state.running && std::ranges::all_of(state.filters, [](const section_filter &filter) {
            return !is_armed(filter) || (filter.run.completed && filter.batch == nullptr);
        });
    return {state.delivered, state.congested, idle};
}

bool is_armed(const section_filter &filter)
{
    return filter.enabled && delivers(filter.setting);
}

bool wait_for_setting()
{
    delivery &state = the_delivery();
    held_lock held{state.lock};
    state.thread = std::this_thread::get_id();
    steady::time_point at_the_latest = far_future;
    while (!stopped()) {
        steady::time_point first = far_future;
        steady::time_point last{};
        for (const section_filter &filter : state.filters)
            if (is_armed(filter)) {
                first = std::min(first, filter.effective);
                last = std::max(last, filter.effective);
            }
        if (first == far_future) {
            state.work.wait(held);
            continue;
        }
        at_the_latest = std::min(at_the_latest, first + longest_start);
        const steady::time_point begin = std::max(first, std::min(last + settled, at_the_latest));
        if (begin <= steady::now())
            return true;
        state.work.wait_until(held, begin);
    }
    return false;
}

bool wait_until(steady::time_point until)
{
    delivery &state = the_delivery();
    while (!stopped()) {
        flush_batches();
        const steady::time_point wake = std::min(until, next_batch_due());
        held_lock held{state.lock};
        if (steady::now() >= until)
            return true;
        if (!stopped())
            state.work.wait_until(held, wake);
    }
    return false;
}

void let_others_pass()
{
    constexpr unsigned most_yields = 1000; // callers without a pause do not stop delivery
    delivery &state = the_delivery();
    for (unsigned i = 0; i < most_yields && state.wanted.load(std::memory_order_relaxed) != 0; ++i)
        std::this_thread::yield();
}

bool wait_for_room()
{
    delivery &state = the_delivery();
    for (std::chrono::microseconds pause = shortest_pause; !stopped();
         pause = std::min(pause * 2, longest_pause)) {
        state.pending = pending_sections();
        if (state.pending == 0 && state.delivered != state.delivered_before) {
            ++state.epoch;
            state.delivered_before = state.delivered;
        }
        const bool has_room = state.live || state.pending < room;
        if (has_room && state.lent_count.load(std::memory_order_relaxed) < most_lent)
            return true;
        std::this_thread::sleep_for(pause);
    }
    return false;
}

bool still_queued(section_filter &filter, std::uint64_t content)
{
    return filter.given_epoch == the_delivery().epoch && filter.given.contains(content);
}

void drop_batches(std::uint32_t id)
{
    delivery &state = the_delivery();
    state.filters[id].batch.reset();
    std::erase_if(state.full, [&](const full_batch &each) {
        if (each.id == id)
            state.in_full -= each.sections->sizes.size();
        return each.id == id;
    });
}

bool give(std::uint32_t id, bytes section, std::uint64_t content)
{
    delivery &state = the_delivery();
    section_filter &filter = state.filters[id];
    remember(filter, section, content);
    if (filter.batch == nullptr) {
        filter.batch = take_buffer(state);
        filter.batch_due = steady::now() + batch_patience;
        state.first_due = std::min(state.first_due, filter.batch_due);
    }
    add_section(*filter.batch, section);
    return filter.batch->sizes.size() >= batch_length(filter.setting);
}

void flush_batch(held_lock &held, std::uint32_t id)
{
    deliver(held, id, std::move(the_delivery().filters[id].batch));
}

std::optional<std::uint32_t> due_batch(delivery &of, steady::time_point now, bool all)
{
    if (!all && now < of.first_due)
        return std::nullopt;
    steady::time_point first = far_future;
    for (std::uint32_t id = 0; id < of.used_ids; ++id) {
        const section_filter &filter = of.filters[id];
        if (filter.batch == nullptr)
            continue;
        if (all || filter.batch_due <= now)
            return id;
        first = std::min(first, filter.batch_due);
    }
    of.first_due = first;
    return std::nullopt;
}

namespace {

void set_aside(delivery &of, std::uint32_t id)
{
    of.in_full += of.filters[id].batch->sizes.size();
    of.full.push_back({id, std::move(of.filters[id].batch)});
}

// Every batch waits for room; a filter that was changed meanwhile has none left.
void give_full_batches()
{
    delivery &state = the_delivery();
    held_lock held{state.lock};
    while (!state.full.empty()) {
        held.unlock();
        if (!wait_for_room())
            return;
        held.lock();
        if (state.full.empty())
            return;
        full_batch first = std::move(state.full.front());
        state.full.pop_front();
        state.in_full -= first.sections->sizes.size();
        deliver(held, first.id, std::move(first.sections));
    }
}

} // namespace

void offer(std::uint16_t pid, bytes section, std::uint64_t content)
{
    delivery &state = the_delivery();
    if (state.armed[pid].load(std::memory_order_relaxed) == 0 || !wait_for_room())
        return;
    held_lock held{state.lock};
    steady::time_point now = steady::now();
    if (due_batch(state, now, false)) {
        held.unlock();
        flush_batches();
        if (!wait_for_room())
            return;
        held.lock();
        now = steady::now();
    }
    for (std::uint32_t id = 0; id < state.used_ids; ++id) {
        section_filter &filter = state.filters[id];
        const bool takes = is_armed(filter) && filter.setting.pid == pid &&
                           filter.effective <= now && passes(filter.setting, section) &&
                           !still_queued(filter, content);
        if (!takes || !give(id, section, content))
            continue;
        if (filter.setting.list_mode == 0)
            flush_batch(held, id);
        else
            set_aside(state, id);
    }
    if (state.in_full < burst)
        return;
    held.unlock();
    give_full_batches();
}

void flush_batches(bool all)
{
    delivery &state = the_delivery();
    give_full_batches();
    const auto any_due = [&] {
        const held_lock held{state.lock};
        return due_batch(state, steady::now(), all).has_value();
    };
    while (any_due() && wait_for_room()) {
        held_lock held{state.lock};
        if (const auto id = due_batch(state, steady::now(), all))
            flush_batch(held, *id);
    }
}

steady::time_point next_batch_due()
{
    delivery &state = the_delivery();
    const held_lock held{state.lock};
    steady::time_point next = far_future;
    for (std::uint32_t id = 0; id < state.used_ids; ++id)
        if (state.filters[id].batch != nullptr)
            next = std::min(next, state.filters[id].batch_due);
    return next;
}

} // namespace si::demux
