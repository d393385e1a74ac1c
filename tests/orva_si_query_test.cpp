// SPDX-License-Identifier: LGPL-2.1-or-later
// What all getters of the table store have in common: which sections they see, that they leave the
// lock as they found it, and that no broadcast leads them out of their memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "orva_si/query_bouquet.h"
#include "orva_si/query_network.h"
#include "orva_si/query_program.h"
#include "orva_si/query_service.h"
#include "support/effort.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

// ---- Sections that answer every getter

const auto listed_services = service_list({{0x501, 1}});

octets sample_sdt()
{
    return make(
        sdt{.ts = 5,
            .original_network = 0x20,
            .services = {
                {.id = 0x500},
                {.id = 0x501,
                 .eit_schedule = true,
                 .descriptors = {raw(0x5F, {0, 0, 0, 1}), service_descriptor(1, "Prov", "Name")}},
                {.id = 0x502, .descriptors = {service_descriptor(2, "P", "Last")}}}});
}

octets sample_pat()
{
    return make(pat{.ts = 5, .programs = {{0, 0x10}, {0x501, 0x150}, {0x502, 0x160}}});
}

octets sample_pmt()
{
    return make(
        pmt{.program = 0x501,
            .pcr_pid = 0x151,
            .descriptors = {ca(0x0B00, 0x1F0)},
            .streams = {{.type = 0x02, .pid = 0x151, .descriptors = {raw(0x52, {1})}},
                        {.type = 0x03, .pid = 0x152, .descriptors = {iso639("eng")}},
                        {.type = 0x06, .pid = 0x153, .descriptors = {teletext({{}})}},
                        {.type = 0x06, .pid = 0x154, .descriptors = {subtitling({{}}), ca(1, 2)}},
                        {.type = 0x06, .pid = 0x155, .descriptors = {ac3(), component(2, 3)}}}});
}

octets sample_nit()
{
    return make(
        nit{.network = 0x3001,
            .descriptors = {network_name("Net")},
            .transports = {{.ts = 5, .original_network = 0x20, .descriptors = {listed_services}},
                           {.ts = 6, .original_network = 0x20}}});
}

octets sample_bat()
{
    return make(
        bat{.bouquet = 0x6001,
            .descriptors = {bouquet_name("Bouquet")},
            .transports = {{.ts = 5, .original_network = 0x20, .descriptors = {listed_services}}}});
}

// ---- The getters

// Calls a list getter with exactly as many elements as the count says.
template <class T, class Get>
std::uint32_t list_call(Get get, std::uint32_t capacity)
{
    const std::unique_ptr<T[]> room{new T[capacity]{}};
    std::uint32_t count = capacity;
    const std::uint32_t result = get(room.get(), &count);
    EXPECT_LE(count, capacity);
    return result;
}

template <class T, class Get>
std::uint32_t value_call(Get get)
{
    const auto value = std::make_unique<T>();
    return get(value.get());
}

struct getter {
    const char *name;
    octets (*sample)();
    std::uint32_t nothing; // the result when nothing answers
    std::function<std::uint32_t(std::uint32_t capacity)> call;
};

void PrintTo(const getter &of, std::ostream *out)
{
    *out << of.name;
}

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;

// A getter of one value, or of a list; ask gets the memory to fill.
template <class T, class Ask>
getter value(const char *name, u32 nothing, octets (*sample)(), Ask ask)
{
    return {name, sample, nothing, [ask](u32) { return value_call<T>(ask); }};
}

template <class T, class Ask>
getter list(const char *name, u32 nothing, octets (*sample)(), Ask ask)
{
    return {name, sample, nothing, [ask](u32 capacity) { return list_call<T>(ask, capacity); }};
}

