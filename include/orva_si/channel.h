/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Channel, scan and event acquisition.
 *
 * @par Arguments
 * - `id1`: transport_stream_id to match, low 16 bits; 0xFFFF for any
 * - `id2`: original_network_id to match, low 16 bits; 0xFFFF for any
 * - `pid`, `table_id`, `extension`: PID, table_id and table_id_extension of the table
 *
 * @par Memory
 * Records and lists are the caller's and needed during the call only.
 *
 * @par Threads and locks
 * Acquisition is started and stopped from one controlling thread of the client, with none of the
 * library's locks held. Starts and stops take Ts_Ctl_Mutex and the filter pool. They are not to be
 * called from the language function or the driver's callbacks. What only tells a state, and
 * Orva_Si_CancelScanChannel, may be called on any thread and takes no lock.
 */
#ifndef ORVA_SI_CHANNEL_H
#define ORVA_SI_CHANNEL_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What Orva_Si_StartChannel is to acquire. */
typedef struct SiTuneParam {
    uint32_t frequency;      /**< names the multiplex in any unit; 0: scan mode */
    uint32_t reserved1;      /**< the client's own, not read */
    uint32_t reserved2;      /**< the client's own, not read */
    uint16_t program_number; /**< the program to be watched; SI_NO_PROGRAM for none */
} SiTuneParam;

/** How the next scan works. Cleared at the end of each scan. */
typedef struct SiScanParam {
    /** Extra time for other tables, spent whole when not 0, after the NIT was met or waited for: in
     * units of about 1 ms. In network mode the completion time instead, in units of about 5 ms. */
    uint16_t wait_time;
    uint16_t network_id;   /**< the network whose NIT is filtered in network mode */
    uint32_t network_mode; /**< not 0: only the NIT is filtered */
    /** Not 0: NIT actual of any network; 0: NIT actual and other, of network_id in network mode. */
    uint8_t nit_selector;
} SiScanParam;

/** A service whose events are asked for. 0xFFFF in a member stands for any. */
typedef struct SiEitRequest {
    uint16_t transport_stream_id; /**< of the service */
    uint16_t original_network_id; /**< of the service */
    uint16_t service_id;          /**< 0xFFFF: all services of that multiplex */
} SiEitRequest;

/**
 * Starts acquisition on the multiplex that the tuner has locked: PAT, CAT, NIT, SDT and BAT, TDT
 * and TOT, and the PMTs once the PAT has come. Another frequency than last time empties the table
 * store first; the same one keeps it. A start while started stops first and logs an error.
 *
 * @param ptune  read during the call only
 * @return ORVA_SI_OK; ORVA_SI_FAILURE for a null record, or when the processing thread stays busy
 * for 250 ms, which is always so inside the client's callback
 *
 * What runs already has been stopped also when the start fails.
 */
ORVA_SI_API uint32_t Orva_Si_StartChannel(const SiTuneParam *ptune);

/**
 * Stops all acquisition: every filter is closed. The stored tables stay readable. May be called
 * from inside the client's callback, and when nothing was started.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_StopChannel(void);

/**
 * Scans the tuned multiplex and blocks until every kind of table that it carries is complete, the
 * time is over or another thread cancels. The store is emptied at the start and stays readable
 * afterwards; the client is not told of tables meanwhile. At its end acquisition is stopped and the
 * scan parameters are cleared.
 *
 * The scan settles 0.5 s, waits up to 10 s each for any section, for the SDT actual and for the NIT
 * actual, then the wait time, then up to half the scan time (30 s when none was set) for
 * completion. Neither PMTs nor SDTs of other multiplexes nor BATs hold up completion.
 *
 * @return ORVA_SI_OK when all is complete; ORVA_SI_FAILURE when it was cancelled, nothing was
 * received or something stayed incomplete
 */
ORVA_SI_API uint32_t Orva_Si_StartScanChannel(void);

/**
 * Starts acquisition for a scan and returns at once: all tables but TDT and TOT, in scan mode.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when the processing thread stays busy for 250 ms
 */
ORVA_SI_API uint32_t Si_Ctl_StartScanChannel(void);

/** Clears the scan parameters and stops all acquisition. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_StopScanChannel(void);

/**
 * Ends every wait of a running scan, which then stops and answers ORVA_SI_FAILURE. A cancel that
 * meets the start of the scan is lost: repeat it until the scan returns. Any thread.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_CancelScanChannel(void);

/**
 * Sets the parameters of the next scan or channel.
 *
 * @param pScanParam  copied
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 *
 * A scan that is started while another acquisition runs clears them before it looks at them.
 */
ORVA_SI_API uint32_t Orva_Si_SetScanParam(const SiScanParam *pScanParam);

/**
 * Sets how long scans wait for completion, for good.
 *
 * @param seconds  the wait is about half of it; 0: about 30 s
 * @return seconds * 100. What is kept is its low 16 bits: times above 655 s wrap.
 */
