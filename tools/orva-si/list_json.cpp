// SPDX-License-Identifier: LGPL-2.1-or-later
#include "list_json.h"

#include "json_values.h"
#include "limit_report.h"

namespace tool {

std::string list_json_head(const std::string &input, const char *list)
{
    return "{\n  \"schema\": \"orva-si/1\",\n  \"input\": " +
           json(input).dump(-1, ' ', false, json::error_handler_t::replace) + ",\n  \"" + list +
           "\": [";
}

json_writer list_json_item(std::string &out, bool first)
{
    constexpr unsigned level = 2; // a list in the one object
    out += first ? "\n    " : ",\n    ";
    return {out, level};
}

std::string list_json_end(bool complete, bool any_items, const std::optional<SiLimitCounts> &limits)
{
    return std::string{any_items ? "\n  ]" : "]"} +
           ",\n  \"complete\": " + (complete ? "true" : "false") +
           (limits ? ",\n  \"limits\": " + limits_json(*limits).dump() : "") + "\n}\n";
}

} // namespace tool
