// SPDX-License-Identifier: LGPL-2.1-or-later
// What the event store knows of a service's sections without looking at them: the list stays the
// truth, whatever a client does to it, and without memory the list is walked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "orva_si/query_event.h"
#include "orva_si_eitsummary.h"
#include "orva_si_modellistimpl.h"
#include "support/effort.h"
#include "support/event_store.h"
#include "support/plain_event_store.h"

namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

// ---- A client with the lock

SiEitSection *taken_out(si_list *list, std::int32_t at)
{
    auto *record = static_cast<SiEitSection *>(si_list_get(list, at));
    si_list_remove(list, at);
    return record;
}

std::vector<std::uint16_t> schedule_events(std::uint16_t onid, std::uint16_t ts,
                                           std::uint16_t service)
{
    std::array<std::uint16_t, 200> ids{};
    std::uint32_t count = ids.size();
    Orva_Si_GetOneServEvtIds(onid, ts, service, ids.data(), &count);
    return {ids.begin(), ids.begin() + count};
}

std::vector<std::uint16_t> present_events(std::uint16_t onid, std::uint16_t ts,
                                          std::uint16_t service)
{
    std::vector<std::uint16_t> found;
    std::uint16_t id = 0;
    while (Orva_Si_GetBnrEvtId(onid, ts, service, static_cast<std::uint32_t>(found.size()), &id) ==
           ORVA_SI_OK)
        found.push_back(id);
    return found;
}

class ClientEdits : public EventStore {
protected:
    // Three segments of a schedule, each with an event of its own; complete.
    ClientEdits()
    {
        fake::set_log_level(ORVA_DEBUG_ERROR);
        for (const octets &section : three)
            deliver(section);
        EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
        forget();
    }
    static si_list *list() { return services().at(0)->sections; }
    static std::vector<std::uint16_t> answers() { return schedule_events(0x0506, 0x0304, sid); }

    // A record as the store makes them, in no list.
    static SiEitSection *made(const octets &section)
    {
        deliver(section, 9, 9, 9, folded(section[0]), section[6]);
        return taken_out(services().at(1)->sections, 0);
    }

    const std::vector<octets> three{schedule(0, 0x10, 0, 10), schedule(8, 0x10, 0, 11),
                                    schedule(0x10, 0x10, 0, 12)};
};

TEST_F(ClientEdits, ASectionPutInIsKnown)
{
    const octets more = schedule(1, 0x10, 0, 13);
    si_list_add(list(), made(more), 1);
    forget();
    EXPECT_THAT(answers(), ElementsAre(10, 13, 11, 12));
    deliver(more);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(records(), SizeIs(4));
    EXPECT_THAT(answers(), ElementsAre(10, 13, 11, 12));
}

TEST_F(ClientEdits, ASectionTakenOutIsNewWhenItComesAgain)
{
    SiEitSection *gone = taken_out(list(), 1);
    EXPECT_THAT(answers(), ElementsAre(10, 12));
    deliver(three[0]);
    EXPECT_THAT(filter_calls, Not(Contains(complete(0x50, sid, 0))));
    deliver(three[1]);
    EXPECT_THAT(notices, ElementsAre(told(three[1])));
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
    EXPECT_THAT(answers(), ElementsAre(10, 12, 11));
    si_list_add(list(), gone, -1); // so that it is freed with the others
}

TEST_F(ClientEdits, ASectionExchangedIsTheOneThatIsCompared)
{
    const octets other = schedule(8, 0x10, 1, 14);
    SiEitSection *gone = taken_out(list(), 1);
    si_list_add(list(), made(other), 1);
    forget();
    EXPECT_THAT(answers(), ElementsAre(10, 14, 12));
    deliver(other);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, Not(Contains(complete(0x50, sid, 1)))); // two versions
    deliver(three[1]);
    EXPECT_THAT(notices, ElementsAre(told(three[1], 1)));
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
    si_list_add(list(), gone, -1);
}

