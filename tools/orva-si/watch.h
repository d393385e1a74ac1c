// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef TOOLS_WATCH_H
#define TOOLS_WATCH_H

#include "options.h"

namespace tool {

// The command "watch": one line for everything that the library tells of a channel.
int run_watch(const options &chosen);

} // namespace tool

#endif
