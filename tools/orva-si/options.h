// SPDX-License-Identifier: LGPL-2.1-or-later
// The command line of orva-si.
#ifndef TOOLS_OPTIONS_H
#define TOOLS_OPTIONS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// What the exit status of the tool tells.
enum exit_code {
    exit_complete = 0,
    exit_failure = 1,
    exit_usage = 2,
    exit_no_input = 3,    // missing, not readable, or not a transport stream
    exit_no_sections = 4, // a transport stream without any section of the tables asked for
    exit_partial = 5,     // something stayed incomplete; what was found is printed
    exit_by_signal = 128  // and the number of the signal
};

struct options {
    std::string input;
    std::string charset;                  // of text without a selector; empty: ISO 6937
    std::optional<double> seconds;        // --for
    std::optional<std::uint16_t> program; // --program
    std::optional<std::uint32_t> pds;     // --pds
    std::optional<std::uint8_t> table;    // --table: a table_id
    std::string service;                  // --service; empty: every one
    std::string from;                     // --from, --to: times as given; empty: no bound
    std::string to;
    std::vector<std::string> languages; // --lang, the first most wanted
    std::string time_zone;              // --tz, as TZ takes it; empty: the system's
    std::uint32_t log_level = 1;
    bool log_asked = false; // --log-level was given
    bool json = false;
    bool realtime = false;
    bool stats = false;
    bool verbose = false;
    bool quiet = false;
};

// Options that not every command takes, as bits of command::takes.
enum own_option : unsigned {
    takes_pds = 1u << 0,
    takes_service = 1u << 1,
    takes_window = 1u << 2, // --from, --to
    takes_language = 1u << 3,
    takes_time_zone = 1u << 4,
    takes_table = 1u << 5,
    tunes = 1u << 6, // --program is what it tunes to, not what it prints
};

struct command {
    const char *name;
    const char *summary;
    int (*run)(const options &chosen);
    unsigned takes = 0;
};

// What to do with a command line: run a command, or print a text and leave.
struct decision {
    const command *run = nullptr;
    options chosen;
    std::string output; // for standard output: --help, --version
    std::string error;  // for standard error: one line and the usage hint
    int status = exit_complete;
};

decision decide(std::span<const command> commands, int argc, const char *const *argv);

// Whether a line that overwrites itself may be shown; with the log of the library it does not go
// together.
bool wants_progress(const options &chosen);

// Whether the input comes at the speed of a broadcast.
bool comes_live(const options &chosen);

// Names an input for messages and results: "standard input" for "-".
std::string input_name(const std::string &input);

} // namespace tool

#endif
