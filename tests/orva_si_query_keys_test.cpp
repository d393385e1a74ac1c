// SPDX-License-Identifier: LGPL-2.1-or-later
// From which tables and sections the questions about the descriptors of programs and networks are
// answered, and what all of them owe a caller who passes null.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_network.h"
#include "orva_si/query_program.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/questions.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/store_fixture.h"

using namespace test;

namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;

constexpr u16 ts = 10;
constexpr u16 onid = 0x20;
constexpr u32 specifier = 0x29;
constexpr u16 key = 0x3001; // the network_id or program_number that is asked for

// ---- Tables with one entry for every question

const std::vector<octets> of_network{
    multilingual_network_name({{"eng", "Net"}}), target_region("GBR", {{.depth = 1, .primary = 5}}),
    target_region_name("GBR", "eng", {{"London"}}),
    linkage({.type = 0x09, .data = software_update_data({{.selector = {7}}})})};
const std::vector<octets> of_transport{service_list({{0x501, 1}}),
                                       satellite(),
                                       cable(),
                                       terrestrial(),
                                       frequency_list(1, {0x01175725}),
                                       target_region("GBR", {{.depth = 1, .primary = 5}}),
                                       private_data_specifier(specifier),
                                       nordig_channels({{.id = 1, .channels = {{}}}}),
                                       logical_channels({{}}),
                                       service_attributes({{}})};

nit network_table(u16 id = key)
{
    return {.network = id,
            .descriptors = of_network,
            .transports = {{.ts = ts, .original_network = onid, .descriptors = of_transport}}};
}

pmt program_table(u16 id = key)
{
    return {.program = id,
            .streams = {{.type = 0x06,
                         .pid = 0x151,
                         .descriptors = {iso639("eng"), teletext({{}}), subtitling({{}}),
                                         data_broadcast_id(0x000A, {7})}}}};
}

// ---- The questions

struct question {
    std::string name;
    bool of_network;                    // a NIT answers, else a PMT
    std::vector<const char *> pointers; // names of the pointers that must not be null
    asking way;
    answer found; // with one of those tables
    answer nothing;
    bool any_id = false; // every network or program answers
};
void PrintTo(const question &of, std::ostream *out)
{
    *out << of.name;
}

using names = std::vector<const char *>;

constexpr answer one{ORVA_SI_OK, 1};
constexpr answer failure{ORVA_SI_FAILURE, 0};
constexpr answer no_data{ORVA_SI_NO_DATA, 0};
// Lists of regions answer the same whether or not there are any.
constexpr answer one_region{ORVA_SI_FAILURE, 1};
constexpr answer counted_none{ORVA_SI_OK, 0};

