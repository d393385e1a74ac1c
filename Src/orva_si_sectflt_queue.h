// SPDX-License-Identifier: LGPL-2.1-or-later
// The queue between the driver's callbacks and the section thread, and the memory that goes round
// through it.
#ifndef SRC_ORVA_SI_SECTFLT_QUEUE_H
#define SRC_ORVA_SI_SECTFLT_QUEUE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orva_si/store.h"
#include "orva_si_alloc.h"
#include "orva_si_log.h"

namespace si {

// Read without a lock: limits to the callbacks, not exact counts.
std::uint32_t queued_sections();
std::size_t queued_bytes();

// Queued or being processed. Who reads 0 sees all that processing has done, memory given back
// included.
std::uint32_t pending_sections();

// Sections handed over stay inside one lock, however many there are.
using section_batch = std::array<SiSection *, limit::queued_sections>;

// Appends sections and wakes the section thread if it waits. How many found room; the others stay
// the caller's.
std::size_t enqueue(site here, std::span<SiSection *const> sections);

struct taken_sections {
    std::span<SiSection *> sections;
    bool processing; // else they are to be freed
};
// Takes all; for the section thread, which waits until there are some.
taken_sections wait_for_sections(site here, section_batch &into);
taken_sections take_sections(site here, section_batch &into);

void enable_processing(site here, bool on);

// Ends what take_sections and wait_for_sections began: the nodes' memory is kept for sections to
// come, or freed. A node without a section was relieved of it.
void give_back(std::span<SiSection *const> sections);

// Memory that sections of the same size left; null where there is none.
struct section_memory {
    std::size_t length; // of the section it is for
    SiSection *node = nullptr;
    std::uint8_t *copy = nullptr;
};
void draw_spares(std::span<section_memory> wanted);
void release_spares();

// Whether the section thread processes a batch.
bool section_thread_is_busy();

} // namespace si

#endif
