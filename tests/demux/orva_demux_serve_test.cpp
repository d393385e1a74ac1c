// SPDX-License-Identifier: LGPL-2.1-or-later
// The carousel behind the end of an input: what filters get that are armed late.
#include <algorithm>
#include <numeric>

#include "demux/client.h"

using namespace test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

octets sdt_of(unsigned ts, unsigned number = 0, unsigned last = 0)
{
    return make(sdt{.table_id = 0x46,
                    .ts = static_cast<std::uint16_t>(ts),
                    .section_number = static_cast<std::uint8_t>(number),
                    .last_section_number = static_cast<std::uint8_t>(last)});
}

// A sub-table of several sections.
std::vector<octets> sub_table(unsigned ts, unsigned count)
{
    std::vector<octets> sections;
    for (unsigned i = 0; i < count; ++i)
        sections.push_back(sdt_of(ts, i, count - 1));
    return sections;
}

class Serve : public DemuxClient {
protected:
    // Reads a stream to its end before the filters of the test are armed.
    void open_read(const stream &ts, const OrvaDemuxOptions &options = {})
    {
        open(file(ts.bytes), options);
        const std::uint32_t quiet = arm(on_pid(0x1FFE));
        ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
        ASSERT_EQ(handler().RemoveSecFilter(0, quiet), 0u);
        ASSERT_EQ(count(), 0u);
    }
    static std::vector<steady::duration> distances()
    {
        const std::vector<delivered> given = all();
        std::vector<steady::duration> found;
        for (std::size_t i = 1; i < given.size(); ++i)
            found.push_back(given[i].when - given[i - 1].when);
        return found;
    }
};

TEST_F(Serve, LateFilterFindsItsTable)
{
    open_read(stream{}.sections(0x11, sub_table(1, 3)));
    const std::uint32_t id = arm(on_pid(0x11));
    ASSERT_TRUE(eventually([] { return count() == 3; }));
    EXPECT_EQ(sections(id), sub_table(1, 3));
}

TEST_F(Serve, OnlyWhatPasses)
{
    open_read(stream{}.sections(0x11, {sdt_of(1), sdt_of(2), make(bat{.bouquet = 2}), sdt_of(3)}));
    const std::uint32_t id = arm(on_extension(0x11, 0x46, 2));
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(id), ElementsAre(sdt_of(2)));
}

TEST_F(Serve, OnceAtFullSpeedThenAgainASecondAfterTheLast)
{
    open_read(stream{}.sections(0x11, sub_table(1, 50)));
    const auto start = steady::now();
    arm(on_pid(0x11));
    ASSERT_TRUE(eventually([] { return count() == 50; }));
    EXPECT_LT(steady::now() - start, at_once);
    const auto last = all().back().when;
    ASSERT_TRUE(eventually([] { return count() >= 100; }));
    EXPECT_GE(all()[50].when - last, 1000ms);
    EXPECT_LT(all()[50].when - last, at_once);
    EXPECT_EQ(count(), 100u);
}

TEST_F(Serve, LastCompleteVersionOnly)
{
    stream ts;
    for (const std::uint8_t version : std::initializer_list<std::uint8_t>{1, 2})
        ts.section(0x11, make(sdt{.table_id = 0x46, .version = version}));
    ts.section(
        0x11,
        make(sdt{.table_id = 0x46, .version = 3, .section_number = 1, .last_section_number = 1}));
    open_read(ts);
    const std::uint32_t id = arm(on_pid(0x11));
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(id), ElementsAre(make(sdt{.table_id = 0x46, .version = 2})));
}

TEST_F(Serve, TimesOncePerLoad)
{
    open_read(stream{}.sections(
        0x14, {make(tdt{.utc_bcd = 1}), make(tot{.utc_bcd = 2}), make(tdt{.utc_bcd = 3})}));
    const std::uint32_t id = arm(on_table(0x14, 0x70, 0xFC));
    std::this_thread::sleep_for(1200ms);
    EXPECT_THAT(sections(id), ElementsAre(make(tdt{.utc_bcd = 3}), make(tot{.utc_bcd = 2})));
    load(id, on_table(0x14, 0x70, 0xFC));
    EXPECT_TRUE(eventually([&] { return sections(id).size() == 4; }));
}

