/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_MEMPOOL_H
#define ORVA_SI_MEMPOOL_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

ORVA_SI_API uint32_t orva_mempool_init(int32_t size);
ORVA_SI_API void *orva_mempool_malloc(uint32_t size);
ORVA_SI_API void orva_mempool_free(void *pointer);
ORVA_SI_API uint32_t orva_mempool_cleanup(void);
ORVA_SI_API void orva_mempool_printinfo(void);
ORVA_SI_API uint32_t orva_mempool_getmalloccnt(void);

#ifdef __cplusplus
}
#endif

#endif
