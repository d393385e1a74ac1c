// SPDX-License-Identifier: LGPL-2.1-or-later
// The driver's handler table, the pool of filter records and what a record tells the driver.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "orva_si_bytes.h"
#include "orva_si_layout.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

pthread_mutex_t filter_pool_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr std::size_t pool_size = 31;
constexpr std::size_t first_dynamic = 5; // the ones before serve one static table each
constexpr std::uint32_t longest_list = 200;

SiDmxSectHandler *handler_table;

constexpr std::array<pid_filter, pool_size> without_filters()
{
    std::array<pid_filter, pool_size> all{};
    for (pid_filter &record : all)
        record.filter_id = SI_NO_FILTER;
    return all;
}
constinit std::array<pid_filter, pool_size> records = without_filters();

// By the low bits of a filter id, the first record that was given such an id: no other is looked at
// first, so that of two with one id the first is found, as by a walk.
constexpr std::size_t id_kinds = 64;
constinit std::array<std::atomic<std::uint8_t>, id_kinds> first_of_kind{};

std::atomic<std::uint8_t> &likely_record(std::uint16_t filter_id)
{
    return first_of_kind[filter_id % id_kinds];
}

void give_filter(std::size_t index, std::uint16_t filter_id) SI_NEEDS(pool)
{
    std::atomic<std::uint8_t> &likely = likely_record(filter_id);
    const std::size_t first = likely.load(std::memory_order_relaxed);
    if (first > index || records[first].filter_id % id_kinds != filter_id % id_kinds)
        likely.store(static_cast<std::uint8_t>(index), std::memory_order_relaxed);
    store_relaxed(records[index].filter_id, filter_id);
}

bool serves(const pid_filter &record, std::uint16_t filter_id)
{
    return load_acquire(record.enabled) != 0 && load_relaxed(record.filter_id) == filter_id;
}

// Calls a slot of the client's table, or says in the wrapper's name that there is none.
template <auto Slot, class... Arguments>
std::uint32_t call_slot(site here, const Arguments &...arguments)
{
    const SiDmxSectHandler *table = load_acquire(handler_table);
    if (table == nullptr || table->*Slot == nullptr) {
        SI_LOG_AT(here, level::error, "NULL pointer!\n");
        return ORVA_SI_NULL_ARGUMENT;
    }
    return (table->*Slot)(arguments...);
}

// Driver callbacks may be looking: a record is switched off before anything else changes.
void clear_record(pid_filter &record) SI_NEEDS(pool)
{
    store_release(record.enabled, 0);
    store_relaxed(record.filter_id, SI_NO_FILTER);
    store_relaxed(record.pid, 0);
    record.used = 0;
    record.table_id = 0;
    record.service_id = 0;
    record.option = 0;
    record.ticks = 0;
    record.item = nullptr;
    record.match_table_id = 0;
    record.mask_table_id = 0;
    record.syntax_mode = 0;
    record.version = 0;
    record.current_next = 0;
    record.section_number = 0;
    record.table_id_ext = 0;
    record.header_a = 0;
    record.header_b = 0;
}

// ---- What each kind of table asks of a filter

enum syntax : std::uint32_t {
    short_sections = 0, // section_syntax_indicator 0
    long_sections = 1,  // section_syntax_indicator 1, with the fields of the long header
    any_sections = 2
};

struct filter_defaults {
    const char *name; // in the trace
    std::uint16_t pid;
    std::uint8_t match; // table_id; also what the record is found by
    std::uint8_t mask;
    std::uint32_t syntax_mode;
};

constexpr filter_defaults pat_defaults{"PAT", pid_pat, tid_pat, 0xFF, long_sections};
constexpr filter_defaults cat_defaults{"CAT", pid_cat, tid_cat, 0xFF, long_sections};
constexpr filter_defaults pmt_defaults{"Current PMT", SI_ANY_PID, tid_pmt, 0xFF, long_sections};
// NIT actual and other
constexpr filter_defaults nit_defaults{"NIT", pid_nit, tid_nit_actual, 0xFE, long_sections};
// SDT actual, SDT other and BAT
constexpr filter_defaults sdt_bat_defaults{"SDT/BAT", pid_sdt_bat, tid_sdt_actual, 0xF3,
                                           long_sections};
constexpr filter_defaults tdt_tot_defaults{"TDT/TOT", pid_tdt_tot, tid_tdt, 0xFC, short_sections};
// The table_id comes with each request.
constexpr filter_defaults eit_defaults{"EIT", pid_eit, SI_ANY_TABLE_ID, 0x00, long_sections};
constexpr filter_defaults dsm_defaults{"DSMCC", SI_ANY_PID, tid_dsmcc_un_message, 0xF8,
                                       any_sections};

