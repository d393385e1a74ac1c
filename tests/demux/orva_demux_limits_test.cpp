// SPDX-License-Identifier: LGPL-2.1-or-later
// What large and hostile inputs may cost: waits under the lock, memory, and time.
#include <algorithm>
#include <set>

#include "demux/client.h"
#include "orva_ts_packets.h"
#include "support/effort.h"

using namespace test;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

// An EIT schedule section of a sub-table of 256.
octets schedule_of(unsigned service, unsigned number)
{
    return make(eit{.table_id = 0x50,
                    .service = static_cast<std::uint16_t>(service),
                    .section_number = static_cast<std::uint8_t>(number),
                    .last_section_number = 255});
}

class Limits : public DemuxClient {};

// Sub-tables of many sections: all are looked at, none passes.
TEST_F(Limits, SlotsWaitForALookThroughPartOfTheCarouselOnly)
{
    std::vector<octets> list;
    for (unsigned service = 0; service < part_of(400); ++service)
        for (unsigned number = 0; number < 256; ++number)
            list.push_back(schedule_of(service, number));
    open(stream{}.sections(0x12, list));
    const std::uint32_t quiet = arm(on_pid(0x1FFE));
    ASSERT_TRUE(eventually([&] { return status().state == ORVA_DEMUX_CAROUSEL; }));
    handler().RemoveSecFilter(0, quiet);

    SiDmxFilterParam nothing = on_pid(0x12);
    nothing.filter_depth = 14;
    nothing.match[13] = 0xEE; // last_table_id of none
    nothing.mask[13] = 0xFF;
    std::vector<std::uint32_t> ids;
    for (unsigned i = 0; i < 26; ++i)
        ids.push_back(arm(nothing));
    std::vector<steady::duration> took;
    for (unsigned i = 0; i < 100; ++i) {
        const auto start = steady::now();
        load(ids[i % ids.size()], nothing);
        took.push_back(steady::now() - start);
        std::this_thread::sleep_for(2ms);
    }
    std::ranges::sort(took);
    EXPECT_LT(took[90], 100ms) << "a busy machine may hold up some";
    EXPECT_EQ(count(), 0u);
}

// More sections than are looked at in one go: the run goes on inside the sub-table.
TEST_F(Limits, RunGoesOnInsideASubTable)
{
    std::vector<octets> list;
    for (unsigned service = 0; service < 40; ++service)
        for (unsigned number = 0; number < 256; ++number)
            if (service == 0 || number != 0)
                list.push_back(schedule_of(service, number));
    open(stream{}.sections(0x12, list));
    const std::uint32_t quiet = arm(on_pid(0x1FFE));
    ASSERT_TRUE(eventually([&] { return status().state == ORVA_DEMUX_CAROUSEL; }));
    handler().RemoveSecFilter(0, quiet);
    SiDmxFilterParam last = on_table(0x12, 0x50);
    last.filter_depth = 7;
    last.match[6] = 255;
    last.mask[6] = 0xFF;
    const std::uint32_t id = arm(last);
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(id), SizeIs(40));
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    forget();
    load(id, on_table(0x12, 0x50));
    ASSERT_TRUE(idle());
    const std::vector<octets> given = sections(id);
    EXPECT_THAT(given, SizeIs(list.size()));
    EXPECT_EQ(std::set<octets>(given.begin(), given.end()).size(), list.size());
}

