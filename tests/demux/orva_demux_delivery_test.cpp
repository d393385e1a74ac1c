// SPDX-License-Identifier: LGPL-2.1-or-later
// Filters through the seven slots: which are granted, when settings take effect, the first pass,
// batches, buffers.
#include <algorithm>
#include <array>
#include <atomic>
#include <set>

#include "demux/client.h"

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

octets pat_of(unsigned ts)
{
    return make(pat{.ts = static_cast<std::uint16_t>(ts)});
}

// PATs, so that the carousel has one of them only.
std::vector<octets> numbered_pats(unsigned count, unsigned first = 0)
{
    std::vector<octets> sections;
    for (unsigned i = first; i < first + count; ++i)
        sections.push_back(pat_of(i));
    return sections;
}

class Slots : public DemuxClient {};
class FirstPass : public DemuxClient {};
class Batches : public DemuxClient {};
class Buffers : public DemuxClient {};

TEST_F(Slots, Answer1WhileNothingIsOpen)
{
    std::uint32_t id = 7;
    EXPECT_EQ(handler().DemuxInit(0), 1u);
    EXPECT_EQ(handler().FreeSecData(0, 0, 1), 1u);
    EXPECT_EQ(handler().AddSecFilter(0, &id, {}), 1u);
    EXPECT_EQ(handler().UpdateSecFilter(0, 0, {}), 1u);
    EXPECT_EQ(handler().EnableSecFilter(0, 0), 1u);
    EXPECT_EQ(handler().DisableSecFilter(0, 0), 1u);
    EXPECT_EQ(handler().RemoveSecFilter(0, 0), 1u);
    EXPECT_EQ(id, 7u);
}

TEST_F(Slots, KnowOneDemux)
{
    open(stream{}.sections(0, numbered_pats(2)));
    const std::uint32_t id = add();
    std::uint32_t other = 0;
    EXPECT_EQ(handler().DemuxInit(0), 0u);
    EXPECT_EQ(handler().DemuxInit(1), 1u);
    EXPECT_EQ(handler().AddSecFilter(1, &other, {}), 1u);
    EXPECT_EQ(handler().UpdateSecFilter(1, id, {}), 1u);
    EXPECT_EQ(handler().RemoveSecFilter(1, id), 1u);
    EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
}

