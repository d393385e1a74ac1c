// SPDX-License-Identifier: LGPL-2.1-or-later
// Target regions of networks and of their transport streams, and the names of regions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/model.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/store_fixture.h"

using namespace test;

namespace {

using loop = std::vector<octets>;

constexpr std::uint16_t network = 0x3001;
constexpr std::uint16_t ts = 10;
constexpr std::uint16_t onid = 0x20;

// The results of these getters tell whether the array was full, and no more.
template <class T, class Get, class Same>
void expect_regions(Get get, const std::vector<T> &expected, Same same)
{
    const auto size = static_cast<std::uint32_t>(expected.size());
    for (const std::uint32_t capacity : {size, size + 1, size + 300}) {
        const auto whole = ask<T>(get, capacity);
        EXPECT_EQ(whole.result, ORVA_SI_FAILURE) << "capacity " << capacity;
        EXPECT_TRUE(std::ranges::equal(whole.items, expected, same)) << "capacity " << capacity;
    }
    for (std::uint32_t capacity = 0; capacity < size; ++capacity) {
        fake::clear_log();
        const auto part = ask<T>(get, capacity);
        EXPECT_EQ(part.result, ORVA_SI_ARRAY_FULL) << "capacity " << capacity;
        EXPECT_EQ(part.count, capacity);
        EXPECT_TRUE(std::equal(part.items.begin(), part.items.end(), expected.begin(), same));
        EXPECT_TRUE(fake::logged(2, "need more room\n")) << fake::log_text();
    }
}

struct same_region {
    static auto fields(const SiTargetRegion &of)
    {
        return std::tuple{std::string(of.country_code, 4), of.has_region_country,
                          of.has_region_country == 1 ? std::string(of.region_country_code, 4) : "",
                          of.region_depth, of.region_code};
    }
    bool operator()(const SiTargetRegion &a, const SiTargetRegion &b) const
    {
        return fields(a) == fields(b);
    }
};

SiTargetRegion in(const char *country, std::uint8_t depth, std::uint32_t code,
                  const char *own_country = nullptr)
{
    SiTargetRegion record{};
    std::memcpy(record.country_code, country, 4);
    record.has_region_country = own_country != nullptr;
    if (own_country != nullptr)
        std::memcpy(record.region_country_code, own_country, 4);
    record.region_depth = depth;
    record.region_code = code;
    return record;
}

// ---- Regions: of the network and of a transport stream, the same but for the place

struct place {
    std::string name;
    bool of_network;
};

void PrintTo(const place &of, std::ostream *out)
{
    *out << of.name;
}

class Regions : public testing::TestWithParam<place> {
protected:
    // Puts descriptors where they are read, and there alone.
    static void put(const loop &descriptors) { put(descriptors, GetParam().of_network); }
    static void put_elsewhere(const loop &descriptors) { put(descriptors, !GetParam().of_network); }
    static std::uint32_t list(SiTargetRegion *records, std::uint32_t *count)
    {
        return GetParam().of_network
                   ? Orva_Si_GetGlobalTargetRegionInfo(network, records, count)
                   : Orva_Si_GetTsTargetRegionInfo(network, ts, onid, records, count);
    }
    static std::uint32_t number()
    {
        std::uint32_t count = 0xDEAD;
        EXPECT_EQ(GetParam().of_network
                      ? Orva_Si_GetGlobalTargetRegionInfoCount(network, &count)
                      : Orva_Si_GetTsTargetRegionInfoCount(network, ts, onid, &count),
                  ORVA_SI_OK);
        return count;
    }
    static void expect(const std::vector<SiTargetRegion> &expected)
    {
        expect_regions(list, expected, same_region{});
        EXPECT_EQ(number(), expected.size());
    }

private:
    static void put(const loop &descriptors, bool of_network)
    {
        const auto none = loop{};
        store(make(nit{.network = network,
                       .descriptors = of_network ? descriptors : none,
                       .transports = {{.ts = ts,
                                       .original_network = onid,
                                       .descriptors = of_network ? none : descriptors}}}));
        fake::clear_log();
    }
};

TEST_P(Regions, HaveTheCodesOfTheirDepth)
{
    put({target_region("GBR", {{.depth = 0},
                               {.depth = 1, .primary = 0xA1},
                               {.depth = 2, .primary = 0xA2, .secondary = 0xB2},
                               {.depth = 3, .primary = 0xA3, .secondary = 0xB3, .tertiary = 0xC3D4},
                               {.country = "IRL", .depth = 1, .primary = 5},
                               {.country = "FRA"}})});
    expect({in("GBR", 0, 0), in("GBR", 1, 0xA1000000), in("GBR", 2, 0xA2B20000),
            in("GBR", 3, 0xA3B3C3D4), in("GBR", 1, 0x05000000, "IRL"), in("GBR", 0, 0, "FRA")});
}

TEST_P(Regions, ComeFromEveryDescriptor)
{
    put({target_region("GBR", {{.depth = 1, .primary = 1}}), network_name("x"),
         target_region("FRA", {}), target_region("DEU", {{.depth = 1, .primary = 2}})});
    expect({in("GBR", 1, 0x01000000), in("DEU", 1, 0x02000000)});
}

TEST_P(Regions, OfNoneTheCountIsZero)
{
    put({target_region_name("GBR", "eng", {{"London"}}), raw(0x7F, {0x04, 'G', 'B', 'R', 0xF8})});
    expect_empty<SiTargetRegion>(list, ORVA_SI_FAILURE);
    EXPECT_EQ(number(), 0u);
}

TEST_P(Regions, AreNotReadElsewhere)
{
    put_elsewhere({target_region("GBR", {{}})});
    expect_empty<SiTargetRegion>(list, ORVA_SI_FAILURE);
    EXPECT_EQ(number(), 0u);
}

TEST_P(Regions, AnEntryThatIsCutEndsItsDescriptor)
{
    const auto whole = target_region(
        "GBR", {{.depth = 1, .primary = 1},
                {.country = "IRL", .depth = 3, .primary = 2, .secondary = 3, .tertiary = 4}});
    const auto good = target_region("DEU", {{.depth = 1, .primary = 9}});
    constexpr std::size_t first_end = 2 + 1 + 3 + 2; // tag and length, extension, country, entry
    for (std::size_t size = first_end; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        octets cut_short(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        cut_short[1] = static_cast<std::uint8_t>(size - 2);
        recreate_store();
        put({cut_short, good});
        expect({in("GBR", 1, 0x01000000), in("DEU", 1, 0x09000000)});
    }
}

TEST_P(Regions, ADescriptorWithoutWholeCountryIsPassedOver)
{
    put({raw(0x7F, {}), raw(0x7F, {0x09}), raw(0x7F, {0x09, 'G', 'B'}),
         raw(0x7F, {0x09, 'G', 'B', 'R'}), raw(0x7F, {0x09, 'G', 'B', 'R', 0xF9}),
         target_region("DEU", {{}})});
    expect({in("DEU", 0, 0)});
}

TEST_P(Regions, ReservedBitsDoNotCount)
{
    put({raw(0x7F, {0x09, 'G', 'B', 'R', 0x01, 7, 0x05, 'I', 'R', 'L', 8})});
    expect({in("GBR", 1, 0x07000000), in("GBR", 1, 0x08000000, "IRL")});
}

INSTANTIATE_TEST_SUITE_P(, Regions,
                         testing::Values(place{"OfTheNetwork", true},
                                         place{"OfATransportStream", false}),
                         [](const testing::TestParamInfo<place> &of) { return of.param.name; });

TEST(StreamRegions, AreThoseOfTheStreamOfItsOriginalNetwork)
{
    store(make(nit{
        .network = network,
        .transports = {
            {.ts = ts, .original_network = onid + 1, .descriptors = {target_region("GBR", {{}})}},
            {.ts = ts + 1, .original_network = onid, .descriptors = {target_region("FRA", {{}})}},
            {.ts = ts, .original_network = onid, .descriptors = {target_region("DEU", {{}})}}}}));
    const auto of = [](std::uint32_t stream, std::uint32_t original) {
        return [=](SiTargetRegion *list, std::uint32_t *count) {
            return Orva_Si_GetTsTargetRegionInfo(network, stream, original, list, count);
        };
    };
    expect_regions(of(ts, onid), std::vector{in("DEU", 0, 0)}, same_region{});
    expect_regions(of(0x10000 + ts, 0x10000 + onid), std::vector{in("DEU", 0, 0)}, same_region{});
    expect_regions(of(ts, onid + 1), std::vector{in("GBR", 0, 0)}, same_region{});
    expect_empty<SiTargetRegion>(of(0xFFFF, onid), ORVA_SI_FAILURE);
    expect_empty<SiTargetRegion>(of(ts, 0xFFFF), ORVA_SI_FAILURE);
}

// ---- Names

struct same_text {
    bool operator()(const SiDvbString &a, const std::string &b) const { return text_of(a) == b; }
};

std::uint32_t list_names(SiDvbString *names, std::uint32_t *count)
{
    return Orva_Si_GetTargetRegionName(network, names, count);
}

// The names come out, and their number is told.
void expect_names(const std::vector<std::string> &expected)
{
    const auto size = static_cast<std::uint32_t>(expected.size());
    for (const std::uint32_t capacity : {size, size + 1, 0u, size - 1}) {
        const auto answer = ask<SiDvbString>(list_names, capacity);
        EXPECT_EQ(answer.result, capacity < size ? ORVA_SI_ARRAY_FULL : ORVA_SI_FAILURE);
        EXPECT_EQ(answer.count, std::min(capacity, size));
        EXPECT_TRUE(
            std::equal(answer.items.begin(), answer.items.end(), expected.begin(), same_text{}));
    }
    EXPECT_TRUE(fake::logged(2, "need more room\n")) << fake::log_text();
    std::uint32_t count = 0xDEAD;
    EXPECT_EQ(Orva_Si_GetTargetRegionNameCount(network, &count), ORVA_SI_OK);
    EXPECT_EQ(count, size);
}

void store_network(const loop &descriptors, const loop &of_stream = {})
{
    store(make(nit{.network = network,
                   .descriptors = descriptors,
                   .transports = {{.ts = ts, .descriptors = of_stream}}}));
    fake::clear_log();
}

TEST(RegionNames, AreThoseOfEveryEntryOfEveryDescriptor)
{
    store_network(
        {target_region_name(
             "GBR", "eng",
             {{"England", 1, 1}, {"London", 2, 1, 2}, {"Camden", 3, 1, 2, 0x0304}, {"", 1, 2}}),
         target_region("GBR", {{}}), target_region_name("FRA", "fra", {}),
         target_region_name("FRA", "fra", {{"\x05\xCEle", 1, 9}})});
    expect_names({"England", "London", "Camden", "", "\xCEle"});
    SiDvbString names[5]{};
    std::uint32_t count = 5;
    list_names(names, &count);
    EXPECT_EQ(names[0].charset_type, static_cast<std::uint32_t>('E'));
    EXPECT_EQ(names[4].charset_type, 5u);
}

TEST(RegionNames, PrimaryCodeStandsInEveryEntry)
{
    store_network({target_region_name("GBR", "eng", {{"All", 0, 1}, {"Kent", 1, 2}})});
    expect_names({"All", "Kent"});
}

TEST(RegionNames, AreCountedInTheLog)
{
    store_network({target_region_name("GBR", "eng", {{"England"}, {"Wales"}})});
    std::uint32_t count = 0;
    EXPECT_EQ(Orva_Si_GetTargetRegionNameCount(network, &count), ORVA_SI_OK);
    EXPECT_TRUE(std::ranges::any_of(fake::log_lines(), [](const fake::log_line &line) {
        return line.level == 4 && line.text.starts_with("target region name count: 2: ret: ");
    })) << fake::log_text();
}

TEST(RegionNames, OfNoneTheCountIsZero)
{
    store_network({target_region("GBR", {{}})}, {target_region_name("GBR", "eng", {{"London"}})});
    expect_empty<SiDvbString>(list_names, ORVA_SI_FAILURE);
    std::uint32_t count = 9;
    EXPECT_EQ(Orva_Si_GetTargetRegionNameCount(network, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 0u);
}

TEST(RegionNames, AnEntryThatIsCutEndsItsDescriptor)
{
    const auto whole =
        target_region_name("GBR", "eng", {{"Wales", 1, 1}, {"Camden", 3, 1, 2, 0x0304}});
    constexpr std::size_t first_end = 2 + 1 + 3 + 3 + 1 + 5 + 1; // header, codes, first entry
    for (std::size_t size = first_end; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        octets cut_short(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        cut_short[1] = static_cast<std::uint8_t>(size - 2);
        recreate_store();
        store_network({cut_short, target_region_name("FRA", "fra", {{"Brest"}})});
        expect_names({"Wales", "Brest"});
    }
}

TEST(RegionNames, ADescriptorWithoutWholeHeadIsPassedOver)
{
    store_network({raw(0x7F, {0x0A}), raw(0x7F, {0x0A, 'G', 'B', 'R', 'e', 'n'}),
                   raw(0x7F, {0x0A, 'G', 'B', 'R', 'e', 'n', 'g'}),
                   raw(0x7F, {0x0A, 'G', 'B', 'R', 'e', 'n', 'g', 0x7F, 'A', 1}),
                   target_region_name("FRA", "fra", {{"Brest"}})});
    expect_names({"Brest"});
}

} // namespace
