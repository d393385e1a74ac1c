// SPDX-License-Identifier: LGPL-2.1-or-later
// The kinds of event requests, as their start and stop see them and as their updates do.
#ifndef SRC_ORVA_SI_SECTFLT_EIT_H
#define SRC_ORVA_SI_SECTFLT_EIT_H

#include <algorithm>
#include <iterator>

#include "orva_si/readiness.h"
#include "orva_si_bytes.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

// What the requests of a row have in common.
struct eit_kind {
    task_row task;
    std::uint32_t (*enabled)();
    std::uint8_t table_id;
    std::uint8_t mask;
    std::uint8_t last_table_id;
    std::uint16_t any_list;      // sections of a batch when a request is for any service, else 1
    std::uint16_t limit;         // background runs that a request keeps its filter, less one
    std::uint16_t longest_limit; // up to which that is doubled with each time-out
    std::uint32_t bg_service;    // what ages the row
};
inline constexpr eit_kind act_pf{.task = act_pf_eit_task,
                                 .enabled = Si_CtlHelper_IsActPfEitEnabled,
                                 .table_id = tid_eit_pf_actual,
                                 .mask = 0xFF,
                                 .last_table_id = tid_eit_pf_actual,
                                 .any_list = 1,
                                 .limit = 10,
                                 .longest_limit = 10,
                                 .bg_service = bg_service::act_pf_eit};
// Of other multiplexes nothing tells that a table is complete, so that every request times out. The
// first round is quick. Were all of them shorter than the time after which sections come again,
// those that come between two turns might do so for ever: 10 seconds, terrestrial 20 (ETSI TS 101
// 211, 4.4).
inline constexpr eit_kind other_pf{.task = other_pf_eit_task,
                                   .enabled = Si_CtlHelper_IsOtherPfEitEnabled,
                                   .table_id = tid_eit_pf_other,
                                   .mask = 0xFF,
                                   .last_table_id = tid_eit_pf_other,
                                   .any_list = 5,
                                   .limit = 5,
                                   .longest_limit = 20,
                                   .bg_service = bg_service::act_pf_eit};
// Filters walk a service's sub-tables, as far as its sections say there are any.
inline constexpr eit_kind act_sch{.task = act_sch_eit_task,
                                  .enabled = Si_CtlHelper_IsActSchEitEnabled,
                                  .table_id = tid_eit_schedule_actual,
                                  .mask = 0xFF,
                                  .last_table_id = tid_eit_schedule_actual,
                                  .any_list = 1,
                                  .limit = 50,
                                  .longest_limit = 50,
                                  .bg_service = bg_service::act_sch_eit};
// Nothing tells how many sub-tables there are: all of them at once. Those of the first day come
// again after 60 seconds.
inline constexpr eit_kind other_sch{.task = other_sch_eit_task,
                                    .enabled = Si_CtlHelper_IsOtherSchEitEnabled,
                                    .table_id = tid_eit_schedule_other,
                                    .mask = 0xF0,
                                    .last_table_id = tid_eit_last,
                                    .any_list = 5,
                                    .limit = 50,
                                    .longest_limit = 60,
                                    .bg_service = bg_service::act_sch_eit};
inline constexpr const eit_kind *kinds[] = {&act_pf, &other_pf, &act_sch, &other_sch};

inline const eit_kind *kind_of(std::uint32_t table_id)
{
    const std::uint32_t task = task_of(table_id);
    const auto *found =
        std::ranges::find_if(kinds, [&](const eit_kind *kind) { return kind->task == task; });
    return found == std::end(kinds) ? nullptr : *found;
}

} // namespace si

#endif
