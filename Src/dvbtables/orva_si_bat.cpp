// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about bouquets, answered from the Bouquet Association Tables (EN 300 468, 5.2.2).
#include <algorithm>
#include <span>

#include "orva_si/query_bouquet.h"
#include "orva_si_descr.h"
#include "orva_si_query.h"

namespace si {

namespace {

constexpr SiTableKey every_bat{pid_sdt_bat, tid_bat, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

constexpr SiTableKey bat_of(std::uint32_t bouquet_id)
{
    return {pid_sdt_bat, tid_bat, low16(bouquet_id), SI_ANY_EXT, SI_ANY_EXT};
}

} // namespace

} // namespace si

using namespace si;

// Room is asked for before it is known whether the bouquet is listed already: behind a full list a
// section of a listed bouquet answers full too.
uint32_t Orva_Si_GetBouquetIdList(uint16_t *bouq, uint32_t *pcount)
{
    SI_REQUIRE(bouq);
    SI_REQUIRE(pcount);
    const many ids{bouq, pcount};
    return query<bat_codec>(SI_HERE, every_bat, ids, [&](dvb_bat_section &bat) {
        if (ids.full())
            return step::full;
        const std::uint16_t bouquet_id = dvb_bat_section_bouquet_id(&bat);
        // From the last one: the sections of a table follow each other.
        const std::span listed{bouq, *pcount};
        if (std::find(listed.rbegin(), listed.rend(), bouquet_id) != listed.rend())
            return step::next;
        return ids.put(bouquet_id) ? step::next : step::full;
    });
}

uint32_t Orva_Si_GetServiceListInBouquet(uint32_t bouquet_id, SiBouquetService *servlist,
                                         uint32_t *pcount)
{
    SI_REQUIRE(servlist);
    SI_REQUIRE(pcount);
    SI_LOG(level::trace, "the passed bouq id = %#4x\n", low16(bouquet_id));
    const many list{servlist, pcount};
    return query<bat_codec>(SI_HERE, bat_of(bouquet_id), list, [&](dvb_bat_section &bat) {
        for (dvb_nit_transport &transport : transports(bat))
            if (!every_listed_service(transport, [&](const dvb_service_list_service &service) {
                    return list.put([&](SiBouquetService &record) {
                        record.service_id = service.service_id;
                        record.service_type = service.service_type;
                        record.transport_stream_id = transport.transport_stream_id;
                        record.original_network_id = transport.original_network_id;
                    });
                }))
                return step::full;
        return step::next;
    });
}

uint32_t Orva_Si_GetBouquetNameById(uint32_t bouquet_id, SiDvbString *pname)
{
    SI_REQUIRE(pname);
    const site here = SI_HERE;
    return query<bat_codec>(here, bat_of(bouquet_id), ORVA_SI_FAILURE, [&](dvb_bat_section &bat) {
        const auto *naming = first<dvb_bouquet_name_descriptor>(descriptors(bat));
        if (naming == nullptr)
            return step::next;
        copy_text(*pname, name_of(*naming));
        SI_LOG_AT(here, level::trace, "Bouquet name:[%d]%02x %02x %02x %02x str:%s\n",
                  pname->length, pname->text[0], pname->text[1], pname->text[2], pname->text[3],
                  printable_text(pname->text, pname->length).c_str());
        return step::found;
    });
}
