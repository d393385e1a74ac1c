// SPDX-License-Identifier: LGPL-2.1-or-later
// Callbacks and slots at the same time: who waits for whom, and what no longer happens when a slot
// has returned.
#include <algorithm>
#include <array>
#include <atomic>

#include "demux/client.h"

using namespace test;
using testing::SizeIs;

namespace {

octets table_of(std::uint8_t table_id, unsigned extension = 0)
{
    return make(
        private_table{.table_id = table_id, .extension = static_cast<std::uint16_t>(extension)});
}

class Races : public DemuxClient {
protected:
    // Opens a stream whose first callback waits inside the gate.
    std::uint32_t open_into_gate()
    {
        open(stream{}.sections(0x100, {table_of(0x80), table_of(0x81), table_of(0x82)}));
        on_each_section([this](std::uint32_t, const octets &) {
            inside = true;
            gate.pass();
            std::this_thread::sleep_for(5ms);
            ended = true;
        });
        const std::uint32_t id = arm(on_pid(0x100));
        EXPECT_TRUE(eventually([this] { return inside.load(); }));
        return id;
    }
    // Runs a call beside the callback that is held, lets it go on, and tells whether the call
    // waited for it.
    template <class Call>
    bool waits(Call call)
    {
        std::atomic<bool> waited = false;
        std::thread other{[&] {
            EXPECT_EQ(call(), 0u);
            waited = ended.load();
        }};
        std::this_thread::sleep_for(30ms);
        gate.release();
        other.join();
        return waited;
    }

    test::gate gate;
    std::atomic<bool> inside = false;
    std::atomic<bool> ended = false;
};

TEST_F(Races, DisableWaitsForTheRunningCallback)
{
    const std::uint32_t id = open_into_gate();
    EXPECT_TRUE(waits([&] { return handler().DisableSecFilter(0, id); }));
    const std::size_t given = count();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(), given);
}

TEST_F(Races, UpdateWaitsForTheRunningCallback)
{
    const std::uint32_t id = open_into_gate();
    EXPECT_TRUE(waits([&] { return handler().UpdateSecFilter(0, id, on_table(0x100, 0x82)); }));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL) && idle());
    EXPECT_EQ(sections(id).back(), table_of(0x82));
}

TEST_F(Races, RemoveWaitsForTheRunningCallback)
{
    const std::uint32_t id = open_into_gate();
    EXPECT_TRUE(waits([&] { return handler().RemoveSecFilter(0, id); }));
    EXPECT_THAT(sections(id), SizeIs(1));
}

TEST_F(Races, OtherFiltersAreNotWaitedFor)
{
    open_into_gate();
    const auto start = steady::now();
    const std::uint32_t other = arm(on_pid(0x200));
    load(other, on_pid(0x201));
    EXPECT_EQ(handler().DisableSecFilter(0, other), 0u);
    EXPECT_EQ(handler().RemoveSecFilter(0, other), 0u);
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
    EXPECT_LT(steady::now() - start, at_once);
    EXPECT_FALSE(ended);
    gate.release();
}

TEST_F(Races, SlotsMayBeCalledFromInsideTheCallback)
{
    open(stream{}.sections(0x100, {table_of(0x80), table_of(0x81), table_of(0x82)}));
    std::atomic<int> step = 0;
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t id, const octets &) {
        switch (step++) {
        case 0:
            EXPECT_EQ(handler().UpdateSecFilter(0, id, on_table(0x100, 0x81)), 0u);
            break;
        case 1:
            EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
            EXPECT_EQ(handler().EnableSecFilter(0, id), 0u);
            break;
        default:
            EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
        }
    });
    arm(on_pid(0x100));
    EXPECT_TRUE(eventually([&] { return step == 3; }));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(step, 3);
}

TEST_F(Races, FilterOfAnotherThreadMayBeStoppedFromInsideACallback)
{
    open(stream{}.sections(0x100, {table_of(0x80), table_of(0x81)}));
    const std::uint32_t other = add();
    const closing at_the_end{*this};
    on_each_section([&](std::uint32_t, const octets &) {
        EXPECT_EQ(handler().UpdateSecFilter(0, other, on_pid(0x300)), 0u);
        EXPECT_EQ(handler().DisableSecFilter(0, other), 0u);
    });
    arm(on_pid(0x100));
    EXPECT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
}

