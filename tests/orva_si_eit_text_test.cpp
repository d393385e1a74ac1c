// SPDX-License-Identifier: LGPL-2.1-or-later
// Short event descriptors: names and descriptions of an event, and their languages.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/event_getters.h"

namespace {

using namespace test;

using numbers = std::vector<std::uint32_t>;

// A text that was found, or why none was.
struct text_answer {
    std::uint32_t result;
    SiDvbString text;
};
bool is_untouched(const SiDvbString &text)
{
    SiDvbString before;
    std::memset(&before, 0xA5, sizeof before);
    return std::memcmp(&before, &text, sizeof text) == 0;
}

text_answer name_of(std::uint32_t language, std::uint8_t banner = in_schedule,
                    std::uint32_t event_id = wanted)
{
    text_answer answer{};
    std::memset(&answer.text, 0xA5, sizeof answer.text);
    answer.result =
        Orva_Si_GetEvtNameByID(network, stream, sid, event_id, &answer.text, language, banner);
    return answer;
}
text_answer description_of(std::uint32_t language, std::uint8_t banner = in_schedule,
                           std::uint32_t event_id = wanted)
{
    text_answer answer{};
    std::memset(&answer.text, 0xA5, sizeof answer.text);
    answer.result =
        Orva_Si_GetShortEvtDescByID(network, stream, sid, event_id, language, &answer.text, banner);
    return answer;
}
void expect_text(const text_answer &answer, const std::string &expected)
{
    EXPECT_EQ(answer.result, ORVA_SI_OK);
    EXPECT_EQ(text_of(answer.text), expected);
}
// Not found is 2, as a missing argument is.
void expect_no_text(const text_answer &answer)
{
    EXPECT_EQ(answer.result, 2u);
    EXPECT_TRUE(is_untouched(answer.text));
}

// ---- Without a language function: first, because one that is installed stays

using WithoutLanguages = EventStore;

TEST_F(WithoutLanguages, ThatOfEveryShortEventIs0)
{
    ASSERT_EQ(SiLanguageFunc, nullptr);
    deliver(scheduled(wanted,
                      {short_event("deu", "Erster", "eins"), short_event("eng", "Second", "")}));
    expect_text(name_of(0), "Erster");
    expect_text(description_of(0), "eins");
    expect_no_text(name_of(1));
    expect_no_text(description_of(german));
    for (const auto &list : {Orva_Si_GetEvtNameLangList, Orva_Si_GetShortEvtDescLangList}) {
        std::uint32_t room[3] = {7, 7, 7};
        std::uint32_t count = 3;
        EXPECT_EQ(list(network, stream, sid, wanted, room, &count, in_schedule), ORVA_SI_OK);
        EXPECT_EQ(numbers(room, room + 3), (numbers{0, 0, 7}));
    }
    SiBasicEvent basic{};
    std::uint32_t count = 1;
    EXPECT_EQ(Orva_Si_GetOneServBscEvtInfos(network, stream, sid, 0, 0, 0, &basic, &count),
              ORVA_SI_OK);
    EXPECT_EQ(text_of(basic.event_name), "Erster");
}

// ---- Short event descriptors

using ShortEvent = EventQuery;

TEST_F(ShortEvent, NameAndTextAreThoseInTheLanguage)
{
    deliver(scheduled(wanted, {short_event("eng", "News", "What happened"),
                               short_event("deu", "Nachrichten", "Was geschah")}));
    expect_text(name_of(english), "News");
    expect_text(name_of(german), "Nachrichten");
    expect_text(description_of(english), "What happened");
    expect_text(description_of(german), "Was geschah");
    expect_no_text(name_of(french));
    expect_no_text(description_of(french));
    expect_no_text(name_of(unknown));
    expect_no_text(description_of(unknown));
}

TEST_F(ShortEvent, ALanguageWithoutANumberIs0)
{
    deliver(scheduled(wanted, {short_event("eng", "News", "What happened"),
                               short_event("spa", "Noticias", "Lo que pas\xF3")}));
    expect_text(name_of(unknown), "Noticias");
    expect_text(description_of(unknown), "Lo que pas\xF3");
}

TEST_F(ShortEvent, TheWholeNumberOfALanguageCounts)
{
    deliver(scheduled(wanted, {short_event("eng", "News", "Text")}));
    expect_no_text(name_of(english & 0xFFFF));
    expect_no_text(description_of(english & 0xFFFF));
}

TEST_F(ShortEvent, TheFirstInTheLanguageCounts)
{
    deliver(scheduled(wanted,
                      {raw(0x42, {1}), short_event("deu", "Erster", "1"),
                       short_event("eng", "First", "one"), short_event("eng", "Second", "two")}));
    expect_text(name_of(english), "First");
    expect_text(description_of(english), "one");
}

TEST_F(ShortEvent, TheSelectorOfTheCharacterTableIsSplitOff)
{
    deliver(scheduled(wanted, {short_event("eng", "\x05Name", "\x10\x01\x02Text")}));
    const auto name = name_of(english);
    expect_text(name, "Name");
    EXPECT_EQ(name.text.charset_type, 5u);
    const auto text = description_of(english);
    expect_text(text, "\x01\x02Text");
    EXPECT_EQ(text.text.charset_type, 0x10u);
}

TEST_F(ShortEvent, EmptyTextsAreFound)
{
    deliver(scheduled(wanted, {short_event("eng", "", "")}));
    expect_text(name_of(english), "");
    expect_text(description_of(english), "");
    EXPECT_EQ(name_of(english).text.charset_type, 0u);
}

TEST_F(ShortEvent, TheLongestTextsComeWhole)
{
    const std::string longest(250, 'x');
    deliver(guide(0x50, 0,
                  {{.id = 1, .descriptors = {short_event("eng", longest, "")}},
                   {.id = 2, .descriptors = {short_event("eng", "", longest)}}}));
    expect_text(name_of(english, in_schedule, 1), longest);
    expect_text(description_of(english, in_schedule, 2), longest);
    EXPECT_TRUE(fake::logged(4, "the event name = " + longest + " len = 250 type = 120\n"))
        << fake::log_text();
}

TEST_F(ShortEvent, ADescriptorOfAnotherLengthThanItsTextsIsPassedOver)
{
    const octets shorter = raw(0x4D, {'e', 'n', 'g', 1, 'A', 2, 'b'});
    const octets longer = raw(0x4D, {'e', 'n', 'g', 1, 'A', 1, 'b', 'c'});
    const octets no_text = raw(0x4D, {'e', 'n', 'g', 1, 'A'});
    const octets name_runs_out = raw(0x4D, {'e', 'n', 'g', 200, 'A', 0});
    const octets only_a_language = raw(0x4D, {'e', 'n', 'g'});
    const octets nothing = raw(0x4D, {});
    deliver(guide(
        0x50, 0,
        {{.id = wanted,
          .descriptors = {shorter, longer, no_text, name_runs_out, only_a_language, nothing,
                          short_event("eng", "Good", "Text")}},
         {.id = 1,
          .descriptors = {shorter, longer, no_text, name_runs_out, only_a_language, nothing}}}));
    expect_text(name_of(english), "Good");
    expect_text(description_of(english), "Text");
    expect_no_text(name_of(english, in_schedule, 1));
    expect_no_text(description_of(english, in_schedule, 1));
    for (const std::uint32_t language : {unknown, english}) {
        expect_no_text(name_of(language, in_schedule, 1));
        expect_no_text(description_of(language, in_schedule, 1));
    }
    expect_events<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(), {english});
    expect_events<std::uint32_t>(languages<Orva_Si_GetShortEvtDescLangList>(), {english});
    expect_empty<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(1), ORVA_SI_NO_DATA);
    expect_empty<std::uint32_t>(languages<Orva_Si_GetShortEvtDescLangList>(1), ORVA_SI_NO_DATA);
}