ORVA_SI_API uint32_t Orva_Si_SetScanTime(uint16_t seconds);

/** Tells whether the last start was a scan, or of frequency 0. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_IsScanMode(void);

/** Tells the current program. @return its program_number; SI_NO_PROGRAM for none */
ORVA_SI_API uint32_t Si_Ctl_GetTunningProgNo(void);

/**
 * Prepares for a multiplex: takes over frequency and program and, unless the frequency is the last
 * one and not 0, empties the table store, the list of programs, the readiness bits and the stored
 * TOT; for frequency 0 the event store too. Always stops the DSM-CC filters.
 *
 * @param frequency       as in SiTuneParam
 * @param program_number  low 16 bits
 * @return the result of stopping the DSM-CC filters
 *
 * Called with Ts_Ctl_Mutex held.
 */
ORVA_SI_API uint32_t Orva_Si_ResetRunningStatus(uint32_t frequency, uint32_t program_number);

/**
 * Takes a table that became complete to the scan's bookkeeping or to the client; drops it when
 * acquisition has been stopped or cancelled.
 *
 * @return the result of the route taken, ORVA_SI_OK
 *
 * Called with Ts_Ctl_Mutex held, which is given up meanwhile: nothing read from the store before is
 * valid after.
 */
ORVA_SI_API uint32_t Orva_Si_NotifyTableStatus(uint16_t pid, uint8_t table_id, uint16_t extension);

/**
 * Takes a table that became complete to the client: the route of Orva_Si_NotifyTableStatus out of
 * scans. Called with Ts_Ctl_Mutex held, which is given up around the callback.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_CommTunningCase(uint16_t pid, uint8_t table_id, uint16_t extension);

/**
 * Asks for present and following events of services of the tuned multiplex, the current one first.
 *
 * @param cur_sid  service_id of the current service
 * @param list     service_ids; one of 0xFFFF counts only when it stands alone
 * @param count    1 to 255
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_INVALID_ARGUMENT for a count out of range;
 *         ORVA_SI_FAILURE when no program is tuned; the result is that of the list
 */
ORVA_SI_API uint32_t Orva_Si_StartActualPFEIT(uint32_t id1, uint32_t id2, uint32_t cur_sid,
                                              const uint16_t *list, uint32_t count);

/**
 * As Orva_Si_StartActualPFEIT, for one service.
 *
 * @param service_id  low 16 bits; 0xFFFF for all services
 */
ORVA_SI_API uint32_t Orva_Si_StartCurrentPFEIT(uint32_t id1, uint32_t id2, uint32_t service_id);

/**
 * Asks for the schedule of services of the tuned multiplex: of those in the list and no other.
 *
 * @param id3    any service_id but 0xFFFF. It is only checked: unlike cur_sid of
 *               Orva_Si_StartActualPFEIT, its schedule comes only when it is in the list too
 * @param list   service_ids; 0xFFFF is passed over: alone it asks for nothing, and is ORVA_SI_OK
 * @param count  1 to 255
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_INVALID_ARGUMENT for a count or id3 out of
 * range; ORVA_SI_FAILURE when memory is exhausted
 */
ORVA_SI_API uint32_t Orva_Si_StartActualScheduleEIT(uint32_t id1, uint32_t id2, uint32_t id3,
                                                    const uint16_t *list, uint32_t count);

/**
 * Asks for present and following events of services of other multiplexes; one filter rotates over
 * them.
 *
 * @param list   requests; null for every service of every other multiplex
 * @param count  number of requests; 0 as null
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when memory is exhausted
 */
ORVA_SI_API uint32_t Orva_Si_StartOtherPFEIT(const SiEitRequest *list, uint32_t count);

/**
 * As Orva_Si_StartOtherPFEIT, for schedules. The name is spelt so.
 *
 * @param second  number of requests; 0 as null
 */
ORVA_SI_API uint32_t Orva_Si_StartOtherSchedulEIT(const SiEitRequest *list, uint32_t second);

/** Stops present and following events of the tuned multiplex. @return ORVA_SI_OK; ORVA_SI_FAILURE
 */
ORVA_SI_API uint32_t Orva_Si_StopActualPFEIT(void);

/** Stops present and following events of other multiplexes. @return ORVA_SI_OK; ORVA_SI_FAILURE */
ORVA_SI_API uint32_t Orva_Si_StopOtherPFEIT(void);

/** Stops schedules of the tuned multiplex. @return ORVA_SI_OK; ORVA_SI_FAILURE */
ORVA_SI_API uint32_t Orva_Si_StopActualScheduleEIT(void);

/** Stops schedules of other multiplexes. @return ORVA_SI_OK; ORVA_SI_FAILURE */
ORVA_SI_API uint32_t Orva_Si_StopOtherScheduleEIT(void);

/** Stops all four kinds of events. @return ORVA_SI_OK, or the first failure */
ORVA_SI_API uint32_t Orva_Si_StopAllEIT(void);

#ifdef __cplusplus
}
#endif

#endif
