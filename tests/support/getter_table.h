// SPDX-License-Identifier: LGPL-2.1-or-later
// Every question that the library answers from stored sections, in one table: a section that
// answers it, how to ask, and what may come back. For sweeps, fuzzing and whatever else has to ask
// them all.
#ifndef TESTS_SUPPORT_GETTER_TABLE_H
#define TESTS_SUPPORT_GETTER_TABLE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string_view>
#include <vector>

#include "orva_si/result.h"
#include "support/sections.h"

namespace test {

// What the caller passes to be filled.
enum class gives {
    value,  // a record, written on ORVA_SI_OK only
    list,   // an array, with a count of elements
    bytes,  // raw bytes, with a length that changes on ORVA_SI_OK only
    nothing // no memory at all
};

// What sets one getter apart from those of its kind.
struct peculiar {
    bool always_written = false;                     // a value, whatever the result
    std::uint32_t without_room = ORVA_SI_ARRAY_FULL; // the result of a list for a capacity of 0
    // Room in a list is checked before each candidate, and the candidate is written before it is
    // judged.
    bool writes_ahead = false;
    // The first of both alone: with a full list, a candidate that adds nothing is too much.
    bool checks_ahead = false;
};

struct getter {
    std::string_view name; // as exported
    gives kind;
    std::size_t element; // bytes of a record, or of an element
    // Both pointers as the kind needs them, or null.
    std::function<std::uint32_t(void *out, std::uint32_t *count)> ask;
    std::vector<std::uint32_t> codes; // all that it may answer to good pointers
    peculiar ways{};
};

// A section, and questions that it answers.
struct answered {
    std::string_view name;
    octets (*around)(const std::vector<octets> &descriptors); // a section with this loop
    std::vector<octets> before;                               // what stands in the loop in front of
    octets descriptor; // the one that is asked about; there may be none
    std::vector<getter> getters;

    octets section() const { return section_with(descriptor); }
    octets section_with(const octets &other) const;
};

// In the names of tests.
inline void PrintTo(const answered &row, std::ostream *out)
{
    *out << row.name;
}

const std::vector<answered> &getter_table();

// The language function that the calls of the table go by: the three characters as a number.
std::uint32_t number_of_code(const char *code, std::uint32_t *language);

// Puts a section where the getters of a row look for it, in place of all that is stored, by the
// library's own insertion. A section of tables has eight bytes or more, and all that its
// section_length claims.
void put(const answered &row, const octets &section);
void clear_stores();

// Fills a section up to what its section_length claims, and lets the CRC_32 fit.
octets filled_up(octets section);

} // namespace test

#endif
