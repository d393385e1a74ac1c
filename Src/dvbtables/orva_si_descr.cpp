// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_descr.h"

#include <algorithm>

#include "orva_si/query_text.h"

namespace si {

namespace {

// Whether the private part of a linkage_descriptor holds what its linkage_type asks for.
bool has_what_its_type_needs(std::uint8_t linkage_type, byte_reader in)
{
    switch (linkage_type) {
    case 0x08: { // mobile hand-over
        const std::uint8_t kind = in.u8();
        const std::uint8_t hand_over_type = kind >> 4;
        const bool from_nit = (kind & 1) == 0; // origin_type
        if (hand_over_type >= 1 && hand_over_type <= 3)
            in.u16(); // network_id
        if (from_nit)
            in.u16(); // initial_service_id
        break;
    }
    case 0x0B: { // IP/MAC notification: platforms with their names
        const std::size_t platforms = in.u8();
        const std::size_t behind_platforms = in.left() - std::min(platforms, in.left());
        if (platforms > in.left())
            return false;
        while (in.ok && in.left() > behind_platforms) {
            in.u24(); // platform_id
            in.nested8();
        }
        break;
    }
    case 0x0C: // deferred INT
        if (in.u8() == 2)
            in.u16(); // bouquet_id
        break;
    default:
        break;
    }
    return in.ok;
}

// The codes of a region: as many levels as region_depth says.
std::uint32_t read_region_code(byte_reader &in, unsigned depth)
{
    std::uint32_t code = 0;
    if (depth >= 1)
        code |= static_cast<std::uint32_t>(in.u8()) << 24;
    if (depth >= 2)
        code |= static_cast<std::uint32_t>(in.u8()) << 16;
    if (depth >= 3)
        code |= in.u16();
    return code;
}

} // namespace

bytes payload(const descriptor &d)
{
    return {behind(d), d.len};
}

bytes name_of(const dvb_network_name_descriptor &network)
{
    return payload(network.d);
}

bytes name_of(const dvb_bouquet_name_descriptor &bouquet)
{
    return payload(bouquet.d);
}

bytes service_name(const dvb_service_descriptor &service)
{
    byte_reader in{payload(service.d)};
    in.u8(); // service_type
    in.nested8();
    return in.nested8().all();
}

bool copy_text(SiDvbString &to, bytes text)
{
    Orva_Si_ProcessString(&to, text.data(), static_cast<int>(text.size()));
    return true;
}

step copy_raw(site here, bytes from, std::uint8_t *data, std::uint32_t &len)
{
    if (len < from.size()) {
        SI_LOG_AT(here, level::error, "the passed len=%d is less than the data's len=%d\n",
                  static_cast<int>(len), static_cast<int>(from.size()));
        return step::full;
    }
    std::ranges::copy(from, data);
    len = static_cast<std::uint32_t>(from.size());
    SI_LOG_AT(here, level::trace, "got the data len=%d\n", static_cast<int>(len));
    return step::found;
}

void copy_code(char (&to)[4], bytes code)
{
    std::fill(std::begin(to), std::end(to), '\0');
    std::copy_n(code.begin(), std::min(code.size(), code_bytes), to);
}

std::uint32_t language_of(site here, bytes code)
{
    char text[4];
    copy_code(text, code);
    std::uint32_t language = 0;
    if (Orva_Si_ISO639Map2ID(text, &language) != ORVA_SI_OK)
        SI_LOG_AT(here, level::error, "wrong do SiISO639Map2ID\n);");
    return language;
}

bool put_language(site here, const many<std::uint32_t> &list, bytes code)
{
    return list.put([&](std::uint32_t &language) { language = language_of(here, code); });
}

// By hand: libucsi's codec writes behind the descriptor when its inner lengths are wrong.
std::optional<linkage> read_linkage(const descriptor &d)
{
    if (d.tag != dtag_dvb_linkage)
        return std::nullopt;
    byte_reader in{payload(d)};
    linkage read{};
    read.to.transport_stream_id = in.u16();
    read.to.original_network_id = in.u16();
    read.to.service_id = in.u16();
    read.to.linkage_type = in.u8();
    read.private_data = in.all();
    if (!in.ok || !has_what_its_type_needs(read.to.linkage_type, in))
        return std::nullopt;
    return read;
}

byte_reader extension(const descriptor &d, std::uint8_t tag_extension)
{
    byte_reader in{payload(d)};
    if (d.tag != dtag_dvb_extension_descriptor || in.u8() != tag_extension)
        return byte_reader{{}};
    return in;
}

SiTargetRegion read_region(byte_reader &in, bytes country)
{
    SiTargetRegion region{};
    copy_code(region.country_code, country);
    const std::uint8_t kind = in.u8();
    region.has_region_country = kind >> 2 & 1;
    region.region_depth = kind & 3;
    if (region.has_region_country != 0)
        copy_code(region.region_country_code, in.span(code_bytes));
    region.region_code = read_region_code(in, region.region_depth);
    return region;
}

bool put_region(const many<SiTargetRegion> &list, const SiTargetRegion &region)
{
    return list.put([&](SiTargetRegion &record) {
        std::ranges::copy(region.country_code, record.country_code);
        record.has_region_country = region.has_region_country;
        std::ranges::copy(region.region_country_code, record.region_country_code);
        record.region_depth = region.region_depth;
        record.region_code = region.region_code;
    });
}

bytes read_region_name(byte_reader &in)
{
    const std::uint8_t kind = in.u8();
    const bytes name = in.span(kind & 0x3F);
    constexpr unsigned least_depth = 1; // primary_region_code stands in every entry
    read_region_code(in, std::max<unsigned>(kind >> 6, least_depth));
    return name;
}

} // namespace si
