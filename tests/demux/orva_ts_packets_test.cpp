// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>

#include <vector>

#include "demux/pending.h"
#include "demux/stream.h"
#include "orva_ts_packets.h"

using namespace si::demux;
using test::octets;
using testing::ElementsAre;

namespace {

// Numbered packets: PID 0x100, the payload is the number throughout.
test::stream numbered(unsigned count, unsigned first = 0)
{
    test::stream ts;
    for (unsigned i = first; i < first + count; ++i)
        ts.packet(0x100, octets(test::ts_payload, static_cast<std::uint8_t>(i)));
    return ts;
}

octets join(std::initializer_list<octets> parts)
{
    octets all;
    for (const octets &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Reads a stream in windows of a given size, as a reader would, and answers the numbers of its
// packets.
std::vector<unsigned> read_numbers(packet_sync &sync, const octets &stream, std::size_t step)
{
    std::vector<unsigned> numbers;
    octets window;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t more = std::min(step, stream.size() - at);
        window.insert(window.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                      stream.begin() + static_cast<std::ptrdiff_t>(at + more));
        at += more;
        const std::size_t done = take_packets(sync, window, at == stream.size(), [&](packet p) {
            EXPECT_EQ((p[1] & 0x1F) << 8 | p[2], 0x100); // read from where the packet begins
            numbers.push_back(p[100]);
            return true;
        });
        window.erase(window.begin(), window.begin() + static_cast<std::ptrdiff_t>(done));
    }
    return numbers;
}

std::vector<unsigned> read_numbers(const octets &stream)
{
    packet_sync sync;
    return read_numbers(sync, stream, stream.size());
}

std::vector<unsigned> counting(unsigned count)
{
    std::vector<unsigned> numbers(count);
    for (unsigned i = 0; i < count; ++i)
        numbers[i] = i;
    return numbers;
}

class Periods : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Packets, Periods, testing::Values(188, 192, 204));

TEST_P(Periods, AreDetected)
{
    packet_sync sync;
    const octets stream = numbered(20).spaced(GetParam());
    EXPECT_EQ(read_numbers(sync, stream, stream.size()), counting(20));
    EXPECT_EQ(sync.period, GetParam());
    EXPECT_EQ(sync.packets, 20u);
    EXPECT_EQ(sync.losses, 0u);
}

TEST_P(Periods, AreTheSameInWindowsOfEverySize)
{
    const octets stream = numbered(20).spaced(GetParam());
    for (const std::size_t step : {1u, 7u, 187u, 188u, 189u, 204u, 1000u}) {
        packet_sync sync;
        EXPECT_EQ(read_numbers(sync, stream, step), counting(20)) << step;
        EXPECT_EQ(sync.losses, 0u) << step;
    }
}

TEST_P(Periods, GoOnBehindMissingBytes)
{
    octets stream = numbered(20).spaced(GetParam());
    const std::size_t at = 6 * GetParam() + 50;
    stream.erase(stream.begin() + static_cast<std::ptrdiff_t>(at),
                 stream.begin() + static_cast<std::ptrdiff_t>(at + 30));
    for (const std::size_t step : {stream.size(), std::size_t{100}}) {
        packet_sync sync;
        const std::vector<unsigned> found = read_numbers(sync, stream, step);
        ASSERT_EQ(found.size(), 19u) << step; // the shortened one takes the start of the next along
        EXPECT_EQ(found[6], 6u);
        EXPECT_EQ(found[7], 8u);
        EXPECT_EQ(found.back(), 19u);
        EXPECT_EQ(sync.losses, 1u);
    }
}

TEST(Synchronisation, IsFoundBehindGarbage)
{
    packet_sync sync;
    octets garbage(333, 0x47); // sync bytes, but none that others confirm
    for (std::size_t i = 0; i < garbage.size(); i += 3)
        garbage[i] = 0x11;
    const octets stream = join({garbage, octets(1000, 0), numbered(10).bytes});
    EXPECT_EQ(read_numbers(sync, stream, stream.size()), counting(10));
    EXPECT_EQ(sync.skipped, 1333u);
    EXPECT_EQ(sync.losses, 0u);
}

TEST(Synchronisation, SkipsOnePacketWithADamagedSyncByte)
{
    packet_sync sync;
    octets stream = numbered(10).bytes;
    stream[6 * 188] = 0x46;
    EXPECT_EQ(read_numbers(sync, stream, stream.size()),
              (std::vector<unsigned>{0, 1, 2, 3, 4, 5, 7, 8, 9}));
    EXPECT_EQ(sync.losses, 1u);
    EXPECT_EQ(sync.packets, 9u);
}

TEST(Synchronisation, IsFoundAgainBehindForeignBytes)
{
    packet_sync sync;
    const octets stream = join({numbered(6).bytes, octets(1000, 0xAA), numbered(6, 6).bytes});
    EXPECT_EQ(read_numbers(sync, stream, stream.size()), counting(12));
    EXPECT_EQ(sync.losses, 1u);
}

TEST(Synchronisation, IsLostAtACutEndOnlyOfTheCutPacket)
{
    packet_sync sync;
    octets stream = numbered(8).bytes;
    stream.resize(stream.size() - 60);
    EXPECT_EQ(read_numbers(sync, stream, stream.size()), counting(7));
    EXPECT_EQ(sync.losses, 0u);
}

TEST(ShortStreams, CountWhenTheyArePacketsFromTheFirstByte)
{
    EXPECT_THAT(read_numbers(numbered(1).bytes), ElementsAre(0));
    EXPECT_THAT(read_numbers(numbered(2).bytes), ElementsAre(0, 1));
    EXPECT_THAT(read_numbers(numbered(4).spaced(204)), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(read_numbers(numbered(3).spaced(192)), ElementsAre(0, 1, 2));
}

TEST(ShortStreams, AreNotMadeOfAnyByteThatLooksLikeSync)
{
    EXPECT_THAT(read_numbers(join({octets(30, 'x'), numbered(2).bytes})), ElementsAre());
    octets text(700, 'G'); // a sync byte everywhere
    for (std::size_t i = 0; i < text.size(); i += 188)
        text[i] = 'x';
    for (std::size_t i = 0; i < text.size(); i += 4)
        text[i] = 'x';
    text[0] = 'G';
    EXPECT_THAT(read_numbers(text), ElementsAre());
    EXPECT_THAT(read_numbers(octets{0x47}), ElementsAre());
}

TEST(Reading, StopsWhenTheVisitorSaysSo)
{
    packet_sync sync;
    const octets stream = numbered(10).bytes;
    unsigned seen = 0;
    const std::size_t done = take_packets(sync, stream, true, [&](packet) { return ++seen < 3; });
    EXPECT_EQ(seen, 3u);
    EXPECT_EQ(done, 3 * 188u);
}

} // namespace
