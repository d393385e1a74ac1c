/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * What the SI library asks of the receiver's platform: a debug framework, named-thread timers and a
 * delay. liborva_platform implements it for machines without a receiver; a receiver links its own
 * instead.
 *
 * @par Arguments
 * - `cat`: the category; null before the first one exists
 * - `level`: an orva_debug_level
 * - `file`: name of the source that speaks, such as "Src/orva_si_ctl"; null is taken as ""
 * - `function`: name of the function that speaks; null is taken as ""
 * - `line`: line of the source
 * - `handle`: of a timer thread, from Orva_Util_Timer_Init
 * - `timer_id`: from Orva_Util_Timer_Add
 * - `pause`: not 0 pauses, 0 resumes
 *
 * @par Memory
 * Texts and bytes that are passed are needed during the call only.
 *
 * @par Threads and locks
 * Every function may be called on any thread, with any lock of the library held. A function called
 * by the platform (OrvaDebugSink excepted) runs with no lock of the platform held.
 */
#ifndef ORVA_PLATFORM_H
#define ORVA_PLATFORM_H

#include <stdarg.h>
#include <stdint.h>

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Levels of a log line. A line is written when __orva_debug_min is at least its level. */
enum orva_debug_level {
    ORVA_DEBUG_FATAL = 1,  /**< the library, or a call, cannot go on */
    ORVA_DEBUG_ERROR = 2,  /**< a call, a driver or a broadcast failed */
    ORVA_DEBUG_NOTICE = 3, /**< what a developer of the client looks for first */
    ORVA_DEBUG_TRACE = 4,  /**< decisions on the way */
    ORVA_DEBUG_VERBOSE = 5 /**< every entry, exit and lock */
};

/** A debug category: what a log line belongs to. Made by orva_debug_category_new, never freed. */
typedef struct OrvaDebugCategory OrvaDebugCategory;

/** The threshold: lines of a higher level are dropped. Initially 2. Any thread may read or write
 * it at any time. */
extern ORVA_SI_API uint32_t __orva_debug_min;

/**
 * Makes a category.
 *
 * @param name         short name printed with each line; copied
 * @param flags        colour or other flags of the framework; the default implementation keeps them
 * @param description  one line for people; copied
 * @return the category, which is never freed; null when memory is exhausted
 *
 * A null name or description is taken as "".
 */
ORVA_SI_API OrvaDebugCategory *orva_debug_category_new(const char *name, uint32_t flags,
                                                       const char *description);

/**
 * Writes one line to the sink (standard error unless replaced), unless its level is above
 * __orva_debug_min. errno stays as it is.
 *
 * @param format  printf format, followed by its arguments; the caller ends its lines
 */
ORVA_SI_API void orva_debug_log(OrvaDebugCategory *cat, uint32_t level, const char *file,
                                const char *function, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

/**
 * Writes bytes in hexadecimal, 16 a line, as orva_debug_log writes lines. The lines of one call
 * stay together.
 *
 * @param data    the bytes; null writes nothing
 * @param length  how many
 */
ORVA_SI_API void orva_debug_dump(OrvaDebugCategory *cat, uint32_t level, const char *file,
                                 const char *function, uint32_t line, const void *data,
                                 uint32_t length);

/**
 * Receives every line that passes the threshold instead of standard error. Own addition of
 * liborva_platform: the SI library does not know of sinks.
 *
 * @param user      as given to orva_debug_set_sink
 * @param cat       the category, or null
 * @param level     orva_debug_level of the line
 * @param file      name of the source, never null
 * @param function  name of the function, never null
 * @param line      line of the source
 * @param text      the line as its caller wrote it, with the end of line if it had one
 *
 * The texts are valid during the call only. Calls come one at a time, on the thread that logs and
 * with its locks held: a sink must not log and returns promptly.
 */
typedef void (*OrvaDebugSink)(void *user, OrvaDebugCategory *cat, uint32_t level, const char *file,
                              const char *function, uint32_t line, const char *text);

/**
 * Replaces the sink. Returns after the former sink's last call; not to be called from a sink.
 *
 * @param sink  null brings back standard error
 * @param user  passed to sink; stays the caller's
 */
ORVA_SI_API void orva_debug_set_sink(OrvaDebugSink sink, void *user);

/**
 * Tells the name of a category.
 *
 * @return as given when it was made, valid for ever; "" for null
 */
ORVA_SI_API const char *orva_debug_category_name(const OrvaDebugCategory *cat);

/**
 * Starts a timer thread.
 *
 * @param name  name of the thread, copied; the kernel keeps 15 characters, null is taken as ""
 * @return its handle (0 or above), or -1 when it cannot be started or there are 32 of them
 *
 * The thread runs as long as the process and has all signals blocked but those of its own faults.
 */
ORVA_SI_API int32_t Orva_Util_Timer_Init(const char *name);

/**
 * Adds a function that the thread calls at an interval. The interval runs from the end of one call
 * to the start of the next.
 *
 * @param handle       from Orva_Util_Timer_Init
 * @param name         for people; copied, null is taken as ""
 * @param function     called with user on the timer thread; its result is ignored
 * @param user         passed to function
 * @param interval_ms  milliseconds; 0 is taken as 1
 * @param repeat       0: called once, then paused; else again and again
 * @return the timer's id, 0 or above; 0xFFFFFFFF for an unknown handle, a null function, or when
 * the thread has 64 timers
 */
ORVA_SI_API uint32_t Orva_Util_Timer_Add(int32_t handle, const char *name,
                                         uint32_t (*function)(SiWord user), SiWord user,
                                         uint32_t interval_ms, uint32_t repeat);

/**
 * Pauses or resumes one timer. A resumed timer starts a whole interval. Never waits
 * for a function that is running: it may still be when a pause returns.
 *
 * @return 0; 1 for an unknown handle or timer
 */
ORVA_SI_API uint32_t Orva_Util_Timer_Pause(int32_t handle, uint32_t timer_id, uint32_t pause);

/**
 * Pauses or resumes all timers of a thread, beside each timer's own state: a timer runs when both
 * allow it. Never waits either.
 *
 * @return 0; 1 for an unknown handle
 */
ORVA_SI_API uint32_t Orva_Util_Timer_PauseAll(int32_t handle, uint32_t pause);

/**
 * Has the timer's function called once on the timer thread as soon as that is free, paused or not.
 *
 * @return 0; 1 for an unknown handle or timer
 */
ORVA_SI_API uint32_t Orva_Util_Timer_Trigger(int32_t handle, uint32_t timer_id);

/**
 * Changes the interval of a timer, which starts anew.
 *
 * @param interval_ms  milliseconds, at least 1
 * @return 0; 1 for an unknown handle or timer, or an interval of 0
 */
ORVA_SI_API uint32_t Orva_Util_Timer_UpdateInterval(int32_t handle, uint32_t timer_id,
                                                    uint32_t interval_ms);

/**
 * Tells whether the timer's function is executing.
 *
 * @param running  receives 1 while it is, else 0; untouched unless 0 is returned
 * @return 0; 1 for an unknown handle or timer; 2 for a null running
 */
ORVA_SI_API uint32_t Orva_Util_Timer_GetRunningState(int32_t handle, uint32_t timer_id,
                                                     uint32_t *running);

/**
 * Sleeps; a signal handler does not cut it short.
 *
 * @param ms  milliseconds
 * @return 0 always
 */
ORVA_SI_API uint32_t Orva_Util_Delay(uint32_t ms);

#ifdef __cplusplus
}
#endif

#endif
