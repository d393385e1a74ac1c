// SPDX-License-Identifier: LGPL-2.1-or-later
// The results of a scan on paper: one JSON object, or tables for people.
#ifndef TOOLS_REPORT_H
#define TOOLS_REPORT_H

#include <optional>
#include <string>

#include "multiplex.h"
#include "orva_si/limits.h"

namespace tool {

// Both end with a line break. JSON is UTF-8 whatever the input is called.
std::string json_report(const multiplex &found, const std::string &input, bool complete,
                        const std::optional<SiLimitCounts> &limits = {});

// width is that of the terminal, in columns.
std::string text_report(const multiplex &found, std::size_t width, bool verbose);

// Name of a service_type (EN 300 468 table 89), for a column of a table.
std::string service_type_name(std::uint8_t type);

} // namespace tool

#endif
