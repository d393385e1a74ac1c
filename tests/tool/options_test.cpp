// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "options.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using tool::decision;

constexpr tool::command commands[] = {{"scan", "Scan a multiplex", nullptr, tool::takes_pds},
                                      {"other", "Another one", nullptr, tool::takes_table}};

decision decide(std::vector<const char *> arguments)
{
    arguments.insert(arguments.begin(), "orva-si");
    return tool::decide(commands, static_cast<int>(arguments.size()), arguments.data());
}

// One line that says what is wrong, and the hint.
void expect_usage_error(const decision &made, const std::string &says)
{
    EXPECT_EQ(made.run, nullptr);
    EXPECT_EQ(made.status, 2);
    EXPECT_EQ(made.output, "");
    EXPECT_THAT(made.error, StartsWith("orva-si: "));
    EXPECT_THAT(made.error, HasSubstr(says));
    EXPECT_THAT(made.error, HasSubstr("--help"));
    EXPECT_EQ(std::count(made.error.begin(), made.error.end(), '\n'), 2) << made.error;
}

TEST(Options, InputAloneTakesTheDefaults)
{
    const decision made = decide({"scan", "file.ts"});
    ASSERT_EQ(made.run, &commands[0]);
    EXPECT_EQ(made.chosen.input, "file.ts");
    EXPECT_EQ(made.chosen.charset, "");
    EXPECT_EQ(made.chosen.log_level, 1u);
    EXPECT_FALSE(made.chosen.seconds.has_value());
    EXPECT_FALSE(made.chosen.program.has_value());
    EXPECT_FALSE(made.chosen.json || made.chosen.realtime || made.chosen.verbose ||
                 made.chosen.quiet || made.chosen.stats);
}

TEST(Options, EveryOptionIsTaken)
{
    const decision made =
        decide({"scan", "--json", "--for", "2.5", "--program", "65535", "-v", "--log-level", "5",
                "--charset", "ISO-8859-9", "--realtime", "--stats", "file.ts"});
    ASSERT_NE(made.run, nullptr) << made.error;
    EXPECT_TRUE(made.chosen.json);
    EXPECT_EQ(made.chosen.seconds, 2.5);
    EXPECT_EQ(made.chosen.program, 65535);
    EXPECT_TRUE(made.chosen.verbose);
    EXPECT_EQ(made.chosen.log_level, 5u);
    EXPECT_EQ(made.chosen.charset, "ISO-8859-9");
    EXPECT_TRUE(made.chosen.realtime);
    EXPECT_TRUE(made.chosen.stats);
}

TEST(Options, OptionsMayFollowTheInput)
{
    const decision made = decide({"scan", "file.ts", "-q", "--json"});
    ASSERT_NE(made.run, nullptr) << made.error;
    EXPECT_TRUE(made.chosen.quiet);
    EXPECT_TRUE(made.chosen.json);
}

TEST(Options, DashIsStandardInput)
{
    const decision made = decide({"scan", "-"});
    ASSERT_NE(made.run, nullptr) << made.error;
    EXPECT_EQ(made.chosen.input, "-");
    EXPECT_EQ(tool::input_name("-"), "standard input");
}

TEST(Options, NameThatBeginsWithADashFollowsTwoDashes)
{
    const decision made = decide({"scan", "--", "-x.ts"});
    ASSERT_NE(made.run, nullptr) << made.error;
    EXPECT_EQ(made.chosen.input, "-x.ts");
}

TEST(Options, HelpListsTheCommandsThatExist)
{
    const decision made = decide({"--help"});
    EXPECT_EQ(made.run, nullptr);
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(made.error, "");
    EXPECT_THAT(made.output, HasSubstr("scan"));
    EXPECT_THAT(made.output, HasSubstr("other"));
    EXPECT_THAT(made.output, testing::Not(HasSubstr("guide")));
}

TEST(Options, HelpOfACommandNamesItsOptionsAndStatuses)
{
    const decision made = decide({"scan", "--help"});
    EXPECT_EQ(made.status, 0);
    for (const char *expected :
         {"INPUT", "--json", "--for", "--program", "--charset", "--realtime", "--stats",
          "--verbose", "--quiet", "--log-level", "Exit status", "orva-si scan"})
        EXPECT_THAT(made.output, HasSubstr(expected));
}

