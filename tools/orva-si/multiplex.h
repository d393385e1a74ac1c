// SPDX-License-Identifier: LGPL-2.1-or-later
// What a scan found, ready to be printed.
#ifndef TOOLS_MULTIPLEX_H
#define TOOLS_MULTIPLEX_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "options.h"
#include "sections.h"

namespace tool {

struct label {
    std::string text; // UTF-8
    std::string raw;  // the field as broadcast, selector included, in hexadecimal
};

struct listed_service {
    std::uint16_t service_id = 0;
    std::uint8_t service_type = 0;
};

// A region of a target_region_descriptor (EN 300 468, 6.4.12); the codes down to its depth.
struct region {
    std::string country;
    std::uint8_t depth = 0;
    std::uint8_t primary = 0;
    std::uint8_t secondary = 0;
    std::uint16_t tertiary = 0;
};

// A name in one language.
struct language_name {
    std::string language; // ISO 639 code
    label name;
    std::optional<label> provider = {}; // of a service
};

struct frequency {
    std::uint8_t coding_type = 0;
    std::optional<std::uint64_t> hertz; // none when its digits are impossible
};

struct transport_stream {
    network_stream in_nit;
    std::vector<listed_service> services;
    std::vector<frequency> frequencies = {}; // of its frequency lists
    std::vector<region> regions = {};
    std::vector<label> list_names = {}; // of in_nit.lists
};

struct network {
    std::uint16_t network_id = 0;
    bool actual = false;
    std::optional<label> name;
    std::vector<transport_stream> streams;
    std::vector<language_name> names = {};
    std::vector<linkage> linkages = {};
    std::vector<region> regions = {};
    std::vector<label> region_names = {};
};

// A cell of a service_availability_descriptor.
struct cell_availability {
    std::uint16_t cell_id = 0;
    bool available = false;
};

struct data_broadcast {
    std::uint16_t id = 0;
    std::uint8_t component_tag = 0;
    std::string language;
};

struct service {
    std::uint16_t original_network_id = 0;
    std::uint16_t transport_stream_id = 0;
    std::uint16_t service_id = 0;
    bool actual = false;
    std::optional<label> name;
    std::string provider;
    std::optional<std::uint8_t> service_type;
    std::optional<std::uint8_t> running_status;
    std::optional<std::uint8_t> free_ca_mode;
    std::optional<std::uint8_t> eit_schedule;
    std::optional<std::uint8_t> eit_present_following;
    std::vector<language_name> names = {};
    std::vector<cell_availability> cells = {};
    std::vector<data_broadcast> data_broadcasts = {};
    std::vector<linkage> linkages = {};
    std::optional<service_reference> moved_to = {};
    std::vector<region> regions = {};
    std::optional<std::uint16_t> time_shifted_of = {};
    std::vector<service_reference> nvod_references = {};
};

struct audio_language {
    std::string language;
    std::uint8_t audio_type = 0;
};

struct audio_stream {
    std::uint16_t pid = 0;
    bool has_lang = false;
    bool is_ac3 = false;
    std::string codec = {}; // empty when it has no name
    std::vector<audio_language> languages = {};
};

struct teletext_page {
    std::uint16_t pid = 0;
    std::string language;
    std::uint8_t type = 0;
    std::uint8_t magazine = 0; // 0 means 8
    std::uint8_t page = 0;     // two hexadecimal digits
};

struct subtitling {
    std::uint16_t pid = 0;
    std::string language;
    std::uint8_t type = 0;
    std::uint16_t composition_page_id = 0;
    std::uint16_t ancillary_page_id = 0;
};

struct ca_system {
    std::uint16_t system_id = 0;
    std::uint16_t pid = 0;
};

struct program {
    std::uint16_t program_number = 0;
    std::uint16_t pmt_pid = 0;
    std::optional<std::uint16_t> pcr_pid; // none while the PMT has not come
    std::optional<std::uint16_t> video_pid;
    std::vector<std::uint16_t> elementary_pids;
    std::vector<audio_stream> audio;
    std::vector<std::uint16_t> teletext_pids;
    std::vector<std::uint16_t> subtitle_pids;
    std::vector<ca_system> ca;
    std::vector<elementary_stream> streams;
    std::vector<teletext_page> teletext = {};
    std::vector<subtitling> subtitles = {};
};

struct bouquet_service {
    std::uint16_t transport_stream_id = 0;
    std::uint16_t original_network_id = 0;
    listed_service listed;
};

struct bouquet {
    std::uint16_t bouquet_id = 0;
    std::optional<label> name;
    std::vector<bouquet_service> services;
};

// Where receivers find software updates (ETSI TS 102 006).
struct software_update_service {
    std::uint16_t network_id = 0;
    linkage to;
    std::vector<std::uint16_t> pids = {}; // of its program, when that is in this multiplex
};

struct software_updates {
    std::vector<software_update_service> services;
    std::vector<std::uint16_t> pids; // of all streams that carry updates
};

struct multiplex {
    std::optional<std::uint16_t> transport_stream_id;
    std::optional<std::uint16_t> original_network_id;
    std::optional<std::uint16_t> network_id;
    std::vector<network> networks;
    std::vector<service> services;
    std::vector<program> programs;
    std::vector<bouquet> bouquets;
    software_updates updates = {};

    bool empty() const
    {
        return !transport_stream_id && networks.empty() && services.empty() && programs.empty() &&
               bouquets.empty();
    }
};

// Asks the library for everything that a scan brings. Text without a selector is read in the table
// that was chosen, see dvb_text.
multiplex collect(const options &chosen);

// Leaves only one program and service. Whether there is such a one.
bool keep_program(multiplex &found, std::uint16_t number);

// Number and visibility of a service on a remote control, when a NIT gives it one.
const channel_number *number_of(const multiplex &found, const service &of);

// Two lower-case digits for each byte.
std::string hexadecimal(std::span<const std::uint8_t> data);

// A text of EN 300 468 in two notations.
label label_of(std::vector<std::uint8_t> field, const std::string &default_table);

} // namespace tool

#endif
