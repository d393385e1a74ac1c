// SPDX-License-Identifier: LGPL-2.1-or-later
// Any sequence of calls of a client, with a driver that delivers and refuses as it likes, memory
// that is exhausted at times, and time that passes only where the library sleeps: meanwhile the
// next step of the input happens. Every buffer that was lent comes back once, no lock is kept, and
// a stopped library runs no filter.
#include <pthread.h>

#include <array>

#include "fakes/allocation.h"
#include "fakes/driver.h"
#include "fakes/platform.h"
#include "frames.h"
#include "fuzz.h"
#include "orva_si.h"
#include "orva_si_model.h"
#include "orva_si_sectflt.h"
#include "orva_si_sectflt_queue.h"
#include "seeds.h"
#include "support/store.h"

#if defined(__clang__) // locks of the library are taken as a client takes them
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace fuzz {

namespace {

constexpr std::size_t most_steps = 200;
constexpr std::uint16_t data_pid = 0x200;

// ---- What happens next

struct script {
    std::vector<frame> steps;
    std::size_t next = 0;
    unsigned depth = 0; // of steps that happen while the library sleeps or calls back
    unsigned news = 0;  // that the client was told
    bool slots_failed = false;
};
script *running = nullptr;

void happen(const frame &step);

bool one_more_step()
{
    constexpr unsigned deepest = 3;
    if (running == nullptr || running->next >= running->steps.size() || running->depth == deepest)
        return false;
    ++running->depth;
    const frame step = running->steps[running->next++];
    happen(step);
    --running->depth;
    return true;
}

// ---- Sections

std::uint16_t pid_of(std::uint8_t table_id)
{
    if (table_id == 0x70 || table_id == 0x73)
        return 0x14;
    return table_id >= 0x3A && table_id <= 0x3E ? data_pid : test::usual_pid(table_id);
}

void broadcast(bytes section)
{
    if (!section.empty())
        fake::driver().broadcast(pid_of(section[0]), {section.begin(), section.end()});
}

// To any filter, whatever it was loaded with.
void deliver_anywhere(bytes content)
{
    fake::recording_driver &driver = fake::driver();
    if (content.size() < 2)
        return;
    const std::uint32_t id = driver.filter_id(content[0] % driver.filter_count());
    const octets section{content.begin() + 2, content.end()};
    if (content[1] % 2 == 0)
        driver.deliver_split(id, section, content[1] % (section.size() + 1));
    else
        driver.deliver_batch(
            id, {section, section, {section.begin(), section.begin() + std::ssize(section) / 2}});
}

// Descriptors of sections that a driver should not make. The sizes never reach beyond the bytes
// unless the library is to refuse them.
void deliver_wrongly(bytes content)
{
    fake::recording_driver &driver = fake::driver();
    choices in{content};
    const unsigned how = in.u8();
    const std::uint32_t id = driver.filter_id(in.u8() % driver.filter_count());
    const octets held{in.rest().begin(), in.rest().end()};
    const SiWord handle = driver.lend(held);
    std::uint8_t *const data = driver.bytes_of(handle);
    const auto size = static_cast<std::uint32_t>(held.size());
    std::array<SiDmxSection, 4> sections{{
        {data, size, nullptr, 0, handle},
        {nullptr, size, data, size, handle},
        {data, size == 0 ? 0 : 1u, nullptr, 0xFFFFFFFF, handle},
        {data, 0xFFFFFFFF, data, 5, handle},
    }};
    if (how % 2 == 0) {
        Si_SectFlt_PidFltCallback(fake::driver_demux, id, 0, &sections[how / 2 % sections.size()]);
        return;
    }
    constexpr std::array<std::uint32_t, 5> counts{0, 1, 4, 201, 0xFFFFFFFF};
    SiDmxSectionList list{counts[how / 2 % counts.size()], how % 3 == 0 ? nullptr : sections.data(),
                          handle};
    Si_SectFlt_PidFltSecListCallback(fake::driver_demux, id, 0, &list);
}

// What the section thread does with what waits.
void process_queue()
{
    static si::section_batch batch;
    constexpr si::site here{"fuzz/calls", "process_queue", 0};
    const si::taken_sections taken = si::take_sections(here, batch);
    const std::vector<SiSection *> nodes{taken.sections.begin(), taken.sections.end()};
    for (SiSection *node : nodes) {
        if (taken.processing)
            Si_SectFlt_ProcessModel(node);
        else
            Si_SectFlt_FlushSectionData(node);
    }
}

// ---- The client

// The client may do anything inside its callback.
std::uint32_t client(std::uint32_t, std::uint32_t, SiWord, std::uint32_t)
{
    constexpr unsigned often = 4;
    claim(pthread_mutex_trylock(&Ts_Ctl_Mutex) == 0, "the client is called with the lock held");
    pthread_mutex_unlock(&Ts_Ctl_Mutex);
    if (running != nullptr && ++running->news % often == 0)
        one_more_step();
    return 0;
}

template <class Call>
void with_lock(Call call)
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    call();
    Orva_MutexV(&Ts_Ctl_Mutex);
}

std::vector<std::uint16_t> ids(choices &in)
{
    std::vector<std::uint16_t> all(in.u8() % 40u);
    for (std::uint16_t &id : all)
        id = static_cast<std::uint16_t>(in.u8() == 0 ? 0xFFFF : in.u8() % 8);
    return all;
}

std::vector<SiEitRequest> requests(choices &in)
{
    std::vector<SiEitRequest> all(in.u8() % 40u);
    for (SiEitRequest &each : all)
        each = {static_cast<std::uint16_t>(in.u8() % 4), 1,
                static_cast<std::uint16_t>(in.u8() % 8 == 0 ? 0xFFFF : in.u8() % 8)};
    return all;
}

std::uint32_t small(choices &in)
{
    const std::uint8_t value = in.u8();
    return value == 0xFF ? 0xFFFF : value % 6;
}

void start_channel(choices &in)
{
    const SiTuneParam param{in.u8() % 3u, 0, 0, static_cast<std::uint16_t>(small(in))};
    Orva_Si_StartChannel(&param);
}

void set_scan(choices &in)
{
    const SiScanParam param{in.u8(), static_cast<std::uint16_t>(small(in)), in.u8() % 3u == 0,
                            static_cast<std::uint8_t>(in.u8() % 2)};
    Orva_Si_SetScanParam(&param);
    Orva_Si_SetScanTime(in.u8() % 8);
}

void start_actual_events(choices &in)
{
    const std::uint32_t ts = small(in);
    const std::uint32_t network = small(in);
    const std::uint32_t current = small(in);
    const bool present = in.u8() % 2 == 0;
    const auto list = ids(in);
    const auto count = static_cast<std::uint32_t>(list.size());
    if (present)
        Orva_Si_StartActualPFEIT(ts, network, current, list.data(), count);
    else
        Orva_Si_StartActualScheduleEIT(ts, network, current, list.data(), count);
}

void start_other_events(choices &in)
{
    const bool present = in.u8() % 2 == 0;
    const auto list = requests(in);
    const auto count = static_cast<std::uint32_t>(list.size());
    if (present)
        Orva_Si_StartOtherPFEIT(list.data(), count);
    else
        Orva_Si_StartOtherSchedulEIT(list.data(), count);
}

void start_tables(choices &in)
{
    switch (in.u8() % 6) {
    case 0:
        Si_SectFlt_StartPat();
        break;
    case 1:
        Si_SectFlt_StartCat();
        break;
    case 2:
        Si_SectFlt_StartNit(in.u8() % 2, small(in));
        break;
    case 3:
        Si_SectFlt_StartSdtBat();
        break;
    case 4:
        Si_SectFlt_StartTdtTot();
        break;
    default:
        with_lock([] { Si_SectFlt_StartPmt(&PmtPidList); });
    }
}

void stop_tables(choices &in)
{
    constexpr std::array stops{Si_SectFlt_StopPat,           Si_SectFlt_StopCat,
                               Si_SectFlt_StopNit,           Si_SectFlt_StopSdtBat,
                               Si_SectFlt_StopTdtTot,        Si_SectFlt_StopPmt,
                               Orva_Si_StopActualPFEIT,      Orva_Si_StopOtherPFEIT,
                               Orva_Si_StopAllEIT,           Orva_Si_StopActualScheduleEIT,
                               Orva_Si_StopOtherScheduleEIT, Si_SectFlt_StopAllFilters,
                               Si_SectFlt_StopAllDsmFilters, Si_SectFlt_FlushTmpList,
                               Orva_Si_CancelScanChannel,    Orva_Si_StopScanChannel};
    stops[in.u8() % stops.size()]();
}

void update_filters(choices &in)
{
    const unsigned which = in.u8() % 7;
    const std::uint32_t id = small(in);
    const std::uint32_t version = in.u8() % 40u;
    const std::uint32_t finished = in.u8() % 3u;
    switch (which) {
    case 0:
        Si_SectFlt_UpdatePat(version, finished);
        break;
    case 1:
        Si_SectFlt_UpdateCat(version, finished);
        break;
    case 2:
        Si_SectFlt_UpdateSdtBat(version, finished);
        break;
    case 3:
        Si_SectFlt_UpdateNit(id, version, finished);
        break;
    case 4:
        Si_SectFlt_UpdatePmt(id, in.u8() % 2 == 0 ? 0x100 : 0x200, version, finished);
        break;
    case 5:
        Si_SectFlt_UpdateEit(0x4Eu + version, id, version, finished);
        break;
    default:
        Si_SectFlt_UpdateEitLastTableId(0x4Eu + version, id, 0x4Eu + in.u8() % 0x24u);
    }
}

void empty_stores(choices &in)
{
    switch (in.u8() % 5) {
    case 0:
        with_lock([&] { Orva_Si_DeleteCaches(in.u8() % 3u); });
        break;
    case 1:
        with_lock([] { Orva_Si_ClearCache(); });
        break;
    case 2:
        Orva_Si_EraseAllEitRawData();
        break;
    case 3:
        Orva_Si_ResetTimeSection();
        break;
    default:
        with_lock([&] { Orva_Si_ResetRunningStatus(in.u8() % 3u, small(in)); });
    }
}

void set_enable_flags(choices &in)
{
    constexpr std::array flags{
        Si_CtlHelper_SetActPfEitEnableFlag,  Si_CtlHelper_SetOtherPfEitEnableFlag,
        Si_CtlHelper_SetActSchEitEnableFlag, Si_CtlHelper_SetOtherSchEitEnableFlag,
        Si_CtlHelper_SetDSMCCEnableFlag,     Si_SectFlt_EnableProcessData};
    const auto flag = flags[in.u8() % flags.size()];
    flag(in.u8() % 2u);
}

void handle_data_filters(choices &in)
{
    const std::uint32_t pid = data_pid + in.u8() % 4u;
    switch (in.u8() % 4) {
    case 0:
        Orva_Si_StopDsmFilter(pid);
        break;
    case 1:
        Orva_Si_LatchPmt(small(in));
        break;
    case 2:
        Orva_Si_UnLatchPmt(small(in));
        break;
    default:
        Si_CtlHelper_SetDSMCCEnableFlag(1);
        Orva_Si_StartDsmFilter(pid);
    }
}

void run_timers(choices &in)
{
    for (unsigned runs = 1 + in.u8() % 64u; runs != 0; --runs) {
        if (fake::timers().all_paused)
            return;
        for (const fake::timer &each : fake::timers().timers)
            if (!each.paused)
                each.function(each.user);
    }
}

void set_services(choices &in)
{
    const std::uint32_t id = in.u8() % 4u;
    switch (in.u8() % 4) {
    case 0:
        Si_BG_PauseService(id);
        break;
    case 1:
        Si_BG_ResumeService(id);
        break;
    case 2:
        Si_BG_InsertFastService(id);
        break;
    default:
        Si_BG_SetServiceInterval(id, in.u8() * 8);
    }
}

// The driver says no from now on, or yes again.
void refuse(choices &in)
{
    constexpr std::array slots{fake::free_data, fake::remove_filter, fake::enable_filter,
                               fake::disable_filter, fake::update_filter};
    running->slots_failed = true;
    fake::driver().answers[slots[in.u8() % slots.size()]] = in.u8() % 2u;
}

void start_scan(choices &in)
{
    if (in.u8() % 2 == 0)
        Si_Ctl_StartScanChannel();
    else if (running->depth <= 1) // blocks: steps happen meanwhile
        Orva_Si_StartScanChannel();
}

void ask(choices &in)
{
    std::array<std::uint16_t, 4> list{};
    std::uint32_t count = in.u8() % 5u;
    std::int32_t programs = static_cast<std::int32_t>(count);
    SiDvbString name{};
    switch (in.u8() % 4) {
    case 0:
        Orva_Si_GetActServIdList(list.data(), &count);
        break;
    case 1:
        Orva_Si_GetPatProgList(list.data(), &programs);
        break;
    case 2:
        Orva_Si_GetNitAllNetworkList(list.data(), &count);
        break;
    default:
        Orva_Si_GetServiceName(small(in), &name);
    }
    claim(count <= list.size() && programs <= std::ssize(list), "more than there was room for");
}

void happen(const frame &step)
{
    using act = void (*)(choices &);
    constexpr std::array acts{start_channel,
                              set_scan,
                              start_actual_events,
                              start_tables,
                              stop_tables,
                              start_other_events,
                              update_filters,
                              empty_stores,
                              set_enable_flags,
                              run_timers,
                              handle_data_filters,
                              set_services,
                              refuse,
                              start_scan,
                              ask};
    static_assert(acts.size() < 16);
    choices in{step.content};
    if (step.channel < 0x80)
        broadcast(step.content);
    else if (step.channel < 0x90)
        process_queue();
    else if (step.channel < 0xA0)
        deliver_anywhere(step.content);
    else if (step.channel < 0xA8)
        deliver_wrongly(step.content);
    else if (step.channel < 0xB0)
        fake::fail_allocation(in.u8());
    else if (step.channel < 0xB8)
        Orva_Si_StopChannel();
    else
        act{acts[step.channel % acts.size()]}(in);
}

// ---- The run

void prepare()
{
    static const bool prepared = [] {
        fake::timers().real_delay = false;
        test::init_store();
        Si_BG_InitServiceList();
        Si_SectFlt_InitPidFlts(fake::driver().table());
        Orva_Si_InstallCallback(client);
        return true;
    }();
    static_cast<void>(prepared);
}

// Nobody asks once more for what a driver refused: the next input does not begin with it.
void silence_driver()
{
    fake::recording_driver &driver = fake::driver();
    for (std::size_t i = 0; i < driver.filter_count(); ++i)
        driver.switch_off(fake::disable_filter, si::demux_index, driver.filter_id(i));
}

bool is_free(pthread_mutex_t &mutex)
{
    return pthread_mutex_trylock(&mutex) == 0 && pthread_mutex_unlock(&mutex) == 0;
}

void stop_all()
{
    fake::driver().answers = {};
    fake::fail_allocation(0);
    process_queue();
    Orva_Si_StopScanChannel();
    Orva_Si_StopAllEIT();
    Si_SectFlt_StopAllDsmFilters();
    process_queue();
    Orva_Si_SetScanTime(0);
    Orva_Si_EraseAllEitRawData();
    with_lock([] {
        Orva_Si_DeleteCaches(0);
        Orva_Si_ResetRunningStatus(0, SI_NO_PROGRAM);
    });
}

void expect_empty_stores()
{
    SiLimitCounts counts{};
    Orva_Si_GetLimitCounts(&counts);
    for (const SiLimitCount &each :
         {counts.tables, counts.table_bytes, counts.event_services, counts.event_bytes,
          counts.queued_sections, counts.queued_bytes, counts.busy_queue})
        claim(each.used == 0, "something counts as held although all is gone");
}

void expect_rest(bool slots_failed)
{
    expect_empty_stores();
    const fake::recording_driver &driver = fake::driver();
    claim(driver.lent() == driver.returned(), "a buffer is kept");
    claim(driver.wrongly_returned() == 0, "a buffer comes back twice");
    claim(slots_failed || driver.running() == 0, "a filter runs although all is stopped");
    claim(is_free(Ts_Ctl_Mutex) && is_free(Ts_Eit_Mutex) && is_free(Ts_Time_Mutex),
          "a lock is kept");
}

void run(bytes input)
{
    prepare();
    script of{.steps = frames_of(input)};
    of.steps.resize(std::min(of.steps.size(), most_steps));
    running = &of;
    while (one_more_step())
        ;
    running = nullptr;
    stop_all();
    expect_rest(of.slots_failed);
    if (of.slots_failed)
        silence_driver();
    fake::driver().forget_calls();
    fake::timers().delays.clear();
}

constexpr std::uint8_t call(std::uint8_t act)
{
    std::uint8_t channel = 0xC0;
    while (channel % 15 != act)
        ++channel;
    return channel;
}

std::vector<octets> seeds()
{
    constexpr std::uint8_t process = 0x80;
    std::vector<octets> all;
    const std::vector<frame> tuned{{call(0), {1, 1}}, {call(2), {1, 1, 1, 0, 2, 1, 1, 1, 2}}};
    std::vector<frame> channel = tuned;
    std::vector<frame> scan{{call(13), {0}}};
    for (const octets &section : seed_sections()) {
        std::vector<frame> alone = tuned;
        alone.push_back({0, section});
        alone.push_back({process, {}});
        alone.push_back({0, next_version_of(section)});
        alone.push_back({process, {}});
        all.push_back(packed(alone));
        for (std::vector<frame> *story : {&channel, &scan})
            story->insert(story->end(), {{0, section}, {process, {}}});
    }
    all.push_back(packed(channel));
    all.push_back(packed(scan));
    for (std::uint8_t act = 0; act < 15; ++act)
        all.push_back(
            packed({{call(0), {1, 1}}, {call(act), {1, 1, 1, 1, 1, 1}}, {call(9), {60}}}));
    for (const unsigned other : {0x90u, 0xA0u, 0xA8u, 0xB0u})
        all.push_back(packed({{call(0), {1, 1}},
                              {static_cast<std::uint8_t>(other), {0, 2, 3, 4, 5}},
                              {process, {}}}));
    scan.insert(scan.begin(), {call(13), {1}}); // which blocks
    all.push_back(packed(scan));
    return all;
}

} // namespace

target calls()
{
    return {"calls", shape::frames, run, seeds};
}

} // namespace fuzz

// Who waits for ever is told that the client cancels, once nothing else is going to happen.
extern "C" std::uint32_t __wrap_Orva_Sleep(std::uint32_t)
{
    if (fuzz::running != nullptr && !fuzz::one_more_step())
        Orva_Si_CancelScanChannel();
    return 0;
}
