// SPDX-License-Identifier: LGPL-2.1-or-later
// What the settings of a section filter let pass.
#ifndef DEMUX_ORVA_DEMUX_FILTER_H
#define DEMUX_ORVA_DEMUX_FILTER_H

#include <cstdint>

#include "orva_si/filter.h"
#include "orva_si_bytes.h"

namespace si::demux {

// Whether a section of the setting's PID passes: the bits of mask equal those of match, and of the
// bits of negate, all bytes taken together, at least one differs. Only the first filter_depth bytes
// count, and never byte 2. A byte that is compared must be there.
bool passes(const SiDmxFilterParam &setting, bytes section);

// Whether a section with this table_id, and this table_id_extension unless it is a short one, can
// pass.
bool may_pass(const SiDmxFilterParam &setting, std::uint8_t table_id);
bool may_pass(const SiDmxFilterParam &setting, std::uint8_t table_id, std::uint16_t extension);

// Sections of a batch, or 1 when they are delivered one by one.
std::uint32_t batch_length(const SiDmxFilterParam &setting);

// A setting without the callback of its kind delivers nothing.
bool delivers(const SiDmxFilterParam &setting);

} // namespace si::demux

#endif
