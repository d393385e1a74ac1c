// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about where networks link to, system software updates among them (EN 300 468, 6.2.19;
// ETSI TS 102 006, 6.1).
#include <cstddef>
#include <optional>

#include "orva_si/query_network.h"
#include "orva_si_descr.h"
#include "orva_si_log.h"
#include "orva_si_nit.h"
#include "orva_si_pmt.h"

namespace si {

namespace {

template <class Loop, class Question>
step ask_loop(const Loop &loop, Question question)
{
    for (const descriptor &d : loop)
        if (const auto found = read_linkage(d))
            if (const step answer = question(*found); answer != step::next)
                return answer;
    return step::next;
}

// Asks the linkages of the first loop, then those of each transport stream, until the question does
// not answer next.
template <class Question>
step ask_linkages(dvb_nit_section &nit, Question question)
{
    step answer = ask_loop(descriptors(nit), question);
    for (dvb_nit_transport &transport : transports(nit))
        if (answer == step::next)
            answer = ask_loop(descriptors(transport), question);
    return answer;
}

// Likewise, only those that lead to a system software update.
template <class Question>
step ask_software_updates(dvb_nit_section &nit, Question question)
{
    return ask_linkages(nit, [&](const linkage &found) {
        return found.to.linkage_type == linkage_software_update ? question(found) : step::next;
    });
}

bool put_linkage(site here, const many<SiLinkage> &list, const SiLinkage &to)
{
    if (!list.put([&](SiLinkage &record) { copy_linkage(record, to); }))
        return false;
    SI_LOG_AT(here, level::trace, "ts_id = %#4x, on_id = %#4x, service_id = %#4x, type = %#2x\n",
              to.transport_stream_id, to.original_network_id, to.service_id, to.linkage_type);
    return true;
}

// The selector of the first entry of the OUI loop; empty when there is no entry that fits the loop.
std::optional<bytes> first_selector(site here, bytes private_data)
{
    byte_reader in{private_data};
    byte_reader entries = in.nested8();
    const std::size_t loop_length = entries.left();
    const std::uint32_t oui = entries.u24();
    const bytes selector = entries.span(entries.u8());
    if (!entries.ok)
        return std::nullopt;
    SI_LOG_AT(here, level::trace, "OUI_data_length = %#4x, OUI = %#4x, selector_length = %#4x\n",
              static_cast<unsigned>(loop_length), oui, static_cast<unsigned>(selector.size()));
    return selector;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetNitLinkageDesc(uint32_t nid, uint32_t linkage_type, SiLinkage *lkgrpcserv,
                                   uint32_t *pcount)
{
    SI_REQUIRE(lkgrpcserv);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{lkgrpcserv, pcount};
    const auto wanted = static_cast<std::uint8_t>(linkage_type);
    const auto append = [&](const linkage &found) {
        const bool meant = wanted == 0 || found.to.linkage_type == wanted;
        return !meant || put_linkage(here, list, found.to) ? step::next : step::full;
    };
    return query<nit_codec>(here, nit_of(nid), list,
                            [&](dvb_nit_section &nit) { return ask_linkages(nit, append); });
}

uint32_t Orva_Si_GetSsuNitLinkageDescSelector(uint32_t nid, uint8_t *selector_bytes,
                                              uint32_t *selector_length)
{
    SI_REQUIRE(selector_bytes);
    SI_REQUIRE(selector_length);
    const site here = SI_HERE;
    const auto copy = [&](const linkage &found) {
        const auto selector = first_selector(here, found.private_data);
        return selector ? copy_raw(here, *selector, selector_bytes, *selector_length) : step::next;
    };
    return query<nit_codec>(here, nit_of(nid), ORVA_SI_FAILURE,
                            [&](dvb_nit_section &nit) { return ask_software_updates(nit, copy); });
}

uint32_t Orva_Si_GetSsuNitLinkageServiceId(uint16_t *ser_id)
{
    SI_REQUIRE(ser_id);
    const site here = SI_HERE;
    return query<nit_codec>(here, every_nit, ORVA_SI_FAILURE, [&](dvb_nit_section &nit) {
        return ask_software_updates(nit, [&](const linkage &found) {
            SI_LOG_AT(here, level::trace, "network id = %#4x\n", dvb_nit_section_network_id(&nit));
            *ser_id = found.to.service_id;
            return step::found;
        });
    });
}

uint32_t Orva_Si_GetSsuPidsByNitLinkage(uint32_t service_id, uint16_t *pids, uint32_t *pcount)
{
    SI_REQUIRE(pids);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    SI_LOG_AT(here, level::trace, "servicd_id = %#x\n", low16(service_id));
    const auto tell = [&](std::uint16_t found) {
        SI_LOG_AT(here, level::trace, "elementary_PID = %#x\n", found);
    };
    return streams_with<dvb_data_broadcast_id_descriptor>(here, service_id, {pids, pcount}, tell);
}
