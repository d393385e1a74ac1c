// SPDX-License-Identifier: LGPL-2.1-or-later
// The road of a section from the driver's callback through the queue to the dispatcher.
#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "orva_si/channel.h"
#include "orva_si/readiness.h"
#include "orva_si_bytes.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_sectflt.h"
#include "orva_si_sectflt_queue.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::uint32_t longest_batch = 200; // sections of one list delivery
constexpr std::size_t smallest_section = 4;
constexpr std::uint32_t busy_polls = 5;
constexpr std::uint32_t busy_poll_ms = 50;

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
std::uint64_t total_length(const SiDmxSection &section)
{
    return std::uint64_t{section.PrimaraySectionSize} + section.SecondarySectionSize;
}

bool has_length(const SiDmxSection &section)
{
    return total_length(section) >= smallest_section && total_length(section) <= largest_section;
}

std::optional<std::uint16_t> length_of(site here, std::uint32_t filter_id,
                                       const SiDmxSection &section)
{
    const std::uint64_t length = total_length(section);
    if (has_length(section))
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

// Room in the queue is part of memory: without it nothing is allocated, nor taken from what is
// spare. A batch is measured as if it were one section, for it is far smaller than the reserve.
SiSection *node_in(section_memory &spare, std::uint8_t table_id)
{
    if (!has_room(limited::queued_sections, queued_sections(), 1, table_id))
        return nullptr;
    SiSection *node = std::exchange(spare.node, nullptr);
    return node != nullptr ? new (node) SiSection{} : allocate_record<SiSection>();
}

std::uint8_t *copy_in(section_memory &spare, std::uint8_t table_id)
{
    if (!has_room(limited::queued_bytes, queued_bytes(), section_buffer_size(spare.length),
                  table_id))
        return nullptr;
    std::uint8_t *copy = std::exchange(spare.copy, nullptr);
    return copy != nullptr ? section_buffer_in(copy, spare.length) : allocate_section(spare.length);
}

// Not needed after all.
void release_spare(section_memory &spare)
{
    release_record(std::exchange(spare.node, nullptr));
    release_section(std::exchange(spare.copy, nullptr), spare.length);
}

// The library's own copy of a section; null when memory is exhausted.
SiSection *copy_section(site here, std::uint32_t filter_id, std::uint16_t pid,
                        const SiDmxSection &from, section_memory &spare)
{
    const std::uint8_t table_id = from.pPrimaraySectionData[0];
    SiSection *node = node_in(spare, table_id);
    if (node == nullptr) {
        SI_LOG_AT(here, level::fatal, "Malloc section node failed!\n");
        return nullptr;
    }
    node->section = copy_in(spare, table_id);
    if (node->section == nullptr) {
        SI_LOG_AT(here, level::fatal, "Malloc section failed, sect_len = %d!\n",
                  static_cast<int>(spare.length));
        release_record(node);
        return nullptr;
    }
    std::memcpy(node->section, from.pPrimaraySectionData, from.PrimaraySectionSize);
    if (from.SecondarySectionSize != 0)
        std::memcpy(node->section + from.PrimaraySectionSize, from.pSecondarySectionData,
                    from.SecondarySectionSize);
    node->pid = pid;
    node->filter_id = static_cast<std::uint16_t>(filter_id & 0xFFFF);
    node->sect_len = static_cast<std::uint16_t>(spare.length);
    return node;
}

// What finds no room, because several drivers filled the queue at once, is lost like what finds no
// memory.
void append(site here, std::span<SiSection *const> nodes)
{
    for (SiSection *lost : nodes.subspan(enqueue(here, nodes))) {
        count_refusal(limited::queued_sections);
        SI_LOG_AT(here, level::fatal, "Malloc section node failed!\n");
        Si_SectFlt_FlushSectionData(lost);
    }
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
    section_memory spare{*length};
    draw_spares({&spare, 1});
    SiSection *node = copy_section(here, filter_id, pid, section, spare);
    release_spare(spare);
    if (node == nullptr)
        return nullptr;
    if (Si_SectFlt_IsCriticalSection(node->section, node->sect_len) != 0)
        return node;
    SI_LOG_AT(here, level::notice,
              "table_id: %#x, table_id_ext: %#x, TableTmpList.section_count: %d\n",
              node->section[0], extension_of(node->section, node->sect_len),
              static_cast<int>(queued_sections()));
    count_refusal(limited::busy_queue);
    Si_SectFlt_FlushSectionData(node);
    return nullptr;
}

// One section of a batch, or null.
SiSection *receive_listed(site here, std::uint32_t filter_id, std::uint16_t pid,
                          const SiDmxSection &section, section_memory &spare)
{
    if (!is_present(section)) {
        SI_LOG_AT(here, level::error,
                  "Invalid section: filter_id: %d, pPrimaraySectionData: %p, "
                  "PrimaraySectionSize: %d\n",
                  static_cast<int>(filter_id),
                  static_cast<const void *>(section.pPrimaraySectionData),
                  static_cast<int>(section.PrimaraySectionSize));
        return nullptr;
    }
    SI_LOG_AT(here, level::trace, "Get one section: datasize:%d\n",
              static_cast<int>(section.PrimaraySectionSize + section.SecondarySectionSize));
    if (!length_of(here, filter_id, section))
        return nullptr;
    return copy_section(here, filter_id, pid, section, spare);
}

// Copies all, then queues them at once.
void receive_all(site here, std::uint32_t filter_id, std::uint16_t pid,
                 std::span<const SiDmxSection> sections)
{
    std::array<section_memory, longest_batch> spares; // as many as there are sections
    const auto memory = std::span{spares}.first(sections.size());
    std::ranges::transform(sections, memory.begin(), [](const SiDmxSection &section) {
        const bool is_whole = is_present(section) && has_length(section);
        return section_memory{is_whole ? static_cast<std::size_t>(total_length(section)) : 0};
    });
    draw_spares(memory);
    std::array<SiSection *, longest_batch> nodes;
    std::size_t count = 0;
    for (std::size_t at = 0; at < sections.size(); ++at) {
        SiSection *node = receive_listed(here, filter_id, pid, sections[at], memory[at]);
        release_spare(memory[at]);
        if (node != nullptr)
            nodes[count++] = node;
    }
    append(here, std::span{nodes}.first(count));
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
        count_refusal(limited::busy_queue, list.section_count);
        return;
    }
    const std::uint16_t pid = pid_of_filter(filter_id);
    if (pid == SI_ANY_PID) {
        SI_LOG_AT(here, level::error, "This filter has been closed, %d\n",
                  static_cast<int>(filter_id));
        return;
    }
    receive_all(here, filter_id, pid, {list.section, list.section_count});
}

