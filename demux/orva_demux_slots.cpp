// SPDX-License-Identifier: LGPL-2.1-or-later
// The seven handlers that the SI library calls. Slots 4 and 6 come with its locks held.
#include <algorithm>

#include "orva_demux_delivery.h"
#include "orva_demux_filter.h"

namespace si::demux {
namespace {

constexpr std::uint32_t refused = 1;

// The filter of an id while the demultiplexer is open; null: no such one.
section_filter *find_filter(std::uint32_t demux, std::uint32_t id)
{
    delivery &state = the_delivery();
    if (!state.open || demux != 0 || id >= filter_ids || !state.filters[id].used)
        return nullptr;
    return &state.filters[id];
}

// PIDs have 13 bits; a setting with another number matches nothing.
std::atomic<std::uint16_t> *armed_count(const section_filter &filter)
{
    return filter.setting.pid < pid_total ? &the_delivery().armed[filter.setting.pid] : nullptr;
}

// Switches a filter off and drops what waits for delivery, then waits for a callback of it that
// runs, unless this is the callback itself.
void silence(held_lock &held, std::uint32_t id)
{
    delivery &state = the_delivery();
    section_filter &filter = state.filters[id];
    if (filter.enabled && armed_count(filter) != nullptr)
        --*armed_count(filter);
    filter.enabled = false;
    drop_batches(id);
    filter.given.clear();
    filter.times = {};
    state.work.notify_all();
    if (state.thread == std::this_thread::get_id())
        return;
    const std::uint64_t ended = state.callbacks;
    ++state.wanted;
    state.idle.wait(held, [&] { return state.running != id || state.callbacks != ended; });
    --state.wanted;
}

void start(section_filter &filter)
{
    delivery &state = the_delivery();
    if (!filter.enabled && armed_count(filter) != nullptr)
        ++*armed_count(filter);
    filter.enabled = true;
    filter.effective = steady::now() + effect_delay;
    filter.run = {.start = std::max(filter.effective, filter.run.started + reload_distance),
                  .started = filter.run.started};
    state.work.notify_all();
}

std::uint32_t init_demux(std::uint32_t demux)
{
    delivery &state = the_delivery();
    const urgent_lock held{state};
    return state.open && demux == 0 ? 0 : refused;
}

// The filter may be gone already: only the handle counts.
std::uint32_t free_section(std::uint32_t demux, std::uint32_t, SiWord handle)
{
    delivery &state = the_delivery();
    const urgent_lock held{state};
    const auto found = state.lent.find(handle);
    if (!state.open || demux != 0 || found == state.lent.end())
        return refused;
    if (state.spare.size() < most_spare)
        state.spare.push_back(std::move(found->second));
    state.lent.erase(found);
    state.lent_count.store(state.lent.size(), std::memory_order_relaxed);
    return 0;
}

std::uint32_t remove_filter(std::uint32_t demux, std::uint32_t id)
{
    delivery &state = the_delivery();
    urgent_lock held{state};
    if (find_filter(demux, id) == nullptr)
        return refused;
    state.filters[id].used = false;
    silence(held, id);
    return 0;
}

std::uint32_t enable_filter(std::uint32_t demux, std::uint32_t id)
{
    const urgent_lock held{the_delivery()};
    section_filter *filter = find_filter(demux, id);
    if (filter == nullptr)
        return refused;
    if (!filter->enabled)
        start(*filter);
    return 0;
}

std::uint32_t disable_filter(std::uint32_t demux, std::uint32_t id)
{
    urgent_lock held{the_delivery()};
    if (find_filter(demux, id) == nullptr)
        return refused;
    silence(held, id);
    return 0;
}

std::uint32_t add_filter(std::uint32_t demux, std::uint32_t *id, SiDmxFilterParam setting)
{
    delivery &state = the_delivery();
    const urgent_lock held{state};
    if (!state.open || demux != 0 || id == nullptr)
        return refused;
    for (std::uint32_t free = 0; free < filter_ids; ++free) {
        if (free == SI_NO_FILTER || state.filters[free].used)
            continue;
        state.filters[free] = {};
        state.filters[free].used = true;
        state.filters[free].setting = setting;
        state.used_ids = std::max(state.used_ids, free + 1);
        *id = free;
        return 0;
    }
    return refused;
}

// The former setting has ended before the new one begins: its effect is counted from here. While it
// is waited for, others may load the filter too, or remove it.
std::uint32_t update_filter(std::uint32_t demux, std::uint32_t id, SiDmxFilterParam setting)
{
    urgent_lock held{the_delivery()};
    while (section_filter *filter = find_filter(demux, id)) {
        silence(held, id);
        if (!filter->used || filter->enabled)
            continue;
        filter->setting = setting;
        start(*filter);
        return 0;
    }
    return refused;
}

} // namespace

SiDmxSectHandler handler_table = {init_demux,     free_section, remove_filter, enable_filter,
                                  disable_filter, add_filter,   update_filter};

} // namespace si::demux
