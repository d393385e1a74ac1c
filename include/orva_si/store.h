/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * The store of raw sections, the dispatcher that fills it and the programs of the PAT. A client
 * needs the summaries and the programs; the rest is what the query functions are made of.
 *
 * @par Arguments
 * Of numbers wider than the field that they name, the low bits of the field's width count.
 * - `ptbl`: a table of the store
 * - `psection`, `psect`: a section
 * - `pid`, `table_id`, `ext`, `ext1`, `ext2`: a key, as in SiTableKey, or of the table meant
 * - `map`: 32 bytes, as in SiTable
 * - `section_number`, `last_section_number`: those of a section header
 * - `original_network_id`, `transport_stream_id`, `service_id`: the service of an event table
 * - `prog_num`, `program_number`: program_number of the PAT
 *
 * @par Memory
 * The store owns its tables, sections and lists. What is returned or accepted as a pointer into it
 * is valid until the lock is given up. Sections that are handed in are copied and stay the
 * caller's.
 *
 * @par Threads and locks
 * Ts_Ctl_Mutex guards the list of tables and all below it. Functions that say "lock held" are
 * called with it held, by the library's section thread or by a client that takes the exported mutex
 * itself with Orva_MutexP and Orva_MutexV; they never take it. What says nothing about a lock takes
 * none and runs on any thread.
 */
#ifndef ORVA_SI_STORE_H
#define ORVA_SI_STORE_H

#include <pthread.h>

#include "orva_si/list.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Guards the table store and the list of programs. Taken before Ts_Eit_Mutex when both are needed.
 */
extern ORVA_SI_API pthread_mutex_t Ts_Ctl_Mutex;
/** Guards the event store. */
extern ORVA_SI_API pthread_mutex_t Ts_Eit_Mutex;
/** Guards the stored TOT; always the last one taken. */
extern ORVA_SI_API pthread_mutex_t Ts_Time_Mutex;

/** One raw section (ISO/IEC 13818-1, 2.4.4): handed in by the reception path, or a copy in the
 * store. */
typedef struct SiSection {
    uint16_t pid;       /**< on which it was received, 13 bits */
    uint16_t filter_id; /**< the filter that delivered it; only on a section handed in */
    uint16_t sect_len; /**< handed in: bytes delivered; stored: bytes of the section, section_length
                          + 3 */
    /** From table_id to CRC_32; the buffer of a stored copy is a multiple of 32 bytes. */
    uint8_t *section;
} SiSection;

/** One sub-table of the store. Owned by the store with its list, links, sections and buffers. */
typedef struct SiTable {
    uint16_t pid;                /**< of its sections */
    uint8_t table_id;            /**< of its sections */
    uint16_t ext;                /**< table_id_extension of its first section */
    uint16_t ext1;               /**< transport_stream_id on PID 0x0012, else 0xFFFF */
    uint16_t ext2;               /**< original_network_id on PID 0x0012, else 0xFFFF */
    uint8_t last_section_number; /**< of its first section; 0 once it was emptied */
    uint8_t sect_map[32];        /**< bit n & 7 of byte n >> 3: section_number n is held */
    uint8_t completed;           /**< 1: all sections are held */
    uint32_t crc;                /**< always 0 */
    si_list *psect_list;         /**< SiSection, in order of arrival */
} SiTable;

/** Names tables: SI_ANY_PID, SI_ANY_TABLE_ID and SI_ANY_EXT match all. */
typedef struct SiTableKey {
    uint16_t pid;     /**< SI_ANY_PID for any */
    uint8_t table_id; /**< SI_ANY_TABLE_ID for any */
    uint16_t ext;     /**< table_id_extension; SI_ANY_EXT for any, also below */
    uint16_t ext1;    /**< as in SiTable */
    uint16_t ext2;    /**< as in SiTable */
} SiTableKey;

/** The sections of one service's events. */
typedef struct SiEitService {
    uint16_t original_network_id; /**< of the service */
    uint16_t transport_stream_id; /**< of the service */
    uint16_t service_id;          /**< the service */
    si_list *sections;            /**< SiEitSection, in order of arrival */
} SiEitService;

/** One section of events (EN 300 468, 5.2.4). A client with the lock may add and take out elements
 * of the list, but does not write into those of the store. */
typedef struct SiEitSection {
    uint16_t table_id;      /**< folded: 0x4E present/following, 0x50-0x5F schedule, also of other
                               multiplexes */
    uint16_t sect_len;      /**< bytes of the section */
    uint8_t section_number; /**< of its sub-table */
    uint8_t *section;       /**< as received; null after a failed update */
} SiEitSection;

