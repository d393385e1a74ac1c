// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store: one record for each service, its EIT sections (EN 300 468, 5.2.4) as they
// arrived.
#include <algorithm>
#include <array>
#include <utility>

#include "orva_si/filter.h"
#include "orva_si/notify.h"
#include "orva_si/store.h"
#include "orva_si_alloc.h"
#include "orva_si_bytes.h"
#include "orva_si_eitsummary.h"
#include "orva_si_list.h"
#include "orva_si_lock.h"
#include "orva_si_loops.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_recordindex.h"
#include "orva_si_sectflt.h"
#include "orva_si_siids.h"

namespace si {

namespace {

constexpr std::size_t last_table_id_at = 13;
constexpr std::uint64_t no_service = ~std::uint64_t{0}; // is no key

std::uint64_t key_of(std::uint16_t onid, std::uint16_t ts, std::uint16_t sid)
{
    return std::uint64_t{onid} << 32 | std::uint64_t{ts} << 16 | sid;
}

std::uint64_t key_of_service(const SiEitService &service)
{
    return key_of(service.original_network_id, service.transport_stream_id, service.service_id);
}

record_index<SiEitService, limit::eit_services, key_of_service> service_index SI_GUARDED_BY(eit);
std::size_t eit_bytes SI_GUARDED_BY(eit) = 0;

// A section handed in, with the bytes that the caller vouches for.
struct eit_arrival {
    std::uint16_t original_network_id;
    std::uint16_t transport_stream_id;
    std::uint16_t service_id;
    std::uint8_t table_id; // folded
    std::uint8_t section_number;
    bytes section; // no longer to be read once the lock is given up: the store may hold them
    std::uint32_t crc;
};

// What the client is told once the lock is given up.
enum class news { none, first, changed };

bool within_services(bytes section)
{
    const auto held = static_cast<std::size_t>(Orva_Si_GetDvbEitList()->nb_elt);
    return has_room(limited::eit_services, held, 1, byte_at(section, 0));
}

SiEitService *create_service(site here, const eit_arrival &in) SI_NEEDS(eit)
{
    SI_LOG_AT(here, level::trace, "can't find the onid = %#x, tsid = %#x, servid = %#x eit\n",
              in.original_network_id, in.transport_stream_id, in.service_id);
    SI_LOG_AT(here, level::trace, "so we save it now\n");
    auto *service = within_services(in.section) ? allocate_record<SiEitService>() : nullptr;
    if (service == nullptr) {
        SI_LOG_AT(here, level::error, "can't allocate the memory for the table\n");
        return nullptr;
    }
    si::on_exit undo{[&] {
        si_list_uninit(service->sections);
        release_record(service);
    }};
    if (si_list_init(&service->sections) != 0) {
        SI_LOG_AT(here, level::error, "no mem yet\n");
        return nullptr;
    }
    service->original_network_id = in.original_network_id;
    service->transport_stream_id = in.transport_stream_id;
    service->service_id = in.service_id;
    SI_LOG_AT(here, level::trace,
              "create the new eit of onid = %#x, tsid = %#x, servid = %#x eit\n",
              in.original_network_id, in.transport_stream_id, in.service_id);
    if (si_list_add(Orva_Si_GetDvbEitList(), service, -1) == -1) {
        SI_LOG_AT(here, level::error, "can't allocate the memory for the table\n");
        return nullptr;
    }
    undo.release();
    service_index.added(Orva_Si_GetDvbEitList(), service);
    return service;
}

// The section of this table and number whose content differs; else, in repeated, whether one has
// the same.
SiEitSection *find_changed(SiEitService &service, const eit_arrival &in, bool &repeated)
{
    const auto is_same = [&](const section_summary &known) {
        return known.held() && known.crc == in.crc;
    };
    if (const auto only = only_section(service.sections, in.table_id, in.section_number)) {
        repeated = only->known != nullptr && is_same(*only->known);
        return repeated ? nullptr : only->record;
    }
    SiEitSection *changed = nullptr;
    each_section(service.sections, [&](const section_summary &known, SiEitSection &stored) {
        if (known.table_id != in.table_id || known.section_number != in.section_number)
            return false;
        const bool same = is_same(known);
        repeated = repeated || same;
        changed = same ? nullptr : &stored;
        return !same;
    });
    return changed;
}

void release_bytes(SiEitSection &stored) SI_NEEDS(eit)
{
    if (stored.section == nullptr)
        return;
    eit_bytes -= std::min(eit_section_bytes(stored.sect_len), eit_bytes);
    release_section(stored.section, stored.sect_len);
    stored.section = nullptr;
}

bool copy_bytes(SiEitSection &stored, const eit_arrival &in) SI_NEEDS(eit)
{
    const std::size_t size = eit_section_bytes(in.section.size());
    if (!has_room(limited::eit_bytes, eit_bytes, size, byte_at(in.section, 0)))
        return false;
    stored.section = keep_section(in.section.data(), in.section.size());
    if (stored.section == nullptr)
        return false;
    eit_bytes += size;
    stored.sect_len = static_cast<std::uint16_t>(in.section.size());
    stored.table_id = in.table_id;
    stored.section_number = in.section_number;
    return true;
}

// Where a section goes: what to tell, and whether the table may have become complete.
struct outcome {
    news tell;
    bool check;
};

outcome replace(site here, SiEitSection &stored, const eit_arrival &in) SI_NEEDS(eit)
{
    release_bytes(stored);
    if (copy_bytes(stored, in))
        return {news::changed, true};
    SI_LOG_AT(here, level::error, "can't allocate for the eit section during eit update case\n");
    return {news::none, false};
}

// The client is told of a section even when storing it failed.
outcome append(site here, SiEitService &service, const eit_arrival &in) SI_NEEDS(eit)
{
    auto *stored = allocate_record<SiEitSection>();
    if (stored == nullptr || !copy_bytes(*stored, in)) {
        release_record(stored);
        SI_LOG_AT(here, level::error, "can't allocate the memory for the eit section\n");
        return {news::first, false};
    }
    if (si_list_add(service.sections, stored, -1) == -1) {
        SI_LOG_AT(here, level::error, "Insert one section failed! tbl_id:%#x, sect_no:%d\n",
                  in.table_id, in.section_number);
        eit_bytes -= eit_section_bytes(in.section.size());
        drop_kept(stored->section, in.section.size());
        release_record(stored);
        return {news::first, true};
    }
    summary_appended(service.sections, stored, in.crc);
    return {news::first, true};
}

outcome store(site here, SiEitService &service, const eit_arrival &in) SI_NEEDS(eit)
{
    bool repeated = false;
    if (SiEitSection *changed = find_changed(service, in, repeated)) {
        const outcome result = replace(here, *changed, in);
        summary_replaced(service.sections, changed);
        return result;
    }
    return repeated ? outcome{news::none, true} : append(here, service, in);
}

constexpr bool is_schedule_actual(std::uint8_t table_id)
{
    return table_id >= tid_eit_schedule_actual && table_id < tid_eit_schedule_other;
}

constexpr bool is_checked(std::uint8_t table_id)
{
    return table_id < tid_eit_schedule_other && table_id != tid_eit_pf_other;
}

// Whether check_completed() has anything to do.
constexpr bool may_complete(std::uint8_t table_id)
{
    return is_schedule_actual(table_id) || is_checked(table_id);
}

// All sections of a table as one version, with as many as make it complete. What the walk has to
// say is said by walking.
bool is_complete(site here, const SiEitService &service, std::uint8_t table_id)
{
    if (!log_enabled(level::trace))
        if (const auto known = known_complete(service.sections, table_id))
            return *known;
    table_progress progress{table_id};
    each_section(service.sections, [&](const section_summary &known, const SiEitSection &) {
        if (!progress.concerns(known))
            return false;
        progress.add(known);
        if (progress.state == progress_state::other_version)
            SI_LOG_AT(here, level::trace,
                      "Version number changes: %d: %d, table_id: %#x service_id: %#x\n",
                      progress.version, known.version, table_id, service.service_id);
        else if (progress.is_out_of_place(known))
            SI_LOG_AT(here, level::error, "Invalid Actual PF EIT section number: %d\n",
                      known.section_number);
        return progress.has_ended();
    });
    return progress.state == progress_state::complete;
}

// Lets the filter of a complete table wait for the next version. Only tables of the tuned multiplex
// are checked.
std::uint32_t check_completed(site here, const SiEitService &service, bytes section)
{
    const std::uint8_t table_id = byte_at(section, 0);
    if (is_schedule_actual(table_id))
        Si_SectFlt_UpdateEitLastTableId(table_id, service.service_id,
                                        byte_at(section, last_table_id_at));
    if (!is_checked(table_id) || !is_complete(here, service, table_id))
        return 0;
    if (table_id == tid_eit_pf_actual)
        SI_LOG_AT(here, level::trace, "Actual PF EIT table %#x for service %d is completed!\n",
                  table_id, service.service_id);
    else
        SI_LOG_AT(here, level::trace,
                  "Actual Schedule EIT table %#x for service %d is completed!\n", table_id,
                  service.service_id);
    Si_SectFlt_UpdateEit(table_id, service.service_id, version_of(byte_at(section, 5)), 1);
    return 1;
}

news take(site here, const eit_arrival &in) SI_LEAVES(eit)
{
    const scope_lock lock{eit, here, "~~~Mutex UnLock~~~\n"};
    if (Orva_Si_GetDvbEitList() == nullptr)
        return news::none;
    SiEitService *service =
        find_eit_service(in.original_network_id, in.transport_stream_id, in.service_id);
    if (service == nullptr)
        service = create_service(here, in);
    if (service == nullptr)
        return news::none;
    const outcome result = store(here, *service, in);
    if (result.check && may_complete(byte_at(in.section, 0)))
        check_completed(here, *service, in.section);
    return result.tell;
}

// Of a store that forgot the service and its bytes.
void release_service(void *element)
{
    constexpr site here{SI_SOURCE, "Orva_Si_EraseAllEitRawData", __LINE__};
    auto *service = static_cast<SiEitService *>(element);
    if (service == nullptr) {
        SI_LOG_AT(here, level::trace, "the peit is null\n");
        return;
    }
    SI_LOG_AT(here, level::trace, "will to remove the onid = %#x, tsid = %#x, servid=%#x\n",
              service->original_network_id, service->transport_stream_id, service->service_id);
    while (si_list_eol(service->sections, 0) == 0) {
        auto *stored = static_cast<SiEitSection *>(si_list_get(service->sections, 0));
        if (stored == nullptr) {
            SI_LOG_AT(here, level::trace, "the peit_section is null!!!\n");
        } else {
            release_section(stored->section, stored->sect_len);
            release_record(stored);
        }
        si_list_remove(service->sections, 0);
    }
    si_list_uninit(service->sections);
    release_record(service);
}

} // namespace

std::size_t eit_bytes_held()
{
    return eit_bytes;
}

SiEitService *find_eit_service(std::uint16_t original_network_id, std::uint16_t transport_stream_id,
                               std::uint16_t service_id)
{
    si_list *services = Orva_Si_GetDvbEitList();
    const std::uint64_t key = key_of(original_network_id, transport_stream_id, service_id);
    if (service_index.ready(services, [](const SiEitService *) {}))
        return service_index.find(key);
    for (SiEitService &service : elements<SiEitService>(services))
        if (key_of_service(service) == key)
            return &service;
    return nullptr;
}

void fetch_event_sections(std::span<SiSection *const> sections)
{
    if (log_enabled(level::trace)) // where the lists are walked
        return;
    const scope_lock lock{eit, SI_HERE};
    si_list *services = Orva_Si_GetDvbEitList();
    if (!service_index.is_ready(services))
        return;
    std::uint64_t fetched = no_service; // whose sections often come one behind the other
    for (const SiSection *each : sections) {
        if (each->pid != pid_eit || each->sect_len < eit_header_bytes)
            continue;
        const std::span<const std::uint8_t, eit_header_bytes> head{each->section, eit_header_bytes};
        const std::uint64_t key = key_of(be16(head.subspan<10, 2>()), be16(head.subspan<8, 2>()),
                                         be16(head.subspan<3, 2>()));
        if (std::exchange(fetched, key) == key)
            continue;
        if (const SiEitService *service = service_index.find(key))
            fetch_section(service->sections, folded_table_id(head[0]), head[6]);
    }
}

} // namespace si

