/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * What the SI library asks of the receiver's platform: a debug framework, named-thread timers and a
 * delay. liborva_platform implements it for machines without a receiver; a receiver links its own
 * instead.
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
    ORVA_DEBUG_FATAL = 1,
    ORVA_DEBUG_ERROR = 2,
    ORVA_DEBUG_NOTICE = 3,
    ORVA_DEBUG_TRACE = 4,
    ORVA_DEBUG_VERBOSE = 5
};

/** A debug category: what a log line belongs to. Made by orva_debug_category_new, never freed. */
typedef struct OrvaDebugCategory OrvaDebugCategory;

/** The threshold: lines of a higher level are dropped. Initially 2. Any thread may read or write
 * it. */
extern ORVA_SI_API uint32_t __orva_debug_min;

/**
 * Makes a category.
 *
 * @param name         short name printed with each line; copied
 * @param flags        colour or other flags of the framework; the default implementation keeps them
 * @param description  one line for people; copied
 * @return the category, or null when memory is exhausted
 */
ORVA_SI_API OrvaDebugCategory *orva_debug_category_new(const char *name, uint32_t flags,
                                                       const char *description);

/**
 * Writes one line to the sink (standard error unless replaced). Any thread.
 *
 * @param cat       category; null before the first one exists
 * @param level     orva_debug_level; the line is dropped when __orva_debug_min is below it
 * @param file      source name, such as "Src/orva_si_ctl"
 * @param function  name of the function that speaks
 * @param line      source line
 * @param format    printf format; the caller ends its lines
 */
ORVA_SI_API void orva_debug_log(OrvaDebugCategory *cat, uint32_t level, const char *file,
                                const char *function, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

/** Writes length bytes of data in hexadecimal, 16 a line, as orva_debug_log writes lines. */
ORVA_SI_API void orva_debug_dump(OrvaDebugCategory *cat, uint32_t level, const char *file,
                                 const char *function, uint32_t line, const void *data,
                                 uint32_t length);

/**
 * Receives every line that passes the threshold instead of standard error. The texts are valid
 * during the call only. Calls are serialised; a sink must not log. Own addition of
 * liborva_platform: the SI library does not call it.
 */
typedef void (*OrvaDebugSink)(void *user, OrvaDebugCategory *cat, uint32_t level, const char *file,
                              const char *function, uint32_t line, const char *text);

/** Replaces the sink; a null sink brings back standard error. Returns after the former sink's last
 * call. */
ORVA_SI_API void orva_debug_set_sink(OrvaDebugSink sink, void *user);

/** Name of a category, as given when it was made; "" for null. */
ORVA_SI_API const char *orva_debug_category_name(const OrvaDebugCategory *cat);

/**
 * Starts a timer thread.
 *
 * @param name  name of the thread; the kernel keeps 15 characters
 * @return its handle (0 or above), or -1 when it cannot be started
 */
ORVA_SI_API int32_t Orva_Util_Timer_Init(const char *name);

/**
 * Adds a function that the thread calls at an interval. The interval runs from the end of one call
 * to the start of the next.
 *
 * @param handle       from Orva_Util_Timer_Init
 * @param name         for people; copied
 * @param function     called with user on the timer thread, with no lock of the facility held
 * @param user         passed to function
 * @param interval_ms  milliseconds, at least 1
 * @param repeat       0: called once, then paused; else again and again
 * @return the timer's id, 0 or above; 0xFFFFFFFF for an unknown handle or a null function
 */
ORVA_SI_API uint32_t Orva_Util_Timer_Add(int32_t handle, const char *name,
                                         uint32_t (*function)(SiWord user), SiWord user,
                                         uint32_t interval_ms, uint32_t repeat);

/**
 * Pauses (pause not 0) or resumes one timer. A resumed timer starts a whole interval. Never waits
 * for a function that is running: it may still be when a pause returns.
 *
 * @return 0; 1 for an unknown handle or timer
 */
ORVA_SI_API uint32_t Orva_Util_Timer_Pause(int32_t handle, uint32_t timer_id, uint32_t pause);

/** Pauses or resumes all timers of a handle, beside each timer's own state: a timer runs when both
 * allow it. */
ORVA_SI_API uint32_t Orva_Util_Timer_PauseAll(int32_t handle, uint32_t pause);

/** Calls the timer's function once on the timer thread as soon as it is free, paused or not. 0; 1
 * if unknown. */
ORVA_SI_API uint32_t Orva_Util_Timer_Trigger(int32_t handle, uint32_t timer_id);

/** Changes the interval, which starts anew. 0; 1 for an unknown handle or timer or an interval of
 * 0. */
ORVA_SI_API uint32_t Orva_Util_Timer_UpdateInterval(int32_t handle, uint32_t timer_id,
                                                    uint32_t interval_ms);

/** Writes 1 to running while the timer's function executes, else 0. 0; 1 if unknown; 2 for null. */
ORVA_SI_API uint32_t Orva_Util_Timer_GetRunningState(int32_t handle, uint32_t timer_id,
                                                     uint32_t *running);

/** Sleeps for ms milliseconds. 0 always. */
ORVA_SI_API uint32_t Orva_Util_Delay(uint32_t ms);

#ifdef __cplusplus
}
#endif

#endif
