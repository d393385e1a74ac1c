// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "orva_platform.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Standard error as a socket that keeps every write apart.
class StandardError : public testing::Test {
protected:
    StandardError()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
        reading = ends[0];
        kept = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
    }
    ~StandardError() override
    {
        dup2(kept, STDERR_FILENO);
        close(kept);
        close(reading);
    }
    StandardError(const StandardError &) = delete;
    StandardError &operator=(const StandardError &) = delete;

    std::vector<std::string> writes() const
    {
        std::vector<std::string> found;
        std::string packet(65536, '\0');
        for (;;) {
            const ssize_t size = read(reading, packet.data(), packet.size());
            if (size <= 0)
                return found;
            found.emplace_back(packet, 0, static_cast<std::size_t>(size));
        }
    }

    int reading = -1;
    int kept = -1;
};

struct heard {
    OrvaDebugCategory *cat;
    std::uint32_t level;
    std::string file;
    std::string function;
    std::uint32_t line;
    std::string text;
};

void hear(void *user, OrvaDebugCategory *cat, std::uint32_t level, const char *file,
          const char *function, std::uint32_t line, const char *text)
{
    static_cast<std::vector<heard> *>(user)->push_back({cat, level, file, function, line, text});
}

class DebugSink : public testing::Test {
protected:
    DebugSink() { orva_debug_set_sink(hear, &lines); }
    ~DebugSink() override { orva_debug_set_sink(nullptr, nullptr); }
    DebugSink(const DebugSink &) = delete;
    DebugSink &operator=(const DebugSink &) = delete;

    std::vector<std::string> texts() const
    {
        std::vector<std::string> found;
        for (const heard &line : lines)
            found.push_back(line.text);
        return found;
    }

    std::vector<heard> lines;
};

TEST_F(StandardError, ALineIsOneWriteThatSaysWhoSpeaks)
{
    OrvaDebugCategory *cat = orva_debug_category_new("SI", 4, "SI DEBUG");
    orva_debug_log(cat, 2, "Src/orva_si_ctl", "Orva_Si_Init", 77, "count %d of %s\n", 3, "many");
    EXPECT_THAT(writes(), ElementsAre("SI 2 Src/orva_si_ctl:77 Orva_Si_Init: count 3 of many\n"));
}

TEST_F(StandardError, ATextWithoutLineEndGetsOne)
{
    orva_debug_log(nullptr, 1, "file", "function", 5, "no end");
    EXPECT_THAT(writes(), ElementsAre(" 1 file:5 function: no end\n"));
}

TEST_F(StandardError, LongTextsAreWrittenWhole)
{
    const std::string text(5000, 'x');
    orva_debug_log(nullptr, 1, "file", "function", 5, "%s\n", text.c_str());
    EXPECT_THAT(writes(), ElementsAre(" 1 file:5 function: " + text + "\n"));
}

TEST_F(StandardError, ThresholdStartsAtErrors)
{
    EXPECT_EQ(__orva_debug_min, static_cast<std::uint32_t>(ORVA_DEBUG_ERROR));
    orva_debug_log(nullptr, ORVA_DEBUG_NOTICE, "file", "function", 1, "dropped\n");
    orva_debug_dump(nullptr, ORVA_DEBUG_NOTICE, "file", "function", 1, "dropped", 7);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(StandardError, LinesOfThreadsDoNotMix)
{
    const auto talk = [](char letter) {
        for (int i = 0; i < 20; ++i)
            orva_debug_log(nullptr, 1, "f", "g", 1, "%s\n", std::string(600, letter).c_str());
    };
    std::thread first{talk, 'a'};
    std::thread second{talk, 'b'};
    first.join();
    second.join();
    const auto lines = writes();
    EXPECT_EQ(lines.size(), 40u);
    const auto line_of = [](char letter) { return " 1 f:1 g: " + std::string(600, letter) + "\n"; };
    EXPECT_EQ(std::ranges::count(lines, line_of('a')), 20);
    EXPECT_EQ(std::ranges::count(lines, line_of('b')), 20);
}

TEST_F(DebugSink, HearsWhatIsLoggedAndStandardErrorDoesNot)
{
    OrvaDebugCategory *cat = orva_debug_category_new("SI", 4, "SI DEBUG");
    testing::internal::CaptureStderr();
    orva_debug_log(cat, 2, "Src/file", "function", 9, "value %u\n", 8u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].cat, cat);
    EXPECT_EQ(lines[0].level, 2u);
    EXPECT_EQ(lines[0].file, "Src/file");
    EXPECT_EQ(lines[0].function, "function");
    EXPECT_EQ(lines[0].line, 9u);
    EXPECT_EQ(lines[0].text, "value 8\n");
}

TEST_F(DebugSink, ThresholdIsTheHighestLevelThatPasses)
{
    for (std::uint32_t threshold = 0; threshold <= 5; ++threshold) {
        lines.clear();
        __orva_debug_min = threshold;
        for (std::uint32_t level = 1; level <= 5; ++level)
            orva_debug_log(nullptr, level, "file", "function", 1, "line\n");
        EXPECT_EQ(lines.size(), threshold);
    }
}

TEST_F(DebugSink, MissingNamesAreEmpty)
{
    orva_debug_log(nullptr, 1, nullptr, nullptr, 0, "line\n");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].file, "");
    EXPECT_EQ(lines[0].function, "");
}

TEST_F(DebugSink, ErrnoSurvivesALine)
{
    errno = ENOENT;
    orva_debug_log(nullptr, 1, "file", "function", 1, "%s\n", std::string(5000, 'x').c_str());
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DebugSink, IsCalledByOneThreadAtATime)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 500; ++n)
                orva_debug_log(nullptr, 1, "file", "function", 1, "line\n"); // the sink has no lock
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(lines.size(), 2000u);
}

TEST_F(DebugSink, NullBringsStandardErrorBack)
{
    orva_debug_set_sink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    orva_debug_log(nullptr, 1, "file", "function", 1, "line\n");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("line\n"));
    EXPECT_THAT(lines, IsEmpty());
}

TEST_F(DebugSink, DumpIsHexadecimalSixteenBytesALine)
{
    std::array<std::uint8_t, 35> data{};
    std::iota(data.begin(), data.end(), std::uint8_t{0xF0});
    orva_debug_dump(nullptr, 1, "file", "function", 1, data.data(), data.size());
    EXPECT_THAT(texts(), ElementsAre("0000: f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff\n",
                                     "0010: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n",
                                     "0020: 10 11 12\n"));
}

TEST_F(DebugSink, DumpOfNothingSaysNothing)
{
    orva_debug_dump(nullptr, 1, "file", "function", 1, nullptr, 16);
    orva_debug_dump(nullptr, 1, "file", "function", 1, "x", 0);
    EXPECT_THAT(lines, IsEmpty());
}

TEST(DebugCategory, KeepsItsOwnCopyOfTheName)
{
    std::string name = "SI";
    OrvaDebugCategory *cat = orva_debug_category_new(name.c_str(), 4, "SI DEBUG");
    ASSERT_NE(cat, nullptr);
    name = "XX";
    EXPECT_STREQ(orva_debug_category_name(cat), "SI");
}

TEST(DebugCategory, NullHasAnEmptyNameAndNullTextsAreEmpty)
{
    EXPECT_STREQ(orva_debug_category_name(nullptr), "");
    EXPECT_STREQ(orva_debug_category_name(orva_debug_category_new(nullptr, 0, nullptr)), "");
}

} // namespace
