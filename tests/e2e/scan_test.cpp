// SPDX-License-Identifier: LGPL-2.1-or-later
// The tool as its users run it, with the library, the demultiplexer and the platform behind it.
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "e2e/scanning.h"
#include "support/datagrams.h"

namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// ---- what a scan prints

TEST(SampleScan, IsCompleteAndWaitsForNothingThatIsMissing)
{
    const ended result = scan({"--json", sample()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_LT(result.took, 10s); // what the wait for a table that is missing would take
    const json told = json::parse(result.out);
    EXPECT_EQ(told["schema"], "orva-si/1");
    EXPECT_EQ(told["input"], sample());
    EXPECT_EQ(told["complete"], true);
    EXPECT_EQ(told["transport_stream_id"], 1001);
    EXPECT_EQ(told["original_network_id"], 0xFF01);
    EXPECT_EQ(told["network_id"], 0xFF01);
}

TEST(SampleScan, NamesComeOutOfEveryCharacterTable)
{
    const json told = scan_json({sample()});
    std::vector<json> actual;
    std::vector<json> other;
    for (const json &service : told["services"])
        (service["actual"] == true ? actual : other).push_back(service["name"]);
    EXPECT_THAT(actual, ElementsAre("Orva One HD", "Čtyřka", "Новости", "Ελλάδα", "Türkü FM",
                                    "新聞台", "한국 TV", "Österreich €", "Orva Ultra ★"));
    EXPECT_THAT(other, ElementsAre("Orva Two HD", "Orva Three HD", "Rádió"));
    EXPECT_EQ(told["services"][2]["name_raw"], "01bdded2dee1e2d8");
}

TEST(SampleScan, NetworksCarryDeliveryAndNumbers)
{
    const json told = scan_json({sample()});
    ASSERT_EQ(told["networks"].size(), 2u);
    for (const json &network : told["networks"])
        EXPECT_EQ(network["actual"], network["network_id"] == 0xFF01);
    const auto own = std::find_if(told["networks"].begin(), told["networks"].end(),
                                  [](const json &network) { return network["actual"] == true; });
    ASSERT_NE(own, told["networks"].end());
    EXPECT_EQ((*own)["name"], "Orva Sample");
    const json &streams = (*own)["transport_streams"];
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]["delivery"]["system"], "DVB-T");
    EXPECT_EQ(streams[0]["delivery"]["centre_frequency_Hz"], 626000000);
    EXPECT_EQ(streams[0]["services"].size(), 9u);
    EXPECT_THAT(each(streams[0]["lcn"], [](const json &entry) { return entry["lcn"]; }),
                ElementsAre(1, 2, 3, 4, 105, 6, 7, 8, 9));
    EXPECT_EQ(streams[1]["delivery"]["system"], "DVB-T2");
}

TEST(SampleScan, ProgramsCarryTheirStreams)
{
    const json told = scan_json({sample()});
    ASSERT_EQ(told["programs"].size(), 9u);
    const json &first = told["programs"][0];
    EXPECT_EQ(first["PMT_PID"], 256);
    EXPECT_EQ(first["PCR_PID"], 257);
    EXPECT_EQ(first["video_PID"], 257);
    EXPECT_EQ(first["elementary_PIDs"], json::parse("[257, 258, 259, 260, 261, 262]"));
    EXPECT_EQ(first["audio"], json::parse(R"([
        {"PID": 258, "has_lang": true, "is_ac3": false, "codec": "MPEG",
         "languages": [{"language": "eng", "audio_type": 0}]},
        {"PID": 259, "has_lang": true, "is_ac3": false, "codec": "MPEG",
         "languages": [{"language": "deu", "audio_type": 0}]},
        {"PID": 260, "has_lang": true, "is_ac3": true, "codec": "AC-3",
         "languages": [{"language": "eng", "audio_type": 0}]}])"));
    EXPECT_EQ(first["teletext_PIDs"], json::parse("[261]"));
    EXPECT_EQ(first["teletext"], json::parse(R"([
        {"PID": 261, "language": "eng", "teletext_type": 1, "teletext_magazine_number": 1,
         "teletext_page_number": 0},
        {"PID": 261, "language": "deu", "teletext_type": 2, "teletext_magazine_number": 0,
         "teletext_page_number": 136},
        {"PID": 261, "language": "eng", "teletext_type": 5, "teletext_magazine_number": 0,
         "teletext_page_number": 136}])"));
    EXPECT_EQ(first["subtitle_PIDs"], json::parse("[262]"));
    EXPECT_EQ(first["subtitles"], json::parse(R"([
        {"PID": 262, "language": "eng", "subtitling_type": 16, "composition_page_id": 1,
         "ancillary_page_id": 1},
        {"PID": 262, "language": "eng", "subtitling_type": 32, "composition_page_id": 2,
         "ancillary_page_id": 1}])"));
    EXPECT_EQ(first["CA"], json::array());
    EXPECT_EQ(first["streams"][0], json::parse(R"({
        "PID": 257, "stream_type": 27, "kind": "video", "codec": "H.264", "languages": [],
        "data_broadcast_id": []})"));
    EXPECT_EQ(told["programs"][4]["video_PID"], nullptr); // radio
    EXPECT_EQ(told["programs"][8]["video_PID"], 385);     // H.265
    EXPECT_EQ(told["programs"][8]["CA"], json::parse(R"([{"CA_system_ID": 9744, "CA_PID": 395}])"));
    EXPECT_EQ(told["bouquets"][0]["name"], "Orva Bouquet");
    EXPECT_EQ(told["bouquets"][0]["services"].size(), 12u);
}

