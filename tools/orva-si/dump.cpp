// SPDX-License-Identifier: LGPL-2.1-or-later
#include "dump.h"

#include <string>
#include <utility>

#include "channel_run.h"
#include "dump_report.h"
#include "event_channel.h"
#include "limit_report.h"
#include "list_json.h"
#include "report_words.h"
#include "session.h"
#include "stored_tables.h"
#include "terminal.h"

namespace tool {
namespace {

std::string progress_text(const OrvaDemuxStatus &status)
{
    return reading_text(status) + std::to_string(status.sections) + " sections";
}

struct dump_printed {
    bool works = true; // standard output does
    bool any = false;
};

// Prints the tables as they come from the store. A signal meanwhile ends the run all the same.
dump_printed print_tables(const options &chosen, channel_run &run)
{
    dump_printed so_far;
    const auto put = [&](const std::string &text) {
        so_far.works = so_far.works && print(text);
        return so_far.works && !reader_has_left();
    };
    if (chosen.json)
        put(list_json_head(chosen.input, dump_json_list));
    std::string page;
    each_stored_table(chosen.table, [&](const stored_table &table) {
        const bool first = !std::exchange(so_far.any, true);
        page.clear(); // its memory stays, for the next one is as long
        if (chosen.json) {
            json_writer to = list_json_item(page, first);
            write_dump_json_table(to, table);
        } else {
            page += first ? "" : "\n";
            page += dump_text_table(table);
        }
        return put(page);
    });
    if (received_signal() != 0)
        run.how = channel_end::signal;
    if (chosen.json)
        put(list_json_end(run.complete(), so_far.any, limits_for_json(chosen)));
    return so_far;
}

// Says on standard error what the results lack; the exit status.
int judge(const channel_run &of, const dump_printed &printed, const options &chosen)
{
    tell_shortfall(of, chosen);
    if (of.how == channel_end::signal)
        return exit_by_signal + received_signal();
    const bool no_program = tell_missing_program(chosen);
    if (!printed.any) {
        complain(input_name(chosen.input) +
                 (chosen.table ? ": no sections of table_id " + hex(*chosen.table, 2)
                               : ": no sections of PAT, CAT, PMT, NIT, SDT, BAT or EIT"));
        return exit_no_sections;
    }
    if (!of.complete())
        return exit_partial;
    return no_program ? exit_failure : exit_complete;
}

} // namespace

int run_dump(const options &chosen)
{
    session input;
    if (const auto refused = input.open(chosen, count_news))
        return *refused;
    channel_run result =
        run_channel(input, chosen, {.awaits_programs = true, .progress = progress_text});
    if (result.how == channel_end::input_failed) {
        complain(input_error_text(chosen.input, result.status.error, 0));
        return input_error_status(result.status.error);
    }
    const dump_printed printed = print_tables(chosen, result);
    const int status = judge(result, printed, chosen);
    tell_limits(chosen);
    return printed.works ? status : exit_failure;
}

} // namespace tool
