// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_demux_pending.h"

#include "orva_si/filter.h"

std::uint32_t si::demux::pending_sections()
{
    return Si_SectFlt_GetPendingCount();
}
