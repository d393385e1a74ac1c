// SPDX-License-Identifier: LGPL-2.1-or-later
// The road of a section from the driver's callback through the queue to the dispatcher.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "orva_si/channel.h"
#include "orva_si/readiness.h"
#include "orva_si_bytes.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::uint32_t busy_queue = 100;    // queued sections from which on a choice is made
constexpr std::uint32_t longest_batch = 200; // sections of one list delivery
constexpr std::size_t smallest_section = 4;
constexpr std::uint32_t busy_polls = 5;
constexpr std::uint32_t busy_poll_ms = 50;

pthread_mutex_t queue_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t queue_filled = PTHREAD_COND_INITIALIZER;
constinit store_mutex queue_lock{queue_mutex};

// Sections that wait for the section thread. Changed with the lock held; the two sizes are read
// without it by the callbacks, to which they are limits, not exact counts.
struct section_queue {
    GSList *first = nullptr;
    GSList *last = nullptr;
    std::atomic<std::uint32_t> count{0};
    std::atomic<std::size_t> bytes{0};
    bool processing = false;     // else sections are freed unprocessed
    bool thread_waiting = false; // nobody else needs a signal
};
constinit section_queue queue SI_GUARDED_BY(queue_lock);

// Queued or being processed. Who reads 0 sees all that processing has done.
std::atomic<std::uint32_t> pending_sections{0};
std::uint8_t thread_busy; // while a batch is processed

std::uint32_t queued_sections() SI_THREAD_SAFETY(no_thread_safety_analysis)
{
    return queue.count.load(std::memory_order_relaxed);
}

std::size_t queued_bytes() SI_THREAD_SAFETY(no_thread_safety_analysis)
{
    return queue.bytes.load(std::memory_order_relaxed);
}

// The table_id_extension; a byte that was not delivered counts as 0.
std::uint16_t extension_of(const std::uint8_t *section, std::size_t length)
{
    return static_cast<std::uint16_t>((length > 3 ? section[3] << 8 : 0) |
                                      (length > 4 ? section[4] : 0));
}

// ---- From the driver

// Whether the parts of a section are there; a part without bytes needs no address.
bool is_present(const SiDmxSection &section)
{
    return section.pPrimaraySectionData != nullptr && section.PrimaraySectionSize != 0 &&
           (section.pSecondarySectionData != nullptr || section.SecondarySectionSize == 0);
}

// The length of both parts together, which the driver may have chosen to wrap in 32 bits.
std::optional<std::uint16_t> length_of(site here, std::uint32_t filter_id,
                                       const SiDmxSection &section)
{
    const std::uint64_t length =
        std::uint64_t{section.PrimaraySectionSize} + section.SecondarySectionSize;
    if (length >= smallest_section && length <= largest_section)
        return static_cast<std::uint16_t>(length);
    SI_LOG_AT(here, level::fatal,
              "Bad section length! fiilter_id: %d, length: %d, "
              "\t\t\t\tsection->pPrimaraySectionData: %p, section->PrimaraySectionSize: %d\t\t\t\t"
              "section->pSecondarySectionData: %p, section->SecondarySectionSize: %d\n",
              static_cast<int>(filter_id), static_cast<int>(length),
              static_cast<const void *>(section.pPrimaraySectionData),
              static_cast<int>(section.PrimaraySectionSize),
              static_cast<const void *>(section.pSecondarySectionData),
              static_cast<int>(section.SecondarySectionSize));
    return std::nullopt;
}

// Room in the queue is part of memory: without it nothing is allocated.
SiSection *allocate_node(std::uint8_t table_id)
{
    return within(limit::queued_sections, queued_sections(), 1, table_id)
               ? allocate_record<SiSection>()
               : nullptr;
}

std::uint8_t *allocate_copy(std::uint8_t table_id, std::size_t length)
{
    return within(limit::queued_bytes, queued_bytes(), section_buffer_size(length), table_id)
               ? allocate_section(length)
               : nullptr;
}

