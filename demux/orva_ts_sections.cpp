// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_ts_sections.h"

#include <algorithm>

namespace si::demux {
namespace {

constexpr std::uint8_t any_continuity = 0xFF;
constexpr std::uint16_t first_free_pid =
    0x0020; // below it every PID carries sections (EN 300 468, 5.1.3)
constexpr std::size_t header_bytes = 4;

// section_length of the shortest section: five bytes of long header and CRC_32; the TOT has
// UTC_time, the length of its loop and CRC_32.
constexpr std::size_t shortest_long = 9;
constexpr std::size_t shortest_tot = 11;

constexpr bool has_crc(bytes section)
{
    return is_long_section(section) || section[0] == table_id_tot;
}

constexpr bool legal_size(bytes head)
{
    const std::size_t length = section_length(head.first<section_header_bytes>());
    const std::size_t least = is_long_section(head)     ? shortest_long
                              : head[0] == table_id_tot ? shortest_tot
                                                        : 0;
    return length >= least && length <= largest_section - section_header_bytes;
}

struct packet_header {
    explicit packet_header(packet p)
        : pid{static_cast<std::uint16_t>((p[1] & 0x1F) << 8 | p[2])}, error{(p[1] & 0x80) != 0},
          unit_start{(p[1] & 0x40) != 0}, scrambled{(p[3] & 0xC0) != 0},
          has_adaptation{(p[3] & 0x20) != 0}, has_payload{(p[3] & 0x10) != 0},
          continuity{static_cast<std::uint8_t>(p[3] & 0x0F)}
    {
    }
    std::uint16_t pid;
    bool error;
    bool unit_start;
    bool scrambled;
    bool has_adaptation;
    bool has_payload;
    std::uint8_t continuity;
};

// What stands behind header and adaptation field; empty when there is nothing, or the field's
// length is wrong.
bytes payload_of(packet p, const packet_header &head)
{
    if (!head.has_payload)
        return {};
    if (!head.has_adaptation)
        return p.subspan(header_bytes);
    const std::size_t at = header_bytes + 1 + p[header_bytes];
    return at < p.size() ? bytes{p}.subspan(at) : bytes{};
}

bool announces_discontinuity(packet p, const packet_header &head)
{
    return head.has_adaptation && p[header_bytes] != 0 && (p[header_bytes + 1] & 0x80) != 0;
}

bool begins_as_pes(bytes payload)
{
    return payload.size() >= 3 && payload[0] == 0 && payload[1] == 0 && payload[2] == 1;
}

void cut(section_assembler &to, section_pid &state)
{
    if (state.filled != 0)
        bump(to.counters.cut_sections);
    state.filled = 0;
}

void finish(section_assembler &to, std::uint16_t pid, bytes section, std::uint64_t begun_at)
{
    if (has_crc(section) && crc32_mpeg(section) != 0) {
        bump(to.counters.crc_errors);
        return;
    }
    bump(to.counters.sections);
    to.place = {begun_at, to.position + packet_bytes};
    to.taker(pid, section);
}

// Keeps bytes of the section in progress up to that size; answers whether it is reached.
bool fill(section_pid &state, bytes &from, std::size_t size)
{
    const std::size_t more = std::min(size - state.filled, from.size());
    std::copy_n(from.begin(), more, state.section.begin() + state.filled);
    state.filled = static_cast<std::uint16_t>(state.filled + more);
    from = from.subspan(more);
    return state.filled == size;
}

// Goes on with the section in progress.
void append(section_assembler &to, std::uint16_t pid, section_pid &state, bytes more)
{
    if (state.filled < section_header_bytes && !fill(state, more, section_header_bytes))
        return;
    const bytes section{state.section};
    if (!legal_size(section)) {
        bump(to.counters.bad_sections);
        state.filled = 0;
        return;
    }
    const std::size_t size = section_size(state.section.data());
    if (!fill(state, more, size))
        return;
    state.filled = 0;
    finish(to, pid, section.first(size), state.begun_at);
}

// The sections that begin in a packet, one behind the other until stuffing or the end; the last may
// go on.
void begin(section_assembler &to, std::uint16_t pid, section_pid &state, bytes rest)
{
    while (!rest.empty() && rest[0] != table_id_stuffing) {
        const bool whole_head = rest.size() >= section_header_bytes;
        if (whole_head && !legal_size(rest)) {
            bump(to.counters.bad_sections);
            return;
        }
        const std::size_t size = whole_head ? section_size(rest.data()) : section_header_bytes;
        if (!whole_head || rest.size() < size) {
            state.begun_at = to.position;
            fill(state, rest, rest.size());
            return;
        }
        finish(to, pid, rest.first(size), to.position);
        rest = rest.subspan(size);
    }
}

void take_unit_start(section_assembler &to, std::uint16_t pid, section_pid &state, bytes payload)
{
    const std::size_t pointer = payload[0];
    const bytes rest = payload.subspan(1);
    if (pointer >= rest.size()) {
        bump(to.counters.bad_sections);
        cut(to, state);
        return;
    }
    if (state.filled != 0)
        append(to, pid, state, rest.first(pointer));
    cut(to, state);
    begin(to, pid, state, rest.subspan(pointer));
}

// Whether a packet is to be read: a repeated one is not, but may come once only; one that is out of
// order is, but it cuts the section in progress; that is no error where it was announced.
bool follows(section_assembler &to, section_pid &state, const packet_header &head, bool announced)
{
    const bool known = state.continuity != any_continuity;
    if (known && head.continuity == state.continuity && !state.repeated) {
        state.repeated = true;
        bump(to.counters.duplicates);
        return false;
    }
    if (known && head.continuity != ((state.continuity + 1) & 0x0F)) {
        if (!announced)
            bump(to.counters.continuity_errors);
        cut(to, state);
    }
    state.continuity = head.continuity;
    state.repeated = false;
    return true;
}

section_pid &state_of(section_assembler &of, std::uint16_t pid)
{
    std::unique_ptr<section_pid> &state = of.pids[pid];
    if (state == nullptr)
        state = std::make_unique_for_overwrite<section_pid>();
    return *state;
}

// What a PID carries, after a packet that may tell.
pid_content learn(section_assembler &to, const packet_header &head, bytes payload)
{
    pid_content &content = to.content[head.pid];
    if (head.pid < first_free_pid || !head.unit_start || payload.empty())
        return content;
    const bool pes = begins_as_pes(payload);
    if (pes && to.pids[head.pid] != nullptr)
        cut(to, *to.pids[head.pid]);
    return content = pes ? pid_content::pes : pid_content::sections;
}

} // namespace

section_assembler::section_assembler(section_taker to) : taker{std::move(to)}
{
    std::fill_n(content.begin(), first_free_pid, pid_content::sections);
}

void take_packet(section_assembler &to, packet from)
{
    const packet_header head{from};
    if (head.error) {
        bump(to.counters.transport_errors);
        return;
    }
    if (head.pid == null_pid || (!head.unit_start && to.content[head.pid] != pid_content::sections))
        return;
    if (head.scrambled) {
        if (to.content[head.pid] == pid_content::sections && head.has_payload)
            bump(to.counters.scrambled);
        return;
    }
    const bytes payload = payload_of(from, head);
    if (learn(to, head, payload) != pid_content::sections)
        return;
    section_pid &state = state_of(to, head.pid);
    const bool announced = announces_discontinuity(from, head);
    if (announced && payload.empty()) {
        cut(to, state);
        state.continuity = any_continuity;
    }
    if (payload.empty() || !follows(to, state, head, announced))
        return;
    if (head.unit_start)
        take_unit_start(to, head.pid, state, payload);
    else if (state.filled != 0)
        append(to, head.pid, state, payload);
}

void end_of_packets(section_assembler &assembler)
{
    for (const std::unique_ptr<section_pid> &state : assembler.pids)
        if (state != nullptr)
            cut(assembler, *state);
}

} // namespace si::demux
