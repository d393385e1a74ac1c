// SPDX-License-Identifier: LGPL-2.1-or-later
// The road of a section: the driver's callbacks, the queue, the section thread.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <thread>

#include "orva_si_model.h"
#include "support/filters.h"

using namespace test;
using octets = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// What reached the dispatcher.
struct dispatched {
    std::uint16_t pid;
    std::uint16_t filter_id;
    octets bytes;
};
std::mutex dispatch_lock;
std::vector<dispatched> dispatch_log;
std::function<void()> during_dispatch;

std::vector<dispatched> taken()
{
    const std::lock_guard held{dispatch_lock};
    return dispatch_log;
}

} // namespace

extern "C" std::uint32_t __wrap_Si_Model_ProcessModel(SiSection *node)
{
    {
        const std::lock_guard held{dispatch_lock};
        dispatch_log.push_back(
            {node->pid, node->filter_id, {node->section, node->section + node->sect_len}});
    }
    if (during_dispatch)
        during_dispatch();
    return 0x31;
}

namespace {

// A section of any length and table_id; bytes 3 and 4 are the extension.
octets section_of(std::uint8_t table_id, std::size_t length = 20, std::uint16_t extension = 1)
{
    octets bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    const octets head{table_id, 0x80, 0x00, static_cast<std::uint8_t>(extension >> 8),
                      static_cast<std::uint8_t>(extension & 0xFF)};
    std::copy_n(head.begin(), std::min(head.size(), length), bytes.begin());
    return bytes;
}

class Reception : public Filters {
protected:
    Reception()
    {
        Si_SectFlt_StartPat();
        Si_SectFlt_StartSdtBat();
        Si_SectFlt_EnableProcessData(1);
        pat_filter = driver.filter_id(0);
        sdt_filter = driver.filter_id(3);
        fake::clear_log();
    }

    void deliver(std::uint8_t table_id, std::size_t length = 20, std::uint16_t extension = 1)
    {
        driver.deliver(sdt_filter, section_of(table_id, length, extension));
    }

    // Delivers this many sections that are never refused.
    void fill_queue(std::size_t count)
    {
        const auto before = Si_SectFlt_GetPendingCount();
        const octets section = section_of(0x42);
        for (std::size_t i = 0; i < count; ++i)
            driver.deliver(sdt_filter, section);
        ASSERT_EQ(Si_SectFlt_GetPendingCount(), before + count);
        fake::clear_log();
    }

    static std::uint32_t queued() { return Si_SectFlt_GetPendingCount(); }

    // A descriptor of the test's own making; its buffer is lent.
    SiDmxSection lend(const octets &bytes)
    {
        const SiWord handle = driver.lend(bytes);
        return {driver.bytes_of(handle), static_cast<std::uint32_t>(bytes.size()), nullptr, 0,
                handle};
    }

    static void start_thread()
    {
        std::thread{[] { Ts_Monitor_Fn(nullptr); }}.detach();
        wait_until([] { return fake::logged(4, "I am ready!\n"); });
        Si_SectFlt_EnableProcessData(1);
    }