// The library's own copy of a section; null when memory is exhausted.
SiSection *copy_section(site here, std::uint32_t filter_id, std::uint16_t pid, std::uint16_t length,
                        const SiDmxSection &from)
{
    const std::uint8_t table_id = from.pPrimaraySectionData[0];
    SiSection *node = allocate_node(table_id);
    if (node == nullptr) {
        SI_LOG_AT(here, level::fatal, "Malloc section node failed!\n");
        return nullptr;
    }
    node->section = allocate_copy(table_id, length);
    if (node->section == nullptr) {
        SI_LOG_AT(here, level::fatal, "Malloc section failed, sect_len = %d!\n", length);
        release_record(node);
        return nullptr;
    }
    std::memcpy(node->section, from.pPrimaraySectionData, from.PrimaraySectionSize);
    if (from.SecondarySectionSize != 0)
        std::memcpy(node->section + from.PrimaraySectionSize, from.pSecondarySectionData,
                    from.SecondarySectionSize);
    node->pid = pid;
    node->filter_id = static_cast<std::uint16_t>(filter_id & 0xFFFF);
    node->sect_len = length;
    return node;
}

void append(site here, SiSection *node)
{
    GSList *cell = g_slist_alloc();
    cell->data = node;
    pending_sections.fetch_add(1, std::memory_order_relaxed);
    const scope_lock lock{queue_lock, here};
    (queue.last == nullptr ? queue.first : queue.last->next) = cell;
    queue.last = cell;
    queue.count.fetch_add(1, std::memory_order_relaxed);
    queue.bytes.fetch_add(section_buffer_size(node->sect_len), std::memory_order_relaxed);
    if (!std::exchange(queue.thread_waiting, false))
        return;
    pthread_cond_signal(&queue_filled);
}

// The admitted copy of a section that was delivered alone, or null.
SiSection *receive(site here, std::uint32_t filter_id, const SiDmxSection &section)
{
    if (is_no_filter(filter_id) || !is_present(section)) {
        SI_LOG_AT(here, level::error,
                  "Invalid callback: filter_id: %#x, pPrimaraySectionData: %p, "
                  "PrimaraySectionSize: %d\n",
                  filter_id, static_cast<const void *>(section.pPrimaraySectionData),
                  static_cast<int>(section.PrimaraySectionSize));
        return nullptr;
    }
    SI_LOG_AT(here, level::trace, "Get one section: datasize:%d, table_id: %#x\n",
              static_cast<int>(section.PrimaraySectionSize + section.SecondarySectionSize),
              section.pPrimaraySectionData[0]);
    const std::uint16_t pid = pid_of_filter(filter_id);
    if (pid == SI_ANY_PID) {
        SI_LOG_AT(here, level::error, "This filter has been closed, %d\n",
                  static_cast<int>(filter_id));
        return nullptr;
    }
    const auto length = length_of(here, filter_id, section);
    if (!length)
        return nullptr;
    SiSection *node = copy_section(here, filter_id, pid, *length, section);
    if (node == nullptr)
        return nullptr;
    if (Si_SectFlt_IsCriticalSection(node->section, node->sect_len) != 0)
        return node;
    SI_LOG_AT(here, level::notice,
              "table_id: %#x, table_id_ext: %#x, TableTmpList.section_count: %d\n",
              node->section[0], extension_of(node->section, node->sect_len),
              static_cast<int>(queued_sections()));
    Si_SectFlt_FlushSectionData(node);
    return nullptr;
}

// One section of a batch.
void receive_listed(site here, std::uint32_t filter_id, std::uint16_t pid,
                    const SiDmxSection &section)
{
    if (!is_present(section)) {
        SI_LOG_AT(here, level::error,
                  "Invalid section: filter_id: %d, pPrimaraySectionData: %p, "
                  "PrimaraySectionSize: %d\n",
                  static_cast<int>(filter_id),
                  static_cast<const void *>(section.pPrimaraySectionData),
                  static_cast<int>(section.PrimaraySectionSize));
        return;
    }
    SI_LOG_AT(here, level::trace, "Get one section: datasize:%d\n",
              static_cast<int>(section.PrimaraySectionSize + section.SecondarySectionSize));
    const auto length = length_of(here, filter_id, section);
    if (!length)
        return;
    if (SiSection *node = copy_section(here, filter_id, pid, *length, section))
        append(here, node);
}

