// SPDX-License-Identifier: LGPL-2.1-or-later
// How transport streams are broadcast (EN 300 468, 6.2.13 and 6.4.6), for people and for programs.
#ifndef TOOLS_SECTIONS_DELIVERY_H
#define TOOLS_SECTIONS_DELIVERY_H

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orva_si.h"

namespace tool {

struct delivery {
    std::string summary;           // for people
    nlohmann::ordered_json fields; // for programs
};

// What the library says.
delivery delivery_of(const SiSatelliteDelivery &coded);
delivery delivery_of(const SiCableDelivery &coded);
delivery delivery_of(const SiTerrDelivery &coded);

// What it does not read: the payload of a T2_delivery_system_descriptor or
// C2_delivery_system_descriptor, descriptor_tag_extension included; none for others.
std::optional<delivery> extended_delivery(std::span<const std::uint8_t> payload);

// Which input stream of a DVB-S2 signal a transport stream is: S2_satellite_delivery_system_
// descriptor.
struct input_stream {
    std::optional<std::uint32_t> scrambling_sequence_index;
    std::optional<std::uint8_t> input_stream_identifier;
};

std::optional<input_stream> read_input_stream(std::span<const std::uint8_t> payload);
void add_input_stream(delivery &to, const input_stream &which);

// A frequency of a frequency_list_descriptor in Hz; none for impossible digits or a coding_type
// that is not defined.
std::optional<std::uint64_t> listed_frequency(std::uint8_t coding_type, std::uint32_t coded);

// "11757.25 MHz"; tells as well when there is no frequency, or its digits are impossible.
std::string frequency_text(std::optional<std::uint64_t> hertz);

} // namespace tool

#endif
