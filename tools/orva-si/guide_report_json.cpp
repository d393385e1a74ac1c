// SPDX-License-Identifier: LGPL-2.1-or-later
#include "guide_report.h"
#include "list_json.h"
#include "time_words.h"

namespace tool {
namespace {

void write_name(json_writer &to, const event_name &of)
{
    to.object([&] {
        to.member("language", of.language);
        to.text("name", of.name);
        to.text("text", of.text);
    });
}

void write_item(json_writer &to, const extended_part::item &of)
{
    to.object([&] {
        to.text("item_description", of.description);
        to.text("item", of.value);
    });
}

void write_part(json_writer &to, const extended_part &of)
{
    to.object([&] {
        to.member("language", of.language);
        to.member("descriptor_number", std::uint32_t{of.number});
        to.member("last_descriptor_number", std::uint32_t{of.last_number});
        to.array("items", of.items, [&](const auto &item) { write_item(to, item); });
        to.text("text", of.text);
    });
}

void write_genre(json_writer &to, const genre &of)
{
    to.object([&] {
        to.member("content_nibble_level_1", std::uint32_t{of.level_1});
        to.member("content_nibble_level_2", std::uint32_t{of.level_2});
        to.member("user_nibble_1", std::uint32_t{of.user_1});
        to.member("user_nibble_2", std::uint32_t{of.user_2});
    });
}

void write_component(json_writer &to, const event_component &of)
{
    to.object([&] {
        to.member("stream_content", std::uint32_t{of.stream_content});
        to.member("component_type", std::uint32_t{of.component_type});
        to.member("component_tag", std::uint32_t{of.component_tag});
        to.member("language", of.language);
        to.text("text", of.text);
    });
}

void write_rating(json_writer &to, const age_rating &of)
{
    to.object([&] {
        to.member("country_code", of.country);
        to.member("rating", std::uint32_t{of.rating});
    });
}

void write_members(json_writer &to, const event &of)
{
    to.member("event_id", std::uint32_t{of.event_id});
    to.member("start", of.start ? std::optional{utc_text(*of.start)} : std::nullopt);
    to.member("start_utc", of.start);
    to.member("duration", of.duration);
    to.array("names", of.names, [&](const auto &name) { write_name(to, name); });
    to.array("extended", of.extended, [&](const auto &part) { write_part(to, part); });
    to.array("content", of.genres, [&](const auto &one) { write_genre(to, one); });
    to.array("components", of.components, [&](const auto &one) { write_component(to, one); });
    to.array("ratings", of.ratings, [&](const auto &one) { write_rating(to, one); });
    to.member("ca", of.ca);
}

std::optional<std::string> position(place at)
{
    if (at == place::other)
        return std::nullopt;
    return at == place::present ? "present" : "following";
}

void write_service(json_writer &to, const guide_service &of)
{
    to.object([&] {
        to.member("original_network_id", std::uint32_t{of.original_network_id});
        to.member("transport_stream_id", std::uint32_t{of.transport_stream_id});
        to.member("service_id", std::uint32_t{of.service_id});
        to.text("name", of.name);
        to.array("present_following", of.present_following, [&](const placed_event &one) {
            to.object([&] {
                write_members(to, one.what);
                to.member("position", position(one.at));
            });
        });
        to.array("schedule", of.schedule,
                 [&](const event &one) { to.object([&] { write_members(to, one); }); });
    });
}

} // namespace

void append_guide_json_service(std::string &out, const guide_service &of, bool first)
{
    json_writer to = list_json_item(out, first);
    write_service(to, of);
}

std::string guide_json(const std::vector<guide_service> &services, const std::string &input,
                       bool complete)
{
    std::string told = list_json_head(input, guide_json_list);
    bool any = false;
    for (const guide_service &one : services) {
        append_guide_json_service(told, one, !any);
        any = true;
    }
    return told + list_json_end(complete, any);
}

} // namespace tool
