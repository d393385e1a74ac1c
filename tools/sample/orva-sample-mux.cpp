// SPDX-License-Identifier: LGPL-2.1-or-later
// Writes ten seconds of a small DVB-T multiplex, the same bytes each time: PSI and SI at the
// repetition of a broadcast, with video and audio that no decoder would show.
//
//     orva-sample-mux OUT.ts
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "orva_si_bytes.h"
#include "sample_bytes.h"
#include "sample_events.h"

namespace {

using namespace std::string_view_literals;
using namespace sample;

constexpr unsigned packets_per_second = 1000;
constexpr unsigned seconds = 10;
constexpr std::size_t packet_bytes = 188;

constexpr std::uint16_t this_stream = 1001;
constexpr std::uint16_t other_stream = 1002;
constexpr std::uint16_t network = 0xFF01; // for private use, as is the original network
constexpr std::uint16_t neighbour_network = 0xFF02;
constexpr std::uint16_t bouquet = 0xFF10;

// ---- contents

struct sound {
    std::uint16_t pid;
    std::uint8_t stream_type;
    const char *language;
    bool ac3 = false;
};

struct channel {
    std::uint16_t id; // service_id and program_number
    std::uint8_t type;
    std::string_view name; // with its selector
    std::uint16_t lcn;
    std::uint16_t pmt_pid;
    std::uint16_t pcr_pid;
    std::uint16_t video_pid; // 0: none
    std::uint8_t video_type;
    std::vector<sound> sounds;
    std::uint16_t teletext_pid = 0;
    std::uint16_t subtitle_pid = 0;
    bool scrambled = false;
    std::uint16_t update_pid = 0; // software updates for receivers
};

constexpr std::uint16_t update_service = 108;
constexpr std::uint16_t update_pid = 376;
constexpr std::uint32_t every_manufacturer = 0x00015A; // the OUI of DVB (ETSI TS 102 006)

// Names in the character tables that broadcasters use (EN 300 468 annex A).
// clang-format off
const std::vector<channel> channels{
    {101, 0x19, "Orva One HD"sv, 1, 256, 257, 257, 0x1B,
     {{258, 0x04, "eng"}, {259, 0x04, "deu"}, {260, 0x06, "eng", true}}, 261, 262},
    {102, 0x01, "\xCF" "Cty\xCFrka"sv, 2, 272, 273, 273, 0x02, {{274, 0x03, "ces"}}, 277},
    {103, 0x01, "\x01\xBD\xDE\xD2\xDE\xE1\xE2\xD8"sv, 3, 288, 289, 289, 0x02, {{290, 0x03, "rus"}}},
    {104, 0x16, "\x03\xC5\xEB\xEB\xDC\xE4\xE1"sv, 4, 304, 305, 305, 0x1B, {{306, 0x11, "ell"}}},
    {105, 0x02, "\x05T\xFCrk\xFC FM"sv, 105, 320, 321, 0, 0, {{321, 0x03, "tur"}}},
    {106, 0x01, "\x14\x65\xB0\x80\x5E\x53\xF0"sv, 6, 336, 337, 337, 0x1B, {{338, 0x0F, "zho"}}},
    {107, 0x01, "\x12\xC7\xD1\xB1\xB9 TV"sv, 7, 352, 353, 353, 0x1B, {{354, 0x0F, "kor"}}},
    {108, 0x19, "\x0B\xD6sterreich \xA4"sv, 8, 368, 369, 369, 0x1B, {{370, 0x04, "deu"}}, 373, 374,
     false, update_pid},
    {109, 0x1F, "\x15Orva Ultra \xE2\x98\x85"sv, 9, 384, 385, 385, 0x24,
     {{386, 0x06, "eng", true}}, 0, 390, true},
};
// clang-format on

struct neighbour {
    std::uint16_t id;
    std::uint8_t type;
    std::string_view name;
    std::uint16_t lcn;
};
constexpr neighbour neighbours[] = {{201, 0x19, "Orva Two HD"sv, 11},
                                    {202, 0x19, "Orva Three HD"sv, 12},
                                    {203, 0x02,
                                     "\x10\x00\x02R\xE1"
                                     "di\xF3"sv,
                                     112}};

constexpr std::uint16_t ca_system = 0x2610; // for broadcasters' own use
constexpr std::uint16_t ecm_pid = 395;
constexpr std::uint16_t emm_pid = 400;

octets ca_descriptor(std::uint16_t pid)
{
    return descriptor(0x09, writer{}.u16(ca_system).u16(0xE000u | pid));
}

octets pat()
{
    writer body;
    body.u16(0).u16(0xE010); // the NIT
    for (const channel &c : channels)
        body.u16(c.id).u16(0xE000u | c.pmt_pid);
    return section(0x00, this_stream, body.data);
}

octets cat()
{
    return section(0x01, 0xFFFF, ca_descriptor(emm_pid));
}

octets stream_entry(std::uint8_t type, std::uint16_t pid, const octets &descriptors)
{
    return writer{}.u8(type).u16(0xE000u | pid).counted12(descriptors).data;
}

octets sound_entry(const sound &s)
{
    octets descriptors = descriptor(0x0A, writer{}.text(s.language).u8(0));
    if (s.ac3)
        descriptors = joined({descriptors, descriptor(0x6A, writer{}.u8(0))});
    return stream_entry(s.stream_type, s.pid, descriptors);
}

// The initial page 100, and subtitles on page 888 for those who read German or do not hear.
octets teletext(std::string_view language)
{
    return descriptor(0x56, writer{}
                                .text(language)
                                .u8(1 << 3 | 1)
                                .u8(0x00)
                                .text("deu"sv)
                                .u8(2 << 3)
                                .u8(0x88)
                                .text(language)
                                .u8(5 << 3)
                                .u8(0x88));
}

// Normal ones and ones for those who do not hear, on two pages of composition.
octets subtitling(std::string_view language)
{
    return descriptor(
        0x59, writer{}.text(language).u8(0x10).u16(1).u16(1).text(language).u8(0x20).u16(2).u16(1));
}

// Software updates of every manufacturer, in the standard update carousel (ETSI TS 102 006, 7.1).
octets update_stream()
{
    constexpr unsigned standard_update = 0xF1;
    const octets selector =
        writer{}.u8(6).u24(every_manufacturer).u8(standard_update).u8(0xC0).u8(0).data;
    return stream_entry(0x0B, update_pid, descriptor(0x66, writer{}.u16(0x000A).append(selector)));
}

octets pmt(const channel &c)
{
    writer body;
    body.u16(0xE000u | c.pcr_pid).counted12(c.scrambled ? ca_descriptor(ecm_pid) : octets{});
    if (c.video_pid != 0)
        body.append(stream_entry(c.video_type, c.video_pid, descriptor(0x52, writer{}.u8(1))));
    for (const sound &s : c.sounds)
        body.append(sound_entry(s));
    const char *language = c.sounds[0].language;
    if (c.teletext_pid != 0)
        body.append(stream_entry(0x06, c.teletext_pid, teletext(language)));
    if (c.subtitle_pid != 0)
        body.append(stream_entry(0x06, c.subtitle_pid, subtitling(language)));
    if (c.update_pid != 0)
        body.append(update_stream());
    return section(0x02, c.id, body.data);
}

struct translation {
    std::uint16_t id;
    std::string_view language;
    std::string_view name;
};
constexpr translation translations[] = {{101, "eng"sv, "Orva One HD"sv},
                                        {101, "deu"sv, "Orva Eins HD"sv},
                                        {101, "fra"sv, "\x0BOrva Un HD"sv},
                                        {103, "eng"sv, "News"sv},
                                        {106, "eng"sv, "News Channel"sv}};

// The names of a service in several languages, where it has any.
octets multilingual_names(unsigned id)
{
    writer names;
    for (const translation &t : translations)
        if (t.id == id)
            names.text(t.language).text8("Orva"sv).text8(t.name);
    return names.data.empty() ? octets{} : descriptor(0x5D, names);
}

octets service_entry(unsigned id, unsigned type, std::string_view name, bool scrambled,
                     unsigned eit_flags)
{
    constexpr unsigned running = 4;
    writer entry;
    entry.u16(id).u8(0xFC | eit_flags);
    const octets described = joined(
        {descriptor(0x48, writer{}.u8(type).text8("Orva"sv).text8(name)), multilingual_names(id)});
    entry.u16(running << 13 | (scrambled ? 0x1000u : 0u) | static_cast<unsigned>(described.size()));
    return entry.append(described).data;
}

// The SDT of this stream, in two sections.
std::vector<octets> sdt_actual()
{
    constexpr unsigned eit_flags = 0b11; // schedule and present/following
    const std::size_t half = channels.size() / 2;
    std::array<writer, 2> bodies;
    for (writer &body : bodies)
        body.u16(network).u8(0xFF);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const channel &c = channels[i];
        bodies[i < half ? 0 : 1].append(
            service_entry(c.id, c.type, c.name, c.scrambled, has_events(c.id) ? eit_flags : 0));
    }
    return {section(0x42, this_stream, bodies[0].data, 0, 1),
            section(0x42, this_stream, bodies[1].data, 1, 1)};
}

