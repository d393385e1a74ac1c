// SPDX-License-Identifier: LGPL-2.1-or-later
#include "scan.h"

#include <future>

#include <algorithm>
#include <chrono>

#include "limit_report.h"
#include "multiplex.h"
#include "orva_si.h"
#include "report.h"
#include "session.h"
#include "store_view.h"
#include "terminal.h"

namespace tool {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

constexpr auto poll_interval = 50ms;

// How long the library goes on collecting once the NIT came: it does not wait for PMTs, BATs and
// the SDTs of other multiplexes itself.
constexpr auto settling_of_input = 2000ms;
constexpr auto settling_of_broadcast = 10000ms;

// The library lets so much time pass before it looks for sections.
constexpr auto first_wait = 500ms;

enum class ending { by_itself, signal, time_over, input_failed, nothing_more };

// Watches a running scan and decides when it must end early.
class scan_watch {
public:
    scan_watch(const options &chosen, std::chrono::milliseconds settling) : settling_time{settling}
    {
        if (chosen.seconds)
            deadline = started + std::chrono::duration_cast<clock::duration>(
                                     std::chrono::duration<double>{*chosen.seconds});
    }

    ending judge(const OrvaDemuxStatus &status)
    {
        const auto now = clock::now();
        if (received_signal() != 0)
            return ending::signal;
        if (status.state == ORVA_DEMUX_FAILED)
            return ending::input_failed;
        if (now >= deadline)
            return ending::time_over;
        return nothing_more(status, now) ? ending::nothing_more : ending::by_itself;
    }

private:
    static constexpr auto never = clock::time_point::max();

    // Whether the scan is bound to fail because the input has given all that it holds. A scan that
    // will succeed is left alone, however long it waits for tables that the input lacks.
    bool nothing_more(const OrvaDemuxStatus &status, clock::time_point now)
    {
        constexpr auto quiet_enough = 500ms;
        const bool idle = status.idle != 0 && Si_SectFlt_GetPendingCount() == 0;
        idle_since = idle ? std::min(idle_since, now) : never;
        if (now < idle_since || now - idle_since < quiet_enough)
            return false;
        if (Orva_Si_IsGotSection() == 0)
            return true;
        if (now < started + first_wait + settling_time)
            return false;
        // No further kind of table will be met: the library may judge now what it has.
        Orva_Si_SetDetectReady();
        return Orva_Si_DoAllTablesReady() == 0;
    }

