// SPDX-License-Identifier: LGPL-2.1-or-later
// How far the receiver of the sections is behind: a source of its own, so that tests answer
// instead.
#ifndef DEMUX_ORVA_DEMUX_PENDING_H
#define DEMUX_ORVA_DEMUX_PENDING_H

#include <cstdint>

namespace si::demux {

// Sections that were given and are not processed yet. Takes no lock; any thread.
std::uint32_t pending_sections();

} // namespace si::demux

#endif