TEST_F(Slots, RefuseWhatWasNotGranted)
{
    open(stream{}.sections(0, numbered_pats(2)));
    EXPECT_EQ(handler().AddSecFilter(0, nullptr, {}), 1u);
    for (const std::uint32_t id : {0u, 32u, 256u, 257u, 70'000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(handler().UpdateSecFilter(0, id, on_pid(0)), 1u);
        EXPECT_EQ(handler().EnableSecFilter(0, id), 1u);
        EXPECT_EQ(handler().DisableSecFilter(0, id), 1u);
        EXPECT_EQ(handler().RemoveSecFilter(0, id), 1u);
    }
}

TEST_F(Slots, Grant256FiltersAndNever32)
{
    open(stream{}.sections(0, numbered_pats(2)));
    for (int round = 0; round < 2; ++round) {
        std::set<std::uint32_t> ids;
        for (int i = 0; i < 256; ++i)
            ids.insert(add());
        EXPECT_EQ(ids.size(), 256u);
        EXPECT_FALSE(ids.contains(SI_NO_FILTER));
        std::uint32_t more = 0;
        EXPECT_EQ(handler().AddSecFilter(0, &more, {}), 1u);
        for (const std::uint32_t id : ids)
            EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
    }
}

TEST_F(Slots, FilterThatWasOnlyRequestedDeliversNothing)
{
    open(stream{}.sections(0, numbered_pats(3)));
    std::uint32_t requested = 0;
    ASSERT_EQ(handler().AddSecFilter(0, &requested, on_pid(0)), 0u);
    const std::uint32_t armed = arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_THAT(sections(requested), IsEmpty());
    EXPECT_FALSE(sections(armed).empty());
    EXPECT_EQ(handler().EnableSecFilter(0, requested), 0u);
    EXPECT_TRUE(eventually([&] { return !sections(requested).empty(); }));
}

TEST_F(Slots, DisabledFilterIsSilentUntilItIsEnabled)
{
    open(stream{}.sections(0, numbered_pats(3)));
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    forget();
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(handler().EnableSecFilter(0, id), 0u);
    EXPECT_EQ(handler().EnableSecFilter(0, id), 0u);
    ASSERT_TRUE(eventually([] { return count() != 0; }));
    EXPECT_THAT(sections(id), ElementsAre(pat_of(2)));
}

TEST_F(Slots, SettingWithoutCallbackDeliversNothing)
{
    open(stream{}.sections(0, numbered_pats(3)));
    SiDmxFilterParam without = on_pid(0);
    without.section_callback = nullptr;
    arm(without);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(status().state, ORVA_DEMUX_WAITING);
    arm(on_pid(0));
    EXPECT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
}

TEST_F(Slots, PidOutOfRangeMatchesNothing)
{
    open(stream{}.sections(0, numbered_pats(3)));
    const std::uint32_t id = arm(on_pid(0x2000));
    load(id, on_pid(0xFFFF));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_EQ(count(), 0u);
}

TEST_F(FirstPass, BeginsWithTheFirstSetting)
{
    open(stream{}.sections(0, numbered_pats(3)));
    add();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(status().state, ORVA_DEMUX_WAITING);
    const std::uint32_t id = add();
    const auto start = steady::now();
    load(id, on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    ASSERT_GE(count(), 3u);
    EXPECT_GE(all().front().when - start, 1ms);
}

TEST_F(FirstPass, WaitsForSettingsThatAreLoadedTogether)
{
    bool met = false;
    for (unsigned attempt = 0; attempt < 5 && !met; ++attempt) { // a busy machine tears them apart
        forget();
        open(stream{}
                 .section(0, pat_of(1))
                 .section(0x11, make(sdt{}))
                 .sections(0, numbered_pats(2)));
        arm(on_pid(0));
        std::this_thread::sleep_for(5ms);
        const std::uint32_t second = arm(on_pid(0x11));
        EXPECT_TRUE(eventually([] { return count() >= 3; }));
        met = all()[1].filter == second; // as broadcast, not from the carousel behind the rest
        close();
    }
    EXPECT_TRUE(met);
}

TEST_F(FirstPass, BeginsWhileSettingsGoOnBeingLoaded)
{
    open(stream{}.sections(0, numbered_pats(3)));
    const std::uint32_t one = arm(on_pid(0));
    const std::uint32_t other = add();
    EXPECT_TRUE(eventually([&] {
        load(other, on_pid(0x11));
        return sections(one).size() >= 3;
    }));
}

TEST_F(FirstPass, SettingTakesEffectAMillisecondAfterItsLoad)
{
    open(stream{}.sections(0, numbered_pats(100)));
    const std::uint32_t late = add();
    std::atomic<steady::time_point> loaded;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t id, const octets &section) {
        if (id != late && section == pat_of(10)) {
            load(late, on_pid(0));
            loaded = steady::now();
        }
        std::this_thread::sleep_for(100us);
    });
    arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    const std::vector<delivered> given = all();
    const auto first = std::ranges::find(given, late, &delivered::filter);
    ASSERT_NE(first, given.end());
    EXPECT_GE(first->when - loaded.load(), 950us);
    EXPECT_NE(first->section, pat_of(99)) << "it was in time for the first pass";
}

TEST_F(FirstPass, DeliversInBroadcastOrder)
{
    stream ts;
    std::vector<octets> expected;
    for (unsigned i = 0; i < 300; ++i) {
        expected.push_back(i % 2 == 0 ? pat_of(i) : make(sdt{.ts = static_cast<std::uint16_t>(i)}));
        ts.section(i % 2 == 0 ? 0 : 0x11, expected.back());
    }
    open(file(ts.bytes));
    fake::pending = 64;
    arm(on_pid(0));
    arm(on_pid(0x11));
    std::this_thread::sleep_for(20ms); // both have taken effect before there is room
    fake::pending = 0;
    ASSERT_TRUE(eventually([] { return count() >= 300; }));
    std::vector<octets> given;
    for (const delivered &one : all())
        given.push_back(one.section);
    given.resize(300);
    EXPECT_EQ(given, expected);
}

