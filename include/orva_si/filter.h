/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Section filters: the table of functions through which the client adapts its demultiplexer driver,
 * the callbacks that the driver calls, and the filter tasks that fetch each kind of table.
 *
 * The library requests 31 filters at start and keeps them until Orva_Si_DeInit. Each kind of table
 * has a filter task: the filters that it owns and its requests (items), one for every table to
 * fetch. With fewer filters than requests the filters go round; a request whose table does not come
 * is passed over by the background services (background.h).
 *
 * A client needs the table of functions, the callbacks, and the DSM-CC and latch functions; the
 * rest stands behind channel.h.
 *
 * @par Arguments
 * Of numbers wider than the field that they name, the low bits of the field's width count.
 * - `demux`: index of the demultiplexer; the library itself always passes 0
 * - `filter_id`: of the filter, low 16 bits, as AddSecFilter gave it
 * - `version`: version_number of the table that is stored, low 8 bits; 0xFF for none
 * - `finished`: kept in the request until the filter is armed anew; the library passes 1
 * - `program_number`: of the program
 * - `pid`: 13 bits
 * - `table_id`: as broadcast
 * - `service_id`, `transport_stream_id`, `original_network_id`: the service; 0xFFFF for any
 *
 * @par Results
 * Unless a comment says otherwise a start answers ORVA_SI_OK; ORVA_SI_TABLE_DISABLED when the
 * enable flag of its kind (readiness.h) is clear; ORVA_SI_FAILURE when memory is exhausted. A stop
 * works on disabled tables too and answers ORVA_SI_OK. An update says that a table of this version
 * is stored, and arms the filter for any other: ORVA_SI_OK or the driver's status; ORVA_SI_FAILURE
 * when no filter serves the table or filters go round; ORVA_SI_TABLE_DISABLED.
 *
 * @par Memory
 * The handler table is the client's and must outlive the library. Sections are the driver's, copied
 * during the callback. Lists of services and programs are copied. Requests and filters are the
 * library's own.
 *
 * @par Threads and locks
 * The driver calls the two callbacks on any thread of its own, also on several. The section thread
 * takes what they queue and processes it. Everything else runs on the client's threads, or where
 * its comment says so.
 *
 * One mutex, the filter pool's, guards filters and tasks. Functions that start, stop and update
 * take it for their whole run; they may be called with Ts_Ctl_Mutex and Ts_Eit_Mutex held. The
 * steps at the end of this file expect it to be held, which only the library can do.
 */
#ifndef ORVA_SI_FILTER_H
#define ORVA_SI_FILTER_H

#include "orva_si/channel.h"
#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** GLib's singly linked list, as the task records carry it. */
typedef struct _GSList GSList;

/**
 * @name The driver
 * @{
 */

/**
 * A section as the driver delivers it: from table_id to CRC_32, in one part, or in two where it
 * wraps around the end of the driver's ring buffer. Both parts together have 4 to 4096 bytes.
 */
typedef struct SiDmxSection {
    uint8_t *pPrimaraySectionData;  /**< the section, or its first part */
    uint32_t PrimaraySectionSize;   /**< bytes, at least 1 */
    uint8_t *pSecondarySectionData; /**< null when there is no second part */
    uint32_t SecondarySectionSize;  /**< bytes, 0 when there is no second part */
    /** Passed to FreeSecData; means nothing to the library, may be an address. */
    SiWord BufferHandle;
} SiDmxSection;

/** A batch of sections of one filter, with one buffer for all of them. */
typedef struct SiDmxSectionList {
    uint32_t section_count; /**< 1 to 200 */
    SiDmxSection *section;  /**< their handles are not used */
    SiWord BufferHandle;    /**< of the whole batch */
} SiDmxSectionList;

/**
 * What a filter is to let through, passed by value. Byte i of match, mask and negate belongs to
 * byte i of the section, counted from table_id. A section passes when every bit in mask equals that
 * of match, and, if any bit of negate is set, the bits in negate taken together differ from those
 * of match. Byte 2, part of section_length, is never matched. The first 80 bytes have the same
 * layout on every machine.
 */
