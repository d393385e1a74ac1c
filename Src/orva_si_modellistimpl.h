// SPDX-License-Identifier: LGPL-2.1-or-later
// What the model and the queries need of the store beside its exported functions.
#ifndef SRC_ORVA_SI_MODELLISTIMPL_H
#define SRC_ORVA_SI_MODELLISTIMPL_H

#include <cstddef>
#include <cstdint>

#include "orva_si/store.h"
#include "orva_si_lock.h"

namespace si {

// Counts section bytes against the store's limit. False, and nothing counted, when they do not fit.
bool reserve_table_bytes(std::size_t size, std::uint8_t table_id);
void return_table_bytes(std::size_t size);

// Frees a stored section with its buffer; it must already be out of its list, or about to leave it.
void free_stored_section(SiSection *record);

// The first record of a service in the event store; null when there is none. The time it takes does
// not grow with the store, unless a client put something of its own into the list.
SiEitService *find_eit_service(std::uint16_t original_network_id, std::uint16_t transport_stream_id,
                               std::uint16_t service_id) SI_NEEDS(eit);

} // namespace si

#endif
