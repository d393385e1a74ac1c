/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_PROGRAM_H
#define ORVA_SI_QUERY_PROGRAM_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiAudioPid {
    uint16_t pid;
    uint8_t has_lang;
    uint8_t is_ac3;
} SiAudioPid;

typedef struct SiCaDesc {
    uint16_t reserved1;
    uint16_t reserved2;
    uint16_t ca_system_id;
    uint16_t ca_pid;
} SiCaDesc;

typedef struct SiIso639Desc {
    uint16_t pid;
    char iso639[4];
    uint8_t audio_type;
} SiIso639Desc;

typedef struct SiTeletextDesc {
    uint16_t pid;
    char lang[4];
    uint8_t type;
    uint8_t magazine_number;
    uint8_t page_number;
} SiTeletextDesc;

typedef struct SiSubtitleDesc {
    uint16_t pid;
    char lang[4];
    uint8_t subtitling_type;
    uint16_t composition_page_id;
    uint16_t ancillary_page_id;
} SiSubtitleDesc;

ORVA_SI_API uint32_t Si_Pat_ParsePmtPidList(SiTable *ptbl, SiPmtPidList *pmt_pid_list);
ORVA_SI_API uint32_t Orva_Si_GetPatTsId(uint16_t *ptsid);
ORVA_SI_API uint32_t Orva_Si_GetPmtData(uint32_t program_number, uint8_t *data, uint32_t *plen);
ORVA_SI_API uint32_t Orva_Si_GetPmtDataByPID(uint32_t pid, uint8_t *data, uint32_t *plen);
ORVA_SI_API uint32_t Orva_Si_GetCiData(uint32_t program_number, uint8_t *data, uint32_t *plen);
ORVA_SI_API uint32_t Orva_Si_IsFoundSsService(uint32_t program_number);
ORVA_SI_API uint32_t Orva_Si_GetPcrPID(uint32_t program_number, uint16_t *pid);
ORVA_SI_API uint32_t Orva_Si_GetVideoPID(uint32_t program_number, uint16_t *pid);
ORVA_SI_API uint32_t Orva_Si_GetAudioPIDs(uint32_t program_number, SiAudioPid *audiopid, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetAudioIso639Desc(uint32_t program_number, SiIso639Desc *isodesc, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetAllPids(uint32_t program_number, uint16_t *pids, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetTeleTextPids(uint32_t program_number, uint16_t *pid, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetTeleTextDesc(uint32_t program_number, uint32_t es_pid, SiTeletextDesc *textlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSubtitlePids(uint32_t program_number, uint16_t *pid, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSubtitleDesc(uint32_t program_number, uint32_t es_pid, SiSubtitleDesc *subarray, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetPmtCaDesc(uint32_t program_number, SiCaDesc *cadesclist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSsuDataBroadCastDescSelector(uint32_t program_number, uint8_t *selector_bytes, uint32_t *selector_length);
ORVA_SI_API uint32_t Orva_Si_GetSsuPidsByPmtDataBroadCast(uint16_t *pids, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetSoftwareUpatePIDs(uint32_t program_number, uint16_t *pidarray, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetDataBroadcastDescPrivData(uint32_t program_number, uint8_t *priv_buf, uint32_t *plen);
ORVA_SI_API uint32_t Orva_Si_GetDataBroadCounts(uint32_t program_number);

#ifdef __cplusplus
}
#endif

#endif
