// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tests share that run threads of all kinds against the library: the threads and their
// dice, sections that are not as they should be, and events whose answers can be checked.
//
//   worker workers[] = {{"driver", send}, {"client", ask}};
//   const watchdog dog{duration(3s) + 60s, workers};
//   crew threads{workers};                           // they stop when it ends
#ifndef TESTS_SUPPORT_STRESS_H
#define TESTS_SUPPORT_STRESS_H

#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "orva_si/channel.h"
#include "orva_si/notify.h"
#include "orva_si/query_event.h"
#include "orva_si/store.h"
#include "support/descriptors.h"
#include "support/sections.h"
#include "support/store.h"

namespace test {

// Reads every byte of the section that SI_REASON_DSMCC tells of.
inline unsigned sum_of_section(SiWord data)
{
    const auto *told = reinterpret_cast<const SiDsmccNotify *>(data);
    unsigned sum = 0;
    for (unsigned i = 0; i < told->length; ++i)
        sum += told->section[i];
    return sum;
}

// ---- Threads

// How long a test runs: as ORVA_STRESS_SECONDS says, else this.
inline std::chrono::seconds duration(std::chrono::seconds usual)
{
    const char *set = std::getenv("ORVA_STRESS_SECONDS");
    return set != nullptr ? std::chrono::seconds{std::atoi(set)} : usual;
}

// A number that many threads add to. Relaxed: counting must not order what a race detector is to
// find unordered.
class tally {
public:
    void operator++() { add(1); }
    void add(std::size_t more) { number.fetch_add(more, std::memory_order_relaxed); }
    operator std::size_t() const { return number.load(std::memory_order_relaxed); }

private:
    std::atomic<std::size_t> number{0};
};

// What every run has done something of.
struct piece_of_work {
    const char *name;
    const tally &done;
};

inline bool all_is_done(std::span<const piece_of_work> work)
{
    return std::ranges::all_of(work, [](const piece_of_work &of) { return of.done != 0; });
}

// Printed, kept with the result, and something.
inline void report(std::span<const piece_of_work> work)
{
    for (const auto &[name, done] : work) {
        const std::size_t count = done;
        testing::Test::RecordProperty(name, static_cast<int>(count));
        std::printf("%-28s %zu\n", name, count);
        EXPECT_GT(count, 0u) << name;
    }
}

class dice {
public:
    explicit dice(unsigned seed) : engine{seed} {}
    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(engine() % n); }
    bool one_in(std::uint32_t n) { return below(n) == 0; }
    std::uint8_t byte() { return static_cast<std::uint8_t>(below(0x100)); }
    std::uint16_t id(std::uint32_t n) { return static_cast<std::uint16_t>(1 + below(n)); }
    void rest(std::uint32_t most_us)
    {
        std::this_thread::sleep_for(std::chrono::microseconds{below(most_us)});
    }

private:
    std::mt19937 engine;
};

struct worker {
    const char *name;
    void (*step)(dice &);
    tally steps{};
};

// A thread for each worker, which does its step again and again.
class crew {
public:
    explicit crew(std::span<worker> workers, unsigned first_seed = 1)
    {
        for (worker &one : workers)
            threads.emplace_back([this, &one, seed = first_seed++] {
                dice d{seed};
                while (!over) {
                    one.step(d);
                    ++one.steps;
                }
            });
    }
    ~crew()
    {
        stop();
        for (std::thread &thread : threads)
            thread.join();
    }
    crew(const crew &) = delete;
    crew &operator=(const crew &) = delete;
    void stop() { over = true; } // does not wait for the steps that they are at

private:
    std::atomic<bool> over{false};
    std::vector<std::thread> threads;
};