TEST_F(ClientEdits, ALinkTakenOutByHandIsGone)
{
    si_list_node *first = list()->node;
    auto *gone = static_cast<SiEitSection *>(first->element);
    list()->node = first->next;
    --list()->nb_elt;
    g_slice_free1(sizeof *first, first);
    EXPECT_THAT(answers(), ElementsAre(11, 12));
    deliver(three[0]);
    EXPECT_THAT(notices, ElementsAre(told(three[0])));
    EXPECT_THAT(answers(), ElementsAre(11, 12, 10));
    si_list_add(list(), gone, -1);
}

TEST_F(ClientEdits, ALostSectionIsPassedOverAndFilledAgain)
{
    deliver_without_memory(schedule(8, 0x10, 0, 15), 1);
    ASSERT_EQ(records()[1]->section, nullptr);
    EXPECT_THAT(answers(), ElementsAre(10, 12));
    forget();
    deliver(three[0]);
    EXPECT_THAT(filter_calls, ElementsAre(last_table(0x50, sid, 0x50)));
    deliver(three[1]);
    EXPECT_THAT(notices, ElementsAre(told(three[1], 1)));
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
}

TEST_F(ClientEdits, NullElementsArePassedOver)
{
    for (const std::int32_t at : {0, 2, -1})
        si_list_add(list(), nullptr, at);
    EXPECT_THAT(answers(), ElementsAre(10, 11, 12));
    deliver(three[1]);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0)));
    deliver(schedule(1, 0x10, 0, 13));
    EXPECT_THAT(records(), SizeIs(7));
    EXPECT_THAT(answers(), ElementsAre(10, 11, 12, 13));
    EXPECT_EQ(si::fitting_summary(list()).known.size(), 4U);
}

TEST_F(ClientEdits, AListOfNullElementsHoldsNothing)
{
    std::vector<SiEitSection *> gone;
    for (std::size_t i = 0; i < three.size(); ++i) {
        gone.push_back(taken_out(list(), 0));
        si_list_add(list(), nullptr, -1);
    }
    EXPECT_THAT(answers(), IsEmpty());
    deliver(three[2]);
    EXPECT_THAT(notices, ElementsAre(told(three[2])));
    EXPECT_THAT(answers(), ElementsAre(12));
    for (SiEitSection *each : gone)
        si_list_add(list(), each, -1);
}

TEST_F(ClientEdits, ACompleteTableIsKnownWithoutMemoryToCountItsSections)
{
    const octets only = schedule(0, 0, 0, 10);
    unsigned stored = 0;
    for (unsigned nth = 1; nth <= 12; ++nth) {
        Orva_Si_EraseAllEitRawData();
        forget();
        deliver_without_memory(only, nth);
        if (services().empty() || records().empty() || records()[0]->section == nullptr)
            continue;
        ++stored;
        EXPECT_THAT(filter_calls, Contains(complete(0x50, sid, 0))) << nth;
    }
    EXPECT_GE(stored, 6U); // the summary's two are among those that failed
}

TEST_F(ClientEdits, AReplacedSectionChangesNoSummaryThatDoesNotFit)
{
    SiEitSection *gone = taken_out(list(), 0);
    si::summary_replaced(list(), records()[0]);
    EXPECT_TRUE(si::fitting_summary(list()).empty());
    si_list_add(list(), gone, -1);
}

TEST_F(ClientEdits, ARecordOfAnotherListChangesNoSummary)
{
    SiEitSection *foreign = made(schedule(8, 0x10, 1, 77));
    const std::vector<std::uint16_t> before = answers();
    const auto versions = [] {
        std::vector<std::uint32_t> all;
        for (const si::section_summary &known : si::fitting_summary(list()).known)
            all.push_back(known.crc);
        return all;
    };
    const std::vector<std::uint32_t> kept = versions();
    ASSERT_THAT(kept, SizeIs(3));
    si::summary_replaced(list(), foreign);
    EXPECT_EQ(versions(), kept);
    EXPECT_EQ(answers(), before);
    si_list_add(list(), foreign, -1); // so that it is freed with the others
}

