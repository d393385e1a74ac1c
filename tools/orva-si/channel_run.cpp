// SPDX-License-Identifier: LGPL-2.1-or-later
#include "channel_run.h"

#include <chrono>
#include <optional>
#include <thread>

#include "event_channel.h"
#include "terminal.h"

namespace tool {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

clock::time_point end_of_time(const options &chosen)
{
    if (!chosen.seconds)
        return clock::time_point::max();
    return clock::now() + std::chrono::duration_cast<clock::duration>(
                              std::chrono::duration<double>{*chosen.seconds});
}

std::optional<channel_end> judge(const event_channel &channel, const OrvaDemuxStatus &status,
                                 clock::time_point end)
{
    if (received_signal() != 0)
        return channel_end::signal;
    if (status.state == ORVA_DEMUX_FAILED)
        return channel_end::input_failed;
    if (channel.exhausted())
        return channel_end::exhausted;
    if (clock::now() >= end)
        return channel_end::time_over;
    return std::nullopt;
}

} // namespace

channel_run run_channel(const session &input, const options &chosen, const channel_hooks &hooks)
{
    constexpr auto step_interval = 5ms;
    const clock::time_point end = end_of_time(chosen);
    event_channel channel{input, chosen, hooks.awaits_programs};
    progress_line progress{hooks.progress && wants_progress(chosen)};
    std::optional<channel_end> how;
    while (true) {
        const OrvaDemuxStatus status = input.status();
        channel.step(status);
        how = judge(channel, status, end);
        if (!hooks.each_step() && !how)
            how = channel_end::unwanted;
        if (how)
            break;
        if (progress.active())
            progress.show(hooks.progress(status));
        std::this_thread::sleep_for(step_interval);
    }
    channel.stop();
    hooks.each_step(); // for what came meanwhile
    return {*how, input.status()};
}

void tell_shortfall(const channel_run &of, const options &chosen)
{
    const std::string name = input_name(chosen.input) + ": ";
    if (of.status.error != ORVA_DEMUX_OK)
        complain(input_error_text(chosen.input, of.status.error, 0));
    if (of.how == channel_end::signal)
        complain(name + "interrupted: what came until now is printed");
    if (of.how == channel_end::time_over)
        complain(name + "the time given is over: what came until now is printed");
    if (session::store_was_full())
        complain(name + "the library's store is full: what came after that is missing");
}

bool tell_missing_program(const options &chosen)
{
    const bool missing = lacks_program(chosen);
    if (missing)
        complain(input_name(chosen.input) + ": no program " + std::to_string(*chosen.program));
    return missing;
}

} // namespace tool
