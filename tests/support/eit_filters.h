// SPDX-License-Identifier: LGPL-2.1-or-later
// The filter layer of support/filters.h with a tuned service, and requests for events.
#ifndef TESTS_SUPPORT_EIT_FILTERS_H
#define TESTS_SUPPORT_EIT_FILTERS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/filters.h"

namespace test {

using si::task_row;

inline constexpr std::uint32_t disabled = 0x20065;
inline constexpr std::uint16_t ts = 0x11;
inline constexpr std::uint16_t onid = 0x22;
inline constexpr task_row act_pf = si::act_pf_eit_task;
inline constexpr task_row other_pf = si::other_pf_eit_task;
inline constexpr task_row act_sch = si::act_sch_eit_task;
inline constexpr task_row other_sch = si::other_sch_eit_task;

class EitFilters : public Filters {
protected:
    using ids = std::vector<std::uint16_t>;
    EitFilters() { tune(1); }

    static ids services(std::uint16_t count)
    {
        ids all(count);
        for (std::uint16_t i = 0; i < count; ++i)
            all[i] = static_cast<std::uint16_t>(i + 1);
        return all;
    }
    static std::uint32_t start_pf(const ids &of)
    {
        return Si_SectFlt_StartActPfEit(ts, onid, of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static std::uint32_t start_sch(const ids &of)
    {
        return Si_SectFlt_StartActSchEit(ts, onid, 1, of.data(),
                                         static_cast<std::uint32_t>(of.size()));
    }
    static std::vector<SiEitRequest> requests(std::uint16_t count)
    {
        std::vector<SiEitRequest> all;
        for (std::uint16_t i = 1; i <= count; ++i)
            all.push_back({static_cast<std::uint16_t>(100 + i), onid, i});
        return all;
    }
    static std::uint32_t start_other_pf(const std::vector<SiEitRequest> &of)
    {
        return Si_SectFlt_StartOtherPfEit(of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static std::uint32_t start_other_sch(const std::vector<SiEitRequest> &of)
    {
        return Si_SectFlt_StartOtherSchEit(of.data(), static_cast<std::uint32_t>(of.size()));
    }
    static task_item_eit &request(task_row row, std::size_t index)
    {
        return item<task_item_eit>(row, index);
    }
    static ids queued(task_row row)
    {
        ids all;
        for (const task_item_eit *of : items<task_item_eit>(row))
            all.push_back(of->service_id);
        return all;
    }
    // Services that the records of a row serve; 0: none.
    static std::vector<int> served(task_row row)
    {
        std::vector<int> all;
        for (const pid_filter *of : records_of(row))
            all.push_back(of->item == nullptr ? 0
                                              : si::item_as<task_item_eit>(of->item)->service_id);
        return all;
    }
};

} // namespace test

#endif
