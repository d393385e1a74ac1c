// SPDX-License-Identifier: LGPL-2.1-or-later
// When EIT filters go on: a sub-table is complete, or has had its time.
//
// The store calls a schedule complete as soon as it has one section of each segment. A filter that
// always left then would never meet the others: its later turns would end with the first repeat. So
// only the first turn of a service is quick. In later ones the filter stays with a sub-table until
// the store has every section that its version announces, or until the time of the request is over.
// Where nothing is missing that is the next run of the background service.
#include <bitset>

#include <algorithm>
#include <cstddef>
#include <span>

#include "orva_si/background.h"
#include "orva_si_bytes.h"
#include "orva_si_loops.h"
#include "orva_si_modellistimpl.h"
#include "orva_si_sectflt_eit.h"
#include "orva_si_shared.h"

namespace si {

namespace {

constexpr std::size_t event_head_bytes = 14; // up to the loop of events
constexpr unsigned segment_size = 8;
constexpr std::size_t most_sections = 17 * 256; // of a service: present/following and schedule

bool is_act_schedule(const task_item_eit &item)
{
    return item.table_id >= tid_eit_schedule_actual && item.table_id < tid_eit_schedule_other;
}

bool has_sub_tables(const task_item_eit &item)
{
    return item.last_table_id > tid_eit_schedule_actual &&
           item.last_table_id < tid_eit_schedule_other;
}

// ---- Whether the store has a sub-table

// Which sections of one version there are, and which those announce.
struct version_outline {
    std::bitset<256> there;
    std::bitset<256> announced;
    bool has_end = true; // they tell how far each segment goes
};

void add_section(version_outline &outline, std::span<const std::uint8_t, event_head_bytes> head)
{
    const unsigned number = head[6];
    const unsigned last = head[7];
    const unsigned segment_last = head[12];
    const unsigned segment_first = number / segment_size * segment_size;
    outline.there.set(number);
    for (unsigned first = 0; first <= last; first += segment_size)
        outline.announced.set(first);
    if (segment_last / segment_size != number / segment_size)
        outline.has_end = false;
    for (unsigned n = segment_first; outline.has_end && n <= segment_last; ++n)
        outline.announced.set(n);
}

// Sections of other versions do not count: those that the version on air has no numbers for stay in
// the store.
version_outline outline_of(const SiEitService &service, std::uint8_t table_id, std::uint8_t version)
    SI_NEEDS(eit)
{
    version_outline outline;
    for (const SiEitSection &stored : elements<SiEitSection>(service.sections)) {
        if (stored.section == nullptr || stored.sect_len < event_head_bytes)
            continue;
        const std::span<const std::uint8_t, event_head_bytes> head{stored.section,
                                                                   event_head_bytes};
        if (head[0] == table_id && version_of(head[5]) == version)
            add_section(outline, head);
    }
    return outline;
}

// EN 300 468, 5.2.4.
bool is_whole(const version_outline &outline)
{
    return outline.has_end && outline.there.any() && (outline.announced & ~outline.there).none();
}

bool is_of(const task_item_eit &item, const SiEitService &service)
{
    const auto accepts = [](std::uint16_t asked, std::uint16_t id) {
        return asked == SI_ANY_EXT || asked == id;
    };
    return accepts(item.service_id, service.service_id) &&
           accepts(item.transport_stream_id, service.transport_stream_id) &&
           accepts(item.original_network_id, service.original_network_id);
}

bool names_its_stream(const task_item_eit &item)
{
    return item.transport_stream_id != SI_ANY_EXT && item.original_network_id != SI_ANY_EXT;
}

// A request for any stream is met by none that has gaps: which of them is on air is not known. Nor
// is it looked for long, since anyone may send a service under many ids.
bool is_stored_whole(const task_item_eit &item, std::uint8_t version) SI_NEEDS(eit)
{
    if (names_its_stream(item)) {
        const SiEitService *service =
            find_eit_service(item.original_network_id, item.transport_stream_id, item.service_id);
        return service != nullptr && is_whole(outline_of(*service, item.table_id, version));
    }
    bool any = false;
    std::size_t seen = 0;
    for (const SiEitService &service : elements<SiEitService>(Orva_Si_GetDvbEitList())) {
        if (service.sections == nullptr || !is_of(item, service))
            continue;
        seen += static_cast<std::size_t>(service.sections->nb_elt);
        if (seen > most_sections)
            return false;
        const version_outline outline = outline_of(service, item.table_id, version);
        if (outline.there.none())
            continue;
        if (!is_whole(outline))
            return false;
        any = true;
    }
    return any;
}

// ---- Updates

// Whether a filter for any service lets this table through: one service's version must not be set
// for all of them.
bool is_under_wildcard(const filter_task &task, std::uint8_t table_id) SI_NEEDS(pool)
{
    for (const pid_filter &record : filters(task))
        if (record.item != nullptr && record.service_id == SI_ANY_EXT &&
            record.table_id == table_id)
            return true;
    return false;
}

// A filter that waits for another version of all it is there for.
bool is_alone(const eit_kind &kind, const filter_task &task, task_item_eit &item) SI_NEEDS(pool)
{
    return keeps_filter(task, head_of(item)) && item.last_table_id == kind.table_id;
}

bool is_ageing(const eit_kind &kind)
{
    const SiBgService *service = FindBGServiceByID(kind.bg_service);
    return load_acquire(service->enabled) != 0 && load_relaxed(service->paused) == 0;
}

// Not the first turn. Where no background service would end it, it is as quick as the first, unless
// there is nowhere to go.
bool is_thorough(const eit_kind &kind, const filter_task &task, task_item_eit &item) SI_NEEDS(pool)
{
    return is_act_schedule(item) && item.flag != 0 &&
           (is_alone(kind, task, item) || is_ageing(kind));
}

// A sub-table has come in a thorough turn, which the background service ends. Until then the
// record's version is the one heard: the driver, loaded before, lets all of them through.
bool is_heard(const pid_filter &record)
{
    if (record.item == nullptr || record.item->active == 0 || record.item->finished == 0)
        return false;
    const auto &item = *item_as<task_item_eit>(record.item);
    return is_act_schedule(item) && item.flag != 0 && item.version == any_version;
}

std::uint32_t hear(filter_task &task, pid_filter &record, task_item_eit &item, std::uint8_t version,
                   std::uint32_t finished) SI_NEEDS(pool)
{
    if (item.version == version) // queued before the filter passed it over
        return ORVA_SI_OK;
    if (item.version != any_version) { // a new one: it gets all the time again
        item.version = any_version;
        return serve(task, record, head_of(item));
    }
    record.version = version;
    item.finished = finished;
    return ORVA_SI_OK;
}

// The filter goes on to the next sub-table of the same service.
std::uint32_t next_sub_table(filter_task &task, pid_filter &record, task_item_eit &item)
    SI_NEEDS(pool)
{
    ++item.table_id;
    item.version = any_version;
    return serve(task, record, head_of(item));
}

// Of several sub-tables each has a version of its own: none can be passed over.
std::uint32_t leave_sub_table(site here, const eit_kind &kind, filter_task &task,
                              pid_filter &record, std::uint8_t version) SI_NEEDS(pool)
{
    auto &item = *item_as<task_item_eit>(record.item);
    if (is_schedule(item.table_id) && item.table_id < item.last_table_id)
        return next_sub_table(task, record, item);
    item.flag = 1;
    item.table_id = kind.table_id;
    item.version = is_alone(kind, task, item) ? version : any_version;
    return go_on(here, task, record, item.table_id);
}

std::uint32_t update_record(site here, const eit_kind &kind, filter_task &task, pid_filter &record,
                            std::uint8_t version, std::uint32_t finished) SI_NEEDS(pool)
{
    if (record.item != nullptr && record.item->active != 0) {
        auto &item = *item_as<task_item_eit>(record.item);
        if (is_thorough(kind, task, item))
            return hear(task, record, item, version, finished);
    }
    if (finish_item(here, &record, record.table_id, finished) == nullptr)
        return ORVA_SI_FAILURE;
    // What the first turn of a schedule missed has the same version.
    return leave_sub_table(here, kind, task, record,
                           is_schedule(kind.table_id) ? any_version : version);
}

// Ends the thorough turns in which nothing is missing.
void leave_whole_sub_tables(site here) SI_NEEDS(eit) SI_NEEDS(pool)
{
    if (act_sch.enabled() == 0)
        return;
    filter_task &task = task_at(act_sch.task);
    for (pid_filter &record : filters(task))
        if (is_heard(record) &&
            is_stored_whole(*item_as<task_item_eit>(record.item), record.version))
            leave_sub_table(here, act_sch, task, record, record.version);
}

// ---- Ageing

// A sub-table that never completes, or is not sent, must not hide the later ones for ever.
void pass_over_sub_table(task_item_eit &item)
{
    item.version = any_version;
    if (item.table_id < item.last_table_id) {
        ++item.table_id;
        return;
    }
    item.flag = 1;
    item.table_id = tid_eit_schedule_actual;
}

// Whether a filter must not wait for ever. In rotation none must; with a filter for every service
// only one that has sub-tables to walk can be stuck, or listens to what it has heard of.
bool ages(const filter_task &task, const pid_filter &record)
{
    if (task.mode != mode::one_each)
        return task.mode == mode::rotating;
    return record.item != nullptr &&
           (has_sub_tables(*item_as<task_item_eit>(record.item)) || is_heard(record));
}

// Only a filter that nothing else needs may pass a version over.
bool is_one_each(const filter_task *task)
{
    return task != nullptr && task->mode == mode::one_each;
}

// One run. The poll serves what is pending, also after the driver refused a filter.
void age(const eit_kind &kind) SI_NEEDS(pool)
{
    if (kind.enabled() == 0)
        return;
    filter_task &task = task_at(kind.task);
    for (pid_filter &record : filters(task))
        if (ages(task, record))
            Si_SectFlt_DisableTimeOutEitFilterFunc(&record, &task);
    poll_filters(task);
}

std::uint32_t enabled_or_not(const eit_kind &kind)
{
    return kind.enabled() != 0 ? ORVA_SI_OK : ORVA_SI_TABLE_DISABLED;
}

// Forgets what the services of a row have told, and loads anew the filters that pass a version
// over.
void listen_again(const eit_kind &kind) SI_NEEDS(pool)
{
    filter_task &task = task_at(kind.task);
    for (pid_filter &record : filters(task)) {
        if (record.item == nullptr || record.item->active == 0)
            continue;
        auto &item = *item_as<task_item_eit>(record.item);
        record.version = any_version;
        if (item.version == any_version)
            continue;
        item.version = any_version;
        serve(task, record, head_of(item));
    }
    for (task_item_eit &item : items<task_item_eit>(task))
        item.version = any_version;
}

} // namespace

void eit_store_emptied()
{
    const scope_lock lock{pool, SI_HERE};
    for (const eit_kind *kind : kinds)
        listen_again(*kind);
}

} // namespace si

