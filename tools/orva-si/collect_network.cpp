// SPDX-License-Identifier: LGPL-2.1-or-later
// Networks and their transport streams, as the NITs describe them.
#include <algorithm>
#include <deque>
#include <map>
#include <tuple>
#include <utility>

#include "collect.h"
#include "language.h"

namespace tool {
namespace {

// ---- names in several languages

std::vector<language_name> names_of(const collecting &run, std::uint16_t network_id)
{
    std::vector<language_name> names;
    for (const std::uint32_t language : list_of<std::uint32_t>([=](auto *list, auto *count) {
             return Orva_Si_GetMultiNetworkNameLangList(network_id, list, count);
         }))
        if (const auto name = name_of(run, [=](SiDvbString *text) {
                return Orva_Si_GetMultiNetworkNameByLangId(network_id, language, text);
            }))
            names.push_back({language_code(language), *name});
    return names;
}

// ---- transport streams

// A list of the library that names transport streams by their transport_stream_id alone: each
// takes what comes next under its id.
template <class T>
class queue_by_stream {
public:
    queue_by_stream() = default;
    explicit queue_by_stream(const std::vector<T> &list)
    {
        for (const T &record : list)
            waiting[record.transport_stream_id].push_back(record);
    }

    std::optional<T> next(std::uint16_t ts)
    {
        const auto found = waiting.find(ts);
        if (found == waiting.end() || found->second.empty())
            return std::nullopt;
        const T record = found->second.front();
        found->second.pop_front();
        return record;
    }

private:
    std::map<std::uint16_t, std::deque<T>> waiting;
};

using listed_number = std::tuple<std::uint16_t, std::uint16_t, std::uint16_t, std::uint16_t, bool>;

// The transport streams of one network: the sections say their order and what they carry, the
// library what it holds of that.
class stream_questions {
public:
    stream_questions(const collecting &how, std::uint16_t id,
                     const std::vector<network_section> &sections)
        : run{how}, network_id{id}, ids{id_list()}
    {
        carried all;
        for (const network_section &part : sections)
            for (const network_stream &stream : part.streams)
                all.tags |= stream.carries.tags;
        if (all.has(satellite_delivery_tag))
            satellites = deliveries<SiSatelliteDelivery>(Orva_Si_GetSatelliteDeliveryList);
        if (all.has(cable_delivery_tag))
            cables = deliveries<SiCableDelivery>(Orva_Si_GetCableDeliveryList);
        if (all.has(terrestrial_delivery_tag))
            terrestrials = deliveries<SiTerrDelivery>(Orva_Si_GetTerrDeliveryList);
        if (all.has(logical_channel_tag))
            for (const std::uint32_t mode : {ten_bits, fourteen_bits})
                numbers[mode] = listed_numbers(mode);
    }

    // The stream with what the library says about it; none when it does not list it.
    std::optional<transport_stream> tell(network_stream described)
    {
        const auto listed = ids.find(described.transport_stream_id);
        if (listed == ids.end())
            return std::nullopt;
        ids.erase(listed);
        transport_stream stream{std::move(described), {}};
        const carried &carries = stream.in_nit.carries;
        set_delivery(stream.in_nit);
        if (carries.has(service_list_tag))
            stream.services = services(stream.in_nit);
        if (carries.has(frequency_list_tag))
            stream.frequencies = frequencies(stream.in_nit);
        if (carries.has(target_region_extension))
            stream.regions =
                each(list<SiTargetRegion>(stream.in_nit, Orva_Si_GetTsTargetRegionInfo), region_of);
        keep_numbers(stream.in_nit);
        stream.list_names = each(stream.in_nit.lists, [this](const channel_list &list) {
            return label_of(list.name, run.chosen.charset);
        });
        return stream;
    }

private:
    static constexpr std::uint32_t ten_bits = 0; // LCN modes of the library
    static constexpr std::uint32_t fourteen_bits = 1;

    std::multiset<std::uint16_t> id_list() const
    {
        const auto listed = list_of<std::uint16_t>([this](auto *list, auto *count) {
            return Orva_Si_GetTsGrpByNetworkId(network_id, list, count);
        });
        return {listed.begin(), listed.end()};
    }

    template <class T, class Getter>
    queue_by_stream<T> deliveries(Getter getter) const
    {
        return queue_by_stream<T>{list_of<T>(
            [&](T *list, std::uint32_t *count) { return getter(network_id, list, count); })};
    }

    // A list about one transport stream.
    template <class T, class Getter>
    std::vector<T> list(const network_stream &stream, Getter getter) const
    {
        return list_of<T>([&](T *items, std::uint32_t *count) {
            return getter(network_id, stream.transport_stream_id, stream.original_network_id, items,
                          count);
        });
    }

