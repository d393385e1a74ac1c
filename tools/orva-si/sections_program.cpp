// SPDX-License-Identifier: LGPL-2.1-or-later
// Entries of the PMT (ISO/IEC 13818-1, 2.4.4.8).
#include <algorithm>
#include <string_view>

#include "sections_reader.h"

namespace tool {
namespace {

struct format_name {
    std::uint8_t code; // stream_type or descriptor_tag
    stream_kind kind;
    const char *name;
};

// stream_type (ISO/IEC 13818-1 table 2-34).
constexpr format_name stream_types[] = {
    {0x01, stream_kind::video, "MPEG-1"}, {0x02, stream_kind::video, "MPEG-2"},
    {0x03, stream_kind::audio, "MPEG"},   {0x04, stream_kind::audio, "MPEG"},
    {0x0A, stream_kind::other, "DSM-CC"}, {0x0B, stream_kind::other, "DSM-CC"},
    {0x0C, stream_kind::other, "DSM-CC"}, {0x0D, stream_kind::other, "DSM-CC"},
    {0x0F, stream_kind::audio, "AAC"},    {0x10, stream_kind::video, "MPEG-4"},
    {0x11, stream_kind::audio, "AAC"},    {0x1B, stream_kind::video, "H.264"},
    {0x1C, stream_kind::audio, "AAC"},    {0x24, stream_kind::video, "H.265"},
    {0x2D, stream_kind::audio, "MPEG-H"}, {0x2E, stream_kind::audio, "MPEG-H"},
    {0x33, stream_kind::video, "H.266"},  {0x42, stream_kind::video, "AVS"},
    {0xD2, stream_kind::video, "AVS2"},   {0xD4, stream_kind::video, "AVS3"}};

// Descriptors that tell what a stream of private data is (EN 300 468 table 12).
constexpr format_name private_formats[] = {
    {0x45, stream_kind::other, "VBI data"},    {0x46, stream_kind::teletext, "VBI teletext"},
    {0x56, stream_kind::teletext, "teletext"}, {0x59, stream_kind::subtitles, "subtitles"},
    {0x6A, stream_kind::audio, "AC-3"},        {0x6F, stream_kind::other, "AIT"},
    {0x7A, stream_kind::audio, "E-AC-3"},      {0x7B, stream_kind::audio, "DTS"},
    {0x7C, stream_kind::audio, "AAC"}};

// Further ones, by the descriptor_tag_extension of an extension_descriptor (table 109).
constexpr format_name extended_formats[] = {{0x0E, stream_kind::audio, "DTS-HD"},
                                            {0x0F, stream_kind::audio, "DTS Neural"},
                                            {0x15, stream_kind::audio, "AC-4"},
                                            {0x20, stream_kind::subtitles, "TTML"},
                                            {0x21, stream_kind::audio, "DTS-UHD"}};

// What a registration_descriptor registers, where nothing else tells (ISO/IEC 13818-1, 2.6.8).
struct registered_format {
    std::string_view identifier;
    stream_kind kind;
    const char *name;
};
constexpr registered_format registered_formats[] = {
    {"AC-3", stream_kind::audio, "AC-3"}, {"EAC3", stream_kind::audio, "E-AC-3"},
    {"AC-4", stream_kind::audio, "AC-4"}, {"DTS1", stream_kind::audio, "DTS"},
    {"DTS2", stream_kind::audio, "DTS"},  {"DTS3", stream_kind::audio, "DTS"},
    {"Opus", stream_kind::audio, "Opus"}, {"HEVC", stream_kind::video, "H.265"},
    {"VC-1", stream_kind::video, "VC-1"}};

const format_name *find_format(std::span<const format_name> formats, std::uint8_t code)
{
    const auto found = std::find_if(formats.begin(), formats.end(),
                                    [code](const format_name &f) { return f.code == code; });
    return found != formats.end() ? &*found : nullptr;
}

// How each descriptor that lists languages lays out its entries; the code stands first.
struct language_list {
    std::uint8_t tag;
    std::size_t entry;
};
constexpr language_list language_lists[] = {{0x0A, 4}, {0x56, 5}, {0x59, 8}};

void append_languages(std::vector<std::string> &languages, const descriptor &d)
{
    for (const language_list &list : language_lists) {
        if (list.tag != d.tag)
            continue;
        for (byte_reader in{d.data}; in.left() >= list.entry;) {
            const bytes entry = in.span(list.entry);
            const std::string code = code_text(entry.first(3));
            if (std::find(languages.begin(), languages.end(), code) == languages.end())
                languages.push_back(code);
        }
    }
}

struct stream_format {
    stream_kind kind = stream_kind::other;
    const char *name = nullptr;
};

stream_format format_of(const format_name *known)
{
    return known != nullptr ? stream_format{known->kind, known->name} : stream_format{};
}

// What a descriptor says about the format of the stream that carries it.
stream_format format_told_by(const descriptor &d)
{
    if (d.tag == extension_tag)
        return d.data.empty() ? stream_format{}
                              : format_of(find_format(extended_formats, d.data[0]));
    return format_of(find_format(private_formats, d.tag));
}

stream_format registered_by(const descriptor &d)
{
    constexpr std::uint8_t registration = 0x05;
    if (d.tag != registration || d.data.size() < 4)
        return {};
    const std::string identifier{d.data.begin(), d.data.begin() + 4};
    for (const registered_format &known : registered_formats)
        if (known.identifier == identifier)
            return {known.kind, known.name};
    return {};
}

elementary_stream read_stream(std::uint8_t type, std::uint16_t pid, byte_reader descriptors)
{
    constexpr std::uint8_t iso_639_language = 0x0A;
    constexpr std::uint8_t data_broadcast_id = 0x66;
    constexpr std::uint8_t ac3 = 0x6A;
    elementary_stream stream;
    stream.pid = pid;
    stream.stream_type = type;
    stream_format format = format_of(find_format(stream_types, type));
    const bool private_data = format.name == nullptr;
    stream_format registered;
    // Among private data, what viewers use counts more than what the stream carries besides.
    const auto is_better = [&](const stream_format &told) {
        return told.name != nullptr &&
               (format.name == nullptr || (private_data && format.kind == stream_kind::other &&
                                           told.kind != stream_kind::other));
    };
    each_descriptor(descriptors, [&](const descriptor &d) {
        stream.has_language |= d.tag == iso_639_language;
        stream.is_ac3 |= d.tag == ac3 && !d.data.empty();
        append_languages(stream.languages, d);
        if (d.tag == data_broadcast_id && d.data.size() >= 2)
            stream.data_broadcast_ids.push_back(si::be16(d.data.first<2>()));
        if (const stream_format told = format_told_by(d); is_better(told))
            format = told;
        if (registered.name == nullptr)
            registered = registered_by(d);
    });
    if (format.name == nullptr)
        format = registered;
    stream.kind = format.kind;
    stream.format = format.name != nullptr ? format.name : "";
    return stream;
}

} // namespace

std::vector<elementary_stream> elementary_streams(bytes pmt)
{
    std::vector<elementary_stream> streams;
    const auto body = payload(pmt);
    if (!body)
        return streams;
    byte_reader in{*body};
    in.u16();     // PCR_PID
    nested12(in); // descriptors of the program
    while (in.more()) {
        const std::uint8_t type = in.u8();
        const std::uint16_t pid = in.u16() & 0x1FFF;
        const byte_reader descriptors = nested12(in);
        if (!in.ok)
            break;
        streams.push_back(read_stream(type, pid, descriptors));
    }
    return streams;
}

} // namespace tool
