// SPDX-License-Identifier: LGPL-2.1-or-later
// The questions to libraries that decode and keep nothing, or nothing but tables: a walk over what
// is there, the same for each of them.
//
// Reader has for the library's own records of events and services: id, name, times.
// Kept walks over them: near_event over those beside an event, events_of over those of a service,
// services over all of them.
#ifndef BENCH_PEERS_ANSWERS_H
#define BENCH_PEERS_ANSWERS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "candidate.h"

namespace bench {

inline void copy_text(SiDvbString &to, const void *text, std::size_t size)
{
    to.length = static_cast<std::uint16_t>(std::min(size, sizeof to.text));
    std::copy_n(static_cast<const std::uint8_t *>(text), to.length, to.text);
}

// Where raw sections are kept, they are decoded at each question. Decoder has each_event and
// each_service of a section.
template <class Decoder>
struct kept_sections {
    template <class Visit>
    static void near_event(const mux &of, std::uint16_t service, unsigned event, Visit visit)
    {
        Decoder::each_event(of.sections[of.schedules[service][event / events_per_section]].bytes,
                            visit);
    }
    template <class Visit>
    static void events_of(const mux &of, std::uint16_t service, Visit visit)
    {
        for (const std::size_t at : of.schedules[service])
            Decoder::each_event(of.sections[at].bytes, visit);
    }
    template <class Visit>
    static void services(const mux &of, Visit visit)
    {
        for (const std::size_t at : of.sdts)
            Decoder::each_service(of.sections[at].bytes, visit);
    }
};

template <class Reader, class Kept>
struct answers {
    static bool event_name(const mux &of, std::uint16_t service, unsigned event, SiDvbString &name)
    {
        bool found = false;
        Kept::near_event(of, service, event, [&](auto &each) {
            if (found || Reader::id(each) != event)
                return;
            Reader::name(each, name);
            found = true;
        });
        return found;
    }

    static std::size_t events(const mux &of, std::uint16_t service, std::span<SiBasicEvent> to)
    {
        std::size_t count = 0;
        Kept::events_of(of, service, [&](auto &each) {
            SiBasicEvent &event = to[count++];
            event.event_id = Reader::id(each);
            Reader::times(each, event);
            Reader::name(each, event.event_name);
        });
        return count;
    }

    static std::size_t service_ids(const mux &of, std::span<std::uint16_t> to)
    {
        std::size_t count = 0;
        Kept::services(of, [&](auto &each) { to[count++] = Reader::id(each); });
        return count;
    }

    static std::size_t service_names(const mux &of, std::span<listed_service> to)
    {
        std::size_t count = 0;
        Kept::services(of, [&](auto &each) {
            to[count].id = Reader::id(each);
            Reader::name(each, to[count++].name);
        });
        return count;
    }
};

// A library that decodes section by section and keeps nothing. Decoder has is_pat beside what is
// said above.
template <class Decoder>
struct decoding {
    static inline counts seen;

    static void forget() { seen = {0, 0, 0}; }

    static bool take_one(std::span<const std::uint8_t> section)
    {
        switch (section.front()) {
        case 0x00:
            return Decoder::is_pat(section);
        case 0x42:
        case 0x46:
            return Decoder::each_service(section, [](auto &) { ++seen.services; });
        default:
            return Decoder::each_event(section, [](auto &) { ++seen.events; });
        }
    }

    static bool take(std::span<const received> batch)
    {
        for (const received &each : batch) {
            if (!take_one(each.bytes))
                return false;
            ++seen.sections;
        }
        return true;
    }

    static constexpr candidate as_candidate(const char *name,
                                            decltype(candidate::demultiplex) demultiplex = nullptr)
    {
        using asked = answers<Decoder, kept_sections<Decoder>>;
        return {.name = name,
                .knows_repeats = false,
                .rounds_to_tell = 1,
                .start = [](const mux &) { forget(); },
                .forget = forget,
                .take = take,
                .settle = nullptr,
                .counted = [](const mux &) { return seen; },
                .event_name = asked::event_name,
                .events = asked::events,
                .service_ids = asked::service_ids,
                .service_names = asked::service_names,
                .demultiplex = demultiplex};
    }
};

} // namespace bench

#endif
