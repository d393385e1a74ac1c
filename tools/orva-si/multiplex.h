// SPDX-License-Identifier: LGPL-2.1-or-later
// What a scan found, ready to be printed.
#ifndef TOOLS_MULTIPLEX_H
#define TOOLS_MULTIPLEX_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

struct transport_stream {
    network_stream in_nit;
    std::vector<listed_service> services;
};

struct network {
    std::uint16_t network_id = 0;
    bool actual = false;
    std::optional<label> name;
    std::vector<transport_stream> streams;
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
};

struct audio_stream {
    std::uint16_t pid = 0;
    bool has_lang = false;
    bool is_ac3 = false;
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

struct multiplex {
    std::optional<std::uint16_t> transport_stream_id;
    std::optional<std::uint16_t> original_network_id;
    std::optional<std::uint16_t> network_id;
    std::vector<network> networks;
    std::vector<service> services;
    std::vector<program> programs;
    std::vector<bouquet> bouquets;

    bool empty() const
    {
        return !transport_stream_id && networks.empty() && services.empty() && programs.empty() &&
               bouquets.empty();
    }
};

// Asks the library for everything that a scan brings. Text without a selector is read in
// default_table, see dvb_text.
multiplex collect(const std::string &default_table);

// Leaves only one program and service. Whether there is such a one.
bool keep_program(multiplex &found, std::uint16_t number);

// Number and visibility of a service on a remote control, when a NIT gives it one.
const channel_number *number_of(const multiplex &found, const service &of);

// A text of EN 300 468 in two notations.
label label_of(std::vector<std::uint8_t> field, const std::string &default_table);

} // namespace tool

#endif
