// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <tuple>

#include "collect.h"
#include "event_outline.h"
#include "guide_events.h"
#include "language.h"

namespace tool {
namespace {

// A question about an event, as the library takes it.
struct event_key {
    SiEitRequest service;
    std::uint16_t event_id;
    bool banner; // in present/following, else in the schedule
};

// Asks a getter for a text or list of an event: the key first, bisbanner last.
template <auto Getter, class... Arguments>
std::uint32_t ask(const event_key &key, Arguments... arguments)
{
    return Getter(key.service.original_network_id, key.service.transport_stream_id,
                  key.service.service_id, key.event_id, arguments...,
                  static_cast<std::uint8_t>(key.banner ? 1 : 0));
}

template <class T, auto Getter>
std::vector<T> list_answer(const event_key &key)
{
    constexpr std::uint32_t usual = 8; // descriptors of an event
    return list_of<T>([&](T *list, std::uint32_t *count) { return ask<Getter>(key, list, count); },
                      usual);
}

// Of what is only printed on request nothing is asked without it.
bool wants_descriptions(const collecting &run)
{
    return run.chosen.json || run.chosen.verbose;
}

std::optional<label> text_of(const collecting &run, const event_key &key, std::uint32_t language)
{
    if (!wants_descriptions(run))
        return std::nullopt;
    return name_of(run, [&](SiDvbString *text) {
        return ask<Orva_Si_GetShortEvtDescByID>(key, language, text);
    });
}

extended_part part_of(const collecting &run, const SiExtendEvtDesc &told)
{
    extended_part part{code_of(told.lang),
                       told.descriptor_number,
                       told.last_descriptor_number,
                       {},
                       run.text(told.text)};
    for (std::uint32_t i = 0; i < told.item_count && i < SI_EXT_EVT_ITEMS; ++i)
        part.items.push_back({run.text(told.items[i].description), run.text(told.items[i].item)});
    return part;
}

void append_extended(const collecting &run, const event_key &key, std::uint32_t language,
                     std::vector<extended_part> &parts)
{
    std::uint32_t count = 0;
    if (ask<Orva_Si_GetExtendEvtDescCnt>(key, language, &count) != ORVA_SI_OK)
        return;
    std::vector<SiExtendEvtDesc> told(count);
    ask<Orva_Si_GetAllExtendEvtDescByID>(key, language, told.data(), &count);
    told.resize(count);
    for (const SiExtendEvtDesc &one : told)
        parts.push_back(part_of(run, one));
}

// The rest of an event, asked for as far as its descriptors can answer.
void describe(const collecting &run, const event_key &key, const event_outline &outline, event &to)
{
    if (wants_descriptions(run))
        for (const std::uint32_t language : outline.extended_languages)
            append_extended(run, key, language, to.extended);
    if (outline.tags[content_tag])
        to.genres = each(list_answer<SiEvtContent, Orva_Si_GetEvtContentDesc>(key),
                         [](const SiEvtContent &told) -> genre {
                             return {told.content_nibble_level_1, told.content_nibble_level_2,
                                     told.user_nibble_1, told.user_nibble_2};
                         });
    if (run.chosen.json && outline.tags[component_tag])
        to.components =
            each(list_answer<SiEvtComponent, Orva_Si_GetEvtComponentDesc>(key),
                 [&](const SiEvtComponent &told) -> event_component {
                     return {told.stream_content, told.component_type, told.component_tag,
                             code_of(told.lang), run.text(told.text)};
                 });
    if (outline.tags[parental_rating_tag])
        to.ratings = each(list_answer<SiEvtRating, Orva_Si_GetEvtParentalRatingDesc>(key),
                          [](const SiEvtRating &told) -> age_rating {
                              return {code_of(told.country_code), told.rating};
                          });
    std::uint8_t ca = 0;
    if (run.chosen.json && outline.tags[ca_identifier_tag])
        ask<Orva_Si_HaveEvtCAIdentifierDesc>(key, &ca);
    to.ca = ca != 0;
}

// ---- Present and following

std::vector<event_name> banner_names(const collecting &run, const event_key &key)
{
    std::vector<event_name> names;
    for (const std::uint32_t language :
         list_answer<std::uint32_t, Orva_Si_GetEvtNameLangList>(key)) {
        const auto name = name_of(run, [&](SiDvbString *text) {
            return ask<Orva_Si_GetEvtNameByID>(key, text, language);
        });
        if (name)
            names.push_back({language_code(language), *name, text_of(run, key, language)});
    }
    return names;
}

std::vector<std::uint16_t> events_of_section(const SiEitRequest &service, std::uint8_t number)
{
    constexpr std::uint32_t present_following = 0x4E;
    return list_of<std::uint16_t>([&](std::uint16_t *ids, std::uint32_t *count) {
        return Orva_Si_GetOneSectEvtIds(service.original_network_id, service.transport_stream_id,
                                        service.service_id, present_following, number, ids, count);
    });
}

bool contains(const std::vector<std::uint16_t> &ids, std::uint16_t id)
{
    return std::ranges::find(ids, id) != ids.end();
}

std::vector<std::uint16_t> banner_ids(const SiEitRequest &service)
{
    std::vector<std::uint16_t> ids;
    for (std::uint32_t index = 0;; ++index) {
        const auto id = value_of<std::uint16_t>([&](std::uint16_t *told) {
            return Orva_Si_GetBnrEvtId(service.original_network_id, service.transport_stream_id,
                                       service.service_id, index, told);
        });
        if (!id)
            return without_repeats(std::move(ids));
        ids.push_back(*id);
    }
}

const event_outline *find_outline(const std::vector<section_outline> &sections, std::uint16_t id)
{
    for (const section_outline &section : sections)
        if (is_present_following(section.table_id))
            for (const event_outline &outline : section.events)
                if (outline.event_id == id)
                    return &outline;
    return nullptr;
}

std::vector<placed_event> present_following_of(const collecting &run, const SiEitRequest &service,
                                               const std::vector<section_outline> &sections)
{
    // Section 0 has the present event, section 1 the following one (EN 300 468, 5.2.4).
    const auto present = events_of_section(service, 0);
    const auto following = events_of_section(service, 1);
    std::vector<placed_event> found;
    for (const std::uint16_t id : banner_ids(service)) {
        const event_outline *outline = find_outline(sections, id);
        if (outline == nullptr)
            continue;
        const event_key key{service, id, true};
        event what{.event_id = id, .start = {}, .duration = {}, .names = banner_names(run, key)};
        if (outline->has_start)
            what.start = value_of<std::uint32_t>([&](std::uint32_t *seconds) {
                return ask<Orva_Si_GetEvtStartUTCTime>(key, seconds);
            });
        if (outline->has_duration)
            what.duration = value_of<std::uint32_t>([&](std::uint32_t *seconds) {
                return ask<Orva_Si_GetEvtDuringTime>(key, seconds);
            });
        describe(run, key, *outline, what);
        const place at = contains(present, id)     ? place::present
                         : contains(following, id) ? place::following
                                                   : place::other;
        found.push_back({at, std::move(what)});
    }
    std::ranges::stable_sort(found, {}, &placed_event::at);
    return found;
}

// ---- Schedule

std::vector<const event_outline *> schedule_outlines(const std::vector<section_outline> &sections)
{
    std::vector<const event_outline *> outlines;
    for (const section_outline &section : sections)
        if (!is_present_following(section.table_id))
            for (const event_outline &outline : section.events)
                outlines.push_back(&outline);
    return outlines;
}

std::vector<SiBasicEvent> basic_events(const SiEitRequest &service, std::uint32_t language,
                                       const window &within, std::size_t most)
{
    return list_of<SiBasicEvent>(
        [&](SiBasicEvent *events, std::uint32_t *count) {
            return Orva_Si_GetOneServBscEvtInfos(service.original_network_id,
                                                 service.transport_stream_id, service.service_id,
                                                 language, within.start, within.end, events, count);
        },
        static_cast<std::uint32_t>(most));
}

std::vector<std::uint32_t> languages_of(const std::vector<const event_outline *> &outlines)
{
    std::vector<std::uint32_t> languages;
    for (const event_outline *outline : outlines)
        for (const std::uint32_t language : outline->name_languages)
            if (std::ranges::find(languages, language) == languages.end())
                languages.push_back(language);
    return languages;
}

// A schedule event and what its section says about it.
struct outlined_event {
    event what;
    const event_outline *outline;
};

// The events in their order, without names. An answer for a window lacks some of the outlines.
std::vector<outlined_event> match(const std::vector<SiBasicEvent> &told,
                                  const std::vector<const event_outline *> &outlines)
{
    std::vector<outlined_event> matched;
    auto next = outlines.begin();
    for (const SiBasicEvent &one : told) {
        next = std::find_if(next, outlines.end(), [&](const event_outline *outline) {
            return outline->event_id == one.event_id;
        });
        if (next == outlines.end())
            break;
        const event_outline &outline = **next++;
        event what{.event_id = one.event_id, .start = {}, .duration = {}, .names = {}};
        if (outline.has_start)
            what.start = one.start_time;
        if (outline.has_duration)
            what.duration = one.duration;
        matched.push_back({std::move(what), &outline});
    }
    return matched;
}

// The names in every language, as each event lists them: one question for a language, not for an
// event.
void add_names(const collecting &run, const SiEitRequest &service, const window &within,
               const std::vector<std::uint32_t> &languages, std::vector<outlined_event> &events)
{
    for (outlined_event &one : events)
        one.what.names.resize(one.outline->name_languages.size());
    for (const std::uint32_t language : languages) {
        const std::vector<SiBasicEvent> told =
            basic_events(service, language, within, events.size());
        for (std::size_t i = 0; i < events.size() && i < told.size(); ++i) {
            const auto &in = events[i].outline->name_languages;
            for (std::size_t n = 0; n < in.size(); ++n)
                if (in[n] == language)
                    events[i].what.names[n] = {
                        language_code(language), run.text(told[i].event_name),
                        text_of(run, {service, told[i].event_id, false}, language)};
        }
    }
}

bool same_event(const event &one, const event &other)
{
    return one.event_id == other.event_id && one.start == other.start &&
           one.duration == other.duration &&
           std::ranges::equal(
               one.names, other.names, {}, [](const event_name &name) { return name.name.raw; },
               [](const event_name &name) { return name.name.raw; });
}

// Events in the order of their start; one that came in two sub-tables stands once.
void put_in_order(std::vector<event> &events)
{
    std::ranges::stable_sort(events, {}, [](const event &one) {
        return std::tuple{!one.start.has_value(), one.start.value_or(0), one.event_id};
    });
    events.erase(std::unique(events.begin(), events.end(), same_event), events.end());
}

std::vector<event> schedule_of(const collecting &run, const SiEitRequest &service,
                               const std::vector<section_outline> &sections, const window &within)
{
    const auto outlines = schedule_outlines(sections);
    if (outlines.empty())
        return {};
    const std::vector<std::uint32_t> languages = languages_of(outlines);
    auto found = match(basic_events(service, 0, within, outlines.size()), outlines);
    add_names(run, service, within, languages, found);
    std::vector<event> events;
    for (outlined_event &one : found) {
        if (run.interrupted())
            break;
        if (!within.is_all() && !one.what.start) // at no time, so in no window
            continue;
        describe(run, {service, one.what.event_id, false}, *one.outline, one.what);
        events.push_back(std::move(one.what));
    }
    put_in_order(events);
    return events;
}

// ---- Services

std::optional<label> service_name(const collecting &run, const SiEitRequest &service)
{
    const auto own = value_of<std::uint16_t>(Orva_Si_GetActTsId);
    return name_of(run, [&](SiDvbString *text) {
        return own == service.transport_stream_id
                   ? Orva_Si_GetServiceName(service.service_id, text)
                   : Orva_Si_GetServName(service.transport_stream_id, service.service_id, text);
    });
}

// The numbers of "id" or "onid.tsid.sid"; fewer or more for anything else.
std::vector<std::uint32_t> numbers_of(std::string_view text)
{
    std::vector<std::uint32_t> numbers;
    const char *at = text.data();
    const char *const end = at + text.size();
    while (true) {
        std::uint32_t number = 0;
        const auto [stopped, error] = std::from_chars(at, end, number);
        if (error != std::errc{})
            return {};
        numbers.push_back(number);
        if (stopped == end)
            return numbers;
        if (*stopped != '.')
            return {};
        at = stopped + 1;
    }
}

std::string small_letters(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 'a' - 'A') : c; });
    return text;
}

} // namespace

