// SPDX-License-Identifier: LGPL-2.1-or-later
// The body that asks every question, in parts: for sweeps through inputs that are known.
#ifndef FUZZ_GETTERS_H
#define FUZZ_GETTERS_H

#include "fuzz.h"

namespace fuzz {

// A tuned library with empty stores.
void begin_anew();
// Hands a section to the dispatcher, in memory of just its size.
void deliver(std::uint16_t pid, bytes section);
std::uint16_t pid_of(std::uint8_t table_id);

enum class room {
    thorough, // 0, 1, one too few, exactly enough, plenty
    quick     // plenty, and one of the others: another one each time
};
// Ends the process when a getter of a table that a section of that table_id may answer breaks what
// it promises.
void ask_about(std::uint8_t table_id, room given);

} // namespace fuzz

#endif
