// SPDX-License-Identifier: LGPL-2.1-or-later
// Extended event descriptors: items and texts, also where their lengths lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/event_getters.h"

namespace {

using namespace test;

SiExtendEvtDesc extended(std::uint32_t language, std::uint32_t expected = ORVA_SI_OK,
                         std::uint8_t banner = in_schedule, std::uint32_t event_id = wanted)
{
    SiExtendEvtDesc desc{};
    EXPECT_EQ(Orva_Si_GetExtendEvtDescByID(network, stream, sid, event_id, language, &desc, banner),
              expected);
    return desc;
}

auto all_extended(std::uint32_t language, std::uint8_t banner = in_schedule)
{
    return [=](SiExtendEvtDesc *list, std::uint32_t *count) {
        return Orva_Si_GetAllExtendEvtDescByID(network, stream, sid, wanted, language, list, count,
                                               banner);
    };
}

struct same_extended {
    bool operator()(const SiExtendEvtDesc &a, const SiExtendEvtDesc &b) const
    {
        return a.descriptor_number == b.descriptor_number && text_of(a.text) == text_of(b.text);
    }
};
SiExtendEvtDesc part(std::uint8_t number, const std::string &text)
{
    SiExtendEvtDesc made{};
    made.descriptor_number = number;
    made.text.length = static_cast<std::uint16_t>(
        text.copy(reinterpret_cast<char *>(made.text.text), sizeof made.text.text));
    return made;
}

// The answer to "how many", whatever the count held before.
std::uint32_t how_many(std::uint32_t language, std::uint8_t banner = in_schedule)
{
    std::uint32_t count = 77;
    const std::uint32_t result =
        Orva_Si_GetExtendEvtDescCnt(network, stream, sid, wanted, language, &count, banner);
    EXPECT_EQ(result, count != 0 ? std::uint32_t{ORVA_SI_OK} : std::uint32_t{ORVA_SI_NO_DATA});
    return count;
}

// ---- Without a language function: first, because one that is installed stays

using WithoutLanguages = EventStore;

TEST_F(WithoutLanguages, ThatOfEveryExtendedEventIs0)
{
    ASSERT_EQ(SiLanguageFunc, nullptr);
    deliver(scheduled(wanted, {extended_event({.number = 1, .language = "fra", .text = "a"}),
                               extended_event({.number = 2, .language = "eng", .text = "b"})}));
    EXPECT_EQ(text_of(extended(0).text), "a");
    extended(1, 2);
    EXPECT_EQ(how_many(0), 2u);
    EXPECT_EQ(how_many(1), 0u);
    expect_events<SiExtendEvtDesc>(all_extended(0), {part(1, "a"), part(2, "b")}, same_extended{});
    expect_events<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(), {0, 0});
}

// ---- With one

using ExtendedEvent = EventQuery;

TEST_F(ExtendedEvent, TellsNumbersLanguageItemsAndText)
{
    deliver(scheduled(wanted, {extended_event({.number = 3,
                                               .last_number = 12,
                                               .language = "deu",
                                               .items = {{"Regie", "Wer"}, {"\x05Jahr", "1999"}},
                                               .text = "\x09"
                                                       "Ein Film"})}));
    const SiExtendEvtDesc desc = extended(german);
    EXPECT_EQ(desc.descriptor_number, 3);
    EXPECT_EQ(desc.last_descriptor_number, 12);
    EXPECT_STREQ(desc.lang, "deu");
    ASSERT_EQ(desc.item_count, 2u);
    EXPECT_EQ(text_of(desc.items[0].description), "Regie");
    EXPECT_EQ(text_of(desc.items[0].item), "Wer");
    EXPECT_EQ(text_of(desc.items[1].description), "Jahr");
    EXPECT_EQ(desc.items[1].description.charset_type, 5u);
    EXPECT_EQ(text_of(desc.items[1].item), "1999");
    EXPECT_EQ(text_of(desc.text), "Ein Film");
    EXPECT_EQ(desc.text.charset_type, 9u);
    EXPECT_TRUE(fake::logged(4, "event text : Ein Film\n")) << fake::log_text();
}

TEST_F(ExtendedEvent, NumbersAreFourBitsEach)
{
    deliver(scheduled(wanted, {extended_event({.number = 15, .last_number = 0})}));
    EXPECT_EQ(extended(english).descriptor_number, 15);
    EXPECT_EQ(extended(english).last_descriptor_number, 0);
}

TEST_F(ExtendedEvent, UpToEightItemsAreKept)
{
    for (const std::size_t items : {0u, 1u, 7u, 8u, 9u, 20u}) {
        SCOPED_TRACE(items);
        const std::string letters = "abcdefghijklmnopqrst";
        extended_event_fields fields{.text = "behind the items"};
        for (std::size_t i = 0; i < items; ++i)
            fields.items.push_back({std::string_view{letters}.substr(i, 1), "item"});
        deliver(scheduled(wanted, {extended_event(fields)}));
        const SiExtendEvtDesc desc = extended(english);
        ASSERT_EQ(desc.item_count, std::min<std::size_t>(items, SI_EXT_EVT_ITEMS));
        for (std::uint32_t i = 0; i < desc.item_count; ++i) {
            EXPECT_EQ(text_of(desc.items[i].description), letters.substr(i, 1));
            EXPECT_EQ(text_of(desc.items[i].item), "item");
        }
        EXPECT_EQ(text_of(desc.text), "behind the items");
    }
}