TEST(SampleScan, NamesAndUpdatesAreTold)
{
    const json told = scan_json({sample()});
    const json &names = told["services"][0]["names"];
    EXPECT_THAT(each(names, [](const json &n) { return n["language"]; }),
                ElementsAre("eng", "deu", "fra"));
    EXPECT_THAT(each(names, [](const json &n) { return n["name"]; }),
                ElementsAre("Orva One HD", "Orva Eins HD", "Orva Un HD"));
    EXPECT_EQ(names[1]["provider_name"], "Orva");
    EXPECT_EQ(told["networks"][0]["names"][1], json::parse(R"({
        "language": "deu", "name": "Orva-Beispiel", "name_raw": "4f7276612d426569737069656c"})"));
    EXPECT_EQ(told["software_update"], json::parse(R"({
        "services": [{"network_id": 65281, "transport_stream_id": 1001,
                      "original_network_id": 65281, "service_id": 108, "OUI": [346],
                      "PIDs": [376]}],
        "PIDs": [376]})"));
}

TEST(SampleScan, TablesForPeopleAreNotWrappedIntoAPipe)
{
    const ended result = scan({"-v", sample()});
    EXPECT_EQ(result.status, 0);
    for (const char *expected :
         {"Transport stream 1001", "\"Orva Sample\"", "105  105  radio", "新聞台", "386 AC-3 eng",
          "Orva Bouquet",
          "names eng \"Orva One HD\" by \"Orva\", deu \"Orva Eins HD\" by \"Orva\", "
          "fra \"Orva Un HD\" by \"Orva\"\n",
          "linkage software update: service 108 of transport stream 1001, original network 65281, "
          "OUI 00015A\n"})
        EXPECT_THAT(result.out, HasSubstr(expected));
    EXPECT_THAT(result.err, HasSubstr("10000 packets of 188 bytes"));
}

TEST(SampleScan, OneProgramOnly)
{
    const json told = scan_json({sample(), "--program", "102"});
    EXPECT_THAT(each(told["services"], [](const json &s) { return s["service_id"]; }),
                ElementsAre(102));
    EXPECT_THAT(each(told["programs"], [](const json &p) { return p["program_number"]; }),
                ElementsAre(102));
}

TEST(SampleScan, ProgramThatIsNotThereIsAFailure)
{
    const ended result = scan({sample(), "--program", "999"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("no program or service 999"));
}

TEST(SampleScan, IsTheSameThroughAPipe)
{
    const int in = open(sample().c_str(), O_RDONLY | O_CLOEXEC);
    process cat{{"/bin/cat"}, in};
    close(in);
    const ended copy = cat.wait();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--json", "-"}), ends[0]};
    close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    for (std::size_t at = 0; at < copy.out.size();) {
        const ssize_t count = write(ends[1], copy.out.data() + at, copy.out.size() - at);
        ASSERT_GT(count, 0);
        at += static_cast<std::size_t>(count);
    }
    close(ends[1]);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    json piped = json::parse(result.out);
    json from_file = scan_json({sample()});
    piped.erase("input");
    from_file.erase("input");
    EXPECT_EQ(piped, from_file);
}

TEST(SampleScan, AtTheSpeedOfBroadcastItTakesItsTime)
{
    const json told = scan_json({sample(), "--realtime", "--for", "2"}, 5);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["transport_stream_id"], 1001);
}

