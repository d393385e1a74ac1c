// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about the regions that networks and their transport streams are meant for (EN 300 468,
// 6.4). Lists end in failure whether they hold anything or not: the count tells.
#include "orva_si/query_network.h"
#include "orva_si_descr.h"
#include "orva_si_log.h"
#include "orva_si_nit.h"

namespace si {

namespace {

constexpr list_codes judged_by_count{.some = ORVA_SI_FAILURE, .none = ORVA_SI_FAILURE};

// Shows each descriptor of a loop to a function, which answers false when there is no more room.
template <class Loop, class Visit>
step show_all(const Loop &loop, Visit visit)
{
    for (const descriptor &d : loop)
        if (!visit(d))
            return step::full;
    return step::next;
}

template <class End, class Visit>
std::uint32_t show_first_loop(site here, std::uint32_t nid, const End &end, Visit visit)
{
    return query<nit_codec>(here, nit_of(nid), end, [&](dvb_nit_section &nit) {
        return show_all(descriptors(nit), visit);
    });
}

// Each walk serves a list and its count, which differ in how they end and in what they do with a
// region or name.
template <class End, class Visit>
std::uint32_t global_regions(site here, std::uint32_t nid, const End &end, Visit visit)
{
    return show_first_loop(here, nid, end,
                           [&](const descriptor &d) { return every_region(d, visit); });
}

template <class End, class Visit>
std::uint32_t region_names(site here, std::uint32_t nid, const End &end, Visit visit)
{
    return show_first_loop(here, nid, end,
                           [&](const descriptor &d) { return every_region_name(d, visit); });
}

template <class End, class Visit>
std::uint32_t stream_regions(site here, std::uint32_t nid, std::uint32_t ts, std::uint32_t onid,
                             const End &end, Visit visit)
{
    const auto regions = [&](const descriptor &d) { return every_region(d, visit); };
    return ask_transports(here, nid, stream_with(ts, onid), end, [&](dvb_nit_transport &transport) {
        return show_all(descriptors(transport), regions);
    });
}

auto put_into(const many<SiTargetRegion> &regions)
{
    return [regions](const SiTargetRegion &region) { return put_region(regions, region); };
}

// Counts whatever it is shown, from 0.
auto counting(std::uint32_t &count)
{
    count = 0;
    return [&count](const auto &) {
        ++count;
        return true;
    };
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetGlobalTargetRegionInfo(uint32_t nid, SiTargetRegion *region_array,
                                           uint32_t *parray_count)
{
    SI_REQUIRE(region_array);
    SI_REQUIRE(parray_count);
    const many regions{region_array, parray_count, judged_by_count};
    return global_regions(SI_HERE, nid, regions, put_into(regions));
}

uint32_t Orva_Si_GetGlobalTargetRegionInfoCount(uint32_t nid, uint32_t *parray_count)
{
    SI_REQUIRE(parray_count);
    return global_regions(SI_HERE, nid, ORVA_SI_OK, counting(*parray_count));
}

uint32_t Orva_Si_GetTsTargetRegionInfo(uint32_t nid, uint32_t ts, uint32_t onid,
                                       SiTargetRegion *region_array, uint32_t *parray_count)
{
    SI_REQUIRE(region_array);
    SI_REQUIRE(parray_count);
    const many regions{region_array, parray_count, judged_by_count};
    return stream_regions(SI_HERE, nid, ts, onid, regions, put_into(regions));
}

uint32_t Orva_Si_GetTsTargetRegionInfoCount(uint32_t nid, uint32_t ts, uint32_t onid,
                                            uint32_t *parray_count)
{
    SI_REQUIRE(parray_count);
    return stream_regions(SI_HERE, nid, ts, onid, ORVA_SI_OK, counting(*parray_count));
}

uint32_t Orva_Si_GetTargetRegionName(uint32_t nid, SiDvbString *region_name_array,
                                     uint32_t *parray_count)
{
    SI_REQUIRE(region_name_array);
    SI_REQUIRE(parray_count);
    const many names{region_name_array, parray_count, judged_by_count};
    return region_names(SI_HERE, nid, names, [&](bytes name) {
        return names.put([&](SiDvbString &record) { copy_text(record, name); });
    });
}

uint32_t Orva_Si_GetTargetRegionNameCount(uint32_t nid, uint32_t *parray_count)
{
    SI_REQUIRE(parray_count);
    const std::uint32_t result = region_names(SI_HERE, nid, ORVA_SI_OK, counting(*parray_count));
    SI_LOG(level::trace, "target region name count: %d: ret: %d\n", static_cast<int>(*parray_count),
           static_cast<int>(result));
    return result;
}
