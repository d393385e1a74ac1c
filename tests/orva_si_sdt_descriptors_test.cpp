// SPDX-License-Identifier: LGPL-2.1-or-later
// What the descriptors of a service answer: names in languages, cells, data broadcasts. Keys and
// tables are the matter of orva_si_sdt_keys_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>

#include "fakes/platform.h"
#include "orva_si/query_service.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/one_service.h"

using namespace test;

namespace {

using u32 = std::uint32_t;

constexpr std::uint16_t ts = served_ts;
constexpr std::uint16_t sid = served_sid;

// Both variants of a question; a list's test runs for each.
template <class Record>
struct variant {
    const char *name;
    u32 (*get)(Record *, u32 *);
};

bool anything_failed_in_the_log()
{
    for (const auto &line : fake::log_lines())
        if (line.level <= 2)
            return true;
    return false;
}

// ---- Multilingual names

struct names {
    std::string language, provider, service;

    bool operator==(const names &) const = default;
};

void PrintTo(const names &of, std::ostream *out)
{
    *out << of.language << ": " << of.provider << ", " << of.service;
}

bool same_names(const SiMultiServiceName &record, const names &expected)
{
    return record.lang == expected.language && text_of(record.provider_name) == expected.provider &&
           text_of(record.service_name) == expected.service;
}

class MultilingualNames : public testing::TestWithParam<variant<SiMultiServiceName>> {
protected:
    static std::vector<names> all()
    {
        const auto got = ask<SiMultiServiceName>(GetParam().get, 20);
        EXPECT_EQ(got.result, got.count == 0 ? ORVA_SI_NO_DATA : ORVA_SI_OK);
        std::vector<names> out;
        for (const auto &record : got.items)
            out.push_back(
                {record.lang, text_of(record.provider_name), text_of(record.service_name)});
        return out;
    }
};

INSTANTIATE_TEST_SUITE_P(
    , MultilingualNames,
    testing::Values(
        variant<SiMultiServiceName>{
            "Service", [](auto *out, u32 *n) { return Orva_Si_GetMultiServiceNames(sid, out, n); }},
        variant<SiMultiServiceName>{
            "Serv", [](auto *out, u32 *n) { return Orva_Si_GetMultiServNames(ts, sid, out, n); }}),
    [](const auto &of) { return of.param.name; });

TEST_P(MultilingualNames, AreListedEntryByEntry)
{
    serve({multilingual_service_name({{"eng", "Corp", "News"}, {"cym", "Corff", "Newyddion"}}),
           service_descriptor(1, "P", "N"),
           multilingual_service_name({{"gla", "", "Naidheachdan"}})});
    const std::vector<names> expected{
        {"eng", "Corp", "News"}, {"cym", "Corff", "Newyddion"}, {"gla", "", "Naidheachdan"}};
    EXPECT_EQ(all(), expected);
}

TEST_P(MultilingualNames, FillTheRoomExactly)
{
    serve({multilingual_service_name({{"eng", "A", "B"}, {"fra", "C", "D"}})});
    std::vector<SiMultiServiceName> expected(2);
    for (const auto &[at, language, provider, service] :
         {std::tuple{0u, "eng", 'A', 'B'}, std::tuple{1u, "fra", 'C', 'D'}}) {
        std::strcpy(expected[at].lang, language);
        expected[at].provider_name = {.charset_type = static_cast<u32>(provider),
                                      .text = {static_cast<std::uint8_t>(provider)},
                                      .length = 1};
        expected[at].service_name = {.charset_type = static_cast<u32>(service),
                                     .text = {static_cast<std::uint8_t>(service)},
                                     .length = 1};
    }
    const auto same = [](const SiMultiServiceName &a, const SiMultiServiceName &b) {
        return same_names(a, {b.lang, text_of(b.provider_name), text_of(b.service_name)}) &&
               a.provider_name.charset_type == b.provider_name.charset_type &&
               a.service_name.charset_type == b.service_name.charset_type;
    };
    expect_list(GetParam().get, expected, "error:need more room\n", same);
}

TEST_P(MultilingualNames, WriteAllOfTheRecordButItsReservedByte)
{
    serve({multilingual_service_name({{"eng", "\x05P", ""}})});
    SiMultiServiceName record;
    std::memset(&record, 0xA5, sizeof record);
    u32 count = 1;
    ASSERT_EQ(GetParam().get(&record, &count), ORVA_SI_OK);
    EXPECT_EQ(record.reserved, 0xA5);
    EXPECT_STREQ(record.lang, "eng");
    EXPECT_EQ(record.provider_name.charset_type, 5u);
    EXPECT_EQ(text_of(record.provider_name), "P");
    EXPECT_EQ(record.provider_name.text[1], 0);
    EXPECT_EQ(record.service_name.charset_type, 0u);
    EXPECT_EQ(record.service_name.length, 0);
    EXPECT_EQ(record.service_name.text[0], 0);
}

TEST_P(MultilingualNames, MayBeAsLongAsTheDescriptor)
{
    const std::string long_name(250, 'n');
    serve({multilingual_service_name({{"eng", "", long_name}}),
           multilingual_service_name({{"fra", long_name, ""}})});
    EXPECT_EQ(all(), (std::vector<names>{{"eng", "", long_name}, {"fra", long_name, ""}}));
}

TEST_P(MultilingualNames, AMalformedDescriptorIsPassedOverWhole)
{
    const octets good_entry{'e', 'n', 'g', 1, 'P', 1, 'N'};
    for (const octets &bad : std::vector<octets>{{'f'},
                                                 {'f', 'r'},
                                                 {'f', 'r', 'a'},
                                                 {'f', 'r', 'a', 0},
                                                 {'f', 'r', 'a', 1},
                                                 {'f', 'r', 'a', 2, 'P'},
                                                 {'f', 'r', 'a', 1, 'P'},
                                                 {'f', 'r', 'a', 1, 'P', 1},
                                                 {'f', 'r', 'a', 1, 'P', 3, 'N', 'x'},
                                                 {'f', 'r', 'a', 255, 'P', 0}}) {
        octets good_then_bad = good_entry;
        good_then_bad.insert(good_then_bad.end(), bad.begin(), bad.end());
        serve({raw(0x5D, bad), raw(0x5D, good_then_bad),
               multilingual_service_name({{"deu", "Q", "M"}})});
        EXPECT_EQ(all(), (std::vector<names>{{"deu", "Q", "M"}})) << testing::PrintToString(bad);
    }
}

TEST_P(MultilingualNames, OfADescriptorWithoutEntriesThereAreNone)
{
    serve({multilingual_service_name({})});
    expect_empty<SiMultiServiceName>(GetParam().get, ORVA_SI_NO_DATA);
}

// ---- Cells

struct cell {
    int flag;
    int id;

