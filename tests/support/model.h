// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tests of the section store share: records as the reception path hands them in, and what
// the store holds.
#ifndef TESTS_SUPPORT_MODEL_H
#define TESTS_SUPPORT_MODEL_H

#include <cstdarg>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "orva_si/store.h"
#include "support/sections.h"

namespace test {

// A text as the log writes it.
__attribute__((format(printf, 1, 2))) inline std::string text(const char *format, ...)
{
    std::array<char, 512> written{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(written.data(), written.size(), format, arguments);
    va_end(arguments);
    return written.data();
}

// An address as the log writes it with %x.
inline unsigned address(const void *pointer)
{
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

// A received section in a buffer of exactly its size, so that a sanitizer sees every read beyond.
class received {
public:
    received(octets bytes, std::uint16_t pid, std::uint16_t filter_id = 0)
        : buffer(bytes.begin(), bytes.end())
    {
        record.pid = pid;
        record.filter_id = filter_id;
        record.sect_len = static_cast<std::uint16_t>(buffer.size());
        record.section = buffer.data();
    }
    received(const received &) = delete;
    received &operator=(const received &) = delete;

    operator SiSection *() { return &record; }
    SiSection *operator->() { return &record; }

private:
    octets buffer;
    SiSection record{};
};

// The elements of a list, null ones included.
template <class T>
std::vector<T *> elements_of(si_list *list)
{
    std::vector<T *> found;
    for (std::int32_t position = 0; si_list_eol(list, position) == 0; ++position)
        found.push_back(static_cast<T *>(si_list_get(list, position)));
    return found;
}

inline std::vector<SiTable *> tables()
{
    return elements_of<SiTable>(Orva_Si_GetTableList());
}

// The sections that a table holds, in the order in which it holds them.
inline std::vector<octets> sections_of(const SiTable *table)
{
    std::vector<octets> found;
    for (const SiSection *stored : elements_of<SiSection>(table->psect_list))
        found.emplace_back(stored->section, stored->section + stored->sect_len);
    return found;
}

// What the scans with 8-bit positions leave of a store: they wrap from 255 to 0 and end when 256
// positions in a row were passed without a removal.
template <class Table, class Doomed>
void scan_with_8_bit_positions(std::vector<Table> &all, Doomed doomed)
{
    std::uint8_t position = 0;
    unsigned passed = 0;
    while (position < all.size() && passed < 256) {
        if (doomed(all[position])) {
            all.erase(all.begin() + position);
            passed = 0;
        } else {
            ++position;
            ++passed;
        }
    }
}

} // namespace test

#endif
