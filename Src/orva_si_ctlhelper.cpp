// SPDX-License-Identifier: LGPL-2.1-or-later
// Which tables may be filtered, which kinds a multiplex carries and which of them are complete; and
// the polling waits.
#include <algorithm>
#include <array>

#include "orva_si/channel.h"
#include "orva_si/os.h"
#include "orva_si/query_network.h"
#include "orva_si/readiness.h"
#include "orva_si/store.h"
#include "orva_si_lock.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::uint32_t poll_interval_ms = 10;

// Half of count, rounded up, in 32 bits: the largest count wraps to none.
constexpr std::uint32_t rounds_of(std::uint32_t count)
{
    return (count + 1) / 2;
}
static_assert(rounds_of(0) == 0 && rounds_of(1) == 1 && rounds_of(0xFFFFFFFF) == 0);

namespace enable {
constexpr std::uint32_t pat = 0x001;
constexpr std::uint32_t cat = 0x002;
constexpr std::uint32_t pmt = 0x004;
constexpr std::uint32_t nit = 0x008;
constexpr std::uint32_t sdt_bat = 0x010;
constexpr std::uint32_t tdt_tot = 0x020;
constexpr std::uint32_t act_pf_eit = 0x040;
constexpr std::uint32_t other_pf_eit = 0x080;
constexpr std::uint32_t act_sch_eit = 0x100;
constexpr std::uint32_t other_sch_eit = 0x200;
constexpr std::uint32_t dsmcc = 0x400;
constexpr std::uint32_t at_every_start = pat | cat | pmt | nit | sdt_bat;
} // namespace enable

// A kind of table: its place in the detect and ready words, and its words in the log.
struct table_kind {
    std::uint32_t bit;
    std::uint16_t pid;
    std::uint8_t table_id;
    bool any_pid;
    const char *detected;
    bool detectable; // sets its bit when detected; BAT and CAT never do and so never hold up a scan
    const char *ready;
};

constexpr std::array<table_kind, 8> kinds{{
    {0x01000000, 0, tid_pmt, true, "pmt is detected\n", true, "pmt is ready\n"},
    {0x00200000, pid_cat, tid_cat, false, nullptr, false, "cat is ready\n"},
    {0x00000001, pid_pat, tid_pat, false, "pat is detected\n", true, "pat is ready\n"},
    {0x00000100, pid_nit, tid_nit_actual, false, "nit act is detected\n", true,
     "nit act is ready\n"},
    {0x00000200, pid_nit, tid_nit_other, false, "nit oth is detected\n", true,
     "nit oth is ready\n"},
    {0x00000010, pid_sdt_bat, tid_sdt_actual, false, "sdt act is detected\n", true,
     "sdt act is ready\n"},
    {0x00000020, pid_sdt_bat, tid_sdt_other, false, "sdt oth is detected\n", true,
     "sdt oth is ready\n"},
    {0x00100000, pid_sdt_bat, tid_bat, false, "bat is detected\n", false, "bat is ready\n"},
}};

constexpr std::uint8_t last_kind = std::ranges::max(kinds, {}, &table_kind::table_id).table_id;

// Events, of which there are most sections, are behind all kinds.
constexpr const table_kind *kind_of(std::uint16_t pid, std::uint8_t table_id)
{
    if (table_id > last_kind)
        return nullptr;
    const auto found = std::ranges::find_if(kinds, [&](const table_kind &kind) {
        return kind.table_id == table_id && (kind.any_pid || kind.pid == pid);
    });
    return found == kinds.end() ? nullptr : &*found;
}

constexpr std::uint32_t bit_of(std::uint8_t table_id)
{
    return std::ranges::find(kinds, table_id, &table_kind::table_id)->bit;
}
static_assert(kind_of(0x11, 0x02)->bit == 0x01000000, "a PMT is a PMT on any PID");
static_assert(bit_of(tid_bat) == 0x00100000 && kind_of(0x12, 0x4E) == nullptr);

