// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about networks.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using ids = std::vector<std::uint16_t>;

struct same_entry {
    bool operator()(const SiServiceListEntry &a, const SiServiceListEntry &b) const
    {
        return a.service_id == b.service_id && a.service_type == b.service_type;
    }
};

auto streams_of(std::uint32_t nid)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetTsGrpByNetworkId(nid, list, count);
    };
}

auto services_of(std::uint32_t nid, std::uint32_t ts, std::uint32_t onid)
{
    return [=](SiServiceListEntry *list, std::uint32_t *count) {
        return Orva_Si_GetServiceList(nid, ts, onid, list, count);
    };
}

// Network 0x3001 is the tuned one, 0x3002 another.
class Networks : public testing::Test {
protected:
    void SetUp() override
    {
        store(make(nit{.network = 0x3001,
                       .descriptors = {raw(0x6C, {}), network_name("Home")},
                       .transports = {{.ts = 10,
                                       .original_network = 0x20,
                                       .descriptors = {raw(0x43, octets(11, 0)),
                                                       service_list({{1, 0x01}, {2, 0x19}})}},
                                      {.ts = 11, .original_network = 0x20},
                                      {.ts = 10,
                                       .original_network = 0x21,
                                       .descriptors = {service_list({{3, 0x02}})}}}}));
        store(make(nit{.table_id = 0x41,
                       .network = 0x3002,
                       .descriptors = {network_name("\x05"
                                                    "Away")},
                       .transports = {{.ts = 30, .original_network = 0x22}}}));
        fake::clear_log();
    }
};

TEST_F(Networks, TheCurrentOneIsThatOfTheNitActual)
{
    std::uint16_t id = 0;
    EXPECT_EQ(Orva_Si_GetCurrentNetworkId(&id), ORVA_SI_OK);
    EXPECT_EQ(id, 0x3001);
    EXPECT_TRUE(fake::logged(4, "network id = 12289\n")) << fake::log_text();
    expect_refused([] { return Orva_Si_GetCurrentNetworkId(nullptr); }, "pnetworkid");
}

TEST(CurrentNetwork, IsUnknownWithoutANitActual)
{
    store(make(nit{.table_id = 0x41, .network = 2}));
    std::uint16_t id = 99;
    EXPECT_EQ(Orva_Si_GetCurrentNetworkId(&id), ORVA_SI_NO_DATA);
    EXPECT_EQ(id, 99);
}

TEST_F(Networks, AllAreListedInTheOrderOfTheStore)
{
    expect_list(Orva_Si_GetNitAllNetworkList, ids{0x3001, 0x3002});
    std::uint16_t id = 0;
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetNitAllNetworkList(nullptr, &count); }, "list");
    expect_refused([&] { return Orva_Si_GetNitAllNetworkList(&id, nullptr); }, "pcount");
}

TEST(AllNetworks, ATableOfSeveralSectionsIsOneNetwork)
{
    store(make(nit{.network = 7, .last_section_number = 1}));
    store(make(nit{.network = 7, .section_number = 1, .last_section_number = 1}));
    store(make(nit{.table_id = 0x41, .network = 7}));
    expect_list(Orva_Si_GetNitAllNetworkList, ids{7, 7});
}

TEST(AllNetworks, TheFirstSoundSectionOfATableIsTaken)
{
    store(damage(make(nit{.network = 7, .last_section_number = 1})));
    store(make(nit{.network = 7, .section_number = 1, .last_section_number = 1}));
    expect_list(Orva_Si_GetNitAllNetworkList, ids{7});
}

TEST(AllNetworks, OfNothingThereIsNoData)
{
    init_store();
    expect_empty<std::uint16_t>(Orva_Si_GetNitAllNetworkList, ORVA_SI_NO_DATA);
}

