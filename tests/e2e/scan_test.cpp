// SPDX-License-Identifier: LGPL-2.1-or-later
// The tool as its users run it, with the library, the demultiplexer and the platform behind it.
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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

std::vector<std::string> scan_command(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {ORVA_TOOL, "scan"});
    return arguments;
}

ended scan(std::vector<std::string> arguments)
{
    return process{scan_command(std::move(arguments))}.wait();
}

json scan_json(std::vector<std::string> arguments, int expected_status = 0)
{
    arguments.emplace_back("--json");
    const ended result = scan(std::move(arguments));
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

octets bytes_of(const std::string &path)
{
    const std::string all = contents(path);
    return {all.begin(), all.end()};
}

std::size_t lines(const std::string &text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

template <class Select>
std::vector<json> each(const json &list, Select select)
{
    std::vector<json> all;
    for (const json &item : list)
        all.push_back(select(item));
    return all;
}

// A multiplex of one service, complete, behind what is there already.
stream small_stream(stream made = {})
{
    made.section(0x00, make(pat{.ts = 7, .programs = {{.number = 100, .pid = 0x100}}}));
    made.section(0x100, make(pmt{.program = 100, .streams = {{.type = 0x02, .pid = 0x101}}}));
    made.section(0x10, make(nit{.network = 3,
                                .descriptors = {network_name("Net")},
                                .transports = {{.ts = 7, .original_network = 1}}}));
    made.section(
        0x11,
        make(sdt{.ts = 7,
                 .services = {{.id = 100, .descriptors = {service_descriptor(1, "P", "News")}}}}));
    return made;
}

// ---- what a scan prints

TEST(SampleScan, IsCompleteAndFast)
{
    const ended result = scan({"--json", sample()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
    EXPECT_LT(result.took, 3s);
#endif
    const json told = json::parse(result.out);
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["input"], sample());
    EXPECT_EQ(told["complete"], true);
    EXPECT_EQ(told["transport_stream_id"], 1001);
    EXPECT_EQ(told["original_network_id"], 0xFF01);
    EXPECT_EQ(told["network_id"], 0xFF01);
}

TEST(SampleScan, NamesComeOutOfEveryCharacterTable)
{
    const json told = scan_json({sample()});
    std::vector<json> actual;
    std::vector<json> other;
    for (const json &service : told["services"])
        (service["actual"] == true ? actual : other).push_back(service["name"]);
    EXPECT_THAT(actual, ElementsAre("Orva One HD", "Čtyřka", "Новости", "Ελλάδα", "Türkü FM",
                                    "新聞台", "한국 TV", "Österreich €", "Orva Ultra ★"));
    EXPECT_THAT(other, ElementsAre("Orva Two HD", "Orva Three HD", "Rádió"));
    EXPECT_EQ(told["services"][2]["name_raw"], "01bdded2dee1e2d8");
}

TEST(SampleScan, NetworksCarryDeliveryAndNumbers)
{
    const json told = scan_json({sample()});
    ASSERT_EQ(told["networks"].size(), 2u);
    for (const json &network : told["networks"])
        EXPECT_EQ(network["actual"], network["network_id"] == 0xFF01);
    const auto own = std::find_if(told["networks"].begin(), told["networks"].end(),
                                  [](const json &network) { return network["actual"] == true; });
    ASSERT_NE(own, told["networks"].end());
    EXPECT_EQ((*own)["name"], "Orva Sample");
    const json &streams = (*own)["transport_streams"];
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]["delivery"]["system"], "DVB-T");
    EXPECT_EQ(streams[0]["delivery"]["centre_frequency_Hz"], 626000000);
    EXPECT_EQ(streams[0]["services"].size(), 9u);
    EXPECT_THAT(each(streams[0]["lcn"], [](const json &entry) { return entry["lcn"]; }),
                ElementsAre(1, 2, 3, 4, 105, 6, 7, 8, 9));
    EXPECT_EQ(streams[1]["delivery"]["system"], "DVB-T2");
}

TEST(SampleScan, ProgramsCarryTheirStreams)
{
    const json told = scan_json({sample()});
    ASSERT_EQ(told["programs"].size(), 9u);
    const json &first = told["programs"][0];
    EXPECT_EQ(first["PMT_PID"], 256);
    EXPECT_EQ(first["PCR_PID"], 257);
    EXPECT_EQ(first["video_PID"], 257);
    EXPECT_EQ(first["elementary_PIDs"], json::parse("[257, 258, 259, 260, 261, 262]"));
    EXPECT_EQ(first["audio"], json::parse(R"([
        {"PID": 258, "has_lang": true, "is_ac3": false, "codec": "MPEG",
         "languages": [{"language": "eng", "audio_type": 0}]},
        {"PID": 259, "has_lang": true, "is_ac3": false, "codec": "MPEG",
         "languages": [{"language": "deu", "audio_type": 0}]},
        {"PID": 260, "has_lang": true, "is_ac3": true, "codec": "AC-3",
         "languages": [{"language": "eng", "audio_type": 0}]}])"));
    EXPECT_EQ(first["teletext_PIDs"], json::parse("[261]"));
    EXPECT_EQ(first["teletext"], json::parse(R"([
        {"PID": 261, "language": "eng", "teletext_type": 1, "teletext_magazine_number": 1,
         "teletext_page_number": 0},
        {"PID": 261, "language": "deu", "teletext_type": 2, "teletext_magazine_number": 0,
         "teletext_page_number": 136},
        {"PID": 261, "language": "eng", "teletext_type": 5, "teletext_magazine_number": 0,
         "teletext_page_number": 136}])"));
    EXPECT_EQ(first["subtitle_PIDs"], json::parse("[262]"));
    EXPECT_EQ(first["subtitles"], json::parse(R"([
        {"PID": 262, "language": "eng", "subtitling_type": 16, "composition_page_id": 1,
         "ancillary_page_id": 1},
        {"PID": 262, "language": "eng", "subtitling_type": 32, "composition_page_id": 2,
         "ancillary_page_id": 1}])"));
    EXPECT_EQ(first["CA"], json::array());
    EXPECT_EQ(first["streams"][0], json::parse(R"({
        "PID": 257, "stream_type": 27, "kind": "video", "codec": "H.264", "languages": [],
        "data_broadcast_id": []})"));
    EXPECT_EQ(told["programs"][4]["video_PID"], nullptr); // radio
    EXPECT_EQ(told["programs"][8]["video_PID"], 385);     // H.265
    EXPECT_EQ(told["programs"][8]["CA"], json::parse(R"([{"CA_system_ID": 9744, "CA_PID": 395}])"));
    EXPECT_EQ(told["bouquets"][0]["name"], "Orva Bouquet");
    EXPECT_EQ(told["bouquets"][0]["services"].size(), 12u);
}

TEST(SampleScan, NamesAndUpdatesAreTold)
{
    const json told = scan_json({sample()});
    const json &names = told["services"][0]["names"];
    EXPECT_THAT(each(names, [](const json &n) { return n["language"]; }),
                ElementsAre("eng", "deu", "fra"));
    EXPECT_THAT(each(names, [](const json &n) { return n["name"]; }),
                ElementsAre("Orva One HD", "Orva Eins HD", "Orva Un HD"));
    EXPECT_EQ(names[1]["provider_name"], "Orva");
    EXPECT_EQ(told["networks"][0]["names"][1], json::parse(R"({
        "language": "deu", "name": "Orva-Beispiel", "name_raw": "4f7276612d426569737069656c"})"));
    EXPECT_EQ(told["software_update"], json::parse(R"({
        "services": [{"network_id": 65281, "transport_stream_id": 1001,
                      "original_network_id": 65281, "service_id": 108, "OUI": [346],
                      "PIDs": [376]}],
        "PIDs": [376]})"));
}

TEST(SampleScan, TablesForPeopleAreNotWrappedIntoAPipe)
{
    const ended result = scan({"-v", sample()});
    EXPECT_EQ(result.status, 0);
    for (const char *expected :
         {"Transport stream 1001", "\"Orva Sample\"", "105  105  radio", "新聞台", "386 AC-3 eng",
          "Orva Bouquet",
          "names eng \"Orva One HD\" by \"Orva\", deu \"Orva Eins HD\" by \"Orva\", "
          "fra \"Orva Un HD\" by \"Orva\"\n",
          "linkage software update: service 108 of transport stream 1001, original network 65281, "
          "OUI 00015A\n"})
        EXPECT_THAT(result.out, HasSubstr(expected));
    EXPECT_THAT(result.err, HasSubstr("10000 packets of 188 bytes"));
}

TEST(SampleScan, OneProgramOnly)
{
    const json told = scan_json({sample(), "--program", "102"});
    EXPECT_THAT(each(told["services"], [](const json &s) { return s["service_id"]; }),
                ElementsAre(102));
    EXPECT_THAT(each(told["programs"], [](const json &p) { return p["program_number"]; }),
                ElementsAre(102));
}

TEST(SampleScan, ProgramThatIsNotThereIsAFailure)
{
    const ended result = scan({sample(), "--program", "999"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("no program or service 999"));
}

TEST(SampleScan, IsTheSameThroughAPipe)
{
    const int in = open(sample().c_str(), O_RDONLY | O_CLOEXEC);
    process cat{{"/bin/cat"}, in};
    close(in);
    const ended copy = cat.wait();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--json", "-"}), ends[0]};
    close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    for (std::size_t at = 0; at < copy.out.size();) {
        const ssize_t count = write(ends[1], copy.out.data() + at, copy.out.size() - at);
        ASSERT_GT(count, 0);
        at += static_cast<std::size_t>(count);
    }
    close(ends[1]);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    json piped = json::parse(result.out);
    json from_file = scan_json({sample()});
    piped.erase("input");
    from_file.erase("input");
    EXPECT_EQ(piped, from_file);
}

TEST(SampleScan, AtTheSpeedOfBroadcastItTakesItsTime)
{
    const json told = scan_json({sample(), "--realtime", "--for", "2"}, 5);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["transport_stream_id"], 1001);
}

TEST(Scan, LogOfTheLibraryGoesToStandardError)
{
    const ended result = scan({"--json", sample(), "--log-level", "4"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("start scan channel"));
    EXPECT_EQ(json::parse(result.out)["complete"], true);
}

TEST(Scan, TextWithoutSelectorIsReadInTheTableAskedFor)
{
    stream made = small_stream();
    made.section(
        0x11, make(sdt{.table_id = 0x46,
                       .ts = 8,
                       .services = {
                           {.id = 5, .descriptors = {service_descriptor(1, "", "T\xFCrk\xFE")}}}}));
    const std::string path = files().write("turkish.ts", made.bytes);
    const json told = scan_json({path, "--charset", "ISO-8859-9"});
    const auto names = each(told["services"], [](const json &s) { return s["name"]; });
    EXPECT_THAT(names, testing::Contains("Türkş"));
}

TEST(Scan, BroadcastTextCannotSteerTheTerminal)
{
    stream made = small_stream();
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .services = {{.id = 5,
                                              .descriptors = {service_descriptor(
                                                  1, "\x1B[1m", "a\x1B[2Jb\x07")}}}}));
    const ended result = scan({"-v", files().write("hostile.ts", made.bytes)});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("a[2Jb"));
    for (const char c : result.out)
        EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
}

