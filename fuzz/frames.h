// SPDX-License-Identifier: LGPL-2.1-or-later
// Inputs made of sections: each in a frame of its channel, two bytes of size and the section. The
// size stands apart from section_length, so that this one may lie. What the channel means is each
// body's own.
#ifndef FUZZ_FRAMES_H
#define FUZZ_FRAMES_H

#include "fuzz.h"

namespace fuzz {

struct frame {
    std::uint8_t channel;
    octets content;
};

// Shows each frame of an input; the last may be cut short.
template <class Visit>
void every_frame(bytes input, Visit visit)
{
    for (choices in{input}; in.more();) {
        const std::uint8_t channel = in.u8();
        const std::size_t size = in.u16();
        visit(channel, in.take(size));
    }
}

std::vector<frame> frames_of(bytes input);
octets packed(const std::vector<frame> &frames);

} // namespace fuzz

#endif