// Ends the process when the test is not over in time, which only a deadlock can bring about.
class watchdog {
public:
    watchdog(std::chrono::seconds patience, std::span<const worker> workers)
        : thread{[this, patience, workers] {
              std::unique_lock lock{mutex};
              if (called_off_signal.wait_for(lock, patience, [this] { return called_off; }))
                  return;
              for (const worker &one : workers)
                  std::fprintf(stderr, "%s: %zu steps\n", one.name, std::size_t{one.steps});
              std::fputs("somebody is stuck\n", stderr);
              std::abort();
          }}
    {
    }
    ~watchdog()
    {
        {
            const std::lock_guard lock{mutex};
            called_off = true;
        }
        called_off_signal.notify_one();
        thread.join();
    }
    watchdog(const watchdog &) = delete;
    watchdog &operator=(const watchdog &) = delete;

private:
    std::mutex mutex;
    std::condition_variable called_off_signal;
    bool called_off = false;
    std::thread thread;
};

inline bool wait_for(const std::function<bool()> &condition)
{
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    return condition();
}

// Frees all tables and events.
inline void empty_stores()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    Orva_Si_DeleteCaches(0);
    Orva_Si_EraseAllEitRawData();
    Orva_MutexV(&Ts_Ctl_Mutex);
}

// ---- Hostile sections

// Bytes, CRC_32 or lengths that are wrong, and pure noise.
inline octets spoiled(dice &d, octets section)
{
    switch (d.below(5)) {
    case 0:
        return damage(std::move(section));
    case 1:
        section[d.below(static_cast<std::uint32_t>(section.size()))] = d.byte();
        return d.one_in(2) ? fix_crc(section) : section;
    case 2:
        return set_length(std::move(section), d.below(0x1000));
    case 3:
        section.resize(1 + d.below(static_cast<std::uint32_t>(section.size())));
        return section;
    default:
        octets noise(d.one_in(20) ? 4090 + d.below(20) : d.below(64));
        for (std::uint8_t &byte : noise)
            byte = d.byte();
        return noise;
    }
}

// ---- The client's requests for events

struct event_requests {
    std::vector<std::uint16_t> actual;
    std::vector<SiEitRequest> other;
};

// Starts one kind of event table for some of these services. Answers the result.
inline std::uint32_t start_events(dice &d, const event_requests &of, std::uint32_t program)
{
    const auto actual = 1 + d.below(static_cast<std::uint32_t>(of.actual.size()));
    const auto other = 1 + d.below(static_cast<std::uint32_t>(of.other.size()));
    const SiEitRequest *others = d.one_in(2) ? of.other.data() : nullptr;
    switch (d.below(5)) {
    case 0:
        return Orva_Si_StartActualPFEIT(0xFFFF, 0xFFFF, program, of.actual.data(), actual);
    case 1:
        return Orva_Si_StartCurrentPFEIT(0xFFFF, 0xFFFF, program);
    case 2:
        return Orva_Si_StartActualScheduleEIT(0xFFFF, 0xFFFF, program, of.actual.data(), actual);
    case 3:
        return Orva_Si_StartOtherPFEIT(others, other);
    default:
        return Orva_Si_StartOtherSchedulEIT(others, other);
    }
}

inline void stop_events(dice &d)
{
    constexpr std::array stops{Orva_Si_StopActualPFEIT, Orva_Si_StopOtherPFEIT,
                               Orva_Si_StopActualScheduleEIT, Orva_Si_StopOtherScheduleEIT,
                               Orva_Si_StopAllEIT};
    stops[d.below(stops.size())]();
}

// ---- Events that tell which they are

// The language function of the client, called with a lock held: a language's number is its first
// letter.
inline constexpr std::uint32_t english = 'e';
inline constexpr std::uint32_t german = 'd';
inline std::uint32_t number_of_language(const char *code, std::uint32_t *language)
{
    *language = static_cast<std::uint8_t>(code[0]);
    return 0;
}

// An event_id says which event of which service it is: everything else of the event follows from
// it, but for the revision of its texts.
inline constexpr std::uint32_t events_of_service = 64;
inline std::uint16_t event_id_of(std::uint32_t service, std::uint32_t index)
{
    return static_cast<std::uint16_t>(service * events_of_service + index);
}