std::uint32_t load_defaults(site here, pid_filter &record, const filter_defaults &from)
{
    store_release(record.enabled, 0);
    store_relaxed(record.pid, from.pid);
    record.used = 0;
    record.item = nullptr;
    record.ticks = 0;
    record.option = 1;
    record.table_id = from.match;
    record.service_id = SI_ANY_EXT;
    record.match_table_id = from.match;
    record.mask_table_id = from.mask;
    record.syntax_mode = from.syntax_mode;
    record.version = any_version;
    record.current_next = 1;
    record.section_number = SI_ANY_EXT;
    record.table_id_ext = SI_ANY_EXT;
    record.header_a = SI_ANY_EXT;
    record.header_b = SI_ANY_EXT;
    SI_LOG_AT(here, level::trace, "%s filter id: %d\n", from.name, record.filter_id);
    return ORVA_SI_OK;
}

// ---- The parameter block

void set_delivery(site here, SiDmxFilterParam &param, std::uint32_t list_length)
{
    if (list_length == 0) {
        SI_LOG_AT(here, level::fatal, "Invalid list length: %d!\n", static_cast<int>(list_length));
        return;
    }
    param.list_length = std::min(list_length, longest_list);
    if (list_length == single_delivery) {
        param.section_callback = Si_SectFlt_PidFltCallback;
        return;
    }
    param.list_mode = 1;
    param.section_list_callback = Si_SectFlt_PidFltSecListCallback;
}

void match_byte(SiDmxFilterParam &param, std::size_t at, unsigned value)
{
    param.match[at] = static_cast<std::uint8_t>(value);
    param.mask[at] = 0xFF;
}

void match_word(SiDmxFilterParam &param, std::size_t at, std::uint16_t value)
{
    match_byte(param, at, value >> 8);
    match_byte(param, at + 1, value & 0xFF);
}

// The long header: table_id_extension in bytes 3 and 4, version_number and current_next_indicator
// in byte 5, section_number in byte 6, two words of the table's own in 8 to 11. Each field that is
// set decides the depth.
void match_long_header(SiDmxFilterParam &param, const pid_filter &record)
{
    param.match[1] = 0x80;
    param.mask[1] = 0x80;
    if (record.table_id_ext != SI_ANY_EXT)
        match_word(param, 3, record.table_id_ext);
    param.match[5] = static_cast<std::uint8_t>(((record.version << 1) & 0x3E) |
                                               (record.current_next > 0 ? 0x01 : 0x00));
    param.mask[5] = 0x01;
    param.negate[5] = record.version != any_version ? 0x3E : 0x00; // any version but the one held
    param.filter_depth = 6;
    if (record.section_number != SI_ANY_EXT) {
        match_byte(param, 6, record.section_number & 0xFF);
        param.filter_depth = 7;
    }
    if (record.header_a != SI_ANY_EXT) {
        match_word(param, 8, record.header_a);
        param.filter_depth = 10;
    }
    if (record.header_b != SI_ANY_EXT) {
        match_word(param, 10, record.header_b);
        param.filter_depth = 12;
    }
}

void match_header(site here, SiDmxFilterParam &param, const pid_filter &record)
{
    param.match[0] = record.match_table_id;
    param.mask[0] = record.mask_table_id;
    switch (record.syntax_mode) {
    case short_sections:
        param.mask[1] = 0x80; // match[1] stays 0
        param.filter_depth = 2;
        return;
    case long_sections:
        match_long_header(param, record);
        return;
    case any_sections:
        param.filter_depth = 1;
        SI_LOG_AT(here, level::trace, "Do not care the syntax indicator. PID: %#x, table_id: %#x\n",
                  record.pid, record.table_id);
        return;
    default:
        SI_LOG_AT(here, level::error,
                  "Error: We have not set the syntax indicator. PID: %#x, table_id: %#x\n",
                  record.pid, record.table_id);
    }
}

bool matches(const pid_filter &record, std::uint16_t pid, std::uint8_t table_id,
             std::uint16_t service_id)
{
    return (pid == SI_ANY_PID || record.pid == pid) &&
           (table_id == SI_ANY_TABLE_ID || record.table_id == table_id) &&
           (service_id == SI_ANY_EXT || record.service_id == service_id);
}

