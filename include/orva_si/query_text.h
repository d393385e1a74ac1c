/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_TEXT_H
#define ORVA_SI_QUERY_TEXT_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t (*SiISO639toIDFunc)(const char *iso639_code, uint32_t *language_id);

extern ORVA_SI_API SiISO639toIDFunc SiLanguageFunc;

ORVA_SI_API uint32_t Orva_Si_ProcessString(SiDvbString *dest, const uint8_t *source, int length);
ORVA_SI_API uint32_t Orva_Si_InstallISO639toIDFunc(SiISO639toIDFunc func);
ORVA_SI_API uint32_t Orva_Si_ISO639Map2ID(const char *iso639_code, uint32_t *language_id);

#ifdef __cplusplus
}
#endif

#endif
