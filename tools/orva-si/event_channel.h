// SPDX-License-Identifier: LGPL-2.1-or-later
// A tuned channel with all events of its services, and of other multiplexes as far as they come.
#ifndef TOOLS_EVENT_CHANNEL_H
#define TOOLS_EVENT_CHANNEL_H

#include <chrono>
#include <cstdint>
#include <set>
#include <vector>

#include "options.h"
#include "orva_si.h"
#include "session.h"

namespace tool {

// Counts what the library tells; every command with a channel listens with it, or from its own
// listener. Any thread.
std::uint32_t count_news(std::uint32_t reason, std::uint32_t flag, SiWord data,
                         std::uint32_t value);

// Whether a PAT came that does not list the program to tune to.
bool lacks_program(const options &chosen);

class event_channel {
public:
    // Tunes. awaits_programs: whether the end of the input waits for the PMT of every program too.
    event_channel(const session &input, const options &chosen, bool awaits_programs);
    ~event_channel();
    event_channel(const event_channel &) = delete;
    event_channel &operator=(const event_channel &) = delete;

    // Does what is due: tunes to the program, asks for the events of services that became known,
    // moves filters on that wait in vain. To be called every few milliseconds.
    void step(const OrvaDemuxStatus &status);

    // Whether the input has ended and nothing that it holds is missing any more.
    bool exhausted() const { return is_exhausted; }

    // Ends acquisition; what came stays in the library's stores.
    void stop();

private:
    using clock = std::chrono::steady_clock;

    void tune(std::uint16_t program);
    void choose_program(bool settled);
    void start_events();
    bool request_services();
    void request_schedules(const std::vector<std::uint16_t> &services);
    bool release_filters();
    bool is_turn_over(const OrvaDemuxStatus &status) const;
    void move_on(const OrvaDemuxStatus &status);
    bool look_for_later_tables();
    unsigned turns_of_all() const;

    const session &input;
    const options &chosen;
    bool awaits_programs;
    bool is_tuned = false;
    bool program_chosen = false;
    bool is_exhausted = false;
    bool stopped = false;
    std::uint16_t tuned_program = 0;
    clock::time_point started = clock::now();
    clock::time_point last_look{};
    std::set<std::uint16_t> requested; // services whose schedule was asked for
    std::set<std::uint16_t> awaited;   // those of them that still have a filter or wait for one
    bool awaits_pmts = true;
    bool asked_for_later_tables = false;
    std::uint64_t news_seen = 0;
    std::uint64_t sections_stored = 0;   // then
    std::uint64_t delivered_at_turn = 0; // before the present turn of all filters
    unsigned quiet_turns = 0;            // since the last news
    unsigned turns_needed = 0;
};

} // namespace tool

#endif
