// SPDX-License-Identifier: LGPL-2.1-or-later
// The client's callback and language function: installing them, and telling the client what
// happened.
#include <array>

#include "orva_si/channel.h"
#include "orva_si/notify.h"
#include "orva_si/query_text.h"
#include "orva_si_log.h"
#include "orva_si_siids.h"

extern "C" {

SiNotifyFunc SiNotifier = nullptr;
SiISO639toIDFunc SiLanguageFunc = nullptr;

} // extern "C"

namespace si {

namespace {

struct install_texts {
    const char *null;
    const char *twice;
};

// Installs a function once; the first one stays.
template <class Function>
std::uint32_t install(site here, Function &installed, Function function, const install_texts &texts)
{
    if (function == nullptr) {
        SI_LOG_AT(here, level::error, "%s", texts.null);
        return ORVA_SI_INVALID_ARGUMENT;
    }
    if (load_acquire(installed) != nullptr) {
        SI_LOG_AT(here, level::error, "%s", texts.twice);
        return ORVA_SI_FAILURE;
    }
    store_release(installed, function);
    return ORVA_SI_OK;
}

struct event {
    std::uint32_t reason;
    std::uint32_t flag;
    SiWord data;
    std::uint32_t value;
};

// Records of events are on the caller's stack: the client copies what it keeps.
std::uint32_t tell(site here, const event &what, const char *no_callback)
{
    const SiNotifyFunc notifier = load_acquire(SiNotifier);
    if (notifier == nullptr)
        SI_LOG_AT(here, level::error, "%s", no_callback);
    else
        notifier(what.reason, what.flag, what.data, what.value);
    return ORVA_SI_OK;
}

template <class Record>
SiWord address(const Record &record)
{
    return reinterpret_cast<SiWord>(&record);
}

std::uint32_t reason_of_table(std::uint16_t pid, std::uint8_t table_id)
{
    if (table_id == tid_pmt)
        return SI_REASON_PMT; // whatever its PID
    switch (pid) {
    case pid_pat:
        return SI_REASON_PAT;
    case pid_cat:
        return SI_REASON_CAT;
    case pid_nit:
        return SI_REASON_NIT;
    case pid_sdt_bat:
        return table_id == tid_bat ? SI_REASON_BAT : SI_REASON_SDT;
    default:
        return SI_REASON_OTHER_TABLE;
    }
}

void trace_table(site here, std::uint32_t reason, std::uint16_t extension, std::uint8_t table_id)
{
    if (reason == SI_REASON_PMT)
        SI_LOG_AT(here, level::trace, "this is the pmt of prog=%#x reason=%#x notify###\n",
                  extension, reason);
    else if (reason == SI_REASON_PAT)
        SI_LOG_AT(here, level::trace, "this is pat changed reason\n");
    else if (reason == SI_REASON_SDT)
        SI_LOG_AT(here, level::trace, "%s",
                  table_id == tid_sdt_actual ? "sdt act changed\n" : "sdt oth changed\n");
}

struct eit_reason {
    std::uint32_t reason;
    const char *trace;
};

constexpr eit_reason reason_of_event(std::uint8_t table_id, std::uint32_t changed)
{
    if (table_id == tid_eit_pf_actual || table_id == tid_eit_pf_other)
        return {SI_REASON_EIT_PRESENT_FOLLOWING, "this is banner change notify\n"};
    if (changed == 1)
        return {SI_REASON_EIT_SCHEDULE_CHANGED, "this is EPG change notify\n"};
    return {SI_REASON_EIT_SCHEDULE_NEW, "this is EPG got notify\n"};
}

void trace_event(site here, const SiEitNotify &what, const eit_reason &kind)
{
    if (!log_enabled(level::trace)) // once for four, because every new section of events comes here
        return;
    SI_LOG_AT(here, level::trace, "eit tableid=%#x,sectnum=%d\n", what.table_id,
              what.section_number);
    SI_LOG_AT(here, level::trace, "%s", kind.trace);
    SI_LOG_AT(here, level::trace, "tsid=%d,onitid=%d,servid=%d,tblid=%#x, sectnum=%d\n",
              what.transport_stream_id, what.original_network_id, what.service_id, what.table_id,
              what.section_number);
    SI_LOG_AT(here, level::trace, "the tableid =%d sectnum = %d \n", what.table_id,
              what.section_number);
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_InstallCallback(SiNotifyFunc callback)
{
    return install(SI_HERE, SiNotifier, callback,
                   {"NULL callback pointer\n", "Don't install si callback more than once!\n"});
}

uint32_t Orva_Si_InstallISO639toIDFunc(SiISO639toIDFunc func)
{
    return install(
        SI_HERE, SiLanguageFunc, func,
        {"NULL function pointer\n", "Don't install Language tranfer function more than once!\n"});
}

uint32_t Orva_Si_ISO639Map2ID(const char *iso639_code, uint32_t *language_id)
{
    const SiISO639toIDFunc func = load_acquire(SiLanguageFunc);
    if (func == nullptr)
        SI_LOG(level::error, "Not install language function\n");
    else
        func(iso639_code, language_id);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_NotifyUpdate(uint32_t frequency, uint16_t extension, uint16_t pid,
                              uint8_t table_id)
{
    const std::uint32_t reason = reason_of_table(pid, table_id);
    const SiPmtNotify pmt{frequency, extension};
    event what{.reason = reason, .flag = 0, .data = extension, .value = 0};
    if (reason == SI_REASON_PMT)
        what.data = address(pmt);
    else if (reason == SI_REASON_PAT)
        what.data = frequency;
    trace_table(SI_HERE, reason, extension, table_id);
    return tell(SI_HERE, what, "No Callback to notify changed!\n");
}

uint32_t Orva_Si_NotifyEit(uint16_t original_network_id, uint16_t transport_stream_id,
                           uint16_t service_id, uint8_t table_id, uint8_t section_number,
                           uint32_t crc, uint32_t changed)
{
    const SiEitNotify record{
        0, service_id, transport_stream_id, original_network_id, table_id, section_number, crc};
    const eit_reason kind = reason_of_event(table_id, changed);
    trace_event(SI_HERE, record, kind);
    return tell(SI_HERE, {.reason = kind.reason, .flag = 0, .data = address(record), .value = 0},
                "No Callback to notify Eit changed!\n");
}

uint32_t Orva_Si_NotifyTime(uint32_t seconds, uint32_t from_tot)
{
    if (Orva_Si_IsScanMode() != 0)
        return ORVA_SI_OK;
    const bool tot = from_tot != 0;
    if (tot)
        SI_LOG(level::trace, "New second: %ld from TOT\n", static_cast<long>(seconds));
    else
        SI_LOG(level::trace, "New second: %ld from TDT\n", static_cast<long>(seconds));
    const std::uint32_t reason = tot ? SI_REASON_TIME_FROM_TOT : SI_REASON_TIME_FROM_TDT;
    return tell(SI_HERE, {.reason = reason, .flag = 1, .data = 0, .value = seconds},
                "No Callback to notify time changed!\n");
}

uint32_t Orva_Si_PostDsmccSect(const SiSection *psect, uint32_t length)
{
    SI_REQUIRE(psect);
    SI_LOG(level::trace, "this is DSMCC section get callback\n");
    const SiDsmccNotify record{psect->pid, static_cast<uint16_t>(length), psect->section};
    return tell(SI_HERE,
                {.reason = SI_REASON_DSMCC, .flag = 0, .data = address(record), .value = 0},
                "No Callback to notify DSMCC section get!\n");
}
