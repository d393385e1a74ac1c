// SPDX-License-Identifier: LGPL-2.1-or-later
// Event tables of a service that lies, next to services that do not: whatever comes under its name,
// what is stored of the neighbours, what is answered about them and the filters that serve them
// stay as they are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "orva_si/query_event.h"
#include "support/client.h"
#include "support/effort.h"
#include "support/filters.h"
#include "support/model.h"

using namespace test;

namespace {

constexpr std::uint16_t onid = 0x22;
constexpr std::uint16_t ts = 0x11;
constexpr std::uint16_t tuned = 1;
constexpr std::uint16_t liar = 6;
constexpr std::array<std::uint16_t, 7> neighbours{1, 2, 3, 4, 5, 7, 8};
constexpr std::array<std::uint8_t, 6> event_tables{0x4E, 0x4F, 0x50, 0x5F, 0x60, 0x6F};

eit table_of(std::uint16_t service, std::uint8_t table_id)
{
    return {.table_id = table_id, .service = service, .ts = ts, .original_network = onid};
}

octets lie(std::uint8_t table_id)
{
    eit of = table_of(liar, table_id);
    of.events = {{.id = 0x66, .descriptors = {short_event("eng", "lie", "none of it is true")}}};
    return make(of);
}

std::uint32_t process(const octets &section)
{
    return Si_Model_ProcessModel(received{section, 0x12});
}

// ---- Answers about a service, as one text

void put(std::string &to, const char *question, std::uint32_t code,
         std::span<const std::uint32_t> values = {})
{
    to += text("%s = %#x:", question, code);
    for (const std::uint32_t value : values)
        to += text(" %#x", value);
    to += '\n';
}

void put_lists(std::string &to, std::uint16_t service)
{
    std::uint32_t count = 0;
    const std::uint32_t counted = Orva_Si_GetOneServEvtCount(onid, ts, service, &count);
    put(to, "count", counted, std::array{count});
    std::array<std::uint16_t, 64> ids{};
    count = ids.size();
    const std::uint32_t listed = Orva_Si_GetOneServEvtIds(onid, ts, service, ids.data(), &count);
    put(to, "ids", listed, std::vector<std::uint32_t>(ids.begin(), ids.begin() + count));
    std::array<SiBasicEvent, 64> events_found{};
    count = events_found.size();
    put(to, "events",
        Orva_Si_GetOneServBscEvtInfos(onid, ts, service, 0, 0, 0, events_found.data(), &count));
    for (std::uint32_t i = 0; i < count; ++i)
        to += text_of(events_found[i].event_name) + '\n';
    for (const std::uint32_t number : {0U, 1U}) {
        count = ids.size();
        const std::uint32_t found =
            Orva_Si_GetOneSectEvtIds(onid, ts, service, 0x4E, number, ids.data(), &count);
        put(to, "section", found, std::vector<std::uint32_t>(ids.begin(), ids.begin() + count));
    }
}

void put_events(std::string &to, std::uint16_t service)
{
    for (const std::uint8_t banner : {std::uint8_t{0}, std::uint8_t{1}})
        for (std::uint32_t id = 0x40; id < 0x44; ++id) {
            std::uint32_t start = 0;
            std::uint32_t length = 0;
            SiDvbString name{};
            SiDvbString description{};
            put(to, "start", Orva_Si_GetEvtStartUTCTime(onid, ts, service, id, &start, banner));
            put(to, "length", Orva_Si_GetEvtDuringTime(onid, ts, service, id, &length, banner),
                std::array{start, length});
            put(to, "name", Orva_Si_GetEvtNameByID(onid, ts, service, id, &name, 0, banner));
            put(to, "text",
                Orva_Si_GetShortEvtDescByID(onid, ts, service, id, 0, &description, banner));
            to += text_of(name) + '/' + text_of(description) + '\n';
        }
}

std::string answers_about(std::uint16_t service)
{
    std::string all;
    put_lists(all, service);
    put_events(all, service);
    return all;
}

// ---- What must not change

octets bytes_of(const SiEitSection &stored)
{
    return {stored.section, stored.section + stored.sect_len};
}

std::string request_of(const task_item_eit &item, const filter_task &task)
{
    std::string all =
        text("service %u of %u.%u: active %u wanted %u finished %u flag %u table %#x/%#x to %#x "
             "version %u list %u limit %u\n",
             item.service_id, item.transport_stream_id, item.original_network_id, item.active,
             item.wanted, item.finished, item.flag, item.table_id, item.table_id_mask,
             item.last_table_id, item.version, item.list_length, item.limit);
    for (const pid_filter &record : si::filters(task))
        if (si::item_as<task_item_eit>(record.item) == &item) {
            const fake::driver_filter filter = fake::driver().filter(record.filter_id);
            all += text("filter %u loaded %u times, running %d, enabled %u, ticks %u\n",
                        record.filter_id, filter.loads, static_cast<int>(filter.running),
                        record.enabled, record.ticks);
        }
    return all;
}

constexpr std::array eit_rows{si::act_pf_eit_task, si::other_pf_eit_task, si::act_sch_eit_task,
                              si::other_sch_eit_task};

struct neighbourhood {
    std::vector<octets> stored;
    std::string requests;
    std::string answers;

