// SPDX-License-Identifier: LGPL-2.1-or-later
// What the sources of the filter layer share: the pool of filter records, the filter tasks and the
// steps between them. One mutex guards both; of a record only what the driver's callbacks look at
// (enabled, PID, filter id) is read without it.
#ifndef SRC_ORVA_SI_SECTFLT_H
#define SRC_ORVA_SI_SECTFLT_H

#include <glib.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "orva_si/background.h"
#include "orva_si/filter.h"
#include "orva_si_alloc.h"
#include "orva_si_lock.h"

namespace si {

extern pthread_mutex_t filter_pool_mutex;
inline constinit store_mutex pool{filter_pool_mutex};

inline constexpr std::uint32_t demux_index = 0; // the only one the library uses
inline constexpr std::uint8_t any_version = 0xFF;
inline constexpr std::uint32_t single_delivery = 1; // list length: sections one by one

// Rows of the task table.
enum task_row : std::uint32_t {
    pat_task,
    cat_task,
    pmt_task,
    nit_task,
    sdt_bat_task,
    tdt_tot_task,
    act_pf_eit_task,
    other_pf_eit_task,
    act_sch_eit_task,
    other_sch_eit_task,
    dsmcc_task,
    task_total,
    no_task = task_total
};

// How a task's filters relate to its items.
namespace mode {
inline constexpr std::uint32_t one_each = 0; // every item has a filter of its own
inline constexpr std::uint32_t rotating = 1; // the filters go round the items
inline constexpr std::uint32_t idle = 2;     // no filter or no item
} // namespace mode

namespace bg_service {
inline constexpr std::uint32_t pmt = 0;
inline constexpr std::uint32_t act_pf_eit = 1;
inline constexpr std::uint32_t act_sch_eit = 2;
} // namespace bg_service

// The elements of one of GLib's lists in order, null ones passed over. The list must not change
// while it is walked.
template <class T>
class slist_range {
public:
    class iterator {
    public:
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::input_iterator_tag;

        explicit iterator(GSList *at) : cell{at} { settle(); }
        T &operator*() const { return *static_cast<T *>(cell->data); }
        iterator &operator++()
        {
            cell = cell->next;
            settle();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return cell == nullptr; }

    private:
        void settle()
        {
            while (cell != nullptr && cell->data == nullptr)
                cell = cell->next;
        }

        GSList *cell;
    };

