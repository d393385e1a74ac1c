// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "dvb_text.h"
#include "report.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using namespace tool;

label name_of(std::string_view text)
{
    return label_of({text.begin(), text.end()}, "");
}

service one_service(std::uint16_t id, std::string_view name, bool actual = true)
{
    service s;
    s.original_network_id = 1;
    s.transport_stream_id = actual ? 7 : 8;
    s.service_id = id;
    s.actual = actual;
    s.name = name_of(name);
    s.service_type = 0x19;
    s.running_status = 4;
    s.free_ca_mode = 1;
    s.eit_schedule = 0;
    s.eit_present_following = 1;
    return s;
}

multiplex small_multiplex()
{
    multiplex m;
    m.transport_stream_id = 7;
    m.original_network_id = 1;
    m.network_id = 3;
    network_stream described;
    described.transport_stream_id = 7;
    described.original_network_id = 1;
    described.delivered = delivery{"DVB-T 626 MHz", {{"system", "DVB-T"}}};
    described.numbers = {{100, 5, true, 10, 0x28, true}, {101, 800, false, 10, 0x28, false}};
    m.networks = {{3, true, name_of("Net"), {{described, {{100, 0x19}, {101, 0x19}}}}}};
    m.services = {one_service(100, "News"), one_service(101, "Sport"),
                  one_service(200, "Elsewhere", false)};
    program p;
    p.program_number = 100;
    p.pmt_pid = 256;
    p.pcr_pid = 257;
    p.video_pid = 257;
    p.elementary_pids = {257, 258};
    p.audio = {{258, true, false, "AC-3", {{"eng", 3}}}};
    p.teletext = {{260, "eng", 2, 0, 0x88}};
    p.subtitles = {{261, "deu", 0x10, 1, 2}};
    p.teletext_pids = {260};
    p.subtitle_pids = {261};
    p.ca = {{0x0500, 300}};
    p.streams = {{257, stream_kind::video, "H.264", {}, false, false, 0x1B},
                 {258, stream_kind::audio, "AC-3", {"eng"}, true, true, 0x06, {0x000A}}};
    program without_pmt;
    without_pmt.program_number = 101;
    without_pmt.pmt_pid = 272;
    m.programs = {p, without_pmt};
    m.bouquets = {{9, name_of("Pack"), {{7, 1, {100, 0x19}}}}};
    return m;
}

// ---- JSON

