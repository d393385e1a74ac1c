/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_TIME_H
#define ORVA_SI_TIME_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiDate {
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t reserved;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
} SiDate;

typedef struct SiLocalTimeOffset {
    uint8_t valid;
    char country_code[4];
    uint8_t country_region_id;
    uint8_t local_time_offset_polarity;
    uint16_t offset_hours;
    uint16_t offset_minutes;
    SiDate time_of_change;
    uint8_t next_offset_hours;
    uint8_t next_offset_minutes;
} SiLocalTimeOffset;

ORVA_SI_API uint32_t Orva_Si_TimeCase(const uint8_t *psection, uint32_t length, uint32_t third);
ORVA_SI_API uint32_t Orva_Si_TdtParse(const uint8_t *buf, uint32_t length, uint32_t third);
ORVA_SI_API uint32_t Orva_Si_TotParse(const uint8_t *buf, uint32_t length);
ORVA_SI_API uint32_t Orva_Si_ResetTimeSection(void);
ORVA_SI_API uint32_t Orva_Si_GetUTCTimeFromMJD(uint16_t mjd, uint32_t bcd, uint32_t *pUTCTime);
ORVA_SI_API uint32_t Orva_Si_GetDateTimeFromMJD(uint16_t mjd, uint32_t bcd, SiDate *siDatePtr);
ORVA_SI_API uint32_t Orva_Si_GetLocalTimeOffset(SiLocalTimeOffset *localtimes, uint32_t *pcount);

#ifdef __cplusplus
}
#endif

#endif
