// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "sections.h"
#include "support/sections.h"

namespace {

using namespace test;

tool::delivery delivery_of(const octets &descriptor)
{
    const octets section = make(nit{.transports = {{.ts = 7, .descriptors = {descriptor}}}});
    const auto streams = tool::network_streams(section);
    if (streams.size() != 1 || !streams[0].delivered)
        return {};
    return *streams[0].delivered;
}

TEST(NetworkStreams, AreReadInBroadcastOrder)
{
    const octets section = make(
        nit{.network = 3,
            .transports = {{.ts = 9, .original_network = 2}, {.ts = 7, .original_network = 1}}});
    const auto streams = tool::network_streams(section);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0].transport_stream_id, 9);
    EXPECT_EQ(streams[0].original_network_id, 2);
    EXPECT_EQ(streams[1].transport_stream_id, 7);
    EXPECT_FALSE(streams[1].delivered.has_value());
}

// 11.75725 GHz vertical, 19.2 degrees east, DVB-S2, 27.5 Msymbol/s, 3/4 (EN 300 468, 6.2.13.2).
TEST(Delivery, Satellite)
{
    const auto told =
        delivery_of(raw(0x43, {0x01, 0x17, 0x57, 0x25, 0x01, 0x92, 0xA6, 0x02, 0x75, 0x00, 0x03}));
    EXPECT_EQ(told.summary, "DVB-S2 11757.25 MHz V 27.5 MS/s 3/4 19.2E");
    EXPECT_EQ(told.fields["frequency_Hz"], 11757250000u);
    EXPECT_EQ(told.fields["symbol_rate"], 27500000);
    EXPECT_EQ(told.fields["modulation_type"], 2);
    EXPECT_EQ(told.fields["west_east_flag"], 1);
}

// 312 MHz, 64-QAM, 6.875 Msymbol/s (6.2.13.1).
TEST(Delivery, Cable)
{
    const auto told =
        delivery_of(raw(0x44, {0x03, 0x12, 0x00, 0x00, 0xFF, 0xF2, 0x03, 0x00, 0x68, 0x75, 0x0F}));
    EXPECT_EQ(told.summary, "DVB-C 312 MHz 64-QAM 6.875 MS/s");
    EXPECT_EQ(told.fields["frequency_Hz"], 312000000);
    EXPECT_EQ(told.fields["FEC_outer"], 2);
}

// 626 MHz, 8 MHz wide, 64-QAM 3/4, 1/8, 8k (6.2.13.4).
TEST(Delivery, Terrestrial)
{
    const auto told =
        delivery_of(raw(0x5A, {0x03, 0xBB, 0x33, 0x40, 0x1F, 0x82, 0x52, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(told.summary, "DVB-T 626 MHz 8 MHz 64-QAM 3/4");
    EXPECT_EQ(told.fields["centre_frequency_Hz"], 626000000);
    EXPECT_EQ(told.fields["guard_interval"], 2);
    EXPECT_EQ(told.fields["transmission_mode"], 1);
}

TEST(Delivery, TerrestrialOnSeveralFrequencies)
{
    const auto told =
        delivery_of(raw(0x5A, {0xFF, 0xFF, 0xFF, 0xFF, 0x1F, 0x82, 0x52, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(told.summary, "DVB-T several frequencies 8 MHz 64-QAM 3/4");
    EXPECT_TRUE(told.fields["centre_frequency_Hz"].is_null());
}

// One cell on 658 MHz, and one of time-frequency slicing on two (6.4.6.3).
TEST(Delivery, SecondTerrestrial)
{
    const auto told = delivery_of(
        raw(0x7F, {0x04, 0x02, 0x80, 0x01, 0x03, 0x34, 0x00, 0x01, 0x03, 0xEC, 0x07, 0x40, 0x00}));
    EXPECT_EQ(told.summary, "DVB-T2 658 MHz 8 MHz PLP 2");
    EXPECT_EQ(told.fields["T2_system_id"], 0x8001);
    EXPECT_EQ(told.fields["cells"][0]["cell_id"], 1);

    const auto sliced =
        delivery_of(raw(0x7F, {0x04, 0x00, 0x00, 0x01, 0x03, 0x35, 0x00, 0x01, 0x08, 0x03, 0xEC,
                               0x07, 0x40, 0x03, 0xF8, 0x3C, 0x40, 0x00}));
    EXPECT_EQ(sliced.fields["cells"][0]["centre_frequency_Hz"],
              (nlohmann::ordered_json{658000000, 666000000}));
}

TEST(Delivery, ShortDescriptorsAreNone)
{
    for (const std::uint8_t tag : octets{0x43, 0x44, 0x5A, 0x7F})
        EXPECT_EQ(delivery_of(raw(tag, {0x04})).summary, "") << int{tag};
    EXPECT_EQ(delivery_of(raw(0x7F, {0x04, 0x02, 0x80, 0x01})).summary, "DVB-T2 PLP 2");
}

std::vector<tool::channel_number> numbers_of(std::vector<octets> descriptors)
{
    const octets section = make(nit{.transports = {{.descriptors = std::move(descriptors)}}});
    const auto streams = tool::network_streams(section);
    return streams.empty() ? std::vector<tool::channel_number>{} : streams[0].numbers;
}

TEST(ChannelNumbers, HaveTenBits)
{
    const auto numbers = numbers_of({raw(0x5F, {0x00, 0x00, 0x00, 0x28}),
                                     raw(0x83, {0x01, 0x01, 0xFC, 0x05, 0x01, 0x02, 0x7C, 0x06})});
    ASSERT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers[0].service_id, 0x0101);
    EXPECT_EQ(numbers[0].lcn, 5);
    EXPECT_TRUE(numbers[0].visible);
    EXPECT_EQ(numbers[1].lcn, 6);
    EXPECT_FALSE(numbers[1].visible);
}

TEST(ChannelNumbers, HaveFourteenBitsUnderTheNordicSpecifier)
{
    const auto numbers =
        numbers_of({raw(0x5F, {0x00, 0x00, 0x00, 0x29}), raw(0x83, {0x01, 0x01, 0xC4, 0x05})});
    ASSERT_EQ(numbers.size(), 1u);
    EXPECT_EQ(numbers[0].lcn, 0x0405);
}

TEST(ChannelNumbers, CountWithoutASpecifierToo)
{
    EXPECT_EQ(numbers_of({raw(0x83, {0x01, 0x01, 0xFC, 0x05})}).size(), 1u);
}

TEST(ChannelNumbers, EntryThatIsCutIsLeftOut)
{
    EXPECT_EQ(numbers_of({raw(0x83, {0x01, 0x01, 0xFC, 0x05, 0x01, 0x02, 0xFC})}).size(), 1u);
}

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
        make(nit{.transports = {{.descriptors = {raw(0x83, {1, 2, 3, 4})}}}}),
        make(sdt{.services = {{.descriptors = {service_descriptor(1, "P", "N")}}}}),
        make(pmt{.streams = {{.descriptors = {raw(0x0A, {'e', 'n', 'g', 0})}}}})};
    for (const octets &good : sections)
        for (std::size_t i = 8; i + 4 < good.size(); ++i)
            for (const int value : {0x00, 0x7F, 0xFF}) {
                const octets bad = with_byte(good, i, static_cast<std::uint8_t>(value));
                tool::network_streams(bad);
                tool::described_services(bad);
                tool::elementary_streams(bad);
            }
    SUCCEED() << "address sanitizers judge this test";
}

} // namespace
