// SPDX-License-Identifier: LGPL-2.1-or-later
// Values of reports in JSON.
#ifndef TOOLS_JSON_VALUES_H
#define TOOLS_JSON_VALUES_H

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <utility>

#include "multiplex.h"

namespace tool {

using json = nlohmann::ordered_json;

// Null for what was not found.
template <class T>
json value_or_null(const std::optional<T> &known)
{
    return known ? json(*known) : json{};
}

// A text under a name, and its bytes under the name with _raw; both null for none.
inline void set_text(json &into, const std::string &name, const std::optional<label> &text)
{
    into[name] = text ? json(text->text) : json{};
    into[name + "_raw"] = text ? json(text->raw) : json{};
}

// A list, each item as told makes it; an empty array for none.
template <class Items, class Tell>
json array_of(const Items &items, Tell tell)
{
    json all = json::array();
    for (const auto &item : items)
        all.push_back(tell(item));
    return all;
}

} // namespace tool

#endif
