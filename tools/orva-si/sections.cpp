// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "dvb_text.h"
#include "orva_si.h"
#include "orva_si_bytes.h"
#include "store_walk.h"

namespace tool {
namespace {

using si::byte_reader;

constexpr std::size_t long_header = 8; // table_id to last_section_number
constexpr std::size_t longest = 4096;

struct descriptor {
    std::uint8_t tag;
    bytes data;
};

template <class Visit>
void each_descriptor(byte_reader loop, Visit visit)
{
    while (loop.more()) {
        const std::uint8_t tag = loop.u8();
        const byte_reader data = loop.nested8();
        if (!loop.ok)
            return;
        visit(descriptor{tag, data.all()});
    }
}

// A length of 12 bits below reserved ones, and that many bytes.
byte_reader nested12(byte_reader &in)
{
    const std::size_t length = in.u16() & 0x0FFF;
    return in.nested(length);
}

} // namespace

std::vector<section> stored_sections(std::span<const table_id> wanted)
{
    std::vector<section> copies;
    const store_lock held;
    each_element<SiTable>(Orva_Si_GetTableList(), [&](const SiTable &table) {
        if (table.completed == 0 ||
            std::find(wanted.begin(), wanted.end(), table.table_id) == wanted.end())
            return;
        const std::size_t first = copies.size();
        each_element<SiSection>(table.psect_list, [&](const SiSection &stored) {
            if (stored.section != nullptr && stored.sect_len >= long_header &&
                stored.sect_len <= longest)
                copies.push_back({table.table_id,
                                  table.ext,
                                  {stored.section, stored.section + stored.sect_len}});
        });
        constexpr std::size_t section_number = 6;
        std::stable_sort(copies.begin() + static_cast<std::ptrdiff_t>(first), copies.end(),
                         [](const section &a, const section &b) {
                             return a.data[section_number] < b.data[section_number];
                         });
    });
    return copies;
}

std::optional<bytes> payload(bytes whole)
{
    constexpr std::uint8_t syntax_indicator = 0x80;
    if (whole.size() < long_header + si::crc_bytes || (whole[1] & syntax_indicator) == 0 ||
        si::section_size(whole.data()) != whole.size() || si::crc32_mpeg(whole) != 0)
        return std::nullopt;
    return whole.subspan(long_header, whole.size() - long_header - si::crc_bytes);
}

namespace {

// ---- delivery

// Digits of BCD as a number; digits above 9 count as they stand.
constexpr std::uint64_t from_bcd(std::uint64_t digits, unsigned count)
{
    std::uint64_t value = 0;
    while (count-- != 0)
        value = value * 10 + (digits >> 4 * count & 0x0F);
    return value;
}

// A number of millions with the decimals that it has.
std::string millions(std::uint64_t units)
{
    std::string text = std::to_string(units / 1000000);
    std::string fraction = std::to_string(1000000 + units % 1000000).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return fraction.empty() ? text : text + "." + fraction;
}

template <std::size_t N>
std::string name_of(const std::array<const char *, N> &names, std::size_t value)
{
    return value < N && names[value] != nullptr ? std::string{" "} + names[value] : "";
}

constexpr std::array code_rates{"",    "1/2", "2/3", "3/4", "5/6",
                                "7/8", "8/9", "3/5", "4/5", "9/10"}; // FEC_inner

std::optional<delivery> satellite(byte_reader in)
{
    constexpr std::array polarisations{"H", "V", "L", "R"};
    const std::uint64_t frequency = from_bcd(in.u32(), 8) * 10000;
    const std::uint64_t position = from_bcd(in.u16(), 4);
    const std::uint8_t flags = in.u8();
    const std::uint32_t rate_and_fec = in.u32();
    if (!in.ok)
        return std::nullopt;
    const bool east = (flags & 0x80) != 0;
    const unsigned polarisation = flags >> 5 & 0x03;
    const bool second_generation = (flags & 0x04) != 0;
    const std::uint64_t symbols = from_bcd(rate_and_fec >> 4, 7) * 100;
    const unsigned fec = rate_and_fec & 0x0F;
    const char *system = second_generation ? "DVB-S2" : "DVB-S";
    return delivery{system + (" " + millions(frequency)) + " MHz" +
                        name_of(polarisations, polarisation) + " " + millions(symbols) + " MS/s" +
                        name_of(code_rates, fec) + " " + std::to_string(position / 10) + "." +
                        std::to_string(position % 10) + (east ? "E" : "W"),
                    {{"system", system},
                     {"frequency_Hz", frequency},
                     {"orbital_position", static_cast<double>(position) / 10},
                     {"west_east_flag", east ? 1 : 0},
                     {"polarisation", polarisation},
                     {"roll_off", flags >> 3 & 0x03},
                     {"modulation_system", second_generation ? 1 : 0},
                     {"modulation_type", flags & 0x03},
                     {"symbol_rate", symbols},
                     {"FEC_inner", fec}}};
}

std::optional<delivery> cable(byte_reader in)
{
    constexpr std::array modulations{"", "16-QAM", "32-QAM", "64-QAM", "128-QAM", "256-QAM"};
    const std::uint64_t frequency = from_bcd(in.u32(), 8) * 100;
    const unsigned outer = in.u16() & 0x0F;
    const unsigned modulation = in.u8();
    const std::uint32_t rate_and_fec = in.u32();
    if (!in.ok)
        return std::nullopt;
    const std::uint64_t symbols = from_bcd(rate_and_fec >> 4, 7) * 100;
    return delivery{"DVB-C " + millions(frequency) + " MHz" + name_of(modulations, modulation) +
                        " " + millions(symbols) + " MS/s",
                    {{"system", "DVB-C"},
                     {"frequency_Hz", frequency},
                     {"FEC_outer", outer},
                     {"modulation", modulation},
                     {"symbol_rate", symbols},
                     {"FEC_inner", rate_and_fec & 0x0F}}};
}

// A centre_frequency of all ones stands for several frequencies, told elsewhere.
constexpr std::uint32_t several_frequencies = 0xFFFFFFFF;

std::optional<delivery> terrestrial(byte_reader in)
{
    constexpr std::array bandwidths{"8 MHz", "7 MHz", "6 MHz", "5 MHz"};
    constexpr std::array constellations{"QPSK", "16-QAM", "64-QAM"};
    constexpr std::array rates{"1/2", "2/3", "3/4", "5/6", "7/8"};
    const std::uint32_t centre = in.u32();
    const std::uint8_t first = in.u8();
    const std::uint8_t second = in.u8();
    const std::uint8_t third = in.u8();
    if (!in.ok)
        return std::nullopt;
    const bool several = centre == several_frequencies;
    const std::uint64_t frequency = std::uint64_t{centre} * 10;
    return delivery{"DVB-T" +
                        (several ? " several frequencies" : " " + millions(frequency) + " MHz") +
                        name_of(bandwidths, first >> 5) + name_of(constellations, second >> 6) +
                        name_of(rates, second & 0x07),
                    {{"system", "DVB-T"},
                     {"centre_frequency_Hz",
                      several ? nlohmann::ordered_json{} : nlohmann::ordered_json(frequency)},
                     {"bandwidth", first >> 5},
                     {"priority", first >> 4 & 1},
                     {"Time_Slicing_indicator", first >> 3 & 1},
                     {"MPE-FEC_indicator", first >> 2 & 1},
                     {"constellation", second >> 6},
                     {"hierarchy_information", second >> 3 & 0x07},
                     {"code_rate-HP_stream", second & 0x07},
                     {"code_rate-LP_stream", third >> 5},
                     {"guard_interval", third >> 3 & 0x03},
                     {"transmission_mode", third >> 1 & 0x03},
                     {"other_frequency_flag", third & 1}}};
}

// The cells of a T2_delivery_system_descriptor with the frequencies of each.
nlohmann::ordered_json t2_cells(byte_reader in, bool time_frequency_slicing)
{
    auto cells = nlohmann::ordered_json::array();
    while (in.more()) {
        const std::uint16_t cell_id = in.u16();
        auto frequencies = nlohmann::ordered_json::array();
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
            told.summary += " " + millions(cells[0]["centre_frequency_Hz"][0]) + " MHz";
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

std::optional<delivery> extension(byte_reader in)
{
    constexpr std::uint8_t t2_delivery_system = 0x04;
    return in.u8() == t2_delivery_system ? second_terrestrial(in) : std::nullopt;
}

struct delivery_reader {
    std::uint8_t tag;
    std::optional<delivery> (*read)(byte_reader in);
};

constexpr delivery_reader delivery_readers[] = {
    {0x43, satellite}, {0x44, cable}, {0x5A, terrestrial}, {0x7F, extension}};

std::optional<delivery> delivery_of(const descriptor &d)
{
    for (const delivery_reader &reader : delivery_readers)
        if (reader.tag == d.tag)
            return reader.read(byte_reader{d.data});
    return std::nullopt;
}

// ---- logical channel numbers

// NorDig numbers have 14 bits, those of others 10 below reserved ones.
constexpr std::uint32_t nordig_specifier = 0x00000029;

void append_numbers(std::vector<channel_number> &numbers, bytes data, std::uint32_t specifier)
{
    const std::uint16_t mask = specifier == nordig_specifier ? 0x3FFF : 0x03FF;
    for (byte_reader in{data}; in.more();) {
        const std::uint16_t service_id = in.u16();
        const std::uint16_t number = in.u16();
        if (!in.ok)
            return;
        numbers.push_back(
            {service_id, static_cast<std::uint16_t>(number & mask), (number & 0x8000) != 0});
    }
}

network_stream read_network_stream(std::uint16_t ts, std::uint16_t onid, byte_reader descriptors)
{
    constexpr std::uint8_t private_data_specifier = 0x5F;
    constexpr std::uint8_t logical_channel = 0x83;
    network_stream stream{ts, onid, std::nullopt, {}};
    std::uint32_t specifier = 0;
    each_descriptor(descriptors, [&](const descriptor &d) {
        if (d.tag == private_data_specifier && d.data.size() == 4)
            specifier = si::be32(d.data.first<4>());
        else if (d.tag == logical_channel)
            append_numbers(stream.numbers, d.data, specifier);
        else if (!stream.delivered)
            stream.delivered = delivery_of(d);
    });
    return stream;
}

} // namespace

std::vector<network_stream> network_streams(bytes nit)
{
    std::vector<network_stream> streams;
    const auto body = payload(nit);
    if (!body)
        return streams;
    byte_reader in{*body};
    nested12(in); // descriptors of the network
    for (byte_reader loop = nested12(in); in.ok && loop.more();) {
        const std::uint16_t ts = loop.u16();
        const std::uint16_t onid = loop.u16();
        const byte_reader descriptors = nested12(loop);
        if (!loop.ok)
            break;
        streams.push_back(read_network_stream(ts, onid, descriptors));
    }
    return streams;
}

std::vector<described_service> described_services(bytes sdt)
{
    constexpr std::uint8_t service_descriptor = 0x48;
    std::vector<described_service> services;
    const auto body = payload(sdt);
    if (!body)
        return services;
    byte_reader in{*body};
    const std::uint16_t onid = in.u16();
    in.u8(); // reserved
    while (in.more()) {
        described_service service{onid, in.u16(), {}};
        in.u8(); // EIT flags
        const byte_reader descriptors = nested12(in);
        if (!in.ok)
            break;
        each_descriptor(descriptors, [&](const descriptor &d) {
            if (d.tag != service_descriptor || !service.provider.empty())
                return;
            byte_reader names{d.data};
            names.u8(); // service_type
            const bytes provider = names.nested8().all();
            service.provider.assign(provider.begin(), provider.end());
        });
        services.push_back(std::move(service));
    }
    return services;
}

namespace {

// ---- elementary streams

struct format_name {
    std::uint8_t code; // stream_type or descriptor_tag
    stream_kind kind;
    const char *name;
};

// stream_type (ISO/IEC 13818-1 table 2-34).
constexpr format_name stream_types[] = {
    {0x01, stream_kind::video, "MPEG-1"}, {0x02, stream_kind::video, "MPEG-2"},
    {0x03, stream_kind::audio, "MPEG"},   {0x04, stream_kind::audio, "MPEG"},
    {0x0A, stream_kind::other, "DSM-CC"}, {0x0B, stream_kind::other, "DSM-CC"},
    {0x0C, stream_kind::other, "DSM-CC"}, {0x0D, stream_kind::other, "DSM-CC"},
    {0x0F, stream_kind::audio, "AAC"},    {0x10, stream_kind::video, "MPEG-4"},
    {0x11, stream_kind::audio, "AAC"},    {0x1B, stream_kind::video, "H.264"},
    {0x1C, stream_kind::audio, "AAC"},    {0x24, stream_kind::video, "H.265"},
    {0x33, stream_kind::video, "H.266"},  {0x42, stream_kind::video, "AVS"},
    {0xD2, stream_kind::video, "AVS2"},   {0xD4, stream_kind::video, "AVS3"}};

// Descriptors that tell what a stream of private data is (EN 300 468 table 12).
constexpr format_name private_formats[] = {
    {0x45, stream_kind::other, "VBI data"},    {0x46, stream_kind::teletext, "VBI teletext"},
    {0x56, stream_kind::teletext, "teletext"}, {0x59, stream_kind::subtitles, "subtitles"},
    {0x6A, stream_kind::audio, "AC-3"},        {0x6F, stream_kind::other, "AIT"},
    {0x7A, stream_kind::audio, "E-AC-3"},      {0x7B, stream_kind::audio, "DTS"},
    {0x7C, stream_kind::audio, "AAC"}};

// Further ones, by the descriptor_tag_extension of an extension_descriptor (table 109).
constexpr format_name extended_formats[] = {{0x0E, stream_kind::audio, "DTS-HD"},
                                            {0x0F, stream_kind::audio, "DTS Neural"},
                                            {0x15, stream_kind::audio, "AC-4"},
                                            {0x20, stream_kind::subtitles, "TTML"},
                                            {0x21, stream_kind::audio, "DTS-UHD"}};

const format_name *find_format(std::span<const format_name> formats, std::uint8_t code)
{
    const auto found = std::find_if(formats.begin(), formats.end(),
                                    [code](const format_name &f) { return f.code == code; });
    return found != formats.end() ? &*found : nullptr;
}

// How each descriptor that lists languages lays out its entries; the code stands first.
struct language_list {
    std::uint8_t tag;
    std::size_t entry;
};
constexpr language_list language_lists[] = {{0x0A, 4}, {0x56, 5}, {0x59, 8}};

void append_languages(std::vector<std::string> &languages, const descriptor &d)
{
    for (const language_list &list : language_lists) {
        if (list.tag != d.tag)
            continue;
        for (byte_reader in{d.data}; in.left() >= list.entry;) {
            const bytes entry = in.span(list.entry);
            const std::string code = one_line(std::string{entry.begin(), entry.begin() + 3});
            if (std::find(languages.begin(), languages.end(), code) == languages.end())
                languages.push_back(code);
        }
    }
}

elementary_stream read_stream(std::uint8_t type, std::uint16_t pid, byte_reader descriptors)
{
    constexpr std::uint8_t iso_639_language = 0x0A;
    constexpr std::uint8_t ac3 = 0x6A;
    constexpr std::uint8_t extension_tag = 0x7F;
    elementary_stream stream;
    stream.pid = pid;
    const format_name *format = find_format(stream_types, type);
    each_descriptor(descriptors, [&](const descriptor &d) {
        stream.has_language |= d.tag == iso_639_language;
        stream.is_ac3 |= d.tag == ac3 && !d.data.empty();
        append_languages(stream.languages, d);
        if (format != nullptr)
            return;
        if (d.tag == extension_tag && !d.data.empty())
            format = find_format(extended_formats, d.data[0]);
        else
            format = find_format(private_formats, d.tag);
    });
    if (format != nullptr) {
        stream.kind = format->kind;
        stream.format = format->name;
    }
    return stream;
}

} // namespace

std::vector<elementary_stream> elementary_streams(bytes pmt)
{
    std::vector<elementary_stream> streams;
    const auto body = payload(pmt);
    if (!body)
        return streams;
    byte_reader in{*body};
    in.u16();     // PCR_PID
    nested12(in); // descriptors of the program
    while (in.more()) {
        const std::uint8_t type = in.u8();
        const std::uint16_t pid = in.u16() & 0x1FFF;
        const byte_reader descriptors = nested12(in);
        if (!in.ok)
            break;
        streams.push_back(read_stream(type, pid, descriptors));
    }
    return streams;
}

} // namespace tool
