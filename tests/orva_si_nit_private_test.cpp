// SPDX-License-Identifier: LGPL-2.1-or-later
// Private descriptors of networks: logical channel numbers and service attributes.
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
#include "support/sections.h"
#include "support/store.h"
#include "support/store_fixture.h"

using namespace test;

namespace {

using loop = std::vector<octets>;

constexpr std::uint16_t network = 0x3001;
constexpr std::uint16_t ts = 10;
constexpr std::uint16_t onid = 0x20;
constexpr std::uint32_t eacem = 0x28;
constexpr std::uint32_t nordig = 0x29;

// Whether a line of level 4 ends so.
bool traced(const std::string &end)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == 4 && line.text.ends_with(end);
    });
}

octets under(std::uint32_t specifier)
{
    return private_data_specifier(specifier);
}

void store_streams(const std::vector<transport> &transports, const loop &descriptors = {})
{
    store(make(nit{.network = network, .descriptors = descriptors, .transports = transports}));
    fake::clear_log();
}

void store_stream(const loop &descriptors)
{
    store_streams({{.ts = ts, .original_network = onid, .descriptors = descriptors}});
}

// ---- The getters, and their records as tuples

auto nordig_lcn(std::uint32_t list_id, std::uint32_t mode = 0, std::uint32_t pdsd = nordig)
{
    return [=](SiNordigLcn *out, std::uint32_t *count) {
        return Orva_Si_GetNordigV2LCNInfo(network, ts, onid, pdsd, list_id, mode, out, count);
    };
}
auto nordig_lists(std::uint32_t pdsd = nordig)
{
    return [=](SiNordigChanList *out, std::uint32_t *count) {
        return Orva_Si_GetNordigV2ChanlList(network, ts, onid, pdsd, out, count);
    };
}
auto specifiers()
{
    return [](std::uint32_t *out, std::uint32_t *count) {
        return Orva_Si_GetLCNPdsdList(network, ts, onid, out, count);
    };
}
auto all_lcn(std::uint32_t pdsd, std::uint32_t mode = 0)
{
    return [=](SiLcnInfo *out, std::uint32_t *count) {
        return Orva_Si_GetAllLCNInfo(network, pdsd, mode, out, count);
    };
}
auto attributes(std::uint32_t pdsd = eacem)
{
    return [=](SiServAttr *out, std::uint32_t *count) {
        return Orva_Si_GetDBookServAttDesc(network, ts, onid, pdsd, out, count);
    };
}

auto fields(const SiNordigLcn &of)
{
    return std::tuple{of.visible_service_flag, of.serv_id, of.lcn};
}
auto fields(const SiNordigChanList &of)
{
    return std::tuple{of.channel_list_id, text_of(of.name), of.name.charset_type,
                      std::string(of.country_code, 4)};
}
auto fields(const SiLcnInfo &of)
{
    return std::tuple{of.transport_stream_id, of.original_network_id, of.serv_id,
                      of.visible_service_flag, of.lcn};
}
auto fields(const SiServAttr &of)
{
    return std::tuple{of.serv_id, of.visible_service_flag, of.numeric_selection_flag};
}
struct same_fields {
    template <class T>
    bool operator()(const T &a, const T &b) const
    {
        return fields(a) == fields(b);
    }
};

template <class Get, class T>
void expect_records(Get get, const std::vector<T> &expected)
{
    expect_list(get, expected, "need more room\n", same_fields{});
}

SiNordigChanList list_record(std::uint8_t id, std::uint32_t charset, const std::string &name,
                             const char *country)
{
    SiNordigChanList record{.channel_list_id = id, .name = {}, .country_code = {}};
    record.name.charset_type = charset;
    std::ranges::copy(name, record.name.text);
    record.name.length = static_cast<std::uint16_t>(name.size());
    std::memcpy(record.country_code, country, 4);
    return record;
}

// ---- Under which specifier a descriptor counts: one rule for four getters

struct private_question {
    std::string name;
    octets descriptor;
    std::function<bool(std::uint32_t pdsd)> answers; // one record comes out, or none
};

void PrintTo(const private_question &of, std::ostream *out)
{
    *out << of.name;
}

template <class T, class Of>
std::function<bool(std::uint32_t)> answers_with(Of of)
{
    return [=](std::uint32_t pdsd) {
        const auto answer = ask<T>(of(pdsd), 3);
        EXPECT_EQ(answer.result, answer.count == 0 ? ORVA_SI_NO_DATA : ORVA_SI_OK);
        EXPECT_LE(answer.count, 1u);
        return answer.count != 0;
    };
}

