// SPDX-License-Identifier: LGPL-2.1-or-later
// The target regions of a service and their number.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "fakes/platform.h"
#include "orva_si/query_service.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/one_service.h"

using namespace test;

namespace {

using u32 = std::uint32_t;

u32 regions_of_the_service(SiTargetRegion *out, u32 *count)
{
    return Orva_Si_GetSdtTargetRegionInfo(served_ts, served_sid, out, count);
}

// As one would write it down: country, own country if it has one, depth, code.
std::string written(const SiTargetRegion &of)
{
    EXPECT_LE(of.has_region_country, 1);
    char code[16];
    std::snprintf(code, sizeof code, "%d %08x", of.region_depth, of.region_code);
    const std::string own = of.has_region_country == 1 ? of.region_country_code : "-";
    return std::string{of.country_code} + " " + own + " " + code;
}

// The answer, which the number must agree with.
std::vector<std::string> regions()
{
    const auto got = ask<SiTargetRegion>(regions_of_the_service, 150);
    EXPECT_EQ(got.result, ORVA_SI_FAILURE);
    u32 number = 999;
    EXPECT_EQ(Orva_Si_GetSdtTargetRegionInfoCount(served_ts, served_sid, &number), ORVA_SI_OK);
    EXPECT_EQ(number, got.count);
    std::vector<std::string> out;
    for (const auto &record : got.items)
        out.push_back(written(record));
    return out;
}

using list = std::vector<std::string>;

TEST(TargetRegions, HaveACodeOfTheirDepth)
{
    serve({target_region("GBR",
                         {{},
                          {.depth = 1, .primary = 0x05},
                          {.depth = 2, .primary = 0x81, .secondary = 0xA2},
                          {.depth = 3, .primary = 0x81, .secondary = 0xA2, .tertiary = 0xB3C4}})});
    EXPECT_EQ(regions(), (list{"GBR - 0 00000000", "GBR - 1 05000000", "GBR - 2 81a20000",
                               "GBR - 3 81a2b3c4"}));
}

TEST(TargetRegions, MayHaveACountryOfTheirOwn)
{
    serve({target_region(
        "GBR", {{.country = "IRL"},
                {.depth = 1, .primary = 1},
                {.country = "FRA", .depth = 3, .primary = 1, .secondary = 2, .tertiary = 3}})});
    EXPECT_EQ(regions(), (list{"GBR IRL 0 00000000", "GBR - 1 01000000", "GBR FRA 3 01020003"}));
}

TEST(TargetRegions, AreCollectedOverDescriptors)
{
    serve({target_region("GBR", {{.depth = 1, .primary = 1}}), target_region("IRL", {}),
           service_descriptor(1, "P", "N"), target_region("FRA", {{}, {}})});
    EXPECT_EQ(regions(), (list{"GBR - 1 01000000", "FRA - 0 00000000", "FRA - 0 00000000"}));
}

TEST(TargetRegions, AreWrittenWholeOverWhatWasThere)
{
    serve({target_region("GBR", {{.depth = 1, .primary = 5}})});
    SiTargetRegion record;
    std::memset(&record, 0xA5, sizeof record);
    u32 count = 1;
    EXPECT_EQ(regions_of_the_service(&record, &count), ORVA_SI_FAILURE);
    EXPECT_EQ(count, 1u);
    EXPECT_STREQ(record.country_code, "GBR");
    EXPECT_EQ(record.has_region_country, 0);
    EXPECT_EQ(record.region_depth, 1);
    EXPECT_EQ(record.region_code, 0x05000000u);
}

TEST(TargetRegions, TheReservedBitsDoNotCount)
{
    serve({raw(0x7F, {0x09, 'G', 'B', 'R', 0x01, 7, 0xF9, 8})});
    EXPECT_EQ(regions(), (list{"GBR - 1 07000000", "GBR - 1 08000000"}));
}

TEST(TargetRegions, FillTheRoomExactly)
{
    serve({target_region("GBR", {{.depth = 1, .primary = 1}, {}}),
           target_region("IRL", {{.country = "FRA"}})});
    const std::vector<SiTargetRegion> expected{
        {"GBR", 0, "", 1, 0x01000000}, {"GBR", 0, "", 0, 0}, {"IRL", 1, "FRA", 0, 0}};
    // A complete answer is told by the count alone: the result does not say so.
    const auto judged_by_the_count = [](SiTargetRegion *out, u32 *count) {
        const u32 result = regions_of_the_service(out, count);
        EXPECT_NE(result, ORVA_SI_OK);
        return result == ORVA_SI_FAILURE ? u32{ORVA_SI_OK} : result;
    };
    expect_list(
        judged_by_the_count, expected, "need more room\n",
        [](const SiTargetRegion &a, const SiTargetRegion &b) { return written(a) == written(b); });
}

TEST(TargetRegions, WithoutADescriptorThereAreNone)
{
    serve({service_descriptor(1, "P", "N")});
    expect_empty<SiTargetRegion>(regions_of_the_service, ORVA_SI_FAILURE);
    EXPECT_EQ(regions(), list{});
}

TEST(TargetRegions, ATruncatedEntryEndsItsDescriptorOnly)
{
    for (const octets &rest : std::vector<octets>{{0xFC},           // no country
                                                  {0xFC, 'I', 'R'}, // half a country
                                                  {0xF9},           // no primary code
                                                  {0xFA, 1},        // no secondary code
                                                  {0xFB, 1, 2},     // no tertiary code
                                                  {0xFB, 1, 2, 3},  // half of it
                                                  {0xFF, 'I', 'R', 'L', 1, 2, 3}}) {
        octets payload{0x09, 'G', 'B', 'R', 0xF9, 0x11};
        payload.insert(payload.end(), rest.begin(), rest.end());
        serve({raw(0x7F, payload), target_region("FRA", {{}})});
        EXPECT_EQ(regions(), (list{"GBR - 1 11000000", "FRA - 0 00000000"}))
            << testing::PrintToString(rest);
    }
}

TEST(TargetRegions, ADescriptorWithoutItsCountryIsPassedOver)
{
    serve({raw(0x7F, {}), raw(0x7F, {0x09}), raw(0x7F, {0x09, 'G', 'B'}),
           target_region("FRA", {{}})});
    EXPECT_EQ(regions(), list{"FRA - 0 00000000"});
}

TEST(TargetRegions, OtherExtensionsAreNoRegions)
{
    serve({target_region_name("GBR", "eng", {{.name = "North"}}),
           raw(0x7F, {0x04, 'G', 'B', 'R', 0xF9, 0x11}), target_region("FRA", {{}})});
    EXPECT_EQ(regions(), list{"FRA - 0 00000000"});
}

TEST(TargetRegions, MayFillTheDescriptor)
{
    serve({target_region("GBR", std::vector<region>(125, {.depth = 1, .primary = 0xFF}))});
    EXPECT_EQ(regions(), list(125, "GBR - 1 ff000000"));
}

TEST(TargetRegionCount, IsTracedAndNeedsNoEntryValue)
{
    serve({target_region("GBR", {{}, {}, {}})});
    for (const u32 entry : {0u, 1u, 0xFFFFFFFFu}) {
        u32 number = entry;
        EXPECT_EQ(Orva_Si_GetSdtTargetRegionInfoCount(served_ts, served_sid, &number), ORVA_SI_OK);
        EXPECT_EQ(number, 3u);
    }
    EXPECT_TRUE(fake::logged(4, "target region count: 3: ret: 0\n")) << fake::log_text();
}

} // namespace
