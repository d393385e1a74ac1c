// SPDX-License-Identifier: LGPL-2.1-or-later
// Section maps, comparisons and summaries of CRC_32 fields, and the copy of a text field.
#include <algorithm>
#include <cstring>

#include "orva_si/query_text.h"
#include "orva_si/store.h"
#include "orva_si_bytes.h"
#include "orva_si_lock.h"
#include "orva_si_loops.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::size_t map_bytes = sizeof(SiTable::sect_map);

// The exclusive or of the CRC_32 fields of all sections of every complete table that the key
// matches.
std::uint32_t fold_crcs(site here, const SiTableKey &key, std::uint32_t &crc)
{
    crc = 0;
    const scope_lock lock{ctl, here};
    int walked = 0;
    for (const SiTable &table : elements<SiTable>(Orva_Si_GetTableList())) {
        ++walked;
        if (Orva_Si_IsEqualTableById(&table, key.pid, key.table_id, key.ext, key.ext1, key.ext2) ==
            0) {
            SI_LOG_AT(here, level::trace, "IS NOT eqaul, table id = %#x\n", table.table_id);
            continue;
        }
        if (table.psect_list == nullptr || table.psect_list->nb_elt == 0)
            continue;
        if (table.completed == 0) {
            SI_LOG_AT(here, level::trace, "table not finished, pid = %#x, tableid = %#x\n",
                      table.pid, table.table_id);
            continue;
        }
        for (const SiSection &section : elements<SiSection>(table.psect_list))
            if (section.section != nullptr)
                crc ^= crc_field(section.section);
    }
    SI_LOG_AT(here, level::trace, "all are looped of count=%d\n", walked);
    return ORVA_SI_OK;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_SetSectMap(uint8_t *map, uint8_t section_number)
{
    if (map == nullptr)
        return 0;
    uint8_t &byte = map[section_number >> 3];
    byte = static_cast<uint8_t>(byte | 1u << (section_number & 7));
    return 1;
}

uint32_t Orva_Si_TestSectMap([[maybe_unused]] const uint8_t *map,
                             [[maybe_unused]] uint8_t section_number)
{
    return 0;
}

uint32_t Orva_Si_IsSegSectCompleted(const uint8_t *map, uint8_t last_section_number,
                                    const uint8_t *segment_last)
{
    if (map == nullptr)
        return 0;
    const std::size_t segments = std::min<std::size_t>((last_section_number + 8u) >> 3, map_bytes);
    for (std::size_t i = 0; i < segments; ++i) {
        const auto last_of_segment =
            segment_last != nullptr ? segment_last[i] : static_cast<unsigned>(i * 8 + 7);
        const unsigned limit = std::min<unsigned>(last_of_segment, last_section_number);
        const unsigned all = (1u << ((limit & 7) + 1)) - 1;
        if (((map[i] + 1u) & all) != 0)
            return 0;
    }
    return 1;
}

uint32_t Orva_Si_IsCrcEqual(const uint8_t *psect, const uint8_t *psectb)
{
    SI_REQUIRE_AS(psect, "psect", 0);
    SI_REQUIRE_AS(psectb, "psectb", 0);
    const std::uint32_t a = crc_field(psect);
    const std::uint32_t b = crc_field(psectb);
    SI_LOG(level::trace, "the crcA value = %#x\n", a);
    SI_LOG(level::trace, "the crcB value = %#x\n", b);
    if (a != b) {
        SI_LOG(level::trace, "the crc data are different.\n");
        return 0;
    }
    SI_LOG(level::trace, "crc are same.\n");
    return 1;
}

uint32_t Orva_Si_GetPATCRC(uint32_t *pPATCRC)
{
    SI_REQUIRE(pPATCRC);
    return fold_crcs(SI_HERE, {pid_pat, tid_pat, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT}, *pPATCRC);
}

uint32_t Orva_Si_GetNITCRC(uint32_t network_id, uint32_t *pNITCRC)
{
    SI_REQUIRE(pNITCRC);
    return fold_crcs(SI_HERE, {pid_nit, SI_ANY_TABLE_ID, low16(network_id), SI_ANY_EXT, SI_ANY_EXT},
                     *pNITCRC);
}

uint32_t Orva_Si_GetSDTCRC(uint32_t transport_stream_id, uint32_t *pSDTCRC)
{
    SI_REQUIRE(pSDTCRC);
    return fold_crcs(
        SI_HERE, {pid_sdt_bat, SI_ANY_TABLE_ID, low16(transport_stream_id), SI_ANY_EXT, SI_ANY_EXT},
        *pSDTCRC);
}

uint32_t Orva_Si_GetBATCRC(uint32_t bouquet_id, uint32_t *pBATCRC)
{
    SI_REQUIRE(pBATCRC);
    return fold_crcs(SI_HERE, {pid_sdt_bat, tid_bat, low16(bouquet_id), SI_ANY_EXT, SI_ANY_EXT},
                     *pBATCRC);
}

uint32_t Orva_Si_ProcessString(SiDvbString *dest, const uint8_t *source, int length)
{
    if (dest == nullptr || source == nullptr) {
        SI_LOG(level::trace, "\nSiProcessString, destsource Is NULL\n");
        return ORVA_SI_INVALID_ARGUMENT;
    }
    *dest = {};
    if (length <= 0) {
        SI_LOG(level::trace, "SiProcessString, string length is zero\n");
        return ORVA_SI_OK;
    }
    dest->charset_type = source[0];
    // A selector (EN 300 468 annex A) is told by charset_type alone; a first character stays in the
    // text too.
    const bool has_selector = source[0] >= 0x01 && source[0] <= 0x1F;
    const bytes field{source, static_cast<std::size_t>(length)};
    const bytes behind = field.subspan(has_selector ? 1 : 0);
    const bytes kept = behind.first(std::min(behind.size(), sizeof dest->text));
    std::memcpy(dest->text, kept.data(), kept.size()); // the rest of the record is zero already
    dest->length = static_cast<std::uint16_t>(kept.size());
    return ORVA_SI_OK;
}
