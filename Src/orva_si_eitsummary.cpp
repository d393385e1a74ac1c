// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_eitsummary.h"

#include <algorithm>
#include <array>
#include <bit>
#include <new>

#include "orva_si_alloc.h"

namespace si {

namespace {

static_assert(sizeof(section_summary) == 12);

// Where a section is, by table and number. The tag tells most others from it without a look at
// them.
struct section_slot {
    std::uint8_t position; // counted from 1; 0: none
    std::uint8_t tag;
};

// In one piece of memory: this, the marks of the sections' events, their bytes and their records,
// what is known of each, how far tables have come, and where to find a section by table and number.
struct alignas(event_marks) summary_memory : list_companion {
    std::uint64_t changes; // of the list when the summary fitted it last
    section_summary *known;
    section_slot *slot;
    std::uint32_t count;
    std::uint32_t capacity;
    std::uint32_t tables; // of which it is known how far they have come
    std::uint32_t most_tables;
    std::uint32_t slots;     // a power of two, or 0
    bool every_one_distinct; // by table and number: slots find them all
};
constexpr std::size_t bytes_of_one =
    sizeof(event_marks) + sizeof(std::uint8_t *) + sizeof(SiEitSection *) + sizeof(section_summary);
static_assert(sizeof(summary_memory) % alignof(event_marks) == 0 &&
              sizeof(event_marks) % alignof(std::uint8_t *) == 0 &&
              sizeof(SiEitSection *) % alignof(section_summary) == 0 &&
              sizeof(section_summary) % alignof(table_progress) == 0);

event_marks *marks(summary_memory *of)
{
    return reinterpret_cast<event_marks *>(of + 1);
}

std::uint8_t **contents(summary_memory *of)
{
    return reinterpret_cast<std::uint8_t **>(marks(of) + of->capacity);
}

SiEitSection **records(summary_memory *of)
{
    return reinterpret_cast<SiEitSection **>(contents(of) + of->capacity);
}

std::span<table_progress> tables(summary_memory *of)
{
    return {reinterpret_cast<table_progress *>(of->known + of->capacity), of->tables};
}

summary_memory *kept_beside(const si_list *sections)
{
    return static_cast<summary_memory *>(companion_of(sections));
}

// Services with more sections than a slot can name are rare, and walked.
std::size_t slots_for(std::size_t capacity)
{
    constexpr std::size_t most = 0xFF;
    return capacity <= most ? std::bit_ceil(capacity + capacity / 4 + 1) : 0;
}

summary_memory *allocate_summary(std::size_t capacity, std::size_t most_tables)
{
    const std::size_t slot_count = slots_for(capacity);
    const std::size_t size = sizeof(summary_memory) + capacity * bytes_of_one +
                             most_tables * sizeof(table_progress) +
                             slot_count * sizeof(section_slot);
    void *memory = allocate(size);
    if (memory == nullptr)
        return nullptr;
    auto *made = new (memory) summary_memory{{size},
                                             0,
                                             nullptr,
                                             nullptr,
                                             0,
                                             static_cast<std::uint32_t>(capacity),
                                             0,
                                             static_cast<std::uint32_t>(most_tables),
                                             static_cast<std::uint32_t>(slot_count),
                                             slot_count != 0};
    made->known = reinterpret_cast<section_summary *>(records(made) + capacity);
    made->slot = reinterpret_cast<section_slot *>(tables(made).data() + most_tables);
    std::fill_n(made->slot, slot_count, section_slot{});
    return made;
}

// Where the search for a section begins, and what it looks for.
struct slot_search {
    std::uint32_t home;
    std::uint8_t tag;
};

slot_search search_for(const summary_memory *in, std::uint16_t table_id,
                       std::uint8_t section_number)
{
    const std::uint32_t key = std::uint32_t{table_id} << 8 | section_number;
    const std::uint32_t mixed = key * 0x9E3779B1u;
    return {mixed >> 16 & (in->slots - 1), static_cast<std::uint8_t>(mixed >> 24)};
}

// The first slot with the tag that a predicate takes, or the empty one where it would be. There are
// empty ones.
section_slot &slot_where(summary_memory *of, slot_search search, auto is_it)
{
    for (std::uint32_t at = search.home;; at = (at + 1) & (of->slots - 1)) {
        section_slot &slot = of->slot[at];
        if (slot.position == 0 || (slot.tag == search.tag && is_it(of->known[slot.position - 1])))
            return slot;
    }
}

section_slot &slot_of(summary_memory *of, slot_search search, std::uint16_t table_id,
                      std::uint8_t section_number)
{
    return slot_where(of, search, [=](const section_summary &there) {
        return there.table_id == table_id && there.section_number == section_number;
    });
}

void enter_slot(summary_memory *in, std::size_t at)
{
    if (!in->every_one_distinct)
        return;
    const section_summary &entered = in->known[at];
    const slot_search search = search_for(in, entered.table_id, entered.section_number);
    section_slot &slot = slot_of(in, search, entered.table_id, entered.section_number);
    if (slot.position != 0)
        in->every_one_distinct = false;
    else
        slot = {static_cast<std::uint8_t>(at + 1), search.tag};
}

// Notes what the bytes of a record say.
void note(summary_memory *in, std::size_t at, const SiEitSection &stored, std::uint32_t crc)
{
    in->known[at] = summary_of(stored, crc);
    contents(in)[at] = stored.section;
    marks(in)[at] = marks_of_events(bytes_of(stored));
}

void put(summary_memory *to, SiEitSection *record, std::uint32_t crc)
{
    records(to)[to->count] = record;
    note(to, to->count, *record, crc);
    enter_slot(to, to->count);
    ++to->count;
}

// Few steps, for what was noted is copied at each, and GLib keeps the small blocks that are grown
// out of: present and following alone, with the first day of the schedule, with half of its usual
// eight days, with all of them.
std::size_t capacity_for(std::size_t count)
{
    constexpr std::array<std::size_t, 4> steps{4, 16, 40, 68};
    const auto step = std::ranges::upper_bound(steps, count);
    return step != steps.end() ? *step : count + std::max<std::size_t>(24, count / 8);
}

// The same with other room; null without memory, the old one being kept then.
summary_memory *with_room(si_list *sections, summary_memory *from, std::size_t capacity,
                          std::size_t most_tables)
{
    summary_memory *made = allocate_summary(capacity, most_tables);
    if (made == nullptr)
        return nullptr;
    made->changes = from->changes;
    made->count = from->count;
    made->tables = from->tables;
    std::copy_n(marks(from), from->count, marks(made));
    std::copy_n(contents(from), from->count, contents(made));
    std::copy_n(records(from), from->count, records(made));
    std::copy_n(from->known, from->count, made->known);
    std::ranges::copy(tables(from), tables(made).begin());
    made->every_one_distinct = made->every_one_distinct && from->every_one_distinct;
    if (made->slots == from->slots)
        std::copy_n(from->slot, from->slots, made->slot);
    else
        for (std::size_t at = 0; at < made->count; ++at)
            enter_slot(made, at);
    keep_companion(sections, made);
    return made;
}

// The summary with room for one more; null without memory, the old one being freed.
summary_memory *grown(si_list *sections, summary_memory *from)
{
    if (from->count < from->capacity)
        return from;
    summary_memory *made = with_room(sections, from, capacity_for(from->count), from->most_tables);
    if (made == nullptr)
        keep_companion(sections, nullptr);
    return made;
}

// A fresh summary of what stands in the list; null without memory.
summary_memory *rebuilt(si_list *sections)
{
    summary_memory *made = kept_beside(sections);
    const auto count = static_cast<std::size_t>(sections->nb_elt);
    if (made == nullptr || made->capacity < count) {
        made = allocate_summary(capacity_for(count), 0);
        keep_companion(sections, made);
    }
    if (made == nullptr)
        return nullptr;
    made->count = 0;
    made->tables = 0;
    made->every_one_distinct = made->slots != 0;
    std::fill_n(made->slot, made->slots, section_slot{});
    for (SiEitSection &stored : elements<SiEitSection>(sections))
        put(made, &stored, crc_of(bytes_of(stored)));
    made->changes = list_changes(sections);
    return made;
}

service_summary view_of(summary_memory *of)
{
    if (of == nullptr)
        return {};
    return {{of->known, of->count}, records(of), contents(of), marks(of)};
}

bool fits(const si_list *sections, const summary_memory *kept)
{
    return kept != nullptr && kept->changes == list_changes(sections);
}

// The one that fits, built anew where that is needed; null without memory, or sections.
summary_memory *ready(si_list *sections)
{
    if (sections == nullptr || sections->nb_elt <= 0)
        return nullptr;
    summary_memory *kept = kept_beside(sections);
    return fits(sections, kept) ? kept : rebuilt(sections);
}

// How far a table has come, of all sections; null without memory.
const table_progress *progress_of(si_list *sections, summary_memory *kept, std::uint8_t table_id)
{
    constexpr std::uint32_t more_tables = 4; // most services have three
    auto found = std::ranges::find(tables(kept), table_id, &table_progress::table_id);
    if (found == tables(kept).end()) {
        if (kept->tables == kept->most_tables)
            kept = with_room(sections, kept, kept->capacity, kept->tables + more_tables);
        if (kept == nullptr)
            return nullptr;
        ++kept->tables;
        found = tables(kept).end() - 1;
        new (&*found) table_progress{table_id};
    }
    for (; found->met < kept->count && !found->has_ended(); ++found->met)
        if (found->concerns(kept->known[found->met]))
            found->add(kept->known[found->met]);
    return &*found;
}

// Of an event (EN 300 468, 5.2.4).
constexpr std::size_t event_head = 12; // up to descriptors_loop_length

} // namespace

void table_progress::add(const section_summary &known)
{
    if (!any) {
        any = true;
        version = known.version;
        all = 0xFFFFFFFFu >> (31 - (known.last_section_number >> 3));
    }
    if (known.version != version) {
        state = progress_state::other_version;
        return;
    }
    const unsigned number = known.section_number;
    if (table_id == tid_eit_pf_actual) {
        if (is_out_of_place(known)) {
            met_one_out_of_place = true;
            return;
        }
        present_following = static_cast<std::uint8_t>(present_following | 1u << number);
        if (present_following == 0b11)
            state = progress_state::complete;
        return;
    }
    std::uint8_t &segment = segments[number >> 3];
    segment = static_cast<std::uint8_t>(segment | 1u << (number & 7));
    const unsigned up_to_last = (1u << ((known.last_section_number & 7) + 1)) - 1;
    if ((segment & up_to_last) != 0)
        done |= 1u << (number >> 3);
    if (done == all)
        state = progress_state::complete;
}

event_marks marks_of_events(bytes section)
{
    const std::size_t end = section.size() > crc_bytes ? section.size() - crc_bytes : 0;
    if (end <= eit_header_bytes)
        return 0;
    event_marks all = 0;
    for (bytes left = section.first(end).subspan(eit_header_bytes); left.size() >= event_head;) {
        const std::size_t loop = be16(left.subspan<10, 2>()) & 0x0FFFu; // of descriptors
        if (loop > left.size() - event_head)
            break;
        mark_event(all, be16(left.first<2>()));
        left = left.subspan(event_head + loop);
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
    return view_of(ready(sections));
}

std::optional<summary_entry> only_section(si_list *sections, std::uint8_t table_id,
                                          std::uint8_t section_number)
{
    summary_memory *kept = ready(sections);
    if (kept == nullptr || !kept->every_one_distinct)
        return std::nullopt;
    const std::size_t position =
        slot_of(kept, search_for(kept, table_id, section_number), table_id, section_number)
            .position;
    if (position == 0)
        return summary_entry{nullptr, nullptr};
    return summary_entry{&kept->known[position - 1], records(kept)[position - 1]};
}

void fetch_section(const si_list *sections, std::uint8_t table_id, std::uint8_t section_number)
{
    summary_memory *kept = sections != nullptr ? kept_beside(sections) : nullptr;
    if (!fits(sections, kept) || kept->slots == 0)
        return;
    const auto any = [](const section_summary &) { return true; }; // not looked at: it is to come
    const slot_search search = search_for(kept, table_id, section_number);
    if (const std::size_t position = slot_where(kept, search, any).position; position != 0)
        __builtin_prefetch(&kept->known[position - 1]);
}

std::optional<bool> known_complete(si_list *sections, std::uint8_t received_table_id)
{
    summary_memory *kept = ready(sections);
    const table_progress *of =
        kept == nullptr ? nullptr : progress_of(sections, kept, received_table_id);
    if (of == nullptr || of->met_one_out_of_place)
        return std::nullopt;
    return of->state == progress_state::complete;
}

void summary_appended(si_list *sections, SiEitSection *appended, std::uint32_t crc)
{
    summary_memory *kept = kept_beside(sections);
    if (kept == nullptr || kept->changes + 1 != list_changes(sections)) {
        ready_summary(sections);
        return;
    }
    kept = grown(sections, kept);
    if (kept == nullptr)
        return;
    put(kept, appended, crc);
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
    if (found == end)
        return;
    const auto at = static_cast<std::size_t>(found - first);
    const std::uint8_t before = kept->known[at].received_table_id;
    note(kept, at, *stored, crc_of(bytes_of(*stored)));
    const std::uint8_t now = kept->known[at].received_table_id;
    for (table_progress &table : tables(kept)) // is counted anew when it is asked for
        if (table.table_id == before || table.table_id == now)
            table = table_progress{table.table_id};
}

} // namespace si