TEST(Scan, LogOfTheLibraryGoesToStandardError)
{
    const ended result = scan({"--json", sample(), "--log-level", "4"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("start scan channel"));
    EXPECT_EQ(json::parse(result.out)["complete"], true);
}

TEST(Scan, TextWithoutSelectorIsReadInTheTableAskedFor)
{
    stream made = small_stream();
    made.section(
        0x11, make(sdt{.table_id = 0x46,
                       .ts = 8,
                       .services = {
                           {.id = 5, .descriptors = {service_descriptor(1, "", "T\xFCrk\xFE")}}}}));
    const std::string path = files().write("turkish.ts", made.bytes);
    const json told = scan_json({path, "--charset", "ISO-8859-9"});
    const auto names = each(told["services"], [](const json &s) { return s["name"]; });
    EXPECT_THAT(names, testing::Contains("Türkş"));
}

TEST(Scan, BroadcastTextCannotSteerTheTerminal)
{
    stream made = small_stream();
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .services = {{.id = 5,
                                              .descriptors = {service_descriptor(
                                                  1, "\x1B[1m", "a\x1B[2Jb\x07")}}}}));
    const ended result = scan({"-v", files().write("hostile.ts", made.bytes)});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("a[2Jb"));
    for (const char c : result.out)
        EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
}

TEST(Scan, StreamsOfSeveralNetworksMayShareAnId)
{
    stream made = small_stream();
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .original_network = 2,
                                .last_section_number = 1,
                                .services = {{.id = 5}}}));
    made.section(0x11, make(sdt{.table_id = 0x46,
                                .ts = 8,
                                .original_network = 3,
                                .section_number = 1,
                                .last_section_number = 1,
                                .services = {{.id = 6}}}));
    const json told = scan_json({files().write("shared-id.ts", made.bytes)});
    std::vector<json> networks;
    for (const json &service : told["services"])
        if (service["transport_stream_id"] == 8)
            networks.push_back(service["original_network_id"]);
    EXPECT_THAT(networks, ElementsAre(2, 3));
}

TEST(Scan, StreamsStandInTheOrderOfTheirSections)
{
    const auto part = [](std::uint8_t number, std::uint16_t ts) {
        return make(nit{.network = 3,
                        .section_number = number,
                        .last_section_number = 1,
                        .transports = {{.ts = ts, .original_network = 1}}});
    };
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, part(1, 9));
    made.section(0x11, make(sdt{.ts = 7}));
    made.section(0x10, part(0, 7));
    const json told = scan_json({files().write("order.ts", made.bytes)});
    ASSERT_EQ(told["networks"].size(), 1u);
    EXPECT_THAT(each(told["networks"][0]["transport_streams"],
                     [](const json &t) { return t["transport_stream_id"]; }),
                ElementsAre(7, 9));
}

// ---- inputs that are not as they should be

// One line that names the input, nothing on standard output.
void expect_refusal(const ended &result, int status, const std::string &says)
{
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_THAT(result.err, HasSubstr(says));
}

TEST(BadInput, MissingFile)
{
    expect_refusal(scan({files().path("no-such.ts")}), 3, "no-such.ts: No such file");
}

TEST(BadInput, EmptyFile)
{
    expect_refusal(scan({files().write("empty.ts", {})}), 3, "empty");
}

TEST(BadInput, Directory)
{
    expect_refusal(scan({files().path(".")}), 3, "directory");
}

TEST(BadInput, NoTransportStream)
{
    octets noise(20000);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<std::uint8_t>(i * i >> 3);
    const std::string path = files().write("noise.ts", noise);
    expect_refusal(scan({path}), 3, "not a transport stream");
    expect_refusal(scan({path, "--json"}), 3, "not a transport stream");
}

TEST(BadInput, PipeThatIsNoTransportStream)
{
    const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    process tool{scan_command({"-"}), zero};
    close(zero);
    expect_refusal(tool.wait(), 3, "standard input: the input is not a transport stream");
}

TEST(BadInput, EmptyPipe)
{
    expect_refusal(scan({"-"}), 3, "standard input: the input is empty");
}

TEST(BadInput, FileCutInAPacketIsReadToItsEnd)
{
    octets all = bytes_of(sample());
    all.resize(188 * 6000 + 77);
    const json told = scan_json({files().write("cut.ts", all)});
    EXPECT_EQ(told["services"].size(), 12u);
}

