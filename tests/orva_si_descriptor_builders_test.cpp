// SPDX-License-Identifier: LGPL-2.1-or-later
// The builders whose mistakes would be hard to see, against bytes written by hand.
#include <gtest/gtest.h>

#include "support/descriptors.h"

using namespace test;

namespace {

TEST(DescriptorBuilders, SatelliteFieldsStandInTheirBits)
{
    EXPECT_EQ(satellite(), (octets{0x43, 11, 0x01, 0x17, 0x57, 0x25, 0x01, 0x92, 0b1'00'00'0'01,
                                   0x02, 0x75, 0x00, 0x03}));
    EXPECT_EQ(satellite({.frequency = 0x01234567,
                         .orbital_position = 0x0300,
                         .east = false,
                         .polarisation = 3,
                         .roll_off = 2,
                         .modulation_system = 1,
                         .modulation_type = 2,
                         .symbol_rate = 0x0220001,
                         .fec_inner = 0xF}),
              (octets{0x43, 11, 0x01, 0x23, 0x45, 0x67, 0x03, 0x00, 0b0'11'10'1'10, 0x02, 0x20,
                      0x00, 0x1F}));
}

TEST(DescriptorBuilders, CableFieldsStandInTheirBits)
{
    EXPECT_EQ(cable(),
              (octets{0x44, 11, 0x03, 0x12, 0x00, 0x00, 0xFF, 0xF2, 0x03, 0x00, 0x68, 0x75, 0x0F}));
}

TEST(DescriptorBuilders, TerrestrialFieldsStandInTheirBits)
{
    EXPECT_EQ(terrestrial({.centre_frequency = 0x01020304,
                           .bandwidth = 5,
                           .priority = 0,
                           .time_slicing_indicator = 1,
                           .mpe_fec_indicator = 0,
                           .constellation = 1,
                           .hierarchy_information = 6,
                           .code_rate_hp_stream = 3,
                           .code_rate_lp_stream = 4,
                           .guard_interval = 2,
                           .transmission_mode = 1,
                           .other_frequency_flag = 1}),
              (octets{0x5A, 11, 1, 2, 3, 4, 0b101'0'1'0'11, 0b01'110'011, 0b100'10'01'1, 0xFF, 0xFF,
                      0xFF, 0xFF}));
}

TEST(DescriptorBuilders, LogicalChannelNumbersHaveTheirWidth)
{
    EXPECT_EQ(logical_channels({{.service = 0x0102, .visible = false, .number = 0x0201}}),
              (octets{0x83, 4, 1, 2, 0b0'11111'10, 0x01}));
    EXPECT_EQ(logical_channels({{.service = 0x0102, .number = 0x0201}}, lcn_bits::fourteen),
              (octets{0x83, 4, 1, 2, 0b1'1'000010, 0x01}));
}

TEST(DescriptorBuilders, NordigListsCarryTheirLengths)
{
    EXPECT_EQ(nordig_channels({{.id = 3, .name = "A", .channels = {{.service = 1}, {.service = 2}}},
                               {.id = 4, .country = "swe"}}),
              (octets{0x87, 21, 3, 1,    'A', 'n', 'o', 'r', 8,   0,   1, 0xFC,
                      1,    0,  2, 0xFC, 1,   4,   0,   's', 'w', 'e', 0}));
}

TEST(DescriptorBuilders, RegionsWriteTheCodesOfTheirDepth)
{
    EXPECT_EQ(
        target_region(
            "GBR",
            {{},
             {.depth = 1, .primary = 2},
             {.country = "IRL", .depth = 3, .primary = 4, .secondary = 5, .tertiary = 0x0607}}),
        (octets{0x7F, 15, 0x09, 'G', 'B', 'R', 0xF8, 0xF9, 2, 0xFF, 'I', 'R', 'L', 4, 5, 6, 7}));
    EXPECT_EQ(target_region_name(
                  "GBR", "eng",
                  {{.name = "Ab"},
                   {.name = "C", .depth = 3, .primary = 2, .secondary = 3, .tertiary = 0x0405}}),
              (octets{0x7F, 17, 0x0A, 'G', 'B', 'R', 'e', 'n', 'g', 0b01'000010, 'A', 'b', 1,
                      0b11'000001, 'C', 2, 3, 4, 5}));
}

TEST(DescriptorBuilders, LinkagesOfEachKindEndInTheirData)
{
    EXPECT_EQ(linkage({.ts = 0x0102,
                       .original_network = 0x0304,
                       .service = 0x0506,
                       .type = 0x09,
                       .data = software_update_data({{.oui = 0x0A0B0C, .selector = {7, 8}}}, {9})}),
              (octets{0x4A, 15, 1, 2, 3, 4, 5, 6, 9, 6, 0x0A, 0x0B, 0x0C, 2, 7, 8, 9}));
    EXPECT_EQ(ip_notification_data({{.id = 0x010203, .names = {{"eng", "X"}}}}),
              (octets{9, 1, 2, 3, 5, 'e', 'n', 'g', 1, 'X'}));
    EXPECT_EQ(hand_over_data({.type = 2, .origin_type = 0, .network = 3, .initial_service = 4}),
              (octets{0x2E, 0, 3, 0, 4}));
    EXPECT_EQ(hand_over_data({.type = 4, .origin_type = 1}), (octets{0x4F}));
    EXPECT_EQ(deferred_notification_data(1), (octets{1}));
    EXPECT_EQ(deferred_notification_data(2, 0x0304), (octets{2, 3, 4}));
}

TEST(DescriptorBuilders, ExtendedEventsCountTheirItems)
{
    EXPECT_EQ(extended_event(
                  {.number = 1, .last_number = 2, .items = {{"A", "bc"}, {"", ""}}, .text = "d"}),
              (octets{0x4E, 14, 0x12, 'e', 'n', 'g', 7, 1, 'A', 2, 'b', 'c', 0, 0, 1, 'd'}));
}

TEST(DescriptorBuilders, BrandsComeWithTheirFlag)
{
    EXPECT_EQ(ci_protection(true), (octets{0xCE, 1, 0xBF}));
    EXPECT_EQ(ci_protection(false, {0x0102, 0x0304}, {9}),
              (octets{0xCE, 7, 0x7F, 2, 1, 2, 3, 4, 9}));
}

TEST(DescriptorBuilders, ServiceAttributesAreTheTwoLowBits)
{
    EXPECT_EQ(service_attributes({{.id = 0x0102, .visible = false}, {.numeric_selection = false}}),
              (octets{0x86, 6, 1, 2, 0xFE, 0, 1, 0xFD}));
}

} // namespace