    template <class Condition>
    static void wait_until(Condition condition)
    {
        for (int i = 0; i < 2000 && !condition(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds{5});
        ASSERT_TRUE(condition());
    }
    static void wait_until_idle()
    {
        wait_until([] { return Si_SectFlt_GetPendingCount() == 0; });
    }

    std::uint32_t pat_filter = 0;
    std::uint32_t sdt_filter = 0;
};

std::string bad_length(std::uint32_t filter_id, int length, const SiDmxSection &of)
{
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(),
                  "Bad section length! fiilter_id: %d, length: %d, "
                  "\t\t\t\tsection->pPrimaraySectionData: %p, "
                  "section->PrimaraySectionSize: %d\t\t\t\tsection->pSecondarySectionData: %p, "
                  "section->SecondarySectionSize: %d\n",
                  static_cast<int>(filter_id), length, static_cast<void *>(of.pPrimaraySectionData),
                  static_cast<int>(of.PrimaraySectionSize),
                  static_cast<void *>(of.pSecondarySectionData),
                  static_cast<int>(of.SecondarySectionSize));
    return text.data();
}

std::string invalid_callback(std::uint32_t filter_id, const SiDmxSection &of)
{
    std::array<char, 200> text{};
    std::snprintf(
        text.data(), text.size(),
        "Invalid callback: filter_id: %#x, pPrimaraySectionData: %p, PrimaraySectionSize: %d\n",
        filter_id, static_cast<void *>(of.pPrimaraySectionData),
        static_cast<int>(of.PrimaraySectionSize));
    return text.data();
}

// ---- Single delivery

TEST_F(Reception, SectionIsCopiedQueuedAndItsBufferGivenBackAtOnce)
{
    driver.deliver(pat_filter, section_of(0x00));
    EXPECT_EQ(queued(), 1U);
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(driver.returned_demux(), fake::driver_demux); // what the driver called itself
    EXPECT_EQ(driver.calls().back().filter_id, pat_filter);
    EXPECT_TRUE(fake::logged(4, "get filter callback, filterid = 64\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "Get one section: datasize:20, table_id: 0\n"));
}

TEST_F(Reception, NullDescriptorIsReportedAndNothingGivenBack)
{
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, nullptr);
    EXPECT_TRUE(fake::logged(1, "Invalid callback: section = NULL!\n"));
    EXPECT_EQ(driver.times_called(fake::free_data), 0U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, FilterIdThatMeansNoneIsRefused)
{
    for (const std::uint32_t none : {32U, 0x10020U}) { // the low half of the id counts
        SiDmxSection section = lend(section_of(0x00));
        Si_SectFlt_PidFltCallback(0, none, 0, &section);
        EXPECT_TRUE(fake::logged(2, invalid_callback(none, section))) << fake::log_text();
    }
    EXPECT_EQ(driver.returned(), 2U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, MissingBytesAreRefused)
{
    SiDmxSection no_address = lend(section_of(0x00));
    no_address.pPrimaraySectionData = nullptr;
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &no_address);
    EXPECT_TRUE(fake::logged(2, "Invalid callback: filter_id: 0x40, pPrimaraySectionData: (nil), "
                                "PrimaraySectionSize: 20\n"));
    SiDmxSection empty = lend(section_of(0x00));
    empty.PrimaraySectionSize = 0;
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &empty);
    EXPECT_TRUE(fake::logged(2, invalid_callback(pat_filter, empty)));
    EXPECT_EQ(driver.returned(), 2U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, SecondPartWithoutAnAddressIsRefused)
{
    SiDmxSection section = lend(section_of(0x00));
    section.SecondarySectionSize = 10;
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &section);
    EXPECT_TRUE(fake::logged(2, invalid_callback(pat_filter, section)));
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, ThreeBytesAreTooShort)
{
    SiDmxSection section = lend(section_of(0x00, 3));
    const std::string text = bad_length(pat_filter, 3, section);
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &section);
    EXPECT_TRUE(fake::logged(1, text)) << fake::log_text();
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, MoreThan4096BytesAreTooLong)
{
    SiDmxSection section = lend(section_of(0x00, 4097));
    const std::string text = bad_length(pat_filter, 4097, section);
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &section);
    EXPECT_TRUE(fake::logged(1, text)) << fake::log_text();
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, FourTo4096BytesAreAccepted)
{
    driver.deliver(pat_filter, section_of(0x00, 4));
    driver.deliver(pat_filter, section_of(0x00, 4096));
    EXPECT_EQ(queued(), 2U);
}

TEST_F(Reception, SizesThatWrapIn32BitsAreTooLong)
{
    SiDmxSection section = lend(section_of(0x00));
    section.pSecondarySectionData = section.pPrimaraySectionData;
    section.PrimaraySectionSize = 0xFFFFFFFF;
    section.SecondarySectionSize = 5; // 4 in 32 bits
    const std::string text = bad_length(pat_filter, 4, section);
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &section);
    EXPECT_TRUE(fake::logged(1, text)) << fake::log_text();
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, BothPartsTogetherAreLimited)
{
    driver.deliver_split(pat_filter, section_of(0x00, 4097), 4000);
    EXPECT_EQ(queued(), 0U);
    driver.deliver_split(pat_filter, section_of(0x00, 3), 1);
    EXPECT_EQ(queued(), 0U);
    driver.deliver_split(pat_filter, section_of(0x00, 4096), 1);
    EXPECT_EQ(queued(), 1U);
}