inline constexpr std::uint32_t half_an_hour = 1800;
inline constexpr std::uint16_t first_day = 60000; // 2023-02-25, 19,413 days after 1970 began
inline std::uint32_t start_of(std::uint32_t event_id)
{
    return 19413 * 86400 + event_id % events_of_service * half_an_hour;
}
inline std::string name_of(std::uint32_t event_id, std::uint32_t language)
{
    return (language == english ? "Event " : "Sendung ") + std::to_string(event_id);
}
inline std::string text_of_event(std::uint32_t event_id)
{
    return "About " + std::to_string(event_id) + ", revision ";
}
inline content_genre genre_of(std::uint32_t event_id)
{
    return {
        static_cast<std::uint8_t>(event_id >> 12), static_cast<std::uint8_t>(event_id >> 8 & 15),
        static_cast<std::uint8_t>(event_id >> 4 & 15), static_cast<std::uint8_t>(event_id & 15)};
}
inline std::uint8_t low_byte(std::uint32_t event_id)
{
    return static_cast<std::uint8_t>(event_id & 0xFF);
}

inline eit_event told_event(std::uint16_t event_id, std::uint32_t revision)
{
    const std::uint32_t halves = event_id % events_of_service;
    const std::string text = text_of_event(event_id) + std::to_string(revision);
    const std::string item = std::to_string(event_id);
    return {.id = event_id,
            .mjd = static_cast<std::uint16_t>(first_day + halves / 48),
            .start_bcd = halves % 48 / 20 << 20 | halves % 48 / 2 % 10 << 16 | halves % 2 * 0x3000,
            .duration_bcd = 0x3000,
            .descriptors = {short_event("eng", name_of(event_id, english), text),
                            short_event("deu", name_of(event_id, german), text),
                            extended_event({.language = "eng", .items = {{"Event", item}}}),
                            extended_event({.language = "deu", .items = {{"Sendung", item}}}),
                            component(1, 3, low_byte(event_id)), content({genre_of(event_id)}),
                            parental_rating({{"GBR", low_byte(event_id)}}), ca_identifier({0x500}),
                            private_data_specifier(0x233A),
                            preferred_name_identifier(low_byte(event_id))}};
}

// ---- Questions about events

struct asked {
    std::uint32_t onid;
    std::uint32_t ts;
    std::uint32_t service;
    std::uint32_t event;
    std::uint32_t language;
    std::uint8_t banner;
    std::uint32_t room; // for lists
};

// Whether something was told, and whether it is so for events made by told_event().
struct reply {
    bool told;
    bool right;
};

// The memory is of exactly its size, for a sanitizer to see what is written beyond.
template <class T, class Get, class Fits>
reply told_list(const asked &a, Get get, Fits fits)
{
    std::vector<T> items(a.room);
    std::uint32_t count = a.room;
    get(items.data(), &count);
    const bool within = count <= a.room;
    items.resize(within ? count : 0);
    return {count != 0, within && std::all_of(items.begin(), items.end(), fits)};
}

template <class T, class Get, class Fits>
reply told_value(Get get, Fits fits)
{
    T value{};
    const bool told = get(&value) == ORVA_SI_OK;
    return {told, !told || fits(value)};
}

inline reply told_ids(const asked &a,
                      const std::function<void(std::uint16_t *, std::uint32_t *)> &get)
{
    return told_list<std::uint16_t>(
        a, get, [&](std::uint16_t id) { return id / events_of_service == a.service; });
}

inline reply told_languages(const asked &a,
                            const std::function<void(std::uint32_t *, std::uint32_t *)> &get)
{
    return told_list<std::uint32_t>(a, get,
                                    [](std::uint32_t id) { return id == english || id == german; });
}

