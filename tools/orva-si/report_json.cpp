// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>

#include "json_values.h"
#include "limit_report.h"
#include "report.h"

namespace tool {
namespace {

json listed(const listed_service &service)
{
    return {{"service_id", service.service_id}, {"service_type", service.service_type}};
}

json place(std::uint16_t ts, std::uint16_t onid, std::uint16_t sid)
{
    return {{"transport_stream_id", ts}, {"original_network_id", onid}, {"service_id", sid}};
}

json one_linkage(const linkage &of)
{
    json told = place(of.transport_stream_id, of.original_network_id, of.service_id);
    told["linkage_type"] = of.linkage_type;
    if (of.linkage_type == software_update_linkage)
        told["OUI"] = of.ouis;
    return told;
}

json one_region(const region &of)
{
    const auto to_depth = [&](unsigned depth, unsigned code) {
        return of.depth >= depth ? json(code) : json{};
    };
    return {{"country_code", of.country},
            {"region_depth", of.depth},
            {"primary_region_code", to_depth(1, of.primary)},
            {"secondary_region_code", to_depth(2, of.secondary)},
            {"tertiary_region_code", to_depth(3, of.tertiary)}};
}

json network_name(const language_name &of)
{
    json told{{"language", of.language}};
    set_text(told, "name", of.name);
    return told;
}

json service_name(const language_name &of)
{
    json told = network_name(of);
    told["provider_name"] = of.provider ? json(of.provider->text) : json{};
    told["provider_name_raw"] = of.provider ? json(of.provider->raw) : json{};
    return told;
}

json number(const channel_number &of)
{
    return {{"service_id", of.service_id}, {"lcn", of.lcn},
            {"visible", of.visible},       {"private_data_specifier", of.specifier},
            {"specifier_sent", of.sent},   {"channel_list_id", value_or_null(of.list)}};
}

json channel_lists(const transport_stream &of)
{
    json all = json::array();
    for (std::size_t i = 0; i < of.in_nit.lists.size() && i < of.list_names.size(); ++i) {
        json told{{"channel_list_id", of.in_nit.lists[i].id},
                  {"country_code", of.in_nit.lists[i].country}};
        set_text(told, "name", of.list_names[i]);
        all.push_back(std::move(told));
    }
    return all;
}

json stream(const transport_stream &of)
{
    const network_stream &described = of.in_nit;
    return {{"transport_stream_id", described.transport_stream_id},
            {"original_network_id", described.original_network_id},
            {"services", array_of(of.services, listed)},
            {"delivery", described.delivered ? described.delivered->fields : json::object()},
            {"lcn", array_of(described.numbers, number)},
            {"channel_lists", channel_lists(of)},
            {"frequencies", array_of(of.frequencies,
                                     [](const frequency &f) -> json {
                                         return {{"coding_type", f.coding_type},
                                                 {"centre_frequency_Hz", value_or_null(f.hertz)}};
                                     })},
            {"target_regions", array_of(of.regions, one_region)}};
}

json one_network(const network &of)
{
    json told{{"network_id", of.network_id}, {"actual", of.actual}};
    set_text(told, "name", of.name);
    told["transport_streams"] = array_of(of.streams, stream);
    told["names"] = array_of(of.names, network_name);
    told["linkage"] = array_of(of.linkages, one_linkage);
    told["target_regions"] = array_of(of.regions, one_region);
    told["target_region_names"] = array_of(of.region_names, [](const label &name) {
        json one = json::object();
        set_text(one, "name", name);
        return one;
    });
    return told;
}

json one_service(const service &of)
{
    json told{{"original_network_id", of.original_network_id},
              {"transport_stream_id", of.transport_stream_id},
              {"service_id", of.service_id},
              {"actual", of.actual}};
    set_text(told, "name", of.name);
    told["service_type"] = value_or_null(of.service_type);
    told["running_status"] = value_or_null(of.running_status);
    told["free_CA_mode"] = value_or_null(of.free_ca_mode);
    told["EIT_schedule_flag"] = value_or_null(of.eit_schedule);
    told["EIT_present_following_flag"] = value_or_null(of.eit_present_following);
    told["names"] = array_of(of.names, service_name);
    told["service_availability"] = array_of(of.cells, [](const cell_availability &cell) -> json {
        return {{"cell_id", cell.cell_id}, {"availability_flag", cell.available ? 1 : 0}};
    });
    told["data_broadcast"] = array_of(of.data_broadcasts, [](const data_broadcast &data) -> json {
        return {{"data_broadcast_id", data.id},
                {"component_tag", data.component_tag},
                {"language", data.language}};
    });
    told["linkage"] = array_of(of.linkages, one_linkage);
    told["service_move"] = of.moved_to
                               ? json{{"new_original_network_id", of.moved_to->original_network_id},
                                      {"new_transport_stream_id", of.moved_to->transport_stream_id},
                                      {"new_service_id", of.moved_to->service_id}}
                               : json{};
    told["target_regions"] = array_of(of.regions, one_region);
    told["reference_service_id"] = value_or_null(of.time_shifted_of);
    told["NVOD_references"] = array_of(of.nvod_references, [](const service_reference &to) {
        return place(to.transport_stream_id, to.original_network_id, to.service_id);
    });
    return told;
}

const char *kind_name(stream_kind kind)
{
    constexpr std::array names{"video", "audio", "teletext", "subtitles", "other"};
    return names[static_cast<std::size_t>(kind)];
}

// Null for a format without a name.
json codec(const std::string &name)
{
    return name.empty() ? json{} : json(name);
}

json one_stream(const elementary_stream &of)
{
    return {{"PID", of.pid},
            {"stream_type", of.stream_type},
            {"kind", kind_name(of.kind)},
            {"codec", codec(of.format)},
            {"languages", of.languages},
            {"data_broadcast_id", of.data_broadcast_ids}};
}

json one_audio(const audio_stream &of)
{
    return {{"PID", of.pid},
            {"has_lang", of.has_lang},
            {"is_ac3", of.is_ac3},
            {"codec", codec(of.codec)},
            {"languages", array_of(of.languages, [](const audio_language &said) -> json {
                 return {{"language", said.language}, {"audio_type", said.audio_type}};
             })}};
}

json one_page(const teletext_page &of)
{
    return {{"PID", of.pid},
            {"language", of.language},
            {"teletext_type", of.type},
            {"teletext_magazine_number", of.magazine},
            {"teletext_page_number", of.page}};
}

json one_subtitling(const subtitling &of)
{
    return {{"PID", of.pid},
            {"language", of.language},
            {"subtitling_type", of.type},
            {"composition_page_id", of.composition_page_id},
            {"ancillary_page_id", of.ancillary_page_id}};
}

json one_program(const program &of)
{
    return {{"program_number", of.program_number},
            {"PMT_PID", of.pmt_pid},
            {"PCR_PID", value_or_null(of.pcr_pid)},
            {"video_PID", value_or_null(of.video_pid)},
            {"elementary_PIDs", of.elementary_pids},
            {"audio", array_of(of.audio, one_audio)},
            {"teletext_PIDs", of.teletext_pids},
            {"subtitle_PIDs", of.subtitle_pids},
            {"CA", array_of(of.ca,
                            [](const ca_system &ca) -> json {
                                return {{"CA_system_ID", ca.system_id}, {"CA_PID", ca.pid}};
                            })},
            {"streams", array_of(of.streams, one_stream)},
            {"teletext", array_of(of.teletext, one_page)},
            {"subtitles", array_of(of.subtitles, one_subtitling)}};
}

json one_bouquet(const bouquet &of)
{
    json told{{"bouquet_id", of.bouquet_id}};
    set_text(told, "name", of.name);
    told["services"] = array_of(of.services, [](const bouquet_service &entry) -> json {
        return {{"transport_stream_id", entry.transport_stream_id},
                {"original_network_id", entry.original_network_id},
                {"service_id", entry.listed.service_id},
                {"service_type", entry.listed.service_type}};
    });
    return told;
}

json one_update(const software_update_service &of)
{
    json told{{"network_id", of.network_id}};
    told.update(place(of.to.transport_stream_id, of.to.original_network_id, of.to.service_id));
    told["OUI"] = of.to.ouis;
    told["PIDs"] = of.pids;
    return told;
}

} // namespace

std::string json_report(const multiplex &found, const std::string &input, bool complete,
                        const std::optional<SiLimitCounts> &limits)
{
    json told{{"schema", "orva-si/1"},
              {"input", input},
              {"complete", complete},
              {"transport_stream_id", value_or_null(found.transport_stream_id)},
              {"original_network_id", value_or_null(found.original_network_id)},
              {"network_id", value_or_null(found.network_id)},
              {"networks", array_of(found.networks, one_network)},
              {"services", array_of(found.services, one_service)},
              {"programs", array_of(found.programs, one_program)},
              {"bouquets", array_of(found.bouquets, one_bouquet)},
              {"software_update",
               {{"services", array_of(found.updates.services, one_update)},
                {"PIDs", found.updates.pids}}}};
    if (limits)
        told["limits"] = limits_json(*limits);
    return told.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

} // namespace tool
