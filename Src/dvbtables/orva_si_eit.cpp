// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about events: which ones a service has, when they are, and what their descriptors say
// apart from texts (EN 300 468, 5.2.4).
#include "orva_si_eit.h"

#include <cstring>

#include "orva_si/time.h"

namespace si {

namespace {

constexpr std::uint8_t preferred_name_identifier = 0x85; // private, DTG D-Book

// ---- Which sections are read, and lists of a service's events

auto schedule_only(site here)
{
    return [here](const section_summary &known) {
        if (is_banner(known.received_table_id))
            SI_LOG_AT(here, level::trace, "ingore the banner eit table\n");
        return is_schedule(known.received_table_id);
    };
}

bool banner_only(const section_summary &known)
{
    return is_banner(known.received_table_id);
}

// The store keeps other multiplexes under the table_ids of the tuned one.
constexpr std::uint8_t stored_table_id(std::uint32_t table_id)
{
    const auto id = static_cast<std::uint8_t>(table_id);
    if (id == tid_eit_pf_other)
        return tid_eit_pf_actual;
    return id >= tid_eit_schedule_other && id <= tid_eit_last
               ? static_cast<std::uint8_t>(id - tid_eit_schedule_other + tid_eit_schedule_actual)
               : id;
}
static_assert(stored_table_id(0x4F) == 0x4E && stored_table_id(0x6F) == 0x5F &&
              stored_table_id(0x5F) == 0x5F && stored_table_id(0x150) == 0x50);

auto one_section(site here, std::uint32_t table_id, std::uint32_t section_number)
{
    return [=](const section_summary &known) {
        if (known.table_id != stored_table_id(table_id)) {
            SI_LOG_AT(here, level::trace, "ingore the wrong eit table\n");
            return false;
        }
        if (known.section_number != static_cast<std::uint8_t>(section_number)) {
            SI_LOG_AT(here, level::trace, "ingore the wrong section number\n");
            return false;
        }
        return true;
    };
}

// Shows every event of the wanted sections to a function until it answers that there is no more
// room.
template <class End, class Wanted, class Visit>
std::uint32_t each_event(site here, const service_key &key, const End &end, Wanted wanted,
                         Visit visit)
{
    return query_events(here, key, end, wanted, any_event, [&](dvb_eit_section &section) {
        for (dvb_eit_event &event : events(section))
            if (!visit(event))
                return step::full;
        return step::next;
    });
}

// Lists the event_ids of those that are selected.
template <class Wanted, class Selected>
std::uint32_t list_ids(site here, const service_key &key, const many<std::uint16_t> &ids,
                       Wanted wanted, Selected selected)
{
    return each_event(here, key, ids, wanted, [&](dvb_eit_event &event) {
        const std::uint16_t event_id = event.event_id;
        if (!selected(event))
            return true;
        if (!ids.put(event_id))
            return false;
        SI_LOG_AT(here, level::trace, "found the event id = %d\n", event_id);
        return true;
    });
}

constexpr auto every_event = [](dvb_eit_event &) { return true; };

// The event that has so many ahead of it; null when it is in none of the sections so far.
const dvb_eit_event *count_down(dvb_eit_section &section, std::uint32_t &ahead)
{
    for (const dvb_eit_event &event : events(section))
        if (ahead-- == 0)
            return &event;
    return nullptr;
}

// ---- Time

std::uint32_t start_of(dvb_eit_event &event)
{
    byte_reader in{event.start_time};
    const std::uint16_t mjd = in.u16();
    std::uint32_t seconds = 0;
    Orva_Si_GetUTCTimeFromMJD(mjd, in.u24(), &seconds);
    return seconds;
}

std::uint32_t duration_of(dvb_eit_event &event)
{
    return static_cast<std::uint32_t>(dvbduration_to_seconds(event.duration));
}

// Runs at that time, or starts then or later. The end does not belong to the event; all times wrap
// at 32 bits.
bool runs_from(dvb_eit_event &event, std::uint32_t time)
{
    const std::uint32_t start = start_of(event);
    return start + duration_of(event) > time || start >= time;
}

bool runs_within(dvb_eit_event &event, std::uint32_t start_time, std::uint32_t end_time)
{
    return runs_from(event, start_time) && start_of(event) < end_time;
}

void describe(site here, dvb_eit_event &event, std::uint32_t language_id, SiBasicEvent &to)
{
    to.event_id = event.event_id;
    to.start_time = start_of(event);
    to.duration = duration_of(event);
    std::memset(&to.event_name, 0, sizeof to.event_name);
    if (const auto *named = first_in_language<dvb_short_event_descriptor>(here, event, language_id))
        copy_text(to.event_name, read_short_event(*named).name);
}

// ---- Descriptors

bool append_genres(site here, std::uint32_t event_id, descriptor &d, const many<SiEvtContent> &list)
{
    auto *content = as<dvb_content_descriptor>(d);
    if (content == nullptr)
        return true;
    for (const dvb_content_nibble &genre : genres(*content)) {
        const SiEvtContent entry{genre.content_nibble_level_1, genre.content_nibble_level_2,
                                 genre.user_nibble_1, genre.user_nibble_2};
        if (!list.put(entry))
            return false;
        SI_LOG_AT(here, level::trace,
                  "the event_id = %#x content[%d] levelone = %d, leveltwo = %d userlevelone = %d, "
                  "userleveltwo = %d\n",
                  low16(event_id), static_cast<int>(*list.count) - 1, entry.content_nibble_level_1,
                  entry.content_nibble_level_2, entry.user_nibble_1, entry.user_nibble_2);
    }
    return true;
}

void copy_component(const dvb_component_descriptor &from, SiEvtComponent &to)
{
    to.stream_content = from.stream_content;
    to.component_type = from.component_type;
    to.component_tag = from.component_tag;
    copy_code(to.lang, from.language_code);
    constexpr std::size_t fixed_part = sizeof from - sizeof from.d;
    copy_text(to.text, payload(from.d).subspan(fixed_part));
}

bool append_ratings(descriptor &d, const many<SiEvtRating> &list)
{
    auto *rated = as<dvb_parental_rating_descriptor>(d);
    if (rated == nullptr)
        return true;
    for (const dvb_parental_rating &entry : ratings(*rated))
        if (!list.put([&](SiEvtRating &to) {
                copy_code(to.country_code, entry.country_code);
                to.rating = entry.rating;
            }))
            return false;
    return true;
}

// The first preferred name that counts; whether there is one.
bool read_preferred_name(site here, dvb_eit_event &event, std::uint32_t pdsd,
                         std::uint8_t &pf_name_id)
{
    const bool none = every_private(
        descriptors(event),
        [pdsd](std::uint32_t specifier) { return pdsd == 0 || specifier == pdsd; },
        preferred_name_identifier, [](std::uint32_t) {},
        [&](bytes name_id) {
            if (name_id.empty())
                return true;
            pf_name_id = name_id[0];
            return false;
        });
    if (none)
        SI_LOG_AT(here, level::trace, "the pf_name_id_descriptor is null\n");
    else
        SI_LOG_AT(here, level::trace, "the pf_name_id is found and value = %d\n", pf_name_id);
    return !none;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_IsEqual_EventId(const dvb_eit_section *, const dvb_eit_event *event,
                                 uint32_t event_id, uint32_t)
{
    if (event == nullptr)
        return 0;
    SI_LOG(level::trace, "evt_id = %d, event_id = %d\n", event->event_id, low16(event_id));
    return event->event_id == low16(event_id) ? 1 : 0;
}

uint32_t Orva_Si_GetOneServEvtIds(uint32_t onid, uint32_t ts, uint32_t sid, uint16_t *pevent,
                                  uint32_t *count)
{
    SI_REQUIRE(pevent);
    SI_REQUIRE(count);
    const site here = SI_HERE;
    return list_ids(here, service_of(onid, ts, sid), {pevent, count, {.full_text = array_is_full}},
                    schedule_only(here), every_event);
}

uint32_t Orva_Si_GetOneServEvtCount(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t *count)
{
    SI_REQUIRE(count);
    const site here = SI_HERE;
    const tally found{count};
    return each_event(here, service_of(onid, ts, sid), found, schedule_only(here),
                      [&](dvb_eit_event &) { return found.add(); });
}

uint32_t Orva_Si_GetOneSectEvtIds(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t table_id,
                                  uint32_t section_number, uint16_t *pevent, uint32_t *count)
{
    SI_REQUIRE(pevent);
    SI_REQUIRE(count);
    const site here = SI_HERE;
    return list_ids(here, service_of(onid, ts, sid), {pevent, count, {.full_text = array_is_full}},
                    one_section(here, table_id, section_number), every_event);
}

uint32_t Orva_Si_GetOneServBscEvtInfos(uint32_t onid, uint32_t ts, uint32_t sid,
                                       uint32_t language_id, uint32_t start_time, uint32_t end_time,
                                       SiBasicEvent *pevent, uint32_t *count)
{
    SI_REQUIRE(pevent);
    SI_REQUIRE(count);
    const site here = SI_HERE;
    const bool all = start_time == 0 && end_time == 0;
    const many list{pevent, count, {.none = ORVA_SI_NOT_FOUND, .full_text = array_is_full}};
    return each_event(
        here, service_of(onid, ts, sid), list, schedule_only(here), [&](dvb_eit_event &event) {
            return !(all || runs_within(event, start_time, end_time)) ||
                   list.put([&](SiBasicEvent &to) { describe(here, event, language_id, to); });
        });
}

uint32_t Orva_Si_GetGetEventIDsByStartTime(uint32_t onid, uint32_t ts, uint32_t sid,
                                           uint32_t start_time, uint16_t *evtid_array,
                                           uint32_t *array_count)
{
    SI_REQUIRE_NOT_NULL(evtid_array);
    SI_REQUIRE_NOT_NULL(array_count);
    SI_REQUIRE_ROOM(array_count);
    const site here = SI_HERE;
    return list_ids(here, service_of(onid, ts, sid),
                    {evtid_array, array_count, {.full_text = array_is_full}}, schedule_only(here),
                    [=](dvb_eit_event &event) { return runs_from(event, start_time); });
}

uint32_t Orva_Si_GetGetEventIDsByStartTimeAndEndTime(uint32_t onid, uint32_t ts, uint32_t sid,
                                                     uint32_t start_time, uint32_t end_time,
                                                     uint16_t *evtid_array, uint32_t *array_count)
{
    SI_REQUIRE_NOT_NULL(evtid_array);
    SI_REQUIRE_NOT_NULL(array_count);
    SI_REQUIRE_ROOM(array_count);
    const site here = SI_HERE;
    return list_ids(here, service_of(onid, ts, sid),
                    {evtid_array, array_count, {.full_text = array_is_full}}, schedule_only(here),
                    [=](dvb_eit_event &event) { return runs_within(event, start_time, end_time); });
}

uint32_t Orva_Si_GetBnrEvtId(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t index,
                             uint16_t *pevent_id)
{
    SI_REQUIRE(pevent_id);
    const site here = SI_HERE;
    std::uint32_t ahead = index;
    return query_events(here, service_of(onid, ts, sid), ORVA_SI_NOT_FOUND, banner_only, any_event,
                        [&](dvb_eit_section &section) {
                            const dvb_eit_event *event = count_down(section, ahead);
                            if (event == nullptr)
                                return step::next;
                            *pevent_id = event->event_id;
                            SI_LOG_AT(here, level::trace, "found the index=%#x event id = %d\n",
                                      index, *pevent_id);
                            return step::found;
                        });
}

uint32_t Orva_Si_GetEvtStartUTCTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                    uint32_t *ptime, uint8_t bisbanner)
{
    SI_REQUIRE(ptime);
    return value_of_event(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner},
                          ORVA_SI_FAILURE, [&](dvb_eit_event &event) {
                              *ptime = start_of(event);
                              return true;
                          });
}

uint32_t Orva_Si_GetEvtDuringTime(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                  uint32_t *pduringtimeinsecs, uint8_t bisbanner)
{
    SI_REQUIRE(pduringtimeinsecs);
    return value_of_event(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner},
                          ORVA_SI_FAILURE, [&](dvb_eit_event &event) {
                              *pduringtimeinsecs = duration_of(event);
                              return true;
                          });
}

