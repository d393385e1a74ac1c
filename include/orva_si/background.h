/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Background services: where a table has more requests than filters, a service runs every second,
 * ages the armed filters and moves those on whose table does not come.
 *
 *     id 0  PMT    id 1  EIT present/following    id 2  EIT schedule
 *
 * A service runs when it is not paused itself and all services are enabled. Starting and stopping
 * channels, scans and EIT does both; a client rarely needs these functions.
 *
 * @par Arguments
 * - `id`: of the service, 0 to 2
 *
 * @par Results
 * Unless a comment says otherwise the answer is ORVA_SI_OK, or ORVA_SI_UNKNOWN_SERVICE for an id
 * that does not exist or before Si_BG_InitServiceList.
 *
 * @par Memory
 * The records are the library's and live as long as the process.
 *
 * @par Threads and locks
 * The services run on the timer thread "SIBGThread" of the platform library and hold the filter
 * pool's mutex for their whole run. The functions run on any thread and take no lock of the
 * library.
 */
#ifndef ORVA_SI_BACKGROUND_H
#define ORVA_SI_BACKGROUND_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A background service. The records are the library's; to be read only. */
typedef struct SiBgService {
    uint32_t id;               /**< 0 to 2 */
    const char *name;          /**< also the timer's */
    uint32_t (*service)(void); /**< what runs */
    uint32_t timer_id;         /**< given by the timer facility */
    uint32_t interval;         /**< milliseconds from one run to the next, 1000 at first */
    uint8_t enabled;           /**< 1 once it is registered with the timer facility */
    uint8_t paused;            /**< 1 while it is paused itself */
    uint32_t user;             /**< the timer's word, 0 */
} SiBgService;

/**
 * Starts the timer thread and registers the services, all of them paused. Part of Orva_Si_Init; not
 * for clients.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when the thread cannot be started
 */
ORVA_SI_API uint32_t Si_BG_InitServiceList(void);

/**
 * Changes how often a service runs; the interval starts anew.
 *
 * @param interval  milliseconds, at least 100
 * @return ORVA_SI_FAILURE, before the id is looked at, when the interval is shorter, which changes
 * nothing; else as above
 */
ORVA_SI_API uint32_t Si_BG_SetServiceInterval(uint32_t id, int32_t interval);

/** Pauses a service. Does not wait for a run that has begun. */
ORVA_SI_API uint32_t Si_BG_PauseService(uint32_t id);

/** Resumes a paused service; its next run is a whole interval away. */
ORVA_SI_API uint32_t Si_BG_ResumeService(uint32_t id);

/** Lets those services run that are not paused themselves. @return ORVA_SI_OK always */
ORVA_SI_API uint32_t Si_BG_EnableAllService(void);

/** Stops all services, without waiting, until they are enabled again. @return ORVA_SI_OK always */
ORVA_SI_API uint32_t Si_BG_DisableAllService(void);

/**
 * Runs a service once, as soon as the timer thread is free, even while all services are disabled.
 *
 * @return ORVA_SI_OK; ORVA_SI_UNKNOWN_SERVICE as above, and while the service is paused itself
 */
ORVA_SI_API uint32_t Si_BG_InsertFastService(uint32_t id);

/**
 * Waits until a service is not running, polling every 10 milliseconds. Not to be called with the
 * filter pool's mutex held, nor from a service.
 *
 * @return ORVA_SI_SERVICE_RUNNING when it still runs after 101 milliseconds; else as above
 */
ORVA_SI_API uint32_t Si_BG_WaitServiceTerminate(uint32_t id);

/**
 * Waits likewise for the first service that is found running, and only for that one.
 *
 * @return ORVA_SI_OK; ORVA_SI_SERVICE_RUNNING as above
 */
ORVA_SI_API uint32_t Si_BG_WaitAllServiceTerminate(void);

/**
 * Finds the record of a service, registered or not.
 *
 * @return the record, to be read only; null for an id that does not exist
 */
ORVA_SI_API SiBgService *FindBGServiceByID(uint32_t id);

/**
 * Ages one filter of the PMT task by a run: a filter that has waited longer than its request allows
 * is disabled and its request made pending again. A step of the service, made with the filter
 * pool's mutex held; not for clients.
 *
 * @param record  the filter record (pid_filter); null is logged and ignored, one that is idle too
 * @param task    the task that owns it (filter_task); not used
 */
ORVA_SI_API void Si_SectFlt_DisableTimeOutPmtFilterFunc(void *record, void *task);

/**
 * Ages one filter of an EIT task likewise; what its service may keep it for doubles, up to the
 * longest time of its kind.
 *
 * @param record  as above
 * @param task    the task that owns it (filter_task)
 */
ORVA_SI_API void Si_SectFlt_DisableTimeOutEitFilterFunc(void *record, void *task);

#ifdef __cplusplus
}
#endif

#endif