const auto one_list = nordig_channels({{.id = 1, .channels = {{}}}});

const std::vector<private_question> questions{
    {"NordigV2LCNInfo", one_list,
     answers_with<SiNordigLcn>([](std::uint32_t pdsd) { return nordig_lcn(1, 0, pdsd); })},
    {"NordigV2ChanlList", one_list, answers_with<SiNordigChanList>(nordig_lists)},
    {"AllLCNInfo", logical_channels({{}}),
     answers_with<SiLcnInfo>([](std::uint32_t pdsd) { return all_lcn(pdsd); })},
    {"DBookServAttDesc", service_attributes({{}}), answers_with<SiServAttr>(attributes)}};

class PrivateSpecifier : public testing::TestWithParam<private_question> {
protected:
    bool answers(std::uint32_t pdsd) const { return GetParam().answers(pdsd); }
    const octets &descriptor() const { return GetParam().descriptor; }
};

TEST_P(PrivateSpecifier, OfTheCallerMustStandBefore)
{
    store_stream({under(0x8000233A), descriptor()});
    EXPECT_TRUE(answers(0x8000233A));
    EXPECT_FALSE(answers(0x0000233A)); // all 32 bits count
    EXPECT_FALSE(answers(0x233B));
}

TEST_P(PrivateSpecifier, IsTracedWhenItMatches)
{
    store_stream({under(nordig), under(0x233A), descriptor()});
    ASSERT_TRUE(answers(0x233A));
    EXPECT_TRUE(fake::logged(4, "found the pdsd = [0x233a|9018], match_pdsd=1\n"))
        << fake::log_text();
    EXPECT_FALSE(fake::logged("found the pdsd = [0x29|41], match_pdsd=1\n"));
}

TEST_P(PrivateSpecifier, BehindTheDescriptorIsTooLate)
{
    store_stream({descriptor(), under(nordig)});
    EXPECT_FALSE(answers(nordig));
}

TEST_P(PrivateSpecifier, NoneMeansNoAnswer)
{
    store_stream({descriptor()});
    EXPECT_FALSE(answers(nordig));
}

TEST_P(PrivateSpecifier, HoldsToTheEndOfTheLoopWhateverOthersFollow)
{
    store_stream({under(nordig), raw(0x41, {0, 1, 1}), under(eacem), under(0), descriptor()});
    EXPECT_TRUE(answers(nordig));
    EXPECT_TRUE(answers(eacem));
}

TEST_P(PrivateSpecifier, OfAnotherLengthIsNone)
{
    store_stream({raw(0x5F, {0, 0, 0, nordig, 0}), descriptor()});
    EXPECT_FALSE(answers(nordig));
    recreate_store();
    store_stream({raw(0x5F, {0, 0, nordig}), raw(0x5F, {}), descriptor()});
    EXPECT_FALSE(answers(nordig));
}

TEST_P(PrivateSpecifier, OfAnotherLengthDoesNotUndoAMatch)
{
    store_stream({under(nordig), raw(0x5F, {0, 0, 0, eacem, 0}), descriptor()});
    EXPECT_TRUE(answers(nordig));
    EXPECT_FALSE(answers(eacem));
}

TEST_P(PrivateSpecifier, CountsForItsOwnLoopOnly)
{
    store_streams({{.ts = ts, .original_network = onid, .descriptors = {under(nordig)}},
                   {.ts = ts, .original_network = onid, .descriptors = {descriptor()}}},
                  {under(nordig)});
    EXPECT_FALSE(answers(nordig));
}

TEST_P(PrivateSpecifier, ADescriptorInTheLoopOfTheNetworkIsNotSeen)
{
    store_streams({{.ts = ts, .original_network = onid}}, {under(nordig), descriptor()});
    EXPECT_FALSE(answers(nordig));
}

INSTANTIATE_TEST_SUITE_P(, PrivateSpecifier, testing::ValuesIn(questions),
                         [](const testing::TestParamInfo<private_question> &of) {
                             return of.param.name;
                         });

// ---- Which transport stream is read

