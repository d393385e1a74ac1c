// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about programs.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/query_program.h"
#include "orva_si_model.h"
#include "support/getters.h"
#include "support/sections.h"
#include "support/store.h"

using namespace test;

namespace {

using pids = std::vector<std::uint16_t>;

// A list getter of one program, to be called with an array and its count.
template <class T>
auto of(std::uint32_t program, std::uint32_t (*getter)(std::uint32_t, T *, std::uint32_t *))
{
    return [=](T *list, std::uint32_t *count) { return getter(program, list, count); };
}

template <class T>
void expect_list_arguments(std::uint32_t (*getter)(std::uint32_t, T *, std::uint32_t *),
                           const char *array_name)
{
    T item{};
    std::uint32_t count = 1;
    expect_refused([&] { return getter(1, nullptr, &count); }, array_name);
    expect_refused([&] { return getter(1, &item, nullptr); }, "pcount");
    EXPECT_EQ(count, 1u);
}

// ---- Raw sections

struct raw_answer {
    std::uint32_t result;
    std::uint32_t length;
    octets data;
};

// Asks for raw bytes with a buffer of exactly that many.
template <class Get>
raw_answer raw_of(Get get, std::uint32_t capacity)
{
    const std::unique_ptr<std::uint8_t[]> room{new std::uint8_t[capacity]{}};
    std::uint32_t length = capacity;
    const std::uint32_t result = get(room.get(), &length);
    return {result, length, octets(room.get(), room.get() + std::min(length, capacity))};
}

class PmtBytes : public testing::Test {
protected:
    void SetUp() override
    {
        store(section, 0x150);
        store(make(pmt{.program = 6, .streams = {{.pid = 0x161}}}), 0x160);
        fake::clear_log();
    }
    const octets section = make(pmt{.program = 5, .pcr_pid = 0x151, .streams = {{.pid = 0x151}}});
};

TEST_F(PmtBytes, AreTheWholeSectionAsReceived)
{
    const auto answer = raw_of(of(5, Orva_Si_GetPmtData), 1024);
    EXPECT_EQ(answer.result, ORVA_SI_OK);
    EXPECT_EQ(answer.data, section);
    EXPECT_TRUE(fake::logged(4, "got the data len=" + std::to_string(section.size()) + "\n"));
}

TEST_F(PmtBytes, FitABufferOfTheirSize)
{
    const auto size = static_cast<std::uint32_t>(section.size());
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetPmtData), size).data, section);
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetCiData), size).data, section);
    EXPECT_EQ(raw_of(of(0x150, Orva_Si_GetPmtDataByPID), size).data, section);
}

TEST_F(PmtBytes, AreNotCopiedIntoABufferThatIsOneByteTooSmall)
{
    const auto size = static_cast<std::uint32_t>(section.size());
    for (auto *getter : {Orva_Si_GetPmtData, Orva_Si_GetCiData}) {
        fake::clear_log();
        const auto answer = raw_of(of(5, getter), size - 1);
        EXPECT_EQ(answer.result, ORVA_SI_ARRAY_FULL);
        EXPECT_EQ(answer.length, size - 1);
        EXPECT_EQ(answer.data, octets(size - 1, 0));
        EXPECT_TRUE(fake::logged(2, "the passed len=" + std::to_string(size - 1) +
                                        " is less than the data's len=" + std::to_string(size) +
                                        "\n"))
            << fake::log_text();
    }
    EXPECT_EQ(raw_of(of(0x150, Orva_Si_GetPmtDataByPID), size - 1).result, ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetPmtData), 0).result, ORVA_SI_ARRAY_FULL);
}

TEST_F(PmtBytes, AreFoundByPid)
{
    EXPECT_EQ(raw_of(of(0x150, Orva_Si_GetPmtDataByPID), 1024).data, section);
    EXPECT_EQ(raw_of(of(0x170, Orva_Si_GetPmtDataByPID), 1024).result, ORVA_SI_NOT_FOUND);
}

TEST_F(PmtBytes, NoPidIsNotFoundWithoutLocking)
{
    const auto answer = raw_of(of(0x2000, Orva_Si_GetPmtDataByPID), 1024);
    EXPECT_EQ(answer.result, ORVA_SI_NOT_FOUND);
    EXPECT_EQ(answer.length, 1024u);
    EXPECT_EQ(fake::times_logged("~~~Mutex Lock~~~\n"), 0u);
}