    template <class T>
    void set_delivery(network_stream &stream, descriptor_tag tag, queue_by_stream<T> &from) const
    {
        if (!stream.carries.has(tag))
            return;
        const auto coded = from.next(stream.transport_stream_id);
        if (coded && !stream.delivered)
            stream.delivered = delivery_of(*coded);
    }

    void set_delivery(network_stream &stream)
    {
        set_delivery(stream, satellite_delivery_tag, satellites);
        set_delivery(stream, cable_delivery_tag, cables);
        set_delivery(stream, terrestrial_delivery_tag, terrestrials);
        if (stream.delivered && stream.input)
            add_input_stream(*stream.delivered, *stream.input);
    }

    std::vector<listed_service> services(const network_stream &stream) const
    {
        return each(list<SiServiceListEntry>(stream, Orva_Si_GetServiceList),
                    [](const SiServiceListEntry &entry) -> listed_service {
                        return {entry.service_id, entry.service_type};
                    });
    }

    // The library lists the frequencies of all streams of that id, without their coding_type: the
    // section tells that, and which are those of this stream.
    std::vector<frequency> frequencies(const network_stream &stream) const
    {
        const auto coded = list_of<std::uint32_t>([&](auto *list, auto *count) {
            return Orva_Si_GetFrequencyListDescriptor(network_id, stream.transport_stream_id, list,
                                                      count);
        });
        std::multiset<std::uint32_t> listed{coded.begin(), coded.end()};
        std::vector<frequency> found;
        for (const frequency_list &list : stream.frequencies)
            for (const std::uint32_t value : list.frequencies)
                if (const auto known = listed.find(value); known != listed.end()) {
                    found.push_back({list.coding_type, listed_frequency(list.coding_type, value)});
                    listed.erase(known);
                }
        return found;
    }

    // ---- logical channel numbers: those under a specifier that was sent are the library's

    std::multiset<listed_number> listed_numbers(std::uint32_t mode) const
    {
        constexpr std::uint32_t any_specifier = 0;
        std::multiset<listed_number> all;
        for (const SiLcnInfo &entry : list_of<SiLcnInfo>([&](auto *list, auto *count) {
                 return Orva_Si_GetAllLCNInfo(network_id, any_specifier, mode, list, count);
             }))
            all.emplace(entry.transport_stream_id, entry.original_network_id, entry.serv_id,
                        entry.lcn, entry.visible_service_flag != 0);
        return all;
    }

    std::multiset<listed_number> nordig_numbers(const network_stream &stream,
                                                const channel_list &list) const
    {
        std::multiset<listed_number> all;
        for (const SiNordigLcn &entry : list_of<SiNordigLcn>([&](auto *items, auto *count) {
                 return Orva_Si_GetNordigV2LCNInfo(network_id, stream.transport_stream_id,
                                                   stream.original_network_id, nordig_specifier,
                                                   list.id, ten_bits, items, count);
             }))
            all.emplace(stream.transport_stream_id, stream.original_network_id, entry.serv_id,
                        entry.lcn, entry.visible_service_flag != 0);
        return all;
    }

    // The channel lists that the library lists: id, country and name.
    void keep_channel_lists(network_stream &stream) const
    {
        using key = std::tuple<std::uint8_t, std::string, std::vector<std::uint8_t>>;
        std::multiset<key> listed;
        for (const SiNordigChanList &list :
             list_of<SiNordigChanList>([&](auto *items, auto *count) {
                 return Orva_Si_GetNordigV2ChanlList(network_id, stream.transport_stream_id,
                                                     stream.original_network_id, nordig_specifier,
                                                     items, count);
             }))
            listed.emplace(list.channel_list_id, code_of(list.country_code), field_of(list.name));
        keep_listed(stream.lists, std::move(listed), [](const channel_list &list) {
            return key{list.id, list.country, list.name};
        });
    }

    void keep_numbers(network_stream &stream)
    {
        const auto sent = [](const auto &item) { return item.sent; };
        if (std::any_of(stream.lists.begin(), stream.lists.end(), sent))
            keep_channel_lists(stream);
        std::map<std::uint8_t, std::multiset<listed_number>> in_lists;
        for (const channel_list &list : stream.lists)
            if (list.sent)
                in_lists.try_emplace(list.id, nordig_numbers(stream, list));
        std::erase_if(stream.numbers, [&](const channel_number &number) {
            if (!number.sent)
                return false;
            auto &listed = number.list ? in_lists[*number.list]
                                       : numbers[number.bits == 10 ? ten_bits : fourteen_bits];
            const auto found = listed.find({stream.transport_stream_id, stream.original_network_id,
                                            number.service_id, number.lcn, number.visible});
            if (found == listed.end())
                return true;
            listed.erase(found);
            return false;
        });
    }

