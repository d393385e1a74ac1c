// SPDX-License-Identifier: LGPL-2.1-or-later
// A binary buddy allocator over one block of the system heap. It speaks on standard output only,
// never through the debug framework.
//
// Blocks are numbered by their offset in the pool. A block of size s lies at a multiple of s, and
// its buddy is the other half of a block of 2 s. The root block may reach beyond the memory: what
// has no room for a header there counts as free, and nothing of it is handed out.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "orva_si/mempool.h"
#include "orva_si_lock.h"

namespace si {

namespace {

// The header in front of every block: its size, header included, and two flags. A free block has
// the size alone. Headers lie at multiples of 4 from the pool's start, but clients' overruns may
// leave any value in them: they are copied in and out, and each access is bounded.
constexpr std::uint32_t header_bytes = 4;
constexpr std::uint32_t in_use = std::uint32_t{1} << 31;
constexpr std::uint32_t in_pool = std::uint32_t{1} << 30; // clear: from the system heap
constexpr std::uint32_t size_bits = in_pool - 1;
constexpr std::uint32_t largest_pool = std::uint32_t{1} << 30;
constexpr std::uint32_t largest_power = std::uint32_t{1} << 31;

struct buddy_pool {
    std::uint8_t *base;
    std::uint32_t total;     // bytes of memory
    std::uint32_t span;      // size of the root block, total rounded up to a power of two
    std::uint32_t allocated; // bytes of the blocks in use
    bool initialised;
};

struct pool_block {
    std::uint32_t offset;
    std::uint32_t size;
};

pthread_mutex_t pool_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit store_mutex pool_lock{pool_mutex};
constinit buddy_pool pool SI_GUARDED_BY(pool_lock){};
constinit std::atomic<std::uint32_t> heap_requests{0};

// scope_lock without its traces.
class SI_THREAD_SAFETY(scoped_lockable) quiet_lock {
public:
    quiet_lock() SI_THREAD_SAFETY(acquire_capability(pool_lock)) { pool_lock.lock(); }
    ~quiet_lock() SI_THREAD_SAFETY(release_capability()) { pool_lock.unlock(); }
    quiet_lock(const quiet_lock &) = delete;
    quiet_lock &operator=(const quiet_lock &) = delete;
};

// A block of 1 GiB is its own flag: no other header has that bit without a size.
constexpr std::uint32_t size_of(std::uint32_t header)
{
    const std::uint32_t size = header & size_bits;
    return size == 0 ? header & in_pool : size;
}
static_assert(size_of(in_use | in_pool | 64) == 64 && size_of(64) == 64 && size_of(0) == 0);
static_assert(size_of(largest_pool) == largest_pool && size_of(in_use | in_pool) == largest_pool);

std::uint32_t to_power_of_two(std::uint32_t size)
{
    if (size <= largest_power)
        return std::bit_ceil(size);
    std::printf("warning!block size is too large. size: %d\n", static_cast<int>(size));
    return size;
}

bool in_memory(std::uint32_t offset, std::uint32_t bytes) SI_NEEDS(pool_lock)
{
    return offset <= pool.total && bytes <= pool.total - offset;
}

// A block without room for its header was never divided. It is the root or an upper half, and an
// upper half lies at an odd multiple of its size.
std::uint32_t size_beyond(std::uint32_t offset) SI_NEEDS(pool_lock)
{
    return offset == 0 ? pool.span : std::uint32_t{1} << std::countr_zero(offset);
}

std::uint32_t header_at(std::uint32_t offset) SI_NEEDS(pool_lock)
{
    if (!in_memory(offset, header_bytes))
        return size_beyond(offset);
    std::uint32_t header = 0;
    std::memcpy(&header, pool.base + offset, header_bytes);
    return header;
}

void set_header(std::uint32_t offset, std::uint32_t header) SI_NEEDS(pool_lock)
{
    if (in_memory(offset, header_bytes))
        std::memcpy(pool.base + offset, &header, header_bytes);
}

// Somebody wrote over the header: there is no way to tell where the next block begins.
[[noreturn]] void abort_at(std::uint32_t offset) SI_NEEDS(pool_lock)
{
    std::printf("unknow error!blksz less than 0. start:0x%x sz:%d\n",
                address_of(pool.base + offset), 0);
    std::fflush(stdout);
    std::abort();
}

// The first free block of at least size bytes, by address. It can only begin at a multiple of size,
// so that where a smaller block begins there, size bytes are passed over at once.
std::optional<std::uint32_t> find_free(std::uint32_t size) SI_NEEDS(pool_lock)
{
    std::uint32_t step = 0;
    for (std::uint32_t offset = 0; offset < pool.span; offset += step) {
        const std::uint32_t header = header_at(offset);
        const std::uint32_t found = size_of(header);
        if (found == 0)
            abort_at(offset);
        if (found >= size && (header & in_use) == 0)
            return offset;
        step = std::max(size, found);
    }
    return std::nullopt;
}

// Leaves the first size bytes of a free block as a block, and the rest as free upper halves.
void split(std::uint32_t offset, std::uint32_t size) SI_NEEDS(pool_lock)
{
    for (std::uint32_t half = size_of(header_at(offset)) / 2; half >= size; half /= 2)
        set_header(offset + half, half);
    set_header(offset, size);
}

// Joins a block with its buddy as long as that is free and not divided.
void merge(pool_block block) SI_NEEDS(pool_lock)
{
    for (;;) {
        const std::uint32_t buddy = block.offset ^ block.size;
        if (buddy >= pool.span || header_at(buddy) != block.size)
            break;
        set_header(std::max(block.offset, buddy), 0);
        block = {std::min(block.offset, buddy), block.size * 2};
    }
    set_header(block.offset, block.size);
}

std::uint32_t count_blocks() SI_NEEDS(pool_lock)
{
    std::uint32_t count = 0;
    for (std::uint32_t offset = 0; offset < pool.span; ++count) {
        const std::uint32_t size = size_of(header_at(offset));
        if (size == 0)
            break;
        offset += size;
    }
    return count;
}

// Free memory of the pool is zero but for the headers, hence so is a new block.
std::uint8_t *allocate_from_pool(std::uint32_t size) SI_LEAVES(pool_lock)
{
    const quiet_lock lock;
    const std::optional<std::uint32_t> offset = find_free(size);
    if (!offset)
        return nullptr;
    split(*offset, size);
    if (!in_memory(*offset, size))
        return nullptr;
    set_header(*offset, in_use | in_pool | size);
    pool.allocated += size;
    return pool.base + *offset + header_bytes;
}

std::uint8_t *allocate_from_heap(std::uint32_t size)
{
    auto *block = static_cast<std::uint8_t *>(std::malloc(size));
    if (block == nullptr)
        return nullptr;
    // A size beyond the bits must not pass for the pool's flag; nobody asks for it again.
    const std::uint32_t header = in_use | (size & size_bits);
    std::memcpy(block, &header, header_bytes);
    std::memset(block + header_bytes, 0, size - header_bytes);
    heap_requests.fetch_add(1, std::memory_order_relaxed);
    return block + header_bytes;
}

// The block in use whose header lies there; none when a client has written over the header.
std::optional<pool_block> block_in_use(const std::uint8_t *at) SI_LEAVES(pool_lock)
{
    const quiet_lock lock;
    const std::uintptr_t distance =
        reinterpret_cast<std::uintptr_t>(at) - reinterpret_cast<std::uintptr_t>(pool.base);
    if (distance >= pool.total)
        return std::nullopt;
    const auto offset = static_cast<std::uint32_t>(distance);
    const std::uint32_t header = header_at(offset);
    const std::uint32_t size = size_of(header);
    const bool intact = (header & in_use) != 0 && size >= header_bytes &&
                        std::has_single_bit(size) && offset % size == 0 && in_memory(offset, size);
    return intact ? std::optional{pool_block{offset, size}} : std::nullopt;
}

// Zeroes the client's bytes before the lock is taken: large blocks shall not keep others waiting.
void free_in_pool(std::uint8_t *header) SI_LEAVES(pool_lock)
{
    const std::optional<pool_block> block = block_in_use(header);
    if (!block)
        return;
    std::memset(header + header_bytes, 0, block->size - header_bytes);
    const quiet_lock lock;
    pool.allocated -= block->size;
    merge(*block);
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t orva_mempool_init(std::int32_t size)
{
    const quiet_lock lock;
    if (pool.initialised) {
        std::puts("mempool has been initialized previously!");
        return 1;
    }
    if (size < 0)
        return 0;
    const auto total = static_cast<std::uint32_t>(size);
    const std::uint32_t span = to_power_of_two(total);
    if (span > largest_pool) {
        // The line is part of the text and stays what it is.
        std::printf("[func:%s line:%d] input size is too large! input:%dk,max:%dk\n",
                    "orva_mempool_init", 508, size / 1024, 0x100000);
        return 0;
    }
    auto *memory = static_cast<std::uint8_t *>(std::calloc(total, 1));
    if (memory == nullptr)
        return 0;
    pool = {.base = memory, .total = total, .span = span, .allocated = 0, .initialised = true};
    set_header(0, span);
    heap_requests.store(0, std::memory_order_relaxed);
    return 1;
}

void *orva_mempool_malloc(std::uint32_t size)
{
    if (size > UINT32_MAX - header_bytes)
        return nullptr;
    const std::uint32_t need = size + header_bytes;
    std::uint8_t *memory = allocate_from_pool(to_power_of_two(need));
    return memory != nullptr ? memory : allocate_from_heap(need);
}

void orva_mempool_free(void *pointer)
{
    if (pointer == nullptr)
        return;
    std::uint8_t *block = static_cast<std::uint8_t *>(pointer) - header_bytes;
    std::uint32_t header = 0;
    std::memcpy(&header, block, header_bytes);
    if ((header & in_pool) != 0)
        free_in_pool(block);
    else
        std::free(block);
}

std::uint32_t orva_mempool_cleanup(void)
{
    const quiet_lock lock;
    if (!pool.initialised)
        return 0;
    if (pool.allocated != 0) {
        std::printf("can't cleanup mempool!mempool are still in use, total:%dB, used:%dB\n",
                    static_cast<int>(pool.total), static_cast<int>(pool.allocated));
        return 0;
    }
    std::free(pool.base);
    pool = {};
    return 1;
}

void orva_mempool_printinfo(void)
{
    const quiet_lock lock;
    std::printf("\tmempool:0x%x\ttotalsz:%dK\tusedsz:%dK\tnblk:%d\n", address_of(pool.base),
                static_cast<int>(pool.total / 1024), static_cast<int>(pool.allocated / 1024),
                static_cast<int>(count_blocks()));
}

std::uint32_t orva_mempool_getmalloccnt(void)
{
    return heap_requests.load(std::memory_order_relaxed);
}
