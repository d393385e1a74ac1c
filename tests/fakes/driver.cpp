// SPDX-License-Identifier: LGPL-2.1-or-later
#include "fakes/driver.h"

#include <algorithm>

namespace fake {

recording_driver &driver()
{
    static recording_driver the_driver;
    return the_driver;
}

namespace {

constexpr SiWord first_handle = 0x10000; // so that a handle is no small number by chance

} // namespace

recording_driver::recording_driver()
{
    handlers.DemuxInit = [](std::uint32_t demux) { return driver().record(demux_init, demux, 0); };
    handlers.FreeSecData = [](std::uint32_t demux, std::uint32_t filter_id, SiWord handle) {
        return driver().take_back(demux, filter_id, handle);
    };
    handlers.RemoveSecFilter = [](std::uint32_t demux, std::uint32_t filter_id) {
        return driver().switch_off(remove_filter, demux, filter_id);
    };
    handlers.EnableSecFilter = [](std::uint32_t demux, std::uint32_t filter_id) {
        return driver().record(enable_filter, demux, filter_id);
    };
    handlers.DisableSecFilter = [](std::uint32_t demux, std::uint32_t filter_id) {
        return driver().switch_off(disable_filter, demux, filter_id);
    };
    handlers.AddSecFilter = [](std::uint32_t demux, std::uint32_t *filter_id,
                               SiDmxFilterParam param) {
        return driver().add(demux, filter_id, param);
    };
    handlers.UpdateSecFilter = [](std::uint32_t demux, std::uint32_t filter_id,
                                  SiDmxFilterParam param) {
        return driver().update(demux, filter_id, param);
    };
}

// ---- Slots

std::uint32_t recording_driver::record(slot which, std::uint32_t demux, std::uint32_t filter_id)
{
    const std::lock_guard held{lock};
    recorded.push_back({which, demux, filter_id});
    return answers[which];
}

std::uint32_t recording_driver::add(std::uint32_t demux, std::uint32_t *filter_id,
                                    const SiDmxFilterParam &param)
{
    const std::lock_guard held{lock};
    std::uint32_t answer = answers[add_filter];
    if (answer == 0 && granted.size() >= grants)
        answer = refuse_with;
    std::uint32_t id = 0;
    if (answer == 0) {
        id = granted.empty() ? first_id : granted.back() + 1;
        id += id == SI_NO_FILTER ? 1 : 0;
        granted.push_back(id);
        filters[id].requested = param;
        *filter_id = id;
    }
    recorded.push_back({add_filter, demux, id});
    return answer;
}

std::uint32_t recording_driver::update(std::uint32_t demux, std::uint32_t filter_id,
                                       const SiDmxFilterParam &param)
{
    const std::lock_guard held{lock};
    recorded.push_back({update_filter, demux, filter_id});
    if (refused_loads.contains(filter_id))
        return refuse_with;
    if (answers[update_filter] != 0)
        return answers[update_filter];
    driver_filter &filter = filters[filter_id];
    filter.loaded = param;
    filter.running = true;
    ++filter.loads;
    return 0;
}

std::uint32_t recording_driver::switch_off(slot which, std::uint32_t demux, std::uint32_t filter_id)
{
    const std::lock_guard held{lock};
    recorded.push_back({which, demux, filter_id});
    if (answers[which] == 0)
        filters[filter_id].running = false;
    return answers[which];
}

std::uint32_t recording_driver::take_back(std::uint32_t demux, std::uint32_t filter_id,
                                          SiWord handle)
{
    const std::lock_guard held{lock};
    recorded.push_back({free_data, demux, filter_id});
    last_demux = demux;
    if (buffers.erase(handle) == 0)
        ++wrong_count;
    else
        ++returned_count;
    return answers[free_data];
}

// ---- Records

std::vector<driver_call> recording_driver::calls() const
{
    const std::lock_guard held{lock};
    return recorded;
}

std::size_t recording_driver::times_called(slot which) const
{
    const auto all = calls();
    return static_cast<std::size_t>(std::ranges::count(all, which, &driver_call::which));
}

void recording_driver::forget_calls()
{
    const std::lock_guard held{lock};
    recorded.clear();
}

driver_filter recording_driver::filter(std::uint32_t filter_id) const
{
    const std::lock_guard held{lock};
    return filters.at(filter_id);
}

std::size_t recording_driver::running() const
{
    const std::lock_guard held{lock};
    return static_cast<std::size_t>(
        std::ranges::count_if(filters, [](const auto &entry) { return entry.second.running; }));
}

std::size_t recording_driver::lent() const
{
    const std::lock_guard held{lock};
    return lent_count;
}

std::size_t recording_driver::returned() const
{
    const std::lock_guard held{lock};
    return returned_count;
}

std::size_t recording_driver::wrongly_returned() const
{
    const std::lock_guard held{lock};
    return wrong_count;
}

std::uint32_t recording_driver::returned_demux() const
{
    const std::lock_guard held{lock};
    return last_demux;
}

// ---- Sections

SiWord recording_driver::lend(const octets &bytes)
{
    const std::lock_guard held{lock};
    const SiWord handle = first_handle + lent_count++;
    buffers[handle] = bytes;
    return handle;
}

std::uint8_t *recording_driver::bytes_of(SiWord handle)
{
    const std::lock_guard held{lock};
    return buffers.at(handle).data();
}

bool recording_driver::deliver(std::uint32_t filter_id, const octets &section)
{
    return deliver_split(filter_id, section, section.size());
}

bool recording_driver::deliver_split(std::uint32_t filter_id, const octets &section,
                                     std::size_t first)
{
    const auto callback = filter(filter_id).loaded.section_callback;
    if (callback == nullptr)
        return false;
    const SiWord handle = lend(section);
    std::uint8_t *bytes = bytes_of(handle);
    const std::size_t rest = section.size() - first;
    SiDmxSection descriptor{bytes, static_cast<std::uint32_t>(first),
                            rest == 0 ? nullptr : bytes + first, static_cast<std::uint32_t>(rest),
                            handle};
    callback(driver_demux, filter_id, 0, &descriptor);
    return true;
}

bool recording_driver::deliver_batch(std::uint32_t filter_id, const std::vector<octets> &sections)
{
    const auto callback = filter(filter_id).loaded.section_list_callback;
    if (callback == nullptr)
        return false;
    octets all;
    for (const octets &section : sections)
        all.insert(all.end(), section.begin(), section.end());
    const SiWord handle = lend(all);
    std::uint8_t *bytes = bytes_of(handle);
    std::vector<SiDmxSection> descriptors;
    for (const octets &section : sections) {
        // The handles of single sections mean nothing in a batch.
        descriptors.push_back({bytes, static_cast<std::uint32_t>(section.size()), nullptr, 0, 0});
        bytes += section.size();
    }
    SiDmxSectionList list{static_cast<std::uint32_t>(descriptors.size()), descriptors.data(),
                          handle};
    callback(driver_demux, filter_id, 0, &list);
    return true;
}

std::size_t recording_driver::broadcast(std::uint16_t pid, const octets &section)
{
    std::vector<std::pair<std::uint32_t, SiDmxFilterParam>> takers;
    {
        const std::lock_guard held{lock};
        for (const auto &[id, filter] : filters)
            if (filter.running && filter.loaded.pid == pid && passes(filter.loaded, section))
                takers.emplace_back(id, filter.loaded);
    }
    for (const auto &[id, param] : takers) {
        if (param.list_mode != 0)
            deliver_batch(id, {section});
        else
            deliver(id, section);
    }
    return takers.size();
}

bool passes(const SiDmxFilterParam &param, std::span<const std::uint8_t> section)
{
    if (section.size() < param.filter_depth)
        return false;
    bool negated = false;
    bool differs = false;
    for (std::size_t i = 0; i < param.filter_depth; ++i) {
        const int difference = section[i] ^ param.match[i];
        if ((difference & param.mask[i]) != 0)
            return false;
        negated = negated || param.negate[i] != 0;
        differs = differs || (difference & param.negate[i]) != 0;
    }
    return !negated || differs;
}

} // namespace fake
