// SPDX-License-Identifier: LGPL-2.1-or-later
// What the parts of a report for people say in the same words.
#ifndef TOOLS_REPORT_WORDS_H
#define TOOLS_REPORT_WORDS_H

#include <string>
#include <vector>

#include "layout.h"
#include "multiplex.h"

namespace tool {

std::string hex(unsigned value, int digits);
std::string joined(const std::vector<std::string> &parts, const char *separator = ", ");

// A broadcast text on one line; empty for none.
std::string shown(const std::optional<label> &name);
// The same in quotes, behind a blank; empty when it is.
std::string quoted(const std::optional<label> &name);

// A title over its table.
std::string titled(const std::string &title, std::size_t width, const table_layout &table);

// The long part of a report: what does not fit into the tables. Empty when there is nothing.
std::string network_details(const network &of, std::size_t width);
std::string service_details(const std::vector<const service *> &of, std::size_t width);
std::string program_details(const std::vector<program> &of, std::size_t width);

// Where receivers find software updates.
std::string updates_text(const software_updates &of, std::size_t width);

} // namespace tool

#endif
