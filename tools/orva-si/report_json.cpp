// SPDX-License-Identifier: LGPL-2.1-or-later
#include "report.h"

namespace tool {
namespace {

using json = nlohmann::ordered_json;

// Null for what was not found.
template <class T>
json value(const std::optional<T> &known)
{
    return known ? json(*known) : json{};
}

void set_name(json &into, const std::optional<label> &name)
{
    into["name"] = name ? json(name->text) : json{};
    into["name_raw"] = name ? json(name->raw) : json{};
}

// A list, each item as told makes it; an empty array for none.
template <class Items, class Tell>
json list(const Items &items, Tell tell)
{
    json all = json::array();
    for (const auto &item : items)
        all.push_back(tell(item));
    return all;
}

json listed(const listed_service &service)
{
    return {{"service_id", service.service_id}, {"service_type", service.service_type}};
}

json stream(const transport_stream &of)
{
    const network_stream &described = of.in_nit;
    return {{"transport_stream_id", described.transport_stream_id},
            {"original_network_id", described.original_network_id},
            {"services", list(of.services, listed)},
            {"delivery", described.delivered ? described.delivered->fields : json::object()},
            {"lcn", list(described.numbers, [](const channel_number &number) -> json {
                 return {{"service_id", number.service_id},
                         {"lcn", number.lcn},
                         {"visible", number.visible}};
             })}};
}

json one_network(const network &of)
{
    json told{{"network_id", of.network_id}, {"actual", of.actual}};
    set_name(told, of.name);
    told["transport_streams"] = list(of.streams, stream);
    return told;
}

json one_service(const service &of)
{
    json told{{"original_network_id", of.original_network_id},
              {"transport_stream_id", of.transport_stream_id},
              {"service_id", of.service_id},
              {"actual", of.actual}};
    set_name(told, of.name);
    told["service_type"] = value(of.service_type);
    told["running_status"] = value(of.running_status);
    told["free_CA_mode"] = value(of.free_ca_mode);
    told["EIT_schedule_flag"] = value(of.eit_schedule);
    told["EIT_present_following_flag"] = value(of.eit_present_following);
    return told;
}

json one_program(const program &of)
{
    return {{"program_number", of.program_number},
            {"PMT_PID", of.pmt_pid},
            {"PCR_PID", value(of.pcr_pid)},
            {"video_PID", value(of.video_pid)},
            {"elementary_PIDs", of.elementary_pids},
            {"audio", list(of.audio,
                           [](const audio_stream &audio) -> json {
                               return {{"PID", audio.pid},
                                       {"has_lang", audio.has_lang},
                                       {"is_ac3", audio.is_ac3}};
                           })},
            {"teletext_PIDs", of.teletext_pids},
            {"subtitle_PIDs", of.subtitle_pids},
            {"CA", list(of.ca, [](const ca_system &ca) -> json {
                 return {{"CA_system_ID", ca.system_id}, {"CA_PID", ca.pid}};
             })}};
}

json one_bouquet(const bouquet &of)
{
    json told{{"bouquet_id", of.bouquet_id}};
    set_name(told, of.name);
    told["services"] = list(of.services, [](const bouquet_service &entry) -> json {
        return {{"transport_stream_id", entry.transport_stream_id},
                {"original_network_id", entry.original_network_id},
                {"service_id", entry.listed.service_id},
                {"service_type", entry.listed.service_type}};
    });
    return told;
}

} // namespace

std::string json_report(const multiplex &found, const std::string &input, bool complete)
{
    const json told{{"schema", "orva-si/1"},
                    {"input", input},
                    {"complete", complete},
                    {"transport_stream_id", value(found.transport_stream_id)},
                    {"original_network_id", value(found.original_network_id)},
                    {"network_id", value(found.network_id)},
                    {"networks", list(found.networks, one_network)},
                    {"services", list(found.services, one_service)},
                    {"programs", list(found.programs, one_program)},
                    {"bouquets", list(found.bouquets, one_bouquet)}};
    return told.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

} // namespace tool
