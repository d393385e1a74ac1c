// SPDX-License-Identifier: LGPL-2.1-or-later
// Every reader of broadcast bytes below the questions: codecs of sections whose lengths the section
// itself claims, loops, descriptors and what stands in them. What is read ends where memory ends
// that may be touched, and so does each loop and each descriptor while it is walked.
#include <array>

#include "dvbtables/orva_si_descr.h"
#include "dvbtables/orva_si_eit.h"
#include "fence.h"
#include "fuzz.h"
#include "orva_si/query_text.h"
#include "orva_si/time.h"
#include "outline.h"
#include "seeds.h"

namespace fuzz {

namespace {

using namespace si;

constexpr std::size_t room = 4096;

// Has the bytes looked at, whatever the compiler thinks of the result.
void touch(si::bytes of)
{
    std::uint8_t all = 0;
    for (const std::uint8_t byte : of)
        all = static_cast<std::uint8_t>(all + byte);
    asm volatile("" : : "r"(all));
}

void touch(std::uint32_t number)
{
    asm volatile("" : : "r"(number));
}

// Whole records of a loop.
template <class Loop>
void touch_all(const Loop &loop)
{
    for (auto &entry : loop)
        touch(si::bytes{reinterpret_cast<const std::uint8_t *>(&entry), sizeof entry});
}

void touch_text(si::bytes text)
{
    static SiDvbString record;
    copy_text(record, text);
    claim(record.length <= sizeof record.text, "a text is longer than its record");
    touch(text);
}

// Three letters at most, and never without an end.
void touch_code(si::bytes of)
{
    char code[4] = {'x', 'x', 'x', 'x'};
    copy_code(code, of);
    claim(code[3] == '\0', "a code has no end");
}

// ---- Descriptors by tag; each is decoded once, as every descriptor is

template <class Descriptor>
bool seen_as(descriptor &d)
{
    const auto *seen = as<Descriptor>(d);
    if (seen != nullptr)
        touch(si::bytes{reinterpret_cast<const std::uint8_t *>(seen), sizeof *seen});
    return seen != nullptr;
}

template <class Descriptor, class Loop>
bool seen_with(descriptor &d, Loop loop_of)
{
    auto *seen = as<Descriptor>(d);
    if (seen != nullptr)
        touch_all(loop_of(*seen));
    return seen != nullptr;
}

bool seen_as_text(descriptor &d)
{
    if (const auto *network = as<dvb_network_name_descriptor>(d)) {
        touch_text(name_of(*network));
        return true;
    }
    if (const auto *bouquet = as<dvb_bouquet_name_descriptor>(d)) {
        touch_text(name_of(*bouquet));
        return true;
    }
    if (const auto *service = as<dvb_service_descriptor>(d)) {
        touch_text(service_name(*service));
        return true;
    }
    if (const auto *event = as<dvb_short_event_descriptor>(d)) {
        const short_event texts = read_short_event(*event);
        touch_text(texts.name);
        touch_text(texts.text);
        return true;
    }
    return false;
}

bool seen_as_list(descriptor &d)
{
    return seen_with<dvb_service_list_descriptor>(d, [](auto &l) { return services(l); }) ||
           seen_with<mpeg_iso_639_language_descriptor>(d, [](auto &l) { return languages(l); }) ||
           seen_with<dvb_teletext_descriptor>(d, [](auto &l) { return pages(l); }) ||
           seen_with<dvb_subtitling_descriptor>(d, [](auto &l) { return subtitles(l); }) ||
           seen_with<dvb_content_descriptor>(d, [](auto &l) { return genres(l); }) ||
           seen_with<dvb_parental_rating_descriptor>(d, [](auto &l) { return ratings(l); });
}

bool seen_as_record(descriptor &d)
{
    return seen_as<mpeg_ca_descriptor>(d) || seen_as<dvb_satellite_delivery_descriptor>(d) ||
           seen_as<dvb_cable_delivery_descriptor>(d) ||
           seen_as<dvb_terrestrial_delivery_descriptor>(d) ||
           seen_as<dvb_component_descriptor>(d) || seen_as<dvb_ca_identifier_descriptor>(d) ||
           seen_as<dvb_private_data_specifier_descriptor>(d) ||
           seen_as<dvb_service_move_descriptor>(d) || seen_as<dvb_frequency_list_descriptor>(d) ||
           seen_as<dvb_data_broadcast_id_descriptor>(d);
}

void walk(descriptor &d, const std::uint8_t *end)
{
    const closed_behind fence{behind(d, d.len), end};
    touch(payload(d));
    touch_code(payload(d));
    every_region(d, [](const SiTargetRegion &region) {
        touch(region.region_code);
        return true;
    });
    every_region_name(d, [](si::bytes name) {
        touch_text(name);
        return true;
    });
    if (const auto link = read_linkage(d)) {
        touch(link->to.service_id);
        touch(link->private_data);
        return;
    }
    seen_as_text(d) || seen_as_list(d) || seen_as_record(d);
}

// ---- Loops

template <class Owner>
void walk_descriptors(Owner &owner, std::size_t length, const std::uint8_t *end)
{
    const std::uint8_t *const end_of_loop = std::min(behind(owner, length), end);
    const closed_behind fence{end_of_loop, end};
    for (descriptor &d : descriptors(owner))
        walk(d, end_of_loop);
}

void walk_section(mpeg_pat_section &pat, const std::uint8_t *)
{
    touch_all(programs(pat));
}

void walk_section(mpeg_pmt_section &pmt, const std::uint8_t *end)
{
    walk_descriptors(pmt, pmt.program_info_length, end);
    for (mpeg_pmt_stream &stream : streams(pmt))
        walk_descriptors(stream, stream.es_info_length, end);
}

template <class Section>
void walk_network(Section &section, std::size_t length, const std::uint8_t *end)
{
    walk_descriptors(section, length, end);
    for (dvb_nit_transport &transport : transports(section))
        walk_descriptors(transport, transport.transport_descriptors_length, end);
}

void walk_section(dvb_nit_section &nit, const std::uint8_t *end)
{
    walk_network(nit, nit.network_descriptors_length, end);
}

void walk_section(dvb_bat_section &bat, const std::uint8_t *end)
{
    walk_network(bat, bat.bouquet_descriptors_length, end);
}

void walk_section(dvb_sdt_section &sdt, const std::uint8_t *end)
{
    for (dvb_sdt_service &service : services(sdt))
        walk_descriptors(service, service.descriptors_loop_length, end);
}

void walk_section(dvb_eit_section &eit, const std::uint8_t *end)
{
    for (dvb_eit_event &event : si::events(eit))
        walk_descriptors(event, event.descriptors_loop_length, end);
}

// ---- Whole sections, past the checks of CRC_32 and section_length: both are made to fit

template <auto Codec>
void read_section(std::span<std::uint8_t> section)
{
    constexpr std::size_t shortest = 12;
    if (section.size() < shortest)
        return;
    const std::size_t length = section.size() - section_header_bytes;
    section[1] = static_cast<std::uint8_t>(0xB0 | (length >> 8 & 0x0F));
    section[2] = static_cast<std::uint8_t>(length & 0xFF);
    ::section *head = section_codec(section.data(), section.size());
    section_ext *ext = head != nullptr ? section_ext_decode(head, 0) : nullptr;
    if (ext == nullptr)
        return;
    const std::uint8_t *const end = section.data() + section_ext_length(ext); // the CRC_32
    const closed_behind fence{end, section.data() + section.size()};
    if (auto *const decoded = Codec(ext))
        walk_section(*decoded, end);
}

void read_descriptor(std::span<std::uint8_t> memory)
{
    if (memory.size() < sizeof(descriptor))
        return;
    memory[1] = static_cast<std::uint8_t>(std::min<std::size_t>(memory.size() - 2, 0xFF));
    walk(reinterpret_cast<descriptor &>(memory[0]), memory.data() + memory.size());
}

// A caller has all that a TOT claims, as the dispatcher sees to.
void read_time(std::span<std::uint8_t> section)
{
    const bool claims_more =
        section.size() < section_header_bytes || section_size(section.data()) > section.size();
    if (section.empty() || (section[0] == tid_tot && claims_more))
        return;
    Orva_Si_TimeCase(section.data(), static_cast<std::uint32_t>(section.size()), 0);
    std::array<SiLocalTimeOffset, 4> offsets;
    std::uint32_t count = offsets.size();
    Orva_Si_GetLocalTimeOffset(offsets.data(), &count);
    claim(count <= offsets.size(), "more local times than there was room for");
}

// What is read lies where it should, and nothing is read once something was missing.
void read_bytes(std::span<std::uint8_t> memory)
{
    byte_reader in{memory};
    std::size_t at = 0;
    for (std::size_t step = 0; in.more() && step < memory.size(); ++step) {
        const std::size_t left = in.left();
        const std::uint8_t how = memory[step];
        std::size_t wanted = 1 + how % 4u;
        std::uint32_t read = 0;
        std::uint32_t right = 0;
        if (how % 8 < 4) {
            read = wanted == 1   ? in.u8()
                   : wanted == 2 ? in.u16()
                   : wanted == 3 ? in.u24()
                                 : in.u32();
            for (std::size_t i = 0; i < wanted && wanted <= left; ++i)
                right = right << 8 | memory[at + i];
        } else {
            wanted = how;
            touch(in.nested(how).all());
        }
        claim(read == right, "a number is not what stands there");
        claim(in.ok == (wanted <= left), "a reader does not know its end");
        claim(in.left() == (in.ok ? left - wanted : left), "a reader loses its place");
        at += wanted;
    }
}

constexpr std::array kinds{read_section<pat_codec>,
                           read_section<pmt_codec>,
                           read_section<nit_codec>,
                           read_section<bat_codec>,
                           read_section<sdt_codec>,
                           read_section<eit_codec>,
                           read_descriptor,
                           read_time,
                           read_bytes};
enum kind : std::uint8_t { pat, pmt, nit, bat, sdt, eit, of_descriptor, of_time, of_bytes };

void run(bytes input)
{
    static fenced<room> memory;
    choices in{input};
    const auto read = kinds[in.u8() % kinds.size()];
    read(memory.put(in.rest()));
}

// ---- Seeds

std::uint8_t kind_of(std::uint8_t table_id)
{
    if (table_id >= 0x4E && table_id <= 0x6F)
        return eit;
    switch (table_id) {
    case 0x00:
        return pat;
    case 0x02:
        return pmt;
    case 0x40:
    case 0x41:
        return nit;
    case 0x4A:
        return bat;
    case 0x42:
    case 0x46:
        return sdt;
    case 0x70:
    case 0x73:
        return of_time;
    default:
        return of_bytes;
    }
}

octets behind_kind(std::uint8_t which, const octets &content)
{
    octets all(1 + content.size());
    all.front() = which;
    std::ranges::copy(content, all.begin() + 1);
    return all;
}

std::vector<octets> seeds()
{
    std::vector<octets> all;
    for (const octets &section : seed_sections())
        all.push_back(behind_kind(kind_of(section[0]), section));
    for (const octets &descriptor : seed_descriptors())
        all.push_back(behind_kind(of_descriptor, descriptor));
    return all;
}

} // namespace

target readers()
{
    return {"readers", shape::section, run, seeds};
}

} // namespace fuzz