TEST(JsonReport, HoldsEveryFieldOfTheSchema)
{
    const json told = json::parse(json_report(small_multiplex(), "file.ts", true));
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["input"], "file.ts");
    EXPECT_EQ(told["complete"], true);
    EXPECT_EQ(told["transport_stream_id"], 7);
    EXPECT_EQ(told["original_network_id"], 1);
    EXPECT_EQ(told["network_id"], 3);
    EXPECT_EQ(told["networks"], json::parse(R"([{
        "network_id": 3, "actual": true, "name": "Net", "name_raw": "4e6574",
        "transport_streams": [{
            "transport_stream_id": 7, "original_network_id": 1,
            "services": [{"service_id": 100, "service_type": 25},
                         {"service_id": 101, "service_type": 25}],
            "delivery": {"system": "DVB-T"},
            "lcn": [{"service_id": 100, "lcn": 5, "visible": true,
                     "private_data_specifier": 40, "specifier_sent": true, "channel_list_id": null},
                    {"service_id": 101, "lcn": 800, "visible": false,
                     "private_data_specifier": 40, "specifier_sent": false, "channel_list_id": null}],
            "channel_lists": [], "frequencies": [], "target_regions": []}],
        "names": [], "linkage": [], "target_regions": [], "target_region_names": []}])"));
    EXPECT_EQ(told["services"][0], json::parse(R"({
        "original_network_id": 1, "transport_stream_id": 7, "service_id": 100, "actual": true,
        "name": "News", "name_raw": "4e657773", "service_type": 25, "running_status": 4,
        "free_CA_mode": 1, "EIT_schedule_flag": 0, "EIT_present_following_flag": 1,
        "names": [], "service_availability": [], "data_broadcast": [], "linkage": [],
        "service_move": null, "target_regions": [], "reference_service_id": null,
        "NVOD_references": []})"));
    EXPECT_EQ(told["programs"][0], json::parse(R"({
        "program_number": 100, "PMT_PID": 256, "PCR_PID": 257, "video_PID": 257,
        "elementary_PIDs": [257, 258],
        "audio": [{"PID": 258, "has_lang": true, "is_ac3": false, "codec": "AC-3",
                   "languages": [{"language": "eng", "audio_type": 3}]}],
        "teletext_PIDs": [260], "subtitle_PIDs": [261],
        "CA": [{"CA_system_ID": 1280, "CA_PID": 300}],
        "streams": [{"PID": 257, "stream_type": 27, "kind": "video", "codec": "H.264",
                     "languages": [], "data_broadcast_id": []},
                    {"PID": 258, "stream_type": 6, "kind": "audio", "codec": "AC-3",
                     "languages": ["eng"], "data_broadcast_id": [10]}],
        "teletext": [{"PID": 260, "language": "eng", "teletext_type": 2,
                      "teletext_magazine_number": 0, "teletext_page_number": 136}],
        "subtitles": [{"PID": 261, "language": "deu", "subtitling_type": 16,
                       "composition_page_id": 1, "ancillary_page_id": 2}]})"));
    EXPECT_EQ(told["bouquets"], json::parse(R"([{
        "bouquet_id": 9, "name": "Pack", "name_raw": "5061636b",
        "services": [{"transport_stream_id": 7, "original_network_id": 1,
                      "service_id": 100, "service_type": 25}]}])"));
}

// Every kind of detail once.
multiplex detailed_multiplex()
{
    multiplex m = small_multiplex();
    network &net = m.networks[0];
    net.names = {{"deu", name_of("Netz")}};
    net.linkages = {{7, 1, 100, 0x09, {0x00015A}}};
    net.regions = {{"GBR", 2, 1, 2, 0}};
    net.region_names = {name_of("London")};
    transport_stream &stream = net.streams[0];
    stream.frequencies = {{3, 626000000}, {1, std::nullopt}};
    stream.regions = {{"IRL", 0}};
    stream.in_nit.lists = {{4, {}, "NOR", true}};
    stream.list_names = {name_of("Nord")};
    service &first = m.services[0];
    first.names = {{"fra", name_of("Nouvelles"), name_of("Quelqu'un")}};
    first.cells = {{17, true}, {18, false}};
    first.data_broadcasts = {{0x000A, 9, "eng"}};
    first.linkages = {{8, 2, 0, 0x55, {}}};
    first.moved_to = service_reference{9, 2, 900};
    first.regions = {{"GBR", 3, 1, 2, 300}};
    first.nvod_references = {{7, 1, 150}};
    service shifted;
    shifted.original_network_id = 1;
    shifted.transport_stream_id = 7;
    shifted.service_id = 150;
    shifted.actual = true;
    shifted.time_shifted_of = 100;
    m.services.push_back(shifted);
    m.updates = {{{3, {7, 1, 100, 0x09, {0x00015A}}, {300}}}, {300, 301}};
    return m;
}

