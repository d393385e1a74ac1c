// SPDX-License-Identifier: LGPL-2.1-or-later
// How a network's transport streams are sent: the delivery descriptors.
#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
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

// The same descriptor with one byte less and with one more.
octets shorter(octets descriptor)
{
    descriptor.pop_back();
    --descriptor[1];
    return descriptor;
}
octets longer(octets descriptor)
{
    descriptor.push_back(0);
    ++descriptor[1];
    return descriptor;
}

auto fields(const SiSatelliteDelivery &of)
{
    return std::tuple{
        of.transport_stream_id, of.frequency, of.orbital_position,  of.west_east_flag,
        of.polarisation,        of.roll_off,  of.modulation_system, of.modulation_type,
        of.symbol_rate,         of.FEC_inner};
}
auto fields(const SiCableDelivery &of)
{
    return std::tuple{of.transport_stream_id, of.frequency,   of.FEC_outer,
                      of.modulation,          of.symbol_rate, of.FEC_inner};
}
auto fields(const SiTerrDelivery &of)
{
    return std::tuple{of.transport_stream_id,
                      of.centre_frequency,
                      of.bandwidth,
                      of.priority,
                      of.time_slicing_indicator,
                      of.mpe_fec_indicator,
                      of.constellation,
                      of.hierarchy_information,
                      of.code_rate_hp_stream,
                      of.code_rate_lp_stream,
                      of.guard_interval,
                      of.transmission_mode,
                      of.other_frequency_flag};
}

struct same_delivery {
    template <class T>
    bool operator()(const T &a, const T &b) const
    {
        return fields(a) == fields(b);
    }
};

// ---- The three systems: what is broadcast, and what it reads as

// Every field has a value of its own, and the largest in the second descriptor.
struct satellite_system {
    using record = SiSatelliteDelivery;
    static constexpr auto list = Orva_Si_GetSatelliteDeliveryList;
    static octets first()
    {
        return satellite({.frequency = 0x01175725,
                          .orbital_position = 0x0192,
                          .east = true,
                          .polarisation = 2,
                          .roll_off = 1,
                          .modulation_system = 0,
                          .modulation_type = 3,
                          .symbol_rate = 0x0275000,
                          .fec_inner = 5});
    }
    static octets second()
    {
        return satellite({.frequency = 0x99999999,
                          .orbital_position = 0x1800,
                          .east = false,
                          .polarisation = 3,
                          .roll_off = 2,
                          .modulation_system = 1,
                          .modulation_type = 0,
                          .symbol_rate = 0x9999999,
                          .fec_inner = 15});
    }
    static record read_first(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .frequency = 0x01175725,
                .orbital_position = 0x0192,
                .west_east_flag = 1,
                .polarisation = 2,
                .modulation_system = 0,
                .roll_off = 1,
                .modulation_type = 3,
                .symbol_rate = 0x0275000,
                .FEC_inner = 5};
    }
    static record read_second(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .frequency = 0x99999999,
                .orbital_position = 0x1800,
                .west_east_flag = 0,
                .polarisation = 3,
                .modulation_system = 1,
                .roll_off = 2,
                .modulation_type = 0,
                .symbol_rate = 0x9999999,
                .FEC_inner = 15};
    }
    // Bytes behind the last field do not harm.
    static std::vector<octets> broken() { return {raw(0x43, {}), shorter(first())}; }
};

struct cable_system {
    using record = SiCableDelivery;
    static constexpr auto list = Orva_Si_GetCableDeliveryList;
    static octets first()
    {
        return cable({.frequency = 0x03120000,
                      .fec_outer = 2,
                      .modulation = 3,
                      .symbol_rate = 0x0068750,
                      .fec_inner = 1});
    }
    static octets second()
    {
        return cable({.frequency = 0x98765432,
                      .fec_outer = 15,
                      .modulation = 0xFE,
                      .symbol_rate = 0x9876543,
                      .fec_inner = 14});
    }
    static record read_first(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .frequency = 0x03120000,
                .FEC_outer = 2,
                .modulation = 3,
                .symbol_rate = 0x0068750,
                .FEC_inner = 1};
    }
    static record read_second(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .frequency = 0x98765432,
                .FEC_outer = 15,
                .modulation = 0xFE,
                .symbol_rate = 0x9876543,
                .FEC_inner = 14};
    }
    static std::vector<octets> broken()
    {
        return {raw(0x44, {}), shorter(first()), longer(first())};
    }
};