typedef struct SiDmxFilterParam {
    uint16_t pid;       /**< 13 bits */
    uint8_t start_flag; /**< 0 in AddSecFilter, 1 in UpdateSecFilter */
    uint32_t list_mode; /**< 0: sections one by one; 1: in batches */
    /** Sections of a batch, 1 to 200; 1 in single delivery; 0 in AddSecFilter. */
    uint32_t list_length;
    uint32_t reserved;    /**< 0 */
    uint8_t option;       /**< 1 */
    uint8_t filter_depth; /**< leading bytes that match, mask and negate cover */
    uint8_t match[20];    /**< the bits wanted */
    uint8_t mask[20];     /**< the bits that must be as wanted */
    uint8_t negate[20];   /**< the bits of which at least one must be otherwise */
    uint8_t padding[2];   /**< 0 */
    /** Si_SectFlt_PidFltCallback in single delivery, else null. */
    uint32_t (*section_callback)(uint32_t demux, uint32_t filter_id, SiWord reserved,
                                 struct SiDmxSection *section);
    /** Si_SectFlt_PidFltSecListCallback in list delivery, else null. */
    uint32_t (*section_list_callback)(uint32_t demux, uint32_t filter_id, SiWord reserved,
                                      struct SiDmxSectionList *sec_list);
} SiDmxFilterParam;

/**
 * The driver, as the client provides it. Every function returns 0 for success; another value is
 * logged and taken as a failure. demux is always 0, except in FreeSecData, which gets what the
 * driver gave its callback.
 *
 * RemoveSecFilter, DisableSecFilter, AddSecFilter and UpdateSecFilter are called with the library's
 * locks held, some also on its section thread: they must not call a start or stop function, nor
 * wait for the section thread. They may wait for a callback that runs. Of a filter that was off,
 * sections delivered before UpdateSecFilter has returned are dropped; of one that was on, those of
 * the new setting are taken. EnableSecFilter is called only for a client that calls
 * Si_SectFlt_EnableSecFilter, on its thread, and may come while one of the others runs.
 */
typedef struct SiDmxSectHandler {
    /** Initialises the demultiplexer. After a failure no filter is requested: the library starts,
     * but receives nothing. */
    uint32_t (*DemuxInit)(uint32_t demux);
    /** Takes a section's or batch's buffer back; called inside the callback that lent it. */
    uint32_t (*FreeSecData)(uint32_t demux, uint32_t filter_id, SiWord buffer_handle);
    /** Releases a filter. */
    uint32_t (*RemoveSecFilter)(uint32_t demux, uint32_t filter_id);
    /** Switches a filter on. */
    uint32_t (*EnableSecFilter)(uint32_t demux, uint32_t filter_id);
    /** Switches a filter off; it stays allocated. */
    uint32_t (*DisableSecFilter)(uint32_t demux, uint32_t filter_id);
    /** Allocates a filter and writes its id, of which 16 bits count and 32 means none. */
    uint32_t (*AddSecFilter)(uint32_t demux, uint32_t *filter_id, SiDmxFilterParam param);
    /** Loads new settings into a filter and starts it. */
    uint32_t (*UpdateSecFilter)(uint32_t demux, uint32_t filter_id, SiDmxFilterParam param);
} SiDmxSectHandler;

/** @} */

/**
 * @name Requests and filters
 * The library's own records, to be read only.
 * @{
 */

/** What every request begins with. */
typedef struct task_item {
    uint8_t active;    /**< 1 while a filter serves it */
    uint32_t wanted;   /**< 0: keeps its filter; else it may time out and rotates */
    uint32_t finished; /**< value of the last update; 0 once a filter serves it again */
} task_item;

/** Request for PAT, CAT, SDT and BAT, TDT and TOT. */
typedef struct task_item_plain {
    uint8_t active;    /**< as in task_item */
    uint32_t wanted;   /**< as in task_item */
    uint32_t finished; /**< as in task_item */
    uint8_t version;   /**< version_number to pass over; 0xFF for none */
} task_item_plain;

/** Request for the NIT. */
typedef struct task_item_nit {
    uint8_t active;      /**< as in task_item */
    uint32_t wanted;     /**< as in task_item */
    uint32_t finished;   /**< as in task_item */
    uint8_t flag;        /**< not 0: NIT actual only, of any network */
    uint16_t network_id; /**< NIT actual and other of this network; 0xFFFF for any */
    uint8_t version;     /**< as in task_item_plain */
} task_item_nit;

/** Request for a program's PMT. */
typedef struct task_item_pmt {
    uint8_t active;          /**< as in task_item */
    uint32_t wanted;         /**< as in task_item */
    uint32_t finished;       /**< as in task_item */
    uint16_t program_number; /**< the program */
    uint16_t pid;            /**< of its PMT, as the PAT gives it */
    uint8_t version;         /**< as in task_item_plain */
    uint16_t timeout;        /**< background runs that it keeps a filter, less one */
} task_item_pmt;