using namespace si;

uint32_t Orva_Si_ListEitImpl(uint16_t original_network_id, uint16_t transport_stream_id,
                             uint16_t service_id, uint8_t table_id, uint8_t section_number,
                             uint16_t sect_len, const uint8_t *section)
{
    const bytes bytes_given{section, section != nullptr ? sect_len : 0u};
    const eit_arrival in{original_network_id, transport_stream_id, service_id,         table_id,
                         section_number,      bytes_given,         crc_of(bytes_given)};
    const news tell = take(SI_HERE, in);
    if (tell != news::none)
        Orva_Si_NotifyEit(original_network_id, transport_stream_id, service_id, table_id,
                          section_number, in.crc, tell == news::changed ? 1 : 0);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_EraseAllEitRawData(void)
{
    si_list_node *erased = nullptr;
    {
        const scope_lock lock{eit, SI_HERE};
        erased = take_links(Orva_Si_GetDvbEitList());
        service_index.ready(Orva_Si_GetDvbEitList(), [](const SiEitService *) {});
        eit_bytes = 0;
        eit_store_emptied();
    }
    drop_links(erased, release_service);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_RemoveEitRawData(void)
{
    return ORVA_SI_OK;
}

uint32_t Si_ModListImpl_IsEITCompleted(SiEitService *peit, const uint8_t *section)
{
    if (peit == nullptr || section == nullptr)
        return 0;
    return check_completed(SI_HERE, *peit, {section, section_size(section)});
}
