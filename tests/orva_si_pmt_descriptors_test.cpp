// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about the descriptors of programs: languages, teletext, subtitles and data broadcast.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_program.h"
#include "support/descriptors.h"
#include "support/getters.h"
#include "support/model.h"
#include "support/sections.h"
#include "support/store.h"
#include "support/store_fixture.h"

using namespace test;

namespace {

using pids = std::vector<std::uint16_t>;

constexpr std::uint32_t every_stream = 0x2000;
constexpr std::uint16_t update_id = 0x000A; // data_broadcast_id of ETSI TS 102 006

// Whether a line of this level ends so.
bool logged_ending(std::uint32_t level, const std::string &end)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == level && line.text.ends_with(end);
    });
}

pmt_stream stream(std::uint16_t pid, const std::vector<octets> &descriptors)
{
    return {.type = 0x06, .pid = pid, .descriptors = descriptors};
}

void store_program(const std::vector<pmt_stream> &streams, std::uint16_t program = 5)
{
    store(make(pmt{.program = program, .streams = streams}),
          static_cast<std::uint16_t>(0x150 + program));
    fake::clear_log();
}

// ---- Languages

auto languages_of(std::uint32_t program)
{
    return [=](SiIso639Desc *list, std::uint32_t *count) {
        return Orva_Si_GetAudioIso639Desc(program, list, count);
    };
}

struct same_language {
    bool operator()(const SiIso639Desc &a, const SiIso639Desc &b) const
    {
        return a.pid == b.pid && std::memcmp(a.iso639, b.iso639, 4) == 0 &&
               a.audio_type == b.audio_type;
    }
};

TEST(AudioLanguages, AreAllThoseOfEveryStreamWhateverItIs)
{
    store_program(
        {stream(0x151, {raw(0x0A, {'d', 'e', 'u', 3, 'e', 'n', 'g', 0})}),
         {.type = 0x02, .pid = 0x152},
         {.type = 0x02, .pid = 0x1FFE, .descriptors = {ac3(), iso639("fra", 255), iso639("ita")}}});
    expect_list(languages_of(5),
                std::vector<SiIso639Desc>{
                    {0x151, "deu", 3}, {0x151, "eng", 0}, {0x1FFE, "fra", 255}, {0x1FFE, "ita", 0}},
                "need more room\n", same_language{});
}

TEST(AudioLanguages, AreTraced)
{
    store_program({stream(0x151, {iso639("deu", 3)})});
    ask<SiIso639Desc>(languages_of(5), 1);
    EXPECT_TRUE(logged_ending(4, " => iso639 = deu, type=3\n")) << fake::log_text();
}

TEST(AudioLanguages, AnEmptyDescriptorHasNoneAndABrokenOneIsPassedOver)
{
    for (const octets &bad :
         {raw(0x0A, {}), raw(0x0A, {'d', 'e', 'u'}), raw(0x0A, {'d', 'e', 'u', 0, 'e'})}) {
        SCOPED_TRACE(bad.size());
        recreate_store();
        store_program({stream(0x151, {bad})});
        expect_empty<SiIso639Desc>(languages_of(5), ORVA_SI_NO_DATA);
        store_program({stream(0x161, {bad, iso639("eng", 1)})}, 6);
        expect_list(languages_of(6), std::vector<SiIso639Desc>{{0x161, "eng", 1}},
                    "need more room\n", same_language{});
    }
}

TEST(AudioLanguages, ThoseOfTheProgramItselfAreNotOfAStream)
{
    store(make(pmt{.program = 5, .descriptors = {iso639("eng")}, .streams = {{.pid = 0x151}}}));
    expect_empty<SiIso639Desc>(languages_of(5), ORVA_SI_NO_DATA);
}

// ---- Teletext

auto teletext_of(std::uint32_t program, std::uint32_t es_pid)
{
    return [=](SiTeletextDesc *list, std::uint32_t *count) {
        return Orva_Si_GetTeleTextDesc(program, es_pid, list, count);
    };
}

struct same_page {
    bool operator()(const SiTeletextDesc &a, const SiTeletextDesc &b) const
    {
        return a.pid == b.pid && std::memcmp(a.lang, b.lang, 4) == 0 && a.type == b.type &&
               a.magazine_number == b.magazine_number && a.page_number == b.page_number;
    }
};