TEST_F(PmtBytes, OfAnUnknownProgramAreNotFound)
{
    for (auto *getter : {Orva_Si_GetPmtData, Orva_Si_GetCiData}) {
        const auto answer = raw_of(of(7, getter), 1024);
        EXPECT_EQ(answer.result, ORVA_SI_NOT_FOUND);
        EXPECT_EQ(answer.length, 1024u);
    }
}

TEST_F(PmtBytes, NullArgumentsAreRefused)
{
    for (auto *getter : {Orva_Si_GetPmtData, Orva_Si_GetCiData, Orva_Si_GetPmtDataByPID}) {
        std::uint8_t data[1];
        std::uint32_t length = 1;
        expect_refused([&] { return getter(5, nullptr, &length); }, "data");
        expect_refused([&] { return getter(5, data, nullptr); }, "plen");
        EXPECT_EQ(length, 1u);
    }
}

TEST(PmtBytesUndecoded, ComeOutEvenWhenTheInnerLengthsAreWrong)
{
    const auto section =
        with_length12(make(pmt{.program = 5, .streams = {{.pid = 0x151}}}), 10, 0xFFF);
    store(section, 0x150);
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetPmtData), 1024).data, section);
    std::uint16_t pid = 0;
    EXPECT_EQ(Orva_Si_GetPcrPID(5, &pid), ORVA_SI_NO_DATA);
}

TEST(PmtBytesUndecoded, ADamagedSectionIsNotFound)
{
    store(damage(make(pmt{.program = 5})), 0x150);
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetPmtData), 1024).result, ORVA_SI_NOT_FOUND);
}

TEST(PmtBytesUndecoded, OnTheEitPidCompletionIsNotAskedFor)
{
    const auto section = make(pmt{.program = 5, .last_section_number = 1});
    store(section, 0x12)->completed = 0;
    EXPECT_EQ(raw_of(of(0x12, Orva_Si_GetPmtDataByPID), 1024).data, section);
    EXPECT_EQ(raw_of(of(5, Orva_Si_GetPmtData), 1024).result, ORVA_SI_NOT_FOUND);
    store(make(pmt{.program = 6}), 0x160)->completed = 0;
    EXPECT_EQ(raw_of(of(0x160, Orva_Si_GetPmtDataByPID), 1024).result, ORVA_SI_NOT_FOUND);
}

// ---- Whether a program is known

TEST(SystemSoftware, AProgramIsFoundWhenThePatListsIt)
{
    init_store();
    PmtPidList.pmtpid_array[0] = {5, 0x150};
    PmtPidList.count = 1;
    EXPECT_EQ(Orva_Si_IsFoundSsService(5), 1u);
    EXPECT_EQ(Orva_Si_IsFoundSsService(0x10005), 1u);
    EXPECT_EQ(Orva_Si_IsFoundSsService(6), 0u);
    EXPECT_EQ(Orva_Si_IsFoundSsService(SI_NO_PROGRAM), 0u);
}

// ---- PCR and video

TEST(PcrPid, IsThatOfTheProgram)
{
    store(make(pmt{.program = 5, .pcr_pid = 0x1ABC}), 0x150);
    store(make(pmt{.program = 6, .pcr_pid = 0x161}), 0x160);
    std::uint16_t pid = 0;
    EXPECT_EQ(Orva_Si_GetPcrPID(5, &pid), ORVA_SI_OK);
    EXPECT_EQ(pid, 0x1ABC);
    EXPECT_EQ(Orva_Si_GetPcrPID(0x70006, &pid), ORVA_SI_OK);
    EXPECT_EQ(pid, 0x161);
    EXPECT_EQ(Orva_Si_GetPcrPID(7, &pid), ORVA_SI_NO_DATA);
    EXPECT_EQ(pid, 0x161);
    expect_refused([] { return Orva_Si_GetPcrPID(5, nullptr); }, "pid");
}

TEST(VideoPid, IsTheFirstStreamOfOneOfTheThreeTypes)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x03, .pid = 0x151},
                               {.type = 0x1B, .pid = 0x152},
                               {.type = 0x02, .pid = 0x153}}}),
          0x150);
    std::uint16_t pid = 0;
    EXPECT_EQ(Orva_Si_GetVideoPID(5, &pid), ORVA_SI_OK);
    EXPECT_EQ(pid, 0x152);
    EXPECT_TRUE(fake::logged(4, "get the stream_type = 27's pid = 0x152\n")) << fake::log_text();
}

