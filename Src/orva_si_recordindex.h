// SPDX-License-Identifier: LGPL-2.1-or-later
// Finds a record of a list by its key without walking the list. The list stays the truth: where a
// client changed it itself, the index is built anew from it, or says that it cannot tell and the
// caller walks.
#ifndef SRC_ORVA_SI_RECORDINDEX_H
#define SRC_ORVA_SI_RECORDINDEX_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "orva_si/list.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"

namespace si {

// Open addressing over twice the records that the store may hold, so that probes stay short and
// always end. Records with a key that an older one has already are left out, and counted: the
// oldest is the one found. Beside the slots lies a part of the hash of each key, so that a probe
// hardly ever reads a record that it does not look for. Everything runs with the lock of the list
// held.
template <class Record, std::size_t Most, std::uint64_t (*KeyOf)(const Record &)>
class record_index {
public:
    // Whether the index can answer for this list; builds it anew first where that is needed. Each
    // record it takes in then is shown to the visitor, after a null that tells of the new
    // beginning.
    template <class Visit>
    bool ready(si_list *of, Visit visit)
    {
        if (of == nullptr)
            return false;
        if (!fits(of) || (!usable && elements == 0))
            rebuild(of, visit);
        return usable;
    }

    // Whether it answers as it is.
    bool is_ready(si_list *of) const { return usable && of != nullptr && fits(of); }

    Record *find(std::uint64_t key) const
    {
        const std::size_t slot = slot_of(key);
        return tags[slot] != no_tag ? record[slot] : nullptr;
    }

    // A record was just appended to the list. False when the list changed otherwise too.
    bool added(si_list *of, Record *appended)
    {
        if (list != of || changes + 1 != list_changes(of) || !usable) {
            usable = false;
            return false;
        }
        put(appended);
        note(of);
        return true;
    }

    // A record is about to be freed; its link is still in the list, unless a client took it out.
    // False when the index no longer answers.
    bool removing(si_list *of, Record *doomed)
    {
        // A client may have freed what the index still names since it last fitted the list.
        usable = usable && of != nullptr && fits(of) && erase(doomed);
        return usable;
    }

    // A link was just taken from the list.
    void unlinked(si_list *of)
    {
        if (list == of && changes + 1 == list_changes(of))
            note(of);
        else
            usable = false;
    }

    void give_up() { usable = false; }

private:
    static constexpr std::size_t slots = 2 * Most;
    static_assert(std::has_single_bit(slots));

    static constexpr std::uint64_t hash(std::uint64_t key) { return key * 0x9E3779B97F4A7C15u; }
    static constexpr std::size_t home(std::uint64_t key)
    {
        return static_cast<std::size_t>(hash(key) >> (64 - std::countr_zero(slots)));
    }
    static constexpr std::size_t next(std::size_t slot) { return (slot + 1) % slots; }

    // Of an empty slot; its record is null.
    static constexpr std::uint16_t no_tag = 0;
    static constexpr std::uint16_t tag_of(std::uint64_t key)
    {
        return static_cast<std::uint16_t>(hash(key) >> 32 | 1);
    }

    // Where a key is, or the empty slot where it would be.
    std::size_t slot_of(std::uint64_t key) const
    {
        const std::uint16_t tag = tag_of(key);
        std::size_t slot = home(key);
        __builtin_prefetch(&record[slot]);
        while (tags[slot] != no_tag && !(tags[slot] == tag && KeyOf(*record[slot]) == key))
            slot = next(slot);
        return slot;
    }

    void note(si_list *of)
    {
        list = of;
        changes = list_changes(of);
        elements = of->nb_elt;
    }

    bool fits(si_list *of) const
    {
        return list == of && changes == list_changes(of) && elements == of->nb_elt;
    }

    void put(Record *added)
    {
        const std::uint64_t key = KeyOf(*added);
        const std::size_t slot = slot_of(key);
        if (tags[slot] != no_tag) {
            ++hidden;
            return;
        }
        record[slot] = added;
        tags[slot] = tag_of(key);
    }

    template <class Visit>
    void rebuild(si_list *of, Visit visit)
    {
        record.fill(nullptr);
        tags.fill(no_tag);
        hidden = 0;
        usable = false;
        visit(static_cast<Record *>(nullptr));
        note(of);
        if (of->nb_elt < 0 || static_cast<std::size_t>(of->nb_elt) > Most)
            return;
        std::int32_t found = 0;
        for (Record &each : elements_of(of)) {
            put(&each);
            visit(&each);
            ++found;
        }
        usable = found == of->nb_elt; // a null element is for a walk to report
    }
    static list_range<Record> elements_of(si_list *of) { return list_range<Record>{of}; }

    // Takes a record out and moves up what was pushed past it, so that every probe still meets what
    // it looks for. False when it was not there, or when a younger one may now be the oldest.
    bool erase(const Record *doomed)
    {
        std::size_t gap = home(KeyOf(*doomed));
        for (; record[gap] != doomed; gap = next(gap))
            if (record[gap] == nullptr)
                return false;
        for (std::size_t slot = next(gap); record[slot] != nullptr; slot = next(slot)) {
            const std::size_t wanted = home(KeyOf(*record[slot]));
            if ((slot - wanted) % slots >= (slot - gap) % slots) {
                record[gap] = record[slot];
                tags[gap] = tags[slot];
                gap = slot;
            }
        }
        record[gap] = nullptr;
        tags[gap] = no_tag;
        return hidden == 0;
    }

    std::array<Record *, slots> record{};
    std::array<std::uint16_t, slots> tags{};
    si_list *list = nullptr;
    std::uint64_t changes = 0;
    std::int32_t elements = 0;
    std::uint32_t hidden = 0;
    bool usable = false;
};

} // namespace si

#endif