/** Request for DSM-CC sections. */
typedef struct task_item_dsm {
    uint8_t active;    /**< as in task_item */
    uint32_t wanted;   /**< as in task_item */
    uint32_t finished; /**< as in task_item */
    uint16_t pid;      /**< on which they are sent */
} task_item_dsm;

/** Request for a service's events. */
typedef struct task_item_eit {
    uint8_t active;               /**< as in task_item */
    uint32_t wanted;              /**< as in task_item */
    uint32_t finished;            /**< as in task_item */
    uint8_t flag;                 /**< 1 once its first turn is over */
    uint8_t table_id;             /**< the sub-table being fetched */
    uint8_t table_id_mask;        /**< bits of table_id that count */
    uint8_t last_table_id;        /**< last sub-table of the service as far as known */
    uint8_t version;              /**< as in task_item_plain */
    uint16_t service_id;          /**< 0xFFFF for any, also below */
    uint16_t transport_stream_id; /**< of the service */
    uint16_t original_network_id; /**< of the service */
    uint16_t list_length;         /**< sections of a batch */
    uint16_t limit;               /**< background runs that it keeps a filter, less one */
} task_item_eit;

/** A filter of the pool. */
typedef struct pid_filter {
    uint8_t used;            /**< 1 while a task owns it */
    uint8_t enabled;         /**< 1 while the driver runs it with these settings */
    uint8_t table_id;        /**< it is found by these three; 0xFF for any */
    uint16_t pid;            /**< SI_ANY_PID: not set */
    uint16_t service_id;     /**< 0xFFFF for any */
    uint16_t filter_id;      /**< the driver's; SI_NO_FILTER for none */
    uint8_t option;          /**< 1 */
    uint8_t ticks;           /**< background runs since it was armed */
    task_item *item;         /**< the request that it serves; null while idle */
    uint8_t match_table_id;  /**< section byte 0 */
    uint8_t mask_table_id;   /**< the bits of it that count */
    uint32_t syntax_mode;    /**< section_syntax_indicator: 0 clear, 1 set, 2 any */
    uint8_t version;         /**< version_number to pass over; 0xFF for none */
    uint8_t current_next;    /**< 1 */
    uint16_t section_number; /**< low byte; 0xFFFF for any */
    uint16_t table_id_ext;   /**< section bytes 3 and 4; 0xFFFF for any */
    uint16_t header_a;       /**< section bytes 8 and 9; 0xFFFF for any */
    uint16_t header_b;       /**< section bytes 10 and 11; 0xFFFF for any */
} pid_filter;

/** A filter task. */
typedef struct filter_task {
    /** 0 PAT, 1 CAT, 2 PMT, 3 NIT, 4 SDT and BAT, 5 TDT and TOT, 6 EIT present/following actual, 7
     * other, 8 EIT schedule actual, 9 other, 10 DSM-CC. */
    uint32_t task_id;
    uint32_t mode;            /**< 0: a filter for each item; 1: filters go round; 2: idle */
    GSList *filter_list;      /**< pid_filter */
    uint8_t filter_count;     /**< records in filter_list */
    uint8_t filter_quota;     /**< filters that other tasks leave it */
    GSList *task_list;        /**< items, oldest first */
    uint16_t task_count;      /**< items in task_list */
    uint16_t next_task_index; /**< where the next search for a pending item begins */
    uint32_t (*init_func)(pid_filter *record);               /**< loads the table's defaults */
    uint32_t (*filter_func)(pid_filter *record, void *item); /**< arms a record for an item */
    uint32_t (*flush_task_func)(void *item, struct filter_task *task); /**< frees an item */
} filter_task;

/** @} */

/**
 * @name The driver's functions
 * Each calls its function of the table. Once Orva_Si_Init was called a client uses
 * Si_SectFlt_EnableSecFilter alone of these: the library calls the others one at a time, which a
 * driver relies on.
 *
 * @par Results
 * ORVA_SI_NULL_ARGUMENT without table or function, else what that function returns.
 *
 * @par Locks
 * None is taken.
 * @{
 */

/**
 * Installs the driver.
 *
 * @param table  must outlive the library; null uninstalls it
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Si_SectFlt_SetDmxSectHandler(SiDmxSectHandler *table);

/**
 * Installs the driver, initialises it and requests all filters. Part of Orva_Si_Init.
 *
 * @param table  as above
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when the initialisation fails; the status of the first
 * refused request, the filters granted before it stay; ORVA_SI_NULL_ARGUMENT without AddSecFilter
 */
