// SPDX-License-Identifier: LGPL-2.1-or-later
// Names of networks in several languages, and what they tell about their transport streams:
// frequency lists and service types.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
#include "orva_si/query_text.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

constexpr std::uint16_t network = 0x3001;

transport stream(std::uint16_t ts, const std::vector<octets> &descriptors)
{
    return {.ts = ts, .original_network = 0x20, .descriptors = descriptors};
}

void store_network(const std::vector<transport> &transports,
                   const std::vector<octets> &descriptors = {})
{
    store(make(nit{.network = network, .descriptors = descriptors, .transports = transports}));
    fake::clear_log();
}

// ---- Names in several languages

// A client's table: the codes as numbers, "und" is not in it.
std::uint32_t number_of(std::string_view code)
{
    return static_cast<std::uint32_t>(code[0] << 16 | code[1] << 8 | code[2]);
}
std::uint32_t number(const char *code, std::uint32_t *id)
{
    EXPECT_EQ(std::string_view(code).size(), 3u);
    EXPECT_EQ(*id, 0u);
    if (std::string_view(code) != "und")
        *id = number_of(code);
    return 1; // nobody asks
}

auto languages_of(std::uint32_t nid)
{
    return [=](std::uint32_t *list, std::uint32_t *count) {
        return Orva_Si_GetMultiNetworkNameLangList(nid, list, count);
    };
}

std::string name_in(std::uint32_t language, std::uint32_t nid = network)
{
    SiDvbString name{};
    const auto result = Orva_Si_GetMultiNetworkNameByLangId(nid, language, &name);
    if (result == ORVA_SI_OK)
        return text_of(name);
    EXPECT_EQ(result, ORVA_SI_NO_DATA);
    EXPECT_EQ(name.length, 0u);
    return "(none)";
}

using numbers = std::vector<std::uint32_t>;

class NetworkNames : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Orva_Si_InstallISO639toIDFunc(number), ORVA_SI_OK); }
};

TEST_F(NetworkNames, AreListedByLanguageAndReadByIt)
{
    store_network({}, {network_name("Only"),
                       multilingual_network_name({{"deu", "Netz"}, {"und", ""}, {"eng", "Net"}}),
                       multilingual_network_name({{"fra", "\x05R\xE9seau"}})});
    const numbers all{number_of("deu"), 0, number_of("eng"), number_of("fra")};
    expect_list(languages_of(network), all);
    expect_list(languages_of(0x10000 + network), all);
    EXPECT_EQ(name_in(number_of("deu")), "Netz");
    EXPECT_TRUE(fake::logged(4, "matched langid\n")) << fake::log_text();
    EXPECT_EQ(name_in(number_of("eng")), "Net");
    EXPECT_EQ(name_in(0), "");
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetMultiNetworkNameByLangId(network, number_of("fra"), &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "R\xE9seau");
    EXPECT_EQ(name.charset_type, 5u);
}

TEST_F(NetworkNames, OfAnUnknownLanguageOrNetworkThereIsNone)
{
    store_network({}, {multilingual_network_name({{"deu", "Netz"}})});
    EXPECT_EQ(name_in(number_of("eng")), "(none)");
    EXPECT_EQ(name_in(number_of("deu"), 0x3002), "(none)");
    EXPECT_FALSE(fake::logged("matched langid\n"));
    expect_empty<std::uint32_t>(languages_of(0x3002), ORVA_SI_NO_DATA);
}

TEST_F(NetworkNames, TheFirstOfALanguageIsTaken)
{
    store_network({}, {multilingual_network_name({{"deu", "One"}, {"deu", "Two"}})});
    EXPECT_EQ(name_in(number_of("deu")), "One");
    expect_list(languages_of(network), numbers{number_of("deu"), number_of("deu")});
}

TEST_F(NetworkNames, ABrokenDescriptorIsPassedOver)
{
    store_network({}, {raw(0x5B, {}), raw(0x5B, {'e', 'n', 'g'}), raw(0x5B, {'e', 'n', 'g', 1}),
                       raw(0x5B, {'e', 'n', 'g', 1, 'A', 'f', 'r'}),
                       raw(0x5B, {'e', 'n', 'g', 0, 'f', 'r', 'a', 9, 'x'}),
                       multilingual_network_name({{"deu", "Netz"}})});
    expect_list(languages_of(network), numbers{number_of("deu")});
    EXPECT_EQ(name_in(number_of("eng")), "(none)");
    EXPECT_EQ(name_in(number_of("deu")), "Netz");
}

TEST_F(NetworkNames, InTheLoopOfATransportStreamAreNone)
{
    store_network({stream(10, {multilingual_network_name({{"deu", "Netz"}})})});
    expect_empty<std::uint32_t>(languages_of(network), ORVA_SI_NO_DATA);
    EXPECT_EQ(name_in(number_of("deu")), "(none)");
}

