// SPDX-License-Identifier: LGPL-2.1-or-later
// What getters read out of descriptors: texts, and bounded readers of those that libucsi does not
// know or does not read safely.
#ifndef SRC_DVBTABLES_ORVA_SI_DESCR_H
#define SRC_DVBTABLES_ORVA_SI_DESCR_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "orva_si/query_service.h"
#include "orva_si_bytes.h"
#include "orva_si_log.h"
#include "orva_si_query.h"
#include "orva_si_ucsi.h"

namespace si {

// The bytes behind tag and length.
bytes payload(const descriptor &d);

// Text fields, still in their broadcast character table.
bytes name_of(const dvb_network_name_descriptor &network);
bytes name_of(const dvb_bouquet_name_descriptor &bouquet);
bytes service_name(const dvb_service_descriptor &service);

// Shows each entry of the service list descriptors of a transport stream to a function until it
// answers false; whether none did.
template <class Visit>
bool every_listed_service(dvb_nit_transport &transport, Visit visit)
{
    for (descriptor &d : descriptors(transport))
        if (auto *list = as<dvb_service_list_descriptor>(d))
            for (const dvb_service_list_service &service : services(*list))
                if (!visit(service))
                    return false;
    return true;
}

// Fills a text record; always true, the answer of a question that has found what it looked for.
bool copy_text(SiDvbString &to, bytes text);

// Copies raw bytes to the caller, whose capacity becomes their length; full, with nothing written,
// when there is too little room.
step copy_raw(site here, bytes from, std::uint8_t *data, std::uint32_t &len);

// The three letters of a language (ISO 639) or country (ISO 3166) and a NUL; NULs alone when there
// are not three.
void copy_code(char (&to)[4], bytes code);

// The client's number of a language; 0 without a language function.
std::uint32_t language_of(site here, bytes code);
// Appends it; the client is asked only where there is room.
bool put_language(site here, const many<std::uint32_t> &list, bytes code);

// ---- Private descriptors: they count only behind a private_data_specifier_descriptor (EN 300 468,
// 6.2.31) in the same loop

// Which specifiers make a private descriptor count.
constexpr auto specifier_equal_to(std::uint32_t wanted)
{
    return [wanted](std::uint32_t specifier) { return specifier == wanted; };
}
constexpr auto any_specifier_if_0(std::uint32_t wanted)
{
    return [wanted](std::uint32_t specifier) {
        return specifier != 0 && (wanted == 0 || specifier == wanted);
    };
}

// Shows a function the payload of each descriptor of a private tag that counts, until it answers
// false; whether it never did. Once a specifier matches, the match holds to the end of the loop;
// tell is called with each that does.
template <class Loop, class Matches, class Tell, class Visit>
bool every_private(const Loop &loop, Matches matches, std::uint8_t tag, Tell tell, Visit visit)
{
    bool matched = false;
    for (descriptor &d : loop) {
        if (const auto *found = as<dvb_private_data_specifier_descriptor>(d)) {
            const std::uint32_t specifier = found->private_data_specifier;
            if (matches(specifier)) {
                matched = true;
                tell(specifier);
            }
        }
        if (matched && d.tag == tag && !visit(payload(d)))
            return false;
    }
    return true;
}

// ---- Linkage (EN 300 468, 6.2.19)

inline constexpr std::uint8_t linkage_software_update = 0x09; // ETSI TS 102 006, 6.1

struct linkage {
    SiLinkage to;
    bytes private_data; // behind linkage_type
};

// Empty for another descriptor, and for one that is too short for what its linkage_type asks for.
std::optional<linkage> read_linkage(const descriptor &d);

// Field by field: the padding behind them stays the caller's.
inline void copy_linkage(SiLinkage &to, const SiLinkage &from)
{
    to.transport_stream_id = from.transport_stream_id;
    to.original_network_id = from.original_network_id;
    to.service_id = from.service_id;
    to.linkage_type = from.linkage_type;
}

// ---- Regions (EN 300 468, 6.4: extension descriptors). An entry that does not fit ends its
// descriptor.

inline constexpr std::size_t code_bytes = 3; // of a language or country
inline constexpr std::uint8_t extension_target_region = 0x09;
inline constexpr std::uint8_t extension_target_region_name = 0x0A;

// What follows descriptor_tag_extension; empty for a descriptor without that extension.
byte_reader extension(const descriptor &d, std::uint8_t tag_extension);

// One entry of a target_region_descriptor of that country.
SiTargetRegion read_region(byte_reader &in, bytes country);
// Appends a region, field by field.
bool put_region(const many<SiTargetRegion> &list, const SiTargetRegion &region);
// The name in one entry of a target_region_name_descriptor.
bytes read_region_name(byte_reader &in);

// Shows the regions of a descriptor to a function until it answers false; whether it never did.
template <class Visit>
bool every_region(const descriptor &d, Visit visit)
{
    byte_reader in = extension(d, extension_target_region);
    const bytes country = in.span(code_bytes);
    while (in.more()) {
        const SiTargetRegion region = read_region(in, country);
        if (in.ok && !visit(region))
            return false;
    }
    return true;
}

// Likewise the region names of a descriptor.
template <class Visit>
bool every_region_name(const descriptor &d, Visit visit)
{
    byte_reader in = extension(d, extension_target_region_name);
    in.span(2 * code_bytes); // country, language
    while (in.more()) {
        const bytes name = read_region_name(in);
        if (in.ok && !visit(name))
            return false;
    }
    return true;
}

} // namespace si

#endif
