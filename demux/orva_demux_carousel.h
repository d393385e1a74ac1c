// SPDX-License-Identifier: LGPL-2.1-or-later
// The sections of an input that has an end, kept for filters that are armed after they went by. Of
// every sub-table (EN 300 468, 3.1) the last version that was complete, else the last one seen.
#ifndef DEMUX_ORVA_DEMUX_CAROUSEL_H
#define DEMUX_ORVA_DEMUX_CAROUSEL_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "orva_si_bytes.h"
#include "orva_ts_sections.h"

namespace si::demux {

// What filters look at; the rest is read again from the input where memory has become scarce.
inline constexpr std::size_t kept_head_bytes = 20;

// One content of one section. Every content has a number of its own, for the life of the carousel.
struct kept_section {
    std::uint64_t content;
    std::uint64_t first = 0; // position of its packets in the input, unless it has data
    std::uint32_t span = 0;  // bytes that they take there
    std::uint32_t crc = 0;   // its CRC_32 field
    std::uint16_t size;
    std::uint8_t section_number;
    std::array<std::uint8_t, kept_head_bytes> start; // its first bytes
    std::unique_ptr<std::uint8_t[]> data;            // null: to be read again

    bytes head() const { return bytes{start}.first(std::min<std::size_t>(size, start.size())); }
    bytes all() const { return {data.get(), data != nullptr ? size : std::size_t{0}}; }
};

// What sections must agree in to belong together.
struct version_id {
    std::uint16_t extension;
    std::uint32_t networks; // bytes 8-11 of an EIT section, 8-9 of an SDT section
    std::uint8_t version_number;
    std::uint8_t last_section_number;

    bool operator==(const version_id &) const = default;
};

struct table_version {
    version_id id;
    std::vector<kept_section> sections; // by section_number
};

struct sub_table_key {
    std::uint16_t pid;
    std::uint8_t table_id;
    bool is_long;
    bool current;            // current_next_indicator
    std::uint16_t extension; // 0 where the stream has one sub-table only
    std::uint32_t networks;

    bool operator==(const sub_table_key &) const = default;
};

struct key_hash {
    std::size_t operator()(const sub_table_key &key) const;
};

struct sub_table {
    sub_table_key key;
    std::uint64_t first_seen;
    std::uint64_t last_seen;
    std::optional<table_version> complete; // the last version that became complete
    std::optional<table_version> current;  // another one that is being collected
    std::uint16_t cursor = 0;              // section_number at which the next reader goes on

    const table_version &served() const { return complete ? *complete : *current; }
};

// Used by the reading thread alone until it is closed; then its tables stand still, except the
// cursors.
struct carousel {
    explicit carousel(std::size_t bytes) : limit{bytes} {}

    std::size_t limit;
    bool rereads = false; // the input is a file: sections can be read again
    std::size_t used = 0;
    std::uint64_t evicted = 0; // sub-tables; relaxed
    std::uint64_t contents = 0;
    std::uint64_t seen = 0;
    std::unordered_map<sub_table_key, sub_table, key_hash> tables;
    std::unordered_map<std::uint16_t, std::vector<sub_table *>>
        by_pid; // in order of appearance, once closed
};

// Keeps a section and answers the number of its content: that of its last appearance while it is
// unchanged. 0: not kept.
std::uint64_t keep(carousel &in, std::uint16_t pid, bytes section, section_place place = {});

// Nothing more comes: sorts the sub-tables of every PID for those that are served.
void close_carousel(carousel &of);

// The sub-tables of a PID, once closed.
const std::vector<sub_table *> &tables_of(const carousel &of, std::uint16_t pid);

} // namespace si::demux

#endif