TEST_F(Serve, TimesOfTheFirstPassAreNotGivenAgain)
{
    open(stream{}.sections(0x14, {make(tdt{.utc_bcd = 1}), make(tdt{.utc_bcd = 3})}));
    const std::uint32_t id = arm(on_table(0x14, 0x70, 0xFC));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_THAT(sections(id), ElementsAre(make(tdt{.utc_bcd = 1}), make(tdt{.utc_bcd = 3})));
}

TEST_F(Serve, GoesOnWhereTheSubTableWasLeft)
{
    open_read(stream{}.sections(0x11, sub_table(1, 5)));
    // A filter that leaves after the first section, as schedule filters do with tables that are
    // known.
    on_each_section([](std::uint32_t id, const octets &) {
        if (count() < 8)
            load(id, on_pid(0x11));
        else
            handler().DisableSecFilter(0, id);
    });
    arm(on_pid(0x11));
    ASSERT_TRUE(eventually([] { return count() == 8; }));
    std::vector<octets> expected = sub_table(1, 5);
    for (unsigned i = 0; i < 3; ++i)
        expected.push_back(expected[i]);
    std::vector<octets> given;
    for (const delivered &one : all())
        given.push_back(one.section);
    EXPECT_EQ(given, expected);
}

TEST_F(Serve, NextFilterGoesOnWhereAnotherLeft)
{
    open_read(stream{}.sections(0x11, sub_table(1, 5)));
    on_each_section([](std::uint32_t id, const octets &section) {
        if (section == sdt_of(1, 1, 4))
            handler().DisableSecFilter(0, id);
    });
    const std::uint32_t one = arm(on_pid(0x11));
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(one), ElementsAre(sdt_of(1, 0, 4), sdt_of(1, 1, 4)));
    on_each_section(nullptr);
    const std::uint32_t two = arm(on_pid(0x11));
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(two), ElementsAre(sdt_of(1, 2, 4), sdt_of(1, 3, 4), sdt_of(1, 4, 4),
                                           sdt_of(1, 0, 4), sdt_of(1, 1, 4)));
}

TEST_F(Serve, FilterLoadedAgainWithin20MillisecondsWaits)
{
    open_read(stream{}.sections(0x11, sub_table(1, 3)));
    on_each_section([](std::uint32_t id, const octets &) { load(id, on_pid(0x11)); });
    const std::uint32_t id = arm(on_pid(0x11));
    ASSERT_TRUE(eventually([] { return count() >= 10; }));
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    // The recorder's clock is read a little later, by chance more so at the first of them.
    const auto apart = distances();
    const auto all_apart = std::accumulate(apart.begin(), apart.end(), steady::duration{});
    EXPECT_GE(all_apart, 20ms * (apart.size() - 1));
}

TEST_F(Serve, FilterLoadedLaterStartsAtOnce)
{
    open_read(stream{}.sections(0x11, sub_table(1, 1)));
    const std::uint32_t id = arm(on_pid(0x11));
    ASSERT_TRUE(eventually([] { return count() == 1; }));
    const auto again = [&] {
        std::this_thread::sleep_for(30ms);
        const std::size_t given = count();
        const auto start = steady::now();
        load(id, on_pid(0x11));
        EXPECT_TRUE(eventually([&] { return count() == given + 1; }));
        EXPECT_GE(all().back().when - start, 1ms);
        return all().back().when - start;
    };
    EXPECT_LT(shortest_of(8, again), 15ms);
}

TEST_F(Serve, FiltersTakeTurns)
{
    stream ts;
    ts.sections(0x11, sub_table(1, 100));
    for (unsigned i = 0; i < 100; ++i)
        ts.section(0x10, make(nit{.table_id = 0x41, .network = static_cast<std::uint16_t>(i)}));
    open_read(ts);
    fake::pending = 64;
    std::this_thread::sleep_for(100ms);
    const std::uint32_t one = arm(on_pid(0x10));
    const std::uint32_t two = arm(on_pid(0x11));
    std::this_thread::sleep_for(20ms);
    fake::pending = 0;
    ASSERT_TRUE(eventually([] { return count() >= 200; }));
    const std::vector<delivered> given = all();
    for (std::size_t i = 1; i < 200; ++i)
        ASSERT_NE(given[i].filter, given[i - 1].filter) << i;
    EXPECT_THAT(sections(one), SizeIs(100));
    EXPECT_EQ(sections(two), sub_table(1, 100));
}

