// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef TOOLS_SCAN_H
#define TOOLS_SCAN_H

#include "options.h"

namespace tool {

// The command "scan": a blocking scan of a multiplex, then everything that it brought.
int run_scan(const options &chosen);

} // namespace tool

#endif
