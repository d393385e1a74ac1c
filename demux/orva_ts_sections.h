// SPDX-License-Identifier: LGPL-2.1-or-later
// Sections out of packets (ISO/IEC 13818-1, 2.4.4): one assembler for all PIDs of a stream.
#ifndef DEMUX_ORVA_TS_SECTIONS_H
#define DEMUX_ORVA_TS_SECTIONS_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "orva_ts_packets.h"

namespace si::demux {

inline constexpr std::size_t pid_total = 0x2000;
inline constexpr std::uint16_t null_pid = 0x1FFF;
inline constexpr std::uint8_t table_id_tdt = 0x70;
inline constexpr std::uint8_t table_id_tot = 0x73;
inline constexpr std::uint8_t table_id_stuffing =
    0xFF; // no section: stuffing to the end of the packet

// Written by the thread that assembles, read by any (relaxed).
struct section_counters {
    std::uint64_t transport_errors = 0;
    std::uint64_t scrambled = 0;
    std::uint64_t duplicates = 0;
    std::uint64_t continuity_errors = 0;
    std::uint64_t sections = 0;
    std::uint64_t crc_errors = 0;
    std::uint64_t cut_sections = 0;
    std::uint64_t bad_sections = 0;
};

// section_syntax_indicator: the section has the long header, and a CRC_32 at its end.
constexpr bool is_long_section(bytes section)
{
    return (section[1] & 0x80) != 0;
}

// What a PID carries. Payload units tell: one that begins as a PES packet is no section.
enum class pid_content : std::uint8_t { unknown, sections, pes };

// Where the packets of a section stand in the input: from the first byte of the first one to behind
// the last one.
struct section_place {
    std::uint64_t first = 0;
    std::uint64_t end = 0;
};

// A PID that carries sections. The buffer is not cleared: its fill tells what counts.
struct section_pid {
    std::uint8_t continuity = 0xFF; // of the last packet; 0xFF: any may follow
    bool repeated = false;          // its one legal duplicate has come
    std::uint16_t filled = 0;       // bytes of the section in progress; 0: none
    std::uint64_t begun_at = 0;     // position of the packet in which it begins
    std::array<std::uint8_t, largest_section> section;
};

// Takes a section whose CRC_32, where it carries one, is right. The bytes are valid during the call
// only.
using section_taker = std::function<void(std::uint16_t pid, bytes section)>;

struct section_assembler {
    explicit section_assembler(section_taker to);

    section_taker taker;
    section_counters counters;
    std::uint64_t position = 0; // in the input of the packet that is taken; by who hands it in
    section_place place;        // of the section that the taker is shown
    std::array<pid_content, pid_total> content{};
    std::array<std::unique_ptr<section_pid>, pid_total> pids;
};

void take_packet(section_assembler &to, packet from);

// Whether a packet can make any difference, from its header alone: most packets of a multiplex
// cannot.
inline bool can_matter(const section_assembler &to, packet p)
{
    constexpr unsigned error_or_start = 0xC0;
    const std::size_t pid = static_cast<std::size_t>((p[1] & 0x1F) << 8 | p[2]);
    return (p[1] & error_or_start) != 0 || to.content[pid] == pid_content::sections;
}

// The stream has ended: what is still in progress was cut.
void end_of_packets(section_assembler &assembler);

} // namespace si::demux

#endif