const std::vector<getter> &getters()
{
    static const std::vector<getter> all{
        value<SiDvbString>("Orva_Si_GetServiceName", ORVA_SI_FAILURE, sample_sdt,
                           [](auto *out) { return Orva_Si_GetServiceName(0x501, out); }),
        value<SiDvbString>("Orva_Si_GetServName", ORVA_SI_FAILURE, sample_sdt,
                           [](auto *out) { return Orva_Si_GetServName(5, 0x501, out); }),
        value<u8>("Orva_Si_GetServiceType", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServiceType(0x501, out); }),
        value<u8>("Orva_Si_GetServType", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServType(5, 0x501, out); }),
        value<u8>("Orva_Si_GetServiceEncrypted", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServiceEncrypted(0x501, out); }),
        value<u8>("Orva_Si_GetServEncrypted", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServEncrypted(5, 0x501, out); }),
        value<u8>("Orva_Si_GetFreeCaMode", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetFreeCaMode(0x501, out); }),
        value<u8>("Orva_Si_GetServFreeCaMode", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServFreeCaMode(5, 0x501, out); }),
        value<u8>("Orva_Si_GetRunningStatus", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetRunningStatus(0x501, out); }),
        value<u8>("Orva_Si_GetServRunningStatus", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServRunningStatus(5, 0x501, out); }),
        value<u8>("Orva_Si_GetEitSchedFlag", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetEitSchedFlag(0x501, out); }),
        value<u8>("Orva_Si_GetServEitSchedFlag", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServEitSchedFlag(5, 0x501, out); }),
        value<u8>("Orva_Si_GetEitPfFlag", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetEitPfFlag(0x501, out); }),
        value<u8>("Orva_Si_GetServEitPfFlag", ORVA_SI_FAILURE, sample_sdt,
                  [](auto *out) { return Orva_Si_GetServEitPfFlag(5, 0x501, out); }),
        value<u16>("Orva_Si_GetActTsId", ORVA_SI_FAILURE, sample_sdt,
                   [](auto *out) { return Orva_Si_GetActTsId(out); }),
        value<u16>("Orva_Si_GetActOnitId", ORVA_SI_FAILURE, sample_sdt,
                   [](auto *out) { return Orva_Si_GetActOnitId(out); }),
        value<u16>("Orva_Si_GetOnitId", ORVA_SI_FAILURE, sample_sdt,
                   [](auto *out) { return Orva_Si_GetOnitId(5, out); }),
        list<u16>("Orva_Si_GetActServIdList", ORVA_SI_NO_DATA, sample_sdt,
                  [](auto *out, u32 *count) { return Orva_Si_GetActServIdList(out, count); }),
        list<u16>("Orva_Si_GetServIdList", ORVA_SI_OK, sample_sdt,
                  [](auto *out, u32 *count) { return Orva_Si_GetServIdList(5, out, count); }),
        list<u16>("Orva_Si_GetSdtAllTsList", ORVA_SI_NO_DATA, sample_sdt,
                  [](auto *out, u32 *count) { return Orva_Si_GetSdtAllTsList(out, count); }),
        value<u16>("Orva_Si_GetPatTsId", ORVA_SI_NOT_FOUND, sample_pat,
                   [](auto *out) { return Orva_Si_GetPatTsId(out); }),
        list<u8>("Orva_Si_GetPmtData", ORVA_SI_NOT_FOUND, sample_pmt,
                 [](auto *out, u32 *count) { return Orva_Si_GetPmtData(0x501, out, count); }),
        list<u8>("Orva_Si_GetPmtDataByPID", ORVA_SI_NOT_FOUND, sample_pmt,
                 [](auto *out, u32 *count) { return Orva_Si_GetPmtDataByPID(0x100, out, count); }),
        list<u8>("Orva_Si_GetCiData", ORVA_SI_NOT_FOUND, sample_pmt,
                 [](auto *out, u32 *count) { return Orva_Si_GetCiData(0x501, out, count); }),
        value<u16>("Orva_Si_GetPcrPID", ORVA_SI_NO_DATA, sample_pmt,
                   [](auto *out) { return Orva_Si_GetPcrPID(0x501, out); }),
        value<u16>("Orva_Si_GetVideoPID", ORVA_SI_FAILURE, sample_pmt,
                   [](auto *out) { return Orva_Si_GetVideoPID(0x501, out); }),
        list<SiAudioPid>(
            "Orva_Si_GetAudioPIDs", ORVA_SI_NO_DATA, sample_pmt,
            [](auto *out, u32 *count) { return Orva_Si_GetAudioPIDs(0x501, out, count); }),
        list<u16>("Orva_Si_GetAllPids", ORVA_SI_NO_DATA, sample_pmt,
                  [](auto *out, u32 *count) { return Orva_Si_GetAllPids(0x501, out, count); }),
        list<u16>("Orva_Si_GetTeleTextPids", ORVA_SI_NO_DATA, sample_pmt,
                  [](auto *out, u32 *count) { return Orva_Si_GetTeleTextPids(0x501, out, count); }),
        list<u16>("Orva_Si_GetSubtitlePids", ORVA_SI_NO_DATA, sample_pmt,
                  [](auto *out, u32 *count) { return Orva_Si_GetSubtitlePids(0x501, out, count); }),
        list<SiCaDesc>(
            "Orva_Si_GetPmtCaDesc", ORVA_SI_NO_DATA, sample_pmt,
            [](auto *out, u32 *count) { return Orva_Si_GetPmtCaDesc(0x501, out, count); }),
        value<u16>("Orva_Si_GetCurrentNetworkId", ORVA_SI_NO_DATA, sample_nit,
                   [](auto *out) { return Orva_Si_GetCurrentNetworkId(out); }),
        list<u16>("Orva_Si_GetNitAllNetworkList", ORVA_SI_NO_DATA, sample_nit,
                  [](auto *out, u32 *count) { return Orva_Si_GetNitAllNetworkList(out, count); }),
        value<SiDvbString>("Orva_Si_GetNetworkName", ORVA_SI_FAILURE, sample_nit,
                           [](auto *out) { return Orva_Si_GetNetworkName(0x3001, out); }),
        list<u16>(
            "Orva_Si_GetTsGrpByNetworkId", ORVA_SI_NO_DATA, sample_nit,
            [](auto *out, u32 *count) { return Orva_Si_GetTsGrpByNetworkId(0x3001, out, count); }),
        list<SiServiceListEntry>("Orva_Si_GetServiceList", ORVA_SI_OK, sample_nit,
                                 [](auto *out, u32 *count) {
                                     return Orva_Si_GetServiceList(0x3001, 5, 0x20, out, count);
                                 }),
        list<u16>("Orva_Si_GetBouquetIdList", ORVA_SI_NO_DATA, sample_bat,
                  [](auto *out, u32 *count) { return Orva_Si_GetBouquetIdList(out, count); }),
        list<SiBouquetService>("Orva_Si_GetServiceListInBouquet", ORVA_SI_NO_DATA, sample_bat,
                               [](auto *out, u32 *count) {
                                   return Orva_Si_GetServiceListInBouquet(0x6001, out, count);
                               }),
        value<SiDvbString>("Orva_Si_GetBouquetNameById", ORVA_SI_FAILURE, sample_bat,
                           [](auto *out) { return Orva_Si_GetBouquetNameById(0x6001, out); }),
    };
    return all;
}

