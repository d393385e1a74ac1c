// SPDX-License-Identifier: LGPL-2.1-or-later
// Builders of sections and descriptors (ISO/IEC 13818-1, EN 300 468). Lengths, reserved bits and
// CRC_32 come out right; damage, set_length, cut and fix_crc make the wrong ones.
//
//   make(sdt{.ts = 7, .services = {{.id = 0x1001, .descriptors = {service_descriptor(1, "P",
//   "News")}}}})
#ifndef TESTS_SUPPORT_SECTIONS_H
#define TESTS_SUPPORT_SECTIONS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace test {

using octets = std::vector<std::uint8_t>;

// Reserved bits are ones, as the standards ask; a test of what must ignore them may clear them all.
inline constexpr std::uint16_t no_pid = 0x1FFF;

// ---- Tables. The fields that all of them share stand in front: ids, then version to
// last_section_number.

struct pat_program {
    std::uint16_t number = 1; // 0: the network PID
    std::uint16_t pid = 0x100;
};
struct pat {
    std::uint16_t ts = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<pat_program> programs{};
};

struct cat {
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<octets> descriptors{};
};

struct pmt_stream {
    std::uint8_t type = 0x02;
    std::uint16_t pid = 0x101;
    std::vector<octets> descriptors{};
};
struct pmt {
    std::uint16_t program = 1;
    std::uint16_t pcr_pid = no_pid;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<octets> descriptors{};
    std::vector<pmt_stream> streams{};
};

// An entry of the transport stream loop of a NIT or BAT.
struct transport {
    std::uint16_t ts = 1;
    std::uint16_t original_network = 1;
    std::vector<octets> descriptors{};
};
struct nit {
    std::uint8_t table_id = 0x40; // 0x41: other
    std::uint16_t network = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<octets> descriptors{};
    std::vector<transport> transports{};
};
struct bat {
    std::uint16_t bouquet = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<octets> descriptors{};
    std::vector<transport> transports{};
};

struct sdt_service {
    std::uint16_t id = 1;
    bool eit_schedule = false;
    bool eit_present_following = false;
    std::uint8_t running_status = 4;
    bool free_ca_mode = false;
    std::vector<octets> descriptors{};
};
struct sdt {
    std::uint8_t table_id = 0x42; // 0x46: other
    std::uint16_t ts = 1;
    std::uint16_t original_network = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    std::vector<sdt_service> services{};
};

struct eit_event {
    std::uint16_t id = 1;
    std::uint16_t mjd = 0xEB00;          // day of start
    std::uint32_t start_bcd = 0;         // 0x203000: 20:30:00 UTC
    std::uint32_t duration_bcd = 0x3000; // 0x003000: half an hour
    std::uint8_t running_status = 0;
    bool free_ca_mode = false;
    std::vector<octets> descriptors{};
};
struct eit {
    std::uint8_t table_id = 0x4E; // 0x4F other p/f, 0x50-0x5F schedule, 0x60-0x6F other schedule
    std::uint16_t service = 1;
    std::uint16_t ts = 1;
    std::uint16_t original_network = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    int segment_last_section_number = -1; // -1: last_section_number
    int last_table_id = -1;               // -1: table_id
    std::vector<eit_event> events{};
};

// Short sections of PID 0x14: the TDT ends behind the time, the TOT carries descriptors and a
// CRC_32.
struct tdt {
    std::uint16_t mjd = 0xEB00;
    std::uint32_t utc_bcd = 0;
};
struct tot {
    std::uint16_t mjd = 0xEB00;
    std::uint32_t utc_bcd = 0;
    std::vector<octets> descriptors{};
};

// Any long section: what stands between last_section_number and the CRC_32 as given.
struct private_table {
    std::uint8_t table_id = 0x3E;
    std::uint16_t extension = 1;
    std::uint8_t version = 0;
    bool current_next = true;
    std::uint8_t section_number = 0;
    std::uint8_t last_section_number = 0;
    octets payload{};
};

octets make(const pat &table);
octets make(const cat &table);
octets make(const pmt &table);
octets make(const nit &table);
octets make(const bat &table);
octets make(const sdt &table);
octets make(const eit &table);
octets make(const tdt &table);
octets make(const tot &table);
octets make(const private_table &table);

// ---- Descriptors

// Any descriptor; bytes beyond 255 are a mistake of the test.
octets raw(std::uint8_t tag, const octets &payload);
octets raw_text(std::uint8_t tag, std::string_view text);

octets ca(std::uint16_t system_id, std::uint16_t pid, const octets &private_data = {}); // 0x09
octets iso639(std::string_view language, std::uint8_t audio_type = 0);                  // 0x0A
octets network_name(std::string_view name);                                             // 0x40
struct listed_service {
    std::uint16_t id = 1;
    std::uint8_t type = 1;
};
octets service_list(const std::vector<listed_service> &services); // 0x41
octets bouquet_name(std::string_view name);                       // 0x47
octets service_descriptor(std::uint8_t type, std::string_view provider,
                          std::string_view name);                                            // 0x48
octets short_event(std::string_view language, std::string_view name, std::string_view text); // 0x4D
octets component(std::uint8_t stream_content, std::uint8_t component_type, std::uint8_t tag = 0,
                 std::string_view language = "eng", std::string_view text = ""); // 0x50
struct teletext_page {
    std::string_view language = "eng";
    std::uint8_t type = 1;
    std::uint8_t magazine = 1;
    std::uint8_t page = 0;
};
octets teletext(const std::vector<teletext_page> &pages); // 0x56
struct subtitle {
    std::string_view language = "eng";
    std::uint8_t type = 0x10;
    std::uint16_t composition_page = 1;
    std::uint16_t ancillary_page = 1;
};
octets subtitling(const std::vector<subtitle> &entries); // 0x59
octets private_data_specifier(std::uint32_t value);      // 0x5F
octets ac3(std::uint8_t flags = 0);                      // 0x6A

// ---- Sections that are not as they should be

// A CRC_32 that does not fit; everything else, the section's number included, stays.
octets damage(octets section);
// Writes the 12 bits of section_length; the bytes stay as many, and the CRC_32 as it is.
octets set_length(octets section, std::size_t section_length);
// Computes the CRC_32 anew: over what section_length covers, into the last four bytes of that; a
// section that is shorter than it claims, or has no room for a CRC_32, stays as it is.
octets fix_crc(octets section);
// Keeps the first bytes, the last four of them a fitting CRC_32, and lets section_length say so.
octets cut(octets section, std::size_t size);
// One byte or a 12-bit length field replaced, the CRC_32 repaired.
octets with_byte(octets section, std::size_t at, std::uint8_t value);
octets with_length12(octets section, std::size_t at, std::size_t value);

// The CRC-32 of MPEG sections (ISO/IEC 13818-1 annex A), bit by bit.
std::uint32_t crc32_of(std::span<const std::uint8_t> bytes);
// The CRC_32 field: the last four bytes.
std::uint32_t crc_of(const octets &section);

} // namespace test

#endif
