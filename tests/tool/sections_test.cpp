// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "sections.h"
#include "support/descriptors.h"
#include "support/sections.h"

namespace {

using namespace test;

// ---- networks

TEST(NetworkStreams, AreReadInBroadcastOrder)
{
    const octets section = make(
        nit{.network = 3,
            .transports = {{.ts = 9, .original_network = 2}, {.ts = 7, .original_network = 1}}});
    const auto streams = tool::read_network(section).streams;
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0].transport_stream_id, 9);
    EXPECT_EQ(streams[0].original_network_id, 2);
    EXPECT_EQ(streams[1].transport_stream_id, 7);
    EXPECT_FALSE(streams[1].delivered.has_value());
}

TEST(NetworkStreams, SayWhichDescriptorsTheyCarry)
{
    const octets section = make(nit{
        .descriptors = {network_name("Net"), target_region("GBR", {})},
        .transports = {{.descriptors = {terrestrial(), target_region_name("GBR", "eng", {})}}}});
    const auto read = tool::read_network(section);
    ASSERT_EQ(read.streams.size(), 1u);
    EXPECT_TRUE(read.carries.has(tool::target_region_extension));
    EXPECT_FALSE(read.carries.has(tool::terrestrial_delivery_tag));
    EXPECT_TRUE(read.streams[0].carries.has(tool::terrestrial_delivery_tag));
    EXPECT_TRUE(read.streams[0].carries.has(tool::target_region_name_extension));
    EXPECT_FALSE(read.streams[0].carries.has(tool::target_region_extension));
}

TEST(Linkages, StandInTheFirstLoopAndInThatOfAStream)
{
    const octets section = make(nit{
        .descriptors = {linkage({.ts = 7,
                                 .original_network = 2,
                                 .service = 5,
                                 .type = 0x09,
                                 .data = software_update_data(
                                     {{.oui = 0x00015A}, {.oui = 0xABCDEF, .selector = {1}}})})},
        .transports = {{.descriptors = {linkage({.service = 6, .type = 0x02})}}}});
    const auto read = tool::read_network(section);
    ASSERT_EQ(read.linkages.size(), 1u);
    EXPECT_EQ(read.linkages[0].transport_stream_id, 7);
    EXPECT_EQ(read.linkages[0].original_network_id, 2);
    EXPECT_EQ(read.linkages[0].service_id, 5);
    EXPECT_EQ(read.linkages[0].ouis, (std::vector<std::uint32_t>{0x00015A, 0xABCDEF}));
    ASSERT_EQ(read.streams[0].linkages.size(), 1u);
    EXPECT_EQ(read.streams[0].linkages[0].linkage_type, 0x02);
}

// ---- delivery

std::optional<tool::delivery> extended(std::vector<octets> descriptors)
{
    const octets section = make(nit{.transports = {{.descriptors = std::move(descriptors)}}});
    const auto streams = tool::read_network(section).streams;
    return streams.size() == 1 ? streams[0].delivered : std::nullopt;
}

// 11.75725 GHz vertical, 19.2 degrees east, DVB-S2, 27.5 Msymbol/s, 3/4 (EN 300 468, 6.2.13.2).
constexpr SiSatelliteDelivery satellite_record{.transport_stream_id = 7,
                                               .frequency = 0x01175725,
                                               .orbital_position = 0x0192,
                                               .west_east_flag = 1,
                                               .polarisation = 1,
                                               .modulation_system = 1,
                                               .roll_off = 0,
                                               .modulation_type = 2,
                                               .symbol_rate = 0x0275000,
                                               .FEC_inner = 3};

TEST(Delivery, Satellite)
{
    const auto told = tool::delivery_of(satellite_record);
    EXPECT_EQ(told.summary, "DVB-S2 11757.25 MHz V 27.5 MS/s 3/4 19.2E");
    EXPECT_EQ(told.fields["frequency_Hz"], 11757250000u);
    EXPECT_EQ(told.fields["symbol_rate"], 27500000);
    EXPECT_EQ(told.fields["modulation_type"], 2);
    EXPECT_EQ(told.fields["west_east_flag"], 1);
}

TEST(Delivery, ImpossibleDigitsAreNoNumber)
{
    SiSatelliteDelivery coded = satellite_record;
    coded.frequency = 0x0117572A;
    coded.orbital_position = 0xF192;
    coded.symbol_rate = 0x027500B;
    const auto told = tool::delivery_of(coded);
    EXPECT_EQ(told.summary, "DVB-S2 ? MHz V ? MS/s 3/4 ?E");
    for (const char *field : {"frequency_Hz", "orbital_position", "symbol_rate"})
        EXPECT_TRUE(told.fields[field].is_null()) << field;
}

