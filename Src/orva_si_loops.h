// SPDX-License-Identifier: LGPL-2.1-or-later
// The library's lists as ranges.
#ifndef SRC_ORVA_SI_LOOPS_H
#define SRC_ORVA_SI_LOOPS_H

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "orva_si/list.h"

namespace si {

// The elements of a list in order, null ones passed over; a null list is empty. The list must not
// change while it is walked. The list keeps a cursor, so a step costs the same wherever it is.
template <class T>
class list_range {
public:
    class iterator {
    public:
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::input_iterator_tag;

        explicit iterator(si_list *of) : list{of} { settle(); }
        T &operator*() const { return *element; }
        T *operator->() const { return element; }
        iterator &operator++()
        {
            ++position;
            settle();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return element == nullptr; }

    private:
        void settle()
        {
            element = nullptr;
            for (; element == nullptr && si_list_eol(list, position) == 0; ++position)
                element = static_cast<T *>(si_list_get(list, position));
            --position; // back to where the element stands
        }

        si_list *list;
        std::int32_t position = 0;
        T *element = nullptr;
    };

    explicit list_range(si_list *of) : list{of} {}
    iterator begin() const { return iterator{list}; }
    std::default_sentinel_t end() const { return {}; }

private:
    si_list *list;
};

template <class T>
list_range<T> elements(si_list *list)
{
    return list_range<T>{list};
}

} // namespace si

#endif
