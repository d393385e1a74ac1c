// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

#include "dvb_text.h"
#include "multiplex.h"
#include "orva_si.h"
#include "terminal.h"

namespace tool {
namespace {

constexpr std::uint32_t most_elements = 1u << 20; // of a list; no store holds as many

// The answer to a question for one value.
template <class T, class Ask>
std::optional<T> value_of(Ask ask)
{
    T value{};
    return ask(&value) == ORVA_SI_OK ? std::optional<T>{value} : std::nullopt;
}

// The answer to a question for a list, however long it is.
template <class T, class Count = std::uint32_t, class Ask>
std::vector<T> list_of(Ask ask)
{
    for (std::uint32_t capacity = 256;; capacity *= 4) {
        std::vector<T> list(capacity);
        Count count = static_cast<Count>(capacity);
        const std::uint32_t result = ask(list.data(), &count);
        if (result == ORVA_SI_ARRAY_FULL && capacity < most_elements)
            continue;
        list.resize(static_cast<std::size_t>(count));
        return list;
    }
}

class id_set {
public:
    explicit id_set(const std::vector<std::uint16_t> &ids = {}) : held(0x10000)
    {
        for (const std::uint16_t id : ids)
            held[id] = true;
    }
    bool has(std::uint16_t id) const { return held[id]; }
    // Takes an id out; whether it was there.
    bool take(std::uint16_t id)
    {
        const bool was = held[id];
        held[id] = false;
        return was;
    }

private:
    std::vector<bool> held;
};

std::vector<std::uint16_t> without_repeats(std::vector<std::uint16_t> ids)
{
    id_set left{ids};
    std::erase_if(ids, [&](std::uint16_t id) { return !left.take(id); });
    return ids;
}

// The field as it was broadcast: the library splits a selector off its text.
std::vector<std::uint8_t> field_of(const SiDvbString &stored)
{
    constexpr std::uint32_t last_selector = 0x1F;
    const bool selected = stored.charset_type >= 1 && stored.charset_type <= last_selector;
    const std::size_t length = std::min<std::size_t>(stored.length, SI_DVB_STRING_BYTES);
    std::vector<std::uint8_t> field(length + (selected ? 1 : 0));
    if (selected)
        field[0] = static_cast<std::uint8_t>(stored.charset_type);
    std::copy_n(stored.text, length, field.end() - static_cast<std::ptrdiff_t>(length));
    return field;
}

class collector {
public:
    explicit collector(const std::string &table) : default_table{table} {}

    multiplex all() const
    {
        multiplex found;
        found.transport_stream_id = value_of<std::uint16_t>(Orva_Si_GetPatTsId);
        if (!found.transport_stream_id)
            found.transport_stream_id = value_of<std::uint16_t>(Orva_Si_GetActTsId);
        found.original_network_id = value_of<std::uint16_t>(Orva_Si_GetActOnitId);
        found.network_id = value_of<std::uint16_t>(Orva_Si_GetCurrentNetworkId);
        found.networks = networks(found.network_id);
        found.services = services();
        found.programs = programs();
        found.bouquets = bouquets();
        return found;
    }

private:
    // A signal during the scan asks for what is there; one that comes now ends the asking itself.
    bool interrupted() const { return received_signal() != signal_before; }

    template <class Ask>
    std::optional<label> name(Ask ask) const
    {
        const auto stored = value_of<SiDvbString>(ask);
        return stored ? std::optional{label_of(field_of(*stored), default_table)} : std::nullopt;
    }

    std::vector<network> networks(std::optional<std::uint16_t> current) const
    {
        constexpr table_id nits[] = {nit_actual_table, nit_other_table};
        const std::vector<section> sections = stored_sections(nits);
        std::vector<network> found;
        for (const std::uint16_t id :
             without_repeats(list_of<std::uint16_t>(Orva_Si_GetNitAllNetworkList))) {
            if (interrupted())
                break;
            found.push_back({id, id == current, name([id](SiDvbString *text) {
                                 return Orva_Si_GetNetworkName(id, text);
                             }),
                             transport_streams(id, sections)});
        }
        std::stable_sort(found.begin(), found.end(), [](const network &a, const network &b) {
            return std::pair{!a.actual, a.network_id} < std::pair{!b.actual, b.network_id};
        });
        return found;
    }