    bool operator==(const neighbourhood &) const = default;
};

void PrintTo(const neighbourhood &of, std::ostream *out)
{
    *out << of.stored.size() << " sections\n" << of.requests << of.answers;
}

class HostileEvents : public Filters {
protected:
    // Services with their events, every second with two schedule tables. As many as there are
    // filters are requested, the liar among them, so that each has one of its own: what it is told
    // moves no other one.
    HostileEvents()
    {
        fake::set_log_level(0);
        test::tune(474000, tuned);
        enable_all();
        const std::array<std::uint16_t, 5> requested{tuned, liar, 2, 3, 4};
        Si_SectFlt_StartActPfEit(ts, onid, requested.data(), 2);
        Si_SectFlt_StartActSchEit(ts, onid, tuned, requested.data(), 5);
        const SiEitRequest others[] = {{ts, onid, liar}, {ts, onid, 8}};
        Si_SectFlt_StartOtherPfEit(others, 2);
        Si_SectFlt_StartOtherSchEit(others, 2);
        for (const std::uint16_t service : neighbours)
            tell_the_truth(service);
        Orva_Si_InstallCallback(note_event);
        before = look();
    }
    ~HostileEvents() override
    {
        EXPECT_EQ(look(), before);
        end_store();
    }

    static void tell_the_truth(std::uint16_t service)
    {
        for (const std::uint8_t number : {std::uint8_t{0}, std::uint8_t{1}}) {
            eit now_and_next = table_of(service, 0x4E);
            now_and_next.section_number = number;
            now_and_next.last_section_number = 1;
            now_and_next.events = {event(service, number)};
            process(make(now_and_next));
        }
        eit schedule = table_of(service, 0x50);
        schedule.last_table_id = 0x50 + service % 2;
        schedule.events = {event(service, 2)};
        process(make(schedule));
        schedule.table_id = 0x51;
        schedule.events = {event(service, 3)};
        if (service % 2 != 0)
            process(make(schedule));
    }
    static eit_event event(std::uint16_t service, unsigned n)
    {
        const std::string name = text("event %u of %u", n, service);
        return {.id = static_cast<std::uint16_t>(0x40 + n),
                .start_bcd = 0x203000,
                .descriptors = {short_event("eng", name, "as announced")}};
    }

    static SiEitService *stored_service(std::uint16_t id)
    {
        for (SiEitService *service : elements_of<SiEitService>(Orva_Si_GetDvbEitList()))
            if (service->service_id == id && service->transport_stream_id == ts)
                return service;
        return nullptr;
    }
    static std::vector<SiEitSection *> lies_stored()
    {
        SiEitService *service = stored_service(liar);
        return service == nullptr ? std::vector<SiEitSection *>{}
                                  : elements_of<SiEitSection>(service->sections);
    }

