// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of the sample multiplex and of small streams, as users of the tool see them.
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "demux/stream.h"
#include "support/descriptors.h"
#include "support/process.h"
#include "support/sections.h"

namespace {

using namespace std::chrono_literals;
using namespace test;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const scratch_folder &files()
{
    static const scratch_folder folder;
    return folder;
}

std::vector<std::string> guide_command(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {ORVA_TOOL, "guide"});
    return arguments;
}

ended guide(std::vector<std::string> arguments)
{
    return process{guide_command(std::move(arguments))}.wait();
}

json guide_json(std::vector<std::string> arguments, int expected_status = 0)
{
    arguments.emplace_back("--json");
    const ended result = guide(std::move(arguments));
    EXPECT_EQ(result.status, expected_status) << result.err;
    return json::parse(result.out, nullptr, false);
}

// The sample multiplex, written by the generator that is built beside the tool.
const std::string &sample()
{
    static const std::string path = [] {
        const auto tools = std::filesystem::path{ORVA_TOOL}.parent_path().parent_path();
        const std::string generator = (tools / "sample" / "orva-sample-mux").string();
        std::string out = files().path("sample.ts");
        const ended result = process{{generator, out}}.wait();
        EXPECT_EQ(result.status, 0) << generator << ": " << result.err;
        return out;
    }();
    return path;
}

std::string written(const stream &made)
{
    static int count = 0;
    return files().write("made" + std::to_string(count++) + ".ts", made.bytes);
}

eit_event named(std::uint16_t id, std::uint32_t start_bcd, const char *name)
{
    return {.id = id, .start_bcd = start_bcd, .descriptors = {short_event("eng", name, "")}};
}

std::vector<json> ids_of(const json &events)
{
    std::vector<json> ids;
    for (const json &event : events)
        ids.push_back(event["event_id"]);
    return ids;
}

// ---- the sample

TEST(SampleGuide, HasTheEventsOfEveryService)
{
    const json told = guide_json({sample()});
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["complete"], true);
    ASSERT_EQ(told["services"].size(), 4u);
    const json &one = told["services"][0];
    EXPECT_EQ(one["original_network_id"], 0xFF01);
    EXPECT_EQ(one["transport_stream_id"], 1001);
    EXPECT_EQ(one["service_id"], 101);
    EXPECT_EQ(one["name"], "Orva One HD");
    // 30, 90, 45 and 75 minutes over and over: twelve in the day's second half, 24 in the next day
    EXPECT_EQ(one["schedule"].size(), 12u + 24u);
    EXPECT_EQ(one["schedule"][0]["start"], "2026-01-01T12:00:00Z");
    EXPECT_EQ(one["schedule"][35]["start"], "2026-01-02T22:45:00Z");
    const json &other = told["services"][3];
    EXPECT_EQ(other["transport_stream_id"], 1002);
    EXPECT_EQ(other["name"], "Orva Two HD");
    EXPECT_EQ(other["present_following"].size(), 2u);
    EXPECT_TRUE(other["schedule"].empty());
}

TEST(SampleGuide, EventsCarryAllDescriptors)
{
    const json told = guide_json({sample(), "--service", "101"});
    ASSERT_EQ(told["services"].size(), 1u);
    const json &both = told["services"][0]["present_following"];
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[0]["position"], "present");
    EXPECT_EQ(both[0]["names"][1]["name"], "Die Nachrichten");
    EXPECT_EQ(both[0]["duration"], 1800);
    const json &film = both[1];
    EXPECT_EQ(film["position"], "following");
    EXPECT_EQ(film["start_utc"], 1767270600); // 2026-01-01T12:30:00Z
    EXPECT_EQ(film["duration"], 5400);
    EXPECT_EQ(film["names"][1]["language"], "deu");
    EXPECT_EQ(film["names"][1]["name"], "Die Katze des Leuchtturmwärters");
    EXPECT_EQ(film["extended"].size(), 2u);
    EXPECT_EQ(film["extended"][0]["items"][0]["item_description"], "Cast");
    EXPECT_EQ(film["extended"][1]["descriptor_number"], 1);
    EXPECT_EQ(film["content"][0]["content_nibble_level_2"], 4);
    EXPECT_EQ(film["components"][0]["text"], "HD");
    EXPECT_EQ(film["ratings"], json::parse(R"([{"country_code": "DEU", "rating": 3}])"));
    EXPECT_EQ(film["ca"], false);
    EXPECT_EQ(guide_json({sample(), "--service", "109"})["services"][0]["schedule"][0]["ca"], true);
}

