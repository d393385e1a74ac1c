// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about networks, answered from the Network Information Tables (EN 300 468, 5.2.1).
#include "orva_si/query_network.h"
#include "orva_si_descr.h"
#include "orva_si_query.h"

namespace si {

namespace {

constexpr SiTableKey nit_actual{pid_nit, tid_nit_actual, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};
constexpr SiTableKey every_nit{pid_nit, SI_ANY_TABLE_ID, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

constexpr SiTableKey nit_of(std::uint32_t nid)
{
    return {pid_nit, SI_ANY_TABLE_ID, low16(nid), SI_ANY_EXT, SI_ANY_EXT};
}

// Asks each transport stream of a network in turn, until one does not answer next.
template <class End, class Question>
std::uint32_t ask_transports(site here, std::uint32_t nid, const End &end, Question question)
{
    return query<nit_codec>(here, nit_of(nid), end, [&](dvb_nit_section &nit) {
        for (dvb_nit_transport &transport : transports(nit))
            if (const step answer = question(transport); answer != step::next)
                return answer;
        return step::next;
    });
}

bool is_stream(const dvb_nit_transport &transport, std::uint32_t ts, std::uint32_t onid)
{
    return transport.transport_stream_id == low16(ts) &&
           transport.original_network_id == low16(onid);
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetCurrentNetworkId(uint16_t *pnetworkid)
{
    SI_REQUIRE(pnetworkid);
    const site here = SI_HERE;
    return query<nit_codec>(here, nit_actual, ORVA_SI_NO_DATA, [&](dvb_nit_section &nit) {
        *pnetworkid = dvb_nit_section_network_id(&nit);
        SI_LOG_AT(here, level::trace, "network id = %d\n", *pnetworkid);
        return step::found;
    });
}

// One entry for each table; a network that is both actual and other is listed twice.
uint32_t Orva_Si_GetNitAllNetworkList(uint16_t *list, uint32_t *pcount)
{
    SI_REQUIRE(list);
    SI_REQUIRE(pcount);
    const many ids{list, pcount};
    return query<nit_codec>(SI_HERE, every_nit, ids, [&](dvb_nit_section &nit) {
        return ids.put(dvb_nit_section_network_id(&nit)) ? step::table_done : step::full;
    });
}

uint32_t Orva_Si_GetNetworkName(uint32_t nid, SiDvbString *pnetworkname)
{
    SI_REQUIRE(pnetworkname);
    return query<nit_codec>(SI_HERE, nit_of(nid), ORVA_SI_FAILURE, [&](dvb_nit_section &nit) {
        const auto *naming = first<dvb_network_name_descriptor>(descriptors(nit));
        return naming != nullptr && copy_text(*pnetworkname, name_of(*naming)) ? step::found
                                                                               : step::next;
    });
}

uint32_t Orva_Si_GetTsGrpByNetworkId(uint32_t nid, uint16_t *tsgrp, uint32_t *pcount)
{
    SI_REQUIRE(tsgrp);
    SI_REQUIRE(pcount);
    const many ids{tsgrp, pcount};
    return ask_transports(SI_HERE, nid, ids, [&](dvb_nit_transport &transport) {
        return ids.put(transport.transport_stream_id) ? step::next : step::full;
    });
}

// A transport stream without a service list is an empty list, not a failure.
uint32_t Orva_Si_GetServiceList(uint32_t nid, uint32_t ts, uint32_t onid,
                                SiServiceListEntry *servlist, uint32_t *pcount)
{
    SI_REQUIRE(servlist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{servlist, pcount, {.none = ORVA_SI_OK, .full_text = nullptr}};
    return ask_transports(here, nid, list, [&](dvb_nit_transport &transport) {
        if (!is_stream(transport, ts, onid))
            return step::next;
        if (every_listed_service(transport, [&](const dvb_service_list_service &service) {
                return list.put(SiServiceListEntry{service.service_id, service.service_type});
            }))
            return step::next;
        SI_LOG_AT(here, level::error, "need more room! *pcount = %d, count = %d\n",
                  static_cast<int>(*pcount), static_cast<int>(list.capacity));
        return step::full;
    });
}
