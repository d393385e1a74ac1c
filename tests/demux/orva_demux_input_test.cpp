// SPDX-License-Identifier: LGPL-2.1-or-later
// Inputs: what is opened and refused, what a pipe does, and the pace of a broadcast.
#include <cerrno>
#include <termios.h>

#include <cstring>
#include <set>

#include "demux/client.h"
#include "orva_demux_pacing.h"

using namespace test;
using testing::ElementsAre;

namespace {

class Input : public DemuxClient {
protected:
    OrvaDemuxError error_of(const char *path)
    {
        OrvaDemuxError error = ORVA_DEMUX_OK;
        OrvaDemux *opened = orva_demux_open(path, nullptr, &error);
        EXPECT_EQ(opened == nullptr, error != ORVA_DEMUX_OK);
        orva_demux_close(opened);
        return error;
    }
    static stream pats(unsigned count)
    {
        stream ts;
        for (unsigned i = 0; i < count; ++i)
            ts.section(0, make(pat{.ts = static_cast<std::uint16_t>(i)}));
        return ts;
    }
};

TEST_F(Input, MissingFile)
{
    EXPECT_EQ(error_of("/tmp/no such folder/no such file.ts"), ORVA_DEMUX_NO_INPUT);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Input, Folder)
{
    EXPECT_EQ(error_of("/tmp"), ORVA_DEMUX_NO_INPUT);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(Input, FileThatCannotBeRead)
{
    EXPECT_EQ(error_of("/proc/self/mem"), ORVA_DEMUX_NO_INPUT); // nothing is mapped at its start
    EXPECT_EQ(errno, EIO);
}

TEST_F(Input, ReadingThatFailsHalfWayKeepsWhatCame)
{
    // The master of a pseudo terminal cannot be read once the other side is closed.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
    const int slave = ::open(ptsname(master), O_RDWR | O_NOCTTY);
    termios raw{};
    ASSERT_EQ(tcgetattr(slave, &raw), 0);
    cfmakeraw(&raw);
    ASSERT_EQ(tcsetattr(slave, TCSANOW, &raw), 0);
    ASSERT_EQ(dup2(master, STDIN_FILENO), STDIN_FILENO);
    ::close(master);
    open(std::string{"-"});
    const octets content = pats(10).bytes;
    ASSERT_EQ(write(slave, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    ::close(slave);
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    EXPECT_EQ(status().error, ORVA_DEMUX_READ_ERROR);
    EXPECT_EQ(status().sections, 10u);
    EXPECT_GE(sections(id).size(), 10u);
}

TEST_F(Input, EmptyFile)
{
    EXPECT_EQ(error_of(file({}).c_str()), ORVA_DEMUX_EMPTY);
}

TEST_F(Input, FileThatIsNoStream)
{
    EXPECT_EQ(error_of(file(octets(5000, 'G' + 1)).c_str()), ORVA_DEMUX_NOT_TS);
    EXPECT_EQ(error_of(file({'G'}).c_str()), ORVA_DEMUX_NOT_TS);
}

TEST_F(Input, StreamBehindMoreThanAMebibyteOfGarbage)
{
    octets content(3u << 20, 0);
    const octets packets = pats(10).bytes;
    content.insert(content.end(), packets.begin(), packets.end());
    EXPECT_EQ(error_of(file(content).c_str()), ORVA_DEMUX_NOT_TS);
    content.erase(content.begin(), content.begin() + (5 << 19));
    EXPECT_EQ(error_of(file(content).c_str()), ORVA_DEMUX_OK);
}

TEST_F(Input, FormsThatAreNotKnown)
{
    EXPECT_EQ(error_of(nullptr), ORVA_DEMUX_BAD_INPUT);
    EXPECT_EQ(error_of(""), ORVA_DEMUX_BAD_INPUT);
    EXPECT_EQ(error_of("http://239.0.0.1:1234"), ORVA_DEMUX_BAD_INPUT);
    EXPECT_EQ(error_of("udp://@239.0.0.1"), ORVA_DEMUX_BAD_INPUT);
}

TEST_F(Input, OneDemultiplexerAtATime)
{
    const std::string path = file(pats(3).bytes);
    open(path);
    EXPECT_EQ(error_of(path.c_str()), ORVA_DEMUX_BUSY);
    close();
    EXPECT_EQ(error_of(path.c_str()), ORVA_DEMUX_OK);
}

TEST_F(Input, ErrorsHaveTexts)
{
    std::set<std::string> texts;
    for (int error = ORVA_DEMUX_OK; error <= ORVA_DEMUX_READ_ERROR; ++error)
        texts.insert(orva_demux_error_text(static_cast<OrvaDemuxError>(error)));
    EXPECT_EQ(texts.size(), 8u);
    EXPECT_FALSE(texts.contains("unknown error"));
}

TEST_F(Input, NullArgumentsAreIgnored)
{
    orva_demux_close(nullptr);
    orva_demux_get_status(nullptr, nullptr);
    EXPECT_EQ(orva_demux_open("", nullptr, nullptr), nullptr);
}

TEST_F(Input, StandardInputIsReadLikeAFile)
{
    const octets content = pats(5).bytes;
    const int fd = ::open(file(content).c_str(), O_RDONLY);
    ASSERT_EQ(dup2(fd, STDIN_FILENO), STDIN_FILENO);
    ::close(fd);
    open(std::string{"-"});
    EXPECT_EQ(status().input_bytes, content.size());
    arm(on_pid(0));
    EXPECT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    EXPECT_EQ(status().bytes, content.size());
    close();
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1) << "standard input stays open";
}

TEST_F(Input, PipeDeliversWhatHasCome)
{
    open(pipe());
    const std::uint32_t id = arm(on_pid(0));
    feed(pats(8).bytes);
    EXPECT_TRUE(eventually([] { return count() >= 4; }));
    EXPECT_EQ(status().state, ORVA_DEMUX_READING);
    EXPECT_EQ(status().input_bytes, 0u);
    end_pipe();
    EXPECT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    EXPECT_GE(sections(id).size(), 8u);
}

TEST_F(Input, PipeThatIsNoStream)
{
    open(pipe());
    arm(on_pid(0));
    feed(octets(1000, 'x'));
    end_pipe();
    ASSERT_TRUE(reaches(ORVA_DEMUX_FAILED));
    EXPECT_EQ(status().error, ORVA_DEMUX_NOT_TS);
    EXPECT_EQ(status().idle, 0);
}

TEST_F(Input, EndlessPipeThatIsNoStream)
{
    open(pipe());
    arm(on_pid(0));
    ASSERT_EQ(fcntl(pipe_in, F_SETFL, O_NONBLOCK), 0);
    const octets garbage(10'000, 'x');
    EXPECT_TRUE(eventually([&] {
        while (write(pipe_in, garbage.data(), garbage.size()) > 0) {
        }
        return status().state == ORVA_DEMUX_FAILED;
    }));
    EXPECT_EQ(status().error, ORVA_DEMUX_NOT_TS);
}

TEST_F(Input, EmptyPipe)
{
    open(pipe());
    arm(on_pid(0));
    end_pipe();
    ASSERT_TRUE(reaches(ORVA_DEMUX_FAILED));
    EXPECT_EQ(status().error, ORVA_DEMUX_EMPTY);
}

TEST_F(Input, SilentPipeIsClosedAtOnce)
{
    open(pipe());
    arm(on_pid(0));
    ASSERT_TRUE(reaches(ORVA_DEMUX_READING));
    const auto start = steady::now();
    close();
    EXPECT_LT(steady::now() - start, at_once);
}

TEST_F(Input, FaultsAreCounted)
{
    stream ts = pats(6);
    ts.section(0, damage(make(pat{.ts = 77})));
    ts.packet(0, {}, {.error = true});
    ts.packet(0x300, octets{0, 0x80, 0xBF, 0xFF}, {.start = true});
    ts.section(0, make(pat{.ts = 78}));
    octets cut = make(private_table{.payload = octets(400, 1)});
    cut.resize(183);
    cut.insert(cut.begin(), 0);
    ts.packet(0x301, cut, {.start = true});
    const octets content = ts.spaced(204);
    open(file(content));
    arm(on_pid(0x1FFE));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    const OrvaDemuxStatus now = status();
    EXPECT_EQ(now.error, ORVA_DEMUX_OK);
    EXPECT_EQ(now.packet_size, 204u);
    EXPECT_EQ(now.input_bytes, content.size());
    EXPECT_EQ(now.bytes, content.size());
    EXPECT_EQ(now.packets, 11u);
    EXPECT_EQ(now.sync_losses, 0u);
    EXPECT_EQ(now.sections, 7u);
    EXPECT_EQ(now.crc_errors, 1u);
    EXPECT_EQ(now.transport_errors, 1u);
    EXPECT_EQ(now.continuity_errors, 1u); // of the packet that was dropped
    EXPECT_EQ(now.bad_sections, 1u);
    EXPECT_EQ(now.cut_sections, 1u);
    EXPECT_EQ(now.delivered, 0u);
}

TEST_F(Input, ServicesOfTheEitAreListed)
{
    stream ts;
    for (const std::uint16_t service : std::initializer_list<std::uint16_t>{5, 3, 5, 9})
        ts.section(0x12, make(eit{.service = service, .ts = 2, .original_network = 1}));
    ts.section(0x12, make(eit{.table_id = 0x61, .service = 3, .ts = 4, .original_network = 1}));
    ts.section(0x12, damage(make(eit{.service = 100})));
    ts.section(0x13, make(eit{.service = 101}));
    open(ts);
    arm(on_pid(0x1FFE));
    ASSERT_TRUE(reaches(ORVA_DEMUX_CAROUSEL));
    SiEitRequest found[8];
    std::uint32_t number = 8;
    ASSERT_EQ(orva_demux_get_eit_services(demux, found, &number), ORVA_SI_OK);
    ASSERT_EQ(number, 4u);
    EXPECT_EQ(found[0].service_id, 5);
    EXPECT_EQ(found[0].transport_stream_id, 2);
    EXPECT_EQ(found[0].original_network_id, 1);
    EXPECT_EQ(found[1].service_id, 3);
    EXPECT_EQ(found[2].service_id, 9);
    EXPECT_EQ(found[3].service_id, 3);
    EXPECT_EQ(found[3].transport_stream_id, 4);
    number = 4;
    EXPECT_EQ(orva_demux_get_eit_services(demux, found, &number), ORVA_SI_OK);
    number = 3;
    EXPECT_EQ(orva_demux_get_eit_services(demux, found, &number), ORVA_SI_ARRAY_FULL);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(orva_demux_get_eit_services(demux, nullptr, &number), ORVA_SI_NULL_ARGUMENT);
    EXPECT_EQ(orva_demux_get_eit_services(demux, found, nullptr), ORVA_SI_NULL_ARGUMENT);
    EXPECT_EQ(orva_demux_get_eit_services(nullptr, found, &number), ORVA_SI_NULL_ARGUMENT);
}

// The adaptation field with a PCR of that many milliseconds.
octets pcr(std::uint64_t ms, bool discontinuity = false)
{
    const std::uint64_t base = ms * 90 & 0x1FFFFFFFF;
    return {static_cast<std::uint8_t>(discontinuity ? 0x90 : 0x10),
            static_cast<std::uint8_t>(base >> 25),
            static_cast<std::uint8_t>(base >> 17),
            static_cast<std::uint8_t>(base >> 9),
            static_cast<std::uint8_t>(base >> 1),
            static_cast<std::uint8_t>((base & 1) << 7 | 0x7E),
            0};
}

TEST_F(Input, RealtimeFollowsThePcr)
{
    stream ts;
    for (unsigned i = 0; i < 6; ++i) {
        ts.packet(0x200, {}, {.adaptation = pcr(1000 + 50 * i), .payload = false});
        ts.section(0, make(pat{.ts = static_cast<std::uint16_t>(i)}));
    }
    const steady::time_point before =
        steady::now(); // what is delivered late, the first section also, is no fault
    open(file(ts.bytes), {.realtime = 1, .carousel_bytes = 0});
    const std::uint32_t id = arm(on_pid(0));
    ASSERT_TRUE(eventually([&] { return sections(id).size() >= 6; }));
    const std::vector<delivered> given = all();
    for (unsigned i = 0; i < 6; ++i)
        EXPECT_EQ(given[i].section, make(pat{.ts = static_cast<std::uint16_t>(i)}));
    EXPECT_GE(given[5].when - before, 250ms);
}

class Pace : public testing::Test {
protected:
    // When the packet is due, in milliseconds from the start; -1: at any time.
    std::int64_t due(std::uint16_t pid, const octets &adaptation, std::int64_t now_ms = 0)
    {
        const stream ts = stream{}.packet(pid, {}, {.adaptation = adaptation, .payload = false});
        const auto when = si::demux::due_time(pacer, si::bytes{ts.bytes}.first<188>(),
                                              start + std::chrono::milliseconds{now_ms});
        return when ? std::chrono::round<std::chrono::milliseconds>(*when - start).count() : -1;
    }
    steady::time_point start = steady::now();
    si::demux::pacer pacer;
};

TEST_F(Pace, ComesFromTheFirstPcr)
{
    EXPECT_EQ(due(0x100, {0x00}), -1);
    EXPECT_EQ(due(0x100, pcr(5000), 7), 7);
    EXPECT_EQ(due(0x100, pcr(5040), 9), 47);
    EXPECT_EQ(due(0x101, pcr(9999)), -1) << "the PCR of another program";
    EXPECT_EQ(due(0x100, pcr(5100), 60), 107);
}

TEST_F(Pace, GoesOnWhereThePcrWraps)
{
    constexpr std::uint64_t wrap_ms = (std::uint64_t{1} << 33) / 90;
    EXPECT_EQ(due(0x100, pcr(wrap_ms - 20)), 0);
    EXPECT_NEAR(static_cast<double>(due(0x100, pcr(20))), 40, 1);
}

TEST_F(Pace, BeginsAnewWhereTheTimeBaseChanges)
{
    EXPECT_EQ(due(0x100, pcr(5000), 0), 0);
    EXPECT_EQ(due(0x100, pcr(500'000), 10), 10);
    EXPECT_EQ(due(0x100, pcr(499'000), 20), 20);
    EXPECT_EQ(due(0x100, pcr(499'100, true), 30), 30);
    EXPECT_EQ(due(0x100, pcr(499'150), 40), 80);
}

TEST_F(Pace, TurnsToAnotherProgramWhenItsOwnHasEnded)
{
    EXPECT_EQ(due(0x100, pcr(5000)), 0);
    std::int64_t when = -1;
    for (unsigned i = 0; i < 100 && when < 0; ++i)
        when = due(0x101, pcr(9000 + 10 * i), 50);
    EXPECT_EQ(when, 50);
}

} // namespace
