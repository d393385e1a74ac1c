// SPDX-License-Identifier: LGPL-2.1-or-later
// Which tables, sections and services the questions about a service's descriptors are answered
// from.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <ostream>

#include "orva_si/query_service.h"
#include "orva_si/query_text.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/store.h"

using namespace test;

namespace {

using u8 = std::uint8_t;
using u32 = std::uint32_t;

constexpr std::uint16_t ts = 7;
constexpr std::uint16_t network = 0x20;
constexpr std::uint16_t sid = 0x701;
constexpr u32 specifier = 0x0000233A;

// One descriptor of each kind that is asked for, each with one entry.
std::vector<octets> every_descriptor()
{
    return {multilingual_service_name({{"eng", "Provider", "Name"}}),
            service_availability(true, {0x0102}),
            data_broadcast(),
            service_move(1, 2, 3),
            linkage(),
            target_region("GBR", {{.depth = 1, .primary = 5}}),
            private_data_specifier(specifier),
            preferred_name_list({{"eng", {{.id = 1, .name = "Preferred"}}}}),
            short_service_name("Short"),
            ci_protection(true)};
}

// A table with that one service.
sdt table(u8 table_id = 0x42)
{
    return {.table_id = table_id,
            .ts = ts,
            .original_network = network,
            .services = {{.id = sid - 1}, {.id = sid, .descriptors = every_descriptor()}}};
}

// The result, and how many entries came with it: 1 for a single value.
struct answer {
    u32 result;
    u32 count;

