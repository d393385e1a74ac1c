// SPDX-License-Identifier: LGPL-2.1-or-later
// Streams in datagrams: addresses, headers of RTP, and sections that come over a socket.
#include <sys/socket.h>

#include "demux/client.h"
#include "orva_demux_datagrams.h"
#include "support/datagrams.h"

using namespace test;
using si::demux::datagram_address_of;
using si::demux::rtp_order;
using si::demux::stream_in;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// ---- Addresses

TEST(DatagramAddress, IsReadFromAUrl)
{
    struct {
        const char *url, *host, *port;
    } const all[] = {
        {"udp://@239.1.2.3:5004", "239.1.2.3", "5004"},
        {"udp://239.1.2.3:1", "239.1.2.3", "1"},
        {"rtp://@239.1.2.3:65535", "239.1.2.3", "65535"},
        {"udp://:1234", "", "1234"},
        {"udp://@:1234", "", "1234"},
        {"udp://localhost:1234", "localhost", "1234"},
        {"udp://@[ff05::1]:1234", "ff05::1", "1234"},
        {"udp://[::]:1234", "::", "1234"},
    };
    for (const auto &each : all) {
        const auto read = datagram_address_of(each.url);
        ASSERT_TRUE(read.has_value()) << each.url;
        EXPECT_EQ(read->host, each.host) << each.url;
        EXPECT_EQ(read->port, each.port) << each.url;
    }
}

TEST(DatagramAddress, OtherFormsAreNone)
{
    for (const char *url :
         {"", "file.ts", "udp:/239.1.2.3:1", "http://239.1.2.3:1", "udp://", "udp://239.1.2.3",
          "udp://239.1.2.3:", "udp://239.1.2.3:0", "udp://239.1.2.3:65536", "udp://239.1.2.3:1x",
          "udp://239.1.2.3:-1", "udp://239.1.2.3:+1", "udp://239.1.2.3: 1", "udp://ff05::1:1234",
          "udp://[ff05::1:1234", "udp://1.2.3.4@239.1.2.3:1", "udp://239.1.2.3:1/",
          "udp://239.1.2.3/x:1", "udp://a?b:1"})
        EXPECT_FALSE(datagram_address_of(url).has_value()) << url;
}

// ---- RTP