TEST_F(FirstPass, SectionGoesToEveryFilterThatItPasses)
{
    open(stream{}.sections(0, numbered_pats(2)));
    fake::pending = 64;
    const std::uint32_t one = arm(on_pid(0));
    const std::uint32_t two = arm(on_extension(0, 0, 1));
    const std::uint32_t three = arm(on_extension(0, 0, 9));
    std::this_thread::sleep_for(20ms); // all have taken effect before there is room
    fake::pending = 0;
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_THAT(sections(one), ElementsAre(pat_of(0), pat_of(1), pat_of(1)));
    EXPECT_THAT(sections(two), ElementsAre(pat_of(1), pat_of(1)));
    EXPECT_THAT(sections(three), IsEmpty());
}

TEST_F(FirstPass, NeverRunsMoreThan64SectionsAhead)
{
    open(stream{}.sections(0, numbered_pats(3000)));
    std::atomic<std::uint32_t> most = 0;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t, const octets &) {
        const std::uint32_t now = ++fake::pending;
        most = std::max<std::uint32_t>(most, now);
    });
    std::atomic<bool> done = false;
    std::thread processing{[&] {
        while (!done) {
            if (fake::pending > 0)
                --fake::pending;
            else
                std::this_thread::yield();
        }
    }};
    arm(on_pid(0));
    EXPECT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    close();
    done = true;
    processing.join();
    EXPECT_LE(most, 64u);
    EXPECT_GE(count(), 3000u);
}

TEST_F(FirstPass, WaitsWhile64ArePending)
{
    open(stream{}.sections(0, numbered_pats(3)));
    fake::pending = 64;
    arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_READING));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
    fake::pending = 63;
    EXPECT_TRUE(eventually([] { return count() >= 3; }));
    EXPECT_EQ(status().congested, 0u);
}

TEST_F(FirstPass, QuietFiltersAreNotWaitedFor)
{
    open(stream{}.sections(0, numbered_pats(3)));
    fake::pending = 64;
    arm(on_pid(0x123));
    EXPECT_TRUE(eventually([&] { return status().sections == 3; }));
}

TEST_F(FirstPass, SlotsDoNotWaitForRoom)
{
    open(stream{}.sections(0, numbered_pats(3)));
    fake::pending = 100;
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_READING));
    const auto start = steady::now();
    EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
    load(id, on_pid(0));
    EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
    EXPECT_LT(steady::now() - start, at_once);
}

TEST_F(FirstPass, UnchangedSectionIsNotGivenAgainWhileItMayBeQueued)
{
    const octets first = make(pmt{.program = 1, .version = 1});
    const octets changed = make(pmt{.program = 1, .version = 2});
    stream ts;
    for (const octets &section : {first, first, changed, changed, first})
        ts.section(0x100, section);
    fake::pending = 1; // something is always queued
    open(file(ts.bytes));
    const std::uint32_t id = arm(on_pid(0x100));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_THAT(sections(id), ElementsAre(first, changed, first));
    fake::pending = 0; // a second later it may come again
    EXPECT_TRUE(eventually([&] { return sections(id).size() == 4; }));
}

TEST_F(FirstPass, UnchangedSectionIsGivenAgainWhenNothingIsQueued)
{
    const octets section = make(pmt{});
    open(stream{}.sections(0x100, {section, section, section}));
    const std::uint32_t id = arm(on_pid(0x100));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_EQ(sections(id).size(), 4u); // three, and once from the carousel
}

TEST_F(FirstPass, UnchangedSectionIsGivenToANewSetting)
{
    open(pipe());
    fake::pending = 1;
    const std::uint32_t id = arm(on_pid(0));
    stream six;
    for (int i = 0; i < 6; ++i)
        six.section(0, pat_of(1));
    feed(six.bytes);
    ASSERT_TRUE(eventually([] { return count() == 1; }));
    load(id, on_pid(0));
    std::this_thread::sleep_for(5ms);
    stream more;
    more.continuity[0] = 6;
    for (int i = 0; i < 6; ++i)
        more.section(0, pat_of(1));
    feed(more.bytes);
    EXPECT_TRUE(eventually([] { return count() == 2; }));
}