TEST(SampleGuide, ScheduleKeepsToItsWindow)
{
    const json told = guide_json({sample(), "--service", "65281.1001.101", "--tz", "+01:00",
                                  "--from", "2026-01-01 14:00", "--to", "2026-01-01T15:00:00Z"});
    std::vector<json> starts;
    for (const json &event : told["services"][0]["schedule"])
        starts.push_back(event["start"]);
    EXPECT_THAT(starts, ElementsAre("2026-01-01T12:30:00Z", "2026-01-01T14:00:00Z",
                                    "2026-01-01T14:45:00Z"));
    EXPECT_EQ(guide({sample(), "--from", "2026-01-02", "--to", "2026-01-01"}).status, 2);
}

TEST(SampleGuide, TextForPeopleIsInTheirLanguageAndTime)
{
    const ended told = guide({sample(), "--lang", "ger", "--tz", "Europe/Berlin", "-v"});
    EXPECT_EQ(told.status, 0);
    EXPECT_EQ(told.err, "");
    EXPECT_THAT(told.out,
                HasSubstr("Orva One HD  (65281.1001.101)\n"
                          "  now   Thu 2026-01-01 13:00-13:30  Die Nachrichten  "
                          "[news/weather report]\n"
                          "                                    Schlagzeilen und Wetter.\n"));
    EXPECT_THAT(told.out, HasSubstr("13:30-15:00  Die Katze des Leuchtturmwärters  [comedy, 6+]"));
    EXPECT_THAT(told.out, HasSubstr("its way home."));
    EXPECT_THAT(told.out, HasSubstr("Star★ Marathon  [science fiction/fantasy/horror, 16+]"));
}

TEST(SampleGuide, TuningToAnotherProgramFindsTheSame)
{
    EXPECT_EQ(guide_json({sample(), "--program", "109"})["services"],
              guide_json({sample()})["services"]);
}

TEST(SampleGuide, UnknownServiceIsSaid)
{
    const ended told = guide({sample(), "--service", "Nobody"});
    EXPECT_EQ(told.status, 1);
    EXPECT_EQ(told.out, "");
    EXPECT_THAT(told.err, HasSubstr("no events of such a service"));
    EXPECT_EQ(guide({sample(), "--service", "101", "--to", "2000-01-01"}).status, 0);
}

TEST(SampleGuide, UnknownProgramIsSaid)
{
    const ended told = guide({sample(), "--program", "999"});
    EXPECT_EQ(told.status, 1);
    EXPECT_THAT(told.err, HasSubstr("no program 999"));
    EXPECT_NE(told.out, "");
}

// ---- small streams

TEST(Guide, WorksWithoutPatAndSdt)
{
    stream made;
    made.section(0x12, make(eit{.table_id = 0x4E,
                                .service = 9,
                                .last_section_number = 1,
                                .events = {named(1, 0x120000, "Now")}}));
    made.section(0x12,
                 make(eit{.table_id = 0x50,
                          .service = 9,
                          .events = {named(1, 0x120000, "Now"), named(2, 0x130000, "Later")}}));
    const json told = guide_json({written(made)});
    ASSERT_EQ(told["services"].size(), 1u);
    EXPECT_EQ(told["services"][0]["name"], nullptr);
    EXPECT_THAT(ids_of(told["services"][0]["present_following"]), ElementsAre(1));
    EXPECT_THAT(ids_of(told["services"][0]["schedule"]), ElementsAre(1, 2));
}

TEST(Guide, FindsLaterSubTablesWithoutTheFirst)
{
    stream made;
    made.section(0x12, make(eit{.table_id = 0x5B,
                                .service = 9,
                                .last_table_id = 0x5F,
                                .events = {named(3, 0x120000, "Far away")}}));
    const json told = guide_json({written(made)});
    ASSERT_EQ(told["services"].size(), 1u);
    EXPECT_THAT(ids_of(told["services"][0]["schedule"]), ElementsAre(3));
}