    // The library lists the streams by one of their two ids, and by order of arrival: the other id
    // and the order of broadcast come from the sections.
    static std::vector<transport_stream> transport_streams(std::uint16_t network_id,
                                                           const std::vector<section> &sections)
    {
        auto listed = list_of<std::uint16_t>([=](auto *list, auto *count) {
            return Orva_Si_GetTsGrpByNetworkId(network_id, list, count);
        });
        const auto is_own = [=](const section &nit) { return nit.extension == network_id; };
        // The store may have a network as the actual one and, from before, as another.
        const bool has_actual =
            std::any_of(sections.begin(), sections.end(), [&](const section &nit) {
                return is_own(nit) && nit.table_id == nit_actual_table;
            });
        std::vector<transport_stream> found;
        for (const section &nit : sections) {
            if (!is_own(nit) || (has_actual && nit.table_id != nit_actual_table))
                continue;
            for (const network_stream &stream : network_streams(nit.data)) {
                const auto own =
                    std::find(listed.begin(), listed.end(), stream.transport_stream_id);
                if (own == listed.end())
                    continue;
                listed.erase(own);
                found.push_back({stream, listed_services(network_id, stream)});
            }
        }
        return found;
    }

    static std::vector<listed_service> listed_services(std::uint16_t network_id,
                                                       const network_stream &stream)
    {
        std::vector<listed_service> found;
        for (const SiServiceListEntry &entry :
             list_of<SiServiceListEntry>([&](auto *list, auto *count) {
                 return Orva_Si_GetServiceList(network_id, stream.transport_stream_id,
                                               stream.original_network_id, list, count);
             }))
            found.push_back({entry.service_id, entry.service_type});
        return found;
    }

    // A service as an SDT describes it, with the stream that the SDT is about.
    struct described_in {
        table_id table;
        std::uint16_t transport_stream_id;
        described_service service;
    };

    // The tuned stream first, then by the ids of the streams; the services of one as broadcast.
    static std::vector<described_in> all_described()
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

    // The services that the library lists, in the order of the SDTs.
    std::vector<service> services() const
    {
        const auto actual = value_of<std::uint16_t>(Orva_Si_GetActTsId);
        const id_set actual_ids{list_of<std::uint16_t>(Orva_Si_GetActServIdList)};
        std::map<std::uint16_t, id_set> wanted;
        for (const std::uint16_t ts : list_of<std::uint16_t>(Orva_Si_GetSdtAllTsList)) {
            if (interrupted())
                return {};
            if (!wanted.contains(ts))
                wanted.emplace(ts, list_of<std::uint16_t>([ts](auto *list, auto *count) {
                                   return Orva_Si_GetServIdList(ts, list, count);
                               }));
        }
        std::vector<service> found;
        for (const described_in &entry : all_described()) {
            const std::uint16_t ts = entry.transport_stream_id;
            const std::uint16_t sid = entry.service.service_id;
            const auto left = wanted.find(ts);
            if (interrupted())
                break;
            if (left == wanted.end() || !left->second.take(sid))
                continue;
            found.push_back(one_service(entry));
            found.back().actual = ts == actual && actual_ids.has(sid);
        }
        return found;
    }

    service one_service(const described_in &entry) const
    {
        const std::uint16_t ts = entry.transport_stream_id;
        const std::uint16_t sid = entry.service.service_id;
        const auto bits = [=](auto getter) {
            return value_of<std::uint8_t>(
                [=](std::uint8_t *value) { return getter(ts, sid, value); });
        };
        service found;
        // One transport_stream_id may stand for streams of several networks: the section tells.
        found.original_network_id = entry.service.original_network_id;
        found.transport_stream_id = ts;
        found.service_id = sid;
        found.name = name([=](SiDvbString *text) { return Orva_Si_GetServName(ts, sid, text); });
        found.provider = one_line(dvb_text(entry.service.provider, default_table));
        found.service_type = bits(Orva_Si_GetServType);
        found.running_status = bits(Orva_Si_GetServRunningStatus);
        found.free_ca_mode = bits(Orva_Si_GetServFreeCaMode);
        found.eit_schedule = bits(Orva_Si_GetServEitSchedFlag);
        found.eit_present_following = bits(Orva_Si_GetServEitPfFlag);
        return found;
    }

    std::vector<program> programs() const
    {
        std::vector<program> found;
        for (const std::uint16_t number :
             list_of<std::uint16_t, std::int32_t>(Orva_Si_GetPatProgList)) {
            if (interrupted())
                break;
            found.push_back(one_program(number));
        }
        return found;
    }