struct completion_check {
    std::uint8_t table_id;
    std::uint32_t level;
    const char *not_ready;
    bool holds_up; // the two that are completed through paths of their own do not
};

constexpr std::array<completion_check, 8> completion_checks{{
    {tid_bat, level::notice, "bat is not ready\n", true},
    {tid_pat, level::notice, "pat is not ready\n", true},
    {tid_pmt, level::trace, "pmt is not ready\n", false},
    {tid_cat, level::notice, "cat is not ready\n", true},
    {tid_sdt_actual, level::notice, "sdt act is not ready\n", true},
    {tid_sdt_other, level::trace, "sdt oth is not ready\n", false},
    {tid_nit_actual, level::trace, "nit act is not ready\n", true},
    {tid_nit_other, level::notice, "nit oth is not ready\n", true},
}};

constexpr std::int32_t ts_list_capacity = 30;

struct ts_entry {
    std::uint16_t
        original_network_id; // never filled: the network query answers transport streams alone
    std::uint16_t transport_stream_id;
};

// Read and written by several threads without a lock.
std::uint8_t control_flag;
std::uint32_t enable_flags;
std::uint32_t detect_bits;
std::uint32_t ready_bits;
std::uint8_t table_detect_ready;
std::uint8_t bGetTsList;
std::uint8_t ts_sem_flag;
std::int32_t ts_count = ts_list_capacity;
// Written by whoever retrieves it, read by the section thread.
std::array<ts_entry, ts_list_capacity> ts_list;

// Six marks of the section store that nothing sets.
std::uint8_t g_pat_finish;
std::uint8_t g_cat_finish;
std::uint8_t g_pmt_finish;
std::uint8_t g_nit_finish;
std::uint8_t g_sdt_finish;
std::uint8_t g_bat_finish;

std::uint32_t is_enabled(std::uint32_t bit)
{
    return (load_relaxed(enable_flags) & bit) != 0 ? 1 : 0;
}

// Only the low byte of the argument counts.
std::uint32_t set_enabled(std::uint32_t bit, std::uint32_t on)
{
    if ((on & 0xFF) != 0)
        set_bits(enable_flags, bit);
    else
        clear_bits(enable_flags, bit);
    return ORVA_SI_OK;
}

bool detected(std::uint8_t table_id)
{
    return (load_relaxed(detect_bits) & bit_of(table_id)) != 0;
}

bool ready(std::uint8_t table_id)
{
    return (load_relaxed(ready_bits) & bit_of(table_id)) != 0;
}

// Reads the transport streams of a network, once for each scan. Takes Ts_Ctl_Mutex inside the
// query.
std::uint32_t read_ts_list(site here, std::uint16_t network_id) SI_LEAVES(ctl)
{
    std::array<std::uint16_t, ts_list_capacity> found{};
    const std::int32_t capacity = std::clamp(load_relaxed(ts_count), 0, ts_list_capacity);
    auto count = static_cast<std::uint32_t>(capacity);
    const std::uint32_t result = Orva_Si_GetTsGrpByNetworkId(network_id, found.data(), &count);
    count = std::min(count, static_cast<std::uint32_t>(capacity));
    for (std::uint32_t i = 0; i < count; ++i)
        store_relaxed(ts_list[i].transport_stream_id, found[i]);
    store_relaxed(ts_count, static_cast<std::int32_t>(count));
    if (result == ORVA_SI_OK && count != 0) {
        store_relaxed(bGetTsList, 1);
        SI_LOG_AT(here, level::trace, "the bGetTsList is setted\n");
    }
    return result;
}

