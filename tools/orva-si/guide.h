// SPDX-License-Identifier: LGPL-2.1-or-later
#ifndef TOOLS_GUIDE_H
#define TOOLS_GUIDE_H

#include "options.h"

namespace tool {

// The command "guide": what is on now, next and on the coming days, of every service.
int run_guide(const options &chosen);

} // namespace tool

#endif
