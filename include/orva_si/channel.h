/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_CHANNEL_H
#define ORVA_SI_CHANNEL_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiTuneParam {
    uint32_t frequency;
    uint32_t reserved1;
    uint32_t reserved2;
    uint16_t program_number;
} SiTuneParam;

typedef struct SiScanParam {
    uint16_t wait_time;
    uint16_t network_id;
    uint32_t network_mode;
    uint8_t nit_selector;
} SiScanParam;

typedef struct SiEitRequest {
    uint16_t transport_stream_id;
    uint16_t original_network_id;
    uint16_t service_id;
} SiEitRequest;

ORVA_SI_API uint32_t Orva_Si_StartChannel(const SiTuneParam *ptune);
ORVA_SI_API uint32_t Orva_Si_StopChannel(void);
ORVA_SI_API uint32_t Orva_Si_StartScanChannel(void);
ORVA_SI_API uint32_t Si_Ctl_StartScanChannel(void);
ORVA_SI_API uint32_t Orva_Si_StopScanChannel(void);
ORVA_SI_API uint32_t Orva_Si_CancelScanChannel(void);
ORVA_SI_API uint32_t Orva_Si_SetScanParam(const SiScanParam *pScanParam);
ORVA_SI_API uint32_t Orva_Si_SetScanTime(uint16_t seconds);
ORVA_SI_API uint32_t Orva_Si_IsScanMode(void);
ORVA_SI_API uint32_t Si_Ctl_GetTunningProgNo(void);
ORVA_SI_API uint32_t Orva_Si_ResetRunningStatus(uint32_t frequency, uint32_t program_number);
ORVA_SI_API uint32_t Orva_Si_NotifyTableStatus(uint16_t pid, uint8_t table_id, uint16_t extension);
ORVA_SI_API uint32_t Orva_Si_CommTunningCase(uint16_t pid, uint8_t table_id, uint16_t extension);
ORVA_SI_API uint32_t Orva_Si_StartActualPFEIT(uint32_t id1, uint32_t id2, uint32_t cur_sid, const uint16_t *list, uint32_t count);
ORVA_SI_API uint32_t Orva_Si_StartCurrentPFEIT(uint32_t id1, uint32_t id2, uint32_t service_id);
ORVA_SI_API uint32_t Orva_Si_StartActualScheduleEIT(uint32_t id1, uint32_t id2, uint32_t id3, const uint16_t *list, uint32_t count);
ORVA_SI_API uint32_t Orva_Si_StartOtherPFEIT(const SiEitRequest *list, uint32_t count);
ORVA_SI_API uint32_t Orva_Si_StartOtherSchedulEIT(const SiEitRequest *list, uint32_t second);
ORVA_SI_API uint32_t Orva_Si_StopActualPFEIT(void);
ORVA_SI_API uint32_t Orva_Si_StopOtherPFEIT(void);
ORVA_SI_API uint32_t Orva_Si_StopActualScheduleEIT(void);
ORVA_SI_API uint32_t Orva_Si_StopOtherScheduleEIT(void);
ORVA_SI_API uint32_t Orva_Si_StopAllEIT(void);

#ifdef __cplusplus
}
#endif

#endif
