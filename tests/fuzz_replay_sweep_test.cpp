// SPDX-License-Identifier: LGPL-2.1-or-later
// Every seed of the fuzzers through the dispatcher with each byte at every value, cut at each
// length, with a byte more or less at each place, and with each length field at every value, the
// CRC_32 right each time: alone, and as what
// follows upon the good section. Each time all getters of its kind of table are asked.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "fakes/platform.h"
#include "getters.h"
#include "outline.h"
#include "seeds.h"
#include "support/effort.h"

namespace {

class FuzzSweep : public testing::TestWithParam<std::size_t> {
protected:
    FuzzSweep() { fake::set_log_level(0); }
    ~FuzzSweep() override { RecordProperty("inputs", static_cast<int>(inputs)); }
    FuzzSweep(const FuzzSweep &) = delete;
    FuzzSweep &operator=(const FuzzSweep &) = delete;

    // The bodies end the process at the first broken promise.
    void ask(fuzz::bytes section)
    {
        fuzz::deliver(pid, section);
        fuzz::ask_about(good[0], fuzz::room::quick);
        ++inputs;
    }
    void ask_alone(fuzz::bytes section)
    {
        fuzz::begin_anew();
        ask(section);
    }
    void ask_alone_and_behind_the_good_one(fuzz::bytes section)
    {
        ask_alone(section);
        fuzz::begin_anew();
        fuzz::deliver(pid, good);
        ask(section);
    }

    const fuzz::octets good = fuzz::seed_sections().at(GetParam());
    const std::uint16_t pid = fuzz::pid_of(good[0]);
    std::size_t inputs = 0;
};

TEST_P(FuzzSweep, EachByteAtEveryValue)
{
    constexpr std::size_t crc_bytes = 4;
    for (std::size_t at = 0; at + crc_bytes < good.size(); ++at)
        for (unsigned value = 0; value <= 0xFF; value += test::sweep_step) {
            fuzz::octets changed = good;
            changed[at] = static_cast<std::uint8_t>(value);
            fuzz::repair_crc(changed);
            ask_alone_and_behind_the_good_one(changed);
        }
    EXPECT_GE(inputs, (good.size() - crc_bytes) * 2 * (256 / test::sweep_step));
}

TEST_P(FuzzSweep, CutAtEachLength)
{
    for (std::size_t size = 0; size < good.size(); ++size) {
        fuzz::octets cut{good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)};
        ask_alone(cut); // which claims more than there is
        fuzz::repair_length(cut);
        ask_alone(cut);
        fuzz::repair_crc(cut);
        ask_alone_and_behind_the_good_one(cut);
    }
    EXPECT_EQ(inputs, good.size() * 4);
}

// What follows is out of step with the lengths of the loops and descriptors around it.
TEST_P(FuzzSweep, AByteMoreOrLessAtEachPlace)
{
    constexpr std::ptrdiff_t first = 3; // behind section_length
    constexpr std::ptrdiff_t crc_bytes = 4;
    const auto ask_repaired = [&](fuzz::octets changed) {
        fuzz::repair_length(changed);
        fuzz::repair_crc(changed);
        ask_alone_and_behind_the_good_one(changed);
    };
    for (std::ptrdiff_t at = first; at < std::ssize(good) - crc_bytes; ++at) {
        fuzz::octets less = good;
        less.erase(less.begin() + at);
        ask_repaired(less);
        for (unsigned value = 0; value <= 0xFF; value += std::max(3U, test::sweep_step)) {
            fuzz::octets more = good;
            more.insert(more.begin() + at, static_cast<std::uint8_t>(value));
            ask_repaired(more);
        }
    }
    EXPECT_GT(inputs, good.size());
}

TEST_P(FuzzSweep, EachLengthFieldAtEveryValue)
{
    const fuzz::outline is = fuzz::outline_of(good);
    for (const std::size_t at : is.lengths)
        for (std::size_t value = 0; value <= 0xFFF; value += test::sweep_step) {
            fuzz::octets changed = good;
            fuzz::set_length12(changed, at, value);
            if (at == 1) // what it claims is there, and its CRC_32 is where that ends
                changed.resize(value + 3, 0xFF);
            fuzz::repair_crc(changed);
            ask_alone_and_behind_the_good_one(changed);
        }
    EXPECT_GE(inputs, is.lengths.size() * 2 * (4096 / test::sweep_step));
}

INSTANTIATE_TEST_SUITE_P(Seeds, FuzzSweep,
                         testing::Range<std::size_t>(0, fuzz::seed_sections().size()));

} // namespace