ORVA_SI_API uint32_t Si_SectFlt_InitPidFlts(SiDmxSectHandler *table);

/** Releases all filters. Part of Orva_Si_DeInit. @return ORVA_SI_OK; ORVA_SI_FAILURE when the
 * driver could not release one of them */
ORVA_SI_API uint32_t Si_SectFlt_DeInitPidFlts(void);

/** The same as Si_SectFlt_RemoveSecFilter. */
ORVA_SI_API uint32_t Orva_Si_FreeDmxFilter(uint32_t demux, uint32_t filter_id);

/** Calls DemuxInit. */
ORVA_SI_API uint32_t Si_SectFlt_DemuxInit(uint32_t demux);
/**
 * Calls FreeSecData.
 *
 * @param buffer_handle  of the section or batch
 */
ORVA_SI_API uint32_t Si_SectFlt_FreeSecData(uint32_t demux, uint32_t filter_id,
                                            SiWord buffer_handle);
/** Calls RemoveSecFilter. */
ORVA_SI_API uint32_t Si_SectFlt_RemoveSecFilter(uint32_t demux, uint32_t filter_id);
/** Calls EnableSecFilter. What the library knows of the filter does not change, nor below. */
ORVA_SI_API uint32_t Si_SectFlt_EnableSecFilter(uint32_t demux, uint32_t filter_id);
/** Calls DisableSecFilter. */
ORVA_SI_API uint32_t Si_SectFlt_DisableSecFilter(uint32_t demux, uint32_t filter_id);
/**
 * Calls AddSecFilter.
 *
 * @param filter_id  receives the id; passed as it is
 * @param param      the first settings
 */
ORVA_SI_API uint32_t Si_SectFlt_AddSecFilter(uint32_t demux, uint32_t *filter_id,
                                             SiDmxFilterParam param);
/**
 * Calls UpdateSecFilter.
 *
 * @param param  the new settings
 */
ORVA_SI_API uint32_t Si_SectFlt_UpdateSecFilter(uint32_t demux, uint32_t filter_id,
                                                SiDmxFilterParam param);

/** @} */

/**
 * @name The road of a section
 * @{
 */

/**
 * What the driver calls for a section in single delivery. The section is copied and queued, its
 * buffer given back before the return, whatever was wrong with it; only a null descriptor gives
 * nothing back. A section is dropped when its filter is not armed, its length is not 4 to 4096, or
 * memory is exhausted. With 100 or more sections queued only PAT, CAT, PMT, NIT, SDT, BAT and the
 * actual EIT of the tuned service are taken, and none beyond 2,048 sections or 4 MiB.
 *
 * @param demux      passed back to FreeSecData
 * @param filter_id  low 16 bits
 * @param reserved   not used; the driver's own
 * @param section    the driver's, needed during the call only
 * @return 0
 *
 * Any thread. Takes the lock of the queue only, never for long.
 */
ORVA_SI_API uint32_t Si_SectFlt_PidFltCallback(uint32_t demux, uint32_t filter_id, SiWord reserved,
                                               SiDmxSection *section);

/**
 * What the driver calls for a batch in list delivery. As above, with one buffer for the batch; a
 * broken section is passed over, and with more than 100 sections queued the whole batch is dropped.
 *
 * @param demux      passed back to FreeSecData
 * @param filter_id  low 16 bits
 * @param reserved   not used; the driver's own
 * @param sec_list   the driver's, needed during the call only; null gives nothing back
 * @return 0
 *
 * Any thread. Takes the lock of the queue only, never for long.
 */
ORVA_SI_API uint32_t Si_SectFlt_PidFltSecListCallback(uint32_t demux, uint32_t filter_id,
                                                      SiWord reserved, SiDmxSectionList *sec_list);

/**
 * Tells how many sections are queued or being processed, for a driver that must not run ahead.
 *
 * @return the number; who reads 0 sees what the processing has done
 *
 * Any thread, no lock.
 */
ORVA_SI_API uint32_t Si_SectFlt_GetPendingCount(void);

/**
 * Lets sections reach the store, or has them freed unprocessed. Takes the lock of the queue.
 *
 * @param flag  not 0: they reach it
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Si_SectFlt_EnableProcessData(uint32_t flag);

/** Frees what is queued. Takes the lock of the queue. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_FlushTmpList(void);

/**
 * Tells whether the section thread is busy: waits up to 250 ms for it. No lock.
 *
 * @return 0 idle; 1 busy, inside the client's callback always
 */
