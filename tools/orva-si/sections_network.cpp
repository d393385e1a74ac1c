// SPDX-License-Identifier: LGPL-2.1-or-later
// Entries of the NIT (EN 300 468, 5.2.1).
#include "sections_reader.h"

namespace tool {
namespace {

// ---- private_data_specifiers, as ETSI TS 101 162 registers them

constexpr std::uint32_t eacem = 0x00000028; // also EICTA, DIGITALEUROPE: the E-Book
constexpr std::uint32_t uk_terrestrial = 0x0000233A;

// Under which specifier the terrestrial networks of a country mean their private descriptors when
// they send none. Their original_network_ids are 0x2000 and the number of the country (ISO 3166-1).
struct usual_specifier {
    std::uint16_t original_network_id;
    std::uint32_t specifier;
};
constexpr usual_specifier usual_specifiers[] = {
    {0x013E, eacem},            // Eutelsat's, which Rai's terrestrial networks use
    {0x2028, eacem},            // Austria
    {0x2038, eacem},            // Belgium
    {0x20BF, eacem},            // Croatia
    {0x20CB, eacem},            // Czechia
    {0x20D0, nordig_specifier}, // Denmark
    {0x20F6, nordig_specifier}, // Finland
    {0x20FA, eacem},            // France
    {0x2114, eacem},            // Germany
    {0x215C, eacem},            // Hungary
    {0x217C, eacem},            // Italy
    {0x2210, eacem},            // Netherlands
    {0x2242, nordig_specifier}, // Norway
    {0x2268, eacem},            // Poland
    {0x226C, eacem},            // Portugal
    {0x22BF, eacem},            // Slovakia
    {0x22C1, eacem},            // Slovenia
    {0x22D4, eacem},            // Spain
    {0x22F0, nordig_specifier}, // Sweden
    {0x22F4, eacem},            // Switzerland
    {0x233A, uk_terrestrial},   // United Kingdom
};

// 0 for none.
std::uint32_t usual_specifier_of(std::uint16_t original_network_id)
{
    for (const usual_specifier &usual : usual_specifiers)
        if (usual.original_network_id == original_network_id)
            return usual.specifier;
    return 0;
}

// The specifier under which the descriptors of a loop stand.
struct scope {
    std::uint32_t specifier; // 0: none is known
    bool sent = false;
};

// ---- logical channel numbers

// Bits of a logical_channel_number. NorDig Unified gives its logical_channel_descriptor 0x83 one
// reserved bit and so 14 of number, its second version 0x87 five and 10. The E-Book, the D-Book and
// those who follow them have 10 bits behind five reserved ones in 0x83.
constexpr unsigned bits_of_second_version = 10;

constexpr unsigned number_bits(std::uint32_t specifier)
{
    return specifier == nordig_specifier ? 14 : 10;
}

void append_numbers(std::vector<channel_number> &numbers, byte_reader in, const scope &under,
                    unsigned bits, std::optional<std::uint8_t> list)
{
    const unsigned mask = (1u << bits) - 1;
    while (in.more()) {
        const std::uint16_t service_id = in.u16();
        const std::uint16_t number = in.u16();
        if (!in.ok)
            return;
        numbers.push_back({service_id, static_cast<std::uint16_t>(number & mask),
                           (number & 0x8000) != 0, bits, under.specifier, under.sent, list});
    }
}

void append_channel_lists(network_stream &stream, byte_reader in, const scope &under)
{
    constexpr std::size_t country_code = 3;
    while (in.more()) {
        channel_list list;
        list.id = in.u8();
        list.name = copy_of(in.nested8().all());
        list.country = code_text(in.span(country_code));
        list.sent = under.sent;
        const byte_reader channels = in.nested8();
        if (!in.ok)
            return;
        append_numbers(stream.numbers, channels, under, bits_of_second_version, list.id);
        stream.lists.push_back(std::move(list));
    }
}

// ---- transport streams

void append_frequencies(std::vector<frequency_list> &lists, bytes data)
{
    constexpr std::size_t coded = 4;
    constexpr std::uint8_t coding_type = 0x03; // bits of the first byte
    byte_reader in{data};
    frequency_list list;
    list.coding_type = in.u8() & coding_type;
    if (!in.ok || in.left() % coded != 0)
        return;
    while (in.more())
        list.frequencies.push_back(in.u32());
    lists.push_back(std::move(list));
}

void read_descriptor(network_stream &stream, const descriptor &d, scope &under)
{
    note(stream.carries, d);
    append_linkage(stream.linkages, d);
    switch (d.tag) {
    case private_data_specifier_tag:
        if (d.data.size() == 4)
            under = {si::be32(d.data.first<4>()), true};
        return;
    case logical_channel_tag:
        if (under.specifier != 0)
            append_numbers(stream.numbers, byte_reader{d.data}, under, number_bits(under.specifier),
                           std::nullopt);
        return;
    case nordig_channel_lists_tag:
        if (under.specifier == nordig_specifier)
            append_channel_lists(stream, byte_reader{d.data}, under);
        return;
    case frequency_list_tag:
        append_frequencies(stream.frequencies, d.data);
        return;
    case s2_satellite_delivery_tag:
        if (!stream.input)
            stream.input = read_input_stream(d.data);
        return;
    case extension_tag:
        if (!stream.delivered)
            stream.delivered = extended_delivery(d.data);
        return;
    default:
        return;
    }
}

} // namespace

network_section read_network(bytes nit, std::optional<std::uint32_t> specifier)
{
    network_section read;
    const auto body = payload(nit);
    if (!body)
        return read;
    byte_reader in{*body};
    each_descriptor(nested12(in), [&](const descriptor &d) {
        note(read.carries, d);
        append_linkage(read.linkages, d);
    });
    for (byte_reader loop = nested12(in); in.ok && loop.more();) {
        network_stream stream;
        stream.transport_stream_id = loop.u16();
        stream.original_network_id = loop.u16();
        const byte_reader descriptors = nested12(loop);
        if (!loop.ok)
            break;
        scope under{specifier.value_or(usual_specifier_of(stream.original_network_id))};
        each_descriptor(descriptors,
                        [&](const descriptor &d) { read_descriptor(stream, d, under); });
        read.streams.push_back(std::move(stream));
    }
    return read;
}

} // namespace tool