    bool operator==(const answer &) const = default;
};

void PrintTo(const answer &of, std::ostream *out)
{
    *out << "result " << of.result << " with " << of.count;
}

enum class key { actual, by_ts, by_ts_and_network };

struct question {
    const char *name;
    key tables;
    answer nothing;
    answer found;
    std::function<answer(u32 ts, u32 sid)> ask;
};

void PrintTo(const question &of, std::ostream *out)
{
    *out << of.name;
}

template <class T, class Get>
question value(const char *name, key tables, Get get)
{
    return {name, tables, {ORVA_SI_FAILURE, 0}, {ORVA_SI_OK, 1}, [get](u32 of_ts, u32 of_sid) {
                T out{};
                const u32 result = get(of_ts, of_sid, &out);
                return answer{result, result == ORVA_SI_OK ? 1u : 0u};
            }};
}

template <class T, class Get>
question list(const char *name, key tables, u32 nothing, Get get, u32 found = ORVA_SI_OK)
{
    return {name, tables, {nothing, 0}, {found, 1}, [get](u32 of_ts, u32 of_sid) {
                std::array<T, 8> out{};
                u32 count = out.size();
                const u32 result = get(of_ts, of_sid, out.data(), &count);
                return answer{result, count};
            }};
}

const std::vector<question> &questions()
{
    static const std::vector<question> all{
        list<SiMultiServiceName>(
            "Orva_Si_GetMultiServiceNames", key::actual, ORVA_SI_NO_DATA,
            [](u32, u32 s, auto *out, u32 *n) { return Orva_Si_GetMultiServiceNames(s, out, n); }),
        list<SiMultiServiceName>("Orva_Si_GetMultiServNames", key::by_ts, ORVA_SI_NO_DATA,
                                 Orva_Si_GetMultiServNames),
        list<SiServAvail>("Orva_Si_GetServAvailList", key::by_ts, ORVA_SI_OK,
                          Orva_Si_GetServAvailList),
        list<SiDataBroadcastDesc>("Orva_Si_GetSdtDataBroadCastDesc", key::actual, ORVA_SI_NO_DATA,
                                  [](u32, u32 s, auto *out, u32 *n) {
                                      return Orva_Si_GetSdtDataBroadCastDesc(s, out, n);
                                  }),
        list<SiDataBroadcastDesc>("Orva_Si_GetServDataBroadCastDesc", key::by_ts, ORVA_SI_NO_DATA,
                                  Orva_Si_GetServDataBroadCastDesc),
        value<SiServiceMove>(
            "Orva_Si_GetServiceMoveDesc", key::actual,
            [](u32, u32 s, auto *out) { return Orva_Si_GetServiceMoveDesc(s, out); }),
        value<SiServiceMove>("Orva_Si_GetServMoveDesc", key::by_ts, Orva_Si_GetServMoveDesc),
        value<SiLinkage>("Orva_Si_GetLinkageDesc", key::actual,
                         [](u32, u32 s, auto *out) { return Orva_Si_GetLinkageDesc(s, out); }),
        value<SiLinkage>("Orva_Si_GetServLinkageDesc", key::by_ts, Orva_Si_GetServLinkageDesc),
        list<SiTargetRegion>("Orva_Si_GetSdtTargetRegionInfo", key::by_ts, ORVA_SI_FAILURE,
                             Orva_Si_GetSdtTargetRegionInfo, ORVA_SI_FAILURE),
        list<u32>("Orva_Si_GetSdtTargetRegionInfoCount", key::by_ts, ORVA_SI_OK,
                  [](u32 t, u32 s, u32 *, u32 *n) {
                      return Orva_Si_GetSdtTargetRegionInfoCount(t, s, n);
                  }),
        value<SiDvbString>(
            "Orva_Si_GetShortServiceName", key::actual,
            [](u32, u32 s, auto *out) { return Orva_Si_GetShortServiceName(s, specifier, out); }),
        value<u8>("Orva_Si_GetServCIProtDescData", key::by_ts,
                  [](u32 t, u32 s, u8 *out) {
                      u32 length = 1;
                      return Orva_Si_GetServCIProtDescData(t, s, specifier, out, &length);
                  }),
        value<SiDvbString>("Orva_Si_GetPfNameByID", key::by_ts_and_network,
                           [](u32 t, u32 s, auto *out) {
                               return Orva_Si_GetPfNameByID(network, t, s, 0, out, 1);
                           }),
        list<u32>("Orva_Si_GetPfNameLangList", key::by_ts_and_network, ORVA_SI_NO_DATA,
                  [](u32 t, u32 s, u32 *out, u32 *n) {
                      return Orva_Si_GetPfNameLangList(network, t, s, out, n);
                  }),
    };
    return all;
}

// No language function is installed here, so that every language has the number 0.
class EveryQuestion : public testing::TestWithParam<question> {
protected:
    EveryQuestion() { init_store(); }

