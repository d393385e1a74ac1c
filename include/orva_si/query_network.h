/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Questions about networks, answered from the stored Network Information Tables (EN 300 468 clause
 * 5.2.1, PID 0x0010).
 *
 * All functions of this header work as the head of orva_si/query_service.h says. Descriptors with
 * tags from 0x80 are private. Clauses without a document are those of EN 300 468 V1.15.1;
 * frequencies and symbol rates are the bits of the descriptor, unconverted.
 *
 * @par Arguments
 * Of each identifier the low 16 bits count.
 * - `nid`: network_id, selects the NIT actual or other of that network; 0xFFFF selects every NIT
 * - `ts`: transport_stream_id, compared exactly with those of the table's transport stream loop.
 * Functions without `onid` answer for the first entry of the loop that can; lists of delivery
 * records do not tell entries of one transport_stream_id apart either
 * - `onid`: original_network_id of that entry of the loop, compared exactly: 0xFFFF is no wildcard.
 * For a transport stream with an SDT Orva_Si_GetOnitId tells it; else it is in the raw NIT, which
 * docs/client-guide.md shows how to read
 * - `pdsd`: private_data_specifier under which the descriptor must stand, 32 bits
 * - `pnetworkid`, `ser_id`: receive the 16-bit identifier
 * - `pnetworkname`: receives the name in its broadcast character table
 * - `list`, `langlist`, `tsgrp`, `freq_list`, `pdsdlist`, `pids`: array to fill, one number for
 * each element
 * - `servlist`, `satellite_delivery_list`, `cabledelivery_list`, `terrdelivery_list`, `pinfo`,
 * `pchnlist`, `servattarray`, `region_array`, `region_name_array`, `lkgrpcserv`: array to fill
 * - `satellite_delivery`, `cabledelivery`: receive the descriptor
 * - `pcount`, `count`, `parray_count`: capacity of the array in elements on entry, number written
 * on return
 *
 * @par Memory
 * The client owns the arrays, counts and records that it passes.
 *
 * @par Threads and locks
 * As in orva_si/query_service.h: any thread, Ts_Ctl_Mutex is taken.
 */
#ifndef ORVA_SI_QUERY_NETWORK_H
#define ORVA_SI_QUERY_NETWORK_H

#include "orva_si/query_service.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An entry of a service_list_descriptor (0x41, clause 6.2.35). */
typedef struct SiServiceListEntry {
    uint16_t service_id;  /**< service_id */
    uint8_t service_type; /**< service_type, as in the service_descriptor (clause 6.2.33) */
} SiServiceListEntry;

/** A satellite_delivery_system_descriptor (0x43, clause 6.2.13.2). */
typedef struct SiSatelliteDelivery {
    uint16_t transport_stream_id; /**< of the transport stream that it describes */
    uint32_t frequency;           /**< 8 BCD digits, 10 kHz: 0x01175725 is 11.75725 GHz */
    uint16_t orbital_position;    /**< 4 BCD digits, 0.1 degree: 0x0192 is 19.2 degrees */
    uint8_t west_east_flag;       /**< 0 west, 1 east */
    uint8_t polarisation;         /**< 0 horizontal, 1 vertical, 2 left, 3 right circular */
    uint8_t modulation_system;    /**< 0 DVB-S, 1 DVB-S2 */
    uint8_t roll_off;             /**< DVB-S2: 0 for 0.35, 1 for 0.25, 2 for 0.20 */
    uint8_t modulation_type;      /**< 0 automatic, 1 QPSK, 2 8PSK, 3 16-QAM */
    uint32_t symbol_rate;         /**< 7 BCD digits, 100 symbols/s: 0x0275000 is 27.5 Msymbol/s */
    uint8_t FEC_inner;            /**< 4 bits: 1 for 1/2, 2 for 2/3, 3 for 3/4, 4 for 5/6 ... */
} SiSatelliteDelivery;

