// SPDX-License-Identifier: LGPL-2.1-or-later
// Walks of the library's store, for what no question of it answers.
#ifndef TOOLS_STORE_WALK_H
#define TOOLS_STORE_WALK_H

#include <cstdint>

#include "orva_si.h"

namespace tool {

class store_lock {
public:
    store_lock() { Orva_MutexP(&Ts_Ctl_Mutex); }
    ~store_lock() { Orva_MutexV(&Ts_Ctl_Mutex); }
    store_lock(const store_lock &) = delete;
    store_lock &operator=(const store_lock &) = delete;
};

// The elements of a list of the store; the lock is held while they are walked.
template <class Element, class Visit>
void each_element(si_list *list, Visit visit)
{
    for (std::int32_t position = 0; si_list_eol(list, position) == 0; ++position)
        if (auto *element = static_cast<Element *>(si_list_get(list, position)))
            visit(*element);
}

} // namespace tool

#endif
