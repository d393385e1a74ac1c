/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_NETWORK_H
#define ORVA_SI_QUERY_NETWORK_H

#include "orva_si/query_service.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiServiceListEntry {
    uint16_t service_id;
    uint8_t service_type;
} SiServiceListEntry;

typedef struct SiSatelliteDelivery {
    uint16_t transport_stream_id;
    uint32_t frequency;
    uint16_t orbital_position;
    uint8_t west_east_flag;
    uint8_t polarisation;
    uint8_t modulation_system;
    uint8_t roll_off;
    uint8_t modulation_type;
    uint32_t symbol_rate;
    uint8_t FEC_inner;
} SiSatelliteDelivery;

typedef struct SiCableDelivery {
    uint16_t transport_stream_id;
    uint32_t frequency;
    uint8_t FEC_outer;
    uint8_t modulation;
    uint32_t symbol_rate;
    uint8_t FEC_inner;
} SiCableDelivery;

typedef struct SiTerrDelivery {
    uint16_t transport_stream_id;
    uint32_t centre_frequency;
    uint8_t bandwidth;
    uint8_t priority;
    uint8_t time_slicing_indicator;
    uint8_t mpe_fec_indicator;
    uint8_t constellation;
    uint8_t hierarchy_information;
    uint8_t code_rate_hp_stream;
    uint8_t code_rate_lp_stream;
    uint8_t guard_interval;
    uint8_t transmission_mode;
    uint8_t other_frequency_flag;
} SiTerrDelivery;

typedef struct SiNordigLcn {
    uint8_t visible_service_flag;
    uint16_t serv_id;
    uint16_t lcn;
} SiNordigLcn;

typedef struct SiNordigChanList {
    uint8_t channel_list_id;
    SiDvbString name;
    char country_code[4];
} SiNordigChanList;

typedef struct SiLcnInfo {
    uint16_t transport_stream_id;
    uint16_t original_network_id;
    uint16_t serv_id;
    uint8_t visible_service_flag;
    uint16_t lcn;
} SiLcnInfo;

typedef struct SiServAttr {
    uint16_t serv_id;
    uint8_t visible_service_flag;
    uint8_t numeric_selection_flag;
} SiServAttr;

ORVA_SI_API uint32_t Orva_Si_GetCurrentNetworkId(uint16_t *pnetworkid);
ORVA_SI_API uint32_t Orva_Si_GetNitAllNetworkList(uint16_t *list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetNetworkName(uint32_t nid, SiDvbString *pnetworkname);
ORVA_SI_API uint32_t Orva_Si_GetMultiNetworkNameLangList(uint32_t nid, uint32_t *langlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetMultiNetworkNameByLangId(uint32_t nid, uint32_t language_id, SiDvbString *pnetworkname);
ORVA_SI_API uint32_t Orva_Si_GetTsGrpByNetworkId(uint32_t nid, uint16_t *tsgrp, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetServiceList(uint32_t nid, uint32_t ts, uint32_t onid, SiServiceListEntry *servlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetServiceType_InNIT(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t service_id, uint8_t *ptype);
ORVA_SI_API uint32_t Orva_Si_GetSatelliteDeliveryList(uint32_t nid, SiSatelliteDelivery *satellite_delivery_list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSatelliteDeliveryDescriptor(uint32_t nid, uint32_t ts, SiSatelliteDelivery *satellite_delivery);
ORVA_SI_API uint32_t Orva_Si_GetCableDeliveryList(uint32_t nid, SiCableDelivery *cabledelivery_list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetCableDeliveryDescriptor(uint32_t nid, uint32_t ts, SiCableDelivery *cabledelivery);
ORVA_SI_API uint32_t Orva_Si_GetTerrDeliveryList(uint32_t nid, SiTerrDelivery *terrdelivery_list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetFrequencyListDescriptor(uint32_t nid, uint32_t ts, uint32_t *freq_list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetNordigV2LCNInfo(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd, uint32_t channel_list_id, uint32_t lcn_mode, SiNordigLcn *pinfo, uint32_t *count);
ORVA_SI_API uint32_t Orva_Si_GetNordigV2ChanlList(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd, SiNordigChanList *pchnlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetLCNPdsdList(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t *pdsdlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetAllLCNInfo(uint32_t nid, uint32_t pdsd, uint32_t lcn_mode, SiLcnInfo *pinfo, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetDBookServAttDesc(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd, SiServAttr *servattarray, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetGlobalTargetRegionInfo(uint32_t nid, SiTargetRegion *region_array, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetGlobalTargetRegionInfoCount(uint32_t nid, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetTsTargetRegionInfo(uint32_t nid, uint32_t ts, uint32_t onid, SiTargetRegion *region_array, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetTsTargetRegionInfoCount(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetTargetRegionName(uint32_t nid, SiDvbString *region_name_array, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetTargetRegionNameCount(uint32_t nid, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetNitLinkageDesc(uint32_t nid, uint32_t linkage_type, SiLinkage *lkgrpcserv, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSsuNitLinkageDescSelector(uint32_t nid, uint8_t *selector_bytes, uint32_t *selector_length);
ORVA_SI_API uint32_t Orva_Si_GetSsuNitLinkageServiceId(uint16_t *ser_id);
ORVA_SI_API uint32_t Orva_Si_GetSsuPidsByNitLinkage(uint32_t service_id, uint16_t *pids, uint32_t *pcount);

#ifdef __cplusplus
}
#endif

#endif
