/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * What the library tells its client, through one callback.
 *
 * @par Memory
 * Records and sections that the callback receives are the library's and valid during the call only.
 *
 * @par Threads and locks
 * The callback is called on the section thread with no lock of the library held. It is installed on
 * the client's thread before acquisition is started.
 */
#ifndef ORVA_SI_NOTIFY_H
#define ORVA_SI_NOTIFY_H

#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What happened: the first argument of the client's callback. */
enum si_reason {
    SI_REASON_OTHER_TABLE = 0,           /**< table without a reason; data: table_id_extension */
    SI_REASON_TIME_FROM_TDT = 3,         /**< each TDT; flag 1, value: its time */
    SI_REASON_NIT = 5,                   /**< NIT; data: network_id */
    SI_REASON_PAT = 6,                   /**< PAT; data: the frequency of the channel */
    SI_REASON_SDT = 7,                   /**< SDT, also other; data: transport_stream_id */
    SI_REASON_PMT = 8,                   /**< PMT on any PID; data: address of a SiPmtNotify */
    SI_REASON_EIT_PRESENT_FOLLOWING = 9, /**< now and next; data: address of a SiEitNotify */
    SI_REASON_EIT_SCHEDULE_CHANGED = 10, /**< schedule section with new content; data: as 9 */
    SI_REASON_EIT_SCHEDULE_NEW = 11,     /**< schedule section got for the first time; as 9 */
    SI_REASON_DSMCC = 12,                /**< section; data: address of a SiDsmccNotify */
    SI_REASON_TIME_FROM_TOT = 16,        /**< each TOT; as 3 */
    SI_REASON_BAT = 17,                  /**< BAT; data: bouquet_id */
    SI_REASON_CAT = 20                   /**< CAT; data: table_id_extension */
};

/** Record of SI_REASON_PMT. */
typedef struct SiPmtNotify {
    uint32_t frequency;      /**< of the channel */
    uint16_t program_number; /**< whose PMT it is */
} SiPmtNotify;

/** Record of the three reasons for events. */
typedef struct SiEitNotify {
    uint32_t reserved;            /**< 0 */
    uint16_t service_id;          /**< whose events they are */
    uint16_t transport_stream_id; /**< of the service */
    uint16_t original_network_id; /**< of the service */
    uint8_t table_id; /**< folded: 0x4E for present/following, 0x50-0x5F for schedules, also of
                         other multiplexes */
    uint8_t section_number; /**< of the section that was stored */
    uint32_t crc;           /**< the section's CRC_32 field */
} SiEitNotify;

/** Record of SI_REASON_DSMCC. */
typedef struct SiDsmccNotify {
    uint16_t pid;           /**< on which it was received, 13 bits */
    uint16_t length;        /**< bytes of the whole section */
    const uint8_t *section; /**< from table_id on; the library's, valid during the call */
} SiDsmccNotify;

/**
 * The client's callback.
 *
 * @param reason  one of si_reason
 * @param flag    1 for the two reasons of time, else 0
 * @param data    a number or the address of a record, by reason; a record is valid during the call
 * only
 * @param value   seconds since 1970 UTC for the two reasons of time, else 0
 * @return ignored
 *
 * Called on the section thread with no lock of the library held; it must return promptly. It may
 * use the query functions, stop the channel, and start or stop events, latches and DSM-CC filters.
 * Starting a channel from inside always fails.
 */
typedef uint32_t (*SiNotifyFunc)(uint32_t reason, uint32_t flag, SiWord data, uint32_t value);

/** The installed callback; null for none. Read only: use Orva_Si_InstallCallback. */
extern ORVA_SI_API SiNotifyFunc SiNotifier;

/**
 * Installs the client's callback, once and for good. Before the first start of a channel or scan.
 *
 * @param callback  must stay callable as long as the process runs
 * @return ORVA_SI_OK; ORVA_SI_INVALID_ARGUMENT for null; ORVA_SI_FAILURE when one is installed:
 * that one stays
 */
ORVA_SI_API uint32_t Orva_Si_InstallCallback(SiNotifyFunc callback);

/**
 * @name The notifiers
 * Each decides the reason and calls the callback, or logs an error when there is none. Section
 * thread, with no lock held.
 * @{
 */

/**
 * Tells of a new or changed table; the PMT test comes first, whatever the PID.
 *
 * @param frequency  of the channel, goes with PAT and PMT
 * @param extension  table_id_extension, goes with every other table
 * @param pid        of the table
 * @param table_id   of the table
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_NotifyUpdate(uint32_t frequency, uint16_t extension, uint16_t pid,
                                          uint8_t table_id);

/**
 * Tells of a section of events.
 *
 * @param original_network_id  of the service
 * @param transport_stream_id  of the service
 * @param service_id           whose events they are
 * @param table_id             folded, as in SiEitNotify
 * @param section_number       of the section
 * @param crc                  the section's CRC_32 field
 * @param changed              not 0: it replaces an older one of the schedule
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_NotifyEit(uint16_t original_network_id, uint16_t transport_stream_id,
                                       uint16_t service_id, uint8_t table_id,
                                       uint8_t section_number, uint32_t crc, uint32_t changed);

/**
 * Tells of the time in a TDT or TOT, repeats too; silent in scan mode.
 *
 * @param seconds   since 1970 UTC
 * @param from_tot  0: from a TDT, else from a TOT
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_NotifyTime(uint32_t seconds, uint32_t from_tot);

/**
 * Hands a DSM-CC section through to the client.
 *
 * @param psect   its PID and bytes are passed on
 * @param length  bytes of the whole section
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_PostDsmccSect(const SiSection *psect, uint32_t length);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
