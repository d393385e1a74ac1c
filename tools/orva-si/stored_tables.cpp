// SPDX-License-Identifier: LGPL-2.1-or-later
#include "stored_tables.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "event_outline.h"
#include "orva_si.h"
#include "sections.h"
#include "store_walk.h"

namespace tool {
namespace {

constexpr std::size_t header_bytes = 8; // table_id to last_section_number
constexpr std::uint16_t eit_pid = 0x12;

// Tables (EN 300 468 table 2) and what their table_id_extension is; null where it is reserved.
struct kind {
    std::uint8_t first;
    std::uint8_t last;
    const char *name;
    const char *extension;
};

constexpr std::array kinds{
    kind{0x00, 0x00, "PAT", "transport_stream_id"}, kind{0x01, 0x01, "CAT", nullptr},
    kind{0x02, 0x02, "PMT", "program_number"},      kind{0x40, 0x41, "NIT", "network_id"},
    kind{0x42, 0x42, "SDT", "transport_stream_id"}, kind{0x46, 0x46, "SDT", "transport_stream_id"},
    kind{0x4A, 0x4A, "BAT", "bouquet_id"},          kind{0x4E, 0x6F, "EIT", "service_id"}};
constexpr kind unknown{0x00, 0xFF, "other", "table_id_extension"};

const kind &kind_of(std::uint8_t table_id)
{
    const auto found = std::ranges::find_if(kinds, [table_id](const kind &one) {
        return one.first <= table_id && table_id <= one.last;
    });
    return found != kinds.end() ? *found : unknown;
}

bool by_section_number(const std::vector<std::uint8_t> &a, const std::vector<std::uint8_t> &b)
{
    constexpr std::size_t section_number = 6;
    return a[section_number] < b[section_number];
}

bool by_name(const stored_table &a, const stored_table &b)
{
    return std::tie(a.pid, a.table_id, a.ids) < std::tie(b.pid, b.table_id, b.ids);
}

stored_table copy_of(const SiTable &table)
{
    stored_table copy{.pid = table.pid,
                      .table_id = table.table_id,
                      .complete = table.completed != 0,
                      .ids = {},
                      .sections = {}};
    each_element<SiSection>(table.psect_list, [&](const SiSection &stored) {
        if (stored.section != nullptr && stored.sect_len >= header_bytes)
            copy.sections.emplace_back(stored.section, stored.section + stored.sect_len);
    });
    std::ranges::stable_sort(copy.sections, by_section_number);
    if (const char *const extension = kind_of(table.table_id).extension)
        copy.ids.emplace_back(extension, table.ext);
    const bool is_sdt = table.table_id == sdt_actual_table || table.table_id == sdt_other_table;
    if (is_sdt && !copy.sections.empty())
        if (const auto body = payload(copy.sections.front()); body && body->size() >= 2)
            copy.ids.emplace_back("original_network_id",
                                  static_cast<std::uint16_t>((*body)[0] << 8 | (*body)[1]));
    return copy;
}

// All but events.
std::vector<stored_table> copies_of(std::optional<std::uint8_t> table_id)
{
    std::vector<stored_table> copies;
    {
        const store_lock held;
        each_element<SiTable>(Orva_Si_GetTableList(), [&](const SiTable &table) {
            if (table.table_id == table_id.value_or(table.table_id))
                copies.push_back(copy_of(table));
        });
    }
    // A table that was emptied for a new version of it has no sections.
    std::erase_if(copies, [](const stored_table &copy) { return copy.sections.empty(); });
    std::ranges::stable_sort(copies, by_name);
    return copies;
}

// The sub-tables of a service's events, by their table_id.
std::map<std::uint8_t, stored_table> event_tables_of(const SiEitRequest &service)
{
    std::map<std::uint8_t, stored_table> tables;
    for (std::vector<std::uint8_t> &stored : stored_event_sections(service)) {
        if (stored.size() >= header_bytes)
            tables[stored[0]].sections.push_back(std::move(stored));
    }
    for (auto &[table_id, table] : tables) {
        std::ranges::stable_sort(table.sections, by_section_number);
        table.pid = eit_pid;
        table.table_id = table_id;
        table.complete = is_whole_table(table.sections);
        table.ids = {{"service_id", service.service_id},
                     {"transport_stream_id", service.transport_stream_id},
                     {"original_network_id", service.original_network_id}};
    }
    return tables;
}

} // namespace

const char *table_name(std::uint8_t table_id)
{
    return kind_of(table_id).name;
}

void each_stored_table(std::optional<std::uint8_t> table_id,
                       const std::function<bool(const stored_table &)> &visit)
{
    for (const stored_table &table : copies_of(table_id))
        if (!visit(table))
            return;
    std::vector<SiEitRequest> services = stored_services();
    std::ranges::sort(services, {}, [](const SiEitRequest &one) {
        return std::tie(one.original_network_id, one.transport_stream_id, one.service_id);
    });
    for (const SiEitRequest &service : services)
        for (const auto &[id, table] : event_tables_of(service))
            if (id == table_id.value_or(id) && !visit(table))
                return;
}

} // namespace tool