TEST(Scan, StreamsOfSeveralNetworksMayShareAnId)
{
    stream made = small_stream();
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .original_network = 2,
                                .last_section_number = 1,
                                .services = {{.id = 5}}}));
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .original_network = 3,
                                .section_number = 1,
                                .last_section_number = 1,
                                .services = {{.id = 6}}}));
    const json told = scan_json({files().write("shared-id.ts", made.bytes)});
    std::vector<json> networks;
    for (const json &service : told["services"])
        if (service["transport_stream_id"] == 8)
            networks.push_back(service["original_network_id"]);
    EXPECT_THAT(networks, ElementsAre(2, 3));
}

TEST(Scan, StreamsStandInTheOrderOfTheirSections)
{
    const auto part = [](std::uint8_t number, std::uint16_t ts) {
        return make(nit{.network = 3,
                        .section_number = number,
                        .last_section_number = 1,
                        .transports = {{.ts = ts, .original_network = 1}}});
    };
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, part(1, 9));
    made.section(0x11, make(sdt{.ts = 7}));
    made.section(0x10, part(0, 7));
    const json told = scan_json({files().write("order.ts", made.bytes)});
    ASSERT_EQ(told["networks"].size(), 1u);
    EXPECT_THAT(each(told["networks"][0]["transport_streams"],
                     [](const json &t) { return t["transport_stream_id"]; }),
                ElementsAre(7, 9));
}

