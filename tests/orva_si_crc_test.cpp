// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orva_si_crc.h"
#include "support/sections.h"

namespace si {

void PrintTo(const crc_way &way, std::ostream *to)
{
    *to << way.name;
}

} // namespace si

namespace {

// By the definition, a bit a step (ISO/IEC 13818-1, annex A).
std::uint32_t bit_by_bit(si::bytes of)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : of)
        for (int bit = 7; bit >= 0; --bit) {
            const bool carry = (crc >> 31 != 0) != ((byte >> bit & 1) != 0);
            crc = crc << 1 ^ (carry ? 0x04C11DB7 : 0);
        }
    return crc;
}

// Initialised before main.
const std::uint32_t before_main = [] {
    static constexpr std::uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    return si::crc32_mpeg(digits);
}();

std::vector<std::uint8_t> random_bytes(std::size_t size, unsigned seed)
{
    std::mt19937 random{seed};
    std::vector<std::uint8_t> made(size);
    std::ranges::generate(made, [&] { return static_cast<std::uint8_t>(random()); });
    return made;
}

// Every way that this processor has, and the one that is chosen. They must differ in nothing.
class Crc : public testing::TestWithParam<si::crc_way> {
protected:
    void SetUp() override
    {
        if (!GetParam().runs_here())
            GTEST_SKIP() << "not on this processor";
    }
    std::uint32_t crc(si::bytes of) const { return GetParam().crc(of); }
};

std::vector<si::crc_way> all_ways()
{
    std::vector<si::crc_way> ways{si::crc_ways().begin(), si::crc_ways().end()};
    ways.push_back({"chosen", si::crc32_mpeg, [] { return true; }});
    return ways;
}

INSTANTIATE_TEST_SUITE_P(Ways, Crc, testing::ValuesIn(all_ways()),
                         [](const auto &way) { return std::string{way.param.name}; });

TEST_P(Crc, OfTheCheckDigits)
{
    const std::string_view digits{"123456789"}; // the check value of CRC-32/MPEG-2
    const std::vector<std::uint8_t> check{digits.begin(), digits.end()};
    EXPECT_EQ(crc(check), 0x0376E6E7u);
}

TEST_P(Crc, OfEveryLength)
{
    const auto data = random_bytes(5000, 1);
    std::uint32_t expected = 0xFFFFFFFF; // bit_by_bit, one byte more each time
    for (std::size_t size = 0; size <= data.size(); ++size) {
        ASSERT_EQ(crc({data.data(), size}), expected) << size;
        if (size == data.size())
            break;
        expected ^= static_cast<std::uint32_t>(data[size]) << 24;
        for (int bit = 0; bit < 8; ++bit)
            expected = expected << 1 ^ (expected >> 31 != 0 ? 0x04C11DB7 : 0);
    }
}

TEST_P(Crc, OfEveryLengthAtEveryAlignment)
{
    const auto data = random_bytes(640, 2);
    for (std::size_t at = 0; at < 64; ++at)
        for (std::size_t size = 0; size <= 512; ++size)
            ASSERT_EQ(crc({data.data() + at, size}), bit_by_bit({data.data() + at, size}))
                << at << ' ' << size;
}

TEST_P(Crc, OfBytesThatAreAllAlike)
{
    for (const std::uint8_t value : test::octets{0x00, 0xFF, 0x80, 0x01, 0x47})
        for (std::size_t size = 0; size < 600; ++size) {
            const std::vector<std::uint8_t> data(size, value);
            ASSERT_EQ(crc(data), bit_by_bit(data)) << int{value} << ' ' << size;
        }
}

TEST_P(Crc, OfASingleBitAnywhere)
{
    std::vector<std::uint8_t> data(200, 0);
    for (std::size_t bit = 0; bit < data.size() * 8; ++bit) {
        data[bit / 8] = static_cast<std::uint8_t>(0x80 >> bit % 8);
        ASSERT_EQ(crc(data), bit_by_bit(data)) << bit;
        data[bit / 8] = 0;
    }
}

TEST_P(Crc, OfUndamagedSectionsIsZero)
{
    for (std::size_t size = 0; size < 4000; size += 37)
        ASSERT_EQ(crc(test::make(
                      test::private_table{.table_id = 0x80, .payload = test::octets(size, 0x5A)})),
                  0u)
            << size;
}

// The sanitizer sees a read outside: the bytes fill their allocation.
TEST_P(Crc, ReadsNoByteOutside)
{
    const auto data = random_bytes(300, 3);
    for (std::size_t size = 1; size <= data.size(); ++size) {
        const auto exact = std::make_unique<std::uint8_t[]>(size);
        std::memcpy(exact.get(), data.data(), size);
        ASSERT_EQ(crc({exact.get(), size}), bit_by_bit({data.data(), size})) << size;
    }
}

TEST(CrcChoice, IsMadeBeforeMainToo)
{
    EXPECT_EQ(before_main, 0x0376E6E7u);
}

TEST(CrcChoice, TheLastWayRunsEverywhere)
{
    ASSERT_FALSE(si::crc_ways().empty());
    EXPECT_TRUE(si::crc_ways().back().runs_here());
    EXPECT_STREQ(si::crc_ways().back().name, "tables");
}

} // namespace
