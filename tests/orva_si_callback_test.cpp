// SPDX-License-Identifier: LGPL-2.1-or-later
// What the client is told, with which reason and record.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si/channel.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/readiness.h"
#include "orva_si/result.h"
#include "orva_si/store.h"

namespace {

// What the callback was called with; a record is copied, because it is valid during the call only.
struct event {
    std::uint32_t reason;
    std::uint32_t flag;
    SiWord data;
    std::uint32_t value;
    std::optional<SiPmtNotify> pmt;
    std::optional<SiEitNotify> eit;
    std::optional<SiDsmccNotify> dsmcc;
};
std::vector<event> events;
std::function<void()> meanwhile; // what the client does inside the callback

std::uint32_t client(std::uint32_t reason, std::uint32_t flag, SiWord data, std::uint32_t value)
{
    event e{reason, flag, data, value, {}, {}, {}};
    if (reason == 8)
        e.pmt = *reinterpret_cast<const SiPmtNotify *>(data);
    if (reason >= 9 && reason <= 11)
        e.eit = *reinterpret_cast<const SiEitNotify *>(data);
    if (reason == 12)
        e.dsmcc = *reinterpret_cast<const SiDsmccNotify *>(data);
    events.push_back(e);
    if (meanwhile)
        meanwhile();
    return 0xDEAD; // nobody looks at it
}

std::uint32_t another_client(std::uint32_t, std::uint32_t, SiWord, std::uint32_t)
{
    ADD_FAILURE() << "the first callback was replaced";
    return 0;
}

// As the start of a scan does.
void enter_scan_mode()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_ResetRunningStatus(0, SI_NO_PROGRAM);
    Orva_MutexV(&Ts_Ctl_Mutex);
    fake::clear_log();
}

// ---- Installation

TEST(Callback, IsInstalledOnce)
{
    EXPECT_EQ(SiNotifier, nullptr);
    EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
    EXPECT_TRUE(SiNotifier == client);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST(Callback, ASecondOneIsRefusedAndTheFirstGoesOn)
{
    EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_InstallCallback(another_client), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Don't install si callback more than once!\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_FAILURE); // nor the same one again
    Orva_Si_NotifyUpdate(474000, 7, 0, 0);
    EXPECT_EQ(events.size(), 1u);
}

TEST(Callback, ANullOneIsRefusedAndChangesNothing)
{
    EXPECT_EQ(Orva_Si_InstallCallback(nullptr), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "NULL callback pointer\n")) << fake::log_text();
    EXPECT_EQ(SiNotifier, nullptr);
    EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_InstallCallback(nullptr), ORVA_SI_INVALID_ARGUMENT);
    EXPECT_TRUE(SiNotifier == client);
}

class Told : public testing::Test {
protected:
    Told() { EXPECT_EQ(Orva_Si_InstallCallback(client), ORVA_SI_OK); }
};

// ---- Tables

struct table_case {
    std::uint16_t pid;
    std::uint8_t table_id;
    std::uint32_t reason;
    SiWord data; // for table_id_extension 0x1234 and frequency 474000
};

TEST_F(Told, EveryTableHasItsReasonAndNumber)
{
    const table_case cases[] = {
        {0x0000, 0x00, 6, 474000},  // PAT: the frequency
        {0x0001, 0x01, 20, 0x1234}, // CAT
        {0x0010, 0x40, 5, 0x1234},  // NIT actual
        {0x0010, 0x41, 5, 0x1234},  // NIT other
        {0x0011, 0x42, 7, 0x1234},  // SDT actual
        {0x0011, 0x46, 7, 0x1234},  // SDT other
        {0x0011, 0x72, 7, 0x1234},  // any other table there
        {0x0011, 0x4A, 17, 0x1234}, // BAT
        {0x0014, 0x72, 0, 0x1234},  // a table on a PID of no meaning here
        {0x1FFE, 0x3E, 0, 0x1234},
    };
    for (const table_case &c : cases) {
        SCOPED_TRACE(testing::Message() << "PID " << c.pid << " table_id " << unsigned{c.table_id});
        events.clear();
        EXPECT_EQ(Orva_Si_NotifyUpdate(474000, 0x1234, c.pid, c.table_id), ORVA_SI_OK);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].reason, c.reason);
        EXPECT_EQ(events[0].flag, 0u);
        EXPECT_EQ(events[0].data, c.data);
        EXPECT_EQ(events[0].value, 0u);
    }
}

