// SPDX-License-Identifier: LGPL-2.1-or-later
// The options that only the commands about events take.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tool::decision;

constexpr tool::command commands[] = {{"scan", "Scan", nullptr},
                                      {"guide", "Events", nullptr,
                                       tool::tunes | tool::takes_service | tool::takes_window |
                                           tool::takes_language | tool::takes_time_zone}};

decision decide(std::vector<const char *> arguments)
{
    arguments.insert(arguments.begin(), "orva-si");
    return tool::decide(commands, static_cast<int>(arguments.size()), arguments.data());
}

TEST(GuideOptions, AreTaken)
{
    const decision made =
        decide({"guide", "--service", "One HD", "--from", "2026-01-01", "--to",
                "2026-01-02T00:00:00Z", "--lang", "deu,eng", "--tz", "+01:00", "file.ts"});
    ASSERT_EQ(made.run, &commands[1]) << made.error;
    EXPECT_EQ(made.chosen.service, "One HD");
    EXPECT_EQ(made.chosen.from, "2026-01-01");
    EXPECT_EQ(made.chosen.to, "2026-01-02T00:00:00Z");
    EXPECT_THAT(made.chosen.languages, ElementsAre("deu", "eng"));
    EXPECT_EQ(made.chosen.time_zone, "<+0100>-01:00"); // POSIX counts to the west
}

TEST(GuideOptions, DefaultsAreEmpty)
{
    const decision made = decide({"guide", "file.ts"});
    ASSERT_NE(made.run, nullptr) << made.error;
    EXPECT_EQ(made.chosen.service + made.chosen.from + made.chosen.to + made.chosen.time_zone, "");
    EXPECT_TRUE(made.chosen.languages.empty());
}

TEST(GuideOptions, WrongValuesAreUsageErrors)
{
    for (const std::vector<const char *> &arguments :
         {std::vector{"--from", "tomorrow"}, std::vector{"--to", "2026-02-30"},
          std::vector{"--lang", "german"}, std::vector{"--tz", "Atlantis"}}) {
        const decision made = decide({"guide", arguments[0], arguments[1], "file.ts"});
        EXPECT_EQ(made.run, nullptr) << arguments[0];
        EXPECT_EQ(made.status, 2);
        EXPECT_THAT(made.error, HasSubstr(arguments[1]));
    }
}

TEST(GuideOptions, AreNoneOfOtherCommands)
{
    for (const char *option : {"--service", "--from", "--to", "--lang", "--tz"})
        EXPECT_EQ(decide({"scan", option, "UTC", "file.ts"}).status, 2) << option;
}

TEST(GuideOptions, ProgramIsOneThatCanBeTunedTo)
{
    EXPECT_EQ(decide({"guide", "--program", "0", "file.ts"}).status, 2);
    EXPECT_EQ(decide({"guide", "--program", "1", "file.ts"}).chosen.program, 1);
}

TEST(GuideOptions, HelpTellsWhatProgramMeans)
{
    EXPECT_THAT(decide({"guide", "--help"}).output, HasSubstr("Tune to this program"));
    EXPECT_THAT(decide({"scan", "--help"}).output, Not(HasSubstr("Tune to this program")));
}

} // namespace
