// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tests of the event store share. For executables that wrap the functions defined here.
#ifndef TESTS_SUPPORT_EVENT_STORE_H
#define TESTS_SUPPORT_EVENT_STORE_H

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/platform.h"
#include "orva_si/filter.h"
#include "support/client.h"
#include "support/model.h"
#include "support/store.h"

namespace test {

// ---- What the store calls

inline bool eit_lock_is_free()
{
    if (Orva_MutexTryP(&Ts_Eit_Mutex) != ORVA_SI_OK)
        return false;
    Orva_MutexV(&Ts_Eit_Mutex);
    return true;
}

inline std::vector<std::string>
    filter_calls;                     // oldest first, as complete() and last_table() write them
inline bool eit_lock_was_held = true; // during all of them

inline std::string complete(unsigned table_id, unsigned service, unsigned version)
{
    return text("complete %#x of %#x version %u", table_id, service, version);
}
inline std::string last_table(unsigned table_id, unsigned service, unsigned last)
{
    return text("last table of %#x of %#x is %#x", table_id, service, last);
}

struct notice {
    std::uint16_t original_network, ts, service;
    std::uint8_t table_id, section_number;
    std::uint32_t crc, changed;

    bool operator==(const notice &) const = default;
};
inline void PrintTo(const notice &n, std::ostream *out)
{
    *out << text("%#x.%#x.%#x table %#x section %u crc %#x changed %u", n.original_network, n.ts,
                 n.service, n.table_id, n.section_number, n.crc, n.changed);
}

inline std::vector<notice> notices;
inline bool eit_lock_was_free = true;
inline std::vector<std::pair<const void *, std::size_t>> freed;
inline bool note_frees = false;

extern "C" std::uint32_t __wrap_Si_SectFlt_UpdateEit(std::uint32_t table_id, std::uint32_t service,
                                                     std::uint32_t version, std::uint32_t finished)
{
    EXPECT_EQ(finished, 1U);
    eit_lock_was_held = eit_lock_was_held && !eit_lock_is_free();
    filter_calls.push_back(complete(table_id, service, version));
    return ORVA_SI_FAILURE; // which is nothing to the store
}

extern "C" std::uint32_t __wrap_Si_SectFlt_UpdateEitLastTableId(std::uint32_t table_id,
                                                                std::uint32_t service,
                                                                std::uint32_t last)
{
    eit_lock_was_held = eit_lock_was_held && !eit_lock_is_free();
    filter_calls.push_back(last_table(table_id, service, last));
    return ORVA_SI_FAILURE;
}

extern "C" std::uint32_t __real_Orva_Si_NotifyEit(std::uint16_t, std::uint16_t, std::uint16_t,
                                                  std::uint8_t, std::uint8_t, std::uint32_t,
                                                  std::uint32_t);
extern "C" std::uint32_t __wrap_Orva_Si_NotifyEit(std::uint16_t original_network, std::uint16_t ts,
                                                  std::uint16_t service, std::uint8_t table_id,
                                                  std::uint8_t number, std::uint32_t crc,
                                                  std::uint32_t changed)
{
    eit_lock_was_free = eit_lock_was_free && eit_lock_is_free();
    notices.push_back({original_network, ts, service, table_id, number, crc, changed});
    return __real_Orva_Si_NotifyEit(original_network, ts, service, table_id, number, crc, changed);
}

extern "C" void __real_g_slice_free1(gsize size, gpointer memory);
extern "C" void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    if (note_frees)
        freed.emplace_back(memory, size);
    __real_g_slice_free1(size, memory);
}

// ---- Ways in and out

constexpr std::uint8_t folded(std::uint8_t table_id)
{
    if (table_id == 0x4F)
        return 0x4E;
    return table_id >= 0x60 ? static_cast<std::uint8_t>(table_id - 0x10) : table_id;
}