octets sdt_other()
{
    writer body;
    body.u16(network).u8(0xFF);
    for (const neighbour &n : neighbours)
        body.append(service_entry(n.id, n.type, n.name, false, 0));
    return section(0x46, other_stream, body.data);
}

template <class Services>
octets service_list(const Services &services)
{
    writer list;
    for (const auto &s : services)
        list.u16(s.id).u8(s.type);
    return descriptor(0x41, list);
}

// Logical channel numbers of ten bits, under the specifier that most of Europe uses.
template <class Services>
octets channel_numbers(const Services &services)
{
    constexpr std::uint32_t specifier = 0x00000028;
    writer list;
    for (const auto &s : services)
        list.u16(s.id).u16(0xFC00u | s.lcn);
    return joined({descriptor(0x5F, writer{}.u32(specifier)), descriptor(0x83, list)});
}

octets terrestrial_delivery(std::uint32_t megahertz)
{
    // 8 MHz, 64-QAM 3/4, guard interval 1/8, 8k
    return descriptor(0x5A,
                      writer{}.u32(megahertz * 100000).u8(0x1F).u8(0x82).u8(0x52).u32(0xFFFFFFFF));
}

octets second_terrestrial_delivery(std::uint32_t megahertz)
{
    // 8 MHz, guard interval 1/16, 32k; one cell of one frequency
    return descriptor(
        0x7F,
        writer{}.u8(0x04).u8(0).u16(0x8001).u8(0x03).u8(0x34).u16(1).u32(megahertz * 100000).u8(0));
}