/** A cable_delivery_system_descriptor (0x44, clause 6.2.13.1). */
typedef struct SiCableDelivery {
    uint16_t transport_stream_id; /**< of the transport stream that it describes */
    uint32_t frequency;           /**< 8 BCD digits, 100 Hz: 0x03120000 is 312 MHz */
    uint8_t FEC_outer;            /**< 4 bits: 0 undefined, 1 none, 2 RS(204/188) */
    uint8_t modulation;           /**< 0 undefined, 1 16-QAM, 2 32, 3 64, 4 128, 5 256-QAM */
    uint32_t symbol_rate;         /**< 7 BCD digits, 100 symbols/s: 0x0068750 is 6.875 Msymbol/s */
    uint8_t FEC_inner;            /**< 4 bits, as for satellites; 15 none */
} SiCableDelivery;

/** A terrestrial_delivery_system_descriptor (0x5A, clause 6.2.13.4), fields as coded there. */
typedef struct SiTerrDelivery {
    uint16_t transport_stream_id;   /**< of the transport stream that it describes */
    uint32_t centre_frequency;      /**< binary, 10 Hz: 62600000 is 626 MHz */
    uint8_t bandwidth;              /**< 3 bits: 0 8 MHz, 1 7 MHz, 2 6 MHz, 3 5 MHz */
    uint8_t priority;               /**< 1 high priority stream, or no hierarchy; 0 low priority */
    uint8_t time_slicing_indicator; /**< 0 when a stream is time-sliced, 1 when none is */
    uint8_t mpe_fec_indicator;      /**< 0 when a stream uses MPE-FEC, 1 when none does */
    uint8_t constellation;          /**< 2 bits: 0 QPSK, 1 16-QAM, 2 64-QAM */
    uint8_t hierarchy_information;  /**< 3 bits */
    uint8_t code_rate_hp_stream;    /**< 3 bits: 0 1/2, 1 2/3, 2 3/4, 3 5/6, 4 7/8 */
    uint8_t code_rate_lp_stream;    /**< 3 bits, likewise */
    uint8_t guard_interval;         /**< 2 bits: 0 1/32, 1 1/16, 2 1/8, 3 1/4 */
    uint8_t transmission_mode;      /**< 2 bits: 0 2k, 1 8k, 2 4k */
    uint8_t other_frequency_flag;   /**< 1 when the stream is sent on other frequencies too */
} SiTerrDelivery;

/** A service of a NorDig logical channel descriptor version 2 (private 0x87). */
typedef struct SiNordigLcn {
    uint8_t visible_service_flag; /**< 1 to be shown in lists, 0 reached by its number only */
    uint16_t serv_id;             /**< service_id */
    uint16_t lcn;                 /**< logical_channel_number, 10 bits: asked for with lcn_mode 0 */
} SiNordigLcn;

/** A channel list of that descriptor. */
typedef struct SiNordigChanList {
    uint8_t channel_list_id; /**< channel_list_id */
    SiDvbString name;        /**< channel_list_name */
    char country_code[4];    /**< ISO 3166 code and a NUL */
} SiNordigChanList;

/** An entry of a logical_channel_descriptor (private 0x83) with its transport stream. */
typedef struct SiLcnInfo {
    uint16_t transport_stream_id; /**< transport_stream_id of the loop entry */
    uint16_t original_network_id; /**< original_network_id of the loop entry */
    uint16_t serv_id;             /**< service_id */
    uint8_t visible_service_flag; /**< 1 to be shown in lists, 0 reached by its number only */
    uint16_t lcn;                 /**< logical_channel_number, 10 or 14 bits by the LCN mode */
} SiLcnInfo;

/** An entry of a service_attribute_descriptor (private 0x86, DTG D-Book). */
typedef struct SiServAttr {
    uint16_t serv_id;               /**< service_id */
    uint8_t visible_service_flag;   /**< 1 to be shown in lists */
    uint8_t numeric_selection_flag; /**< 1 when the service may be chosen by its number */
} SiServAttr;

/**
 * @name Networks and their names
 * @{
 */

/**
 * The network_id of the NIT actual.
 *
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA without NIT actual; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetCurrentNetworkId(uint16_t *pnetworkid);

/**
 * The network_id of every stored NIT, actual and other, once for each table.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetNitAllNetworkList(uint16_t *list, uint32_t *pcount);

/**
 * The name of a network, from its network_name_descriptor (0x40, clause 6.2.27).
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no NIT names the network; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetNetworkName(uint32_t nid, SiDvbString *pnetworkname);

/**
 * The languages of the multilingual_network_name_descriptor (0x5B, clause 6.2.24), one number of
 * SiLanguageFunc for each entry.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetMultiNetworkNameLangList(uint32_t nid, uint32_t *langlist,
                                                         uint32_t *pcount);

/**
 * The name that this descriptor gives in a language.
 *
 * @param language_id  language wanted, as SiLanguageFunc numbers it
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetMultiNetworkNameByLangId(uint32_t nid, uint32_t language_id,
                                                         SiDvbString *pnetworkname);

/** @} */

