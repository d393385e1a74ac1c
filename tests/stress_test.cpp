// SPDX-License-Identifier: LGPL-2.1-or-later
// All kinds of thread at once against a broadcast of valid, damaged and hostile sections: two
// drivers, a controlling client, a client that asks and cancels, three more that only ask, the
// background services, and the client's callback. ORVA_STRESS_SECONDS says for how long (3); what
// is found in the end is that nobody is stuck, every buffer came back once and all memory was given
// up. Sanitizers watch.
#include <glib.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/allocation.h"
#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si.h"
#include "support/random_broadcast.h"
#include "support/sections.h"
#include "support/stress.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

tally frees;

} // namespace

extern "C" {

void __real_g_slice_free1(gsize size, gpointer memory);
void __wrap_g_slice_free1(gsize size, gpointer memory)
{
    frees.add(memory != nullptr ? 1 : 0);
    __real_g_slice_free1(size, memory);
}

} // extern "C"

namespace {

std::atomic<bool> calm{false};     // the broadcast pauses, so that a start finds the library idle
std::atomic<bool> scanning{false}; // somebody is to cancel

struct counters {
    tally sections, batches, starts, scans, notifications, answers, event_answers;
} counted;

const piece_of_work work[] = {{"sections", counted.sections},
                              {"batches", counted.batches},
                              {"starts", counted.starts},
                              {"scans", counted.scans},
                              {"notifications", counted.notifications},
                              {"answers", counted.answers},
                              {"event answers", counted.event_answers}};

// ---- The broadcast

octets any_section(dice &d)
{
    octets section = random_table(d).section;
    return d.one_in(3) ? spoiled(d, std::move(section)) : section;
}

// One that the library was granted, or one that nobody knows, or none.
std::uint32_t any_filter(dice &d)
{
    if (d.one_in(30))
        return d.one_in(2) ? SI_NO_FILTER : 0x10000 + d.below(200);
    return fake::driver().filter_id(
        d.below(static_cast<std::uint32_t>(fake::driver().filter_count())));
}

// Sizes and parts of a section that no driver should name.
void twist(dice &d, SiDmxSection &section)
{
    switch (d.below(6)) {
    case 0:
        section.pPrimaraySectionData = nullptr;
        break;
    case 1:
        section.PrimaraySectionSize = 0;
        break;
    case 2: // the sum of the sizes does not fit 32 bits
        section.PrimaraySectionSize = 0xFFFFFFFF;
        section.SecondarySectionSize = 5;
        section.pSecondarySectionData = section.pPrimaraySectionData;
        break;
    case 3:
        section.SecondarySectionSize = 16; // of nothing
        break;
    case 4:
        section.PrimaraySectionSize = 0x80000000;
        break;
    default: // in two parts, which is right
        if (section.PrimaraySectionSize < 2)
            break;
        section.SecondarySectionSize = section.PrimaraySectionSize / 2;
        section.PrimaraySectionSize -= section.SecondarySectionSize;
        section.pSecondarySectionData = section.pPrimaraySectionData + section.PrimaraySectionSize;
    }
}

void deliver_single(dice &d)
{
    const octets bytes = any_section(d);
    const SiWord handle = fake::driver().lend(bytes);
    SiDmxSection section{fake::driver().bytes_of(handle), static_cast<std::uint32_t>(bytes.size()),
                         nullptr, 0, handle};
    if (d.one_in(6))
        twist(d, section);
    Si_SectFlt_PidFltCallback(fake::driver_demux, any_filter(d), 0, &section);
    ++counted.sections;
}

void deliver_batch(dice &d)
{
    const std::uint32_t count = d.one_in(20) ? 200 : 1 + d.below(30);
    std::vector<octets> sections;
    octets all;
    for (std::uint32_t i = 0; i < count; ++i) {
        sections.push_back(any_section(d));
        all.insert(all.end(), sections.back().begin(), sections.back().end());
    }
    const SiWord handle = fake::driver().lend(all);
    std::uint8_t *at = fake::driver().bytes_of(handle);
    std::vector<SiDmxSection> listed;
    for (const octets &section : sections) {
        listed.push_back({at, static_cast<std::uint32_t>(section.size()), nullptr, 0, 0});
        at += section.size();
        if (d.one_in(20))
            twist(d, listed.back());
    }
    SiDmxSectionList list{count, listed.data(), handle};
    if (d.one_in(20))
        list.section_count = d.one_in(2) ? 0 : 201 + d.below(0xFFFFFF00);
    if (d.one_in(50))
        list.section = nullptr;
    Si_SectFlt_PidFltSecListCallback(fake::driver_demux, any_filter(d), 0, &list);
    ++counted.batches;
}

// What every filter that lets it pass gets, as a demultiplexer would.
void broadcast(dice &d)
{
    const transmission sent = random_table(d);
    counted.sections.add(fake::driver().broadcast(sent.pid, sent.section));
}

void single_driver(dice &d)
{
    for (std::uint32_t left = d.below(60); left != 0; --left)
        d.one_in(3) ? deliver_single(d) : broadcast(d);
    if (d.one_in(50))
        Si_SectFlt_PidFltCallback(fake::driver_demux, any_filter(d), 0, nullptr);
    std::this_thread::sleep_for(calm ? 1000us : std::chrono::microseconds{d.below(500)});
}

void batch_driver(dice &d)
{
    for (std::uint32_t left = d.below(8); left != 0; --left)
        d.one_in(2) ? deliver_batch(d) : broadcast(d);
    if (d.one_in(50))
        Si_SectFlt_PidFltSecListCallback(fake::driver_demux, any_filter(d), 0, nullptr);
    std::this_thread::sleep_for(calm ? 1000us : std::chrono::microseconds{d.below(500)});
}

// ---- The controlling client

const event_requests of_interest{.actual = {1, 2, 3, 4, 5, 0xFFFF},
                                 .other = {{1, 1, 1}, {2, 1, 2}, {0xFFFF, 0xFFFF, 0xFFFF}}};

void ask_for_events(dice &d)
{
    if (d.one_in(2))
        start_events(d, of_interest, d.id(programs));
    else
        stop_events(d);
}

void use_channel(dice &d)
{
    switch (d.below(8)) {
    case 0:
        Orva_Si_StartDsmFilter(dsmcc_pid + d.below(6));
        break;
    case 1:
        Orva_Si_StopDsmFilter(dsmcc_pid + d.below(6));
        break;
    case 2:
        Orva_Si_LatchPmt(d.id(programs));
        break;
    case 3:
        Orva_Si_UnLatchPmt(d.id(programs));
        break;
    case 4:
        Si_SectFlt_UpdateNit(d.id(2), d.below(4), 1);
        break;
    case 5:
        Si_SectFlt_UpdateSdtBat(d.below(4), 1);
        break;
    default:
        ask_for_events(d);
    }
}

void start_channel(dice &d)
{
    const SiTuneParam tune{d.below(4), 0, 0,
                           d.one_in(4) ? std::uint16_t{SI_NO_PROGRAM} : d.id(programs)};
    counted.starts.add(Orva_Si_StartChannel(&tune) == ORVA_SI_OK ? 1 : 0);
}

void scan_once(dice &d)
{
    const SiScanParam param{static_cast<std::uint16_t>(d.below(100)), d.id(2), d.below(2),
                            static_cast<std::uint8_t>(d.below(2))};
    Orva_Si_SetScanTime(static_cast<std::uint16_t>(1 + d.below(3)));
    Orva_Si_StopChannel();
    Orva_Si_SetScanParam(&param);
    scanning = true;
    Orva_Si_StartScanChannel();
    scanning = false;
    ++counted.scans;
}

void controlling_client(dice &d)
{
    calm = !d.one_in(4);
    if (d.one_in(25))
        scan_once(d);
    else
        start_channel(d);
    calm = false;
    for (std::uint32_t left = d.below(20); left != 0; --left) {
        use_channel(d);
        d.rest(2000);
    }
    if (d.one_in(2))
        Orva_Si_StopChannel();
}

// ---- The client that asks, cancels and makes memory scarce

void ask(dice &d)
{
    std::array<std::uint16_t, 40> list{};
    std::array<std::uint8_t, 1024> bytes{};
    std::array<SiAudioPid, 4> audio{};
    SiDvbString text{};
    SiLocalTimeOffset offset{};
    SiLimitCounts limits{};
    std::uint16_t id = 0;
    std::uint8_t type = 0;
    std::uint32_t crc = 0;
    std::uint32_t count = d.below(static_cast<std::uint32_t>(list.size()));
    auto signed_count = static_cast<std::int32_t>(count);
    std::uint32_t few = d.below(audio.size() + 1);
    std::uint32_t length = bytes.size();
    std::uint32_t one = 1;
    const std::uint32_t ts = d.id(3);
    const std::uint32_t program = d.id(programs);
    const std::array<std::function<std::uint32_t()>, 23> questions{{
        [&] { return Orva_Si_GetPatProgList(list.data(), &signed_count); },
        [&] { return Orva_Si_GetPatTsId(&id); },
        [&] { return Orva_Si_GetPmtData(program, bytes.data(), &length); },
        [&] { return Orva_Si_GetVideoPID(program, &id); },
        [&] { return Orva_Si_GetAudioPIDs(program, audio.data(), &few); },
        [&] { return Orva_Si_GetAllPids(program, list.data(), &count); },
        [&] { return Orva_Si_GetActServIdList(list.data(), &count); },
        [&] { return Orva_Si_GetServIdList(ts, list.data(), &count); },
        [&] { return Orva_Si_GetSdtAllTsList(list.data(), &count); },
        [&] { return Orva_Si_GetServiceName(program, &text); },
        [&] { return Orva_Si_GetServName(ts, program, &text); },
        [&] { return Orva_Si_GetServiceType(program, &type); },
        [&] { return Orva_Si_GetCurrentNetworkId(&id); },
        [&] { return Orva_Si_GetNetworkName(ts, &text); },
        [&] { return Orva_Si_GetTsGrpByNetworkId(ts, list.data(), &count); },
        [&] { return Orva_Si_GetBouquetIdList(list.data(), &count); },
        [&] { return Orva_Si_GetBouquetNameById(ts, &text); },
        [&] { return Orva_Si_GetSDTCRC(ts, &crc); },
        [&] { return Orva_Si_GetPATCRC(&crc); },
        [&] { return Orva_Si_GetLocalTimeOffset(&offset, &one); },
        [&] { return Orva_Si_GetPmtPid(program); },
        [&] { return Orva_Si_GetLimitCounts(&limits); },
        [&] {
            return Orva_Si_IsPmtExisted(program) + Orva_Si_DoAllTablesReady() +
                   Orva_Si_IsScanMode() + Si_Ctl_GetTunningProgNo();
        },
    }};
    counted.answers.add(questions[d.below(questions.size())]() == ORVA_SI_OK ? 1 : 0);
}

void ask_about_events(dice &d)
{
    const asked about{.onid = 1,
                      .ts = d.id(2),
                      .service = d.id(programs),
                      .event = d.id(3),
                      .language = d.one_in(2) ? english : german,
                      .banner = static_cast<std::uint8_t>(d.below(2)),
                      .room = d.below(9)};
    counted.event_answers.add(ask_about(d, about).told ? 1 : 0);
}

void querying_client(dice &d)
{
    for (std::uint32_t left = 20; left != 0; --left)
        d.one_in(2) ? ask_about_events(d) : ask(d);
    d.rest(1000);
}

void asking_client(dice &d)
{
    querying_client(d);
    if (scanning ? d.one_in(100) : d.one_in(2000))
        Orva_Si_CancelScanChannel();
    if (d.one_in(50))
        fake::fail_allocation(1 + d.below(40));
    if (d.one_in(20)) {
        fake::set_log_level(d.one_in(3) ? ORVA_DEBUG_VERBOSE : 0);
        fake::clear_log();
        fake::driver().forget_calls();
    }
    if (d.one_in(10))
        Si_BG_WaitAllServiceTerminate();
}

// ---- The timer thread: a service may run at any time, also while it is being paused.

void services(dice &d)
{
    Si_SectFlt_PmtBgService();
    Si_SectFlt_ActPfEitBgService();
    Si_SectFlt_ActSchEitBgService();
    std::this_thread::sleep_for(std::chrono::milliseconds{1 + d.below(10)});
}

// ---- The client's callback, on the section thread with no lock held

std::uint32_t client(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
{
    thread_local dice d{99};
    ++counted.notifications;
    if (reason == SI_REASON_DSMCC)
        counted.answers.add(sum_of_section(data) & 1u);
    if (d.one_in(5))
        d.one_in(2) ? ask_about_events(d) : ask(d);
    if (d.one_in(100))
        Orva_Si_StartDsmFilter(dsmcc_pid + d.below(6));
    if (d.one_in(100))
        Orva_Si_StopDsmFilter(dsmcc_pid + d.below(6));
    if (d.one_in(500))
        Orva_Si_StopChannel();
    return 0;
}

// ---- All of them

std::array<worker, 8> workers{{{"driver of single sections", single_driver},
                               {"driver of batches", batch_driver},
                               {"controlling client", controlling_client},
                               {"asking client", asking_client},
                               {"querying client 1", querying_client},
                               {"querying client 2", querying_client},
                               {"querying client 3", querying_client},
                               {"timer thread", services}}};

// What a client frees that ends for good; nothing else runs any more.
void free_stores()
{
    empty_stores();
    Orva_Si_DestorySectModel();
}

TEST(Stress, NobodyIsStuckAndEverythingIsGivenBack)
{
    const watchdog dog{duration(3s) + 60s, workers};
    fake::set_log_level(0);
    ASSERT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
    ASSERT_EQ(Orva_Si_InstallISO639toIDFunc(number_of_language), ORVA_SI_OK);
    ASSERT_EQ(Orva_Si_Init(fake::driver().table()), ORVA_SI_OK);
    ASSERT_TRUE(wait_for([] { return Orva_Si_GetTableList() != nullptr; }));

    {
        crew threads{workers};
        std::this_thread::sleep_for(duration(3s));
        wait_for([] { return all_is_done(work); }); // not yet on a busy machine's emulator
        threads.stop();
        while (scanning) {
            Orva_Si_CancelScanChannel();
            std::this_thread::sleep_for(10ms);
        }
    }
    fake::fail_allocation(0);

    Orva_Si_StopScanChannel();
    EXPECT_TRUE(wait_for([] { return Si_SectFlt_GetPendingCount() == 0; }));
    EXPECT_EQ(fake::driver().running(), 0u);
    EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    EXPECT_EQ(fake::driver().returned(), fake::driver().lent());
    EXPECT_EQ(fake::driver().wrongly_returned(), 0u);
    free_stores();
    ASSERT_NE(Orva_Si_GetDvbEitList(), nullptr);
    EXPECT_EQ(fake::allocations() - frees, 1u); // the empty list of events, which stays

    report(work);
}

} // namespace