// 312 MHz, 64-QAM, 6.875 Msymbol/s (6.2.13.1).
TEST(Delivery, Cable)
{
    const auto told = tool::delivery_of(SiCableDelivery{.transport_stream_id = 7,
                                                        .frequency = 0x03120000,
                                                        .FEC_outer = 2,
                                                        .modulation = 3,
                                                        .symbol_rate = 0x0068750,
                                                        .FEC_inner = 15});
    EXPECT_EQ(told.summary, "DVB-C 312 MHz 64-QAM 6.875 MS/s");
    EXPECT_EQ(told.fields["frequency_Hz"], 312000000);
    EXPECT_EQ(told.fields["FEC_outer"], 2);
}

// 8 MHz wide, 64-QAM 3/4, 1/8, 8k (6.2.13.4).
SiTerrDelivery terrestrial_record(std::uint32_t centre_frequency)
{
    SiTerrDelivery coded{};
    coded.centre_frequency = centre_frequency;
    coded.constellation = 2;
    coded.code_rate_hp_stream = 2;
    coded.guard_interval = 2;
    coded.transmission_mode = 1;
    return coded;
}

TEST(Delivery, Terrestrial)
{
    const auto told = tool::delivery_of(terrestrial_record(62600000));
    EXPECT_EQ(told.summary, "DVB-T 626 MHz 8 MHz 64-QAM 3/4");
    EXPECT_EQ(told.fields["centre_frequency_Hz"], 626000000);
    EXPECT_EQ(told.fields["guard_interval"], 2);
    EXPECT_EQ(told.fields["transmission_mode"], 1);
}

TEST(Delivery, TerrestrialOnSeveralFrequencies)
{
    const auto told = tool::delivery_of(terrestrial_record(0xFFFFFFFF));
    EXPECT_EQ(told.summary, "DVB-T several frequencies 8 MHz 64-QAM 3/4");
    EXPECT_TRUE(told.fields["centre_frequency_Hz"].is_null());
}

TEST(Delivery, LessThanAMegahertzIsNoFrequency)
{
    EXPECT_EQ(tool::delivery_of(terrestrial_record(0)).summary,
              "DVB-T frequency not given 8 MHz 64-QAM 3/4");
    EXPECT_EQ(tool::delivery_of(terrestrial_record(99999)).summary,
              "DVB-T frequency not given 8 MHz 64-QAM 3/4");
    EXPECT_EQ(tool::delivery_of(terrestrial_record(100000)).summary,
              "DVB-T 1 MHz 8 MHz 64-QAM 3/4");
}

// One cell on 658 MHz, and one of time-frequency slicing on two (6.4.6.3).
TEST(Delivery, SecondTerrestrial)
{
    const auto told = extended({raw(
        0x7F, {0x04, 0x02, 0x80, 0x01, 0x03, 0x34, 0x00, 0x01, 0x03, 0xEC, 0x07, 0x40, 0x00})});
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(told->summary, "DVB-T2 658 MHz 8 MHz PLP 2");
    EXPECT_EQ(told->fields["T2_system_id"], 0x8001);
    EXPECT_EQ(told->fields["cells"][0]["cell_id"], 1);

    const auto sliced =
        extended({raw(0x7F, {0x04, 0x00, 0x00, 0x01, 0x03, 0x35, 0x00, 0x01, 0x08, 0x03, 0xEC, 0x07,
                             0x40, 0x03, 0xF8, 0x3C, 0x40, 0x00})});
    ASSERT_TRUE(sliced.has_value());
    EXPECT_EQ(sliced->fields["cells"][0]["centre_frequency_Hz"],
              (nlohmann::ordered_json{658000000, 666000000}));
}

// Data slice 3 on 474 MHz, tuning type 1, symbol duration 1, guard interval 1 (6.4.6.1).
TEST(Delivery, SecondCable)
{
    const auto told = extended({raw(0x7F, {0x0D, 0x05, 0x03, 0x1C, 0x40, 0xAA, 0x80, 0x49})});
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(told->summary, "DVB-C2 474 MHz slice 3 PLP 5");
    EXPECT_EQ(told->fields["C2_System_tuning_frequency_type"], 1);
    EXPECT_EQ(told->fields["active_OFDM_symbol_duration"], 1);
    EXPECT_EQ(told->fields["guard_interval"], 1);
}