using pages = std::vector<SiTeletextDesc>;

TEST(TeletextPages, AreThoseOfAllDescriptorsOfAllStreams)
{
    store_program({stream(0x151, {teletext({{"deu", 1, 0, 0x00}, {"deu", 2, 1, 0x50}}),
                                  iso639("eng"), teletext({{"eng", 31, 7, 0xFF}})}),
                   stream(0x152, {subtitling({{}})}),
                   stream(0x153, {teletext({{"fra", 5, 3, 0x88}})})});
    const pages all{{0x151, "deu", 1, 0, 0x00},
                    {0x151, "deu", 2, 1, 0x50},
                    {0x151, "eng", 31, 7, 0xFF},
                    {0x153, "fra", 5, 3, 0x88}};
    expect_list(teletext_of(5, every_stream), all, "need more room\n", same_page{});
    expect_list(teletext_of(5, 0x153), pages{all[3]}, "need more room\n", same_page{});
    expect_empty<SiTeletextDesc>(teletext_of(5, 0x152), ORVA_SI_NO_DATA);
    expect_empty<SiTeletextDesc>(teletext_of(5, 0x1FFF), ORVA_SI_NO_DATA);
}

TEST(TeletextPages, ABrokenDescriptorIsPassedOver)
{
    const auto good = teletext({{"deu", 2, 1, 0x50}});
    store_program({stream(0x151, {raw(0x56, {}), raw(0x56, {'e', 'n', 'g', 8}),
                                  raw(0x56, {'e', 'n', 'g', 8, 0, 'd'}), good})});
    expect_list(teletext_of(5, every_stream), pages{{0x151, "deu", 2, 1, 0x50}}, "need more room\n",
                same_page{});
}

// ---- Subtitles

auto subtitles_of(std::uint32_t program, std::uint32_t es_pid)
{
    return [=](SiSubtitleDesc *list, std::uint32_t *count) {
        return Orva_Si_GetSubtitleDesc(program, es_pid, list, count);
    };
}

struct same_subtitle {
    bool operator()(const SiSubtitleDesc &a, const SiSubtitleDesc &b) const
    {
        return a.pid == b.pid && std::memcmp(a.lang, b.lang, 4) == 0 &&
               a.subtitling_type == b.subtitling_type &&
               a.composition_page_id == b.composition_page_id &&
               a.ancillary_page_id == b.ancillary_page_id;
    }
};

using subtitles = std::vector<SiSubtitleDesc>;

TEST(Subtitles, AreThoseOfAllDescriptorsOfAllStreams)
{
    store_program(
        {stream(0x151, {subtitling({{"deu", 0x10, 0x0102, 0x0304}, {"eng", 0x24, 0xFFFE, 0x8001}}),
                        subtitling({{"fra", 0x14, 1, 2}})}),
         stream(0x152, {teletext({{}})}),
         stream(0x153, {iso639("eng"), subtitling({{"ita", 0x01, 3, 3}})})});
    const subtitles all{{0x151, "deu", 0x10, 0x0102, 0x0304},
                        {0x151, "eng", 0x24, 0xFFFE, 0x8001},
                        {0x151, "fra", 0x14, 1, 2},
                        {0x153, "ita", 0x01, 3, 3}};
    expect_list(subtitles_of(5, every_stream), all, "need more room\n", same_subtitle{});
    expect_list(subtitles_of(5, 0x153), subtitles{all[3]}, "need more room\n", same_subtitle{});
    expect_empty<SiSubtitleDesc>(subtitles_of(5, 0x152), ORVA_SI_NO_DATA);
    expect_empty<SiSubtitleDesc>(subtitles_of(5, 0x1FFF), ORVA_SI_NO_DATA);
}

TEST(Subtitles, ABrokenDescriptorIsPassedOver)
{
    const auto good = subtitling({{"deu", 0x10, 1, 2}});
    store_program({stream(0x151, {raw(0x59, {}), raw(0x59, {'e', 'n', 'g', 0x10, 0, 1, 0}),
                                  raw(0x59, {'e', 'n', 'g', 0x10, 0, 1, 0, 1, 9}), good})});
    expect_list(subtitles_of(5, every_stream), subtitles{{0x151, "deu", 0x10, 1, 2}},
                "need more room\n", same_subtitle{});
}