// Hands a section in as the dispatcher does, in a buffer of exactly its size.
inline std::uint32_t deliver(const octets &section, std::uint16_t original_network,
                             std::uint16_t ts, std::uint16_t service, std::uint8_t table_id,
                             std::uint8_t number)
{
    const std::unique_ptr<std::uint8_t[]> buffer{new std::uint8_t[section.size()]};
    std::copy(section.begin(), section.end(), buffer.get());
    return Orva_Si_ListEitImpl(original_network, ts, service, table_id, number,
                               static_cast<std::uint16_t>(section.size()), buffer.get());
}
inline std::uint32_t deliver(const octets &section)
{
    const auto u16 = [&](std::size_t at) {
        return static_cast<std::uint16_t>(section.at(at) << 8 | section.at(at + 1));
    };
    return deliver(section, u16(10), u16(8), u16(3), folded(section[0]), section[6]);
}

inline notice told(const octets &section, std::uint32_t changed = 0)
{
    return {static_cast<std::uint16_t>(section[10] << 8 | section[11]),
            static_cast<std::uint16_t>(section[8] << 8 | section[9]),
            static_cast<std::uint16_t>(section[3] << 8 | section[4]),
            folded(section[0]),
            section[6],
            crc_of(section),
            changed};
}

inline std::vector<SiEitService *> services()
{
    return elements_of<SiEitService>(Orva_Si_GetDvbEitList());
}
inline std::vector<SiEitSection *> records(std::size_t service = 0)
{
    return elements_of<SiEitSection>(services().at(service)->sections);
}
inline octets bytes_of(const SiEitSection *record)
{
    return {record->section, record->section + record->sect_len};
}
inline std::vector<octets> held(std::size_t service = 0)
{
    std::vector<octets> found;
    for (const SiEitSection *record : records(service))
        found.push_back(bytes_of(record));
    return found;
}

inline constexpr std::uint16_t sid = 0x0102;

// Sections of one service; event makes sections that are otherwise alike differ in their CRC_32.
inline octets pf(std::uint8_t number, std::uint8_t version = 0, std::uint16_t event = 1,
                 std::uint8_t table_id = 0x4E)
{
    return make(eit{.table_id = table_id,
                    .service = sid,
                    .ts = 0x0304,
                    .original_network = 0x0506,
                    .version = version,
                    .section_number = number,
                    .last_section_number = 1,
                    .events = {{.id = event}}});
}
inline octets schedule(std::uint8_t number, std::uint8_t last, std::uint8_t version = 0,
                       std::uint16_t event = 1, std::uint8_t table_id = 0x50)
{
    return make(eit{.table_id = table_id,
                    .service = sid,
                    .ts = 0x0304,
                    .original_network = 0x0506,
                    .version = version,
                    .section_number = number,
                    .last_section_number = last,
                    .events = {{.id = event}}});
}

inline const std::string unlock_trace = "~~~Mutex UnLock~~~\n";
inline const std::string no_service = "can't allocate the memory for the table\n";
inline const std::string no_section = "can't allocate the memory for the eit section\n";
inline const std::string no_update = "can't allocate for the eit section during eit update case\n";

class EventStore : public testing::Test {
protected:
    EventStore()
    {
        init_store();
        Orva_Si_InstallCallback(note_event);
        forget();
    }
    ~EventStore() override
    {
        note_frees = false;
        during_event = nullptr;
        fake::fail_allocation(0);
        EXPECT_TRUE(eit_lock_is_free());
        EXPECT_TRUE(eit_lock_was_held) << "a filter was updated without the lock";
        EXPECT_TRUE(eit_lock_was_free) << "the client was told with the lock held";
        end_store();
    }
    EventStore(const EventStore &) = delete;
    EventStore &operator=(const EventStore &) = delete;

    static void forget()
    {
        fake::clear_log();
        events.clear();
        notices.clear();
        filter_calls.clear();
    }
    // Delivers while the n-th allocation from now on fails.
    static void deliver_without_memory(const octets &section, unsigned n)
    {
        fake::fail_allocation(n);
        EXPECT_EQ(deliver(section), ORVA_SI_OK);
        fake::fail_allocation(0);
    }
};

} // namespace test

#endif
