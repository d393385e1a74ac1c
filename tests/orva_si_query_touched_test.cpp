// SPDX-License-Identifier: LGPL-2.1-or-later
// How little a question touches: the tables that its key names, and of their sections those that
// may answer, however much is stored.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/store_fixture.h"

struct section_ext;
struct dvb_sdt_section;
struct dvb_nit_section;
struct dvb_eit_section;

namespace {
std::size_t compared = 0; // tables with a key
std::size_t decoded = 0;  // sections
} // namespace

extern "C" std::uint32_t __real_Orva_Si_IsEqualTableById(const SiTable *, std::uint16_t,
                                                         std::uint8_t, std::uint16_t, std::uint16_t,
                                                         std::uint16_t);
extern "C" std::uint32_t __wrap_Orva_Si_IsEqualTableById(const SiTable *table, std::uint16_t pid,
                                                         std::uint8_t table_id, std::uint16_t ext,
                                                         std::uint16_t ext1, std::uint16_t ext2)
{
    ++compared;
    return __real_Orva_Si_IsEqualTableById(table, pid, table_id, ext, ext1, ext2);
}

// Decoders under their mangled names.
#define COUNT_CALLS(record, decoder)                                                               \
    extern "C" record *__real_##decoder(section_ext *);                                            \
    extern "C" record *__wrap_##decoder(section_ext *section)                                      \
    {                                                                                              \
        ++decoded;                                                                                 \
        return __real_##decoder(section);                                                          \
    }
COUNT_CALLS(dvb_sdt_section, _ZN2si9sdt_codecEP11section_ext)
COUNT_CALLS(dvb_nit_section, _ZN2si9nit_codecEP11section_ext)
COUNT_CALLS(dvb_eit_section, _ZN2si9eit_codecEP11section_ext)

namespace {

using test::octets;

class Touched : public testing::Test {
protected:
    Touched()
    {
        fake::set_log_level(ORVA_DEBUG_ERROR);
        test::init_store();
    }
    ~Touched() override { test::end_store(); }
    Touched(const Touched &) = delete;
    Touched &operator=(const Touched &) = delete;

    static void start_counting() { compared = decoded = 0; }