TEST_F(Told, APmtComesAsARecordWhateverItsPid)
{
    constexpr std::uint16_t pids[] = {0x0100, 0x0011, 0x0000, 0x0001, 0x0010};
    for (const std::uint16_t pid : pids) {
        SCOPED_TRACE(pid);
        events.clear();
        fake::clear_log();
        EXPECT_EQ(Orva_Si_NotifyUpdate(474000, 0x1234, pid, 0x02), ORVA_SI_OK);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].reason, 8u);
        EXPECT_EQ(events[0].flag, 0u);
        EXPECT_EQ(events[0].value, 0u);
        ASSERT_TRUE(events[0].pmt);
        EXPECT_EQ(events[0].pmt->frequency, 474000u);
        EXPECT_EQ(events[0].pmt->program_number, 0x1234);
        EXPECT_TRUE(fake::logged(4, "this is the pmt of prog=0x1234 reason=0x8 notify###\n"))
            << fake::log_text();
    }
}

TEST_F(Told, TheLogTellsTablesApart)
{
    const struct {
        std::uint16_t pid;
        std::uint8_t table_id;
        std::string text;
    } cases[] = {{0x0000, 0x00, "this is pat changed reason\n"},
                 {0x0011, 0x42, "sdt act changed\n"},
                 {0x0011, 0x46, "sdt oth changed\n"},
                 {0x0011, 0x72, "sdt oth changed\n"}};
    for (const auto &c : cases) {
        fake::clear_log();
        Orva_Si_NotifyUpdate(474000, 7, c.pid, c.table_id);
        EXPECT_TRUE(fake::logged(4, c.text)) << fake::log_text();
    }
    fake::clear_log();
    Orva_Si_NotifyUpdate(474000, 7, 0x0011, 0x4A);
    EXPECT_FALSE(fake::logged("sdt oth changed\n"));
    EXPECT_FALSE(fake::logged("sdt act changed\n"));
}

// ---- Events

TEST_F(Told, ASectionOfEventsComesAsARecord)
{
    EXPECT_EQ(Orva_Si_NotifyEit(0x1111, 0x2222, 0x3333, 0x55, 9, 0x89ABCDEF, 0), ORVA_SI_OK);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].flag, 0u);
    EXPECT_EQ(events[0].value, 0u);
    ASSERT_TRUE(events[0].eit);
    const SiEitNotify &eit = *events[0].eit;
    EXPECT_EQ(eit.reserved, 0u);
    EXPECT_EQ(eit.original_network_id, 0x1111);
    EXPECT_EQ(eit.transport_stream_id, 0x2222);
    EXPECT_EQ(eit.service_id, 0x3333);
    EXPECT_EQ(eit.table_id, 0x55);
    EXPECT_EQ(eit.section_number, 9);
    EXPECT_EQ(eit.crc, 0x89ABCDEFu);
}

TEST_F(Told, NowAndNextScheduleChangedAndScheduleNewAreThreeReasons)
{
    const struct {
        std::uint8_t table_id;
        std::uint32_t changed;
        std::uint32_t reason;
        std::string text;
    } cases[] = {
        {0x4E, 0, 9, "this is banner change notify\n"},
        {0x4E, 1, 9, "this is banner change notify\n"},
        {0x4F, 0, 9, "this is banner change notify\n"},
        {0x4F, 1, 9, "this is banner change notify\n"},
        {0x50, 1, 10, "this is EPG change notify\n"},
        {0x6F, 1, 10, "this is EPG change notify\n"},
        {0x50, 0, 11, "this is EPG got notify\n"},
        {0x5F, 0, 11, "this is EPG got notify\n"},
        {0x50, 2, 11, "this is EPG got notify\n"}, // only 1 is a change
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << unsigned{c.table_id} << " changed " << c.changed);
        events.clear();
        fake::clear_log();
        EXPECT_EQ(Orva_Si_NotifyEit(31, 32, 33, c.table_id, 4, 5, c.changed), ORVA_SI_OK);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].reason, c.reason);
        EXPECT_TRUE(fake::logged(4, c.text)) << fake::log_text();
    }
}

