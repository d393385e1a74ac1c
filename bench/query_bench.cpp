// SPDX-License-Identifier: LGPL-2.1-or-later
// What a question costs, by the number of services. The CRC_32 of each section that may answer is
// checked again for every question, and the section decoded: the counter tells how many these are.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "events.h"

struct section_ext;
struct dvb_sdt_section;
struct dvb_nit_section;
struct dvb_eit_section;
struct mpeg_pmt_section;

// ---- Counts what is decoded

namespace {
std::uint64_t decoded = 0;
}

// The linker puts these in front of the library's decoders, under their mangled names.
#define COUNT_CALLS(record, decoder)                                                               \
    extern "C" record *__real_##decoder(section_ext *);                                            \
    extern "C" record *__wrap_##decoder(section_ext *section)                                      \
    {                                                                                              \
        ++decoded;                                                                                 \
        return __real_##decoder(section);                                                          \
    }
COUNT_CALLS(dvb_sdt_section, _ZN2si9sdt_codecEP11section_ext)
COUNT_CALLS(dvb_nit_section, _ZN2si9nit_codecEP11section_ext)
COUNT_CALLS(dvb_eit_section, _ZN2si9eit_codecEP11section_ext)
COUNT_CALLS(mpeg_pmt_section, _ZN2si9pmt_codecEP11section_ext)