TEST_F(Serve, WaitsForRoom)
{
    open_read(stream{}.sections(0x11, sub_table(1, 3)));
    fake::pending = 64;
    std::this_thread::sleep_for(100ms); // until who saw room before waits for a filter
    arm(on_pid(0x11));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(status().idle, 0);
    fake::pending = 63;
    EXPECT_TRUE(eventually([] { return count() == 3; }));
}

TEST_F(Serve, IdleMeansThatEveryLoadedFilterWasServed)
{
    open_read(stream{}.sections(0x11, sub_table(1, 3)));
    EXPECT_EQ(status().idle, 1) << "no filter is loaded";
    fake::pending = 64;
    const std::uint32_t id = arm(on_pid(0x11));
    EXPECT_EQ(status().idle, 0);
    arm(on_pid(0x1FFE));
    EXPECT_EQ(status().idle, 0);
    fake::pending = 0;
    EXPECT_TRUE(idle());
    EXPECT_EQ(count(), 3u);
    fake::pending = 64;
    load(id, on_pid(0x11));
    EXPECT_EQ(status().idle, 0);
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    EXPECT_EQ(status().idle, 1);
}

TEST_F(Serve, BatchesGoOutAtTheEndOfARun)
{
    open_read(stream{}.sections(0x11, sub_table(1, 7)));
    std::uint32_t id = 0;
    const auto run = [&] {
        if (id != 0) {
            handler().RemoveSecFilter(0, id);
            forget();
        }
        const auto start = steady::now();
        id = arm(in_batches(on_pid(0x11), 5));
        EXPECT_TRUE(eventually([] { return count() == 7; }));
        return all().back().when - start;
    };
    EXPECT_LT(shortest_of(5, run), 90ms);
    EXPECT_EQ(sections(id), sub_table(1, 7));
    EXPECT_EQ(all()[4].callback, 0u);
    EXPECT_EQ(all()[6].callback, 1u);
}

TEST_F(Serve, OneSdtActualIsEnough)
{
    open_read(stream{}.sections(
        0x11, {make(sdt{.ts = 1}), make(sdt{.ts = 2}), make(sdt{.ts = 1}), make(sdt{.ts = 2})}));
    const std::uint32_t id = arm(on_table(0x11, 0x42));
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(id), ElementsAre(make(sdt{.ts = 2})));
}

TEST_F(Serve, MemoryLimitGivesUpSubTables)
{
    stream ts;
    std::vector<octets> list;
    for (unsigned i = 0; i < 1000; ++i)
        list.push_back(make(eit{.table_id = 0x60, .service = static_cast<std::uint16_t>(i)}));
    ts.sections(0x12, list);
    open_read(ts, {.realtime = 0, .carousel_bytes = 50'000});
    EXPECT_GT(status().evicted, 500u);
    const std::uint32_t id = arm(on_pid(0x12));
    ASSERT_TRUE(idle());
    EXPECT_FALSE(sections(id).empty());
    EXPECT_EQ(sections(id).size() + status().evicted, 1000u);
}

TEST_F(Serve, VersionThatIsHeldIsNotGiven)
{
    open_read(stream{}.sections(0, {make(pat{.version = 7})}));
    SiDmxFilterParam setting = on_table(0, 0x00);
    setting.filter_depth = 6;
    setting.match[5] = 7 << 1 | 1;
    setting.mask[5] = 0x01;
    setting.negate[5] = 0x3E;
    const std::uint32_t id = arm(setting);
    ASSERT_TRUE(idle());
    EXPECT_THAT(sections(id), IsEmpty());
    setting.match[5] = 6 << 1 | 1;
    load(id, setting);
    EXPECT_TRUE(eventually([&] { return sections(id).size() == 1; }));
}

} // namespace
