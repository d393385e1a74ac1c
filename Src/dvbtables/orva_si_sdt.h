// SPDX-License-Identifier: LGPL-2.1-or-later
// How the questions about services find theirs: which tables they read, and the service in them.
#ifndef SRC_DVBTABLES_ORVA_SI_SDT_H
#define SRC_DVBTABLES_ORVA_SI_SDT_H

#include <cstdint>

#include "orva_si_query.h"
#include "orva_si_ucsi.h"

namespace si {

// The tuned multiplex, or the multiplex of a transport stream, tuned or not.
inline constexpr SiTableKey sdt_actual{pid_sdt_bat, tid_sdt_actual, SI_ANY_EXT, SI_ANY_EXT,
                                       SI_ANY_EXT};

constexpr SiTableKey sdt_of(std::uint32_t ts)
{
    return {pid_sdt_bat, SI_ANY_TABLE_ID, low16(ts), SI_ANY_EXT, SI_ANY_EXT};
}

// The first service of that id; null when the section does not name it.
inline dvb_sdt_service *find_service(dvb_sdt_section &sdt, std::uint32_t sid)
{
    for (dvb_sdt_service &service : services(sdt))
        if (service.service_id == low16(sid))
            return &service;
    return nullptr;
}

// Whether a section shows the service at a first look (EN 300 468, 5.2.3).
constexpr auto showing_service(std::uint32_t sid)
{
    return [id = low16(sid)](bytes section) {
        return shows_entry<5>(section_body(section, 11), [id](auto service) {
            return be16(service.template first<2>()) == id;
        });
    };
}

// Asks the service of each section that names it, until one does not answer next.
template <class End, class Question>
std::uint32_t visit_service(site here, const SiTableKey &key, std::uint32_t sid, const End &end,
                            Question question)
{
    const auto ask = [&](dvb_sdt_section &sdt) {
        dvb_sdt_service *service = find_service(sdt, sid);
        return service != nullptr ? question(*service) : step::next;
    };
    return query<sdt_codec>(here, key, end, ask, showing_service(sid));
}

// Asks for one value of a service; the question answers whether the service had it.
template <class Question>
std::uint32_t ask_service(site here, const SiTableKey &key, std::uint32_t sid, Question question)
{
    return visit_service(here, key, sid, ORVA_SI_FAILURE, [&](dvb_sdt_service &service) {
        return question(service) ? step::found : step::next;
    });
}

} // namespace si

#endif
