// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections that reception hands to the stores with their memory: what is kept, what is copied, and
// that the store is the same as one that walks its lists.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "fakes/driver.h"
#include "orva_si/background.h"
#include "orva_si/readiness.h"
#include "orva_si_alloc.h"
#include "support/effort.h"
#include "support/event_store.h"
#include "support/plain_event_store.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class HandOver : public EventStore {
protected:
    HandOver()
    {
        Si_BG_InitServiceList();
        Si_SectFlt_InitPidFlts(fake::driver().table());
        Orva_Si_SetCtlFlag();
        Si_CtlHelper_SetTableEnableFlag();
        Si_CtlHelper_SetOtherPfEitEnableFlag(1);
        Si_SectFlt_StartSdtBat();
        const SiEitRequest *every_service = nullptr;
        Si_SectFlt_StartOtherPfEit(every_service, 0);
        fake::clear_log();
        forget();
    }
    ~HandOver() override
    {
        Orva_Si_ClearCache();
        Si_SectFlt_StopAllFilters();
    }

    // As the section thread finds it in the queue.
    static SiSection *queued(std::size_t filter, const octets &bytes)
    {
        auto *made = si::allocate_record<SiSection>();
        made->filter_id = static_cast<std::uint16_t>(fake::driver().filter_id(filter));
        made->sect_len = static_cast<std::uint16_t>(bytes.size());
        made->section = si::allocate_section(bytes.size());
        std::copy(bytes.begin(), bytes.end(), made->section);
        return made;
    }
    static constexpr std::size_t sdt_filter = 3;
    static constexpr std::size_t eit_filter = 5;

    static SiTable *table() { return elements_of<SiTable>(Orva_Si_GetTableList()).at(0); }
    static SiSection *table_section(std::size_t at = 0)
    {
        return elements_of<SiSection>(table()->psect_list).at(at);
    }
    static octets sdt_section(std::uint16_t service = 1)
    {
        return make(sdt{.ts = 7, .services = {{.id = service}}});
    }
};

TEST_F(HandOver, TheStoreKeepsTheMemoryOfANewEventSection)
{
    SiSection *node = queued(eit_filter, pf(0));
    const std::uint8_t *memory = node->section;
    EXPECT_EQ(Si_SectFlt_ProcessModel(node), ORVA_SI_OK);
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0]->section, memory);
    EXPECT_THAT(held(), ElementsAre(pf(0)));
}

TEST_F(HandOver, TheStoreKeepsTheMemoryOfAChangedEventSection)
{
    Si_SectFlt_ProcessModel(queued(eit_filter, pf(0)));
    const octets changed = pf(0, 1, 2);
    SiSection *node = queued(eit_filter, changed);
    const std::uint8_t *memory = node->section;
    Si_SectFlt_ProcessModel(node);
    EXPECT_EQ(records().at(0)->section, memory);
    EXPECT_THAT(held(), ElementsAre(changed));
    EXPECT_THAT(notices, ElementsAre(told(pf(0)), told(changed, 1)));
}

TEST_F(HandOver, TheStoreKeepsTheMemoryOfANewTableSection)
{
    SiSection *node = queued(sdt_filter, sdt_section());
    const std::uint8_t *memory = node->section;
    EXPECT_EQ(Si_SectFlt_ProcessModel(node), ORVA_SI_OK);
    EXPECT_EQ(table_section()->section, memory);
    EXPECT_EQ(table_section()->sect_len, sdt_section().size());
    EXPECT_EQ(table()->completed, 1);
}

TEST_F(HandOver, ARepeatedSectionIsFreed)
{
    for (int times = 0; times < 3; ++times) {
        Si_SectFlt_ProcessModel(queued(eit_filter, pf(0)));
        Si_SectFlt_ProcessModel(queued(sdt_filter, sdt_section()));
    }
    EXPECT_THAT(held(), ElementsAre(pf(0)));
    EXPECT_EQ(table()->psect_list->nb_elt, 1);
}

TEST_F(HandOver, BytesBehindTheSectionAreNotKept)
{
    octets longer = pf(0);
    longer.insert(longer.end(), 100, 0xAA);
    SiSection *node = queued(eit_filter, longer);
    const std::uint8_t *memory = node->section;
    note_frees = true;
    Si_SectFlt_ProcessModel(node);
    note_frees = false;
    EXPECT_THAT(freed, testing::Contains(std::pair<const void *, std::size_t>{
                           memory, si::section_buffer_size(longer.size())}));
    EXPECT_THAT(held(), ElementsAre(pf(0)));
}