/**
 * @name Transport streams and services
 * @{
 */

/**
 * The transport_stream_id of every transport stream of a network, in broadcast order.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetTsGrpByNetworkId(uint32_t nid, uint16_t *tsgrp, uint32_t *pcount);

/**
 * The services that the service_list_descriptors of a transport stream list.
 *
 * @return ORVA_SI_OK, also for an empty list; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceList(uint32_t nid, uint32_t ts, uint32_t onid,
                                            SiServiceListEntry *servlist, uint32_t *pcount);

/**
 * The service_type that such a list gives a service.
 *
 * @param service_id  of the service, low 16 bits
 * @param ptype       receives the 8 bits
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no list has the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceType_InNIT(uint32_t nid, uint32_t ts, uint32_t onid,
                                                  uint32_t service_id, uint8_t *ptype);

/** @} */

/**
 * @name Delivery
 * @{
 */

/**
 * The satellite delivery of every transport stream of a network that has one.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSatelliteDeliveryList(uint32_t nid,
                                                      SiSatelliteDelivery *satellite_delivery_list,
                                                      uint32_t *pcount);

/**
 * The satellite delivery of one transport stream.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSatelliteDeliveryDescriptor(
    uint32_t nid, uint32_t ts, SiSatelliteDelivery *satellite_delivery);

/** As Orva_Si_GetSatelliteDeliveryList, for cable. */
ORVA_SI_API uint32_t Orva_Si_GetCableDeliveryList(uint32_t nid, SiCableDelivery *cabledelivery_list,
                                                  uint32_t *pcount);

/** As Orva_Si_GetSatelliteDeliveryDescriptor, for cable. */
ORVA_SI_API uint32_t Orva_Si_GetCableDeliveryDescriptor(uint32_t nid, uint32_t ts,
                                                        SiCableDelivery *cabledelivery);

/** As Orva_Si_GetSatelliteDeliveryList, for terrestrial transmission (DVB-T). The delivery of
 * DVB-T2, S2X and C2 (descriptors with tag 0x7F) has no question: it is in the raw NIT. */
ORVA_SI_API uint32_t Orva_Si_GetTerrDeliveryList(uint32_t nid, SiTerrDelivery *terrdelivery_list,
                                                 uint32_t *pcount);

/**
 * The frequencies of the frequency_list_descriptor (0x62, clause 6.2.17) of a transport stream.
 * They are coded as in the delivery descriptor of the stream's kind; the coding_type is not told.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetFrequencyListDescriptor(uint32_t nid, uint32_t ts,
                                                        uint32_t *freq_list, uint32_t *pcount);

/** @} */

/**
 * @name Logical channel numbers and other private descriptors
 * @par Arguments
 * - `lcn_mode`: 0 takes the low 10 bits of a logical_channel_number, as EACEM (specifier 0x28) and
 * NorDig's version 2 code it, 1 the low 14 of NorDig's version 1 (0x83 under specifier 0x29); any
 * other leaves lcn unwritten
 * @{
 */