TEST_F(ExtendedEvent, EmptyItemsAreItems)
{
    deliver(scheduled(wanted, {extended_event({.items = {{"", ""}, {"", "b"}, {"c", ""}}})}));
    const SiExtendEvtDesc desc = extended(english);
    ASSERT_EQ(desc.item_count, 3u);
    EXPECT_EQ(desc.items[0].description.length + desc.items[0].item.length, 0);
    EXPECT_EQ(text_of(desc.items[1].item), "b");
    EXPECT_EQ(text_of(desc.items[2].description), "c");
    EXPECT_EQ(desc.text.length, 0);
}

TEST_F(ExtendedEvent, ARecordIsWrittenWhole)
{
    deliver(scheduled(wanted, {extended_event({.items = {{"a", "b"}}, .text = "c"})}));
    SiExtendEvtDesc desc;
    std::memset(&desc, 0xA5, sizeof desc);
    ASSERT_EQ(
        Orva_Si_GetExtendEvtDescByID(network, stream, sid, wanted, english, &desc, in_schedule),
        ORVA_SI_OK);
    EXPECT_EQ(desc.item_count, 1u);
    EXPECT_STREQ(desc.lang, "eng");
    EXPECT_EQ(text_of(desc.items[0].description), "a");
    EXPECT_EQ(desc.items[0].item.text[1], 0);
    EXPECT_EQ(text_of(desc.text), "c");
    EXPECT_EQ(desc.text.text[1], 0);
}

TEST_F(ExtendedEvent, ItemsThatRunOutOfTheirLoopEndIt)
{
    const auto with_items = [](const octets &items) {
        octets payload{0x00, 'e', 'n', 'g', static_cast<std::uint8_t>(items.size())};
        payload.insert(payload.end(), items.begin(), items.end());
        payload.insert(payload.end(), {4, 'T', 'e', 'x', 't'});
        return raw(0x4E, payload);
    };
    struct row {
        const char *why;
        octets items;
        std::uint32_t kept;
    };
    for (const row &r : {
             row{"description by one", {2, 'a'}, 0},
             row{"description by much", {255, 'a'}, 0},
             row{"no item length", {1, 'a'}, 0},
             row{"item by one", {1, 'a', 1}, 0},
             row{"item by much", {1, 'a', 255, 'b'}, 0},
             row{"second description", {1, 'a', 1, 'b', 3, 'c', 'd'}, 1},
             row{"second without item length", {1, 'a', 1, 'b', 2, 'c', 'd'}, 1},
             row{"second item", {1, 'a', 1, 'b', 1, 'c', 2, 'd'}, 1},
             row{"one stray byte", {1, 'a', 1, 'b', 0}, 1},
         }) {
        SCOPED_TRACE(r.why);
        deliver(scheduled(wanted, {with_items(r.items), raw(0x42, octets(100, 'z'))}));
        const SiExtendEvtDesc desc = extended(english);
        ASSERT_EQ(desc.item_count, r.kept);
        if (r.kept == 1) {
            EXPECT_EQ(text_of(desc.items[0].description), "a");
            EXPECT_EQ(text_of(desc.items[0].item), "b");
        }
        EXPECT_EQ(text_of(desc.text), "Text");
        EXPECT_EQ(how_many(english), 1u);
    }
}

TEST_F(ExtendedEvent, ALyingItemAtTheEndOfTheLargestSectionReadsNothingBehindIt)
{
    std::vector<octets> descriptors;
    for (int i = 0; i < 15; ++i)
        descriptors.push_back(raw(0x42, octets(255, 0)));
    descriptors.push_back(raw(0x42, octets(199, 0)));
    descriptors.push_back(raw(0x4E, {0, 'e', 'n', 'g', 2, 255, 'a', 0}));
    const octets section = scheduled(wanted, descriptors);
    ASSERT_EQ(section.size(), 4096u);
    deliver(section);
    EXPECT_EQ(extended(english).item_count, 0u);
    EXPECT_EQ(extended(english).text.length, 0);
}

