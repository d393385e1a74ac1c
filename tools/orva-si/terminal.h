// SPDX-License-Identifier: LGPL-2.1-or-later
// Standard output and error, and the signals that end a run.
#ifndef TOOLS_TERMINAL_H
#define TOOLS_TERMINAL_H

#include <cstddef>
#include <string>

namespace tool {

// Makes SIGINT and SIGTERM ask for an end, a second one end at once, and SIGPIPE harmless. A wait
// that is interrupted by the first is not taken up again.
void handle_signals();

// The first SIGINT or SIGTERM that came; 0 for none.
int received_signal();

// One line on standard error: "orva-si: " and the text, whose control characters are replaced.
void complain(const std::string &text);

// Writes to standard output. False when that failed; a reader who has gone is no failure.
bool print(const std::string &text);

// Whether print found that nobody reads any more.
bool reader_has_left();

// Columns for tables on standard output: those of the terminal, and no limit for anything else.
std::size_t output_columns();

// A line on standard error that the next one overwrites; nothing unless that is a terminal.
class progress_line {
public:
    explicit progress_line(bool wanted);
    ~progress_line();
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;

    bool active() const { return shown; }
    void show(const std::string &text);

private:
    bool shown;
    std::string last;
};

} // namespace tool

#endif