ORVA_SI_API uint32_t Si_SectFlt_CheckRunningStatus(void);

/**
 * Body of the section thread: creates the stores, then processes sections for ever. Not for
 * clients.
 *
 * @param param  not used, may be null
 * @return (void *)1, and only when the stores could not be created
 */
ORVA_SI_API void *Ts_Monitor_Fn(void *param);

/**
 * Gives a section to the dispatcher and frees it; drops it when acquisition was stopped, its filter
 * is not armed any more, or it is a PMT on another PID than the PAT's.
 *
 * @param node  of GLib's slice allocator, with a buffer rounded up to 32 bytes; freed in any case
 * @return the dispatcher's result; ORVA_SI_FAILURE when dropped; ORVA_SI_NULL_ARGUMENT for a null
 * node or section
 *
 * Takes Ts_Ctl_Mutex and what the dispatcher takes.
 */
ORVA_SI_API uint32_t Si_SectFlt_ProcessModel(SiSection *node);

/**
 * Frees a section and its buffer.
 *
 * @param node  made as above; its section may be null
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Si_SectFlt_FlushSectionData(SiSection *node);

/**
 * Tells whether single delivery takes such a section now: always with fewer than 100 queued. No
 * lock.
 *
 * @param section  from table_id on; null is never taken with more queued
 * @param length   its bytes
 * @return 1 or 0
 */
ORVA_SI_API uint32_t Si_SectFlt_IsCriticalSection(const uint8_t *section, uint32_t length);

/** @} */

/**
 * @name PAT, CAT, NIT, SDT and BAT, TDT and TOT
 * A filter of their own each. A start of what is started answers ORVA_SI_FAILURE.
 * @{
 */

/** Starts to fetch the PAT. */
ORVA_SI_API uint32_t Si_SectFlt_StartPat(void);
/** Starts to fetch the CAT. */
ORVA_SI_API uint32_t Si_SectFlt_StartCat(void);
/** Starts to fetch SDTs, actual and other, and BATs. */
ORVA_SI_API uint32_t Si_SectFlt_StartSdtBat(void);
/**
 * Starts to fetch TDT and TOT.
 *
 * @return ORVA_SI_OK, also when they are disabled: the request is queued but not armed;
 * ORVA_SI_FAILURE
 */
ORVA_SI_API uint32_t Si_SectFlt_StartTdtTot(void);
/**
 * Starts to fetch NITs.
 *
 * @param flag        low 8 bits; not 0: NIT actual only, of any network; 0: actual and other of one
 * @param network_id  that network; 0xFFFF for any
 */
ORVA_SI_API uint32_t Si_SectFlt_StartNit(uint32_t flag, uint32_t network_id);
/** Says that the PAT is stored. */
ORVA_SI_API uint32_t Si_SectFlt_UpdatePat(uint32_t version, uint32_t finished);
/** Says that the CAT is stored. */
ORVA_SI_API uint32_t Si_SectFlt_UpdateCat(uint32_t version, uint32_t finished);
/** Says that an SDT or BAT is stored. */
ORVA_SI_API uint32_t Si_SectFlt_UpdateSdtBat(uint32_t version, uint32_t finished);
/**
 * Says that a NIT is stored.
 *
 * @param network_id  the network that the filter is for from now on
 */
ORVA_SI_API uint32_t Si_SectFlt_UpdateNit(uint32_t network_id, uint32_t version, uint32_t finished);
/** Stops fetching the PAT. */
ORVA_SI_API uint32_t Si_SectFlt_StopPat(void);
/** Stops fetching the CAT. */
ORVA_SI_API uint32_t Si_SectFlt_StopCat(void);
/** Stops fetching NITs. */
ORVA_SI_API uint32_t Si_SectFlt_StopNit(void);
/** Stops fetching SDTs and BATs. */
ORVA_SI_API uint32_t Si_SectFlt_StopSdtBat(void);
/** Stops fetching TDT and TOT. */
ORVA_SI_API uint32_t Si_SectFlt_StopTdtTot(void);

/** Stops every task, frees what is queued and pauses the background services. @return ORVA_SI_OK,
 * or the first failure */
ORVA_SI_API uint32_t Si_SectFlt_StopAllFilters(void);

/** @} */

/**
 * @name PMT
 * @{
 */

/**
 * Requests the PMT of every program of a list. With the tuned program among them two filters are
 * used, of which it keeps one; else all that are free.
 *
 * @param pmtpid_list  not kept; programs 0 and 0xFFFF and PID SI_ANY_PID are passed over
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_TABLE_DISABLED; ORVA_SI_FAILURE when memory is
 * exhausted, or while PMTs are being filtered: stop them first
 */