TEST(VideoPid, OnlyTheThreeTypesAreVideo)
{
    for (unsigned type = 0; type <= 0xFF; ++type) {
        const auto program = static_cast<std::uint16_t>(type + 1);
        store(make(pmt{.program = program,
                       .streams = {{.type = static_cast<std::uint8_t>(type), .pid = 0x151}}}));
        std::uint16_t pid = 0;
        const bool video = type == 0x01 || type == 0x02 || type == 0x1B;
        EXPECT_EQ(Orva_Si_GetVideoPID(program, &pid), video ? ORVA_SI_OK : ORVA_SI_FAILURE) << type;
    }
}

TEST(VideoPid, WithoutOneTheAnswerStays)
{
    store(make(pmt{.program = 5}), 0x150);
    std::uint16_t pid = 99;
    EXPECT_EQ(Orva_Si_GetVideoPID(5, &pid), ORVA_SI_FAILURE);
    EXPECT_EQ(Orva_Si_GetVideoPID(6, &pid), ORVA_SI_FAILURE);
    EXPECT_EQ(pid, 99);
    expect_refused([] { return Orva_Si_GetVideoPID(5, nullptr); }, "pid");
}

// ---- Audio

struct same_audio {
    bool operator()(const SiAudioPid &a, const SiAudioPid &b) const
    {
        return a.pid == b.pid && a.has_lang == b.has_lang && a.is_ac3 == b.is_ac3;
    }
};

void expect_audio(const std::vector<pmt_stream> &streams, const std::vector<SiAudioPid> &expected)
{
    store(make(pmt{.program = 5, .streams = streams}), 0x150);
    expect_list(of(5, Orva_Si_GetAudioPIDs), expected, "need more room\n", same_audio{});
}

TEST(AudioPids, ThreeStreamTypesAreAudio)
{
    expect_audio(
        {{.type = 0x03, .pid = 0x151}, {.type = 0x04, .pid = 0x152}, {.type = 0x11, .pid = 0x153}},
        {{0x151, 0, 0}, {0x152, 0, 0}, {0x153, 0, 0}});
    ask<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), 3);
    EXPECT_TRUE(fake::logged(4, "found audio pid: 0x151\n")) << fake::log_text();
}

TEST(AudioPids, NoOtherStreamTypeIsAudio)
{
    for (unsigned type = 0; type <= 0xFF; ++type) {
        const auto program = static_cast<std::uint16_t>(type + 1);
        store(make(pmt{.program = program,
                       .streams = {{.type = static_cast<std::uint8_t>(type), .pid = 0x151}}}));
        const bool audio = type == 0x03 || type == 0x04 || type == 0x11;
        const auto answer = ask<SiAudioPid>(of(program, Orva_Si_GetAudioPIDs), 1);
        EXPECT_EQ(answer.result, audio ? ORVA_SI_OK : ORVA_SI_NO_DATA) << type;
        EXPECT_EQ(answer.count, audio ? 1u : 0u) << type;
    }
}

TEST(AudioPids, APrivateStreamWithAnAc3DescriptorIsAudio)
{
    expect_audio({{.type = 0x06, .pid = 0x151, .descriptors = {ac3()}}}, {{0x151, 0, 1}});
}

TEST(AudioPids, AnEmptyAc3DescriptorDoesNotCount)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x06, .pid = 0x151, .descriptors = {raw(0x6A, {})}}}}),
          0x150);
    std::uint32_t count = 1;
    SiAudioPid record{};
    EXPECT_EQ(Orva_Si_GetAudioPIDs(5, &record, &count), ORVA_SI_NO_DATA);
}

TEST(AudioPids, AComponentDescriptorOfMpegAudioMakesAnyStreamAudio)
{
    expect_audio({{.type = 0x99, .pid = 0x151, .descriptors = {component(2, 3)}},
                  {.type = 0x06, .pid = 0x152, .descriptors = {component(2, 1)}},
                  {.type = 0x02, .pid = 0x153, .descriptors = {component(2, 5)}}},
                 {{0x151, 0, 0}, {0x152, 0, 0}, {0x153, 0, 0}});
}

TEST(AudioPids, OtherComponentDescriptorsDoNot)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x06, .pid = 0x151, .descriptors = {component(1, 3)}},
                               {.type = 0x06, .pid = 0x152, .descriptors = {component(2, 0)}},
                               {.type = 0x06, .pid = 0x153, .descriptors = {component(2, 6)}},
                               {.type = 0x06, .pid = 0x154, .descriptors = {component(2, 0x40)}},
                               {.type = 0x06, .pid = 0x155, .descriptors = {component(4, 3)}},
                               {.type = 0x06,
                                .pid = 0x156,
                                .descriptors = {raw(0x50, {0xF2, 3, 0, 'e', 'n'})}}}}),
          0x150);
    std::uint32_t count = 1;
    SiAudioPid record{};
    EXPECT_EQ(Orva_Si_GetAudioPIDs(5, &record, &count), ORVA_SI_NO_DATA);
    EXPECT_EQ(count, 0u);
}