    static neighbourhood look()
    {
        neighbourhood seen;
        for (const std::uint16_t id : neighbours) {
            if (SiEitService *service = stored_service(id))
                for (const SiEitSection *section : elements_of<SiEitSection>(service->sections))
                    seen.stored.push_back(bytes_of(*section));
            seen.answers += answers_about(id);
        }
        for (const si::task_row row : eit_rows)
            for (const task_item_eit *item : items<task_item_eit>(row))
                if (item->service_id != liar)
                    seen.requests += request_of(*item, task(row));
        return seen;
    }

    neighbourhood before;
};

TEST_F(HostileEvents, TheNeighboursAreThere)
{
    EXPECT_EQ(before.stored.size(), 7U * 3 + 4);
    for (const std::uint16_t service : neighbours) {
        std::array<std::uint16_t, 4> ids{};
        std::uint32_t count = ids.size();
        EXPECT_EQ(Orva_Si_GetOneServEvtIds(onid, ts, service, ids.data(), &count), ORVA_SI_OK);
        EXPECT_EQ(count, 1U + service % 2);
        EXPECT_EQ(ids[0], 0x42);
        SiDvbString name{};
        EXPECT_EQ(Orva_Si_GetEvtNameByID(onid, ts, service, 0x41, &name, 0, 1), ORVA_SI_OK);
        EXPECT_EQ(text_of(name), text("event 1 of %u", service));
    }
}

TEST_F(HostileEvents, SectionNumbersBehindTheLast)
{
    for (const std::uint8_t table_id : event_tables)
        for (const std::uint8_t last : {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{0x17}})
            for (unsigned number = last + 1U; number < 256; ++number) {
                eit of = table_of(liar, table_id);
                of.section_number = static_cast<std::uint8_t>(number);
                of.last_section_number = last;
                EXPECT_EQ(process(make(of)), ORVA_SI_OK);
            }
    // Numbers 1 to 255, for actual and other alike, of three tables.
    EXPECT_EQ(lies_stored().size(), 3U * 255);
}

TEST_F(HostileEvents, LastSectionsOfSegmentsOutOfRange)
{
    for (const std::uint8_t table_id : event_tables)
        for (const int segment_last : {0, 7, 8, 0x80, 0xFF}) {
            eit of = table_of(liar, table_id);
            of.section_number = 9;
            of.last_section_number = 12;
            of.segment_last_section_number = segment_last;
            EXPECT_EQ(process(make(of)), ORVA_SI_OK);
        }
    EXPECT_EQ(lies_stored().size(), 3U);
}

TEST_F(HostileEvents, LastTableIdsOutOfRange)
{
    for (const std::uint8_t table_id : event_tables)
        for (int last = 0; last < 256; ++last) {
            eit of = table_of(liar, table_id);
            of.last_section_number = 8; // never complete
            of.last_table_id = last;
            EXPECT_EQ(process(make(of)), ORVA_SI_OK);
            for (const task_item_eit *item : items<task_item_eit>(si::act_sch_eit_task))
                ASSERT_LE(item->last_table_id, 0x5F);
        }
}

// The walk of its filter through the tables that it announces ends, and takes no other one.
TEST_F(HostileEvents, SixteenEmptySchedulesEndWithTheLast)
{
    for (int round = 0; round < 3; ++round)
        for (unsigned table_id = 0x50; table_id <= 0x5F; ++table_id) {
            eit of = table_of(liar, static_cast<std::uint8_t>(table_id));
            of.last_table_id = 0xFF;
            process(make(of));
            of.last_table_id = 0x5F;
            process(with_byte(make(of), 12, static_cast<std::uint8_t>(round)));
        }
    for (const pid_filter *record : records_of(si::act_sch_eit_task)) {
        EXPECT_GE(loaded(static_cast<std::size_t>(record - &Filters::record(0))).match[0], 0x50);
        EXPECT_LE(loaded(static_cast<std::size_t>(record - &Filters::record(0))).match[0], 0x5F);
    }
}

TEST_F(HostileEvents, TheLargestSections)
{
    for (const std::uint8_t table_id : event_tables)
        for (const std::size_t size : {std::size_t{4096}, std::size_t{4098}}) {
            octets section = lie(table_id);
            section.resize(size, 0xFF);
            section = fix_crc(set_length(section, size - 3));
            EXPECT_EQ(process(section), ORVA_SI_OK);
            ASSERT_FALSE(lies_stored().empty());
            answers_about(liar);
        }
    for (const SiEitSection *section : lies_stored())
        EXPECT_EQ(section->sect_len, 4098);
}

TEST_F(HostileEvents, TruncatedSectionsAreNotStored)
{
    for (const std::uint8_t table_id : event_tables) {
        const octets whole = lie(table_id);
        for (std::size_t size = 3; size < whole.size(); ++size)
            EXPECT_EQ(process({whole.begin(), whole.begin() + static_cast<long>(size)}),
                      ORVA_SI_FAILURE)
                << size;
    }
    EXPECT_EQ(stored_service(liar), nullptr);
}

// Whole by their own account, but without room for what a section of events begins with. Those that
// do not even name a service are some other service's, not a neighbour's.
TEST_F(HostileEvents, SectionsThatEndEarly)
{
    for (const std::uint8_t table_id : event_tables) {
        const octets whole = lie(table_id);
        for (std::size_t size = 3; size < whole.size(); ++size) {
            octets section{whole.begin(), whole.begin() + static_cast<long>(size)};
            EXPECT_EQ(process(set_length(section, size - 3)), ORVA_SI_OK);
            if (size > 12) {
                EXPECT_EQ(process(cut(whole, size)), ORVA_SI_OK);
            }
            answers_about(liar);
        }
    }
}

TEST_F(HostileEvents, InnerLengthsThatLie)
{
    const octets honest = lie(0x50);
    const std::size_t loop_length_at = 14 + 10;
    for (std::size_t length = 0; length < 0x1000; length += 7)
        process(with_length12(honest, loop_length_at, length));
    for (unsigned length = 0; length < 256; ++length)
        process(with_byte(honest, loop_length_at + 3, static_cast<std::uint8_t>(length)));
    for (std::size_t at = loop_length_at + 2; at + 4 < honest.size(); ++at) {
        process(with_byte(honest, at, 0xFF));
        answers_about(liar);
        process(with_byte(honest, at, 0x00));
        answers_about(liar);
    }
    ASSERT_EQ(lies_stored().size(), 1U);
    process(honest);
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetEvtNameByID(onid, ts, liar, 0x66, &name, 0, 0), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "lie");
}