/** The programs of the PAT (ISO/IEC 13818-1, 2.4.4.3). */
typedef struct SiPmtPidList {
    /** The programs, in the order of the PAT. */
    struct {
        uint16_t program_number; /**< SI_NO_PROGRAM in an entry that is not used */
        uint16_t pmt_pid;        /**< PID of its PMT, 13 bits */
    } pmtpid_array[255];
    uint32_t count;        /**< entries in use, at most 255 */
    uint16_t cur_prog_num; /**< the tuned program; SI_NO_PROGRAM for none */
    uint16_t cur_pmt_pid;  /**< its PMT's PID; SI_ANY_PID while unknown */
} SiPmtPidList;

/**
 * @name Tables
 * @{
 */

/**
 * Creates the empty stores and the three mutexes. Called once by the section thread.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE at the first failure, what was created stays
 */
ORVA_SI_API uint32_t Orva_Si_InitTables(void);

/**
 * Tells the list of tables, to be read with the lock held.
 *
 * @return the list of SiTable itself; null before Orva_Si_InitTables and after
 * Orva_Si_DestorySectModel
 */
ORVA_SI_API si_list *Orva_Si_GetTableList(void);

/**
 * Creates a table from its first section and appends it to the list; the section itself is not
 * stored. Lock held.
 *
 * @param psection  its bytes from table_id on, 8 of them readable, 12 on PID 0x0012
 * @return the table; null for a null section, without a store, or when memory or the limit of 4,096
 * tables is exhausted
 */
ORVA_SI_API SiTable *Orva_Si_CreateTable(uint16_t pid, uint8_t table_id, const uint8_t *psection);

/** Finds a table. Lock held. @return the oldest one that the key matches; null when there is none
 */
ORVA_SI_API SiTable *Orva_Si_FindTableById(uint16_t pid, uint8_t table_id, uint16_t ext,
                                           uint16_t ext1, uint16_t ext2);

/** Compares a table with a key. Lock held. @return 1 when they match, else 0, also for null */
ORVA_SI_API uint32_t Orva_Si_IsEqualTableById(const SiTable *ptbl, uint16_t pid, uint8_t table_id,
                                              uint16_t ext, uint16_t ext1, uint16_t ext2);

/**
 * Compares a key with a table, for si_list_find. Lock held.
 *
 * @param key    SiTableKey
 * @param table  SiTable
 * @return 0 for a match, else -1, also for null
 */
ORVA_SI_API int32_t find_table(const void *key, const void *table);

/**
 * Frees a table with its sections. The caller takes its link from the list right afterwards. Lock
 * held.
 *
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_RemoveTable(SiTable *ptbl);

/** Frees the sections of a table, which stays, incomplete. Lock held. @return ORVA_SI_OK;
 * ORVA_SI_NULL_ARGUMENT */
ORVA_SI_API uint32_t Orva_Si_RemoveTableSections(SiTable *ptbl);

/**
 * Frees the table store for good, for a client that shuts down. Takes no lock; only when nothing
 * else runs.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_DestorySectModel(void);

/**
 * Tells whether a section shows that the receiver is on another multiplex: a PAT, NIT actual or SDT
 * actual whose table_id_extension differs from that of the stored one. Lock held.
 *
 * @return 1 or 0
 */
ORVA_SI_API uint32_t Orva_Si_IsStreamChanged(uint16_t pid, uint8_t table_id, uint16_t ext);

/** @} */

/**
 * @name Sections
 * @{
 */

/**
 * Stores a copy of a section in a table. Lock held.
 *
 * @param ptbl      its table
 * @param psection  its sect_len must cover the whole section
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when memory or the limit of 16 MiB is exhausted;
 * ORVA_SI_NULL_ARGUMENT for a null table, list, record or section
 */
ORVA_SI_API uint32_t Orva_Si_InsertSection(SiTable *ptbl, const SiSection *psection);

/**
 * Decides after an insertion whether the table is complete: a PMT always, another when all
 * section_numbers up to the inserted section's last_section_number are held, one on PID 0x0012
 * never. Lock held.
 *
 * @return 1 complete; 0 not; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_CheckTableCompleted(SiTable *ptbl, const SiSection *psect);

/**
 * Takes one section from a table and frees it; map and completion stay as they are. Lock held.
 *
 * @param psect  the stored record itself; another one changes nothing
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_RemoveSectInTable(SiTable *ptbl, SiSection *psect);

/** Sets the bit of a section_number in a map of 32 bytes. @return 1; 0 for a null map */
ORVA_SI_API uint32_t Orva_Si_SetSectMap(uint8_t *map, uint8_t section_number);

