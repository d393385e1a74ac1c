// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef TOOLS_DUMP_H
#define TOOLS_DUMP_H

#include "options.h"

namespace tool {

// The command "dump": every table that a channel brings, as sections in hexadecimal.
int run_dump(const options &chosen);

} // namespace tool

#endif
