// SPDX-License-Identifier: LGPL-2.1-or-later
// Service from the carousel: every loaded filter gets all that it matches once, then again every
// second; the filters take turns, a section each.
#include <algorithm>

#include "orva_demux_delivery.h"
#include "orva_demux_filter.h"

namespace si::demux {
namespace {

// Sub-tables and sections looked at before others get at the lock.
constexpr unsigned look_budget = 4096;

bool could_pass(const SiDmxFilterParam &setting, const sub_table &table)
{
    if (!table.key.is_long)
        return may_pass(setting, table.key.table_id);
    return may_pass(setting, table.key.table_id, table.served().id.extension);
}

// Goes on where this sub-table was left by whoever read it last: a filter may leave after each
// first section.
void enter(carousel_run &run, const sub_table &table)
{
    const std::vector<kept_section> &sections = table.served().sections;
    const auto next =
        std::ranges::lower_bound(sections, table.cursor, {}, &kept_section::section_number);
    run.first = static_cast<std::size_t>(next - sections.begin()) % sections.size();
}

bool was_given(const std::array<std::uint64_t, 2> &times, std::uint64_t content)
{
    return std::ranges::find(times, content) != times.end();
}

// The next section of the sub-table at which a run stands; null at its end, or when the budget is
// used up.
const kept_section *next_section(section_filter &filter, sub_table &table, unsigned &budget)
{
    carousel_run &run = filter.run;
    if (run.visited == 0)
        enter(run, table);
    const std::vector<kept_section> &sections = table.served().sections;
    for (; run.visited < sections.size() && budget != 0; --budget) {
        const kept_section &section = sections[(run.first + run.visited++) % sections.size()];
        if (!passes(filter.setting, section.head()) || still_queued(filter, section.content) ||
            was_given(filter.times, section.content))
            continue;
        table.cursor = static_cast<std::uint16_t>(section.section_number + 1);
        return &section;
    }
    return nullptr;
}

// The next section that a run has for its filter; null when there is none, or none within the
// budget.
const kept_section *advance(section_filter &filter, const carousel &from)
{
    carousel_run &run = filter.run;
    const std::vector<sub_table *> &tables = tables_of(from, filter.setting.pid);
    unsigned budget = look_budget;
    while (run.table < tables.size() && budget != 0) {
        sub_table &table = *tables[run.table];
        if (could_pass(filter.setting, table)) {
            if (const kept_section *section = next_section(filter, table, budget))
                return section;
            if (run.visited < table.served().sections.size())
                return nullptr;
        }
        if (budget != 0)
            --budget;
        ++run.table;
        run.visited = 0;
    }
    return nullptr;
}

bool is_due(const section_filter &filter, steady::time_point now)
{
    return is_armed(filter) && (filter.run.active || filter.run.start <= now);
}

void begin_run(carousel_run &run, steady::time_point now)
{
    run.active = true;
    run.started = now;
    run.table = 0;
    run.visited = 0;
}

void end_run(held_lock &held, std::uint32_t id, steady::time_point now)
{
    section_filter &filter = the_delivery().filters[id];
    filter.run.active = false;
    filter.run.completed = true;
    filter.run.start = now + carousel_period;
    if (filter.batch != nullptr)
        flush_batch(held, id);
}

void give_now(held_lock &held, std::uint32_t id, bytes section, std::uint64_t content)
{
    if (give(id, section, content))
        flush_batch(held, id);
}

// A section that is not in memory is read without the lock. A filter that was changed meanwhile is
// not given it: it was found for the former setting.
void give_kept(held_lock &held, std::uint32_t id, const kept_section &section, packet_reader &again)
{
    const section_filter &filter = the_delivery().filters[id];
    if (section.data != nullptr) {
        give_now(held, id, section.all(), section.content);
        return;
    }
    const std::uint16_t pid = filter.setting.pid;
    const steady::time_point since = filter.effective;
    held.unlock();
    const bytes read = fetch(again, pid, section);
    held.lock();
    if (!read.empty() && is_armed(filter) && filter.effective == since)
        give_now(held, id, read, section.content);
}

// One step for the first filter that is due, beginning with a given one; answers which, or none.
std::optional<std::uint32_t> serve_one(held_lock &held, const carousel &from, packet_reader &again,
                                       std::uint32_t first, steady::time_point now)
{
    delivery &state = the_delivery();
    for (std::uint32_t i = 0; i < state.used_ids; ++i) {
        const std::uint32_t id = (first + i) % state.used_ids;
        section_filter &filter = state.filters[id];
        if (!is_due(filter, now))
            continue;
        if (!filter.run.active)
            begin_run(filter.run, now);
        if (const kept_section *section = advance(filter, from))
            give_kept(held, id, *section, again);
        else if (filter.run.table >= tables_of(from, filter.setting.pid).size())
            end_run(held, id, now);
        return id;
    }
    return std::nullopt;
}

// When something is to be done again unless a filter changes.
steady::time_point next_due(const delivery &of)
{
    steady::time_point next = steady::time_point::max();
    for (std::uint32_t id = 0; id < of.used_ids; ++id) {
        const section_filter &filter = of.filters[id];
        if (is_armed(filter))
            next = std::min(next, filter.run.start);
        if (filter.batch != nullptr)
            next = std::min(next, filter.batch_due);
    }
    return next;
}

} // namespace

void serve(carousel &from, packet_reader &again)
{
    delivery &state = the_delivery();
    std::uint32_t turn = 0;
    while (wait_for_room()) {
        let_others_pass();
        held_lock held{state.lock};
        const steady::time_point now = steady::now();
        if (const auto id = due_batch(state, now, false)) {
            flush_batch(held, *id);
            continue;
        }
        if (const auto id = serve_one(held, from, again, turn, now)) {
            turn = *id + 1;
            continue;
        }
        if (stopped())
            return;
        const steady::time_point next = next_due(state);
        if (next == steady::time_point::max())
            state.work.wait(held);
        else
            state.work.wait_until(held, next);
    }
}

} // namespace si::demux