namespace {

using namespace bench;

// ---- A network: streams of 25 services, each with a PMT and eight days of events, and a NIT of 40
// streams

constexpr std::uint16_t streams_of_network = 40;
constexpr std::size_t largest_section = 1024;

octets named_service(std::uint16_t service)
{
    const std::string name = "Service " + std::to_string(service);
    octets plain{0x01};
    put_text(plain, "Provider");
    put_text(plain, name);
    octets multilingual;
    put(multilingual, "deu");
    put_text(multilingual, "Anbieter");
    put_text(multilingual, "Programm " + std::to_string(service));
    octets descriptors = descriptor(0x48, plain);
    put(descriptors, descriptor(0x5D, multilingual));

    octets entry;
    put(entry, service, 2);
    put(entry, 0xFF, 1);                                        // schedule, present/following
    put_loop(entry, service % 3 == 0 ? 0x9 : 0x8, descriptors); // running, every third scrambled
    return entry;
}

std::vector<section> sdt(std::uint16_t stream, std::uint16_t services)
{
    std::vector<octets> entries;
    for (std::uint16_t service = 0; service < services; ++service)
        if (stream_of(service) == stream)
            entries.push_back(named_service(service));
    const table_head head{.pid = 0x11,
                          .table_id = static_cast<std::uint8_t>(stream == 1 ? 0x42 : 0x46),
                          .ext = stream};
    return make_table(head, entries, largest_section - 15, [](const octets &loop) {
        octets payload;
        put(payload, network, 2);
        put(payload, 0xFF, 1);
        put(payload, loop);
        return payload;
    });
}

void put_stream(octets &to, std::uint8_t type, unsigned pid, const octets &descriptors)
{
    put(to, type, 1);
    put(to, 0xE000 | pid, 2);
    put_loop(to, 0xF, descriptors);
}

std::vector<section> pmt(std::uint16_t service)
{
    const unsigned pid = 0x400 + service % 512 * 8;
    octets payload;
    put(payload, 0xE000 | pid, 2);
    put_loop(payload, 0xF, descriptor(0x09, {0x0B, 0x00, 0xE1, 0x23}));
    put_stream(payload, 0x1B, pid, descriptor(0x52, {0x01}));
    for (unsigned audio = 1; audio <= 3; ++audio)
        put_stream(payload, 0x03, pid + audio, descriptor(0x0A, {'e', 'n', 'g', 0x00}));
    put_stream(payload, 0x06, pid + 4, descriptor(0x59, {'e', 'n', 'g', 0x10, 0, 1, 0, 1}));
    put_stream(payload, 0x06, pid + 5, descriptor(0x56, {'e', 'n', 'g', 0x09, 0x00}));
    const auto pmt_pid = static_cast<std::uint16_t>(0x20 + service % 0x3E0);
    return {make_section({.pid = pmt_pid, .table_id = 0x02, .ext = service}, payload)};
}

std::vector<section> nit()
{
    octets common = descriptor(0x40, {'N', 'e', 't', 'w', 'o', 'r', 'k'});
    std::vector<octets> entries;
    for (std::uint16_t stream = 1; stream <= streams_of_network; ++stream) {
        octets services;
        for (unsigned i = 0; i < services_per_stream; ++i) {
            put(services, (stream - 1u) * services_per_stream + i, 2);
            put(services, 0x01, 1);
        }
        octets descriptors =
            descriptor(0x43, {0x01, 0x17, 0x27, 0x50, 0x01, 0x92, 0xE1, 0x02, 0x75, 0x00, 0x03});
        put(descriptors, descriptor(0x41, services));
        octets entry;
        put(entry, stream, 2);
        put(entry, network, 2);
        put_loop(entry, 0xF, descriptors);
        entries.push_back(entry);
    }
    const std::size_t around = 16 + common.size();
    return make_table({.pid = 0x10, .table_id = 0x40, .ext = network}, entries,
                      largest_section - around, [&](const octets &loop) {
                          octets payload;
                          put_loop(payload, 0xF, common);
                          put_loop(payload, 0xF, loop);
                          return payload;
                      });
}

void store(std::vector<section> sections)
{
    for (section &each : sections)
        deliver(each);
}

std::vector<section> events(std::uint16_t service)
{
    std::vector<section> all{present_following(service, 0), present_following(service, 1)};
    for (unsigned table = 0; table < schedule_tables; ++table)
        for (unsigned segment = 0; segment < segments_per_table; ++segment)
            all.push_back(schedule(service, table, segment));
    return all;
}

std::uint16_t last_stream(std::uint16_t services)
{
    return stream_of(static_cast<std::uint16_t>(services - 1));
}

// Whether the store holds what the figures claim.
bool holds(std::uint16_t services)
{
    si_list *tables = Orva_Si_GetTableList();
    bool all = tables->nb_elt == 1 + last_stream(services) + services;
    for (std::int32_t at = 0; all && at < tables->nb_elt; ++at)
        all = static_cast<SiTable *>(si_list_get(tables, at))->completed != 0;
    si_list *with_events = Orva_Si_GetDvbEitList();
    all = all && with_events->nb_elt == services;
    for (std::int32_t at = 0; all && at < with_events->nb_elt; ++at)
        all = static_cast<SiEitService *>(si_list_get(with_events, at))->sections->nb_elt ==
              static_cast<std::int32_t>(sections_per_service);
    return all;
}

void fill_store(std::uint16_t services)
{
    empty_store();
    store(nit());
    for (std::uint16_t stream = 1; stream <= last_stream(services); ++stream)
        store(sdt(stream, services));
    for (std::uint16_t service = 0; service < services; ++service) {
        store(pmt(service));
        store(events(service));
    }
}

// Once for all benchmarks of a size, which only read.
bool hold(benchmark::State &state)
{
    static std::uint16_t held = 0;
    const auto services = static_cast<std::uint16_t>(state.range(0));
    if (held != services)
        fill_store(services);
    held = services;
    if (!holds(services))
        state.SkipWithError("the store does not hold the sections");
    return !state.error_occurred();
}

// ---- The questions

template <class T, auto Getter, class... Ids>
std::uint32_t value(Ids... ids)
{
    T answer;
    const std::uint32_t result = Getter(ids..., &answer);
    benchmark::DoNotOptimize(answer);
    return result;
}

// With more room than any answer here takes.
template <class T, auto Getter, std::size_t Room = 64, class... Ids>
std::uint32_t list(Ids... ids)
{
    std::array<T, Room> answer;
    std::uint32_t count = answer.size();
    const std::uint32_t result = Getter(ids..., answer.data(), &count);
    benchmark::DoNotOptimize(answer);
    return count == 0 ? std::uint32_t{ORVA_SI_NO_DATA} : result;
}

struct query {
    const char *name;
    std::uint32_t (*ask)(std::uint16_t stream, std::uint16_t service);
};

using id = std::uint16_t;

// Of another event each time, so that it stands now in one section and now in another.
template <std::uint8_t Banner>
std::uint32_t name_of_event(id ts, id sid)
{
    static unsigned asked = 0;
    const unsigned event = ++asked * 31 % (Banner != 0 ? 2 : schedule_events);
    SiDvbString name;
    const std::uint32_t result =
        Orva_Si_GetEvtNameByID(network, ts, sid, event, &name, language, Banner);
    benchmark::DoNotOptimize(name);
    return result;
}

constexpr query queries[] = {
    {"GetServName", [](id ts, id sid) { return value<SiDvbString, Orva_Si_GetServName>(ts, sid); }},
    {"GetServType",
     [](id ts, id sid) { return value<std::uint8_t, Orva_Si_GetServType>(ts, sid); }},
    {"GetServRunningStatus",
     [](id ts, id sid) { return value<std::uint8_t, Orva_Si_GetServRunningStatus>(ts, sid); }},
    {"GetServEncrypted",
     [](id ts, id sid) { return value<std::uint8_t, Orva_Si_GetServEncrypted>(ts, sid); }},
    {"GetServIdList", [](id ts, id) { return list<std::uint16_t, Orva_Si_GetServIdList>(ts); }},
    {"GetMultiServNames",
     [](id ts, id sid) { return list<SiMultiServiceName, Orva_Si_GetMultiServNames>(ts, sid); }},
    {"GetVideoPID", [](id, id sid) { return value<std::uint16_t, Orva_Si_GetVideoPID>(sid); }},
    {"GetAudioPIDs", [](id, id sid) { return list<SiAudioPid, Orva_Si_GetAudioPIDs>(sid); }},
    {"GetPmtCaDesc", [](id, id sid) { return list<SiCaDesc, Orva_Si_GetPmtCaDesc>(sid); }},
    {"GetNetworkName", [](id, id) { return value<SiDvbString, Orva_Si_GetNetworkName>(network); }},
    {"GetTsGrpByNetworkId",
     [](id, id) { return list<std::uint16_t, Orva_Si_GetTsGrpByNetworkId>(network); }},
    {"GetServiceList",
     [](id ts, id) {
         return list<SiServiceListEntry, Orva_Si_GetServiceList>(network, ts, network);
     }},
    {"GetEvtNameByID", name_of_event<0>},
    {"GetEvtNameByID_present", name_of_event<1>},
    {"GetOneServEvtIds",
     [](id ts, id sid) {
         return list<std::uint16_t, Orva_Si_GetOneServEvtIds, schedule_events>(network, ts, sid);
     }},
    {"GetOneServEvtCount",
     [](id ts, id sid) {
         return value<std::uint32_t, Orva_Si_GetOneServEvtCount>(network, ts, sid);
     }},
    {"GetOneServBscEvtInfos",
     [](id ts, id sid) {
         static std::array<SiBasicEvent, schedule_events> answer;
         std::uint32_t count = answer.size();
         return Orva_Si_GetOneServBscEvtInfos(network, ts, sid, language, 0, 0, answer.data(),
                                              &count);
     }},
};

// Asks about each service in turn.
void answer(benchmark::State &state, const query &of)
{
    if (!hold(state))
        return;
    know_language();
    const auto services = static_cast<std::uint16_t>(state.range(0));
    const std::uint64_t before = decoded;
    std::uint16_t service = 0;
    for (auto _ : state) {
        if (of.ask(stream_of(service), service) != ORVA_SI_OK) {
            state.SkipWithError("no answer");
            return;
        }
        service = static_cast<std::uint16_t>(service + 1 == services ? 0 : service + 1);
    }
    state.counters["decoded"] = benchmark::Counter(static_cast<double>(decoded - before),
                                                   benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(state.iterations());
}

// The services of one transport stream after the other; items are services.
void all_services(benchmark::State &state)
{
    if (!hold(state))
        return;
    const auto services = static_cast<std::uint16_t>(state.range(0));
    for (auto _ : state) {
        std::uint32_t listed = 0;
        for (std::uint16_t stream = 1; stream <= last_stream(services); ++stream) {
            std::array<std::uint16_t, services_per_stream> ids;
            std::uint32_t count = ids.size();
            Orva_Si_GetServIdList(stream, ids.data(), &count);
            benchmark::DoNotOptimize(ids);
            listed += count;
        }
        if (listed != services) {
            state.SkipWithError("not all services");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * services);
}

const bool registered = [] {
    for (const std::int64_t services : {1, 20, 1000}) { // the store is filled once for each
        for (const query &each : queries)
            benchmark::RegisterBenchmark(each.name, answer, each)
                ->ArgName("services")
                ->Arg(services);
        benchmark::RegisterBenchmark("all_services", all_services)
            ->ArgName("services")
            ->Arg(services);
    }
    return true;
}();

} // namespace
