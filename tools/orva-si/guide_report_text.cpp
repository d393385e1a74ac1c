// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <string_view>

#include "dvb_text.h"
#include "event_words.h"
#include "guide_report.h"
#include "language.h"
#include "report_words.h"
#include "time_words.h"

namespace tool {
namespace {

constexpr std::size_t narrowest_text = 24;

// Lines of running text, broken at blanks where there are any.
std::vector<std::string> lines_of(std::string_view text, std::size_t width)
{
    std::vector<std::string> lines;
    while (display_width(text) > width) {
        const std::size_t fit = fitting(text, width).size();
        const std::size_t blank = text.rfind(' ', fit);
        const std::size_t end = blank != std::string_view::npos && blank != 0 ? blank : fit;
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    lines.emplace_back(text);
    return lines;
}

// Lines of a text behind a heading of their first; the others are indented as deep.
void append_hanging(std::string &out, const std::string &heading, const std::string &text,
                    std::size_t width)
{
    const std::size_t indent = display_width(heading);
    const std::size_t room = std::max(width - std::min(width, indent), narrowest_text);
    std::string before = heading;
    for (const std::string &line : lines_of(text, room)) {
        std::string whole = before + line;
        whole.erase(whole.find_last_not_of(' ') + 1);
        out += whole + '\n';
        before.assign(indent, ' ');
    }
}

// The one in the language that is wanted most; null when there is none at all.
template <class Texts>
const typename Texts::value_type *preferred(const Texts &texts,
                                            const std::vector<std::string> &languages)
{
    std::vector<std::string> codes;
    for (const auto &text : texts)
        codes.push_back(text.language);
    return texts.empty() ? nullptr : &texts[best_language(codes, languages)];
}

// Genre and age in brackets; empty when the event has neither.
std::string remarks(const event &of)
{
    std::vector<std::string> words;
    const auto add = [&](const std::string &word) {
        if (!word.empty() && std::ranges::find(words, word) == words.end())
            words.push_back(word);
    };
    for (const genre &one : of.genres)
        add(genre_text(one.level_1, one.level_2));
    for (const age_rating &one : of.ratings)
        add(rating_text(one.rating));
    return words.empty() ? "" : "  [" + joined(words) + "]";
}

std::string title(const event &of, const guide_style &style)
{
    const event_name *name = preferred(of.names, style.languages);
    const std::string text = name != nullptr ? one_line(name->name.text) : "";
    return (text.empty() ? "(no name)" : text) + remarks(of);
}

// The description of which the parts are the pieces of one text.
std::string extended_text(const event &of, const guide_style &style)
{
    const extended_part *chosen = preferred(of.extended, style.languages);
    std::string text;
    for (const extended_part &part : of.extended)
        if (chosen != nullptr && part.language == chosen->language)
            text += part.text.text;
    return text;
}

std::string item_list(const event &of, const guide_style &style)
{
    const extended_part *chosen = preferred(of.extended, style.languages);
    std::vector<std::string> items;
    for (const extended_part &part : of.extended)
        if (chosen != nullptr && part.language == chosen->language)
            for (const extended_part::item &item : part.items)
                items.push_back(item.description.text + ": " + item.value.text);
    return joined(items, "; ");
}

void append_descriptions(std::string &out, const event &of, const guide_style &style,
                         std::size_t indent)
{
    const event_name *name = preferred(of.names, style.languages);
    const std::string brief = name != nullptr && name->text ? name->text->text : "";
    for (const std::string &text : {brief, extended_text(of, style), item_list(of, style)})
        if (!text.empty())
            append_hanging(out, std::string(indent, ' '), one_line(text), style.width);
}

std::string span_text(const event &of)
{
    if (!of.start)
        return "time not given";
    const std::string start = clock_text(*of.start);
    return of.duration ? start + "-" + clock_text(*of.start + *of.duration) : start + "-     ";
}

void append_event(std::string &out, const std::string &heading, const event &of,
                  const guide_style &style)
{
    append_hanging(out, heading, title(of, style), style.width);
    if (style.verbose)
        append_descriptions(out, of, style, display_width(heading));
}

void append_present_following(std::string &out, const guide_service &of, const guide_style &style)
{
    for (const placed_event &one : of.present_following) {
        // What near video on demand repeats is sent without a time, and is not on now.
        const char *when = !one.what.start              ? "also"
                           : one.at == place::present   ? "now "
                           : one.at == place::following ? "next"
                                                        : "also";
        const std::string day = one.what.start ? day_text(*one.what.start) + " " : "";
        append_event(out, std::string{"  "} + when + "  " + day + span_text(one.what) + "  ",
                     one.what, style);
    }
}

void append_schedule(std::string &out, const guide_service &of, const guide_style &style)
{
    std::string day;
    for (const event &one : of.schedule) {
        const std::string its_day = one.start ? day_text(*one.start) : "time not given";
        if (its_day != day)
            out += "  " + its_day + '\n';
        day = its_day;
        const std::string heading = one.start ? "    " + span_text(one) + "  " : "    ";
        append_event(out, heading, one, style);
    }
}

} // namespace

std::string service_title(const guide_service &of)
{
    const std::string numbers = std::to_string(of.original_network_id) + "." +
                                std::to_string(of.transport_stream_id) + "." +
                                std::to_string(of.service_id);
    const std::string name = shown(of.name);
    return name.empty() ? "Service " + numbers : name + "  (" + numbers + ")";
}

std::string guide_text_service(const guide_service &of, const guide_style &style)
{
    if (of.present_following.empty() && of.schedule.empty())
        return {};
    std::string out = service_title(of) + '\n';
    append_present_following(out, of, style);
    append_schedule(out, of, style);
    return out;
}

std::string guide_text(const std::vector<guide_service> &services, const guide_style &style)
{
    std::string out;
    for (const guide_service &one : services) {
        const std::string text = guide_text_service(one, style);
        out += (out.empty() || text.empty() ? "" : "\n") + text;
    }
    return out;
}

} // namespace tool