// ---- descriptors, as they go through the library

// A complete multiplex whose network, streams and services have these descriptors.
struct described {
    std::vector<octets> network{};
    std::vector<transport> transports{{.ts = 7}};
    std::vector<sdt_service> services{{.id = 100}};
};

json scan_described(const described &of, std::vector<std::string> options = {})
{
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10,
                 make(nit{.network = 3, .descriptors = of.network, .transports = of.transports}));
    made.section(0x11, make(sdt{.ts = 7, .services = of.services}));
    options.push_back(files().write("described.ts", made.bytes));
    return scan_json(std::move(options));
}

json streams_of(const json &told)
{
    return told["networks"].size() == 1 ? told["networks"][0]["transport_streams"] : json{};
}

TEST(NetworkDescriptors, EveryKindOfDeliveryIsTold)
{
    const json streams = streams_of(scan_described(
        {.transports = {{.ts = 1, .descriptors = {satellite({.polarisation = 1})}},
                        {.ts = 2, .descriptors = {cable()}},
                        {.ts = 3, .descriptors = {terrestrial()}},
                        {.ts = 4, .descriptors = {raw(0x7F, {0x04, 1, 0, 9})}},
                        {.ts = 5, .descriptors = {raw(0x7F, {0x0D, 1, 2, 0, 0, 0, 9, 0})}},
                        {.ts = 6}}}));
    EXPECT_THAT(each(streams, [](const json &s) { return s["delivery"].value("system", "none"); }),
                ElementsAre("DVB-S", "DVB-C", "DVB-T", "DVB-T2", "DVB-C2", "none"));
    EXPECT_EQ(streams[0]["delivery"]["frequency_Hz"], 11757250000);
    EXPECT_EQ(streams[0]["delivery"]["polarisation"], 1);
    EXPECT_EQ(streams[1]["delivery"]["frequency_Hz"], 312000000);
    EXPECT_EQ(streams[2]["delivery"]["centre_frequency_Hz"], 626000000);
}