/** Kept for its callers; tests nothing. @return 0 always, also for a null map */
ORVA_SI_API uint32_t Orva_Si_TestSectMap(const uint8_t *map, uint8_t section_number);

/**
 * Tells whether a map holds every section up to last_section_number.
 *
 * @param segment_last  null, or for each segment of eight sections the last section_number that it
 * has
 * @return 1 or 0; 0 for a null map
 */
ORVA_SI_API uint32_t Orva_Si_IsSegSectCompleted(const uint8_t *map, uint8_t last_section_number,
                                                const uint8_t *segment_last);

/**
 * Compares the CRC_32 fields of two sections; nothing is computed.
 *
 * @param psect   bytes of one, as many as its section_length says
 * @param psectb  bytes of the other, likewise
 * @return 1 when equal; 0 when not, and for null
 */
ORVA_SI_API uint32_t Orva_Si_IsCrcEqual(const uint8_t *psect, const uint8_t *psectb);

/** @} */

/**
 * @name Summaries
 * The exclusive or of the CRC_32 fields of all sections of the complete tables that match; 0 when
 * there is none. A client compares them to learn of a change. Each takes Ts_Ctl_Mutex.
 *
 * @par Arguments
 * - `network_id`, `transport_stream_id`, `bouquet_id`: low 16 bits, compared with the
 * table_id_extension; 0xFFFF takes every table
 * - `pPATCRC`, `pNITCRC`, `pSDTCRC`, `pBATCRC`: receive the summary
 *
 * @par Results
 * ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT.
 * @{
 */

/** All PATs. */
ORVA_SI_API uint32_t Orva_Si_GetPATCRC(uint32_t *pPATCRC);
/** NIT actual and other of a network, folded into one value. */
ORVA_SI_API uint32_t Orva_Si_GetNITCRC(uint32_t network_id, uint32_t *pNITCRC);
/** SDT actual and other of a transport stream, and a BAT whose bouquet_id has the same number. */
ORVA_SI_API uint32_t Orva_Si_GetSDTCRC(uint32_t transport_stream_id, uint32_t *pSDTCRC);
/** The BAT of a bouquet. */
ORVA_SI_API uint32_t Orva_Si_GetBATCRC(uint32_t bouquet_id, uint32_t *pBATCRC);

/** @} */

/**
 * @name The dispatcher
 * @{
 */

/**
 * Takes a received section where it belongs: DSM-CC and time to the client, events to the event
 * store, all else to the table store. Section thread; called with no lock held.
 *
 * @param psection  stays the caller's
 * @return ORVA_SI_OK, also for null; ORVA_SI_FAILURE when fewer bytes were delivered than the
 * section is long, or it could not be stored; ORVA_SI_NO_TABLE when no table could be created; else
 * the result of the branch taken
 */
ORVA_SI_API uint32_t Si_Model_ProcessModel(SiSection *psection);

/**
 * The branch for events on PID 0x0012. Takes Ts_Eit_Mutex.
 *
 * @return as Orva_Si_ListEitImpl; ORVA_SI_NULL_ARGUMENT; ORVA_SI_FAILURE for another PID
 */
ORVA_SI_API uint32_t Si_Model_HandleEitTables(SiSection *psect);

/**
 * The branch for tables: drops repeats, restarts a table whose content changed, stores, and tells
 * of a table that became complete. Takes Ts_Ctl_Mutex.
 *
 * @return as Si_Model_ProcessModel, ORVA_SI_OK for null too
 */
ORVA_SI_API uint32_t Si_Model_CollectTables(SiSection *psection);

/**
 * Finds the section that a received one would replace. Lock held.
 *
 * @return the stored section with the PID and section_number of this one; null when there is none,
 * and for a null table or section
 */
ORVA_SI_API SiSection *Si_Model_FindSection(SiTable *ptbl, const SiSection *psection);

/**
 * Compares two sections by PID and section_number, for si_list_find. Lock held.
 *
 * @param record  SiSection
 * @param stored  SiSection
 * @return 0 for a match, else -1, also for null
 */
ORVA_SI_API int32_t find_section(const void *record, const void *stored);

/** @} */

/**
 * @name Events
 * @{
 */

