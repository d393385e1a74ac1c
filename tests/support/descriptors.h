// SPDX-License-Identifier: LGPL-2.1-or-later
// Builders of more descriptors; those that nearly every test needs are in sections.h. Layouts are
// those of EN 300 468 clauses 6.2 and 6.4 unless the builder says otherwise. Reserved bits are
// ones. Fields wider than their bits are cut; what runs over a length byte is a mistake of the
// test. Descriptors that are not as they should be are made with raw().
//
//   linkage({.ts = 7, .service = 0x701})
//   target_region("GBR", {{.depth = 1, .primary = 5}, {.country = "IRL"}})
#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/sections.h"

namespace test {

// ---- Networks and delivery

struct name_in_language {
    std::string_view language = "eng";
    std::string_view name{};
};
octets multilingual_network_name(const std::vector<name_in_language> &names); // 0x5B

struct satellite_delivery {
    std::uint32_t frequency = 0x01175725;    // 8 BCD digits, 10 kHz
    std::uint16_t orbital_position = 0x0192; // 4 BCD digits, 0.1 degree
    bool east = true;
    std::uint8_t polarisation = 0;
    std::uint8_t roll_off = 0;
    std::uint8_t modulation_system = 0;
    std::uint8_t modulation_type = 1;
    std::uint32_t symbol_rate = 0x0275000; // 7 BCD digits, 100 symbols/s
    std::uint8_t fec_inner = 3;
};
octets satellite(const satellite_delivery &fields = {}); // 0x43

struct cable_delivery {
    std::uint32_t frequency = 0x03120000; // 8 BCD digits, 100 Hz
    std::uint8_t fec_outer = 2;
    std::uint8_t modulation = 3;
    std::uint32_t symbol_rate = 0x0068750; // 7 BCD digits, 100 symbols/s
    std::uint8_t fec_inner = 15;
};
octets cable(const cable_delivery &fields = {}); // 0x44

struct terrestrial_delivery {
    std::uint32_t centre_frequency = 62600000; // 10 Hz
    std::uint8_t bandwidth = 0;
    std::uint8_t priority = 1;
    std::uint8_t time_slicing_indicator = 1;
    std::uint8_t mpe_fec_indicator = 1;
    std::uint8_t constellation = 2;
    std::uint8_t hierarchy_information = 0;
    std::uint8_t code_rate_hp_stream = 1;
    std::uint8_t code_rate_lp_stream = 0;
    std::uint8_t guard_interval = 0;
    std::uint8_t transmission_mode = 1;
    std::uint8_t other_frequency_flag = 0;
};
octets terrestrial(const terrestrial_delivery &fields = {}); // 0x5A

// coding_type: 1 satellite, 2 cable, 3 terrestrial.
octets frequency_list(std::uint8_t coding_type,
                      const std::vector<std::uint32_t> &frequencies); // 0x62

// ---- Linkage

struct linkage_fields {
    std::uint16_t ts = 1;
    std::uint16_t original_network = 1;
    std::uint16_t service = 1;
    std::uint8_t type = 0x01;
    octets data{}; // what follows linkage_type; one of the makers below or any bytes
};
octets linkage(const linkage_fields &fields = {}); // 0x4A

struct hand_over { // linkage_type 0x08
    std::uint8_t type = 1;
    std::uint8_t origin_type = 1;      // 0: from an NIT, 1: from an SDT
    std::uint16_t network = 1;         // written for the types 1 to 3
    std::uint16_t initial_service = 1; // written for origin_type 0
};
octets hand_over_data(const hand_over &fields = {});

struct software_update { // linkage_type 0x09, ETSI TS 102 006
    std::uint32_t oui = 0x00015A;
    octets selector{};
};
octets software_update_data(const std::vector<software_update> &entries,
                            const octets &private_data = {});

struct ip_platform { // linkage_type 0x0B, EN 301 192
    std::uint32_t id = 1;
    std::vector<name_in_language> names{};
};
octets ip_notification_data(const std::vector<ip_platform> &platforms,
                            const octets &private_data = {});

// linkage_type 0x0C, EN 301 192; bouquet is written for table_type 2.
octets deferred_notification_data(std::uint8_t table_type, std::uint16_t bouquet = 1);

// ---- Services

struct service_name_in_language {
    std::string_view language = "eng";
    std::string_view provider{};
    std::string_view name{};
};
octets multilingual_service_name(const std::vector<service_name_in_language> &names); // 0x5D

octets service_move(std::uint16_t original_network, std::uint16_t ts,
                    std::uint16_t service); // 0x60

struct data_broadcast_fields {
    std::uint16_t id = 0x000A;
    std::uint8_t component_tag = 0;
    octets selector{};
    std::string_view language = "eng";
    std::string_view text{};
};
octets data_broadcast(const data_broadcast_fields &fields = {}); // 0x64

octets data_broadcast_id(std::uint16_t id, const octets &selector = {}); // 0x66

struct association {
    std::uint16_t tag = 1;
    std::uint16_t use = 0x0100;
    octets selector{};
    octets private_data{};
};
octets association_tag(const association &fields = {}); // 0x14, ISO/IEC 13818-6

octets service_availability(bool available, const std::vector<std::uint16_t> &cells); // 0x72

struct region {
    std::string_view country{}; // written with its flag when not empty
    std::uint8_t depth = 0;     // how many of the codes are written
    std::uint8_t primary = 0;
    std::uint8_t secondary = 0;
    std::uint16_t tertiary = 0;
};
octets target_region(std::string_view country, const std::vector<region> &regions); // 0x7F, 0x09

struct named_region {
    std::string_view name{};
    std::uint8_t depth = 1; // the primary code is always written
    std::uint8_t primary = 1;
    std::uint8_t secondary = 0;
    std::uint16_t tertiary = 0;
};
octets target_region_name(std::string_view country, std::string_view language,
                          const std::vector<named_region> &regions); // 0x7F, 0x0A

// ---- Private descriptors: they count behind a private_data_specifier only

// The width of a logical_channel_number; the bits between the flag and the number are reserved.
enum class lcn_bits : std::uint8_t { ten = 10, fourteen = 14 };

struct logical_channel {
    std::uint16_t service = 1;
    bool visible = true;
    std::uint16_t number = 1;
};
octets logical_channels(const std::vector<logical_channel> &channels,
                        lcn_bits width = lcn_bits::ten); // 0x83

struct channel_list {
    std::uint8_t id = 1;
    std::string_view name{};
    std::string_view country = "nor";
    std::vector<logical_channel> channels{};
};
octets nordig_channels(const std::vector<channel_list> &lists,
                       lcn_bits width = lcn_bits::ten); // 0x87 in a NIT, NorDig version 2

struct preferred_name {
    std::uint8_t id = 1;
    std::string_view name{};
};
struct preferred_names {
    std::string_view language = "eng";
    std::vector<preferred_name> names{};
};
octets preferred_name_list(const std::vector<preferred_names> &languages); // 0x84
octets preferred_name_identifier(std::uint8_t id);                         // 0x85

struct attributed_service {
    std::uint16_t id = 1;
    bool numeric_selection = true;
    bool visible = true;
};
octets service_attributes(const std::vector<attributed_service> &services); // 0x86

octets short_service_name(std::string_view name); // 0x87 in an SDT

// brands: written with match_brand_flag unless there are none.
octets ci_protection(bool free_ci_mode, const std::vector<std::uint16_t> &brands = {},
                     const octets &private_data = {}); // 0xCE

// ---- Events

struct event_item {
    std::string_view description{};
    std::string_view item{};
};
struct extended_event_fields {
    std::uint8_t number = 0;
    std::uint8_t last_number = 0;
    std::string_view language = "eng";
    std::vector<event_item> items{};
    std::string_view text{};
};
octets extended_event(const extended_event_fields &fields = {}); // 0x4E

struct content_genre {
    std::uint8_t level_1 = 0;
    std::uint8_t level_2 = 0;
    std::uint8_t user_1 = 0; // the two nibbles of user_byte
    std::uint8_t user_2 = 0;
};
octets content(const std::vector<content_genre> &genres); // 0x54

struct country_rating {
    std::string_view country = "GBR";
    std::uint8_t rating = 0; // 1 to 15: three years less than the minimum age
};
octets parental_rating(const std::vector<country_rating> &ratings); // 0x55

octets ca_identifier(const std::vector<std::uint16_t> &system_ids); // 0x53

} // namespace test

#endif
