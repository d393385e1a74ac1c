// SPDX-License-Identifier: LGPL-2.1-or-later
// A store that holds one service, for tests of what its descriptors answer.
#ifndef TESTS_SUPPORT_ONE_SERVICE_H
#define TESTS_SUPPORT_ONE_SERVICE_H

#include <cstdint>
#include <vector>

#include "fakes/platform.h"
#include "support/sections.h"
#include "support/store_fixture.h"

namespace test {

inline constexpr std::uint16_t served_ts = 1;
inline constexpr std::uint16_t served_network = 0x20;
inline constexpr std::uint16_t served_sid = 0x101;
inline constexpr std::uint32_t served_specifier = 0x0000233A;

// The tuned multiplex has one service, with these descriptors; whatever was stored is gone.
inline void serve(const std::vector<octets> &descriptors)
{
    if (Orva_Si_GetTableList() != nullptr)
        recreate_store();
    store(make(sdt{.ts = served_ts,
                   .original_network = served_network,
                   .services = {{.id = served_sid, .descriptors = descriptors}}}));
    fake::clear_log();
}

// The same behind a private_data_specifier_descriptor.
inline void serve_ours(std::vector<octets> descriptors)
{
    descriptors.insert(descriptors.begin(), private_data_specifier(served_specifier));
    serve(descriptors);
}

} // namespace test

#endif
