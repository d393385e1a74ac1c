// SPDX-License-Identifier: LGPL-2.1-or-later
// A client that writes down what it is told, and a library that is tuned without any driver.
#ifndef TESTS_SUPPORT_CLIENT_H
#define TESTS_SUPPORT_CLIENT_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include "orva_si/channel.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/readiness.h"
#include "support/store.h"

namespace test {

// One notification; the records that come by address are copied.
struct event {
    std::uint32_t reason = 0;
    std::uint32_t flag = 0;
    SiWord data = 0; // where it is a number
    std::uint32_t value = 0;
    SiPmtNotify pmt{};
    SiEitNotify eit{};
    SiDsmccNotify dsmcc{};
    bool ctl_was_free = false; // nobody held Ts_Ctl_Mutex during the call
};

inline void PrintTo(const event &e, std::ostream *out)
{
    *out << "reason " << e.reason << " data " << e.data;
}

inline std::vector<event> events;
inline std::function<void()> during_event; // what the client does inside its callback

inline std::uint32_t note_event(std::uint32_t reason, std::uint32_t flag, SiWord data,
                                std::uint32_t value)
{
    event noted{.reason = reason, .flag = flag, .value = value};
    if (reason == SI_REASON_PMT)
        noted.pmt = *reinterpret_cast<const SiPmtNotify *>(data);
    else if (reason >= SI_REASON_EIT_PRESENT_FOLLOWING && reason <= SI_REASON_EIT_SCHEDULE_NEW)
        noted.eit = *reinterpret_cast<const SiEitNotify *>(data);
    else if (reason == SI_REASON_DSMCC)
        noted.dsmcc = *reinterpret_cast<const SiDsmccNotify *>(data);
    else
        noted.data = data;
    noted.ctl_was_free = Orva_MutexTryP(&Ts_Ctl_Mutex) == ORVA_SI_OK;
    if (noted.ctl_was_free)
        Orva_MutexV(&Ts_Ctl_Mutex);
    events.push_back(noted);
    if (during_event)
        during_event();
    return 0;
}

inline std::vector<std::uint32_t> reasons()
{
    std::vector<std::uint32_t> found;
    for (const event &noted : events)
        found.push_back(noted.reason);
    return found;
}

// What a start of a channel does to the model; frequency 0 is a scan.
inline void tune(std::uint32_t frequency, std::uint16_t program_number = SI_NO_PROGRAM)
{
    init_store();
    Orva_Si_SetCtlFlag();
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_ResetRunningStatus(frequency, program_number);
    Orva_MutexV(&Ts_Ctl_Mutex);
    Si_CtlHelper_SetTableEnableFlag();
}

} // namespace test

#endif
