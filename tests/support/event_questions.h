// SPDX-License-Identifier: LGPL-2.1-or-later
// Every question about events, put about one event that answers them all: for the tests of what all
// of them have in common.
#ifndef TESTS_SUPPORT_EVENT_QUESTIONS_H
#define TESTS_SUPPORT_EVENT_QUESTIONS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/event_getters.h"

namespace test {

struct subject {
    std::uint32_t onid = network;
    std::uint32_t ts = stream;
    std::uint32_t service = sid;
    std::uint8_t banner = in_schedule;
    std::uint32_t section = 0; // for the one question that names a section
    std::uint32_t event = wanted;
};

struct answer {
    std::uint32_t result = ORVA_SI_OK;
    bool told = false; // something was written
};

template <class T, class Get>
answer listed(Get get)
{
    std::array<T, 8> room{};
    std::uint32_t count = room.size();
    const std::uint32_t result = get(room.data(), &count);
    EXPECT_LE(count, room.size());
    return {result, count != 0};
}

template <class T, class Get>
answer written(Get get)
{
    T before, value;
    std::memset(&before, 0xA5, sizeof before);
    std::memset(&value, 0xA5, sizeof value);
    const std::uint32_t result = get(&value);
    return {result, std::memcmp(&before, &value, sizeof value) != 0};
}

template <class Get>
answer counted(Get get)
{
    std::uint32_t count = 0;
    const std::uint32_t result = get(&count);
    return {result, count != 0};
}

template <class Get>
answer flagged(Get get)
{
    std::uint8_t flag = 0xA5;
    const std::uint32_t result = get(&flag);
    EXPECT_LE(flag, 1);
    return {result, flag == 1};
}

enum class place { chosen, schedule, banner }; // which sections a question reads

struct question {
    std::string name;
    place reads;
    std::uint32_t none; // the result when there is nothing
    std::uint32_t locked_out;
    std::function<answer(const subject &)> ask;

    bool is_about(std::uint8_t banner) const
    {
        return reads == place::chosen || (reads == place::banner) == (banner != 0);
    }
};

inline const std::vector<question> questions{
    {"GetOneServEvtIds", place::schedule, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint16_t>([&](auto *list, auto *count) {
             return Orva_Si_GetOneServEvtIds(s.onid, s.ts, s.service, list, count);
         });
     }},
    {"GetOneServEvtCount", place::schedule, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return counted([&](auto *count) {
             return Orva_Si_GetOneServEvtCount(s.onid, s.ts, s.service, count);
         });
     }},
    {"GetOneSectEvtIds", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint16_t>([&](auto *list, auto *count) {
             return Orva_Si_GetOneSectEvtIds(s.onid, s.ts, s.service, s.banner != 0 ? 0x4E : 0x50,
                                             s.section, list, count);
         });
     }},
    {"GetOneServBscEvtInfos", place::schedule, ORVA_SI_NOT_FOUND, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<SiBasicEvent>([&](auto *list, auto *count) {
             return Orva_Si_GetOneServBscEvtInfos(s.onid, s.ts, s.service, english, 0, 0, list,
                                                  count);
         });
     }},
    {"GetGetEventIDsByStartTime", place::schedule, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint16_t>([&](auto *list, auto *count) {
             return Orva_Si_GetGetEventIDsByStartTime(s.onid, s.ts, s.service, midnight, list,
                                                      count);
         });
     }},
    {"GetGetEventIDsByStartTimeAndEndTime", place::schedule, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint16_t>([&](auto *list, auto *count) {
             return Orva_Si_GetGetEventIDsByStartTimeAndEndTime(s.onid, s.ts, s.service, midnight,
                                                                midnight + 86400, list, count);
         });
     }},
    {"GetBnrEvtId", place::banner, ORVA_SI_NOT_FOUND, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<std::uint16_t>(
             [&](auto *id) { return Orva_Si_GetBnrEvtId(s.onid, s.ts, s.service, 0, id); });
     }},
    {"GetEvtStartUTCTime", place::chosen, ORVA_SI_FAILURE, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<std::uint32_t>([&](auto *time) {
             return Orva_Si_GetEvtStartUTCTime(s.onid, s.ts, s.service, s.event, time, s.banner);
         });
     }},
    {"GetEvtDuringTime", place::chosen, ORVA_SI_FAILURE, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<std::uint32_t>([&](auto *time) {
             return Orva_Si_GetEvtDuringTime(s.onid, s.ts, s.service, s.event, time, s.banner);
         });
     }},
    {"GetEvtNameByID", place::chosen, ORVA_SI_NULL_ARGUMENT, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<SiDvbString>([&](auto *name) {
             return Orva_Si_GetEvtNameByID(s.onid, s.ts, s.service, s.event, name, english,
                                           s.banner);
         });
     }},
    {"GetEvtNameLangList", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint32_t>([&](auto *list, auto *count) {
             return Orva_Si_GetEvtNameLangList(s.onid, s.ts, s.service, s.event, list, count,
                                               s.banner);
         });
     }},
    {"GetShortEvtDescByID", place::chosen, ORVA_SI_NULL_ARGUMENT, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<SiDvbString>([&](auto *text) {
             return Orva_Si_GetShortEvtDescByID(s.onid, s.ts, s.service, s.event, english, text,
                                                s.banner);
         });
     }},
    {"GetShortEvtDescLangList", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint32_t>([&](auto *list, auto *count) {
             return Orva_Si_GetShortEvtDescLangList(s.onid, s.ts, s.service, s.event, list, count,
                                                    s.banner);
         });
     }},
    {"GetExtendEvtDescByID", place::chosen, ORVA_SI_NULL_ARGUMENT, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<SiExtendEvtDesc>([&](auto *desc) {
             return Orva_Si_GetExtendEvtDescByID(s.onid, s.ts, s.service, s.event, english, desc,
                                                 s.banner);
         });
     }},
    {"GetAllExtendEvtDescByID", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<SiExtendEvtDesc>([&](auto *list, auto *count) {
             return Orva_Si_GetAllExtendEvtDescByID(s.onid, s.ts, s.service, s.event, english, list,
                                                    count, s.banner);
         });
     }},
    {"GetExtendEvtDescCnt", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return counted([&](auto *count) {
             return Orva_Si_GetExtendEvtDescCnt(s.onid, s.ts, s.service, s.event, english, count,
                                                s.banner);
         });
     }},
    {"GetExtendEvtDescLangList", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<std::uint32_t>([&](auto *list, auto *count) {
             return Orva_Si_GetExtendEvtDescLangList(s.onid, s.ts, s.service, s.event, list, count,
                                                     s.banner);
         });
     }},
    {"GetEvtContentDesc", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<SiEvtContent>([&](auto *list, auto *count) {
             return Orva_Si_GetEvtContentDesc(s.onid, s.ts, s.service, s.event, list, count,
                                              s.banner);
         });
     }},
    {"GetEvtComponentDesc", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<SiEvtComponent>([&](auto *list, auto *count) {
             return Orva_Si_GetEvtComponentDesc(s.onid, s.ts, s.service, s.event, list, count,
                                                s.banner);
         });
     }},
    {"GetEvtParentalRatingDesc", place::chosen, ORVA_SI_NO_DATA, ORVA_SI_FAILURE,
     [](const subject &s) {
         return listed<SiEvtRating>([&](auto *list, auto *count) {
             return Orva_Si_GetEvtParentalRatingDesc(s.onid, s.ts, s.service, s.event, list, count,
                                                     s.banner);
         });
     }},
    {"HaveEvtCAIdentifierDesc", place::chosen, ORVA_SI_OK, ORVA_SI_OK,
     [](const subject &s) {
         return flagged([&](auto *flag) {
             return Orva_Si_HaveEvtCAIdentifierDesc(s.onid, s.ts, s.service, s.event, flag,
                                                    s.banner);
         });
     }},
    {"EvtGetPfNameId", place::chosen, ORVA_SI_NOT_FOUND, ORVA_SI_FAILURE,
     [](const subject &s) {
         return written<std::uint8_t>([&](auto *id) {
             return Orva_Si_EvtGetPfNameId(s.onid, s.ts, s.service, s.event, 0x233A, id, s.banner);
         });
     }},
};