// ---- Bytes of data_broadcast_id_descriptors

using bytes_getter = std::uint32_t (*)(std::uint32_t, std::uint8_t *, std::uint32_t *);

listing<std::uint8_t> bytes_of(bytes_getter getter, std::uint32_t capacity,
                               std::uint32_t program = 5)
{
    return ask<std::uint8_t>(
        [=](std::uint8_t *data, std::uint32_t *length) { return getter(program, data, length); },
        capacity);
}

// Both getters of bytes: what they share.
struct bytes_question {
    std::string name;
    bytes_getter getter;
    std::uint32_t nothing;
};
void PrintTo(const bytes_question &of, std::ostream *out)
{
    *out << of.name;
}

class BroadcastBytes : public testing::TestWithParam<bytes_question> {
protected:
    listing<std::uint8_t> bytes(std::uint32_t capacity, std::uint32_t program = 5) const
    {
        return bytes_of(GetParam().getter, capacity, program);
    }
    void expect_nothing() const
    {
        const auto answer = bytes(9);
        EXPECT_EQ(answer.result, GetParam().nothing);
        EXPECT_EQ(answer.count, 9u);
        EXPECT_EQ(answer.items, octets(9, 0));
    }
};

TEST_P(BroadcastBytes, AreThoseBehindTheId)
{
    store_program({stream(0x151, {}),
                   stream(0x152, {raw(0x52, {1}), data_broadcast_id(update_id, {1, 2, 3})}),
                   stream(0x153, {data_broadcast_id(update_id, {4})})});
    for (const std::uint32_t capacity : {3u, 4u, 253u}) {
        const auto answer = bytes(capacity);
        EXPECT_EQ(answer.result, ORVA_SI_OK);
        EXPECT_EQ(answer.items, (octets{1, 2, 3}));
    }
    EXPECT_EQ(bytes(9, 0x770005).items, (octets{1, 2, 3}));
}

TEST_P(BroadcastBytes, AreNotCopiedIntoTooLittleRoom)
{
    store_program({stream(0x151, {data_broadcast_id(update_id, {1, 2, 3})})});
    for (const std::uint32_t capacity : {2u, 0u}) {
        const auto answer = bytes(capacity);
        EXPECT_EQ(answer.result, ORVA_SI_ARRAY_FULL);
        EXPECT_EQ(answer.count, capacity);
        EXPECT_EQ(answer.items, octets(capacity, 0));
    }
}

TEST_P(BroadcastBytes, MayBeNoneOrAllThatADescriptorHolds)
{
    store_program({stream(0x151, {data_broadcast_id(update_id)})});
    const auto none = bytes(0);
    EXPECT_EQ(none.result, ORVA_SI_OK);
    EXPECT_EQ(none.count, 0u);
    octets most(253);
    std::iota(most.begin(), most.end(), std::uint8_t{0});
    store_program({stream(0x161, {data_broadcast_id(update_id, most)})}, 6);
    EXPECT_EQ(bytes(253, 6).items, most);
    EXPECT_EQ(bytes(252, 6).result, ORVA_SI_ARRAY_FULL);
}

TEST_P(BroadcastBytes, ADescriptorWithoutWholeIdIsPassedOver)
{
    store_program(
        {stream(0x151, {raw(0x66, {}), raw(0x66, {0}), data_broadcast_id(update_id, {7})})});
    EXPECT_EQ(bytes(9).items, octets{7});
}

TEST_P(BroadcastBytes, OfNoDescriptorThereAreNone)
{
    store_program({stream(0x151, {raw(0x66, {0}), raw(0x64, {0, 10, 1, 2})})});
    expect_nothing();
    EXPECT_EQ(bytes(9, 6).result, GetParam().nothing);
}

TEST_P(BroadcastBytes, ThoseInTheLoopOfTheProgramItselfDoNotCount)
{
    store(make(pmt{.program = 5,
                   .descriptors = {data_broadcast_id(update_id, {1})},
                   .streams = {{.pid = 0x151}}}));
    expect_nothing();
}

