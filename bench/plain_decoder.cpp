// SPDX-License-Identifier: LGPL-2.1-or-later
#include "plain_decoder.h"

#include <libucsi/dvb/bat_section.h>
#include <libucsi/dvb/eit_section.h>
#include <libucsi/dvb/nit_section.h>
#include <libucsi/dvb/sdt_section.h>
#include <libucsi/dvb/section.h>
#include <libucsi/mpeg/pat_section.h>
#include <libucsi/mpeg/section.h>
#include <libucsi/section.h>

#include <array>
#include <cstring>

namespace bench {

namespace {

bool decode_table(section_ext *section)
{
    switch (section->table_id) {
    case stag_mpeg_program_association:
        return mpeg_pat_section_codec(section) != nullptr;
    case stag_dvb_network_information_actual:
    case stag_dvb_network_information_other:
        return dvb_nit_section_codec(section) != nullptr;
    case stag_dvb_service_description_actual:
    case stag_dvb_service_description_other:
        return dvb_sdt_section_codec(section) != nullptr;
    case stag_dvb_bouquet_association:
        return dvb_bat_section_codec(section) != nullptr;
    default:
        return section->table_id < 0x4E || section->table_id > 0x6F ||
               dvb_eit_section_codec(section) != nullptr;
    }
}

} // namespace

bool decode_alone(const std::uint8_t *section, std::size_t size)
{
    alignas(8) static std::array<std::uint8_t, 4096> copy;
    std::memcpy(copy.data(), section, size);
    ::section *head = section_codec(copy.data(), size);
    if (head == nullptr || head->syntax_indicator == 0)
        return head != nullptr;
    section_ext *long_head = section_ext_decode(head, 1);
    return long_head != nullptr && decode_table(long_head);
}

} // namespace bench