TEST_F(ClientEdits, AServiceOfTheClientsOwnIsServed)
{
    SiEitService own{
        .original_network_id = 1, .transport_stream_id = 2, .service_id = 3, .sections = nullptr};
    ASSERT_EQ(si_list_init(&own.sections), 0);
    si_list_add(own.sections, made(schedule(0, 8, 0, 20)), -1);
    si_list_add(own.sections, made(schedule(8, 8, 0, 21)), -1);
    si_list_add(Orva_Si_GetDvbEitList(), &own, 0);
    forget();
    ASSERT_TRUE(si::fitting_summary(own.sections).empty());
    EXPECT_THAT(schedule_events(1, 2, 3), ElementsAre(20, 21));
    deliver(schedule(0, 8, 0, 20), 1, 2, 3, 0x50, 0);
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, Contains(complete(0x50, 3, 0)));
    deliver(schedule(1, 8, 0, 22), 1, 2, 3, 0x50, 1);
    EXPECT_THAT(schedule_events(1, 2, 3), ElementsAre(20, 21, 22));

    si_list_remove(Orva_Si_GetDvbEitList(), 0);
    while (own.sections->nb_elt != 0)
        si_list_add(list(), taken_out(own.sections, 0), -1);
    si_list_uninit(own.sections);
}

TEST_F(ClientEdits, AServiceWithoutAListOfSectionsHoldsNothing)
{
    SiEitService own{
        .original_network_id = 1, .transport_stream_id = 2, .service_id = 3, .sections = nullptr};
    si_list_add(Orva_Si_GetDvbEitList(), &own, 0);
    EXPECT_THAT(schedule_events(1, 2, 3), IsEmpty());
    const octets section = three[0];
    Orva_MutexP(&Ts_Eit_Mutex);
    EXPECT_EQ(Si_ModListImpl_IsEITCompleted(&own, section.data()), 0U);
    Orva_MutexV(&Ts_Eit_Mutex);
    si_list_remove(Orva_Si_GetDvbEitList(), 0);
}

// Also while the list of services is not as the store left it.
TEST_F(ClientEdits, WhatIsFetchedAheadChangesNothing)
{
    std::vector<octets> buffers = three;
    buffers.push_back(octets(three[0].begin(), three[0].begin() + 13));
    std::vector<SiSection> nodes(buffers.size());
    std::vector<SiSection *> all;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].pid = 0x12;
        nodes[i].section = buffers[i].data();
        nodes[i].sect_len = static_cast<std::uint16_t>(buffers[i].size());
        all.push_back(&nodes[i]);
    }
    si::fetch_event_sections(all);
    EXPECT_THAT(answers(), ElementsAre(10, 11, 12));
    SiEitService own{
        .original_network_id = 1, .transport_stream_id = 2, .service_id = 3, .sections = nullptr};
    si_list_add(Orva_Si_GetDvbEitList(), &own, 0);
    si::fetch_event_sections(all);
    si_list_remove(Orva_Si_GetDvbEitList(), 0);
    EXPECT_THAT(answers(), ElementsAre(10, 11, 12));
}

TEST_F(ClientEdits, AQuestionAllocatesNothing)
{
    si_list_add(list(), nullptr, 0);
    ASSERT_TRUE(si::fitting_summary(list()).empty());
    const std::size_t before = fake::allocations();
    EXPECT_THAT(answers(), ElementsAre(10, 11, 12));
    EXPECT_EQ(fake::allocations(), before);
}

// ---- The marks of events

bool is_marked(si::event_marks in, std::uint16_t event_id)
{
    const si::event_marks wanted = si::marks_of(event_id);
    return (in & wanted) == wanted;
}

octets with_events(const std::vector<eit_event> &events)
{
    return make(eit{.table_id = 0x50, .events = events});
}

TEST(EventMarks, EveryEventOfASectionIsMarked)
{
    const octets content = {0x54, 0x02, 0x10, 0x00};
    const auto marks = si::marks_of_events(with_events(
        {{.id = 0}, {.id = 0xFFFF, .descriptors = {content, content}}, {.id = 0x1234}}));
    for (const std::uint16_t event : std::array<std::uint16_t, 3>{0x0000, 0xFFFF, 0x1234})
        EXPECT_TRUE(is_marked(marks, event)) << event;
}

