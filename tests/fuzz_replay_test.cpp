// SPDX-License-Identifier: LGPL-2.1-or-later
// What is fuzzed, replayed without the engine; and the mutator, whose changes keep sections whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "frames.h"
#include "mutate.h"
#include "outline.h"
#include "seeds.h"
#include "support/fuzz_replay.h"

namespace {

class FuzzReplay : public testing::TestWithParam<fuzz::target (*)()> {};

TEST_P(FuzzReplay, Seeds)
{
    test::replay_seeds(GetParam()());
}

TEST_P(FuzzReplay, WhatWasFound)
{
    test::replay_found(GetParam()());
}

INSTANTIATE_TEST_SUITE_P(Bodies, FuzzReplay,
                         testing::Values(fuzz::readers, fuzz::getters, fuzz::mempool),
                         [](const auto &body) { return std::string{body.param().name}; });

// ---- The mutator

std::size_t unchanged(std::uint8_t *, std::size_t size, std::size_t)
{
    return size;
}

struct tally {
    unsigned changed = 0;
    unsigned wrong_length = 0;
    unsigned wrong_crc = 0;
    unsigned more_descriptors = 0;
};

std::size_t descriptors_of(const fuzz::octets &section)
{
    std::size_t count = 0;
    for (const fuzz::descriptor_loop &loop : fuzz::outline_of(section).loops)
        count += fuzz::descriptors_in(section, loop).size();
    return count;
}

tally mutated(const fuzz::octets &section, unsigned times)
{
    tally all;
    const fuzz::octets input = fuzz::packed({{0, section}});
    for (unsigned seed = 1; seed <= times; ++seed) {
        fuzz::octets room(8192);
        std::ranges::copy(input, room.begin());
        room.resize(fuzz::mutate(fuzz::shape::frames, room, input.size(), seed * 7919, unchanged));
        const auto frames = fuzz::frames_of(room);
        if (frames.size() != 1 || frames[0].content.size() < 12 || frames[0].content == section)
            continue;
        const fuzz::octets &changed = frames[0].content;
        ++all.changed;
        all.wrong_length += fuzz::length12(changed, 1) + 3 != changed.size();
        all.wrong_crc += !fuzz::is_intact(changed);
        all.more_descriptors += descriptors_of(changed) > descriptors_of(section);
    }
    return all;
}

TEST(FuzzMutator, LeavesOneInSixteenWithoutAFittingLengthOrCrc)
{
    const tally all = mutated(fuzz::seed_sections().front(), 4000);
    ASSERT_GT(all.changed, 1500U);
    EXPECT_NEAR(all.wrong_crc, all.changed / 16.0, all.changed / 32.0);
    EXPECT_LT(all.wrong_length, all.changed / 16);
    EXPECT_GT(all.wrong_length, 0U);
}

TEST(FuzzMutator, InsertsDescriptorsIntoEveryTableWithLoops)
{
    for (const fuzz::octets &section : fuzz::seed_sections())
        if (!fuzz::outline_of(section).loops.empty()) {
            EXPECT_GT(mutated(section, 200).more_descriptors, 5U) << unsigned{section[0]};
        }
}

TEST(FuzzMutator, StaysInItsRoom)
{
    for (unsigned seed = 1; seed < 2000; ++seed) {
        fuzz::octets room = fuzz::packed({{0, fuzz::seed_sections()[seed % 60]}});
        const std::size_t size = room.size();
        for (const auto shape : {fuzz::shape::frames, fuzz::shape::section})
            ASSERT_LE(fuzz::mutate(shape, room, size, seed, unchanged), size);
    }
}

TEST(FuzzSeeds, HaveEveryTableAndTwoVersions)
{
    EXPECT_GE(fuzz::seed_sections().size(), 64U);
    for (const fuzz::octets &section : fuzz::seed_sections()) {
        const bool short_one = section[0] == 0x70;
        EXPECT_TRUE(short_one || fuzz::is_intact(section)) << unsigned{section[0]};
        const fuzz::octets next = fuzz::next_version_of(section);
        EXPECT_TRUE(short_one || fuzz::is_intact(next)) << unsigned{section[0]};
    }
}

} // namespace
