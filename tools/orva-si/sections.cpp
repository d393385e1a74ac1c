// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections.h"

#include <algorithm>

#include "dvb_text.h"
#include "orva_si.h"
#include "sections_reader.h"
#include "store_walk.h"

namespace tool {
namespace {

constexpr std::size_t long_header = 8; // table_id to last_section_number
constexpr std::size_t longest = 4096;

// The OUI loop of a software update linkage (ETSI TS 102 006, 6.1).
std::vector<std::uint32_t> ouis_of(byte_reader private_data)
{
    std::vector<std::uint32_t> ouis;
    for (byte_reader in = private_data.nested8(); in.more();) {
        const std::uint32_t oui = in.u24();
        in.nested8(); // selector
        if (in.ok)
            ouis.push_back(oui);
    }
    return ouis;
}

} // namespace

std::vector<section> stored_sections(std::span<const table_id> wanted)
{
    std::vector<section> copies;
    const store_lock held;
    each_element<SiTable>(Orva_Si_GetTableList(), [&](const SiTable &table) {
        if (table.completed == 0 ||
            std::find(wanted.begin(), wanted.end(), table.table_id) == wanted.end())
            return;
        const std::size_t first = copies.size();
        each_element<SiSection>(table.psect_list, [&](const SiSection &stored) {
            if (stored.section != nullptr && stored.sect_len >= long_header &&
                stored.sect_len <= longest)
                copies.push_back({table.table_id,
                                  table.ext,
                                  {stored.section, stored.section + stored.sect_len}});
        });
        constexpr std::size_t section_number = 6;
        std::stable_sort(copies.begin() + static_cast<std::ptrdiff_t>(first), copies.end(),
                         [](const section &a, const section &b) {
                             return a.data[section_number] < b.data[section_number];
                         });
    });
    return copies;
}

std::optional<bytes> payload(bytes whole)
{
    constexpr std::uint8_t syntax_indicator = 0x80;
    if (whole.size() < long_header + si::crc_bytes || (whole[1] & syntax_indicator) == 0 ||
        si::section_size(whole.data()) != whole.size() || si::crc32_mpeg(whole) != 0)
        return std::nullopt;
    return whole.subspan(long_header, whole.size() - long_header - si::crc_bytes);
}

std::string code_text(bytes letters)
{
    return one_line(std::string{letters.begin(), letters.end()});
}

void note(carried &in, const descriptor &d)
{
    in.tags.set(d.tag);
    if (d.tag == extension_tag && !d.data.empty())
        in.extensions.set(d.data[0]);
}

void append_linkage(std::vector<linkage> &linkages, const descriptor &d)
{
    if (d.tag != linkage_tag)
        return;
    byte_reader in{d.data};
    linkage to{in.u16(), in.u16(), in.u16(), in.u8(), {}};
    if (!in.ok)
        return;
    if (to.linkage_type == software_update_linkage)
        to.ouis = ouis_of(in);
    linkages.push_back(std::move(to));
}

} // namespace tool
