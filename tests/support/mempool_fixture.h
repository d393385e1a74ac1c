// SPDX-License-Identifier: LGPL-2.1-or-later
// A memory pool over a system heap that is watched and fails on demand. One source of a program
// includes this; the program wraps malloc, calloc and free at link time.
#ifndef TESTS_SUPPORT_MEMPOOL_FIXTURE_H
#define TESTS_SUPPORT_MEMPOOL_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/mempool.h"

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void __real_free(void *memory);
void *__wrap_malloc(std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void __wrap_free(void *memory);
}

namespace test {

// The system heap as this program sees it. Whatever it hands out is dirty.
struct system_heap {
    bool watched = false;   // write down what is asked and freed
    bool exhausted = false; // answer null
    bool folded = false;    // serve requests of a gibibyte and more from little memory
    std::vector<std::size_t> asked;
    std::vector<void *> answers;
    std::vector<void *> freed;
    void *folded_memory = nullptr;
    std::size_t folded_size = 0;
};

inline system_heap &heap()
{
    static system_heap only;
    return only;
}

inline constexpr std::size_t gibibyte = 0x40000000;

// Memory whose first mebibyte is its own and all others are one and the same: it can be as large as
// a test likes, as long as what counts stands in front.
inline void *fold(std::size_t size)
{
    constexpr std::size_t fold_size = 1U << 20;
    const std::size_t whole = (size + fold_size - 1) / fold_size * fold_size;
    void *const start = mmap(nullptr, whole, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    const int file = memfd_create("folded", MFD_CLOEXEC);
    if (start == MAP_FAILED || file < 0 || ftruncate(file, fold_size) != 0)
        std::abort();
    for (std::size_t at = fold_size; at < whole; at += fold_size)
        if (mmap(static_cast<char *>(start) + at, fold_size, PROT_READ | PROT_WRITE,
                 MAP_SHARED | MAP_FIXED, file, 0) == MAP_FAILED)
            std::abort();
    close(file);
    std::memset(start, 0xA5, 2 * fold_size);
    heap().folded_memory = start;
    heap().folded_size = whole;
    return start;
}

inline void *answer_request(std::size_t size, bool zeroed)
{
    system_heap &state = heap();
    if (state.exhausted)
        return nullptr;
    if (size >= gibibyte) {
        void *const memory = state.folded ? fold(size) : nullptr;
        if (memory != nullptr && zeroed)
            std::memset(memory, 0, size);
        return memory;
    }
    if (zeroed)
        return __real_calloc(1, size);
    void *const memory = __real_malloc(size);
    if (memory != nullptr)
        std::memset(memory, 0xA5, size);
    return memory;
}

inline void *answer_and_note(std::size_t size, bool zeroed)
{
    system_heap &state = heap();
    void *const memory = answer_request(size, zeroed);
    if (state.watched) {
        state.asked.push_back(size);
        state.answers.push_back(memory);
    }
    return memory;
}

} // namespace test

extern "C" {

[[gnu::used]] inline void *__wrap_malloc(std::size_t size)
{
    return test::answer_and_note(size, false);
}

[[gnu::used]] inline void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return test::answer_and_note(count * size, true);
}

[[gnu::used]] inline void __wrap_free(void *memory)
{
    test::system_heap &state = test::heap();
    if (state.watched && memory != nullptr)
        state.freed.push_back(memory);
    if (memory != nullptr && memory == state.folded_memory) {
        munmap(memory, state.folded_size);
        state.folded_memory = nullptr;
        return;
    }
    __real_free(memory);
}

} // extern "C"

namespace test {

inline constexpr std::uint32_t no = 0;
inline constexpr std::uint32_t yes = 1;

// Notes what one call does with the system heap.
class heap_watch {
public:
    heap_watch()
    {
        heap().asked.clear();
        heap().answers.clear();
        heap().freed.clear();
        heap().watched = true;
    }
    ~heap_watch() { heap().watched = false; }
    heap_watch(const heap_watch &) = delete;
    heap_watch &operator=(const heap_watch &) = delete;
};

class exhausted_heap {
public:
    exhausted_heap() { heap().exhausted = true; }
    ~exhausted_heap() { heap().exhausted = false; }
    exhausted_heap(const exhausted_heap &) = delete;
    exhausted_heap &operator=(const exhausted_heap &) = delete;
};

inline std::uint32_t watched_init(std::int32_t size)
{
    const heap_watch watch;
    return orva_mempool_init(size);
}

inline void *watched_malloc(std::uint32_t size)
{
    const heap_watch watch;
    return orva_mempool_malloc(size);
}

inline void watched_free(void *pointer)
{
    const heap_watch watch;
    orva_mempool_free(pointer);
}

inline void *exhausted_malloc(std::uint32_t size)
{
    const exhausted_heap none;
    return orva_mempool_malloc(size);
}

// A pool, and blocks by their offset in it.
class MemoryPool : public testing::Test {
protected:
    void make(std::int32_t size)
    {
        ASSERT_EQ(watched_init(size), yes);
        ASSERT_EQ(heap().answers.size(), 1U);
        base = static_cast<std::uint8_t *>(heap().answers.front());
        total = size;
    }

    void *take(std::uint32_t size)
    {
        void *const memory = orva_mempool_malloc(size);
        EXPECT_NE(memory, nullptr);
        EXPECT_TRUE(all_zero(memory, size)) << "a request of " << size;
        return memory;
    }

    // Where the header stands; -1 for a block of the system heap.
    std::ptrdiff_t offset(void *pointer) const
    {
        return from_heap(pointer) ? -1 : header_of(pointer) - base;
    }

    // A request that must come from the system heap; it is given back.
    void expect_fall_back(std::uint32_t size)
    {
        const std::uint32_t before = orva_mempool_getmalloccnt();
        void *const memory = take(size);
        EXPECT_EQ(offset(memory), -1) << "a request of " << size;
        EXPECT_EQ(orva_mempool_getmalloccnt(), before + 1);
        orva_mempool_free(memory);
        EXPECT_EQ(orva_mempool_getmalloccnt(), before + 1);
    }

    // A request that must be met at this offset, with a block of this size.
    void *take_at(std::uint32_t size, std::ptrdiff_t where, std::uint32_t block)
    {
        const std::uint32_t before = orva_mempool_getmalloccnt();
        void *const memory = take(size);
        EXPECT_EQ(offset(memory), where) << "a request of " << size;
        EXPECT_EQ(header(memory), used_block(block)) << "a request of " << size;
        EXPECT_EQ(orva_mempool_getmalloccnt(), before);
        return memory;
    }

    // Nothing but the header of the root.
    void expect_one_free_root(std::uint32_t span) const
    {
        EXPECT_EQ(blocks(), 1);
        EXPECT_EQ(word_at(base), span);
        EXPECT_TRUE(all_zero(base + 4, static_cast<std::size_t>(total) - 4));
    }

    std::uint32_t word(std::size_t at) const { return word_at(base + at); }

    std::uint8_t *base = nullptr;
    std::int32_t total = 0;
};

inline std::string too_large(std::int32_t size)
{
    return formatted("[func:%s line:%d] input size is too large! input:%dk,max:%dk\n",
                     "orva_mempool_init", 508, size / 1024, 0x100000);
}

inline std::string block_too_large(std::uint32_t size)
{
    return formatted("warning!block size is too large. size: %d\n", static_cast<int>(size));
}

inline std::string in_use(int total, int used)
{
    return formatted("can't cleanup mempool!mempool are still in use, total:%dB, used:%dB\n", total,
                     used);
}

} // namespace test

#endif