TEST(EventMarks, FewOtherEventsAre)
{
    const auto marks = si::marks_of_events(
        with_events({{.id = 60}, {.id = 61}, {.id = 62}, {.id = 63}, {.id = 64}, {.id = 65}}));
    unsigned marked = 0;
    for (unsigned event = 0; event <= 0xFFFF; ++event)
        marked += is_marked(marks, static_cast<std::uint16_t>(event)) ? 1 : 0;
    EXPECT_LT(marked, 0x10000 * 5 / 100);
}

TEST(EventMarks, NothingIsReadBehindASection)
{
    const octets section = with_events({{.id = 1}, {.id = 2}});
    for (std::size_t size = 0; size <= section.size(); ++size) {
        const std::unique_ptr<std::uint8_t[]> exact{new std::uint8_t[size]};
        std::copy_n(section.begin(), size, exact.get());
        const auto marks = si::marks_of_events({exact.get(), size});
        EXPECT_EQ(is_marked(marks, 1), size >= 14 + 12 + 4) << size;
        EXPECT_EQ(is_marked(marks, 2), size >= 14 + 24 + 4) << size;
    }
}

TEST_F(ClientEdits, TheMarksAreThoseOfTheSectionsHeld)
{
    const auto marks = [](std::size_t at) { return si::fitting_summary(list()).events[at]; };
    EXPECT_TRUE(is_marked(marks(1), 11));
    deliver(schedule(8, 0x10, 1, 77)); // in place of the one before
    EXPECT_TRUE(is_marked(marks(1), 77));
    EXPECT_FALSE(is_marked(marks(1), 11));
    SiEitSection *gone = taken_out(list(), 0);
    deliver(schedule(0, 0x10, 1, 78)); // what was kept no longer fits
    EXPECT_TRUE(is_marked(marks(0), 77));
    EXPECT_TRUE(is_marked(marks(2), 78));
    si_list_add(list(), gone, -1); // so that it is freed with the others
}

// ---- The summary's own memory

using SummaryMemory = EventStore;

octets numbered(unsigned number)
{
    return schedule(static_cast<std::uint8_t>(number), 0xFF, 0,
                    static_cast<std::uint16_t>(100 + number));
}

TEST_F(SummaryMemory, IsFreedWithTheService)
{
    const std::size_t before = fake::allocations();
    note_frees = true;
    for (unsigned number = 0; number < 256; ++number)
        deliver(numbered(number));
    EXPECT_EQ(si::fitting_summary(services()[0]->sections).known.size(), 256U);
    Orva_Si_EraseAllEitRawData();
    note_frees = false;
    EXPECT_EQ(freed.size(), fake::allocations() - before);
}

TEST_F(SummaryMemory, IsFreedWithItsSize)
{
    std::size_t largest = 0;
    for (unsigned number = 0; number < 256; ++number)
        deliver(numbered(number));
    note_frees = true;
    si::keep_companion(services()[0]->sections, nullptr);
    note_frees = false;
    ASSERT_THAT(freed, SizeIs(1));
    for (const auto &[memory, size] : freed)
        largest = std::max(largest, size);
    EXPECT_GE(largest, 256 * 16U);
    EXPECT_LE(largest, 256 * 39U);
}

TEST_F(SummaryMemory, OfAListThatBecameEmptyIsNoLongerAsked)
{
    deliver(numbered(0));
    SiEitSection *gone = taken_out(services()[0]->sections, 0);
    deliver(numbered(1));
    deliver(numbered(0));
    EXPECT_THAT(notices, ElementsAre(told(numbered(0)), told(numbered(1)), told(numbered(0))));
    si_list_add(services()[0]->sections, gone, -1);
}

// Its allocation is the last of an arrival. It fails at each of the first twenty sections in turn,
// of which some need none.
class WithoutSummary : public EventStore, public testing::WithParamInterface<int> {};