TEST_F(ShortEvent, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0,
                  {{.id = wanted, .descriptors = {short_event("eng", "Now", "in the banner")}}}));
    deliver(guide(0x50, 0,
                  {{.id = wanted,
                    .descriptors = {short_event("eng", "Later", "in the schedule"),
                                    short_event("deu", "", "")}}}));
    expect_text(name_of(english, in_banner), "Now");
    expect_text(name_of(english, in_schedule), "Later");
    expect_text(description_of(english, in_banner), "in the banner");
    expect_text(description_of(english, in_schedule), "in the schedule");
    expect_no_text(name_of(german, in_banner));
    expect_events<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(wanted, in_banner),
                                 {english});
    expect_events<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(wanted, in_schedule),
                                 {english, german});
}

TEST_F(ShortEvent, AnotherEventsNameIsNotTaken)
{
    deliver(guide(0x50, 0,
                  {{.id = wanted}, {.id = 1, .descriptors = {short_event("eng", "Other", "")}}}));
    expect_no_text(name_of(english));
    expect_no_text(description_of(english));
    expect_no_text(name_of(english, in_schedule, 2));
}

TEST_F(ShortEvent, LanguagesAreListedInBroadcastOrder)
{
    deliver(
        scheduled(wanted, {short_event("fra", "a", ""), extended_event({.language = "spa"}),
                           short_event("deu", "b", ""), raw(0x42, {}), short_event("xyz", "c", ""),
                           short_event("deu", "d", ""), short_event("eng", "e", "")}));
    const numbers expected{french, german, unknown, german, english};
    expect_events<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(), expected);
    expect_events<std::uint32_t>(languages<Orva_Si_GetShortEvtDescLangList>(), expected);
}

