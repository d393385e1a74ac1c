// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "event_words.h"

namespace {

using tool::genre_text;
using tool::rating_text;

// EN 300 468 table 28.
TEST(Genre, HasTheNameOfItsLevels)
{
    EXPECT_EQ(genre_text(0x1, 0x0), "movie/drama");
    EXPECT_EQ(genre_text(0x1, 0x4), "comedy");
    EXPECT_EQ(genre_text(0x2, 0x3), "documentary");
    EXPECT_EQ(genre_text(0x4, 0xB), "martial sports");
    EXPECT_EQ(genre_text(0x7, 0xB), "fashion");
    EXPECT_EQ(genre_text(0x9, 0x7), "languages");
    EXPECT_EQ(genre_text(0xB, 0x3), "live broadcast");
}

TEST(Genre, LevelWithoutANameIsItsKind)
{
    EXPECT_EQ(genre_text(0x3, 0xF), "show/game show");
    EXPECT_EQ(genre_text(0x5, 0x7), "children's/youth programmes");
}

TEST(Genre, WhatTheStandardLeavesOpenHasNoName)
{
    EXPECT_EQ(genre_text(0x0, 0x1), "");
    EXPECT_EQ(genre_text(0xB, 0xF), ""); // a special characteristic is no kind
    EXPECT_EQ(genre_text(0xE, 0x0), "");
    EXPECT_EQ(genre_text(0xF, 0x0), "");
}

TEST(Rating, IsAnAgeFromOneToFifteen)
{
    EXPECT_EQ(rating_text(0x00), "");
    EXPECT_EQ(rating_text(0x01), "4+");
    EXPECT_EQ(rating_text(0x0F), "18+");
    EXPECT_EQ(rating_text(0x10), "");
    EXPECT_EQ(rating_text(0xFF), "");
}

} // namespace
