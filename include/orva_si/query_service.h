/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Questions about services, answered from the stored Service Description Tables (EN 300 468
 * clause 5.2.3).
 *
 * What is said here holds for the query functions of the SDT, PAT, PMT, NIT and BAT headers.
 *
 * Each call reads the store anew and allocates nothing. Only complete tables answer, in the order
 * in which they were first received; a stored section whose length, section_syntax_indicator or
 * CRC_32 is wrong, or that cannot be decoded, is passed over. So is a descriptor whose length does
 * not fit its contents.
 *
 * Descriptors with tags from 0x80 are private: they count only behind a
 * private_data_specifier_descriptor (0x5F, clause 6.2.31) in the same loop. A match holds to the
 * end of the loop, whatever other specifiers follow.
 *
 * Clauses without a document are those of EN 300 468 V1.15.1.
 *
 * In this header most questions exist twice. Functions without a transport_stream_id read the SDT
 * of the tuned multiplex (table_id 0x42 on PID 0x0011). Those whose argument ts is a
 * transport_stream_id read every table on PID 0x0011 with that extension, SDT actual or other, of
 * whatever original network. Apart from the key, both behave alike. A service is looked up by its
 * service_id, sid.
 *
 * BATs share that PID, and table_id is not compared: the rare BAT whose bytes also read as an SDT
 * answers those functions under its bouquet_id, and stands in Orva_Si_GetSdtAllTsList.
 *
 * @par Arguments
 * Identifiers are passed as 32-bit numbers of which the low 16 bits count. As the extension of a
 * table (transport_stream_id of an SDT, program_number, network_id, bouquet_id) 0xFFFF matches
 * every table.
 * - `ts`: transport_stream_id
 * - `sid`: service_id
 * - `ptsid`, `ponit`: receive the 16-bit identifier
 * - `pname`: receives the name in its broadcast character table
 * - `servlist`, `list`, `langidlist`: array to fill, one number for each element
 * - `servnames`, `availlist`, `databroadcastdesc`, `region_array`: array to fill
 * - `servicemove`, `lkgrpcserv`: receive the descriptor
 * - `pcount`: capacity of the array in elements on entry, number written on return
 *
 * @par Results
 * - One value: the record is written on ORVA_SI_OK only.
 * - Raw bytes: the length is the capacity on entry and the number of bytes on return. When there is
 * too little room the answer is ORVA_SI_ARRAY_FULL and nothing is written. The length changes on
 * ORVA_SI_OK only.
 * - A list: the count is set to 0 first. ORVA_SI_ARRAY_FULL means that there was more: the array
 * holds the first results and the count equals the capacity. A list that just fits is ORVA_SI_OK,
 * unless said otherwise.
 * - ORVA_SI_NULL_ARGUMENT: a pointer is null; nothing was locked or written.
 *
 * @par Memory
 * The client owns all memory that it passes and shares it with no other thread during the call.
 * Answers are copies: nothing of the store is handed out.
 *
 * @par Threads and locks
 * Any client thread and the client's callback may call; the language function
 * (orva_si/query_text.h) must not. Each function takes Ts_Ctl_Mutex for its whole run, so it is not
 * to be called with that lock held.
 */
#ifndef ORVA_SI_QUERY_SERVICE_H
#define ORVA_SI_QUERY_SERVICE_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One language of a multilingual_service_name_descriptor (0x5D, clause 6.2.25). */
typedef struct SiMultiServiceName {
    uint8_t reserved;          /**< never written */
    char lang[4];              /**< ISO_639_language_code and a NUL */
    SiDvbString provider_name; /**< service_provider_name */
    SiDvbString service_name;  /**< service_name */
} SiMultiServiceName;

/** One cell of a service_availability_descriptor (0x72, clause 6.2.34). */
typedef struct SiServAvail {
    uint8_t avail_flag; /**< availability_flag of the descriptor: 1 available in the cell, 0 not */
    uint16_t cell_id;   /**< cell_id */
} SiServAvail;

/** A data_broadcast_descriptor (0x64, clause 6.2.11). Its selector bytes and text are not kept. */
typedef struct SiDataBroadcastDesc {
    uint16_t data_broadcast_id; /**< as ETSI TS 101 162 assigns them */
    uint8_t component_tag;      /**< of a stream_identifier_descriptor; 0 for none */
    uint8_t selector_length;    /**< bytes of selector in the descriptor */
    char lang[4];               /**< ISO_639_language_code of the text and a NUL */
} SiDataBroadcastDesc;

/** One region of a target_region_descriptor (0x7F with extension 0x09, clause 6.4). */
typedef struct SiTargetRegion {
    char country_code[4];        /**< ISO 3166 code of the descriptor and a NUL */
    uint8_t has_region_country;  /**< 1 when the region has a country_code of its own, else 0 */
    char region_country_code[4]; /**< that code and a NUL; only when has_region_country is 1 */
    uint8_t region_depth;        /**< 0 to 3: how many of the codes below are given */
    uint32_t region_code; /**< primary << 24 | secondary << 16 | tertiary; 0 what is not given */
} SiTargetRegion;