    static SiTable *store_pmt(unsigned program, std::uint16_t pid)
    {
        return test::store(make(test::pmt{.program = static_cast<std::uint16_t>(program),
                                          .streams = {{.type = 0x02, .pid = 0x101}}}),
                           pid);
    }
    static std::uint32_t video_of(unsigned program)
    {
        std::uint16_t pid = 0;
        return Orva_Si_GetVideoPID(program, &pid);
    }
};

TEST_F(Touched, OneProgramOfAThousandIsOneTable)
{
    for (unsigned program = 1; program <= 1000; ++program)
        store_pmt(program, static_cast<std::uint16_t>(0x20 + program));
    for (unsigned program = 1; program <= 1000; ++program) {
        start_counting();
        ASSERT_EQ(video_of(program), ORVA_SI_OK);
        ASSERT_LE(compared, 4U) << program; // others of its chain among them
    }
    start_counting();
    EXPECT_EQ(video_of(1001), ORVA_SI_FAILURE);
    EXPECT_LE(compared, 4U);
}

TEST_F(Touched, OneTransportStreamOfAThousandIsItsTables)
{
    for (unsigned ts = 1; ts <= 1000; ++ts)
        test::store(make(test::sdt{.table_id = static_cast<std::uint8_t>(ts == 7 ? 0x42 : 0x46),
                                   .ts = static_cast<std::uint16_t>(ts),
                                   .services = {{.id = static_cast<std::uint16_t>(ts)}}}));
    for (unsigned ts = 1; ts <= 1000; ++ts) {
        std::array<std::uint16_t, 2> ids{};
        std::uint32_t count = ids.size();
        start_counting();
        ASSERT_EQ(Orva_Si_GetServIdList(ts, ids.data(), &count), ORVA_SI_OK);
        ASSERT_EQ(count, 1U);
        ASSERT_EQ(ids[0], ts);
        ASSERT_LE(compared, 4U) << ts;
    }
    std::uint16_t actual = 0;
    start_counting();
    EXPECT_EQ(Orva_Si_GetActTsId(&actual), ORVA_SI_OK);
    EXPECT_EQ(actual, 7);
    EXPECT_LE(compared, 4U);
}

TEST_F(Touched, WithTheTraceEachTableIsTold)
{
    for (unsigned program = 1; program <= 10; ++program)
        store_pmt(program, 0x100);
    fake::set_log_level(ORVA_DEBUG_TRACE);
    start_counting();
    EXPECT_EQ(video_of(10), ORVA_SI_OK);
    EXPECT_EQ(compared, 10U);
}

TEST_F(Touched, MoreTablesThanTheStoreHoldsAreWalked)
{
    SiTable *first = store_pmt(1, 0x100);
    store_pmt(3, 0x102);
    for (int more = 0; more < 4096; ++more) // links of one table: a client's doing
        si_list_add(Orva_Si_GetTableList(), first, 0);
    start_counting();
    EXPECT_EQ(video_of(3), ORVA_SI_OK);
    EXPECT_GT(compared, 4096U);
    while (si_list_get(Orva_Si_GetTableList(), 1) == first)
        si_list_remove(Orva_Si_GetTableList(), 0);
    start_counting();
    EXPECT_EQ(video_of(3), ORVA_SI_OK);
    EXPECT_LE(compared, 4U);
}

// A new list may lie where the old one lay, and have seen as many changes.
TEST_F(Touched, TablesOfAStoreThatIsGoneAreForgotten)
{
    for (int round = 0; round < 20; ++round) {
        store_pmt(1, 0x100);
        EXPECT_EQ(video_of(1), ORVA_SI_OK);
        test::recreate_store();
        store_pmt(2, 0x100);
        EXPECT_EQ(video_of(1), ORVA_SI_FAILURE);
        EXPECT_EQ(video_of(2), ORVA_SI_OK);
        test::recreate_store();
    }
}

TEST_F(Touched, OfAServiceOnlyTheSectionThatNamesItIsDecoded)
{
    for (std::uint8_t number = 0; number < 8; ++number)
        test::store(make(test::sdt{
            .section_number = number,
            .last_section_number = 7,
            .services = {{.id = static_cast<std::uint16_t>(10 + number)}, {.id = 0xFFFF}}}));
    std::uint8_t status = 0;
    start_counting();
    EXPECT_EQ(Orva_Si_GetRunningStatus(16, &status), ORVA_SI_OK);
    EXPECT_EQ(decoded, 1U);
    start_counting();
    EXPECT_EQ(Orva_Si_GetRunningStatus(99, &status), ORVA_SI_FAILURE);
    EXPECT_EQ(decoded, 0U);
}

TEST_F(Touched, OfATransportStreamOnlyTheSectionThatNamesItIsDecoded)
{
    for (std::uint8_t number = 0; number < 8; ++number)
        test::store(make(test::nit{.section_number = number,
                                   .last_section_number = 7,
                                   .descriptors = {test::network_name("Net")},
                                   .transports = {{.ts = static_cast<std::uint16_t>(10 + number),
                                                   .descriptors = {test::service_list({{}})}}}}));
    std::array<SiServiceListEntry, 2> entries{};
    std::uint32_t count = entries.size();
    start_counting();
    EXPECT_EQ(Orva_Si_GetServiceList(1, 16, 1, entries.data(), &count), ORVA_SI_OK);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(decoded, 1U);
}

TEST_F(Touched, OfAnEventOnlyTheSectionThatCarriesItIsDecoded)
{
    for (unsigned number = 0; number < 32; ++number) {
        octets section = make(test::eit{
            .table_id = 0x50,
            .section_number = static_cast<std::uint8_t>(8 * number),
            .last_section_number = 248,
            .events = {{.id = static_cast<std::uint16_t>(100 + number)}, {.id = 0x8000}}});
        Orva_Si_ListEitImpl(1, 1, 1, 0x50, section[6], static_cast<std::uint16_t>(section.size()),
                            section.data());
    }
    for (unsigned number = 0; number < 32; ++number) {
        std::uint32_t seconds = 0;
        start_counting();
        ASSERT_EQ(Orva_Si_GetEvtDuringTime(1, 1, 1, 100 + number, &seconds, 0), ORVA_SI_OK);
        ASSERT_EQ(decoded, 1U) << number;
    }
    std::uint32_t seconds = 0;
    start_counting();
    EXPECT_EQ(Orva_Si_GetEvtDuringTime(1, 1, 1, 99, &seconds, 0), ORVA_SI_FAILURE);
    EXPECT_EQ(decoded, 0U);
}

} // namespace
