// SPDX-License-Identifier: LGPL-2.1-or-later
// The dispatcher: takes every received section where it belongs, keeps tables current, and tracks
// the programs of the PAT.
#include "orva_si_model.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "orva_si/background.h"
#include "orva_si/channel.h"
#include "orva_si/filter.h"
#include "orva_si/notify.h"
#include "orva_si/query_program.h"
#include "orva_si/readiness.h"
#include "orva_si/time.h"
#include "orva_si_alloc.h"
#include "orva_si_bytes.h"
#include "orva_si_lock.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_siids.h"

extern "C" {

SiPmtPidList PmtPidList = {{}, 0, SI_NO_PROGRAM, SI_ANY_PID};

} // extern "C"

namespace si {

namespace {

constexpr std::uint32_t pmt_service = 0; // the background service that ages PMT filters

// The header of a section (ISO/IEC 13818-1, 2.4.4.11); bytes that were not delivered read as 0.
struct section_head {
    explicit section_head(const SiSection &record)
    {
        if (record.sect_len >= byte.size())
            std::memcpy(byte.data(), record.section, byte.size());
        else
            std::copy_n(record.section, record.sect_len, byte.begin());
    }
    std::uint8_t table_id() const { return byte[0]; }
    std::size_t size() const { return section_size(byte.data()); }
    std::uint16_t ext() const { return word<3>(); }
    std::uint8_t version() const { return version_of(byte[5]); }
    std::uint8_t section_number() const { return byte[6]; }
    std::uint8_t last_section_number() const { return byte[7]; }
    template <std::size_t At>
    std::uint16_t word() const
    {
        return be16(std::span{byte}.template subspan<At, 2>());
    }