TEST_F(Told, TheLogNamesASectionOfEvents)
{
    for (const std::uint8_t table_id : {std::uint8_t{0x4E}, std::uint8_t{0x50}})
        for (const std::uint32_t changed : {0u, 1u}) {
            fake::clear_log();
            Orva_Si_NotifyEit(31, 32, 33, table_id, 4, 5, changed);
            const std::string id = table_id == 0x4E ? "0x4e" : "0x50";
            const std::string decimal = table_id == 0x4E ? "78" : "80";
            EXPECT_TRUE(fake::logged(4, "eit tableid=" + id + ",sectnum=4\n")) << fake::log_text();
            EXPECT_TRUE(
                fake::logged(4, "tsid=32,onitid=31,servid=33,tblid=" + id + ", sectnum=4\n"));
            EXPECT_TRUE(fake::logged(4, "the tableid =" + decimal + " sectnum = 4 \n"));
        }
}

// ---- Time

TEST_F(Told, ASecondComesFromTdtOrTot)
{
    EXPECT_EQ(Orva_Si_NotifyTime(1700000000, 0), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "New second: 1700000000 from TDT\n")) << fake::log_text();
    EXPECT_EQ(Orva_Si_NotifyTime(4000000000, 2), ORVA_SI_OK);
    // The text takes a long: where that has 32 bits, seconds after 2038 are negative in it.
    const std::string late = std::to_string(static_cast<long>(4000000000));
    EXPECT_TRUE(fake::logged(4, "New second: " + late + " from TOT\n")) << fake::log_text();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].reason, 3u);
    EXPECT_EQ(events[0].value, 1700000000u);
    EXPECT_EQ(events[1].reason, 16u);
    EXPECT_EQ(events[1].value, 4000000000u);
    for (const event &e : events) {
        EXPECT_EQ(e.flag, 1u);
        EXPECT_EQ(e.data, 0u);
    }
}

TEST_F(Told, NoSecondWhileScanning)
{
    enter_scan_mode();
    EXPECT_EQ(Orva_Si_NotifyTime(1700000000, 0), ORVA_SI_OK);
    EXPECT_EQ(Orva_Si_NotifyTime(1700000000, 1), ORVA_SI_OK);
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST_F(Told, NoTableWhileScanning)
{
    enter_scan_mode();
    Orva_Si_SetCtlFlag();
    Orva_MutexP(&Ts_Ctl_Mutex);
    for (const auto &[pid, table_id] : {std::pair{0x00, 0x00}, {0x11, 0x42}, {0x100, 0x02}})
        EXPECT_EQ(Orva_Si_NotifyTableStatus(static_cast<std::uint16_t>(pid),
                                            static_cast<std::uint8_t>(table_id), 7),
                  ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(fake::logged(3, "pat is ready\n")) << fake::log_text(); // booked instead
}

TEST_F(Told, EventsAndDsmccAlsoWhileScanning)
{
    enter_scan_mode();
    std::uint8_t bytes[4]{};
    const SiSection section{.pid = 0x200, .filter_id = 0, .sect_len = 4, .section = bytes};
    Orva_Si_NotifyEit(31, 32, 33, 0x4E, 4, 5, 0);
    Orva_Si_PostDsmccSect(&section, 4);
    EXPECT_EQ(events.size(), 2u);
}

// ---- DSM-CC

TEST_F(Told, ADsmccSectionIsHandedThrough)
{
    std::uint8_t bytes[16] = {0x3C};
    const SiSection section{.pid = 0x0ABC, .filter_id = 3, .sect_len = 16, .section = bytes};
    EXPECT_EQ(Orva_Si_PostDsmccSect(&section, 12), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(4, "this is DSMCC section get callback\n")) << fake::log_text();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].reason, 12u);
    EXPECT_EQ(events[0].flag, 0u);
    EXPECT_EQ(events[0].value, 0u);
    ASSERT_TRUE(events[0].dsmcc);
    EXPECT_EQ(events[0].dsmcc->pid, 0x0ABC);
    EXPECT_EQ(events[0].dsmcc->length, 12);
    EXPECT_EQ(events[0].dsmcc->section, bytes);
}

