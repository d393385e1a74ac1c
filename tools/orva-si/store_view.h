// SPDX-License-Identifier: LGPL-2.1-or-later
// How far the tables of a multiplex have come.
#ifndef TOOLS_STORE_VIEW_H
#define TOOLS_STORE_VIEW_H

#include <array>
#include <string>
#include <vector>

namespace tool {

class store_view {
public:
    // Looks at the library's store as it stands.
    store_view();

    // What a scan waits for next, for people.
    std::string awaited() const;

    // The kinds of table of which something is missing: none of them came that a multiplex must
    // carry (PAT, SDT, NIT), and some that came is not complete.
    std::vector<std::string> absent() const;
    std::vector<std::string> incomplete() const;

private:
    struct count {
        unsigned held = 0;
        unsigned complete = 0;
    };
    std::array<count, 7> counts{}; // as the kinds stand in the source
    unsigned programs = 0;         // that the PAT lists
};

} // namespace tool

#endif
