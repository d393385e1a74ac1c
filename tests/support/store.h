// SPDX-License-Identifier: LGPL-2.1-or-later
// Puts sections into the table store through the library's own insertion.
#ifndef TESTS_SUPPORT_STORE_H
#define TESTS_SUPPORT_STORE_H

#include <string>

#include "orva_si/os.h"
#include "orva_si/store.h"
#include "support/sections.h"

namespace test {

// The PID that the standards give to a table; PMTs are on 0x100 here unless the test says
// otherwise.
inline std::uint16_t usual_pid(std::uint8_t table_id)
{
    if (table_id <= 0x01)
        return table_id;
    if (table_id == 0x02)
        return 0x100;
    if (table_id == 0x40 || table_id == 0x41)
        return 0x10;
    return table_id >= 0x4E && table_id <= 0x6F ? 0x12 : 0x11;
}

// Creates the store, once in the life of a test.
inline void init_store()
{
    if (Orva_Si_GetTableList() == nullptr)
        Orva_Si_InitTables();
}

// Ends the stores, where there are any. The event list outlives them, so that it goes by hand.
inline void end_store()
{
    if (Orva_Si_GetTableList() == nullptr)
        return;
    Orva_Si_EraseAllEitRawData();
    Orva_Si_DestorySectModel();
    si_list_uninit(Orva_Si_GetDvbEitList());
}

// Puts one more section into a table.
inline void insert(SiTable *table, octets section)
{
    SiSection record{};
    record.pid = table->pid;
    record.sect_len = static_cast<std::uint16_t>(section.size());
    record.section = section.data();
    Orva_Si_InsertSection(table, &record);
    Orva_Si_CheckTableCompleted(table, &record);
}

// Stores one section in its table, which is created when it is the first. Answers the table.
inline SiTable *store(const octets &section, std::uint16_t pid)
{
    init_store();
    Orva_MutexP(&Ts_Ctl_Mutex);
    const std::uint8_t table_id = section.at(0);
    const auto extension = static_cast<std::uint16_t>(section.at(3) << 8 | section.at(4));
    SiTable *table = Orva_Si_FindTableById(pid, table_id, extension, SI_ANY_EXT, SI_ANY_EXT);
    if (table == nullptr)
        table = Orva_Si_CreateTable(pid, table_id, section.data());
    insert(table, section);
    Orva_MutexV(&Ts_Ctl_Mutex);
    return table;
}

inline SiTable *store(const octets &section)
{
    return store(section, usual_pid(section.at(0)));
}

// The bytes of a text record.
template <class DvbString>
std::string text_of(const DvbString &text)
{
    return {reinterpret_cast<const char *>(text.text), text.length};
}

} // namespace test

#endif