ORVA_SI_API uint32_t Si_SectFlt_StartPmt(const SiPmtPidList *pmtpid_list);

/** Says that the PMT of a program is stored, which came on this PID. */
ORVA_SI_API uint32_t Si_SectFlt_UpdatePmt(uint32_t program_number, uint32_t pid, uint32_t version,
                                          uint32_t finished);

/**
 * Stops fetching PMTs.
 *
 * @return ORVA_SI_OK; ORVA_SI_TABLE_DISABLED when PMTs are disabled, they are stopped all the same
 */
ORVA_SI_API uint32_t Si_SectFlt_StopPmt(void);

/**
 * Lets a program keep a filter, so that every change of its PMT is seen at once. The tuned program
 * always does.
 *
 * @return ORVA_SI_OK; the driver's status; ORVA_SI_FAILURE when the program is not requested, every
 * program has a filter already, or no filter goes round; ORVA_SI_TABLE_DISABLED
 */
ORVA_SI_API uint32_t Orva_Si_LatchPmt(uint32_t program_number);

/** Undoes Orva_Si_LatchPmt. @return ORVA_SI_OK; ORVA_SI_FAILURE when no filter serves the program;
 * ORVA_SI_TABLE_DISABLED */
ORVA_SI_API uint32_t Orva_Si_UnLatchPmt(uint32_t program_number);

/** Background service 0: ages the PMT filters. Timer thread. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_PmtBgService(void);

/** @} */

/**
 * @name DSM-CC
 * The filters pass table_id 0x38 to 0x3F (ISO/IEC 13818-6). Of sections with 0x3B, 0x3C and 0x3D
 * the client is told through SI_REASON_DSMCC, with each one that arrives; others are kept as
 * tables.
 * @{
 */

/**
 * Filters a PID, anew when it is filtered already. Enables DSM-CC.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE with five PIDs filtered, or without memory;
 *         ORVA_SI_TABLE_DISABLED when a stop came in between
 */
ORVA_SI_API uint32_t Orva_Si_StartDsmFilter(uint32_t pid);

/** Stops filtering a PID. @return ORVA_SI_FAILURE always, which is no failure */
ORVA_SI_API uint32_t Orva_Si_StopDsmFilter(uint32_t pid);

/** Stops all PIDs and disables DSM-CC. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_StopAllDsmFilters(void);

/** Tells whether a PID is filtered for DSM-CC. @return 1 or 0 */
ORVA_SI_API uint32_t Si_SectFlt_IsDsmccPid(uint32_t pid);

/** @} */

/**
 * @name EIT
 * The filters of a kind (EN 300 468 clause 5.2.4) are few: two for present/following and five for
 * the schedule of the tuned multiplex, one for each kind of other multiplexes. Requests add to
 * those of earlier calls; what is requested already is not queued again.
 * @{
 */

/**
 * Requests present/following events of services of the tuned multiplex. The tuned service is served
 * first and keeps its filter.
 *
 * @param sid_array    service_ids; 0xFFFF, alone, stands for all of them
 * @param array_count  1 to 255
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_INVALID_ARGUMENT for another count;
 * ORVA_SI_TABLE_DISABLED; ORVA_SI_FAILURE when no program is tuned or memory is exhausted
 */
ORVA_SI_API uint32_t Si_SectFlt_StartActPfEit(uint32_t transport_stream_id,
                                              uint32_t original_network_id,
                                              const uint16_t *sid_array, uint32_t array_count);

/**
 * Requests the schedule of services of the tuned multiplex.
 *
 * @param cur_sid      the tuned service; 0xFFFF is refused
 * @param sid_array    service_ids; 0xFFFF is passed over
 * @param array_count  1 to 255
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT; ORVA_SI_INVALID_ARGUMENT for cur_sid or array_count;
 * ORVA_SI_TABLE_DISABLED; ORVA_SI_FAILURE when memory is exhausted
 */
ORVA_SI_API uint32_t Si_SectFlt_StartActSchEit(uint32_t transport_stream_id,
                                               uint32_t original_network_id, uint32_t cur_sid,
                                               const uint16_t *sid_array, uint32_t array_count);

/**
 * Requests present/following events of services of other multiplexes.
 *
 * @param request_array  the services, a service_id of 0xFFFF standing for all of a multiplex; null
 * for all services of all multiplexes
 * @param count          how many; 0 as null
 */
