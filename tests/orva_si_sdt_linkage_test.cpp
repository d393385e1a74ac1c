// SPDX-License-Identifier: LGPL-2.1-or-later
// Where a service has moved and where it leads.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>

#include "orva_si/query_service.h"
#include "support/descriptors.h"
#include "support/one_service.h"

using namespace test;

namespace {

using u32 = std::uint32_t;

constexpr std::uint16_t ts = served_ts;
constexpr std::uint16_t sid = served_sid;

class Moves : public testing::TestWithParam<u32 (*)(SiServiceMove *)> {};

INSTANTIATE_TEST_SUITE_P(
    , Moves,
    testing::Values([](SiServiceMove *out) { return Orva_Si_GetServiceMoveDesc(sid, out); },
                    [](SiServiceMove *out) { return Orva_Si_GetServMoveDesc(ts, sid, out); }));

TEST_P(Moves, TheFirstDescriptorTells)
{
    serve({service_move(0x0102, 0x0304, 0x0506), service_move(7, 8, 9)});
    SiServiceMove move{};
    ASSERT_EQ(GetParam()(&move), ORVA_SI_OK);
    EXPECT_EQ(move.new_original_network_id, 0x0102);
    EXPECT_EQ(move.new_transport_stream_id, 0x0304);
    EXPECT_EQ(move.new_service_id, 0x0506);
}

TEST_P(Moves, ADescriptorOfAnotherLengthIsPassedOver)
{
    serve({raw(0x60, {}), raw(0x60, {1, 1, 1, 1, 1}), raw(0x60, {1, 1, 1, 1, 1, 1, 1}),
           service_move(7, 8, 9)});
    SiServiceMove move{};
    ASSERT_EQ(GetParam()(&move), ORVA_SI_OK);
    EXPECT_EQ(move.new_original_network_id, 7);
    EXPECT_EQ(move.new_transport_stream_id, 8);
    EXPECT_EQ(move.new_service_id, 9);
}

TEST_P(Moves, WithoutOneTheRecordIsLeft)
{
    serve({raw(0x60, {1, 1, 1, 1, 1}), service_descriptor(1, "P", "N")});
    SiServiceMove move{1, 2, 3};
    EXPECT_EQ(GetParam()(&move), ORVA_SI_FAILURE);
    EXPECT_EQ(move.new_original_network_id, 1);
    EXPECT_EQ(move.new_transport_stream_id, 2);
    EXPECT_EQ(move.new_service_id, 3);
}

struct leads_to {
    int ts, network, service, type;