    explicit slist_range(GSList *of) : list{of} {}
    iterator begin() const { return iterator{list}; }
    std::default_sentinel_t end() const { return {}; }

private:
    GSList *list;
};

inline slist_range<pid_filter> filters(const filter_task &task)
{
    return slist_range<pid_filter>{task.filter_list};
}

template <class Item = task_item>
slist_range<Item> items(const filter_task &task)
{
    return slist_range<Item>{task.task_list};
}

// Every kind of item begins with a task_item.
template <class Item>
task_item &head_of(Item &item)
{
    return reinterpret_cast<task_item &>(item);
}

template <class Item>
Item *item_as(task_item *head)
{
    return reinterpret_cast<Item *>(head);
}

// ---- The pool (orva_si_sectflt_pool.cpp)

std::span<pid_filter> pool_records();
// PID of the enabled record that has this filter id (low 16 bits); SI_ANY_PID when there is none.
// Takes no lock.
std::uint16_t pid_of_filter(std::uint32_t filter_id);
constexpr bool is_no_filter(std::uint32_t filter_id)
{
    return (filter_id & 0xFFFF) == SI_NO_FILTER;
}

// ---- The tasks (orva_si_sectflt_task.cpp)

std::uint32_t task_of(std::uint32_t table_id);                // a task_row, or no_task
filter_task *find_task(std::uint32_t task_id) SI_NEEDS(pool); // null when there is no such row
filter_task &task_at(task_row row) SI_NEEDS(pool);
std::uint32_t stop_task(site here, task_row row) SI_LEAVES(pool);
// Stops the rows from the first to the last; the first failure, if any.
std::uint32_t stop_tasks(task_row first, task_row last) SI_NEEDS(pool);

// A new item, wanted and not served; null when memory is exhausted.
template <class Item>
Item *new_item()
{
    auto *item = allocate_record<Item>();
    if (item != nullptr)
        item->wanted = 1;
    return item;
}

// The checks of every filter_func: its arguments, then whether the table is enabled.
std::uint32_t check_arming(site here, const pid_filter *record, const void *item,
                           std::uint32_t enabled);
// Loads the record's settings into the driver; on success the item counts as served.
std::uint32_t arm(pid_filter &record, task_item &item, std::uint32_t list_length) SI_NEEDS(pool);
// Arms a record for an item through the task's filter_func and binds it on success.
std::uint32_t serve(filter_task &task, pid_filter &record, task_item &item) SI_NEEDS(pool);
// Switches a filter off whose driver may still run what it was loaded with before.
void silence_unless_armed(const pid_filter &record) SI_NEEDS(pool);
// Takes a record away from the item it serves, which is pending again.
void displace(pid_filter &record) SI_NEEDS(pool);
// The same, and switches the filter off when it runs.
void switch_off(pid_filter &record) SI_NEEDS(pool);
// Gives the task's first filter to an item that is never to lose it.
void serve_first(filter_task &task, task_item &item) SI_NEEDS(pool);

// Updates: the item of a complete table, no longer active. Null, and said so, when the record
// serves none.
task_item *finish_item(site here, pid_filter *record, std::uint32_t table_id,
                       std::uint32_t finished) SI_NEEDS(pool);
// Whether a finished item goes on with the same filter; else the filter moves on.
bool keeps_filter(const filter_task &task, const task_item &item) SI_NEEDS(pool);
std::uint32_t go_on(site here, filter_task &task, pid_filter &record, std::uint32_t table_id)
    SI_NEEDS(pool);

// Takes free records, and when the task then holds fewer than its quota some of other tasks.
void fetch_filters(site here, filter_task &task, std::uint32_t count) SI_NEEDS(pool);
// The same for one record; false when there is none.
bool fetch_one_filter(site here, filter_task &task) SI_NEEDS(pool);
// Releases a record to the pool and unlinks it from the task.
void drop_filter(filter_task &task, pid_filter &record) SI_NEEDS(pool);
// Frees an item and unlinks it from the task.
void drop_item(filter_task &task, task_item &item) SI_NEEDS(pool);
// Keeps the position of the rotation inside the list after items were removed.
void settle_rotation(filter_task &task) SI_NEEDS(pool);

void poll_filters(filter_task &task) SI_NEEDS(pool);
// One run of ageing: true when the record lost its item, which had waited limit + 1 runs.
bool time_out(site here, pid_filter &record, std::uint16_t limit) SI_NEEDS(pool);

// ---- Events (orva_si_sectflt_eit.cpp, orva_si_sectflt_eit_update.cpp)

void clear_eit_started();
// The event store was emptied: filters let through again what they passed over as stored.
void eit_store_emptied() SI_NEEDS(eit) SI_LEAVES(pool);

} // namespace si

extern "C" {

// The exported steps of the functions that lock: called with the pool held, they never lock.
std::uint32_t Si_SectFlt_StartFilter(pid_filter *record, std::uint32_t list_length)
    SI_NEEDS(si::pool);
pid_filter *Si_SectFlt_GetAvalibleDynamicFilter(void) SI_NEEDS(si::pool);
pid_filter *Si_SectFlt_GetFilterFromFilterList(GSList *list, std::uint16_t pid,
                                               std::uint8_t table_id, std::uint16_t service_id)
    SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_AddNewTask(filter_task *task, void *item) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_AddNewFilter(filter_task *task, pid_filter *record) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_TriggerFilterTask(filter_task *task) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_RemoveUselessFilters(filter_task *task) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_SetFilterMode(filter_task *task) SI_NEEDS(si::pool);
void Si_SectFlt_PollNewTaskFunc(void *record, void *task) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_StopFilterTask(filter_task *task) SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_AddAvailableFilters(filter_task *task, std::uint32_t count)
    SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_ReduceTaskFilterList(filter_task *requester, std::uint32_t count)
    SI_NEEDS(si::pool);
std::uint32_t Si_SectFlt_RemoveDupEitTasks(filter_task *task) SI_NEEDS(si::pool);
void Si_SectFlt_DisableTimeOutPmtFilterFunc(void *record, void *task) SI_NEEDS(si::pool);
void Si_SectFlt_DisableTimeOutEitFilterFunc(void *record, void *task) SI_NEEDS(si::pool);

} // extern "C"

#endif