ORVA_SI_API uint32_t Si_SectFlt_StartOtherPfEit(const SiEitRequest *request_array, uint32_t count);
/** As Si_SectFlt_StartOtherPfEit, for their schedule. */
ORVA_SI_API uint32_t Si_SectFlt_StartOtherSchEit(const SiEitRequest *request_array, uint32_t count);

/** Stops fetching present/following events of the tuned multiplex. */
ORVA_SI_API uint32_t Si_SectFlt_StopActPfEit(void);
/** Stops fetching schedules of the tuned multiplex. */
ORVA_SI_API uint32_t Si_SectFlt_StopActSchEit(void);
/** Stops fetching present/following events of other multiplexes. */
ORVA_SI_API uint32_t Si_SectFlt_StopOtherPfEit(void);
/** Stops fetching schedules of other multiplexes. */
ORVA_SI_API uint32_t Si_SectFlt_StopOtherSchEit(void);
/** Stops all four kinds of events. @return ORVA_SI_OK, or the first failure */
ORVA_SI_API uint32_t Si_SectFlt_StopAllEIT(void);

/**
 * Says that a sub-table of a service is complete: its filter goes on to the next sub-table, then
 * waits for another version, or moves on to another service.
 *
 * A schedule counts as complete with one section of each segment. So that none stays out, the
 * filters of the tuned multiplex stay on its sub-tables after the first turn, until the store has
 * every section that the version announces or the time of the request is over: see
 * Si_SectFlt_ActSchEitBgService.
 *
 * @param table_id  as broadcast, 0x4E to 0x6F
 * @return ORVA_SI_OK; the driver's status; ORVA_SI_FAILURE when the filter has left the sub-table,
 * or filters go round; ORVA_SI_TABLE_DISABLED
 */
ORVA_SI_API uint32_t Si_SectFlt_UpdateEit(uint32_t table_id, uint32_t service_id, uint32_t version,
                                          uint32_t finished);

/**
 * Says how far the schedule of a service goes. It is never lowered.
 *
 * @param table_id       of the section that says so
 * @param service_id     of the service
 * @param last_table_id  of that section
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when the service is not requested or table_id is no schedule;
 * ORVA_SI_TABLE_DISABLED
 */
ORVA_SI_API uint32_t Si_SectFlt_UpdateEitLastTableId(uint32_t table_id, uint32_t service_id,
                                                     uint32_t last_table_id);

/**
 * Tells whether the kind of event table that a table_id belongs to is enabled. No lock.
 *
 * @param table_id    as broadcast
 * @param service_id  not used
 * @return 1 or 0
 */
ORVA_SI_API uint32_t Si_SectFlt_IsEitEnabled(uint32_t table_id, uint32_t service_id);

/** Logs the EIT tasks and their requests at level 3. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_PrintEitFilterTask(void);

/**
 * Background service 1: ages the filters of present/following events, those of other multiplexes
 * too. Timer thread.
 *
 * @return ORVA_SI_OK; ORVA_SI_TABLE_DISABLED when those of the tuned multiplex are disabled
 */
ORVA_SI_API uint32_t Si_SectFlt_ActPfEitBgService(void);
/**
 * Background service 2: ages the filters of schedules, those of other multiplexes too. Timer
 * thread; takes Ts_Eit_Mutex.
 *
 * @return as service 1
 */
ORVA_SI_API uint32_t Si_SectFlt_ActSchEitBgService(void);

/** @} */

/**
 * @name Steps of the functions above
 * Not for clients. Called with the filter pool's mutex held, which none of them takes.
 *
 * @par Arguments
 * - `record`: a filter of the pool
 * - `task`: a filter task
 * - `item`: a request of the task's kind
 * - `pat_filter`, `cat_filter`, `pmt_filter`, `nit_filter`, `sdtbat_filter`, `tdttot_filter`,
 * `eit_filter`, `dsm_filter`: a filter of the pool; its filter id stays
 * - `list_length`: sections of a batch, 1 to 200; 1 for single delivery
 * - `count`: how many filters
 *
 * @par Results
 * ORVA_SI_NULL_ARGUMENT for null.
 * @{
 */

/** Loads a record's settings into its filter and starts it. @return ORVA_SI_OK; the driver's
 * status; ORVA_SI_FAILURE for a record without a filter */
ORVA_SI_API uint32_t Si_SectFlt_StartFilter(pid_filter *record, uint32_t list_length);