TEST(AudioPids, TheComponentTypeCountsForItsOwnStreamOnly)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x06, .pid = 0x151, .descriptors = {component(2, 3)}},
                               {.type = 0x06, .pid = 0x152}}}),
          0x150);
    const auto answer = ask<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), 3);
    ASSERT_EQ(answer.count, 1u);
    EXPECT_EQ(answer.items[0].pid, 0x151);
}

TEST(AudioPids, ALanguageDescriptorIsTold)
{
    expect_audio({{.type = 0x03, .pid = 0x151, .descriptors = {iso639("deu")}},
                  {.type = 0x03,
                   .pid = 0x152,
                   .descriptors = {raw(0x0A, {'d', 'e', 'u', 0, 'e', 'n', 'g', 0})}},
                  {.type = 0x03, .pid = 0x153, .descriptors = {raw(0x0A, {})}},
                  {.type = 0x03, .pid = 0x154, .descriptors = {raw(0x0A, {'d', 'e', 'u'})}},
                  {.type = 0x06, .pid = 0x155, .descriptors = {ac3(0x80), iso639("deu")}}},
                 {{0x151, 1, 0}, {0x152, 1, 0}, {0x153, 1, 0}, {0x154, 0, 0}, {0x155, 1, 1}});
}

TEST(AudioPids, RoomIsAskedForBeforeEachStreamWhateverItIs)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x03, .pid = 0x151}, {.type = 0x02, .pid = 0x152}}}),
          0x150);
    const auto tight = ask<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), 1);
    EXPECT_EQ(tight.result, ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(tight.count, 1u);
    EXPECT_EQ(tight.items[0].pid, 0x151);
    const auto roomy = ask<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), 2);
    EXPECT_EQ(roomy.result, ORVA_SI_OK);
    EXPECT_EQ(roomy.count, 1u);
}

TEST(AudioPids, ACandidateThatIsNotAudioIsOverwritten)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x02, .pid = 0x151}, {.type = 0x03, .pid = 0x152}}}),
          0x150);
    const auto answer = ask<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), 1);
    EXPECT_EQ(answer.result, ORVA_SI_OK);
    ASSERT_EQ(answer.count, 1u);
    EXPECT_EQ(answer.items[0].pid, 0x152);
}

TEST(AudioPids, OfNoProgramThereIsNoData)
{
    store(make(pmt{.program = 5}), 0x150);
    expect_empty<SiAudioPid>(of(5, Orva_Si_GetAudioPIDs), ORVA_SI_NO_DATA);
    expect_empty<SiAudioPid>(of(6, Orva_Si_GetAudioPIDs), ORVA_SI_NO_DATA);
    expect_list_arguments(Orva_Si_GetAudioPIDs, "audiopid");
}

// ---- Other lists of PIDs

TEST(AllPids, AreThoseOfEveryStream)
{
    store(make(pmt{.program = 5,
                   .streams = {{.type = 0x02, .pid = 0x151},
                               {.type = 0x99, .pid = 0x1FFE, .descriptors = {raw(0x80, {1, 2, 3})}},
                               {.type = 0x03, .pid = 0x152}}}),
          0x150);
    expect_list(of(5, Orva_Si_GetAllPids), pids{0x151, 0x1FFE, 0x152});
    expect_empty<std::uint16_t>(of(6, Orva_Si_GetAllPids), ORVA_SI_NO_DATA);
    expect_list_arguments(Orva_Si_GetAllPids, "pids");
}

TEST(TeletextPids, AreThoseOfStreamsWithATeletextDescriptor)
{
    store(make(pmt{
              .program = 5,
              .streams =
                  {{.type = 0x06, .pid = 0x151},
                   {.type = 0x06, .pid = 0x152, .descriptors = {teletext({{}, {.type = 2}})}},
                   {.type = 0x06, .pid = 0x153, .descriptors = {raw(0x56, {'e', 'n', 'g', 8})}},
                   {.type = 0x06, .pid = 0x154, .descriptors = {teletext({{}}), teletext({{}})}}}}),
          0x150);
    expect_list(of(5, Orva_Si_GetTeleTextPids), pids{0x152, 0x154});
    ask<std::uint16_t>(of(5, Orva_Si_GetTeleTextPids), 9);
    EXPECT_TRUE(fake::logged(4, " teletext pid = 0x152 of prog_no =  0x5\n")) << fake::log_text();
    expect_empty<std::uint16_t>(of(6, Orva_Si_GetTeleTextPids), ORVA_SI_NO_DATA);
    expect_list_arguments(Orva_Si_GetTeleTextPids, "pid");
}

