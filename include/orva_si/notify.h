/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_NOTIFY_H
#define ORVA_SI_NOTIFY_H

#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What happened: the first argument of the client's callback. */
enum si_reason {
    SI_REASON_OTHER_TABLE = 0,            /**< a table on no PID of its own; data: table_id_extension */
    SI_REASON_TIME_FROM_TDT = 3,          /**< new second from a TDT; flag 1, value: seconds since 1970 UTC */
    SI_REASON_NIT = 5,                    /**< NIT; data: network_id */
    SI_REASON_PAT = 6,                    /**< PAT; data: the frequency of the channel */
    SI_REASON_SDT = 7,                    /**< SDT actual or other; data: transport_stream_id */
    SI_REASON_PMT = 8,                    /**< PMT on any PID; data: address of a SiPmtNotify */
    SI_REASON_EIT_PRESENT_FOLLOWING = 9,  /**< section of now and next; data: address of a SiEitNotify */
    SI_REASON_EIT_SCHEDULE_CHANGED = 10,  /**< schedule section with new content; data: as 9 */
    SI_REASON_EIT_SCHEDULE_NEW = 11,      /**< schedule section got for the first time; data: as 9 */
    SI_REASON_DSMCC = 12,                 /**< DSM-CC section; data: address of a SiDsmccNotify */
    SI_REASON_TIME_FROM_TOT = 16,         /**< new second from a TOT; as 3 */
    SI_REASON_BAT = 17,                   /**< BAT; data: bouquet_id */
    SI_REASON_CAT = 20                    /**< CAT; data: table_id_extension */
};

typedef uint32_t (*SiNotifyFunc)(uint32_t reason, uint32_t flag, SiWord data, uint32_t value);

typedef struct SiPmtNotify {
    uint32_t frequency;
    uint16_t program_number;
} SiPmtNotify;

typedef struct SiEitNotify {
    uint32_t reserved;
    uint16_t service_id;
    uint16_t transport_stream_id;
    uint16_t original_network_id;
    uint8_t table_id;
    uint8_t section_number;
    uint32_t crc;
} SiEitNotify;

typedef struct SiDsmccNotify {
    uint16_t pid;
    uint16_t length;
    const uint8_t *section;
} SiDsmccNotify;

extern ORVA_SI_API SiNotifyFunc SiNotifier;

ORVA_SI_API uint32_t Orva_Si_InstallCallback(SiNotifyFunc callback);
ORVA_SI_API uint32_t Orva_Si_NotifyUpdate(uint32_t frequency, uint16_t extension, uint16_t pid, uint8_t table_id);
ORVA_SI_API uint32_t Orva_Si_NotifyEit(uint16_t original_network_id, uint16_t transport_stream_id, uint16_t service_id, uint8_t table_id, uint8_t section_number, uint32_t crc, uint32_t changed);
ORVA_SI_API uint32_t Orva_Si_NotifyTime(uint32_t seconds, uint32_t from_tot);
ORVA_SI_API uint32_t Orva_Si_PostDsmccSect(const SiSection *psect, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