using namespace si;

std::uint32_t Si_SectFlt_UpdateEit(std::uint32_t table_id, std::uint32_t service_id,
                                   std::uint32_t version, std::uint32_t finished)
{
    const auto id = static_cast<std::uint8_t>(table_id);
    const eit_kind *kind = kind_of(id);
    if (kind == nullptr)
        return ORVA_SI_FAILURE;
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    filter_task &task = task_at(kind->task);
    pid_filter *record = nullptr;
    if (low16(service_id) != SI_ANY_EXT) // as broadcast it is no wildcard
        record =
            Si_SectFlt_GetFilterFromFilterList(task.filter_list, pid_eit, id, low16(service_id));
    if (record != nullptr)
        return update_record(SI_HERE, *kind, task, *record, static_cast<std::uint8_t>(version),
                             finished);
    if (is_under_wildcard(task, id))
        return ORVA_SI_OK;
    // Usual: late sections of a sub-table that the filter has left.
    SI_LOG(level::trace, "No filter for the sub-table, table_id: %#x, service_id: %#x\n", id,
           low16(service_id));
    return ORVA_SI_FAILURE;
}

std::uint32_t Si_SectFlt_UpdateEitLastTableId(std::uint32_t table_id, std::uint32_t service_id,
                                              std::uint32_t last_table_id)
{
    const auto id = static_cast<std::uint8_t>(table_id);
    const auto last = static_cast<std::uint8_t>(last_table_id);
    const eit_kind *kind = kind_of(id);
    if (kind == nullptr || !is_schedule(id))
        return ORVA_SI_FAILURE;
    if (kind->enabled() == 0)
        return ORVA_SI_TABLE_DISABLED;
    const scope_lock lock{pool, SI_HERE};
    filter_task &task = task_at(kind->task);
    std::uint32_t result = ORVA_SI_FAILURE;
    for (task_item_eit &item : items<task_item_eit>(task)) {
        if (item.service_id != low16(service_id))
            continue;
        result = ORVA_SI_OK;
        if ((last & 0xF0) != (id & 0xF0) || last <= item.last_table_id) {
            SI_LOG(level::verbose,
                   "We do not need to update the last table id: table_id: %d, last_table_id: %d!\n",
                   id, last);
            continue;
        }
        SI_LOG(level::notice,
               "Update last_table_id: %#x: %#x, service_id: %#x, filter_count: %d, "
               "task_count: %d!\n",
               item.last_table_id, last, item.service_id, task.filter_count, task.task_count);
        item.last_table_id = last;
    }
    return result;
}