/**
 * Stores a section of events or replaces the one it follows, lets its filter wait for the next
 * version when its table is complete, and tells the client of a new or changed section once the
 * lock is given up; the client hears of a new one even when memory or the limits of 8,192 services
 * and 128 MiB were exhausted. Takes Ts_Eit_Mutex.
 *
 * @param table_id        folded, as in SiEitSection
 * @param section_number  of the section
 * @param sect_len        readable bytes at section
 * @param section         its bytes from table_id on; copied. Null is taken as no bytes, which are
 * not stored
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_ListEitImpl(uint16_t original_network_id, uint16_t transport_stream_id,
                                         uint16_t service_id, uint8_t table_id,
                                         uint8_t section_number, uint16_t sect_len,
                                         const uint8_t *section);

/**
 * Tells the list of events, to be read with Ts_Eit_Mutex held.
 *
 * @return the list of SiEitService itself; null before Orva_Si_InitTables
 */
ORVA_SI_API si_list *Orva_Si_GetDvbEitList(void);

/** Empties the event store. Takes Ts_Eit_Mutex. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_EraseAllEitRawData(void);

/** Kept for its callers; does nothing. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_RemoveEitRawData(void);

/**
 * Tells whether the table of the tuned multiplex to which a section belongs is complete for a
 * service: both sections of present/following, or one section of each segment of a schedule, in one
 * version. Then lets its filter wait for the next version. Ts_Eit_Mutex held.
 *
 * @param peit     the service
 * @param section  readable as far as its section_length says
 * @return 1 when complete; 0 when not, for other multiplexes and for null
 */
ORVA_SI_API uint32_t Si_ModListImpl_IsEITCompleted(SiEitService *peit, const uint8_t *section);

/** @} */

/**
 * @name Programs of the PAT, bulk deletions
 * @{
 */

/** Forgets all programs and the tuned one. Lock held. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_Model_ResetPmtPidList(void);

/** Forgets the tuned program, so that the next PAT opens its PMT filters anew. @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Si_Model_ResetCurTuningProgramNum(void);

/**
 * Looks the tuned program up among the programs. Lock held.
 *
 * @return ORVA_SI_OK, also when none is tuned; ORVA_SI_FAILURE when the PAT does not list it
 */
ORVA_SI_API uint32_t Si_Model_UpdateCurPmtInfo(void);

/** Tells the PID of a program's PMT, as the PAT lists it. Lock held. @return it; SI_ANY_PID for
 * program 0 or one that the PAT does not list */
ORVA_SI_API uint32_t Si_Model_GetPmtPid(uint16_t prog_num);

/** As Si_Model_GetPmtPid. */
ORVA_SI_API uint32_t Orva_Si_GetPmtPid(uint32_t prog_num);

/** Tells whether the PAT lists a program. @return 1 or 0; 0 for SI_NO_PROGRAM */
ORVA_SI_API uint32_t Orva_Si_IsPmtExisted(uint32_t program_number);

/**
 * Tells whether the PAT lists a program with this PID of its PMT.
 *
 * @param pmt_pid  low 16 bits
 * @return 1 or 0; 0 for SI_NO_PROGRAM and SI_ANY_PID
 */
ORVA_SI_API uint32_t Orva_Si_IsPmtExistedByPidAndProgNum(uint32_t program_number, uint32_t pmt_pid);

/** Tells whether there are programs and the PMT of each is stored. Lock held. @return 1 or 0 */
ORVA_SI_API uint32_t Orva_Si_DoAllPmtReady(void);

/**
 * Lists the program numbers of the PAT in its order. Takes Ts_Ctl_Mutex.
 *
 * @param proglist  array to fill
 * @param pcount    capacity on entry, number written on return; signed, unlike all other counts
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_ARRAY_FULL when there are more;
 * ORVA_SI_NO_DATA when none was written, also for a capacity of 0
 */
ORVA_SI_API uint32_t Orva_Si_GetPatProgList(uint16_t *proglist, int32_t *pcount);

/**
 * Removes the PMTs that the PAT no longer lists under their PID. Reaches every table of a store of
 * fewer than 256; beyond, its positions wrap. Lock held.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_DelMissedPmtCaches(void);

/** Removes all PMTs; reaches as far as Orva_Si_DelMissedPmtCaches. Lock held. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_DeleteAllPmtCaches(void);

/**
 * Removes all tables. Lock held.
 *
 * @param mode  ignored
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_DeleteCaches(uint32_t mode);

/** As Orva_Si_DeleteCaches. Lock held. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_ClearCache(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
