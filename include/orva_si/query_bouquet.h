/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Questions about bouquets, answered from the stored Bouquet Association Tables (EN 300 468 clause
 * 5.2.2, PID 0x0011, table_id 0x4A).
 *
 * All functions of this header work as the head of orva_si/query_service.h says. Clauses are those
 * of EN 300 468 V1.15.1.
 *
 * @par Arguments
 * - `bouquet_id`: low 16 bits; 0xFFFF selects every bouquet
 * - `bouq`, `servlist`: array to fill
 * - `pcount`: capacity of the array in elements on entry, number written on return
 * - `pname`: receives the name in its broadcast character table
 *
 * @par Memory
 * The client owns the arrays, counts and records that it passes.
 *
 * @par Threads and locks
 * As in orva_si/query_service.h: any thread, Ts_Ctl_Mutex is taken.
 */
#ifndef ORVA_SI_QUERY_BOUQUET_H
#define ORVA_SI_QUERY_BOUQUET_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A service of a bouquet: an entry of a service_list_descriptor (0x41, clause 6.2.35). */
typedef struct SiBouquetService {
    uint16_t service_id;          /**< service_id */
    uint8_t service_type;         /**< service_type, as in the service_descriptor (clause 6.2.33) */
    uint16_t transport_stream_id; /**< transport stream of the loop entry that lists the service */
    uint16_t original_network_id; /**< original network of that transport stream */
} SiBouquetService;

/**
 * Every bouquet_id, each once, in the order of the store.
 *
 * Room is checked before a section is looked at: with a full array a further section is
 * ORVA_SI_ARRAY_FULL even when its bouquet is in the list already.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetBouquetIdList(uint16_t *bouq, uint32_t *pcount);

/**
 * The services of a bouquet, as the service_list_descriptors of its transport stream loop list
 * them.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceListInBouquet(uint32_t bouquet_id,
                                                     SiBouquetService *servlist, uint32_t *pcount);

/**
 * The name of a bouquet, from its bouquet_name_descriptor (0x47, clause 6.2.4).
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no BAT names it; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetBouquetNameById(uint32_t bouquet_id, SiDvbString *pname);

#ifdef __cplusplus
}
#endif

#endif
