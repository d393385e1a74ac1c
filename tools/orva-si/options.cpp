// SPDX-License-Identifier: LGPL-2.1-or-later
#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <sstream>
#include <system_error>

#include "dvb_text.h"
#include "language.h"
#include "time_words.h"

namespace tool {
namespace {

constexpr char program_name[] = "orva-si";
constexpr char exit_statuses[] =
    "Exit status: 0 complete, 1 failure, 2 usage, 3 input missing or not a transport stream,\n"
    "4 no sections, 5 partial (what was found is printed), 130 or 143 after SIGINT or SIGTERM.";

std::string check_input(const std::string &input)
{
    return input.empty() ? "the name is empty" : "";
}

std::string check_charset(const std::string &name)
{
    return is_character_table(name) ? "" : "no character table has the name " + name;
}

std::string check_seconds(const std::string &text)
{
    double seconds = 0;
    if (!CLI::detail::lexical_cast(text, seconds) || !(seconds > 0 && seconds <= 1e6))
        return "a number of seconds above 0 is expected, not " + text;
    return "";
}

std::string check_time(const std::string &text)
{
    return parse_time(text)
               ? ""
               : "a time such as 2026-01-01T12:00:00Z or '2026-01-01 12:00' is expected, not " +
                     text;
}

std::string check_time_zone(const std::string &zone)
{
    return time_zone_setting(zone) ? "" : "no time zone has the name " + zone;
}

std::string check_languages(const std::string &text)
{
    return language_list(text) ? "" : "ISO 639 codes such as deu,eng are expected, not " + text;
}

// Decimal, or hexadecimal behind 0x. A leading zero means nothing.
std::optional<std::uint32_t> number(std::string_view text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    const char *const end = text.data() + text.size();
    std::uint32_t value = 0;
    const auto read = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    return read.ec == std::errc{} && read.ptr == end ? std::optional{value} : std::nullopt;
}

// An option that takes a number of that type.
template <class Number>
void add_number(CLI::App &app, const char *name, std::optional<Number> &chosen,
                const char *description, std::uint32_t least = 0)
{
    constexpr std::uint32_t most = std::numeric_limits<Number>::max();
    const auto check = [least](const std::string &text) -> std::string {
        const auto value = number(text);
        return value && *value >= least && *value <= most
                   ? ""
                   : "a number from " + std::to_string(least) + " to " + std::to_string(most) +
                         " is expected, not " + text;
    };
    const auto take = [&chosen](const std::string &text) {
        chosen = static_cast<Number>(number(text).value_or(0));
    };
    app.add_option_function<std::string>(name, take, description)
        ->type_name("N")
        ->check(CLI::Validator{check, ""});
}

void add_time(CLI::App &app, const char *name, std::string &chosen, const char *description)
{
    app.add_option(name, chosen, description)
        ->type_name("TIME")
        ->check(CLI::Validator{check_time, ""});
}

void add_options(CLI::App &app, const command &of, options &chosen)
{
    app.add_option("INPUT", chosen.input,
                   "Transport stream: a path, - for standard input,\nor udp://[@]ADDRESS:PORT, "
                   "also for RTP")
        ->required()
        ->check(CLI::Validator{check_input, ""});
    app.add_flag("--json", chosen.json, "Print one JSON object, schema orva-si/1");
    app.add_option("--for", chosen.seconds, "Stop after that time, with the results so far")
        ->type_name("SECONDS")
        ->check(CLI::Validator{check_seconds, ""});
    if ((of.takes & tunes) != 0)
        add_number(app, "--program", chosen.program, "Tune to this program [the first of the PAT]",
                   1); // 0 stands for the NIT in a PAT
    else
        add_number(app, "--program", chosen.program, "Print only this program or service");
    app.add_option("--charset", chosen.charset,
                   "Character table of text that names none (ISO-8859-9 ...) [ISO 6937]")
        ->type_name("NAME")
        ->check(CLI::Validator{check_charset, ""});
    app.add_flag("--realtime", chosen.realtime, "Read at the speed of broadcast, by its PCR");
    app.add_flag("--stats", chosen.stats, "Tell what the limits of the library refused");
    app.add_flag("-v,--verbose", chosen.verbose, "Say more");
    app.add_flag("-q,--quiet", chosen.quiet, "Say nothing but errors");
    app.add_option("--log-level", chosen.log_level, "Log of the library: 1 fatal ... 5 verbose [1]")
        ->type_name("1..5")
        ->check(CLI::Range(1, 5).description(""))
        ->each([&chosen](const std::string &) { chosen.log_asked = true; });
}

void add_own_options(CLI::App &app, const command &of, options &chosen)
{
    if ((of.takes & takes_pds) != 0)
        add_number(app, "--pds", chosen.pds,
                   "Private data specifier of descriptors that are sent under none");
    if ((of.takes & takes_table) != 0)
        add_number(app, "--table", chosen.table, "Only tables with this table_id");
    if ((of.takes & takes_service) != 0)
        app.add_option("--service", chosen.service,
                       "Only services with this service_id, onid.tsid.sid or part of a name")
            ->type_name("SERVICE");
    if ((of.takes & takes_window) != 0) {
        add_time(app, "--from", chosen.from, "Only schedule events that end after that time");
        add_time(app, "--to", chosen.to, "Only schedule events that start before that time");
    }
    if ((of.takes & takes_language) != 0)
        app.add_option_function<std::string>(
               "--lang",
               [&chosen](const std::string &text) {
                   chosen.languages = language_list(text).value_or(std::vector<std::string>{});
               },
               "Preferred languages, the first most: deu,eng")
            ->type_name("CODES")
            ->check(CLI::Validator{check_languages, ""});
    if ((of.takes & takes_time_zone) != 0)
        app.add_option_function<std::string>(
               "--tz",
               [&chosen](const std::string &zone) {
                   chosen.time_zone = time_zone_setting(zone).value_or("");
               },
               "Time zone of times for people: UTC, +HH:MM or a name [the system's]")
            ->type_name("ZONE")
            ->check(CLI::Validator{check_time_zone, ""});
}

std::string usage_hint(const CLI::App *about)
{
    const std::string command = about != nullptr ? " " + about->get_name() : "";
    return std::string{"Try '"} + program_name + command + " --help'.\n";
}

decision refusal(const std::string &why, const CLI::App *about)
{
    decision refused;
    refused.status = exit_usage;
    refused.error = program_name + (": " + one_line(why)) + "\n" + usage_hint(about);
    return refused;
}

// The option that nobody knows, rather than all that stands around it.
std::string unexpected_text(const CLI::App &app, const CLI::ExtrasError &error)
{
    for (const std::string &argument : app.remaining(true))
        if (argument.size() > 1 && argument.front() == '-')
            return "unknown option: " + argument;
    return error.what();
}

decision answer(std::string text)
{
    decision told;
    told.output = std::move(text);
    return told;
}

} // namespace

decision decide(std::span<const command> commands, int argc, const char *const *argv)
{
    const auto is_known = [&](std::string_view name) {
        return std::any_of(commands.begin(), commands.end(),
                           [&](const command &known) { return name == known.name; });
    };
    if (argc > 1 && argv[1][0] != '-' && !is_known(argv[1]))
        return refusal(std::string{"unknown command: "} + argv[1], nullptr);

    decision made;
    CLI::App app{"Service Information of a DVB multiplex", program_name};
    const std::string version = std::string{program_name} + " " ORVA_VERSION;
    app.set_version_flag("--version", version);
    app.require_subcommand(0, 1);
    for (const command &known : commands) {
        CLI::App *sub = app.add_subcommand(known.name, known.summary);
        sub->footer(exit_statuses);
        sub->set_version_flag("--version", version);
        add_options(*sub, known, made.chosen);
        add_own_options(*sub, known, made.chosen);
        sub->callback([&made, &known] { made.run = &known; });
    }
    const auto parsed = [&]() -> const CLI::App * {
        const auto subs = app.get_subcommands();
        return subs.empty() ? nullptr : subs.front();
    };
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        return answer(app.help());
    } catch (const CLI::CallForVersion &wanted) {
        return answer(std::string{wanted.what()} + "\n");
    } catch (const CLI::ExtrasError &error) {
        return refusal(unexpected_text(app, error), parsed());
    } catch (const CLI::ParseError &error) {
        return refusal(error.what(), parsed());
    }
    if (made.run == nullptr)
        return refusal("a command is required", nullptr);
    if (made.chosen.verbose && made.chosen.quiet)
        return refusal("--verbose and --quiet exclude each other", parsed());
    return made;
}

bool wants_progress(const options &chosen)
{
    constexpr std::uint32_t talkative = 3;
    return !chosen.quiet && chosen.log_level < talkative;
}

bool comes_live(const options &chosen)
{
    return chosen.realtime || chosen.input.starts_with("udp://") ||
           chosen.input.starts_with("rtp://");
}

std::string input_name(const std::string &input)
{
    return input == "-" ? "standard input" : one_line(input);
}

} // namespace tool