TEST(PrivateDescriptors, AreThoseOfTheStreamOfItsOriginalNetwork)
{
    const loop descriptors{under(nordig), one_list, logical_channels({{}}),
                           service_attributes({{}})};
    store_streams({{.ts = ts, .original_network = onid + 1, .descriptors = descriptors},
                   {.ts = ts + 1, .original_network = onid, .descriptors = descriptors},
                   {.ts = ts, .original_network = onid}});
    expect_empty<SiNordigLcn>(nordig_lcn(1), ORVA_SI_NO_DATA);
    expect_empty<SiNordigChanList>(nordig_lists(), ORVA_SI_NO_DATA);
    expect_empty<std::uint32_t>(specifiers(), ORVA_SI_NO_DATA);
    expect_empty<SiServAttr>(attributes(nordig), ORVA_SI_NO_DATA);
}

// ---- Numbers of NorDig version 2

TEST(NordigNumbers, AreThoseOfTheListWanted)
{
    store_stream({under(nordig),
                  nordig_channels({{1, "Ost", "nor", {{0x501, true, 1}, {0xFFFE, false, 1023}}},
                                   {2, "", "swe", {{0x502, true, 600}}}}),
                  nordig_channels({{255, "L", "dnk", {{0x503, false, 2}}}})});
    expect_records(nordig_lcn(1), std::vector<SiNordigLcn>{{1, 0x501, 1}, {0, 0xFFFE, 1023}});
    expect_records(nordig_lcn(2), std::vector<SiNordigLcn>{{1, 0x502, 600}});
    expect_records(nordig_lcn(255), std::vector<SiNordigLcn>{{0, 0x503, 2}});
    expect_empty<SiNordigLcn>(nordig_lcn(3), ORVA_SI_NO_DATA);
}

