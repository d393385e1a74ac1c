// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef SRC_ORVA_SI_LIST_H
#define SRC_ORVA_SI_LIST_H

#include <cstddef>
#include <cstdint>

#include "orva_si/list.h"

namespace si {

// Grows by one with every element added or removed, and when the list is seen to have been changed
// by hand; no two lists ever have the same. Whoever keeps something beside a list tells by it
// whether that still fits. Under the list's lock; the list is not null.
std::uint64_t list_changes(const si_list *list);

// What someone keeps beside a list begins with this. Of release()'s memory, of that many bytes.
struct list_companion {
    std::size_t size;
};

// Null when nothing is kept. Under the list's lock; the list is not null.
list_companion *companion_of(const si_list *list);

// The list owns it from now on, and frees the one before. Null: keeps none.
void keep_companion(si_list *list, list_companion *made);

} // namespace si

#endif
