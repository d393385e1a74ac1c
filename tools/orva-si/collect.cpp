// SPDX-License-Identifier: LGPL-2.1-or-later
#include "collect.h"

#include <algorithm>
#include <utility>

#include "dvb_text.h"

namespace tool {
namespace {

std::vector<bouquet> collect_bouquets(const collecting &run)
{
    std::vector<bouquet> found;
    auto ids = list_of<std::uint16_t>(Orva_Si_GetBouquetIdList);
    std::sort(ids.begin(), ids.end());
    for (const std::uint16_t id : ids) {
        if (run.interrupted())
            break;
        const auto listed = list_of<SiBouquetService>([id](auto *list, auto *count) {
            return Orva_Si_GetServiceListInBouquet(id, list, count);
        });
        found.push_back(
            {id,
             name_of(run, [id](SiDvbString *text) { return Orva_Si_GetBouquetNameById(id, text); }),
             each(listed, [](const SiBouquetService &entry) -> bouquet_service {
                 return {entry.transport_stream_id,
                         entry.original_network_id,
                         {entry.service_id, entry.service_type}};
             })});
    }
    return found;
}

} // namespace

std::string hexadecimal(bytes data)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : data) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
    return text;
}

label collecting::text(const SiDvbString &stored) const
{
    return label_of(field_of(stored), chosen.charset);
}

std::vector<std::uint8_t> field_of(const SiDvbString &stored)
{
    constexpr std::uint32_t last_selector = 0x1F;
    const bool selected = stored.charset_type >= 1 && stored.charset_type <= last_selector;
    const std::size_t length = std::min<std::size_t>(stored.length, SI_DVB_STRING_BYTES);
    std::vector<std::uint8_t> field(length + (selected ? 1 : 0));
    if (selected)
        field[0] = static_cast<std::uint8_t>(stored.charset_type);
    std::copy_n(stored.text, length, field.end() - static_cast<std::ptrdiff_t>(length));
    return field;
}

std::string code_of(const char (&code)[4])
{
    const std::string letters(code, 3);
    return letters == std::string(3, '\0') ? "" : one_line(letters);
}

region region_of(const SiTargetRegion &coded)
{
    return {code_of(coded.has_region_country != 0 ? coded.region_country_code : coded.country_code),
            coded.region_depth, static_cast<std::uint8_t>(coded.region_code >> 24),
            static_cast<std::uint8_t>(coded.region_code >> 16),
            static_cast<std::uint16_t>(coded.region_code)};
}

multiplex collect(const options &chosen)
{
    const collecting run{chosen};
    multiplex found;
    found.transport_stream_id = value_of<std::uint16_t>(Orva_Si_GetPatTsId);
    if (!found.transport_stream_id)
        found.transport_stream_id = value_of<std::uint16_t>(Orva_Si_GetActTsId);
    found.original_network_id = value_of<std::uint16_t>(Orva_Si_GetActOnitId);
    found.network_id = value_of<std::uint16_t>(Orva_Si_GetCurrentNetworkId);
    found.networks = collect_networks(run, found.network_id);
    found.services = collect_services(run);
    found.programs = collect_programs(run);
    found.bouquets = collect_bouquets(run);
    found.updates = collect_updates(found.networks);
    return found;
}

label label_of(std::vector<std::uint8_t> field, const std::string &default_table)
{
    return {dvb_text(field, default_table), hexadecimal(field)};
}

bool keep_program(multiplex &found, std::uint16_t number)
{
    const auto other_id = [number](const auto &item) { return item.service_id != number; };
    std::erase_if(found.services, other_id);
    std::erase_if(found.programs,
                  [number](const program &p) { return p.program_number != number; });
    for (network &n : found.networks)
        for (transport_stream &stream : n.streams) {
            std::erase_if(stream.services, other_id);
            std::erase_if(stream.in_nit.numbers, other_id);
        }
    for (bouquet &b : found.bouquets)
        std::erase_if(b.services, [&](const bouquet_service &s) { return other_id(s.listed); });
    return !found.services.empty() || !found.programs.empty();
}

const channel_number *number_of(const multiplex &found, const service &of)
{
    const channel_number *hidden = nullptr;
    for (const network &n : found.networks)
        for (const transport_stream &stream : n.streams) {
            if (stream.in_nit.transport_stream_id != of.transport_stream_id ||
                stream.in_nit.original_network_id != of.original_network_id)
                continue;
            for (const channel_number &number : stream.in_nit.numbers)
                if (number.service_id == of.service_id) {
                    if (number.visible)
                        return &number;
                    hidden = hidden != nullptr ? hidden : &number;
                }
        }
    return hidden;
}

} // namespace tool
