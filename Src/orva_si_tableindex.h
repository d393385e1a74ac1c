// SPDX-License-Identifier: LGPL-2.1-or-later
// Finds a stored table by its exact PID, table_id and table_id_extension, and tells a change of
// multiplex, without walking the list of tables: a repeated section costs the same however many
// tables there are.
//
// The list stays the truth. Where a client changed it itself, the index is built anew from it, or
// answers that it cannot tell and the caller walks. All functions run with Ts_Ctl_Mutex held.
#ifndef SRC_ORVA_SI_TABLEINDEX_H
#define SRC_ORVA_SI_TABLEINDEX_H

#include <cstdint>
#include <optional>

#include "orva_si/store.h"

namespace si::table_index {

// The table that a walk with this key would find first, null when there is none. No answer for a
// key with a wildcard, or when the list holds what the index cannot.
std::optional<SiTable *> find(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                              std::uint16_t ext);

// Whether a table of the kind that tells a multiplex apart (PAT, NIT actual, SDT actual) is held
// under another table_id_extension. No answer as above.
std::optional<bool> other_stream(si_list *tables, std::uint16_t pid, std::uint8_t table_id,
                                 std::uint16_t ext);

// The table was just appended to the list.
void added(si_list *tables, SiTable *table);

// The table is about to be freed; its link is still in the list, unless a client took it out.
void removing(si_list *tables, SiTable *table);

// Its link was just taken from the list.
void unlinked(si_list *tables);

// All links were just taken from the list.
void emptied(si_list *tables);

} // namespace si::table_index

#endif
