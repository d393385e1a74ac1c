// SPDX-License-Identifier: LGPL-2.1-or-later
// Inputs of a fuzzed body, replayed: its seeds, and what fuzzing has found in the past.
#ifndef TESTS_SUPPORT_FUZZ_REPLAY_H
#define TESTS_SUPPORT_FUZZ_REPLAY_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fakes/platform.h"
#include "fuzz.h"

namespace test {

// A body ends the process when something is wrong, and says what.
inline void replay_seeds(const fuzz::target &of)
{
    fake::set_log_level(0);
    const auto seeds = of.seeds();
    EXPECT_FALSE(seeds.empty());
    for (const fuzz::octets &seed : seeds)
        of.run(seed);
}

inline void replay_found(const fuzz::target &of)
{
    fake::set_log_level(0);
    const auto folder = std::filesystem::path{ORVA_FUZZ_CORPUS} / of.name;
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "nothing was found yet";
    for (const auto &each : std::filesystem::directory_iterator{folder}) {
        std::fprintf(stderr, "%s\n", each.path().c_str()); // the last one, if the process ends
        std::ifstream file{each.path(), std::ios::binary};
        const fuzz::octets input{std::istreambuf_iterator<char>{file}, {}};
        of.run(input);
    }
}

} // namespace test

#endif
