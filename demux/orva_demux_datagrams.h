// SPDX-License-Identifier: LGPL-2.1-or-later
// Transport streams that come in datagrams: whole packets of a stream in each (ETSI TS 102 034,
// 7.1), alone (UDP) or behind the header of RTP (RFC 3550; RFC 2250 for transport streams).
#ifndef DEMUX_ORVA_DEMUX_DATAGRAMS_H
#define DEMUX_ORVA_DEMUX_DATAGRAMS_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orva_demux.h"
#include "orva_si_bytes.h"

namespace si::demux {

// Where datagrams are sent to.
struct datagram_address {
    std::string host; // empty: any address of this machine
    std::string port; // 1 to 65535
};

// Reads "udp://[@]host:port" or "rtp://[@]host:port", an IPv6 address in brackets; nothing for
// other forms.
std::optional<datagram_address> datagram_address_of(std::string_view url);

// A socket that datagrams to the address come to; of a multicast group it is made a member.
// Negative on failure, with errno.
int open_datagram_socket(const datagram_address &address);

// The order of RTP packets of one sender.
struct rtp_order {
    std::optional<std::uint16_t> next; // sequence number

    // Whether a packet is not behind one that came already. One that is far from its place begins
    // anew: the sender has.
    bool takes(std::uint16_t sequence_number);
};

// What a datagram carries of the stream. A header of RTP tells itself, whatever the URL says: the
// synchronisation byte of a packet (0x47) is no first byte of RTP. Empty for what comes too late.
bytes stream_in(rtp_order &order, bytes datagram);

// Takes the datagrams that wait at a socket, several with one call.
class datagram_receiver {
public:
    explicit datagram_receiver(int of) : fd{of} {}

    // Puts what they carry at the front of the room, if need be nothing. Answers how many bytes
    // that is; negative on failure, with errno.
    ssize_t receive(std::span<std::uint8_t> room);

private:
    static constexpr std::size_t longest = 65536; // more than any datagram has
    static constexpr std::size_t at_once = 16;

    int fd;
    rtp_order order;
    std::vector<std::uint8_t> taken = std::vector<std::uint8_t>(longest * at_once);
};

} // namespace si::demux

#endif
