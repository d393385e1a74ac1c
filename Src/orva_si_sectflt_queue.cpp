// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_sectflt_queue.h"

#include <cerrno>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

#include "orva_si_lock.h"
#include "orva_si_shared.h"

namespace si {

namespace {

#ifdef PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP // held for moments only: not worth a sleep
pthread_mutex_t queue_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
#else
pthread_mutex_t queue_mutex = PTHREAD_MUTEX_INITIALIZER;
#endif
constinit store_mutex queue_lock{queue_mutex};

// What the section thread sleeps on, posted once for each time that it says it waits. A condition
// would take the lock for it behind each sleep, and leave it as if others waited: a call of the
// system more.
struct alarm {
    alarm() { sem_init(&rung, 0, 0); }
    void ring() { sem_post(&rung); }
    void wait()
    {
        while (sem_wait(&rung) != 0 && errno == EINTR) {
        }
    }

    sem_t rung;
};
alarm queue_filled;

// Sections that wait for the section thread. Changed with the lock held; the two sizes are read
// without it.
struct section_queue {
    section_batch sections{};
    std::atomic<std::uint32_t> count{0};
    std::atomic<std::size_t> bytes{0};
    std::atomic<bool> processing{false}; // else sections are freed unprocessed
    bool thread_waiting = false;         // nobody else needs a signal
};
constinit section_queue queue SI_GUARDED_BY(queue_lock);

std::atomic<std::uint32_t> pending{0};
std::uint8_t thread_busy; // while a batch is processed

// ---- Memory that goes round
//
// Nearly every section is a repeat: its memory is free again at once, on another thread than the
// one that needs it next. It is kept here meanwhile, in lists by size, as long as sections are
// processed.

constexpr std::size_t most_spare_bytes = std::size_t{256} << 10;
constexpr std::size_t sizes = section_buffer_size(4096) / 32 + 1; // the first is that of nodes

#ifdef SI_ADDRESS_SANITIZER // which is to tell when memory is used that was given back
constexpr bool keeps_spares = false;
#else
constexpr bool keeps_spares = true;
#endif

struct spare {
    spare *next;
};
static_assert(sizeof(spare) <= sizeof(SiSection) && alignof(spare) <= alignof(SiSection));

struct spare_memory {
    std::array<spare *, sizes> first{};
    std::size_t bytes = 0;
};
constinit spare_memory spares;

enum class claim_state : int { free, claimed, awaited };
constinit std::atomic<claim_state> spares_state{claim_state::free};

// For who finds the spares claimed: does without.
bool claim_if_free()
{
    claim_state expected = claim_state::free;
    return spares_state.compare_exchange_strong(
        expected, claim_state::claimed, std::memory_order_acquire, std::memory_order_relaxed);
}

// Waits for a moment, and asleep: it may have a higher priority than who is at them.
bool claim_in_the_end()
{
    while (spares_state.exchange(claim_state::awaited, std::memory_order_acquire) !=
           claim_state::free)
        spares_state.wait(claim_state::awaited, std::memory_order_relaxed);
    return true;
}

// The spares for a scope, or not. For every section, where a mutex would cost ten times as much.
class spares_claim {
public:
    explicit spares_claim(bool (*claim)()) : claimed{claim()} {}
    ~spares_claim()
    {
        if (claimed && spares_state.exchange(claim_state::free, std::memory_order_release) ==
                           claim_state::awaited)
            spares_state.notify_all();
    }
    spares_claim(const spares_claim &) = delete;
    spares_claim &operator=(const spares_claim &) = delete;

