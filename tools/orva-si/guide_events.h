// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of services, ready to be printed.
#ifndef TOOLS_GUIDE_EVENTS_H
#define TOOLS_GUIDE_EVENTS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "multiplex.h"
#include "options.h"

namespace tool {

// A short_event_descriptor.
struct event_name {
    std::string language;
    label name;
    std::optional<label> text; // none when its descriptor is damaged
};

// An extended_event_descriptor: one part of a longer description.
struct extended_part {
    struct item {
        label description;
        label value;
    };
    std::string language;
    std::uint8_t number = 0;
    std::uint8_t last_number = 0;
    std::vector<item> items;
    label text;
};

struct genre {
    std::uint8_t level_1 = 0;
    std::uint8_t level_2 = 0;
    std::uint8_t user_1 = 0;
    std::uint8_t user_2 = 0;
};

struct event_component {
    std::uint8_t stream_content = 0;
    std::uint8_t component_type = 0;
    std::uint8_t component_tag = 0;
    std::string language;
    label text;
};

struct age_rating {
    std::string country;
    std::uint8_t rating = 0;
};

struct event {
    std::uint16_t event_id = 0;
    std::optional<std::uint32_t> start;    // seconds since 1970 UTC; none when undefined
    std::optional<std::uint32_t> duration; // seconds; none when undefined
    std::vector<event_name> names;
    std::vector<extended_part> extended = {};
    std::vector<genre> genres = {};
    std::vector<event_component> components = {};
    std::vector<age_rating> ratings = {};
    bool ca = false; // carries a CA_identifier_descriptor
};

// What an event of now and next is; a service whose events start again and again has more of them.
enum class place { present, following, other };

struct placed_event {
    place at = place::other;
    event what;
};

struct guide_service {
    std::uint16_t original_network_id = 0;
    std::uint16_t transport_stream_id = 0;
    std::uint16_t service_id = 0;
    std::optional<label> name;
    std::vector<placed_event> present_following;
    std::vector<event> schedule; // by start, those without one last
};

// A part of the schedule, start included and end not.
struct window {
    std::uint32_t start = 0;
    std::uint32_t end = 0;

    bool is_all() const { return start == 0 && end == 0; }
};

// Asks the library for the events of every service wanted that it has any of, in the order of their
// numbers, and hands over one service after the other: all at once could be large. take answers
// whether to go on.
void collect_guide(const options &chosen, const window &within,
                   const std::function<bool(const guide_service &)> &take);

// Whether a service is wanted: by service_id, by original_network_id.transport_stream_id.service_id
// or by a part of its name, upper and lower case alike. Empty means every service.
bool is_wanted(const guide_service &of, const std::string &wanted);

} // namespace tool

#endif
