// SPDX-License-Identifier: LGPL-2.1-or-later
// Words for the codes of events.
#ifndef TOOLS_EVENT_WORDS_H
#define TOOLS_EVENT_WORDS_H

#include <cstdint>
#include <string>

namespace tool {

// A genre by its content_nibble levels (EN 300 468 table 28), or the kind it belongs to; empty for
// what the standard leaves open.
std::string genre_text(std::uint8_t level_1, std::uint8_t level_2);

// "12+" for a rating that is a minimum age (EN 300 468, 6.2.28); empty for any other.
std::string rating_text(std::uint8_t rating);

} // namespace tool

#endif
