// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/descriptors.h"

#include <initializer_list>
#include <stdexcept>

namespace test {

namespace {

// ---- Parts of a payload

template <std::size_t Bytes>
octets be(std::size_t value)
{
    octets out(Bytes);
    for (std::size_t i = Bytes; i-- != 0; value >>= 8)
        out[i] = static_cast<std::uint8_t>(value);
    return out;
}

octets u8(std::size_t value)
{
    return be<1>(value);
}

octets u16(std::size_t value)
{
    return be<2>(value);
}

octets u32(std::size_t value)
{
    return be<4>(value);
}

octets characters(std::string_view text)
{
    return {text.begin(), text.end()};
}

// A language or country code: always three bytes.
octets code(std::string_view text)
{
    if (text.size() != 3)
        throw std::invalid_argument("a code has three letters");
    return characters(text);
}

octets sequence(std::initializer_list<octets> parts)
{
    octets all;
    for (const octets &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// The bytes that make_entry yields for each of them, one behind the other.
template <class Entry, class MakeEntry>
octets loop(const std::vector<Entry> &entries, MakeEntry make_entry)
{
    octets all;
    for (const Entry &entry : entries) {
        const octets one = make_entry(entry);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

// A length byte and the bytes.
octets counted(const octets &bytes)
{
    if (bytes.size() > 0xFF)
        throw std::length_error("more bytes than their length byte can say");
    return sequence({u8(bytes.size()), bytes});
}

octets counted(std::string_view text)
{
    return counted(characters(text));
}

// An entry of any list of names.
octets name_with_language(const name_in_language &entry)
{
    return sequence({code(entry.language), counted(entry.name)});
}

// The low bits of a field, moved to their place in the byte.
constexpr unsigned field(unsigned value, unsigned bits, unsigned shift)
{
    return (value & ((1u << bits) - 1)) << shift;
}

octets channels_of(const std::vector<logical_channel> &channels, lcn_bits width)
{
    const auto bits = static_cast<unsigned>(width);
    const unsigned reserved = 0x7FFFu & ~((1u << bits) - 1);
    return loop(channels, [&](const logical_channel &channel) {
        return sequence({u16(channel.service), u16(field(channel.visible, 1, 15) | reserved |
                                                   field(channel.number, bits, 0))});
    });
}

} // namespace

octets multilingual_network_name(const std::vector<name_in_language> &names)
{
    return raw(0x5B, loop(names, name_with_language));
}

octets satellite(const satellite_delivery &fields)
{
    return raw(0x43,
               sequence({u32(fields.frequency), u16(fields.orbital_position),
                         u8(field(fields.east, 1, 7) | field(fields.polarisation, 2, 5) |
                            field(fields.roll_off, 2, 3) | field(fields.modulation_system, 1, 2) |
                            field(fields.modulation_type, 2, 0)),
                         u32(field(fields.symbol_rate, 28, 4) | field(fields.fec_inner, 4, 0))}));
}

octets cable(const cable_delivery &fields)
{
    return raw(0x44,
               sequence({u32(fields.frequency), u16(0xFFF0u | field(fields.fec_outer, 4, 0)),
                         u8(fields.modulation),
                         u32(field(fields.symbol_rate, 28, 4) | field(fields.fec_inner, 4, 0))}));
}

octets terrestrial(const terrestrial_delivery &fields)
{
    return raw(
        0x5A,
        sequence(
            {u32(fields.centre_frequency),
             u8(field(fields.bandwidth, 3, 5) | field(fields.priority, 1, 4) |
                field(fields.time_slicing_indicator, 1, 3) | field(fields.mpe_fec_indicator, 1, 2) |
                0x03u),
             u8(field(fields.constellation, 2, 6) | field(fields.hierarchy_information, 3, 3) |
                field(fields.code_rate_hp_stream, 3, 0)),
             u8(field(fields.code_rate_lp_stream, 3, 5) | field(fields.guard_interval, 2, 3) |
                field(fields.transmission_mode, 2, 1) | field(fields.other_frequency_flag, 1, 0)),
             u32(0xFFFFFFFF)}));
}

octets frequency_list(std::uint8_t coding_type, const std::vector<std::uint32_t> &frequencies)
{
    return raw(0x62, sequence({u8(0xFCu | field(coding_type, 2, 0)), loop(frequencies, u32)}));
}

octets linkage(const linkage_fields &fields)
{
    return raw(0x4A, sequence({u16(fields.ts), u16(fields.original_network), u16(fields.service),
                               u8(fields.type), fields.data}));
}

octets hand_over_data(const hand_over &fields)
{
    const bool has_network = fields.type >= 1 && fields.type <= 3;
    const bool has_service = fields.origin_type == 0;
    return sequence({u8(field(fields.type, 4, 4) | 0x0Eu | field(fields.origin_type, 1, 0)),
                     has_network ? u16(fields.network) : octets{},
                     has_service ? u16(fields.initial_service) : octets{}});
}

octets software_update_data(const std::vector<software_update> &entries, const octets &private_data)
{
    return sequence({counted(loop(entries,
                                  [](const software_update &entry) {
                                      return sequence({be<3>(entry.oui), counted(entry.selector)});
                                  })),
                     private_data});
}

octets ip_notification_data(const std::vector<ip_platform> &platforms, const octets &private_data)
{
    return sequence({counted(loop(platforms,
                                  [](const ip_platform &platform) {
                                      return sequence(
                                          {be<3>(platform.id),
                                           counted(loop(platform.names, name_with_language))});
                                  })),
                     private_data});
}

octets deferred_notification_data(std::uint8_t table_type, std::uint16_t bouquet)
{
    return sequence({u8(table_type), table_type == 2 ? u16(bouquet) : octets{}});
}

octets multilingual_service_name(const std::vector<service_name_in_language> &names)
{
    return raw(
        0x5D, loop(names, [](const service_name_in_language &entry) {
            return sequence({code(entry.language), counted(entry.provider), counted(entry.name)});
        }));
}

octets service_move(std::uint16_t original_network, std::uint16_t ts, std::uint16_t service)
{
    return raw(0x60, sequence({u16(original_network), u16(ts), u16(service)}));
}

octets data_broadcast(const data_broadcast_fields &fields)
{
    return raw(0x64, sequence({u16(fields.id), u8(fields.component_tag), counted(fields.selector),
                               code(fields.language), counted(fields.text)}));
}

octets data_broadcast_id(std::uint16_t id, const octets &selector)
{
    return raw(0x66, sequence({u16(id), selector}));
}

octets association_tag(const association &fields)
{
    return raw(0x14, sequence({u16(fields.tag), u16(fields.use), counted(fields.selector),
                               fields.private_data}));
}

octets service_availability(bool available, const std::vector<std::uint16_t> &cells)
{
    return raw(0x72, sequence({u8(available ? 0xFFu : 0x7Fu), loop(cells, u16)}));
}

octets target_region(std::string_view country, const std::vector<region> &regions)
{
    return raw(0x7F, sequence({u8(0x09), code(country), loop(regions, [](const region &entry) {
                                   const bool own = !entry.country.empty();
                                   return sequence(
                                       {u8(0xF8u | field(own, 1, 2) | field(entry.depth, 2, 0)),
                                        own ? code(entry.country) : octets{},
                                        entry.depth >= 1 ? u8(entry.primary) : octets{},
                                        entry.depth >= 2 ? u8(entry.secondary) : octets{},
                                        entry.depth >= 3 ? u16(entry.tertiary) : octets{}});
                               })}));
}

octets target_region_name(std::string_view country, std::string_view language,
                          const std::vector<named_region> &regions)
{
    return raw(0x7F,
               sequence({u8(0x0A), code(country), code(language),
                         loop(regions, [](const named_region &entry) {
                             if (entry.name.size() > 0x3F)
                                 throw std::length_error("region name of more than 63 bytes");
                             return sequence({u8(field(entry.depth, 2, 6) | entry.name.size()),
                                              characters(entry.name), u8(entry.primary),
                                              entry.depth >= 2 ? u8(entry.secondary) : octets{},
                                              entry.depth >= 3 ? u16(entry.tertiary) : octets{}});
                         })}));
}

octets logical_channels(const std::vector<logical_channel> &channels, lcn_bits width)
{
    return raw(0x83, channels_of(channels, width));
}

octets nordig_channels(const std::vector<channel_list> &lists, lcn_bits width)
{
    return raw(0x87, loop(lists, [&](const channel_list &list) {
                   return sequence({u8(list.id), counted(list.name), code(list.country),
                                    counted(channels_of(list.channels, width))});
               }));
}

octets preferred_name_list(const std::vector<preferred_names> &languages)
{
    return raw(0x84, loop(languages, [](const preferred_names &entry) {
                   return sequence({code(entry.language), u8(entry.names.size()),
                                    loop(entry.names, [](const preferred_name &name) {
                                        return sequence({u8(name.id), counted(name.name)});
                                    })});
               }));
}

octets preferred_name_identifier(std::uint8_t id)
{
    return raw(0x85, u8(id));
}

octets service_attributes(const std::vector<attributed_service> &services)
{
    return raw(0x86, loop(services, [](const attributed_service &service) {
                   return sequence(
                       {u16(service.id), u8(0xFCu | field(service.numeric_selection, 1, 1) |
                                            field(service.visible, 1, 0))});
               }));
}

octets short_service_name(std::string_view name)
{
    return raw_text(0x87, name);
}

octets ci_protection(bool free_ci_mode, const std::vector<std::uint16_t> &brands,
                     const octets &private_data)
{
    const bool match_brand = !brands.empty();
    return raw(0xCE, sequence({u8(field(free_ci_mode, 1, 7) | field(match_brand, 1, 6) | 0x3Fu),
                               match_brand ? u8(brands.size()) : octets{}, loop(brands, u16),
                               private_data}));
}

octets extended_event(const extended_event_fields &fields)
{
    return raw(0x4E,
               sequence({u8(field(fields.number, 4, 4) | field(fields.last_number, 4, 0)),
                         code(fields.language),
                         counted(loop(
                             fields.items,
                             [](const event_item &entry) {
                                 return sequence({counted(entry.description), counted(entry.item)});
                             })),
                         counted(fields.text)}));
}

octets content(const std::vector<content_genre> &genres)
{
    return raw(0x54, loop(genres, [](const content_genre &genre) {
                   return sequence({u8(field(genre.level_1, 4, 4) | field(genre.level_2, 4, 0)),
                                    u8(field(genre.user_1, 4, 4) | field(genre.user_2, 4, 0))});
               }));
}

octets parental_rating(const std::vector<country_rating> &ratings)
{
    return raw(0x55, loop(ratings, [](const country_rating &entry) {
                   return sequence({code(entry.country), u8(entry.rating)});
               }));
}

octets ca_identifier(const std::vector<std::uint16_t> &system_ids)
{
    return raw(0x53, loop(system_ids, u16));
}

} // namespace test
