// SPDX-License-Identifier: LGPL-2.1-or-later
#include "plain_driver.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "fakes/driver.h"

namespace release {

driver_counters driver_counted;

namespace {

constexpr std::uint32_t first_id = 64;
constexpr std::uint32_t demux = 3;
constexpr std::uint32_t off = 0xFFFFFFFF; // no PID

struct filter_state {
    std::atomic<std::uint32_t> pid{off}; // of a filter that runs, to pass over the others quickly
    std::mutex lock;                     // of the setting alone
    SiDmxFilterParam setting{};
};
std::array<filter_state, filters> states;
std::atomic<std::uint32_t> granted{0};

filter_state *state_of(std::uint32_t filter_id)
{
    const std::uint32_t filter = filter_id - first_id;
    return filter < filters ? &states[filter] : nullptr;
}

std::uint32_t add(std::uint32_t, std::uint32_t *filter_id, SiDmxFilterParam)
{
    const std::uint32_t filter = granted++;
    *filter_id = first_id + filter;
    return filter < filters ? 0 : 1;
}

std::uint32_t update(std::uint32_t, std::uint32_t filter_id, SiDmxFilterParam setting)
{
    filter_state *const of = state_of(filter_id);
    if (of == nullptr)
        return 1;
    const std::lock_guard held{of->lock};
    of->setting = setting;
    of->pid.store(setting.pid, std::memory_order_relaxed);
    return 0;
}

std::uint32_t switch_off(std::uint32_t, std::uint32_t filter_id)
{
    filter_state *const of = state_of(filter_id);
    if (of == nullptr)
        return 1;
    of->pid.store(off, std::memory_order_relaxed);
    return 0;
}

// What a handle is the address of.
struct loan {
    unsigned returns = 0;
};

std::uint32_t take_back(std::uint32_t, std::uint32_t, SiWord handle)
{
    ++reinterpret_cast<loan *>(handle)->returns;
    return 0;
}

std::uint32_t nothing(std::uint32_t)
{
    return 0;
}

std::uint32_t leave(std::uint32_t, std::uint32_t)
{
    return 0;
}

// Lends a buffer to one callback.
template <class Call>
void lend(Call call)
{
    loan lent;
    call(reinterpret_cast<SiWord>(&lent));
    ++driver_counted.callbacks;
    driver_counted.lost_buffers.add(lent.returns == 0 ? 1 : 0);
    driver_counted.wrong_buffers.add(lent.returns > 1 ? 1 : 0);
}

// The driver's ring buffer: what is read of it after the callback meets the next section.
thread_local std::array<std::uint8_t, 8192> ring;

SiDmxSection in_ring(bytes section)
{
    const std::size_t size = std::min(section.size(), ring.size());
    std::copy_n(section.begin(), size, ring.begin());
    return {ring.data(), static_cast<std::uint32_t>(size), nullptr, 0, 0};
}

} // namespace

SiDmxSectHandler *driver_table()
{
    static SiDmxSectHandler table{nothing, take_back, switch_off, leave, switch_off, add, update};
    return &table;
}

std::optional<SiDmxFilterParam> taker(std::uint32_t filter, std::uint16_t pid, bytes section)
{
    filter_state &of = states[filter];
    if (of.pid.load(std::memory_order_relaxed) != pid)
        return {};
    const std::lock_guard held{of.lock};
    if (of.setting.pid != pid || !fake::passes(of.setting, section))
        return {};
    return of.setting;
}

void force(std::uint32_t filter, SiDmxSection section)
{
    lend([&](SiWord handle) {
        section.BufferHandle = handle;
        Si_SectFlt_PidFltCallback(demux, first_id + filter, 0, &section);
    });
}

void force(std::uint32_t filter, SiDmxSectionList list)
{
    lend([&](SiWord handle) {
        list.BufferHandle = handle;
        Si_SectFlt_PidFltSecListCallback(demux, first_id + filter, 0, &list);
    });
}

void force(std::uint32_t filter, bytes section)
{
    force(filter, in_ring(section));
}

void force_batch(std::uint32_t filter, bytes section, std::uint32_t count)
{
    std::array<SiDmxSection, 200> sections;
    count = std::min(count, static_cast<std::uint32_t>(sections.size()));
    std::fill_n(sections.begin(), count, in_ring(section));
    force(filter, SiDmxSectionList{count, sections.data(), 0});
}

std::size_t broadcast(std::uint16_t pid, bytes section)
{
    std::size_t takers = 0;
    for (std::uint32_t filter = 0; filter < filters; ++filter)
        if (const auto setting = taker(filter, pid, section)) {
            setting->list_mode != 0 ? force_batch(filter, section, 1) : force(filter, section);
            ++takers;
        }
    return takers;
}

std::size_t running_filters()
{
    return static_cast<std::size_t>(
        std::ranges::count_if(states, [](const filter_state &of) { return of.pid.load() != off; }));
}

} // namespace release
