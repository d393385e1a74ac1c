// SPDX-License-Identifier: LGPL-2.1-or-later
// Private descriptors of a service: which private_data_specifier they stand under, the short name
// and the CI protection.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "fakes/platform.h"
#include "orva_si/query_service.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/one_service.h"

using namespace test;

namespace {

using u8 = std::uint8_t;
using u32 = std::uint32_t;

constexpr u32 ours = served_specifier;
constexpr u32 theirs = 0x00000028;

// ---- The specifier

// A question about a private descriptor, and a descriptor that answers it.
struct private_question {
    const char *name;
    octets descriptor;
    std::function<bool(u32 specifier)> is_answered;
};

void PrintTo(const private_question &of, std::ostream *out)
{
    *out << of.name;
}

const private_question short_name{"ShortName", short_service_name("Short"), [](u32 specifier) {
                                      SiDvbString out{};
                                      return Orva_Si_GetShortServiceName(served_sid, specifier,
                                                                         &out) == ORVA_SI_OK;
                                  }};
const private_question protection{"CiProtection", ci_protection(true), [](u32 specifier) {
                                      u8 out = 0;
                                      u32 length = 1;
                                      return Orva_Si_GetServCIProtDescData(served_ts, served_sid,
                                                                           specifier, &out,
                                                                           &length) == ORVA_SI_OK;
                                  }};
// These two take every specifier but 0, and none is passed.
const private_question preferred{
    "PreferredName", preferred_name_list({{"eng", {{.id = 1, .name = "Name"}}}}), [](u32) {
        SiDvbString out{};
        return Orva_Si_GetPfNameByID(served_network, served_ts, served_sid, 0, &out, 1) ==
               ORVA_SI_OK;
    }};
const private_question preferred_languages{
    "PreferredNameLanguages", preferred.descriptor, [](u32) {
        u32 out = 0;
        u32 count = 1;
        return Orva_Si_GetPfNameLangList(served_network, served_ts, served_sid, &out, &count) ==
               ORVA_SI_OK;
    }};

class UnderASpecifier : public testing::TestWithParam<private_question> {
protected:
    static bool answered(const std::vector<octets> &loop, u32 specifier = ours)
    {
        serve(loop);
        return GetParam().is_answered(specifier);
    }
    static const octets &it() { return GetParam().descriptor; }
};

TEST_P(UnderASpecifier, CountsBehindItAlone)
{
    EXPECT_TRUE(answered({private_data_specifier(ours), it()}));
    EXPECT_FALSE(answered({it(), private_data_specifier(ours)}));
    EXPECT_FALSE(answered({it()}));
}

TEST_P(UnderASpecifier, NeedNotFollowAtOnce)
{
    EXPECT_TRUE(answered(
        {private_data_specifier(ours), service_descriptor(1, "P", "N"), raw(0x90, {}), it()}));
}

TEST_P(UnderASpecifier, StaysUnderItWhateverOthersFollow)
{
    EXPECT_TRUE(answered({private_data_specifier(ours), private_data_specifier(theirs), it()}));
    EXPECT_TRUE(answered({private_data_specifier(ours), private_data_specifier(0), it()}));
    EXPECT_TRUE(answered({private_data_specifier(0), private_data_specifier(ours), it()}));
}

TEST_P(UnderASpecifier, OneOfAnotherLengthIsNone)
{
    EXPECT_FALSE(answered({raw(0x5F, {}), it()}));
    EXPECT_FALSE(answered({raw(0x5F, {0x00, 0x23, 0x3A}), it()}));
    EXPECT_FALSE(answered({raw(0x5F, {0x00, 0x00, 0x23, 0x3A, 0x00}), it()}));
}

TEST_P(UnderASpecifier, OneOfAnotherServiceDoesNotCount)
{
    init_store();
    store(make(sdt{.ts = served_ts,
                   .original_network = served_network,
                   .services = {{.id = 1, .descriptors = {private_data_specifier(ours)}},
                                {.id = served_sid, .descriptors = {it()}}}}));
    EXPECT_FALSE(GetParam().is_answered(ours));
}

INSTANTIATE_TEST_SUITE_P(, UnderASpecifier,
                         testing::Values(short_name, protection, preferred, preferred_languages),
                         [](const auto &of) { return std::string{of.param.name}; });

class UnderTheWantedSpecifier : public UnderASpecifier {};

TEST_P(UnderTheWantedSpecifier, DoesNotCountUnderAnother)
{
    EXPECT_FALSE(answered({private_data_specifier(theirs), it()}));
    EXPECT_TRUE(answered({private_data_specifier(theirs), private_data_specifier(ours), it()}));
    EXPECT_FALSE(answered({private_data_specifier(theirs), it(), private_data_specifier(ours)}));
}

TEST_P(UnderTheWantedSpecifier, All32BitsAreCompared)
{
    EXPECT_TRUE(answered({private_data_specifier(0x89ABCDEF), it()}, 0x89ABCDEF));
    EXPECT_FALSE(answered({private_data_specifier(0x89ABCDEF), it()}, 0x0000CDEF));
    EXPECT_FALSE(answered({private_data_specifier(0x0000CDEF), it()}, 0x89ABCDEF));
}

TEST_P(UnderTheWantedSpecifier, ZeroIsAValueLikeOthers)
{
    EXPECT_TRUE(answered({private_data_specifier(0), it()}, 0));
    EXPECT_FALSE(answered({it()}, 0));
    EXPECT_FALSE(answered({private_data_specifier(ours), it()}, 0));
}

TEST_P(UnderTheWantedSpecifier, TheMatchIsTraced)
{
    EXPECT_TRUE(answered({private_data_specifier(ours), it()}));
    EXPECT_TRUE(fake::logged(4, "found the pdsd = [0x233a|9018], match_pdsd=1\n"))
        << fake::log_text();
}

INSTANTIATE_TEST_SUITE_P(, UnderTheWantedSpecifier, testing::Values(short_name, protection),
                         [](const auto &of) { return std::string{of.param.name}; });

class UnderAnySpecifier : public UnderASpecifier {};

TEST_P(UnderAnySpecifier, CountsUnlessItIsZero)
{
    EXPECT_TRUE(answered({private_data_specifier(1), it()}));
    EXPECT_TRUE(answered({private_data_specifier(0xFFFFFFFF), it()}));
    EXPECT_TRUE(answered({private_data_specifier(0x01000000), it()}));
    EXPECT_FALSE(answered({private_data_specifier(0), it()}));
}

INSTANTIATE_TEST_SUITE_P(, UnderAnySpecifier, testing::Values(preferred, preferred_languages),
                         [](const auto &of) { return std::string{of.param.name}; });

// ---- The short name

TEST(ShortServiceName, IsTheWholeDescriptor)
{
    serve_ours({short_service_name("BBC"), short_service_name("Later")});
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetShortServiceName(served_sid, ours, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "BBC");
    EXPECT_EQ(name.charset_type, static_cast<u32>('B'));
}

TEST(ShortServiceName, MayHaveACharacterTable)
{
    serve_ours({short_service_name("\x09" + std::string(254, 'n'))});
    SiDvbString name{};
    ASSERT_EQ(Orva_Si_GetShortServiceName(served_sid, ours, &name), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), std::string(254, 'n'));
    EXPECT_EQ(name.charset_type, 9u);
}