TEST_F(Networks, NamesOfActualAndOther)
{
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetNetworkName(0x3001, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Home");
    EXPECT_EQ(Orva_Si_GetNetworkName(0x3002, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Away");
    EXPECT_EQ(name.charset_type, 5u);
    EXPECT_EQ(Orva_Si_GetNetworkName(0x3003, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(text_of(name), "Away");
    expect_refused([] { return Orva_Si_GetNetworkName(1, nullptr); }, "pnetworkname");
}

TEST(NetworkName, MayStandInALaterSection)
{
    store(make(nit{.network = 7, .last_section_number = 1}));
    store(make(nit{.network = 7,
                   .section_number = 1,
                   .last_section_number = 1,
                   .descriptors = {network_name("Late")}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetNetworkName(7, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Late");
}

TEST(NetworkName, OneInTheLoopOfATransportStreamIsNone)
{
    store(make(nit{.network = 7, .transports = {{.descriptors = {network_name("Not me")}}}}));
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetNetworkName(7, &name), ORVA_SI_FAILURE);
}

TEST_F(Networks, TransportStreams)
{
    expect_list(streams_of(0x3001), ids{10, 11, 10});
    expect_list(streams_of(0x3002), ids{30});
    expect_list(streams_of(0xABCD3002), ids{30});
    expect_empty<std::uint16_t>(streams_of(0x3003), ORVA_SI_NO_DATA);
    std::uint16_t id = 0;
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetTsGrpByNetworkId(1, nullptr, &count); }, "tsgrp");
    expect_refused([&] { return Orva_Si_GetTsGrpByNetworkId(1, &id, nullptr); }, "pcount");
}

TEST(TransportStreams, ANetworkWithoutAnyHasNoData)
{
    store(make(nit{.network = 7}));
    expect_empty<std::uint16_t>(streams_of(7), ORVA_SI_NO_DATA);
}

TEST(TransportStreams, ALoopLengthBeyondTheSectionEndsWithIt)
{
    auto section = make(nit{.network = 7, .transports = {{.ts = 1}, {.ts = 2}}});
    store(with_length12(section, 10, 0xFFF));
    expect_list(streams_of(7), ids{1, 2});
}

TEST(TransportStreams, ALoopLengthBeyondASectionWithoutAnyFindsNone)
{
    store(with_length12(make(nit{.network = 7}), 10, 0xFFF));
    expect_empty<std::uint16_t>(streams_of(7), ORVA_SI_NO_DATA);
}

TEST(TransportStreams, ALoopThatSaysItIsEmptyIs)
{
    store(with_length12(make(nit{.network = 7, .transports = {{.ts = 1}}}), 10, 0));
    expect_empty<std::uint16_t>(streams_of(7), ORVA_SI_NO_DATA);
}

TEST_F(Networks, ServicesOfATransportStream)
{
    using entries = std::vector<SiServiceListEntry>;
    expect_list(services_of(0x3001, 10, 0x20), entries{{1, 0x01}, {2, 0x19}}, "", same_entry{});
    ask<SiServiceListEntry>(services_of(0x3001, 10, 0x20), 1);
    EXPECT_TRUE(fake::logged(2, "need more room! *pcount = 1, count = 1\n")) << fake::log_text();
    EXPECT_FALSE(fake::logged("need more room\n"));
}

TEST_F(Networks, ATransportStreamIsTheOneOfItsOriginalNetwork)
{
    const auto answer = ask<SiServiceListEntry>(services_of(0x3001, 10, 0x21), 5);
    EXPECT_EQ(answer.result, ORVA_SI_OK);
    ASSERT_EQ(answer.count, 1u);
    EXPECT_EQ(answer.items[0].service_id, 3);
    EXPECT_EQ(answer.items[0].service_type, 2);
}

TEST_F(Networks, ATransportStreamWithoutServiceListIsAnEmptyList)
{
    expect_empty<SiServiceListEntry>(services_of(0x3001, 11, 0x20), ORVA_SI_OK);
    expect_empty<SiServiceListEntry>(services_of(0x3001, 12, 0x20), ORVA_SI_OK);
    expect_empty<SiServiceListEntry>(services_of(0x3003, 10, 0x20), ORVA_SI_OK);
}

TEST_F(Networks, ServiceListArguments)
{
    SiServiceListEntry entry{};
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetServiceList(1, 1, 1, nullptr, &count); }, "servlist");
    expect_refused([&] { return Orva_Si_GetServiceList(1, 1, 1, &entry, nullptr); }, "pcount");
}

TEST(ServiceList, AllOfATransportStreamCountAndABrokenOneDoesNot)
{
    store(make(nit{.network = 7,
                   .transports = {{.ts = 10,
                                   .original_network = 0x20,
                                   .descriptors = {service_list({{1, 1}}), raw(0x41, {0, 9, 9, 0}),
                                                   service_list({}),
                                                   service_list({{2, 2}, {0xFFFE, 0xFF}})}}}}));
    const auto answer = ask<SiServiceListEntry>(services_of(7, 10, 0x20), 9);
    ASSERT_EQ(answer.count, 3u);
    EXPECT_EQ(answer.items[1].service_id, 2);
    EXPECT_EQ(answer.items[2].service_id, 0xFFFE);
    EXPECT_EQ(answer.items[2].service_type, 0xFF);
}

} // namespace