    const bool claimed;
};

std::size_t bytes_of_size(std::size_t size)
{
    return size == 0 ? sizeof(SiSection) : 32 * size;
}

std::size_t size_of(std::size_t length)
{
    return section_buffer_size(length) / 32;
}

void *draw(std::size_t size)
{
    spare *const drawn = spares.first[size];
    if (drawn == nullptr)
        return nullptr;
    spares.first[size] = drawn->next;
    spares.bytes -= bytes_of_size(size);
    return drawn;
}

// What is queued and what is kept share one limit.
bool keep(void *memory, std::size_t size)
{
    const std::size_t bytes = bytes_of_size(size);
    if (spares.bytes + bytes > most_spare_bytes ||
        queued_bytes() + spares.bytes + bytes > limit::queued_bytes)
        return false;
    spares.first[size] = new (memory) spare{spares.first[size]};
    spares.bytes += bytes;
    return true;
}

bool is_processing() SI_THREAD_SAFETY(no_thread_safety_analysis)
{
    return queue.processing.load(std::memory_order_relaxed);
}

void free_all(spare_memory &from)
{
    for (std::size_t size = 0; size < sizes; ++size)
        while (spare *each = from.first[size]) {
            from.first[size] = each->next;
            release(each, bytes_of_size(size));
        }
}

void free_section(SiSection *node)
{
    release_section(node->section, node->sect_len);
    release_record(node);
}

// Those in front of the first one that there was no room for.
std::size_t keep_sections(std::span<SiSection *const> sections)
{
    std::size_t kept = 0;
    for (SiSection *node : sections) {
        if (node->section != nullptr && keep(node->section, size_of(node->sect_len)))
            node->section = nullptr;
        if (node->section != nullptr || !keep(node, 0))
            break;
        ++kept;
    }
    return kept;
}

taken_sections take_all(section_batch &into) SI_NEEDS(queue_lock)
{
    const std::size_t count = queue.count.exchange(0, std::memory_order_relaxed);
    queue.bytes.store(0, std::memory_order_relaxed);
    std::copy_n(queue.sections.begin(), count, into.begin());
    return {std::span{into}.first(count), queue.processing.load(std::memory_order_relaxed)};
}

} // namespace

std::uint32_t queued_sections() SI_THREAD_SAFETY(no_thread_safety_analysis)
{
    return queue.count.load(std::memory_order_relaxed);
}

std::size_t queued_bytes() SI_THREAD_SAFETY(no_thread_safety_analysis)
{
    return queue.bytes.load(std::memory_order_relaxed);
}

std::uint32_t pending_sections()
{
    return pending.load(std::memory_order_acquire);
}

bool section_thread_is_busy()
{
    return load_acquire(thread_busy) != 0;
}

std::size_t enqueue(site here, std::span<SiSection *const> sections)
{
    bool wakes = false;
    std::size_t taken = 0;
    {
        const scope_lock lock{queue_lock, here};
        const std::size_t held = queue.count.load(std::memory_order_relaxed);
        taken = std::min(sections.size(), queue.sections.size() - held);
        if (taken == 0)
            return 0;
        std::size_t bytes = queue.bytes.load(std::memory_order_relaxed);
        for (std::size_t at = 0; at < taken; ++at) {
            queue.sections[held + at] = sections[at];
            bytes += section_buffer_size(sections[at]->sect_len);
        }
        queue.bytes.store(bytes, std::memory_order_relaxed);
        queue.count.store(static_cast<std::uint32_t>(held + taken), std::memory_order_relaxed);
        pending.fetch_add(static_cast<std::uint32_t>(taken), std::memory_order_relaxed);
        wakes = std::exchange(queue.thread_waiting, false);
    }
    if (wakes)
        queue_filled.ring();
    return taken;
}

taken_sections wait_for_sections(site here, section_batch &into)
{
    for (;;) {
        {
            const scope_lock lock{queue_lock, here};
            if (queued_sections() != 0) {
                store_release(thread_busy, 1);
                return take_all(into);
            }
            store_release(thread_busy, 0);
            queue.thread_waiting = true;
        }
        queue_filled.wait();
    }
}

taken_sections take_sections(site here, section_batch &into)
{
    const scope_lock lock{queue_lock, here};
    return take_all(into);
}

void enable_processing(site here, bool on)
{
    {
        const scope_lock lock{queue_lock, here};
        queue.processing.store(on, std::memory_order_relaxed);
    }
    if (!on)
        release_spares();
}

void give_back(std::span<SiSection *const> sections)
{
    std::size_t kept = 0;
    if (keeps_spares) {
        const spares_claim claim{claim_if_free};
        if (claim.claimed && is_processing())
            kept = keep_sections(sections);
    }
    for (SiSection *node : sections.subspan(kept))
        free_section(node);
    pending.fetch_sub(static_cast<std::uint32_t>(sections.size()), std::memory_order_release);
}

void draw_spares(std::span<section_memory> wanted)
{
    if (!keeps_spares)
        return;
    const spares_claim claim{claim_if_free};
    if (!claim.claimed || spares.bytes == 0)
        return;
    for (section_memory &each : wanted) {
        if (each.length == 0) // of a section that is not taken
            continue;
        each.node = static_cast<SiSection *>(draw(0));
        each.copy = static_cast<std::uint8_t *>(draw(size_of(each.length)));
    }
}

void release_spares()
{
    if (!keeps_spares)
        return;
    spare_memory released;
    {
        const spares_claim claim{claim_in_the_end};
        released = std::exchange(spares, spare_memory{});
    }
    free_all(released);
}

} // namespace si
