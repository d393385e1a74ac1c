// SPDX-License-Identifier: LGPL-2.1-or-later
// The frame of all getters: lock, walk, match, completeness, copy, CRC_32, decoding and the rules
// for "full" and "nothing found". A getter is its checks, its key and its question. Nothing here
// allocates.
#ifndef SRC_DVBTABLES_ORVA_SI_QUERY_H
#define SRC_DVBTABLES_ORVA_SI_QUERY_H

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "orva_si/store.h"
#include "orva_si_bytes.h"
#include "orva_si_codec.h"
#include "orva_si_eitsummary.h"
#include "orva_si_lock.h"
#include "orva_si_log.h"
#include "orva_si_siids.h"

namespace si {

// A visitor's answer to the walk.
enum class step {
    next,       // go on with the next section
    table_done, // go on with the next table; of events there is one for each service
    found,      // the question is answered
    full,       // the caller's memory is full
};

// Whether a section that carries this original_network_id is of the network asked for, which no key
// of a table names; the trace tells.
bool is_of_network(site here, std::uint16_t original_network_id, std::uint32_t onid);

// ---- Where a getter writes

// How a list getter ends.
struct list_codes {
    std::uint32_t some = ORVA_SI_OK;
    std::uint32_t none = ORVA_SI_NO_DATA;
    const char *full_text = "need more room\n"; // null: the getter has said so itself
};

// The caller's array and its count: capacity on the way in, elements written on the way out.
template <class T>
struct many {
    many(T *items, std::uint32_t *n, list_codes c = {})
        : out{items}, count{n}, capacity{*n}, codes{c}
    {
        *count = 0;
    }
    bool full() const { return *count == capacity; }
    // The element that put would write next; only while not full.
    T &candidate() const { return out[*count]; }
    // Appends a value, or lets a function fill the element in place: what it does not name stays
    // the caller's. A record with padding is to be filled field by field: assigned as a whole it
    // would carry there what lay in our memory.
    template <class V>
    [[nodiscard]] bool put(V value) const
    {
        if (full())
            return false;
        if constexpr (std::invocable<V &, T &>) {
            value(candidate());
        } else {
            static_assert(std::has_unique_object_representations_v<T>);
            candidate() = value;
        }
        ++*count;
        return true;
    }
    std::uint32_t at_end() const { return *count != 0 ? codes.some : codes.none; }

    T *out;
    std::uint32_t *count;
    std::uint32_t capacity;
    list_codes codes;
};

// The caller's count where there is no array: it needs no room and is never full.
struct tally {
    explicit tally(std::uint32_t *n) : count{n} { *count = 0; }
    bool add() const
    {
        ++*count;
        return true;
    }
    std::uint32_t at_end() const { return *count != 0 ? codes.some : codes.none; }

