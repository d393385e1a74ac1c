// SPDX-License-Identifier: LGPL-2.1-or-later
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "terminal.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct shown {
    std::string text; // what the terminal was given
    int status = -1;  // exit status of what ran on it
};

// Runs something in a process whose standard output and error are a terminal of that width.
template <class Run>
shown on_terminal(unsigned short columns, Run run)
{
    const int screen = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(screen), 0);
    EXPECT_EQ(unlockpt(screen), 0);
    const int line = open(ptsname(screen), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(ioctl(line, TIOCSWINSZ, &size), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(line, STDOUT_FILENO);
        dup2(line, STDERR_FILENO);
        setenv("TERM", "vt100", 1);
        run();
        _exit(0);
    }
    close(line);
    shown result;
    char part[256];
    for (ssize_t count = 0; (count = read(screen, part, sizeof part)) > 0;)
        result.text.append(part, static_cast<std::size_t>(count));
    close(screen);
    int how = 0;
    waitpid(child, &how, 0);
    result.status = WIFEXITED(how) ? WEXITSTATUS(how) : 1000 + WTERMSIG(how);
    return result;
}

TEST(ProgressLine, IsCutAtTheWidthOfTheTerminal)
{
    const auto show = [] { tool::progress_line{true}.show(std::string(200, 'x')); };
    EXPECT_THAT(on_terminal(40, show).text, HasSubstr("\r" + std::string(39, 'x') + "\033[K"));
    EXPECT_THAT(on_terminal(120, show).text, HasSubstr("\r" + std::string(119, 'x') + "\033[K"));
}

TEST(ProgressLine, TerminalThatDoesNotKnowItsWidthHasEightyColumns)
{
    const auto show = [] { tool::progress_line{true}.show(std::string(200, 'x')); };
    EXPECT_THAT(on_terminal(0, show).text, HasSubstr("\r" + std::string(79, 'x') + "\033[K"));
}

TEST(ProgressLine, LeavesNothingBehind)
{
    const auto show = [] { tool::progress_line{true}.show("half-way"); };
    EXPECT_THAT(on_terminal(80, show).text, EndsWith("half-way\033[K\r\033[K"));
}

TEST(ProgressLine, SecondSignalLeavesNothingBehindEither)
{
    const shown result = on_terminal(80, [] {
        tool::handle_signals();
        tool::progress_line progress{true};
        progress.show("half-way");
        raise(SIGINT);
        std::this_thread::sleep_for(std::chrono::milliseconds{250});
        raise(SIGINT);
    });
    EXPECT_THAT(result.text, EndsWith("half-way\033[K\r\033[K"));
    EXPECT_EQ(result.status, 128 + SIGINT);
}

// As timeout(1) sends them: to the process and to its group.
TEST(EndingSignal, TwoAtOnceAreOne)
{
    const shown result = on_terminal(80, [] {
        tool::handle_signals();
        raise(SIGTERM);
        raise(SIGTERM);
    });
    EXPECT_EQ(result.status, 0);
}

TEST(ProgressLine, IsShownOnlyWhereWanted)
{
    EXPECT_EQ(on_terminal(80, [] { tool::progress_line{false}.show("half-way"); }).text, "");
}

TEST(ProgressLine, IsNotShownOnADumbTerminal)
{
    const auto on_kind = [](const char *kind) {
        return on_terminal(80, [kind] {
            setenv("TERM", kind, 1);
            tool::progress_line{true}.show("half-way");
        });
    };
    EXPECT_EQ(on_kind("dumb").text, "");
    EXPECT_THAT(on_kind("vt100").text, HasSubstr("half-way"));
}

TEST(OutputColumns, AreThoseOfTheTerminal)
{
    const auto columns_on = [](unsigned short columns) {
        return on_terminal(columns,
                           [] {
                               std::printf("%zu", tool::output_columns());
                               std::fflush(stdout);
                           })
            .text;
    };
    EXPECT_EQ(columns_on(132), "132");
    EXPECT_EQ(columns_on(0), "80");
    EXPECT_EQ(columns_on(20), "80"); // tables do not get narrower
}

TEST(OutputColumns, HaveNoLimitElsewhere)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int before = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    const std::size_t columns = tool::output_columns();
    dup2(before, STDOUT_FILENO);
    for (const int end : {ends[0], ends[1], before})
        close(end);
    EXPECT_GT(columns, 1000000u);
}

} // namespace