TEST(Guide, FindsSectionsOfMoreServicesThanThereAreFilters)
{
    constexpr unsigned services = 40;
    stream made;
    for (std::uint8_t table_id = 0x50; table_id <= 0x51; ++table_id)
        for (unsigned service = 1; service <= services; ++service)
            made.section(0x12, make(eit{.table_id = table_id,
                                        .service = static_cast<std::uint16_t>(service),
                                        .last_section_number = 8, // of which 8 never comes
                                        .segment_last_section_number = 0,
                                        .last_table_id = 0x51,
                                        .events = {named(table_id, 0x120000, "Event")}}));
    const json told = guide_json({written(made)});
    ASSERT_EQ(told["services"].size(), services);
    for (const json &service : told["services"])
        EXPECT_THAT(ids_of(service["schedule"]), ElementsAre(0x50, 0x51)) << service["service_id"];
}

TEST(Guide, EndsThoughASectionOfACompleteLookingTableIsMissing)
{
    stream made;
    for (const std::uint8_t number : {std::uint8_t{0}, std::uint8_t{2}}) // 1 never comes
        made.section(0x12, make(eit{.table_id = 0x50,
                                    .service = 9,
                                    .section_number = number,
                                    .last_section_number = 2,
                                    .segment_last_section_number = 2,
                                    .events = {named(number, 0x120000, "Event")}}));
    const json told = guide_json({written(made)});
    ASSERT_EQ(told["services"].size(), 1u);
    EXPECT_THAT(ids_of(told["services"][0]["schedule"]), ElementsAre(0, 2));
}

TEST(Guide, UndefinedTimesAreNull)
{
    stream made;
    made.section(
        0x12,
        make(eit{.table_id = 0x4E,
                 .service = 9,
                 .events = {
                     {.id = 1, .mjd = 0xFFFF, .start_bcd = 0xFFFFFF, .duration_bcd = 0xFFFFFF}}}));
    const json told = guide_json({written(made)});
    const json &event = told["services"][0]["present_following"][0];
    EXPECT_TRUE(event["start_utc"].is_null());
    EXPECT_TRUE(event["start"].is_null());
    EXPECT_TRUE(event["duration"].is_null());
    EXPECT_THAT(guide({written(made)}).out, HasSubstr("time not given"));
}

TEST(Guide, StreamWithoutEventsIsSaid)
{
    stream made;
    made.section(0x00, make(pat{.ts = 7, .programs = {{.number = 100, .pid = 0x100}}}));
    const ended told = guide({written(made)});
    EXPECT_EQ(told.status, 4);
    EXPECT_EQ(told.out, "");
    EXPECT_THAT(told.err, HasSubstr("no sections of events"));
}

TEST(Guide, MissingInputIsSaid)
{
    EXPECT_EQ(guide({files().path("nothing.ts")}).status, 3);
}

// A pipe that stays open: what it sent is there, what it may still send is not.
class OpenPipe : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(pipe(ends), 0);
        stream made;
        for (int repeat = 0; repeat < 50; ++repeat)
            made.section(
                0x12,
                make(eit{.table_id = 0x4E, .service = 9, .events = {named(1, 0x120000, "Now")}}));
        ASSERT_EQ(write(ends[1], made.bytes.data(), made.bytes.size()),
                  static_cast<ssize_t>(made.bytes.size()));
    }
    void TearDown() override
    {
        close(ends[0]);
        close(ends[1]);
    }
    int ends[2] = {-1, -1};
};

TEST_F(OpenPipe, TimeThatIsOverLeavesAPartialGuide)
{
    process tool{guide_command({"--json", "--for", "4", "-"}), ends[0]};
    const ended told = tool.wait();
    EXPECT_EQ(told.status, 5) << told.err;
    const json parsed = json::parse(told.out, nullptr, false);
    EXPECT_EQ(parsed["complete"], false);
}

TEST_F(OpenPipe, SignalEndsTheGuideWithWhatCame)
{
    process tool{guide_command({"--json", "-"}), ends[0]};
    std::this_thread::sleep_for(1s);
    tool.signal(SIGTERM);
    const ended told = tool.wait();
    EXPECT_EQ(told.status, 143) << told.err;
    EXPECT_EQ(json::parse(told.out, nullptr, false)["complete"], false);
}

} // namespace
