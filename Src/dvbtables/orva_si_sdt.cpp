// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about multiplexes and services, answered from the Service Description Tables
// (EN 300 468, 5.2.3).
#include "orva_si_sdt.h"

#include "orva_si/query_service.h"
#include "orva_si_descr.h"

namespace si {

namespace {

constexpr SiTableKey every_sdt{pid_sdt_bat, SI_ANY_TABLE_ID, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};

std::uint32_t service_name_of(site here, const SiTableKey &key, std::uint32_t sid,
                              SiDvbString &name)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        const auto *naming = first<dvb_service_descriptor>(descriptors(service));
        return naming != nullptr && copy_text(name, service_name(*naming));
    });
}

std::uint32_t service_type_of(site here, const SiTableKey &key, std::uint32_t sid,
                              std::uint8_t &type)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        const auto *naming = first<dvb_service_descriptor>(descriptors(service));
        if (naming == nullptr)
            return false;
        type = naming->service_type;
        SI_LOG_AT(here, level::trace, "the type = %#x\n", type);
        return true;
    });
}

std::uint32_t free_ca_mode_of(site here, const SiTableKey &key, std::uint32_t sid,
                              std::uint8_t &mode)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        mode = service.free_ca_mode;
        return true;
    });
}

std::uint32_t encryption_of(site here, const SiTableKey &key, std::uint32_t sid, std::uint8_t &mode)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        mode = service.free_ca_mode;
        SI_LOG_AT(here, level::trace, "get the matched service id = %#4x's free_CA_mode=%#3x\n",
                  low16(sid), mode);
        return true;
    });
}

std::uint32_t running_status_of(site here, const SiTableKey &key, std::uint32_t sid,
                                std::uint8_t &status)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        status = service.running_status;
        return true;
    });
}

std::uint32_t eit_schedule_flag_of(site here, const SiTableKey &key, std::uint32_t sid,
                                   std::uint8_t &flag)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        flag = service.eit_schedule_flag;
        SI_LOG_AT(here, level::trace, "serv_id = %#x -> sched flag = %d\n", low16(sid), flag);
        return true;
    });
}

std::uint32_t eit_pf_flag_of(site here, const SiTableKey &key, std::uint32_t sid,
                             std::uint8_t &flag)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        flag = service.eit_present_following_flag;
        return true;
    });
}

std::uint32_t original_network_of(site here, const SiTableKey &key, std::uint16_t &onit)
{
    return query<sdt_codec>(here, key, ORVA_SI_FAILURE, [&](dvb_sdt_section &sdt) {
        onit = sdt.original_network_id;
        SI_LOG_AT(here, level::trace, "the onit id = %#x\n", onit);
        return step::found;
    });
}

