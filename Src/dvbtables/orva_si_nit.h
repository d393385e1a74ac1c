// SPDX-License-Identifier: LGPL-2.1-or-later
// What the questions about networks share: the keys of their tables and the walk over transport
// streams (EN 300 468, 5.2.1).
#ifndef SRC_DVBTABLES_ORVA_SI_NIT_H
#define SRC_DVBTABLES_ORVA_SI_NIT_H

#include <cstdint>

#include "orva_si_query.h"
#include "orva_si_ucsi.h"

namespace si {

inline constexpr SiTableKey every_nit{pid_nit, SI_ANY_TABLE_ID, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

constexpr SiTableKey nit_of(std::uint32_t nid)
{
    return {pid_nit, SI_ANY_TABLE_ID, low16(nid), SI_ANY_EXT, SI_ANY_EXT};
}

// ---- Which transport streams of a network are meant

inline constexpr auto any_stream = [](const dvb_nit_transport &) { return true; };

constexpr auto stream_with(std::uint32_t ts)
{
    return [id = low16(ts)](const dvb_nit_transport &transport) {
        return transport.transport_stream_id == id;
    };
}

constexpr auto stream_with(std::uint32_t ts, std::uint32_t onid)
{
    return [id = low16(ts), network = low16(onid)](const dvb_nit_transport &transport) {
        return transport.transport_stream_id == id && transport.original_network_id == network;
    };
}

// Asks each transport stream of a network that is meant in turn, until one does not answer next.
template <class Meant, class End, class Question>
std::uint32_t ask_transports(site here, std::uint32_t nid, Meant meant, const End &end,
                             Question question)
{
    return query<nit_codec>(here, nit_of(nid), end, [&](dvb_nit_section &nit) {
        for (dvb_nit_transport &transport : transports(nit)) {
            if (!meant(transport))
                continue;
            if (const step answer = question(transport); answer != step::next)
                return answer;
        }
        return step::next;
    });
}

} // namespace si

#endif