INSTANTIATE_TEST_SUITE_P(
    , BroadcastBytes,
    testing::Values(
        bytes_question{"UpdateSelector", Orva_Si_GetSsuDataBroadCastDescSelector, ORVA_SI_FAILURE},
        bytes_question{"PrivateData", Orva_Si_GetDataBroadcastDescPrivData, ORVA_SI_NO_DATA}),
    [](const testing::TestParamInfo<bytes_question> &of) { return of.param.name; });

TEST(UpdateSelector, IsThatOfASoftwareUpdateOnly)
{
    store_program({stream(0x151, {data_broadcast_id(0x000B, {1}), data_broadcast_id(0x0A00, {2}),
                                  data_broadcast_id(0x010A, {3})}),
                   stream(0x152, {data_broadcast_id(update_id, {4, 5})})});
    EXPECT_EQ(bytes_of(Orva_Si_GetSsuDataBroadCastDescSelector, 9).items, (octets{4, 5}));
    store_program({stream(0x161, {data_broadcast_id(0x000B, {1})})}, 6);
    EXPECT_EQ(bytes_of(Orva_Si_GetSsuDataBroadCastDescSelector, 9, 6).result, ORVA_SI_FAILURE);
}

TEST(BroadcastPrivateData, IsThatOfTheFirstDescriptorWhateverItsId)
{
    store_program({stream(0x151, {data_broadcast_id(0x0106, {1, 2, 3, 4})}),
                   stream(0x152, {data_broadcast_id(update_id, {5})})});
    EXPECT_EQ(bytes_of(Orva_Si_GetDataBroadcastDescPrivData, 9).items, (octets{1, 2, 3, 4}));
    EXPECT_FALSE(fake::logged("error:No entry\n"));
}

TEST(BroadcastPrivateData, OfNoneIsLogged)
{
    store_program({stream(0x151, {})});
    EXPECT_EQ(bytes_of(Orva_Si_GetDataBroadcastDescPrivData, 9).result, ORVA_SI_NO_DATA);
    EXPECT_TRUE(fake::logged("error:No entry\n")) << fake::log_text();
}

// ---- Streams with data_broadcast_id_descriptors

auto broadcast_pids_of(std::uint32_t program)
{
    return [=](std::uint16_t *list, std::uint32_t *count) {
        return Orva_Si_GetSoftwareUpatePIDs(program, list, count);
    };
}

TEST(UpdateStreams, AreThoseOfEveryProgram)
{
    store_program({stream(0x151, {data_broadcast_id(update_id, {1})}), stream(0x152, {}),
                   stream(0x153, {data_broadcast_id(0x0106, {1, 2, 3}), iso639("eng"),
                                  data_broadcast_id(update_id)})});
    store_program({stream(0x161, {data_broadcast_id(0x0A00)})}, 6);
    store_program({stream(0x1FFE, {raw(0x66, {0}), data_broadcast_id(update_id)})}, 7);
    expect_list(Orva_Si_GetSsuPidsByPmtDataBroadCast, pids{0x151, 0x153, 0x1FFE});
}

TEST(UpdateStreams, OneOfTwoDescriptorsIsListedOnce)
{
    const auto update = data_broadcast_id(update_id);
    store_program({stream(0x151, {update, update}), stream(0x152, {update})});
    expect_list(Orva_Si_GetSsuPidsByPmtDataBroadCast, pids{0x151, 0x152});
    expect_list(broadcast_pids_of(5), pids{0x151, 0x152});
}

TEST(UpdateStreams, EveryStreamIsTracedWithTheLengthOfItsLoop)
{
    store_program({stream(0x151, {iso639("eng")}),
                   stream(0x152, {data_broadcast_id(update_id, {1}), iso639("eng")})});
    ask<std::uint16_t>(Orva_Si_GetSsuPidsByPmtDataBroadCast, 4);
    for (const char *line : {"elementary_PID = 0x151\n", "ES_info_length = 0x6\n",
                             "elementary_PID = 0x152\n", "ES_info_length = 0xb\n"})
        EXPECT_TRUE(fake::logged(4, line)) << line << fake::log_text();
    EXPECT_TRUE(std::ranges::any_of(fake::log_lines(), [](const fake::log_line &line) {
        unsigned count = 0;
        unsigned of = 0;
        return std::sscanf(line.text.c_str(), "count = %u, *pcount=%u\n", &count, &of) == 2;
    })) << fake::log_text();
}

