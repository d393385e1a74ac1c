// SPDX-License-Identifier: LGPL-2.1-or-later
// How the loops of sections and their descriptors are read.
#ifndef TOOLS_SECTIONS_READER_H
#define TOOLS_SECTIONS_READER_H

#include <string>

#include "orva_si_bytes.h"
#include "sections.h"

namespace tool {

using si::byte_reader;

struct descriptor {
    std::uint8_t tag;
    bytes data;
};

template <class Visit>
void each_descriptor(byte_reader loop, Visit visit)
{
    while (loop.more()) {
        const std::uint8_t tag = loop.u8();
        const byte_reader data = loop.nested8();
        if (!loop.ok)
            return;
        visit(descriptor{tag, data.all()});
    }
}

// A length of 12 bits below reserved ones, and that many bytes.
inline byte_reader nested12(byte_reader &in)
{
    const std::size_t length = in.u16() & 0x0FFF;
    return in.nested(length);
}

inline std::vector<std::uint8_t> copy_of(bytes data)
{
    return {data.begin(), data.end()};
}

// The letters of a language or country, fit for a terminal.
std::string code_text(bytes letters);

void note(carried &in, const descriptor &d);

// Appends where a descriptor leads, when it is a linkage_descriptor.
void append_linkage(std::vector<linkage> &linkages, const descriptor &d);

} // namespace tool

#endif
