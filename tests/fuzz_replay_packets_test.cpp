// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "support/fuzz_replay.h"

TEST(FuzzReplayPackets, Seeds)
{
    test::replay_seeds(fuzz::packets());
}

TEST(FuzzReplayPackets, WhatWasFound)
{
    test::replay_found(fuzz::packets());
}
