// SPDX-License-Identifier: LGPL-2.1-or-later
// What a notification of the library means, in words.
#ifndef TOOLS_WATCH_NEWS_H
#define TOOLS_WATCH_NEWS_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "options.h"
#include "orva_si.h"

namespace tool {

// A part of a table that is not as it was.
struct change {
    enum kind { added, changed, removed } how = added;
    std::uint32_t id = 0;               // program, service, event, transport stream
    std::string name;                   // empty for none
    std::optional<std::uint32_t> start; // of an event
};

struct news_item {
    std::uint32_t time = 0;                                 // of its arrival
    std::string table;                                      // PAT, EIT ...
    std::vector<std::pair<std::string, std::uint32_t>> ids; // table_id, version_number ...
    std::string name;                                       // of the network, service or bouquet
    std::optional<std::uint32_t> utc;                       // that a time table tells
    std::vector<change> changes;
};

std::string news_text(const news_item &of);
std::string news_json(const news_item &of);

// Makes news of notifications; knows what was told before. To be asked on the thread that the
// library tells them on.
class news_reader {
public:
    explicit news_reader(const options &with) : chosen{with} {}

    news_item read(std::uint32_t reason, SiWord data, std::uint32_t value);

private:
    using contents = std::map<std::uint32_t, std::string>; // of a table: what describes an id
    struct described {
        std::uint32_t id;
        std::string name;
        std::string all; // whatever makes a difference, the name included
        std::optional<std::uint32_t> start = {};
    };

    void compare(contents &before, const std::vector<described> &now, bool whole, news_item &item);
    void read_pat(news_item &item);
    void read_network(std::uint32_t network_id, news_item &item);
    void read_services(std::uint16_t stream, news_item &item);
    void read_events(const SiEitNotify &of, news_item &item);
    described describe_event(const SiEitNotify &of, std::uint16_t event_id) const;

    const options &chosen;
    contents programs;
    std::map<std::uint32_t, contents> networks;
    std::map<std::uint32_t, contents> services;
    std::map<std::array<std::uint32_t, 4>, contents> events; // by service and kind
};

} // namespace tool

#endif