TEST_P(WithoutSummary, TheListIsWalked)
{
    fake::set_log_level(0);
    for (int number = 0; number < 20; ++number) {
        const octets section = numbered(static_cast<unsigned>(number));
        const bool fails = number == GetParam();
        const unsigned others = number == 0 ? 6 : 3; // service, list, two links, record and bytes
        fake::fail_allocations_from(fails ? others + 1 : 0);
        deliver(section);
        EXPECT_THAT(schedule_events(0x0506, 0x0304, sid), SizeIs(number + 1));
        fake::fail_allocations_from(fails ? 1 : 0);
        deliver(section); // known
        fake::fail_allocations_from(0);
    }
    EXPECT_THAT(notices, SizeIs(20));
    EXPECT_THAT(records(), SizeIs(20));
    EXPECT_EQ(si::fitting_summary(services()[0]->sections).known.size(), 20U);
}

INSTANTIATE_TEST_SUITE_P(At, WithoutSummary, testing::Range(0, 20));

TEST_F(SummaryMemory, NoneLeftMeansThatTheListIsWalked)
{
    for (unsigned number = 0; number < 20; ++number)
        deliver(schedule(static_cast<std::uint8_t>(8 * number), 8 * 19));
    forget();
    fake::set_log_level(0);
    si::keep_companion(services()[0]->sections, nullptr);
    fake::fail_allocations_from(1);
    for (unsigned number = 0; number < 20; ++number)
        deliver(schedule(static_cast<std::uint8_t>(8 * number), 8 * 19));
    EXPECT_THAT(schedule_events(0x0506, 0x0304, sid), SizeIs(20));
    fake::fail_allocations_from(0);
    EXPECT_TRUE(si::fitting_summary(services()[0]->sections).empty());
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_EQ(std::count(filter_calls.begin(), filter_calls.end(), complete(0x50, sid, 0)), 20);
}

// ---- Against a plain model, with a client that edits the lists

class AgainstAModelWithAClient : public EventStore, public testing::WithParamInterface<unsigned> {
protected:
    using model_list = std::vector<kept>;
    struct outside {
        SiEitSection *record;
        kept known;
    };

    ~AgainstAModelWithAClient() override
    {
        for (const outside &each : taken) // freed with the others
            si_list_add(services()[0]->sections, each.record, -1);
    }

    std::size_t below(std::size_t limit) { return random() % limit; }

    octets any_section()
    {
        static constexpr std::array<std::uint8_t, 6> ids{0x4E, 0x4F, 0x50, 0x50, 0x51, 0x60};
        const std::uint8_t id = ids[below(ids.size())];
        const bool banner = id < 0x50;
        const std::size_t events = below(3);
        eit section{.table_id = id,
                    .service = static_cast<std::uint16_t>(below(services_in_all)),
                    .ts = 7,
                    .original_network = 5,
                    .version = static_cast<std::uint8_t>(below(40) == 0),
                    .section_number = static_cast<std::uint8_t>(below(banner ? 2 : 12)),
                    .last_section_number = static_cast<std::uint8_t>(banner ? 1 : 11)};
        for (std::size_t i = 0; i < events; ++i)
            section.events.push_back({.id = static_cast<std::uint16_t>(below(4))});
        return make(section);
    }

    // How many elements in front of a position are records.
    static std::size_t records_before(si_list *list, std::int32_t at)
    {
        std::size_t count = 0;
        for (std::int32_t i = 0; i < at; ++i)
            count += si_list_get(list, i) != nullptr;
        return count;
    }
    static auto place(model_list &of, std::size_t at)
    {
        return of.begin() + static_cast<std::ptrdiff_t>(at);
    }

    void take_out(si_list *list, model_list &known)
    {
        const auto at = static_cast<std::int32_t>(below(static_cast<std::size_t>(list->nb_elt)));
        const std::size_t in_model = records_before(list, at);
        SiEitSection *record = taken_out(list, at);
        if (record == nullptr)
            return;
        taken.push_back({record, known[in_model]});
        known.erase(place(known, in_model));
    }
    void put_in(si_list *list, model_list &known)
    {
        const auto at =
            static_cast<std::int32_t>(below(static_cast<std::size_t>(list->nb_elt) + 1));
        const auto chosen = place_of(below(taken.size()));
        known.insert(place(known, records_before(list, at)), chosen->known);
        si_list_add(list, chosen->record, at);
        taken.erase(chosen);
    }
    std::vector<outside>::iterator place_of(std::size_t at)
    {
        return taken.begin() + static_cast<std::ptrdiff_t>(at);
    }
    static void unlink_by_hand(si_list *list)
    {
        si_list_node *first = list->node;
        list->node = first->next;
        --list->nb_elt;
        g_slice_free1(sizeof *first, first);
    }

