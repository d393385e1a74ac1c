// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections on paper: hexadecimal for people, or JSON.
#ifndef TOOLS_DUMP_REPORT_H
#define TOOLS_DUMP_REPORT_H

#include <string>

#include "json_writer.h"
#include "stored_tables.h"

namespace tool {

// A line about the table, one about each section, and its bytes with their offsets.
std::string dump_text_table(const stored_table &of);

// An item of that list of a report, see list_json.h.
inline constexpr char dump_json_list[] = "tables";
void write_dump_json_table(json_writer &to, const stored_table &of);

} // namespace tool

#endif