TEST(UpdateStreams, OfNoneThereIsNoData)
{
    store_program({stream(0x151, {data_broadcast_id(0x000B), raw(0x66, {0})})});
    expect_empty<std::uint16_t>(Orva_Si_GetSsuPidsByPmtDataBroadCast, ORVA_SI_NO_DATA);
}

TEST(BroadcastStreams, AreThoseOfTheProgramWithAnyId)
{
    store_program({stream(0x151, {data_broadcast_id(0x0106)}), stream(0x152, {}),
                   stream(0x153, {raw(0x66, {9})}),
                   stream(0x154, {raw(0x66, {}), data_broadcast_id(update_id, {1})})});
    store_program({stream(0x161, {data_broadcast_id(update_id)})}, 6);
    expect_list(broadcast_pids_of(5), pids{0x151, 0x154});
    expect_list(broadcast_pids_of(0x10006), pids{0x161});
    expect_empty<std::uint16_t>(broadcast_pids_of(7), ORVA_SI_NO_DATA);
}

// ---- What is only traced

constexpr auto found_text = "found the data_broadcast_id\n";
constexpr auto bad_text = "selector byte is error\n";
constexpr auto none_text = "can't find the data_broadcast_id here\n";

// Whether the log names a number, in whatever base.
bool log_names(unsigned number)
{
    const auto log = fake::log_text();
    return log.find(text("0x%x", number)) != std::string::npos ||
           log.find(text("0x%X", number)) != std::string::npos ||
           log.find(std::to_string(number)) != std::string::npos;
}

TEST(BroadcastTrace, TellsTheFieldsOfEachDescriptor)
{
    store_program({stream(
        0x151, {data_broadcast_id(0x0106, {0xAB, 0xCD, 0x5E}), association_tag({.tag = 0xBEEF})})});
    EXPECT_EQ(Orva_Si_GetDataBroadCounts(5), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, found_text)) << fake::log_text();
    for (const unsigned number : {0x106u, 0xABCDu, 0x5Eu, 0xBEEFu})
        EXPECT_TRUE(log_names(number)) << number << '\n' << fake::log_text();
    EXPECT_FALSE(fake::logged(bad_text));
    EXPECT_FALSE(fake::logged(none_text));
}

TEST(BroadcastTrace, ASelectorWithoutItsFieldsIsAnError)
{
    for (const octets &selector : {octets{}, octets{0xAB}, octets{0xAB, 0xCD}}) {
        SCOPED_TRACE(selector.size());
        recreate_store();
        store_program({stream(0x151, {data_broadcast_id(0x0106, selector)})});
        EXPECT_EQ(Orva_Si_GetDataBroadCounts(5), ORVA_SI_OK);
        EXPECT_TRUE(fake::logged(bad_text)) << fake::log_text();
    }
}

TEST(BroadcastTrace, OtherIdsNeedNoSelector)
{
    store_program({stream(
        0x151, {data_broadcast_id(0x000B), data_broadcast_id(update_id, {1}), raw(0x14, {0xBE})})});
    EXPECT_EQ(Orva_Si_GetDataBroadCounts(5), ORVA_SI_OK);
    EXPECT_EQ(fake::times_logged(found_text), 2u) << fake::log_text();
    EXPECT_FALSE(fake::logged(bad_text));
}

TEST(BroadcastTrace, TheWildcardTakesEveryProgram)
{
    store_program({stream(0x151, {data_broadcast_id(0x000B)})});
    store_program({stream(0x161, {data_broadcast_id(0x000B)})}, 6);
    EXPECT_EQ(Orva_Si_GetDataBroadCounts(0xFFFF), ORVA_SI_OK);
    EXPECT_EQ(fake::times_logged(found_text), 2u) << fake::log_text();
}

TEST(BroadcastTrace, WithoutADescriptorItSaysSo)
{
    store_program({stream(0x151, {iso639("eng")})});
    EXPECT_EQ(Orva_Si_GetDataBroadCounts(5), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, none_text)) << fake::log_text();
    EXPECT_FALSE(fake::logged(found_text));
    EXPECT_EQ(Orva_Si_GetDataBroadCounts(6), ORVA_SI_OK);
}

} // namespace
