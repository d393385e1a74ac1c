// SPDX-License-Identifier: LGPL-2.1-or-later
// PIDs and table_ids of Service Information (ISO/IEC 13818-1, 2.4.4; EN 300 468, 5.1.3).
#ifndef SRC_ORVA_SI_SIIDS_H
#define SRC_ORVA_SI_SIIDS_H

#include <cstdint>

namespace si {

inline constexpr std::uint16_t pid_pat = 0x0000;
inline constexpr std::uint16_t pid_cat = 0x0001;
inline constexpr std::uint16_t pid_nit = 0x0010;
inline constexpr std::uint16_t pid_sdt_bat = 0x0011;
inline constexpr std::uint16_t pid_eit = 0x0012;
inline constexpr std::uint16_t pid_tdt_tot = 0x0014;

inline constexpr std::uint8_t tid_pat = 0x00;
inline constexpr std::uint8_t tid_cat = 0x01;
inline constexpr std::uint8_t tid_pmt = 0x02;
inline constexpr std::uint8_t tid_dsmcc_first = 0x38;
inline constexpr std::uint8_t tid_dsmcc_un_message =
    0x3B; // the first of three kinds handed to the client
inline constexpr std::uint8_t tid_dsmcc_stream_event = 0x3D;
inline constexpr std::uint8_t tid_nit_actual = 0x40;
inline constexpr std::uint8_t tid_nit_other = 0x41;
inline constexpr std::uint8_t tid_sdt_actual = 0x42;
inline constexpr std::uint8_t tid_sdt_other = 0x46;
inline constexpr std::uint8_t tid_bat = 0x4A;
inline constexpr std::uint8_t tid_eit_pf_actual = 0x4E;
inline constexpr std::uint8_t tid_eit_pf_other = 0x4F;
inline constexpr std::uint8_t tid_eit_schedule_actual = 0x50; // to 0x5F
inline constexpr std::uint8_t tid_eit_schedule_other = 0x60;  // to 0x6F
inline constexpr std::uint8_t tid_eit_last = 0x6F;
inline constexpr std::uint8_t tid_tdt = 0x70;
inline constexpr std::uint8_t tid_tot = 0x73;

// Events to come, of this multiplex or another.
constexpr bool is_schedule(std::uint8_t table_id)
{
    return table_id >= tid_eit_schedule_actual && table_id <= tid_eit_last;
}

// Events of the tuned and of other multiplexes share one key: table_ids of the others are folded
// onto the first.
constexpr std::uint8_t folded_table_id(std::uint8_t table_id)
{
    if (table_id == tid_eit_pf_other)
        return tid_eit_pf_actual;
    if (table_id >= tid_eit_schedule_other && table_id <= tid_eit_last)
        return (table_id & 0x0F) | tid_eit_schedule_actual;
    return table_id;
}
static_assert(folded_table_id(0x65) == 0x55 && folded_table_id(0x4F) == 0x4E &&
              folded_table_id(0x50) == 0x50);

} // namespace si

#endif
