// SPDX-License-Identifier: LGPL-2.1-or-later
// What the limits of the library refused, on paper.
#ifndef TOOLS_LIMIT_REPORT_H
#define TOOLS_LIMIT_REPORT_H

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "options.h"
#include "orva_si/limits.h"

namespace tool {

// As they are now.
SiLimitCounts limit_counts();

// A line for each limit: "tables: 3 of 4096, 0 refused".
std::vector<std::string> limit_lines(const SiLimitCounts &of);

// An object with a member for each limit: refused, used, most.
nlohmann::ordered_json limits_json(const SiLimitCounts &of);
// The same as a line of its own, of that time.
std::string limits_json_line(std::uint32_t time, const SiLimitCounts &of);

// For --stats: said on standard error where results are for people, else for the results.
void tell_limits(const options &chosen);
std::optional<SiLimitCounts> limits_for_json(const options &chosen);

} // namespace tool

#endif
