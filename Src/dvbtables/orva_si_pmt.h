// SPDX-License-Identifier: LGPL-2.1-or-later
// How the questions about programs find theirs: which tables they read, and the streams in them.
#ifndef SRC_DVBTABLES_ORVA_SI_PMT_H
#define SRC_DVBTABLES_ORVA_SI_PMT_H

#include <cstdint>

#include "orva_si_query.h"
#include "orva_si_ucsi.h"

namespace si {

inline constexpr std::uint32_t every_program = SI_ANY_EXT;

constexpr SiTableKey pmt_of(std::uint32_t program_number)
{
    return {SI_ANY_PID, tid_pmt, low16(program_number), SI_ANY_EXT, SI_ANY_EXT};
}

// Asks each elementary stream of a program in turn, until one does not answer next.
template <class End, class Question>
std::uint32_t ask_streams(site here, std::uint32_t program_number, const End &end,
                          Question question)
{
    return query<pmt_codec>(here, pmt_of(program_number), end, [&](mpeg_pmt_section &pmt) {
        for (mpeg_pmt_stream &stream : streams(pmt))
            if (const step answer = question(stream); answer != step::next)
                return answer;
        return step::next;
    });
}

// Lists the streams of a program that carry a descriptor of a type; tell is called with each stream
// that was listed.
template <class Descriptor, class Tell>
std::uint32_t streams_with(site here, std::uint32_t program_number, const many<std::uint16_t> &pids,
                           Tell tell)
{
    return ask_streams(here, program_number, pids, [&](mpeg_pmt_stream &stream) {
        if (first<Descriptor>(descriptors(stream)) == nullptr)
            return step::next;
        const std::uint16_t pid = stream.pid;
        if (!pids.put(pid))
            return step::full;
        tell(pid);
        return step::next;
    });
}

} // namespace si

#endif
