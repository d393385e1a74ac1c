// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_datagrams.h"

#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>

#include "orva_ts_packets.h"

namespace si::demux {
namespace {

// ---- Addresses

bool is_port(std::string_view text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() && number >= 1 &&
           number <= 65535;
}

// ---- Sockets

constexpr int wanted_buffer_bytes = 4 << 20; // most of a second of a multiplex

struct address_release {
    void operator()(addrinfo *of) const { freeaddrinfo(of); }
};
using addresses = std::unique_ptr<addrinfo, address_release>;

addresses resolved(const datagram_address &address)
{
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    const char *host = address.host.empty() ? nullptr : address.host.c_str();
    const int error = getaddrinfo(host, address.port.c_str(), &hints, &found);
    if (error != 0 && error != EAI_SYSTEM)
        errno = EADDRNOTAVAIL;
    return addresses{error == 0 ? found : nullptr};
}

bool is_multicast(const sockaddr &address)
{
    if (address.sa_family == AF_INET)
        return IN_MULTICAST(ntohl(reinterpret_cast<const sockaddr_in &>(address).sin_addr.s_addr));
    return address.sa_family == AF_INET6 &&
           IN6_IS_ADDR_MULTICAST(&reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr);
}

bool join(int fd, const addrinfo &group)
{
    const bool is_ipv6 = group.ai_family == AF_INET6;
    group_req request{};
    if (is_ipv6) // "%eth0" behind the address; else the interface is the routing table's choice
        request.gr_interface = reinterpret_cast<const sockaddr_in6 *>(group.ai_addr)->sin6_scope_id;
    std::memcpy(&request.gr_group, group.ai_addr, group.ai_addrlen);
    return setsockopt(fd, is_ipv6 ? int{IPPROTO_IPV6} : int{IPPROTO_IP}, MCAST_JOIN_GROUP, &request,
                      sizeof request) == 0;
}

bool listen_to(int fd, const addrinfo &address)
{
    const int yes = 1; // others may watch the same stream
    static_cast<void>(setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
    static_cast<void>(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &wanted_buffer_bytes,
                                 sizeof wanted_buffer_bytes)); // or as much as the system gives
    return bind(fd, address.ai_addr, address.ai_addrlen) == 0 &&
           (!is_multicast(*address.ai_addr) || join(fd, address));
}

// ---- RTP

constexpr std::size_t rtp_header = 12;

// Where the payload of RTP begins: behind the contributing sources and the extension; nothing
// where they do not fit.
std::optional<std::size_t> begin_of_payload(bytes packet)
{
    const std::size_t sources = packet[0] & 0x0Fu;
    std::size_t at = rtp_header + 4 * sources;
    if ((packet[0] & 0x10) != 0) {
        constexpr std::size_t extension_header = 4;
        if (packet.size() < at + extension_header)
            return std::nullopt;
        at += extension_header + 4u * be16(packet.subspan(at + 2).first<2>());
    }
    return at < packet.size() ? std::optional{at} : std::nullopt;
}

// The payload of an RTP packet of version 2; nothing for what is none, or carries no stream.
std::optional<bytes> rtp_payload(bytes packet)
{
    if (packet.size() < rtp_header || packet[0] >> 6 != 2)
        return std::nullopt;
    const std::optional<std::size_t> begin = begin_of_payload(packet);
    if (!begin || packet[*begin] != sync_byte)
        return std::nullopt;
    const bytes payload = packet.subspan(*begin);
    const std::size_t padding = (packet[0] & 0x20) != 0 ? payload.back() : 0u;
    return payload.first(payload.size() - std::min(padding, payload.size()));
}

} // namespace

std::optional<datagram_address> datagram_address_of(std::string_view url)
{
    if (!url.starts_with("udp://") && !url.starts_with("rtp://"))
        return std::nullopt;
    url.remove_prefix(6);
    if (url.starts_with('@'))
        url.remove_prefix(1);
    const std::size_t colon = url.rfind(':');
    if (colon == std::string_view::npos || !is_port(url.substr(colon + 1)))
        return std::nullopt;
    std::string_view host = url.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    else if (host.find_first_of(":[]") != std::string_view::npos)
        return std::nullopt;
    if (host.find_first_of("@/?# ") != std::string_view::npos)
        return std::nullopt;
    return datagram_address{std::string{host}, std::string{url.substr(colon + 1)}};
}

int open_datagram_socket(const datagram_address &address)
{
    const addresses found = resolved(address);
    if (found == nullptr)
        return -1;
    const int fd = socket(found->ai_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || listen_to(fd, *found))
        return fd;
    const int reason = errno;
    close(fd);
    errno = reason;
    return -1;
}

bool rtp_order::takes(std::uint16_t sequence_number)
{
    constexpr int far = 1000;
    const int ahead =
        next ? static_cast<std::int16_t>(static_cast<std::uint16_t>(sequence_number - *next)) : 0;
    if (ahead < 0 && ahead > -far)
        return false;
    next = static_cast<std::uint16_t>(sequence_number + 1);
    return true;
}

bytes stream_in(rtp_order &order, bytes datagram)
{
    const std::optional<bytes> payload = rtp_payload(datagram);
    if (!payload)
        return datagram;
    return order.takes(be16(datagram.subspan<2, 2>())) ? *payload : bytes{};
}

ssize_t datagram_receiver::receive(std::span<std::uint8_t> room)
{
    std::array<iovec, at_once> places{};
    std::array<mmsghdr, at_once> messages{};
    for (std::size_t i = 0; i < at_once; ++i) {
        places[i] = {taken.data() + i * longest, longest};
        messages[i].msg_hdr.msg_iov = &places[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    // Only what there is room for, whatever its length.
    const std::size_t most = std::clamp<std::size_t>(room.size() / longest, 1, at_once);
    const int count = recvmmsg(fd, messages.data(), static_cast<unsigned>(most), 0, nullptr);
    if (count < 0)
        return -1;
    std::size_t used = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const std::size_t length = std::min<std::size_t>(messages[i].msg_len, longest);
        const bytes carried = stream_in(order, bytes{taken}.subspan(i * longest, length));
        if (carried.size() > room.size() - used)
            break; // which only a buffer can bring about that nobody empties
        std::ranges::copy(carried, room.subspan(used).begin());
        used += carried.size();
    }
    return static_cast<ssize_t>(used);
}

} // namespace si::demux
