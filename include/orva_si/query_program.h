/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Questions about the programs of the tuned multiplex, answered from the stored PAT and PMTs
 * (ISO/IEC 13818-1 clause 2.4.4).
 *
 * All functions of this header but Si_Pat_ParsePmtPidList and Orva_Si_IsFoundSsService work as the
 * head of orva_si/query_service.h says. A PMT is one section and complete with it. Elementary
 * streams are those of the PMT's loop, in broadcast order. Clauses of DVB descriptors are those of
 * EN 300 468 V1.15.1.
 *
 * @par Arguments
 * PIDs have 13 bits.
 * - `program_number`: low 16 bits, selects the PMT with that extension on whatever PID; 0xFFFF
 * selects every PMT
 * - `pids`, `pid`, `pidarray`: receives one PID, or is the array of PIDs to fill
 * - `ptsid`: receives the transport_stream_id
 * - `audiopid`, `isodesc`, `textlist`, `subarray`, `cadesclist`: array to fill
 * - `pcount`: capacity of the array in elements on entry, number written on return
 *
 * @par Memory
 * The client owns the arrays, counts and records that it passes.
 *
 * @par Threads and locks
 * As in orva_si/query_service.h: any thread, Ts_Ctl_Mutex is taken.
 */
#ifndef ORVA_SI_QUERY_PROGRAM_H
#define ORVA_SI_QUERY_PROGRAM_H

#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An audio stream of a program. */
typedef struct SiAudioPid {
    uint16_t pid;     /**< elementary_PID */
    uint8_t has_lang; /**< 1 with an ISO_639_language_descriptor, even an empty one; else 0 */
    uint8_t is_ac3;   /**< 1 with a non-empty AC-3 descriptor (0x6A), else 0 */
} SiAudioPid;

/** A CA_descriptor (0x09, ISO/IEC 13818-1 clause 2.6.16). */
typedef struct SiCaDesc {
    uint16_t reserved1;    /**< never written */
    uint16_t reserved2;    /**< never written */
    uint16_t ca_system_id; /**< CA_system_ID, as ETSI TS 101 162 assigns them */
    uint16_t ca_pid;       /**< CA_PID, 13 bits: ECMs of the program or stream */
} SiCaDesc;

/** A language of an ISO_639_language_descriptor (0x0A, ISO/IEC 13818-1 clause 2.6.18). */
typedef struct SiIso639Desc {
    uint16_t pid;       /**< elementary_PID of the stream that carries the descriptor */
    char iso639[4];     /**< ISO_639_language_code and a NUL */
    uint8_t audio_type; /**< 0 undefined, 1 clean effects, 2 hearing, 3 visual impaired */
} SiIso639Desc;

/** A page of a teletext_descriptor (0x56, clause 6.2.43). */
typedef struct SiTeletextDesc {
    uint16_t pid;            /**< elementary_PID of the teletext stream */
    char lang[4];            /**< ISO_639_language_code and a NUL */
    uint8_t type;            /**< teletext_type, 5 bits: 1 initial page, 2 subtitles ... */
    uint8_t magazine_number; /**< teletext_magazine_number, 3 bits; 0 means magazine 8 */
    uint8_t page_number;     /**< teletext_page_number, two hexadecimal digits */
} SiTeletextDesc;

/** An entry of a subtitling_descriptor (0x59, clause 6.2.41). */
typedef struct SiSubtitleDesc {
    uint16_t pid;                 /**< elementary_PID of the subtitle stream */
    char lang[4];                 /**< ISO_639_language_code and a NUL */
    uint8_t subtitling_type;      /**< component_type of stream_content 3 (clause 6.2.8) */
    uint16_t composition_page_id; /**< composition_page_id (EN 300 743) */
    uint16_t ancillary_page_id;   /**< ancillary_page_id; equal to the other when there is none */
} SiSubtitleDesc;

/**
 * @name The PAT
 * @{
 */

/**
 * Fills a list of PMT PIDs with the programs of a PAT, other than 0 and 0xFFFF, and removes stored
 * PMTs that the list no longer names. For the section thread: takes no lock, call it with
 * Ts_Ctl_Mutex held.
 *
 * @param ptbl          the PAT as stored; all its valid sections are read, complete or not
 * @param pmt_pid_list  the library's list; emptied first. What exceeds 255 programs is left out
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Si_Pat_ParsePmtPidList(SiTable *ptbl, SiPmtPidList *pmt_pid_list);

/**
 * The transport_stream_id of the PAT.
 *
 * @return ORVA_SI_OK; ORVA_SI_NOT_FOUND without PAT; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPatTsId(uint16_t *ptsid);

/**
 * Whether the PAT lists a program (not whether its PMT has come), as Orva_Si_IsPmtExisted answers
 * it. Takes no lock.
 *
 * @param program_number  low 16 bits; 0xFFFF is never listed
 * @return 1 or 0
 */
ORVA_SI_API uint32_t Orva_Si_IsFoundSsService(uint32_t program_number);

/** @} */

/**
 * @name The PMT as it was broadcast
 * @{
 */

/**
 * The PMT section of a program, from table_id to CRC_32.
 *
 * @param program_number  low 16 bits
 * @param data            receives the bytes, 1024 at most
 * @param plen            capacity of data, then the length
 * @return ORVA_SI_OK; ORVA_SI_NOT_FOUND without PMT; ORVA_SI_ARRAY_FULL when *plen is too small;
 *         ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPmtData(uint32_t program_number, uint8_t *data, uint32_t *plen);

/**
 * As Orva_Si_GetPmtData, for the first stored PMT of a PID. On PID 0x0012 a PMT need not be
 * complete.
 *
 * @param pid  low 16 bits; 0x2000 is ORVA_SI_NOT_FOUND at once
 */
