// SPDX-License-Identifier: LGPL-2.1-or-later
// A channel from its start to its end, with progress on the terminal.
#ifndef TOOLS_CHANNEL_RUN_H
#define TOOLS_CHANNEL_RUN_H

#include <functional>
#include <string>

#include "options.h"
#include "session.h"

namespace tool {

enum class channel_end { exhausted, signal, time_over, input_failed, unwanted };

struct channel_run {
    channel_end how = channel_end::exhausted;
    OrvaDemuxStatus status = {};

    // Whether nothing that the input holds is missing.
    bool complete() const
    {
        return how == channel_end::exhausted && !session::store_was_full() &&
               status.error == ORVA_DEMUX_OK;
    }
};

struct channel_hooks {
    bool awaits_programs = false; // as event_channel
    // The text of its progress for a terminal; none to show nothing.
    std::function<std::string(const OrvaDemuxStatus &)> progress = nullptr;
    // What is done every few milliseconds; answers whether to go on.
    std::function<bool()> each_step = [] { return true; };
};

// Runs a channel with all events until the input holds nothing new, the time given is over or a
// signal comes. The library's stores are left as they are then.
channel_run run_channel(const session &input, const options &chosen, const channel_hooks &hooks);

// Says on standard error why what is printed is not all that there is: a fault of the input, a
// signal, the end of the time, a full store.
void tell_shortfall(const channel_run &of, const options &chosen);

// Says so when a PAT came that does not list the program to tune to; whether it did.
bool tell_missing_program(const options &chosen);

} // namespace tool

#endif