/** Where a linkage_descriptor (0x4A, clause 6.2.19) leads. */
typedef struct SiLinkage {
    uint16_t transport_stream_id; /**< transport_stream_id */
    uint16_t original_network_id; /**< original_network_id */
    uint16_t service_id;          /**< service_id; 0 where none is meant */
    uint8_t linkage_type;         /**< linkage_type */
} SiLinkage;

/** Where a service has moved: service_move_descriptor (0x60, clause 6.2.36). */
typedef struct SiServiceMove {
    uint16_t new_original_network_id; /**< new_original_network_id */
    uint16_t new_transport_stream_id; /**< new_transport_stream_id */
    uint16_t new_service_id;          /**< new_service_id */
} SiServiceMove;

/**
 * @name Multiplexes and lists of services
 * @{
 */

/**
 * The transport_stream_id of the tuned multiplex, as its SDT tells it.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE without SDT actual; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetActTsId(uint16_t *ptsid);

/**
 * The original_network_id of the tuned multiplex.
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE without SDT actual; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetActOnitId(uint16_t *ponit);

/** As Orva_Si_GetActOnitId, of transport stream ts. ORVA_SI_FAILURE without an SDT of it. */
ORVA_SI_API uint32_t Orva_Si_GetOnitId(uint32_t ts, uint16_t *ponit);

/**
 * The service_id of every service of the tuned multiplex, in broadcast order.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetActServIdList(uint16_t *servlist, uint32_t *pcount);

/**
 * The service_id of every service of a transport stream, in broadcast order.
 *
 * A service stands twice in the list when SDT actual and SDT other of the stream are both stored.
 *
 * @param ts  transport_stream_id
 * @return ORVA_SI_OK, also for an empty list; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServIdList(uint32_t ts, uint16_t *servlist, uint32_t *pcount);

/**
 * The transport_stream_id of every stored SDT section, actual and other.
 *
 * A table of several sections gives its id once for each, and nothing is done about duplicates.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSdtAllTsList(uint16_t *list, uint32_t *pcount);

/** @} */

/**
 * @name Properties of a service
 * @{
 */

/**
 * The service_name of the service_descriptor (0x48, clause 6.2.33).
 *
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT names the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceName(uint32_t sid, SiDvbString *pname);

/** As Orva_Si_GetServiceName, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServName(uint32_t ts, uint32_t sid, SiDvbString *pname);

/**
 * The service_type of the service_descriptor (clause 6.2.33: 0x01 digital television, 0x02 radio
 * ...).
 *
 * @param sid    service_id
 * @param ptype  receives the 8 bits
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT gives the service a type; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceType(uint32_t sid, uint8_t *ptype);

/** As Orva_Si_GetServiceType, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServType(uint32_t ts, uint32_t sid, uint8_t *ptype);

/**
 * The free_CA_mode bit of the service: whether a component may be scrambled.
 *
 * @param sid         service_id
 * @param pencrypted  receives 1 when a CA system may control access, 0 when all is in the clear
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT lists the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceEncrypted(uint32_t sid, uint8_t *pencrypted);

/** As Orva_Si_GetServiceEncrypted, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServEncrypted(uint32_t ts, uint32_t sid, uint8_t *pencrypted);

/**
 * Another name of Orva_Si_GetServiceEncrypted: same answer, same results.
 *
 * @param sid           service_id
 * @param free_ca_mode  receives 1 when a CA system may control access, 0 when all is in the clear
 */
ORVA_SI_API uint32_t Orva_Si_GetFreeCaMode(uint32_t sid, uint8_t *free_ca_mode);

/** As Orva_Si_GetFreeCaMode, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServFreeCaMode(uint32_t ts, uint32_t sid, uint8_t *free_ca_mode);

/**
 * The running_status of the service.
 *
 * @param sid             service_id
 * @param running_status  receives 0 to 7 (clause 5.2.3: 0 undefined, 1 not running, 4 running ...)
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT lists the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetRunningStatus(uint32_t sid, uint8_t *running_status);

/** As Orva_Si_GetRunningStatus, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServRunningStatus(uint32_t ts, uint32_t sid,
                                                  uint8_t *running_status);

/**
 * Whether the multiplex carries schedule information of the service (EIT_schedule_flag).
 *
 * @param sid                service_id
 * @param eit_schedule_flag  receives 0 or 1
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT lists the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetEitSchedFlag(uint32_t sid, uint8_t *eit_schedule_flag);

/** As Orva_Si_GetEitSchedFlag, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServEitSchedFlag(uint32_t ts, uint32_t sid,
                                                 uint8_t *eit_schedule_flag);

/**
 * Whether the multiplex carries present/following information of the service
 * (EIT_present_following_flag).
 *
 * @param sid          service_id
 * @param eit_pf_flag  receives 0 or 1
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when no SDT lists the service; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetEitPfFlag(uint32_t sid, uint8_t *eit_pf_flag);

/** As Orva_Si_GetEitPfFlag, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServEitPfFlag(uint32_t ts, uint32_t sid, uint8_t *eit_pf_flag);

/** @} */

