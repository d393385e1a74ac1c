// SPDX-License-Identifier: LGPL-2.1-or-later
// Services, as the SDTs describe them.
#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "collect.h"
#include "dvb_text.h"

namespace tool {
namespace {

// A service as an SDT describes it, with the stream that the SDT is about.
struct described_in {
    table_id table;
    std::uint16_t transport_stream_id;
    described_service service;
};

// The tuned stream first, then by the ids of the streams; the services of one as broadcast.
std::vector<described_in> all_described()
{
    std::vector<described_in> all;
    for (const table_id sdt_table : {sdt_actual_table, sdt_other_table})
        for (const section &sdt : stored_sections({&sdt_table, 1}))
            for (described_service &service : described_services(sdt.data))
                all.push_back({sdt_table, sdt.extension, std::move(service)});
    std::stable_sort(all.begin(), all.end(), [](const auto &a, const auto &b) {
        const auto key = [](const described_in &d) {
            return std::tuple{d.table == sdt_other_table, d.service.original_network_id,
                              d.transport_stream_id};
        };
        return key(a) < key(b);
    });
    return all;
}

// Asks the questions about one service of a transport stream.
class service_questions {
public:
    service_questions(const collecting &how, const described_in &entry)
        : run{how}, described{entry.service}, ts{entry.transport_stream_id},
          sid{entry.service.service_id}
    {
    }

    // Name, type and the bits of the entry. Each answer costs the library a walk of the table: in
    // one with more services than any broadcast has, they are read where the entry stands.
    void tell_entry(service &found, bool by_asking) const
    {
        if (by_asking)
            ask_entry(found);
        else
            read_entry(found);
    }

    // Descriptors, where the entry has them.
    void tell_descriptors(service &found) const
    {
        if (has(multilingual_service_name_tag))
            found.names = each(list<SiMultiServiceName>(Orva_Si_GetMultiServNames),
                               [this](const SiMultiServiceName &n) { return name(n); });
        if (has(service_availability_tag))
            found.cells = each(list<SiServAvail>(Orva_Si_GetServAvailList), cell);
        if (has(data_broadcast_tag))
            found.data_broadcasts =
                each(list<SiDataBroadcastDesc>(Orva_Si_GetServDataBroadCastDesc), broadcast);
        if (has(service_move_tag))
            found.moved_to = new_place();
        if (described.carries.has(target_region_extension))
            found.regions = each(list<SiTargetRegion>(Orva_Si_GetSdtTargetRegionInfo), region_of);
        if (has(linkage_tag))
            found.linkages = linkages();
    }

private:
    bool has(descriptor_tag tag) const { return described.carries.has(tag); }

    template <class T, class Getter>
    std::optional<T> one(Getter getter) const
    {
        return value_of<T>([&](T *value) { return getter(ts, sid, value); });
    }

    template <class T, class Getter>
    std::vector<T> list(Getter getter) const
    {
        return list_of<T>(
            [&](T *items, std::uint32_t *count) { return getter(ts, sid, items, count); });
    }

    void ask_entry(service &found) const
    {
        found.running_status = one<std::uint8_t>(Orva_Si_GetServRunningStatus);
        found.free_ca_mode = one<std::uint8_t>(Orva_Si_GetServFreeCaMode);
        found.eit_schedule = one<std::uint8_t>(Orva_Si_GetServEitSchedFlag);
        found.eit_present_following = one<std::uint8_t>(Orva_Si_GetServEitPfFlag);
        if (!has(service_tag))
            return;
        found.service_type = one<std::uint8_t>(Orva_Si_GetServType);
        found.name =
            name_of(run, [&](SiDvbString *text) { return Orva_Si_GetServName(ts, sid, text); });
    }

    void read_entry(service &found) const
    {
        found.running_status = described.running_status;
        found.free_ca_mode = described.free_ca_mode;
        found.eit_schedule = described.eit_schedule;
        found.eit_present_following = described.eit_present_following;
        if (!described.service_type)
            return;
        found.service_type = described.service_type;
        found.name = label_of(described.name, run.chosen.charset);
    }

    language_name name(const SiMultiServiceName &coded) const
    {
        return {code_of(coded.lang), run.text(coded.service_name), run.text(coded.provider_name)};
    }

    static cell_availability cell(const SiServAvail &coded)
    {
        return {coded.cell_id, coded.avail_flag != 0};
    }

    static data_broadcast broadcast(const SiDataBroadcastDesc &coded)
    {
        return {coded.data_broadcast_id, coded.component_tag, code_of(coded.lang)};
    }

    std::optional<service_reference> new_place() const
    {
        const auto moved = one<SiServiceMove>(Orva_Si_GetServMoveDesc);
        if (!moved)
            return std::nullopt;
        return service_reference{moved->new_transport_stream_id, moved->new_original_network_id,
                                 moved->new_service_id};
    }

    // The library tells the first that it takes; the section has those that follow.
    std::vector<linkage> linkages() const
    {
        const auto first = one<SiLinkage>(Orva_Si_GetServLinkageDesc);
        if (!first)
            return {};
        const auto own = std::find_if(
            described.linkages.begin(), described.linkages.end(), [&](const linkage &link) {
                return std::tie(link.transport_stream_id, link.original_network_id, link.service_id,
                                link.linkage_type) ==
                       std::tie(first->transport_stream_id, first->original_network_id,
                                first->service_id, first->linkage_type);
            });
        return {own, described.linkages.end()};
    }

    const collecting &run;
    const described_service &described;
    std::uint16_t ts;
    std::uint16_t sid;
};

// The services that the library lists of a transport stream, as far as they are not taken yet.
struct wanted_services {
    explicit wanted_services(std::uint16_t ts)
        : ids{list_of<std::uint16_t>(
              [ts](auto *list, auto *count) { return Orva_Si_GetServIdList(ts, list, count); })},
          left{ids}
    {
    }

    std::vector<std::uint16_t> ids;
    id_set left;
};

} // namespace

// The services that the library lists, in the order of the SDTs.
std::vector<service> collect_services(const collecting &run)
{
    constexpr std::size_t most_asked = 256; // of one transport stream
    const auto actual = value_of<std::uint16_t>(Orva_Si_GetActTsId);
    const id_set actual_ids{list_of<std::uint16_t>(Orva_Si_GetActServIdList)};
    std::map<std::uint16_t, wanted_services> wanted;
    for (const std::uint16_t ts : list_of<std::uint16_t>(Orva_Si_GetSdtAllTsList)) {
        if (run.interrupted())
            return {};
        wanted.try_emplace(ts, ts);
    }
    std::vector<service> found;
    for (const described_in &entry : all_described()) {
        const std::uint16_t ts = entry.transport_stream_id;
        const std::uint16_t sid = entry.service.service_id;
        const auto listed = wanted.find(ts);
        if (run.interrupted())
            break;
        if (listed == wanted.end() || !listed->second.left.take(sid))
            continue;
        service one;
        // One transport_stream_id may stand for streams of several networks: the section tells.
        one.original_network_id = entry.service.original_network_id;
        one.transport_stream_id = ts;
        one.service_id = sid;
        one.actual = ts == actual && actual_ids.has(sid);
        one.provider = one_line(dvb_text(entry.service.provider, run.chosen.charset));
        one.time_shifted_of = entry.service.time_shifted_of;
        one.nvod_references = entry.service.nvod_references;
        const service_questions ask{run, entry};
        ask.tell_entry(one, listed->second.ids.size() <= most_asked);
        ask.tell_descriptors(one);
        found.push_back(std::move(one));
    }
    return found;
}

} // namespace tool
