/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_READINESS_H
#define ORVA_SI_READINESS_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * Which tables may be filtered, whether the client still wants acquisition, which kinds of table a
 * multiplex carries and which of them are complete. Flags and words that any thread reads without a
 * lock, unless said otherwise. Functions answer ORVA_SI_OK where nothing else is said.
 */

/** Allows PAT, CAT, PMT, NIT, SDT and BAT, out of scan mode also TDT and TOT; forbids all else. */
ORVA_SI_API uint32_t Si_CtlHelper_SetTableEnableFlag(void);
/** Forbids every kind of table. */
ORVA_SI_API uint32_t Si_CtlHelper_ResetTableEnableFlag(void);

/* Allow or forbid one kind; only the low byte of the argument counts: 0 forbids. */
ORVA_SI_API uint32_t Si_CtlHelper_SetActPfEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherPfEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetActSchEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherSchEitEnableFlag(uint32_t on);
ORVA_SI_API uint32_t Si_CtlHelper_SetDSMCCEnableFlag(uint32_t on);

/** @return 1 when PAT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsPatEnabled(void);
/** @return 1 when CAT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsCatEnabled(void);
/** @return 1 when PMT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsPmtEnabled(void);
/** @return 1 when NIT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsNitEnabled(void);
/** @return 1 when SDT and BAT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsSdtBatEnabled(void);
/** @return 1 when TDT and TOT may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsTdtTotEnabled(void);
/** @return 1 when present/following of the tuned multiplex may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsActPfEitEnabled(void);
/** @return 1 when present/following of other multiplexes may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherPfEitEnabled(void);
/** @return 1 when schedules of the tuned multiplex may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsActSchEitEnabled(void);
/** @return 1 when schedules of other multiplexes may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherSchEitEnabled(void);
/** @return 1 when DSM-CC may be filtered, else 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsDSMCCEnabled(void);

/** The client wants acquisition; also clears the TS semaphore flag. Called by every start. */
ORVA_SI_API uint32_t Orva_Si_SetCtlFlag(void);
/** The client wants no more: waits of a scan end, sections are dropped. Called by every stop and by
 * a cancel. */
ORVA_SI_API uint32_t Orva_Si_ResetCtlFlag(void);
/** @return 1 while the client wants acquisition, else 0 */
ORVA_SI_API uint32_t Orva_Si_GetCtlFlag(void);
/** @return 0 while the client wants acquisition, else 1 */
ORVA_SI_API uint32_t Orva_Si_IsCancel(void);

/** @return 1 when a NIT actual was met since the last change of multiplex, else 0 */
ORVA_SI_API uint32_t Orva_Si_IsDetectActNIT(void);
/** @return 1 when an SDT actual was met since the last change of multiplex, else 0 */
ORVA_SI_API uint32_t Orva_Si_IsDetectActSDT(void);
/** @return 1 when any table was met, or acquisition was cancelled, else 0 */
ORVA_SI_API uint32_t Orva_Si_IsGotSection(void);
/** Closes the set of detected kinds: one that is met later is not waited for. */
ORVA_SI_API uint32_t Orva_Si_SetDetectReady(void);
/** Forgets what was detected and complete, and the transport streams of the network. */
ORVA_SI_API uint32_t Orva_Si_ResetScanFlag(void);
/** Forgets the transport streams of the network. */
ORVA_SI_API uint32_t Orva_Si_ResetTsList(void);

/* A mark that starts clear and that the library itself never sets. */
ORVA_SI_API uint32_t Orva_Si_SetTsSemFlag(void);
ORVA_SI_API uint32_t Orva_Si_ResetTsSemFlag(void);
ORVA_SI_API uint32_t Orva_Si_GetTsSemFlag(void);

/**
 * Marks the kind of a received section as detected, unless the set is closed. BAT and CAT are never
 * marked, so they never hold up a scan. Section thread.
 */
ORVA_SI_API uint32_t Orva_Si_SetDetectBit(uint16_t pid, uint8_t table_id);
/** Marks the kind of a table as complete. Section thread, with Ts_Ctl_Mutex held. */
ORVA_SI_API uint32_t Orva_Si_SetReadyBit(uint16_t pid, uint8_t table_id);
/**
 * @return 1 when the set of kinds is closed and all detected kinds but PMT and SDT other are
 * complete, or when acquisition was cancelled; else 0
 */
ORVA_SI_API uint32_t Orva_Si_DoAllTablesReady(void);
/**
 * Books a table that became complete during a scan: sets its ready bit; reads the transport streams
 * of the network when it is the NIT actual.
 *
 * @param extension  table_id_extension
 *
 * Section thread, with Ts_Ctl_Mutex held; the lock is given up while the network is queried.
 */
ORVA_SI_API uint32_t Orva_Si_CommScanCase(uint16_t pid, uint8_t table_id, uint16_t extension);
/**
 * Reads the transport streams of a network, once until Orva_Si_ResetTsList; at most 30.
 *
 * @param network_id  low 16 bits
 * @return ORVA_SI_OK, also when they were read before; else the result of
 * Orva_Si_GetTsGrpByNetworkId
 *
 * Takes Ts_Ctl_Mutex: call it without.
 */
ORVA_SI_API uint32_t Orva_Si_RetrieveTsList(uint32_t network_id);
/**
 * Marks SDT other as complete when every transport stream that the NIT actual lists has an SDT in
 * the store, complete or not. Ts_Ctl_Mutex held.
 */
ORVA_SI_API uint32_t Orva_Si_SetSdtOthReadyFlag(void);
/** Clears six marks of the section store that nothing sets. */
ORVA_SI_API uint32_t Orva_Si_ResetTblFinishFlag(void);

#ifdef __cplusplus
}
#endif

#endif