TEST_F(Told, OfTheLongestDsmccSection)
{
    std::uint8_t bytes[1] = {0x3C};
    const SiSection section{.pid = 0x0ABC, .filter_id = 3, .sect_len = 4098, .section = bytes};
    Orva_Si_PostDsmccSect(&section, 4098);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].dsmcc->length, 4098);
}

TEST_F(Told, NothingOfANullDsmccSection)
{
    EXPECT_EQ(Orva_Si_PostDsmccSect(nullptr, 12), ORVA_SI_NULL_ARGUMENT);
    EXPECT_TRUE(fake::logged(2, "[psect\n")) << fake::log_text();
    EXPECT_TRUE(events.empty());
}

// ---- Without a callback, and inside one

TEST(WithoutCallback, EveryEventIsLoggedAndTheLibraryCarriesOn)
{
    const std::string no_table = "No Callback to notify changed!\n";
    std::uint8_t bytes[4]{};
    const SiSection section{.pid = 0x200, .filter_id = 0, .sect_len = 4, .section = bytes};
    const struct {
        std::function<std::uint32_t()> notify;
        std::string text;
    } cases[] = {
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0000, 0x00); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0001, 0x01); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0010, 0x40); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0011, 0x42); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0011, 0x4A); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0100, 0x02); }, no_table},
        {[] { return Orva_Si_NotifyUpdate(474000, 7, 0x0014, 0x72); }, no_table},
        {[] { return Orva_Si_NotifyEit(31, 32, 33, 0x4E, 4, 5, 0); },
         "No Callback to notify Eit changed!\n"},
        {[] { return Orva_Si_NotifyTime(1700000000, 0); }, "No Callback to notify time changed!\n"},
        {[] { return Orva_Si_NotifyTime(1700000000, 1); }, "No Callback to notify time changed!\n"},
        {[&] { return Orva_Si_PostDsmccSect(&section, 4); },
         "No Callback to notify DSMCC section get!\n"},
    };
    for (const auto &c : cases) {
        fake::clear_log();
        EXPECT_EQ(c.notify(), ORVA_SI_OK);
        EXPECT_TRUE(fake::logged(2, c.text)) << fake::log_text();
    }
}

TEST(WithoutCallback, TheTracesAreWrittenAllTheSame)
{
    Orva_Si_NotifyUpdate(474000, 7, 0x0011, 0x42);
    EXPECT_TRUE(fake::logged(4, "sdt act changed\n")) << fake::log_text();
    Orva_Si_NotifyTime(1700000000, 0);
    EXPECT_TRUE(fake::logged(4, "New second: 1700000000 from TDT\n"));
}

TEST_F(Told, WithTheStoreOpenToQueries)
{
    Orva_Si_SetCtlFlag();
    std::uint32_t crc = 1;
    meanwhile = [&] { EXPECT_EQ(Orva_Si_GetPATCRC(&crc), ORVA_SI_OK); };
    Orva_MutexP(&Ts_Ctl_Mutex);
    EXPECT_EQ(Orva_Si_NotifyTableStatus(0, 0, 7), ORVA_SI_OK);
    Orva_MutexV(&Ts_Ctl_Mutex);
    EXPECT_EQ(events.size(), 1u);
    EXPECT_EQ(crc, 0u);
}

} // namespace