constexpr u32 plenty = 1024;

// Whether a list of no length is not full but empty: for the lists that answer an empty one with
// success.
u32 with_room(const getter &each)
{
    return each.call(plenty);
}

bool answers(const getter &each)
{
    if (each.nothing != ORVA_SI_OK)
        return with_room(each) == ORVA_SI_OK;
    return each.call(0) == ORVA_SI_ARRAY_FULL; // an empty list is a success too
}

bool ctl_is_free()
{
    if (pthread_mutex_trylock(&Ts_Ctl_Mutex) != 0)
        return false;
    pthread_mutex_unlock(&Ts_Ctl_Mutex);
    return true;
}

class EveryGetter : public testing::TestWithParam<getter> {
protected:
    // Nothing is found, and the lock is free again.
    void expect_nothing()
    {
        EXPECT_EQ(with_room(GetParam()), GetParam().nothing);
        EXPECT_FALSE(answers(GetParam()));
        EXPECT_TRUE(ctl_is_free());
    }
};

TEST_P(EveryGetter, FindsItsAnswer)
{
    store(GetParam().sample());
    EXPECT_EQ(with_room(GetParam()), ORVA_SI_OK);
    EXPECT_TRUE(answers(GetParam()));
    EXPECT_TRUE(ctl_is_free());
}

TEST_P(EveryGetter, TracesItsLockOnceEachWay)
{
    store(GetParam().sample());
    fake::clear_log();
    with_room(GetParam());
    EXPECT_EQ(fake::times_logged("~~~Mutex Lock~~~\n"), 1u);
    EXPECT_EQ(fake::times_logged("===Mutex Unlock===\n"), 1u);
    const auto lines = fake::log_lines();
    const auto traces = [&](const char *text) {
        return std::ranges::any_of(lines, [&](const fake::log_line &line) {
            return line.text == text && line.level == 5 && line.function == GetParam().name;
        });
    };
    EXPECT_TRUE(traces("~~~Mutex Lock~~~\n")) << fake::log_text();
    EXPECT_TRUE(traces("===Mutex Unlock===\n")) << fake::log_text();
}