TEST_F(ShortEvent, ALanguageWithoutANumberClearsItsPlaceInTheList)
{
    deliver(scheduled(wanted, {short_event("xyz", "a", "")}));
    for (const auto &list : {Orva_Si_GetEvtNameLangList, Orva_Si_GetShortEvtDescLangList}) {
        std::uint32_t room[2] = {0xA5A5A5A5, 0xA5A5A5A5};
        std::uint32_t count = 2;
        EXPECT_EQ(list(network, stream, sid, wanted, room, &count, in_schedule), ORVA_SI_OK);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(room[0], 0u);
        EXPECT_EQ(room[1], 0xA5A5A5A5);
    }
}

TEST_F(ShortEvent, WithoutAnyThereAreNoLanguages)
{
    deliver(scheduled(wanted, {extended_event({}), component(1, 1)}));
    expect_empty<std::uint32_t>(languages<Orva_Si_GetEvtNameLangList>(), ORVA_SI_NO_DATA);
    expect_empty<std::uint32_t>(languages<Orva_Si_GetShortEvtDescLangList>(), ORVA_SI_NO_DATA);
}

TEST_F(ShortEvent, TheNameIsTold)
{
    deliver(scheduled(0x1234, {short_event("deu", "Nachrichten", "")}));
    expect_text(name_of(german, in_schedule, 0x1234), "Nachrichten");
    EXPECT_TRUE(fake::logged(4, "the event name = Nachrichten len = 11 type = 78\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "found the languageid = 2, and event id = 0x1234\n"));
}

TEST_F(ShortEvent, ControlBytesDoNotReachTheLog)
{
    const std::string name = "a\033[2J\nb\x9B\x7F";
    deliver(scheduled(wanted, {short_event("eng", name, "")}));
    expect_text(name_of(english), name);
    EXPECT_TRUE(fake::logged(4, "the event name = a.[2J.b.. len = 9 type = 97\n"))
        << fake::log_text();
}

} // namespace
