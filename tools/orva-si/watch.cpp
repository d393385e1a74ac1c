// SPDX-License-Identifier: LGPL-2.1-or-later
#include "watch.h"

#include <poll.h>
#include <unistd.h>

#include <ctime>
#include <mutex>
#include <string>
#include <utility>

#include "channel_run.h"
#include "event_channel.h"
#include "language.h"
#include "limit_report.h"
#include "session.h"
#include "terminal.h"
#include "time_words.h"
#include "watch_news.h"

namespace tool {
namespace {

// From the library's thread to the one that prints.
class news_queue {
public:
    explicit news_queue(const options &with) : chosen{with}, reader{with} {}

    void take(std::uint32_t reason, SiWord data, std::uint32_t value)
    {
        const news_item item = reader.read(reason, data, value);
        const std::string line = chosen.json ? news_json(item) : news_text(item);
        const std::scoped_lock held{lock};
        lines += line;
        any = true;
    }
    std::string give()
    {
        const std::scoped_lock held{lock};
        return std::exchange(lines, {});
    }
    bool had_any()
    {
        const std::scoped_lock held{lock};
        return any;
    }

private:
    const options &chosen;
    news_reader reader; // the library's thread only
    std::mutex lock;
    std::string lines;
    bool any = false;
};

news_queue *listening = nullptr; // while a session is open

std::uint32_t hear_news(std::uint32_t reason, std::uint32_t flag, SiWord data, std::uint32_t value)
{
    constexpr std::uint32_t section_of_other_protocol = SI_REASON_DSMCC; // never asked for
    if (reason == section_of_other_protocol)
        return 0;
    listening->take(reason, data, value);
    return count_news(reason, flag, data, value);
}

// Whether nobody reads standard output any more.
bool reader_has_gone()
{
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, 0) > 0 && (out.revents & POLLERR) != 0;
}

int judge(const channel_run &of, bool any, const options &chosen)
{
    const std::string name = input_name(chosen.input) + ": ";
    if (of.status.error != ORVA_DEMUX_OK)
        complain(input_error_text(chosen.input, of.status.error, 0));
    if (of.how == channel_end::signal)
        return exit_by_signal + received_signal();
    if (of.how == channel_end::input_failed)
        return input_error_status(of.status.error);
    if (session::store_was_full())
        complain(name + "the library's store is full: what came after that is missing");
    if (!any) {
        complain(name + "no tables came");
        return exit_no_sections;
    }
    const bool no_program = tell_missing_program(chosen);
    if (session::store_was_full() || of.status.error != ORVA_DEMUX_OK)
        return exit_partial;
    return no_program ? exit_failure : exit_complete;
}

} // namespace

int run_watch(const options &chosen)
{
    if (!chosen.time_zone.empty())
        use_time_zone(chosen.time_zone);
    install_languages();
    news_queue news{chosen};
    listening = &news;
    session input;
    if (const auto refused = input.open(chosen, hear_news))
        return *refused;
    bool printed = true;
    const auto print_news = [&] {
        const std::string lines = news.give();
        printed = printed && (lines.empty() || print(lines));
        return printed && !reader_has_gone();
    };
    const channel_run result =
        run_channel(input, chosen, {.awaits_programs = true, .each_step = print_news});
    tell_limits(chosen);
    if (const auto limits = limits_for_json(chosen); limits && printed)
        printed = print(limits_json_line(static_cast<std::uint32_t>(std::time(nullptr)), *limits));
    return printed ? judge(result, news.had_any(), chosen) : exit_failure;
}

} // namespace tool
