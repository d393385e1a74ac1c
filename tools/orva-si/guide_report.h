// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of services on paper: one JSON object, or a programme for people.
#ifndef TOOLS_GUIDE_REPORT_H
#define TOOLS_GUIDE_REPORT_H

#include <string>
#include <vector>

#include "guide_events.h"

namespace tool {

// Both end with a line break. JSON is UTF-8 whatever the input is called.
std::string guide_json(const std::vector<guide_service> &services, const std::string &input,
                       bool complete);

struct guide_style {
    std::size_t width;                  // of the terminal, in columns
    std::vector<std::string> languages; // the first most wanted
    bool verbose = false;               // with texts and descriptions
};

std::string guide_text(const std::vector<guide_service> &services, const guide_style &style);

// "Orva One HD  (65281.1001.101)"
std::string service_title(const guide_service &of);

} // namespace tool

#endif
