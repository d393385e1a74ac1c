// SPDX-License-Identifier: LGPL-2.1-or-later
#include "event_channel.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <vector>

#include "collect.h"
#include "event_outline.h"
#include "store_walk.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t any_frequency = 1; // only 0 has a meaning
constexpr std::uint16_t any_program = 1;   // where no PAT names one

// How long schedules are not asked for while no PAT tells the program to be watched.
constexpr auto longest_wait_for_pat = 2s;

// Background services, by their number in the library.
constexpr std::uint32_t services_total = 3;

std::atomic<std::uint64_t> news_total{0};  // new and changed tables and sections
std::atomic<std::uint64_t> event_total{0}; // of them, sections of events
std::mutex named_lock;
std::set<std::array<std::uint16_t, 2>> named; // transport_stream_id, service_id of events that came

void note_service(const SiEitNotify &of)
{
    const std::scoped_lock held{named_lock};
    named.insert({of.transport_stream_id, of.service_id});
}

bool is_events(std::uint32_t reason)
{
    return reason == SI_REASON_EIT_PRESENT_FOLLOWING || reason == SI_REASON_EIT_SCHEDULE_CHANGED ||
           reason == SI_REASON_EIT_SCHEDULE_NEW;
}

bool is_time(std::uint32_t reason)
{
    return reason == SI_REASON_TIME_FROM_TDT || reason == SI_REASON_TIME_FROM_TOT;
}

std::vector<std::uint16_t> programs_of_pat()
{
    constexpr std::int32_t most = 255; // that are kept
    std::vector<std::uint16_t> numbers(static_cast<std::size_t>(most));
    std::int32_t count = most;
    if (Orva_Si_GetPatProgList(numbers.data(), &count) != ORVA_SI_OK)
        count = 0;
    numbers.resize(static_cast<std::size_t>(count));
    return numbers;
}

std::optional<std::uint16_t> own_stream()
{
    const auto of_pat = value_of<std::uint16_t>(Orva_Si_GetPatTsId);
    return of_pat ? of_pat : value_of<std::uint16_t>(Orva_Si_GetActTsId);
}

constexpr bool is_service(std::uint16_t id)
{
    return id != 0 && id != SI_NO_PROGRAM;
}

constexpr unsigned schedule_filters = 5; // that the library takes at most

// In both stores.
std::uint64_t count_stored_sections()
{
    std::uint64_t total = count_event_sections();
    const store_lock held;
    each_element<SiTable>(Orva_Si_GetTableList(), [&](const SiTable &table) {
        total += static_cast<std::uint64_t>(table.psect_list->nb_elt);
    });
    return total;
}

bool all_pmts_stored()
{
    return std::ranges::all_of(programs_of_pat(), [](std::uint16_t number) {
        std::uint16_t pcr_pid = 0;
        return Orva_Si_GetPcrPID(number, &pcr_pid) == ORVA_SI_OK;
    });
}

} // namespace