TEST(Options, VersionIsPrinted)
{
    const decision made = decide({"--version"});
    EXPECT_EQ(made.status, 0);
    EXPECT_THAT(made.output, testing::MatchesRegex("orva-si [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Options, MissingPartsAreUsageErrors)
{
    expect_usage_error(decide({}), "command");
    expect_usage_error(decide({"scan"}), "INPUT");
    expect_usage_error(decide({"scan", "--json"}), "INPUT");
}

TEST(Options, UnknownPartsAreUsageErrors)
{
    expect_usage_error(decide({"sacn", "file.ts"}), "sacn");
    expect_usage_error(decide({"file.ts"}), "file.ts");
    expect_usage_error(decide({""}), "command");
    expect_usage_error(decide({"scan", "--bogus", "file.ts"}), "--bogus");
    expect_usage_error(decide({"scan", "a.ts", "b.ts"}), "b.ts");
}

TEST(Options, UnknownOptionIsNamedAlone)
{
    EXPECT_THAT(decide({"scan", "file.ts", "--service", "One"}).error,
                StartsWith("orva-si: unknown option: --service\n"));
    EXPECT_THAT(decide({"scan", "-x", "file.ts"}).error,
                StartsWith("orva-si: unknown option: -x\n"));
}

TEST(Options, ValuesOutOfRangeAreUsageErrors)
{
    for (const char *value : {"0", "-1", "nan", "inf", "soon", "", "1e9"})
        expect_usage_error(decide({"scan", "--for", value, "file.ts"}), "--for");
    for (const char *value : {"-1", "65536", "one", "", "0x", "0x10000", "10 ", "1.0"})
        expect_usage_error(decide({"scan", "--program", value, "file.ts"}), "--program");
    for (const char *value : {"-1", "4294967296", "0x100000000", "x28"})
        expect_usage_error(decide({"scan", "--pds", value, "file.ts"}), "--pds");
    for (const char *value : {"0", "6", "all"})
        expect_usage_error(decide({"scan", "--log-level", value, "file.ts"}), "--log-level");
    expect_usage_error(decide({"scan", "--charset", "no-such-table", "file.ts"}), "--charset");
}

TEST(Options, MessagesRepeatTheValueAndNameTheOptionOnce)
{
    EXPECT_THAT(decide({"scan", "--charset", "nope", "file.ts"}).error,
                StartsWith("orva-si: --charset: no character table has the name nope\n"));
    EXPECT_THAT(decide({"scan", ""}).error, StartsWith("orva-si: INPUT: the name is empty\n"));
}

TEST(Options, NumbersAreDecimalOrHexadecimal)
{
    const auto program = [](const char *text) {
        return decide({"scan", "--program", text, "file.ts"}).chosen.program;
    };
    EXPECT_EQ(program("010"), 10);
    EXPECT_EQ(program("0x10"), 16);
    EXPECT_EQ(program("0XfFfF"), 65535);
    EXPECT_EQ(decide({"scan", "--pds", "0xFFFFFFFF", "file.ts"}).chosen.pds, 0xFFFFFFFF);
}

TEST(Options, SomeOptionsBelongToOneCommand)
{
    expect_usage_error(decide({"other", "--pds", "1", "file.ts"}), "--pds");
}

TEST(Options, TableIsATableId)
{
    EXPECT_EQ(decide({"other", "--table", "0x4A", "file.ts"}).chosen.table, 0x4A);
    EXPECT_EQ(decide({"other", "--table", "0", "file.ts"}).chosen.table, 0);
    EXPECT_FALSE(decide({"other", "file.ts"}).chosen.table.has_value());
    for (const char *value : {"-1", "256", "0x100", "NIT", ""})
        expect_usage_error(decide({"other", "--table", value, "file.ts"}), "--table");
    expect_usage_error(decide({"scan", "--table", "1", "file.ts"}), "--table");
}

TEST(Options, VerboseAndQuietExcludeEachOther)
{
    expect_usage_error(decide({"scan", "-v", "-q", "file.ts"}), "exclude");
}

TEST(Options, InputsOfANetworkAreTaken)
{
    for (const char *input : {"udp://@239.0.0.1:1234", "rtp://239.0.0.1:1234", "udp://:1234"}) {
        const decision made = decide({"scan", input});
        EXPECT_EQ(made.chosen.input, input);
        EXPECT_NE(made.run, nullptr);
        EXPECT_TRUE(comes_live(made.chosen));
    }
    EXPECT_FALSE(comes_live(decide({"scan", "udp.ts"}).chosen));
    EXPECT_TRUE(comes_live(decide({"scan", "udp.ts", "--realtime"}).chosen));
}

TEST(Options, WhatAMessageRepeatsCannotSteerATerminal)
{
    const decision made = decide({"scan", "\x1B[31m.ts", "\x1B]0;x\x07"});
    EXPECT_EQ(made.error.find('\x1B'), std::string::npos);
    EXPECT_EQ(made.error.find('\x07'), std::string::npos);
    EXPECT_EQ(tool::input_name("a\x1B[31m"), "a\uFFFD[31m");
}

} // namespace
