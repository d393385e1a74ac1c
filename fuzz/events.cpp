// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store next to a plain one: sections that come, change and repeat, memory that is
// exhausted in between, and all of it erased. What is kept, what the client is told and what the
// filters hear must be the same.
#include <array>

#include "fakes/allocation.h"
#include "fuzz.h"
#include "orva_si_eitsummary.h"
#include "support/plain_event_store.h"

namespace fuzz {

namespace {

constexpr std::size_t most_steps = 24;

constexpr std::array<std::uint8_t, 8> table_ids{0x4E, 0x4F, 0x50, 0x51, 0x5F, 0x60, 0x61, 0x6F};
constexpr std::array<std::uint8_t, 8> numbers{0, 1, 2, 7, 8, 9, 16, 255};

// Four decisions make a section; the same ones make the same section.
octets section_of(std::array<std::uint8_t, 3> d)
{
    const std::uint8_t table_id = table_ids[d[0] & 7];
    test::eit table{.table_id = table_id,
                    .service = static_cast<std::uint16_t>(d[0] >> 3 & 3),
                    .ts = static_cast<std::uint16_t>(1 + (d[0] >> 5 & 1)),
                    .version = static_cast<std::uint8_t>(d[2] & 1),
                    .section_number = numbers[d[1] & 7],
                    .last_section_number = numbers[d[1] >> 3 & 7]};
    if ((d[1] & 0x40) != 0)
        table.last_table_id = table_id + (d[1] >> 7);
    for (unsigned i = 0; i < (d[2] >> 1 & 3u); ++i)
        table.events.push_back({.id = static_cast<std::uint16_t>(i + (d[2] >> 3))});
    return test::make(table);
}

test::key key_of(const octets &section)
{
    const auto u16 = [&](std::size_t at) {
        return static_cast<std::uint16_t>(section[at] << 8 | section[at + 1]);
    };
    return {u16(10), u16(8), u16(3)};
}

class session {
public:
    session()
    {
        test::init_store();
        test::notices.clear();
        test::filter_calls.clear();
    }
    ~session() { erase(); }
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    void erase()
    {
        Orva_Si_EraseAllEitRawData();
        plain.all.clear();
        claim(test::services().empty(), "events are left behind");
    }

    void take(const octets &section, unsigned failing)
    {
        const bool known = std::ranges::any_of(
            plain.all, [&](const auto &each) { return each.first == key_of(section); });
        if (failing != 0)
            make_summaries_ready();
        fake::fail_allocation(failing);
        test::deliver(section);
        fake::fail_allocation(0);
        claim(test::eit_lock_is_free(), "the lock is kept");
        if (failing != 0 && !known) // the plain store does not say what becomes of the service
            return start_over();
        plain.take(section, failing);
    }

    void compare() const
    {
        const auto stored = test::services();
        claim(stored.size() == plain.all.size(), "another number of services");
        for (std::size_t i = 0; i < stored.size(); ++i) {
            const auto &[key, sections] = plain.all[i];
            claim(key == test::key{stored[i]->original_network_id, stored[i]->transport_stream_id,
                                   stored[i]->service_id},
                  "another service");
            compare_sections(stored[i]->sections, sections);
        }
        claim(test::notices == plain.told_of, "the client is told something else");
        claim(test::filter_calls == plain.calls, "the filters are told something else");
        claim(test::eit_lock_was_held && test::eit_lock_was_free,
              "the lock is not where it should");
    }

private:
    static void compare_sections(si_list *list, const std::vector<test::kept> &expected)
    {
        const auto records = test::elements_of<SiEitSection>(list);
        claim(records.size() == expected.size(), "another number of sections");
        for (std::size_t i = 0; i < records.size(); ++i) {
            const bool same_place = records[i]->table_id == expected[i].table_id &&
                                    records[i]->section_number == expected[i].number;
            claim(same_place, "another section");
            claim((records[i]->section == nullptr) == expected[i].section.empty(),
                  "a section without bytes, or the other way round");
            claim(records[i]->section == nullptr ||
                      test::bytes_of(records[i]) == expected[i].section,
                  "other bytes");
        }
    }

    // One that there was no memory for would be made by the next section, whose own allocations
    // the failing one is counted among.
    static void make_summaries_ready()
    {
        for (const SiEitService *service : test::services())
            si::ready_summary(service->sections);
    }

    void start_over()
    {
        erase();
        plain.told_of = test::notices;
        plain.calls = test::filter_calls;
    }

    test::plain_store plain;
};

void run(bytes input)
{
    session store;
    choices in{input};
    for (std::size_t step = 0; in.more() && step < most_steps; ++step) {
        const unsigned how = in.u8() % 32u;
        if (how == 31) {
            store.erase();
            continue;
        }
        const std::uint8_t a = in.u8();
        const std::uint8_t b = in.u8();
        const std::uint8_t c = in.u8();
        store.take(section_of({a, b, c}), how >= 24 ? how - 23 : 0);
        if (how % 4 == 3)
            store.compare();
    }
    store.compare();
}

std::vector<octets> seeds()
{
    octets walk;
    for (unsigned i = 0; i < 16; ++i)
        for (const unsigned each : {i % 5 == 4 ? 25u : 0u, i * 9, i * 8 + i % 3, i})
            walk.push_back(static_cast<std::uint8_t>(each & 0xFF));
    octets erased = walk;
    erased.insert(erased.begin() + 32, 31);
    return {walk, erased, {3, 0, 8, 0, 3, 0, 9, 0}, {0, 2, 0, 0, 0, 2, 0, 1}};
}

} // namespace

target events()
{
    return {"events", shape::plain, run, seeds};
}

} // namespace fuzz