TEST(JsonReport, TellsTheDescriptorsOfAService)
{
    const json told = json::parse(json_report(detailed_multiplex(), "-", true));
    const json &service = told["services"][0];
    EXPECT_EQ(service["names"], json::parse(R"([{
        "language": "fra", "name": "Nouvelles", "name_raw": "4e6f7576656c6c6573",
        "provider_name": "Quelqu'un", "provider_name_raw": "5175656c717527756e"}])"));
    EXPECT_EQ(service["service_availability"],
              json::parse(R"([{"cell_id": 17, "availability_flag": 1},
                              {"cell_id": 18, "availability_flag": 0}])"));
    EXPECT_EQ(service["data_broadcast"], json::parse(R"([{
        "data_broadcast_id": 10, "component_tag": 9, "language": "eng"}])"));
    EXPECT_EQ(service["linkage"], json::parse(R"([{
        "transport_stream_id": 8, "original_network_id": 2, "service_id": 0,
        "linkage_type": 85}])"));
    EXPECT_EQ(service["service_move"], json::parse(R"({
        "new_original_network_id": 2, "new_transport_stream_id": 9, "new_service_id": 900})"));
    EXPECT_EQ(service["target_regions"], json::parse(R"([{
        "country_code": "GBR", "region_depth": 3, "primary_region_code": 1,
        "secondary_region_code": 2, "tertiary_region_code": 300}])"));
    EXPECT_EQ(service["NVOD_references"], json::parse(R"([{
        "transport_stream_id": 7, "original_network_id": 1, "service_id": 150}])"));
    EXPECT_EQ(told["services"][3]["reference_service_id"], 100);
}

TEST(JsonReport, TellsTheDescriptorsOfANetwork)
{
    const json told = json::parse(json_report(detailed_multiplex(), "-", true));
    const json &network = told["networks"][0];
    EXPECT_EQ(network["names"],
              json::parse(R"([{"language": "deu", "name": "Netz", "name_raw": "4e65747a"}])"));
    EXPECT_EQ(network["linkage"], json::parse(R"([{
        "transport_stream_id": 7, "original_network_id": 1, "service_id": 100,
        "linkage_type": 9, "OUI": [346]}])"));
    EXPECT_EQ(network["target_regions"], json::parse(R"([{
        "country_code": "GBR", "region_depth": 2, "primary_region_code": 1,
        "secondary_region_code": 2, "tertiary_region_code": null}])"));
    EXPECT_EQ(network["target_region_names"],
              json::parse(R"([{"name": "London", "name_raw": "4c6f6e646f6e"}])"));
    const json &stream = network["transport_streams"][0];
    EXPECT_EQ(stream["frequencies"],
              json::parse(R"([{"coding_type": 3, "centre_frequency_Hz": 626000000},
                              {"coding_type": 1, "centre_frequency_Hz": null}])"));
    EXPECT_EQ(stream["channel_lists"], json::parse(R"([{
        "channel_list_id": 4, "country_code": "NOR", "name": "Nord", "name_raw": "4e6f7264"}])"));
    EXPECT_EQ(stream["target_regions"][0]["primary_region_code"], nullptr);
    EXPECT_EQ(told["software_update"], json::parse(R"({
        "services": [{"network_id": 3, "transport_stream_id": 7, "original_network_id": 1,
                      "service_id": 100, "OUI": [346], "PIDs": [300]}],
        "PIDs": [300, 301]})"));
}

TEST(TextReport, DetailsAreForTheVerbose)
{
    const std::string text = text_report(detailed_multiplex(), 1000, true);
    for (const char *expected :
         {"names deu \"Netz\"",
          "linkage software update: service 100 of transport stream 7, original network 1, "
          "OUI 00015A",
          "target regions GBR 1.2\n", "region names London", "frequencies 626 MHz, ? MHz",
          "target regions IRL\n", "channel list 4 \"Nord\" NOR",
          "names fra \"Nouvelles\" by \"Quelqu'un\"", "available in cells 17, not 18",
          "data broadcast software update, component 9, eng",
          "linkage 0x55: transport stream 8, original network 2\n",
          "moves to service 900 of transport stream 9, original network 2",
          "target regions GBR 1.2.300", "shifted in time by services 150 of transport stream 7",
          "audio 258 eng commentary for the blind", "teletext 260 eng subtitles 888",
          "subtitles 261 deu type 0x10, pages 1 and 2", "data broadcast 258 software update",
          "CA 0x0500 on 300"})
        EXPECT_THAT(text, HasSubstr(expected));
    EXPECT_THAT(text_report(detailed_multiplex(), 1000, false), Not(HasSubstr("Details")));
}

