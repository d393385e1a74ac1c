// SPDX-License-Identifier: LGPL-2.1-or-later
// The programs of the PAT, as the dispatcher, the PAT parser and the PMT filters share them.
#ifndef SRC_ORVA_SI_MODEL_H
#define SRC_ORVA_SI_MODEL_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>

#include "orva_si/store.h"
#include "orva_si_shared.h"

extern "C" {

// Written under Ts_Ctl_Mutex, read with and without it: every access goes through the functions
// below.
extern SiPmtPidList PmtPidList;

} // extern "C"

namespace si {

struct pmt_entry {
    std::uint16_t program_number;
    std::uint16_t pmt_pid;
};

inline constexpr pmt_entry no_pmt_entry{SI_NO_PROGRAM, SI_ANY_PID};
inline constexpr std::uint32_t max_programs =
    static_cast<std::uint32_t>(std::size(SiPmtPidList{}.pmtpid_array));

// A pair is read and written as one word, so that a reader never sees half of it.
inline pmt_entry load_pmt_entry(const SiPmtPidList &list, std::uint32_t index)
{
    const auto *word = reinterpret_cast<const std::uint32_t *>(&list.pmtpid_array[index]);
    return std::bit_cast<pmt_entry>(load_relaxed(*word));
}

inline void store_pmt_entry(SiPmtPidList &list, std::uint32_t index, pmt_entry entry)
{
    auto *word = reinterpret_cast<std::uint32_t *>(&list.pmtpid_array[index]);
    store_relaxed(*word, std::bit_cast<std::uint32_t>(entry));
}

// Entries in use; never more than the list holds, whatever its count says.
inline std::uint32_t pmt_entries(const SiPmtPidList &list)
{
    return std::min(load_relaxed(list.count), max_programs);
}

} // namespace si

#endif