uint32_t Orva_Si_GetEvtContentDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                   SiEvtContent *content, uint32_t *psum, uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(content);
    SI_REQUIRE_NOT_NULL(psum);
    const site here = SI_HERE;
    const many list{content, psum, {.full_text = array_is_full}};
    return each_descriptor(here, {service_of(onid, ts, sid), event_id, bisbanner}, list,
                           [&](descriptor &d) { return append_genres(here, event_id, d, list); });
}

uint32_t Orva_Si_GetEvtComponentDesc(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                     SiEvtComponent *comdescarray, uint32_t *psum,
                                     uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(comdescarray);
    SI_REQUIRE_NOT_NULL(psum);
    const many list{comdescarray, psum, {.full_text = array_is_full}};
    return each_descriptor(
        SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, list, [&](descriptor &d) {
            const auto *component = as<dvb_component_descriptor>(d);
            return component == nullptr ||
                   list.put([&](SiEvtComponent &to) { copy_component(*component, to); });
        });
}

uint32_t Orva_Si_GetEvtParentalRatingDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                          uint32_t event_id, SiEvtRating *rating, uint32_t *psum,
                                          uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(rating);
    SI_REQUIRE_NOT_NULL(psum);
    const many list{rating, psum, {.full_text = array_is_full}};
    return each_descriptor(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, list,
                           [&](descriptor &d) { return append_ratings(d, list); });
}

