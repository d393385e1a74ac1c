// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of services on paper: one JSON object, or a programme for people.
#ifndef TOOLS_GUIDE_REPORT_H
#define TOOLS_GUIDE_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include "guide_events.h"
#include "orva_si/limits.h"

namespace tool {

// JSON in three parts, so that no more than a service is held: what stands before the services,
// each of them, and the end with a line break. UTF-8 whatever the input is called.
std::string guide_json_head(const std::string &input);
void append_guide_json_service(std::string &out, const guide_service &of, bool first);
std::string guide_json_end(bool complete, bool any_services,
                           const std::optional<SiLimitCounts> &limits = {});

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