    std::array<std::uint8_t, 16> byte{};
};

struct arrival {
    const SiSection &record;
    section_head head;
};

bool is_pat(const arrival &in)
{
    return in.record.pid == pid_pat && in.head.table_id() == tid_pat;
}

void start_pmts()
{
    Si_SectFlt_StartPmt(&PmtPidList);
    Si_BG_ResumeService(pmt_service);
}

// A repeat opens PMT filters only for another program; those of the former stay open until then.
void rearm_pat_repeat(SiTable &table, std::uint8_t version)
{
    if (load_relaxed(PmtPidList.cur_prog_num) != Si_Ctl_GetTunningProgNo()) {
        Si_Pat_ParsePmtPidList(&table, &PmtPidList);
        if (Si_Model_UpdateCurPmtInfo() == ORVA_SI_OK)
            start_pmts();
    }
    Si_SectFlt_UpdatePat(version, 1);
}

void rearm_new_pat(SiTable &table, std::uint8_t version)
{
    Si_Pat_ParsePmtPidList(&table, &PmtPidList);
    if (Si_Model_UpdateCurPmtInfo() == ORVA_SI_OK) {
        Si_SectFlt_StopPmt();
        start_pmts();
    }
    Si_SectFlt_UpdatePat(version, 1);
}

// Lets the filter of a complete table wait for another version. NIT, SDT and BAT filters wait for
// any.
template <class Pat>
void rearm(const arrival &in, SiTable &table, Pat rearm_pat)
{
    const std::uint8_t version = in.head.version();
    if (is_pat(in))
        rearm_pat(table, version);
    else if (table.table_id == tid_pmt)
        Si_SectFlt_UpdatePmt(in.head.ext(), table.pid, version, 1);
    else if (table.pid == pid_cat && table.table_id == tid_cat)
        Si_SectFlt_UpdateCat(version, 1);
}

// The table of a section that is new, under its changed content or under a changed multiplex.
SiTable *table_for(const arrival &in, const SiSection *&existing)
{
    const std::uint8_t table_id = in.head.table_id();
    if (Orva_Si_IsStreamChanged(in.record.pid, table_id, in.head.ext()) == 0) {
        SiTable *table =
            Orva_Si_FindTableById(in.record.pid, table_id, in.head.ext(), SI_ANY_EXT, SI_ANY_EXT);
        if (table != nullptr) {
            existing = Si_Model_FindSection(table, &in.record);
            return table;
        }
    } else {
        SI_LOG(level::notice,
               "the stream changed, so we delete all saved rawdata, pid: %#x, table_id: %#x, "
               "ext_id: %#x\n",
               in.record.pid, table_id, in.head.ext());
        Orva_Si_DeleteCaches(0);
        Orva_Si_EraseAllEitRawData();
    }
    return Orva_Si_CreateTable(in.record.pid, table_id, in.head.byte.data());
}

// A table became complete: its filter waits for the next version and the client hears of it. The
// client may empty the store meanwhile, so nothing of the table is touched afterwards.
void announce(const arrival &in, SiTable &table)
{
    rearm(in, table, rearm_new_pat);
    const std::uint16_t pid = table.pid;
    const std::uint16_t ext = table.ext;
    const std::uint8_t table_id = table.table_id;
    SI_LOG(level::verbose, "Notify table :%#x update, filter_id: %d, pid: %#x, ext_id: %#x!\n",
           table_id, in.record.filter_id, pid, ext);
    Orva_Si_NotifyTableStatus(pid, table_id, ext);
}

std::uint32_t collect(const arrival &in) SI_NEEDS(ctl)
{
    const SiSection *existing = nullptr;
    SiTable *table = table_for(in, existing);
    if (table == nullptr) {
        SI_LOG(level::error, "no mem yet\n");
        return ORVA_SI_NO_TABLE;
    }
    SI_LOG(level::trace, "ptbl = %#x, psectb = %#x\n", address_of(table), address_of(existing));
    if (existing != nullptr) {
        if (Orva_Si_IsCrcEqual(in.record.section, existing->section) != 0) {
            SI_LOG(level::trace, "got the existed and same crc section\n");
            if (table->completed != 0)
                rearm(in, *table, rearm_pat_repeat);
            return ORVA_SI_OK;
        }
        SI_LOG(level::trace, "got the existed but found the crc is different, %#x: %#x\n",
               crc_field(in.record.section), crc_field(existing->section));
        Orva_Si_RemoveTableSections(table);
    }
    SI_LOG(level::verbose, "Insert table %#x, ext_id: %#x\n", in.head.table_id(), in.head.ext());
    if (Orva_Si_InsertSection(table, &in.record) != ORVA_SI_OK) {
        SI_LOG(level::error, "can't insert psect = %#x, ext_id: %#x to table list.\n",
               in.head.table_id(), in.head.ext());
        return ORVA_SI_FAILURE;
    }
    if (Orva_Si_CheckTableCompleted(table, &in.record) == 1)
        announce(in, *table);
    return ORVA_SI_OK;
}

bool is_handed_through(const arrival &in)
{
    const std::uint8_t table_id = in.head.table_id();
    return table_id >= tid_dsmcc_un_message && table_id <= tid_dsmcc_stream_event &&
           Si_SectFlt_IsDsmccPid(in.record.pid) != 0;
}

bool is_time(const arrival &in)
{
    const std::uint8_t table_id = in.head.table_id();
    return in.record.pid == pid_tdt_tot && (table_id == tid_tdt || table_id == tid_tot);
}

bool is_event(const arrival &in)
{
    const std::uint8_t table_id = in.head.table_id();
    return in.record.pid == pid_eit && table_id >= tid_eit_pf_actual && table_id <= tid_eit_last;
}

std::uint32_t store_event(site here, const arrival &in)
{
    const std::uint16_t transport_stream_id = in.head.word<8>();
    const std::uint16_t original_network_id = in.head.word<10>();
    const auto size = static_cast<std::uint16_t>(in.head.size());
    SI_LOG_AT(here, level::trace, "transport_stream_id=%#x, orignal_network_id=%#x\n",
              transport_stream_id, original_network_id);
    SI_LOG_AT(here, level::trace, "section_length =%#x\n",
              static_cast<unsigned>(size - section_header_bytes));
    return Orva_Si_ListEitImpl(original_network_id, transport_stream_id, in.head.ext(),
                               folded_table_id(in.head.table_id()), in.head.section_number(), size,
                               in.record.section);
}

template <class Matches>
pmt_entry find_program(Matches matches)
{
    for (std::uint32_t i = 0; i < pmt_entries(PmtPidList); ++i) {
        const pmt_entry entry = load_pmt_entry(PmtPidList, i);
        if (matches(i, entry))
            return entry;
    }
    return no_pmt_entry;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Si_Model_ProcessModel(SiSection *psection)
{
    if (psection == nullptr || psection->section == nullptr) {
        SI_LOG(level::error, "bad pointer\n");
        return ORVA_SI_OK;
    }
    const arrival in{*psection, section_head{*psection}};
    const auto size = static_cast<std::uint32_t>(in.head.size());
    const std::uint8_t table_id = in.head.table_id();
    if (psection->sect_len < size) {
        SI_LOG(level::fatal,
               "The section length is larger than the buffer size: %d - %d, table_id=%#x, pid=%#x, "
               "filter_id=%d\n",
               size, psection->sect_len, table_id, psection->pid, psection->filter_id);
        return ORVA_SI_FAILURE;
    }
    SI_LOG(level::trace, "%s\n",
           psection->pid == pid_tdt_tot ? "Ungeneric private section" : "Generic section");
    SI_LOG(level::trace, "section pid = %#x, tableid = %#x, section length = %#x\n", psection->pid,
           table_id, size - static_cast<std::uint32_t>(section_header_bytes));
    Orva_Si_SetDetectBit(psection->pid, table_id);

    if (is_handed_through(in)) {
        SI_LOG(level::trace, "DSMCC section psection->pid=%#x tableid=%#x sect_len=%#x\n",
               psection->pid, table_id, psection->sect_len);
        return Orva_Si_PostDsmccSect(psection, size);
    }
    if (is_time(in)) {
        const std::uint32_t result = Orva_Si_TimeCase(psection->section, size, pid_tdt_tot);
        SI_LOG(level::trace, "post time section ret = %#x\n", result);
        return result;
    }
    return is_event(in) ? store_event({SI_SOURCE, "Si_Model_HandleEitTables", __LINE__}, in)
                        : Si_Model_CollectTables(psection);
}

uint32_t Si_Model_HandleEitTables(SiSection *psect)
{
    if (psect == nullptr || psect->section == nullptr) {
        SI_LOG_MISSING("psect->section!=NULL");
        return ORVA_SI_NULL_ARGUMENT;
    }
    if (psect->pid != pid_eit) {
        SI_LOG(level::error, "wrong eit pid\n");
        return ORVA_SI_FAILURE;
    }
    return store_event(SI_HERE, {*psect, section_head{*psect}});
}

uint32_t Si_Model_CollectTables(SiSection *psection)
{
    if (psection == nullptr || psection->section == nullptr) {
        SI_LOG(level::error, "bad pointer\n");
        return ORVA_SI_OK;
    }
    const arrival in{*psection, section_head{*psection}};
    SI_LOG(level::verbose, "Collect table: %#x!\n", in.head.table_id());
    if (psection->sect_len < in.head.size())
        return ORVA_SI_FAILURE; // the dispatcher has said so already
    std::uint32_t result = ORVA_SI_OK;
    {
        const late_release after_unlocking;
        const scope_lock lock{ctl, SI_HERE};
        result = collect(in);
    }
    SI_LOG(level::trace, "ret = %#x\n", result);
    return result;
}

SiSection *Si_Model_FindSection(SiTable *ptbl, const SiSection *psection)
{
    if (ptbl == nullptr || ptbl->psect_list == nullptr) {
        SI_LOG_MISSING("ptbl->psect_list");
        return nullptr;
    }
    return static_cast<SiSection *>(si_list_find(ptbl->psect_list, psection, find_section));
}

int32_t find_section(const void *record, const void *stored)
{
    if (record == nullptr || stored == nullptr)
        return -1;
    const auto &wanted = *static_cast<const SiSection *>(record);
    const auto &held = *static_cast<const SiSection *>(stored);
    if (wanted.pid != held.pid || wanted.section == nullptr || held.section == nullptr)
        return -1;
    const auto number = [](const SiSection &of) {
        return of.sect_len > 6 ? of.section[6] : std::uint8_t{0};
    };
    return number(wanted) == number(held) ? 0 : -1;
}

uint32_t Orva_Si_InsertSection(SiTable *ptbl, const SiSection *psection)
{
    SI_REQUIRE_AS(ptbl, "ptbl != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_REQUIRE_AS(psection, "psection != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_REQUIRE_AS(psection->section, "psection->section != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_REQUIRE_AS(ptbl->psect_list, "ptbl->psect_list != NULL", ORVA_SI_NULL_ARGUMENT);
    const std::uint8_t table_id = psection->section[0];
    SI_LOG(level::trace, "pid=%#x,table_id=%#x\n", psection->pid, table_id);

    auto *record = allocate_record<SiSection>();
    if (record == nullptr) {
        SI_LOG(level::fatal, "fatal error: cannot malloc memory!!!\n");
        return ORVA_SI_FAILURE;
    }
    const std::size_t size = section_size(psection->section);
    const bool fits = reserve_table_bytes(size, table_id);
    si::on_exit undo{[&] {
        if (fits)
            return_table_bytes(size);
        drop_kept(record->section, size);
        release_record(record);
    }};
    if (fits)
        record->section = keep_section(psection->section, size);
    if (record->section == nullptr) {
        SI_LOG(level::fatal, "fatal error: cant malloc memory!!!\n");
        return ORVA_SI_FAILURE;
    }
    record->pid = psection->pid;
    record->sect_len = static_cast<std::uint16_t>(size);
    if (si_list_add(ptbl->psect_list, record, -1) == -1) {
        SI_LOG(level::fatal, "can't add the section into table\n");
        return ORVA_SI_FAILURE;
    }
    undo.release();
    Orva_Si_SetSectMap(ptbl->sect_map, record->section[6]);
    ptbl->crc &= crc_field(record->section);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_CheckTableCompleted(SiTable *ptbl, const SiSection *psect)
{
    SI_REQUIRE_AS(ptbl, "ptbl != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_REQUIRE_AS(psect, "psect != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_REQUIRE_AS(psect->section, "psect->section != NULL", ORVA_SI_NULL_ARGUMENT);
    SI_LOG(level::trace, "ptbl->pid = %#x\n", ptbl->pid);
    if (ptbl->table_id == tid_pmt) {
        SI_LOG(level::trace, "this is a pmt\n");
        ptbl->completed = 1;
        return 1;
    }
    const section_head head{*psect};
    if (ptbl->pid == pid_eit ||
        Orva_Si_IsSegSectCompleted(ptbl->sect_map, head.last_section_number(), nullptr) != 1)
        return 0;
    ptbl->completed = 1;
    SI_LOG(level::trace, "the table is completed\n");
    return 1;
}

uint32_t Orva_Si_RemoveSectInTable(SiTable *ptbl, SiSection *psect)
{
    SI_REQUIRE(ptbl);
    SI_REQUIRE(psect);
    SI_REQUIRE(ptbl->psect_list);
    const std::int32_t position = si_list_get_pos(ptbl->psect_list, psect);
    SI_LOG(level::trace, "found the pos = %d\n", position);
    if (position == -1) {
        SI_LOG(level::trace, "wrong pos.\n");
        return ORVA_SI_OK;
    }
    si_list_remove(ptbl->psect_list, position);
    free_stored_section(psect);
    return ORVA_SI_OK;
}

uint32_t Si_Model_ResetPmtPidList(void)
{
    for (std::uint32_t i = 0; i < pmt_entries(PmtPidList); ++i)
        store_pmt_entry(PmtPidList, i, no_pmt_entry);
    store_relaxed(PmtPidList.cur_pmt_pid, SI_ANY_PID);
    store_relaxed(PmtPidList.cur_prog_num, SI_NO_PROGRAM);
    store_relaxed(PmtPidList.count, 0);
    return ORVA_SI_OK;
}

uint32_t Si_Model_ResetCurTuningProgramNum(void)
{
    store_relaxed(PmtPidList.cur_prog_num, SI_NO_PROGRAM);
    return ORVA_SI_OK;
}

uint32_t Si_Model_UpdateCurPmtInfo(void)
{
    const auto program = static_cast<std::uint16_t>(Si_Ctl_GetTunningProgNo());
    store_relaxed(PmtPidList.cur_prog_num, program);
    if (program == SI_NO_PROGRAM)
        return ORVA_SI_OK;
    const pmt_entry found = find_program(
        [&](std::uint32_t, const pmt_entry &entry) { return entry.program_number == program; });
    if (found.program_number != program) {
        SI_LOG(level::trace, "can't find the prog_no = %#x\n", program);
        return ORVA_SI_FAILURE;
    }
    store_relaxed(PmtPidList.cur_pmt_pid, found.pmt_pid);
    return ORVA_SI_OK;
}

uint32_t Si_Model_GetPmtPid(uint16_t prog_num)
{
    if (prog_num == 0) {
        SI_LOG_MISSING("prog_num");
        return SI_ANY_PID;
    }
    const site here = SI_HERE;
    return find_program([&](std::uint32_t i, const pmt_entry &entry) {
               SI_LOG_AT(here, level::trace, "PmtPidList.pmtpid_array[%d] = %#x -> %#x\n", i,
                         entry.program_number, entry.pmt_pid);
               return entry.program_number == prog_num;
           })
        .pmt_pid;
}

uint32_t Orva_Si_GetPmtPid(uint32_t prog_num)
{
    return Si_Model_GetPmtPid(static_cast<std::uint16_t>(prog_num));
}

uint32_t Orva_Si_IsPmtExisted(uint32_t program_number)
{
    const auto program = static_cast<std::uint16_t>(program_number);
    if (program == SI_NO_PROGRAM)
        return 0;
    const pmt_entry found = find_program(
        [&](std::uint32_t, const pmt_entry &entry) { return entry.program_number == program; });
    if (found.program_number != program) {
        SI_LOG(level::trace, "can't find the prog_no = %#x\n", program);
        return 0;
    }
    SI_LOG(level::trace, "found the prog_no = %#x\n", program);
    return 1;
}

uint32_t Orva_Si_IsPmtExistedByPidAndProgNum(uint32_t program_number, uint32_t pmt_pid)
{
    const auto program = static_cast<std::uint16_t>(program_number);
    const auto pid = static_cast<std::uint16_t>(pmt_pid);
    if (program == SI_NO_PROGRAM || pid == SI_ANY_PID)
        return 0;
    const pmt_entry found = find_program([&](std::uint32_t, const pmt_entry &entry) {
        return entry.program_number == program && entry.pmt_pid == pid;
    });
    if (found.program_number == program)
        return 1;
    SI_LOG(level::trace, "can't find the prog_no = %#x, pid = %#xn", program, pid);
    return 0;
}

uint32_t Orva_Si_DoAllPmtReady(void)
{
    bool any = false;
    const pmt_entry missing = find_program([&](std::uint32_t, const pmt_entry &entry) {
        if (entry.program_number == 0 || entry.program_number == SI_NO_PROGRAM)
            return false;
        any = true;
        return Orva_Si_FindTableById(entry.pmt_pid, tid_pmt, entry.program_number, SI_ANY_EXT,
                                     SI_ANY_EXT) == nullptr;
    });
    if (!any) {
        SI_LOG(level::trace, "no valid pmt got \n");
        return 0;
    }
    if (missing.program_number != SI_NO_PROGRAM)
        return 0;
    SI_LOG(level::trace, "all pmt are got \n");
    return 1;
}

uint32_t Orva_Si_GetPatProgList(uint16_t *proglist, int32_t *pcount)
{
    SI_REQUIRE(proglist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const scope_lock lock{ctl, here};
    const std::int32_t capacity = *pcount;
    *pcount = 0;
    std::uint32_t result = ORVA_SI_OK;
    find_program([&](std::uint32_t, const pmt_entry &entry) {
        if (entry.program_number == SI_NO_PROGRAM)
            return false;
        if (*pcount >= capacity) {
            SI_LOG_AT(here, level::error, "error:need more room\n");
            result = ORVA_SI_ARRAY_FULL;
            return true;
        }
        SI_LOG_AT(here, level::trace, "the proglist[%d] = %d\n", *pcount, entry.program_number);
        proglist[(*pcount)++] = entry.program_number;
        return false;
    });
    return *pcount == 0 ? static_cast<std::uint32_t>(ORVA_SI_NO_DATA) : result;
}