// ---- To the dispatcher

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

// Hands a node to the dispatcher, whose store may keep the copy: the node is relieved of it then.
std::uint32_t process(SiSection &node)
{
    constexpr site here{SI_SOURCE, "Si_SectFlt_ProcessModel", __LINE__};
    if (!is_current(here, node))
        return ORVA_SI_FAILURE;
    const section_offer offer{node};
    const std::uint32_t result = Si_Model_ProcessModel(&node);
    SI_LOG_AT(here, level::verbose, "process section ret = %#x\n", result);
    if (offer.taken())
        node.section = nullptr;
    return result;
}

// Memory goes back a few sections at a time, while it is in the processor's caches. What the store
// knows of them is fetched ahead where it knew the one before too, of which it took nothing then.
// One alone waits for no other.
void consume(const taken_sections &taken, bool &known_before)
{
    constexpr std::size_t a_few = 32;
    for (std::span<SiSection *> left = taken.sections; !left.empty();) {
        const auto next = left.first(std::min(a_few, left.size()));
        if (taken.processing) {
            if (known_before && next.size() > 1)
                fetch_event_sections(next);
            for (SiSection *node : next)
                process(*node);
            known_before = next.back()->section != nullptr;
        }
        give_back(next);
        left = left.subspan(next.size());
    }
}

// What was taken while nothing is to be processed.
void discard(const taken_sections &taken)
{
    give_back(taken.sections);
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
        append(SI_HERE, {&node, 1});
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
    enable_processing(SI_HERE, flag != 0);
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
    section_batch batch;
    discard(take_sections(SI_HERE, batch));
    release_spares();
    return ORVA_SI_OK;
}

std::uint32_t Si_SectFlt_ProcessModel(SiSection *node)
{
    if (node == nullptr || node->section == nullptr) {
        SI_LOG(level::error, "bad pointer\n");
        release_record(node);
        return ORVA_SI_NULL_ARGUMENT;
    }
    const std::uint32_t result = process(*node);
    Si_SectFlt_FlushSectionData(node);
    return result;
}

std::uint32_t Si_SectFlt_CheckRunningStatus(void)
{
    for (std::uint32_t poll = 0; poll < busy_polls; ++poll) {
        if (!section_thread_is_busy())
            return 0;
        Orva_Util_Delay(busy_poll_ms);
    }
    return 1;
}

std::uint32_t Si_SectFlt_GetPendingCount(void)
{
    return pending_sections();
}

// Lock and condition are made at load time: a driver may have delivered before this thread runs.
// What it left here belongs to no channel.
void *Ts_Monitor_Fn(void *)
{
    section_batch batch;
    enable_processing(SI_HERE, false);
    discard(take_sections(SI_HERE, batch));
    if (Orva_Si_InitTables() != ORVA_SI_OK) {
        SI_LOG(level::error, "Orva_Si_InitSectModel error\n");
        // A result, not an address: nothing looks behind it.
        return reinterpret_cast<void *>(std::uintptr_t{1}); // NOLINT(performance-no-int-to-ptr)
    }
    SI_LOG(level::trace, "I am ready!\n");
    for (bool known_before = true;;)
        consume(wait_for_sections(SI_HERE, batch), known_before);
}
