// SPDX-License-Identifier: LGPL-2.1-or-later
#include "terminal.h"

#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "dvb_text.h"
#include "options.h"

namespace tool {
namespace {

constexpr std::size_t narrowest_terminal = 80;
constexpr std::size_t widest_table = 100;

std::atomic<int> first_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void on_ending_signal(int number)
{
    int none = 0;
    if (!first_signal.compare_exchange_strong(none, number))
        _exit(exit_by_signal + number);
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
        else if (errno == EPIPE)
            return true;
        else if (errno != EINTR) {
            complain(std::string{"standard output: "} + std::strerror(errno));
            return false;
        }
    }
    return true;
}

std::size_t output_columns()
{
    winsize size = {};
    if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return widest_table;
    return std::clamp<std::size_t>(size.ws_col, narrowest_terminal, widest_table);
}

progress_line::progress_line(bool wanted) : shown{wanted && isatty(STDERR_FILENO) != 0} {}

progress_line::~progress_line()
{
    if (!last.empty())
        std::fputs("\r\033[K", stderr);
}

void progress_line::show(const std::string &text)
{
    if (!shown || text == last)
        return;
    last = text;
    const std::string line{fitting(one_line(text), narrowest_terminal - 1)};
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

} // namespace tool