std::uint32_t service_ids(site here, const SiTableKey &key, const many<std::uint16_t> &ids)
{
    return query<sdt_codec>(here, key, ids, [&](dvb_sdt_section &sdt) {
        for (dvb_sdt_service &service : services(sdt))
            if (!ids.put(service.service_id))
                return step::full;
        return step::next;
    });
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetServiceName(uint32_t sid, SiDvbString *pname)
{
    SI_REQUIRE(pname);
    return service_name_of(SI_HERE, sdt_actual, sid, *pname);
}

uint32_t Orva_Si_GetServName(uint32_t ts, uint32_t sid, SiDvbString *pname)
{
    SI_REQUIRE(pname);
    return service_name_of(SI_HERE, sdt_of(ts), sid, *pname);
}

uint32_t Orva_Si_GetServiceType(uint32_t sid, uint8_t *ptype)
{
    SI_REQUIRE(ptype);
    return service_type_of(SI_HERE, sdt_actual, sid, *ptype);
}

uint32_t Orva_Si_GetServType(uint32_t ts, uint32_t sid, uint8_t *ptype)
{
    SI_REQUIRE(ptype);
    return service_type_of(SI_HERE, sdt_of(ts), sid, *ptype);
}

uint32_t Orva_Si_GetServiceEncrypted(uint32_t sid, uint8_t *pencrypted)
{
    SI_REQUIRE(pencrypted);
    return encryption_of(SI_HERE, sdt_actual, sid, *pencrypted);
}

uint32_t Orva_Si_GetServEncrypted(uint32_t ts, uint32_t sid, uint8_t *pencrypted)
{
    SI_REQUIRE(pencrypted);
    return encryption_of(SI_HERE, sdt_of(ts), sid, *pencrypted);
}

uint32_t Orva_Si_GetFreeCaMode(uint32_t sid, uint8_t *free_ca_mode)
{
    SI_REQUIRE(free_ca_mode);
    return free_ca_mode_of(SI_HERE, sdt_actual, sid, *free_ca_mode);
}

uint32_t Orva_Si_GetServFreeCaMode(uint32_t ts, uint32_t sid, uint8_t *free_ca_mode)
{
    SI_REQUIRE(free_ca_mode);
    return free_ca_mode_of(SI_HERE, sdt_of(ts), sid, *free_ca_mode);
}

uint32_t Orva_Si_GetRunningStatus(uint32_t sid, uint8_t *running_status)
{
    SI_REQUIRE(running_status);
    return running_status_of(SI_HERE, sdt_actual, sid, *running_status);
}

uint32_t Orva_Si_GetServRunningStatus(uint32_t ts, uint32_t sid, uint8_t *running_status)
{
    SI_REQUIRE(running_status);
    return running_status_of(SI_HERE, sdt_of(ts), sid, *running_status);
}

uint32_t Orva_Si_GetEitSchedFlag(uint32_t sid, uint8_t *eit_schedule_flag)
{
    SI_REQUIRE(eit_schedule_flag);
    return eit_schedule_flag_of(SI_HERE, sdt_actual, sid, *eit_schedule_flag);
}

uint32_t Orva_Si_GetServEitSchedFlag(uint32_t ts, uint32_t sid, uint8_t *eit_schedule_flag)
{
    SI_REQUIRE(eit_schedule_flag);
    return eit_schedule_flag_of(SI_HERE, sdt_of(ts), sid, *eit_schedule_flag);
}

uint32_t Orva_Si_GetEitPfFlag(uint32_t sid, uint8_t *eit_pf_flag)
{
    SI_REQUIRE(eit_pf_flag);
    return eit_pf_flag_of(SI_HERE, sdt_actual, sid, *eit_pf_flag);
}

uint32_t Orva_Si_GetServEitPfFlag(uint32_t ts, uint32_t sid, uint8_t *eit_pf_flag)
{
    SI_REQUIRE(eit_pf_flag);
    return eit_pf_flag_of(SI_HERE, sdt_of(ts), sid, *eit_pf_flag);
}

uint32_t Orva_Si_GetActTsId(uint16_t *ptsid)
{
    SI_REQUIRE(ptsid);
    const site here = SI_HERE;
    return query<sdt_codec>(here, sdt_actual, ORVA_SI_FAILURE, [&](dvb_sdt_section &sdt) {
        *ptsid = dvb_sdt_section_transport_stream_id(&sdt);
        SI_LOG_AT(here, level::trace, "ts id = %#x\n", *ptsid);
        return step::found;
    });
}

uint32_t Orva_Si_GetActOnitId(uint16_t *ponit)
{
    SI_REQUIRE(ponit);
    return original_network_of(SI_HERE, sdt_actual, *ponit);
}

uint32_t Orva_Si_GetOnitId(uint32_t ts, uint16_t *ponit)
{
    SI_REQUIRE(ponit);
    return original_network_of(SI_HERE, sdt_of(ts), *ponit);
}

uint32_t Orva_Si_GetActServIdList(uint16_t *servlist, uint32_t *pcount)
{
    SI_REQUIRE(servlist);
    SI_REQUIRE(pcount);
    return service_ids(SI_HERE, sdt_actual, many{servlist, pcount});
}

// No SDT of that transport stream is an empty list, not a failure.
uint32_t Orva_Si_GetServIdList(uint32_t ts, uint16_t *servlist, uint32_t *pcount)
{
    SI_REQUIRE(servlist);
    SI_REQUIRE(pcount);
    return service_ids(SI_HERE, sdt_of(ts), many{servlist, pcount, {.none = ORVA_SI_OK}});
}

// One entry for each section, repeated ids included.
uint32_t Orva_Si_GetSdtAllTsList(uint16_t *list, uint32_t *pcount)
{
    SI_REQUIRE(list);
    SI_REQUIRE(pcount);
    const many ids{list, pcount};
    return query<sdt_codec>(SI_HERE, every_sdt, ids, [&](dvb_sdt_section &sdt) {
        return ids.put(dvb_sdt_section_transport_stream_id(&sdt)) ? step::next : step::full;
    });
}