    bool reads_other() const { return GetParam().tables != key::actual; }
    // Two sections of one table answer a list twice, a single value once.
    answer found_twice() const
    {
        const bool single = GetParam().nothing == answer{ORVA_SI_FAILURE, 0} &&
                            GetParam().found == answer{ORVA_SI_OK, 1};
        return {GetParam().found.result, single ? 1u : 2u};
    }
    void expect_found(u32 of_ts = ts, u32 of_sid = sid) const
    {
        EXPECT_EQ(GetParam().ask(of_ts, of_sid), GetParam().found);
    }
    void expect_nothing(u32 of_ts = ts, u32 of_sid = sid) const
    {
        EXPECT_EQ(GetParam().ask(of_ts, of_sid), GetParam().nothing);
    }
};

TEST_P(EveryQuestion, HasNoAnswerInAnEmptyStore)
{
    expect_nothing();
}

TEST_P(EveryQuestion, IsAnsweredByTheTunedMultiplex)
{
    store(make(table()));
    expect_found();
}

TEST_P(EveryQuestion, IsAnsweredByAnotherMultiplexOnlyWhereTheTransportStreamIsGiven)
{
    store(make(table(0x46)));
    EXPECT_EQ(GetParam().ask(ts, sid), reads_other() ? GetParam().found : GetParam().nothing);
}

TEST_P(EveryQuestion, KeepsTransportStreamsApartWhereOneIsGiven)
{
    store(make(table()));
    EXPECT_EQ(GetParam().ask(ts + 1, sid), reads_other() ? GetParam().nothing : GetParam().found);
}

TEST_P(EveryQuestion, TakesTransportStreamFFFFForAny)
{
    store(make(table()));
    expect_found(0xFFFF);
}

TEST_P(EveryQuestion, TakesTheLow16BitsOfItsIds)
{
    store(make(table()));
    expect_found(0xABCD0000 | ts, 0x12340000 | sid);
}

TEST_P(EveryQuestion, IsAboutOneServiceOnly)
{
    store(make(table()));
    expect_nothing(ts, sid - 1);
    expect_nothing(ts, sid + 1);
}

TEST_P(EveryQuestion, GoesToTheFirstServiceOfTheIdInASection)
{
    sdt twice = table();
    twice.services.insert(twice.services.begin(), {.id = sid});
    store(make(twice));
    expect_nothing();
}

TEST_P(EveryQuestion, GoesOnToTheNextSection)
{
    sdt of_two = table();
    of_two.last_section_number = 1;
    sdt without = of_two;
    without.services = {{.id = sid}};
    of_two.section_number = 1;
    store(make(without));
    store(make(of_two));
    expect_found();
}

TEST_P(EveryQuestion, CollectsListsOverSectionsAndTables)
{
    sdt of_two = table();
    of_two.last_section_number = 1;
    store(make(of_two));
    of_two.section_number = 1;
    store(make(of_two));
    EXPECT_EQ(GetParam().ask(ts, sid), found_twice());
}

TEST_P(EveryQuestion, CollectsListsOverActualAndOther)
{
    store(make(table()));
    store(make(table(0x46)));
    EXPECT_EQ(GetParam().ask(ts, sid), reads_other() ? found_twice() : GetParam().found);
}

TEST_P(EveryQuestion, DoesNotSeeAnIncompleteTable)
{
    sdt of_two = table();
    of_two.last_section_number = 1;
    store(make(of_two));
    expect_nothing();
}

TEST_P(EveryQuestion, PassesOverADamagedSection)
{
    sdt of_two = table();
    of_two.last_section_number = 1;
    store(damage(make(of_two)));
    of_two.section_number = 1;
    SiTable *stored = store(make(of_two));
    ASSERT_TRUE(stored->completed);
    ASSERT_EQ(stored->psect_list->nb_elt, 2);
    expect_found();
}

TEST_P(EveryQuestion, PassesOverASectionWithoutSyntaxIndicator)
{
    const octets good = make(table());
    store(with_byte(good, 1, good[1] & 0x7F));
    expect_nothing();
}

TEST_P(EveryQuestion, PassesOverABouquetOfTheSameNumber)
{
    const octets bouquet =
        make(bat{.bouquet = ts,
                 .descriptors = {bouquet_name("Sports")},
                 .transports = {
                     {.ts = sid, .original_network = network, .descriptors = every_descriptor()}}});
    store(bouquet);
    expect_nothing();
    store(make(table()));
    expect_found();
}

TEST_P(EveryQuestion, DoesNotSeeAnotherPid)
{
    store(make(table()), 0x12);
    store(make(table()), 0x31);
    expect_nothing();
}

TEST_P(EveryQuestion, HasNoAnswerInAServiceWithoutDescriptors)
{
    store(make(sdt{.ts = ts, .original_network = network, .services = {{.id = sid}}}));
    expect_nothing();
}

TEST_P(EveryQuestion, ComparesTheOriginalNetworkWhereOneIsGiven)
{
    sdt elsewhere = table();
    elsewhere.original_network = network + 1;
    store(make(elsewhere));
    EXPECT_EQ(GetParam().ask(ts, sid),
              GetParam().tables == key::by_ts_and_network ? GetParam().nothing : GetParam().found);
}

TEST_P(EveryQuestion, LeavesTheStoreUnlocked)
{
    for (int round = 0; round < 2; ++round) {
        GetParam().ask(ts, sid);
        ASSERT_EQ(Orva_MutexTryP(&Ts_Ctl_Mutex), ORVA_SI_OK);
        Orva_MutexV(&Ts_Ctl_Mutex);
        store(make(table()));
    }
}

INSTANTIATE_TEST_SUITE_P(, EveryQuestion, testing::ValuesIn(questions()),
                         [](const auto &of) { return std::string{of.param.name}; });

TEST(MissingArguments, AreRefusedByTheirNames)
{
    u32 count = 5;
    u8 byte = 0;
    u32 id = 0;
    SiMultiServiceName name{};
    SiServAvail cell{};
    SiDataBroadcastDesc broadcast{};
    SiTargetRegion region{};
    const std::vector<std::pair<const char *, std::function<u32()>>> calls{
        {"servnames", [&] { return Orva_Si_GetMultiServiceNames(1, nullptr, &count); }},
        {"pcount", [&] { return Orva_Si_GetMultiServiceNames(1, &name, nullptr); }},
        {"servnames", [&] { return Orva_Si_GetMultiServNames(1, 1, nullptr, &count); }},
        {"pcount", [&] { return Orva_Si_GetMultiServNames(1, 1, &name, nullptr); }},
        {"availlist", [&] { return Orva_Si_GetServAvailList(1, 1, nullptr, &count); }},
        {"pcount", [&] { return Orva_Si_GetServAvailList(1, 1, &cell, nullptr); }},
        {"databroadcastdesc", [&] { return Orva_Si_GetSdtDataBroadCastDesc(1, nullptr, &count); }},
        {"psum", [&] { return Orva_Si_GetSdtDataBroadCastDesc(1, &broadcast, nullptr); }},
        {"databroadcastdesc",
         [&] { return Orva_Si_GetServDataBroadCastDesc(1, 1, nullptr, &count); }},
        {"psum", [&] { return Orva_Si_GetServDataBroadCastDesc(1, 1, &broadcast, nullptr); }},
        {"servicemove", [&] { return Orva_Si_GetServiceMoveDesc(1, nullptr); }},
        {"servicemove", [&] { return Orva_Si_GetServMoveDesc(1, 1, nullptr); }},
        {"lkgrpcserv", [&] { return Orva_Si_GetLinkageDesc(1, nullptr); }},
        {"lkgrpcserv", [&] { return Orva_Si_GetServLinkageDesc(1, 1, nullptr); }},
        {"region_array", [&] { return Orva_Si_GetSdtTargetRegionInfo(1, 1, nullptr, &count); }},
        {"parray_count", [&] { return Orva_Si_GetSdtTargetRegionInfo(1, 1, &region, nullptr); }},
        {"parray_count", [&] { return Orva_Si_GetSdtTargetRegionInfoCount(1, 1, nullptr); }},
        {"pname", [&] { return Orva_Si_GetShortServiceName(1, 1, nullptr); }},
        {"data", [&] { return Orva_Si_GetServCIProtDescData(1, 1, 1, nullptr, &count); }},
        {"plen", [&] { return Orva_Si_GetServCIProtDescData(1, 1, 1, &byte, nullptr); }},
        {"pPfName", [&] { return Orva_Si_GetPfNameByID(1, 1, 1, 1, nullptr, 1); }},
        {"langidlist", [&] { return Orva_Si_GetPfNameLangList(1, 1, 1, nullptr, &count); }},
        {"pcount", [&] { return Orva_Si_GetPfNameLangList(1, 1, 1, &id, nullptr); }},
    };
    init_store();
    for (const auto &[name_of_argument, call] : calls)
        expect_refused(call, name_of_argument);
    EXPECT_EQ(count, 5u);
}

} // namespace
