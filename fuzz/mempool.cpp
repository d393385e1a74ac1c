// SPDX-License-Identifier: LGPL-2.1-or-later
// The memory pool under any sequence of requests and returns, next to its model: the same blocks at
// the same places, memory that is zero when it is handed out and nobody else's while it is held.
#include "orva_si/mempool.h"

#include <array>
#include <cstring>

#include "fuzz.h"
#include "support/mempool.h"
#include "support/mempool_model.h"

namespace fuzz {

namespace {

constexpr std::size_t most_held = 16;
constexpr std::size_t most_steps = 24;
constexpr std::uint32_t largest_request = 2560; // more than the largest pool has

struct holding {
    std::uint8_t *memory;
    std::uint32_t size;
    std::optional<std::int64_t> at; // in the pool; nothing: of the system heap
    std::uint8_t mark;
};

class session {
public:
    explicit session(std::int32_t size) : model{size}
    {
        claim(orva_mempool_init(size) == 1, "the pool cannot be made");
        if (!model.has_header(0))
            return;
        void *const first = orva_mempool_malloc(0); // the first block is at the pool's start
        base = static_cast<std::uint8_t *>(first) - test::header_size;
        orva_mempool_free(first);
    }
    ~session()
    {
        while (count != 0)
            release(0);
        claim(model.used == 0 && orva_mempool_cleanup() == 1, "the pool cannot be emptied");
    }
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    void allocate(std::uint32_t size, std::uint8_t mark)
    {
        if (count == most_held)
            return release(mark);
        const auto expected = model.allocate(size);
        auto *const memory = static_cast<std::uint8_t *>(orva_mempool_malloc(size));
        claim(memory != nullptr, "no memory");
        claim(test::from_heap(memory) != expected.has_value(), "pool or heap: the wrong one");
        claim(!expected || memory - test::header_size - base == *expected, "the wrong place");
        claim(test::all_zero(memory, size), "memory that is not zero");
        if (size != 0)
            std::memset(memory, mark, size);
        held[count++] = {memory, size, expected, mark};
    }

    void release(std::size_t which)
    {
        if (count == 0)
            return;
        std::swap(held[which % count], held[count - 1]);
        const holding &last = held[--count];
        claim(test::all_are(last.memory, last.size, last.mark), "somebody else wrote here");
        if (last.at)
            model.release(*last.at);
        orva_mempool_free(last.memory);
    }

private:
    test::model_pool model;
    std::uint8_t *base = nullptr;
    std::array<holding, most_held> held;
    std::size_t count = 0;
};

// Sizes of pools near powers of two and far from them.
std::int32_t pool_size(std::uint8_t choice)
{
    constexpr std::array<std::int32_t, 8> around{-3, -1, 0, 1, 2, 4, 5, 7};
    const std::int32_t power = 1 << (choice >> 3) % 12;
    return std::max(0, power + around[choice & 7]);
}

std::uint32_t request(std::uint8_t how, std::uint8_t more)
{
    switch (how >> 1 & 3) {
    case 0:
        return more % 16;
    case 1:
        return (8u << more % 7) - 5 + (how >> 3) % 3;
    case 2:
        return more;
    default:
        return more * 257u % largest_request;
    }
}

void run(bytes input)
{
    choices in{input};
    session pool{pool_size(in.u8())};
    for (std::size_t step = 0; in.more() && step < most_steps; ++step) {
        const std::uint8_t how = in.u8();
        const std::uint8_t more = in.u8();
        if ((how & 1) == 0)
            pool.allocate(request(how, more), static_cast<std::uint8_t>(how | 1));
        else
            pool.release(more);
    }
}

std::vector<octets> seeds()
{
    std::vector<octets> all;
    for (unsigned size = 0; size < 0x60; size += 5) {
        octets steps{static_cast<std::uint8_t>(size)};
        for (unsigned i = 0; i < 24; ++i) {
            steps.push_back(static_cast<std::uint8_t>(i % 3 == 2 ? 1 : i * 6 % 256 & ~1u));
            steps.push_back(static_cast<std::uint8_t>(i * 37 % 256));
        }
        all.push_back(steps);
    }
    return all;
}

} // namespace

target mempool()
{
    return {"mempool", shape::plain, run, seeds};
}

} // namespace fuzz
