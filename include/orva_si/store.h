/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_STORE_H
#define ORVA_SI_STORE_H

#include <pthread.h>

#include "orva_si/list.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * The store of raw sections, the dispatcher that fills it and the programs of the PAT.
 *
 * Ts_Ctl_Mutex guards the list of tables and all below it. Functions that say "lock held" are
 * called with it held, by the library's section thread or by a client that takes the exported mutex
 * itself with Orva_MutexP and Orva_MutexV; they never take it. What they return or accept as
 * pointer into the store is valid until it is given up.
 */

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
    uint16_t pid;
    uint16_t filter_id; /**< the filter that delivered it; only on a section handed in */
    uint16_t sect_len; /**< handed in: bytes delivered; stored: bytes of the section, section_length
                          + 3 */
    uint8_t
        *section; /**< from table_id to CRC_32; a stored copy's buffer is rounded up to 32 bytes */
} SiSection;

/** One sub-table of the store. Owned by the store with its list, links, sections and buffers. */
typedef struct SiTable {
    uint16_t pid;
    uint8_t table_id;
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
    uint16_t pid;
    uint8_t table_id;
    uint16_t ext;
    uint16_t ext1;
    uint16_t ext2;
} SiTableKey;

/** The sections of one service's events. */
typedef struct SiEitService {
    uint16_t original_network_id;
    uint16_t transport_stream_id;
    uint16_t service_id;
    si_list *sections; /**< SiEitSection, in order of arrival */
} SiEitService;

/** One section of events (EN 300 468, 5.2.4). A client with the lock may add and take out elements
 * of the list, but does not write into those of the store. */
typedef struct SiEitSection {
    uint16_t table_id; /**< folded: 0x4E present/following, 0x50-0x5F schedule, also of other
                          multiplexes */
    uint16_t sect_len; /**< bytes of the section */
    uint8_t section_number;
    uint8_t *section; /**< as received; null after a failed update */
} SiEitSection;

/** The programs of the PAT (ISO/IEC 13818-1, 2.4.4.3). */
typedef struct SiPmtPidList {
    struct {
        uint16_t program_number;
        uint16_t pmt_pid; /**< 13 bits */
    } pmtpid_array[255];
    uint32_t count;        /**< entries in use, at most 255 */
    uint16_t cur_prog_num; /**< the tuned program; SI_NO_PROGRAM for none */
    uint16_t cur_pmt_pid;  /**< its PMT's PID; SI_ANY_PID while unknown */
} SiPmtPidList;

/* ---- tables
 * ------------------------------------------------------------------------------------------- */

/**
 * Creates the empty stores and the three mutexes. Called once by the section thread.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE at the first failure, what was created stays
 */
ORVA_SI_API uint32_t Orva_Si_InitTables(void);

/** @return the list of SiTable itself; null before Orva_Si_InitTables and after
 * Orva_Si_DestorySectModel */
ORVA_SI_API si_list *Orva_Si_GetTableList(void);

/**
 * Creates a table from its first section and appends it to the list; the section itself is not
 * stored. Lock held.
 *
 * @param psection  8 readable bytes, 12 on PID 0x0012
 * @return the table; null for a null section, without a store, or when memory or the limit of 4,096
 * tables is exhausted
 */
ORVA_SI_API SiTable *Orva_Si_CreateTable(uint16_t pid, uint8_t table_id, const uint8_t *psection);

/** @return the oldest table that the key matches; null when there is none. Lock held. */
ORVA_SI_API SiTable *Orva_Si_FindTableById(uint16_t pid, uint8_t table_id, uint16_t ext,
                                           uint16_t ext1, uint16_t ext2);

/** @return 1 when the key matches the table, else 0, also for a null table. Lock held. */
ORVA_SI_API uint32_t Orva_Si_IsEqualTableById(const SiTable *ptbl, uint16_t pid, uint8_t table_id,
                                              uint16_t ext, uint16_t ext1, uint16_t ext2);

/** Compares a SiTableKey with a SiTable, for si_list_find. @return 0 for a match, else -1, also for
 * null */
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

/* ---- sections
 * ----------------------------------------------------------------------------------------- */

/**
 * Stores a copy of a section in a table. Lock held.
 *
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

/** Kept for its callers. @return 0 always */
ORVA_SI_API uint32_t Orva_Si_TestSectMap(const uint8_t *map, uint8_t section_number);

/**
 * Tells whether a map holds every section up to last_section_number.
 *
 * @param map           32 bytes
 * @param segment_last  null, or for each segment of eight sections the last section_number that it
 * has
 * @return 1 or 0
 */
ORVA_SI_API uint32_t Orva_Si_IsSegSectCompleted(const uint8_t *map, uint8_t last_section_number,
                                                const uint8_t *segment_last);

/** Compares the CRC_32 fields of two sections; nothing is computed. @return 1 when equal; 0, also
 * for null */
ORVA_SI_API uint32_t Orva_Si_IsCrcEqual(const uint8_t *psect, const uint8_t *psectb);