// Also without such an event, or without the lock, the answer is no.
uint32_t Orva_Si_HaveEvtCAIdentifierDesc(uint32_t onid, uint32_t ts, uint32_t sid,
                                         uint32_t event_id, uint8_t *presult, uint8_t bisbanner)
{
    SI_REQUIRE(presult);
    *presult = 0;
    value_of_event(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, ORVA_SI_FAILURE,
                   [&](dvb_eit_event &event) {
                       const auto loop = descriptors(event);
                       *presult = first<dvb_ca_identifier_descriptor>(loop) != nullptr ? 1 : 0;
                       return true;
                   });
    return ORVA_SI_OK;
}

uint32_t Orva_Si_EvtGetPfNameId(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                uint32_t pdsd, uint8_t *pf_name_id, uint8_t bisbanner)
{
    SI_REQUIRE(pf_name_id);
    const site here = SI_HERE;
    return query_events(here, service_of(onid, ts, sid), ORVA_SI_NOT_FOUND,
                        chosen_by(here, bisbanner), event_with(event_id),
                        [&](dvb_eit_section &section) {
                            // The section's own, which the key of its service need not repeat.
                            if (!is_of_network(here, section.original_network_id, onid))
                                return step::next;
                            dvb_eit_event *event = find_event(section, event_id);
                            if (event == nullptr)
                                return step::next;
                            return read_preferred_name(here, *event, pdsd, *pf_name_id)
                                       ? step::found
                                       : step::table_done;
                        });
}