TEST_F(Batches, AreDeliveredWhole)
{
    open(stream{}.sections(0, numbered_pats(20)));
    const std::uint32_t id = arm(in_batches(on_pid(0), 5));
    ASSERT_TRUE(eventually([] { return count() >= 20; }));
    const std::vector<delivered> given = all();
    for (unsigned i = 0; i < 20; ++i) {
        EXPECT_EQ(given[i].filter, id);
        EXPECT_EQ(given[i].section, pat_of(i));
        EXPECT_EQ(given[i].callback, i / 5);
        EXPECT_EQ(given[i].handle, given[i / 5 * 5].handle);
    }
}

TEST_F(Batches, ShortOneGoesOutAtTheEndOfThePass)
{
    const auto pass = [&] {
        forget();
        open(stream{}.sections(0, numbered_pats(7)));
        const auto start = steady::now();
        arm(in_batches(on_pid(0), 200));
        EXPECT_TRUE(eventually([] { return count() >= 7; }));
        const steady::duration took = all()[6].when - start;
        close();
        return took;
    };
    EXPECT_LT(shortest_of(5, pass), 90ms);
    EXPECT_EQ(all()[6].callback, 0u);
}

TEST_F(Batches, ShortOneGoesOutAfter100Milliseconds)
{
    open(pipe());
    arm(in_batches(on_pid(0), 200));
    stream ts;
    ts.sections(0, numbered_pats(3));
    for (int i = 0; i < 8; ++i)
        ts.packet(0x1FFF, {});
    const auto start = steady::now();
    feed(ts.bytes);
    ASSERT_TRUE(eventually([] { return count() == 3; }));
    EXPECT_GE(all()[0].when - start, 95ms);
    EXPECT_LT(all()[0].when - start, at_once);
    EXPECT_EQ(all()[2].callback, 0u);
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
}

TEST_F(Batches, OfAFormerSettingAreDropped)
{
    open(pipe());
    const std::uint32_t id = arm(in_batches(on_pid(0), 200));
    stream ts;
    ts.sections(0, numbered_pats(3));
    for (int i = 0; i < 8; ++i)
        ts.packet(0x1FFF, {});
    feed(ts.bytes);
    ASSERT_TRUE(eventually([&] { return status().sections == 3; }));
    load(id, in_batches(on_pid(0), 100));
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(count(), 0u);
}

// The receiver is woken for all of them once.
TEST_F(Batches, FullOnesAreGivenTogether)
{
    open(stream{}.sections(0, numbered_pats(96)));
    std::array<std::uint64_t, 96> read{};
    std::atomic<std::size_t> seen = 0;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t, const octets &) {
        if (seen < read.size()) {
            read[seen] = status().sections;
            ++seen;
        }
    });
    arm(in_batches(on_pid(0), 8));
    ASSERT_TRUE(eventually([&] { return seen == read.size(); }));
    on_each_section(nullptr);
    close();
    for (std::size_t i = 0; i < read.size(); ++i)
        EXPECT_EQ(read[i], i < 48 ? 48u : 96u) << "when section " << i << " was given";
}

TEST_F(Batches, FullOneDoesNotWaitForMoreInput)
{
    open(pipe());
    arm(in_batches(on_pid(0), 3));
    stream ts;
    ts.sections(0, numbered_pats(3));
    for (int i = 0; i < 8; ++i)
        ts.packet(0x1FFF, {});
    feed(ts.bytes);
    EXPECT_TRUE(eventually([] { return count() == 3; }));
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
}

TEST_F(Batches, FullOneOfAFormerSettingIsDropped)
{
    open(pipe());
    const std::uint32_t first = arm(in_batches(on_pid(0), 3));
    const std::uint32_t second = arm(in_batches(on_pid(0), 3));
    std::this_thread::sleep_for(20ms); // both have taken effect
    on_each_section([](std::uint32_t, const octets &) { fake::pending = 64; });
    stream ts;
    ts.sections(0, numbered_pats(3));
    for (int i = 0; i < 8; ++i)
        ts.packet(0x1FFF, {});
    feed(ts.bytes);
    ASSERT_TRUE(eventually([] { return count() == 3; }));
    EXPECT_EQ(all()[2].filter, first);
    load(second, in_batches(on_pid(0), 3));
    on_each_section(nullptr);
    fake::pending = 0;
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(count(), 3u);
}

