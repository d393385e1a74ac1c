// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef SRC_ORVA_SI_LIST_H
#define SRC_ORVA_SI_LIST_H

#include <cstdint>

#include "orva_si/list.h"

namespace si {

// Grows by one with every element added or removed, and when the list is seen to have been changed
// by hand. Whoever keeps something beside a list tells by it whether that still fits. Under the
// list's lock; the list is not null.
std::uint64_t list_changes(const si_list *list);

} // namespace si

#endif