TEST_F(HostileEvents, AnotherCrcUnderTheSameVersionEveryTime)
{
    events.clear();
    for (unsigned i = 0; i < 2000; ++i) {
        eit of = table_of(liar, i % 2 == 0 ? 0x4E : 0x50);
        of.events = {{.id = static_cast<std::uint16_t>(i)}};
        EXPECT_EQ(process(make(of)), ORVA_SI_OK);
    }
    EXPECT_EQ(lies_stored().size(), 2U);
    EXPECT_EQ(events.size(), 2000U);
}

TEST_F(HostileEvents, AServiceIdThatElsewhereStandsForAny)
{
    for (const std::uint8_t table_id : event_tables)
        for (const std::uint8_t number : {std::uint8_t{0}, std::uint8_t{1}}) {
            eit of = table_of(0xFFFF, table_id);
            of.section_number = number;
            of.last_section_number = 1;
            of.last_table_id = table_id | 0x0F;
            of.version = 31;
            EXPECT_EQ(process(make(of)), ORVA_SI_OK);
        }
    EXPECT_NE(stored_service(0xFFFF), nullptr);
}

TEST_F(HostileEvents, EveryServiceIdThereIs)
{
    constexpr int most_services = 8192;
    for (const std::uint8_t table_id : {std::uint8_t{0x60}, std::uint8_t{0x4E}})
        for (unsigned service = liar; service < 0x10000; service += service == liar ? 3 : 1)
            process(make(eit{.table_id = table_id,
                             .service = static_cast<std::uint16_t>(service),
                             .ts = ts,
                             .original_network = onid}));
    EXPECT_EQ(Orva_Si_GetDvbEitList()->nb_elt, most_services);
    for (const si::task_row row : eit_rows)
        EXPECT_LE(task(row).task_count, 5);
}

