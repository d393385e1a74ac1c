// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/sections.h"

#include <stdexcept>

namespace test {

namespace {

constexpr std::size_t header_bytes = 3;
constexpr std::size_t crc_bytes = 4;

// Bytes written front to back, most significant first.
class writer {
public:
    writer &u8(std::size_t value)
    {
        out.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    writer &u16(std::size_t value) { return u8(value >> 8).u8(value); }
    writer &u24(std::size_t value) { return u8(value >> 16).u16(value); }
    writer &u32(std::size_t value) { return u16(value >> 16).u16(value); }
    writer &put(std::span<const std::uint8_t> bytes)
    {
        out.insert(out.end(), bytes.begin(), bytes.end());
        return *this;
    }
    writer &put(std::string_view text)
    {
        for (const char c : text)
            u8(static_cast<std::uint8_t>(c));
        return *this;
    }
    // A language or country code: always three bytes.
    writer &code(std::string_view text)
    {
        if (text.size() != 3)
            throw std::invalid_argument("a code has three letters");
        return put(text);
    }
    // A length byte and the text.
    writer &counted(std::string_view text)
    {
        if (text.size() > 0xFF)
            throw std::length_error("text longer than its length byte");
        return u8(text.size()).put(text);
    }
    // Four upper bits, twelve bits of length and the bytes.
    writer &loop(std::size_t upper, const octets &bytes)
    {
        if (bytes.size() > 0xFFF)
            throw std::length_error("loop longer than its length field");
        return u16(upper << 12 | bytes.size()).put(bytes);
    }

    octets out;
};

octets joined(const std::vector<octets> &parts)
{
    writer all;
    for (const octets &part : parts)
        all.put(part);
    return all.out;
}

void write_crc(octets &section, std::size_t size)
{
    const std::uint32_t crc = crc32_of(std::span{section}.first(size - crc_bytes));
    for (std::size_t i = 0; i < crc_bytes; ++i)
        section[size - crc_bytes + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
}

std::size_t length_of(const octets &section)
{
    return static_cast<std::size_t>((section.at(1) & 0x0F) << 8 | section.at(2));
}

void write_length(octets &section, std::size_t at, std::size_t value)
{
    section.at(at) = static_cast<std::uint8_t>((section.at(at) & 0xF0) | (value >> 8 & 0x0F));
    section.at(at + 1) = static_cast<std::uint8_t>(value);
}

// The header of a long section, the payload and the CRC_32. flags: the upper four bits of byte 1.
template <class Table>
octets long_section(std::uint8_t table_id, std::uint8_t flags, std::size_t extension,
                    const Table &table, const octets &payload)
{
    writer section;
    section.u8(table_id).u16(0).u16(extension);
    section.u8(0xC0u | (table.version & 0x1Fu) << 1 | (table.current_next ? 1u : 0u));
    section.u8(table.section_number).u8(table.last_section_number).put(payload).u32(0);
    section.out[1] = flags;
    const std::size_t section_length = section.out.size() - header_bytes;
    if (section_length > 0xFFF)
        throw std::length_error("section longer than section_length can say");
    write_length(section.out, 1, section_length);
    write_crc(section.out, section.out.size());
    return section.out;
}

constexpr std::uint8_t psi_flags = 0xB0; // section_syntax_indicator, '0', reserved
constexpr std::uint8_t si_flags = 0xF0;  // section_syntax_indicator, reserved_future_use, reserved

octets transport_loop(const std::vector<transport> &transports)
{
    writer loop;
    for (const transport &entry : transports)
        loop.u16(entry.ts).u16(entry.original_network).loop(0xF, joined(entry.descriptors));
    return loop.out;
}

} // namespace

octets make(const pat &table)
{
    writer loop;
    for (const pat_program &program : table.programs)
        loop.u16(program.number).u16(0xE000u | program.pid);
    return long_section(0x00, psi_flags, table.ts, table, loop.out);
}

octets make(const cat &table)
{
    return long_section(0x01, psi_flags, 0xFFFF, table, joined(table.descriptors));
}

octets make(const pmt &table)
{
    writer body;
    body.u16(0xE000u | table.pcr_pid).loop(0xF, joined(table.descriptors));
    for (const pmt_stream &stream : table.streams)
        body.u8(stream.type).u16(0xE000u | stream.pid).loop(0xF, joined(stream.descriptors));
    return long_section(0x02, psi_flags, table.program, table, body.out);
}

octets make(const nit &table)
{
    writer body;
    body.loop(0xF, joined(table.descriptors)).loop(0xF, transport_loop(table.transports));
    return long_section(table.table_id, si_flags, table.network, table, body.out);
}

octets make(const bat &table)
{
    writer body;
    body.loop(0xF, joined(table.descriptors)).loop(0xF, transport_loop(table.transports));
    return long_section(0x4A, si_flags, table.bouquet, table, body.out);
}

octets make(const sdt &table)
{
    writer body;
    body.u16(table.original_network).u8(0xFF);
    for (const sdt_service &service : table.services) {
        body.u16(service.id);
        body.u8(0xFCu | (service.eit_schedule ? 2u : 0u) |
                (service.eit_present_following ? 1u : 0u));
        body.loop((service.running_status & 7u) << 1 | (service.free_ca_mode ? 1u : 0u),
                  joined(service.descriptors));
    }
    return long_section(table.table_id, si_flags, table.ts, table, body.out);
}

octets make(const eit &table)
{
    const int segment_last = table.segment_last_section_number;
    const int last_table = table.last_table_id;
    writer body;
    body.u16(table.ts).u16(table.original_network);
    body.u8(segment_last < 0 ? table.last_section_number : static_cast<std::size_t>(segment_last));
    body.u8(last_table < 0 ? table.table_id : static_cast<std::size_t>(last_table));
    for (const eit_event &event : table.events) {
        body.u16(event.id).u16(event.mjd).u24(event.start_bcd).u24(event.duration_bcd);
        body.loop((event.running_status & 7u) << 1 | (event.free_ca_mode ? 1u : 0u),
                  joined(event.descriptors));
    }
    return long_section(table.table_id, si_flags, table.service, table, body.out);
}

octets make(const tdt &table)
{
    return writer{}.u8(0x70).u16(0x7005).u16(table.mjd).u24(table.utc_bcd).out;
}

octets make(const tot &table)
{
    writer section;
    section.u8(0x73).u16(0x7000).u16(table.mjd).u24(table.utc_bcd);
    section.loop(0xF, joined(table.descriptors)).u32(0);
    write_length(section.out, 1, section.out.size() - header_bytes);
    write_crc(section.out, section.out.size());
    return section.out;
}

octets make(const private_table &table)
{
    return long_section(table.table_id, si_flags, table.extension, table, table.payload);
}

octets raw(std::uint8_t tag, const octets &payload)
{
    if (payload.size() > 0xFF)
        throw std::length_error("descriptor longer than its length byte");
    return writer{}.u8(tag).u8(payload.size()).put(payload).out;
}

octets raw_text(std::uint8_t tag, std::string_view text)
{
    return raw(tag, writer{}.put(text).out);
}

octets ca(std::uint16_t system_id, std::uint16_t pid, const octets &private_data)
{
    return raw(0x09, writer{}.u16(system_id).u16(0xE000u | pid).put(private_data).out);
}

octets iso639(std::string_view language, std::uint8_t audio_type)
{
    return raw(0x0A, writer{}.code(language).u8(audio_type).out);
}

octets network_name(std::string_view name)
{
    return raw_text(0x40, name);
}

octets service_list(const std::vector<listed_service> &services)
{
    writer payload;
    for (const listed_service &service : services)
        payload.u16(service.id).u8(service.type);
    return raw(0x41, payload.out);
}

octets bouquet_name(std::string_view name)
{
    return raw_text(0x47, name);
}

octets service_descriptor(std::uint8_t type, std::string_view provider, std::string_view name)
{
    return raw(0x48, writer{}.u8(type).counted(provider).counted(name).out);
}

octets short_event(std::string_view language, std::string_view name, std::string_view text)
{
    return raw(0x4D, writer{}.code(language).counted(name).counted(text).out);
}

octets component(std::uint8_t stream_content, std::uint8_t component_type, std::uint8_t tag,
                 std::string_view language, std::string_view text)
{
    writer payload;
    payload.u8(0xF0u | stream_content).u8(component_type).u8(tag).code(language).put(text);
    return raw(0x50, payload.out);
}

octets teletext(const std::vector<teletext_page> &pages)
{
    writer payload;
    for (const teletext_page &page : pages)
        payload.code(page.language)
            .u8((page.type & 0x1Fu) << 3 | (page.magazine & 7u))
            .u8(page.page);
    return raw(0x56, payload.out);
}

octets subtitling(const std::vector<subtitle> &entries)
{
    writer payload;
    for (const subtitle &entry : entries)
        payload.code(entry.language)
            .u8(entry.type)
            .u16(entry.composition_page)
            .u16(entry.ancillary_page);
    return raw(0x59, payload.out);
}

octets private_data_specifier(std::uint32_t value)
{
    return raw(0x5F, writer{}.u32(value).out);
}

octets ac3(std::uint8_t flags)
{
    return raw(0x6A, octets{flags});
}

octets damage(octets section)
{
    section.back() ^= 0x01;
    return section;
}

octets set_length(octets section, std::size_t section_length)
{
    write_length(section, 1, section_length);
    return section;
}

octets fix_crc(octets section)
{
    const std::size_t size = header_bytes + length_of(section);
    if (size <= section.size() && size >= header_bytes + crc_bytes)
        write_crc(section, size);
    return section;
}

octets cut(octets section, std::size_t size)
{
    section.resize(size);
    write_length(section, 1, size - header_bytes);
    return fix_crc(section);
}

octets with_byte(octets section, std::size_t at, std::uint8_t value)
{
    section.at(at) = value;
    return fix_crc(section);
}

octets with_length12(octets section, std::size_t at, std::size_t value)
{
    write_length(section, at, value);
    return fix_crc(section);
}

std::uint32_t crc32_of(std::span<const std::uint8_t> bytes)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes)
        for (unsigned bit = 8; bit-- != 0;) {
            const bool feedback = ((crc >> 31) ^ (byte >> bit & 1u)) != 0;
            crc = crc << 1 ^ (feedback ? 0x04C11DB7u : 0u);
        }
    return crc;
}

std::uint32_t crc_of(const octets &section)
{
    std::uint32_t crc = 0;
    for (std::size_t i = section.size() - crc_bytes; i < section.size(); ++i)
        crc = crc << 8 | section[i];
    return crc;
}

} // namespace test