TEST_F(NetworkNames, MayStandInALaterSection)
{
    store(make(nit{.network = network,
                   .last_section_number = 1,
                   .descriptors = {multilingual_network_name({{"deu", "Netz"}})}}));
    store(make(nit{.network = network,
                   .section_number = 1,
                   .last_section_number = 1,
                   .descriptors = {multilingual_network_name({{"eng", "Net"}})}}));
    expect_list(languages_of(network), numbers{number_of("deu"), number_of("eng")});
    EXPECT_EQ(name_in(number_of("eng")), "Net");
}

TEST(NetworkNamesWithoutLanguageFunction, AreAllOfLanguageZero)
{
    store_network({}, {multilingual_network_name({{"deu", "Netz"}, {"eng", "Net"}})});
    std::uint32_t list[2] = {99, 99};
    std::uint32_t count = 2;
    EXPECT_EQ(Orva_Si_GetMultiNetworkNameLangList(network, list, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(list[0], 0u);
    EXPECT_EQ(list[1], 0u);
    EXPECT_TRUE(fake::logged(2, "Not install language function\n")) << fake::log_text();
    EXPECT_EQ(name_in(0), "Netz");
    EXPECT_EQ(name_in(1), "(none)");
}

// ---- Frequency lists

using frequencies = std::vector<std::uint32_t>;

auto frequencies_of(std::uint32_t ts)
{
    return [=](std::uint32_t *list, std::uint32_t *count) {
        return Orva_Si_GetFrequencyListDescriptor(network, ts, list, count);
    };
}

TEST(FrequencyList, AreTheFrequenciesOfTheStreamAsBroadcast)
{
    store_network({stream(10, {frequency_list(3, {62600000, 0xFEDCBA98})}),
                   stream(11, {terrestrial(), frequency_list(1, {0x01175725})}), stream(12, {}),
                   stream(13, {frequency_list(2, {})})},
                  {frequency_list(1, {7})});
    expect_list(frequencies_of(10), frequencies{62600000, 0xFEDCBA98});
    expect_list(frequencies_of(0x1000B), frequencies{0x01175725});
    for (const std::uint32_t none : {12u, 13u, 14u, 0xFFFFu})
        expect_empty<std::uint32_t>(frequencies_of(none), ORVA_SI_NO_DATA);
}

TEST(FrequencyList, AllOfAStreamCountAndABrokenOneDoesNot)
{
    store_network({stream(10, {raw(0x62, {}), frequency_list(3, {1}), raw(0x62, {0xFF, 0, 0, 0}),
                               raw(0x62, {0xFF, 9, 9, 9, 9, 9}), frequency_list(3, {2, 3})}),
                   stream(11, {}), stream(10, {frequency_list(3, {4})})});
    expect_list(frequencies_of(10), frequencies{1, 2, 3, 4});
}

// ---- The type of a service

class ServiceType : public testing::Test {
protected:
    void SetUp() override
    {
        store_network(
            {stream(10, {service_list({{0x501, 0x01}, {0xFFFE, 0xFF}})}),
             {.ts = 10, .original_network = 0x21, .descriptors = {service_list({{0x501, 0x19}})}},
             stream(11, {raw(0x41, {5, 1}), service_list({}), service_list({{0x502, 0x02}}),
                         service_list({{0x503, 0x1F}})}),
             stream(12, {})});
    }
    static int type_of(std::uint32_t ts, std::uint32_t onid, std::uint32_t service)
    {
        std::uint8_t type = 0xEE;
        const auto result = Orva_Si_GetServiceType_InNIT(network, ts, onid, service, &type);
        if (result == ORVA_SI_OK)
            return type;
        EXPECT_EQ(result, ORVA_SI_FAILURE);
        EXPECT_EQ(type, 0xEE);
        return -1;
    }
};

TEST_F(ServiceType, IsThatOfTheListOfItsTransportStream)
{
    EXPECT_EQ(type_of(10, 0x20, 0x501), 0x01);
    EXPECT_EQ(type_of(10, 0x20, 0xFFFE), 0xFF);
    EXPECT_EQ(type_of(10, 0x21, 0x501), 0x19);
    EXPECT_EQ(type_of(0x5000A, 0x60021, 0x70501), 0x19);
}

TEST_F(ServiceType, MayStandInAnyListOfTheStream)
{
    EXPECT_EQ(type_of(11, 0x20, 0x502), 0x02);
    EXPECT_EQ(type_of(11, 0x20, 0x503), 0x1F);
}

TEST_F(ServiceType, OfAServiceThatIsNotListedThereIsNone)
{
    EXPECT_EQ(type_of(10, 0x20, 0x502), -1);
    EXPECT_EQ(type_of(11, 0x21, 0x502), -1);
    EXPECT_EQ(type_of(12, 0x20, 0x501), -1);
    EXPECT_EQ(type_of(13, 0x20, 0x501), -1);
    EXPECT_EQ(type_of(10, 0x20, 0xFFFF), -1);
    EXPECT_EQ(type_of(0xFFFF, 0x20, 0x501), -1);
    EXPECT_EQ(type_of(10, 0xFFFF, 0x501), -1);
}

} // namespace
