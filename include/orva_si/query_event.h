/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Questions about events, answered from the stored Event Information Tables (EN 300 468
 * clause 5.2.4).
 *
 * Each call reads the event store anew and allocates nothing. A sub-table need not be complete:
 * every stored section answers, in order of arrival. One whose length, section_syntax_indicator or
 * CRC_32 is wrong, or that cannot be decoded, is passed over.
 *
 * A service is named by original_network_id, transport_stream_id and service_id, compared exactly,
 * an event of it by its event_id. Actual and other tables are searched alike. Functions without
 * bisbanner that list the events of a whole service read the schedule only.
 *
 * Times are seconds since 1970-01-01 UTC in 32 bits, which wrap in 2106 (annex C); durations are
 * seconds. A start_time or duration of all ones, which means "undefined", is converted like any
 * other: into 2156111265 (in the year 2038) and 604065. Clauses are those of EN 300 468 V1.15.1.
 *
 * @par Arguments
 * Of each identifier the low 16 bits count.
 * - `onid`: original_network_id
 * - `ts`: transport_stream_id
 * - `sid`: service_id
 * - `event_id`: the event
 * - `bisbanner`: where the event is looked up: not 0 in the present/following sections (table_id
 * 0x4E, 0x4F), 0 in the schedule (0x50 to 0x6F)
 * - `language_id`: the language wanted, a number of SiLanguageFunc (orva_si/query_text.h). Without
 * that function every language is 0
 * - `pevent`, `evtid_array`, `langlist`, `content`, `comdescarray`, `rating`: array to fill
 * - `peventname`, `peventdesc`, `pevent_id`: receive the answer; with a count `peventdesc` is an
 * array
 * - `count`, `array_count`, `psum`: capacity of the array in elements on entry, number written on
 * return
 *
 * @par Results
 * A single value is written on ORVA_SI_OK only, unless said otherwise. ORVA_SI_ARRAY_FULL means
 * that there was more. A null pointer answers ORVA_SI_NULL_ARGUMENT before anything is locked or
 * written. ORVA_SI_FAILURE is also the answer when the lock cannot be taken.
 *
 * @par Memory
 * The client owns all memory that it passes. Answers are copies: nothing of the store is handed
 * out.
 *
 * @par Threads and locks
 * Any client thread and the client's callback may call; the language function must not. Each
 * function but Orva_Si_IsEqual_EventId takes Ts_Eit_Mutex for its whole run, so it is not to be
 * called with that lock held.
 */
#ifndef ORVA_SI_QUERY_EVENT_H
#define ORVA_SI_QUERY_EVENT_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Records of libucsi (libucsi/dvb/eit_section.h). */
struct dvb_eit_section;
struct dvb_eit_event;

/** Items kept of an extended_event_descriptor. */
#define SI_EXT_EVT_ITEMS 8

/** What a programme grid shows of an event. */
typedef struct SiBasicEvent {
    uint16_t event_id;      /**< event_id */
    uint32_t start_time;    /**< start, seconds since 1970 UTC */
    uint32_t duration;      /**< seconds */
    SiDvbString event_name; /**< event_name in the language asked for; empty when there is none */
} SiBasicEvent;

/** An extended_event_descriptor (0x4E, clause 6.2.15). */
typedef struct SiExtendEvtDesc {
    uint8_t descriptor_number;      /**< 4 bits: place in the set of descriptors, from 0 */
    uint8_t last_descriptor_number; /**< 4 bits: number of the last one of the set */
    char lang[4];                   /**< ISO_639_language_code and a NUL */
    uint32_t item_count;            /**< items kept, 0 to SI_EXT_EVT_ITEMS; more are dropped */
    /** The items; those from item_count on have no meaning. */
    struct {
        SiDvbString description; /**< item_description */
        SiDvbString item;        /**< item */
    } items[SI_EXT_EVT_ITEMS];
    SiDvbString text; /**< text */
} SiExtendEvtDesc;

/** An entry of a content_descriptor (0x54, clause 6.2.9), 4 bits each. */
typedef struct SiEvtContent {
    uint8_t content_nibble_level_1; /**< genre */
    uint8_t content_nibble_level_2; /**< genre within it */
    uint8_t user_nibble_1;          /**< defined by the broadcaster */
    uint8_t user_nibble_2;          /**< defined by the broadcaster */
} SiEvtContent;

/** A component_descriptor (0x50, clause 6.2.8). */
typedef struct SiEvtComponent {
    uint8_t stream_content; /**< 4 bits; stream_content_ext is not told */
    uint8_t component_type; /**< kind of component, by stream_content */
    uint8_t component_tag;  /**< names the stream by its stream_identifier_descriptor */
    char lang[4];           /**< ISO_639_language_code and a NUL */
    SiDvbString text;       /**< text */
} SiEvtComponent;

