// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about programs, answered from their Program Map Tables (ISO/IEC 13818-1, 2.4.4.8).
#include "orva_si_pmt.h"

#include "orva_si/query_program.h"
#include "orva_si_descr.h"

namespace si {

namespace {

// stream_type (ISO/IEC 13818-1, table 2-34)
constexpr std::uint8_t mpeg1_video = 0x01;
constexpr std::uint8_t mpeg2_video = 0x02;
constexpr std::uint8_t mpeg1_audio = 0x03;
constexpr std::uint8_t mpeg2_audio = 0x04;
constexpr std::uint8_t latm_aac_audio = 0x11;
constexpr std::uint8_t h264_video = 0x1B;

constexpr SiTableKey pmt_on(std::uint32_t pid)
{
    return {low16(pid), tid_pmt, SI_ANY_EXT, SI_ANY_EXT, SI_ANY_EXT};
}

// Copies a whole section to the caller, or nothing when it does not fit.
std::uint32_t copy_pmt(site here, const SiTableKey &key, std::uint8_t *data, std::uint32_t &len)
{
    return query_bytes(here, key, ORVA_SI_NOT_FOUND,
                       [&](bytes section) { return copy_raw(here, section, data, len); });
}

bool is_video(std::uint8_t stream_type)
{
    return stream_type == mpeg1_video || stream_type == mpeg2_video || stream_type == h264_video;
}

bool is_audio(std::uint8_t stream_type)
{
    return stream_type == mpeg1_audio || stream_type == mpeg2_audio ||
           stream_type == latm_aac_audio;
}

// MPEG-1 layer 2 audio of any channel mode (EN 300 468, table 26).
bool names_mpeg_audio(const dvb_component_descriptor &component)
{
    return component.stream_content == DVB_STREAM_CONTENT_AUDIO &&
           component.component_type >= DVB_COMPONENT_TYPE_AUDIO_SINGLE_MONO &&
           component.component_type <= DVB_COMPONENT_TYPE_AUDIO_SURROUND;
}

// Whether it is an audio stream. Fills the record in either case, and turns the type of a stream
// whose component descriptor names MPEG audio into that, whatever it was.
bool describe_audio(mpeg_pmt_stream &stream, SiAudioPid &record)
{
    record = {.pid = stream.pid, .has_lang = 0, .is_ac3 = 0};
    for (descriptor &d : descriptors(stream)) {
        if (as<mpeg_iso_639_language_descriptor>(d) != nullptr)
            record.has_lang = 1;
        else if (as<dvb_ac3_descriptor>(d) != nullptr)
            record.is_ac3 = 1;
        else if (const auto *component = as<dvb_component_descriptor>(d);
                 component != nullptr && names_mpeg_audio(*component))
            stream.stream_type = mpeg1_audio;
    }
    return is_audio(stream.stream_type) || record.is_ac3 != 0;
}

template <class Loop>
step append_ca(site here, std::uint32_t program_number, const Loop &loop,
               const many<SiCaDesc> &list)
{
    for (descriptor &d : loop) {
        const auto *found = as<mpeg_ca_descriptor>(d);
        if (found == nullptr)
            continue;
        const std::uint16_t ca_system_id = found->ca_system_id;
        const std::uint16_t ca_pid = found->ca_pid;
        if (!list.put([&](SiCaDesc &record) {
                record.ca_system_id = ca_system_id;
                record.ca_pid = ca_pid;
            }))
            return step::full;
        SI_LOG_AT(here, level::trace, "ca_system_id = %#4x ca_pid = %#4x of prog_no = %#4x\n",
                  ca_system_id, ca_pid, low16(program_number));
    }
    return step::next;
}

// ---- Entries of descriptors: languages, teletext pages, subtitles

// Appends a record for each entry of the descriptors of a type; the entry fills it.
template <class Descriptor, class T, class Entries, class Fill>
step append_entries(mpeg_pmt_stream &stream, const many<T> &list, Entries entries, Fill fill)
{
    for (descriptor &d : descriptors(stream))
        if (auto *found = as<Descriptor>(d))
            for (const auto &entry : entries(*found))
                if (!list.put([&](T &record) { fill(entry, record); }))
                    return step::full;
    return step::next;
}

step append_languages(site here, mpeg_pmt_stream &stream, const many<SiIso639Desc> &list)
{
    return append_entries<mpeg_iso_639_language_descriptor>(
        stream, list, [](auto &d) { return languages(d); },
        [&](const mpeg_iso_639_language_code &language, SiIso639Desc &record) {
            record.pid = stream.pid;
            copy_code(record.iso639, language.language_code);
            record.audio_type = language.audio_type;
            SI_LOG_AT(here, level::trace, "get %d => iso639 = %s, type=%d\n",
                      static_cast<int>(*list.count),
                      printable_text(language.language_code, code_bytes).c_str(),
                      record.audio_type);
        });
}

step append_pages(mpeg_pmt_stream &stream, const many<SiTeletextDesc> &list)
{
    return append_entries<dvb_teletext_descriptor>(
        stream, list, [](auto &d) { return pages(d); },
        [&](const dvb_teletext_entry &page, SiTeletextDesc &record) {
            record.pid = stream.pid;
            copy_code(record.lang, page.language_code);
            record.type = page.type;
            record.magazine_number = page.magazine_number;
            record.page_number = page.page_number;
        });
}

step append_subtitles(mpeg_pmt_stream &stream, const many<SiSubtitleDesc> &list)
{
    return append_entries<dvb_subtitling_descriptor>(
        stream, list, [](auto &d) { return subtitles(d); },
        [&](const dvb_subtitling_entry &subtitle, SiSubtitleDesc &record) {
            record.pid = stream.pid;
            copy_code(record.lang, subtitle.language_code);
            record.subtitling_type = subtitle.subtitling_type;
            record.composition_page_id = subtitle.composition_page_id;
            record.ancillary_page_id = subtitle.ancillary_page_id;
        });
}

// Whether a stream is meant by a PID that may be any.
bool is_on(const mpeg_pmt_stream &stream, std::uint32_t es_pid)
{
    return low16(es_pid) == SI_ANY_PID || stream.pid == low16(es_pid);
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetPmtData(uint32_t program_number, uint8_t *data, uint32_t *plen)
{
    SI_REQUIRE(data);
    SI_REQUIRE(plen);
    return copy_pmt(SI_HERE, pmt_of(program_number), data, *plen);
}

uint32_t Orva_Si_GetPmtDataByPID(uint32_t pid, uint8_t *data, uint32_t *plen)
{
    SI_REQUIRE(data);
    SI_REQUIRE(plen);
    if (low16(pid) == SI_ANY_PID)
        return ORVA_SI_NOT_FOUND;
    return copy_pmt(SI_HERE, pmt_on(pid), data, *plen);
}

uint32_t Orva_Si_GetCiData(uint32_t program_number, uint8_t *data, uint32_t *plen)
{
    SI_REQUIRE(data);
    SI_REQUIRE(plen);
    return copy_pmt(SI_HERE, pmt_of(program_number), data, *plen);
}

uint32_t Orva_Si_IsFoundSsService(uint32_t program_number)
{
    return Orva_Si_IsPmtExisted(low16(program_number));
}

uint32_t Orva_Si_GetPcrPID(uint32_t program_number, uint16_t *pid)
{
    SI_REQUIRE(pid);
    return query<pmt_codec>(SI_HERE, pmt_of(program_number), ORVA_SI_NO_DATA,
                            [&](mpeg_pmt_section &pmt) {
                                *pid = pmt.pcr_pid;
                                return step::found;
                            });
}

uint32_t Orva_Si_GetVideoPID(uint32_t program_number, uint16_t *pid)
{
    SI_REQUIRE(pid);
    const site here = SI_HERE;
    return ask_streams(here, program_number, ORVA_SI_FAILURE, [&](mpeg_pmt_stream &stream) {
        if (!is_video(stream.stream_type))
            return step::next;
        *pid = stream.pid;
        SI_LOG_AT(here, level::trace, "get the stream_type = %d's pid = %#4x\n", stream.stream_type,
                  *pid);
        return step::found;
    });
}

// Room is asked for before it is known whether the stream is audio: behind a full list any stream
// answers full, and the record of a stream that is not audio stays behind the count.
uint32_t Orva_Si_GetAudioPIDs(uint32_t program_number, SiAudioPid *audiopid, uint32_t *pcount)
{
    SI_REQUIRE(audiopid);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{audiopid, pcount};
    return ask_streams(here, program_number, list, [&](mpeg_pmt_stream &stream) {
        if (list.full())
            return step::full;
        if (describe_audio(stream, list.candidate())) {
            SI_LOG_AT(here, level::trace, "found audio pid: %#x\n", list.candidate().pid);
            ++*list.count;
        }
        return step::next;
    });
}

uint32_t Orva_Si_GetAllPids(uint32_t program_number, uint16_t *pids, uint32_t *pcount)
{
    SI_REQUIRE(pids);
    SI_REQUIRE(pcount);
    const many list{pids, pcount};
    return ask_streams(SI_HERE, program_number, list, [&](mpeg_pmt_stream &stream) {
        return list.put(static_cast<std::uint16_t>(stream.pid)) ? step::next : step::full;
    });
}

uint32_t Orva_Si_GetTeleTextPids(uint32_t program_number, uint16_t *pid, uint32_t *pcount)
{
    SI_REQUIRE(pid);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const auto tell = [&](std::uint16_t found) {
        SI_LOG_AT(here, level::trace, " teletext pid = %#4x of prog_no = %#4x\n", found,
                  low16(program_number));
    };
    return streams_with<dvb_teletext_descriptor>(here, program_number, {pid, pcount}, tell);
}

uint32_t Orva_Si_GetSubtitlePids(uint32_t program_number, uint16_t *pid, uint32_t *pcount)
{
    SI_REQUIRE(pid);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const auto tell = [&](std::uint16_t found) {
        SI_LOG_AT(here, level::trace, "found prog_no = %#x 's sbt pid: %#x, count: %d\n",
                  low16(program_number), found, static_cast<int>(*pcount));
    };
    const std::uint32_t result =
        streams_with<dvb_subtitling_descriptor>(here, program_number, {pid, pcount}, tell);
    if (result == ORVA_SI_NO_DATA)
        SI_LOG_AT(here, level::trace, "no entry\n");
    return result;
}

uint32_t Orva_Si_GetPmtCaDesc(uint32_t program_number, SiCaDesc *cadesclist, uint32_t *pcount)
{
    SI_REQUIRE(cadesclist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{cadesclist, pcount};
    return query<pmt_codec>(here, pmt_of(program_number), list, [&](mpeg_pmt_section &pmt) {
        step answer = append_ca(here, program_number, descriptors(pmt), list);
        for (mpeg_pmt_stream &stream : streams(pmt))
            if (answer == step::next)
                answer = append_ca(here, program_number, descriptors(stream), list);
        return answer;
    });
}

uint32_t Orva_Si_GetAudioIso639Desc(uint32_t program_number, SiIso639Desc *isodesc,
                                    uint32_t *pcount)
{
    SI_REQUIRE(isodesc);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{isodesc, pcount};
    return ask_streams(here, program_number, list, [&](mpeg_pmt_stream &stream) {
        return append_languages(here, stream, list);
    });
}

uint32_t Orva_Si_GetTeleTextDesc(uint32_t program_number, uint32_t es_pid, SiTeletextDesc *textlist,
                                 uint32_t *pcount)
{
    SI_REQUIRE(textlist);
    SI_REQUIRE(pcount);
    const many list{textlist, pcount};
    return ask_streams(SI_HERE, program_number, list, [&](mpeg_pmt_stream &stream) {
        return is_on(stream, es_pid) ? append_pages(stream, list) : step::next;
    });
}

uint32_t Orva_Si_GetSubtitleDesc(uint32_t program_number, uint32_t es_pid, SiSubtitleDesc *subarray,
                                 uint32_t *pcount)
{
    SI_REQUIRE(subarray);
    SI_REQUIRE(pcount);
    const many list{subarray, pcount};
    return ask_streams(SI_HERE, program_number, list, [&](mpeg_pmt_stream &stream) {
        return is_on(stream, es_pid) ? append_subtitles(stream, list) : step::next;
    });
}
