// SPDX-License-Identifier: LGPL-2.1-or-later
// What measuring memory needs.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

// What is freed stays with the process, so that storing finds memory that was used before, much of
// it or little.
inline void keep_freed_memory()
{
    mallopt(M_TRIM_THRESHOLD, -1);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
}

inline double heap_in_use()
{
    const auto heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

// What a function answers in a process of its own; below 0 when that failed.
template <class Work>
double in_child(Work work)
{
    double answer = -1;
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        return answer;
    const pid_t child = fork();
    if (child == 0) {
        answer = work();
        const bool sent = write(ends[1], &answer, sizeof answer) == sizeof answer;
        _exit(sent ? 0 : 1);
    }
    close(ends[1]);
    if (child < 0 || read(ends[0], &answer, sizeof answer) != sizeof answer)
        answer = -1;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return answer;
}

// Puts other memory into the processor's caches. What a round freed a moment ago would else be
// there still when the next one takes it, if it is little.
inline void fill_caches()
{
    static std::vector<std::uint8_t> other(std::size_t{64} << 20);
    for (std::size_t at = 0; at < other.size(); at += 64)
        ++other[at];
    benchmark::ClobberMemory();
}

} // namespace bench

#endif