void receive_batch(site here, std::uint32_t filter_id, const SiDmxSectionList &list)
{
    if (is_no_filter(filter_id) || list.section_count == 0 || list.section_count > longest_batch ||
        list.section == nullptr) {
        SI_LOG_AT(here, level::error,
                  "Invalid callback: filter_id: %d, sec_list->section: %p, "
                  "sec_list->section_count: %d\n",
                  static_cast<int>(filter_id), static_cast<const void *>(list.section),
                  static_cast<int>(list.section_count));
        return;
    }
    const std::uint32_t queued = queued_sections();
    if (queued > busy_queue) {
        SI_LOG_AT(here, level::error, "TableTmpList.section_count = %d\n",
                  static_cast<int>(queued));
        return;
    }
    const std::uint16_t pid = pid_of_filter(filter_id);
    if (pid == SI_ANY_PID) {
        SI_LOG_AT(here, level::error, "This filter has been closed, %d\n",
                  static_cast<int>(filter_id));
        return;
    }
    for (const SiDmxSection &section : std::span{list.section, list.section_count})
        receive_listed(here, filter_id, pid, section);
}

// ---- To the dispatcher

struct batch {
    GSList *sections;
    bool processing;
};

batch take_all() SI_NEEDS(queue_lock)
{
    queue.last = nullptr;
    queue.count.store(0, std::memory_order_relaxed);
    queue.bytes.store(0, std::memory_order_relaxed);
    return {std::exchange(queue.first, nullptr), queue.processing};
}

// Waits until there are sections and takes them all.
batch wait_for_sections(site here)
{
    const scope_lock lock{queue_lock, here};
    while (queue.first == nullptr) {
        store_release(thread_busy, 0);
        queue.thread_waiting = true;
        pthread_cond_wait(&queue_filled, &queue_mutex);
        queue.thread_waiting = false;
    }
    store_release(thread_busy, 1);
    return take_all();
}

using section_step = std::uint32_t (*)(SiSection *);

// Hands every node to a step that frees it, then frees the cells.
void consume(GSList *sections, section_step step)
{
    for (GSList *cell = sections; cell != nullptr; cell = cell->next) {
        step(static_cast<SiSection *>(std::exchange(cell->data, nullptr)));
        pending_sections.fetch_sub(1, std::memory_order_release);
    }
    g_slist_free(sections);
}

// A program's PMT is taken from the PID that the PAT gives it only.
bool is_on_its_pid(site here, std::uint16_t pid, std::uint16_t program_number) SI_LEAVES(ctl)
{
    const scope_lock lock{ctl, here};
    return Si_Model_GetPmtPid(program_number) == pid;
}

// Whether a section is still wanted; stores the PID that its filter has now.
bool is_current(site here, SiSection &node)
{
    if (node.filter_id == SI_NO_FILTER)
        return false;
    if (Orva_Si_GetCtlFlag() == 0) {
        SI_LOG_AT(here, level::notice, "All filters has been closed, filter_id: %d!\n",
                  node.filter_id);
        return false;
    }
    const std::uint16_t pid = pid_of_filter(node.filter_id);
    if (pid == SI_ANY_PID) {
        SI_LOG_AT(here, level::notice, "This filter has been closed, %d\n", node.filter_id);
        return false;
    }
    node.pid = pid;
    if (node.sect_len < smallest_section || node.section[0] != tid_pmt)
        return true;
    const std::uint16_t program_number = extension_of(node.section, node.sect_len);
    if (is_on_its_pid(here, pid, program_number))
        return true;
    SI_LOG_AT(here, level::error, "Invalid PMT: pid: %#x, program number: %#x\n", pid,
              program_number);
    return false;
}

constexpr bool is_actual_event_table(std::uint8_t table_id)
{
    return table_id == tid_eit_pf_actual ||
           (table_id >= tid_eit_schedule_actual && table_id < tid_eit_schedule_other);
}