TEST(NetworkDescriptors, StreamsOfOneIdKeepTheirOwnDelivery)
{
    const json streams = streams_of(scan_described(
        {.transports = {
             {.ts = 1, .original_network = 1, .descriptors = {cable({.frequency = 0x03120000})}},
             {.ts = 1, .original_network = 2},
             {.ts = 1,
              .original_network = 3,
              .descriptors = {cable({.frequency = 0x04740000})}}}}));
    EXPECT_THAT(each(streams, [](const json &s) { return s["delivery"].value("frequency_Hz", 0); }),
                ElementsAre(312000000, 0, 474000000));
}

TEST(NetworkDescriptors, FrequencyListsAreInHertz)
{
    const json streams = streams_of(scan_described(
        {.transports = {{.ts = 1, .descriptors = {frequency_list(3, {62600000, 47400000})}},
                        {.ts = 2, .descriptors = {frequency_list(1, {0x01175725})}}}}));
    EXPECT_THAT(
        each(streams[0]["frequencies"], [](const json &f) { return f["centre_frequency_Hz"]; }),
        ElementsAre(626000000, 474000000));
    EXPECT_EQ(streams[1]["frequencies"][0]["centre_frequency_Hz"], 11757250000);
}

TEST(NetworkDescriptors, NumbersStandUnderTheirSpecifier)
{
    const json streams = streams_of(scan_described(
        {.transports = {{.ts = 7,
                         .original_network = 1,
                         .descriptors = {private_data_specifier(0x28),
                                         logical_channels({{.service = 100, .number = 5}}),
                                         private_data_specifier(0x29),
                                         logical_channels({{.service = 100, .number = 0x0405}},
                                                          lcn_bits::fourteen)}},
                        {.ts = 8,
                         .original_network = 0x217C,
                         .descriptors = {logical_channels(
                             {{.service = 200, .visible = false, .number = 9}})}}}}));
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]["lcn"], json::parse(R"([
        {"service_id": 100, "lcn": 5, "visible": true, "private_data_specifier": 40,
         "specifier_sent": true, "channel_list_id": null},
        {"service_id": 100, "lcn": 1029, "visible": true, "private_data_specifier": 41,
         "specifier_sent": true, "channel_list_id": null}])"));
    EXPECT_EQ(streams[1]["lcn"], json::parse(R"([
        {"service_id": 200, "lcn": 9, "visible": false, "private_data_specifier": 40,
         "specifier_sent": false, "channel_list_id": null}])"));
}