/**
 * Fills a parameter block from a record, all but the start flag.
 *
 * @param param  written whole
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Si_SectFlt_SetSecFilterSetting(const pid_filter *record, uint32_t list_length,
                                                    SiDmxFilterParam *param);

/**
 * Finds a filter.
 *
 * @param list        of pid_filter
 * @param pid         SI_ANY_PID for any
 * @param table_id    0xFF for any
 * @param service_id  0xFFFF for any
 * @return the first filter of the list with these values; null when there is none
 */
ORVA_SI_API pid_filter *Si_SectFlt_GetFilterFromFilterList(GSList *list, uint16_t pid,
                                                           uint8_t table_id, uint16_t service_id);

/**
 * Finds a free filter.
 *
 * @return the first one that no task owns, but for the five of single tables; null when there is
 * none
 */
ORVA_SI_API pid_filter *Si_SectFlt_GetAvalibleDynamicFilter(void);

/** Loads the defaults of a filter for the PAT. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitPatFilter(pid_filter *pat_filter);
/** Loads the defaults of a filter for the CAT. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitCatFilter(pid_filter *cat_filter);
/** Loads the defaults of a filter for PMTs. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitPmtFilter(pid_filter *pmt_filter);
/** Loads the defaults of a filter for NITs. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitNitFilter(pid_filter *nit_filter);
/** Loads the defaults of a filter for SDTs and BATs. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitSdtBatFilter(pid_filter *sdtbat_filter);
/** Loads the defaults of a filter for TDT and TOT. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitTdtTotFilter(pid_filter *tdttot_filter);
/** Loads the defaults of a filter for events. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitEitFilter(pid_filter *eit_filter);
/** Loads the defaults of a filter for DSM-CC. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_InitDsmFilter(pid_filter *dsm_filter);

/**
 * Arms a filter for a request of the PAT.
 *
 * @return ORVA_SI_OK; the driver's status; ORVA_SI_TABLE_DISABLED
 */
ORVA_SI_API uint32_t Si_SectFlt_StartPatFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for the CAT. */
ORVA_SI_API uint32_t Si_SectFlt_StartCatFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for the NIT. */
ORVA_SI_API uint32_t Si_SectFlt_StartNitFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for SDTs and BATs. */
ORVA_SI_API uint32_t Si_SectFlt_StartSdtBatFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for TDT and TOT. */
ORVA_SI_API uint32_t Si_SectFlt_StartTdtTotFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for a PMT. */
ORVA_SI_API uint32_t Si_SectFlt_StartPmtFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for events. */
ORVA_SI_API uint32_t Si_SectFlt_StartEitFilterTask(pid_filter *record, void *item);
/** As Si_SectFlt_StartPatFilterTask, for DSM-CC. */
ORVA_SI_API uint32_t Si_SectFlt_StartDsmFilterTask(pid_filter *record, void *item);

/** Appends a request, which the task frees. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_AddNewTask(filter_task *task, void *item);
/** Appends a record. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_AddNewFilter(filter_task *task, pid_filter *record);
/** Takes up to count free filters, with the defaults of the table. @return how many; 0 for null */
ORVA_SI_API uint32_t Si_SectFlt_AddAvailableFilters(filter_task *task, uint32_t count);
/**
 * Takes filters from tasks that hold more than their quota; they are free then.
 *
 * @param requester  the task for which this is done, which keeps its own; null when there is none
 * @param count      how many at most
 * @return how many
 */
ORVA_SI_API uint32_t Si_SectFlt_ReduceTaskFilterList(filter_task *requester, uint32_t count);
/** Drops surplus filters, sets the mode and has idle filters serve pending requests. @return
 * ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_TriggerFilterTask(filter_task *task);
/** Gives filters back until there are as many as requests, idle ones first. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_RemoveUselessFilters(filter_task *task);
/** Sets the mode by the counts. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Si_SectFlt_SetFilterMode(filter_task *task);
/**
 * Has an idle filter of a task serve the next pending request.
 *
 * @param record  pid_filter; one that is armed stays as it is
 * @param task    filter_task
 */
ORVA_SI_API void Si_SectFlt_PollNewTaskFunc(void *record, void *task);
/** Gives all filters back and frees all requests. @return ORVA_SI_OK; ORVA_SI_FAILURE when the
 * counts do not agree; ORVA_SI_NULL_ARGUMENT also without flush_task_func */
ORVA_SI_API uint32_t Si_SectFlt_StopFilterTask(filter_task *task);
/** Removes null items, and later ones that ask for the same, from an EIT task. @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Si_SectFlt_RemoveDupEitTasks(filter_task *task);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