TEST_P(EveryGetter, FindsNothingInAnEmptyStore)
{
    init_store();
    expect_nothing();
    EXPECT_TRUE(fake::logged(4, "all are looped of count=0\n")) << fake::log_text();
}

TEST_P(EveryGetter, PassesOverADamagedSection)
{
    store(damage(GetParam().sample()));
    expect_nothing();
}

TEST_P(EveryGetter, PassesOverASectionWithoutSyntaxIndicator)
{
    auto section = GetParam().sample();
    store(with_byte(section, 1, section[1] & 0x7F));
    expect_nothing();
}

TEST_P(EveryGetter, DoesNotSeeAnIncompleteTable)
{
    SiTable *table = store(GetParam().sample());
    table->completed = 0;
    fake::clear_log();
    expect_nothing();
    char line[64];
    std::snprintf(line, sizeof line, "table not finished, pid = %#x, tableid = %#x\n", table->pid,
                  table->table_id);
    EXPECT_TRUE(fake::logged(4, line)) << fake::log_text();
}

TEST_P(EveryGetter, DoesNotSeeAnEmptyTable)
{
    SiTable *table = store(GetParam().sample());
    Orva_Si_RemoveTableSections(table);
    table->completed = 1;
    expect_nothing();
}

TEST_P(EveryGetter, PassesOverRecordsWithoutBytes)
{
    SiTable *table = store(GetParam().sample());
    SiSection hollow{};
    si_list_add(table->psect_list, &hollow, 0);
    fake::clear_log();
    EXPECT_TRUE(answers(GetParam()));
    EXPECT_TRUE(fake::logged(4, "int_psect = null\n")) << fake::log_text();
    si_list_remove(table->psect_list, 0);
}

TEST_P(EveryGetter, TracesTablesThatAreNotAskedFor)
{
    store(make(private_table{.table_id = 0x81}), 0x999);
    store(GetParam().sample());
    fake::clear_log();
    EXPECT_TRUE(answers(GetParam()));
    EXPECT_TRUE(fake::logged(4, "IS NOT eqaul, table id = 0x81\n")) << fake::log_text();
}

TEST_P(EveryGetter, PassesOverASectionLongerThanTheBuffer)
{
    auto section = GetParam().sample();
    section.resize(1025);
    store(fix_crc(set_length(section, 1022)));
    expect_nothing();
}

TEST_P(EveryGetter, PassesOverTheLongestSectionThereCanBe)
{
    auto section = GetParam().sample();
    section.resize(4098);
    store(fix_crc(set_length(section, 4095)));
    expect_nothing();
}

TEST_P(EveryGetter, AllocatesNothing)
{
    store(GetParam().sample());
    fake::fail_allocations_from(1);
    EXPECT_TRUE(answers(GetParam()));
    fake::fail_allocations_from(0);
}

TEST_P(EveryGetter, GivesTheSameAnswerTwice)
{
    store(GetParam().sample());
    EXPECT_TRUE(answers(GetParam()));
    EXPECT_TRUE(answers(GetParam()));
}