struct terrestrial_system {
    using record = SiTerrDelivery;
    static constexpr auto list = Orva_Si_GetTerrDeliveryList;
    static octets first()
    {
        return terrestrial({.centre_frequency = 62600000,
                            .bandwidth = 5,
                            .priority = 0,
                            .time_slicing_indicator = 1,
                            .mpe_fec_indicator = 0,
                            .constellation = 1,
                            .hierarchy_information = 6,
                            .code_rate_hp_stream = 2,
                            .code_rate_lp_stream = 5,
                            .guard_interval = 3,
                            .transmission_mode = 1,
                            .other_frequency_flag = 1});
    }
    static octets second()
    {
        return terrestrial({.centre_frequency = 0xFEDCBA98,
                            .bandwidth = 2,
                            .priority = 1,
                            .time_slicing_indicator = 0,
                            .mpe_fec_indicator = 1,
                            .constellation = 2,
                            .hierarchy_information = 1,
                            .code_rate_hp_stream = 5,
                            .code_rate_lp_stream = 2,
                            .guard_interval = 0,
                            .transmission_mode = 2,
                            .other_frequency_flag = 0});
    }
    static record read_first(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .centre_frequency = 62600000,
                .bandwidth = 5,
                .priority = 0,
                .time_slicing_indicator = 1,
                .mpe_fec_indicator = 0,
                .constellation = 1,
                .hierarchy_information = 6,
                .code_rate_hp_stream = 2,
                .code_rate_lp_stream = 5,
                .guard_interval = 3,
                .transmission_mode = 1,
                .other_frequency_flag = 1};
    }
    static record read_second(std::uint16_t ts)
    {
        return {.transport_stream_id = ts,
                .centre_frequency = 0xFEDCBA98,
                .bandwidth = 2,
                .priority = 1,
                .time_slicing_indicator = 0,
                .mpe_fec_indicator = 1,
                .constellation = 2,
                .hierarchy_information = 1,
                .code_rate_hp_stream = 5,
                .code_rate_lp_stream = 2,
                .guard_interval = 0,
                .transmission_mode = 2,
                .other_frequency_flag = 0};
    }
    static std::vector<octets> broken()
    {
        return {raw(0x5A, {}), shorter(first()), longer(first())};
    }
};

template <class System>
class Delivery : public testing::Test {
protected:
    using record = typename System::record;
    static auto of(std::uint32_t nid)
    {
        return [=](record *list, std::uint32_t *count) { return System::list(nid, list, count); };
    }
    static void expect(const std::vector<record> &expected)
    {
        expect_list(of(network), expected, "need more room\n", same_delivery{});
    }
};
using systems = testing::Types<satellite_system, cable_system, terrestrial_system>;
TYPED_TEST_SUITE(Delivery, systems);

TYPED_TEST(Delivery, IsListedWithEveryFieldAsBroadcast)
{
    store_network({stream(0xFFFE, {raw(0x41, {0, 1, 1}), TypeParam::first()}), stream(11, {}),
                   stream(12, {TypeParam::second()})});
    this->expect({TypeParam::read_first(0xFFFE), TypeParam::read_second(12)});
}

TYPED_TEST(Delivery, OfAnotherSystemIsNotListed)
{
    std::vector<octets> others{satellite(), cable(), terrestrial()};
    std::erase_if(others, [](const octets &one) { return one[0] == TypeParam::first()[0]; });
    store_network({stream(10, others)});
    expect_empty<typename TypeParam::record>(this->of(network), ORVA_SI_NO_DATA);
}

TYPED_TEST(Delivery, OfTheWholeNetworkIsOfNoStream)
{
    store_network({stream(10, {})}, {TypeParam::first()});
    expect_empty<typename TypeParam::record>(this->of(network), ORVA_SI_NO_DATA);
}

TYPED_TEST(Delivery, ABrokenDescriptorIsPassedOver)
{
    std::vector<transport> transports;
    std::vector<typename TypeParam::record> expected;
    for (const octets &bad : TypeParam::broken()) {
        const auto ts = static_cast<std::uint16_t>(10 + transports.size());
        transports.push_back(stream(ts, {bad, TypeParam::second()}));
        expected.push_back(TypeParam::read_second(ts));
    }
    transports.push_back(stream(0x99, TypeParam::broken()));
    store_network(transports);
    this->expect(expected);
}