    std::uint32_t *count;
    list_codes codes{};
};

template <class E>
concept list_end = requires(const E &e)
{
    e.at_end();
};

// ---- How sections are found

// A reference to what is to be done with each stored section, so that a walk is compiled once for
// all getters.
template <class... Stored>
class store_visitor {
public:
    template <class Visit>
    explicit store_visitor(Visit &visit)
        : object{&visit}, call{[](void *of, Stored... stored) {
              return (*static_cast<Visit *>(of))(stored...);
          }}
    {
    }
    step operator()(Stored... stored) const { return call(object, stored...); }

private:
    void *object;
    step (*call)(void *, Stored...);
};
using section_visitor = store_visitor<const std::uint8_t *>;
// What is known of a section, by which alone it may be passed over, and the section.
using event_visitor = store_visitor<const section_summary &, const SiEitSection &>;

// Visits the stored sections of one list, in the order of their arrival.
step walk_sections(site here, si_list *sections, section_visitor visit);

// Visits the sections of every complete table that the key matches, in the order of the store. It
// gives up the lock for moments while it looks at more than any honest broadcast has: nothing of a
// table is to be kept then, and a table that the store loses meanwhile may hide the next one.
step walk_tables(site here, const SiTableKey &key, section_visitor visit) SI_NEEDS(ctl);

// Names the service whose events are asked for.
struct service_key {
    std::uint16_t original_network_id;
    std::uint16_t transport_stream_id;
    std::uint16_t service_id;
};

// What is known of a service's sections, so that only those are touched that may answer. Empty
// where nothing is known, and with the trace, which tells of each: walk them.
service_summary known_sections(const service_key &key) SI_NEEDS(eit);

// Visits the stored sections of a service that are whole, complete or not, in the order of their
// arrival.
step walk_events(site here, const service_key &key, event_visitor visit) SI_NEEDS(eit);

// ---- A first look at the stored bytes: whether a section is worth its checks. It may be damaged,
// so a look shows all that can come out of it undamaged, and no look changes an answer.

struct any_section {
    bool operator()(bytes) const { return true; }
};

// Whether a loop has an entry that is meant, by its fixed part, which ends with the 12-bit length
// of what follows it.
template <std::size_t Fixed, class Meant>
bool shows_entry(bytes loop, Meant meant)
{
    while (loop.size() >= Fixed) {
        const auto entry = loop.first<Fixed>();
        if (meant(entry))
            return true;
        const std::size_t length = be16(entry.template last<2>()) & 0x0FFFu;
        loop = loop.subspan(std::min(Fixed + length, loop.size()));
    }
    return false;
}

// What stands in front of the CRC_32 from that byte on; empty when there is nothing.
inline bytes section_body(bytes section, std::size_t from)
{
    const bytes body = section.first(section.size() - std::min(crc_bytes, section.size()));
    return body.subspan(std::min(from, body.size()));
}

// ---- How sections are opened

struct silently {
    void operator()() const {}
};

// Visits the decoded section, if a look at its bytes says that it may answer, or there is a trace
// to be written; one that fails its checks is passed over, and one that its codec refuses too, once
// refused was called.
template <auto Codec, std::size_t Capacity = largest_psi_section, class Look = any_section,
          class Visit, class Refused = silently>
auto decoding(Visit &visit, Look may_answer = {}, Refused refused = {})
{
    return [&visit, may_answer, refused](const std::uint8_t *stored) {
        const std::size_t size = section_size(stored);
        if (size > Capacity || (!may_answer(bytes{stored, size}) && !log_enabled(level::trace)))
            return step::next;
        section_buffer<Capacity> buffer;
        section_ext *head = load_section(buffer.room, stored);
        if (head == nullptr)
            return step::next;
        decoded<Codec> *section = Codec(head);
        if (section == nullptr) {
            refused();
            return step::next;
        }
        return visit(*section);
    };
}

// Visits the bytes of a section that passes the checks, not decoded.
template <std::size_t Capacity = largest_psi_section, class Visit>
auto checking(Visit &visit)
{
    return [&visit](const std::uint8_t *stored) {
        section_buffer<Capacity> buffer;
        const bytes section = copy_section(buffer.room, stored);
        return section.empty() ? step::next : visit(section);
    };
}

// ---- The result

// end: the list that was written, or the code of a single value that nothing answered.
template <class End>
std::uint32_t conclude(site here, step last, const End &end)
{
    if (last == step::found)
        return ORVA_SI_OK;
    if (last == step::full) {
        if constexpr (list_end<End>)
            if (end.codes.full_text != nullptr)
                SI_LOG_AT(here, level::error, "%s", end.codes.full_text);
        return ORVA_SI_ARRAY_FULL;
    }
    if constexpr (list_end<End>)
        return end.at_end();
    else
        return end;
}

// Asks the decoded sections of the tables that the key matches, of those that may answer.
template <auto Codec, class End, class Visit, class Look = any_section>
std::uint32_t query(site here, const SiTableKey &key, const End &end, Visit visit,
                    Look may_answer = {})
{
    auto opened = decoding<Codec>(visit, may_answer);
    const scope_lock lock{ctl, here};
    return conclude(here, walk_tables(here, key, section_visitor{opened}), end);
}

// Asks the bytes of the sections of the tables that the key matches.
template <class End, class Visit>
std::uint32_t query_bytes(site here, const SiTableKey &key, const End &end, Visit visit)
{
    auto opened = checking(visit);
    const scope_lock lock{ctl, here};
    return conclude(here, walk_tables(here, key, section_visitor{opened}), end);
}

// As many bytes as its section_length says, neither fewer nor more.
inline bool is_whole(bytes section)
{
    return section.size() >= section_header_bytes && section.size() == section_size(section.data());
}

// How many elements the caller has room for.
template <class End>
int room_of(const End &end)
{
    if constexpr (requires { end.capacity; })
        return static_cast<int>(end.capacity);
    else
        return 1;
}

// Lets the memory of a section come while other work is done.
inline void fetch(bytes section)
{
    constexpr std::size_t cache_line = 64;
    for (std::size_t at = 0; at < section.size(); at += cache_line)
        __builtin_prefetch(section.data() + at);
}

// One event, as it shows from outside of a section; or any.
struct sought_event {
    event_marks marks = 0;
    std::uint16_t event_id = 0;