TEST(BadInput, StreamWithoutSectionsEndsAtOnce)
{
    stream made;
    for (int i = 0; i < 500; ++i)
        made.packet(0x1FFF, {});
    const std::string path = files().write("null-packets.ts", made.bytes);
    const ended result = scan({path});
    expect_refusal(result, 4, "no sections");
    EXPECT_LT(result.took, 5s); // the library alone would wait for more than ten
    const json told = scan_json({path}, 4);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"], json::array());
}

TEST(BadInput, StreamOfOtherSectionsHasNone)
{
    stream made;
    for (int i = 0; i < 5; ++i)
        made.section(0x12, make(eit{})).section(0x14, make(tdt{}));
    const ended result = scan({files().write("events.ts", made.bytes)});
    expect_refusal(result, 4, "no sections");
    EXPECT_LT(result.took, 5s);
}

TEST(BadInput, TableThatNeverCompletesIsPartial)
{
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, make(nit{.network = 3}));
    made.section(0x10, make(nit{.table_id = 0x41, .network = 4, .last_section_number = 1}));
    made.section(0x11, make(sdt{.ts = 7, .services = {{.id = 100}}}));
    const ended result = scan({"--json", files().write("partial.ts", made.bytes)});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_THAT(result.err, HasSubstr("incomplete: other NITs"));
    EXPECT_LT(result.took, 10s); // the library alone would wait for half a minute
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"].size(), 1u);
    EXPECT_EQ(told["networks"].size(), 1u);
}

TEST(BadInput, DamagedSectionsAreNotPrinted)
{
    stream made;
    made.section(0x00, damage(make(pat{.ts = 9})));
    made.section(0x11, damage(make(sdt{.ts = 9, .services = {{.id = 900}}})));
    made = small_stream(std::move(made));
    const json told = scan_json({files().write("damaged.ts", made.bytes)});
    EXPECT_EQ(told["transport_stream_id"], 7);
    EXPECT_EQ(told["services"].size(), 1u);
}

// Writes a file into a pipe again and again, until its reader has gone or it is told to stop.
class endless_pipe {
public:
    explicit endless_pipe(octets repeated)
    {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        writer = std::thread{[this, all = std::move(repeated)] {
            while (!stopped)
                for (std::size_t at = 0; at < all.size();) {
                    const ssize_t count = write(ends[1], all.data() + at, all.size() - at);
                    if (count <= 0)
                        return;
                    at += static_cast<std::size_t>(count);
                }
        }};
    }
    ~endless_pipe()
    {
        stopped = true;
        close_reading_end();
        writer.join();
        close(ends[1]);
    }
    endless_pipe(const endless_pipe &) = delete;
    endless_pipe &operator=(const endless_pipe &) = delete;

    int reading_end() const { return ends[0]; }
    void close_reading_end()
    {
        if (ends[0] >= 0)
            close(ends[0]);
        ends[0] = -1;
    }

private:
    int ends[2] = {-1, -1};
    std::atomic<bool> stopped = false;
    std::thread writer;
};

TEST(EndlessPipe, IsScannedLikeABroadcast)
{
    endless_pipe input{bytes_of(sample())};
    process tool{scan_command({"--json", "-"}), input.reading_end()};
    input.close_reading_end();
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(json::parse(result.out)["services"].size(), 12u);
}

TEST(EndlessPipe, EndsWhenTheTimeIsOver)
{
    endless_pipe input{bytes_of(sample())};
    process tool{scan_command({"--json", "--for", "1", "-"}), input.reading_end()};
    input.close_reading_end();
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_GE(result.took, 1s);
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["transport_stream_id"], 1001);
}

TEST(EndlessPipe, ThatIsSilentEndsWhenTheTimeIsOver)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--for", "1", "-"}), ends[0]};
    close(ends[0]);
    const ended result = tool.wait();
    close(ends[1]);
    expect_refusal(result, 4, "nothing came");
    EXPECT_LT(result.took, 8s);
}

// ---- datagrams