void Si_SectFlt_DisableTimeOutEitFilterFunc(void *record, void *task)
{
    if (record == nullptr) {
        SI_LOG_MISSING("record");
        return;
    }
    auto &filter = *static_cast<pid_filter *>(record);
    if (filter.item == nullptr)
        return;
    auto &item = *item_as<task_item_eit>(filter.item);
    const std::uint8_t heard = is_heard(filter) ? filter.version : any_version;
    if (!time_out(SI_HERE, filter, item.limit))
        return;
    if (has_sub_tables(item))
        pass_over_sub_table(item);
    else
        item.version = is_one_each(static_cast<filter_task *>(task)) ? heard : any_version;
    if (const eit_kind *kind = kind_of(item.table_id))
        item.limit = static_cast<std::uint16_t>(std::min<int>(item.limit * 2, kind->longest_limit));
}

// Each service ages two rows: the events of this multiplex, and those of others, whose filter
// nothing else moves on.
std::uint32_t Si_SectFlt_ActPfEitBgService(void)
{
    const scope_lock lock{pool, SI_HERE};
    age(act_pf);
    age(other_pf);
    return enabled_or_not(act_pf);
}

std::uint32_t Si_SectFlt_ActSchEitBgService(void)
{
    const scope_lock store{eit, SI_HERE};
    const scope_lock lock{pool, SI_HERE};
    age(act_sch);
    age(other_sch);
    leave_whole_sub_tables(SI_HERE); // not before: this run is none of the filter's next turn
    return enabled_or_not(act_sch);
}
