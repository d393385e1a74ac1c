/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Which tables may be filtered, whether the client still wants acquisition, which kinds of table a
 * multiplex carries and which of them are complete.
 *
 * The library itself sets all of this when acquisition starts and stops and as sections come; a
 * client reads it.
 *
 * @par Arguments
 * - `on`: not 0 in its low byte allows, 0 forbids
 * - `pid`, `table_id`, `extension`: PID, table_id and table_id_extension of the table
 *
 * @par Results
 * ORVA_SI_OK, where nothing else is said.
 *
 * @par Threads and locks
 * Flags and words that any thread reads and writes without a lock, unless said otherwise.
 */
#ifndef ORVA_SI_READINESS_H
#define ORVA_SI_READINESS_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Which tables may be filtered
 * @{
 */

/** Allows PAT, CAT, PMT, NIT, SDT and BAT, out of scan mode also TDT and TOT; forbids all else. */
ORVA_SI_API uint32_t Si_CtlHelper_SetTableEnableFlag(void);
/** Forbids every kind of table. */
ORVA_SI_API uint32_t Si_CtlHelper_ResetTableEnableFlag(void);

/** Allows or forbids present/following events of the tuned multiplex. */
ORVA_SI_API uint32_t Si_CtlHelper_SetActPfEitEnableFlag(uint32_t on);
/** Allows or forbids present/following events of other multiplexes. */
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherPfEitEnableFlag(uint32_t on);
/** Allows or forbids schedules of the tuned multiplex. */
ORVA_SI_API uint32_t Si_CtlHelper_SetActSchEitEnableFlag(uint32_t on);
/** Allows or forbids schedules of other multiplexes. */
ORVA_SI_API uint32_t Si_CtlHelper_SetOtherSchEitEnableFlag(uint32_t on);
/** Allows or forbids DSM-CC sections. */
ORVA_SI_API uint32_t Si_CtlHelper_SetDSMCCEnableFlag(uint32_t on);

/** Tells whether PAT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsPatEnabled(void);
/** Tells whether CAT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsCatEnabled(void);
/** Tells whether PMT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsPmtEnabled(void);
/** Tells whether NIT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsNitEnabled(void);
/** Tells whether SDT and BAT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsSdtBatEnabled(void);
/** Tells whether TDT and TOT may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsTdtTotEnabled(void);
/** Tells whether present/following of the tuned multiplex may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsActPfEitEnabled(void);
/** Tells whether present/following of other multiplexes may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherPfEitEnabled(void);
/** Tells whether schedules of the tuned multiplex may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsActSchEitEnabled(void);
/** Tells whether schedules of other multiplexes may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsOtherSchEitEnabled(void);
/** Tells whether DSM-CC may be filtered. @return 1 or 0 */
ORVA_SI_API uint32_t Si_CtlHelper_IsDSMCCEnabled(void);

/** @} */

/**
 * @name Whether the client wants acquisition
 * @{
 */

/** The client wants acquisition; also clears the TS semaphore flag. Called by every start. */
ORVA_SI_API uint32_t Orva_Si_SetCtlFlag(void);
/** The client wants no more: waits of a scan end, sections are dropped. Called by every stop and by
 * a cancel. */
ORVA_SI_API uint32_t Orva_Si_ResetCtlFlag(void);
/** Tells whether the client wants acquisition. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_GetCtlFlag(void);
/** Tells the contrary. @return 0 while the client wants acquisition, else 1 */
ORVA_SI_API uint32_t Orva_Si_IsCancel(void);

/** @} */

/**
 * @name Which kinds of table a multiplex carries
 * @{
 */

/** Tells whether a NIT actual was met since the last change of multiplex. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_IsDetectActNIT(void);
/** Tells whether an SDT actual was met since the last change of multiplex. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_IsDetectActSDT(void);
/** Tells whether any table was met, or acquisition was cancelled. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_IsGotSection(void);
/** Closes the set of detected kinds: one that is met later is not waited for. */
ORVA_SI_API uint32_t Orva_Si_SetDetectReady(void);
/** Forgets what was detected and complete, and the transport streams of the network. */
ORVA_SI_API uint32_t Orva_Si_ResetScanFlag(void);
/** Forgets the transport streams of the network. */
ORVA_SI_API uint32_t Orva_Si_ResetTsList(void);

/** Sets the TS semaphore flag: a mark of the client's own, which the library only clears. */
ORVA_SI_API uint32_t Orva_Si_SetTsSemFlag(void);
/** Clears that flag; every start does so too. */
ORVA_SI_API uint32_t Orva_Si_ResetTsSemFlag(void);
/** Tells whether that flag is set. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_GetTsSemFlag(void);

/**
 * Marks the kind of a received section as detected, unless the set is closed. BAT and CAT are never
 * marked, so they never hold up a scan. Section thread.
 */
ORVA_SI_API uint32_t Orva_Si_SetDetectBit(uint16_t pid, uint8_t table_id);

/** @} */

/**
 * @name Which kinds of table are complete
 * @{
 */

/** Marks the kind of a table as complete. Section thread, with Ts_Ctl_Mutex held. */
ORVA_SI_API uint32_t Orva_Si_SetReadyBit(uint16_t pid, uint8_t table_id);
/**
 * Tells whether a scan has all that it waits for.
 *
 * @return 1 when the set of kinds is closed and all detected kinds but PMT and SDT other are
 * complete, or when acquisition was cancelled; else 0
 */
ORVA_SI_API uint32_t Orva_Si_DoAllTablesReady(void);
/**
 * Books a table that became complete during a scan: sets its ready bit; reads the transport streams
 * of the network when it is the NIT actual.
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

/** @} */

#ifdef __cplusplus
}
#endif

#endif