/*
 * Summaries: the exclusive or of the CRC_32 fields of all sections of the complete tables that
 * match; 0 when there is none. A client compares them to learn of a change. Each answers
 * ORVA_SI_OK, or ORVA_SI_NULL_ARGUMENT; each takes Ts_Ctl_Mutex. Of ids the low 16 bits count.
 */

/** All PATs. */
ORVA_SI_API uint32_t Orva_Si_GetPATCRC(uint32_t *pPATCRC);
/** NIT actual and other of a network, folded into one value. */
ORVA_SI_API uint32_t Orva_Si_GetNITCRC(uint32_t network_id, uint32_t *pNITCRC);
/** SDT actual and other of a transport stream, and a BAT whose bouquet_id has the same number. */
ORVA_SI_API uint32_t Orva_Si_GetSDTCRC(uint32_t transport_stream_id, uint32_t *pSDTCRC);
/** The BAT of a bouquet. */
ORVA_SI_API uint32_t Orva_Si_GetBATCRC(uint32_t bouquet_id, uint32_t *pBATCRC);

/* ---- dispatcher
 * --------------------------------------------------------------------------------------- */

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

/** The branch for events on PID 0x0012. @return as Orva_Si_ListEitImpl; ORVA_SI_NULL_ARGUMENT;
 * ORVA_SI_FAILURE for another PID */
ORVA_SI_API uint32_t Si_Model_HandleEitTables(SiSection *psect);

/**
 * The branch for tables: drops repeats, restarts a table whose content changed, stores, and tells
 * of a table that became complete. Takes Ts_Ctl_Mutex.
 *
 * @return as Si_Model_ProcessModel
 */
ORVA_SI_API uint32_t Si_Model_CollectTables(SiSection *psection);

/** @return the stored section with the PID and section_number of this one; null when there is none.
 * Lock held. */
ORVA_SI_API SiSection *Si_Model_FindSection(SiTable *ptbl, const SiSection *psection);

/** Compares two SiSection by PID and section_number, for si_list_find. @return 0 for a match, else
 * -1 */
ORVA_SI_API int32_t find_section(const void *record, const void *stored);

/* ---- events
 * ------------------------------------------------------------------------------------------- */

/**
 * Stores a section of events or replaces the one it follows, lets its filter wait for the next
 * version when its table is complete, and tells the client of a new or changed section once the
 * lock is given up; the client hears of a new one even when memory or the limits of 8,192 services
 * and 128 MiB were exhausted. Takes Ts_Eit_Mutex.
 *
 * @param table_id  folded, as in SiEitSection
 * @param sect_len  readable bytes at section
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_ListEitImpl(uint16_t original_network_id, uint16_t transport_stream_id,
                                         uint16_t service_id, uint8_t table_id,
                                         uint8_t section_number, uint16_t sect_len,
                                         const uint8_t *section);

/** @return the list of SiEitService itself; null before Orva_Si_InitTables */
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
 * @param section  readable as far as its section_length says
 * @return 1 when complete; 0 when not, for other multiplexes and for null
 */
ORVA_SI_API uint32_t Si_ModListImpl_IsEITCompleted(SiEitService *peit, const uint8_t *section);

/* ---- programs of the PAT, bulk deletions
 * -------------------------------------------------------------- */

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

/** @return the PMT's PID of a program; SI_ANY_PID for program 0 or one that the PAT does not list
 */
ORVA_SI_API uint32_t Si_Model_GetPmtPid(uint16_t prog_num);

/** As Si_Model_GetPmtPid; of prog_num the low 16 bits count. Ts_Ctl_Mutex is not taken. */
ORVA_SI_API uint32_t Orva_Si_GetPmtPid(uint32_t prog_num);

/** @return 1 when the PAT lists the program (low 16 bits), else 0; 0 for SI_NO_PROGRAM */
ORVA_SI_API uint32_t Orva_Si_IsPmtExisted(uint32_t program_number);

/** @return 1 when the PAT lists the program with this PMT PID (low 16 bits each), else 0 */
ORVA_SI_API uint32_t Orva_Si_IsPmtExistedByPidAndProgNum(uint32_t program_number, uint32_t pmt_pid);

/** @return 1 when there are programs and the PMT of each is stored, else 0. Lock held. */
ORVA_SI_API uint32_t Orva_Si_DoAllPmtReady(void);

/**
 * Lists the program numbers of the PAT in its order. Takes Ts_Ctl_Mutex.
 *
 * @param proglist  array to fill
 * @param pcount    capacity on entry, number written on return
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_ARRAY_FULL when there are more; SI_NO_DATA
 * when none was written, also for a capacity of 0
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

/** Removes all tables. Lock held. @param mode ignored @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_DeleteCaches(uint32_t mode);

/** As Orva_Si_DeleteCaches. Lock held. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_ClearCache(void);

#ifdef __cplusplus
}
#endif

#endif
