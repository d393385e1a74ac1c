// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_input.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "orva_ts_packets.h"

namespace si::demux {
namespace {

constexpr std::size_t buffer_bytes = probe_bytes + 4 * sync_lookahead;

// What is read at once: it goes through the front of the buffer again and again, which stays in the
// cache. A mapped file would save the copy, but end the process when it is cut while it is read.
constexpr std::size_t chunk_bytes = std::size_t{256} << 10;

bool is_url(std::string_view name)
{
    return name.find("://") != std::string_view::npos;
}

// Standard input is duplicated, so that every input is closed alike.
int open_descriptor(std::string_view name)
{
    if (name == "-")
        return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    const std::string path{name};
    int fd = -1;
    do // a named pipe waits for its writer
        fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    while (fd < 0 && errno == EINTR);
    return fd;
}

void note_size(input &in, const struct stat &about)
{
    const off_t here = lseek(in.fd, 0, SEEK_CUR);
    if (here < 0)
        return;
    in.start = static_cast<std::uint64_t>(here);
    in.size = here < about.st_size ? static_cast<std::uint64_t>(about.st_size - here) : 0;
}

OrvaDemuxError probe(input &in)
{
    while (!in.ended && in.end < probe_bytes)
        if (read_more(in, steady::now()) == read_result::failed)
            return ORVA_DEMUX_NO_INPUT;
    if (in.end == 0)
        return ORVA_DEMUX_EMPTY;
    return find_sync(packet_sync{}, window(in), 0, in.ended).period != 0 ? ORVA_DEMUX_OK
                                                                         : ORVA_DEMUX_NOT_TS;
}

// What is left moves to the front; at most a few packets, or the buffer would be full of nothing
// but them.
void make_room(input &in)
{
    if (in.begin == 0)
        return;
    std::memmove(in.buffer.data(), in.buffer.data() + in.begin, in.end - in.begin);
    in.end -= in.begin;
    in.begin = 0;
}

int milliseconds_until(steady::time_point until)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - steady::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

// Waits for bytes of a pipe or socket. Its end and its failure count as bytes: read tells which it
// is.
read_result wait_for_bytes(const input &in, steady::time_point until)
{
    pollfd polled[2] = {{in.fd, POLLIN, 0}, {in.wake[0], POLLIN, 0}};
    const int ready = poll(polled, 2, milliseconds_until(until));
    if (ready < 0)
        return errno == EINTR ? read_result::timeout : read_result::failed;
    return ready > 0 && polled[0].revents != 0 && polled[1].revents == 0 ? read_result::data
                                                                         : read_result::timeout;
}

} // namespace

input::~input()
{
    for (const int descriptor : {fd, wake[0], wake[1]})
        if (descriptor >= 0)
            close(descriptor);
}

OrvaDemuxError open_input(input &in, const char *name)
{
    const std::string_view wanted{name != nullptr ? name : ""};
    const std::optional<datagram_address> address = datagram_address_of(wanted);
    if (wanted.empty() || (!address && is_url(wanted)))
        return ORVA_DEMUX_BAD_INPUT;
    in.fd = address ? open_datagram_socket(*address) : open_descriptor(wanted);
    struct stat about {};
    if (in.fd < 0 || fstat(in.fd, &about) != 0)
        return ORVA_DEMUX_NO_INPUT;
    if (S_ISDIR(about.st_mode)) {
        errno = EISDIR;
        return ORVA_DEMUX_NO_INPUT;
    }
    if (pipe2(in.wake, O_CLOEXEC | O_NONBLOCK) != 0)
        return ORVA_DEMUX_NO_MEMORY;
    in.buffer.resize(buffer_bytes);
    if (address)
        in.datagrams.emplace(in.fd);
    in.regular = S_ISREG(about.st_mode);
    if (!in.regular)
        return ORVA_DEMUX_OK;
    note_size(in, about);
    static_cast<void>(posix_fadvise(in.fd, 0, 0, POSIX_FADV_SEQUENTIAL));
    return probe(in);
}

read_result read_more(input &in, steady::time_point until)
{
    if (in.ended)
        return read_result::end;
    if (!in.regular)
        if (const read_result waited = wait_for_bytes(in, until); waited != read_result::data)
            return waited;
    make_room(in);
    const auto room = std::span{in.buffer}.subspan(in.end);
    const ssize_t count = in.datagrams
                              ? in.datagrams->receive(room)
                              : read(in.fd, room.data(), std::min(room.size(), chunk_bytes));
    if (count < 0)
        return errno == EINTR || errno == EAGAIN ? read_result::timeout : read_result::failed;
    in.ended = count == 0 && !in.datagrams;
    in.end += static_cast<std::size_t>(count);
    bump(in.read, static_cast<std::uint64_t>(count));
    return in.ended ? read_result::end : read_result::data;
}

void wake_input(input &in)
{
    const char any = 0;
    static_cast<void>(!write(in.wake[1], &any, 1));
}

} // namespace si::demux
