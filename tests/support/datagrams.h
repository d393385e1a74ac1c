// SPDX-License-Identifier: LGPL-2.1-or-later
// Sends datagrams to a port of this machine.
#ifndef TESTS_SUPPORT_DATAGRAMS_H
#define TESTS_SUPPORT_DATAGRAMS_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

namespace test {

// To 127.0.0.1 and a port that nobody had.
class datagram_sender {
public:
    datagram_sender() : fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)}
    {
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        socklen_t size = sizeof to;
        EXPECT_EQ(bind(probe, address(), size), 0);
        EXPECT_EQ(getsockname(probe, address(), &size), 0);
        close(probe);
    }
    ~datagram_sender() { close(fd); }
    datagram_sender(const datagram_sender &) = delete;
    datagram_sender &operator=(const datagram_sender &) = delete;

    std::string port() const { return std::to_string(ntohs(to.sin_port)); }
    std::string url(const std::string &scheme = "udp") const
    {
        return scheme + "://127.0.0.1:" + port();
    }
    // Nobody need be there yet.
    void send(std::span<const std::uint8_t> datagram)
    {
        static_cast<void>(sendto(fd, datagram.data(), datagram.size(), 0, address(), sizeof to));
    }
    // As many whole packets in each as usually are.
    void send_packets(std::span<const std::uint8_t> packets)
    {
        constexpr std::size_t most = 7 * 188;
        for (; !packets.empty(); packets = packets.subspan(std::min(most, packets.size())))
            send(packets.first(std::min(most, packets.size())));
    }

private:
    sockaddr *address() { return reinterpret_cast<sockaddr *>(&to); }

    int fd;
    sockaddr_in to{};
};

} // namespace test

#endif
