// SPDX-License-Identifier: LGPL-2.1-or-later
// Orva SI: takes sections from a driver, passes over what it has, stores the others as they are on
// a thread of its own and tells the client; a question decodes what it needs. The demultiplexer
// checks the CRC_32, so that is done here too before a section is handed in.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string_view>
#include <thread>

#include "candidate.h"
#include "orva_demux.h"

namespace bench {

namespace {

constexpr std::uint32_t language = 7; // what the client calls "eng"
constexpr std::uint16_t first_program = 1;

// ---- A driver that knows the PID of each filter

constexpr std::uint32_t first_filter = 64;
constexpr std::uint16_t no_pid = 0x2000;
std::array<std::atomic<std::uint16_t>, 31> pids;

std::uint32_t load(std::uint32_t filter, std::uint16_t pid)
{
    pids[filter - first_filter] = pid;
    return 0;
}

// 0: none.
std::uint32_t filter_of(std::uint16_t pid)
{
    for (std::size_t at = 0; at < pids.size(); ++at)
        if (pids[at].load(std::memory_order_relaxed) == pid)
            return first_filter + static_cast<std::uint32_t>(at);
    return 0;
}

SiDmxSectHandler *driver()
{
    static SiDmxSectHandler made{};
    made.DemuxInit = [](std::uint32_t) { return std::uint32_t{0}; };
    made.FreeSecData = [](std::uint32_t, std::uint32_t, SiWord) { return std::uint32_t{0}; };
    made.RemoveSecFilter = [](std::uint32_t, std::uint32_t) { return std::uint32_t{0}; };
    made.EnableSecFilter = made.RemoveSecFilter;
    made.DisableSecFilter = [](std::uint32_t, std::uint32_t filter) {
        return load(filter, no_pid);
    };
    made.UpdateSecFilter = [](std::uint32_t, std::uint32_t filter, SiDmxFilterParam param) {
        return load(filter, param.pid);
    };
    made.AddSecFilter = [](std::uint32_t, std::uint32_t *filter, SiDmxFilterParam) {
        static std::uint32_t next = first_filter;
        *filter = next++;
        return load(*filter, no_pid);
    };
    return &made;
}

// ---- The library, with a client that hears of everything

std::atomic<std::size_t> notifications = 0;

void tune()
{
    Orva_Si_StopChannel();
    const SiTuneParam channel{474000, 0, 0, first_program};
    while (Orva_Si_StartChannel(&channel) != ORVA_SI_OK)
        Orva_Si_StopChannel();
    constexpr std::uint16_t every_service = SI_ANY_EXT;
    Orva_Si_StartActualPFEIT(SI_ANY_EXT, SI_ANY_EXT, first_program, &every_service, 1);
    Orva_Si_StartOtherPFEIT(nullptr, 0);
    Orva_Si_StartOtherSchedulEIT(nullptr, 0);
}

void start(SiDmxSectHandler *demux)
{
    Orva_Si_InstallISO639toIDFunc([](const char *code, std::uint32_t *id) {
        *id = std::string_view{code} == "eng" ? language : 0;
        return std::uint32_t{0};
    });
    Orva_Si_InstallCallback([](std::uint32_t, std::uint32_t, SiWord, std::uint32_t) {
        ++notifications;
        return std::uint32_t{0};
    });
    Orva_Si_Init(demux);
    while (Orva_Si_GetDvbEitList() == nullptr) // made by the library's own thread
        std::this_thread::yield();
    tune();
}

void forget()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_ClearCache();
    Orva_MutexV(&Ts_Ctl_Mutex);
    Orva_Si_EraseAllEitRawData();
    tune();
}

std::size_t held_sections()
{
    std::size_t held = 0;
    Orva_MutexP(&Ts_Ctl_Mutex);
    si_list *tables = Orva_Si_GetTableList();
    for (std::int32_t at = 0; at < tables->nb_elt; ++at)
        held += static_cast<std::size_t>(
            static_cast<SiTable *>(si_list_get(tables, at))->psect_list->nb_elt);
    Orva_MutexV(&Ts_Ctl_Mutex);
    Orva_MutexP(&Ts_Eit_Mutex);
    si_list *services = Orva_Si_GetDvbEitList();
    for (std::int32_t at = 0; at < services->nb_elt; ++at)
        held += static_cast<std::size_t>(
            static_cast<SiEitService *>(si_list_get(services, at))->sections->nb_elt);
    Orva_MutexV(&Ts_Eit_Mutex);
    return held;
}

// ---- Sections

bool take(std::span<const received> batch)
{
    for (const received &each : batch) {
        const std::uint32_t filter = filter_of(each.pid);
        if (filter == 0 || si::crc32_mpeg(each.bytes) != 0)
            return false;
        SiDmxSection section{each.bytes.data(), static_cast<std::uint32_t>(each.bytes.size()),
                             nullptr, 0, 0};
        Si_SectFlt_PidFltCallback(0, filter, 0, &section);
    }
    return true;
}

void settle()
{
    while (Si_SectFlt_GetPendingCount() != 0)
        std::this_thread::sleep_for(std::chrono::microseconds{50});
}

// ---- Questions

bool event_name(const mux &, std::uint16_t service, unsigned event, SiDvbString &name)
{
    return Orva_Si_GetEvtNameByID(network, stream_of(service), service, event, &name, language,
                                  0) == ORVA_SI_OK;
}

std::size_t events(const mux &, std::uint16_t service, std::span<SiBasicEvent> to)
{
    auto count = static_cast<std::uint32_t>(to.size());
    Orva_Si_GetOneServBscEvtInfos(network, stream_of(service), service, language, 0, 0, to.data(),
                                  &count);
    return count;
}

std::size_t service_ids(const mux &of, std::span<std::uint16_t> to)
{
    std::size_t listed = 0;
    for (std::size_t stream = 1; stream <= of.sdts.size(); ++stream) {
        auto count = static_cast<std::uint32_t>(to.size() - listed);
        Orva_Si_GetServIdList(static_cast<std::uint32_t>(stream), to.data() + listed, &count);
        listed += count;
    }
    return listed;
}

std::size_t service_names(const mux &of, std::span<listed_service> to)
{
    std::size_t listed = 0;
    for (std::size_t stream = 1; stream <= of.sdts.size(); ++stream) {
        std::array<std::uint16_t, services_per_stream> ids;
        auto count = static_cast<std::uint32_t>(ids.size());
        Orva_Si_GetServIdList(static_cast<std::uint32_t>(stream), ids.data(), &count);
        for (const std::uint16_t id : std::span{ids}.first(count)) {
            to[listed].id = id;
            Orva_Si_GetServName(static_cast<std::uint32_t>(stream), id, &to[listed++].name);
        }
    }
    return listed;
}

counts counted(const mux &of)
{
    std::vector<std::uint16_t> ids(of.services + 1u);
    return {.sections = held_sections(), .services = service_ids(of, ids)};
}

// ---- Packets

counts demultiplex(const std::string &path, const mux &)
{
    OrvaDemux *demux = orva_demux_open(path.c_str(), nullptr, nullptr);
    if (demux == nullptr)
        return {.sections = 0};
    start(orva_demux_handler());
    OrvaDemuxStatus status{};
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
        orva_demux_get_status(demux, &status);
    } while (status.state != ORVA_DEMUX_CAROUSEL && status.state != ORVA_DEMUX_FAILED);
    settle();
    return {.sections = std::min(held_sections(), notifications.load())};
}

} // namespace

const candidate orva_candidate{
    .name = "Orva SI",
    .knows_repeats = true,
    .rounds_to_tell = 1,
    .start = [](const mux &) { start(driver()); },
    .forget = forget,
    .take = take,
    .settle = settle,
    .counted = counted,
    .event_name = event_name,
    .events = events,
    .service_ids = service_ids,
    .service_names = service_names,
    .demultiplex = demultiplex,
};

} // namespace bench