TEST_F(Batches, WaitForRoomToo)
{
    open(stream{}.sections(0, numbered_pats(40)));
    on_each_section([](std::uint32_t, const octets &) { fake::pending += 20; });
    fake::pending = 64;
    arm(in_batches(on_pid(0), 10));
    arm(in_batches(on_pid(0), 10));
    std::this_thread::sleep_for(20ms); // both have taken effect before there is room
    fake::pending = 0;
    ASSERT_TRUE(eventually([] { return count() == 10; }));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(), 10u) << "the second filter's batch must wait for the first one's";
    on_each_section(nullptr);
    fake::pending = 0;
    EXPECT_TRUE(eventually([] { return count() >= 80; }));
}

TEST_F(Buffers, ComeBackExactlyOnce)
{
    recorded().give_back = false;
    open(stream{}.sections(0, numbered_pats(50)));
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    ASSERT_EQ(handler().DisableSecFilter(0, id), 0u);
    std::set<SiWord> handles;
    for (const delivered &one : all()) {
        EXPECT_NE(one.handle, 0u);
        EXPECT_TRUE(handles.insert(one.handle).second) << "a handle twice";
        EXPECT_EQ(handler().FreeSecData(0, id, one.handle), 0u);
        EXPECT_EQ(handler().FreeSecData(0, id, one.handle), 1u);
    }
    EXPECT_EQ(handles.size(), status().delivered);
    EXPECT_EQ(handler().FreeSecData(0, id, 0), 1u);
}

TEST_F(Buffers, ComeBackAlsoWhenTheFilterIsGone)
{
    recorded().give_back = false;
    open(stream{}.sections(0, numbered_pats(1)));
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(eventually([] { return count() != 0; }));
    EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
    EXPECT_EQ(handler().FreeSecData(0, id, all()[0].handle), 0u);
}

TEST_F(Buffers, OfABatchHaveOneHandle)
{
    recorded().give_back = false;
    open(stream{}.sections(0, numbered_pats(20)));
    arm(in_batches(on_pid(0), 20));
    ASSERT_TRUE(eventually([] { return count() >= 20; }));
    EXPECT_EQ(handler().FreeSecData(0, 0, all()[0].handle), 0u);
    EXPECT_EQ(handler().FreeSecData(0, 0, all()[19].handle), 1u);
}

TEST_F(Buffers, KeepTheirBytesWhileTheyAreOut)
{
    recorded().give_back = false;
    static std::vector<std::pair<const std::uint8_t *, octets>> seen;
    SiDmxFilterParam setting = on_pid(0);
    setting.section_callback = [](std::uint32_t index, std::uint32_t id, SiWord reserved,
                                  SiDmxSection *section) {
        seen.emplace_back(section->pPrimaraySectionData, bytes_of(*section));
        return on_single(index, id, reserved, section);
    };
    open(stream{}.sections(0, numbered_pats(100)));
    const std::uint32_t id = arm(setting);
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    ASSERT_EQ(handler().DisableSecFilter(0, id), 0u);
    ASSERT_GE(seen.size(), 100u);
    for (const auto &[data, content] : seen)
        EXPECT_TRUE(std::equal(content.begin(), content.end(), data));
}

TEST_F(Buffers, ReadingWaitsWhileTooManyAreOut)
{
    recorded().give_back = false;
    open(stream{}.sections(0, numbered_pats(3000)));
    arm(on_pid(0));
    ASSERT_TRUE(eventually([] { return count() == 1024; }));
    std::this_thread::sleep_for(20ms);
    ASSERT_EQ(count(), 1024u);
    recorded().give_back = true;
    for (const delivered &one : all())
        EXPECT_EQ(handler().FreeSecData(0, one.filter, one.handle), 0u);
    EXPECT_TRUE(eventually([] { return count() >= 3000; }));
}

} // namespace
