// SPDX-License-Identifier: LGPL-2.1-or-later
#include "guide.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "channel_run.h"
#include "event_channel.h"
#include "event_outline.h"
#include "guide_events.h"
#include "guide_report.h"
#include "language.h"
#include "limit_report.h"
#include "list_json.h"
#include "session.h"
#include "terminal.h"
#include "time_words.h"

namespace tool {
namespace {

// The window that --from and --to leave; none when it is empty.
std::optional<window> chosen_window(const options &chosen)
{
    constexpr std::uint32_t last = std::numeric_limits<std::uint32_t>::max();
    if (chosen.from.empty() && chosen.to.empty())
        return window{};
    const window within{parse_time(chosen.from).value_or(0), parse_time(chosen.to).value_or(last)};
    return within.start < within.end ? std::optional{within} : std::nullopt;
}

std::string progress_text(const OrvaDemuxStatus &status)
{
    return reading_text(status) + "events of " + std::to_string(stored_services().size()) +
           " services";
}

// Prints the guide as it comes, service by service.
class guide_printer {
public:
    guide_printer(const options &with, const guide_style &in) : chosen{with}, style{in}
    {
        if (chosen.json)
            put(list_json_head(chosen.input, guide_json_list));
    }
    // Whether more is wanted: standard output works and somebody reads it.
    bool add(const guide_service &one)
    {
        const bool first = !found_any;
        found_any = true;
        if (chosen.json) {
            page.clear(); // its memory stays, for the next one is as long
            append_guide_json_service(page, one, first);
            put(page);
        } else if (const std::string text = guide_text_service(one, style); !text.empty()) {
            put(found_events ? '\n' + text : text);
        }
        found_events = found_events || !one.present_following.empty() || !one.schedule.empty();
        return works && !reader_has_left();
    }
    void end(bool complete)
    {
        if (chosen.json)
            put(list_json_end(complete, found_any, limits_for_json(chosen)));
    }

    bool works = true;
    bool found_any = false;
    bool found_events = false;

private:
    void put(const std::string &text) { works = works && print(text); }

    const options &chosen;
    guide_style style;
    std::string page;
};

// Says on standard error what the results lack; the exit status.
int judge(const channel_run &of, const guide_printer &printed, const options &chosen)
{
    const std::string name = input_name(chosen.input) + ": ";
    tell_shortfall(of, chosen);
    if (of.how == channel_end::signal)
        return exit_by_signal + received_signal();
    if (stored_services().empty()) {
        complain(name + "no sections of events");
        return exit_no_sections;
    }
    const bool no_program = tell_missing_program(chosen);
    if (!printed.found_any)
        complain(name + "no events of such a service");
    else if (!printed.found_events && !chosen.quiet)
        complain(name + "no events");
    if (!of.complete())
        return exit_partial;
    return no_program || !printed.found_any ? exit_failure : exit_complete;
}

} // namespace

int run_guide(const options &chosen)
{
    if (!chosen.time_zone.empty())
        use_time_zone(chosen.time_zone);
    const auto within = chosen_window(chosen);
    if (!within) {
        complain("--from is not before --to");
        return exit_usage;
    }
    install_languages();
    session input;
    if (const auto refused = input.open(chosen, count_news))
        return *refused;
    channel_run result = run_channel(input, chosen, {.progress = progress_text});
    if (result.how == channel_end::input_failed) {
        complain(input_error_text(chosen.input, result.status.error, 0));
        return input_error_status(result.status.error);
    }
    guide_printer printer{chosen, {output_columns(), chosen.languages, chosen.verbose}};
    collect_guide(chosen, *within, [&](const guide_service &one) { return printer.add(one); });
    if (received_signal() != 0)
        result.how = channel_end::signal;
    printer.end(result.complete());
    const int status = judge(result, printer, chosen);
    tell_limits(chosen);
    if (!printer.works)
        return exit_failure;
    return received_signal() != 0 ? exit_by_signal + received_signal() : status;
}

} // namespace tool