TEST(SubtitlePids, AreThoseOfStreamsWithASubtitlingDescriptor)
{
    store(
        make(pmt{.program = 5,
                 .streams = {{.type = 0x06, .pid = 0x151, .descriptors = {subtitling({{}})}},
                             {.type = 0x06, .pid = 0x152, .descriptors = {teletext({{}})}},
                             {.type = 0x06,
                              .pid = 0x153,
                              .descriptors = {raw(0x59, {1, 2, 3, 4, 5, 6, 7})}},
                             {.type = 0x06, .pid = 0x154, .descriptors = {subtitling({{}, {}})}}}}),
        0x150);
    expect_list(of(5, Orva_Si_GetSubtitlePids), pids{0x151, 0x154});
    fake::clear_log();
    ask<std::uint16_t>(of(5, Orva_Si_GetSubtitlePids), 9);
    EXPECT_TRUE(fake::logged(4, "found prog_no = 0x5 's sbt pid: 0x151, count: 1\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "found prog_no = 0x5 's sbt pid: 0x154, count: 2\n"));
    EXPECT_FALSE(fake::logged("no entry\n"));
    expect_list_arguments(Orva_Si_GetSubtitlePids, "pid");
}

TEST(SubtitlePids, OfNoneThereIsNoEntry)
{
    store(make(pmt{.program = 5, .streams = {{.type = 0x06, .pid = 0x151}}}), 0x150);
    expect_empty<std::uint16_t>(of(5, Orva_Si_GetSubtitlePids), ORVA_SI_NO_DATA);
    EXPECT_TRUE(fake::logged(4, "no entry\n")) << fake::log_text();
}

// ---- Conditional access

struct same_ca {
    bool operator()(const SiCaDesc &a, const SiCaDesc &b) const
    {
        return a.ca_system_id == b.ca_system_id && a.ca_pid == b.ca_pid;
    }
};

TEST(CaDescriptors, OfTheProgramComeBeforeThoseOfItsStreams)
{
    store(make(pmt{
              .program = 5,
              .descriptors = {ca(0x0B00, 0x1FF0), raw(0x09, {1, 2, 3}), ca(0x1234, 0x1001, {9, 9})},
              .streams = {{.pid = 0x151, .descriptors = {ca(0x0500, 0x200)}},
                          {.pid = 0x152},
                          {.pid = 0x153,
                           .descriptors = {iso639("eng"), ca(0x0604, 0x201), ca(0x0605, 0x202)}}}}),
          0x150);
    expect_list(of(5, Orva_Si_GetPmtCaDesc),
                std::vector<SiCaDesc>{{0, 0, 0x0B00, 0x1FF0},
                                      {0, 0, 0x1234, 0x1001},
                                      {0, 0, 0x0500, 0x200},
                                      {0, 0, 0x0604, 0x201},
                                      {0, 0, 0x0605, 0x202}},
                "need more room\n", same_ca{});
}

TEST(CaDescriptors, TheFirstTwoWordsStayTheCallers)
{
    store(make(pmt{.program = 0x1005, .descriptors = {ca(0x1B00, 0x1FF0)}}), 0x150);
    SiCaDesc record{.reserved1 = 0x1111, .reserved2 = 0x2222, .ca_system_id = 0, .ca_pid = 0};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetPmtCaDesc(0x1005, &record, &count), ORVA_SI_OK);
    EXPECT_EQ(record.reserved1, 0x1111);
    EXPECT_EQ(record.reserved2, 0x2222);
    EXPECT_EQ(record.ca_system_id, 0x1B00);
    EXPECT_EQ(record.ca_pid, 0x1FF0);
    EXPECT_TRUE(fake::logged(4, "ca_system_id = 0x1b00 ca_pid = 0x1ff0 of prog_no = 0x1005\n"))
        << fake::log_text();
}

TEST(CaDescriptors, OfAFreeProgramThereIsNoData)
{
    store(make(pmt{.program = 5, .streams = {{.pid = 0x151}}}), 0x150);
    expect_empty<SiCaDesc>(of(5, Orva_Si_GetPmtCaDesc), ORVA_SI_NO_DATA);
    expect_list_arguments(Orva_Si_GetPmtCaDesc, "cadesclist");
}

} // namespace