    bool may_be_in(event_marks section) const { return (section & marks) == marks; }
    bool operator()(bytes section) const // EN 300 468, 5.2.4
    {
        return marks == 0 || shows_entry<12>(section_body(section, 14), [this](auto event) {
                   return be16(event.template first<2>()) == event_id;
               });
    }
};
constexpr sought_event any_event{};

constexpr sought_event event_with(std::uint32_t event_id)
{
    return {marks_of(low16(event_id)), low16(event_id)};
}

// The first section from there on that may carry the event; behind the last one when none may. Most
// of a question's steps are made here.
inline std::size_t kept_with(sought_event sought, service_summary kept, std::size_t from)
{
    std::size_t at = from;
    while (at < kept.known.size() && !sought.may_be_in(kept.events[at]))
        ++at;
    return at;
}

// Asks the decoded sections of a service's events, of those that are wanted for what is known of
// them and may carry the event that is sought.
template <class End, class Wanted, class Visit>
std::uint32_t query_events(site here, const service_key &key, const End &end, Wanted wanted,
                           const sought_event &sought, Visit visit)
{
    SI_LOG_AT(here, level::trace, "on_id: %d, ts_id: %d, serv_id: %d, count: %d\n",
              key.original_network_id, key.transport_stream_id, key.service_id, room_of(end));
    auto opened = decoding<eit_codec, largest_section>(visit, sought, [here] {
        SI_LOG_AT(here, level::trace, "@@@@@@@@@@@@@@@@@@@@@@@@ eit_section == NULL\n");
    });
    auto ask_section = [&](bytes section) {
        return is_whole(section) ? opened(section.data()) : step::next;
    };
    auto ask_wanted = [&](const section_summary &known, const SiEitSection &stored) {
        return wanted(known) ? ask_section(bytes_of(stored)) : step::next;
    };
    const scope_lock lock{eit, here};
    if (!lock.held) {
        SI_LOG_AT(here, level::error, "%%%%%%%%%%%% mutex locked yet &&&&&&&&&&\n");
        return ORVA_SI_FAILURE;
    }
    const service_summary kept = known_sections(key);
    if (kept.empty())
        return conclude(here, walk_events(here, key, event_visitor{ask_wanted}), end);
    step answer = step::next;
    std::size_t fetched = kept.known.size(); // the section that was asked for ahead; none so far
    for (std::size_t at = kept_with(sought, kept, 0);
         at < kept.known.size() && answer == step::next; at = kept_with(sought, kept, at + 1)) {
        if (!wanted(kept.known[at]))
            continue;
        if (fetched != at)
            fetch(kept.bytes_at(at));
        if (at + 1 < kept.known.size() && sought.may_be_in(kept.events[at + 1])) {
            fetched = at + 1;
            fetch(kept.bytes_at(fetched));
        }
        answer = ask_section(kept.bytes_at(at));
    }
    return conclude(here, answer, end);
}

} // namespace si

#endif
