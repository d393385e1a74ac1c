// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef SRC_ORVA_SI_LIST_H
#define SRC_ORVA_SI_LIST_H

#include <cstddef>
#include <cstdint>

#include "orva_si/list.h"

namespace si {

// What someone keeps beside a list begins with this. Of release()'s memory, of that many bytes.
struct list_companion {
    std::size_t size;
};

// What si_list_init really makes. The hidden members only save walking: they are forgotten as soon
// as the visible ones are not what an operation left, because then a client changed the list
// itself. For the functions below and the list's own.
struct list_record {
    si_list visible;
    si_list_node *tail;   // last link, null when unknown
    si_list_node *cursor; // a link in use lately, null when unknown
    std::int32_t cursor_position;
    std::int32_t known_count; // the visible members as they were left
    si_list_node *known_first;
    std::uint64_t changes;
    list_companion *companion;

    void keep_visible()
    {
        known_count = visible.nb_elt;
        known_first = visible.node;
    }
};

// Readers move the cursor too, hence the cast; the list's lock is held by all of them.
inline list_record &record_of(const si_list *list)
{
    auto &of = *const_cast<list_record *>(reinterpret_cast<const list_record *>(list));
    if (of.known_count != list->nb_elt || of.known_first != list->node) [[unlikely]] {
        of.tail = nullptr;
        of.cursor = nullptr;
        ++of.changes;
        of.keep_visible();
    }
    return of;
}

// Grows by one with every element added or removed, and when the list is seen to have been changed
// by hand; no two lists ever have the same. Whoever keeps something beside a list tells by it
// whether that still fits. Under the list's lock; the list is not null.
inline std::uint64_t list_changes(const si_list *list)
{
    return record_of(list).changes;
}

// Empties the list in a moment, however long it is: the links, each with its element, are the
// caller's to release_record(). Under the list's lock; null, for no list too, when there are none.
si_list_node *take_links(si_list *list);

// Null when nothing is kept. Under the list's lock; the list is not null.
inline list_companion *companion_of(const si_list *list)
{
    return record_of(list).companion;
}

// The list owns it from now on, and frees the one before. Null: keeps none.
void keep_companion(si_list *list, list_companion *made);

} // namespace si

#endif
