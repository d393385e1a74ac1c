// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about networks, answered from the Network Information Tables (EN 300 468, 5.2.1).
#include "orva_si_nit.h"

#include "orva_si/query_network.h"
#include "orva_si_descr.h"
#include "orva_si_query.h"

namespace si {

namespace {

constexpr SiTableKey nit_actual{pid_nit, tid_nit_actual, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

auto names(dvb_multilingual_network_name_descriptor &naming)
{
    return loop_of<dvb_multilingual_network_name_descriptor_names_next>(
        naming, dvb_multilingual_network_name_descriptor_names_first(&naming),
        behind(naming, naming.d.len));
}

// Asks each of a network's multilingual names in turn, until the question does not answer next.
template <class End, class Question>
std::uint32_t ask_names(site here, std::uint32_t nid, const End &end, Question question)
{
    return query<nit_codec>(here, nit_of(nid), end, [&](dvb_nit_section &nit) {
        for (descriptor &d : descriptors(nit))
            if (auto *naming = as<dvb_multilingual_network_name_descriptor>(d))
                for (dvb_multilingual_network_name &name : names(*naming))
                    if (const step answer = question(name); answer != step::next)
                        return answer;
        return step::next;
    });
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

uint32_t Orva_Si_GetMultiNetworkNameLangList(uint32_t nid, uint32_t *langlist, uint32_t *pcount)
{
    SI_REQUIRE(langlist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{langlist, pcount};
    return ask_names(here, nid, list, [&](const dvb_multilingual_network_name &name) {
        return put_language(here, list, name.language_code) ? step::next : step::full;
    });
}

uint32_t Orva_Si_GetMultiNetworkNameByLangId(uint32_t nid, uint32_t language_id,
                                             SiDvbString *pnetworkname)
{
    SI_REQUIRE(pnetworkname);
    const site here = SI_HERE;
    return ask_names(here, nid, ORVA_SI_NO_DATA, [&](dvb_multilingual_network_name &name) {
        if (language_of(here, name.language_code) != language_id)
            return step::next;
        SI_LOG_AT(here, level::trace, "matched langid\n");
        copy_text(*pnetworkname,
                  {dvb_multilingual_network_name_name(&name), name.network_name_length});
        return step::found;
    });
}

uint32_t Orva_Si_GetTsGrpByNetworkId(uint32_t nid, uint16_t *tsgrp, uint32_t *pcount)
{
    SI_REQUIRE(tsgrp);
    SI_REQUIRE(pcount);
    const many ids{tsgrp, pcount};
    return ask_transports(SI_HERE, nid, any_stream, ids, [&](dvb_nit_transport &transport) {
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
    const auto meant = stream_with(ts, onid);
    return ask_transports(here, nid, meant, list, [&](dvb_nit_transport &transport) {
        if (every_listed_service(transport, [&](const dvb_service_list_service &service) {
                return list.put([&](SiServiceListEntry &record) {
                    record.service_id = service.service_id;
                    record.service_type = service.service_type;
                });
            }))
            return step::next;
        SI_LOG_AT(here, level::error, "need more room! *pcount = %d, count = %d\n",
                  static_cast<int>(*pcount), static_cast<int>(list.capacity));
        return step::full;
    });
}

uint32_t Orva_Si_GetServiceType_InNIT(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t service_id,
                                      uint8_t *ptype)
{
    SI_REQUIRE(ptype);
    const auto meant = stream_with(ts, onid);
    return ask_transports(SI_HERE, nid, meant, ORVA_SI_FAILURE, [&](dvb_nit_transport &transport) {
        const bool listed =
            !every_listed_service(transport, [&](const dvb_service_list_service &service) {
                if (service.service_id != low16(service_id))
                    return true;
                *ptype = service.service_type;
                return false;
            });
        return listed ? step::found : step::next;
    });
}
