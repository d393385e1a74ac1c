/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * The limits of what a broadcast can make the library hold, and how often they refused something.
 *
 * Honest broadcasts stay far below. What a limit refuses is dropped as if memory were exhausted;
 * the last eighth of each is kept for PAT, CAT, PMT, NIT actual, SDT actual and the actual
 * present/following events, so that the tuned multiplex goes on while others are flooded. A change
 * of multiplex empties the table store, Orva_Si_EraseAllEitRawData the event store.
 *
 * @par Threads and locks
 * Any thread but one that holds a lock of the library. Not to be called from SiLanguageFunc, nor
 * from a function of the driver.
 *
 * @par Memory
 * Records are the caller's.
 */
#ifndef ORVA_SI_LIMITS_H
#define ORVA_SI_LIMITS_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One limit. */
typedef struct SiLimitCount {
    uint32_t refused; /**< how often it was the reason to refuse something, since the process
                         started; wraps at 2^32, so that differences hold */
    uint32_t used;    /**< how much of it is taken now */
    uint32_t most;    /**< the limit itself, with the part that is kept back */
} SiLimitCount;

/** All limits, in what each of them counts. */
typedef struct SiLimitCounts {
    SiLimitCount tables;          /**< sub-tables in the table store */
    SiLimitCount table_bytes;     /**< bytes of their sections with their records */
    SiLimitCount event_services;  /**< services in the event store */
    SiLimitCount event_bytes;     /**< bytes of their sections with their records */
    SiLimitCount queued_sections; /**< sections that wait to be processed */
    SiLimitCount queued_bytes;    /**< their bytes, each rounded up to 32 */
    SiLimitCount busy_queue;      /**< queued sections from which on a delivered one is refused
                                     unless it is of PAT, CAT, PMT, NIT, SDT, BAT or the tuned
                                     service's events, and with more of them a whole batch;
                                     used goes beyond most */
} SiLimitCounts;

/**
 * Tells how often each limit refused something and how much of it is used. Nothing resets the
 * counts. Each pair of a store is of one moment, the record as a whole is not.
 *
 * @param pcounts  caller's record, filled on success
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 *
 * Takes Ts_Ctl_Mutex, then Ts_Eit_Mutex, never both at once.
 */
ORVA_SI_API uint32_t Orva_Si_GetLimitCounts(SiLimitCounts *pcounts);

#ifdef __cplusplus
}
#endif

#endif
