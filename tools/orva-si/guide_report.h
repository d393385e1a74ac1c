// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of services on paper: one JSON object, or a programme for people.
#ifndef TOOLS_GUIDE_REPORT_H
#define TOOLS_GUIDE_REPORT_H

#include <string>
#include <vector>

#include "guide_events.h"

namespace tool {

// Appends an item of that list of a report, see list_json.h.
inline constexpr char guide_json_list[] = "services";
void append_guide_json_service(std::string &out, const guide_service &of, bool first);

std::string guide_json(const std::vector<guide_service> &services, const std::string &input,
                       bool complete);

struct guide_style {
    std::size_t width;                  // of the terminal, in columns
    std::vector<std::string> languages; // the first most wanted
    bool verbose = false;               // with texts and descriptions
};

// The events of a service, each line with its break; empty when it has none.
std::string guide_text_service(const guide_service &of, const guide_style &style);

// Services with an empty line between them.
std::string guide_text(const std::vector<guide_service> &services, const guide_style &style);

// "Orva One HD  (65281.1001.101)"
std::string service_title(const guide_service &of);

} // namespace tool

#endif
