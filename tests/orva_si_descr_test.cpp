// SPDX-License-Identifier: LGPL-2.1-or-later
// Descriptors by type, and what is read out of them.
#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "dvbtables/orva_si_descr.h"
#include "support/sections.h"
#include "support/store.h"

using test::octets;

namespace {

// A service whose descriptors are asked for; owns the section's copy.
class DescriptorLoop : public testing::Test {
protected:
    dvb_sdt_service &service_with(const std::vector<octets> &descriptors)
    {
        section = make(test::sdt{.services = {{.id = 1, .descriptors = descriptors}}});
        copy.resize(section.size());
        dvb_sdt_section *sdt = si::sdt_codec(si::load_section(copy, section.data()));
        return *si::services(*sdt).begin();
    }
    octets section;
    octets copy;
};

std::string text(si::bytes from)
{
    return {from.begin(), from.end()};
}

TEST_F(DescriptorLoop, IsWalkedInBroadcastOrder)
{
    std::vector<unsigned> tags;
    for (descriptor &d :
         si::descriptors(service_with({{0x80, 0}, {0x48, 1, 9}, {0xFF, 2, 1, 1}, {0x00, 0}})))
        tags.push_back(d.tag);
    EXPECT_EQ(tags, (std::vector<unsigned>{0x80, 0x48, 0xFF, 0x00}));
}

TEST_F(DescriptorLoop, WithoutDescriptorsIsEmpty)
{
    const auto loop = si::descriptors(service_with({}));
    EXPECT_TRUE(loop.begin() == loop.end());
    EXPECT_EQ(si::first<dvb_service_descriptor>(loop), nullptr);
}

TEST_F(DescriptorLoop, OnlyTheRightTagIsTheType)
{
    dvb_sdt_service &service = service_with({{0x47, 3, 1, 0, 0}, {0x48, 3, 1, 0, 0}});
    auto at = si::descriptors(service).begin();
    EXPECT_EQ(si::as<dvb_service_descriptor>(*at), nullptr);
    ++at;
    EXPECT_NE(si::as<dvb_service_descriptor>(*at), nullptr);
}

TEST_F(DescriptorLoop, TheFirstThatIsAcceptedIsTheFirst)
{
    dvb_sdt_service &service = service_with({{0x48, 1, 9},
                                             test::service_descriptor(2, "P", "Name"),
                                             test::service_descriptor(3, "P", "Other")});
    auto *found = si::first<dvb_service_descriptor>(si::descriptors(service));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->service_type, 2);
    EXPECT_EQ(text(si::service_name(*found)), "Name");
}

TEST_F(DescriptorLoop, ServiceNamesOfEveryLengthComeOut)
{
    for (const std::size_t provider : {0u, 1u, 120u, 251u})
        for (const std::size_t name : {0u, 1u, 120u, 251u}) {
            if (provider + name > 251)
                continue;
            dvb_sdt_service &service = service_with(
                {test::service_descriptor(1, std::string(provider, 'p'), std::string(name, 'n'))});
            auto *found = si::first<dvb_service_descriptor>(si::descriptors(service));
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(text(si::service_name(*found)), std::string(name, 'n'));
        }
}

TEST_F(DescriptorLoop, APayloadIsWhatTheLengthSays)
{
    dvb_sdt_service &service = service_with({test::raw_text(0x90, "abc"), {0x91, 0}});
    auto at = si::descriptors(service).begin();
    EXPECT_EQ(text(si::payload(*at)), "abc");
    ++at;
    EXPECT_TRUE(si::payload(*at).empty());
}

TEST_F(DescriptorLoop, NamesOfNetworksAndBouquets)
{
    dvb_sdt_service &service =
        service_with({test::network_name("Net"), test::bouquet_name("Bouquet")});
    auto *network = si::first<dvb_network_name_descriptor>(si::descriptors(service));
    auto *bouquet = si::first<dvb_bouquet_name_descriptor>(si::descriptors(service));
    ASSERT_NE(network, nullptr);
    ASSERT_NE(bouquet, nullptr);
    EXPECT_EQ(text(si::name_of(*network)), "Net");
    EXPECT_EQ(text(si::name_of(*bouquet)), "Bouquet");
}

TEST(CopiedText, IsARecordAndAnAnswer)
{
    const octets source{0x05, 'A', 'B'};
    SiDvbString record{};
    EXPECT_TRUE(si::copy_text(record, source));
    EXPECT_EQ(record.charset_type, 5u);
    EXPECT_EQ(test::text_of(record), "AB");
}

TEST(CopiedText, OfNoBytesIsAnEmptyRecord)
{
    const octets source{'A'};
    SiDvbString record{.charset_type = 9, .text = {'x'}, .length = 1};
    EXPECT_TRUE(si::copy_text(record, si::bytes{source}.first(0)));
    EXPECT_EQ(record.length, 0);
    EXPECT_EQ(record.text[0], 0);
}

// A transport stream with these descriptors.
class ServiceLists : public testing::Test {
protected:
    dvb_nit_transport &transport_with(const std::vector<octets> &descriptors)
    {
        const auto section = make(test::nit{.transports = {{.ts = 1, .descriptors = descriptors}}});
        copy.resize(section.size());
        dvb_nit_section *nit = si::nit_codec(si::load_section(copy, section.data()));
        return *si::transports(*nit).begin();
    }
    octets copy;
    std::vector<unsigned> seen;
};

TEST_F(ServiceLists, AreShownEntryByEntry)
{
    dvb_nit_transport &transport = transport_with({test::service_list({{1, 1}, {0x1234, 2}}),
                                                   {0x41, 4, 0, 7, 1, 0},
                                                   test::service_list({{3, 1}})});
    EXPECT_TRUE(si::every_listed_service(transport, [&](const dvb_service_list_service &service) {
        seen.push_back(service.service_id);
        return true;
    }));
    EXPECT_EQ(seen, (std::vector<unsigned>{1, 0x1234, 3}));
}

TEST_F(ServiceLists, StopWhereTheFunctionSaysSo)
{
    dvb_nit_transport &transport = transport_with({test::service_list({{1, 1}, {2, 2}, {3, 1}})});
    EXPECT_FALSE(si::every_listed_service(transport, [&](const dvb_service_list_service &service) {
        seen.push_back(service.service_id);
        return service.service_id != 2;
    }));
    EXPECT_EQ(seen, (std::vector<unsigned>{1, 2}));
}

TEST_F(ServiceLists, WithoutAnyThereIsNothingToStop)
{
    EXPECT_TRUE(si::every_listed_service(transport_with({{0x80, 0}}),
                                         [](const dvb_service_list_service &) { return false; }));
}

} // namespace