TEST(ShortServiceName, MayBeEmpty)
{
    serve_ours({short_service_name("")});
    SiDvbString name{.charset_type = 99, .text = {'x'}, .length = 99};
    ASSERT_EQ(Orva_Si_GetShortServiceName(served_sid, ours, &name), ORVA_SI_OK);
    EXPECT_EQ(name.charset_type, 0u);
    EXPECT_EQ(name.length, 0);
    EXPECT_EQ(name.text[0], 0);
}

TEST(ShortServiceName, WithoutOneTheRecordIsLeft)
{
    serve_ours({raw_text(0x88, "Other")});
    SiDvbString name{.charset_type = 99, .text = {'x'}, .length = 99};
    EXPECT_EQ(Orva_Si_GetShortServiceName(served_sid, ours, &name), ORVA_SI_FAILURE);
    EXPECT_EQ(name.charset_type, 99u);
    EXPECT_EQ(name.length, 99);
}

// ---- CI protection

struct raw_answer {
    u32 result;
    u32 length;
    octets data;
};

raw_answer ci_data(u32 capacity)
{
    octets data(capacity, 0xA5);
    u32 length = capacity;
    u8 none = 0;
    const u32 result = Orva_Si_GetServCIProtDescData(served_ts, served_sid, ours,
                                                     data.empty() ? &none : data.data(), &length);
    EXPECT_EQ(none, 0);
    return {result, length, data};
}