TEST_F(HandOver, AnEventSectionWithoutALinkIsToldOfAndFreed)
{
    Si_SectFlt_ProcessModel(queued(eit_filter, pf(0)));
    forget();
    SiSection *node = queued(eit_filter, pf(1));
    const std::uint8_t *memory = node->section;
    note_frees = true;
    fake::fail_allocation(2); // the record is the first, the bytes need none
    Si_SectFlt_ProcessModel(node);
    fake::fail_allocation(0);
    note_frees = false;
    EXPECT_EQ(std::ranges::count(freed, memory, [](const auto &each) { return each.first; }), 1);
    EXPECT_THAT(notices, ElementsAre(told(pf(1))));
    EXPECT_THAT(held(), ElementsAre(pf(0)));
}

TEST_F(HandOver, ATableSectionWithoutALinkIsFreed)
{
    Si_SectFlt_ProcessModel(queued(sdt_filter, sdt_section()));
    SiSection *node = queued(sdt_filter, sdt_section(2));
    const std::uint8_t *memory = node->section;
    note_frees = true;
    fake::fail_allocation(2);
    EXPECT_EQ(Si_SectFlt_ProcessModel(node), ORVA_SI_FAILURE);
    fake::fail_allocation(0);
    note_frees = false;
    EXPECT_EQ(std::ranges::count(freed, memory, [](const auto &each) { return each.first; }), 1);
    EXPECT_EQ(table()->psect_list->nb_elt, 0); // emptied for the new version
    Si_SectFlt_ProcessModel(queued(sdt_filter, sdt_section(2)));
    EXPECT_EQ(table()->psect_list->nb_elt, 1);
}

TEST_F(HandOver, OnlyWhatIsOfferedIsKept)
{
    const octets section = pf(0);
    deliver(section); // the caller's own memory, freed on return
    EXPECT_THAT(held(), ElementsAre(section));
    Si_SectFlt_ProcessModel(queued(eit_filter, pf(1)));
    const octets other = pf(0, 1, 3);
    deliver(other); // nothing is offered any more
    EXPECT_THAT(held(), ElementsAre(other, pf(1)));
}

// ---- What is known beside the list, and the walk that the trace tells of: the same store, news
// and filters, both like those of a plain program.

class FastOrWalked : public HandOver,
                     public testing::WithParamInterface<std::tuple<std::uint32_t, unsigned>> {
protected:
    FastOrWalked() { fake::set_log_level(std::get<0>(GetParam())); }

    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }

    // Present and following now and then with a number that there is not, schedules of up to three
    // segments whose last number is now and then another.
    octets any_section()
    {
        static constexpr std::array<std::uint8_t, 6> ids{0x4E, 0x4F, 0x50, 0x50, 0x51, 0x60};
        const std::uint8_t id = ids[below(ids.size())];
        const bool is_pf = id < 0x50;
        const auto service = static_cast<std::uint16_t>(below(2));
        std::uint8_t &version = versions[{id, service}];
        if (below(60) == 0)
            version = static_cast<std::uint8_t>((version + 1) % 32);
        const unsigned last = is_pf ? 1 : 0x12 - (below(12) == 0 ? 2 : 0);
        const unsigned number = below(is_pf ? 2 + (below(30) == 0) : last + 1);
        return make(eit{.table_id = id,
                        .service = service,
                        .ts = 1,
                        .original_network = 5,
                        .version = version,
                        .section_number = static_cast<std::uint8_t>(number),
                        .last_section_number = static_cast<std::uint8_t>(last),
                        .events = std::vector<eit_event>(1 + (below(25) == 0))});
    }

    static void expect_same(const plain_store &model)
    {
        ASSERT_EQ(services().size(), model.all.size());
        for (std::size_t at = 0; at < model.all.size(); ++at) {
            std::vector<octets> expected;
            for (const kept &each : model.all[at].second)
                expected.push_back(each.section);
            EXPECT_EQ(held(at), expected);
        }
    }

    std::mt19937 random{std::get<1>(GetParam())};
    std::map<std::pair<unsigned, unsigned>, std::uint8_t> versions;
};

TEST_P(FastOrWalked, TheStoreIsThatOfAPlainProgram)
{
    plain_store model;
    std::size_t completions = 0;
    for (unsigned step = 0; step < 2500; ++step) {
        const octets section = any_section();
        forget();
        fake::clear_log();
        model.told_of.clear();
        model.calls.clear();
        Si_SectFlt_ProcessModel(queued(eit_filter, section));
        model.take(section, 0);
        ASSERT_EQ(notices, model.told_of) << "step " << step;
        ASSERT_EQ(filter_calls, model.calls) << "step " << step;
        completions += static_cast<std::size_t>(std::ranges::count_if(
            filter_calls, [](const std::string &call) { return call.starts_with("complete"); }));
        if (step % 25 == 0) {
            ASSERT_NO_FATAL_FAILURE(expect_same(model)) << "step " << step;
        }
    }
    EXPECT_GT(completions, 100U);
}

INSTANTIATE_TEST_SUITE_P(LevelsAndSeeds, FastOrWalked,
                         testing::Combine(testing::Values(ORVA_DEBUG_ERROR, ORVA_DEBUG_TRACE),
                                          testing::Range(1U, 1U + part_of(6))));

} // namespace
