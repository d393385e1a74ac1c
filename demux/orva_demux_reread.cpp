// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_reread.h"

#include <cerrno>
#include <unistd.h>

#include <algorithm>

namespace si::demux {
namespace {

// Reads as many bytes as there are room for; false when the file has fewer.
bool read_at(int fd, std::uint64_t position, std::vector<std::uint8_t> &to)
{
    std::size_t done = 0;
    while (done < to.size()) {
        const ssize_t count =
            pread(fd, to.data() + done, to.size() - done, static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool is_wanted(const packet_reader &by, bytes section)
{
    return by.section.empty() && section.size() == by.wanted->size &&
           crc_field(section.data()) == by.wanted->crc &&
           std::ranges::equal(by.wanted->head(), section.first(by.wanted->head().size()));
}

} // namespace

packet_reader::packet_reader(const input &of, std::uint32_t packet_period)
    : in{of}, period{packet_period}, assembler{[this](std::uint16_t, bytes shown) {
          if (is_wanted(*this, shown))
              section.assign(shown.begin(), shown.end());
      }}
{
}

bytes fetch(packet_reader &by, std::uint16_t pid, const kept_section &section)
{
    if (section.data != nullptr)
        return section.all();
    by.wanted = &section;
    by.section.clear();
    by.packets.resize(section.span);
    if (!read_at(by.in.fd, by.in.start + section.first, by.packets))
        return {};
    by.assembler.content[pid] = pid_content::sections;
    by.assembler.pids[pid].reset(); // what another stretch left in progress
    const bytes all{by.packets};
    for (std::size_t at = 0; at + packet_bytes <= all.size(); at += by.period) {
        const packet p = all.subspan(at).first<packet_bytes>();
        const unsigned its_pid = static_cast<unsigned>((p[1] & 0x1F) << 8 | p[2]);
        if (p[0] == sync_byte && its_pid == pid)
            take_packet(by.assembler, p);
    }
    return by.section;
}

} // namespace si::demux