// A pipe without end may name ever more services.
TEST_F(Limits, ServicesThatAreListedAreLimited)
{
    std::vector<octets> list;
    for (unsigned service = 0; service < 9000; ++service)
        list.push_back(make(eit{.table_id = 0x4E, .service = static_cast<std::uint16_t>(service)}));
    open(stream{}.sections(0x12, list));
    arm(on_pid(0x1FFE));
    ASSERT_TRUE(eventually([&] { return status().state == ORVA_DEMUX_CAROUSEL; }));
    std::vector<SiEitRequest> services(10'000);
    std::uint32_t count = 10'000;
    EXPECT_EQ(orva_demux_get_eit_services(demux, services.data(), &count), 0u);
    EXPECT_EQ(count, 8192u);
    EXPECT_EQ(services[8191].service_id, 8191u);
}

// While sections are pending all the time, what was given is remembered up to a limit; then it may
// come again.
TEST_F(Limits, WhatWasGivenIsForgottenAboveALimit)
{
    fake::pending = 1;
    std::vector<octets> list;
    for (unsigned i = 0; i < 66'000; ++i)
        list.push_back(make(eit{.table_id = 0x50,
                                .service = static_cast<std::uint16_t>(i % 60'000),
                                .ts = static_cast<std::uint16_t>(i / 60'000)}));
    const octets again = list.back();
    list.push_back(again);
    list.push_back(list[0]);
    stream ts;
    open(ts.sections(0x12, list));
    const std::uint32_t id = arm(on_table(0x12, 0x50));
    ASSERT_TRUE(eventually([&] { return status().state == ORVA_DEMUX_CAROUSEL; }));
    handler().DisableSecFilter(0, id);
    const std::vector<octets> given = sections(id);
    EXPECT_EQ(std::ranges::count(given, list[0]), 2);
    EXPECT_EQ(std::ranges::count(given, again), 1);
}

// The first pass: sections of another filter, taken slowly, follow those of a short batch.
TEST_F(Limits, ShortBatchGoesOutWhileOthersKeepTheFirstPassBusy)
{
    std::vector<octets> others;
    for (unsigned i = 0; i < 40; ++i)
        others.push_back(make(eit{.table_id = 0x50, .service = static_cast<std::uint16_t>(i)}));
    stream ts;
    ts.section(0x11, make(sdt{.table_id = 0x46}));
    ts.sections(0x12, others);
    std::uint32_t busy = SI_NO_FILTER;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t id, const octets &) {
        if (id == busy)
            std::this_thread::sleep_for(10ms);
    });
    open(ts);
    busy = add();
    const std::uint32_t batched = add();
    load(busy, on_pid(0x12));
    load(batched, in_batches(on_pid(0x11), 10));
    ASSERT_TRUE(eventually([&] { return sections(batched).size() == 1; }));
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
    EXPECT_LT(sections(busy).size(), 30u);
}

TEST_F(Limits, IsNotIdleWhileTheLastBatchIsDelivered)
{
    open(stream{}.section(0x11, make(sdt{.table_id = 0x46})));
    const std::uint32_t quiet = arm(on_pid(0x1FFE));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    std::atomic<int> seen = -1;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t, const octets &) { seen = status().idle; });
    handler().RemoveSecFilter(0, quiet);
    arm(in_batches(on_pid(0x11), 10));
    ASSERT_TRUE(eventually([&] { return seen != -1; }));
    EXPECT_EQ(seen, 0);
    EXPECT_TRUE(idle());
}

TEST_F(Limits, SmallestCarouselHas64KiB)
{
    std::vector<octets> list;
    for (unsigned i = 0; i < 100; ++i)
        list.push_back(make(eit{.table_id = 0x50, .service = static_cast<std::uint16_t>(i)}));
    open(file(stream{}.sections(0x12, list).bytes), {.realtime = 0, .carousel_bytes = 1});
    arm(on_pid(0x1FFE));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    EXPECT_EQ(status().evicted, 0u);
}

TEST_F(Limits, AnnouncedDiscontinuityOfAPacketInOrderCutsNothing)
{
    const octets one =
        make(eit{.table_id = 0x50, .events = {eit_event{.descriptors = {octets(252, 0x20)}}}});
    const auto part = [&](std::size_t from, std::size_t to) {
        return octets{one.begin() + static_cast<std::ptrdiff_t>(from),
                      one.begin() + static_cast<std::ptrdiff_t>(std::min(to, one.size()))};
    };
    octets first{0};
    const octets begin = part(0, 183);
    first.insert(first.end(), begin.begin(), begin.end());
    stream ts;
    ts.packet(0x12, first, {.start = true, .continuity = 3});
    ts.packet(0x12, part(183, one.size()), {.continuity = 4, .adaptation = {0x80}});
    ts.packet(0x12, part(183, one.size()), {.continuity = 4, .adaptation = {0x80}});
    open(ts);
    const std::uint32_t id = arm(on_pid(0x12));
    ASSERT_TRUE(eventually([&] { return !sections(id).empty(); }));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    EXPECT_EQ(sections(id)[0], one);
    EXPECT_EQ(status().cut_sections, 0u);
    EXPECT_EQ(status().duplicates, 1u);
    EXPECT_EQ(status().continuity_errors, 0u);
}

// Packets of PID 0x100 behind time stamps of four bytes that a function gives.
template <class Stamp>
octets stamped(unsigned count, Stamp stamp)
{
    octets all;
    for (unsigned i = 0; i < count; ++i) {
        const octets one = stamp(i);
        all.insert(all.end(), one.begin(), one.end());
        const octets packet = stream{}.packet(0x100, octets(ts_payload, 0xAA)).bytes;
        all.insert(all.end(), packet.begin(), packet.end());
    }
    return all;
}

// How many packets of PID 0x100 are read, when the stream comes in pieces of that size; others
// count as an error.
unsigned packets_read(const octets &all, std::size_t step)
{
    si::demux::packet_sync sync;
    unsigned read = 0;
    std::size_t begin = 0;
    for (std::size_t end = 0; end < all.size();) {
        end = std::min(end + step, all.size());
        const si::bytes window = si::bytes{all}.subspan(begin, end - begin);
        begin += si::demux::take_packets(sync, window, end == all.size(), [&](auto packet) {
            EXPECT_EQ((packet[1] & 0x1F) << 8 | packet[2], 0x100);
            ++read;
            return true;
        });
    }
    EXPECT_EQ(sync.losses, 0u);
    return read;
}

TEST(TimeStamps, ThatBeginLikePacketsAreNotTakenForThem)
{
    const octets all = stamped(1000, [](unsigned i) {
        return octets{0x47, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i), 0x47};
    });
    for (const std::size_t step : {all.size(), std::size_t{5000}, std::size_t{100}})
        EXPECT_EQ(packets_read(all, step), 1000u) << step;
}

TEST(TimeStamps, ThatLookLikePacketsForAWhileAreNotTakenForThem)
{
    const octets all = stamped(300, [](unsigned i) {
        return octets{0x12, static_cast<std::uint8_t>(i < 20 ? 0x47 : 0x48), 0x00, 0x00};
    });
    for (const std::size_t step : {all.size(), std::size_t{1000}})
        EXPECT_EQ(packets_read(all, step), 300u) << step;
}

// The other way round: a PID that ends in 0x47 stands behind the sync byte for a while.
TEST(TimeStamps, AreNotSeenInHeadersThatLookLikeSyncForAWhile)
{
    octets all;
    for (unsigned i = 0; i < 300; ++i) {
        const octets packet =
            stream{}.packet(i < 20 ? 0x147 : 0x100, octets(ts_payload, 0xAA)).bytes;
        all.insert(all.end(), {0x00, 0x00, 0x00, 0x00});
        all.insert(all.end(), packet.begin(), packet.end());
    }
    si::demux::packet_sync sync;
    std::vector<unsigned> pids;
    si::demux::take_packets(sync, all, true, [&](auto packet) {
        pids.push_back(static_cast<unsigned>((packet[1] & 0x1F) << 8 | packet[2]));
        return true;
    });
    ASSERT_EQ(pids.size(), 300u);
    EXPECT_EQ(std::ranges::count(pids, 0x147u), 20);
}

} // namespace
