// SPDX-License-Identifier: LGPL-2.1-or-later
#include "fakes/allocation.h"

#include <glib.h>

#include <atomic>

namespace fake {

namespace {

std::atomic<unsigned> countdown{0};
std::atomic<bool> keep_failing{false};
std::atomic<std::size_t> succeeded{0};
std::atomic<std::size_t> bytes{0};

// Whether this allocation is to fail.
bool strikes()
{
    unsigned left = countdown.load();
    while (left != 0) {
        if (left == 1 && keep_failing.load())
            return true;
        if (countdown.compare_exchange_weak(left, left - 1))
            return left == 1;
    }
    return false;
}

} // namespace

void fail_allocation(unsigned n)
{
    keep_failing = false;
    countdown = n;
}

void fail_allocations_from(unsigned n)
{
    keep_failing = true;
    countdown = n;
}

std::size_t allocations()
{
    return succeeded;
}

std::size_t allocated_bytes()
{
    return bytes;
}

} // namespace fake

extern "C" void *__real_g_slice_alloc(gsize size);

extern "C" void *__wrap_g_slice_alloc(gsize size)
{
    if (fake::strikes())
        return nullptr;
    ++fake::succeeded;
    fake::bytes += size;
    return __real_g_slice_alloc(size);
}
