// SPDX-License-Identifier: LGPL-2.1-or-later
// Text fields of SI tables (EN 300 468 annex A) as UTF-8.
#ifndef TOOLS_DVB_TEXT_H
#define TOOLS_DVB_TEXT_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tool {

// Converts a text field, its selector included. A field without selector is ISO 6937 with the euro
// sign, or in default_table when that is not empty.
//
// The answer is always valid UTF-8. Line breaks come out as \n, everything else that steers a
// display (emphasis, C0 and C1 controls, direction overrides) is left out. What does not convert is
// U+FFFD; so is the whole of a text that is compressed or in a table that is not assigned.
std::string dvb_text(std::span<const std::uint8_t> field, const std::string &default_table = {});

// Whether text can be converted from a character table of that name.
bool is_character_table(const std::string &name);

// A text of ours or of the command line, fit for one line of a terminal: line breaks become blanks,
// control characters and bytes that are not UTF-8 become U+FFFD.
std::string one_line(std::string_view text);

// Columns that a text takes on a terminal: two for a wide character of East Asia, none for a
// combining one.
std::size_t display_width(std::string_view utf8);

// The longest beginning of a text that fits into that many columns; at least one character.
std::string_view fitting(std::string_view utf8, std::size_t columns);

} // namespace tool

#endif