std::vector<question> network_questions()
{
    const auto of = [](std::string name, names pointers, asking way, answer nothing = no_data,
                       answer found = one) {
        return question{std::move(name), true, std::move(pointers), std::move(way), found, nothing};
    };
    auto update_service = of(
        "SsuNitLinkageServiceId", {"ser_id"},
        value<u16>([](u32, u16 *out) { return Orva_Si_GetSsuNitLinkageServiceId(out); }), failure);
    update_service.any_id = true;
    return {
        of("MultiNetworkNameLangList", {"langlist", "pcount"},
           list<u32>(Orva_Si_GetMultiNetworkNameLangList)),
        of("MultiNetworkNameByLangId", {"pnetworkname"}, value<SiDvbString>([](u32 id, auto *out) {
               return Orva_Si_GetMultiNetworkNameByLangId(id, 0, out);
           })),
        of("ServiceType_InNIT", {"ptype"}, value<u8>([](u32 id, auto *out) {
               return Orva_Si_GetServiceType_InNIT(id, ts, onid, 0x501, out);
           }),
           failure),
        of("SatelliteDeliveryList", {"satellite_delivery_list", "pcount"},
           list<SiSatelliteDelivery>(Orva_Si_GetSatelliteDeliveryList)),
        of("SatelliteDeliveryDescriptor", {"satellite_delivery"},
           value<SiSatelliteDelivery>([](u32 id, auto *out) {
               return Orva_Si_GetSatelliteDeliveryDescriptor(id, ts, out);
           }),
           failure),
        of("CableDeliveryList", {"cabledelivery_list", "pcount"},
           list<SiCableDelivery>(Orva_Si_GetCableDeliveryList)),
        of("CableDeliveryDescriptor", {"cabledelivery"},
           value<SiCableDelivery>(
               [](u32 id, auto *out) { return Orva_Si_GetCableDeliveryDescriptor(id, ts, out); }),
           failure),
        of("TerrDeliveryList", {"terrdelivery_list", "pcount"},
           list<SiTerrDelivery>(Orva_Si_GetTerrDeliveryList)),
        of("FrequencyListDescriptor", {"freq_list", "pcount"}, list<u32>([](u32 id, auto... out) {
               return Orva_Si_GetFrequencyListDescriptor(id, ts, out...);
           })),
        of("NordigV2LCNInfo", {"pinfo", "count"}, list<SiNordigLcn>([](u32 id, auto... out) {
               return Orva_Si_GetNordigV2LCNInfo(id, ts, onid, specifier, 1, 0, out...);
           })),
        of("NordigV2ChanlList", {"pchnlist", "pcount"},
           list<SiNordigChanList>([](u32 id, auto... out) {
               return Orva_Si_GetNordigV2ChanlList(id, ts, onid, specifier, out...);
           })),
        of("LCNPdsdList", {"pdsdlist", "pcount"}, list<u32>([](u32 id, auto... out) {
               return Orva_Si_GetLCNPdsdList(id, ts, onid, out...);
           })),
        of("AllLCNInfo", {"pinfo", "pcount"}, list<SiLcnInfo>([](u32 id, auto... out) {
               return Orva_Si_GetAllLCNInfo(id, specifier, 0, out...);
           })),
        of("DBookServAttDesc", {"servattarray", "pcount"},
           list<SiServAttr>([](u32 id, auto... out) {
               return Orva_Si_GetDBookServAttDesc(id, ts, onid, specifier, out...);
           })),
        of("GlobalTargetRegionInfo", {"region_array", "parray_count"},
           list<SiTargetRegion>(Orva_Si_GetGlobalTargetRegionInfo), failure, one_region),
        of("GlobalTargetRegionInfoCount", {"parray_count"},
           number(Orva_Si_GetGlobalTargetRegionInfoCount), counted_none),
        of("TsTargetRegionInfo", {"region_array", "parray_count"},
           list<SiTargetRegion>([](u32 id, auto... out) {
               return Orva_Si_GetTsTargetRegionInfo(id, ts, onid, out...);
           }),
           failure, one_region),
        of("TsTargetRegionInfoCount", {"parray_count"}, number([](u32 id, u32 *count) {
               return Orva_Si_GetTsTargetRegionInfoCount(id, ts, onid, count);
           }),
           counted_none),
        of("TargetRegionName", {"region_name_array", "parray_count"},
           list<SiDvbString>(Orva_Si_GetTargetRegionName), failure, one_region),
        of("TargetRegionNameCount", {"parray_count"}, number(Orva_Si_GetTargetRegionNameCount),
           counted_none),
        of("NitLinkageDesc", {"lkgrpcserv", "pcount"}, list<SiLinkage>([](u32 id, auto... out) {
               return Orva_Si_GetNitLinkageDesc(id, 0, out...);
           })),
        of("SsuNitLinkageDescSelector", {"selector_bytes", "selector_length"},
           bytes(Orva_Si_GetSsuNitLinkageDescSelector), failure),
        update_service};
}

std::vector<question> program_questions()
{
    const auto of = [](std::string name, names pointers, asking way, answer nothing = no_data) {
        return question{std::move(name), false, std::move(pointers), std::move(way), one, nothing};
    };
    auto update_pids = of(
        "SsuPidsByPmtDataBroadCast", {"pids", "pcount"},
        list<u16>([](u32, auto... out) { return Orva_Si_GetSsuPidsByPmtDataBroadCast(out...); }));
    update_pids.any_id = true;
    return {
        of("AudioIso639Desc", {"isodesc", "pcount"},
           list<SiIso639Desc>(Orva_Si_GetAudioIso639Desc)),
        of("TeleTextDesc", {"textlist", "pcount"}, list<SiTeletextDesc>([](u32 id, auto... out) {
               return Orva_Si_GetTeleTextDesc(id, 0x2000, out...);
           })),
        of("SubtitleDesc", {"subarray", "pcount"}, list<SiSubtitleDesc>([](u32 id, auto... out) {
               return Orva_Si_GetSubtitleDesc(id, 0x2000, out...);
           })),
        of("SsuDataBroadCastDescSelector", {"selector_bytes", "selector_length"},
           bytes(Orva_Si_GetSsuDataBroadCastDescSelector), failure),
        update_pids,
        of("SoftwareUpatePIDs", {"pidarray", "pcount"}, list<u16>(Orva_Si_GetSoftwareUpatePIDs)),
        of("DataBroadcastDescPrivData", {"priv_buf", "plen"},
           bytes(Orva_Si_GetDataBroadcastDescPrivData)),
        of("DataBroadCounts", {},
           asking{
               .ask =
                   [](u32 id, u32) {
                       const auto text = "found the data_broadcast_id\n";
                       const auto before = fake::times_logged(text);
                       const u32 result = Orva_Si_GetDataBroadCounts(id);
                       return answer{result, static_cast<u32>(fake::times_logged(text) - before)};
                   },
               .ask_without = {}},
           counted_none),
        of("SsuPidsByNitLinkage", {"pids", "pcount"}, list<u16>(Orva_Si_GetSsuPidsByNitLinkage))};
}