octets stream_loop_entry(std::uint16_t stream, const octets &descriptors)
{
    return writer{}.u16(stream).u16(network).counted12(descriptors).data;
}

// further: descriptors of the network behind its name.
octets nit(std::uint8_t table_id, std::uint16_t id, std::string_view name, const octets &further,
           const octets &streams)
{
    const octets described = joined({descriptor(0x40, writer{}.text(name)), further});
    return section(table_id, id, writer{}.counted12(described).counted12(streams).data);
}

octets multilingual_network_name()
{
    return descriptor(
        0x5B, writer{}.text("eng"sv).text8("Orva Sample"sv).text("deu"sv).text8("Orva-Beispiel"sv));
}

// Where receivers find their software (ETSI TS 102 006, 6.1).
octets update_linkage()
{
    constexpr unsigned software_update = 0x09;
    return descriptor(0x4A, writer{}
                                .u16(this_stream)
                                .u16(network)
                                .u16(update_service)
                                .u8(software_update)
                                .u8(4)
                                .u24(every_manufacturer)
                                .u8(0));
}

// Further transmitters of a terrestrial stream.
octets frequency_list(std::initializer_list<std::uint32_t> megahertz)
{
    constexpr unsigned terrestrial = 0xFF;
    writer list;
    list.u8(terrestrial);
    for (const std::uint32_t frequency : megahertz)
        list.u32(frequency * 100000);
    return descriptor(0x62, list);
}

