// SPDX-License-Identifier: LGPL-2.1-or-later
// The tables of the store, linked by what questions name: a program, a network, a bouquet, a
// transport stream, or the tables of one kind. A question meets the tables that it asks and hardly
// any other, however many are held.
//
// The list stays the truth: the links are made anew where it has changed since, and where they
// cannot tell the caller walks it. Nothing is allocated. Everything runs with Ts_Ctl_Mutex held.
#ifndef SRC_DVBTABLES_ORVA_SI_TABLELINKS_H
#define SRC_DVBTABLES_ORVA_SI_TABLELINKS_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

#include "orva_si/store.h"
#include "orva_si_lock.h"

namespace si {

// What the tables of one chain have in common.
enum class table_link : std::uint8_t { id_and_extension, pid_and_extension, pid_and_id };
inline constexpr std::size_t table_links = 3;

// The tables of one chain in the order of the store. Others may be among them: match each with the
// key. The list must not change meanwhile.
class linked_tables {
public:
    class iterator {
    public:
        using value_type = SiTable;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::input_iterator_tag;

        iterator(table_link of, std::uint16_t from) : link{of}, at{from} {}
        SiTable &operator*() const;
        iterator &operator++();
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const;

    private:
        table_link link;
        std::uint16_t at;
    };

    linked_tables(table_link of, std::uint16_t from) : link{of}, first{from} {}
    iterator begin() const { return {link, first}; }
    std::default_sentinel_t end() const { return {}; }

private:
    table_link link;
    std::uint16_t first;
};

// All tables that the key matches, and maybe others. No answer for a key that names too little, and
// for a list of more tables than the store may hold.
std::optional<linked_tables> find_linked_tables(si_list *tables, const SiTableKey &key)
    SI_NEEDS(ctl);

} // namespace si

#endif
