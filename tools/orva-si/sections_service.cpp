// SPDX-License-Identifier: LGPL-2.1-or-later
// Entries of the SDT (EN 300 468, 5.2.3).
#include "sections_reader.h"

namespace tool {
namespace {

void read_descriptor(described_service &service, const descriptor &d)
{
    note(service.carries, d);
    append_linkage(service.linkages, d);
    byte_reader in{d.data};
    switch (d.tag) {
    case service_tag: {
        const std::uint8_t type = in.u8();
        const byte_reader provider = in.nested8();
        const byte_reader name = in.nested8();
        if (!in.ok || service.service_type)
            return;
        service.service_type = type;
        service.provider = copy_of(provider.all());
        service.name = copy_of(name.all());
        return;
    }
    case time_shifted_service_tag:
        if (const std::uint16_t reference = in.u16(); in.ok && !service.time_shifted_of)
            service.time_shifted_of = reference;
        return;
    case nvod_reference_tag:
        while (in.more())
            if (const service_reference to{in.u16(), in.u16(), in.u16()}; in.ok)
                service.nvod_references.push_back(to);
        return;
    default:
        return;
    }
}

} // namespace

std::vector<described_service> described_services(bytes sdt)
{
    std::vector<described_service> services;
    const auto body = payload(sdt);
    if (!body)
        return services;
    byte_reader in{*body};
    const std::uint16_t onid = in.u16();
    in.u8(); // reserved
    while (in.more()) {
        described_service service;
        service.original_network_id = onid;
        service.service_id = in.u16();
        const unsigned eit_flags = in.u8();
        service.eit_schedule = eit_flags >> 1 & 1;
        service.eit_present_following = eit_flags & 1;
        const unsigned status = in.all().empty() ? 0 : in.all()[0];
        service.running_status = static_cast<std::uint8_t>(status >> 5);
        service.free_ca_mode = status >> 4 & 1;
        const byte_reader descriptors = nested12(in);
        if (!in.ok)
            break;
        each_descriptor(descriptors, [&](const descriptor &d) { read_descriptor(service, d); });
        services.push_back(std::move(service));
    }
    return services;
}

} // namespace tool
