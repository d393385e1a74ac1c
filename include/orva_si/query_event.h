/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_QUERY_EVENT_H
#define ORVA_SI_QUERY_EVENT_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct dvb_eit_section;
struct dvb_eit_event;

#define SI_EXT_EVT_ITEMS 8

typedef struct SiBasicEvent {
    uint16_t event_id;
    uint32_t start_time;
    uint32_t duration;
    SiDvbString event_name;
} SiBasicEvent;

typedef struct SiExtendEvtDesc {
    uint8_t descriptor_number;
    uint8_t last_descriptor_number;
    char lang[4];
    uint32_t item_count;
    struct {
        SiDvbString description;
        SiDvbString item;
    } items[SI_EXT_EVT_ITEMS];
    SiDvbString text;
} SiExtendEvtDesc;

typedef struct SiEvtContent {
    uint8_t content_nibble_level_1;
    uint8_t content_nibble_level_2;
    uint8_t user_nibble_1;
    uint8_t user_nibble_2;
} SiEvtContent;

typedef struct SiEvtComponent {
    uint8_t stream_content;
    uint8_t component_type;
    uint8_t component_tag;
    char lang[4];
    SiDvbString text;
} SiEvtComponent;

typedef struct SiEvtRating {
    char country_code[4];
    uint8_t rating;
} SiEvtRating;

ORVA_SI_API uint32_t Orva_Si_IsEqual_EventId(const struct dvb_eit_section *eit_section, const struct dvb_eit_event *event, uint32_t event_id, uint32_t sequence);
ORVA_SI_API uint32_t Orva_Si_GetOneServEvtIds(uint32_t onid, uint32_t ts, uint32_t sid, uint16_t *pevent, uint32_t *count);
ORVA_SI_API uint32_t Orva_Si_GetOneServEvtCount(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t *count);
ORVA_SI_API uint32_t Orva_Si_GetOneSectEvtIds(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t table_id, uint32_t section_number, uint16_t *pevent, uint32_t *count);
ORVA_SI_API uint32_t Orva_Si_GetOneServBscEvtInfos(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t language_id, uint32_t start_time, uint32_t end_time, SiBasicEvent *pevent, uint32_t *count);
ORVA_SI_API uint32_t Orva_Si_GetGetEventIDsByStartTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t start_time, uint16_t *evtid_array, uint32_t *array_count);
ORVA_SI_API uint32_t Orva_Si_GetGetEventIDsByStartTimeAndEndTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t start_time, uint32_t end_time, uint16_t *evtid_array, uint32_t *array_count);
ORVA_SI_API uint32_t Orva_Si_GetEvtStartUTCTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t *ptime, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtDuringTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t *pduringtimeinsecs, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtNameByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, SiDvbString *peventname, uint32_t language_id, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtNameLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t *langlist, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetShortEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t language_id, SiDvbString *peventdesc, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetShortEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t *langlist, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t language_id, SiExtendEvtDesc *peventdesc, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetAllExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t language_id, SiExtendEvtDesc *peventdesc, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescCnt(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t language_id, uint32_t *pcnt, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetExtendEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t *langlist, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtContentDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, SiEvtContent *content, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtComponentDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, SiEvtComponent *comdescarray, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetEvtParentalRatingDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, SiEvtRating *rating, uint32_t *psum, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_HaveEvtCAIdentifierDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint8_t *presult, uint8_t bisbanner);
ORVA_SI_API uint32_t Orva_Si_GetBnrEvtId(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t index, uint16_t *pevent_id);
ORVA_SI_API uint32_t Orva_Si_EvtGetPfNameId(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id, uint32_t pdsd, uint8_t *pf_name_id, uint8_t bisbanner);

#ifdef __cplusplus
}
#endif

#endif