    static program one_program(std::uint16_t number)
    {
        const auto pids = [number](auto getter) {
            return list_of<std::uint16_t>(
                [=](auto *list, auto *count) { return getter(number, list, count); });
        };
        const auto pid = [number](auto getter) {
            return value_of<std::uint16_t>(
                [=](std::uint16_t *value) { return getter(number, value); });
        };
        program found;
        found.program_number = number;
        found.pmt_pid = static_cast<std::uint16_t>(Orva_Si_GetPmtPid(number));
        found.pcr_pid = pid(Orva_Si_GetPcrPID);
        if (!found.pcr_pid)
            return found;
        found.video_pid = pid(Orva_Si_GetVideoPID);
        found.elementary_pids = pids(Orva_Si_GetAllPids);
        found.teletext_pids = pids(Orva_Si_GetTeleTextPids);
        found.subtitle_pids = pids(Orva_Si_GetSubtitlePids);
        for (const SiCaDesc &ca : list_of<SiCaDesc>([=](auto *list, auto *count) {
                 return Orva_Si_GetPmtCaDesc(number, list, count);
             }))
            found.ca.push_back({ca.ca_system_id, ca.ca_pid});
        found.streams = streams_of(number);
        add_audio(found);
        add_video(found);
        return found;
    }

    static std::vector<elementary_stream> streams_of(std::uint16_t number)
    {
        std::array<std::uint8_t, 1024> pmt; // a PMT is no longer than that
        std::uint32_t length = pmt.size();
        if (Orva_Si_GetPmtData(number, pmt.data(), &length) != ORVA_SI_OK)
            return {};
        return elementary_streams(bytes{pmt}.first(std::min<std::size_t>(length, pmt.size())));
    }

    // What the library takes for audio, and formats that it does not look for (E-AC-3, AAC in
    // ADTS, DTS ...), in the order of the PMT.
    static void add_audio(program &found)
    {
        const auto known = list_of<SiAudioPid>([&](auto *list, auto *count) {
            return Orva_Si_GetAudioPIDs(found.program_number, list, count);
        });
        for (const elementary_stream &stream : found.streams) {
            const auto own = std::find_if(known.begin(), known.end(),
                                          [&](const SiAudioPid &a) { return a.pid == stream.pid; });
            if (own != known.end())
                found.audio.push_back({own->pid, own->has_lang != 0, own->is_ac3 != 0});
            else if (stream.kind == stream_kind::audio)
                found.audio.push_back({stream.pid, stream.has_language, stream.is_ac3});
        }
    }

    // Likewise for video (H.265 ...), where the library found none.
    static void add_video(program &found)
    {
        const auto video = std::find_if(
            found.streams.begin(), found.streams.end(),
            [](const elementary_stream &stream) { return stream.kind == stream_kind::video; });
        if (!found.video_pid && video != found.streams.end())
            found.video_pid = video->pid;
    }

    std::vector<bouquet> bouquets() const
    {
        std::vector<bouquet> found;
        auto ids = list_of<std::uint16_t>(Orva_Si_GetBouquetIdList);
        std::sort(ids.begin(), ids.end());
        for (const std::uint16_t id : ids) {
            if (interrupted())
                break;
            bouquet one{
                id,
                name([id](SiDvbString *text) { return Orva_Si_GetBouquetNameById(id, text); }),
                {}};
            for (const SiBouquetService &entry :
                 list_of<SiBouquetService>([id](auto *list, auto *count) {
                     return Orva_Si_GetServiceListInBouquet(id, list, count);
                 }))
                one.services.push_back({entry.transport_stream_id,
                                        entry.original_network_id,
                                        {entry.service_id, entry.service_type}});
            found.push_back(std::move(one));
        }
        return found;
    }

    const std::string &default_table;
    int signal_before = received_signal();
};

std::string hexadecimal(bytes data)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : data) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
    return text;
}

} // namespace

multiplex collect(const std::string &default_table)
{
    return collector{default_table}.all();
}

label label_of(std::vector<std::uint8_t> field, const std::string &default_table)
{
    return {dvb_text(field, default_table), hexadecimal(field)};
}

bool keep_program(multiplex &found, std::uint16_t number)
{
    const auto other_id = [number](const auto &item) { return item.service_id != number; };
    std::erase_if(found.services, other_id);
    std::erase_if(found.programs,
                  [number](const program &p) { return p.program_number != number; });
    for (network &n : found.networks)
        for (transport_stream &stream : n.streams) {
            std::erase_if(stream.services, other_id);
            std::erase_if(stream.in_nit.numbers, other_id);
        }
    for (bouquet &b : found.bouquets)
        std::erase_if(b.services, [&](const bouquet_service &s) { return other_id(s.listed); });
    return !found.services.empty() || !found.programs.empty();
}

const channel_number *number_of(const multiplex &found, const service &of)
{
    const channel_number *hidden = nullptr;
    for (const network &n : found.networks)
        for (const transport_stream &stream : n.streams) {
            if (stream.in_nit.transport_stream_id != of.transport_stream_id ||
                stream.in_nit.original_network_id != of.original_network_id)
                continue;
            for (const channel_number &number : stream.in_nit.numbers)
                if (number.service_id == of.service_id) {
                    if (number.visible)
                        return &number;
                    hidden = hidden != nullptr ? hidden : &number;
                }
        }
    return hidden;
}

} // namespace tool