inline bool is_right(const SiExtendEvtDesc &description, const asked &a)
{
    return static_cast<std::uint8_t>(description.lang[0]) == a.language &&
           description.item_count == 1 &&
           text_of(description.items[0].item) == std::to_string(a.event);
}

using event_question = reply (*)(const asked &);

inline constexpr event_question lists_of_events[] = {
    [](const asked &a) {
        return told_ids(a, [&](auto *ids, auto *count) {
            Orva_Si_GetOneServEvtIds(a.onid, a.ts, a.service, ids, count);
        });
    },
    [](const asked &a) {
        return told_value<std::uint32_t>(
            [&](auto *n) { return Orva_Si_GetOneServEvtCount(a.onid, a.ts, a.service, n); },
            [](std::uint32_t n) { return n != 0; });
    },
    [](const asked &a) {
        return told_ids(a, [&](auto *ids, auto *count) {
            Orva_Si_GetOneSectEvtIds(a.onid, a.ts, a.service, a.banner != 0 ? 0x4E : 0x50, 0, ids,
                                     count);
        });
    },
    [](const asked &a) {
        return told_list<SiBasicEvent>(
            a,
            [&](auto *list, auto *count) {
                Orva_Si_GetOneServBscEvtInfos(a.onid, a.ts, a.service, a.language, 0, 0, list,
                                              count);
            },
            [&](const SiBasicEvent &event) {
                return event.event_id / events_of_service == a.service &&
                       event.start_time == start_of(event.event_id) &&
                       event.duration == half_an_hour &&
                       text_of(event.event_name) == name_of(event.event_id, a.language);
            });
    },
    [](const asked &a) {
        return told_ids(a, [&](auto *ids, auto *count) {
            Orva_Si_GetGetEventIDsByStartTime(a.onid, a.ts, a.service, start_of(a.event), ids,
                                              count);
        });
    },
    [](const asked &a) {
        return told_ids(a, [&](auto *ids, auto *count) {
            Orva_Si_GetGetEventIDsByStartTimeAndEndTime(a.onid, a.ts, a.service, start_of(a.event),
                                                        0xFFFFFFFF, ids, count);
        });
    },
    [](const asked &a) {
        return told_value<std::uint16_t>(
            [&](auto *id) { return Orva_Si_GetBnrEvtId(a.onid, a.ts, a.service, a.event % 2, id); },
            [&](std::uint16_t id) { // the one that arrived first has the first place
                return id == event_id_of(a.service, 0) || id == event_id_of(a.service, 1);
            });
    },
};