    clock::time_point started = clock::now();
    std::chrono::milliseconds settling_time;
    clock::time_point deadline = never;
    clock::time_point idle_since = never;
};

struct outcome {
    bool complete = false;
    ending how = ending::by_itself;
    OrvaDemuxStatus status = {};
};

std::string progress_text(const OrvaDemuxStatus &status)
{
    return "waiting for " + store_view{}.awaited() + ", " + reading_text(status) +
           std::to_string(status.sections) + " sections";
}

outcome scan(const session &input, const options &chosen)
{
    const auto settling = comes_live(chosen) ? settling_of_broadcast : settling_of_input;
    SiScanParam how = {};
    how.wait_time = static_cast<std::uint16_t>(settling.count());
    Orva_Si_SetScanParam(&how);
    auto running = std::async(std::launch::async, Orva_Si_StartScanChannel);
    scan_watch watch{chosen, settling};
    progress_line progress{wants_progress(chosen)};
    outcome result;
    while (running.wait_for(poll_interval) != std::future_status::ready) {
        result.status = input.status();
        if (result.how == ending::by_itself)
            result.how = watch.judge(result.status);
        if (result.how != ending::by_itself)
            Orva_Si_CancelScanChannel(); // lost when it meets the start: said until the scan ends
        if (progress.active())
            progress.show(progress_text(result.status));
    }
    if (received_signal() != 0)
        result.how = ending::signal;
    result.complete = running.get() == ORVA_SI_OK && !session::store_was_full();
    result.status = input.status();
    return result;
}

std::string listed(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

// The one line that says why a scan is not complete.
std::string shortfall(const outcome &of)
{
    if (of.how == ending::signal)
        return "interrupted: what came until now is printed";
    if (of.how == ending::time_over)
        return "the time given is over: what came until now is printed";
    if (session::store_was_full())
        return "the library's store is full: what came after that is missing";
    const std::string missing = listed(store_view{}.incomplete());
    return missing.empty() ? "the scan failed" : "incomplete: " + missing;
}

// What the input lost on its way, for those who ask.
void tell_statistics(const OrvaDemuxStatus &status, const options &chosen)
{
    complain(input_name(chosen.input) + ": " + std::to_string(status.packets) + " packets of " +
             std::to_string(status.packet_size) + " bytes, " + std::to_string(status.sections) +
             " sections; faults: " + std::to_string(status.sync_losses) + " synchronisation, " +
             std::to_string(status.transport_errors) + " transport, " +
             std::to_string(status.continuity_errors) + " continuity, " +
             std::to_string(status.crc_errors) + " CRC, " + std::to_string(status.cut_sections) +
             " cut, " + std::to_string(status.bad_sections) + " malformed");
}

std::size_t programs_in_pat()
{
    constexpr std::size_t entry = 4; // program_number and PID
    constexpr table_id pat = pat_table;
    std::size_t total = 0;
    for (const section &part : stored_sections({&pat, 1})) {
        const auto body = payload(part.data);
        for (bytes rest = body.value_or(bytes{}); rest.size() >= entry; rest = rest.subspan(entry))
            total += rest[0] != 0 || rest[1] != 0 ? 1 : 0; // program 0 names the NIT
    }
    return total;
}

// What the scan does not wait for, or does not keep.
void tell_programs(const multiplex &found, const options &chosen)
{
    constexpr std::size_t most_programs = 255;
    const auto lacking = std::count_if(found.programs.begin(), found.programs.end(),
                                       [](const program &p) { return !p.pcr_pid; });
    const std::string total = std::to_string(found.programs.size());
    if (chosen.quiet)
        return;
    const std::string name = input_name(chosen.input) + ": ";
    if (lacking != 0)
        complain(name + "no PMT of " + std::to_string(lacking) + " of " + total + " programs");
    const std::size_t in_pat = programs_in_pat();
    if (in_pat > found.programs.size() && found.programs.size() >= most_programs)
        complain(name + "the PAT lists " + std::to_string(in_pat) + " programs, of which " + total +
                 " are kept");
}

// Says on standard error what the results lack; the exit status.
int judge(const outcome &of, const multiplex &found, const options &chosen)
{
    const std::string name = input_name(chosen.input) + ": ";
    if (chosen.verbose)
        tell_statistics(of.status, chosen);
    if (of.status.error != ORVA_DEMUX_OK)
        complain(input_error_text(chosen.input, of.status.error, 0));
    if (of.status.bytes == 0 && found.empty() && of.how != ending::signal) {
        complain(name + "nothing came");
        return exit_no_sections;
    }
    if (of.how == ending::signal) {
        complain(name + shortfall(of));
        return exit_by_signal + received_signal();
    }
    if (found.empty()) {
        complain(name + "no sections of PAT, NIT, SDT or BAT");
        return exit_no_sections;
    }
    tell_programs(found, chosen);
    if (!of.complete) {
        complain(name + shortfall(of));
        return exit_partial;
    }
    if (of.status.error != ORVA_DEMUX_OK)
        return exit_partial;
    const std::string absent = listed(store_view{}.absent());
    if (!absent.empty() && !chosen.quiet)
        complain(name + "the stream carries no " + absent);
    return exit_complete;
}

} // namespace

int run_scan(const options &chosen)
{
    session input;
    if (const auto refused = input.open(chosen))
        return *refused;
    outcome result = scan(input, chosen);
    if (result.how == ending::input_failed) {
        complain(input_error_text(chosen.input, result.status.error, 0));
        return input_error_status(result.status.error);
    }
    multiplex found = collect(chosen);
    if (received_signal() != 0)
        result.how = ending::signal;
    int status = judge(result, found, chosen);
    tell_limits(chosen);
    if (chosen.program && !keep_program(found, *chosen.program) &&
        (status == exit_complete || status == exit_partial)) {
        complain(input_name(chosen.input) + ": no program or service " +
                 std::to_string(*chosen.program));
        status = status == exit_complete ? exit_failure : status;
    }
    const bool complete = result.complete && result.how != ending::signal;
    const bool printed =
        print(chosen.json ? json_report(found, chosen.input, complete, limits_for_json(chosen))
                          : text_report(found, output_columns(), chosen.verbose));
    if (!printed)
        return exit_failure;
    return received_signal() != 0 ? exit_by_signal + received_signal() : status;
}

} // namespace tool