// Every length that a section can have, its CRC_32 fitting: the lengths inside no longer do.
TEST_P(EveryGetter, SurvivesASectionCutAnywhere)
{
    fake::set_log_level(0);
    const auto whole = GetParam().sample();
    SiTable *table = store(whole);
    for (std::size_t size = 3; size < whole.size(); ++size) {
        Orva_Si_RemoveTableSections(table);
        const octets head(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        insert(table, size < 7 ? set_length(head, size - 3) : cut(whole, size));
        table->completed = 1;
        for (const u32 capacity : {0u, 1u, 2u, plenty})
            GetParam().call(capacity);
        if (size < 12) {
            EXPECT_EQ(with_room(GetParam()), GetParam().nothing) << size;
        }
    }
    EXPECT_TRUE(ctl_is_free());
}

// Every byte of the section takes every value, its CRC_32 fitting: among them are all lengths and
// tags.
TEST_P(EveryGetter, SurvivesAnyByteTakingAnyValue)
{
    fake::set_log_level(0);
    const auto whole = GetParam().sample();
    SiTable *table = store(whole);
    const SiSection *stored = static_cast<SiSection *>(si_list_get(table->psect_list, 0));
    for (std::size_t at = 8; at + 4 < whole.size(); ++at)
        for (unsigned value = 0; value <= 0xFF; value += sweep_step) {
            const auto changed = with_byte(whole, at, static_cast<u8>(value));
            std::ranges::copy(changed, stored->section);
            for (const u32 capacity : {0u, 1u, 3u})
                GetParam().call(capacity);
        }
    std::ranges::copy(whole, stored->section);
    EXPECT_TRUE(answers(GetParam()));
    EXPECT_TRUE(ctl_is_free());
}

INSTANTIATE_TEST_SUITE_P(, EveryGetter, testing::ValuesIn(getters()),
                         [](const testing::TestParamInfo<getter> &of) {
                             return of.param.name + 8;
                         });

// ---- Once is enough

TEST(Frame, ATableIsTakenInTheOrderOfTheStoreAndByItsKeyOnly)
{
    store(make(sdt{.table_id = 0x46, .ts = 5, .original_network = 0x77}));
    store(make(sdt{.ts = 5, .original_network = 0x20}));
    u16 onit = 0;
    EXPECT_EQ(Orva_Si_GetOnitId(5, &onit), ORVA_SI_OK);
    EXPECT_EQ(onit, 0x77);
    EXPECT_EQ(Orva_Si_GetActOnitId(&onit), ORVA_SI_OK);
    EXPECT_EQ(onit, 0x20);
}

TEST(Frame, AnyExtensionIsAskedForWithFFFF)
{
    store(make(sdt{.table_id = 0x46, .ts = 5, .original_network = 0x77}));
    u16 onit = 0;
    EXPECT_EQ(Orva_Si_GetOnitId(SI_ANY_EXT, &onit), ORVA_SI_OK);
    EXPECT_EQ(onit, 0x77);
}

TEST(Frame, AListWithoutRoomIsFullAndEmpty)
{
    store(make(sdt{.ts = 5, .services = {{.id = 1}}}));
    u16 untouched = 99;
    u32 count = 0;
    EXPECT_EQ(Orva_Si_GetActServIdList(&untouched, &count), ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(untouched, 99);
}

TEST(Frame, AListWithJustEnoughRoomIsNotFull)
{
    store(make(sdt{.ts = 5, .services = {{.id = 1}, {.id = 2}}}));
    u16 ids[2] = {};
    u32 count = 2;
    EXPECT_EQ(Orva_Si_GetActServIdList(ids, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 2u);
}

TEST(Frame, ADamagedSectionDoesNotHideTheNextOne)
{
    store(damage(make(sdt{.ts = 5, .last_section_number = 1, .services = {{.id = 1}}})));
    store(
        make(sdt{.ts = 5, .section_number = 1, .last_section_number = 1, .services = {{.id = 2}}}));
    u16 ids[2] = {};
    u32 count = 2;
    EXPECT_EQ(Orva_Si_GetActServIdList(ids, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(ids[0], 2);
}

TEST(Frame, TheLargestSectionIsRead)
{
    sdt table{.ts = 5};
    for (u16 id = 0; id < 201; ++id) // 11 bytes in front, 5 a service, 4 behind
        table.services.push_back({.id = id});
    table.services.back().descriptors = {raw(0x42, {0, 0})};
    auto section = make(table);
    ASSERT_EQ(section.size(), 1024u);
    store(section);
    u16 ids[201] = {};
    u32 count = 201;
    EXPECT_EQ(Orva_Si_GetActServIdList(ids, &count), ORVA_SI_OK);
    EXPECT_EQ(count, 201u);
    EXPECT_EQ(ids[200], 200);
}

TEST(Frame, TheWalkTellsHowManyTablesItPassed)
{
    store(make(sdt{.ts = 5}));
    store(make(sdt{.table_id = 0x46, .ts = 6}));
    fake::clear_log();
    u16 network = 0;
    EXPECT_EQ(Orva_Si_GetCurrentNetworkId(&network), ORVA_SI_NO_DATA);
    EXPECT_TRUE(fake::logged(4, "all are looped of count=2\n")) << fake::log_text();
}

} // namespace