TEST(NetworkDescriptors, SpecifierThatIsAskedForStandsForTheMissingOne)
{
    const described unspecified{
        .transports = {{.ts = 7,
                        .original_network = 0xFF01,
                        .descriptors = {logical_channels({{.service = 100, .number = 5}})}}}};
    EXPECT_EQ(streams_of(scan_described(unspecified))[0]["lcn"], json::array());
    const json asked = streams_of(scan_described(unspecified, {"--pds", "0x28"}))[0]["lcn"];
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0]["lcn"], 5);
}

TEST(NetworkDescriptors, NordicChannelListsKeepTheirNumbersApart)
{
    const json streams = streams_of(scan_described(
        {.transports = {
             {.ts = 7,
              .descriptors = {
                  private_data_specifier(0x29),
                  nordig_channels({{.id = 1,
                                    .name = "Nord",
                                    .country = "nor",
                                    .channels = {{.service = 100, .number = 7}}},
                                   {.id = 2,
                                    .name = "S\xC8oder",
                                    .country = "swe",
                                    .channels = {{.service = 100, .number = 900}}}})}}}}));
    EXPECT_EQ(streams[0]["channel_lists"], json::parse(R"([
        {"channel_list_id": 1, "country_code": "nor", "name": "Nord", "name_raw": "4e6f7264"},
        {"channel_list_id": 2, "country_code": "swe", "name": "Söder",
         "name_raw": "53c86f646572"}])"));
    EXPECT_THAT(each(streams[0]["lcn"], [](const json &n) { return n["channel_list_id"]; }),
                ElementsAre(1, 2));
    EXPECT_THAT(each(streams[0]["lcn"], [](const json &n) { return n["lcn"]; }),
                ElementsAre(7, 900));
}

TEST(NetworkDescriptors, LinkageNamesAndRegions)
{
    const json told = scan_described(
        {.network = {network_name("Net"),
                     multilingual_network_name({{"eng", "Net"}, {"deu", "Netz"}}),
                     linkage({.ts = 7,
                              .original_network = 1,
                              .service = 100,
                              .type = 0x09,
                              .data = software_update_data({{.oui = 0xABCDEF}})}),
                     target_region("GBR", {{.depth = 2, .primary = 1, .secondary = 2}}),
                     target_region_name("GBR", "eng", {{.name = "London"}})},
         .transports = {
             {.ts = 7,
              .descriptors = {linkage({.ts = 8, .service = 0, .type = 0x04}),
                              target_region("GBR", {{.country = "IRL", .depth = 0}})}}}});
    ASSERT_EQ(told["networks"].size(), 1u);
    const json &network = told["networks"][0];
    EXPECT_THAT(each(network["names"], [](const json &n) { return n["language"]; }),
                ElementsAre("eng", "deu"));
    EXPECT_EQ(network["names"][1]["name"], "Netz");
    EXPECT_EQ(network["linkage"], json::parse(R"([
        {"transport_stream_id": 7, "original_network_id": 1, "service_id": 100,
         "linkage_type": 9, "OUI": [11259375]},
        {"transport_stream_id": 8, "original_network_id": 1, "service_id": 0,
         "linkage_type": 4}])"));
    EXPECT_EQ(network["target_regions"][0]["secondary_region_code"], 2);
    EXPECT_EQ(network["target_region_names"][0]["name"], "London");
    EXPECT_EQ(network["transport_streams"][0]["target_regions"][0]["country_code"], "IRL");
    EXPECT_EQ(told["software_update"]["services"][0]["service_id"], 100);
}

