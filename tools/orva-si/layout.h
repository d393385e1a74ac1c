// SPDX-License-Identifier: LGPL-2.1-or-later
// Tables for people: columns as wide as their contents, within the width of the terminal.
#ifndef TOOLS_LAYOUT_H
#define TOOLS_LAYOUT_H

#include <string>
#include <vector>

namespace tool {

struct column {
    std::string title;
    bool right = false; // numbers stand to the right
    bool wraps = false; // may be broken over several lines when the table is too wide
};

struct table_layout {
    std::vector<column> columns;
    std::vector<std::vector<std::string>> rows; // UTF-8 without control characters
};

// The table with its heading, each line ended; a column without any contents is left out. Lines
// take at most width columns of the terminal as long as the columns that do not wrap leave room.
std::string laid_out(const table_layout &table, std::size_t width, std::size_t indent = 2);

// Breaks a text into lines of at most width columns, between the items of a
// list (", "), else at blanks, where there are any.
std::vector<std::string> wrapped(const std::string &text, std::size_t width);

} // namespace tool

#endif
