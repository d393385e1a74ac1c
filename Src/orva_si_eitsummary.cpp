// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_eitsummary.h"

#include <algorithm>

#include "orva_si_alloc.h"

namespace si {

namespace {

static_assert(sizeof(section_summary) == 12);

// In one piece of memory: this, the marks of the sections' events, the records of the sections, and
// what is known of each.
struct summary_memory : list_companion {
    std::uint64_t changes; // of the list when the summary fitted it last
    std::uint32_t count;
    std::uint32_t capacity;
};
constexpr std::size_t bytes_of_one =
    sizeof(event_marks) + sizeof(SiEitSection *) + sizeof(section_summary);
static_assert(sizeof(summary_memory) % alignof(event_marks) == 0 &&
              sizeof(event_marks) % alignof(SiEitSection *) == 0 &&
              sizeof(SiEitSection *) % alignof(section_summary) == 0);

event_marks *marks(summary_memory *of)
{
    return reinterpret_cast<event_marks *>(of + 1);
}

SiEitSection **records(summary_memory *of)
{
    return reinterpret_cast<SiEitSection **>(marks(of) + of->capacity);
}

section_summary *known(summary_memory *of)
{
    return reinterpret_cast<section_summary *>(records(of) + of->capacity);
}

summary_memory *kept_beside(const si_list *sections)
{
    return static_cast<summary_memory *>(companion_of(sections));
}

summary_memory *allocate_summary(std::size_t capacity)
{
    const std::size_t size = sizeof(summary_memory) + capacity * bytes_of_one;
    void *memory = allocate(size);
    if (memory == nullptr)
        return nullptr;
    return new (memory) summary_memory{{size}, 0, 0, static_cast<std::uint32_t>(capacity)};
}

// Notes what the bytes of a record say.
void note(summary_memory *in, std::size_t at, const SiEitSection &stored)
{
    known(in)[at] = summary_of(stored);
    marks(in)[at] = marks_of_events(bytes_of(stored));
}

void put(summary_memory *to, SiEitSection *record)
{
    records(to)[to->count] = record;
    note(to, to->count, *record);
    ++to->count;
}

// Few steps, for GLib keeps the small blocks that are grown out of: present and following alone,
// the first day of the schedule too, then a few days each.
std::size_t capacity_for(std::size_t count)
{
    if (count < 4)
        return 4;
    if (count < 16)
        return 16;
    return count + std::max<std::size_t>(24, count / 4);
}

// The summary with room for one more; null without memory, the old one being freed.
summary_memory *grown(si_list *sections, summary_memory *from)
{
    if (from->count < from->capacity)
        return from;
    summary_memory *made = allocate_summary(capacity_for(from->count));
    if (made != nullptr) {
        made->changes = from->changes;
        made->count = from->count;
        std::copy_n(marks(from), from->count, marks(made));
        std::copy_n(records(from), from->count, records(made));
        std::copy_n(known(from), from->count, known(made));
    }
    keep_companion(sections, made);
    return made;
}

// A fresh summary of what stands in the list; null without memory.
summary_memory *rebuilt(si_list *sections)
{
    summary_memory *made = kept_beside(sections);
    const auto count = static_cast<std::size_t>(sections->nb_elt);
    if (made == nullptr || made->capacity < count) {
        made = allocate_summary(capacity_for(count));
        keep_companion(sections, made);
    }
    if (made == nullptr)
        return nullptr;
    made->count = 0;
    for (SiEitSection &stored : elements<SiEitSection>(sections))
        put(made, &stored);
    made->changes = list_changes(sections);
    return made;
}

service_summary view_of(summary_memory *of)
{
    if (of == nullptr)
        return {};
    return {{known(of), of->count}, records(of), marks(of)};
}

bool fits(const si_list *sections, const summary_memory *kept)
{
    return kept != nullptr && kept->changes == list_changes(sections);
}

// Of an EIT section (EN 300 468, 5.2.4).
constexpr std::size_t events_at = 14;
constexpr std::size_t times_and_duration = 8; // start_time, duration

} // namespace

event_marks marks_of_events(bytes section)
{
    const std::size_t end = section.size() > crc_bytes ? section.size() - crc_bytes : 0;
    if (end <= events_at)
        return 0;
    event_marks all = 0;
    byte_reader in{section.first(end).subspan(events_at)};
    while (in.more()) {
        const std::uint16_t event_id = in.u16();
        in.span(times_and_duration);
        in.span(in.u16() & 0x0FFFu); // behind running_status and free_CA_mode
        if (in.ok)
            all |= marks_of(event_id);
    }
    return all;
}

service_summary fitting_summary(const si_list *sections)
{
    if (sections == nullptr)
        return {};
    summary_memory *kept = kept_beside(sections);
    return view_of(fits(sections, kept) ? kept : nullptr);
}

service_summary ready_summary(si_list *sections)
{
    if (sections == nullptr || sections->nb_elt <= 0)
        return {};
    summary_memory *kept = kept_beside(sections);
    return view_of(fits(sections, kept) ? kept : rebuilt(sections));
}

void summary_appended(si_list *sections, SiEitSection *appended)
{
    summary_memory *kept = kept_beside(sections);
    if (kept == nullptr || kept->changes + 1 != list_changes(sections)) {
        ready_summary(sections);
        return;
    }
    kept = grown(sections, kept);
    if (kept == nullptr)
        return;
    put(kept, appended);
    ++kept->changes;
}

void summary_replaced(si_list *sections, const SiEitSection *stored)
{
    summary_memory *kept = kept_beside(sections);
    if (!fits(sections, kept))
        return;
    SiEitSection **const first = records(kept);
    SiEitSection **const end = first + kept->count;
    SiEitSection **const found = std::find(first, end, stored);
    if (found != end)
        note(kept, static_cast<std::size_t>(found - first), *stored);
}

} // namespace si
