/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_BACKGROUND_H
#define ORVA_SI_BACKGROUND_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiBgService {
    uint32_t id;
    const char *name;
    uint32_t (*service)(void);
    uint32_t timer_id;
    uint32_t interval;
    uint8_t enabled;
    uint8_t paused;
    uint32_t user;
} SiBgService;

ORVA_SI_API uint32_t Si_BG_InitServiceList(void);
ORVA_SI_API uint32_t Si_BG_SetServiceInterval(uint32_t id, int32_t interval);
ORVA_SI_API uint32_t Si_BG_PauseService(uint32_t id);
ORVA_SI_API uint32_t Si_BG_ResumeService(uint32_t id);
ORVA_SI_API uint32_t Si_BG_EnableAllService(void);
ORVA_SI_API uint32_t Si_BG_DisableAllService(void);
ORVA_SI_API uint32_t Si_BG_InsertFastService(uint32_t id);
ORVA_SI_API uint32_t Si_BG_WaitServiceTerminate(uint32_t id);
ORVA_SI_API uint32_t Si_BG_WaitAllServiceTerminate(void);
ORVA_SI_API SiBgService *FindBGServiceByID(uint32_t id);
ORVA_SI_API void Si_SectFlt_DisableTimeOutPmtFilterFunc(void *record, void *task);
ORVA_SI_API void Si_SectFlt_DisableTimeOutEitFilterFunc(void *record, void *task);

#ifdef __cplusplus
}
#endif

#endif