TEST(Delivery, ShortDescriptorsAreNone)
{
    EXPECT_FALSE(extended({raw(0x7F, {})}).has_value());
    EXPECT_FALSE(extended({raw(0x7F, {0x04})}).has_value());
    EXPECT_FALSE(extended({raw(0x7F, {0x0D, 0, 0, 0})}).has_value());
    const auto told = extended({raw(0x7F, {0x04, 0x02, 0x80, 0x01})});
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(told->summary, "DVB-T2 PLP 2");
}

// An input stream with its scrambling sequence, and one that has neither (6.2.13.3).
TEST(Delivery, InputStreamOfSecondSatelliteGeneration)
{
    const auto read = tool::read_input_stream(octets{0xFF, 0xFE, 0x12, 0x34, 0x07});
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->scrambling_sequence_index, 0x21234u);
    EXPECT_EQ(read->input_stream_identifier, 7);
    auto told = tool::delivery_of(satellite_record);
    tool::add_input_stream(told, *read);
    EXPECT_EQ(told.fields["input_stream_identifier"], 7);
    EXPECT_TRUE(told.summary.ends_with("19.2E ISI 7"));

    const auto none = tool::read_input_stream(octets{0x3F});
    ASSERT_TRUE(none.has_value());
    EXPECT_FALSE(none->scrambling_sequence_index || none->input_stream_identifier);
    EXPECT_FALSE(tool::read_input_stream(octets{0xFF, 0xFE}).has_value());
}

TEST(ListedFrequency, IsCodedByTheKindOfDelivery)
{
    EXPECT_EQ(tool::listed_frequency(1, 0x01175725), 11757250000u);
    EXPECT_EQ(tool::listed_frequency(2, 0x03120000), 312000000u);
    EXPECT_EQ(tool::listed_frequency(3, 62600000), 626000000u);
    EXPECT_EQ(tool::listed_frequency(0, 62600000), std::nullopt);
    EXPECT_EQ(tool::listed_frequency(1, 0x0117572A), std::nullopt);
}

TEST(FrequencyLists, KeepTheirCodingType)
{
    const octets section =
        make(nit{.transports = {{.descriptors = {frequency_list(3, {62600000, 65800000}),
                                                 raw(0x62, {0xFF, 1, 2, 3})}}}});
    const auto streams = tool::read_network(section).streams;
    ASSERT_EQ(streams[0].frequencies.size(), 1u); // the other is cut in a frequency
    EXPECT_EQ(streams[0].frequencies[0].coding_type, 3);
    EXPECT_EQ(streams[0].frequencies[0].frequencies,
              (std::vector<std::uint32_t>{62600000, 65800000}));
}

// ---- logical channel numbers

tool::network_stream stream_with(std::vector<octets> descriptors, std::uint16_t onid = 1,
                                 std::optional<std::uint32_t> specifier = std::nullopt)
{
    const octets section = make(
        nit{.transports = {{.original_network = onid, .descriptors = std::move(descriptors)}}});
    const auto streams = tool::read_network(section, specifier).streams;
    return streams.empty() ? tool::network_stream{} : streams[0];
}

TEST(ChannelNumbers, HaveTenBits)
{
    const auto numbers =
        stream_with({private_data_specifier(0x28),
                     logical_channels({{.service = 0x0101, .number = 5},
                                       {.service = 0x0102, .visible = false, .number = 6}})})
            .numbers;
    ASSERT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers[0].service_id, 0x0101);
    EXPECT_EQ(numbers[0].lcn, 5);
    EXPECT_EQ(numbers[0].specifier, 0x28u);
    EXPECT_TRUE(numbers[0].visible && numbers[0].sent);
    EXPECT_EQ(numbers[1].lcn, 6);
    EXPECT_FALSE(numbers[1].visible);
}

TEST(ChannelNumbers, HaveFourteenBitsUnderTheNordicSpecifier)
{
    const auto numbers = stream_with({private_data_specifier(0x29),
                                      logical_channels({{.number = 0x0405}}, lcn_bits::fourteen)})
                             .numbers;
    ASSERT_EQ(numbers.size(), 1u);
    EXPECT_EQ(numbers[0].lcn, 0x0405);
}

