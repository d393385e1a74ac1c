// SPDX-License-Identifier: LGPL-2.1-or-later
// Programs, as PAT and PMTs describe them, and the streams of software updates.
#include <algorithm>
#include <array>

#include "collect.h"

namespace tool {
namespace {

std::vector<elementary_stream> streams_of(std::uint16_t number)
{
    std::array<std::uint8_t, 1024> pmt; // a PMT is no longer than that
    std::uint32_t length = pmt.size();
    if (Orva_Si_GetPmtData(number, pmt.data(), &length) != ORVA_SI_OK)
        return {};
    return elementary_streams(bytes{pmt}.first(std::min<std::size_t>(length, pmt.size())));
}

// What the library takes for audio, and formats that it does not look for (E-AC-3, AAC in
// ADTS, DTS ...), in the order of the PMT.
void add_audio(program &found)
{
    const std::uint16_t number = found.program_number;
    const auto known = list_of<SiAudioPid>(
        [=](auto *list, auto *count) { return Orva_Si_GetAudioPIDs(number, list, count); });
    const auto languages = list_of<SiIso639Desc>(
        [=](auto *list, auto *count) { return Orva_Si_GetAudioIso639Desc(number, list, count); });
    for (const elementary_stream &stream : found.streams) {
        const auto own = std::find_if(known.begin(), known.end(),
                                      [&](const SiAudioPid &a) { return a.pid == stream.pid; });
        if (own == known.end() && stream.kind != stream_kind::audio)
            continue;
        audio_stream audio{stream.pid, stream.has_language, stream.is_ac3, stream.format};
        if (own != known.end()) {
            audio.has_lang = own->has_lang != 0;
            audio.is_ac3 = own->is_ac3 != 0;
        }
        for (const SiIso639Desc &said : languages)
            if (said.pid == stream.pid)
                audio.languages.push_back({code_of(said.iso639), said.audio_type});
        found.audio.push_back(std::move(audio));
    }
}

// Likewise for video (H.265 ...), where the library found none.
void add_video(program &found)
{
    const auto video = std::find_if(
        found.streams.begin(), found.streams.end(),
        [](const elementary_stream &stream) { return stream.kind == stream_kind::video; });
    if (!found.video_pid && video != found.streams.end())
        found.video_pid = video->pid;
}

void add_pages(program &found)
{
    const std::uint16_t number = found.program_number;
    found.teletext = each(list_of<SiTeletextDesc>([=](auto *list, auto *count) {
                              return Orva_Si_GetTeleTextDesc(number, SI_ANY_PID, list, count);
                          }),
                          [](const SiTeletextDesc &page) -> teletext_page {
                              return {page.pid, code_of(page.lang), page.type, page.magazine_number,
                                      page.page_number};
                          });
    found.subtitles = each(list_of<SiSubtitleDesc>([=](auto *list, auto *count) {
                               return Orva_Si_GetSubtitleDesc(number, SI_ANY_PID, list, count);
                           }),
                           [](const SiSubtitleDesc &entry) -> subtitling {
                               return {entry.pid, code_of(entry.lang), entry.subtitling_type,
                                       entry.composition_page_id, entry.ancillary_page_id};
                           });
}

program one_program(std::uint16_t number)
{
    const auto pids = [number](auto getter) {
        return list_of<std::uint16_t>(
            [=](auto *list, auto *count) { return getter(number, list, count); });
    };
    const auto pid = [number](auto getter) {
        return value_of<std::uint16_t>([=](std::uint16_t *value) { return getter(number, value); });
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
    found.ca = each(list_of<SiCaDesc>([=](auto *list, auto *count) {
                        return Orva_Si_GetPmtCaDesc(number, list, count);
                    }),
                    [](const SiCaDesc &ca) {
                        return ca_system{ca.ca_system_id, ca.ca_pid};
                    });
    found.streams = streams_of(number);
    add_audio(found);
    add_video(found);
    add_pages(found);
    return found;
}

} // namespace

std::vector<program> collect_programs(const collecting &run)
{
    std::vector<program> found;
    for (const std::uint16_t number :
         list_of<std::uint16_t, std::int32_t>(Orva_Si_GetPatProgList)) {
        if (run.interrupted())
            break;
        found.push_back(one_program(number));
    }
    return found;
}

software_updates collect_updates(const std::vector<network> &networks)
{
    software_updates found;
    const auto add = [&](std::uint16_t network_id, const std::vector<linkage> &linkages) {
        for (const linkage &link : linkages)
            if (link.linkage_type == software_update_linkage)
                found.services.push_back(
                    {network_id, link, list_of<std::uint16_t>([&](auto *list, auto *count) {
                         return Orva_Si_GetSsuPidsByNitLinkage(link.service_id, list, count);
                     })});
    };
    for (const network &n : networks)
        add(n.network_id, n.linkages);
    found.pids = list_of<std::uint16_t>(Orva_Si_GetSsuPidsByPmtDataBroadCast);
    return found;
}

} // namespace tool