constexpr bool is_always_admitted(std::uint8_t table_id)
{
    switch (table_id) {
    case tid_pat:
    case tid_cat:
    case tid_pmt:
    case tid_nit_actual:
    case tid_nit_other:
    case tid_sdt_actual:
    case tid_sdt_other:
    case tid_bat:
        return true;
    default:
        return false;
    }
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_IsCriticalSection(const std::uint8_t *section, std::uint32_t length)
{
    if (queued_sections() < busy_queue)
        return 1;
    if (section == nullptr || length == 0)
        return 0;
    const std::uint8_t table_id = section[0];
    if (is_always_admitted(table_id))
        return 1;
    return is_actual_event_table(table_id) && length >= smallest_section &&
                   extension_of(section, length) == (Si_Ctl_GetTunningProgNo() & 0xFFFF)
               ? 1
               : 0;
}

// The driver's buffer goes back as soon as the copy is made, and on every way but the first.
std::uint32_t Si_SectFlt_PidFltCallback(std::uint32_t demux, std::uint32_t filter_id, SiWord,
                                        SiDmxSection *section)
{
    SI_LOG(level::trace, "get filter callback, filterid = %d\n", static_cast<int>(filter_id));
    if (section == nullptr) {
        SI_LOG(level::fatal, "Invalid callback: section = NULL!\n");
        return 0;
    }
    SiSection *node = receive(SI_HERE, filter_id, *section);
    Si_SectFlt_FreeSecData(demux, filter_id, section->BufferHandle);
    if (node != nullptr)
        append(SI_HERE, node);
    return 0;
}

std::uint32_t Si_SectFlt_PidFltSecListCallback(std::uint32_t demux, std::uint32_t filter_id, SiWord,
                                               SiDmxSectionList *sec_list)
{
    if (sec_list == nullptr) {
        SI_LOG(level::fatal, "Invalid callback: sec_list = NULL!\n");
        return 0;
    }
    SI_LOG(level::verbose, "Get section list callback, filterid = %d, section_count = %d\n",
           static_cast<int>(filter_id), static_cast<int>(sec_list->section_count));
    receive_batch(SI_HERE, filter_id, *sec_list);
    Si_SectFlt_FreeSecData(demux, filter_id, sec_list->BufferHandle);
    return 0;
}

std::uint32_t Si_SectFlt_EnableProcessData(std::uint32_t flag)
{
    const scope_lock lock{queue_lock, SI_HERE};
    queue.processing = flag != 0;
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_FlushSectionData(SiSection *node)
{
    SI_REQUIRE(node);
    release_section(node->section, node->sect_len);
    release_record(node);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_FlushTmpList(void)
{
    SI_LOG(level::notice, "Flush the tmp list!\n");
    GSList *sections = nullptr;
    {
        const scope_lock lock{queue_lock, SI_HERE};
        sections = take_all().sections;
    }
    consume(sections, Si_SectFlt_FlushSectionData);
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_ProcessModel(SiSection *node)
{
    if (node == nullptr || node->section == nullptr) {
        SI_LOG(level::error, "bad pointer\n");
        release_record(node);
        return ORVA_SI_NULL_ARGUMENT;
    }
    std::uint32_t result = ORVA_SI_FAILURE;
    if (is_current(SI_HERE, *node)) {
        result = Si_Model_ProcessModel(node);
        SI_LOG(level::verbose, "process section ret = %#x\n", result);
    }
    Si_SectFlt_FlushSectionData(node);
    return result;
}

std::uint32_t Si_SectFlt_CheckRunningStatus(void)
{
    for (std::uint32_t poll = 0; poll < busy_polls; ++poll) {
        if (load_acquire(thread_busy) == 0)
            return 0;
        Orva_Util_Delay(busy_poll_ms);
    }
    return 1;
}

std::uint32_t Si_SectFlt_GetPendingCount(void)
{
    return pending_sections.load(std::memory_order_acquire);
}

// Lock and condition are made at load time: a driver may have delivered before this thread runs.
// What it left here belongs to no channel.
void *Ts_Monitor_Fn(void *)
{
    GSList *early = nullptr;
    {
        const scope_lock lock{queue_lock, SI_HERE};
        queue.processing = false;
        early = take_all().sections;
    }
    consume(early, Si_SectFlt_FlushSectionData);
    if (Orva_Si_InitTables() != ORVA_SI_OK) {
        SI_LOG(level::error, "Orva_Si_InitSectModel error\n");
        // A result, not an address: nothing looks behind it.
        return reinterpret_cast<void *>(std::uintptr_t{1}); // NOLINT(performance-no-int-to-ptr)
    }
    SI_LOG(level::trace, "I am ready!\n");
    for (;;) {
        const batch taken = wait_for_sections(SI_HERE);
        consume(taken.sections,
                taken.processing ? Si_SectFlt_ProcessModel : Si_SectFlt_FlushSectionData);
    }
}
