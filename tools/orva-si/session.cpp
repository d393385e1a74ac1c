// SPDX-License-Identifier: LGPL-2.1-or-later
#include "session.h"

#include <cerrno>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "limit_report.h"
#include "orva_si.h"
#include "terminal.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

// The library tells a scan nothing; without a callback it would complain about that.
std::uint32_t no_news(std::uint32_t, std::uint32_t, SiWord, std::uint32_t)
{
    return 0;
}

std::atomic<bool> log_is_wanted{false};

// The library says for every section that its store has no room for it: shown only to those who
// asked for the log.
void hear(void *, OrvaDebugCategory *category, std::uint32_t level, const char *file,
          const char *function, std::uint32_t line, const char *text)
{
    constexpr std::array<std::string_view, 2> full{"fatal error: cannot malloc memory!!!\n",
                                                   "fatal error: cant malloc memory!!!\n"};
    const std::string_view said{text};
    const bool is_full = level == 1 && (said == full[0] || said == full[1]);
    if (is_full && !log_is_wanted)
        return;
    std::fprintf(stderr, "%s %u %s:%u %s: %s%s", orva_debug_category_name(category), level, file,
                 line, function, text, said.ends_with('\n') ? "" : "\n");
}

// The library's thread creates the store a moment after the start.
bool wait_for_store()
{
    constexpr auto longest_wait = 5s;
    const auto end = std::chrono::steady_clock::now() + longest_wait;
    while (Orva_Si_GetTableList() == nullptr) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

} // namespace

session::~session()
{
    if (initialised)
        Orva_Si_DeInit();
    orva_demux_close(demux);
    orva_debug_set_sink(nullptr, nullptr);
}

std::optional<int> session::open(const options &chosen, SiNotifyFunc listener)
{
    if (chosen.input == "-" && isatty(STDIN_FILENO) != 0) {
        complain("standard input is a terminal: give a file or a pipe");
        return exit_no_input;
    }
    OrvaDemuxOptions how = {};
    how.realtime = chosen.realtime ? 1 : 0;
    OrvaDemuxError error = ORVA_DEMUX_OK;
    errno = 0;
    demux = orva_demux_open(chosen.input.c_str(), &how, &error);
    const int system_error = errno;
    if (received_signal() != 0)
        return exit_by_signal + received_signal();
    if (demux == nullptr) {
        complain(input_error_text(chosen.input, error, system_error));
        return input_error_status(error);
    }
    __orva_debug_min = chosen.log_level;
    log_is_wanted = chosen.log_asked;
    orva_debug_set_sink(hear, nullptr);
    initialised = Orva_Si_Init(orva_demux_handler()) == ORVA_SI_OK;
    if (received_signal() != 0)
        return exit_by_signal + received_signal();
    if (!initialised || !wait_for_store()) {
        complain("the library does not start");
        return exit_failure;
    }
    Orva_Si_InstallCallback(listener != nullptr ? listener : no_news);
    return std::nullopt;
}

OrvaDemuxStatus session::status() const
{
    OrvaDemuxStatus status = {};
    orva_demux_get_status(demux, &status);
    return status;
}

// Sections that were pending when the demultiplexer had given all may have loaded filters since: it
// is asked again when none is.
bool session::is_at_rest() const
{
    const OrvaDemuxStatus before = status();
    if (before.idle == 0 || Si_SectFlt_GetPendingCount() != 0)
        return false;
    const OrvaDemuxStatus after = status();
    return after.idle != 0 && after.delivered == before.delivered;
}

std::vector<SiEitRequest> session::event_services() const
{
    constexpr std::uint32_t most = 8192; // that the demultiplexer lists
    std::vector<SiEitRequest> services(most);
    std::uint32_t count = most;
    orva_demux_get_eit_services(demux, services.data(), &count);
    services.resize(count);
    return services;
}

bool session::store_was_full()
{
    const SiLimitCounts now = limit_counts();
    return now.tables.refused != 0 || now.table_bytes.refused != 0 ||
           now.event_services.refused != 0 || now.event_bytes.refused != 0;
}

std::string reading_text(const OrvaDemuxStatus &status)
{
    if (status.state != ORVA_DEMUX_READING || status.input_bytes == 0)
        return "";
    return "read " + std::to_string(status.bytes * 100 / status.input_bytes) + " %, ";
}

std::string input_error_text(const std::string &input, OrvaDemuxError error, int system_error)
{
    const bool system_knows = error == ORVA_DEMUX_NO_INPUT && system_error != 0;
    return input_name(input) + ": " +
           (system_knows ? std::strerror(system_error) : orva_demux_error_text(error));
}

int input_error_status(OrvaDemuxError error)
{
    switch (error) {
    case ORVA_DEMUX_NO_INPUT:
    case ORVA_DEMUX_EMPTY:
    case ORVA_DEMUX_NOT_TS:
        return exit_no_input;
    case ORVA_DEMUX_BAD_INPUT:
        return exit_usage;
    default:
        return exit_failure;
    }
}

} // namespace tool