/** An entry of a parental_rating_descriptor (0x55, clause 6.2.28). */
typedef struct SiEvtRating {
    char country_code[4]; /**< ISO 3166 code and a NUL */
    uint8_t rating; /**< 1 to 15: minimum age less 3 years; 0 undefined; above: broadcaster's */
} SiEvtRating;

/**
 * Whether a decoded event is the one wanted. Takes no lock.
 *
 * @param eit_section  section of the event as libucsi decoded it
 * @param event        the event
 * @param event_id     low 16 bits
 * @param sequence     ignored
 * @return 1 when the event has that event_id, else 0
 */
ORVA_SI_API uint32_t Orva_Si_IsEqual_EventId(const struct dvb_eit_section *eit_section,
                                             const struct dvb_eit_event *event, uint32_t event_id,
                                             uint32_t sequence);

/**
 * @name Lists of events
 * @{
 */

/**
 * The event_id of every schedule event of a service.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetOneServEvtIds(uint32_t onid, uint32_t ts, uint32_t sid,
                                              uint16_t *pevent, uint32_t *count);

/**
 * How many schedule events a service has.
 *
 * @param count  receives the number; what it holds on entry does not matter
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA, and count 0, when there is none; ORVA_SI_FAILURE (lock);
 *         ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetOneServEvtCount(uint32_t onid, uint32_t ts, uint32_t sid,
                                                uint32_t *count);

/**
 * The event_id of every event of one section.
 *
 * @param table_id        low 8 bits, as a notification gives it. The store does not tell actual
 * from other: 0x4F is taken as 0x4E, 0x60 to 0x6F as 0x50 to 0x5F
 * @param section_number  low 8 bits
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetOneSectEvtIds(uint32_t onid, uint32_t ts, uint32_t sid,
                                              uint32_t table_id, uint32_t section_number,
                                              uint16_t *pevent, uint32_t *count);

/**
 * The schedule events of a service within a window of time.
 *
 * An event from s to e (not included) is taken when it starts before end_time and either ends after
 * start_time or starts at start_time or later. An event without a name in the language is listed
 * with an empty name.
 *
 * @param language_id  language of the names
 * @param start_time   seconds since 1970 UTC
 * @param end_time     seconds since 1970 UTC; 0 together with start_time 0 takes all events
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NOT_FOUND when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetOneServBscEvtInfos(uint32_t onid, uint32_t ts, uint32_t sid,
                                                   uint32_t language_id, uint32_t start_time,
                                                   uint32_t end_time, SiBasicEvent *pevent,
                                                   uint32_t *count);

/**
 * The event_id of every schedule event that runs at a time or starts later.
 *
 * @param start_time   seconds since 1970 UTC
 * @param array_count  the count; 0 on entry is refused
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT, also for a capacity of 0
 */
ORVA_SI_API uint32_t Orva_Si_GetGetEventIDsByStartTime(uint32_t onid, uint32_t ts, uint32_t sid,
                                                       uint32_t start_time, uint16_t *evtid_array,
                                                       uint32_t *array_count);

/**
 * As Orva_Si_GetGetEventIDsByStartTime, only the events that start before a time.
 *
 * @param end_time  seconds since 1970 UTC
 */
ORVA_SI_API uint32_t Orva_Si_GetGetEventIDsByStartTimeAndEndTime(uint32_t onid, uint32_t ts,
                                                                 uint32_t sid, uint32_t start_time,
                                                                 uint32_t end_time,
                                                                 uint16_t *evtid_array,
                                                                 uint32_t *array_count);

/**
 * The event_id of a present/following event by its position.
 *
 * @param index  0 for the first event of the service's present/following sections in their order of
 * arrival: usually 0 is the present event and 1 the following
 * @return ORVA_SI_OK; ORVA_SI_NOT_FOUND when there are not so many; ORVA_SI_FAILURE (lock);
 *         ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetBnrEvtId(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t index,
                                         uint16_t *pevent_id);

/** @} */

/**
 * @name Time of an event
 * @{
 */

/**
 * When an event starts.
 *
 * @param ptime  receives seconds since 1970 UTC
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when there is no such event, or for the lock;
 * ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetEvtStartUTCTime(uint32_t onid, uint32_t ts, uint32_t sid,
                                                uint32_t event_id, uint32_t *ptime,
                                                uint8_t bisbanner);

/**
 * As Orva_Si_GetEvtStartUTCTime, how long it lasts.
 *
 * @param pduringtimeinsecs  receives seconds
 */
ORVA_SI_API uint32_t Orva_Si_GetEvtDuringTime(uint32_t onid, uint32_t ts, uint32_t sid,
                                              uint32_t event_id, uint32_t *pduringtimeinsecs,
                                              uint8_t bisbanner);

