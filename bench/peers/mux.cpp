// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mux.h"

#include <algorithm>
#include <array>

namespace bench {

namespace {

constexpr std::uint16_t pid_pat = 0x0000;
constexpr std::uint16_t pid_sdt = 0x0011;
constexpr std::size_t packet_bytes = 188;

section pat(std::uint16_t services)
{
    octets programs;
    for (std::uint16_t service = 0; service < services; ++service) {
        put(programs, service + 1u, 2);
        put(programs, 0xE100u + service, 2);
    }
    return make_section({.pid = pid_pat, .table_id = 0x00, .ext = 1}, programs);
}

section sdt(std::uint16_t stream, std::uint16_t services, bool tuned)
{
    octets payload;
    put(payload, network, 2);
    put(payload, 0xFF, 1);
    for (std::uint16_t service = 0; service < services; ++service) {
        if (stream_of(service) != stream)
            continue;
        octets described{0x01};
        put_text(described, "Provider");
        put_text(described, name_of_service(service));
        put(payload, service, 2);
        put(payload, 0xFF, 1); // schedule, present/following
        put_loop(payload, 0x8, descriptor(0x48, described));
    }
    const std::uint8_t table_id = tuned ? 0x42 : 0x46;
    return make_section({.pid = pid_sdt, .table_id = table_id, .ext = stream}, payload);
}

// ---- Packets

// Each section begins in a packet of its own.
class stream_writer {
public:
    void add(const section &from)
    {
        si::bytes rest = from.bytes;
        for (bool begins = true; !rest.empty(); begins = false) {
            const std::size_t end = packets.size() + packet_bytes;
            put_header(from.pid, begins);
            if (begins)
                put(packets, 0, 1); // pointer_field
            rest = put_up_to(end, rest);
            packets.resize(end, 0xFF);
        }
    }

    octets packets;

private:
    // Answers what finds no room.
    si::bytes put_up_to(std::size_t end, si::bytes from)
    {
        const std::size_t taken = std::min(end - packets.size(), from.size());
        packets.insert(packets.end(), from.begin(),
                       from.begin() + static_cast<std::ptrdiff_t>(taken));
        return from.subspan(taken);
    }

    void put_header(std::uint16_t pid, bool begins)
    {
        put(packets, 0x47, 1);
        put(packets, (begins ? 0x4000u : 0u) | pid, 2);
        put(packets, 0x10u | (counters[pid]++ & 0x0Fu), 1);
    }

    std::array<std::uint8_t, 0x2000> counters{};
};

} // namespace

std::string name_of_service(std::uint16_t service)
{
    return "Service " + std::to_string(service);
}

mux make_mux(std::uint16_t services, std::uint16_t tuned)
{
    const auto from = [&](std::uint16_t service) {
        return service < tuned ? multiplex::tuned : multiplex::other;
    };
    mux made{.services = services, .sections = {}, .sdts = {}, .schedules = {}, .all = {}};
    made.schedules.resize(services);
    made.sections.push_back(pat(services_per_stream));
    for (std::uint16_t first = 0; first < services; first += services_per_stream) {
        made.sdts.push_back(made.sections.size());
        made.sections.push_back(sdt(stream_of(first), services, first < tuned));
    }
    for (unsigned number = 0; number < 2; ++number)
        for (std::uint16_t service = 0; service < services; ++service)
            made.sections.push_back(present_following(service, number, from(service)));
    for (unsigned segment = 0; segment < schedule_tables * segments_per_table; ++segment)
        for (std::uint16_t service = 0; service < services; ++service) {
            made.schedules[service].push_back(made.sections.size());
            made.sections.push_back(schedule(service, segment / segments_per_table,
                                             segment % segments_per_table, from(service)));
        }
    made.all = {.sections = made.sections.size(),
                .events = services * (schedule_events + std::size_t{2}),
                .services = services};
    return made;
}

octets make_stream(const mux &from, unsigned cycles)
{
    stream_writer to;
    for (unsigned cycle = 0; cycle < cycles; ++cycle)
        for (const section &each : from.sections)
            to.add(each);
    return std::move(to.packets);
}

} // namespace bench
