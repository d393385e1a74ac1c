// SPDX-License-Identifier: LGPL-2.1-or-later
// Whole sub-tables as the library holds them.
#ifndef TOOLS_STORED_TABLES_H
#define TOOLS_STORED_TABLES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// A copy of a sub-table.
struct stored_table {
    std::uint16_t pid = 0;
    std::uint8_t table_id = 0; // as broadcast
    bool complete = false;     // every section that it should have is there
    // What names it: table_id_extension and, of SDT and EIT, the numbers behind the header; each
    // under the name that its table gives it.
    std::vector<std::pair<std::string_view, std::uint16_t>> ids;
    std::vector<std::vector<std::uint8_t>> sections; // by section_number, from table_id to CRC_32
};

// "PAT", "EIT" ...; "other" for a table_id that none of them has.
const char *table_name(std::uint8_t table_id);

// Visits a copy of every sub-table with that table_id, or of all: by PID, table_id and what names
// it; those of events last, service by service. visit answers whether to go on.
void each_stored_table(std::optional<std::uint8_t> table_id,
                       const std::function<bool(const stored_table &)> &visit);

} // namespace tool

#endif