/** @} */

/**
 * @name Texts of an event
 * The functions that look up one text answer 2 (ORVA_SI_NULL_ARGUMENT) also when there is no such
 * event or no such text; their language_id stands on either side of the record.
 * @{
 */

/**
 * The event_name of the short_event_descriptor (0x4D, clause 6.2.37) in a language.
 *
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT for a null pointer, or when there is none;
 * ORVA_SI_FAILURE (lock)
 */
ORVA_SI_API uint32_t Orva_Si_GetEvtNameByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                            uint32_t event_id, SiDvbString *peventname,
                                            uint32_t language_id, uint8_t bisbanner);

/**
 * The languages of the event's short_event_descriptors, in their order, one for each of them.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetEvtNameLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                                uint32_t event_id, uint32_t *langlist,
                                                uint32_t *psum, uint8_t bisbanner);

/** As Orva_Si_GetEvtNameByID, the text of the short_event_descriptor. */
ORVA_SI_API uint32_t Orva_Si_GetShortEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                                 uint32_t event_id, uint32_t language_id,
                                                 SiDvbString *peventdesc, uint8_t bisbanner);

/** Another name of Orva_Si_GetEvtNameLangList: same answer, same results. */
ORVA_SI_API uint32_t Orva_Si_GetShortEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                                     uint32_t event_id, uint32_t *langlist,
                                                     uint32_t *psum, uint8_t bisbanner);

/** As Orva_Si_GetEvtNameByID, the first extended_event_descriptor in the language. */
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                                  uint32_t event_id, uint32_t language_id,
                                                  SiExtendEvtDesc *peventdesc, uint8_t bisbanner);

/**
 * Every extended_event_descriptor of an event in a language, in broadcast order.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetAllExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                                     uint32_t event_id, uint32_t language_id,
                                                     SiExtendEvtDesc *peventdesc, uint32_t *psum,
                                                     uint8_t bisbanner);

/**
 * How many extended_event_descriptors an event has in a language.
 *
 * @param pcnt  receives the number; what it holds on entry does not matter
 * @return ORVA_SI_OK; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE (lock);
 * ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescCnt(uint32_t onid, uint32_t ts, uint32_t sid,
                                                 uint32_t event_id, uint32_t language_id,
                                                 uint32_t *pcnt, uint8_t bisbanner);

/** As Orva_Si_GetEvtNameLangList, the languages of the extended_event_descriptors. */
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                                      uint32_t event_id, uint32_t *langlist,
                                                      uint32_t *psum, uint8_t bisbanner);

/** @} */

/**
 * @name Other descriptors of an event
 * @{
 */

/**
 * The genres of an event, one record for each entry of its content_descriptors.
 *
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL; ORVA_SI_NO_DATA when there is none; ORVA_SI_FAILURE
 * (lock); ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_GetEvtContentDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                               uint32_t event_id, SiEvtContent *content,
                                               uint32_t *psum, uint8_t bisbanner);

/** As Orva_Si_GetEvtContentDesc, one record for each component_descriptor. */
ORVA_SI_API uint32_t Orva_Si_GetEvtComponentDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                                 uint32_t event_id, SiEvtComponent *comdescarray,
                                                 uint32_t *psum, uint8_t bisbanner);

/** As Orva_Si_GetEvtContentDesc, one record for each entry of the parental_rating_descriptors. */
ORVA_SI_API uint32_t Orva_Si_GetEvtParentalRatingDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                                      uint32_t event_id, SiEvtRating *rating,
                                                      uint32_t *psum, uint8_t bisbanner);

/**
 * Whether an event carries a CA_identifier_descriptor (0x53, clause 6.2.5).
 *
 * @param presult  receives 1 or 0; 0 also when there is no such event or the lock cannot be taken
 * @return ORVA_SI_OK; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_HaveEvtCAIdentifierDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                                     uint32_t event_id, uint8_t *presult,
                                                     uint8_t bisbanner);

/**
 * The name_id of the private preferred_name_identifier_descriptor 0x85 (DTG D-Book) of an event:
 * the name that Orva_Si_GetPfNameByID finds.
 *
 * @param pdsd        private_data_specifier that must precede the descriptor in the event's loop,
 * 32 bits; 0 takes any
 * @param pf_name_id  receives the 8 bits
 * @return ORVA_SI_OK; ORVA_SI_NOT_FOUND when there is none; ORVA_SI_FAILURE (lock);
 * ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t Orva_Si_EvtGetPfNameId(uint32_t onid, uint32_t ts, uint32_t sid,
                                            uint32_t event_id, uint32_t pdsd, uint8_t *pf_name_id,
                                            uint8_t bisbanner);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