octets rtp(std::uint16_t number, const octets &payload, std::uint8_t first = 0x80,
           const octets &behind_header = {})
{
    octets packet{first, 33, static_cast<std::uint8_t>(number >> 8),
                  static_cast<std::uint8_t>(number & 0xFF)};
    packet.resize(12, 0x47);
    packet.insert(packet.end(), behind_header.begin(), behind_header.end());
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

octets carried(const octets &datagram)
{
    rtp_order order;
    const si::bytes found = stream_in(order, datagram);
    return {found.begin(), found.end()};
}

const octets packets = octets(2 * ts_packet, 0x47);

TEST(Rtp, HeadersAreTakenOff)
{
    EXPECT_EQ(carried(rtp(1, packets)), packets);
    const octets sources(4 * 3, 0x11);
    EXPECT_EQ(carried(rtp(1, packets, 0x83, sources)), packets);
    const octets extension{0xBE, 0xDE, 0x00, 0x02, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(carried(rtp(1, packets, 0x90, extension)), packets);
    octets both = sources;
    both.insert(both.end(), extension.begin(), extension.end());
    EXPECT_EQ(carried(rtp(1, packets, 0x93, both)), packets);
}

TEST(Rtp, PaddingIsTakenOff)
{
    octets padded = packets;
    padded.insert(padded.end(), {0, 0, 3});
    EXPECT_EQ(carried(rtp(1, padded, 0xA0)), packets);
    padded.back() = 0xFF;
    EXPECT_THAT(carried(rtp(1, {0x47, 0xFF}, 0xA0)), IsEmpty()); // more than there is
}

TEST(Rtp, WhatIsNoneIsLeftAlone)
{
    octets other_version = rtp(1, packets);
    other_version[0] = 0x40;
    const octets longest_extension{0xBE, 0xDE, 0xFF, 0xFF};
    for (const octets &datagram :
         {packets, octets{}, octets{0x47}, octets{0x80}, other_version, rtp(1, {}),
          rtp(1, {0x00, 0x47}), rtp(1, packets, 0x90, longest_extension), rtp(1, {0x47}, 0x8F),
          rtp(1, {0x47, 0x47, 0x47}, 0x90)})
        EXPECT_EQ(carried(datagram), datagram);
}

TEST(Rtp, NothingIsReadBehindADatagram)
{
    octets whole = rtp(1, packets, 0xB3, octets(4 * 3 + 4 + 8, 0));
    whole[12 + 4 * 3 + 3] = 2;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const octets part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(carried(part).size(), size);
    }
}

TEST(Rtp, LateAndRepeatedPacketsAreDropped)
{
    rtp_order order;
    const auto taken = [&](std::uint16_t number) { return order.takes(number); };
    EXPECT_TRUE(taken(65534));
    EXPECT_TRUE(taken(65535));
    EXPECT_FALSE(taken(65535));
    EXPECT_TRUE(taken(0));
    EXPECT_TRUE(taken(5)); // four are lost
    EXPECT_FALSE(taken(3));
    EXPECT_FALSE(taken(65535));
    EXPECT_TRUE(taken(6));
}

TEST(Rtp, ASenderThatBeginsAnewIsFollowed)
{
    rtp_order order;
    EXPECT_TRUE(order.takes(30000));
    EXPECT_TRUE(order.takes(100));
    EXPECT_TRUE(order.takes(101));
}

// ---- Over a socket

class Datagrams : public DemuxClient {
protected:
    stream pats(unsigned count)
    {
        stream ts;
        ts.continuity = continuity;
        for (unsigned i = 0; i < count; ++i)
            ts.section(0, a_pat);
        continuity = ts.continuity;
        return ts;
    }
    // Until so many sections came to a filter: what is sent before it is heard is lost.
    bool comes(std::uint32_t filter, std::size_t sections_wanted,
               const std::function<void()> &send_more)
    {
        return eventually([&] {
            send_more();
            std::this_thread::sleep_for(5ms);
            return sections(filter).size() >= sections_wanted;
        });
    }

    datagram_sender sender;
    const octets a_pat = make(pat{.ts = 1, .programs = {{1, 0x100}}});
    std::map<std::uint16_t, std::uint8_t> continuity;
};

TEST_F(Datagrams, BringSections)
{
    open(sender.url());
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(comes(id, 50, [&] { sender.send_packets(pats(14).bytes); }));
    EXPECT_EQ(sections(id).front(), a_pat);
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
    EXPECT_EQ(status().packet_size, 188u);
    EXPECT_EQ(status().input_bytes, 0u);
    EXPECT_EQ(status().crc_errors, 0u);
}

TEST_F(Datagrams, BringSectionsByRtp)
{
    open(sender.url("rtp"));
    const std::uint32_t id = arm(on_pid(0));
    std::uint16_t number = 65530;
    ASSERT_TRUE(comes(id, 50, [&] {
        const octets packet = rtp(number++, pats(7).bytes);
        sender.send(packet);
        sender.send(packet); // which a network may do
    }));
    EXPECT_EQ(status().continuity_errors, 0u);
    EXPECT_EQ(status().duplicates, 0u);
    EXPECT_EQ(status().sync_losses, 0u);
}

// A repeated section is given again, and a filter armed late hears what is sent from then on.
TEST_F(Datagrams, AreABroadcast)
{
    open(sender.url());
    const std::uint32_t first = arm(on_pid(0));
    ASSERT_TRUE(comes(first, 20, [&] { sender.send_packets(pats(7).bytes); }));
    const std::uint32_t late = arm(on_pid(0));
    ASSERT_TRUE(comes(late, 20, [&] { sender.send_packets(pats(7).bytes); }));
}

TEST_F(Datagrams, AreNotWaitedWith)
{
    fake::pending = 10000;
    open(sender.url());
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(comes(id, 20, [&] { sender.send_packets(pats(7).bytes); }));
    EXPECT_GE(status().congested, 20u);
}

TEST_F(Datagrams, OfAnyLengthAreTaken)
{
    open(sender.url());
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(comes(id, 100, [&] {
        sender.send({});
        sender.send(pats(300).bytes); // 56 KB
        sender.send(pats(1).bytes);
    }));
    EXPECT_EQ(status().sync_losses, 0u);
}

TEST_F(Datagrams, ThatAreNoStreamEndTheInput)
{
    open(sender.url());
    arm(on_pid(0));
    const octets noise(50000, 0x11);
    EXPECT_TRUE(eventually([&] {
        sender.send(noise);
        return status().state == ORVA_DEMUX_FAILED;
    }));
    EXPECT_EQ(status().error, ORVA_DEMUX_NOT_TS);
}

TEST_F(Datagrams, ThatNeverComeHoldNobodyUp)
{
    open(sender.url());
    arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_READING));
    const auto before = steady::now();
    close();
    EXPECT_LT(steady::now() - before, at_once);
}

TEST_F(Datagrams, OfAForeignAddressCannotBeHad)
{
    for (const std::string url : {"udp://192.0.2.1:5004", "udp://no-such-host.invalid:5004"}) {
        OrvaDemuxError error{};
        errno = 0;
        EXPECT_EQ(orva_demux_open(url.c_str(), nullptr, &error), nullptr);
        EXPECT_EQ(error, ORVA_DEMUX_NO_INPUT);
        EXPECT_EQ(errno, EADDRNOTAVAIL) << url;
    }
}

TEST_F(Datagrams, OfAMulticastGroupAreHeard)
{
    OrvaDemuxError error{};
    const std::string url = "udp://@239.255.77.77:" + sender.port();
    demux = orva_demux_open(url.c_str(), nullptr, &error);
    if (demux == nullptr && (errno == ENODEV || errno == ENETUNREACH || errno == ENOPROTOOPT))
        GTEST_SKIP() << "no route for multicast, or an emulator that does not know of it";
    ASSERT_NE(demux, nullptr) << orva_demux_error_text(error);
    const std::uint32_t id = arm(on_pid(0));
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_addr.s_addr = htonl(0xEFFF4D4D);
    group.sin_port = htons(static_cast<std::uint16_t>(std::stoi(sender.port())));
    EXPECT_TRUE(comes(id, 5, [&] {
        const octets some = pats(7).bytes;
        static_cast<void>(sendto(fd, some.data(), some.size(), 0,
                                 reinterpret_cast<const sockaddr *>(&group), sizeof group));
    }));
    ::close(fd);
}

} // namespace
