// SPDX-License-Identifier: LGPL-2.1-or-later
// The long part of a report for people: one line for each fact that the tables have no room for.
#include <span>

#include "report_words.h"

namespace tool {
namespace {

// What a number of a standard means; none for others.
struct meaning {
    unsigned value;
    const char *name;
};

std::string meaning_of(std::span<const meaning> known, unsigned value, int digits = 2)
{
    for (const meaning &m : known)
        if (m.value == value)
            return m.name;
    return hex(value, digits);
}

// EN 300 468 table 58.
constexpr meaning linkage_types[] = {{0x01, "information service"},
                                     {0x02, "EPG service"},
                                     {0x03, "CA replacement service"},
                                     {0x04, "complete SI of network or bouquet"},
                                     {0x05, "service replacement"},
                                     {0x06, "data broadcast"},
                                     {0x07, "RCS map"},
                                     {0x08, "mobile hand-over"},
                                     {0x09, "software update"},
                                     {0x0A, "software update BAT or NIT"},
                                     {0x0B, "IP/MAC notification"},
                                     {0x0C, "IP/MAC notification BAT or NIT"}};

// ETSI TS 101 162.
constexpr meaning data_broadcast_ids[] = {
    {0x0001, "data pipe"},           {0x0002, "asynchronous data stream"},
    {0x0003, "synchronous stream"},  {0x0004, "synchronised stream"},
    {0x0005, "multiprotocol"},       {0x0006, "data carousel"},
    {0x0007, "object carousel"},     {0x000A, "software update"},
    {0x000B, "IP/MAC notification"}, {0x00F0, "MHP object carousel"},
    {0x00F1, "MHP multiprotocol"},   {0x0106, "MHEG-5"},
    {0x0123, "HbbTV carousel"}};

// EN 300 468 table 100.
constexpr meaning teletext_types[] = {{1, "initial page"},
                                      {2, "subtitles"},
                                      {3, "additional information"},
                                      {4, "programme schedule"},
                                      {5, "subtitles for the hard of hearing"}};

// ISO/IEC 13818-1 table 2-53.
constexpr meaning audio_types[] = {
    {1, "clean effects"}, {2, "for the hard of hearing"}, {3, "commentary for the blind"}};

// ---- facts of several tables

// A name before facts; nothing without facts.
class fact_list {
public:
    // Adds the facts below a subject, which is said once.
    void add(const std::string &subject, const std::vector<std::string> &facts)
    {
        bool first = true;
        for (const std::string &fact : facts) {
            table.rows.push_back({first ? subject : "", fact});
            first = false;
        }
    }
    std::string text(const std::string &title, std::size_t width)
    {
        if (table.rows.empty())
            return "";
        table.columns[0].title = title;
        return laid_out(table, width);
    }

private:
    table_layout table{{{"", true}, {"Details", false, true}}, {}};
};

std::string place(std::uint16_t ts, std::uint16_t onid, std::uint16_t sid)
{
    return (sid != 0 ? "service " + std::to_string(sid) + " of " : std::string{}) +
           "transport stream " + std::to_string(ts) + ", original network " + std::to_string(onid);
}

std::string oui_text(std::uint32_t oui)
{
    return hex(oui, 6).substr(2);
}

std::vector<std::string> texts_of_ouis(const linkage &link)
{
    std::vector<std::string> texts;
    for (const std::uint32_t oui : link.ouis)
        texts.push_back(oui_text(oui));
    return texts;
}

void append_linkages(std::vector<std::string> &facts, const std::vector<linkage> &linkages)
{
    for (const linkage &link : linkages) {
        const std::string ouis = joined(texts_of_ouis(link));
        facts.push_back("linkage " + meaning_of(linkage_types, link.linkage_type) + ": " +
                        place(link.transport_stream_id, link.original_network_id, link.service_id) +
                        (ouis.empty() ? "" : ", OUI " + ouis));
    }
}

// "GBR 1.2.3"
std::string region_text(const region &of)
{
    std::string text = of.country;
    if (of.depth >= 1)
        text += " " + std::to_string(of.primary);
    if (of.depth >= 2)
        text += "." + std::to_string(of.secondary);
    if (of.depth >= 3)
        text += "." + std::to_string(of.tertiary);
    return text;
}

// One fact out of many items; none without items.
template <class Items, class Tell>
void append_joined(std::vector<std::string> &facts, const std::string &what, const Items &items,
                   Tell tell)
{
    std::vector<std::string> parts;
    for (const auto &item : items)
        parts.push_back(tell(item));
    if (!parts.empty())
        facts.push_back(what + " " + joined(parts));
}

std::string language_name_text(const language_name &of)
{
    const std::string provider = quoted(of.provider);
    return of.language + quoted(of.name) + (provider.empty() ? "" : " by" + provider);
}

// ---- transport streams

std::string frequency_of(const frequency &of)
{
    return frequency_text(of.hertz);
}

std::vector<std::string> stream_facts(const transport_stream &of)
{
    std::vector<std::string> facts;
    append_joined(facts, "frequencies", of.frequencies, frequency_of);
    append_joined(facts, "target regions", of.regions, region_text);
    for (std::size_t i = 0; i < of.in_nit.lists.size() && i < of.list_names.size(); ++i)
        facts.push_back("channel list " + std::to_string(of.in_nit.lists[i].id) +
                        quoted(of.list_names[i]) + " " + of.in_nit.lists[i].country);
    return facts;
}

// ---- services

std::vector<std::string> service_facts(const service &of)
{
    std::vector<std::string> facts;
    append_joined(facts, "names", of.names, language_name_text);
    append_joined(facts, "available in cells", of.cells, [](const cell_availability &cell) {
        return (cell.available ? "" : "not ") + std::to_string(cell.cell_id);
    });
    for (const data_broadcast &data : of.data_broadcasts)
        facts.push_back("data broadcast " + meaning_of(data_broadcast_ids, data.id, 4) +
                        ", component " + std::to_string(data.component_tag) +
                        (data.language.empty() ? "" : ", " + data.language));
    append_linkages(facts, of.linkages);
    if (of.moved_to)
        facts.push_back("moves to " + place(of.moved_to->transport_stream_id,
                                            of.moved_to->original_network_id,
                                            of.moved_to->service_id));
    append_joined(facts, "target regions", of.regions, region_text);
    append_joined(facts, "shifted in time by services", of.nvod_references,
                  [](const service_reference &to) {
                      return std::to_string(to.service_id) + " of transport stream " +
                             std::to_string(to.transport_stream_id);
                  });
    return facts;
}

// ---- programs

// "100": the magazine and the page as viewers key them in.
std::string page_text(const teletext_page &page)
{
    const unsigned magazine = page.magazine != 0 ? page.magazine : 8;
    return std::to_string(magazine) + hex(page.page, 2).substr(2);
}

std::vector<std::string> program_facts(const program &of)
{
    std::vector<std::string> facts;
    for (const audio_stream &audio : of.audio)
        for (const audio_language &said : audio.languages)
            if (said.audio_type != 0)
                facts.push_back("audio " + std::to_string(audio.pid) + " " + said.language + " " +
                                meaning_of(audio_types, said.audio_type));
    for (const teletext_page &page : of.teletext)
        facts.push_back("teletext " + std::to_string(page.pid) + " " + page.language + " " +
                        meaning_of(teletext_types, page.type) + " " + page_text(page));
    for (const subtitling &entry : of.subtitles)
        facts.push_back("subtitles " + std::to_string(entry.pid) + " " + entry.language + " type " +
                        hex(entry.type, 2) + ", pages " +
                        std::to_string(entry.composition_page_id) + " and " +
                        std::to_string(entry.ancillary_page_id));
    for (const elementary_stream &stream : of.streams)
        for (const std::uint16_t id : stream.data_broadcast_ids)
            facts.push_back("data broadcast " + std::to_string(stream.pid) + " " +
                            meaning_of(data_broadcast_ids, id, 4));
    append_joined(facts, "CA", of.ca, [](const ca_system &ca) {
        return hex(ca.system_id, 4) + " on " + std::to_string(ca.pid);
    });
    return facts;
}

} // namespace

std::string network_details(const network &of, std::size_t width)
{
    std::vector<std::string> own;
    append_joined(own, "names", of.names, language_name_text);
    append_linkages(own, of.linkages);
    append_joined(own, "target regions", of.regions, region_text);
    append_joined(own, "region names", of.region_names,
                  [](const label &name) { return shown(name); });
    fact_list facts;
    facts.add("network", own);
    for (const transport_stream &stream : of.streams)
        facts.add(std::to_string(stream.in_nit.transport_stream_id), stream_facts(stream));
    return facts.text("TS", width);
}

std::string service_details(const std::vector<const service *> &of, std::size_t width)
{
    fact_list facts;
    for (const service *one : of)
        facts.add(std::to_string(one->service_id), service_facts(*one));
    return facts.text("SID", width);
}

std::string program_details(const std::vector<program> &of, std::size_t width)
{
    fact_list facts;
    for (const program &one : of)
        facts.add(std::to_string(one.program_number), program_facts(one));
    return facts.text("Program", width);
}

std::string updates_text(const software_updates &of, std::size_t width)
{
    table_layout table{{{"Service", true},
                        {"TS", true},
                        {"ONID", true},
                        {"PIDs", false, true},
                        {"OUI", false, true}},
                       {}};
    const auto numbers = [](const std::vector<std::uint16_t> &pids) {
        std::vector<std::string> texts;
        for (const std::uint16_t pid : pids)
            texts.push_back(std::to_string(pid));
        return joined(texts);
    };
    for (const software_update_service &update : of.services)
        table.rows.push_back({std::to_string(update.to.service_id),
                              std::to_string(update.to.transport_stream_id),
                              std::to_string(update.to.original_network_id), numbers(update.pids),
                              joined(texts_of_ouis(update.to))});
    if (table.rows.empty() && of.pids.empty())
        return "";
    return titled("Software updates" +
                      (of.pids.empty() ? "" : ", streams on PIDs " + numbers(of.pids)),
                  width, table);
}

} // namespace tool
