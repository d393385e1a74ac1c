// SPDX-License-Identifier: LGPL-2.1-or-later
#include "terminal.h"

#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>

#include "dvb_text.h"
#include "options.h"

namespace tool {
namespace {

constexpr std::size_t narrowest_table = 80;
constexpr char empty_line[] = "\r\033[K";

std::atomic<int> first_signal{0};
std::atomic<bool> line_shown{false}; // by a progress_line
bool pipe_closed = false;            // that standard output was written to
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

// Goes round in 49 days; never 0.
std::uint32_t milliseconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto passed =
        static_cast<std::uint32_t>(std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000);
    return passed != 0 ? passed : 1;
}

// timeout(1) signals its child and then the child's group: what comes at once is one wish.
constexpr std::uint32_t same_wish_ms = 200;
std::atomic<std::uint32_t> first_signal_ms{0};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

extern "C" void on_ending_signal(int number)
{
    int none = 0;
    std::uint32_t never = 0;
    const std::uint32_t now = milliseconds_now();
    first_signal_ms.compare_exchange_strong(never, now);
    if (first_signal.compare_exchange_strong(none, number) || now - first_signal_ms < same_wish_ms)
        return;
    if (line_shown) // whether that can be written does not matter any more
        static_cast<void>(!write(STDERR_FILENO, empty_line, sizeof empty_line - 1));
    _exit(exit_by_signal + number);
}

// Columns of the terminal behind a descriptor; none when it is not one, or does not know.
std::optional<std::size_t> columns_of(int descriptor)
{
    winsize size = {};
    if (isatty(descriptor) == 0 || ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return std::nullopt;
    return size.ws_col;
}

// Whether a line can be written over: a dumb terminal only appends.
bool can_overwrite(int descriptor)
{
    const char *const kind = std::getenv("TERM");
    return isatty(descriptor) != 0 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
}

} // namespace

void handle_signals()
{
    struct sigaction action = {};
    action.sa_handler = on_ending_signal;
    for (const int number : {SIGINT, SIGTERM})
        sigaction(number, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

int received_signal()
{
    return first_signal.load();
}

void complain(const std::string &text)
{
    const std::string line = "orva-si: " + one_line(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

bool print(const std::string &text)
{
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EPIPE) {
            pipe_closed = true;
            return true;
        } else if (errno != EINTR) {
            complain(std::string{"standard output: "} + std::strerror(errno));
            return false;
        }
    }
    return true;
}

bool reader_has_left()
{
    return pipe_closed;
}

std::size_t output_columns()
{
    if (isatty(STDOUT_FILENO) == 0)
        return std::numeric_limits<std::size_t>::max();
    return std::max(columns_of(STDOUT_FILENO).value_or(narrowest_table), narrowest_table);
}

progress_line::progress_line(bool wanted) : shown{wanted && can_overwrite(STDERR_FILENO)} {}

progress_line::~progress_line()
{
    if (last.empty())
        return;
    std::fputs(empty_line, stderr);
    line_shown = false;
}

void progress_line::show(const std::string &text)
{
    if (!shown || text == last)
        return;
    last = text;
    const std::size_t columns = columns_of(STDERR_FILENO).value_or(narrowest_table);
    const std::string line{fitting(one_line(text), std::max<std::size_t>(columns, 2) - 1)};
    line_shown = true;
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

} // namespace tool
