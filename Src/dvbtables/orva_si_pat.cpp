// SPDX-License-Identifier: LGPL-2.1-or-later
// The Program Association Table (ISO/IEC 13818-1, 2.4.4.3): its programs and its
// transport_stream_id.
#include "orva_si/query_program.h"
#include "orva_si_model.h"
#include "orva_si_query.h"
#include "orva_si_ucsi.h"

namespace si {

namespace {

constexpr SiTableKey pat_key{pid_pat, tid_pat, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};
constexpr std::uint16_t network_pid_entry =
    0; // program_number of the entry that names the PID of the NIT

// Empties the list; the library's own knows how to do that without a reader seeing half of it.
void reset(SiPmtPidList &list)
{
    Si_Model_ResetPmtPidList();
    if (&list != &PmtPidList)
        store_relaxed(list.count, 0);
}

// Appends the programs of a section behind the first used entries; answers full at one too many.
step append_programs(site here, mpeg_pat_section &pat, SiPmtPidList &list, std::uint32_t &used)
{
    for (mpeg_pat_program &program : programs(pat)) {
        const pmt_entry entry{program.program_number, program.pid};
        if (entry.program_number == network_pid_entry || entry.program_number == SI_NO_PROGRAM)
            continue;
        if (used == max_programs) {
            SI_LOG_AT(here, level::error, "need more memory\n");
            return step::full;
        }
        store_pmt_entry(list, used, entry);
        SI_LOG_AT(here, level::trace, "index = %d, prog_num:%#x, pmt_pid: %#x\n",
                  static_cast<int>(used), entry.program_number, entry.pmt_pid);
        ++used;
    }
    return step::next;
}

} // namespace

} // namespace si

using namespace si;

// The dispatcher calls this with Ts_Ctl_Mutex held.
uint32_t Si_Pat_ParsePmtPidList(SiTable *ptbl, SiPmtPidList *pmt_pid_list)
{
    SI_REQUIRE(ptbl);
    SI_REQUIRE(pmt_pid_list);
    ctl.assume_held();
    const site here = SI_HERE;
    reset(*pmt_pid_list);
    std::uint32_t used = 0;
    auto append = [&](mpeg_pat_section &pat) {
        return append_programs(here, pat, *pmt_pid_list, used);
    };
    auto opened = decoding<pat_codec>(append);
    walk_sections(here, ptbl->psect_list, section_visitor{opened});
    store_relaxed(pmt_pid_list->count, used); // last, so that every counted entry is there
    Orva_Si_DelMissedPmtCaches();
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetPatTsId(uint16_t *ptsid)
{
    SI_REQUIRE(ptsid);
    const site here = SI_HERE;
    return query<pat_codec>(here, pat_key, ORVA_SI_NOT_FOUND, [&](mpeg_pat_section &pat) {
        *ptsid = mpeg_pat_section_transport_stream_id(&pat);
        SI_LOG_AT(here, level::trace, "pat transport stream id: 0x%x\n", *ptsid);
        return step::found;
    });
}
