// SPDX-License-Identifier: LGPL-2.1-or-later
// A report in JSON whose one list is too long to be held: what stands before the list, each of its
// items as it comes, and the end with a line break.
#ifndef TOOLS_LIST_JSON_H
#define TOOLS_LIST_JSON_H

#include <optional>
#include <string>

#include "json_writer.h"
#include "orva_si/limits.h"

namespace tool {

// UTF-8 whatever the input is called.
std::string list_json_head(const std::string &input, const char *list);

// Begins an item of the list, which is to be written with what is returned.
json_writer list_json_item(std::string &out, bool first);

// Whether it is complete is known last. any_items: whether the list has some.
std::string list_json_end(bool complete, bool any_items,
                          const std::optional<SiLimitCounts> &limits = {});

} // namespace tool

#endif