// ---- What they share

class Question : public testing::TestWithParam<question> {
protected:
    static answer asked(u32 id = key) { return GetParam().way.ask(id, 4); }
    static octets sample(u16 id = key)
    {
        return GetParam().of_network ? make(network_table(id)) : make(program_table(id));
    }
    static void expect_found() { EXPECT_EQ(asked(), GetParam().found); }
    static void expect_nothing() { EXPECT_EQ(asked(), GetParam().nothing); }
};

TEST_P(Question, IsAnsweredUnderOneLock)
{
    store(sample());
    fake::clear_log();
    expect_found();
    EXPECT_EQ(fake::times_logged("~~~Mutex Lock~~~\n"), 1u);
    EXPECT_EQ(fake::times_logged("===Mutex Unlock===\n"), 1u);
    EXPECT_EQ(asked(0xABCD0000 + key), GetParam().found);
}

TEST_P(Question, HasNoAnswerInAnEmptyStore)
{
    init_store();
    fake::clear_log();
    expect_nothing();
    EXPECT_TRUE(fake::logged(4, "all are looped of count=0\n")) << fake::log_text();
}

TEST_P(Question, TracesTablesThatItIsNotAbout)
{
    store(make(private_table{.table_id = 0x81, .extension = key}), 0x999);
    store(sample());
    fake::clear_log();
    expect_found();
    EXPECT_TRUE(fake::logged(4, "IS NOT eqaul, table id = 0x81\n")) << fake::log_text();
}

TEST_P(Question, IsAnsweredByItsOwnTableOnly)
{
    store(sample(key + 1));
    EXPECT_EQ(asked(), GetParam().any_id ? GetParam().found : GetParam().nothing);
    EXPECT_EQ(asked(0xFFFF), GetParam().found); // the wildcard
}

TEST_P(Question, IsNotAnsweredByAnIncompleteTable)
{
    if (GetParam().of_network) {
        auto table = network_table();
        table.last_section_number = 1;
        store(make(table));
    } else {
        store(sample())->completed = 0; // a PMT is complete with any section
    }
    fake::clear_log();
    expect_nothing();
    EXPECT_TRUE(fake::logged(4, GetParam().of_network
                                    ? "table not finished, pid = 0x10, tableid = 0x40\n"
                                    : "table not finished, pid = 0x100, tableid = 0x2\n"))
        << fake::log_text();
}

// Sections that are passed over; each alone, then before a sound one under the same key.
TEST_P(Question, IsNotAnsweredByABrokenSection)
{
    const auto whole = sample();
    const std::size_t loop_length_at = GetParam().of_network ? 8 : 10;
    for (const octets &bad : {damage(whole), with_byte(whole, 1, whole[1] & 0x7F),
                              with_length12(whole, loop_length_at, 0xFFF)}) {
        SCOPED_TRACE(testing::PrintToString(bad));
        recreate_store();
        store(bad);
        expect_nothing();
        if (GetParam().of_network)
            store(with_byte(whole, 0, 0x41));
        else
            store(whole, 0x1FF);
        expect_found();
    }
}

TEST_P(Question, IsNotAnsweredByTheSameBytesInAnotherTable)
{
    store(with_byte(sample(), 0, GetParam().of_network ? 0x4A : 0x03), 0x11);
    if (GetParam().of_network)
        store(sample(), 0x11);
    else
        store(with_byte(sample(), 0, 0x03), 0x100);
    expect_nothing();
}

