// SPDX-License-Identifier: LGPL-2.1-or-later
// A multiplex that sends event tables: every section comes again and again, a period apart, at a
// phase of its own. Time is a number that the test moves; what is on air at a moment depends on
// nothing else, so that every run is the same.
#ifndef TESTS_SUPPORT_BROADCAST_H
#define TESTS_SUPPORT_BROADCAST_H

#include <compare>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "support/sections.h"

namespace test {

using moment = std::chrono::milliseconds; // since the simulation began

struct service_key {
    std::uint16_t original_network = 1;
    std::uint16_t ts = 1;
    std::uint16_t service = 1;

    auto operator<=>(const service_key &) const = default;
};

// A sub-table of a service (EN 300 468, 5.2.4). A schedule has segments of eight section numbers,
// of which the first ones are used.
struct event_table {
    service_key of{};
    std::uint8_t table_id = 0x4E;
    std::uint8_t last_table_id = 0x4E;
    std::vector<unsigned> segments{}; // sections of each; present/following is one segment of two
    moment period{};                  // of a section
    moment near_period{};             // of the sections of the first near_segments
    unsigned near_segments = 0;
};

class broadcast {
public:
    struct sent_section {
        std::size_t table; // as add answered
        std::uint8_t number;
        moment period;
        moment phase; // when it comes for the first time
        bool missing; // never sent, though the others announce it
    };

    // Puts a table on air from the beginning, with version 0.
    std::size_t add(const event_table &table);
    // From this moment on the sections of a table are those of another version.
    void set_version(std::size_t table, std::uint8_t version);
    // Takes a section, or all of a table, off air before anybody listens.
    void omit(std::size_t table, std::uint8_t number);
    void omit(std::size_t table);

    const std::vector<sent_section> &sections() const { return sent; }
    const event_table &table(std::size_t index) const { return tables[index].made_of; }
    // The sections of a table stand together: from the first one on, as an index, so many.
    std::size_t first_section(std::size_t index) const { return tables[index].first; }
    std::size_t section_count(std::size_t index) const { return tables[index].count; }
    // Sections, as indices, of all services with this service_id; of every service for 0xFFFF.
    const std::vector<std::size_t> &of_service(std::uint16_t service_id) const;
    // When a section comes next, at this moment or later.
    moment next(std::size_t section, moment from) const;
    // Its bytes as they are now.
    const octets &content(std::size_t section) const;

private:
    struct table_on_air {
        event_table made_of;
        std::uint8_t version;
        std::uint8_t last_section_number;
        std::size_t first;
        std::size_t count;
    };

    std::vector<table_on_air> tables;
    std::vector<sent_section> sent;
    std::map<std::uint16_t, std::vector<std::size_t>> by_service;
    mutable std::map<std::size_t, octets> built; // by section; made when first asked for
};

} // namespace test

#endif
