// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>

#include "guide_report.h"
#include "time_words.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using tool::event;
using tool::guide_service;

constexpr std::uint32_t noon = 1767268800; // 2026-01-01T12:00:00Z
constexpr std::size_t wide = std::numeric_limits<std::size_t>::max();

event film()
{
    event made{.event_id = 5, .start = noon, .duration = 5400, .names = {}};
    made.names = {{"eng", {"The Cat", "ab"}, tool::label{"A comedy.", "cd"}},
                  {"deu", {"Die Katze", "ef"}, std::nullopt}};
    made.extended = {{"eng", 0, 1, {{{"Cast", "01"}, {"Mina", "02"}}}, {"A storm ", "03"}},
                     {"eng", 1, 1, {}, {"comes.", "04"}}};
    made.genres = {{1, 4, 0, 0}, {1, 4, 15, 15}};
    made.ratings = {{"DEU", 3}, {"FRA", 0}};
    return made;
}

guide_service service(std::vector<tool::placed_event> now, std::vector<event> later)
{
    return {65281, 1001, 101, tool::label{"Orva One", "4f"}, std::move(now), std::move(later)};
}

std::string text(const std::vector<guide_service> &services,
                 const tool::guide_style &style = {wide, {}})
{
    tool::use_time_zone("UTC0");
    return guide_text(services, style);
}

TEST(GuideText, ListsNowNextAndDays)
{
    event late = film();
    late.start = noon + 86400;
    late.names = {{"eng", {"The Dog", ""}, std::nullopt}};
    late.genres.clear();
    late.ratings.clear();
    const auto now = tool::place::present;
    const auto next = tool::place::following;
    EXPECT_EQ(text({service({{now, film()}, {next, late}}, {film(), late})}),
              "Orva One  (65281.1001.101)\n"
              "  now   Thu 2026-01-01 12:00-13:30  The Cat  [comedy, 6+]\n"
              "  next  Fri 2026-01-02 12:00-13:30  The Dog\n"
              "  Thu 2026-01-01\n"
              "    12:00-13:30  The Cat  [comedy, 6+]\n"
              "  Fri 2026-01-02\n"
              "    12:00-13:30  The Dog\n");
}

TEST(GuideText, PreferredLanguageComesFirst)
{
    const auto services = std::vector{service({}, {film()})};
    EXPECT_THAT(text(services, {wide, {"ger", "eng"}}), HasSubstr("Die Katze"));
    EXPECT_THAT(text(services, {wide, {"fra"}}), HasSubstr("The Cat"));
}

TEST(GuideText, VerboseAddsTextsJoinedFromTheirParts)
{
    const std::string told = text({service({}, {film()})}, {wide, {}, true});
    EXPECT_THAT(told, HasSubstr("                 A comedy.\n"
                                "                 A storm comes.\n"
                                "                 Cast: Mina\n"));
    EXPECT_THAT(text({service({}, {film()})}), Not(HasSubstr("A comedy.")));
}

TEST(GuideText, UndefinedTimesAreSaid)
{
    event slot{.event_id = 1, .start = {}, .duration = {}, .names = {}};
    EXPECT_EQ(text({service({{tool::place::present, slot}}, {slot})}),
              "Orva One  (65281.1001.101)\n"
              "  also  time not given  (no name)\n"
              "  time not given\n"
              "    (no name)\n");
    event open = film();
    open.duration.reset();
    EXPECT_THAT(text({service({}, {open})}), HasSubstr("12:00-       The Cat"));
}

TEST(GuideText, LinesBreakAtBlanksWithinTheWidth)
{
    event wordy = film();
    wordy.names[0].name.text = "one, two three four five six seven eight nine ten";
    const std::string told = text({service({}, {wordy})}, {50, {}});
    EXPECT_THAT(told, HasSubstr("    12:00-13:30  one, two three four five six\n"
                                "                 seven eight nine ten  [comedy,\n"
                                "                 6+]\n"));
}

TEST(GuideText, BroadcastTextSteersNoTerminal)
{
    event evil = film();
    evil.names[0].name.text = "a\x1B[2Jb\nc";
    const std::string told = text({service({}, {evil})});
    EXPECT_EQ(told.find('\x1B'), std::string::npos);
    EXPECT_THAT(told, HasSubstr("b c"));
}

TEST(GuideText, ServicesWithoutEventsAreLeftOut)
{
    EXPECT_EQ(text({service({}, {})}), "");
}

TEST(GuideJson, HasAllFields)
{
    const json told = json::parse(
        tool::guide_json({service({{tool::place::following, film()}}, {})}, "file.ts", true));
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["input"], "file.ts");
    EXPECT_EQ(told["complete"], true);
    EXPECT_EQ(told["services"], json::parse(R"([{
        "original_network_id": 65281, "transport_stream_id": 1001, "service_id": 101,
        "name": "Orva One", "name_raw": "4f", "schedule": [],
        "present_following": [{
            "event_id": 5, "start": "2026-01-01T12:00:00Z", "start_utc": 1767268800,
            "duration": 5400, "position": "following",
            "names": [{"language": "eng", "name": "The Cat", "name_raw": "ab",
                       "text": "A comedy.", "text_raw": "cd"},
                      {"language": "deu", "name": "Die Katze", "name_raw": "ef",
                       "text": null, "text_raw": null}],
            "extended": [{"language": "eng", "descriptor_number": 0, "last_descriptor_number": 1,
                          "items": [{"item_description": "Cast", "item_description_raw": "01",
                                     "item": "Mina", "item_raw": "02"}],
                          "text": "A storm ", "text_raw": "03"},
                         {"language": "eng", "descriptor_number": 1, "last_descriptor_number": 1,
                          "items": [], "text": "comes.", "text_raw": "04"}],
            "content": [{"content_nibble_level_1": 1, "content_nibble_level_2": 4,
                         "user_nibble_1": 0, "user_nibble_2": 0},
                        {"content_nibble_level_1": 1, "content_nibble_level_2": 4,
                         "user_nibble_1": 15, "user_nibble_2": 15}],
            "components": [],
            "ratings": [{"country_code": "DEU", "rating": 3}, {"country_code": "FRA", "rating": 0}],
            "ca": false}]}])"));
}

TEST(GuideJson, UndefinedTimesAreNull)
{
    const event slot{.event_id = 1, .start = {}, .duration = {}, .names = {}};
    const json told = json::parse(tool::guide_json({service({}, {slot})}, "-", false));
    const json &only = told["services"][0]["schedule"][0];
    EXPECT_TRUE(only["start"].is_null());
    EXPECT_TRUE(only["start_utc"].is_null());
    EXPECT_TRUE(only["duration"].is_null());
    EXPECT_FALSE(only.contains("position"));
    EXPECT_EQ(told["complete"], false);
}

TEST(WantedService, ByNumberNumbersOrPartOfTheName)
{
    const guide_service one = service({}, {});
    for (const char *wanted : {"", "101", "65281.1001.101", "orva", "VA ONE"})
        EXPECT_TRUE(is_wanted(one, wanted)) << wanted;
    for (const char *wanted : {"1", "102", "65281.1001.102", "1001.101", "two", "101.", ".101"})
        EXPECT_FALSE(is_wanted(one, wanted)) << wanted;
}

} // namespace