TEST(ChannelNumbers, CountUnderTheSpecifierThatPrecedesThem)
{
    const auto numbers =
        stream_with({private_data_specifier(0x28), logical_channels({{.number = 5}}),
                     private_data_specifier(0x29),
                     logical_channels({{.number = 0x0405}}, lcn_bits::fourteen)})
            .numbers;
    ASSERT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers[0].specifier, 0x28u);
    EXPECT_EQ(numbers[1].specifier, 0x29u);
    EXPECT_EQ(numbers[1].lcn, 0x0405);
}

// 0x2000 and the country's number of ISO 3166-1: Italy 380, Norway 578, United Kingdom 826.
TEST(ChannelNumbers, WithoutASpecifierCountUnderTheUsualOneOfTheCountry)
{
    const octets ten = logical_channels({{.number = 5}});
    const auto italian = stream_with({ten}, 0x2000 + 380).numbers;
    ASSERT_EQ(italian.size(), 1u);
    EXPECT_EQ(italian[0].specifier, 0x28u);
    EXPECT_EQ(italian[0].lcn, 5);
    EXPECT_FALSE(italian[0].sent);
    const auto norwegian =
        stream_with({logical_channels({{.number = 0x0405}}, lcn_bits::fourteen)}, 0x2000 + 578)
            .numbers;
    ASSERT_EQ(norwegian.size(), 1u);
    EXPECT_EQ(norwegian[0].specifier, 0x29u);
    EXPECT_EQ(norwegian[0].lcn, 0x0405);
    const auto british = stream_with({ten}, 0x2000 + 826).numbers;
    ASSERT_EQ(british.size(), 1u);
    EXPECT_EQ(british[0].specifier, 0x233Au);
}

TEST(ChannelNumbers, WithoutASpecifierCountOnlyWhereOneIsUsualOrAsked)
{
    const octets ten = logical_channels({{.number = 5}});
    EXPECT_TRUE(stream_with({ten}, 0xFF01).numbers.empty());
    const auto asked = stream_with({ten}, 0xFF01, 0x28).numbers;
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].specifier, 0x28u);
    // What is asked for replaces what is usual, and not what is sent.
    EXPECT_EQ(stream_with({ten}, 0x2000 + 578, 0x28).numbers[0].specifier, 0x28u);
    EXPECT_EQ(stream_with({private_data_specifier(5), ten}, 1, 0x28).numbers[0].specifier, 5u);
    EXPECT_TRUE(stream_with({private_data_specifier(0), ten}, 0x2000 + 380).numbers.empty());
}

TEST(ChannelNumbers, EntryThatIsCutIsLeftOut)
{
    EXPECT_EQ(stream_with({private_data_specifier(0x28),
                           raw(0x83, {0x01, 0x01, 0xFC, 0x05, 0x01, 0x02, 0xFC})})
                  .numbers.size(),
              1u);
}

TEST(ChannelLists, AreReadUnderTheNordicSpecifierOnly)
{
    const octets lists = nordig_channels(
        {{.id = 1, .name = "Nord", .country = "nor", .channels = {{.service = 5, .number = 7}}},
         {.id = 2, .name = "Syd", .country = "swe", .channels = {{.service = 5, .number = 900}}}});
    const auto read = stream_with({private_data_specifier(0x29), lists});
    ASSERT_EQ(read.lists.size(), 2u);
    EXPECT_EQ(read.lists[1].id, 2);
    EXPECT_EQ(read.lists[1].country, "swe");
    EXPECT_EQ((std::string{read.lists[1].name.begin(), read.lists[1].name.end()}), "Syd");
    ASSERT_EQ(read.numbers.size(), 2u);
    EXPECT_EQ(read.numbers[1].list, 2);
    EXPECT_EQ(read.numbers[1].lcn, 900);
    EXPECT_TRUE(stream_with({private_data_specifier(0x28), lists}).lists.empty());
}

// ---- services

TEST(DescribedServices, GiveNetworkAndProvider)
{
    const octets section =
        make(sdt{.ts = 7,
                 .original_network = 0x2114,
                 .services = {{.id = 5, .descriptors = {service_descriptor(1, "Somebody", "News")}},
                              {.id = 6}}});
    const auto services = tool::described_services(section);
    ASSERT_EQ(services.size(), 2u);
    EXPECT_EQ(services[0].original_network_id, 0x2114);
    EXPECT_EQ(services[0].service_id, 5);
    EXPECT_EQ((std::string{services[0].provider.begin(), services[0].provider.end()}), "Somebody");
    EXPECT_TRUE(services[1].provider.empty());
}