TEST_F(Reception, SectionOfAStoppedFilterIsDropped)
{
    Si_SectFlt_StopPat();
    EXPECT_TRUE(driver.deliver(pat_filter, section_of(0x00)));
    EXPECT_TRUE(fake::logged(2, "This filter has been closed, 64\n"));
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, SectionOfAFilterThatTheLibraryDoesNotKnowIsDropped)
{
    SiDmxSection section = lend(section_of(0x00));
    Si_SectFlt_PidFltCallback(0, 5000, 0, &section);
    EXPECT_TRUE(fake::logged(2, "This filter has been closed, 5000\n"));
    EXPECT_EQ(driver.returned(), 1U);
}

TEST_F(Reception, NodeWithoutMemoryIsReported)
{
    fake::fail_allocation(1);
    driver.deliver(pat_filter, section_of(0x00));
    EXPECT_TRUE(fake::logged(1, "Malloc section node failed!\n"));
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, CopyWithoutMemoryIsReported)
{
    fake::fail_allocation(2);
    driver.deliver(pat_filter, section_of(0x00));
    EXPECT_TRUE(fake::logged(1, "Malloc section failed, sect_len = 20!\n"));
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(Reception, DriverWithoutAWayToTakeBuffersBackLosesNothingElse)
{
    const auto take_back = driver.table()->FreeSecData;
    driver.table()->FreeSecData = nullptr;
    SiDmxSection section = lend(section_of(0x00));
    Si_SectFlt_PidFltCallback(0, pat_filter, 0, &section);
    EXPECT_TRUE(fake::logged(2, "NULL pointer!\n"));
    EXPECT_EQ(queued(), 1U);
    driver.table()->FreeSecData = take_back;
    take_back(0, pat_filter, section.BufferHandle);
}

// ---- Admission

TEST_F(Reception, EverySectionIsAdmittedBelowOneHundred)
{
    fill_queue(99);
    deliver(0x4F);
    EXPECT_EQ(queued(), 100U);
}

TEST_F(Reception, FromOneHundredOnOnlyListedTablesAreAdmitted)
{
    fill_queue(100);
    std::uint32_t expected = 100;
    for (const int table_id : {0x00, 0x01, 0x02, 0x40, 0x41, 0x42, 0x46, 0x4A}) {
        deliver(static_cast<std::uint8_t>(table_id));
        EXPECT_EQ(queued(), ++expected) << table_id;
    }
    for (const int table_id : {0x03, 0x3B, 0x4F, 0x4E, 0x50, 0x60, 0x70, 0x73}) {
        deliver(static_cast<std::uint8_t>(table_id), 20, 0x2222);
        EXPECT_EQ(queued(), expected) << table_id;
    }
    EXPECT_EQ(driver.returned(), driver.lent());
}

TEST_F(Reception, RefusedSectionIsReported)
{
    fill_queue(100);
    deliver(0x4F, 20, 0x1234);
    EXPECT_TRUE(
        fake::logged(3, "table_id: 0x4f, table_id_ext: 0x1234, TableTmpList.section_count: 100\n"))
        << fake::log_text();
}

TEST_F(Reception, EventsOfTheTunedServiceAreAdmittedInAFlood)
{
    tune(0x1001);
    fill_queue(100);
    deliver(0x4E, 20, 0x1001);
    deliver(0x50, 20, 0x1001);
    deliver(0x5F, 20, 0x1001);
    EXPECT_EQ(queued(), 103U);
    deliver(0x4E, 20, 0x1002);
    deliver(0x60, 20, 0x1001); // of another multiplex
    deliver(0x4F, 20, 0x1001);
    EXPECT_EQ(queued(), 103U);
}

TEST_F(Reception, AdmissionReadsNoByteThatWasNotDelivered)
{
    tune(0x1000);
    fill_queue(100);
    const octets exactly_four{0x4E, 0x80, 0x00, 0x10}; // its low extension byte counts as 0
    EXPECT_EQ(Si_SectFlt_IsCriticalSection(exactly_four.data(), 4), 1U);
    EXPECT_EQ(Si_SectFlt_IsCriticalSection(exactly_four.data(), 3), 0U);
    EXPECT_EQ(Si_SectFlt_IsCriticalSection(exactly_four.data(), 0), 0U);
    EXPECT_EQ(Si_SectFlt_IsCriticalSection(nullptr, 4), 0U);
}

// ---- Limits

TEST_F(Reception, QueueHoldsNoMoreThanItsSections)
{
    const octets other = section_of(0x46); // always admitted, but not of the tuned multiplex
    for (int i = 0; i < 1792; ++i)
        driver.deliver(sdt_filter, other);
    ASSERT_EQ(queued(), 1792U);
    fake::clear_log();
    driver.deliver(sdt_filter, other);
    EXPECT_EQ(queued(), 1792U);
    EXPECT_TRUE(fake::logged(1, "Malloc section node failed!\n"));
    fill_queue(256); // the reserve
    deliver(0x42);
    EXPECT_EQ(queued(), 2048U);
    EXPECT_TRUE(fake::logged(1, "Malloc section node failed!\n"));
    EXPECT_EQ(driver.returned(), driver.lent());
}

TEST_F(Reception, QueueHoldsNoMoreThanItsBytes)
{
    const octets other = section_of(0x46, 4096);
    for (int i = 0; i < 896; ++i) // 3.5 MiB
        driver.deliver(sdt_filter, other);
    ASSERT_EQ(queued(), 896U);
    fake::clear_log();
    driver.deliver(sdt_filter, other);
    EXPECT_EQ(queued(), 896U);
    EXPECT_TRUE(fake::logged(1, "Malloc section failed, sect_len = 4096!\n"));
    const octets actual = section_of(0x42, 4096);
    for (int i = 0; i < 129; ++i)
        driver.deliver(sdt_filter, actual);
    EXPECT_EQ(queued(), 1024U); // 4 MiB
    EXPECT_EQ(driver.returned(), driver.lent());
}

TEST_F(Reception, FlushMakesRoomAgain)
{
    fill_queue(2048);
    deliver(0x42);
    EXPECT_EQ(queued(), 2048U);
    EXPECT_EQ(Si_SectFlt_FlushTmpList(), ORVA_SI_OK);
    EXPECT_TRUE(fake::logged(3, "Flush the tmp list!\n"));
    EXPECT_EQ(queued(), 0U);
    fill_queue(150);
}

// ---- List delivery

class ListReception : public Reception {
protected:
    ListReception()
    {
        const SiEitRequest *every_service = nullptr;
        Si_SectFlt_StartOtherPfEit(every_service, 0); // batches of 5
        eit_filter = driver.filter_id(5);
        fake::clear_log();
    }
    // Lends one buffer for a list of the test's own making.
    SiDmxSectionList list_of(std::vector<SiDmxSection> &sections)
    {
        return {static_cast<std::uint32_t>(sections.size()), sections.data(),
                driver.lend(octets(64))};
    }
    std::uint32_t eit_filter = 0;
};

TEST_F(ListReception, BatchIsQueuedAndGivenBackOnce)
{
    EXPECT_TRUE(driver.deliver_batch(eit_filter,
                                     {section_of(0x4F), section_of(0x4F, 30), section_of(0x4F)}));
    EXPECT_EQ(queued(), 3U);
    EXPECT_EQ(driver.times_called(fake::free_data), 1U);
    EXPECT_EQ(driver.returned_demux(), fake::driver_demux);
    EXPECT_TRUE(fake::logged(5, "Get section list callback, filterid = 69, section_count = 3\n"));
    EXPECT_TRUE(fake::logged(4, "Get one section: datasize:30\n"));
}

TEST_F(ListReception, NullListIsReportedAndNothingGivenBack)
{
    Si_SectFlt_PidFltSecListCallback(0, eit_filter, 0, nullptr);
    EXPECT_TRUE(fake::logged(1, "Invalid callback: sec_list = NULL!\n"));
    EXPECT_EQ(driver.times_called(fake::free_data), 0U);
}

TEST_F(ListReception, CountsOutsideOneToTwoHundredAreRefused)
{
    std::vector<SiDmxSection> sections(201);
    for (const std::uint32_t count : {0U, 201U, 0xFFFFFFFFU}) {
        SiDmxSectionList list = list_of(sections);
        list.section_count = count;
        fake::clear_log();
        Si_SectFlt_PidFltSecListCallback(0, eit_filter, 0, &list);
        std::array<char, 200> text{};
        std::snprintf(text.data(), text.size(),
                      "Invalid callback: filter_id: %d, sec_list->section: %p, "
                      "sec_list->section_count: %d\n",
                      static_cast<int>(eit_filter), static_cast<void *>(sections.data()),
                      static_cast<int>(count));
        EXPECT_TRUE(fake::logged(2, text.data())) << fake::log_text();
    }
    EXPECT_EQ(driver.returned(), 3U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(ListReception, FilterIdThatMeansNoneIsRefused)
{
    std::vector<SiDmxSection> sections(1);
    SiDmxSectionList list = list_of(sections);
    Si_SectFlt_PidFltSecListCallback(0, 32, 0, &list);
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(ListReception, MissingArrayIsRefused)
{
    std::vector<SiDmxSection> sections(1);
    SiDmxSectionList list = list_of(sections);
    list.section = nullptr;
    Si_SectFlt_PidFltSecListCallback(0, eit_filter, 0, &list);
    EXPECT_TRUE(fake::logged(
        2,
        "Invalid callback: filter_id: 69, sec_list->section: (nil), sec_list->section_count: 1\n"));
    EXPECT_EQ(driver.returned(), 1U);
}

TEST_F(ListReception, LongestBatchIsAccepted)
{
    driver.deliver_batch(eit_filter, std::vector<octets>(200, section_of(0x4F)));
    EXPECT_EQ(queued(), 200U);
}

TEST_F(ListReception, BatchIsDroppedAboveOneHundredQueuedSections)
{
    fill_queue(100);
    driver.deliver_batch(eit_filter, {section_of(0x4F)}); // no choice by table here
    EXPECT_EQ(queued(), 101U);
    driver.deliver_batch(eit_filter, {section_of(0x00)});
    EXPECT_EQ(queued(), 101U);
    EXPECT_TRUE(fake::logged(2, "TableTmpList.section_count = 101\n"));
    EXPECT_EQ(driver.returned(), driver.lent());
}

TEST_F(ListReception, BatchOfAStoppedFilterIsDropped)
{
    Si_SectFlt_StopOtherPfEit();
    driver.deliver_batch(eit_filter, {section_of(0x4F)});
    EXPECT_TRUE(fake::logged(2, "This filter has been closed, 69\n"));
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_EQ(queued(), 0U);
}

TEST_F(ListReception, BrokenSectionsOfABatchArePassedOver)
{
    octets good = section_of(0x4F);
    octets longest = section_of(0x4F, 4097);
    std::vector<SiDmxSection> sections{
        {good.data(), 20, nullptr, 0, 0},
        {nullptr, 20, nullptr, 0, 0},
        {good.data(), 0, nullptr, 0, 0},
        {good.data(), 20, nullptr, 5, 0},
        {good.data(), 3, nullptr, 0, 0},
        {longest.data(), 4097, nullptr, 0, 0},
        {good.data(), 0xFFFFFFFF, good.data(), 5, 0},
        {good.data(), 10, good.data() + 10, 10, 0},
    };
    SiDmxSectionList list = list_of(sections);
    Si_SectFlt_PidFltSecListCallback(0, eit_filter, 0, &list);
    EXPECT_EQ(queued(), 2U);
    EXPECT_EQ(driver.returned(), 1U);
    EXPECT_TRUE(fake::logged(
        2,
        "Invalid section: filter_id: 69, pPrimaraySectionData: (nil), PrimaraySectionSize: 20\n"));
    EXPECT_TRUE(fake::logged(1, bad_length(eit_filter, 3, sections[4])));
    EXPECT_TRUE(fake::logged(1, bad_length(eit_filter, 4097, sections[5])));
    EXPECT_TRUE(fake::logged(1, bad_length(eit_filter, 4, sections[6])));
}

TEST_F(ListReception, BatchWithoutMemoryLosesThatSectionOnly)
{
    fake::fail_allocation(3); // the second section's node
    driver.deliver_batch(eit_filter, {section_of(0x4F), section_of(0x4F), section_of(0x4F)});
    EXPECT_TRUE(fake::logged(1, "Malloc section node failed!\n"));
    EXPECT_EQ(queued(), 2U);
    EXPECT_EQ(driver.returned(), 1U);
}

TEST_F(ListReception, TheLargestBatchIsTakenWhole)
{
    const octets large = section_of(0x4F, 4096);
    fill_queue(95); // more, and no batch is taken
    EXPECT_TRUE(driver.deliver_batch(eit_filter, std::vector<octets>(200, large)));
    EXPECT_EQ(queued(), 295U);
    EXPECT_EQ(driver.lent(), driver.returned());
}

// ---- One node

class OneNode : public Reception {
protected:
    SiSection *node(std::uint32_t filter_id, const octets &bytes)
    {
        auto *made = si::allocate_record<SiSection>();
        made->filter_id = static_cast<std::uint16_t>(filter_id);
        made->sect_len = static_cast<std::uint16_t>(bytes.size());
        made->section = si::allocate_section(bytes.size());
        std::copy(bytes.begin(), bytes.end(), made->section);
        return made;
    }
    static void list_program(std::uint16_t number, std::uint16_t pid)
    {
        si::store_pmt_entry(PmtPidList, 0, {number, pid});
        PmtPidList.count = 1;
    }
};

TEST_F(OneNode, GoesToTheDispatcherWithThePidOfItsFilter)
{
    EXPECT_EQ(Si_SectFlt_ProcessModel(node(sdt_filter, section_of(0x42))), 0x31U);
    ASSERT_THAT(taken(), SizeIs(1));
    EXPECT_EQ(taken()[0].pid, 0x11);
    EXPECT_EQ(taken()[0].filter_id, sdt_filter);
    EXPECT_EQ(taken()[0].bytes, section_of(0x42));
}

TEST_F(OneNode, NullNodeIsReported)
{
    EXPECT_EQ(Si_SectFlt_ProcessModel(nullptr), 2U);
    EXPECT_TRUE(fake::logged(2, "bad pointer\n"));
}

TEST_F(OneNode, NodeWithoutDataIsReportedAndFreed)
{
    EXPECT_EQ(Si_SectFlt_ProcessModel(si::allocate_record<SiSection>()), 2U);
    EXPECT_TRUE(fake::logged(2, "bad pointer\n"));
}

TEST_F(OneNode, NodeOfNoFilterIsDropped)
{
    Si_SectFlt_ProcessModel(node(SI_NO_FILTER, section_of(0x42)));
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(OneNode, NodeIsDroppedOnceTheClientHasStopped)
{
    Orva_Si_ResetCtlFlag();
    Si_SectFlt_ProcessModel(node(sdt_filter, section_of(0x42)));
    EXPECT_TRUE(fake::logged(3, "All filters has been closed, filter_id: 67!\n"))
        << fake::log_text();
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(OneNode, NodeOfAFilterStoppedAMomentBeforeIsDropped)
{
    SiSection *late = node(sdt_filter, section_of(0x42));
    Si_SectFlt_StopSdtBat();
    Si_SectFlt_ProcessModel(late);
    EXPECT_TRUE(fake::logged(3, "This filter has been closed, 67\n"));
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(OneNode, PmtIsTakenFromThePidOfItsProgram)
{
    list_program(5, 0x11);
    Si_SectFlt_ProcessModel(node(sdt_filter, section_of(0x02, 20, 5)));
    EXPECT_THAT(taken(), SizeIs(1));
}

TEST_F(OneNode, PmtOfAProgramOnAnotherPidIsDropped)
{
    list_program(5, 0x100);
    Si_SectFlt_ProcessModel(node(sdt_filter, section_of(0x02, 20, 5)));
    EXPECT_TRUE(fake::logged(2, "Invalid PMT: pid: 0x11, program number: 0x5\n"));
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(OneNode, PmtOfAnUnlistedProgramIsDropped)
{
    list_program(5, 0x11);
    Si_SectFlt_ProcessModel(node(sdt_filter, section_of(0x02, 20, 6)));
    EXPECT_TRUE(fake::logged(2, "Invalid PMT: pid: 0x11, program number: 0x6\n"));
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(OneNode, PmtOfFourBytesIsCheckedWithoutReadingOn)
{
    list_program(0x0500, 0x11);
    Si_SectFlt_ProcessModel(node(sdt_filter, {0x02, 0x80, 0x01, 0x05}));
    EXPECT_THAT(taken(), SizeIs(1));
}

TEST_F(OneNode, FreeingANullNodeIsReported)
{
    EXPECT_EQ(Si_SectFlt_FlushSectionData(nullptr), 2U);
    EXPECT_TRUE(fake::logged(2, "[node\n"));
}

// ---- The section thread

class SectionThread : public Reception {
protected:
    ~SectionThread() override
    {
        wait_until_idle();
        during_dispatch = nullptr;
    }
};

TEST_F(SectionThread, HandsSectionsOnInOrder)
{
    start_thread();
    std::vector<octets> sent;
    for (std::uint16_t i = 0; i < 50; ++i) {
        sent.push_back(section_of(0x42, 20 + i, i));
        driver.deliver(sdt_filter, sent.back());
    }
    wait_until_idle();
    std::vector<octets> got;
    for (const dispatched &of : taken())
        got.push_back(of.bytes);
    EXPECT_EQ(got, sent);
    EXPECT_EQ(driver.returned(), 50U);
}

TEST_F(SectionThread, JoinsASectionThatCameInTwoParts)
{
    start_thread();
    const octets section = section_of(0x42, 777);
    for (const std::size_t first : {1U, 33U, 776U})
        driver.deliver_split(sdt_filter, section, first);
    wait_until_idle();
    ASSERT_THAT(taken(), SizeIs(3));
    for (const dispatched &of : taken())
        EXPECT_EQ(of.bytes, section);
}

TEST_F(SectionThread, FreesSectionsUnprocessedWhileProcessingIsDisabled)
{
    start_thread();
    Si_SectFlt_EnableProcessData(0);
    for (int i = 0; i < 10; ++i)
        deliver(0x42);
    wait_until_idle();
    EXPECT_THAT(taken(), IsEmpty());
    Si_SectFlt_EnableProcessData(1);
    deliver(0x42);
    wait_until_idle();
    EXPECT_THAT(taken(), SizeIs(1));
}

TEST_F(SectionThread, StartsWithProcessingDisabledAndWithoutWhatCameEarlier)
{
    fill_queue(3);
    std::thread{[] { Ts_Monitor_Fn(nullptr); }}.detach();
    wait_until([] { return fake::logged(4, "I am ready!\n"); });
    deliver(0x42);
    wait_until_idle();
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(SectionThread, EndsWithOneWhenTheStoreCannotBeMade)
{
    fake::fail_allocation(1);
    EXPECT_EQ(Ts_Monitor_Fn(nullptr), reinterpret_cast<void *>(1));
    EXPECT_TRUE(fake::logged(2, "Orva_Si_InitSectModel error\n"));
    EXPECT_FALSE(fake::logged("I am ready!\n"));
}

TEST_F(SectionThread, CountsASectionAsPendingUntilItIsProcessed)
{
    std::atomic<bool> go{false};
    during_dispatch = [&] {
        while (!go)
            std::this_thread::yield();
    };
    start_thread();
    deliver(0x42);
    wait_until([] { return !taken().empty(); });
    EXPECT_EQ(queued(), 1U);
    deliver(0x42);
    EXPECT_EQ(queued(), 2U);
    go = true;
    wait_until_idle();
}

TEST_F(SectionThread, IsReportedBusyAfterFivePolls)
{
    std::atomic<bool> go{false};
    during_dispatch = [&] {
        while (!go)
            std::this_thread::yield();
    };
    fake::timers().real_delay = false;
    EXPECT_EQ(Si_SectFlt_CheckRunningStatus(), 0U); // not started yet
    start_thread();
    EXPECT_EQ(Si_SectFlt_CheckRunningStatus(), 0U);
    EXPECT_THAT(fake::timers().delays, IsEmpty());
    deliver(0x42);
    wait_until([] { return !taken().empty(); });
    EXPECT_EQ(Si_SectFlt_CheckRunningStatus(), 1U);
    EXPECT_THAT(fake::timers().delays, ElementsAre(50, 50, 50, 50, 50));
    go = true;
    wait_until([] { return Si_SectFlt_CheckRunningStatus() == 0; });
}

TEST_F(SectionThread, DropsWhatIsInFlightWhenAFilterStops)
{
    std::atomic<bool> go{false};
    during_dispatch = [&] {
        while (!go)
            std::this_thread::yield();
    };
    start_thread();
    deliver(0x42);
    wait_until([] { return !taken().empty(); }); // the thread holds the first one
    deliver(0x42);
    Si_SectFlt_StopSdtBat();
    go = true;
    wait_until_idle();
    EXPECT_THAT(taken(), SizeIs(1));
    EXPECT_TRUE(fake::logged(3, "This filter has been closed, 67\n"));
}

TEST_F(SectionThread, BrokenSectionsOfABatchTakeNoSpareMemory)
{
#ifdef SI_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer is to see memory that was given back";
#endif
    const SiEitRequest *every_service = nullptr;
    Si_SectFlt_StartOtherPfEit(every_service, 0);
    const std::uint32_t eit_filter = driver.filter_id(5);
    const std::vector<octets> good(5, section_of(0x4F));
    start_thread();
    driver.deliver_batch(eit_filter, good);
    wait_until_idle();
    const std::size_t before = fake::allocations();
    driver.deliver_batch(eit_filter, std::vector<octets>(5, octets{0x4F, 0xB0, 0x00}));
    driver.deliver_batch(eit_filter, good);
    wait_until_idle();
    EXPECT_EQ(fake::allocations(), before); // what the good ones left is all there
    EXPECT_THAT(taken(), SizeIs(10));
}

TEST_F(SectionThread, UsesTheMemoryOfASectionForTheNextOfItsSize)
{
#ifdef SI_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer is to see memory that was given back";
#endif
    start_thread();
    driver.deliver(sdt_filter, section_of(0x42, 320));
    wait_until_idle();
    const std::size_t before = fake::allocations();
    driver.deliver(sdt_filter, section_of(0x42, 289)); // 320 too when rounded
    wait_until_idle();
    EXPECT_EQ(fake::allocations(), before);
    ASSERT_THAT(taken(), SizeIs(2));
    EXPECT_EQ(taken()[1].bytes, section_of(0x42, 289));
    driver.deliver(sdt_filter, section_of(0x42, 321));
    wait_until_idle();
    EXPECT_EQ(fake::allocations(), before + 1); // the bytes alone
}

TEST_F(SectionThread, KeepsNoMemoryWhenProcessingIsDisabledOrTheQueueFlushed)
{
    start_thread();
    driver.deliver(sdt_filter, section_of(0x42, 320));
    wait_until_idle();
    Si_SectFlt_EnableProcessData(0);
    Si_SectFlt_EnableProcessData(1);
    std::size_t before = fake::allocations();
    driver.deliver(sdt_filter, section_of(0x42, 320));
    wait_until_idle();
    EXPECT_EQ(fake::allocations(), before + 2);
    Si_SectFlt_FlushTmpList();
    before = fake::allocations();
    driver.deliver(sdt_filter, section_of(0x42, 320));
    wait_until_idle();
    EXPECT_EQ(fake::allocations(), before + 2);
}

TEST_F(SectionThread, LosesNothingBetweenSeveralDriverThreads)
{
    constexpr std::size_t each = 3000;
    fake::set_log_level(0);
    std::thread{[] { Ts_Monitor_Fn(nullptr); }}.detach();
    deliver(0x42); // one section may be freed before the thread accepts any
    wait_until_idle();
    Si_SectFlt_EnableProcessData(1);
    const std::size_t before = taken().size();
    std::vector<std::thread> drivers;
    for (const std::uint32_t filter : {sdt_filter, pat_filter})
        drivers.emplace_back([this, filter] {
            const octets section = section_of(0x42);
            for (std::size_t i = 0; i < each; ++i) {
                while (Si_SectFlt_GetPendingCount() > 64)
                    std::this_thread::yield();
                driver.deliver(filter, section);
            }
        });
    for (std::thread &of : drivers)
        of.join();
    wait_until_idle();
    EXPECT_EQ(taken().size() - before, 2 * each);
}

} // namespace
