// SPDX-License-Identifier: LGPL-2.1-or-later
// A test with a table store of its own, and short ways into it.
#ifndef TESTS_SUPPORT_STORE_FIXTURE_H
#define TESTS_SUPPORT_STORE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>

#include "support/model.h"
#include "support/store.h"

namespace test {

// The first section of a table of any kind.
inline octets first_section(std::uint8_t table_id, std::uint16_t extension, std::uint8_t last = 0)
{
    return make(private_table{.table_id = table_id,
                              .extension = extension,
                              .last_section_number = last,
                              .payload = {1, 2, 3, 4, 5, 6, 7, 8}});
}

inline void recreate_store()
{
    end_store();
    EXPECT_EQ(Orva_Si_InitTables(), ORVA_SI_OK);
}

class Store : public testing::Test {
protected:
    Store() { init_store(); }
    ~Store() override { end_store(); }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    static SiTable *create(std::uint16_t pid, std::uint8_t table_id, std::uint16_t extension)
    {
        return Orva_Si_CreateTable(pid, table_id, first_section(table_id, extension).data());
    }
    static SiTable *find(std::uint16_t pid, std::uint8_t table_id, std::uint16_t extension)
    {
        return Orva_Si_FindTableById(pid, table_id, extension, SI_ANY_EXT, SI_ANY_EXT);
    }
    static void add_null(std::int32_t position)
    {
        si_list_add(Orva_Si_GetTableList(), nullptr, position);
    }
    // Takes a table out as the store's own callers do.
    static void remove(std::int32_t position)
    {
        auto *table = static_cast<SiTable *>(si_list_get(Orva_Si_GetTableList(), position));
        Orva_Si_RemoveTable(table);
        si_list_remove(Orva_Si_GetTableList(), position);
    }
};

} // namespace test

#endif
