// SPDX-License-Identifier: LGPL-2.1-or-later
// What a filter was given is told from what it was not, however much that is.
#include <gtest/gtest.h>
#include <random>

#include <cstdint>
#include <set>

#include "demux/pending.h"
#include "orva_demux_given.h"

namespace {

using si::demux::given_contents;

TEST(Given, NothingAtFirst)
{
    const given_contents none;
    EXPECT_EQ(none.size(), 0u);
    for (const std::uint64_t content : {1u, 2u, 0xFFFFFFFFu})
        EXPECT_FALSE(none.contains(content));
}

TEST(Given, TheSameAsASetHolds)
{
    std::mt19937_64 chance{1};
    given_contents given;
    std::set<std::uint64_t> model;
    for (int round = 0; round < 20000; ++round) {
        // Numbers of all sizes, of which many come again.
        const std::uint64_t content = 1 + chance() % (round % 2 == 0 ? 20000 : ~std::uint64_t{1});
        EXPECT_EQ(given.contains(content), model.contains(content)) << content;
        given.insert(content);
        model.insert(content);
        ASSERT_TRUE(given.contains(content)) << content;
        ASSERT_EQ(given.size(), model.size());
    }
    for (std::uint64_t content = 1; content <= 20000; ++content)
        EXPECT_EQ(given.contains(content), model.contains(content)) << content;
}

TEST(Given, WhatHasNoNumberWasNeverGiven)
{
    given_contents given;
    EXPECT_FALSE(given.contains(0));
    given.insert(1);
    EXPECT_FALSE(given.contains(0));
}

TEST(Given, ForgetsAll)
{
    given_contents given;
    for (const std::uint64_t most : {1u, 7u, 8u, 9u, 127u, 128u, 129u, 5000u}) {
        for (std::uint64_t content = 1; content <= most; ++content)
            given.insert(content);
        EXPECT_EQ(given.size(), most);
        given.clear();
        EXPECT_EQ(given.size(), 0u);
        for (std::uint64_t content = 1; content <= most; ++content)
            EXPECT_FALSE(given.contains(content)) << content << " of " << most;
    }
}

} // namespace
