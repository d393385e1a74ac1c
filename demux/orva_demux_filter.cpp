// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_filter.h"

#include <algorithm>
#include <iterator>

namespace si::demux {
namespace {

constexpr std::size_t length_byte = 2; // low byte of section_length: never compared
constexpr std::size_t extension_byte = 3;
constexpr std::uint32_t longest_batch = 200;

// Whether the masked bits of one byte are as wanted; a byte behind the filter depth is not
// compared.
bool equal_where_masked(const SiDmxFilterParam &setting, std::size_t i, std::uint8_t value)
{
    return i >= setting.filter_depth || ((value ^ setting.match[i]) & setting.mask[i]) == 0;
}

} // namespace

bool passes(const SiDmxFilterParam &setting, bytes section)
{
    const std::size_t depth = std::min<std::size_t>(setting.filter_depth, std::size(setting.match));
    unsigned negated = 0;
    unsigned differing = 0;
    for (std::size_t i = 0; i < depth; ++i) {
        const unsigned compared = setting.mask[i] | setting.negate[i];
        if (i == length_byte || compared == 0)
            continue;
        if (i >= section.size())
            return false;
        const unsigned difference = section[i] ^ setting.match[i];
        if ((difference & setting.mask[i]) != 0)
            return false;
        negated |= setting.negate[i];
        differing |= difference & setting.negate[i];
    }
    return negated == 0 || differing != 0;
}

bool may_pass(const SiDmxFilterParam &setting, std::uint8_t table_id)
{
    return equal_where_masked(setting, 0, table_id);
}

bool may_pass(const SiDmxFilterParam &setting, std::uint8_t table_id, std::uint16_t extension)
{
    return may_pass(setting, table_id) &&
           equal_where_masked(setting, extension_byte, static_cast<std::uint8_t>(extension >> 8)) &&
           equal_where_masked(setting, extension_byte + 1,
                              static_cast<std::uint8_t>(extension & 0xFF));
}

std::uint32_t batch_length(const SiDmxFilterParam &setting)
{
    return setting.list_mode == 0
               ? 1
               : std::clamp<std::uint32_t>(setting.list_length, 1, longest_batch);
}

bool delivers(const SiDmxFilterParam &setting)
{
    return setting.list_mode == 0 ? setting.section_callback != nullptr
                                  : setting.section_list_callback != nullptr;
}

} // namespace si::demux
