// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tool reads from raw sections itself, where no question of the library answers it.
#ifndef TOOLS_SECTIONS_H
#define TOOLS_SECTIONS_H

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

using bytes = std::span<const std::uint8_t>;

enum table_id : std::uint8_t {
    pat_table = 0x00,
    pmt_table = 0x02,
    nit_actual_table = 0x40,
    nit_other_table = 0x41,
    sdt_actual_table = 0x42,
    sdt_other_table = 0x46
};

// A copy of a stored section.
struct section {
    std::uint8_t table_id = 0;
    std::uint16_t extension = 0;
    std::vector<std::uint8_t> data; // from table_id to CRC_32
};

// Copies every section of the library's complete tables of these kinds: the tables in the order of
// the store, the sections of each by their section_number (the store has them as they arrived).
std::vector<section> stored_sections(std::span<const table_id> wanted);

// The bytes behind last_section_number and before CRC_32; none unless the section is undamaged.
std::optional<bytes> payload(bytes whole);

// How a transport stream is broadcast (EN 300 468, 6.2.13 and 6.4.6).
struct delivery {
    std::string summary;           // for people
    nlohmann::ordered_json fields; // for programs
};

struct channel_number {
    std::uint16_t service_id;
    std::uint16_t lcn;
    bool visible;
};

// An entry of the transport stream loop of a NIT.
struct network_stream {
    std::uint16_t transport_stream_id = 0;
    std::uint16_t original_network_id = 0;
    std::optional<delivery> delivered;
    std::vector<channel_number> numbers; // logical_channel_descriptor, private 0x83
};

std::vector<network_stream> network_streams(bytes nit);

// An entry of the service loop of an SDT.
struct described_service {
    std::uint16_t original_network_id = 0;
    std::uint16_t service_id = 0;
    std::vector<std::uint8_t> provider; // service_provider_name as broadcast
};

std::vector<described_service> described_services(bytes sdt);

enum class stream_kind { video, audio, teletext, subtitles, other };

// An elementary stream of a PMT.
struct elementary_stream {
    std::uint16_t pid = 0;
    stream_kind kind = stream_kind::other;
    std::string format;                 // "H.264", "AC-3" ...; empty when it has no name
    std::vector<std::string> languages; // ISO 639 codes
    bool has_language = false;          // carries an ISO_639_language_descriptor
    bool is_ac3 = false;
};

std::vector<elementary_stream> elementary_streams(bytes pmt);

} // namespace tool

#endif