std::uint32_t count_news(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
{
    if (is_events(reason)) {
        note_service(*reinterpret_cast<const SiEitNotify *>(data));
        ++event_total;
    }
    if (!is_time(reason))
        ++news_total;
    return 0;
}

bool lacks_program(const options &chosen)
{
    const auto programs = programs_of_pat();
    return chosen.program && !programs.empty() &&
           std::ranges::find(programs, *chosen.program) == programs.end();
}

event_channel::event_channel(const session &on, const options &with, bool for_programs)
    : input{on}, chosen{with}, awaits_programs{for_programs}
{
    const bool is_file = input.status().input_bytes != 0;
    constexpr std::int32_t shortest_interval = 100;
    // A file is read faster than it was broadcast, so filters need not wait as long either.
    for (std::uint32_t id = 0; is_file && !chosen.realtime && id < services_total; ++id)
        Si_BG_SetServiceInterval(id, shortest_interval);
    tune(chosen.program.value_or(any_program));
}

event_channel::~event_channel()
{
    stop();
}

void event_channel::stop()
{
    if (!stopped)
        Orva_Si_StopChannel();
    stopped = true;
}

// Refused while the library is busy with a section: the next step tries again.
void event_channel::tune(std::uint16_t program)
{
    if (is_tuned)
        Orva_Si_StopChannel();
    const SiTuneParam how{any_frequency, 0, 0, program};
    is_tuned = Orva_Si_StartChannel(&how) == ORVA_SI_OK;
    tuned_program = program;
    if (is_tuned)
        start_events();
    else
        Orva_Si_StopChannel();
}

// settled: nothing more is to be waited for.
void event_channel::choose_program(bool settled)
{
    const auto programs = programs_of_pat();
    const auto first = std::ranges::find_if(programs, is_service);
    if (!chosen.program && first != programs.end() && *first != tuned_program)
        tune(*first);
    program_chosen = is_tuned && (chosen.program || first != programs.end() || settled);
}

// All but the schedule of this multiplex can be asked for without naming services.
void event_channel::start_events()
{
    constexpr std::uint16_t every_service = SI_ANY_EXT;
    Orva_Si_StartActualPFEIT(SI_ANY_EXT, SI_ANY_EXT, tuned_program, &every_service, 1);
    Orva_Si_StartOtherPFEIT(nullptr, 0);
    Orva_Si_StartOtherSchedulEIT(nullptr, 0);
}

// Asks for the schedules of services that were not known before; whether there were any.
bool event_channel::request_services()
{
    std::set<std::uint16_t> known;
    for (const std::uint16_t id : programs_of_pat())
        known.insert(id);
    for (const std::uint16_t id : list_of<std::uint16_t>(Orva_Si_GetActServIdList))
        known.insert(id);
    // Where nothing tells which multiplex this is, every service may be one of its own.
    const auto own = own_stream();
    for (const SiEitRequest &met : input.event_services())
        if (!own || met.transport_stream_id == *own)
            known.insert(met.service_id);
    {
        const std::scoped_lock held{named_lock};
        for (const auto &[stream, service] : named)
            if (!own || stream == *own)
                known.insert(service);
    }
    std::vector<std::uint16_t> fresh;
    for (const std::uint16_t id : known)
        if (is_service(id) && requested.insert(id).second)
            fresh.push_back(id);
    request_schedules(fresh);
    return !fresh.empty();
}

void event_channel::request_schedules(const std::vector<std::uint16_t> &services)
{
    constexpr std::size_t most_at_once = 255;
    for (std::size_t at = 0; at < services.size(); at += most_at_once) {
        const auto count = std::min(most_at_once, services.size() - at);
        Orva_Si_StartActualScheduleEIT(SI_ANY_EXT, SI_ANY_EXT, tuned_program, services.data() + at,
                                       static_cast<std::uint32_t>(count));
    }
    awaited.insert(services.begin(), services.end());
}

// Filters of complete tables go on looking for other versions, in turn and for ever. Where the
// input has ended there are none: those that have everything are given back. Whether there were
// any.
bool event_channel::release_filters()
{
    bool released = false;
    if (awaits_pmts && (!awaits_programs || all_pmts_stored())) {
        Si_SectFlt_StopPmt();
        awaits_pmts = false;
        released = true;
    }
    std::vector<std::uint16_t> unfinished;
    for (const auto &[service, state] : schedule_states(awaited))
        if (!state.whole)
            unfinished.push_back(service);
    if (unfinished.size() == awaited.size())
        return released;
    Orva_Si_StopActualScheduleEIT();
    awaited.clear();
    request_schedules(unfinished);
    return true;
}

// Turns after which each filter was given once everything that waits for it: for schedules, every
// sub-table of every service.
unsigned event_channel::turns_of_all() const
{
    constexpr unsigned most_tables = 16;
    unsigned tables = asked_for_later_tables ? most_tables : 1;
    for (const auto &[service, state] : schedule_states(awaited))
        tables = std::max(tables, state.tables);
    const auto services = static_cast<unsigned>(awaited.size());
    const auto programs = awaits_pmts ? static_cast<unsigned>(programs_of_pat().size()) : 0u;
    return std::max((services + schedule_filters - 1) / schedule_filters * tables, programs) + 1;
}

// Filters of a table that the library holds for complete while sections are missing never come to
// rest: each turn brings them sections of it again, among what the other filters are given anew
// every second.
bool event_channel::is_turn_over(const OrvaDemuxStatus &status) const
{
    constexpr std::uint64_t segments = 32;          // of a sub-table
    constexpr std::uint64_t turns_in_a_second = 50; // at most
    const std::uint64_t anew = sections_stored / turns_in_a_second;
    return status.delivered - delivered_at_turn >= segments * (schedule_filters + 1 + anew) ||
           input.is_at_rest();
}

// Those that go round several requests are sent to the next ones at once: the library would do so
// after a time that fits a broadcast. Its clock stands still then. A run of it behind these would
// send a filter on before it was given anything, and the turns would end without that sub-table.
void event_channel::move_on(const OrvaDemuxStatus &status)
{
    Si_BG_DisableAllService(); // until the channel starts again
    if (Si_BG_WaitAllServiceTerminate() != ORVA_SI_OK)
        return; // the next step tries again
    // Runs of the services after which a filter gives up what it waits for.
    constexpr unsigned runs_of_schedule = 51;
    constexpr unsigned runs_of_pmt = 6;
    for (unsigned run = 0; run < runs_of_schedule; ++run)
        Si_SectFlt_ActSchEitBgService();
    for (unsigned run = 0; awaits_pmts && run < runs_of_pmt; ++run)
        Si_SectFlt_PmtBgService();
    ++quiet_turns;
    delivered_at_turn = status.delivered;
}

// The first sub-table of a schedule tells how many there are. Of services that are met without it
// all later ones are looked for too, and nothing else any more. Whether there are such services.
bool event_channel::look_for_later_tables()
{
    if (asked_for_later_tables)
        return false;
    asked_for_later_tables = true;
    if (awaits_pmts) // all turns brought none
        Si_SectFlt_StopPmt();
    awaits_pmts = false;
    constexpr std::uint8_t last_schedule_table = 0x5F;
    auto states = schedule_states(awaited);
    std::vector<std::uint16_t> headless;
    for (const SiEitRequest &met : input.event_services()) {
        const auto state = states.extract(met.service_id);
        if (!state.empty() && !state.mapped().begun)
            headless.push_back(met.service_id);
    }
    Orva_Si_StopActualScheduleEIT();
    awaited.clear();
    request_schedules(headless);
    for (const std::uint16_t service : headless)
        Si_SectFlt_UpdateEitLastTableId(first_schedule_table, service, last_schedule_table);
    return !headless.empty();
}

void event_channel::step(const OrvaDemuxStatus &status)
{
    constexpr auto look_interval = 50ms;
    const auto now = clock::now();
    if (!is_tuned)
        tune(tuned_program);
    const bool at_rest = input.is_at_rest();
    if (!program_chosen) {
        choose_program(at_rest || now - started > longest_wait_for_pat);
        return;
    }
    if (!at_rest && now - last_look < look_interval)
        return;
    last_look = now;
    const bool fresh_requests = request_services();
    if (status.state != ORVA_DEMUX_CAROUSEL || Si_SectFlt_GetPendingCount() != 0)
        return;
    const std::uint64_t news = awaits_programs ? news_total : event_total;
    if (fresh_requests || news != news_seen || turns_needed == 0) {
        news_seen = news;
        quiet_turns = 0;
        delivered_at_turn = status.delivered;
        sections_stored = count_stored_sections();
        turns_needed = turns_of_all();
    } else if (release_filters()) {
        turns_needed = 0;
    }
    if (!is_turn_over(status)) // asked behind what loads filters
        return;
    if (turns_needed == 0 || quiet_turns < turns_needed) {
        move_on(status);
        return;
    }
    turns_needed = 0;
    is_exhausted = !look_for_later_tables();
}

} // namespace tool