    bool operator==(const leads_to &) const = default;
};

void PrintTo(const leads_to &of, std::ostream *out)
{
    *out << of.network << '.' << of.ts << '.' << of.service << " type " << of.type;
}

class Linkages : public testing::TestWithParam<u32 (*)(SiLinkage *)> {
protected:
    static leads_to answer()
    {
        SiLinkage record{};
        EXPECT_EQ(GetParam()(&record), ORVA_SI_OK);
        return {record.transport_stream_id, record.original_network_id, record.service_id,
                record.linkage_type};
    }
    // A linkage of that type whose other bytes are those behind linkage_type.
    static octets with_data(std::uint8_t type, const octets &data)
    {
        return linkage({.ts = 9, .original_network = 9, .service = 9, .type = type, .data = data});
    }
};

INSTANTIATE_TEST_SUITE_P(
    , Linkages,
    testing::Values([](SiLinkage *out) { return Orva_Si_GetLinkageDesc(sid, out); },
                    [](SiLinkage *out) { return Orva_Si_GetServLinkageDesc(ts, sid, out); }));

TEST_P(Linkages, TheFirstOfAnyTypeAnswers)
{
    serve({linkage({.ts = 0x0102, .original_network = 0x0304, .service = 0x0506, .type = 0x05}),
           linkage({.type = 0x01})});
    EXPECT_EQ(answer(), (leads_to{0x0102, 0x0304, 0x0506, 0x05}));
}

TEST_P(Linkages, PrivateBytesDoNotMatter)
{
    for (const std::uint8_t type : octets{0x00, 0x01, 0x04, 0x05, 0x0A, 0x0D, 0x80, 0xFF}) {
        serve({with_data(type, octets(248, 0xFF))});
        EXPECT_EQ(answer(), (leads_to{9, 9, 9, type}));
    }
}

TEST_P(Linkages, WithTheDataOfTheirTypeAreTaken)
{
    const std::vector<octets> good{
        with_data(0x08, hand_over_data({.type = 1, .origin_type = 1})),
        with_data(0x08, hand_over_data({.type = 3, .origin_type = 0})),
        with_data(0x08, hand_over_data({.type = 0, .origin_type = 1})),
        with_data(0x08, hand_over_data({.type = 4, .origin_type = 0})),
        with_data(0x09, software_update_data({{.selector = {1, 2}}, {.oui = 7}}, {9})),
        with_data(0x0B, ip_notification_data({})),
        with_data(0x0B, ip_notification_data({{.names = {{"eng", "Name"}}}, {.id = 2}}, {9})),
        with_data(0x0C, deferred_notification_data(1)),
        with_data(0x0C, deferred_notification_data(2, 5)),
    };
    for (const octets &descriptor : good) {
        serve({descriptor, linkage()});
        EXPECT_EQ(answer(), (leads_to{9, 9, 9, descriptor[8]}))
            << testing::PrintToString(descriptor);
    }
}

TEST_P(Linkages, WithTooLittleDataArePassedOver)
{
    const std::vector<octets> bad{
        raw(0x4A, {}),
        raw(0x4A, {0, 9, 0, 9, 0, 9}),           // no linkage_type
        with_data(0x08, {}),                     // no hand-over_type
        with_data(0x08, {0x1F}),                 // no network_id
        with_data(0x08, {0x2F, 0}),              // half a network_id
        with_data(0x08, {0x3F, 0}),              // half a network_id
        with_data(0x08, {0x3E, 0, 1}),           // no initial_service_id
        with_data(0x08, {0x1E, 0, 1, 0}),        // half an initial_service_id
        with_data(0x08, {0x0E, 0}),              // half an initial_service_id
        with_data(0x0B, {}),                     // no length of the platforms
        with_data(0x0B, {5, 0, 0, 1, 0}),        // the platforms run past the end
        with_data(0x0B, {1, 0}),                 // a stray byte instead of a platform
        with_data(0x0B, {5, 0, 0, 1, 0, 7}),     // one behind a platform
        with_data(0x0B, {4, 0, 0, 1, 1}),        // the names run past the end
        with_data(0x0B, {5, 0, 0, 1, 200, 'e'}), // far past the end
        with_data(0x0C, {}),                     // no table_type
        with_data(0x0C, {2}),                    // no bouquet_id
        with_data(0x0C, {2, 0}),                 // half a bouquet_id
    };
    for (const octets &descriptor : bad) {
        serve({descriptor, linkage({.ts = 2, .type = 0x02})});
        EXPECT_EQ(answer(), (leads_to{2, 1, 1, 2})) << testing::PrintToString(descriptor);
    }
}

TEST_P(Linkages, AStrayByteIsNotReadAsPartOfTheNextDescriptor)
{
    serve({with_data(0x0B, {1, 0}), service_move(7, 8, 9),
           linkage({.ts = 2, .original_network = 3, .service = 4, .type = 5})});
    EXPECT_EQ(answer(), (leads_to{2, 3, 4, 5}));
}

TEST_P(Linkages, WithoutOneTheRecordIsLeft)
{
    serve({raw(0x4A, {0, 9, 0, 9, 0, 9}), service_descriptor(1, "P", "N")});
    SiLinkage record{1, 2, 3, 4};
    EXPECT_EQ(GetParam()(&record), ORVA_SI_FAILURE);
    EXPECT_EQ(record.transport_stream_id, 1);
    EXPECT_EQ(record.original_network_id, 2);
    EXPECT_EQ(record.service_id, 3);
    EXPECT_EQ(record.linkage_type, 4);
}

} // namespace