bool holds_sdt_of(std::uint16_t transport_stream_id)
{
    return std::ranges::any_of(
        std::array{tid_sdt_other, tid_sdt_actual}, [&](std::uint8_t table_id) {
            return Orva_Si_FindTableById(pid_sdt_bat, table_id, transport_stream_id, SI_ANY_EXT,
                                         SI_ANY_EXT) != nullptr;
        });
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Wait2FuncTrue(uint32_t count, uint32_t (*predicate)(void))
{
    std::uint32_t rounds = rounds_of(count);
    for (; rounds > 0 && predicate() == 0; --rounds)
        Orva_Sleep(poll_interval_ms);
    SI_LOG(level::trace, "WaitCounter:%d\n", rounds);
    return ORVA_SI_OK;
}

uint32_t Orva_Wait2CondTrue(uint32_t count, uint8_t cond)
{
    if (cond != 0)
        return ORVA_SI_OK;
    for (std::uint32_t rounds = rounds_of(count); rounds > 0; --rounds)
        Orva_Sleep(poll_interval_ms);
    return ORVA_SI_CONDITION_FALSE;
}

uint32_t Si_CtlHelper_SetTableEnableFlag(void)
{
    const std::uint32_t time = Orva_Si_IsScanMode() == 0 ? enable::tdt_tot : 0;
    store_relaxed(enable_flags, enable::at_every_start | time);
    return ORVA_SI_OK;
}

uint32_t Si_CtlHelper_ResetTableEnableFlag(void)
{
    store_relaxed(enable_flags, 0);
    return ORVA_SI_OK;
}

uint32_t Si_CtlHelper_SetActPfEitEnableFlag(uint32_t on)
{
    return set_enabled(enable::act_pf_eit, on);
}

uint32_t Si_CtlHelper_SetOtherPfEitEnableFlag(uint32_t on)
{
    return set_enabled(enable::other_pf_eit, on);
}

uint32_t Si_CtlHelper_SetActSchEitEnableFlag(uint32_t on)
{
    return set_enabled(enable::act_sch_eit, on);
}

uint32_t Si_CtlHelper_SetOtherSchEitEnableFlag(uint32_t on)
{
    return set_enabled(enable::other_sch_eit, on);
}

uint32_t Si_CtlHelper_SetDSMCCEnableFlag(uint32_t on)
{
    return set_enabled(enable::dsmcc, on);
}

uint32_t Si_CtlHelper_IsPatEnabled(void)
{
    return is_enabled(enable::pat);
}

uint32_t Si_CtlHelper_IsCatEnabled(void)
{
    return is_enabled(enable::cat);
}

uint32_t Si_CtlHelper_IsPmtEnabled(void)
{
    return is_enabled(enable::pmt);
}

uint32_t Si_CtlHelper_IsNitEnabled(void)
{
    return is_enabled(enable::nit);
}

uint32_t Si_CtlHelper_IsSdtBatEnabled(void)
{
    return is_enabled(enable::sdt_bat);
}

uint32_t Si_CtlHelper_IsTdtTotEnabled(void)
{
    return is_enabled(enable::tdt_tot);
}

uint32_t Si_CtlHelper_IsActPfEitEnabled(void)
{
    return is_enabled(enable::act_pf_eit);
}

uint32_t Si_CtlHelper_IsOtherPfEitEnabled(void)
{
    return is_enabled(enable::other_pf_eit);
}

uint32_t Si_CtlHelper_IsActSchEitEnabled(void)
{
    return is_enabled(enable::act_sch_eit);
}

uint32_t Si_CtlHelper_IsOtherSchEitEnabled(void)
{
    return is_enabled(enable::other_sch_eit);
}

uint32_t Si_CtlHelper_IsDSMCCEnabled(void)
{
    return is_enabled(enable::dsmcc);
}

uint32_t Orva_Si_SetCtlFlag(void)
{
    store_relaxed(control_flag, 1);
    return Orva_Si_ResetTsSemFlag();
}

uint32_t Orva_Si_ResetCtlFlag(void)
{
    store_relaxed(control_flag, 0);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetCtlFlag(void)
{
    return load_relaxed(control_flag);
}

uint32_t Orva_Si_IsCancel(void)
{
    return load_relaxed(control_flag) == 0 ? 1 : 0;
}

uint32_t Orva_Si_IsDetectActNIT(void)
{
    return detected(tid_nit_actual) ? 1 : 0;
}

uint32_t Orva_Si_IsDetectActSDT(void)
{
    return detected(tid_sdt_actual) ? 1 : 0;
}

uint32_t Orva_Si_IsGotSection(void)
{
    if (Orva_Si_IsCancel() != 0)
        return 1;
    const std::uint32_t bits = load_relaxed(detect_bits);
    SI_LOG(level::trace, "the detect_bits = %#x\n", bits);
    return bits != 0 ? 1 : 0;
}

uint32_t Orva_Si_SetDetectReady(void)
{
    store_relaxed(table_detect_ready, 1);
    SI_LOG(level::trace, "set table_detect_ready here\n");
    return ORVA_SI_OK;
}

uint32_t Orva_Si_ResetScanFlag(void)
{
    store_relaxed(table_detect_ready, 0);
    store_relaxed(detect_bits, 0);
    store_relaxed(ready_bits, 0);
    return Orva_Si_ResetTsList();
}

uint32_t Orva_Si_ResetTsList(void)
{
    store_relaxed(ts_count, ts_list_capacity);
    store_relaxed(bGetTsList, 0);
    SI_LOG(level::trace, "reset the Ts List\n");
    return ORVA_SI_OK;
}

uint32_t Orva_Si_SetTsSemFlag(void)
{
    store_relaxed(ts_sem_flag, 1);
    SI_LOG(level::trace, "set ts sem flag\n");
    return ORVA_SI_OK;
}

uint32_t Orva_Si_ResetTsSemFlag(void)
{
    store_relaxed(ts_sem_flag, 0);
    SI_LOG(level::trace, "reset ts sem flag\n");
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetTsSemFlag(void)
{
    return load_relaxed(ts_sem_flag);
}

uint32_t Orva_Si_SetDetectBit(uint16_t pid, uint8_t table_id)
{
    if (load_relaxed(table_detect_ready) != 0) {
        SI_LOG(level::trace, "the table_detect_ready is ready\n");
        return ORVA_SI_OK;
    }
    const table_kind *kind = kind_of(pid, table_id);
    if (kind == nullptr) {
        if (pid == pid_nit)
            SI_LOG(level::trace, "fatal error\n");
        else if (pid == pid_sdt_bat)
            SI_LOG(level::error, "fatal error\n");
        return ORVA_SI_OK;
    }
    if (!kind->detectable) {
        if (kind->detected != nullptr)
            SI_LOG(level::notice, "%s", kind->detected);
        return ORVA_SI_OK;
    }
    if (set_bits(detect_bits, kind->bit)) {
        SI_LOG(level::notice, "%s", kind->detected);
        SI_LOG(level::trace, "detect_bits = %#x\n", load_relaxed(detect_bits));
    }
    return ORVA_SI_OK;
}

uint32_t Orva_Si_SetReadyBit(uint16_t pid, uint8_t table_id)
{
    SI_LOG(level::trace, "pid = %#x table_id = %#x\n", pid, table_id);
    const table_kind *kind = kind_of(pid, table_id);
    if (kind == nullptr) {
        if (pid == pid_nit || pid == pid_sdt_bat)
            SI_LOG(level::error, "fatal error\n");
        return ORVA_SI_OK;
    }
    if (set_bits(ready_bits, kind->bit))
        SI_LOG(level::notice, "%s", kind->ready);
    SI_LOG(level::trace, "ready_bits = %#x\n", load_relaxed(ready_bits));
    return ORVA_SI_OK;
}

uint32_t Orva_Si_DoAllTablesReady(void)
{
    if (Orva_Si_IsCancel() != 0) {
        SI_LOG(level::notice, "user cancel scan channel\n");
        return 1;
    }
    if (load_relaxed(table_detect_ready) == 0) {
        SI_LOG(level::notice, "table_detect_ready is not ready\n");
        return 0;
    }
    for (const completion_check &check : completion_checks) {
        if (!detected(check.table_id) || ready(check.table_id))
            continue;
        SI_LOG(check.level, "%s", check.not_ready);
        if (check.holds_up)
            return 0;
    }
    SI_LOG(level::trace, "all detected tables are ready\n");
    return 1;
}

uint32_t Orva_Si_CommScanCase(uint16_t pid, uint8_t table_id, uint16_t extension)
{
    ctl.assume_held();
    SI_LOG(level::trace, "entering ... \n");
    if (table_id == tid_pmt) {
        SI_LOG(level::trace, "want to check all pmt are got or not\n");
        if (Orva_Si_DoAllPmtReady() != 0)
            Orva_Si_SetReadyBit(pid, table_id);
        return ORVA_SI_OK;
    }
    if (pid == pid_sdt_bat && table_id == tid_sdt_other) {
        SI_LOG(level::trace, "want to check all sdt oth are got or not table_id = 0x%x\n",
               table_id);
        Orva_Si_SetSdtOthReadyFlag();
        return ORVA_SI_OK;
    }
    Orva_Si_SetReadyBit(pid, table_id);
    if (pid != pid_nit || table_id != tid_nit_actual)
        return ORVA_SI_OK;
    if (load_relaxed(bGetTsList) != 0) {
        SI_LOG(level::trace, "bGetTsList is flagged\n");
        return ORVA_SI_OK;
    }
    SI_LOG(level::trace, "the nitwork id = 0x%x\n", extension);
    const scope_gap gap{ctl, SI_HERE}; // the query takes the lock itself
    read_ts_list(SI_HERE, extension);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_RetrieveTsList(uint32_t network_id)
{
    if (load_relaxed(bGetTsList) != 0) {
        SI_LOG(level::trace, "bGetTsList is flagged\n");
        return ORVA_SI_OK;
    }
    const auto id = static_cast<std::uint16_t>(network_id);
    SI_LOG(level::notice, "the nitwork id = %#x\n", id);
    return read_ts_list(SI_HERE, id);
}

uint32_t Orva_Si_SetSdtOthReadyFlag(void)
{
    SI_LOG(level::trace, "entering ...\n");
    if (!detected(tid_nit_actual) || !ready(tid_nit_actual)) {
        SI_LOG(level::trace, "nit act is not ready\n");
        return ORVA_SI_OK;
    }
    if (load_relaxed(bGetTsList) == 0) {
        SI_LOG(level::trace, "bGetTsList is not setted\n");
        return ORVA_SI_OK;
    }
    if (ready(tid_sdt_other))
        return ORVA_SI_OK;
    const std::int32_t count = std::clamp(load_relaxed(ts_count), 0, ts_list_capacity);
    SI_LOG(level::trace, "the Count = %d\n", count);
    std::int32_t i = 0;
    while (i < count &&
           holds_sdt_of(load_relaxed(ts_list[static_cast<std::size_t>(i)].transport_stream_id)))
        ++i;
    SI_LOG(level::trace, "i = %d\n", i);
    if (i == count) {
        set_bits(ready_bits, bit_of(tid_sdt_other));
        SI_LOG(level::trace, "sdt oth is ready\n");
    }
    return ORVA_SI_OK;
}

uint32_t Orva_Si_ResetTblFinishFlag(void)
{
    for (std::uint8_t *flag :
         {&g_pat_finish, &g_cat_finish, &g_pmt_finish, &g_nit_finish, &g_sdt_finish, &g_bat_finish})
        store_relaxed(*flag, 0);
    return ORVA_SI_OK;
}