octets nit_actual()
{
    const octets own = joined({terrestrial_delivery(626), frequency_list({514, 578}),
                               service_list(channels), channel_numbers(channels)});
    const octets other = joined(
        {second_terrestrial_delivery(658), service_list(neighbours), channel_numbers(neighbours)});
    return nit(
        0x40, network, "Orva Sample"sv, joined({multilingual_network_name(), update_linkage()}),
        joined({stream_loop_entry(this_stream, own), stream_loop_entry(other_stream, other)}));
}

octets nit_other()
{
    return nit(0x41, neighbour_network, "Orva Neighbour"sv, {},
               stream_loop_entry(2001, terrestrial_delivery(682)));
}

octets bat()
{
    const octets name = descriptor(0x47, writer{}.text("Orva Bouquet"sv));
    const octets streams = joined({stream_loop_entry(this_stream, service_list(channels)),
                                   stream_loop_entry(other_stream, service_list(neighbours))});
    return section(0x4A, bouquet, writer{}.counted12(name).counted12(streams).data);
}

// UTC_time: noon of 2026-01-01 and the seconds of the recording.
octets utc_time(unsigned second)
{
    constexpr unsigned mjd_of_2026 = 61041;
    return writer{}.u16(mjd_of_2026).u8(0x12).u8(0x00).u8(second / 10 << 4 | second % 10).data;
}

octets tdt(unsigned second)
{
    return writer{}.u8(0x70).u16(0x7005).append(utc_time(second)).data;
}

octets tot(unsigned second)
{
    // Germany: one hour east, two from 2026-03-29 01:00 UTC on
    const octets offset = descriptor(
        0x58, writer{}.text("DEU"sv).u8(0x02).u16(0x0100).u16(61128).u24(0x010000).u16(0x0200));
    writer out;
    out.u8(0x73).u16(0x7000u | static_cast<unsigned>(5 + 2 + offset.size() + si::crc_bytes));
    out.append(utc_time(second)).counted12(offset);
    out.u32(si::crc32_mpeg(out.data));
    return out.data;
}

// ---- multiplex

using packet = std::array<std::uint8_t, packet_bytes>;

class multiplexer {
public:
    // Puts sections on a PID, each from the start of a packet on.
    void send(std::uint16_t pid, const std::vector<octets> &sections)
    {
        for (const octets &s : sections) {
            std::size_t done = 0;
            for (bool first = true; first || done < s.size(); first = false) {
                packet p = begin(pid, first);
                std::size_t at = 4;
                if (first)
                    p[at++] = 0; // pointer_field
                const std::size_t count = std::min(packet_bytes - at, s.size() - done);
                std::copy_n(s.begin() + static_cast<std::ptrdiff_t>(done), count,
                            p.begin() + static_cast<std::ptrdiff_t>(at));
                done += count;
                ready.push_back(p);
            }
        }
    }

    // A packet of a PES stream, with the time of that slot where it is to carry the PCR.
    void send_pes(std::uint16_t pid, std::uint8_t stream_id, bool with_pcr, unsigned slot)
    {
        constexpr unsigned packets_of_unit = 8;
        const bool first = units[pid]++ % packets_of_unit == 0;
        packet p = begin(pid, first);
        std::size_t at = 4;
        if (with_pcr) {
            p[3] |= 0x20;
            const std::uint64_t base = std::uint64_t{slot} * 90000 / packets_per_second;
            const std::array<std::uint8_t, 8> field{7,
                                                    0x10,
                                                    static_cast<std::uint8_t>(base >> 25),
                                                    static_cast<std::uint8_t>(base >> 17),
                                                    static_cast<std::uint8_t>(base >> 9),
                                                    static_cast<std::uint8_t>(base >> 1),
                                                    static_cast<std::uint8_t>(base << 7 | 0x7E),
                                                    0};
            std::copy(field.begin(), field.end(), p.begin() + static_cast<std::ptrdiff_t>(at));
            at += field.size();
        }
        if (first) {
            const std::array<std::uint8_t, 9> header{0, 0, 1, stream_id, 0, 0, 0x80, 0, 0};
            std::copy(header.begin(), header.end(), p.begin() + static_cast<std::ptrdiff_t>(at));
            at += header.size();
        }
        for (; at < packet_bytes; ++at)
            p[at] = noise();
        ready.push_back(p);
    }