TEST(NordigNumbers, AreTraced)
{
    store_stream({under(nordig), nordig_channels({{1, "", "nor", {{0x501, true, 7}}}})});
    ask<SiNordigLcn>(nordig_lcn(1), 1);
    EXPECT_TRUE(fake::logged(4, "found the lcn desc and the match_pdsd = 1\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "nordig_logical_channel_ver2_descriptor->tag = 0x87 len = 10\n"));
    EXPECT_TRUE(traced(") serv_id=1281,logchan num=7, visiable flag = 1\n")) << fake::log_text();
}

// What follows the service_id is the same for both kinds of channel descriptor.
struct lcn_case {
    std::uint32_t mode;
    octets flags_and_number;
    std::uint8_t visible;
    std::uint16_t number;
};
const std::vector<lcn_case> lcn_cases{
    {0, {0xFF, 0xFF}, 1, 1023},     {1, {0xFF, 0xFF}, 1, 16383},  {0, {0x7F, 0xFF}, 0, 1023},
    {1, {0x7F, 0xFF}, 0, 16383},    {0, {0x80, 0x00}, 1, 0},      {1, {0x40, 0x00}, 0, 0},
    {0, {0x06, 0x01}, 0, 0x0201},   {1, {0x3E, 0x01}, 0, 0x3E01}, {2, {0xFF, 0xFF}, 1, 0x7777},
    {0xFFFFFFFF, {0, 0}, 0, 0x7777}};

TEST(ChannelNumbers, HaveTheBitsOfTheModeAndStayTheCallersInAnyOther)
{
    for (const lcn_case &row : lcn_cases) {
        SCOPED_TRACE(testing::PrintToString(row.flags_and_number) + " in mode " +
                     std::to_string(row.mode));
        recreate_store();
        const std::uint8_t high = row.flags_and_number[0];
        const std::uint8_t low = row.flags_and_number[1];
        store_stream({under(nordig), raw(0x87, {9, 0, 'n', 'o', 'r', 4, 5, 1, high, low}),
                      raw(0x83, {5, 1, high, low})});
        std::uint32_t count = 1;
        SiNordigLcn of_list{.visible_service_flag = 9, .serv_id = 9, .lcn = 0x7777};
        EXPECT_EQ(nordig_lcn(9, row.mode)(&of_list, &count), ORVA_SI_OK);
        EXPECT_EQ(fields(of_list), fields(SiNordigLcn{row.visible, 0x501, row.number}));
        SiLcnInfo of_network{.transport_stream_id = 9,
                             .original_network_id = 9,
                             .serv_id = 9,
                             .visible_service_flag = 9,
                             .lcn = 0x7777};
        EXPECT_EQ(all_lcn(nordig, row.mode)(&of_network, &count), ORVA_SI_OK);
        EXPECT_EQ(fields(of_network), fields(SiLcnInfo{ts, onid, 0x501, row.visible, row.number}));
    }
}

// Lists that end before their fields do.
const loop broken_lists{raw(0x87, {}),
                        raw(0x87, {1}),
                        raw(0x87, {1, 5, 'A', 'B', 'C', 'D'}),
                        raw(0x87, {1, 0xFF, 'n', 'o', 'r', 0}),
                        raw(0x87, {1, 1, 'A', 'n', 'o'}),
                        raw(0x87, {1, 1, 'A', 'n', 'o', 'r'}),
                        raw(0x87, {1, 1, 'A', 'n', 'o', 'r', 4, 5, 1, 0}),
                        raw(0x87, {1, 0, 'n', 'o', 'r', 255, 5, 1, 0})};

TEST(NordigNumbers, ABrokenListIsPassedOver)
{
    loop descriptors{under(nordig)};
    descriptors.insert(descriptors.end(), broken_lists.begin(), broken_lists.end());
    store_stream(descriptors);
    expect_empty<SiNordigLcn>(nordig_lcn(1), ORVA_SI_NO_DATA);
    descriptors.push_back(nordig_channels({{1, "", "nor", {{0x501, true, 7}}}}));
    recreate_store();
    store_stream(descriptors);
    expect_records(nordig_lcn(1), std::vector<SiNordigLcn>{{1, 0x501, 7}});
}

TEST(NordigNumbers, BytesThatMakeNoWholeEntryAreSkippedWithTheirList)
{
    store_stream({under(nordig), raw(0x87, {1, 0, 'n', 'o', 'r', 6,   5, 1, 0x80, 7,    9,
                                            9, 2, 0,   's', 'w', 'e', 4, 5, 2,    0x80, 8})});
    expect_records(nordig_lcn(1), std::vector<SiNordigLcn>{{1, 0x501, 7}});
    expect_records(nordig_lcn(2), std::vector<SiNordigLcn>{{1, 0x502, 8}});
}

// ---- Lists of NorDig version 2

TEST(NordigLists, AreThoseOfAllDescriptorsUnderTheSpecifier)
{
    store_stream({under(nordig),
                  nordig_channels({{1, "\x05\xD8st", "nor", {{}}}, {2, "", "swe", {}}}),
                  nordig_channels({{255, "Last", "dnk", {{}, {}}}})});
    expect_records(nordig_lists(),
                   std::vector<SiNordigChanList>{list_record(1, 5, "\xD8st", "nor"),
                                                 list_record(2, 0, "", "swe"),
                                                 list_record(255, 'L', "Last", "dnk")});
}

TEST(NordigLists, WhatStandsBeforeABrokenListStays)
{
    auto cut_short = nordig_channels({{1, "A", "nor", {{}}}, {2, "B", "swe", {}}});
    cut_short.resize(cut_short.size() - 2);
    cut_short[1] = static_cast<std::uint8_t>(cut_short[1] - 2);
    store_stream({under(nordig), cut_short, nordig_channels({{3, "C", "dnk", {}}})});
    expect_records(nordig_lists(), std::vector<SiNordigChanList>{list_record(1, 'A', "A", "nor"),
                                                                 list_record(3, 'C', "C", "dnk")});
}

// ---- Specifiers of logical channel descriptors

TEST(ChannelSpecifiers, EachIsListedOnceForEachTimeItIsGiven)
{
    const auto channels = logical_channels({{}});
    store_stream({channels, under(eacem), channels, channels, under(nordig), under(0x8000233A),
                  raw(0x83, {}), under(0), channels, under(eacem), one_list, channels});
    expect_list(specifiers(), std::vector<std::uint32_t>{eacem, 0x8000233A, eacem});
}

TEST(ChannelSpecifiers, TheLastOneBeforeTheDescriptorIsListed)
{
    store_stream({under(eacem), under(0), logical_channels({{}}), under(eacem), under(nordig),
                  logical_channels({{}})});
    expect_list(specifiers(), std::vector<std::uint32_t>{nordig});
}

TEST(ChannelSpecifiers, OfAnotherLengthAreNone)
{
    store_stream({raw(0x5F, {0, 0, 0, 1, 0}), raw(0x5F, {0, 0, 1}), logical_channels({{}})});
    expect_empty<std::uint32_t>(specifiers(), ORVA_SI_NO_DATA);
    recreate_store();
    store_stream({under(eacem), raw(0x5F, {0, 0, 0, 1, 0}), logical_channels({{}})});
    expect_list(specifiers(), std::vector<std::uint32_t>{eacem});
}

TEST(ChannelSpecifiers, AreTracedAndEndWithTheirLoop)
{
    store_streams({{.ts = ts, .original_network = onid, .descriptors = {under(eacem)}},
                   {.ts = ts, .original_network = onid, .descriptors = {logical_channels({{}})}}});
    expect_empty<std::uint32_t>(specifiers(), ORVA_SI_NO_DATA);
    recreate_store();
    store_stream({under(0x233A), logical_channels({{}})});
    ask<std::uint32_t>(specifiers(), 1);
    EXPECT_TRUE(fake::logged(4, "found the matched pdsd_val=0x233a\n")) << fake::log_text();
}

// ---- Logical channels of a whole network

TEST(AllChannels, AreThoseOfEveryStreamUnderTheSpecifier)
{
    store_streams({{.ts = 10,
                    .original_network = 0x20,
                    .descriptors = {logical_channels({{0x500, true, 5}}), under(eacem),
                                    logical_channels({{0x501, true, 1}, {0x502, false, 1023}}),
                                    raw(0x83, {})}},
                   {.ts = 11, .original_network = 0x20, .descriptors = {logical_channels({{}})}},
                   {.ts = 0xFFFE,
                    .original_network = 0xFFFD,
                    .descriptors = {under(nordig), logical_channels({{0xFFFC, true, 600}})}}});
    const std::vector<SiLcnInfo> of_eacem{{10, 0x20, 0x501, 1, 1}, {10, 0x20, 0x502, 0, 1023}};
    const std::vector<SiLcnInfo> of_nordig{{0xFFFE, 0xFFFD, 0xFFFC, 1, 600}};
    expect_records(all_lcn(eacem), of_eacem);
    expect_records(all_lcn(nordig), of_nordig);
    expect_records(all_lcn(0), std::vector<SiLcnInfo>{of_eacem[0], of_eacem[1], of_nordig[0]});
    expect_empty<SiLcnInfo>(all_lcn(0x2A), ORVA_SI_NO_DATA);
}

TEST(AllChannels, ASpecifierOfZeroIsNotAnyOther)
{
    store_stream({under(0), logical_channels({{}})});
    expect_empty<SiLcnInfo>(all_lcn(0), ORVA_SI_NO_DATA);
    expect_empty<std::uint32_t>(specifiers(), ORVA_SI_NO_DATA);
    recreate_store();
    store_stream({under(eacem), under(0), logical_channels({{0x501, true, 7}})});
    expect_records(all_lcn(0), std::vector<SiLcnInfo>{{ts, onid, 0x501, 1, 7}});
}

TEST(AllChannels, OnlyWholeEntriesCount)
{
    store_stream({under(eacem), raw(0x83, {5, 1, 0x80}), raw(0x83, {5, 2, 0x80, 2, 5, 3, 0x80}),
                  logical_channels({{0x504, true, 4}})});
    expect_records(all_lcn(eacem),
                   std::vector<SiLcnInfo>{{ts, onid, 0x502, 1, 2}, {ts, onid, 0x504, 1, 4}});
}

// ---- Service attributes

TEST(ServiceAttributes, AreThoseOfAllDescriptorsUnderTheSpecifier)
{
    store_stream({under(eacem),
                  service_attributes({{.id = 0x501, .numeric_selection = true, .visible = false},
                                      {.id = 0xFFFE, .numeric_selection = false, .visible = true}}),
                  service_attributes({{.id = 3, .numeric_selection = true, .visible = true}})});
    expect_records(attributes(), std::vector<SiServAttr>{{0x501, 0, 1}, {0xFFFE, 1, 0}, {3, 1, 1}});
    ask<SiServAttr>(attributes(), 3);
    for (const char *line : {"the servattarray[0].serv_id = 0x501, visible_service_flag = 0, "
                             "numeric_selection_flag = 1\n",
                             "the servattarray[1].serv_id = 0xfffe, visible_service_flag = 1, "
                             "numeric_selection_flag = 0\n"})
        EXPECT_TRUE(fake::logged(4, line)) << line << fake::log_text();
}

TEST(ServiceAttributes, OnlyWholeEntriesCountAndReservedBitsDoNot)
{
    store_stream({under(eacem), raw(0x86, {}), raw(0x86, {5, 1}), raw(0x86, {5, 2, 0x01, 5, 3}),
                  raw(0x86, {5, 4, 0xFC, 5, 5, 0x02})});
    expect_records(attributes(),
                   std::vector<SiServAttr>{{0x502, 1, 0}, {0x504, 0, 0}, {0x505, 0, 1}});
}

} // namespace