    bool operator==(const cell &) const = default;
};

void PrintTo(const cell &of, std::ostream *out)
{
    *out << of.id << (of.flag != 0 ? " available" : " not available");
}

u32 cells_of_the_service(SiServAvail *out, u32 *count)
{
    return Orva_Si_GetServAvailList(ts, sid, out, count);
}

std::vector<cell> cells()
{
    const auto got = ask<SiServAvail>(cells_of_the_service, 200);
    EXPECT_EQ(got.result, ORVA_SI_OK);
    std::vector<cell> out;
    for (const auto &record : got.items)
        out.push_back({record.avail_flag, record.cell_id});
    return out;
}

TEST(Cells, CarryTheFlagOfTheirDescriptor)
{
    serve({service_availability(true, {0x0102, 0xFFFE}), service_availability(false, {3})});
    EXPECT_EQ(cells(), (std::vector<cell>{{1, 0x0102}, {1, 0xFFFE}, {0, 3}}));
}

TEST(Cells, AreTraced)
{
    serve({service_availability(true, {0x0102}), service_availability(false, {3})});
    cells();
    EXPECT_TRUE(fake::logged(4, "availlist[0].avail_falg = 1, cell_id = 258\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "availlist[1].avail_falg = 0, cell_id = 3\n")) << fake::log_text();
}

TEST(Cells, FillTheRoomExactly)
{
    serve({service_availability(true, {1, 2}), service_availability(false, {3})});
    const std::vector<SiServAvail> expected{{1, 1}, {1, 2}, {0, 3}};
    expect_list(cells_of_the_service, expected, "need more room\n",
                [](const auto &a, const auto &b) {
                    return a.avail_flag == b.avail_flag && a.cell_id == b.cell_id;
                });
}

TEST(Cells, TheReservedBitsBesideTheFlagDoNotCount)
{
    serve({raw(0x72, {0x80, 0, 1}), raw(0x72, {0x00, 0, 2}), raw(0x72, {0x7F, 0, 3})});
    EXPECT_EQ(cells(), (std::vector<cell>{{1, 1}, {0, 2}, {0, 3}}));
}

TEST(Cells, AnOddByteBehindThemIsIgnored)
{
    serve({raw(0x72, {0xFF, 1, 2, 3}), raw(0x72, {0xFF, 0, 4, 0, 5, 6}), raw(0x72, {0x7F, 0, 7})});
    EXPECT_EQ(cells(), (std::vector<cell>{{1, 0x0102}, {1, 4}, {1, 5}, {0, 7}}));
}

TEST(Cells, ADescriptorTooShortForOneHasNone)
{
    serve({raw(0x72, {}), raw(0x72, {0xFF}), raw(0x72, {0xFF, 9})});
    expect_empty<SiServAvail>(cells_of_the_service, ORVA_SI_OK);
}

TEST(Cells, MayFillTheDescriptor)
{
    serve({service_availability(true, std::vector<std::uint16_t>(127, 0xABCD))});
    EXPECT_EQ(cells(), std::vector<cell>(127, {1, 0xABCD}));
}

// ---- Data broadcasts

class DataBroadcasts : public testing::TestWithParam<variant<SiDataBroadcastDesc>> {
protected:
    static std::vector<int> ids()
    {
        const auto got = ask<SiDataBroadcastDesc>(GetParam().get, 20);
        EXPECT_EQ(got.result, got.count == 0 ? ORVA_SI_NO_DATA : ORVA_SI_OK);
        std::vector<int> out;
        for (const auto &record : got.items)
            out.push_back(record.data_broadcast_id);
        return out;
    }
};

INSTANTIATE_TEST_SUITE_P(
    , DataBroadcasts,
    testing::Values(variant<SiDataBroadcastDesc>{"Service",
                                                 [](auto *out, u32 *n) {
                                                     return Orva_Si_GetSdtDataBroadCastDesc(sid,
                                                                                            out, n);
                                                 }},
                    variant<SiDataBroadcastDesc>{"Serv",
                                                 [](auto *out, u32 *n) {
                                                     return Orva_Si_GetServDataBroadCastDesc(
                                                         ts, sid, out, n);
                                                 }}),
    [](const auto &of) { return of.param.name; });

TEST_P(DataBroadcasts, AreListedWithTheirFields)
{
    serve({data_broadcast({.id = 0x0106,
                           .component_tag = 0x2B,
                           .selector = {1, 2, 3},
                           .language = "fin",
                           .text = "Carousel"})});
    SiDataBroadcastDesc record;
    std::memset(&record, 0xA5, sizeof record);
    u32 count = 1;
    ASSERT_EQ(GetParam().get(&record, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(record.data_broadcast_id, 0x0106);
    EXPECT_EQ(record.component_tag, 0x2B);
    EXPECT_EQ(record.selector_length, 3);
    EXPECT_STREQ(record.lang, "fin");
}

TEST_P(DataBroadcasts, FillTheRoomExactly)
{
    serve({data_broadcast({.id = 0x000A}), data_broadcast({.id = 5, .language = "swe"}),
           data_broadcast({.id = 6, .component_tag = 1, .selector = octets(200, 0xEE)})});
    const std::vector<SiDataBroadcastDesc> expected{
        {0x000A, 0, 0, "eng"}, {5, 0, 0, "swe"}, {6, 1, 200, "eng"}};
    expect_list(GetParam().get, expected, "need more room\n", [](const auto &a, const auto &b) {
        return a.data_broadcast_id == b.data_broadcast_id && a.component_tag == b.component_tag &&
               a.selector_length == b.selector_length && std::strcmp(a.lang, b.lang) == 0;
    });
}

TEST_P(DataBroadcasts, WhoseLengthIsNotTheSumOfItsPartsIsPassedOverWithoutAMessage)
{
    const std::vector<octets> bad{
        {},
        {0},
        {0, 9, 0},
        {0, 9, 0, 0},                           // no language
        {0, 9, 0, 0, 'e', 'n'},                 // half a language
        {0, 9, 0, 0, 'e', 'n', 'g'},            // no text_length
        {0, 9, 0, 0, 'e', 'n', 'g', 1},         // one byte too few
        {0, 9, 0, 0, 'e', 'n', 'g', 0, 'x'},    // one byte too many
        {0, 9, 0, 2, 1},                        // the selector runs past the end
        {0, 9, 0, 255, 1, 'e', 'n', 'g', 0},    // far past the end
        {0, 9, 0, 1, 'e', 'n', 'g', 0},         // a selector length one too long
        {0, 9, 0, 1, 1, 'e', 'n', 'g', 2, 'x'}, // a text length one too long
    };
    std::vector<octets> loop;
    for (const octets &payload : bad) {
        loop.push_back(raw(0x64, payload));
        loop.push_back(data_broadcast({.id = static_cast<std::uint16_t>(loop.size())}));
    }
    serve(loop);
    std::vector<int> expected;
    for (int at = 1; at < static_cast<int>(loop.size()); at += 2)
        expected.push_back(at);
    EXPECT_EQ(ids(), expected);
    EXPECT_FALSE(anything_failed_in_the_log()) << fake::log_text();
}

TEST_P(DataBroadcasts, OfMalformedDescriptorsOnlyThereAreNone)
{
    serve({raw(0x64, {0, 9, 0, 0, 'e', 'n', 'g', 1}), data_broadcast_id(0x000A)});
    expect_empty<SiDataBroadcastDesc>(GetParam().get, ORVA_SI_NO_DATA);
}

} // namespace