/**
 * @name Descriptors of a service
 * @{
 */

/**
 * The names of a service in several languages, one record for each entry of its
 * multilingual_service_name_descriptors.
 *
 * @param sid  service_id
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetMultiServiceNames(uint32_t sid, SiMultiServiceName *servnames,
                                                  uint32_t *pcount);

/** As Orva_Si_GetMultiServiceNames, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetMultiServNames(uint32_t ts, uint32_t sid,
                                               SiMultiServiceName *servnames, uint32_t *pcount);

/**
 * The cells that the service's service_availability_descriptors name. An odd byte behind the last
 * cell_id is ignored.
 *
 * @param ts   transport_stream_id
 * @param sid  service_id
 * @return ORVA_SI_OK, also for an empty list; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServAvailList(uint32_t ts, uint32_t sid, SiServAvail *availlist,
                                              uint32_t *pcount);

/**
 * The data_broadcast_descriptors of a service. One whose length differs from what its selector and
 * text lengths add up to is passed over.
 *
 * @param sid   service_id
 * @param psum  the count
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSdtDataBroadCastDesc(uint32_t sid,
                                                     SiDataBroadcastDesc *databroadcastdesc,
                                                     uint32_t *psum);

/** As Orva_Si_GetSdtDataBroadCastDesc, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServDataBroadCastDesc(uint32_t ts, uint32_t sid,
                                                      SiDataBroadcastDesc *databroadcastdesc,
                                                      uint32_t *psum);

/**
 * Where a service has moved, from its first service_move_descriptor.
 *
 * @param sid  service_id
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServiceMoveDesc(uint32_t sid, SiServiceMove *servicemove);

/** As Orva_Si_GetServiceMoveDesc, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServMoveDesc(uint32_t ts, uint32_t sid, SiServiceMove *servicemove);

/**
 * The first linkage_descriptor of a service, of any linkage_type.
 *
 * @param sid  service_id
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetLinkageDesc(uint32_t sid, SiLinkage *lkgrpcserv);

/** As Orva_Si_GetLinkageDesc, in transport stream ts. */
ORVA_SI_API uint32_t Orva_Si_GetServLinkageDesc(uint32_t ts, uint32_t sid, SiLinkage *lkgrpcserv);

/**
 * The regions for which a service is meant, one record for each entry of its
 * target_region_descriptors.
 *
 * Judge by the count: the result is ORVA_SI_FAILURE whether regions were written or not.
 *
 * @param ts            transport_stream_id
 * @param sid           service_id
 * @param parray_count  the count
 * @return ORVA_SI_FAILURE; ORVA_SI_ARRAY_FULL; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSdtTargetRegionInfo(uint32_t ts, uint32_t sid,
                                                    SiTargetRegion *region_array,
                                                    uint32_t *parray_count);

/**
 * How many records Orva_Si_GetSdtTargetRegionInfo has to offer.
 *
 * @param parray_count  receives the number, 0 included; what it holds on entry does not matter
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetSdtTargetRegionInfoCount(uint32_t ts, uint32_t sid,
                                                         uint32_t *parray_count);

/** @} */

/**
 * @name Private descriptors of a service
 * @{
 */

/**
 * The short name of a service: the whole private descriptor 0x87 as a text (DTG D-Book,
 * short_service_name_descriptor).
 *
 * @param sid   service_id
 * @param pdsd  private_data_specifier under which the descriptor must stand, 32 bits
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetShortServiceName(uint32_t sid, uint32_t pdsd, SiDvbString *pname);

/**
 * The payload of the private ci_protection_descriptor 0xCE (CI Plus Specification) of a service,
 * without tag and length.
 *
 * @param ts    transport_stream_id
 * @param sid   service_id
 * @param pdsd  private_data_specifier under which the descriptor must stand, 32 bits
 * @param data  receives the bytes, 255 at most
 * @param plen  capacity of data, then the length
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is none; ORVA_SI_ARRAY_FULL when *plen is too
 * small; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetServCIProtDescData(uint32_t ts, uint32_t sid, uint32_t pdsd,
                                                   uint8_t *data, uint32_t *plen);

/**
 * A name out of the private preferred_name_list_descriptor 0x84 (DTG D-Book) of a service. The
 * descriptor counts behind any private_data_specifier but 0.
 *
 * @param onid         original_network_id that the SDT must have, compared exactly
 * @param ts           transport_stream_id
 * @param sid          service_id
 * @param language_id  language wanted, as SiLanguageFunc numbers it
 * @param pPfName      receives the name
 * @param name_id      number of the name in the descriptor, 8 bits
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is no such name; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPfNameByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                           uint32_t language_id, SiDvbString *pPfName,
                                           uint32_t name_id);

/**
 * The languages of that descriptor, one number of SiLanguageFunc for each of its language entries.
 *
 * @param onid  original_network_id that the SDT must have, compared exactly
 * @param ts    transport_stream_id
 * @param sid   service_id
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetPfNameLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                               uint32_t *langidlist, uint32_t *pcount);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