TEST(Datagrams, AreScannedLikeABroadcast)
{
    datagram_sender sender;
    process tool{scan_command({"--json", "--for", "3", sender.url()})};
    std::atomic<bool> over = false;
    std::thread broadcast{[&] {
        constexpr std::size_t packets = 7 * 188;
        const octets stream = bytes_of(sample());
        for (std::size_t at = 0; !over; at = at + packets < stream.size() ? at + packets : 0) {
            sender.send_packets(
                std::span{stream}.subspan(at).first(std::min(packets, stream.size() - at)));
            std::this_thread::sleep_for(500us);
        }
    }};
    const ended result = tool.wait();
    over = true;
    broadcast.join();
    EXPECT_EQ(result.status, 5) << result.err; // the time was over while others might come
    const json told = json::parse(result.out);
    EXPECT_EQ(told["services"].size(), 12u);
    EXPECT_EQ(told["input"], sender.url());
}

TEST(Datagrams, ThatDoNotComeAreWaitedForAsLongAsWanted)
{
    const datagram_sender nobody;
    const ended result = scan({"--for", "1", nobody.url()});
    expect_refusal(result, 4, "nothing came");
    EXPECT_LT(result.took, 8s);
}

TEST(Datagrams, OfAnAddressThatIsNotOursAreRefused)
{
    expect_refusal(scan({"udp://192.0.2.1:5004"}), 3, "Cannot assign requested address");
    expect_refusal(scan({"udp://192.0.2.1"}), 2, "udp://[@]address:port");
}

// ---- signals and output

// Without a NIT the library waits for ten seconds: time enough to be interrupted.
std::string stream_without_nit()
{
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x11, make(sdt{.ts = 7, .services = {{.id = 100}}}));
    return files().write("no-nit.ts", made.bytes);
}

void expect_interrupted(int number)
{
    process tool{scan_command({"--json", stream_without_nit()})};
    std::this_thread::sleep_for(2s);
    tool.signal(number);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 128 + number);
    EXPECT_EQ(lines(result.err), 1u) << result.err;
    EXPECT_LT(result.took, 8s);
    const json told = json::parse(result.out);
    EXPECT_EQ(told["complete"], false);
    EXPECT_EQ(told["services"].size(), 1u);
}

TEST(Signals, InterruptPrintsWhatCame)
{
    expect_interrupted(SIGINT);
}

TEST(Signals, TerminationPrintsWhatCame)
{
    expect_interrupted(SIGTERM);
}

TEST(Signals, SecondOneEndsAtOnce)
{
    // The tool opens the pipe when it handles signals; then its scan waits for half a second.
    const std::string path = files().path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    process tool{scan_command({path})};
    const int out = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    tool.signal(SIGINT);
    std::this_thread::sleep_for(20ms); // two of a kind that come together are one
    tool.signal(SIGINT);
    const ended result = tool.wait();
    close(out);
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_EQ(result.out, "");
}

// The tool has filled a pipe that nobody reads when the signal comes.
TEST(Signals, OneThatComesWhileResultsArePrintedCounts)
{
    const std::string path = files().write("many.ts", stream_of_many(2000).bytes);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process tool{scan_command({"--json", path}), -1, ends[1]};
    close(ends[1]);
    char first = 0;
    ASSERT_EQ(read(ends[0], &first, 1), 1);
    tool.signal(SIGINT);
    std::string rest;
    char part[4096];
    for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;)
        rest.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    EXPECT_EQ(tool.wait().status, 128 + SIGINT);
    EXPECT_EQ(json::parse(first + rest)["services"].size(), 2000u);
}

TEST(Output, ReaderThatHasGoneIsNoFailure)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    process tool{scan_command({sample()}), -1, ends[1]};
    close(ends[1]);
    EXPECT_EQ(tool.wait().status, 0);
}

TEST(Output, FullDeviceIsAFailure)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    process tool{scan_command({sample()}), -1, full};
    close(full);
    const ended result = tool.wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("No space left"));
}

TEST(Output, NothingButResultsWithoutATerminal)
{
    const ended result = scan({files().write("small.ts", small_stream().bytes)});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, Not(HasSubstr("\033")));
    EXPECT_THAT(result.out, HasSubstr("News"));
}

TEST(Usage, ErrorsLeaveTheRightStatus)
{
    EXPECT_EQ(scan({}).status, 2);
    EXPECT_EQ(scan({"--bogus", "x.ts"}).status, 2);
    EXPECT_EQ(scan({"udp://@239.0.0.1"}).status, 2);
    EXPECT_EQ(process({ORVA_TOOL}).wait().status, 2);
    const ended help = scan({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--realtime"));
    EXPECT_EQ(help.err, "");
}

} // namespace
