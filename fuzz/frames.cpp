// SPDX-License-Identifier: LGPL-2.1-or-later
#include "frames.h"

namespace fuzz {

std::vector<frame> frames_of(bytes input)
{
    std::vector<frame> found;
    every_frame(input, [&](std::uint8_t channel, bytes content) {
        found.push_back({channel, {content.begin(), content.end()}});
    });
    return found;
}

octets packed(const std::vector<frame> &frames)
{
    octets all;
    for (const frame &each : frames) {
        const std::size_t size = std::min<std::size_t>(each.content.size(), 0xFFFF);
        all.push_back(each.channel);
        all.push_back(static_cast<std::uint8_t>(size >> 8));
        all.push_back(static_cast<std::uint8_t>(size & 0xFF));
        all.insert(all.end(), each.content.begin(),
                   each.content.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return all;
}

} // namespace fuzz