TEST(ServiceDescriptors, AreTold)
{
    const json told = scan_described(
        {.services = {
             {.id = 100,
              .descriptors =
                  {service_descriptor(1, "P", "News"),
                   multilingual_service_name({{"fra", "Qui", "Nouvelles"}}),
                   service_availability(false, {17, 18}),
                   data_broadcast({.id = 5, .component_tag = 9}), service_move(2, 9, 900),
                   linkage({.ts = 8, .original_network = 2, .service = 5}),
                   linkage({.ts = 9, .original_network = 2, .service = 6}),
                   target_region("GBR",
                                 {{.depth = 3, .primary = 1, .secondary = 2, .tertiary = 300}})}},
             {.id = 101}}});
    ASSERT_EQ(told["services"].size(), 2u);
    const json &service = told["services"][0];
    EXPECT_EQ(service["names"][0]["name"], "Nouvelles");
    EXPECT_EQ(service["names"][0]["provider_name"], "Qui");
    EXPECT_EQ(service["service_availability"],
              json::parse(R"([{"cell_id": 17, "availability_flag": 0},
                              {"cell_id": 18, "availability_flag": 0}])"));
    EXPECT_EQ(service["data_broadcast"], json::parse(R"([{
        "data_broadcast_id": 5, "component_tag": 9, "language": "eng"}])"));
    EXPECT_EQ(service["service_move"], json::parse(R"({
        "new_original_network_id": 2, "new_transport_stream_id": 9, "new_service_id": 900})"));
    EXPECT_THAT(each(service["linkage"], [](const json &l) { return l["service_id"]; }),
                ElementsAre(5, 6));
    EXPECT_EQ(service["target_regions"][0]["tertiary_region_code"], 300);
    EXPECT_EQ(told["services"][1]["names"], json::array());
    EXPECT_EQ(told["services"][1]["service_move"], nullptr);
}

// More services than a broadcast has, of one transport stream.
stream stream_of_many(std::uint16_t total)
{
    constexpr std::uint16_t in_section = 40;
    const auto last = static_cast<std::uint8_t>((total - 1) / in_section);
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, make(nit{.network = 3, .transports = {{.ts = 7}}}));
    for (std::uint16_t first = 0; first < total; first += in_section) {
        sdt part{.ts = 7,
                 .section_number = static_cast<std::uint8_t>(first / in_section),
                 .last_section_number = last};
        for (std::uint16_t id = first; id < std::min<int>(first + in_section, total); ++id)
            part.services.push_back(
                {.id = id,
                 .eit_schedule = id % 2 != 0,
                 .eit_present_following = id % 3 != 0,
                 .running_status = static_cast<std::uint8_t>(id % 5),
                 .free_ca_mode = id % 7 != 0,
                 .descriptors = {service_descriptor(static_cast<std::uint8_t>(id), "P",
                                                    "S" + std::to_string(id))}});
        made.section(0x11, make(part));
    }
    return made;
}

void expect_services(const json &told, std::uint16_t total)
{
    ASSERT_EQ(told["services"].size(), total);
    for (std::uint16_t id = 0; id < total; ++id) {
        const json &service = told["services"][id];
        EXPECT_EQ(service["service_id"], id);
        EXPECT_EQ(service["actual"], true);
        EXPECT_EQ(service["name"], "S" + std::to_string(id));
        EXPECT_EQ(service["service_type"], id % 256);
        EXPECT_EQ(service["EIT_schedule_flag"], id % 2 != 0 ? 1 : 0);
        EXPECT_EQ(service["EIT_present_following_flag"], id % 3 != 0 ? 1 : 0);
        EXPECT_EQ(service["running_status"], id % 5);
        EXPECT_EQ(service["free_CA_mode"], id % 7 != 0 ? 1 : 0);
    }
}

TEST(ManyServices, AreToldLikeFew)
{
    for (const std::uint16_t total : {std::uint16_t{200}, std::uint16_t{2000}}) {
        const std::string path = files().write("many.ts", stream_of_many(total).bytes);
        expect_services(scan_json({path}), total);
    }
}

// ---- inputs that are not as they should be