    const collecting &run;
    std::uint16_t network_id;
    std::multiset<std::uint16_t> ids;
    queue_by_stream<SiSatelliteDelivery> satellites;
    queue_by_stream<SiCableDelivery> cables;
    queue_by_stream<SiTerrDelivery> terrestrials;
    std::map<std::uint32_t, std::multiset<listed_number>> numbers; // by LCN mode
};

// ---- networks

// Where the linkage descriptors of a network lead: those of the first loop, then those of its
// streams.
std::vector<linkage> linkages_of(std::uint16_t network_id,
                                 const std::vector<network_section> &sections)
{
    using key = std::tuple<std::uint16_t, std::uint16_t, std::uint16_t, std::uint8_t>;
    constexpr std::uint32_t any_type = 0;
    std::vector<linkage> all;
    const auto append = [&](const std::vector<linkage> &some) {
        all.insert(all.end(), some.begin(), some.end());
    };
    for (const network_section &part : sections)
        append(part.linkages);
    for (const network_section &part : sections)
        for (const network_stream &stream : part.streams)
            append(stream.linkages);
    if (all.empty())
        return all;
    std::multiset<key> listed;
    for (const SiLinkage &link : list_of<SiLinkage>([&](auto *list, auto *count) {
             return Orva_Si_GetNitLinkageDesc(network_id, any_type, list, count);
         }))
        listed.emplace(link.transport_stream_id, link.original_network_id, link.service_id,
                       link.linkage_type);
    keep_listed(all, std::move(listed), [](const linkage &link) {
        return key{link.transport_stream_id, link.original_network_id, link.service_id,
                   link.linkage_type};
    });
    return all;
}

// The sections of a network. The store may have it as the actual one and, from before, as another.
std::vector<network_section> sections_of(std::uint16_t network_id,
                                         const std::vector<section> &sections,
                                         std::optional<std::uint32_t> specifier)
{
    const auto is_own = [=](const section &nit) { return nit.extension == network_id; };
    const bool has_actual = std::any_of(sections.begin(), sections.end(), [&](const section &nit) {
        return is_own(nit) && nit.table_id == nit_actual_table;
    });
    std::vector<network_section> own;
    for (const section &nit : sections)
        if (is_own(nit) && (!has_actual || nit.table_id == nit_actual_table))
            own.push_back(read_network(nit.data, specifier));
    return own;
}

void tell_first_loop(network &found, const collecting &run, const carried &carries)
{
    const std::uint16_t id = found.network_id;
    if (carries.has(multilingual_network_name_tag))
        found.names = names_of(run, id);
    if (carries.has(target_region_extension))
        found.regions = each(list_of<SiTargetRegion>([=](auto *list, auto *count) {
                                 return Orva_Si_GetGlobalTargetRegionInfo(id, list, count);
                             }),
                             region_of);
    if (carries.has(target_region_name_extension))
        found.region_names = each(list_of<SiDvbString>([=](auto *list, auto *count) {
                                      return Orva_Si_GetTargetRegionName(id, list, count);
                                  }),
                                  [&](const SiDvbString &name) { return run.text(name); });
}

network one_network(const collecting &run, std::uint16_t id, std::vector<network_section> sections)
{
    network found;
    found.network_id = id;
    found.name = name_of(run, [id](SiDvbString *text) { return Orva_Si_GetNetworkName(id, text); });
    carried first_loops;
    for (const network_section &part : sections) {
        first_loops.tags |= part.carries.tags;
        first_loops.extensions |= part.carries.extensions;
    }
    tell_first_loop(found, run, first_loops);
    found.linkages = linkages_of(id, sections);
    stream_questions ask{run, id, sections};
    for (network_section &part : sections)
        for (network_stream &stream : part.streams) {
            if (run.interrupted())
                return found;
            if (auto told = ask.tell(std::move(stream)))
                found.streams.push_back(std::move(*told));
        }
    return found;
}

} // namespace

std::vector<network> collect_networks(const collecting &run, std::optional<std::uint16_t> current)
{
    constexpr table_id nits[] = {nit_actual_table, nit_other_table};
    install_languages();
    const std::vector<section> sections = stored_sections(nits);
    std::vector<network> found;
    for (const std::uint16_t id :
         without_repeats(list_of<std::uint16_t>(Orva_Si_GetNitAllNetworkList))) {
        if (run.interrupted())
            break;
        found.push_back(one_network(run, id, sections_of(id, sections, run.chosen.pds)));
        found.back().actual = id == current;
    }
    std::stable_sort(found.begin(), found.end(), [](const network &a, const network &b) {
        return std::pair{!a.actual, a.network_id} < std::pair{!b.actual, b.network_id};
    });
    return found;
}

} // namespace tool
