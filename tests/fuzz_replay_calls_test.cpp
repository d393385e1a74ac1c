// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "support/fuzz_replay.h"

TEST(FuzzReplayCalls, Seeds)
{
    test::replay_seeds(fuzz::calls());
}

TEST(FuzzReplayCalls, WhatWasFound)
{
    test::replay_found(fuzz::calls());
}