TEST(DescribedServices, GiveTheBitsOfTheirEntry)
{
    const octets section =
        make(sdt{.services = {{.id = 5,
                               .eit_schedule = true,
                               .running_status = 3,
                               .free_ca_mode = true,
                               .descriptors = {service_descriptor(0x19, "P", "News")}},
                              {.id = 6, .eit_present_following = true, .running_status = 4}}});
    const auto services = tool::described_services(section);
    ASSERT_EQ(services.size(), 2u);
    EXPECT_EQ(services[0].eit_schedule, 1);
    EXPECT_EQ(services[0].eit_present_following, 0);
    EXPECT_EQ(services[0].running_status, 3);
    EXPECT_EQ(services[0].free_ca_mode, 1);
    EXPECT_EQ(services[0].service_type, 0x19);
    EXPECT_EQ((std::string{services[0].name.begin(), services[0].name.end()}), "News");
    EXPECT_EQ(services[1].eit_schedule, 0);
    EXPECT_EQ(services[1].eit_present_following, 1);
    EXPECT_EQ(services[1].running_status, 4);
    EXPECT_EQ(services[1].free_ca_mode, 0);
    EXPECT_FALSE(services[1].service_type.has_value());
}

// NVOD_reference_descriptor and time_shifted_service_descriptor (EN 300 468, 6.2.26 and 6.2.45).
TEST(DescribedServices, NearVideoOnDemandRefersToAService)
{
    const octets section = make(
        sdt{.services = {{.id = 5, .descriptors = {raw(0x4B, {0, 7, 0, 1, 0, 6, 0, 7, 0, 1, 0})}},
                         {.id = 6, .descriptors = {raw(0x4C, {0, 5})}}}});
    const auto services = tool::described_services(section);
    ASSERT_EQ(services.size(), 2u);
    ASSERT_EQ(services[0].nvod_references.size(), 1u); // the second is cut
    EXPECT_EQ(services[0].nvod_references[0].transport_stream_id, 7);
    EXPECT_EQ(services[0].nvod_references[0].original_network_id, 1);
    EXPECT_EQ(services[0].nvod_references[0].service_id, 6);
    EXPECT_EQ(services[1].time_shifted_of, 5);
}

// ---- programs

tool::elementary_stream stream_of(std::uint8_t type, std::vector<octets> descriptors)
{
    const octets section =
        make(pmt{.streams = {{.type = type, .pid = 0x101, .descriptors = std::move(descriptors)}}});
    const auto streams = tool::elementary_streams(section);
    return streams.size() == 1 ? streams[0] : tool::elementary_stream{};
}

TEST(ElementaryStreams, FormatFollowsFromTheStreamType)
{
    EXPECT_EQ(stream_of(0x1B, {}).format, "H.264");
    EXPECT_EQ(stream_of(0x24, {}).format, "H.265");
    EXPECT_EQ(stream_of(0x24, {}).kind, tool::stream_kind::video);
    EXPECT_EQ(stream_of(0x0F, {}).kind, tool::stream_kind::audio);
    EXPECT_EQ(stream_of(0x0B, {}).kind, tool::stream_kind::other);
    EXPECT_EQ(stream_of(0x1B, {}).pid, 0x101);
}

TEST(ElementaryStreams, DescriptorsTellWhatPrivateDataIs)
{
    const octets english = raw(0x0A, {'e', 'n', 'g', 0});
    const auto ac3 = stream_of(0x06, {english, raw(0x6A, {0})});
    EXPECT_EQ(ac3.format, "AC-3");
    EXPECT_EQ(ac3.kind, tool::stream_kind::audio);
    EXPECT_TRUE(ac3.is_ac3);
    EXPECT_TRUE(ac3.has_language);
    EXPECT_EQ(ac3.languages, std::vector<std::string>{"eng"});

    const auto enhanced = stream_of(0x06, {raw(0x7A, {0}), english, raw(0x52, {1})});
    EXPECT_EQ(enhanced.format, "E-AC-3");
    EXPECT_FALSE(enhanced.is_ac3);
    EXPECT_EQ(stream_of(0x06, {raw(0x7F, {0x15})}).format, "AC-4");
    EXPECT_EQ(stream_of(0x06, {}).format, "");
}