bool is_wanted(const guide_service &of, const std::string &wanted)
{
    const std::vector<std::uint32_t> numbers = numbers_of(wanted);
    if (numbers.size() == 1)
        return numbers[0] == of.service_id;
    if (numbers.size() == 3)
        return numbers[0] == of.original_network_id && numbers[1] == of.transport_stream_id &&
               numbers[2] == of.service_id;
    const std::string name = small_letters(of.name ? of.name->text : "");
    return name.find(small_letters(wanted)) != std::string::npos;
}

void collect_guide(const options &chosen, const window &within,
                   const std::function<bool(const guide_service &)> &take)
{
    const collecting run{chosen};
    std::vector<SiEitRequest> services = stored_services();
    const auto numbers = [](const auto &of) {
        return std::tuple{of.original_network_id, of.transport_stream_id, of.service_id};
    };
    std::ranges::sort(services, {}, numbers);
    for (const SiEitRequest &service : services) {
        if (run.interrupted())
            return;
        guide_service one{service.original_network_id,
                          service.transport_stream_id,
                          service.service_id,
                          service_name(run, service),
                          {},
                          {}};
        if (!is_wanted(one, chosen.service))
            continue;
        const std::vector<section_outline> sections = outline_of(service);
        one.present_following = present_following_of(run, service, sections);
        one.schedule = schedule_of(run, service, sections, within);
        if (!take(one))
            return;
    }
}

} // namespace tool
