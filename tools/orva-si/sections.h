// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tool reads from raw sections itself: the order of broadcast, and what no question of the
// library answers.
#ifndef TOOLS_SECTIONS_H
#define TOOLS_SECTIONS_H

#include <bitset>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sections_delivery.h"

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

// Descriptors (EN 300 468 table 12), and two private ones of broadcasters' bodies.
enum descriptor_tag : std::uint8_t {
    satellite_delivery_tag = 0x43,
    cable_delivery_tag = 0x44,
    service_list_tag = 0x41,
    service_tag = 0x48,
    linkage_tag = 0x4A,
    nvod_reference_tag = 0x4B,
    time_shifted_service_tag = 0x4C,
    terrestrial_delivery_tag = 0x5A,
    multilingual_network_name_tag = 0x5B,
    multilingual_service_name_tag = 0x5D,
    private_data_specifier_tag = 0x5F,
    service_move_tag = 0x60,
    frequency_list_tag = 0x62,
    data_broadcast_tag = 0x64,
    service_availability_tag = 0x72,
    s2_satellite_delivery_tag = 0x79,
    extension_tag = 0x7F,
    logical_channel_tag = 0x83,
    nordig_channel_lists_tag = 0x87
};

// descriptor_tag_extension of extension descriptors.
enum tag_extension : std::uint8_t {
    t2_delivery_extension = 0x04,
    target_region_extension = 0x09,
    target_region_name_extension = 0x0A,
    c2_delivery_extension = 0x0D
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

// Which descriptors a loop carries: a question about others need not be asked.
struct carried {
    std::bitset<256> tags;
    std::bitset<256> extensions;

    bool has(descriptor_tag tag) const { return tags[tag]; }
    bool has(tag_extension tag) const { return extensions[tag]; }
};

// Where a linkage_descriptor leads (EN 300 468, 6.2.19).
struct linkage {
    std::uint16_t transport_stream_id = 0;
    std::uint16_t original_network_id = 0;
    std::uint16_t service_id = 0;
    std::uint8_t linkage_type = 0;
    std::vector<std::uint32_t> ouis; // manufacturers of a software update (ETSI TS 102 006, 6.1)
};

inline constexpr std::uint8_t software_update_linkage = 0x09;

// private_data_specifier of NorDig (ETSI TS 101 162).
inline constexpr std::uint32_t nordig_specifier = 0x00000029;

// ---- NIT

struct channel_number {
    std::uint16_t service_id = 0;
    std::uint16_t lcn = 0;
    bool visible = true;
    unsigned bits = 10;                    // of the field that lcn comes from, 10 or 14
    std::uint32_t specifier = 0;           // private_data_specifier under which it counts
    bool sent = false;                     // whether that was broadcast, or is the default
    std::optional<std::uint8_t> list = {}; // channel_list_id, of NorDig's second version
};

// A channel list of NorDig's second version.
struct channel_list {
    std::uint8_t id = 0;
    std::vector<std::uint8_t> name; // as broadcast
    std::string country;
    bool sent = false; // as of its numbers
};

// A frequency_list_descriptor (EN 300 468, 6.2.17).
struct frequency_list {
    std::uint8_t coding_type = 0;
    std::vector<std::uint32_t> frequencies; // as coded
};

// An entry of the transport stream loop of a NIT.
struct network_stream {
    std::uint16_t transport_stream_id = 0;
    std::uint16_t original_network_id = 0;
    carried carries = {};
    std::optional<delivery> delivered = {}; // what the library does not read: DVB-T2, DVB-C2
    std::optional<input_stream> input = {};
    std::vector<frequency_list> frequencies = {};
    std::vector<channel_number> numbers = {};
    std::vector<channel_list> lists = {};
    std::vector<linkage> linkages = {};
};

// A NIT section.
struct network_section {
    carried carries; // in the first loop
    std::vector<linkage> linkages;
    std::vector<network_stream> streams;
};

// specifier: for private descriptors that stand under none; without it the one that is usual for
// the original_network_id.
network_section read_network(bytes nit, std::optional<std::uint32_t> specifier = std::nullopt);

// ---- SDT

// A service that an NVOD_reference_descriptor names.
struct service_reference {
    std::uint16_t transport_stream_id = 0;
    std::uint16_t original_network_id = 0;
    std::uint16_t service_id = 0;
};

// An entry of the service loop of an SDT. What the library answers is read as well, for tables of
// so many services that asking about each would take too long.
struct described_service {
    std::uint16_t original_network_id = 0;
    std::uint16_t service_id = 0;
    std::uint8_t eit_schedule = 0;
    std::uint8_t eit_present_following = 0;
    std::uint8_t running_status = 0;
    std::uint8_t free_ca_mode = 0;
    std::optional<std::uint8_t> service_type = {};
    std::vector<std::uint8_t> provider = {}; // as broadcast
    std::vector<std::uint8_t> name = {};
    carried carries = {};
    std::vector<linkage> linkages = {};
    std::optional<std::uint16_t> time_shifted_of = {}; // service_id of the NVOD reference service
    std::vector<service_reference> nvod_references = {};
};

std::vector<described_service> described_services(bytes sdt);

// ---- PMT

enum class stream_kind { video, audio, teletext, subtitles, other };

// An elementary stream of a PMT.
struct elementary_stream {
    std::uint16_t pid = 0;
    stream_kind kind = stream_kind::other;
    std::string format = {};                 // "H.264", "AC-3" ...; empty when it has no name
    std::vector<std::string> languages = {}; // ISO 639 codes
    bool has_language = false;               // carries an ISO_639_language_descriptor
    bool is_ac3 = false;
    std::uint8_t stream_type = 0;
    std::vector<std::uint16_t> data_broadcast_ids = {};
};

std::vector<elementary_stream> elementary_streams(bytes pmt);

} // namespace tool

#endif
