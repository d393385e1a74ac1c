// SPDX-License-Identifier: LGPL-2.1-or-later
// Descriptors as a scan tells them, with the library, the demultiplexer and the platform behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "e2e/scanning.h"
#include "support/descriptors.h"

namespace {

using namespace test;
using testing::ElementsAre;

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

} // namespace
