/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * The layer over POSIX threads, mutexes and semaphores through which every lock and thread of the
 * library goes, so that each failure is logged in one place. A client may use it too.
 *
 * @par Arguments
 * - `mutex`: the caller's
 * - `sem`: the caller's, initialised with Orva_InitSemaphore
 *
 * @par Results
 * Unless a comment says otherwise the answer is ORVA_SI_OK, or ORVA_SI_FAILURE for a null argument
 * and where the POSIX call fails; either failure is logged.
 *
 * @par Memory
 * Mutexes, semaphores and handles are the caller's and stay where they are while they are in use.
 *
 * @par Threads and locks
 * Every function runs on any thread. None takes a lock of the library by itself.
 */
#ifndef ORVA_SI_OS_H
#define ORVA_SI_OS_H

#include <pthread.h>
#include <semaphore.h>

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The body of a thread; its result is not kept. */
typedef void *(*SiThreadFn)(void *param);

/** What a new thread is told. */
typedef struct SiThreadStart {
    SiThreadFn fn; /**< the body */
    void *param;   /**< its argument */
    sem_t sem;     /**< posted by the new thread once it has read the other two */
} SiThreadStart;

/** The one start record: only one thread at a time can be created. */
extern ORVA_SI_API SiThreadStart args;

/** Makes a mutex with default attributes: locking it twice on one thread never returns. */
ORVA_SI_API uint32_t Orva_InitMutex(pthread_mutex_t *mutex);

/** Locks a mutex, waiting for it. Only a null mutex is reported. */
ORVA_SI_API uint32_t Orva_MutexP(pthread_mutex_t *mutex);

/** Unlocks a mutex that the calling thread holds. Only a null mutex is reported. */
ORVA_SI_API uint32_t Orva_MutexV(pthread_mutex_t *mutex);

/** Locks a mutex without waiting: ORVA_SI_FAILURE when it is locked already, also by the caller. */
ORVA_SI_API uint32_t Orva_MutexTryP(pthread_mutex_t *mutex);

/**
 * Makes a semaphore of this process.
 *
 * @param sem    made anew: nobody uses it yet
 * @param value  what it starts with, at most SEM_VALUE_MAX
 */
ORVA_SI_API uint32_t Orva_InitSemaphore(sem_t *sem, uint32_t value);

/** Ends a semaphore on which nobody waits. */
ORVA_SI_API uint32_t Orva_DestroySemaphore(sem_t *sem);

/**
 * Waits until the semaphore is above 0 and takes one from it.
 *
 * @return 0; 0xFFFFFFFF when a signal handler ended the wait; ORVA_SI_FAILURE for null, the only
 * failure logged
 */
ORVA_SI_API uint32_t Orva_SemWait(sem_t *sem);

/**
 * Adds one to the semaphore.
 *
 * @return 0; 0xFFFFFFFF when it would pass SEM_VALUE_MAX; ORVA_SI_FAILURE for null, the only
 * failure logged
 */
ORVA_SI_API uint32_t Orva_SemPost(sem_t *sem);

/**
 * Starts a joinable thread with default stack and scheduling. It is named "stack SiRunThre", has
 * the signals of SYS_SetupThread blocked and can be cancelled at any point. Returns once the thread
 * has taken fn and param.
 *
 * @param thread  receives the handle
 * @param fn      runs on the new thread; the thread ends with a null result when it returns
 * @param param   passed to fn; must live as long as fn needs it
 * @return ORVA_SI_OK; ORVA_SI_FAILURE for a null thread or fn, and when no thread could be made;
 * a signal does not end the wait for it
 *
 * Callers take turns: two threads must never be created at the same time.
 */
ORVA_SI_API uint32_t Orva_CreateThread(pthread_t *thread, SiThreadFn fn, void *param);

/**
 * Blocks SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD, SIGWINCH, SIGVTALRM and
 * SIGPROF for the calling thread and makes it cancellable at any point.
 *
 * @return the result of pthread_setcanceltype, 0
 */
ORVA_SI_API uint32_t SYS_SetupThread(void);

/**
 * Sets the calling thread up, reads the record, posts its semaphore and runs its body. What a new
 * thread begins with; not for clients.
 *
 * @param start  must not be null; not read any more once its semaphore is posted
 * @return what the body returns
 */
ORVA_SI_API void *Os_RunThread(SiThreadStart *start);

/**
 * Sleeps.
 *
 * @param ms  milliseconds; its microseconds must fit 32 bits (some 71 minutes), beyond that they
 * wrap
 * @return 0; 0xFFFFFFFF when a signal handler ended the sleep
 */
ORVA_SI_API uint32_t Orva_Sleep(uint32_t ms);

/**
 * Waits until a predicate is true: asks it at most (count + 1) / 2 times (in 32 bits, so 0xFFFFFFFF
 * is never), with 10 milliseconds after each answer of 0. A count of 2000 is about 10 seconds.
 *
 * @param count      see above; 0 does not ask at all
 * @param predicate  called on the calling thread; must not be null
 * @return 0 always, also when the predicate was never true: ask it again
 */
ORVA_SI_API uint32_t Orva_Wait2FuncTrue(uint32_t count, uint32_t (*predicate)(void));

/**
 * Sleeps (count + 1) / 2 times 10 milliseconds unless a condition holds.
 *
 * @param count  see above; 0 does not sleep at all
 * @param cond   taken by value and never looked at again
 * @return 0 at once when cond is not 0, else ORVA_SI_CONDITION_FALSE after the sleep
 */
ORVA_SI_API uint32_t Orva_Wait2CondTrue(uint32_t count, uint8_t cond);

#ifdef __cplusplus
}
#endif

#endif
