// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

#include "guide_report.h"
#include "limit_report.h"
#include "list_json.h"
#include "report.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;

SiLimitCounts sample()
{
    SiLimitCounts of{};
    of.tables = {1, 2, 4096};
    of.table_bytes = {3, 4, 16777216};
    of.event_services = {5, 6, 8192};
    of.event_bytes = {7, 8, 134217728};
    of.queued_sections = {9, 10, 2048};
    of.queued_bytes = {11, 12, 4194304};
    of.busy_queue = {4294967295, 13, 100};
    return of;
}

const json sample_json = json::parse(R"({
    "tables": {"refused": 1, "used": 2, "most": 4096},
    "table_bytes": {"refused": 3, "used": 4, "most": 16777216},
    "event_services": {"refused": 5, "used": 6, "most": 8192},
    "event_bytes": {"refused": 7, "used": 8, "most": 134217728},
    "queued_sections": {"refused": 9, "used": 10, "most": 2048},
    "queued_bytes": {"refused": 11, "used": 12, "most": 4194304},
    "busy_queue": {"refused": 4294967295, "used": 13, "most": 100}})");

TEST(LimitLines, TellOfEachLimit)
{
    EXPECT_THAT(tool::limit_lines(sample()),
                ElementsAre("tables: 2 of 4096, 1 refused",
                            "bytes of tables: 4 of 16777216, 3 refused",
                            "services with events: 6 of 8192, 5 refused",
                            "bytes of events: 8 of 134217728, 7 refused",
                            "queued sections: 10 of 2048, 9 refused",
                            "queued bytes: 12 of 4194304, 11 refused",
                            "queued sections of any kind: 13 of 100, 4294967295 refused"));
}

TEST(LimitsJson, StandsInTheReportOfAScan)
{
    const json told = json::parse(tool::json_report({}, "file.ts", true, sample()));
    EXPECT_EQ(told["limits"], sample_json);
}

TEST(LimitsJson, StandsInAGuideWithAndWithoutServices)
{
    for (const bool any : {false, true}) {
        std::string text = tool::list_json_head("file.ts", tool::guide_json_list);
        if (any)
            tool::append_guide_json_service(text, {}, true);
        const json told = json::parse(text + tool::list_json_end(true, any, sample()));
        EXPECT_EQ(told["limits"], sample_json);
        EXPECT_EQ(told["complete"], true);
        EXPECT_EQ(told["services"].size(), any ? 1U : 0U);
    }
}

TEST(LimitsJson, IsLeftOutOfReportsUnlessItIsAskedFor)
{
    EXPECT_FALSE(json::parse(tool::json_report({}, "file.ts", true)).contains("limits"));
    EXPECT_FALSE(json::parse(tool::guide_json({}, "file.ts", true)).contains("limits"));
}

TEST(LimitsJson, IsALineOfItsOwn)
{
    const std::string line = tool::limits_json_line(1767225600, sample());
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const json told = json::parse(line);
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["time"], "2026-01-01T00:00:00Z");
    EXPECT_EQ(told["limits"], sample_json);
    EXPECT_EQ(told.size(), 3U);
}

} // namespace
