// SPDX-License-Identifier: LGPL-2.1-or-later
#include "guide_report.h"
#include "json_values.h"
#include "time_words.h"

namespace tool {
namespace {

json one_name(const event_name &of)
{
    json told{{"language", of.language}};
    set_text(told, "name", of.name);
    set_text(told, "text", of.text);
    return told;
}

json one_item(const extended_part::item &of)
{
    json told = json::object();
    set_text(told, "item_description", of.description);
    set_text(told, "item", of.value);
    return told;
}

json one_part(const extended_part &of)
{
    json told{{"language", of.language},
              {"descriptor_number", of.number},
              {"last_descriptor_number", of.last_number},
              {"items", array_of(of.items, one_item)}};
    set_text(told, "text", of.text);
    return told;
}

json one_genre(const genre &of)
{
    return {{"content_nibble_level_1", of.level_1},
            {"content_nibble_level_2", of.level_2},
            {"user_nibble_1", of.user_1},
            {"user_nibble_2", of.user_2}};
}

json one_component(const event_component &of)
{
    json told{{"stream_content", of.stream_content},
              {"component_type", of.component_type},
              {"component_tag", of.component_tag},
              {"language", of.language}};
    set_text(told, "text", of.text);
    return told;
}

json one_event(const event &of)
{
    return {{"event_id", of.event_id},
            {"start", of.start ? json(utc_text(*of.start)) : json{}},
            {"start_utc", value_or_null(of.start)},
            {"duration", value_or_null(of.duration)},
            {"names", array_of(of.names, one_name)},
            {"extended", array_of(of.extended, one_part)},
            {"content", array_of(of.genres, one_genre)},
            {"components", array_of(of.components, one_component)},
            {"ratings",
             array_of(of.ratings,
                      [](const age_rating &rating) -> json {
                          return {{"country_code", rating.country}, {"rating", rating.rating}};
                      })},
            {"ca", of.ca}};
}

json position(place at)
{
    if (at == place::other)
        return {};
    return at == place::present ? "present" : "following";
}

json one_service(const guide_service &of)
{
    json told{{"original_network_id", of.original_network_id},
              {"transport_stream_id", of.transport_stream_id},
              {"service_id", of.service_id}};
    set_text(told, "name", of.name);
    told["present_following"] = array_of(of.present_following, [](const placed_event &event) {
        json placed = one_event(event.what);
        placed["position"] = position(event.at);
        return placed;
    });
    told["schedule"] = array_of(of.schedule, one_event);
    return told;
}

} // namespace

std::string guide_json(const std::vector<guide_service> &services, const std::string &input,
                       bool complete)
{
    const json told{{"schema", "orva-si/1"},
                    {"input", input},
                    {"complete", complete},
                    {"services", array_of(services, one_service)}};
    return told.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

} // namespace tool