// A service may have 256 sections of each of 17 tables, and they may all be large.
TEST_F(HostileEvents, EverySectionOfAServiceInItsLargestForm)
{
    octets section = lie(0x50);
    section.resize(4096, 0xFF);
    section = set_length(section, section.size() - 3);
    for (int round = 0; round < 2; ++round)
        for (unsigned table_id = 0x4E; table_id <= 0x6F; ++table_id)
            for (unsigned number = 0; number < 256; ++number) {
                section[0] = static_cast<std::uint8_t>(table_id);
                section[6] = static_cast<std::uint8_t>(number);
                section[7] = 0xFF;
                section.back() = static_cast<std::uint8_t>(round); // the CRC_32 changes, no more
                process(section);
            }
    EXPECT_EQ(lies_stored().size(), 17U * 256);
    answers_about(liar);
}

TEST_F(HostileEvents, ALiarIsReplacedByTheTruth)
{
    for (const std::uint8_t number : {std::uint8_t{0}, std::uint8_t{1}}) {
        eit of = table_of(liar, 0x4E);
        of.section_number = number;
        of.last_section_number = 0xFF;
        of.version = static_cast<std::uint8_t>(number + 3);
        process(set_length(make(of), 40 + number));
        process(make(of));
    }
    tell_the_truth(liar);
    EXPECT_EQ(answers_about(liar).size(), answers_about(8).size());
    SiDvbString name{};
    EXPECT_EQ(Orva_Si_GetEvtNameByID(onid, ts, liar, 0x40, &name, 0, 1), ORVA_SI_OK);
    EXPECT_EQ(text_of(name), "event 0 of 6");
}

// In a rotation the lies may only make its filter go on to the next request.
TEST_F(HostileEvents, AFilterThatGoesRoundStaysWithItsRequests)
{
    const std::array<std::uint16_t, 3> more{7, 8, 5};
    Si_SectFlt_StartActPfEit(ts, onid, more.data(), more.size());
    ASSERT_EQ(task(si::act_pf_eit_task).mode, si::mode::rotating);
    const unsigned loads_of_tuned = loads(5);
    for (unsigned i = 0; i < 100; ++i) {
        eit of = table_of(liar, 0x4E);
        of.section_number = i % 2;
        of.last_section_number = 1;
        of.version = static_cast<std::uint8_t>(i / 2 % 32);
        process(make(of));
        ASSERT_EQ(served_by(si::act_pf_eit_task, 0), 0); // the tuned service
    }
    EXPECT_EQ(loads(5), loads_of_tuned);
    // The liar's twice, where the round begins, then the next service's whatever else comes.
    EXPECT_EQ(loads(6), 3U);
    EXPECT_EQ(served_by(si::act_pf_eit_task, 1), 2);
    Si_SectFlt_StopActPfEit();
    before = look();
}

class DamagedEvents : public HostileEvents, public testing::WithParamInterface<unsigned> {};

TEST_P(DamagedEvents, AnythingAtAllUnderItsName)
{
    std::mt19937 random{GetParam()};
    const auto below = [&](std::size_t limit) { return random() % limit; };
    for (unsigned i = 0; i < 3000; ++i) {
        octets section = lie(event_tables[below(event_tables.size())]);
        const octets ids = section;
        for (std::size_t n = 1 + below(12); n > 0; --n)
            section[5 + below(section.size() - 5)] = static_cast<std::uint8_t>(random());
        std::copy_n(ids.begin() + 8, 4, section.begin() + 8);
        if (below(4) == 0)
            section = set_length(section, below(section.size() + 4));
        else
            section = fix_crc(section);
        process(section);
        if (i % 50 == 0)
            answers_about(liar);
    }
    EXPECT_LE(lies_stored().size(), 3U * 256);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedEvents, testing::Range(1U, 1U + part_of(4)));

} // namespace