TYPED_TEST(Delivery, ComesFromAllSectionsInTheirOrder)
{
    store(make(nit{.network = network,
                   .last_section_number = 1,
                   .transports = {stream(10, {TypeParam::second()})}}));
    store(make(nit{.network = network,
                   .section_number = 1,
                   .last_section_number = 1,
                   .transports = {stream(11, {TypeParam::first()})}}));
    this->expect({TypeParam::read_second(10), TypeParam::read_first(11)});
}

TEST(SatelliteDelivery, IsTraced)
{
    store_network({stream(1051, {satellite({.orbital_position = 0x0192,
                                            .polarisation = 1,
                                            .roll_off = 2,
                                            .modulation_system = 1,
                                            .modulation_type = 2})}),
                   stream(3, {satellite()})});
    std::uint32_t count = 2;
    SiSatelliteDelivery records[2]{};
    ASSERT_EQ(Orva_Si_GetSatelliteDeliveryList(network, records, &count), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "satellite_delivery_list[0], tsid = 1051,freq=18306853GHz,"
                                "orbital_position=402 degree, west_east_flag=1,polarisation=1,"
                                "modulation_system=1,roll_off=2,modulation_type=2,"
                                "symbol_rate=2576384,FEC_inner=3\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "satellite_delivery_list[1], tsid = 3,freq=18306853GHz,"
                                "orbital_position=402 degree, west_east_flag=1,polarisation=0,"
                                "modulation_system=0,roll_off=0,modulation_type=1,"
                                "symbol_rate=2576384,FEC_inner=3\n"))
        << fake::log_text();
}

TEST(SatelliteDelivery, FurtherBytesAreIgnored)
{
    store_network({stream(10, {longer(satellite_system::first())})});
    SiSatelliteDelivery record{};
    EXPECT_EQ(Orva_Si_GetSatelliteDeliveryDescriptor(network, 10, &record), ORVA_SI_OK);
    EXPECT_EQ(fields(record), fields(satellite_system::read_first(10)));
}

// ---- One transport stream

template <class System>
constexpr auto one = nullptr;
template <>
constexpr auto one<satellite_system> = Orva_Si_GetSatelliteDeliveryDescriptor;
template <>
constexpr auto one<cable_system> = Orva_Si_GetCableDeliveryDescriptor;

template <class System>
class StreamDelivery : public testing::Test {
};
using single_systems = testing::Types<satellite_system, cable_system>;
TYPED_TEST_SUITE(StreamDelivery, single_systems);

TYPED_TEST(StreamDelivery, IsThatOfTheStream)
{
    store_network(
        {stream(10, {TypeParam::first()}), stream(11, {TypeParam::second()}), stream(12, {})});
    typename TypeParam::record record{};
    EXPECT_EQ(one<TypeParam>(network, 11, &record), ORVA_SI_OK);
    EXPECT_EQ(fields(record), fields(TypeParam::read_second(11)));
    EXPECT_EQ(one<TypeParam>(0x10000 + network, 0x1000A, &record), ORVA_SI_OK);
    EXPECT_EQ(fields(record), fields(TypeParam::read_first(10)));
    EXPECT_EQ(one<TypeParam>(network, 12, &record), ORVA_SI_FAILURE);
    EXPECT_EQ(one<TypeParam>(network, 13, &record), ORVA_SI_FAILURE);
    EXPECT_EQ(one<TypeParam>(network, 0xFFFF, &record), ORVA_SI_FAILURE);
    EXPECT_EQ(fields(record), fields(TypeParam::read_first(10)));
}

TYPED_TEST(StreamDelivery, IsTheFirstSoundOne)
{
    auto descriptors = TypeParam::broken();
    descriptors.push_back(TypeParam::second());
    descriptors.push_back(TypeParam::first());
    store_network({stream(10, {}), stream(10, descriptors)});
    typename TypeParam::record record{};
    EXPECT_EQ(one<TypeParam>(network, 10, &record), ORVA_SI_OK);
    EXPECT_EQ(fields(record), fields(TypeParam::read_second(10)));
}

} // namespace
