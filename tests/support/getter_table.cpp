// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/getter_table.h"

#include <algorithm>
#include <array>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "orva_si.h"
#include "orva_si_model.h"
#include "support/descriptors.h"
#include "support/store.h"
#include "support/time_sections.h"

namespace test {

namespace {

// ---- How a getter is asked: by its parameters

template <class T>
using pointee = std::conditional_t<std::is_pointer_v<T>, std::remove_pointer_t<T>, std::byte>;

template <class... P>
inline constexpr std::size_t pointers = (0 + ... + (std::is_pointer_v<P> ? 1 : 0));

template <class... P>
constexpr std::size_t size_of_first_pointee()
{
    std::size_t size = 0;
    ((size = size == 0 && std::is_pointer_v<P> ? sizeof(pointee<P>) : size), ...);
    return size;
}

template <class... P>
constexpr gives kind_of()
{
    if (pointers<P...> == 0)
        return gives::nothing;
    if (pointers<P...> == 1)
        return gives::value;
    return size_of_first_pointee<P...>() == 1 ? gives::bytes : gives::list;
}

// The first pointer is to be filled, the second counts; numbers come in the order of the
// parameters.
template <class... P>
auto bound(std::uint32_t (*function)(P...),
           std::array<std::uint32_t, sizeof...(P) - pointers<P...>> numbers)
{
    return [function, numbers]([[maybe_unused]] void *out, [[maybe_unused]] std::uint32_t *count) {
        [[maybe_unused]] std::size_t next = 0;
        [[maybe_unused]] bool filled = false;
        const auto argument = [&]<class A>(std::type_identity<A>) -> A {
            if constexpr (std::is_pointer_v<A>)
                return std::exchange(filled, true) ? reinterpret_cast<A>(count)
                                                   : static_cast<A>(out);
            else
                return static_cast<A>(numbers[next++]);
        };
        // In braces: a tuple's arguments are then evaluated from left to right.
        return std::apply(function, std::tuple<P...>{argument(std::type_identity<P>{})...});
    };
}

using code_set = std::vector<std::uint32_t>;
const code_set ok{ORVA_SI_OK};
const code_set found_or_failure{ORVA_SI_OK, ORVA_SI_FAILURE};
const code_set found_or_not{ORVA_SI_OK, ORVA_SI_NOT_FOUND};
const code_set found_or_no_data{ORVA_SI_OK, ORVA_SI_NO_DATA};
const code_set found_or_null{ORVA_SI_OK, ORVA_SI_NULL_ARGUMENT};
const code_set listed{ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NO_DATA};
const code_set listed_or_not_found{ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NOT_FOUND};
const code_set always_listed{ORVA_SI_OK, ORVA_SI_ARRAY_FULL};
const code_set regions{ORVA_SI_FAILURE, ORVA_SI_ARRAY_FULL};
const code_set copied_or_failure{ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_FAILURE};
const code_set copied_or_not_found{ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NOT_FOUND};
const code_set copied_or_no_data{ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NO_DATA};

template <class... P, class... Numbers>
auto asked(std::string_view name, std::uint32_t (*function)(P...), Numbers... numbers)
{
    return [=](const code_set &codes, peculiar ways = {}) {
        return getter{name,
                      kind_of<P...>(),
                      size_of_first_pointee<P...>(),
                      bound(function, {static_cast<std::uint32_t>(numbers)...}),
                      codes,
                      ways};
    };
}
#define ASK(function, ...) asked(#function, function __VA_OPT__(, ) __VA_ARGS__)

// A number that is written whatever the result, 0 included.
constexpr peculiar number{.always_written = true};

// ---- What is asked for

// Every identifier of the sections is 1, which is also what their builders take.
constexpr std::uint32_t one = 1;
constexpr std::uint32_t ts = one, sid = one, onid = one, nid = one, program = one, event = one,
                        bouquet = one, channels = one;
constexpr std::uint32_t pmt_pid = 0x100;
constexpr std::uint32_t english = 0x656E67; // "eng"
constexpr std::uint32_t ours = 0x0000233A;  // private_data_specifier
constexpr std::uint32_t all_streams = SI_ANY_PID;
constexpr std::uint32_t schedule = 0, banner = 1; // bisbanner
constexpr std::uint32_t beginning = 0, end_of_time = 0xFFFFFFFF;
constexpr std::uint32_t ten_bits = 0; // LCN mode
constexpr std::uint32_t all_types = 0;

using loop = std::vector<octets>;

octets in_service(const loop &descriptors)
{
    return make(sdt{.services = {{.descriptors = descriptors}}});
}
octets in_program(const loop &descriptors)
{
    return make(pmt{.descriptors = descriptors});
}
octets in_stream(const loop &descriptors)
{
    return make(pmt{.pcr_pid = 0x101, .streams = {{.descriptors = descriptors}}});
}
octets in_private_stream(const loop &descriptors)
{
    return make(pmt{.streams = {{.type = 0x06, .descriptors = descriptors}}});
}
octets in_network(const loop &descriptors)
{
    return make(nit{.descriptors = descriptors});
}
octets in_transport(const loop &descriptors)
{
    return make(nit{.transports = {{.descriptors = descriptors}}});
}
octets in_bouquet(const loop &descriptors)
{
    return make(bat{.descriptors = descriptors});
}
octets in_bouquet_transport(const loop &descriptors)
{
    return make(bat{.transports = {{.descriptors = descriptors}}});
}
octets in_scheduled_event(const loop &descriptors)
{
    return make(eit{.table_id = 0x50, .events = {{.descriptors = descriptors}}});
}
octets in_present_event(const loop &descriptors)
{
    return make(eit{.table_id = 0x4E, .events = {{.descriptors = descriptors}}});
}
octets in_time_offset(const loop &descriptors)
{
    return make(tot{.descriptors = descriptors});
}
octets of_programs(const loop &)
{
    return make(pat{.programs = {{.number = 1, .pid = pmt_pid}, {.number = 2, .pid = 0x200}}});
}

// ---- The rows

std::vector<answered> services()
{
    const loop under_ours{private_data_specifier(ours)};
    return {
        {"service",
         in_service,
         {},
         service_descriptor(1, "Pr", "Name"),
         {ASK(Orva_Si_GetActTsId)(found_or_failure),
          ASK(Orva_Si_GetActOnitId)(found_or_failure),
          ASK(Orva_Si_GetOnitId, ts)(found_or_failure),
          ASK(Orva_Si_GetActServIdList)(listed),
          ASK(Orva_Si_GetServIdList, ts)(always_listed),
          ASK(Orva_Si_GetSdtAllTsList)(listed),
          ASK(Orva_Si_GetServiceName, sid)(found_or_failure),
          ASK(Orva_Si_GetServName, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetServiceType, sid)(found_or_failure),
          ASK(Orva_Si_GetServType, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetServiceEncrypted, sid)(found_or_failure),
          ASK(Orva_Si_GetServEncrypted, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetFreeCaMode, sid)(found_or_failure),
          ASK(Orva_Si_GetServFreeCaMode, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetRunningStatus, sid)(found_or_failure),
          ASK(Orva_Si_GetServRunningStatus, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetEitSchedFlag, sid)(found_or_failure),
          ASK(Orva_Si_GetServEitSchedFlag, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetEitPfFlag, sid)(found_or_failure),
          ASK(Orva_Si_GetServEitPfFlag, ts, sid)(found_or_failure),
          ASK(Orva_Si_GetSDTCRC, ts)(ok)}},
        {"service_names",
         in_service,
         {},
         multilingual_service_name({{"eng", "Pr", "Name"}, {"deu", "", "N"}}),
         {ASK(Orva_Si_GetMultiServiceNames, sid)(listed),
          ASK(Orva_Si_GetMultiServNames, ts, sid)(listed)}},
        {"service_availability",
         in_service,
         {},
         service_availability(true, {1, 2}),
         {ASK(Orva_Si_GetServAvailList, ts, sid)(always_listed)}},
        {"data_broadcast",
         in_service,
         {},
         data_broadcast({.selector = {1, 2}, .text = "T"}),
         {ASK(Orva_Si_GetSdtDataBroadCastDesc, sid)(listed),
          ASK(Orva_Si_GetServDataBroadCastDesc, ts, sid)(listed)}},
        {"service_move",
         in_service,
         {},
         service_move(2, 3, 4),
         {ASK(Orva_Si_GetServiceMoveDesc, sid)(found_or_failure),
          ASK(Orva_Si_GetServMoveDesc, ts, sid)(found_or_failure)}},
        {"service_linkage",
         in_service,
         {},
         linkage({.type = 0x0B, .data = ip_notification_data({{.names = {{"eng", "P"}}}})}),
         {ASK(Orva_Si_GetLinkageDesc, sid)(found_or_failure),
          ASK(Orva_Si_GetServLinkageDesc, ts, sid)(found_or_failure)}},
        {"hand_over_linkage",
         in_service,
         {},
         linkage({.type = 0x08, .data = hand_over_data({.origin_type = 0})}),
         {ASK(Orva_Si_GetLinkageDesc, sid)(found_or_failure)}},
        {"deferred_linkage",
         in_service,
         {},
         linkage({.type = 0x0C, .data = deferred_notification_data(2)}),
         {ASK(Orva_Si_GetLinkageDesc, sid)(found_or_failure)}},
        {"service_regions",
         in_service,
         {},
         target_region("GBR", {{"IRL", 3, 1, 2, 3}, {.depth = 1, .primary = 4}}),
         {ASK(Orva_Si_GetSdtTargetRegionInfo, ts, sid)(regions),
          ASK(Orva_Si_GetSdtTargetRegionInfoCount, ts, sid)(ok, number)}},
        {"short_service_name",
         in_service,
         under_ours,
         short_service_name("Short"),
         {ASK(Orva_Si_GetShortServiceName, sid, ours)(found_or_failure)}},
        {"ci_protection",
         in_service,
         under_ours,
         ci_protection(true, {0x1234}, {1, 2}),
         {ASK(Orva_Si_GetServCIProtDescData, ts, sid, ours)(copied_or_failure)}},
        {"preferred_names",
         in_service,
         under_ours,
         preferred_name_list({{"deu", {{2, "Zwei"}}}, {"eng", {{2, "Two"}, {1, "One"}}}}),
         {ASK(Orva_Si_GetPfNameByID, onid, ts, sid, english, 1)(found_or_failure),
          ASK(Orva_Si_GetPfNameLangList, onid, ts, sid)(listed)}},
    };
}

std::vector<answered> programs()
{
    return {
        {"programs",
         of_programs,
         {},
         {},
         {ASK(Orva_Si_GetPatTsId)(found_or_not),
          ASK(Orva_Si_GetPatProgList)(listed, {.without_room = ORVA_SI_NO_DATA}),
          ASK(Orva_Si_GetPATCRC)(ok)}},
        {"program_ca",
         in_program,
         {},
         ca(0x0500, 0x1FF),
         {ASK(Orva_Si_GetPmtCaDesc, program)(listed)}},
        {"stream_ca",
         in_stream,
         {},
         ca(0x0500, 0x1FF, {1, 2}),
         {ASK(Orva_Si_GetPmtCaDesc, program)(listed),
          ASK(Orva_Si_GetPmtData, program)(copied_or_not_found),
          ASK(Orva_Si_GetPmtDataByPID, pmt_pid)(copied_or_not_found),
          ASK(Orva_Si_GetCiData, program)(copied_or_not_found),
          ASK(Orva_Si_GetPcrPID, program)(found_or_no_data),
          ASK(Orva_Si_GetVideoPID, program)(found_or_failure),
          ASK(Orva_Si_GetAllPids, program)(listed)}},
        {"ac3",
         in_private_stream,
         {},
         ac3(),
         {ASK(Orva_Si_GetAudioPIDs, program)(listed, {.writes_ahead = true})}},
        {"audio_component",
         in_private_stream,
         {},
         component(2, 3, 1, "eng", "T"),
         {ASK(Orva_Si_GetAudioPIDs, program)(listed, {.writes_ahead = true})}},
        {"languages",
         in_stream,
         {},
         iso639("eng", 1),
         {ASK(Orva_Si_GetAudioIso639Desc, program)(listed)}},
        {"teletext",
         in_stream,
         {},
         teletext({{}, {.language = "deu", .type = 2}}),
         {ASK(Orva_Si_GetTeleTextPids, program)(listed),
          ASK(Orva_Si_GetTeleTextDesc, program, all_streams)(listed)}},
        {"subtitles",
         in_stream,
         {},
         subtitling({{}, {.language = "deu"}}),
         {ASK(Orva_Si_GetSubtitlePids, program)(listed),
          ASK(Orva_Si_GetSubtitleDesc, program, all_streams)(listed)}},
        {"software_update",
         in_stream,
         {},
         data_broadcast_id(0x000A, {1, 2, 3}),
         {ASK(Orva_Si_GetSsuDataBroadCastDescSelector, program)(copied_or_failure),
          ASK(Orva_Si_GetSsuPidsByPmtDataBroadCast)(listed),
          ASK(Orva_Si_GetSoftwareUpatePIDs, program)(listed),
          ASK(Orva_Si_GetDataBroadcastDescPrivData, program)(copied_or_no_data),
          ASK(Orva_Si_GetDataBroadCounts, program)(ok),
          ASK(Orva_Si_GetSsuPidsByNitLinkage, sid)(listed)}},
        {"application",
         in_stream,
         {},
         data_broadcast_id(0x0106, {0, 1, 2}),
         {ASK(Orva_Si_GetDataBroadCounts, program)(ok)}},
        {"association",
         in_stream,
         {},
         association_tag(),
         {ASK(Orva_Si_GetDataBroadCounts, program)(ok)}},
    };
}

std::vector<answered> events()
{
    return {
        {"event",
         in_scheduled_event,
         {},
         short_event("eng", "Name", "Text"),
         {ASK(Orva_Si_GetOneServEvtIds, onid, ts, sid)(listed),
          ASK(Orva_Si_GetOneServEvtCount, onid, ts, sid)(found_or_no_data, number),
          ASK(Orva_Si_GetOneSectEvtIds, onid, ts, sid, 0x50, 0)(listed),
          ASK(Orva_Si_GetOneServBscEvtInfos, onid, ts, sid, english, beginning,
              end_of_time)(listed_or_not_found),
          ASK(Orva_Si_GetGetEventIDsByStartTime, onid, ts, sid,
              beginning)({ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NO_DATA, ORVA_SI_NULL_ARGUMENT},
                         {.without_room = ORVA_SI_NULL_ARGUMENT}),
          ASK(Orva_Si_GetGetEventIDsByStartTimeAndEndTime, onid, ts, sid, beginning,
              end_of_time)({ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NO_DATA, ORVA_SI_NULL_ARGUMENT},
                           {.without_room = ORVA_SI_NULL_ARGUMENT}),
          ASK(Orva_Si_GetEvtStartUTCTime, onid, ts, sid, event, schedule)(found_or_failure),
          ASK(Orva_Si_GetEvtDuringTime, onid, ts, sid, event, schedule)(found_or_failure),
          ASK(Orva_Si_GetEvtNameByID, onid, ts, sid, event, english, schedule)(found_or_null),
          ASK(Orva_Si_GetEvtNameLangList, onid, ts, sid, event, schedule)(listed),
          ASK(Orva_Si_GetShortEvtDescByID, onid, ts, sid, event, english, schedule)(found_or_null),
          ASK(Orva_Si_GetShortEvtDescLangList, onid, ts, sid, event, schedule)(listed)}},
        {"present_event",
         in_present_event,
         {},
         short_event("eng", "Name", "Text"),
         {ASK(Orva_Si_GetBnrEvtId, onid, ts, sid, 0)(found_or_not),
          ASK(Orva_Si_GetEvtNameByID, onid, ts, sid, event, english, banner)(found_or_null)}},
        {"extended_event",
         in_scheduled_event,
         {},
         extended_event({.items = {{"Ro", "Pl"}, {"D", "I"}}, .text = "More"}),
         {ASK(Orva_Si_GetExtendEvtDescByID, onid, ts, sid, event, english, schedule)(found_or_null),
          ASK(Orva_Si_GetAllExtendEvtDescByID, onid, ts, sid, event, english, schedule)(listed),
          ASK(Orva_Si_GetExtendEvtDescCnt, onid, ts, sid, event, english,
              schedule)(found_or_no_data, number),
          ASK(Orva_Si_GetExtendEvtDescLangList, onid, ts, sid, event, schedule)(listed)}},
        {"content",
         in_scheduled_event,
         {},
         content({{1, 2, 3, 4}, {5, 6, 7, 8}}),
         {ASK(Orva_Si_GetEvtContentDesc, onid, ts, sid, event, schedule)(listed)}},
        {"event_component",
         in_scheduled_event,
         {},
         component(1, 3, 7, "eng", "T"),
         {ASK(Orva_Si_GetEvtComponentDesc, onid, ts, sid, event, schedule)(listed)}},
        {"rating",
         in_scheduled_event,
         {},
         parental_rating({{"GBR", 4}, {"IRL", 5}}),
         {ASK(Orva_Si_GetEvtParentalRatingDesc, onid, ts, sid, event, schedule)(listed)}},
        {"ca_identifier",
         in_scheduled_event,
         {},
         ca_identifier({0x0500}),
         {ASK(Orva_Si_HaveEvtCAIdentifierDesc, onid, ts, sid, event, schedule)(ok, number)}},
        {"preferred_name",
         in_scheduled_event,
         {private_data_specifier(ours)},
         preferred_name_identifier(5),
         {ASK(Orva_Si_EvtGetPfNameId, onid, ts, sid, event, ours, schedule)(found_or_not)}},
    };
}

std::vector<answered> networks()
{
    const loop under_ours{private_data_specifier(ours)};
    return {
        {"network_name",
         in_network,
         {},
         network_name("Network"),
         {ASK(Orva_Si_GetCurrentNetworkId)(found_or_no_data),
          ASK(Orva_Si_GetNitAllNetworkList)(listed),
          ASK(Orva_Si_GetNetworkName, nid)(found_or_failure), ASK(Orva_Si_GetNITCRC, nid)(ok)}},
        {"network_names",
         in_network,
         {},
         multilingual_network_name({{"deu", "Netz"}, {"eng", "Net"}}),
         {ASK(Orva_Si_GetMultiNetworkNameLangList, nid)(listed),
          ASK(Orva_Si_GetMultiNetworkNameByLangId, nid, english)(found_or_no_data)}},
        {"service_list",
         in_transport,
         {},
         service_list({{2, 1}, {1, 2}}),
         {ASK(Orva_Si_GetTsGrpByNetworkId, nid)(listed),
          ASK(Orva_Si_GetServiceList, nid, ts, onid)(always_listed),
          ASK(Orva_Si_GetServiceType_InNIT, nid, ts, onid, sid)(found_or_failure)}},
        {"satellite",
         in_transport,
         {},
         satellite(),
         {ASK(Orva_Si_GetSatelliteDeliveryList, nid)(listed),
          ASK(Orva_Si_GetSatelliteDeliveryDescriptor, nid, ts)(found_or_failure)}},
        {"cable",
         in_transport,
         {},
         cable(),
         {ASK(Orva_Si_GetCableDeliveryList, nid)(listed),
          ASK(Orva_Si_GetCableDeliveryDescriptor, nid, ts)(found_or_failure)}},
        {"terrestrial",
         in_transport,
         {},
         terrestrial(),
         {ASK(Orva_Si_GetTerrDeliveryList, nid)(listed)}},
        {"frequencies",
         in_transport,
         {},
         frequency_list(3, {62600000, 65000000}),
         {ASK(Orva_Si_GetFrequencyListDescriptor, nid, ts)(listed)}},
        {"channel_lists",
         in_transport,
         under_ours,
         nordig_channels({{.name = "A", .channels = {{}, {.service = 2}}}, {.id = 2}}),
         {ASK(Orva_Si_GetNordigV2LCNInfo, nid, ts, onid, ours, channels, ten_bits)(listed),
          ASK(Orva_Si_GetNordigV2ChanlList, nid, ts, onid, ours)(listed)}},
        {"logical_channels",
         in_transport,
         under_ours,
         logical_channels({{}, {.service = 2}}),
         {ASK(Orva_Si_GetLCNPdsdList, nid, ts, onid)(listed),
          ASK(Orva_Si_GetAllLCNInfo, nid, ours, ten_bits)(listed)}},
        {"service_attributes",
         in_transport,
         under_ours,
         service_attributes({{}, {.id = 2}}),
         {ASK(Orva_Si_GetDBookServAttDesc, nid, ts, onid, ours)(listed)}},
        {"network_regions",
         in_network,
         {},
         target_region("GBR", {{"IRL", 3, 1, 2, 3}, {.depth = 1, .primary = 4}}),
         {ASK(Orva_Si_GetGlobalTargetRegionInfo, nid)(regions),
          ASK(Orva_Si_GetGlobalTargetRegionInfoCount, nid)(ok, number)}},
        {"transport_regions",
         in_transport,
         {},
         target_region("GBR", {{"IRL", 3, 1, 2, 3}, {.depth = 1, .primary = 4}}),
         {ASK(Orva_Si_GetTsTargetRegionInfo, nid, ts, onid)(regions),
          ASK(Orva_Si_GetTsTargetRegionInfoCount, nid, ts, onid)(ok, number)}},
        {"region_names",
         in_network,
         {},
         target_region_name("GBR", "eng", {{"One", 1, 1}, {"Tw", 3, 1, 2, 3}}),
         {ASK(Orva_Si_GetTargetRegionName, nid)(regions),
          ASK(Orva_Si_GetTargetRegionNameCount, nid)(ok, number)}},
        {"network_linkage",
         in_transport,
         {},
         linkage({.type = 0x09, .data = software_update_data({{.selector = {1, 2, 3}}}, {9})}),
         {ASK(Orva_Si_GetNitLinkageDesc, nid, all_types)(listed),
          ASK(Orva_Si_GetSsuNitLinkageDescSelector, nid)(copied_or_failure),
          ASK(Orva_Si_GetSsuNitLinkageServiceId)(found_or_failure)}},
    };
}

std::vector<answered> bouquets_and_time()
{
    return {
        {"bouquet_name",
         in_bouquet,
         {},
         bouquet_name("Bouquet"),
         {ASK(Orva_Si_GetBouquetIdList)(listed, {.checks_ahead = true}),
          ASK(Orva_Si_GetBouquetNameById, bouquet)(found_or_failure),
          ASK(Orva_Si_GetBATCRC, bouquet)(ok)}},
        {"bouquet_services",
         in_bouquet_transport,
         {},
         service_list({{1, 1}, {2, 2}}),
         {ASK(Orva_Si_GetServiceListInBouquet, bouquet)(listed)}},
        {"local_time",
         in_time_offset,
         {},
         local_time_offset({{}, {.region = 2}}),
         {ASK(Orva_Si_GetLocalTimeOffset)(
             {ORVA_SI_OK, ORVA_SI_ARRAY_FULL, ORVA_SI_NO_DATA, ORVA_SI_FAILURE},
             {.without_room = ORVA_SI_NO_DATA})}},
    };
}

std::vector<answered> all_rows()
{
    std::vector<answered> rows;
    for (auto some : {services(), programs(), events(), networks(), bouquets_and_time()})
        std::ranges::move(some, std::back_inserter(rows));
    return rows;
}

// ---- Into the stores

constexpr std::uint8_t pat_table_id = 0x00;
constexpr std::uint8_t tot_table_id = 0x73;
constexpr bool is_event(std::uint8_t table_id)
{
    return table_id >= 0x4E && table_id <= 0x6F;
}

// In memory of just its size, for a sanitizer to see a byte too many read.
std::unique_ptr<std::uint8_t[]> alone(const octets &section)
{
    std::unique_ptr<std::uint8_t[]> memory{new std::uint8_t[section.size()]};
    std::ranges::copy(section, memory.get());
    return memory;
}

void put_in_tables(std::uint8_t table_id, const octets &section)
{
    SiTable *table = store(section, usual_pid(table_id));
    if (table_id != pat_table_id)
        return;
    Orva_MutexP(&Ts_Ctl_Mutex);
    Si_Pat_ParsePmtPidList(table, &PmtPidList);
    Orva_MutexV(&Ts_Ctl_Mutex);
}

void put_in_events(std::uint8_t table_id, const octets &section)
{
    Orva_Si_ListEitImpl(onid, ts, sid, table_id, 0, static_cast<std::uint16_t>(section.size()),
                        alone(section).get());
}

} // namespace

octets answered::section_with(const octets &other) const
{
    loop descriptors = before;
    if (!other.empty())
        descriptors.push_back(other);
    return around(descriptors);
}

const std::vector<answered> &getter_table()
{
    static const std::vector<answered> rows = all_rows();
    return rows;
}

std::uint32_t number_of_code(const char *code, std::uint32_t *language)
{
    const auto octet = [&](int at) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(code[at]));
    };
    *language = octet(0) << 16 | octet(1) << 8 | octet(2);
    return 0;
}

octets filled_up(octets section)
{
    const std::size_t claimed = 3u + ((section.at(1) & 0x0Fu) << 8 | section.at(2));
    if (claimed > section.size())
        section.resize(claimed, 0xFF);
    return fix_crc(std::move(section));
}

void put(const answered &row, const octets &section)
{
    init_store();
    clear_stores();
    const std::uint8_t table_id = row.section().front();
    if (is_event(table_id))
        put_in_events(table_id, section);
    else if (table_id == tot_table_id)
        Orva_Si_TotParse(alone(section).get(), static_cast<std::uint32_t>(section.size()));
    else
        put_in_tables(table_id, section);
}

void clear_stores()
{
    Orva_Si_EraseAllEitRawData();
    Orva_Si_ResetTimeSection();
    Orva_MutexP(&Ts_Ctl_Mutex);
    si_list *tables = Orva_Si_GetTableList();
    while (si_list_eol(tables, 0) == 0) {
        Orva_Si_RemoveTable(static_cast<SiTable *>(si_list_get(tables, 0)));
        si_list_remove(tables, 0);
    }
    Orva_MutexV(&Ts_Ctl_Mutex);
}

} // namespace test
