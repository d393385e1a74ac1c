// SPDX-License-Identifier: LGPL-2.1-or-later
// A tuned library with a client that listens, and sections straight into the dispatcher.
#ifndef TESTS_SUPPORT_DISPATCHER_H
#define TESTS_SUPPORT_DISPATCHER_H

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "fakes/platform.h"
#include "support/client.h"
#include "support/model.h"
#include "support/store.h"

namespace test {

inline constexpr std::uint32_t frequency = 474000;

class Dispatcher : public testing::Test {
protected:
    Dispatcher()
    {
        tune(frequency);
        Orva_Si_InstallCallback(note_event);
        fake::clear_log();
    }
    ~Dispatcher() override { end_store(); }
    Dispatcher(const Dispatcher &) = delete;
    Dispatcher &operator=(const Dispatcher &) = delete;

    static std::uint32_t deliver(const octets &section, std::uint16_t pid,
                                 std::uint16_t filter_id = 0)
    {
        return Si_Model_ProcessModel(received{section, pid, filter_id});
    }
    static std::uint32_t deliver(const octets &section)
    {
        return deliver(section, usual_pid(section[0]));
    }
    static SiTable *find(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
    {
        return Orva_Si_FindTableById(pid, table_id, ext, SI_ANY_EXT, SI_ANY_EXT);
    }
    static std::vector<SiEitService *> services_with_events()
    {
        return elements_of<SiEitService>(Orva_Si_GetDvbEitList());
    }
    // Folded table_ids of everything in the event store.
    static std::vector<unsigned> event_table_ids()
    {
        std::vector<unsigned> found;
        for (const SiEitService *service : services_with_events())
            for (const SiEitSection *section : elements_of<SiEitSection>(service->sections))
                found.push_back(section->table_id);
        return found;
    }
    static void forget()
    {
        fake::clear_log();
        events.clear();
    }
};

// A section of the SDT of the tuned stream.
inline octets services(std::uint8_t number, std::uint8_t last, std::uint8_t version = 0)
{
    return make(sdt{.ts = 1,
                    .version = version,
                    .section_number = number,
                    .last_section_number = last,
                    .services = {{.id = number}}});
}

} // namespace test

#endif
