// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "layout.h"
#include "report.h"
#include "report_words.h"

namespace tool {
namespace {

struct type_name {
    std::uint8_t type;
    const char *name;
};

constexpr type_name service_types[] = {
    {0x01, "TV"},           {0x02, "radio"},        {0x03, "teletext"},
    {0x04, "NVOD"},         {0x05, "NVOD shifted"}, {0x06, "mosaic"},
    {0x07, "FM radio"},     {0x08, "SRM"},          {0x0A, "radio AAC"},
    {0x0B, "mosaic SD"},    {0x0C, "data"},         {0x0D, "CI"},
    {0x0E, "RCS map"},      {0x0F, "RCS FLS"},      {0x10, "MHP"},
    {0x11, "TV HD MPEG-2"}, {0x16, "TV SD"},        {0x17, "NVOD SD shift"},
    {0x18, "NVOD SD"},      {0x19, "TV HD"},        {0x1A, "NVOD HD shift"},
    {0x1B, "NVOD HD"},      {0x1C, "TV HD 3D"},     {0x1D, "NVOD 3D shift"},
    {0x1E, "NVOD 3D"},      {0x1F, "TV HEVC"},      {0x20, "TV UHD"}};

// ---- networks

std::string network_text(const network &of, std::size_t width, bool verbose)
{
    table_layout table{
        {{"TS", true}, {"ONID", true}, {"Services", true}, {"Delivery", false, true}}, {}};
    for (const transport_stream &stream : of.streams)
        table.rows.push_back({std::to_string(stream.in_nit.transport_stream_id),
                              std::to_string(stream.in_nit.original_network_id),
                              std::to_string(stream.services.size()),
                              stream.in_nit.delivered ? stream.in_nit.delivered->summary : ""});
    const std::string title = "Network " + std::to_string(of.network_id) + quoted(of.name) +
                              (of.actual ? "" : " (other)");
    return titled(title, width, table) + (verbose ? network_details(of, width) : "");
}

// ---- services

std::string eit_flags(const service &of)
{
    std::vector<std::string> flags;
    if (of.eit_present_following.value_or(0) != 0)
        flags.emplace_back("p/f");
    if (of.eit_schedule.value_or(0) != 0)
        flags.emplace_back("sched");
    return flags.empty() ? "-" : joined(flags, "+");
}

// The service of an NVOD reference, which names the services that show the same at other times.
const service *reference_of(const service &of, const multiplex &in)
{
    const auto is_reference = [&](const service &other) {
        return other.service_id == of.time_shifted_of &&
               std::any_of(other.nvod_references.begin(), other.nvod_references.end(),
                           [&](const service_reference &to) {
                               return to.service_id == of.service_id &&
                                      to.transport_stream_id == of.transport_stream_id &&
                                      to.original_network_id == of.original_network_id;
                           });
    };
    const auto found = std::find_if(in.services.begin(), in.services.end(), is_reference);
    return found != in.services.end() ? &*found : nullptr;
}

// A time-shifted service has no name of its own (EN 300 468, 6.2.45).
std::string service_name(const service &of, const multiplex &in)
{
    if (!of.time_shifted_of || of.name)
        return shown(of.name);
    const service *reference = reference_of(of, in);
    return "(" + std::to_string(*of.time_shifted_of) +
           (reference != nullptr ? quoted(reference->name) : "") + " at another time)";
}

std::string type_text(const service &of)
{
    if (of.service_type)
        return service_type_name(*of.service_type);
    return of.time_shifted_of ? "NVOD shifted" : "";
}

std::vector<std::string> service_row(const service &of, const multiplex &in, bool verbose)
{
    const channel_number *number = number_of(in, of);
    return {number != nullptr ? std::to_string(number->lcn) + (number->visible ? "" : " hidden")
                              : "",
            std::to_string(of.service_id),
            type_text(of),
            of.free_ca_mode.value_or(0) != 0 ? "CA" : "free",
            eit_flags(of),
            service_name(of, in),
            verbose ? of.provider : ""};
}

table_layout service_table()
{
    return {{{"LCN", true},
             {"SID", true},
             {"Type"},
             {"Access"},
             {"EIT"},
             {"Name", false, true},
             {"Provider", false, true}},
            {}};
}

bool same_stream(const service &a, const service &b)
{
    return a.transport_stream_id == b.transport_stream_id &&
           a.original_network_id == b.original_network_id;
}

// The streams in the order in which their services come, the tuned one first.
std::vector<const service *> first_of_streams(const multiplex &in)
{
    std::vector<const service *> firsts;
    for (const service &s : in.services)
        if (std::none_of(firsts.begin(), firsts.end(),
                         [&](const service *first) { return same_stream(*first, s); }))
            firsts.push_back(&s);
    std::stable_partition(firsts.begin(), firsts.end(), [](const service *s) { return s->actual; });
    return firsts;
}

std::string services_text(const multiplex &in, std::size_t width, bool verbose)
{
    std::string text;
    for (const service *first : first_of_streams(in)) {
        table_layout table = service_table();
        std::vector<const service *> own;
        for (const service &s : in.services)
            if (same_stream(s, *first)) {
                own.push_back(&s);
                table.rows.push_back(service_row(s, in, verbose));
            }
        const std::string title =
            "Services of transport stream " + std::to_string(first->transport_stream_id) +
            ", original network " + std::to_string(first->original_network_id) +
            (first->actual ? "" : " (other)");
        text += titled(title, width, table) + (verbose ? service_details(own, width) : "") + '\n';
    }
    return text;
}

// ---- programs

std::string stream_text(const elementary_stream &of, bool with_format)
{
    std::vector<std::string> parts{std::to_string(of.pid)};
    if (with_format && !of.format.empty())
        parts.push_back(of.format);
    if (!of.languages.empty())
        parts.push_back(joined(of.languages, "/"));
    return joined(parts, " ");
}

std::string streams_text(const program &of, stream_kind kind)
{
    const bool with_format = kind != stream_kind::teletext && kind != stream_kind::subtitles;
    std::vector<std::string> parts;
    for (const elementary_stream &stream : of.streams)
        if (stream.kind == kind)
            parts.push_back(stream_text(stream, with_format));
    return joined(parts);
}

std::string ca_text(const program &of)
{
    std::vector<std::string> systems;
    for (const ca_system &ca : of.ca) {
        const std::string system = hex(ca.system_id, 4);
        if (std::find(systems.begin(), systems.end(), system) == systems.end())
            systems.push_back(system);
    }
    return joined(systems);
}

std::string programs_text(const multiplex &in, std::size_t width, bool verbose)
{
    table_layout table{{{"Program", true},
                        {"PMT", true},
                        {"PCR", true},
                        {"Video", false, true},
                        {"Audio", false, true},
                        {"Teletext", false, true},
                        {"Subtitles", false, true},
                        {"Other", false, true},
                        {"CA", false, true}},
                       {}};
    for (const program &p : in.programs)
        table.rows.push_back(
            {std::to_string(p.program_number), std::to_string(p.pmt_pid),
             p.pcr_pid ? std::to_string(*p.pcr_pid) : "no PMT", streams_text(p, stream_kind::video),
             streams_text(p, stream_kind::audio), streams_text(p, stream_kind::teletext),
             streams_text(p, stream_kind::subtitles),
             verbose ? streams_text(p, stream_kind::other) : "", ca_text(p)});
    if (table.rows.empty())
        return "";
    return titled("Programs, with the PIDs of their streams", width, table) +
           (verbose ? program_details(in.programs, width) : "") + '\n';
}

// ---- bouquets

std::string bouquets_text(const multiplex &in, std::size_t width)
{
    table_layout table{{{"Bouquet", true}, {"Services", true}, {"Name", false, true}}, {}};
    for (const bouquet &b : in.bouquets)
        table.rows.push_back(
            {std::to_string(b.bouquet_id), std::to_string(b.services.size()), shown(b.name)});
    return table.rows.empty() ? "" : titled("Bouquets", width, table) + '\n';
}

std::string heading(const multiplex &in)
{
    std::vector<std::string> parts;
    if (in.transport_stream_id)
        parts.push_back("Transport stream " + std::to_string(*in.transport_stream_id));
    if (in.original_network_id)
        parts.push_back("original network " + std::to_string(*in.original_network_id));
    if (in.network_id)
        parts.push_back("network " + std::to_string(*in.network_id));
    return parts.empty() ? "" : joined(parts) + "\n\n";
}

} // namespace

std::string service_type_name(std::uint8_t type)
{
    for (const type_name &known : service_types)
        if (known.type == type)
            return known.name;
    return hex(type, 2);
}

std::string text_report(const multiplex &found, std::size_t width, bool verbose)
{
    std::string text = heading(found);
    for (const bool actual : {true, false})
        for (const network &n : found.networks)
            if (n.actual == actual)
                text += network_text(n, width, verbose) + '\n';
    text += services_text(found, width, verbose);
    text += programs_text(found, width, verbose);
    text += bouquets_text(found, width);
    text += updates_text(found.updates, width);
    if (text.ends_with("\n\n"))
        text.pop_back();
    return text;
}

} // namespace tool
