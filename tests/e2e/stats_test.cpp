// SPDX-License-Identifier: LGPL-2.1-or-later
// What --stats tells of the library's limits, of streams that keep within them and of one that does
// not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "demux/stream.h"
#include "e2e/scanning.h"
#include "support/process.h"
#include "support/sections.h"

namespace {

using namespace test;
using testing::HasSubstr;
using testing::Not;

ended run(const std::string &command, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {ORVA_TOOL, command});
    return process{arguments}.wait();
}

std::string last_line(const std::string &text)
{
    const std::size_t end = text.find_last_not_of('\n');
    const std::size_t begin = text.find_last_of('\n', end);
    return text.substr(begin == std::string::npos ? 0 : begin + 1);
}

void expect_nothing_refused(const json &limits)
{
    EXPECT_EQ(limits.size(), 7U);
    EXPECT_GT(limits["tables"]["used"], 0);
    EXPECT_EQ(limits["tables"]["most"], 4096);
    for (const char *name : {"tables", "table_bytes", "event_services", "event_bytes"})
        EXPECT_EQ(limits[name]["refused"], 0) << name;
}

TEST(Stats, StandOnStandardErrorForPeople)
{
    for (const char *command : {"scan", "guide", "watch", "dump"}) {
        const ended result = run(command, {"--stats", sample()});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr("sample.ts: tables: "));
        EXPECT_THAT(result.err, HasSubstr(" of 4096, 0 refused\n"));
        EXPECT_THAT(result.out, Not(HasSubstr("refused")));
    }
}

TEST(Stats, AreToldToWhoWantsNothingButErrorsToo)
{
    EXPECT_THAT(run("scan", {"--stats", "-q", sample()}).err, HasSubstr(" of 4096, 0 refused\n"));
}

TEST(Stats, AreAMemberOfJson)
{
    for (const char *command : {"scan", "guide", "dump"}) {
        const ended result = run(command, {"--stats", "--json", sample()});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, Not(HasSubstr("refused")));
        expect_nothing_refused(json::parse(result.out, nullptr, false)["limits"]);
    }
}

TEST(Stats, AreTheLastLineOfAWatch)
{
    const ended result = run("watch", {"--stats", "--json", sample()});
    EXPECT_EQ(result.status, 0) << result.err;
    const json last = json::parse(last_line(result.out), nullptr, false);
    EXPECT_EQ(last["schema"], "orva-si/1");
    expect_nothing_refused(last["limits"]);
}

TEST(Stats, AreLeftOutUnlessAskedFor)
{
    const ended result = run("watch", {"--json", sample()});
    EXPECT_THAT(result.out + result.err, Not(HasSubstr("limits")));
    EXPECT_THAT(result.out + result.err, Not(HasSubstr("refused")));
}

// More transport streams than the store takes: the scan is partial, and says why.
TEST(Stats, TellOfAStreamThatFillsTheStore)
{
    stream made = small_stream();
    for (std::uint16_t ts = 100; ts < 3900; ++ts)
        made.section(0x11, make(sdt{.table_id = 0x46, .ts = ts}));
    const std::string path = files().write("full.ts", made.bytes);
    const ended result = run("scan", {"--stats", "--json", path});
    EXPECT_EQ(result.status, 5) << result.err;
    EXPECT_THAT(result.err, HasSubstr("the library's store is full"));
    const json told = json::parse(result.out, nullptr, false);
    EXPECT_EQ(told["complete"], false);
    EXPECT_GT(told["limits"]["tables"]["refused"], 0);
    EXPECT_EQ(told["services"][0]["name"], "News");
}

} // namespace
