// SPDX-License-Identifier: LGPL-2.1-or-later
// What all questions about one event share (EN 300 468, 5.2.4).
#ifndef SRC_DVBTABLES_ORVA_SI_EIT_H
#define SRC_DVBTABLES_ORVA_SI_EIT_H

#include <cstdint>

#include "orva_si/query_event.h"
#include "orva_si_descr.h"
#include "orva_si_query.h"
#include "orva_si_siids.h"

// Names the condition, as the event getters do.
#define SI_REQUIRE_NOT_NULL(pointer)                                                               \
    SI_REQUIRE_AS(pointer, #pointer " != NULL", ORVA_SI_NULL_ARGUMENT)
#define SI_REQUIRE_ROOM(count)                                                                     \
    do {                                                                                           \
        if (*(count) == 0) {                                                                       \
            SI_LOG_MISSING("*" #count " > 0");                                                     \
            return ORVA_SI_NULL_ARGUMENT;                                                          \
        }                                                                                          \
    } while (0)

namespace si {

inline constexpr const char *array_is_full = "error:Need more room\n";
inline constexpr const char *list_is_full = "need list room!\n"; // of languages

constexpr service_key service_of(std::uint32_t onid, std::uint32_t ts, std::uint32_t sid)
{
    return {low16(onid), low16(ts), low16(sid)};
}

// Names one event and where it is looked up.
struct event_key {
    service_key service;
    std::uint32_t event_id;
    std::uint8_t bisbanner; // 0: schedule, else present/following
};

constexpr bool is_banner(std::uint8_t table_id)
{
    return table_id == tid_eit_pf_actual || table_id == tid_eit_pf_other;
}

// The sections that the caller's choice means. By the table_id as received: the stored record's own
// does not tell actual from other.
inline auto chosen_by(site here, std::uint8_t bisbanner)
{
    SI_LOG_AT(here, level::trace, "invoked bisbanner = %d\n", bisbanner);
    return [bisbanner](const section_summary &known) {
        return bisbanner != 0 ? is_banner(known.received_table_id)
                              : is_schedule(known.received_table_id);
    };
}

// The first event of that id; null when the section does not carry it.
inline dvb_eit_event *find_event(dvb_eit_section &section, std::uint32_t event_id)
{
    for (dvb_eit_event &event : events(section))
        if (Orva_Si_IsEqual_EventId(&section, &event, event_id, 0) != 0)
            return &event;
    return nullptr;
}

// Asks the first event of that id, and no other.
template <class End, class Question>
std::uint32_t ask_event(site here, const event_key &key, const End &end, Question question)
{
    return query_events(here, key.service, end, chosen_by(here, key.bisbanner),
                        event_with(key.event_id), [&](dvb_eit_section &section) {
                            dvb_eit_event *event = find_event(section, key.event_id);
                            return event != nullptr ? question(*event) : step::next;
                        });
}

// Asks for one value of an event; the question answers whether the event had it.
template <class Question>
std::uint32_t value_of_event(site here, const event_key &key, std::uint32_t none, Question question)
{
    return ask_event(here, key, none, [&](dvb_eit_event &event) {
        return question(event) ? step::found : step::table_done;
    });
}

// Shows each descriptor of an event to a function until it answers that there is no more room.
template <class End, class Visit>
std::uint32_t each_descriptor(site here, const event_key &key, const End &end, Visit visit)
{
    return ask_event(here, key, end, [&](dvb_eit_event &event) {
        for (descriptor &d : descriptors(event))
            if (!visit(d))
                return step::full;
        return step::table_done;
    });
}

// ---- Texts in a language

// The descriptor if it is of that kind and in that language, else null.
template <class Kind>
Kind *in_language(site here, descriptor &d, std::uint32_t language_id, std::uint32_t event_id)
{
    Kind *text = as<Kind>(d);
    if (text == nullptr || language_of(here, text->language_code) != language_id)
        return nullptr;
    SI_LOG_AT(here, level::trace, "found the languageid = %d, and event id = 0x%x\n",
              static_cast<int>(language_id), low16(event_id));
    return text;
}

// The first one of an event; null when there is none.
template <class Kind>
Kind *first_in_language(site here, dvb_eit_event &event, std::uint32_t language_id)
{
    for (descriptor &d : descriptors(event))
        if (Kind *text = in_language<Kind>(here, d, language_id, event.event_id))
            return text;
    return nullptr;
}

struct short_event {
    bytes name;
    bytes text;
};
short_event read_short_event(const dvb_short_event_descriptor &d);

} // namespace si

#endif
