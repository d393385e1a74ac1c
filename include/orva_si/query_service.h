/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_SERVICE_H
#define ORVA_SI_QUERY_SERVICE_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiMultiServiceName {
    uint8_t reserved;
    char lang[4];
    SiDvbString provider_name;
    SiDvbString service_name;
} SiMultiServiceName;

typedef struct SiServAvail {
    uint8_t avail_flag;
    uint16_t cell_id;
} SiServAvail;

typedef struct SiDataBroadcastDesc {
    uint16_t data_broadcast_id;
    uint8_t component_tag;
    uint8_t selector_length;
    char lang[4];
} SiDataBroadcastDesc;

typedef struct SiTargetRegion {
    char country_code[4];
    uint8_t has_region_country;
    char region_country_code[4];
    uint8_t region_depth;
    uint32_t region_code;
} SiTargetRegion;

typedef struct SiLinkage {
    uint16_t transport_stream_id;
    uint16_t original_network_id;
    uint16_t service_id;
    uint8_t linkage_type;
} SiLinkage;

typedef struct SiServiceMove {
    uint16_t new_original_network_id;
    uint16_t new_transport_stream_id;
    uint16_t new_service_id;
} SiServiceMove;

ORVA_SI_API uint32_t Orva_Si_GetServiceName(uint32_t sid, SiDvbString *pname);
ORVA_SI_API uint32_t Orva_Si_GetServName(uint32_t ts, uint32_t sid, SiDvbString *pname);
ORVA_SI_API uint32_t Orva_Si_GetServiceType(uint32_t sid, uint8_t *ptype);
ORVA_SI_API uint32_t Orva_Si_GetServType(uint32_t ts, uint32_t sid, uint8_t *ptype);
ORVA_SI_API uint32_t Orva_Si_GetServiceEncrypted(uint32_t sid, uint8_t *pencrypted);
ORVA_SI_API uint32_t Orva_Si_GetServEncrypted(uint32_t ts, uint32_t sid, uint8_t *pencrypted);
ORVA_SI_API uint32_t Orva_Si_GetFreeCaMode(uint32_t sid, uint8_t *free_ca_mode);
ORVA_SI_API uint32_t Orva_Si_GetServFreeCaMode(uint32_t ts, uint32_t sid, uint8_t *free_ca_mode);
ORVA_SI_API uint32_t Orva_Si_GetRunningStatus(uint32_t sid, uint8_t *running_status);
ORVA_SI_API uint32_t Orva_Si_GetServRunningStatus(uint32_t ts, uint32_t sid, uint8_t *running_status);
ORVA_SI_API uint32_t Orva_Si_GetEitSchedFlag(uint32_t sid, uint8_t *eit_schedule_flag);
ORVA_SI_API uint32_t Orva_Si_GetServEitSchedFlag(uint32_t ts, uint32_t sid, uint8_t *eit_schedule_flag);
ORVA_SI_API uint32_t Orva_Si_GetEitPfFlag(uint32_t sid, uint8_t *eit_pf_flag);
ORVA_SI_API uint32_t Orva_Si_GetServEitPfFlag(uint32_t ts, uint32_t sid, uint8_t *eit_pf_flag);
ORVA_SI_API uint32_t Orva_Si_GetActTsId(uint16_t *ptsid);
ORVA_SI_API uint32_t Orva_Si_GetActOnitId(uint16_t *ponit);
ORVA_SI_API uint32_t Orva_Si_GetOnitId(uint32_t ts, uint16_t *ponit);
ORVA_SI_API uint32_t Orva_Si_GetActServIdList(uint16_t *servlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetServIdList(uint32_t ts, uint16_t *servlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSdtAllTsList(uint16_t *list, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetMultiServiceNames(uint32_t sid, SiMultiServiceName *servnames, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetMultiServNames(uint32_t ts, uint32_t sid, SiMultiServiceName *servnames, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetServAvailList(uint32_t ts, uint32_t sid, SiServAvail *availlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSdtDataBroadCastDesc(uint32_t sid, SiDataBroadcastDesc *databroadcastdesc, uint32_t *psum);
ORVA_SI_API uint32_t Orva_Si_GetServDataBroadCastDesc(uint32_t ts, uint32_t sid, SiDataBroadcastDesc *databroadcastdesc, uint32_t *psum);
ORVA_SI_API uint32_t Orva_Si_GetServiceMoveDesc(uint32_t sid, SiServiceMove *servicemove);
ORVA_SI_API uint32_t Orva_Si_GetServMoveDesc(uint32_t ts, uint32_t sid, SiServiceMove *servicemove);
ORVA_SI_API uint32_t Orva_Si_GetLinkageDesc(uint32_t sid, SiLinkage *lkgrpcserv);
ORVA_SI_API uint32_t Orva_Si_GetServLinkageDesc(uint32_t ts, uint32_t sid, SiLinkage *lkgrpcserv);
ORVA_SI_API uint32_t Orva_Si_GetShortServiceName(uint32_t sid, uint32_t pdsd, SiDvbString *pname);
ORVA_SI_API uint32_t Orva_Si_GetSdtTargetRegionInfo(uint32_t ts, uint32_t sid, SiTargetRegion *region_array, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetSdtTargetRegionInfoCount(uint32_t ts, uint32_t sid, uint32_t *parray_count);
ORVA_SI_API uint32_t Orva_Si_GetServCIProtDescData(uint32_t ts, uint32_t sid, uint32_t pdsd, uint8_t *data, uint32_t *plen);
ORVA_SI_API uint32_t Orva_Si_GetPfNameByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t language_id, SiDvbString *pPfName, uint32_t name_id);
ORVA_SI_API uint32_t Orva_Si_GetPfNameLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t *langidlist, uint32_t *pcount);

#ifdef __cplusplus
}
#endif

#endif