// Requests a filter for each record, until the driver refuses one.
std::uint32_t request_filters(site here) SI_NEEDS(pool)
{
    std::uint32_t result = ORVA_SI_OK;
    int index = 0;
    for (const pid_filter &record : records) {
        SiDmxFilterParam param{};
        param.option = 1;
        std::uint32_t filter_id = SI_NO_FILTER;
        result = Si_SectFlt_AddSecFilter(demux_index, &filter_id, param);
        if (result != ORVA_SI_OK) {
            SI_LOG_AT(here, level::error, "i = %d Req filter have error=%d\n", index,
                      static_cast<int>(result));
            break;
        }
        give_filter(static_cast<std::size_t>(index), low16(filter_id));
        SI_LOG_AT(here, level::trace, "dmx req section filter = %d\n", record.filter_id);
        ++index;
    }
    SI_LOG_AT(here, level::notice, "request total %d filters for use.\n", index);
    return result;
}

} // namespace

std::span<pid_filter> pool_records()
{
    return records;
}

std::uint16_t pid_of_filter(std::uint32_t filter_id)
{
    const std::uint16_t wanted = low16(filter_id);
    const pid_filter &likely = records[likely_record(wanted).load(std::memory_order_relaxed)];
    if (serves(likely, wanted))
        return load_relaxed(likely.pid);
    for (const pid_filter &record : records)
        if (serves(record, wanted))
            return load_relaxed(record.pid);
    return SI_ANY_PID;
}

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_SetDmxSectHandler(SiDmxSectHandler *table)
{
    store_release(handler_table, table);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_DemuxInit(std::uint32_t demux)
{
    return call_slot<&SiDmxSectHandler::DemuxInit>(SI_HERE, demux);
}

std::uint32_t Si_SectFlt_FreeSecData(std::uint32_t demux, std::uint32_t filter_id,
                                     SiWord buffer_handle)
{
    return call_slot<&SiDmxSectHandler::FreeSecData>(SI_HERE, demux, filter_id, buffer_handle);
}

std::uint32_t Si_SectFlt_RemoveSecFilter(std::uint32_t demux, std::uint32_t filter_id)
{
    return call_slot<&SiDmxSectHandler::RemoveSecFilter>(SI_HERE, demux, filter_id);
}

std::uint32_t Si_SectFlt_EnableSecFilter(std::uint32_t demux, std::uint32_t filter_id)
{
    return call_slot<&SiDmxSectHandler::EnableSecFilter>(SI_HERE, demux, filter_id);
}

std::uint32_t Si_SectFlt_DisableSecFilter(std::uint32_t demux, std::uint32_t filter_id)
{
    return call_slot<&SiDmxSectHandler::DisableSecFilter>(SI_HERE, demux, filter_id);
}

std::uint32_t Si_SectFlt_AddSecFilter(std::uint32_t demux, std::uint32_t *filter_id,
                                      SiDmxFilterParam param)
{
    return call_slot<&SiDmxSectHandler::AddSecFilter>(SI_HERE, demux, filter_id, param);
}

std::uint32_t Si_SectFlt_UpdateSecFilter(std::uint32_t demux, std::uint32_t filter_id,
                                         SiDmxFilterParam param)
{
    return call_slot<&SiDmxSectHandler::UpdateSecFilter>(SI_HERE, demux, filter_id, param);
}

std::uint32_t Orva_Si_FreeDmxFilter(std::uint32_t demux, std::uint32_t filter_id)
{
    return Si_SectFlt_RemoveSecFilter(demux, filter_id);
}

std::uint32_t Si_SectFlt_InitPidFlts(SiDmxSectHandler *table)
{
    Si_SectFlt_SetDmxSectHandler(table);
    if (Si_SectFlt_DemuxInit(demux_index) != ORVA_SI_OK) {
        SI_LOG(level::error, "Init Dmx Section filters register map error\n");
        return ORVA_SI_FAILURE;
    }
    const scope_lock lock{pool, SI_HERE};
    for (pid_filter &record : records)
        clear_record(record);
    return request_filters(SI_HERE);
}

std::uint32_t Si_SectFlt_DeInitPidFlts(void)
{
    const scope_lock lock{pool, SI_HERE};
    std::uint32_t result = ORVA_SI_OK;
    for (pid_filter &record : records) {
        const std::uint16_t filter_id = record.filter_id;
        if (filter_id == SI_NO_FILTER) {
            clear_record(record);
            continue;
        }
        store_release(record.enabled, 0);
        if (Si_SectFlt_RemoveSecFilter(demux_index, filter_id) == ORVA_SI_OK) {
            SI_LOG(level::trace, "Remove demux section filter %d successfully\n", filter_id);
        } else {
            SI_LOG(level::error, "Remove filter %d error\n", filter_id);
            result = ORVA_SI_FAILURE;
        }
        clear_record(record);
    }
    return result;
}

std::uint32_t Si_SectFlt_SetSecFilterSetting(const pid_filter *record, std::uint32_t list_length,
                                             SiDmxFilterParam *param)
{
    SI_ASSERT(record != nullptr, "pid_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    SI_ASSERT(param != nullptr, "param!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    std::memset(param, 0, sizeof *param);
    param->pid = record->pid;
    param->option = record->option;
    set_delivery(SI_HERE, *param, list_length);
    match_header(SI_HERE, *param, *record);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_StartFilter(pid_filter *record, std::uint32_t list_length)
{
    SI_ASSERT(record != nullptr, "pid_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    if (record->filter_id == SI_NO_FILTER) {
        SI_LOG(level::error, "Invalid filter!\n");
        return ORVA_SI_FAILURE;
    }
    SiDmxFilterParam param{};
    Si_SectFlt_SetSecFilterSetting(record, list_length, &param);
    param.start_flag = 1;
    const std::uint32_t result = Si_SectFlt_UpdateSecFilter(demux_index, record->filter_id, param);
    if (result != ORVA_SI_OK) {
        SI_LOG(level::error, "Start filter failed: %d\n", static_cast<int>(result));
        return result;
    }
    store_release(record->enabled, 1);
    SI_LOG(level::trace, "Start section filter %d successfully!\n", record->filter_id);
    return ORVA_SI_OK;
}

pid_filter *Si_SectFlt_GetFilterFromFilterList(GSList *list, std::uint16_t pid,
                                               std::uint8_t table_id, std::uint16_t service_id)
{
    for (pid_filter &record : slist_range<pid_filter>{list})
        if (matches(record, pid, table_id, service_id))
            return &record;
    SI_LOG(level::verbose, "Failed to get the filter, pid: %#x, table_id: %#x, service_id: %#x!\n",
           pid, table_id, service_id);
    return nullptr;
}

pid_filter *Si_SectFlt_GetAvalibleDynamicFilter(void)
{
    for (std::size_t index = first_dynamic; index < records.size(); ++index) {
        if (records[index].used != 0)
            continue;
        SI_LOG(level::trace, "found the free filter at index = %d, filter_id = %d\n",
               static_cast<int>(index), records[index].filter_id);
        return &records[index];
    }
    return nullptr;
}

std::uint32_t Si_SectFlt_InitPatFilter(pid_filter *pat_filter)
{
    SI_ASSERT(pat_filter != nullptr, "pat_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *pat_filter, pat_defaults);
}

std::uint32_t Si_SectFlt_InitCatFilter(pid_filter *cat_filter)
{
    SI_ASSERT(cat_filter != nullptr, "cat_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *cat_filter, cat_defaults);
}

std::uint32_t Si_SectFlt_InitPmtFilter(pid_filter *pmt_filter)
{
    SI_ASSERT(pmt_filter != nullptr, "pmt_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *pmt_filter, pmt_defaults);
}

std::uint32_t Si_SectFlt_InitNitFilter(pid_filter *nit_filter)
{
    SI_ASSERT(nit_filter != nullptr, "nit_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *nit_filter, nit_defaults);
}

std::uint32_t Si_SectFlt_InitSdtBatFilter(pid_filter *sdtbat_filter)
{
    SI_ASSERT(sdtbat_filter != nullptr, "sdtbat_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *sdtbat_filter, sdt_bat_defaults);
}

std::uint32_t Si_SectFlt_InitTdtTotFilter(pid_filter *tdttot_filter)
{
    SI_ASSERT(tdttot_filter != nullptr, "tdttot_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *tdttot_filter, tdt_tot_defaults);
}

std::uint32_t Si_SectFlt_InitEitFilter(pid_filter *eit_filter)
{
    SI_ASSERT(eit_filter != nullptr, "eit_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *eit_filter, eit_defaults);
}

std::uint32_t Si_SectFlt_InitDsmFilter(pid_filter *dsm_filter)
{
    SI_ASSERT(dsm_filter != nullptr, "dsm_filter!=((void *)0)", ORVA_SI_NULL_ARGUMENT);
    return load_defaults(SI_HERE, *dsm_filter, dsm_defaults);
}
