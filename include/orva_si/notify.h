/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_NOTIFY_H
#define ORVA_SI_NOTIFY_H

#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

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