// One line that names the input, nothing on standard output.
void expect_refusal(const ended &result, int status, const std::string &says)
{
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_THAT(result.err, HasSubstr(says));
}

TEST(BadInput, MissingFile)
{
    expect_refusal(scan({files().path("no-such.ts")}), 3, "no-such.ts: No such file");
}

TEST(BadInput, EmptyFile)
{
    expect_refusal(scan({files().write("empty.ts", {})}), 3, "empty");
}

TEST(BadInput, Directory)
{
    expect_refusal(scan({files().path(".")}), 3, "directory");
}

TEST(BadInput, NoTransportStream)
{
    octets noise(20000);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<std::uint8_t>(i * i >> 3);
    const std::string path = files().write("noise.ts", noise);
    expect_refusal(scan({path}), 3, "not a transport stream");
    expect_refusal(scan({path, "--json"}), 3, "not a transport stream");
}

TEST(BadInput, PipeThatIsNoTransportStream)
{
    const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    process tool{scan_command({"-"}), zero};
    close(zero);
    expect_refusal(tool.wait(), 3, "standard input: the input is not a transport stream");
}

TEST(BadInput, EmptyPipe)
{
    expect_refusal(scan({"-"}), 3, "standard input: the input is empty");
}

TEST(BadInput, FileCutInAPacketIsReadToItsEnd)
{
    octets all = bytes_of(sample());
    all.resize(188 * 6000 + 77);
    const json told = scan_json({files().write("cut.ts", all)});
    EXPECT_EQ(told["services"].size(), 12u);
}

TEST(BadInput, StreamWithoutSectionsEndsAtOnce)
{
    stream made;
    for (int i = 0; i < 500; ++i)
        made.packet(0x1FFF, {});
    const std::string path = files().write("null-packets.ts", made.bytes);
    const ended result = scan({path});
    expect_refusal(result, 4, "no sections");
    EXPECT_LT(result.took, 5s); // the library alone would wait for more than ten
    const json told = scan_json({path}, 4);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"], json::array());
}

TEST(BadInput, StreamOfOtherSectionsHasNone)
{
    stream made;
    for (int i = 0; i < 5; ++i)
        made.section(0x12, make(eit{})).section(0x14, make(tdt{}));
    const ended result = scan({files().write("events.ts", made.bytes)});
    expect_refusal(result, 4, "no sections");
    EXPECT_LT(result.took, 5s);
}

TEST(BadInput, TableThatNeverCompletesIsPartial)
{
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, make(nit{.network = 3}));
    made.section(0x10, make(nit{.table_id = 0x41, .network = 4, .last_section_number = 1}));
    made.section(0x11, make(sdt{.ts = 7, .services = {{.id = 100}}}));
    const ended result = scan({"--json", files().write("partial.ts", made.bytes)});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_THAT(result.err, HasSubstr("incomplete: other NITs"));
    EXPECT_LT(result.took, 10s); // the library alone would wait for half a minute
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"].size(), 1u);
    EXPECT_EQ(told["networks"].size(), 1u);
}

TEST(BadInput, DamagedSectionsAreNotPrinted)
{
    stream made;
    made.section(0x00, damage(make(pat{.ts = 9})));
    made.section(0x11, damage(make(sdt{.ts = 9, .services = {{.id = 900}}})));
    made = small_stream(std::move(made));
    const json told = scan_json({files().write("damaged.ts", made.bytes)});
    EXPECT_EQ(told["transport_stream_id"], 7);
    EXPECT_EQ(told["services"].size(), 1u);
}

// Writes a file into a pipe again and again, until its reader has gone or it is told to stop.
class endless_pipe {
public:
    explicit endless_pipe(octets repeated)
    {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        writer = std::thread{[this, all = std::move(repeated)] {
            while (!stopped)
                for (std::size_t at = 0; at < all.size();) {
                    const ssize_t count = write(ends[1], all.data() + at, all.size() - at);
                    if (count <= 0)
                        return;
                    at += static_cast<std::size_t>(count);
                }
        }};
    }
    ~endless_pipe()
    {
        stopped = true;
        close_reading_end();
        writer.join();
        close(ends[1]);
    }
    endless_pipe(const endless_pipe &) = delete;
    endless_pipe &operator=(const endless_pipe &) = delete;