ORVA_SI_API uint32_t Orva_Si_GetPmtDataByPID(uint32_t pid, uint8_t *data, uint32_t *plen);

/** Another name of Orva_Si_GetPmtData, for what a common interface module is given. */
ORVA_SI_API uint32_t Orva_Si_GetCiData(uint32_t program_number, uint8_t *data, uint32_t *plen);

/** @} */

/**
 * @name PIDs of a program
 * @{
 */

/**
 * The PCR_PID of a program; 0x1FFF when it has no PCR.
 *
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA without PMT; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPcrPID(uint32_t program_number, uint16_t *pid);

/**
 * The first video stream of a program: stream_type 0x01 (MPEG-1), 0x02 (MPEG-2) or 0x1B (H.264).
 * Other codecs, such as HEVC (0x24), are not looked for; their streams are in Orva_Si_GetAllPids.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetVideoPID(uint32_t program_number, uint16_t *pid);

/**
 * The audio streams of a program: stream_type 0x03, 0x04 (MPEG audio) or 0x11 (AAC in LATM), any
 * stream with a non-empty AC-3 descriptor (annex D), and any with a component_descriptor of MPEG-1
 * layer 2 audio (stream_content 2, component_type 1 to 5).
 *
 * Room is checked before each stream: with a full array a further stream of any kind is
 * ORVA_SI_ARRAY_FULL. Within the capacity the element behind the last result may have been
 * written.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetAudioPIDs(uint32_t program_number, SiAudioPid *audiopid,
                                          uint32_t *pcount);

/**
 * The elementary_PID of every stream of a program.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetAllPids(uint32_t program_number, uint16_t *pids, uint32_t *pcount);

/** As Orva_Si_GetAllPids, only the streams with a teletext_descriptor (0x56). */
ORVA_SI_API uint32_t Orva_Si_GetTeleTextPids(uint32_t program_number, uint16_t *pid,
                                             uint32_t *pcount);

/** As Orva_Si_GetAllPids, only the streams with a subtitling_descriptor (0x59). */
ORVA_SI_API uint32_t Orva_Si_GetSubtitlePids(uint32_t program_number, uint16_t *pid,
                                             uint32_t *pcount);

/** @} */

/**
 * @name Descriptors of a program
 * @{
 */

/**
 * The languages of all streams of a program, audio or not: one record for each language of their
 * ISO_639_language_descriptors.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetAudioIso639Desc(uint32_t program_number, SiIso639Desc *isodesc,
                                                uint32_t *pcount);

/**
 * The teletext pages of a program, one record for each entry of its teletext_descriptors.
 *
 * @param program_number  low 16 bits
 * @param es_pid          elementary_PID of the stream wanted; 0x2000 for all
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetTeleTextDesc(uint32_t program_number, uint32_t es_pid,
                                             SiTeletextDesc *textlist, uint32_t *pcount);

/** As Orva_Si_GetTeleTextDesc, the entries of the subtitling_descriptors. */
ORVA_SI_API uint32_t Orva_Si_GetSubtitleDesc(uint32_t program_number, uint32_t es_pid,
                                             SiSubtitleDesc *subarray, uint32_t *pcount);

/**
 * The CA_descriptors of a program: first those of the program, then those of each stream.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPmtCaDesc(uint32_t program_number, SiCaDesc *cadesclist,
                                          uint32_t *pcount);

/** @} */

/**
 * @name Data broadcast
 * By the data_broadcast_id_descriptors (0x66, clause 6.2.12) of the stream loop.
 * @{
 */

/**
 * The selector bytes of the system software update descriptor of a program (data_broadcast_id
 * 0x000A, ETSI TS 102 006), behind the data_broadcast_id.
 *
 * @param program_number   low 16 bits
 * @param selector_bytes   receives the bytes, 253 at most
 * @param selector_length  capacity of selector_bytes, then the length
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_ARRAY_FULL when *selector_length
 * is too small; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSsuDataBroadCastDescSelector(uint32_t program_number,
                                                             uint8_t *selector_bytes,
                                                             uint32_t *selector_length);

/**
 * The elementary_PID of every system software update stream (data_broadcast_id 0x000A) of all
 * stored PMTs.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSsuPidsByPmtDataBroadCast(uint16_t *pids, uint32_t *pcount);

/**
 * The elementary_PID of every stream of a program with a data_broadcast_id_descriptor, whatever its
 * data_broadcast_id.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSoftwareUpatePIDs(uint32_t program_number, uint16_t *pidarray,
                                                  uint32_t *pcount);

/**
 * The id_selector bytes of the first data_broadcast_id_descriptor of a program, whatever its
 * data_broadcast_id.
 *
 * @param program_number  low 16 bits
 * @param priv_buf        receives the bytes, 253 at most
 * @param plen            capacity of priv_buf, then the length
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA when there is none; ORVA_SI_ARRAY_FULL when *plen is too
 * small; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetDataBroadcastDescPrivData(uint32_t program_number,
                                                          uint8_t *priv_buf, uint32_t *plen);

/**
 * Writes the data_broadcast_id_descriptors of a program to the debug log at level 4 and answers
 * nothing.
 *
 * @return ORVA_SI_OK always
 */
ORVA_SI_API uint32_t Orva_Si_GetDataBroadCounts(uint32_t program_number);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