inline constexpr event_question parts_of_events[] = {
    [](const asked &a) {
        return told_value<std::uint32_t>(
            [&](auto *time) {
                return Orva_Si_GetEvtStartUTCTime(a.onid, a.ts, a.service, a.event, time, a.banner);
            },
            [&](std::uint32_t time) { return time == start_of(a.event); });
    },
    [](const asked &a) {
        return told_value<std::uint32_t>(
            [&](auto *time) {
                return Orva_Si_GetEvtDuringTime(a.onid, a.ts, a.service, a.event, time, a.banner);
            },
            [](std::uint32_t time) { return time == half_an_hour; });
    },
    [](const asked &a) {
        return told_value<SiDvbString>(
            [&](auto *name) {
                return Orva_Si_GetEvtNameByID(a.onid, a.ts, a.service, a.event, name, a.language,
                                              a.banner);
            },
            [&](const SiDvbString &name) { return text_of(name) == name_of(a.event, a.language); });
    },
    [](const asked &a) {
        return told_languages(a, [&](auto *list, auto *count) {
            Orva_Si_GetEvtNameLangList(a.onid, a.ts, a.service, a.event, list, count, a.banner);
        });
    },
    [](const asked &a) {
        return told_value<SiDvbString>(
            [&](auto *text) {
                return Orva_Si_GetShortEvtDescByID(a.onid, a.ts, a.service, a.event, a.language,
                                                   text, a.banner);
            },
            [&](const SiDvbString &text) {
                return text_of(text).starts_with(text_of_event(a.event));
            });
    },
    [](const asked &a) {
        return told_languages(a, [&](auto *list, auto *count) {
            Orva_Si_GetShortEvtDescLangList(a.onid, a.ts, a.service, a.event, list, count,
                                            a.banner);
        });
    },
    [](const asked &a) {
        return told_value<SiExtendEvtDesc>(
            [&](auto *desc) {
                return Orva_Si_GetExtendEvtDescByID(a.onid, a.ts, a.service, a.event, a.language,
                                                    desc, a.banner);
            },
            [&](const SiExtendEvtDesc &desc) { return is_right(desc, a); });
    },
    [](const asked &a) {
        return told_list<SiExtendEvtDesc>(
            a,
            [&](auto *list, auto *count) {
                Orva_Si_GetAllExtendEvtDescByID(a.onid, a.ts, a.service, a.event, a.language, list,
                                                count, a.banner);
            },
            [&](const SiExtendEvtDesc &desc) { return is_right(desc, a); });
    },
    [](const asked &a) {
        return told_value<std::uint32_t>(
            [&](auto *n) {
                return Orva_Si_GetExtendEvtDescCnt(a.onid, a.ts, a.service, a.event, a.language, n,
                                                   a.banner);
            },
            [](std::uint32_t n) { return n == 1; });
    },
    [](const asked &a) {
        return told_languages(a, [&](auto *list, auto *count) {
            Orva_Si_GetExtendEvtDescLangList(a.onid, a.ts, a.service, a.event, list, count,
                                             a.banner);
        });
    },
    [](const asked &a) {
        return told_list<SiEvtContent>(
            a,
            [&](auto *list, auto *count) {
                Orva_Si_GetEvtContentDesc(a.onid, a.ts, a.service, a.event, list, count, a.banner);
            },
            [&](const SiEvtContent &genre) {
                const content_genre sent = genre_of(a.event);
                return genre.content_nibble_level_1 == sent.level_1 &&
                       genre.content_nibble_level_2 == sent.level_2 &&
                       genre.user_nibble_1 == sent.user_1 && genre.user_nibble_2 == sent.user_2;
            });
    },
    [](const asked &a) {
        return told_list<SiEvtComponent>(
            a,
            [&](auto *list, auto *count) {
                Orva_Si_GetEvtComponentDesc(a.onid, a.ts, a.service, a.event, list, count,
                                            a.banner);
            },
            [&](const SiEvtComponent &of) { return of.component_tag == low_byte(a.event); });
    },
    [](const asked &a) {
        return told_list<SiEvtRating>(
            a,
            [&](auto *list, auto *count) {
                Orva_Si_GetEvtParentalRatingDesc(a.onid, a.ts, a.service, a.event, list, count,
                                                 a.banner);
            },
            [&](const SiEvtRating &of) { return of.rating == low_byte(a.event); });
    },
    [](const asked &a) {
        std::uint8_t flag = 0;
        Orva_Si_HaveEvtCAIdentifierDesc(a.onid, a.ts, a.service, a.event, &flag, a.banner);
        return reply{flag == 1, flag <= 1};
    },
    [](const asked &a) {
        return told_value<std::uint8_t>(
            [&](auto *id) {
                return Orva_Si_EvtGetPfNameId(a.onid, a.ts, a.service, a.event, 0x233A, id,
                                              a.banner);
            },
            [&](std::uint8_t id) { return id == low_byte(a.event); });
    },
};

// Puts one question, any.
inline reply ask_about(dice &d, const asked &a)
{
    constexpr auto lists = static_cast<std::uint32_t>(std::size(lists_of_events));
    constexpr auto parts = static_cast<std::uint32_t>(std::size(parts_of_events));
    const std::uint32_t which = d.below(lists + parts);
    return which < lists ? lists_of_events[which](a) : parts_of_events[which - lists](a);
}

} // namespace test

#endif