    int reading_end() const { return ends[0]; }
    void close_reading_end()
    {
        if (ends[0] >= 0)
            close(ends[0]);
        ends[0] = -1;
    }

private:
    int ends[2] = {-1, -1};
    std::atomic<bool> stopped = false;
    std::thread writer;
};

TEST(EndlessPipe, IsScannedLikeABroadcast)
{
    endless_pipe input{bytes_of(sample())};
    process tool{scan_command({"--json", "-"}), input.reading_end()};
    input.close_reading_end();
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(json::parse(result.out)["services"].size(), 12u);
}

TEST(EndlessPipe, EndsWhenTheTimeIsOver)
{
    endless_pipe input{bytes_of(sample())};
    process tool{scan_command({"--json", "--for", "1", "-"}), input.reading_end()};
    input.close_reading_end();
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_GE(result.took, 1s);
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["transport_stream_id"], 1001);
}

TEST(EndlessPipe, ThatIsSilentEndsWhenTheTimeIsOver)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--for", "1", "-"}), ends[0]};
    close(ends[0]);
    const ended result = tool.wait();
    close(ends[1]);
    expect_refusal(result, 4, "nothing came");
    EXPECT_LT(result.took, 8s);
}

// ---- signals and output

// Without a NIT the library waits for ten seconds: time enough to be interrupted.
std::string stream_without_nit()
{
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x11, make(sdt{.ts = 7, .services = {{.id = 100}}}));
    return files().write("no-nit.ts", made.bytes);
}

void expect_interrupted(int number)
{
    process tool{scan_command({"--json", stream_without_nit()})};
    std::this_thread::sleep_for(2s);
    tool.signal(number);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 128 + number);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_LT(result.took, 8s);
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"].size(), 1u);
}

TEST(Signals, InterruptPrintsWhatCame)
{
    expect_interrupted(SIGINT);
}

TEST(Signals, TerminationPrintsWhatCame)
{
    expect_interrupted(SIGTERM);
}

TEST(Signals, SecondOneEndsAtOnce)
{
    // The tool opens the pipe when it handles signals; then its scan waits for half a second.
    const std::string path = files().path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    process tool{scan_command({path})};
    const int out = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    tool.signal(SIGINT);
    std::this_thread::sleep_for(20ms); // two of a kind that come together are one
    tool.signal(SIGINT);
    const ended result = tool.wait();
    close(out);
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_EQ(result.out, "");
}

// The tool has filled a pipe that nobody reads when the signal comes.
TEST(Signals, OneThatComesWhileResultsArePrintedCounts)
{
    const std::string path = files().write("many.ts", stream_of_many(2000).bytes);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--json", path}), -1, ends[1]};
    close(ends[1]);
    char first = 0;
    ASSERT_EQ(read(ends[0], &first, 1), 1);
    tool.signal(SIGINT);
    std::string rest;
    char part[4096];
    for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;)
        rest.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    EXPECT_EQ(tool.wait().status, 128 + SIGINT);
    EXPECT_EQ(json::parse(first + rest)["services"].size(), 2000u);
}

TEST(Output, ReaderThatHasGoneIsNoFailure)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    process tool{scan_command({sample()}), -1, ends[1]};
    close(ends[1]);
    EXPECT_EQ(tool.wait().status, 0);
}

TEST(Output, FullDeviceIsAFailure)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    process tool{scan_command({sample()}), -1, full};
    close(full);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("No space left"));
}

TEST(Output, NothingButResultsWithoutATerminal)
{
    const ended result = scan({files().write("small.ts", small_stream().bytes)});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, Not(HasSubstr("\033")));
    EXPECT_THAT(result.out, HasSubstr("News"));
}

TEST(Usage, ErrorsLeaveTheRightStatus)
{
    EXPECT_EQ(scan({}).status, 2);
    EXPECT_EQ(scan({"--bogus", "x.ts"}).status, 2);
    EXPECT_EQ(scan({"udp://@239.0.0.1:1234"}).status, 2);
    EXPECT_EQ(process({ORVA_TOOL}).wait().status, 2);
    const ended help = scan({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--realtime"));
    EXPECT_EQ(help.err, "");
}

} // namespace
