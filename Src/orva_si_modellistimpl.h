// SPDX-License-Identifier: LGPL-2.1-or-later
// What the model and the queries need of the store beside its exported functions.
#ifndef SRC_ORVA_SI_MODELLISTIMPL_H
#define SRC_ORVA_SI_MODELLISTIMPL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orva_si/store.h"
#include "orva_si_lock.h"

namespace si {

// Counts a section of that length against the store's limit. False, and nothing counted, when it
// does not fit.
bool reserve_table_bytes(std::size_t length, std::uint8_t table_id);
void return_table_bytes(std::size_t length);

// How often the table store was emptied as a whole.
std::uint32_t times_emptied() SI_NEEDS(ctl);

// What the stores count against their limits.
std::size_t table_bytes_held() SI_NEEDS(ctl);
std::size_t eit_bytes_held() SI_NEEDS(eit);

// Frees a stored section with its buffer; it must already be out of its list, or about to leave it.
void free_stored_section(SiSection *record);

// Frees the links of a list and their elements, or has that done by the late_release of this
// thread.
void drop_links(si_list_node *links, void (*free_element)(void *element));

// What this thread drops while one lasts is freed when it ends: made before a lock is taken, it
// keeps the lock from being held as long as it takes to free a whole store.
class late_release {
public:
    late_release();
    ~late_release();
    late_release(const late_release &) = delete;
    late_release &operator=(const late_release &) = delete;

private:
    friend void drop_links(si_list_node *links, void (*free_element)(void *element));
    struct dropped {
        si_list_node *links;
        void (*free_element)(void *element);
    };
    std::array<dropped, 2> kept; // of each store
    std::size_t count = 0;
    late_release *outer;
};

// A section whose owner lets the store keep its bytes in place of a copy, while this lasts and on
// this thread. They are in memory of allocate_section(), as long as the record says.
class section_offer {
public:
    explicit section_offer(const SiSection &of);
    ~section_offer();
    section_offer(const section_offer &) = delete;
    section_offer &operator=(const section_offer &) = delete;
    // Once they are, the owner touches them no more.
    bool taken() const { return is_taken; }

private:
    friend std::uint8_t *keep_section(const std::uint8_t *section, std::size_t length);
    friend void drop_kept(std::uint8_t *kept, std::size_t length);
    const std::uint8_t *section;
    std::size_t length;
    bool is_taken = false;
};

// A section's bytes for the store: the very ones, when they are offered and that many, else a copy.
// Null when memory is exhausted.
std::uint8_t *keep_section(const std::uint8_t *section, std::size_t length);
// Undoes that, for bytes that did not get into the store: those offered are their owner's again.
void drop_kept(std::uint8_t *kept, std::size_t length);

// The first record of a service in the event store; null when there is none. The time it takes does
// not grow with the store, unless a client put something of its own into the list.
SiEitService *find_eit_service(std::uint16_t original_network_id, std::uint16_t transport_stream_id,
                               std::uint16_t service_id) SI_NEEDS(eit);

// Lets the memory come in which it will be looked up whether sections are repeats: that of one
// while that of others is on its way. Nothing else depends on it.
void fetch_event_sections(std::span<SiSection *const> sections) SI_LEAVES(eit);

} // namespace si

#endif