TEST(ElementaryStreams, RegistrationTellsWhatNothingElseDoes)
{
    const octets registered = raw_text(0x05, "EAC3");
    EXPECT_EQ(stream_of(0x06, {registered}).format, "E-AC-3");
    EXPECT_EQ(stream_of(0x06, {registered, raw(0x6A, {0})}).format, "AC-3");
    EXPECT_EQ(stream_of(0x1B, {raw_text(0x05, "HEVC")}).format, "H.264");
    EXPECT_EQ(stream_of(0x06, {raw_text(0x05, "EAC")}).format, "");
}

TEST(ElementaryStreams, TeletextCountsMoreThanOtherDataBesideIt)
{
    const octets teletext_page = teletext({{.language = "cze"}});
    const auto stream = stream_of(0x06, {raw(0x45, {1, 1, 0xE7}), teletext_page});
    EXPECT_EQ(stream.kind, tool::stream_kind::teletext);
    EXPECT_EQ(stream_of(0x06, {teletext_page, raw(0x45, {1, 1, 0xE7})}).kind,
              tool::stream_kind::teletext);
    EXPECT_EQ(stream_of(0x0B, {teletext_page}).format, "DSM-CC");
}

TEST(ElementaryStreams, TellTypeAndDataBroadcast)
{
    const auto stream = stream_of(0x0B, {data_broadcast_id(0x000A, {1, 2}), raw(0x66, {0})});
    EXPECT_EQ(stream.stream_type, 0x0B);
    EXPECT_EQ(stream.data_broadcast_ids, std::vector<std::uint16_t>{0x000A});
}

TEST(ElementaryStreams, TeletextAndSubtitlesListTheirLanguagesOnce)
{
    const auto teletext =
        stream_of(0x06, {raw(0x56, {'d', 'e', 'u', 9, 0, 'd', 'e', 'u', 16, 0x50})});
    EXPECT_EQ(teletext.kind, tool::stream_kind::teletext);
    EXPECT_EQ(teletext.languages, std::vector<std::string>{"deu"});
    const auto subtitles = stream_of(
        0x06, {raw(0x59, {'f', 'r', 'a', 16, 0, 1, 0, 1, 'e', 'n', 'g', 16, 0, 2, 0, 2})});
    EXPECT_EQ(subtitles.kind, tool::stream_kind::subtitles);
    EXPECT_EQ(subtitles.languages, (std::vector<std::string>{"fra", "eng"}));
}

TEST(ElementaryStreams, LanguageCodeCannotSteerATerminal)
{
    EXPECT_EQ(stream_of(0x03, {raw(0x0A, {0x1B, '[', 'm', 0})}).languages,
              std::vector<std::string>{"\uFFFD[m"});
}

TEST(Payload, DamagedSectionsAreRefused)
{
    const octets good = make(sdt{.services = {{.id = 5}}});
    EXPECT_TRUE(tool::payload(good).has_value());
    for (std::size_t i = 0; i < good.size(); ++i) {
        octets bad = good;
        bad[i] ^= 0x01;
        EXPECT_FALSE(tool::payload(bad).has_value()) << i;
        EXPECT_FALSE(tool::payload(tool::bytes{good}.first(i)).has_value()) << i;
    }
}

// Loops whose lengths lie, with a CRC_32 that is right.
TEST(Payload, LyingLengthsAreBounded)
{
    const octets sections[] = {
        make(nit{.descriptors = {linkage({.type = 0x09, .data = software_update_data({{}})})},
                 .transports = {{.descriptors = {raw(0x83, {1, 2, 3, 4}),
                                                 nordig_channels({{.name = "N", .channels = {{}}}}),
                                                 frequency_list(3, {1, 2}),
                                                 raw(0x79, {0xC0, 0, 0, 1, 2}),
                                                 raw(0x7F, {0x04, 0, 0, 1, 3, 0x34, 0, 1, 0, 0, 0,
                                                            1, 0})}}}}),
        make(sdt{.services = {{.descriptors = {service_descriptor(1, "P", "N"),
                                               raw(0x4B, {0, 1, 0, 1, 0, 1}), raw(0x4C, {0, 1}),
                                               linkage()}}}}),
        make(pmt{.streams = {{.descriptors = {raw(0x0A, {'e', 'n', 'g', 0})}}}})};
    for (const octets &good : sections)
        for (std::size_t i = 8; i + 4 < good.size(); ++i)
            for (const int value : {0x00, 0x7F, 0xFF}) {
                const octets bad = with_byte(good, i, static_cast<std::uint8_t>(value));
                tool::read_network(bad, 0x29);
                tool::described_services(bad);
                tool::elementary_streams(bad);
            }
    SUCCEED() << "address sanitizers judge this test";
}

} // namespace
