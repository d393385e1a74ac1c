// SPDX-License-Identifier: LGPL-2.1-or-later
// The events of the sample multiplex: two days from 2026-01-01 00:00 UTC on.
#ifndef TOOLS_SAMPLE_EVENTS_H
#define TOOLS_SAMPLE_EVENTS_H

#include <cstdint>
#include <vector>

#include "sample_bytes.h"

namespace sample {

// Whether a service of this multiplex has events.
bool has_events(unsigned service_id);

// EIT present/following of the services at noon, and of one service of the other stream.
std::vector<octets> present_following(unsigned this_stream, unsigned other_stream,
                                      unsigned original_network);

// EIT schedule of the services, a sub-table each.
std::vector<octets> event_schedule(unsigned this_stream, unsigned original_network);

} // namespace sample

#endif
