// SPDX-License-Identifier: LGPL-2.1-or-later
// orva-si: what a DVB multiplex says about itself.
#include <exception>

#include <cstdio>

#include "dump.h"
#include "guide.h"
#include "options.h"
#include "scan.h"
#include "terminal.h"
#include "watch.h"

namespace {

constexpr tool::command commands[] = {
    {"scan", "Scan a multiplex: networks, services, programs and bouquets", tool::run_scan,
     tool::takes_pds},
    {"guide", "List the events of every service: now, next and by day", tool::run_guide,
     tool::tunes | tool::takes_service | tool::takes_window | tool::takes_language |
         tool::takes_time_zone},
    {"watch", "Tell of every new or changed table, line by line", tool::run_watch,
     tool::tunes | tool::takes_language | tool::takes_time_zone},
    {"dump", "Print every table as sections in hexadecimal", tool::run_dump,
     tool::tunes | tool::takes_table},
};

int run(int argc, char **argv)
{
    tool::handle_signals();
    const tool::decision made = tool::decide(commands, argc, argv);
    if (made.run != nullptr)
        return made.run->run(made.chosen);
    std::fputs(made.error.c_str(), stderr);
    return tool::print(made.output) ? made.status : tool::exit_failure;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        tool::complain(error.what());
        return tool::exit_failure;
    }
}