/**
 * The services of a channel list of the NorDig logical channel descriptor version 2 (private 0x87)
 * of a transport stream.
 *
 * @param channel_list_id  the list wanted, 8 bits
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetNordigV2LCNInfo(uint32_t nid, uint32_t ts, uint32_t onid,
                                                uint32_t pdsd, uint32_t channel_list_id,
                                                uint32_t lcn_mode, SiNordigLcn *pinfo,
                                                uint32_t *count);

/**
 * The channel lists of that descriptor.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetNordigV2ChanlList(uint32_t nid, uint32_t ts, uint32_t onid,
                                                  uint32_t pdsd, SiNordigChanList *pchnlist,
                                                  uint32_t *pcount);

/**
 * The private_data_specifiers under which a transport stream carries logical_channel_descriptors
 * (private 0x83): each specifier other than 0 that such a descriptor follows, once for each time it
 * is given.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetLCNPdsdList(uint32_t nid, uint32_t ts, uint32_t onid,
                                            uint32_t *pdsdlist, uint32_t *pcount);

/**
 * The entries of all logical_channel_descriptors (private 0x83) of a network. Descriptors that
 * stand under no specifier at all are not seen.
 *
 * @param pdsd      private_data_specifier, 32 bits; 0 takes any specifier other than 0
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetAllLCNInfo(uint32_t nid, uint32_t pdsd, uint32_t lcn_mode,
                                           SiLcnInfo *pinfo, uint32_t *pcount);

/**
 * The entries of the service_attribute_descriptors (private 0x86) of a transport stream.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetDBookServAttDesc(uint32_t nid, uint32_t ts, uint32_t onid,
                                                 uint32_t pdsd, SiServAttr *servattarray,
                                                 uint32_t *pcount);

/** @} */

/**
 * @name Target regions
 * Lists: judge by the count, the result is ORVA_SI_FAILURE whether entries were written or not.
 * Counts: what the count holds on entry does not matter, 0 is an answer too.
 * @{
 */

/**
 * The regions of the target_region_descriptors in a network's first loop.
 *
 * @return ORVA_SI_FAILURE; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetGlobalTargetRegionInfo(uint32_t nid, SiTargetRegion *region_array,
                                                       uint32_t *parray_count);

/**
 * How many records Orva_Si_GetGlobalTargetRegionInfo has to offer.
 *
 * @param parray_count  receives the number
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetGlobalTargetRegionInfoCount(uint32_t nid, uint32_t *parray_count);

/** As Orva_Si_GetGlobalTargetRegionInfo, in the loop of one transport stream. */
ORVA_SI_API uint32_t Orva_Si_GetTsTargetRegionInfo(uint32_t nid, uint32_t ts, uint32_t onid,
                                                   SiTargetRegion *region_array,
                                                   uint32_t *parray_count);

/**
 * How many records Orva_Si_GetTsTargetRegionInfo has to offer.
 *
 * @param parray_count  receives the number
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetTsTargetRegionInfoCount(uint32_t nid, uint32_t ts, uint32_t onid,
                                                        uint32_t *parray_count);

/**
 * The region names of a network's target_region_name_descriptors (0x7F with extension 0x0A, clause
 * 6.4), without their codes and languages.
 *
 * @return ORVA_SI_FAILURE; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetTargetRegionName(uint32_t nid, SiDvbString *region_name_array,
                                                 uint32_t *parray_count);

/**
 * How many names Orva_Si_GetTargetRegionName has to offer.
 *
 * @param parray_count  receives the number
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetTargetRegionNameCount(uint32_t nid, uint32_t *parray_count);

/** @} */

/**
 * @name Linkage and software update
 * @{
 */

/**
 * Where a network's linkage_descriptors (0x4A, clause 6.2.19) lead: those of the first loop, then
 * those of each transport stream.
 *
 * @param linkage_type  the type wanted, 8 bits; 0 for all
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetNitLinkageDesc(uint32_t nid, uint32_t linkage_type,
                                               SiLinkage *lkgrpcserv, uint32_t *pcount);

/**
 * The selector bytes of the first OUI entry of a network's system software update linkage
 * (linkage_type 0x09, ETSI TS 102 006).
 *
 * @param selector_bytes   receives the bytes, 243 at most
 * @param selector_length  capacity of selector_bytes, then the length
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_ARRAY_FULL when *selector_length
 * is too small; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSsuNitLinkageDescSelector(uint32_t nid, uint8_t *selector_bytes,
                                                          uint32_t *selector_length);

/**
 * The service_id of the first system software update linkage of any stored NIT.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSsuNitLinkageServiceId(uint16_t *ser_id);

/**
 * The elementary_PIDs of the streams of that service that carry a data_broadcast_id_descriptor
 * (0x66), read from its PMT.
 *
 * @param service_id  the program_number of the PMT, low 16 bits
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSsuPidsByNitLinkage(uint32_t service_id, uint16_t *pids,
                                                    uint32_t *pcount);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
