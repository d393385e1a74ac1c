// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sample_events.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace sample {
namespace {

using namespace std::string_view_literals;

constexpr unsigned first_day = 61041; // 2026-01-01 as MJD
constexpr unsigned days = 2;
constexpr unsigned minutes_of_day = 24 * 60;
constexpr unsigned noon = 12 * 60; // when the recording begins

// A text in a language, with its character table selector where it needs one.
struct wording {
    const char *language;
    std::string_view name;
    std::string_view text;
};

struct programme {
    unsigned minutes;
    unsigned genre; // content_nibble_level_1 and 2
    unsigned rating;
    std::vector<wording> words;
    std::string_view story = {}; // in the language of the first words, sent in two parts
    std::string_view cast = {};
};

// What a service shows, over and over.
struct line_up {
    unsigned service_id;
    bool scrambled;
    std::vector<programme> programmes;
};

// clang-format off
const std::vector<line_up> line_ups{
    {101, false,
     {{30, 0x21, 0,
       {{"eng", "The News"sv, "Headlines and weather."sv},
        {"deu", "Die Nachrichten"sv, "Schlagzeilen und Wetter."sv}}},
      {90, 0x14, 3,
       {{"eng", "The Lighthouse Keeper's Cat"sv, "Comedy about a cat that cannot swim."sv},
        {"deu", "\x0B" "Die Katze des Leuchtturmw\xE4rters"sv, "\x0B" "Kom\xF6" "die um eine Katze, die nicht schwimmen kann."sv}},
       "A storm leaves a lighthouse without its keeper. His cat keeps the lamp alight, and a whole fleet finds its way home."sv,
       "Mina Orva"sv},
      {45, 0x91, 0,
       {{"eng", "Birds of the Coast"sv, "Waders in winter."sv},
        {"deu", "\x0B" "V\xF6gel der K\xFCste"sv, "\x0B" "Watv\xF6gel im Winter."sv}}},
      {75, 0x43, 0,
       {{"eng", "Football Tonight"sv, "The match of the day."sv},
        {"deu", "\x0B" "Fu\xDF" "ball heute"sv, "Das Spiel des Tages."sv}}}}},
    {108, false,
     {{60, 0x82, 0,
       {{"deu", "\x0B" "Wirtschaft f\xFCr alle"sv, "\x0B" "Was der Winter kostet - und wen."sv}}},
      {120, 0x11, 9,
       {{"deu", "\x0B" "Der stille Zeuge"sv, "Krimi."sv}, {"eng", "The Silent Witness"sv, "Thriller."sv}}},
      {180, 0x62, 0, {{"deu", "\x0B" "Neujahrskonzert"sv, ""sv}}}}},
    {109, true,
     {{240, 0x13, 13, {{"eng", "\x15" "Star\xE2\x98\x85 Marathon"sv, "All night long."sv}}}}},
};
// clang-format on

struct showing {
    const programme *what;
    unsigned event_id;
    unsigned start; // minutes since the first midnight
};

std::vector<showing> showings_of(const line_up &of)
{
    std::vector<showing> all;
    unsigned id = 1;
    for (unsigned at = 0; at < days * minutes_of_day;) {
        const programme &what = of.programmes[(id - 1) % of.programmes.size()];
        all.push_back({&what, id++, at});
        at += what.minutes;
    }
    return all;
}

unsigned bcd(unsigned number)
{
    return number / 10 << 4 | number % 10;
}

octets short_event(const wording &of)
{
    return descriptor(0x4D, writer{}.text(of.language).text8(of.name).text8(of.text));
}

// A description that takes two descriptors, the items in the first.
octets extended_events(const programme &of)
{
    if (of.story.empty())
        return {};
    const std::size_t half = of.story.size() / 2;
    const std::array<std::string_view, 2> parts{of.story.substr(0, half), of.story.substr(half)};
    octets all;
    for (unsigned number = 0; number < parts.size(); ++number) {
        writer items;
        if (number == 0)
            items.text8("Cast"sv).text8(of.cast);
        writer part;
        part.u8(number << 4 | 1).text(of.words[0].language);
        part.u8(static_cast<unsigned>(items.data.size())).append(items.data).text8(parts[number]);
        all = joined({all, descriptor(0x4E, part)});
    }
    return all;
}

octets event_loop_entry(const showing &of, bool running, bool scrambled)
{
    const programme &what = *of.what;
    octets descriptors;
    for (const wording &words : what.words)
        descriptors = joined({descriptors, short_event(words)});
    descriptors = joined({descriptors, extended_events(what)});
    // H.264, 16:9, high definition, 25 Hz
    descriptors = joined(
        {descriptors, descriptor(0x50, writer{}.u8(0xF5).u8(0x0B).u8(1).text("eng"sv).text("HD"sv)),
         descriptor(0x54, writer{}.u8(what.genre).u8(0))});
    if (what.rating != 0)
        descriptors =
            joined({descriptors, descriptor(0x55, writer{}.text("DEU"sv).u8(what.rating))});
    if (scrambled)
        descriptors = joined({descriptors, descriptor(0x53, writer{}.u16(0x2610))});
    const unsigned status = running ? 4 : 1; // running, not running
    writer entry;
    entry.u16(of.event_id).u16(first_day + of.start / minutes_of_day);
    entry.u8(bcd(of.start % minutes_of_day / 60)).u8(bcd(of.start % 60)).u8(0);
    entry.u8(bcd(what.minutes / 60)).u8(bcd(what.minutes % 60)).u8(0);
    entry.u16(status << 13 | (scrambled ? 0x1000u : 0u) |
              static_cast<unsigned>(descriptors.size()));
    return entry.append(descriptors).data;
}

struct sub_table {
    unsigned table_id;
    unsigned stream;
    unsigned original_network;
    unsigned service_id;
};

octets eit(const sub_table &of, const octets &events, unsigned number, unsigned last)
{
    writer body;
    body.u16(of.stream).u16(of.original_network);
    body.u8(number); // segments of one section
    body.u8(of.table_id).append(events);
    return section(static_cast<std::uint8_t>(of.table_id),
                   static_cast<std::uint16_t>(of.service_id), body.data, number, last);
}

// Present and following at noon.
std::vector<octets> now_and_next(const line_up &of, const sub_table &at)
{
    const std::vector<showing> all = showings_of(of);
    const auto next = std::ranges::find_if(all, [](const showing &s) { return s.start > noon; });
    const octets following = event_loop_entry(*next, false, of.scrambled);
    const octets present = event_loop_entry(*(next - 1), true, of.scrambled);
    writer first;
    first.u16(at.stream).u16(at.original_network).u8(1).u8(at.table_id).append(present);
    writer second;
    second.u16(at.stream).u16(at.original_network).u8(1).u8(at.table_id).append(following);
    const auto id = static_cast<std::uint8_t>(at.table_id);
    const auto service = static_cast<std::uint16_t>(at.service_id);
    return {section(id, service, first.data, 0, 1), section(id, service, second.data, 1, 1)};
}

// Segments of three hours, each in the first of its eight sections; those that are over are empty.
std::vector<octets> segments(const line_up &of, const sub_table &at)
{
    constexpr unsigned segment_minutes = 180;
    constexpr unsigned total = days * minutes_of_day / segment_minutes;
    const std::vector<showing> all = showings_of(of);
    std::vector<octets> sections;
    for (unsigned segment = 0; segment < total; ++segment) {
        octets events;
        for (const showing &s : all) {
            const bool over = segment < noon / segment_minutes;
            if (!over && s.start / segment_minutes == segment)
                events = joined({events, event_loop_entry(s, false, of.scrambled)});
        }
        sections.push_back(eit(at, events, segment * 8, (total - 1) * 8));
    }
    return sections;
}

} // namespace

bool has_events(unsigned service_id)
{
    return std::ranges::find(line_ups, service_id, &line_up::service_id) != line_ups.end();
}

std::vector<octets> present_following(unsigned this_stream, unsigned other_stream,
                                      unsigned original_network)
{
    constexpr unsigned neighbour = 201;
    std::vector<octets> sections;
    const auto add = [&](const line_up &of, const sub_table &at) {
        const std::vector<octets> both = now_and_next(of, at);
        sections.insert(sections.end(), both.begin(), both.end());
    };
    for (const line_up &of : line_ups)
        add(of, {0x4E, this_stream, original_network, of.service_id});
    add(line_ups[0], {0x4F, other_stream, original_network, neighbour});
    return sections;
}

std::vector<octets> event_schedule(unsigned this_stream, unsigned original_network)
{
    std::vector<octets> sections;
    for (const line_up &of : line_ups) {
        const std::vector<octets> its =
            segments(of, {0x50, this_stream, original_network, of.service_id});
        sections.insert(sections.end(), its.begin(), its.end());
    }
    return sections;
}

} // namespace sample
