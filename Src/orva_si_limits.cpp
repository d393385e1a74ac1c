// SPDX-License-Identifier: LGPL-2.1-or-later
// How often the limits refused something.
#include <array>
#include <atomic>

#include "orva_si/limits.h"
#include "orva_si/store.h"
#include "orva_si_alloc.h"
#include "orva_si_lock.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_sectflt_queue.h"

namespace si {

namespace {

std::array<std::atomic<std::uint32_t>, limits.size()> refusals;

SiLimitCount count_of(limited by, std::size_t used)
{
    const auto at = static_cast<std::size_t>(by);
    return {refusals[at].load(std::memory_order_relaxed), static_cast<std::uint32_t>(used),
            static_cast<std::uint32_t>(limits[at])};
}

std::size_t elements_in(const si_list *list)
{
    return list != nullptr ? static_cast<std::size_t>(list->nb_elt) : 0;
}

} // namespace

void count_refusal(limited by, std::size_t times)
{
    refusals[static_cast<std::size_t>(by)].fetch_add(static_cast<std::uint32_t>(times),
                                                     std::memory_order_relaxed);
}

} // namespace si

using namespace si;

uint32_t Orva_Si_GetLimitCounts(SiLimitCounts *pcounts)
{
    SI_REQUIRE(pcounts);
    {
        const scope_lock lock{ctl, SI_HERE};
        pcounts->tables = count_of(limited::tables, elements_in(Orva_Si_GetTableList()));
        pcounts->table_bytes = count_of(limited::table_bytes, table_bytes_held());
    }
    {
        const scope_lock lock{eit, SI_HERE};
        pcounts->event_services =
            count_of(limited::eit_services, elements_in(Orva_Si_GetDvbEitList()));
        pcounts->event_bytes = count_of(limited::eit_bytes, eit_bytes_held());
    }
    pcounts->queued_sections = count_of(limited::queued_sections, queued_sections());
    pcounts->queued_bytes = count_of(limited::queued_bytes, queued_bytes());
    pcounts->busy_queue = count_of(limited::busy_queue, queued_sections());
    return ORVA_SI_OK;
}
