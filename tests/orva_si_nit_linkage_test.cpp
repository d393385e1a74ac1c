// SPDX-License-Identifier: LGPL-2.1-or-later
// Linkages of networks, and the system software update that they lead to.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <tuple>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/store_fixture.h"

using namespace test;

namespace {

using loop = std::vector<octets>;

constexpr std::uint16_t network = 0x3001;
constexpr std::uint8_t update = 0x09; // linkage_type of ETSI TS 102 006

void store_network(const loop &descriptors, const std::vector<loop> &of_streams = {},
                   std::uint16_t id = network, std::uint8_t table_id = 0x40)
{
    nit table{.table_id = table_id, .network = id, .descriptors = descriptors};
    for (const loop &of_stream : of_streams)
        table.transports.push_back({.ts = static_cast<std::uint16_t>(10 + table.transports.size()),
                                    .original_network = 0x20,
                                    .descriptors = of_stream});
    store(make(table));
    fake::clear_log();
}

octets link(std::uint16_t service, std::uint8_t type, const octets &data = {})
{
    return linkage(
        {.ts = 0x1122, .original_network = 0x3344, .service = service, .type = type, .data = data});
}

octets update_link(std::uint16_t service, const octets &data)
{
    return link(service, update, data);
}

// ---- All linkages

struct same_linkage {
    static auto fields(const SiLinkage &of)
    {
        return std::tuple{of.transport_stream_id, of.original_network_id, of.service_id,
                          of.linkage_type};
    }
    bool operator()(const SiLinkage &a, const SiLinkage &b) const { return fields(a) == fields(b); }
};

using linkages = std::vector<SiLinkage>;

auto linkages_of(std::uint32_t type, std::uint32_t nid = network)
{
    return [=](SiLinkage *list, std::uint32_t *count) {
        return Orva_Si_GetNitLinkageDesc(nid, type, list, count);
    };
}

void expect_linkages(const linkages &expected, std::uint32_t type = 0)
{
    expect_list(linkages_of(type), expected, "need more room\n", same_linkage{});
}

TEST(NetworkLinkages, OfTheNetworkComeBeforeThoseOfItsStreams)
{
    store_network(
        {linkage({.ts = 0xFFFE, .original_network = 0xFFFD, .service = 0xFFFC, .type = 1}),
         network_name("x"), link(2, 0x80, {1, 2, 3})},
        {{link(3, 1)}, {}, {link(4, 4), link(5, 1)}});
    const linkages all{{0xFFFE, 0xFFFD, 0xFFFC, 1},
                       {0x1122, 0x3344, 2, 0x80},
                       {0x1122, 0x3344, 3, 1},
                       {0x1122, 0x3344, 4, 4},
                       {0x1122, 0x3344, 5, 1}};
    expect_linkages(all);
    expect_linkages({all[0], all[2], all[4]}, 1);
    expect_linkages({all[1]}, 0x80);
    expect_empty<SiLinkage>(linkages_of(2), ORVA_SI_NO_DATA);
    expect_empty<SiLinkage>(linkages_of(0, network + 1), ORVA_SI_NO_DATA);
}

TEST(NetworkLinkages, AreTraced)
{
    store_network({linkage({.ts = 0x1122, .original_network = 0x20, .service = 0x501, .type = 4})});
    ask<SiLinkage>(linkages_of(0), 1);
    EXPECT_TRUE(fake::logged(4, "ts_id = 0x1122, on_id = 0x20, service_id = 0x501, type = 0x4\n"))
        << fake::log_text();
}

TEST(NetworkLinkages, EveryKindWithItsDataIsTaken)
{
    store_network({link(1, 0x08, hand_over_data({.type = 0, .origin_type = 1})),
                   link(2, 0x08, hand_over_data({.type = 1, .origin_type = 1})),
                   link(3, 0x08, hand_over_data({.type = 3, .origin_type = 0})),
                   link(4, update, software_update_data({{.selector = {1, 2}}})),
                   link(5, 0x0B, ip_notification_data({{.id = 1, .names = {{"eng", "IP"}}}, {2}})),
                   link(6, 0x0B, ip_notification_data({}, {7, 7})),
                   link(7, 0x0C, deferred_notification_data(1)),
                   link(8, 0x0C, deferred_notification_data(2)), link(9, update)});
    const auto answer = ask<SiLinkage>(linkages_of(0), 20);
    std::vector<unsigned> services;
    for (const SiLinkage &one : answer.items)
        services.push_back(one.service_id);
    EXPECT_EQ(services, (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

// A linkage whose data cannot be what its type says, in the middle of two that can: neither is it
// taken nor does it harm its neighbours.
TEST(NetworkLinkages, ABrokenOneIsPassedOver)
{
    const loop broken{raw(0x4A, {}),
                      raw(0x4A, {1, 2, 3, 4, 5, 6}),
                      link(9, 0x08),
                      link(9, 0x08, {0x1F}),          // hand_over_type 1 without network_id
                      link(9, 0x08, {0x2F, 1}),       // half of it
                      link(9, 0x08, {0x0E}),          // origin_type 0 without initial_service_id
                      link(9, 0x08, {0x3E, 0, 1, 2}), // half of it
                      link(9, 0x0B),
                      link(9, 0x0B, {1}),
                      link(9, 0x0B, {5, 0, 0, 1, 0}),
                      link(9, 0x0B, {5, 0, 0, 1, 0, 0xFF}), // a stray byte behind a platform
                      link(9, 0x0B, {4, 0, 0, 1, 9}),
                      link(9, 0x0C),
                      link(9, 0x0C, {2}),
                      link(9, 0x0C, {2, 1})};
    for (const octets &bad : broken) {
        SCOPED_TRACE(testing::PrintToString(bad));
        recreate_store();
        store_network({link(1, 1), bad, link(2, 1), bad}, {{bad, link(3, 1)}});
        expect_linkages({{0x1122, 0x3344, 1, 1}, {0x1122, 0x3344, 2, 1}, {0x1122, 0x3344, 3, 1}});
    }
}

// ---- The selector of a system software update

listing<std::uint8_t> selector(std::uint32_t capacity, std::uint32_t nid = network)
{
    return ask<std::uint8_t>(
        [=](std::uint8_t *bytes, std::uint32_t *length) {
            return Orva_Si_GetSsuNitLinkageDescSelector(nid, bytes, length);
        },
        capacity);
}

TEST(UpdateSelector, IsThatOfTheFirstEntry)
{
    store_network({link(1, 1, {9, 9}),
                   update_link(2, software_update_data({{.oui = 0x00015A, .selector = {1, 2, 3}},
                                                        {.oui = 0x00ABCD, .selector = {4}}},
                                                       {8, 8})),
                   update_link(3, software_update_data({{.selector = {5}}}))});
    for (const std::uint32_t capacity : {3u, 4u, 253u}) {
        const auto answer = selector(capacity);
        EXPECT_EQ(answer.result, ORVA_SI_OK);
        EXPECT_EQ(answer.items, (octets{1, 2, 3}));
    }
    EXPECT_EQ(selector(3, 0x10000 + network).items, (octets{1, 2, 3}));
    EXPECT_TRUE(fake::logged(4, "OUI_data_length =  0xc, OUI = 0x15a, selector_length =  0x3\n"))
        << fake::log_text();
}

TEST(UpdateSelector, IsNotCopiedIntoTooLittleRoom)
{
    store_network({update_link(1, software_update_data({{.selector = {1, 2, 3}}}))});
    for (const std::uint32_t capacity : {2u, 0u}) {
        const auto answer = selector(capacity);
        EXPECT_EQ(answer.result, ORVA_SI_ARRAY_FULL);
        EXPECT_EQ(answer.count, capacity);
        EXPECT_EQ(answer.items, octets(capacity, 0));
    }
}

TEST(UpdateSelector, MayBeEmptyOrAsLongAsADescriptorAllows)
{
    store_network({update_link(1, software_update_data({{.selector = {}}}))});
    EXPECT_EQ(selector(0).result, ORVA_SI_OK);
    octets most(255 - 7 - 1 - 4);
    std::iota(most.begin(), most.end(), std::uint8_t{0});
    store_network({update_link(1, software_update_data({{.selector = most}}))}, {}, 7);
    EXPECT_EQ(selector(243, 7).items, most);
    EXPECT_EQ(selector(242, 7).result, ORVA_SI_ARRAY_FULL);
}

TEST(UpdateSelector, OfTheNetworkComesBeforeThoseOfItsStreams)
{
    const auto of = [](std::uint8_t byte) {
        return update_link(byte, software_update_data({{.selector = {byte}}}));
    };
    store_network({link(1, 1)}, {{link(1, 1)}, {of(3)}, {of(4)}});
    EXPECT_EQ(selector(9).items, octets{3});
    store_network({of(2)}, {{of(3)}}, 7);
    EXPECT_EQ(selector(9, 7).items, octets{2});
}

TEST(UpdateSelector, ADescriptorWithoutWholeEntryIsPassedOver)
{
    const loop broken{update_link(1, {}),
                      update_link(1, {0}),
                      update_link(1, {0, 0, 1, 0x5A, 1, 9}), // private data behind an empty loop
                      update_link(1, {3, 0, 1, 0x5A}),
                      update_link(1, {4, 0, 1, 0x5A}),
                      update_link(1, {20, 0, 1, 0x5A, 9, 9}),
                      update_link(1, {6, 0, 1, 0x5A, 9, 9, 9}),
                      update_link(1, {5, 0, 1, 0x5A, 2, 9, 9})}; // runs out of the loop
    for (const octets &bad : broken) {
        SCOPED_TRACE(testing::PrintToString(bad));
        recreate_store();
        store_network({bad});
        const auto none = selector(9);
        EXPECT_EQ(none.result, ORVA_SI_FAILURE);
        EXPECT_EQ(none.count, 9u);
        EXPECT_EQ(none.items, octets(9, 0));
        store_network({bad, update_link(2, software_update_data({{.selector = {7}}}))}, {}, 7);
        EXPECT_EQ(selector(9, 7).items, octets{7});
    }
}

TEST(UpdateSelector, OfAnotherLinkageIsNone)
{
    store_network({link(1, 0x0A, software_update_data({{.selector = {1}}})),
                   link(1, 0x90, software_update_data({{.selector = {1}}}))});
    EXPECT_EQ(selector(9).result, ORVA_SI_FAILURE);
    EXPECT_EQ(selector(9, network + 1).result, ORVA_SI_FAILURE);
}

// ---- The service of the update

int update_service()
{
    std::uint16_t service = 0xEEEE;
    const auto result = Orva_Si_GetSsuNitLinkageServiceId(&service);
    if (result == ORVA_SI_OK)
        return service;
    EXPECT_EQ(result, ORVA_SI_FAILURE);
    EXPECT_EQ(service, 0xEEEE);
    return -1;
}

TEST(UpdateService, IsThatOfTheFirstLinkageOfAnyNetwork)
{
    store_network({link(1, 1)}, {{link(2, 4)}}, 0x3001);
    EXPECT_EQ(update_service(), -1);
    store_network({},
                  {{raw(0x4A, {1, 2, 3, 4, 5, 6}), update_link(0xFFFC, {}), update_link(8, {})}},
                  0x3002, 0x41);
    store_network({update_link(9, {})}, {}, 0x3003, 0x41);
    EXPECT_EQ(update_service(), 0xFFFC);
    EXPECT_TRUE(fake::logged(4, "network id = 0x3002\n")) << fake::log_text();
}

TEST(UpdateService, OfTheNetworkComesBeforeThoseOfItsStreams)
{
    store_network({update_link(2, {})}, {{update_link(3, {})}});
    EXPECT_EQ(update_service(), 2);
}

// ---- Its streams

using pids = std::vector<std::uint16_t>;

auto pids_of(std::uint32_t service)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetSsuPidsByNitLinkage(service, list, count);
    };
}

TEST(UpdateStreams, AreThoseOfThePmtThatCarryDataBroadcast)
{
    store(make(pmt{
              .program = 0x501,
              .descriptors = {data_broadcast_id(0x000A)},
              .streams = {{.pid = 0x151},
                          {.pid = 0x152, .descriptors = {data_broadcast_id(0x000A, {1, 2})}},
                          {.pid = 0x153, .descriptors = {raw(0x66, {0})}},
                          {.pid = 0x1FFE,
                           .descriptors = {iso639("eng"), raw(0x66, {}), data_broadcast_id(0x0106),
                                           data_broadcast_id(0x000A)}}}}),
          0x150);
    store(make(pmt{.program = 0x502,
                   .streams = {{.pid = 0x161, .descriptors = {data_broadcast_id(0x000A)}}}}),
          0x160);
    expect_list(pids_of(0x501), pids{0x152, 0x1FFE});
    expect_list(pids_of(0x10502), pids{0x161});
    expect_empty<std::uint16_t>(pids_of(0x503), ORVA_SI_NO_DATA);
}

TEST(UpdateStreams, AreTraced)
{
    store(make(pmt{.program = 0x501,
                   .streams = {{.pid = 0x152, .descriptors = {data_broadcast_id(0x000A)}}}}));
    fake::clear_log();
    ask<std::uint16_t>(pids_of(0x501), 1);
    EXPECT_TRUE(fake::logged(4, "servicd_id = 0x501\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "elementary_PID = 0x152\n"));
}

} // namespace