inline void expect_answers(const subject &s)
{
    for (const question &q : questions) {
        if (!q.is_about(s.banner))
            continue;
        const answer given = q.ask(s);
        EXPECT_EQ(given.result, ORVA_SI_OK) << q.name;
        EXPECT_TRUE(given.told) << q.name;
    }
}

inline void expect_nothing(const subject &s)
{
    for (const question &q : questions) {
        if (!q.is_about(s.banner))
            continue;
        const answer given = q.ask(s);
        EXPECT_EQ(given.result, q.none) << q.name;
        EXPECT_FALSE(given.told) << q.name;
    }
}

// ---- Sections

inline std::vector<octets> all_descriptors()
{
    return {short_event("eng", "Name", "Text"),
            extended_event({.items = {{"Role", "Player"}}, .text = "More"}),
            content({{1, 2, 3, 4}}),
            component(1, 3, 7),
            parental_rating({{"GBR", 4}}),
            ca_identifier({0x0500}),
            private_data_specifier(0x233A),
            preferred_name_identifier(5)};
}

inline octets full_section(std::uint8_t table_id, std::uint8_t number = 0,
                           std::vector<octets> before = {})
{
    std::ranges::copy(all_descriptors(), std::back_inserter(before));
    return guide(table_id, number, {{.id = wanted, .mjd = the_day, .descriptors = before}});
}

// Stuffing that takes up that many bytes, 2 or more.
inline std::vector<octets> stuffing(std::size_t bytes)
{
    std::vector<octets> made;
    for (std::size_t size = 0; bytes != 0; bytes -= size) {
        size = std::min<std::size_t>(bytes, 257);
        size -= bytes - size == 1 ? 1 : 0; // one byte is no descriptor
        made.push_back(raw(0x42, octets(size - 2, 0xEE)));
    }
    return made;
}
inline octets full_section_of(std::size_t size)
{
    return full_section(0x50, 0, stuffing(size - full_section(0x50).size()));
}

// Stores a section under the service of the tests, whatever its bytes say.
inline void deliver_as(const octets &section, std::uint8_t table_id, std::uint8_t number)
{
    deliver(section, network, stream, sid, table_id, number);
}

// A section that was changed like this answers nothing, and does not hide a good one behind it.
template <class Change>
void expect_passed_over(Change change, const std::string &why)
{
    SCOPED_TRACE(why);
    for (const std::uint8_t banner : {in_schedule, in_banner}) {
        Orva_Si_EraseAllEitRawData();
        const std::uint8_t table_id = banner != 0 ? 0x4E : 0x50;
        deliver_as(change(full_section(table_id)), table_id, 0);
        ASSERT_EQ(records().size(), 1u);
        expect_nothing({.banner = banner});
        deliver(full_section(table_id, 1));
        expect_answers({.banner = banner, .section = 1});
    }
}

} // namespace test

#endif
