// SPDX-License-Identifier: LGPL-2.1-or-later
// Where the bytes of a stream come from: a file, anything that is read like a pipe, or datagrams.
#ifndef DEMUX_ORVA_DEMUX_INPUT_H
#define DEMUX_ORVA_DEMUX_INPUT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "orva_demux.h"
#include "orva_demux_datagrams.h"
#include "orva_si_bytes.h"

namespace si::demux {

using steady = std::chrono::steady_clock;

// Synchronisation must be found within the first mebibyte.
inline constexpr std::size_t probe_bytes = std::size_t{1} << 20;

struct input {
    int fd = -1;
    int wake[2] = {-1, -1}; // a pipe of our own: readable once reading is to stop
    bool regular = false;   // a file: knows its size, never makes its reader wait
    bool ended = false;
    std::optional<datagram_receiver> datagrams; // what comes is lost unless it is taken at once
    std::uint64_t start = 0;                    // offset in a file at which reading began
    std::uint64_t size = 0;                     // of a file from there; 0: not known
    std::uint64_t read = 0;                     // bytes so far; relaxed
    std::vector<std::uint8_t> buffer;
    std::size_t begin = 0; // what is read and not consumed
    std::size_t end = 0;

    input() = default;
    input(const input &) = delete;
    input &operator=(const input &) = delete;
    ~input();
};

// Opens a path, "-", or an address of datagrams; a regular file is read up to probe_bytes and must
// be a transport stream.
OrvaDemuxError open_input(input &in, const char *name);

enum class read_result { data, timeout, end, failed };

// Reads more bytes behind those that are left. All but a file is waited for until the given time,
// or until wake_input.
read_result read_more(input &in, steady::time_point until);

// Makes read_more return, now and from now on. Any thread.
void wake_input(input &in);

// How far behind the start of reading the window begins.
inline std::uint64_t window_position(const input &in)
{
    return in.read - (in.end - in.begin);
}

inline bytes window(const input &in)
{
    return bytes{in.buffer}.subspan(in.begin, in.end - in.begin);
}
inline void consume(input &in, std::size_t count)
{
    in.begin += count;
}

} // namespace si::demux

#endif