TEST_F(Races, CloseWaitsForTheRunningCallback)
{
    open_into_gate();
    std::thread other{[&] {
        std::this_thread::sleep_for(30ms);
        gate.release();
    }};
    close();
    EXPECT_TRUE(ended);
    const std::size_t given = count();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(), given);
    EXPECT_EQ(handler().DemuxInit(0), 1u);
    other.join();
}

TEST_F(Races, CloseDoesNotWaitForRoom)
{
    fake::pending = 1000;
    open(stream{}.sections(0x100, {table_of(0x80)}));
    arm(on_pid(0x100));
    ASSERT_TRUE(reaches(ORVA_DEMUX_READING));
    const auto start = steady::now();
    close();
    EXPECT_LT(steady::now() - start, at_once);
}

// What each filter is loaded with at the moment; 0: it is being changed or stopped.
std::array<std::atomic<std::uint8_t>, 512> wanted;
std::atomic<unsigned> wrong;
std::atomic<unsigned> right;

void check(std::uint32_t id, std::uint8_t table_id)
{
    ++(wanted[id] == table_id ? right : wrong);
}

std::uint32_t check_single(std::uint32_t demux, std::uint32_t id, SiWord, SiDmxSection *section)
{
    check(id, section->pPrimaraySectionData[0]);
    return handler().FreeSecData(demux, id, section->BufferHandle);
}
std::uint32_t check_list(std::uint32_t demux, std::uint32_t id, SiWord, SiDmxSectionList *list)
{
    for (std::uint32_t i = 0; i < list->section_count; ++i)
        check(id, list->section[i].pPrimaraySectionData[0]);
    return handler().FreeSecData(demux, id, list->BufferHandle);
}

// Loads, stops, starts and releases filters for a while. A slot that stops a setting has the last
// word on it.
void juggle(unsigned seed, steady::time_point until)
{
    std::uint32_t random = seed;
    const auto next = [&](unsigned below) {
        return ((random = random * 1664525 + 1013904223) >> 16) % below;
    };
    while (steady::now() < until) {
        std::uint32_t id = SI_NO_FILTER;
        ASSERT_EQ(handler().AddSecFilter(0, &id, {}), 0u);
        for (unsigned i = 0; i < 20; ++i) {
            const auto table_id = static_cast<std::uint8_t>(0x80 + next(4));
            SiDmxFilterParam setting = on_table(0x100, table_id);
            setting.section_callback = check_single;
            if (next(2) != 0)
                setting = in_batches(setting, 3);
            setting.section_list_callback = check_list;
            EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
            wanted[id] = table_id;
            EXPECT_EQ(handler().UpdateSecFilter(0, id, setting), 0u);
            std::this_thread::sleep_for(std::chrono::microseconds{500 + 100 * next(32)});
        }
        EXPECT_EQ(handler().DisableSecFilter(0, id), 0u);
        wanted[id] = 0;
        EXPECT_EQ(handler().RemoveSecFilter(0, id), 0u);
    }
}

TEST_F(Races, NoCallbackComesUnderAFormerSetting)
{
    stream ts;
    for (unsigned i = 0; i < 2000; ++i)
        ts.section(0x100, table_of(static_cast<std::uint8_t>(0x80 + i % 4), i));
    open(file(ts.bytes));
    std::vector<std::thread> threads;
    const auto until = steady::now() + 1s;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(juggle, i + 1, until);
    OrvaDemuxStatus last{};
    while (steady::now() < until) {
        last = status();
        std::this_thread::sleep_for(1ms);
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(right, 100u);
    EXPECT_GT(last.delivered, 0u);
}

TEST_F(Races, SlotsMeetOpenAndClose)
{
    const std::string path = file(stream{}.sections(0x100, {table_of(0x80), table_of(0x81)}).bytes);
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 2; ++i)
        threads.emplace_back([&] {
            while (!done) {
                std::uint32_t id = SI_NO_FILTER;
                if (handler().AddSecFilter(0, &id, {}) != 0)
                    continue;
                handler().UpdateSecFilter(0, id, on_pid(0x100));
                std::this_thread::sleep_for(2ms);
                handler().DisableSecFilter(0, id);
                handler().RemoveSecFilter(0, id);
            }
        });
    for (unsigned i = 0; i < 50; ++i) {
        open(path);
        std::this_thread::sleep_for(
            std::chrono::milliseconds{i % 7 < 6 ? i % 7 : 250}); // reading begins
        close();
    }
    done = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(count(), 0u);
}

} // namespace
