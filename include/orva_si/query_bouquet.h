/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_BOUQUET_H
#define ORVA_SI_QUERY_BOUQUET_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiBouquetService {
    uint16_t service_id;
    uint8_t service_type;
    uint16_t transport_stream_id;
    uint16_t original_network_id;
} SiBouquetService;

ORVA_SI_API uint32_t Orva_Si_GetBouquetIdList(uint16_t *bouq, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetServiceListInBouquet(uint32_t bouquet_id, SiBouquetService *servlist, uint32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_GetBouquetNameById(uint32_t bouquet_id, SiDvbString *pname);

#ifdef __cplusplus
}
#endif

#endif
