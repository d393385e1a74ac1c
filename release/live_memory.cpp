// SPDX-License-Identifier: LGPL-2.1-or-later
#include "live_memory.h"

#include <glib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>

namespace release {

namespace {

// Relaxed: counting must not order what a race detector is to find unordered.
std::atomic<std::ptrdiff_t> live_blocks{0};
std::atomic<std::ptrdiff_t> live_bytes{0};
std::atomic<std::size_t> allocated{0};

void enter(std::ptrdiff_t blocks, std::ptrdiff_t bytes)
{
    live_blocks.fetch_add(blocks, std::memory_order_relaxed);
    live_bytes.fetch_add(bytes, std::memory_order_relaxed);
}

} // namespace

ledger live()
{
    return {live_blocks.load(std::memory_order_relaxed),
            live_bytes.load(std::memory_order_relaxed)};
}

std::size_t allocations()
{
    return allocated.load(std::memory_order_relaxed);
}

std::size_t resident_kib()
{
    std::FILE *const statm = std::fopen("/proc/self/statm", "r");
    unsigned long size = 0;
    unsigned long resident = 0;
    if (statm == nullptr)
        return 0;
    if (std::fscanf(statm, "%lu %lu", &size, &resident) != 2)
        resident = 0;
    std::fclose(statm);
    return resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) / 1024;
}

} // namespace release

extern "C" {

gpointer __real_g_slice_alloc(gsize size);
gpointer __wrap_g_slice_alloc(gsize size)
{
    release::enter(1, static_cast<std::ptrdiff_t>(size));
    release::allocated.fetch_add(1, std::memory_order_relaxed);
    return __real_g_slice_alloc(size);
}

void __real_g_slice_free1(gsize size, gpointer memory);
void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    if (memory != nullptr)
        release::enter(-1, -static_cast<std::ptrdiff_t>(size));
    __real_g_slice_free1(size, memory);
}

} // extern "C"
