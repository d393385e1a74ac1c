// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about bouquets.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_bouquet.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using ids = std::vector<std::uint16_t>;

struct same_service {
    bool operator()(const SiBouquetService &a, const SiBouquetService &b) const
    {
        return a.service_id == b.service_id && a.service_type == b.service_type &&
               a.transport_stream_id == b.transport_stream_id &&
               a.original_network_id == b.original_network_id;
    }
};

auto services_of(std::uint32_t bouquet)
{
    return [=](SiBouquetService *list, std::uint32_t *count) {
        return Orva_Si_GetServiceListInBouquet(bouquet, list, count);
    };
}

// Puts a bouquet of that many sections into the store.
void store_bouquet(std::uint16_t bouquet, std::uint8_t sections)
{
    for (std::uint8_t i = 0; i < sections; ++i)
        store(make(bat{.bouquet = bouquet,
                       .section_number = i,
                       .last_section_number = static_cast<std::uint8_t>(sections - 1)}));
}

TEST(Bouquets, AreListedInTheOrderOfTheStore)
{
    store_bouquet(0x6002, 1);
    store_bouquet(0x6001, 1);
    store(make(sdt{.ts = 5})); // another table of the same PID
    expect_list(Orva_Si_GetBouquetIdList, ids{0x6002, 0x6001});
}

TEST(Bouquets, OneOfThreeSectionsIsListedOnce)
{
    store_bouquet(0x6001, 3);
    store_bouquet(0x6002, 1);
    const auto answer = ask<std::uint16_t>(Orva_Si_GetBouquetIdList, 4);
    EXPECT_EQ(answer.result, ORVA_SI_OK);
    EXPECT_EQ(answer.items, (ids{0x6001, 0x6002}));
}

TEST(Bouquets, AFullListIsFullEvenForABouquetItHolds)
{
    store_bouquet(0x6001, 2);
    const auto answer = ask<std::uint16_t>(Orva_Si_GetBouquetIdList, 1);
    EXPECT_EQ(answer.result, ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(answer.items, (ids{0x6001}));
    EXPECT_TRUE(fake::logged(2, "need more room\n")) << fake::log_text();
}

TEST(Bouquets, ADamagedSectionBehindAFullListIsPassedOver)
{
    store(make(bat{.bouquet = 0x6001, .last_section_number = 1}));
    store(damage(make(bat{.bouquet = 0x6001, .section_number = 1, .last_section_number = 1})));
    EXPECT_EQ(ask<std::uint16_t>(Orva_Si_GetBouquetIdList, 1).result, ORVA_SI_OK);
}

TEST(Bouquets, OfNothingThereIsNoData)
{
    store(make(sdt{.ts = 5}));
    expect_empty<std::uint16_t>(Orva_Si_GetBouquetIdList, ORVA_SI_NO_DATA);
    std::uint16_t id = 0;
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetBouquetIdList(nullptr, &count); }, "bouq");
    expect_refused([&] { return Orva_Si_GetBouquetIdList(&id, nullptr); }, "pcount");
}

TEST(BouquetServices, ComeWithTheirTransportStream)
{
    store(make(
        bat{.bouquet = 0x6001,
            .last_section_number = 1,
            .descriptors = {bouquet_name("Sports"), service_list({{99, 1}})},
            .transports = {
                {.ts = 10,
                 .original_network = 0x20,
                 .descriptors = {service_list({{1, 0x01}, {2, 0x19}}), service_list({{3, 2}})}},
                {.ts = 11, .original_network = 0x21, .descriptors = {service_list({{1, 1}})}}}}));
    store(make(
        bat{.bouquet = 0x6001,
            .section_number = 1,
            .last_section_number = 1,
            .transports = {
                {.ts = 12, .original_network = 0x20, .descriptors = {service_list({{7, 1}})}}}}));
    store(make(bat{.bouquet = 0x6002, .transports = {{.descriptors = {service_list({{50, 1}})}}}}));
    fake::clear_log();
    expect_list(services_of(0x6001),
                std::vector<SiBouquetService>{{1, 0x01, 10, 0x20},
                                              {2, 0x19, 10, 0x20},
                                              {3, 2, 10, 0x20},
                                              {1, 1, 11, 0x21},
                                              {7, 1, 12, 0x20}},
                "need more room\n", same_service{});
    ask<SiBouquetService>(services_of(0x26001), 1);
    EXPECT_TRUE(fake::logged(4, "the passed bouq id = 0x6001\n")) << fake::log_text();
}

TEST(BouquetServices, OfABouquetWithoutAnyThereIsNoData)
{
    store(make(
        bat{.bouquet = 0x6001, .transports = {{.ts = 10, .descriptors = {raw(0x41, {1, 2})}}}}));
    expect_empty<SiBouquetService>(services_of(0x6001), ORVA_SI_NO_DATA);
    expect_empty<SiBouquetService>(services_of(0x6002), ORVA_SI_NO_DATA);
    SiBouquetService service{};
    std::uint32_t count = 1;
    expect_refused([&] { return Orva_Si_GetServiceListInBouquet(1, nullptr, &count); }, "servlist");
    expect_refused([&] { return Orva_Si_GetServiceListInBouquet(1, &service, nullptr); }, "pcount");
}

TEST(BouquetServices, ALoopLengthBeyondTheSectionEndsWithIt)
{
    const auto section =
        make(bat{.bouquet = 0x6001, .transports = {{.descriptors = {service_list({{1, 1}})}}}});
    store(with_length12(section, 10, 0xFFF));
    EXPECT_EQ(ask<SiBouquetService>(services_of(0x6001), 9).count, 1u);
}

TEST(BouquetName, IsThatOfTheFirstLoop)
{
    store(make(bat{.bouquet = 0x6001,
                   .descriptors = {raw(0x49, {0x80, 'd', 'e', 'u'}), bouquet_name("Sports")},
                   .transports = {{.descriptors = {bouquet_name("Not me")}}}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetBouquetNameById(0x6001, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "Sports");
    EXPECT_TRUE(fake::logged(4, "Bouquet name:[6]53 70 6f 72 str:Sports\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_GetBouquetNameById(0x6002, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(text_of(name), "Sports");
    expect_refused([] { return Orva_Si_GetBouquetNameById(1, nullptr); }, "pname");
}

TEST(BouquetName, ControlBytesDoNotReachTheLog)
{
    store(make(bat{.bouquet = 0x6001, .descriptors = {bouquet_name("a\033[2J\nb\x9B")}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetBouquetNameById(0x6001, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "a\033[2J\nb\x9B");
    EXPECT_TRUE(fake::logged(4, "Bouquet name:[8]61 1b 5b 32 str:a.[2J.b.\n")) << fake::log_text();
}

TEST(BouquetName, TheLongestNameIsLoggedWhole)
{
    const std::string longest(255, 'x');
    store(make(bat{.bouquet = 0x6001, .descriptors = {bouquet_name(longest)}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetBouquetNameById(0x6001, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), longest);
    EXPECT_TRUE(fake::logged(4, "Bouquet name:[255]78 78 78 78 str:" + longest + "\n"));
}

TEST(BouquetName, AShortNameIsLoggedWithZeroBytesBehindIt)
{
    store(make(bat{.bouquet = 0x6001, .descriptors = {bouquet_name("")}}));
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetBouquetNameById(0x6001, &name), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "Bouquet name:[0]00 00 00 00 str:\n")) << fake::log_text();
}

} // namespace
