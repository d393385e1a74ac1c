// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "support/fuzz_replay.h"

TEST(FuzzReplayEvents, Seeds)
{
    test::replay_seeds(fuzz::events());
}

TEST(FuzzReplayEvents, WhatWasFound)
{
    test::replay_found(fuzz::events());
}
