// SPDX-License-Identifier: LGPL-2.1-or-later
#include "watch_news.h"

#include <algorithm>
#include <ctime>

#include "collect.h"
#include "dvb_text.h"
#include "event_outline.h"
#include "json_values.h"
#include "language.h"
#include "orva_si_bytes.h"
#include "report_words.h"
#include "store_walk.h"
#include "time_words.h"

namespace tool {
namespace {

enum si_table : std::uint8_t { cat_table = 0x01, bat_table = 0x4A };

// table_id and version_number of the stored table of that extension, of the first of the kinds that
// there is.
void add_version(std::initializer_list<std::uint8_t> kinds, std::optional<std::uint16_t> extension,
                 news_item &item)
{
    constexpr std::uint16_t shortest = 8; // up to last_section_number
    const store_lock held;
    for (const std::uint8_t kind : kinds) {
        std::optional<std::uint8_t> version;
        each_element<SiTable>(Orva_Si_GetTableList(), [&](const SiTable &table) {
            if (table.table_id != kind || table.ext != extension.value_or(table.ext))
                return;
            each_element<SiSection>(table.psect_list, [&](const SiSection &stored) {
                if (stored.section != nullptr && stored.sect_len >= shortest)
                    version = si::version_of(stored.section[5]);
            });
        });
        if (version) {
            item.ids.emplace_back("table_id", kind);
            item.ids.emplace_back("version_number", *version);
            return;
        }
    }
}

// The section of events that a notification is about; none when it was not stored.
std::optional<section_outline> section_of(const SiEitNotify &of)
{
    const SiEitRequest service{of.transport_stream_id, of.original_network_id, of.service_id};
    std::optional<section_outline> found;
    for (section_outline &section : outline_of(service)) {
        const bool same_kind = is_present_following(section.table_id)
                                   ? is_present_following(of.table_id)
                                   : (section.table_id & 0x0F) == (of.table_id & 0x0F) &&
                                         !is_present_following(of.table_id);
        if (same_kind && section.section_number == of.section_number)
            found = std::move(section);
    }
    return found;
}

bool has_start(const section_outline &in, std::uint16_t event_id)
{
    return std::ranges::any_of(in.events, [event_id](const event_outline &event) {
        return event.event_id == event_id && event.has_start;
    });
}

std::string name_in(const options &chosen, const std::optional<SiDvbString> &stored)
{
    return stored ? one_line(label_of(field_of(*stored), chosen.charset).text) : "";
}

template <class Ask>
std::string asked_name(const options &chosen, Ask ask)
{
    return name_in(chosen, value_of<SiDvbString>(ask));
}

std::string service_name(const options &chosen, std::uint16_t stream, std::uint16_t service)
{
    return asked_name(
        chosen, [&](SiDvbString *text) { return Orva_Si_GetServName(stream, service, text); });
}

const char *word(change::kind how)
{
    constexpr std::array words{"new", "changed", "gone"};
    return words[static_cast<std::size_t>(how)];
}

std::string change_text(const change &of, bool events)
{
    std::string text;
    if (of.start)
        text = day_text(*of.start) + " " + clock_text(*of.start);
    else if (!events || of.name.empty())
        text = std::to_string(of.id);
    if (!of.name.empty())
        text += (text.empty() ? "\"" : " \"") + of.name + "\"";
    return text;
}

} // namespace

std::string news_text(const news_item &of)
{
    std::string text = second_text(of.time) + "  " + of.table;
    for (const auto &[name, number] : of.ids)
        text += " " + name + " " + (name == "table_id" ? hex(number, 2) : std::to_string(number));
    if (!of.name.empty())
        text += " \"" + of.name + "\"";
    if (of.utc)
        text += " " + utc_text(*of.utc);
    for (const change::kind how : {change::added, change::changed, change::removed}) {
        std::vector<std::string> parts;
        for (const change &one : of.changes)
            if (one.how == how)
                parts.push_back(change_text(one, of.table == "EIT"));
        if (!parts.empty())
            text += std::string{"; "} + word(how) + ": " + joined(parts);
    }
    return text + '\n';
}

std::string news_json(const news_item &of)
{
    json told{{"schema", "orva-si/1"}, {"time", utc_text(of.time)}, {"table", of.table}};
    for (const auto &[name, number] : of.ids)
        told[name] = number;
    if (!of.name.empty())
        told["name"] = of.name;
    if (of.utc)
        told["UTC_time"] = utc_text(*of.utc);
    told["changes"] = array_of(of.changes, [&](const change &one) {
        json part{{"change", word(one.how)}, {"id", one.id}, {"name", one.name}};
        if (of.table == "EIT")
            part["start"] = one.start ? json(utc_text(*one.start)) : json{};
        return part;
    });
    return told.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
}

// whole: what is not there now has gone.
void news_reader::compare(contents &before, const std::vector<described> &now, bool whole,
                          news_item &item)
{
    contents left = before;
    for (const described &one : now) {
        left.erase(one.id);
        const auto [known, fresh] = before.try_emplace(one.id, one.all);
        if (!fresh && known->second == one.all)
            continue;
        known->second = one.all;
        item.changes.push_back(
            {fresh ? change::added : change::changed, one.id, one.name, one.start});
    }
    for (const auto &[id, all] : left) {
        if (!whole)
            break;
        before.erase(id);
        item.changes.push_back({change::removed, id, "", {}});
    }
}

void news_reader::read_pat(news_item &item)
{
    add_version({pat_table}, {}, item);
    if (const auto stream = value_of<std::uint16_t>(Orva_Si_GetPatTsId))
        item.ids.emplace_back("transport_stream_id", *stream);
    std::vector<described> now;
    for (const std::uint16_t number : list_of<std::uint16_t, std::int32_t>(Orva_Si_GetPatProgList))
        now.push_back({number, "", ""});
    compare(programs, now, true, item);
}

void news_reader::read_network(std::uint32_t network_id, news_item &item)
{
    add_version({nit_actual_table, nit_other_table}, static_cast<std::uint16_t>(network_id), item);
    item.ids.emplace_back("network_id", network_id);
    item.name = asked_name(
        chosen, [&](SiDvbString *text) { return Orva_Si_GetNetworkName(network_id, text); });
    std::vector<described> now;
    for (const std::uint16_t stream :
         list_of<std::uint16_t>([&](std::uint16_t *list, std::uint32_t *count) {
             return Orva_Si_GetTsGrpByNetworkId(network_id, list, count);
         }))
        now.push_back({stream, "", ""});
    compare(networks[network_id], now, true, item);
}

void news_reader::read_services(std::uint16_t stream, news_item &item)
{
    add_version({sdt_actual_table, sdt_other_table}, stream, item);
    item.ids.emplace_back("transport_stream_id", stream);
    std::vector<described> now;
    for (const std::uint16_t id :
         list_of<std::uint16_t>([&](std::uint16_t *list, std::uint32_t *count) {
             return Orva_Si_GetServIdList(stream, list, count);
         })) {
        const std::string name = service_name(chosen, stream, id);
        const auto running = value_of<std::uint8_t>(
            [&](std::uint8_t *status) { return Orva_Si_GetServRunningStatus(stream, id, status); });
        const auto scrambled = value_of<std::uint8_t>(
            [&](std::uint8_t *mode) { return Orva_Si_GetServFreeCaMode(stream, id, mode); });
        now.push_back({id, name,
                       name + '\0' + std::to_string(running.value_or(0)) + '\0' +
                           std::to_string(scrambled.value_or(0))});
    }
    compare(services[stream], now, true, item);
}

news_reader::described news_reader::describe_event(const SiEitNotify &of,
                                                   std::uint16_t event_id) const
{
    const std::uint8_t banner = is_present_following(of.table_id) ? 1 : 0;
    const std::uint32_t onid = of.original_network_id;
    const std::uint32_t ts = of.transport_stream_id;
    const std::uint32_t sid = of.service_id;
    described told{event_id, "", ""};
    told.start = value_of<std::uint32_t>([&](std::uint32_t *seconds) {
        return Orva_Si_GetEvtStartUTCTime(onid, ts, sid, event_id, seconds, banner);
    });
    const auto duration = value_of<std::uint32_t>([&](std::uint32_t *seconds) {
        return Orva_Si_GetEvtDuringTime(onid, ts, sid, event_id, seconds, banner);
    });
    told.all =
        std::to_string(told.start.value_or(0)) + '\0' + std::to_string(duration.value_or(0)) + '\0';
    std::vector<std::string> codes;
    std::vector<std::string> names;
    const auto languages = list_of<std::uint32_t>([&](std::uint32_t *list, std::uint32_t *count) {
        return Orva_Si_GetEvtNameLangList(onid, ts, sid, event_id, list, count, banner);
    });
    for (const std::uint32_t language : languages) {
        codes.push_back(language_code(language));
        names.push_back(asked_name(chosen, [&](SiDvbString *text) {
            return Orva_Si_GetEvtNameByID(onid, ts, sid, event_id, text, language, banner);
        }));
        told.all += codes.back() + names.back() + '\0';
    }
    if (!names.empty())
        told.name = names[best_language(codes, chosen.languages)];
    return told;
}

void news_reader::read_events(const SiEitNotify &of, news_item &item)
{
    const bool banner = is_present_following(of.table_id);
    item.ids = {{"table_id", of.table_id}};
    const auto section = section_of(of);
    if (section)
        item.ids.emplace_back("version_number", section->version);
    item.ids.insert(item.ids.end(), {{"section_number", of.section_number},
                                     {"original_network_id", of.original_network_id},
                                     {"transport_stream_id", of.transport_stream_id},
                                     {"service_id", of.service_id}});
    item.name = service_name(chosen, of.transport_stream_id, of.service_id);
    std::vector<described> now;
    for (const std::uint16_t id :
         list_of<std::uint16_t>([&](std::uint16_t *list, std::uint32_t *count) {
             return Orva_Si_GetOneSectEvtIds(of.original_network_id, of.transport_stream_id,
                                             of.service_id, of.table_id, of.section_number, list,
                                             count);
         })) {
        now.push_back(describe_event(of, id));
        if (section && !has_start(*section, id))
            now.back().start.reset();
    }
    compare(events[{of.original_network_id, of.transport_stream_id, of.service_id, banner}], now,
            false, item);
}

news_item news_reader::read(std::uint32_t reason, SiWord data, std::uint32_t value)
{
    news_item item;
    item.time = static_cast<std::uint32_t>(std::time(nullptr));
    const auto number = static_cast<std::uint32_t>(data);
    switch (reason) {
    case SI_REASON_PAT:
        item.table = "PAT";
        read_pat(item);
        break;
    case SI_REASON_CAT:
        item.table = "CAT";
        add_version({cat_table}, {}, item);
        break;
    case SI_REASON_NIT:
        item.table = "NIT";
        read_network(number, item);
        break;
    case SI_REASON_SDT:
        item.table = "SDT";
        read_services(static_cast<std::uint16_t>(number), item);
        break;
    case SI_REASON_BAT:
        item.table = "BAT";
        add_version({bat_table}, static_cast<std::uint16_t>(number), item);
        item.ids.emplace_back("bouquet_id", number);
        item.name = asked_name(
            chosen, [&](SiDvbString *text) { return Orva_Si_GetBouquetNameById(number, text); });
        break;
    case SI_REASON_PMT: {
        const auto &pmt = *reinterpret_cast<const SiPmtNotify *>(data);
        item.table = "PMT";
        add_version({pmt_table}, pmt.program_number, item);
        item.ids.emplace_back("program_number", pmt.program_number);
        break;
    }
    case SI_REASON_EIT_PRESENT_FOLLOWING:
    case SI_REASON_EIT_SCHEDULE_CHANGED:
    case SI_REASON_EIT_SCHEDULE_NEW:
        item.table = "EIT";
        read_events(*reinterpret_cast<const SiEitNotify *>(data), item);
        break;
    case SI_REASON_TIME_FROM_TDT:
    case SI_REASON_TIME_FROM_TOT:
        item.table = reason == SI_REASON_TIME_FROM_TDT ? "TDT" : "TOT";
        item.utc = value;
        break;
    default:
        item.table = "other";
        item.ids.emplace_back("table_id_extension", number);
        break;
    }
    return item;
}

} // namespace tool
