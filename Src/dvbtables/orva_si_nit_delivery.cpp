// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about how the transport streams of networks are delivered (EN 300 468, 6.2.13, 6.2.17).
#include <cstddef>
#include <span>

#include "orva_si/query_network.h"
#include "orva_si_log.h"
#include "orva_si_nit.h"

namespace si {

namespace {

// Field by field, so that padding stays the caller's. Frequencies and symbol rates stay as they are
// coded.
void fill(SiSatelliteDelivery &record, const dvb_nit_transport &transport,
          const dvb_satellite_delivery_descriptor &coded)
{
    record.transport_stream_id = transport.transport_stream_id;
    record.frequency = coded.frequency;
    record.orbital_position = coded.orbital_position;
    record.west_east_flag = coded.west_east_flag;
    record.polarisation = coded.polarization;
    record.modulation_system = coded.modulation_system;
    record.roll_off = coded.roll_off;
    record.modulation_type = coded.modulation_type;
    record.symbol_rate = coded.symbol_rate;
    record.FEC_inner = static_cast<std::uint8_t>(coded.fec_inner);
}

void fill(SiCableDelivery &record, const dvb_nit_transport &transport,
          const dvb_cable_delivery_descriptor &coded)
{
    record.transport_stream_id = transport.transport_stream_id;
    record.frequency = coded.frequency;
    record.FEC_outer = static_cast<std::uint8_t>(coded.fec_outer);
    record.modulation = coded.modulation;
    record.symbol_rate = coded.symbol_rate;
    record.FEC_inner = static_cast<std::uint8_t>(coded.fec_inner);
}

void fill(SiTerrDelivery &record, const dvb_nit_transport &transport,
          const dvb_terrestrial_delivery_descriptor &coded)
{
    record.transport_stream_id = transport.transport_stream_id;
    record.centre_frequency = coded.centre_frequency;
    record.bandwidth = coded.bandwidth;
    record.priority = coded.priority;
    record.time_slicing_indicator = coded.time_slicing_indicator;
    record.mpe_fec_indicator = coded.mpe_fec_indicator;
    record.constellation = coded.constellation;
    record.hierarchy_information = coded.hierarchy_information;
    record.code_rate_hp_stream = coded.code_rate_hp_stream;
    record.code_rate_lp_stream = coded.code_rate_lp_stream;
    record.guard_interval = coded.guard_interval;
    record.transmission_mode = coded.transmission_mode;
    record.other_frequency_flag = coded.other_frequency_flag;
}

// What a list says about each record that it has written; only satellites are told.
template <class Record>
void tell(site, std::uint32_t, const Record &)
{
}

void tell(site here, std::uint32_t at, const SiSatelliteDelivery &record)
{
    SI_LOG_AT(here, level::trace,
              "satellite_delivery_list[%d], tsid = %d,freq=%dGHz,orbital_position=%d degree, "
              "west_east_flag=%d,polarisation=%d,modulation_system=%d,roll_off=%d,"
              "modulation_type=%d,symbol_rate=%d,FEC_inner=%d\n",
              static_cast<int>(at), record.transport_stream_id, static_cast<int>(record.frequency),
              record.orbital_position, record.west_east_flag, record.polarisation,
              record.modulation_system, record.roll_off, record.modulation_type,
              static_cast<int>(record.symbol_rate), record.FEC_inner);
}

// One record for each transport stream that has such a descriptor.
template <class Descriptor, class Record>
std::uint32_t deliveries(site here, std::uint32_t nid, const many<Record> &list)
{
    return ask_transports(here, nid, any_stream, list, [&](dvb_nit_transport &transport) {
        const auto *coded = first<Descriptor>(descriptors(transport));
        if (coded == nullptr)
            return step::next;
        const bool put = list.put([&](Record &record) {
            fill(record, transport, *coded);
            tell(here, *list.count, record);
        });
        return put ? step::next : step::full;
    });
}

template <class Descriptor, class Record>
std::uint32_t delivery(site here, std::uint32_t nid, std::uint32_t ts, Record &record)
{
    const auto meant = stream_with(ts);
    return ask_transports(here, nid, meant, ORVA_SI_FAILURE, [&](dvb_nit_transport &transport) {
        const auto *coded = first<Descriptor>(descriptors(transport));
        if (coded == nullptr)
            return step::next;
        fill(record, transport, *coded);
        return step::found;
    });
}

// libucsi decodes the frequencies where they stand, unaligned.
struct coded_frequency {
    std::uint32_t value;
} __ucsi_packed;

std::span<const coded_frequency> frequencies(dvb_frequency_list_descriptor &list)
{
    const void *coded = dvb_frequency_list_descriptor_centre_frequencies(&list);
    const int count = dvb_frequency_list_descriptor_centre_frequencies_count(&list);
    return {static_cast<const coded_frequency *>(coded), static_cast<std::size_t>(count)};
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetSatelliteDeliveryList(uint32_t nid,
                                          SiSatelliteDelivery *satellite_delivery_list,
                                          uint32_t *pcount)
{
    SI_REQUIRE(satellite_delivery_list);
    SI_REQUIRE(pcount);
    return deliveries<dvb_satellite_delivery_descriptor>(SI_HERE, nid,
                                                         many{satellite_delivery_list, pcount});
}

uint32_t Orva_Si_GetSatelliteDeliveryDescriptor(uint32_t nid, uint32_t ts,
                                                SiSatelliteDelivery *satellite_delivery)
{
    SI_REQUIRE(satellite_delivery);
    return delivery<dvb_satellite_delivery_descriptor>(SI_HERE, nid, ts, *satellite_delivery);
}

uint32_t Orva_Si_GetCableDeliveryList(uint32_t nid, SiCableDelivery *cabledelivery_list,
                                      uint32_t *pcount)
{
    SI_REQUIRE(cabledelivery_list);
    SI_REQUIRE(pcount);
    return deliveries<dvb_cable_delivery_descriptor>(SI_HERE, nid,
                                                     many{cabledelivery_list, pcount});
}

uint32_t Orva_Si_GetCableDeliveryDescriptor(uint32_t nid, uint32_t ts,
                                            SiCableDelivery *cabledelivery)
{
    SI_REQUIRE(cabledelivery);
    return delivery<dvb_cable_delivery_descriptor>(SI_HERE, nid, ts, *cabledelivery);
}

uint32_t Orva_Si_GetTerrDeliveryList(uint32_t nid, SiTerrDelivery *terrdelivery_list,
                                     uint32_t *pcount)
{
    SI_REQUIRE(terrdelivery_list);
    SI_REQUIRE(pcount);
    return deliveries<dvb_terrestrial_delivery_descriptor>(SI_HERE, nid,
                                                           many{terrdelivery_list, pcount});
}

uint32_t Orva_Si_GetFrequencyListDescriptor(uint32_t nid, uint32_t ts, uint32_t *freq_list,
                                            uint32_t *pcount)
{
    SI_REQUIRE(freq_list);
    SI_REQUIRE(pcount);
    const many list{freq_list, pcount};
    return ask_transports(SI_HERE, nid, stream_with(ts), list, [&](dvb_nit_transport &transport) {
        for (descriptor &d : descriptors(transport))
            if (auto *coded = as<dvb_frequency_list_descriptor>(d))
                for (const coded_frequency frequency : frequencies(*coded))
                    if (!list.put(std::uint32_t{frequency.value}))
                        return step::full;
        return step::next;
    });
}