TEST(TextReport, SoftwareUpdatesAreForEverybody)
{
    EXPECT_THAT(text_report(detailed_multiplex(), 1000, false),
                HasSubstr("Software updates, streams on PIDs 300, 301\n"
                          "  Service  TS  ONID  PIDs  OUI\n"
                          "      100   7     1  300   00015A\n"));
    EXPECT_THAT(text_report(small_multiplex(), 1000, false), Not(HasSubstr("updates")));
}

TEST(TextReport, TimeShiftedServiceIsCalledAfterTheOneItRepeats)
{
    EXPECT_THAT(text_report(detailed_multiplex(), 1000, false),
                HasSubstr("150  NVOD shifted  free    -    (100 \"News\" at another time)\n"));
    multiplex m = detailed_multiplex();
    m.services[0].nvod_references.clear(); // some other service 100
    EXPECT_THAT(text_report(m, 1000, false), HasSubstr("(100 at another time)\n"));
}

TEST(JsonReport, WhatIsNotKnownIsNullAndListsAreNeverMissing)
{
    const json told = json::parse(json_report(multiplex{}, "-", false));
    EXPECT_EQ(told["complete"], false);
    for (const char *field : {"transport_stream_id", "original_network_id", "network_id"})
        EXPECT_TRUE(told[field].is_null()) << field;
    for (const char *field : {"networks", "services", "programs", "bouquets"})
        EXPECT_EQ(told[field], json::array()) << field;

    const json without_pmt = json::parse(json_report(small_multiplex(), "-", false))["programs"][1];
    EXPECT_TRUE(without_pmt["PCR_PID"].is_null());
    EXPECT_TRUE(without_pmt["video_PID"].is_null());
    EXPECT_EQ(without_pmt["elementary_PIDs"], json::array());
    EXPECT_EQ(without_pmt["audio"], json::array());
}

TEST(JsonReport, TextIsEscaped)
{
    multiplex m;
    m.services = {one_service(1, "a\"b\\c\x8A"
                                 "d")};
    const std::string text = json_report(m, "dir/\"x\".ts", true);
    const json told = json::parse(text);
    EXPECT_EQ(told["services"][0]["name"], "a\"b\\c\nd");
    EXPECT_EQ(told["services"][0]["name_raw"], "6122625c638a64");
    EXPECT_EQ(told["input"], "dir/\"x\".ts");
}

TEST(JsonReport, InputThatIsNotUtf8IsReplaced)
{
    EXPECT_EQ(json::parse(json_report(multiplex{}, "a\xFF.ts", true))["input"], "a\uFFFD.ts");
}

TEST(JsonReport, RawTextKeepsItsSelector)
{
    const label name = label_of({0x05, 'T', 0xFC}, "");
    EXPECT_EQ(name.raw, "0554fc");
    EXPECT_EQ(name.text, "Tü");
    EXPECT_EQ(label_of({}, "").raw, "");
}

// ---- tables for people

TEST(TextReport, ShowsWhatWasFound)
{
    const std::string text = text_report(small_multiplex(), 100, false);
    EXPECT_THAT(text, HasSubstr("Transport stream 7, original network 1, network 3\n"));
    EXPECT_THAT(text, HasSubstr("Network 3 \"Net\"\n"));
    EXPECT_THAT(text, HasSubstr("7     1         2  DVB-T 626 MHz"));
    EXPECT_THAT(text, HasSubstr("5  100  TV HD  CA      p/f  News\n"));
    EXPECT_THAT(text, HasSubstr("800 hidden  101"));
    EXPECT_THAT(text, HasSubstr("Services of transport stream 8, original network 1 (other)"));
    EXPECT_THAT(text, HasSubstr("257 H.264  258 AC-3 eng  0x0500"));
    EXPECT_THAT(text, HasSubstr("101  272  no PMT"));
    EXPECT_THAT(text, HasSubstr("Pack"));
}

TEST(TextReport, NothingFoundIsNoText)
{
    EXPECT_EQ(text_report(multiplex{}, 80, true), "");
}

