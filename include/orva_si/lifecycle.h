/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_LIFECYCLE_H
#define ORVA_SI_LIFECYCLE_H

#include "orva_platform.h"
#include "orva_si/filter.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

extern ORVA_SI_API OrvaDebugCategory *si_debug;

ORVA_SI_API uint32_t Orva_Si_Init(SiDmxSectHandler *handler_table);
ORVA_SI_API uint32_t Orva_Si_DeInit(void);
ORVA_SI_API uint32_t Orva_Init_Lib(void);
ORVA_SI_API uint32_t Orva_Exit_Lib(void);
ORVA_SI_API uint32_t Orva_Si_PrintMemSize(void);

#ifdef __cplusplus
}
#endif

#endif
