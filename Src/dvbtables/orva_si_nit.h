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

inline constexpr auto any_stream = [](std::uint16_t, std::uint16_t) { return true; };

constexpr auto stream_with(std::uint32_t ts)
{
    return [wanted = low16(ts)](std::uint16_t transport_stream_id, std::uint16_t) {
        return transport_stream_id == wanted;
    };
}

constexpr auto stream_with(std::uint32_t ts, std::uint32_t onid)
{
    return [wanted = low16(ts), network = low16(onid)](std::uint16_t transport_stream_id,
                                                       std::uint16_t original_network_id) {
        return transport_stream_id == wanted && original_network_id == network;
    };
}

// Whether a section shows one of them at a first look (EN 300 468, 5.2.1). Its loop of transport
// streams is taken to end with the section, whatever length it claims.
template <class Meant>
constexpr auto showing_stream(Meant meant)
{
    return [meant](bytes section) {
        byte_reader in{section_body(section, 8)};
        in.span(in.u16() & 0x0FFFu); // descriptors of the network
        in.u16();                    // transport_stream_loop_length
        return in.ok && shows_entry<6>(in.all(), [&](auto transport) {
                   return meant(be16(transport.template first<2>()),
                                be16(transport.template subspan<2, 2>()));
               });
    };
}

// Asks each transport stream of a network that is meant in turn, until one does not answer next.
template <class Meant, class End, class Question>
std::uint32_t ask_transports(site here, std::uint32_t nid, Meant meant, const End &end,
                             Question question)
{
    const auto ask = [&](dvb_nit_section &nit) {
        for (dvb_nit_transport &transport : transports(nit)) {
            if (!meant(transport.transport_stream_id, transport.original_network_id))
                continue;
            if (const step answer = question(transport); answer != step::next)
                return answer;
        }
        return step::next;
    };
    return query<nit_codec>(here, nit_of(nid), end, ask, showing_stream(meant));
}

} // namespace si

#endif