    // The packet of the next slot: the oldest that waits, or a null packet.
    packet next()
    {
        constexpr std::uint16_t null_pid = 0x1FFF;
        if (ready.empty())
            return begin(null_pid, false);
        const packet p = ready.front();
        ready.pop_front();
        return p;
    }

private:
    packet begin(std::uint16_t pid, bool unit_start)
    {
        packet p;
        p.fill(0xFF);
        p[0] = 0x47;
        p[1] = static_cast<std::uint8_t>((unit_start ? 0x40 : 0) | pid >> 8);
        p[2] = static_cast<std::uint8_t>(pid);
        p[3] = static_cast<std::uint8_t>(0x10 | (counters[pid]++ & 0x0F));
        return p;
    }

    // Neither start codes nor sync bytes.
    std::uint8_t noise()
    {
        state = state * 1664525 + 1013904223;
        return static_cast<std::uint8_t>(0x80 | state >> 24);
    }

    std::deque<packet> ready;
    std::map<std::uint16_t, unsigned> counters;
    std::map<std::uint16_t, unsigned> units;
    std::uint32_t state = 1;
};

// What is sent again and again: its period and its first slot keep the tables apart.
struct repeated {
    unsigned period_ms;
    unsigned first_slot;
    std::function<void(multiplexer &, unsigned slot)> send;
};

repeated tables(unsigned period_ms, unsigned first_slot, std::uint16_t pid,
                std::vector<octets> sections)
{
    return {period_ms, first_slot,
            [pid, sections = std::move(sections)](multiplexer &mux, unsigned) {
                mux.send(pid, sections);
            }};
}

std::vector<repeated> schedule()
{
    constexpr std::uint16_t time_pid = 0x14;
    std::vector<repeated> all{
        tables(100, 0, 0x00, {pat()}),
        tables(500, 3, 0x01, {cat()}),
        tables(1000, 40, 0x10, {nit_actual()}),
        tables(5000, 540, 0x10, {nit_other()}),
        tables(1000, 140, 0x11, sdt_actual()),
        tables(2000, 340, 0x11, {sdt_other()}),
        tables(2000, 440, 0x11, {bat()}),
        tables(2000, 640, 0x12, present_following(this_stream, other_stream, network)),
        tables(4000, 940, 0x12, event_schedule(this_stream, network)),
        {1000, 740,
         [](multiplexer &mux, unsigned slot) {
             mux.send(time_pid, {tdt(slot / packets_per_second)});
         }},
        {5000, 840,
         [](multiplexer &mux, unsigned slot) {
             mux.send(time_pid, {tot(slot / packets_per_second)});
         }},
    };
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const channel &c = channels[i];
        const auto offset = static_cast<unsigned>(i);
        all.push_back(tables(100, 5 + 2 * offset, c.pmt_pid, {pmt(c)}));
        const bool pcr_in_video = c.video_pid != 0;
        if (pcr_in_video)
            all.push_back({20, 1 + offset, [&c](multiplexer &mux, unsigned slot) {
                               mux.send_pes(c.video_pid, 0xE0, true, slot);
                           }});
        for (const sound &s : c.sounds)
            all.push_back({40, 11 + offset, [&s, pcr_in_video](multiplexer &mux, unsigned slot) {
                               mux.send_pes(s.pid, s.ac3 ? 0xBD : 0xC0, !pcr_in_video, slot);
                           }});
    }
    return all;
}

bool write_multiplex(std::FILE *out)
{
    multiplexer mux;
    const std::vector<repeated> all = schedule();
    for (unsigned slot = 0; slot < seconds * packets_per_second; ++slot) {
        for (const repeated &r : all)
            if (slot >= r.first_slot && (slot - r.first_slot) % r.period_ms == 0)
                r.send(mux, slot);
        const packet p = mux.next();
        if (std::fwrite(p.data(), 1, p.size(), out) != p.size())
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUT.ts\n", argv[0]);
        return 2;
    }
    std::FILE *out = std::fopen(argv[1], "wb");
    const bool written = out != nullptr && write_multiplex(out);
    if (out == nullptr || std::fclose(out) != 0 || !written) {
        std::perror(argv[1]);
        return 1;
    }
    return 0;
}
