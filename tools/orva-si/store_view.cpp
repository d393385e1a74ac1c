// SPDX-License-Identifier: LGPL-2.1-or-later
#include "store_view.h"

#include <cstdint>

#include "orva_si.h"
#include "store_walk.h"

namespace tool {
namespace {

struct kind {
    const char *name;
    std::uint8_t table_id;
    bool due; // every multiplex carries it
};

constexpr std::size_t kind_total = 7;
constexpr kind kinds[kind_total] = {{"PAT", 0x00, true},         {"SDT", 0x42, true},
                                    {"NIT", 0x40, true},         {"other NITs", 0x41, false},
                                    {"other SDTs", 0x46, false}, {"BATs", 0x4A, false},
                                    {"PMTs", 0x02, false}};
constexpr std::size_t pmts = 6;

} // namespace

store_view::store_view()
{
    std::int32_t listed = 255; // no more are kept
    std::uint16_t numbers[255];
    if (Orva_Si_GetPatProgList(numbers, &listed) == ORVA_SI_OK)
        programs = static_cast<unsigned>(listed);
    const store_lock held;
    each_element<SiTable>(Orva_Si_GetTableList(), [this](const SiTable &table) {
        for (std::size_t i = 0; i < kind_total; ++i) {
            if (kinds[i].table_id != table.table_id)
                continue;
            ++counts[i].held;
            counts[i].complete += table.completed != 0 ? 1u : 0u;
        }
    });
}

std::string store_view::awaited() const
{
    for (std::size_t i = 0; i < kind_total; ++i)
        if (kinds[i].due && counts[i].complete == 0)
            return kinds[i].name;
    if (counts[pmts].complete < programs)
        return "PMTs, " + std::to_string(counts[pmts].complete) + " of " + std::to_string(programs);
    const std::vector<std::string> missing = incomplete();
    return missing.empty() ? "more" : missing.front();
}

std::vector<std::string> store_view::absent() const
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < kind_total; ++i)
        if (kinds[i].due && counts[i].held == 0)
            names.emplace_back(kinds[i].name);
    return names;
}

std::vector<std::string> store_view::incomplete() const
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < kind_total; ++i)
        if (counts[i].complete < counts[i].held)
            names.emplace_back(kinds[i].name);
    return names;
}

} // namespace tool
