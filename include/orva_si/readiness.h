/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_READINESS_H
#define ORVA_SI_READINESS_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

ORVA_SI_API uint32_t Si_CtlHelper_SetTableEnableFlag(void);
ORVA_SI_API uint32_t Si_CtlHelper_ResetTableEnableFlag(void);
ORVA_SI_API uint32_t Si_CtlHelper_SetActPfEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherPfEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetActSchEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherSchEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetDSMCCEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_IsPatEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsCatEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsPmtEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsNitEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsSdtBatEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsTdtTotEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsActPfEitEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherPfEitEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsActSchEitEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherSchEitEnabled(void);
ORVA_SI_API uint32_t Si_CtlHelper_IsDSMCCEnabled(void);
ORVA_SI_API uint32_t Orva_Si_SetCtlFlag(void);
ORVA_SI_API uint32_t Orva_Si_ResetCtlFlag(void);
ORVA_SI_API uint32_t Orva_Si_GetCtlFlag(void);
ORVA_SI_API uint32_t Orva_Si_IsCancel(void);
ORVA_SI_API uint32_t Orva_Si_IsDetectActNIT(void);
ORVA_SI_API uint32_t Orva_Si_IsDetectActSDT(void);
ORVA_SI_API uint32_t Orva_Si_IsGotSection(void);
ORVA_SI_API uint32_t Orva_Si_SetDetectReady(void);
ORVA_SI_API uint32_t Orva_Si_ResetScanFlag(void);
ORVA_SI_API uint32_t Orva_Si_ResetTsList(void);
ORVA_SI_API uint32_t Orva_Si_SetTsSemFlag(void);
ORVA_SI_API uint32_t Orva_Si_ResetTsSemFlag(void);
ORVA_SI_API uint32_t Orva_Si_GetTsSemFlag(void);
ORVA_SI_API uint32_t Orva_Si_SetDetectBit(uint16_t pid, uint8_t table_id);
ORVA_SI_API uint32_t Orva_Si_SetReadyBit(uint16_t pid, uint8_t table_id);
ORVA_SI_API uint32_t Orva_Si_DoAllTablesReady(void);
ORVA_SI_API uint32_t Orva_Si_CommScanCase(uint16_t pid, uint8_t table_id, uint16_t extension);
ORVA_SI_API uint32_t Orva_Si_RetrieveTsList(uint32_t network_id);
ORVA_SI_API uint32_t Orva_Si_SetSdtOthReadyFlag(void);
ORVA_SI_API uint32_t Orva_Si_ResetTblFinishFlag(void);

#ifdef __cplusplus
}
#endif

#endif
