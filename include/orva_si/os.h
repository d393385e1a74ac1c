/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_OS_H
#define ORVA_SI_OS_H

#include <pthread.h>
#include <semaphore.h>

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void *(*SiThreadFn)(void *param);

typedef struct SiThreadStart {
    SiThreadFn fn;
    void *param;
    sem_t sem;
} SiThreadStart;

extern ORVA_SI_API SiThreadStart args;

ORVA_SI_API uint32_t Orva_InitMutex(pthread_mutex_t *mutex);
ORVA_SI_API uint32_t Orva_MutexP(pthread_mutex_t *mutex);
ORVA_SI_API uint32_t Orva_MutexV(pthread_mutex_t *mutex);
ORVA_SI_API uint32_t Orva_MutexTryP(pthread_mutex_t *mutex);
ORVA_SI_API uint32_t Orva_InitSemaphore(sem_t *sem, uint32_t value);
ORVA_SI_API uint32_t Orva_DestroySemaphore(sem_t *sem);
ORVA_SI_API uint32_t Orva_SemWait(sem_t *sem);
ORVA_SI_API uint32_t Orva_SemPost(sem_t *sem);
ORVA_SI_API uint32_t Orva_CreateThread(pthread_t *thread, SiThreadFn fn, void *param);
ORVA_SI_API uint32_t SYS_SetupThread(void);
ORVA_SI_API void *Os_RunThread(SiThreadStart *start);
ORVA_SI_API uint32_t Orva_Sleep(uint32_t ms);
ORVA_SI_API uint32_t Orva_Wait2FuncTrue(uint32_t count, uint32_t (*predicate)(void));
ORVA_SI_API uint32_t Orva_Wait2CondTrue(uint32_t count, uint8_t cond);

#ifdef __cplusplus
}
#endif

#endif