TEST(CiProtection, IsThePayloadOfTheFirstDescriptor)
{
    serve_ours({ci_protection(false, {0x0102, 0x0304}, {9}), ci_protection(true)});
    const auto got = ci_data(255);
    EXPECT_EQ(got.result, ORVA_SI_OK);
    ASSERT_EQ(got.length, 7u);
    EXPECT_EQ(octets(got.data.begin(), got.data.begin() + 7), (octets{0x7F, 2, 1, 2, 3, 4, 9}));
    EXPECT_EQ(got.data[7], 0xA5);
    EXPECT_TRUE(fake::logged(4, "got the data len=7\n")) << fake::log_text();
}

TEST(CiProtection, FillsTheRoomExactly)
{
    serve_ours({ci_protection(true, {}, {1, 2})});
    const auto got = ci_data(3);
    EXPECT_EQ(got.result, ORVA_SI_OK);
    EXPECT_EQ(got.length, 3u);
    EXPECT_EQ(got.data, (octets{0xBF, 1, 2}));
}

TEST(CiProtection, WithTooLittleRoomNothingIsWritten)
{
    serve_ours({ci_protection(true, {}, {1, 2}), ci_protection(true)});
    for (const u32 capacity : {2u, 1u, 0u}) {
        fake::clear_log();
        const auto got = ci_data(capacity);
        EXPECT_EQ(got.result, ORVA_SI_ARRAY_FULL);
        EXPECT_EQ(got.length, capacity);
        EXPECT_EQ(got.data, octets(capacity, 0xA5));
        EXPECT_TRUE(fake::logged(2, "the passed len=" + std::to_string(capacity) +
                                        " is less than the data's len=3\n"))
            << fake::log_text();
    }
}

TEST(CiProtection, MayFillTheDescriptor)
{
    octets payload(255, 0x11);
    serve_ours({raw(0xCE, payload)});
    const auto got = ci_data(255);
    EXPECT_EQ(got.result, ORVA_SI_OK);
    EXPECT_EQ(got.length, 255u);
    EXPECT_EQ(got.data, payload);
}

TEST(CiProtection, BrandsThatDoNotFitArePassedOver)
{
    for (const octets &bad : std::vector<octets>{{},                 // no flags
                                                 {0x7F},             // no number of brands
                                                 {0x7F, 1},          // no brand
                                                 {0x7F, 1, 2},       // half a brand
                                                 {0xFF, 2, 1, 1, 2}, // one and a half
                                                 {0x7F, 255, 1, 1}}) {
        serve_ours({raw(0xCE, bad), ci_protection(true, {}, {1})});
        const auto got = ci_data(10);
        EXPECT_EQ(got.result, ORVA_SI_OK);
        EXPECT_EQ(got.length, 2u) << testing::PrintToString(bad);
        EXPECT_EQ(got.data[1], 1);
        EXPECT_TRUE(fake::logged(2, "ci_prot_desc codec failed!\n")) << fake::log_text();
        serve_ours({raw(0xCE, bad)});
        EXPECT_EQ(ci_data(10).result, ORVA_SI_FAILURE);
    }
}

TEST(CiProtection, WithoutMatchingBrandsAnyBytesMayFollow)
{
    for (const octets &good : std::vector<octets>{{0x3F}, {0xBF, 255}, {0x7F, 0}, {0x7F, 0, 1}}) {
        serve_ours({raw(0xCE, good)});
        const auto got = ci_data(static_cast<u32>(good.size()));
        EXPECT_EQ(got.result, ORVA_SI_OK);
        EXPECT_EQ(got.data, good);
        EXPECT_FALSE(fake::logged("ci_prot_desc codec failed!\n"));
    }
}

TEST(CiProtection, WithoutOneNothingIsWritten)
{
    serve_ours({raw(0xCF, {1, 2})});
    const auto got = ci_data(4);
    EXPECT_EQ(got.result, ORVA_SI_FAILURE);
    EXPECT_EQ(got.length, 4u);
    EXPECT_EQ(got.data, octets(4, 0xA5));
}

} // namespace