TEST_F(ExtendedEvent, ADescriptorThatDoesNotAddUpIsPassedOver)
{
    const std::vector<octets> bad{
        raw(0x4E, {}),
        raw(0x4E, {0, 'e', 'n', 'g'}),
        raw(0x4E, {0, 'e', 'n', 'g', 0}),                // no text_length
        raw(0x4E, {0, 'e', 'n', 'g', 200, 0, 0, 0}),     // items run out
        raw(0x4E, {0, 'e', 'n', 'g', 2, 0, 0}),          // items up to the end
        raw(0x4E, {0, 'e', 'n', 'g', 0, 200, 'x'}),      // text runs out
        raw(0x4E, {0, 'e', 'n', 'g', 0, 2, 'x'}),        // by one
        raw(0x4E, {0, 'e', 'n', 'g', 0, 1, 'x', 'y'}),   // bytes behind the text
        raw(0x4E, {0, 'e', 'n', 'g', 2, 0, 0, 0, 0, 0}), // likewise
    };
    deliver(scheduled(wanted, bad));
    for (const std::uint32_t language : {english, unknown}) {
        extended(language, 2);
        EXPECT_EQ(how_many(language), 0u);
        expect_empty<SiExtendEvtDesc>(all_extended(language), ORVA_SI_NO_DATA);
    }
    expect_empty<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(), ORVA_SI_NO_DATA);

    std::vector<octets> with_good = bad;
    with_good.push_back(extended_event({.text = "Good"}));
    deliver(scheduled(wanted, with_good));
    EXPECT_EQ(text_of(extended(english).text), "Good");
    EXPECT_EQ(how_many(english), 1u);
    expect_events<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(), {english});
}

TEST_F(ExtendedEvent, TheFirstInTheLanguageCounts)
{
    deliver(scheduled(wanted, {extended_event({.number = 0, .language = "deu", .text = "Eins"}),
                               extended_event({.number = 1, .language = "eng", .text = "Two"}),
                               extended_event({.number = 0, .language = "eng", .text = "One"})}));
    EXPECT_EQ(text_of(extended(english).text), "Two");
    EXPECT_EQ(text_of(extended(german).text), "Eins");
    extended(french, 2);
}

TEST_F(ExtendedEvent, AllInTheLanguageComeInBroadcastOrder)
{
    deliver(scheduled(
        wanted, {extended_event({.number = 2, .last_number = 2, .language = "eng", .text = "c"}),
                 extended_event({.number = 0, .language = "deu", .text = "A"}),
                 extended_event({.number = 0, .last_number = 2, .language = "eng", .text = "a"}),
                 extended_event({.number = 1, .last_number = 2, .language = "eng", .text = "b"})}));
    expect_events<SiExtendEvtDesc>(all_extended(english),
                                   {part(2, "c"), part(0, "a"), part(1, "b")}, same_extended{});
    expect_events<SiExtendEvtDesc>(all_extended(german), {part(0, "A")}, same_extended{});
    expect_empty<SiExtendEvtDesc>(all_extended(french), ORVA_SI_NO_DATA);
    EXPECT_EQ(how_many(english), 3u);
    EXPECT_EQ(how_many(german), 1u);
    EXPECT_EQ(how_many(french), 0u);
    expect_events<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(),
                                 {english, german, english, english});
}

TEST_F(ExtendedEvent, ShortDescriptorsAreNotListed)
{
    deliver(scheduled(wanted, {short_event("eng", "a", "b")}));
    expect_empty<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(), ORVA_SI_NO_DATA);
    EXPECT_EQ(how_many(english), 0u);
    extended(english, 2);
}

TEST_F(ExtendedEvent, BannerAndScheduleAreApart)
{
    deliver(guide(0x4F, 0,
                  {{.id = wanted,
                    .descriptors = {extended_event({.language = "eng", .text = "now"}),
                                    extended_event({.language = "fra"})}}}));
    deliver(guide(0x60, 0, {{.id = wanted, .descriptors = {extended_event({.language = "deu"})}}}));
    EXPECT_EQ(text_of(extended(english, ORVA_SI_OK, in_banner).text), "now");
    extended(english, 2, in_schedule);
    extended(german, 2, in_banner);
    EXPECT_EQ(how_many(english, in_banner), 1u);
    EXPECT_EQ(how_many(english, in_schedule), 0u);
    EXPECT_EQ(ask<SiExtendEvtDesc>(all_extended(german, in_schedule), 2).count, 1u);
    EXPECT_EQ(ask<SiExtendEvtDesc>(all_extended(german, in_banner), 2).count, 0u);
    expect_events<std::uint32_t>(languages<Orva_Si_GetExtendEvtDescLangList>(wanted, in_banner),
                                 {english, french});
}

TEST_F(ExtendedEvent, TheLongestTextIsToldWhole)
{
    const std::string longest(249, 'y');
    deliver(scheduled(wanted, {extended_event({.text = longest})}));
    EXPECT_EQ(text_of(extended(english).text), longest);
    EXPECT_TRUE(fake::logged(4, "event text : " + longest + "\n")) << fake::log_text();
}

TEST_F(ExtendedEvent, ControlBytesDoNotReachTheLog)
{
    deliver(scheduled(wanted, {extended_event({.text = "a\nb\033[31m"})}));
    EXPECT_EQ(text_of(extended(english).text), "a\nb\033[31m");
    EXPECT_TRUE(fake::logged(4, "event text : a.b.[31m\n")) << fake::log_text();
}

} // namespace
