// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections_delivery.h"

#include <array>

#include "orva_si_bytes.h"
#include "sections.h"

namespace tool {
namespace {

using json = nlohmann::ordered_json;
using si::byte_reader;

constexpr std::uint64_t million = 1000000;

// Digits of BCD as a number; none when one of them is no digit.
constexpr std::optional<std::uint64_t> from_bcd(std::uint64_t digits, unsigned count)
{
    std::uint64_t value = 0;
    while (count-- != 0) {
        const std::uint64_t digit = digits >> 4 * count & 0x0F;
        if (digit > 9)
            return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

std::optional<std::uint64_t> times(std::optional<std::uint64_t> value, std::uint64_t unit)
{
    return value ? std::optional{*value * unit} : std::nullopt;
}

json or_null(std::optional<std::uint64_t> value)
{
    return value ? json(*value) : json{};
}

// A number of millions with the decimals that it has.
std::string millions(std::optional<std::uint64_t> units)
{
    if (!units)
        return "?";
    std::string text = std::to_string(*units / million);
    std::string fraction = std::to_string(million + *units % million).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return fraction.empty() ? text : text + "." + fraction;
}

template <std::size_t N>
std::string name_of(const std::array<const char *, N> &names, std::size_t value)
{
    return value < N && names[value][0] != '\0' ? std::string{" "} + names[value] : "";
}

constexpr std::array code_rates{"",    "1/2", "2/3", "3/4", "5/6",
                                "7/8", "8/9", "3/5", "4/5", "9/10"}; // FEC_inner

// "19.2E"
std::string position_text(std::optional<std::uint64_t> tenths, bool east)
{
    const std::string degrees =
        tenths ? std::to_string(*tenths / 10) + "." + std::to_string(*tenths % 10) : "?";
    return degrees + (east ? "E" : "W");
}

// The cells of a T2_delivery_system_descriptor with the frequencies of each.
json t2_cells(byte_reader in, bool time_frequency_slicing)
{
    auto cells = json::array();
    while (in.more()) {
        const std::uint16_t cell_id = in.u16();
        auto frequencies = json::array();
        byte_reader centres = time_frequency_slicing ? in.nested8() : in.nested(4);
        in.nested8(); // transposers
        if (!in.ok)
            break;
        while (centres.left() >= 4)
            frequencies.push_back(std::uint64_t{centres.u32()} * 10);
        cells.push_back({{"cell_id", cell_id}, {"centre_frequency_Hz", frequencies}});
    }
    return cells;
}

std::optional<delivery> second_terrestrial(byte_reader in)
{
    constexpr std::array bandwidths{"8 MHz", "7 MHz", "6 MHz", "5 MHz", "10 MHz", "1.712 MHz"};
    const unsigned plp = in.u8();
    const unsigned system_id = in.u16();
    if (!in.ok)
        return std::nullopt;
    delivery told{"DVB-T2", {{"system", "DVB-T2"}, {"plp_id", plp}, {"T2_system_id", system_id}}};
    if (in.left() >= 2) {
        const std::uint8_t first = in.u8();
        const std::uint8_t second = in.u8();
        const auto cells = t2_cells(in, (second & 1) != 0);
        if (!cells.empty() && !cells[0]["centre_frequency_Hz"].empty())
            told.summary +=
                " " + frequency_text(cells[0]["centre_frequency_Hz"][0].get<std::uint64_t>());
        told.summary += name_of(bandwidths, first >> 2 & 0x0F);
        told.fields.update({{"SISO_MISO", first >> 6},
                            {"bandwidth", first >> 2 & 0x0F},
                            {"guard_interval", second >> 5},
                            {"transmission_mode", second >> 2 & 0x07},
                            {"other_frequency_flag", second >> 1 & 1},
                            {"tfs_flag", second & 1},
                            {"cells", cells}});
    }
    told.summary += " PLP " + std::to_string(plp);
    return told;
}

std::optional<delivery> second_cable(byte_reader in)
{
    const unsigned plp = in.u8();
    const unsigned slice = in.u8();
    const std::uint32_t frequency = in.u32();
    const std::uint8_t rest = in.u8();
    if (!in.ok)
        return std::nullopt;
    return delivery{"DVB-C2 " + frequency_text(frequency) + " slice " + std::to_string(slice) +
                        " PLP " + std::to_string(plp),
                    {{"system", "DVB-C2"},
                     {"plp_id", plp},
                     {"data_slice_id", slice},
                     {"C2_System_tuning_frequency_Hz", frequency},
                     {"C2_System_tuning_frequency_type", rest >> 6},
                     {"active_OFDM_symbol_duration", rest >> 3 & 0x07},
                     {"guard_interval", rest & 0x07}}};
}

} // namespace

std::string frequency_text(std::optional<std::uint64_t> hertz)
{
    if (hertz && *hertz < million)
        return "frequency not given";
    return millions(hertz) + " MHz";
}

delivery delivery_of(const SiSatelliteDelivery &coded)
{
    constexpr std::array polarisations{"H", "V", "L", "R"};
    const auto frequency = times(from_bcd(coded.frequency, 8), 10000);
    const auto position = from_bcd(coded.orbital_position, 4);
    const auto symbols = times(from_bcd(coded.symbol_rate, 7), 100);
    const char *system = coded.modulation_system != 0 ? "DVB-S2" : "DVB-S";
    return delivery{
        system + (" " + frequency_text(frequency)) + name_of(polarisations, coded.polarisation) +
            " " + millions(symbols) + " MS/s" + name_of(code_rates, coded.FEC_inner) + " " +
            position_text(position, coded.west_east_flag != 0),
        {{"system", system},
         {"frequency_Hz", or_null(frequency)},
         {"orbital_position", position ? json(static_cast<double>(*position) / 10) : json{}},
         {"west_east_flag", coded.west_east_flag},
         {"polarisation", coded.polarisation},
         {"roll_off", coded.roll_off},
         {"modulation_system", coded.modulation_system},
         {"modulation_type", coded.modulation_type},
         {"symbol_rate", or_null(symbols)},
         {"FEC_inner", coded.FEC_inner}}};
}

delivery delivery_of(const SiCableDelivery &coded)
{
    constexpr std::array modulations{"", "16-QAM", "32-QAM", "64-QAM", "128-QAM", "256-QAM"};
    const auto frequency = times(from_bcd(coded.frequency, 8), 100);
    const auto symbols = times(from_bcd(coded.symbol_rate, 7), 100);
    return delivery{"DVB-C " + frequency_text(frequency) + name_of(modulations, coded.modulation) +
                        " " + millions(symbols) + " MS/s",
                    {{"system", "DVB-C"},
                     {"frequency_Hz", or_null(frequency)},
                     {"FEC_outer", coded.FEC_outer},
                     {"modulation", coded.modulation},
                     {"symbol_rate", or_null(symbols)},
                     {"FEC_inner", coded.FEC_inner}}};
}

delivery delivery_of(const SiTerrDelivery &coded)
{
    // A centre_frequency of all ones stands for several frequencies, told elsewhere.
    constexpr std::uint32_t several_frequencies = 0xFFFFFFFF;
    constexpr std::array bandwidths{"8 MHz", "7 MHz", "6 MHz", "5 MHz"};
    constexpr std::array constellations{"QPSK", "16-QAM", "64-QAM"};
    constexpr std::array rates{"1/2", "2/3", "3/4", "5/6", "7/8"};
    const bool several = coded.centre_frequency == several_frequencies;
    const std::uint64_t frequency = std::uint64_t{coded.centre_frequency} * 10;
    return delivery{"DVB-T " + (several ? "several frequencies" : frequency_text(frequency)) +
                        name_of(bandwidths, coded.bandwidth) +
                        name_of(constellations, coded.constellation) +
                        name_of(rates, coded.code_rate_hp_stream),
                    {{"system", "DVB-T"},
                     {"centre_frequency_Hz", several ? json{} : json(frequency)},
                     {"bandwidth", coded.bandwidth},
                     {"priority", coded.priority},
                     {"Time_Slicing_indicator", coded.time_slicing_indicator},
                     {"MPE-FEC_indicator", coded.mpe_fec_indicator},
                     {"constellation", coded.constellation},
                     {"hierarchy_information", coded.hierarchy_information},
                     {"code_rate-HP_stream", coded.code_rate_hp_stream},
                     {"code_rate-LP_stream", coded.code_rate_lp_stream},
                     {"guard_interval", coded.guard_interval},
                     {"transmission_mode", coded.transmission_mode},
                     {"other_frequency_flag", coded.other_frequency_flag}}};
}

std::optional<delivery> extended_delivery(std::span<const std::uint8_t> payload)
{
    byte_reader in{payload};
    const std::uint8_t extension = in.u8();
    if (!in.ok)
        return std::nullopt;
    if (extension == t2_delivery_extension)
        return second_terrestrial(in);
    return extension == c2_delivery_extension ? second_cable(in) : std::nullopt;
}

std::optional<input_stream> read_input_stream(std::span<const std::uint8_t> payload)
{
    constexpr std::uint8_t scrambling_sequence_selector = 0x80;
    constexpr std::uint8_t multiple_input_stream_flag = 0x40;
    constexpr std::uint32_t index_bits = 0x3FFFF;
    byte_reader in{payload};
    const std::uint8_t flags = in.u8();
    input_stream which;
    if ((flags & scrambling_sequence_selector) != 0)
        which.scrambling_sequence_index = in.u24() & index_bits;
    if ((flags & multiple_input_stream_flag) != 0)
        which.input_stream_identifier = in.u8();
    return in.ok ? std::optional{which} : std::nullopt;
}

void add_input_stream(delivery &to, const input_stream &which)
{
    if (which.scrambling_sequence_index)
        to.fields["scrambling_sequence_index"] = *which.scrambling_sequence_index;
    if (!which.input_stream_identifier)
        return;
    to.fields["input_stream_identifier"] = *which.input_stream_identifier;
    to.summary += " ISI " + std::to_string(*which.input_stream_identifier);
}

std::optional<std::uint64_t> listed_frequency(std::uint8_t coding_type, std::uint32_t coded)
{
    constexpr unsigned digits = 8;
    switch (coding_type) {
    case 1: // satellite
        return times(from_bcd(coded, digits), 10000);
    case 2: // cable
        return times(from_bcd(coded, digits), 100);
    case 3: // terrestrial
        return std::uint64_t{coded} * 10;
    default:
        return std::nullopt;
    }
}

} // namespace tool