TEST(TextReport, NumbersStandAsideOnlyWhereTheyAreSignalled)
{
    multiplex m = small_multiplex();
    EXPECT_THAT(text_report(m, 100, false), HasSubstr("LCN"));
    m.networks[0].streams[0].in_nit.numbers.clear();
    EXPECT_THAT(text_report(m, 100, false), Not(HasSubstr("LCN")));
}

TEST(TextReport, StaysWithinTheTerminal)
{
    multiplex m = detailed_multiplex();
    m.services.push_back(one_service(102, std::string(200, 'n')));
    m.services.push_back(one_service(103, "\x14" + std::string(240, '\x65')));
    m.networks[0].name = name_of(std::string(250, 'w'));
    for (int i = 0; i < 30; ++i)
        m.programs[0].streams.push_back({static_cast<std::uint16_t>(1000 + i),
                                         stream_kind::audio,
                                         "MPEG",
                                         {"eng"},
                                         true,
                                         false});
    for (const std::size_t width : {80u, 100u}) {
        std::istringstream lines{text_report(m, width, true)};
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(display_width(line), width) << line;
    }
}

TEST(TextReport, BroadcastTextCannotSteerTheTerminal)
{
    multiplex m = small_multiplex();
    m.services.push_back(one_service(102, "a\x1B[2J\x9B"
                                          "31m\x8A\x07z"));
    m.services[0].provider = one_line(dvb_text(std::vector<std::uint8_t>{'p', 0x1B, 'q', 0x8A}));
    const std::string text = text_report(m, 100, true);
    EXPECT_THAT(text, HasSubstr("a[2J31m z"));
    for (const char c : text)
        EXPECT_TRUE(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F));
}

TEST(TextReport, ProviderIsForTheVerbose)
{
    multiplex m = small_multiplex();
    m.services[0].provider = "Somebody";
    EXPECT_THAT(text_report(m, 100, true), HasSubstr("Somebody"));
    EXPECT_THAT(text_report(m, 100, false), Not(HasSubstr("Somebody")));
}

TEST(ServiceTypeName, UnknownTypesAreShownAsNumbers)
{
    EXPECT_EQ(service_type_name(0x01), "TV");
    EXPECT_EQ(service_type_name(0x02), "radio");
    EXPECT_EQ(service_type_name(0xFB), "0xFB");
    EXPECT_EQ(service_type_name(0x00), "0x00");
}

// ---- one program

TEST(KeepProgram, LeavesOnlyItsServiceAndProgram)
{
    multiplex m = small_multiplex();
    EXPECT_TRUE(keep_program(m, 101));
    ASSERT_EQ(m.services.size(), 1u);
    EXPECT_EQ(m.services[0].service_id, 101);
    ASSERT_EQ(m.programs.size(), 1u);
    EXPECT_EQ(m.programs[0].program_number, 101);
    ASSERT_EQ(m.networks.size(), 1u);
    ASSERT_EQ(m.networks[0].streams[0].services.size(), 1u);
    EXPECT_EQ(m.networks[0].streams[0].services[0].service_id, 101);
    ASSERT_EQ(m.networks[0].streams[0].in_nit.numbers.size(), 1u);
    EXPECT_TRUE(m.bouquets[0].services.empty());
}

TEST(KeepProgram, TellsThatThereIsNone)
{
    multiplex m = small_multiplex();
    EXPECT_FALSE(keep_program(m, 999));
    EXPECT_TRUE(m.services.empty());
    EXPECT_TRUE(m.programs.empty());
}

TEST(NumberOf, VisibleOneIsPreferred)
{
    multiplex m = small_multiplex();
    m.networks[0].streams[0].in_nit.numbers = {{100, 900, false}, {100, 5, true}};
    ASSERT_NE(number_of(m, m.services[0]), nullptr);
    EXPECT_EQ(number_of(m, m.services[0])->lcn, 5);
    EXPECT_EQ(number_of(m, m.services[2]), nullptr);
}

} // namespace