TEST_P(Question, IsNotStoppedByAnotherKindOfTableUnderItsKey)
{
    const octets body{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const u16 pid = GetParam().of_network ? 0x10 : 0x100;
    for (const u8 other : octets{0x42, 0x72, 0x80})
        store(make(private_table{.table_id = other, .extension = key, .payload = body}), pid);
    store(make(private_table{.table_id = GetParam().of_network ? u8{0x41} : u8{0x02},
                             .extension = key,
                             .payload = body}),
          pid);
    expect_nothing();
    store(sample(), GetParam().of_network ? 0x10 : 0x1FF);
    expect_found();
}

TEST_P(Question, RefusesNullPointers)
{
    const auto &[ask, ask_without, sums_up] = GetParam().way;
    ASSERT_EQ(ask_without.size(), GetParam().pointers.size());
    store(sample());
    for (std::size_t i = 0; i < ask_without.size(); ++i)
        expect_refused(ask_without[i], GetParam().pointers[i]);
}

// Whatever the lengths inside say, nothing outside the section is read and no more is written than
// there is room for, which a sanitizer checks.
TEST_P(Question, SurvivesASectionCutAnywhere)
{
    fake::set_log_level(0);
    const auto whole = sample();
    SiTable *table = store(whole);
    for (std::size_t size = 12; size < whole.size(); ++size) {
        Orva_Si_RemoveTableSections(table);
        insert(table, cut(whole, size));
        table->completed = 1;
        for (const u32 capacity : {0u, 1u, 4u})
            GetParam().way.ask(key, capacity);
    }
    Orva_Si_RemoveTableSections(table);
    insert(table, whole);
    table->completed = 1;
    fake::set_log_level(5);
    expect_found();
}

TEST_P(Question, SurvivesALengthThatIsWrongAnywhere)
{
    fake::set_log_level(0);
    const auto whole = sample();
    SiTable *table = store(whole);
    const auto *stored = static_cast<SiSection *>(si_list_get(table->psect_list, 0));
    for (std::size_t at = 8; at + 4 < whole.size(); ++at)
        for (const int change : {-whole[at], -2, -1, 1, 2, 0x10, 0xFF - whole[at]}) {
            const auto value = static_cast<u8>(whole[at] + change);
            std::ranges::copy(with_byte(whole, at, value), stored->section);
            for (const u32 capacity : {0u, 1u, 4u})
                GetParam().way.ask(key, capacity);
        }
    std::ranges::copy(whole, stored->section);
    fake::set_log_level(5);
    expect_found();
}

std::string name_of(const testing::TestParamInfo<question> &of)
{
    return of.param.name;
}
INSTANTIATE_TEST_SUITE_P(Network, Question, testing::ValuesIn(network_questions()), name_of);
INSTANTIATE_TEST_SUITE_P(Program, Question, testing::ValuesIn(program_questions()), name_of);

// ---- What only networks have

class NetworkTables : public Question {
protected:
    // Two tables or sections that answer: lists and counts have twice as many, values the first.
    static void expect_both()
    {
        const answer whole = asked();
        EXPECT_EQ(whole.result, GetParam().found.result);
        EXPECT_EQ(whole.count, GetParam().way.sums_up ? 2u : 1u);
    }
};

TEST_P(NetworkTables, ActualAndOtherAnswer)
{
    auto other = network_table();
    other.table_id = 0x41;
    store(make(other));
    expect_found();
    store(make(network_table()));
    expect_both();
}

TEST_P(NetworkTables, EverySoundSectionAnswers)
{
    auto table = network_table();
    table.last_section_number = 2;
    store(make(table));
    table.section_number = 1;
    store(damage(make(table)));
    table.section_number = 2;
    store(make(table));
    expect_both();
}

TEST_P(NetworkTables, ALaterSectionAnswersAlone)
{
    store(make(nit{.network = key, .last_section_number = 1}));
    auto table = network_table();
    table.section_number = table.last_section_number = 1;
    store(make(table));
    expect_found();
}

TEST_P(NetworkTables, ALoopThatClaimsMoreThanTheSectionEndsWithIt)
{
    const auto whole = sample();
    const auto loop_at = 10 + static_cast<std::size_t>((whole[8] & 0xF) << 8 | whole[9]);
    store(with_length12(whole, loop_at, 0xFFF));
    expect_found();
}

INSTANTIATE_TEST_SUITE_P(, NetworkTables, testing::ValuesIn(network_questions()), name_of);

} // namespace
