/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Time tables: TDT and TOT (EN 300 468 clauses 5.2.5 and 5.2.6), local time offsets, and the time
 * format of DVB: a Modified Julian Date and a time of six BCD digits (EN 300 468 annex C).
 *
 * @par Memory
 * Sections are the caller's and not kept; answers are written to the caller's records.
 *
 * @par Threads and locks
 * Each function tells its own.
 */
#ifndef ORVA_SI_TIME_H
#define ORVA_SI_TIME_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A point in time, UTC. */
typedef struct SiDate {
    uint16_t year;    /**< such as 2026 */
    uint8_t month;    /**< 1 to 12 */
    uint8_t day;      /**< 1 to 31 */
    uint8_t reserved; /**< never written */
    uint8_t hour;   /**< 0 to 23; what is out of range in the broadcast stays so, here and below */
    uint8_t minute; /**< 0 to 59 */
    uint8_t second; /**< 0 to 59 */
} SiDate;

/** An entry of a local_time_offset_descriptor (EN 300 468 clause 6.2.20). */
typedef struct SiLocalTimeOffset {
    uint8_t valid;                      /**< 1 */
    char country_code[4];               /**< ISO 3166, three characters and a zero byte */
    uint8_t country_region_id;          /**< six bits; 0 when the country has one time zone */
    uint8_t local_time_offset_polarity; /**< 0: local time is ahead of UTC; 1: behind */
    uint16_t offset_hours;              /**< the offset now in force */
    uint16_t offset_minutes;            /**< beside the hours */
    SiDate time_of_change;              /**< when the next one comes into force */
    uint8_t next_offset_hours;          /**< the offset from then on */
    uint8_t next_offset_minutes;        /**< beside the hours */
} SiLocalTimeOffset;

/**
 * Hands a section of PID 0x14 to Orva_Si_TdtParse (table_id 0x70) or Orva_Si_TotParse (0x73).
 *
 * @param psection  the section from table_id on
 * @param length    its bytes
 * @param third     the PID; passed on, not used
 * @return what the parser returns; ORVA_SI_FAILURE for another table_id or a length of 0;
 * ORVA_SI_NULL_ARGUMENT
 *
 * Section thread, with no lock held.
 */
ORVA_SI_API uint32_t Orva_Si_TimeCase(const uint8_t *psection, uint32_t length, uint32_t third);

/**
 * Tells the client the time of a TDT (reason 3), unless a scan is running.
 *
 * @param buf     the section from table_id on
 * @param length  its bytes: section_length + 3
 * @param third   not used
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT for a null or malformed section
 *
 * Calls the client: no lock may be held.
 */
ORVA_SI_API uint32_t Orva_Si_TdtParse(const uint8_t *buf, uint32_t length, uint32_t third);

/**
 * Keeps a TOT whose CRC_32 fits for Orva_Si_GetLocalTimeOffset, in place of the one before, and
 * tells the client its UTC time (reason 16), unless a scan is running.
 *
 * @param buf     the section from table_id on; section_length + 3 bytes must be readable even if
 * length is less
 * @param length  its bytes, at most 1024; when it is not section_length + 3 the section is kept,
 * but not told
 * @return ORVA_SI_OK; ORVA_SI_FAILURE for a length over 1024 or a wrong CRC_32, nothing being kept;
 *         ORVA_SI_NULL_ARGUMENT for a null or malformed section
 *
 * Takes Ts_Time_Mutex, then calls the client: no lock may be held.
 */
ORVA_SI_API uint32_t Orva_Si_TotParse(const uint8_t *buf, uint32_t length);

/**
 * Forgets the TOT that is kept. Done at every change of multiplex.
 *
 * @return ORVA_SI_OK
 *
 * Any thread. Takes Ts_Time_Mutex.
 */
ORVA_SI_API uint32_t Orva_Si_ResetTimeSection(void);

/**
 * Converts an MJD and a BCD time to seconds since 1970-01-01 00:00:00 UTC.
 *
 * @param mjd       Modified Julian Date
 * @param bcd       low 24 bits: 0x124525 is 12:45:25
 * @param pUTCTime  receives the seconds, modulo 2^32 (days before 1970 wrap)
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 *
 * Any thread, no lock.
 */
ORVA_SI_API uint32_t Orva_Si_GetUTCTimeFromMJD(uint16_t mjd, uint32_t bcd, uint32_t *pUTCTime);

/**
 * Converts an MJD and a BCD time to a date. An hour of 24 or more is taken as the next day, once;
 * the day is then carried into the next month, but a 29th or 30th of February stays.
 *
 * @param mjd        Modified Julian Date; the formula holds from 1 March 1900 (15079) on
 * @param bcd        low 24 bits: 0x124525 is 12:45:25
 * @param siDatePtr  receives the date; its reserved byte is left as it is
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 *
 * Any thread, no lock.
 */
ORVA_SI_API uint32_t Orva_Si_GetDateTimeFromMJD(uint16_t mjd, uint32_t bcd, SiDate *siDatePtr);

/**
 * Reads the local time offsets of the last TOT, in the order of its descriptors.
 *
 * @param localtimes  caller's array
 * @param pcount      capacity on entry, number of entries written on return
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL when there are more than the capacity, which are written;
 *         ORVA_SI_NO_DATA when none was written, also for a capacity of 0; ORVA_SI_FAILURE when no
 * TOT is kept; ORVA_SI_NULL_ARGUMENT, the count being 0 when only localtimes is null
 *
 * Any client thread. Takes Ts_Time_Mutex.
 */
ORVA_SI_API uint32_t Orva_Si_GetLocalTimeOffset(SiLocalTimeOffset *localtimes, uint32_t *pcount);

#ifdef __cplusplus
}
#endif

#endif