    void edit()
    {
        const std::size_t service = below(model.all.size());
        si_list *list = services()[service]->sections;
        model_list &known = model.all[service].second;
        if (list->nb_elt == 0)
            return;
        switch (below(5)) {
        case 0:
            take_out(list, known);
            break;
        case 1:
            si_list_add(list, nullptr, static_cast<std::int32_t>(below(20)));
            break;
        case 2:
            if (list->node->element == nullptr)
                unlink_by_hand(list);
            break;
        default:
            if (!taken.empty())
                put_in(list, known);
        }
    }

    // The allocation that fails, as the model counts them; any only where the summary takes none
    // before the others.
    unsigned any_failure(const octets &section)
    {
        const auto at = std::find_if(model.all.begin(), model.all.end(), [&](const auto &entry) {
            return entry.first[2] == (section[3] << 8 | section[4]);
        });
        if (at == model.all.end() || below(6) != 0)
            return 0;
        const auto index = static_cast<std::size_t>(std::distance(model.all.begin(), at));
        si_list *list = services()[index]->sections;
        if (si::fitting_summary(list).empty() || below(2) == 0)
            return 0;
        return 1 + static_cast<unsigned>(below(4)); // the fourth is the summary's
    }

    void expect_same_answers()
    {
        for (const auto &[ids, list] : model.all) {
            std::vector<std::uint16_t> scheduled;
            std::vector<std::uint16_t> banner;
            for (const kept &each : list) {
                const octets &s = each.section;
                if (s.empty() || crc32_of(s) != 0)
                    continue;
                for (std::size_t at = 14; at + 12 <= s.size() - 4; at += 12)
                    (s[0] < 0x50 ? banner : scheduled)
                        .push_back(static_cast<std::uint16_t>(s[at] << 8 | s[at + 1]));
            }
            ASSERT_EQ(schedule_events(ids[0], ids[1], ids[2]), scheduled);
            ASSERT_EQ(present_events(ids[0], ids[1], ids[2]), banner);
        }
    }

    static constexpr std::size_t services_in_all = 3;
    std::mt19937 random{GetParam()};
    plain_store model;
    std::vector<outside> taken;
};

TEST_P(AgainstAModelWithAClient, TheStoreTellsReArmsAndAnswersAlike)
{
    fake::set_log_level(0);
    std::size_t completions = 0;
    std::size_t edits = 0;
    std::size_t fitted = 0;
    for (unsigned step = 0; step < 3000; ++step) {
        if (!model.all.empty() && below(10) == 0) {
            edit();
            ++edits;
        }
        const octets section = any_section();
        const unsigned failing = any_failure(section);
        forget();
        model.told_of.clear();
        model.calls.clear();
        deliver_without_memory(section, failing);
        model.take(section, failing <= 3 ? failing : 0);
        ASSERT_EQ(notices, model.told_of) << "step " << step;
        ASSERT_EQ(filter_calls, model.calls) << "step " << step;
        ASSERT_NO_FATAL_FAILURE(expect_same_answers()) << "step " << step;
        for (const std::string &call : filter_calls)
            completions += call.starts_with("complete") ? 1 : 0;
        fitted += si::fitting_summary(services()[0]->sections).empty() ? 0 : 1;
    }
    EXPECT_GT(completions, 50U);
    EXPECT_GT(edits, 200U);
    EXPECT_GT(fitted, 1500U); // it was the summary that answered
}

INSTANTIATE_TEST_SUITE_P(Seeds, AgainstAModelWithAClient,
                         testing::Range(1U, 1U + test::part_of(12)));

} // namespace
