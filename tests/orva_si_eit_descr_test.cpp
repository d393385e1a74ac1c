// SPDX-License-Identifier: LGPL-2.1-or-later
// What else the descriptors of an event say: genres, components, ratings, conditional access, and
// the identifier of its preferred name.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/event_getters.h"

namespace {

using namespace test;

auto genres(std::uint8_t banner = in_schedule)
{
    return [=](SiEvtContent *list, std::uint32_t *count) {
        return Orva_Si_GetEvtContentDesc(network, stream, sid, wanted, list, count, banner);
    };
}
auto components(std::uint8_t banner = in_schedule)
{
    return [=](SiEvtComponent *list, std::uint32_t *count) {
        return Orva_Si_GetEvtComponentDesc(network, stream, sid, wanted, list, count, banner);
    };
}
auto ratings(std::uint8_t banner = in_schedule)
{
    return [=](SiEvtRating *list, std::uint32_t *count) {
        return Orva_Si_GetEvtParentalRatingDesc(network, stream, sid, wanted, list, count, banner);
    };
}

struct same_genre {
    bool operator()(const SiEvtContent &a, const SiEvtContent &b) const
    {
        return a.content_nibble_level_1 == b.content_nibble_level_1 &&
               a.content_nibble_level_2 == b.content_nibble_level_2 &&
               a.user_nibble_1 == b.user_nibble_1 && a.user_nibble_2 == b.user_nibble_2;
    }
};
struct same_rating {
    bool operator()(const SiEvtRating &a, const SiEvtRating &b) const
    {
        return std::memcmp(a.country_code, b.country_code, 4) == 0 && a.rating == b.rating;
    }
};
struct same_tag {
    bool operator()(const SiEvtComponent &a, const SiEvtComponent &b) const
    {
        return a.component_tag == b.component_tag;
    }
};
SiEvtComponent with_tag(std::uint8_t tag)
{
    SiEvtComponent made{};
    made.component_tag = tag;
    return made;
}

// ---- Genres

using EventContent = EventQuery;

TEST_F(EventContent, IsOneRecordForEachEntry)
{
    deliver(scheduled(wanted, {content({{1, 2, 3, 4}, {15, 0, 0, 15}}), raw(0x42, {1}), content({}),
                               content({{0, 9, 8, 0}})}));
    expect_events<SiEvtContent>(genres(), {{1, 2, 3, 4}, {15, 0, 0, 15}, {0, 9, 8, 0}},
                                same_genre{});
}

TEST_F(EventContent, IsTold)
{
    deliver(scheduled(wanted, {content({{1, 2, 3, 4}, {5, 6, 7, 8}})}));
    ask<SiEvtContent>(genres(), 2);
    EXPECT_TRUE(fake::logged(4, "the event_id = 0x777 content[0] levelone = 1, leveltwo = 2 "
                                "userlevelone = 3, userleveltwo = 4\n"))
        << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "the event_id = 0x777 content[1] levelone = 5, leveltwo = 6 "
                                "userlevelone = 7, userleveltwo = 8\n"));
}

TEST_F(EventContent, HalfAnEntrySpoilsItsDescriptor)
{
    deliver(scheduled(wanted, {raw(0x54, {0x12, 0x34, 0x56}), raw(0x54, {0x11})}));
    expect_empty<SiEvtContent>(genres(), ORVA_SI_NO_DATA);
    deliver(scheduled(wanted, {raw(0x54, {0x12, 0x34, 0x56}), content({{7, 0, 0, 0}})}));
    expect_events<SiEvtContent>(genres(), {{7, 0, 0, 0}}, same_genre{});
}

TEST_F(EventContent, AFullDescriptorHas127Entries)
{
    std::vector<content_genre> listed;
    std::vector<SiEvtContent> expected;
    for (std::uint8_t i = 0; i < 127; ++i) {
        const auto level_1 = static_cast<std::uint8_t>(i >> 4);
        const auto level_2 = static_cast<std::uint8_t>(i & 0xF);
        listed.push_back({level_1, level_2, level_2, level_1});
        expected.push_back({level_1, level_2, level_2, level_1});
    }
    deliver(scheduled(wanted, {content(listed)}));
    expect_list<SiEvtContent>(genres(), expected, "", same_genre{});
}

TEST_F(EventContent, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0, {{.id = wanted, .descriptors = {content({{1, 1, 1, 1}})}}}));
    deliver(guide(0x50, 0, {{.id = wanted, .descriptors = {content({{2, 2, 2, 2}})}}}));
    expect_events<SiEvtContent>(genres(in_banner), {{1, 1, 1, 1}}, same_genre{});
    expect_events<SiEvtContent>(genres(in_schedule), {{2, 2, 2, 2}}, same_genre{});
}

TEST_F(EventContent, OfAnEventWithoutThereIsNoData)
{
    deliver(guide(0x50, 0,
                  {{.id = wanted, .descriptors = {content({})}},
                   {.id = 1, .descriptors = {content({{1, 1, 1, 1}})}}}));
    expect_empty<SiEvtContent>(genres(), ORVA_SI_NO_DATA);
}

// ---- Components

using EventComponent = EventQuery;

TEST_F(EventComponent, TellsKindTagLanguageAndText)
{
    deliver(scheduled(wanted, {component(0x2, 0x03, 0xFE, "deu", "\x05Stereo"),
                               component(0xF, 0xFF, 0, "qaa", "")}));
    const auto answer = ask<SiEvtComponent>(components(), 2);
    ASSERT_EQ(answer.result, ORVA_SI_OK);
    ASSERT_EQ(answer.count, 2u);
    const SiEvtComponent &first = answer.items[0], &second = answer.items[1];
    EXPECT_EQ(first.stream_content, 2);
    EXPECT_EQ(first.component_type, 3);
    EXPECT_EQ(first.component_tag, 0xFE);
    EXPECT_STREQ(first.lang, "deu");
    EXPECT_EQ(text_of(first.text), "Stereo");
    EXPECT_EQ(first.text.charset_type, 5u);
    EXPECT_EQ(second.stream_content, 0xF);
    EXPECT_EQ(second.component_type, 0xFF);
    EXPECT_EQ(second.component_tag, 0);
    EXPECT_STREQ(second.lang, "qaa");
    EXPECT_EQ(second.text.length, 0);
}

TEST_F(EventComponent, TheUpperBitsBesideStreamContentAreNotTold)
{
    for (const unsigned upper : {0x00u, 0xA0u, 0xF0u}) {
        const auto kind = static_cast<std::uint8_t>(upper | 9u);
        deliver(scheduled(wanted, {raw(0x50, {kind, 5, 6, 'e', 'n', 'g', 'H', 'D'})}));
        const auto answer = ask<SiEvtComponent>(components(), 1);
        ASSERT_EQ(answer.count, 1u);
        EXPECT_EQ(answer.items[0].stream_content, 9) << upper;
        EXPECT_EQ(text_of(answer.items[0].text), "HD");
    }
}

TEST_F(EventComponent, ARecordIsWrittenWhole)
{
    deliver(scheduled(wanted, {component(1, 2, 3, "eng", "")}));
    SiEvtComponent record;
    std::memset(&record, 0xA5, sizeof record);
    std::uint32_t count = 1;
    ASSERT_EQ(components()(&record, &count), ORVA_SI_OK);
    EXPECT_STREQ(record.lang, "eng");
    EXPECT_EQ(record.text.length, 0);
    EXPECT_EQ(record.text.text[0], 0);
}

TEST_F(EventComponent, TheLongestTextComesWhole)
{
    const std::string longest(249, 'x');
    deliver(scheduled(wanted, {component(1, 1, 1, "eng", longest)}));
    const auto answer = ask<SiEvtComponent>(components(), 1);
    ASSERT_EQ(answer.count, 1u);
    EXPECT_EQ(text_of(answer.items[0].text), longest);
}

TEST_F(EventComponent, AllOfAnEventAreListed)
{
    deliver(
        scheduled(wanted, {component(1, 1, 30), content({{1, 1, 1, 1}}), component(2, 1, 10),
                           raw(0x50, {1, 2, 3, 'e', 'n'}), raw(0x50, {}), component(2, 1, 20)}));
    expect_events<SiEvtComponent>(components(), {with_tag(30), with_tag(10), with_tag(20)},
                                  same_tag{});
}

TEST_F(EventComponent, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0, {{.id = wanted, .descriptors = {component(1, 1, 1)}}}));
    deliver(guide(0x50, 0, {{.id = wanted, .descriptors = {component(1, 1, 2)}}}));
    expect_events<SiEvtComponent>(components(in_banner), {with_tag(1)}, same_tag{});
    expect_events<SiEvtComponent>(components(in_schedule), {with_tag(2)}, same_tag{});
}

TEST_F(EventComponent, OfAnEventWithoutThereIsNoData)
{
    deliver(guide(0x50, 0,
                  {{.id = wanted, .descriptors = {raw(0x50, {1, 2, 3, 'e', 'n'})}},
                   {.id = 1, .descriptors = {component(1, 1)}}}));
    expect_empty<SiEvtComponent>(components(), ORVA_SI_NO_DATA);
}

// ---- Ratings

using EventRating = EventQuery;

TEST_F(EventRating, IsOneRecordForEachEntry)
{
    deliver(scheduled(wanted, {parental_rating({{"GBR", 0}, {"FRA", 15}}), parental_rating({}),
                               raw(0x42, {}), parental_rating({{"fra", 255}})}));
    expect_events<SiEvtRating>(ratings(), {{"GBR", 0}, {"FRA", 15}, {"fra", 255}}, same_rating{});
}

TEST_F(EventRating, TheCountryIsTerminated)
{
    deliver(scheduled(wanted, {parental_rating({{"DEU", 9}})}));
    SiEvtRating record;
    std::memset(&record, 0xA5, sizeof record);
    std::uint32_t count = 1;
    ASSERT_EQ(ratings()(&record, &count), ORVA_SI_OK);
    EXPECT_EQ(std::memcmp(record.country_code, "DEU", 4), 0);
    EXPECT_EQ(record.rating, 9);
}

TEST_F(EventRating, PartOfAnEntrySpoilsItsDescriptor)
{
    const octets five = raw(0x55, {'G', 'B', 'R', 4, 'F'});
    deliver(scheduled(wanted, {five, raw(0x55, {'G', 'B', 'R'})}));
    expect_empty<SiEvtRating>(ratings(), ORVA_SI_NO_DATA);
    deliver(scheduled(wanted, {five, parental_rating({{"IRL", 3}})}));
    expect_events<SiEvtRating>(ratings(), {{"IRL", 3}}, same_rating{});
}

TEST_F(EventRating, BannerAndScheduleAreApart)
{
    deliver(guide(0x4F, 0, {{.id = wanted, .descriptors = {parental_rating({{"GBR", 1}})}}}));
    deliver(guide(0x6F, 0, {{.id = wanted, .descriptors = {parental_rating({{"GBR", 2}})}}}));
    expect_events<SiEvtRating>(ratings(in_banner), {{"GBR", 1}}, same_rating{});
    expect_events<SiEvtRating>(ratings(in_schedule), {{"GBR", 2}}, same_rating{});
}

TEST_F(EventRating, OfAnEventWithoutThereIsNoData)
{
    deliver(guide(0x50, 0,
                  {{.id = wanted, .descriptors = {parental_rating({})}},
                   {.id = 1, .descriptors = {parental_rating({{"GBR", 1}})}}}));
    expect_empty<SiEvtRating>(ratings(), ORVA_SI_NO_DATA);
}

// ---- Conditional access

class EventCa : public EventQuery {
protected:
    static unsigned has_ca(std::uint32_t event_id, std::uint8_t banner = in_schedule)
    {
        std::uint8_t flag = 0xA5;
        EXPECT_EQ(Orva_Si_HaveEvtCAIdentifierDesc(network, stream, sid, event_id, &flag, banner),
                  ORVA_SI_OK);
        return flag;
    }
};

TEST_F(EventCa, IsWhereTheDescriptorIs)
{
    deliver(guide(0x50, 0,
                  {{.id = 1, .descriptors = {content({}), ca_identifier({0x0500, 0x0B00})}},
                   {.id = 2, .free_ca_mode = true, .descriptors = {content({{1, 1, 1, 1}})}},
                   {.id = 3},
                   {.id = 4, .descriptors = {ca(0x0500, 0x100)}}}));
    EXPECT_EQ(has_ca(1), 1u);
    EXPECT_EQ(has_ca(2), 0u);
    EXPECT_EQ(has_ca(3), 0u);
    EXPECT_EQ(has_ca(4), 0u);
    EXPECT_EQ(has_ca(5), 0u);
}

TEST_F(EventCa, ADescriptorWithoutSystemsIsOneToo)
{
    deliver(scheduled(wanted, {ca_identifier({})}));
    EXPECT_EQ(has_ca(wanted), 1u);
}

TEST_F(EventCa, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0, {{.id = 1, .descriptors = {ca_identifier({1})}}, {.id = 2}}));
    deliver(guide(0x50, 0, {{.id = 1}, {.id = 2, .descriptors = {ca_identifier({1})}}}));
    EXPECT_EQ(has_ca(1, in_banner), 1u);
    EXPECT_EQ(has_ca(2, in_banner), 0u);
    EXPECT_EQ(has_ca(1, in_schedule), 0u);
    EXPECT_EQ(has_ca(2, in_schedule), 1u);
}

// ---- Preferred names

class EventPreferredName : public EventQuery {
protected:
    static constexpr unsigned none = 0xFFFF;
    static constexpr std::uint32_t uk = 0x0000233A, other = 0x00000028;

    static unsigned name_id(std::uint32_t pdsd, std::uint8_t banner = in_schedule)
    {
        std::uint8_t id = 0xA5;
        const std::uint32_t result =
            Orva_Si_EvtGetPfNameId(network, stream, sid, wanted, pdsd, &id, banner);
        if (result == ORVA_SI_OK)
            return id;
        EXPECT_EQ(result, ORVA_SI_NOT_FOUND);
        EXPECT_EQ(id, 0xA5);
        return none;
    }
};

TEST_F(EventPreferredName, IsFoundBehindItsSpecifier)
{
    deliver(scheduled(wanted, {short_event("eng", "a", "b"), private_data_specifier(uk),
                               content({{1, 1, 1, 1}}), preferred_name_identifier(200)}));
    EXPECT_EQ(name_id(uk), 200u);
    EXPECT_TRUE(fake::logged(4, "the pf_name_id is found and value = 200\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(4, "get the match orig_id = 0x506\n")) << fake::log_text();
    EXPECT_EQ(name_id(0), 200u);
    EXPECT_EQ(name_id(other), none);
    EXPECT_EQ(name_id(0x1000233A), none);
}

TEST_F(EventPreferredName, AShortNetworkIdIsToldInFourPlaces)
{
    deliver(make(eit{
        .table_id = 0x50,
        .original_network = 7,
        .events = {{.id = 1,
                    .descriptors = {private_data_specifier(uk), preferred_name_identifier(2)}}}}));
    std::uint8_t id = 0;
    EXPECT_EQ(Orva_Si_EvtGetPfNameId(7, 1, 1, 1, uk, &id, in_schedule), ORVA_SI_OK);
    EXPECT_EQ(id, 2);
    EXPECT_TRUE(fake::logged(4, "get the match orig_id =  0x7\n")) << fake::log_text();
}

TEST_F(EventPreferredName, NeedsASpecifierBeforeIt)
{
    deliver(scheduled(wanted, {preferred_name_identifier(1), private_data_specifier(uk)}));
    EXPECT_EQ(name_id(uk), none);
    EXPECT_EQ(name_id(0), none);
    deliver(scheduled(wanted, {preferred_name_identifier(1)}));
    EXPECT_EQ(name_id(uk), none);
    EXPECT_EQ(name_id(0), none);
    deliver(scheduled(wanted, {preferred_name_identifier(1), private_data_specifier(uk),
                               preferred_name_identifier(2)}));
    EXPECT_EQ(name_id(uk), 2u);
    EXPECT_EQ(name_id(0), 2u);
}

TEST_F(EventPreferredName, ASpecifierHoldsInItsEventOnly)
{
    deliver(guide(0x50, 0,
                  {{.id = 1, .descriptors = {private_data_specifier(uk)}},
                   {.id = wanted, .descriptors = {preferred_name_identifier(9)}}}));
    EXPECT_EQ(name_id(uk), none);
    EXPECT_EQ(name_id(0), none);
}

TEST_F(EventPreferredName, IsFoundBehindASecondSpecifier)
{
    deliver(scheduled(wanted, {private_data_specifier(other), preferred_name_identifier(1),
                               private_data_specifier(uk), preferred_name_identifier(2)}));
    EXPECT_EQ(name_id(other), 1u);
    EXPECT_EQ(name_id(uk), 2u);
    EXPECT_EQ(name_id(0), 1u);
}

TEST_F(EventPreferredName, ASpecifierOfAnotherLengthIsNone)
{
    deliver(scheduled(wanted, {raw(0x5F, {0, 0, 0x23}), raw(0x5F, {0, 0, 0x23, 0x3A, 0}),
                               raw(0x5F, {}), preferred_name_identifier(1)}));
    EXPECT_EQ(name_id(uk), none);
    EXPECT_EQ(name_id(0), none);
}

TEST_F(EventPreferredName, ADescriptorWithoutAByteIsPassedOver)
{
    deliver(scheduled(wanted, {private_data_specifier(uk), raw(0x85, {})}));
    EXPECT_EQ(name_id(uk), none);
    deliver(scheduled(wanted, {private_data_specifier(uk), raw(0x85, {}), raw(0x85, {7, 8, 9})}));
    EXPECT_EQ(name_id(uk), 7u);
}

TEST_F(EventPreferredName, AnEventWithoutOneIsTold)
{
    deliver(scheduled(wanted, {private_data_specifier(uk), content({})}));
    EXPECT_EQ(name_id(uk), none);
    EXPECT_TRUE(fake::logged("the pf_name_id_descriptor is null\n")) << fake::log_text();
}

TEST_F(EventPreferredName, TheSectionMustBeOfTheNetwork)
{
    const auto of_network = [](std::uint16_t original_network, std::uint8_t id) {
        return make(eit{.table_id = 0x50,
                        .service = sid,
                        .ts = stream,
                        .original_network = original_network,
                        .events = {{.id = wanted,
                                    .descriptors = {private_data_specifier(uk),
                                                    preferred_name_identifier(id)}}}});
    };
    deliver(of_network(network + 1, 1), network, stream, sid, 0x50, 0);
    EXPECT_EQ(name_id(uk), none);
    EXPECT_TRUE(fake::logged(4, "get a not matched original network!\n")) << fake::log_text();
    deliver(of_network(network, 2), network, stream, sid, 0x50, 1);
    EXPECT_EQ(name_id(uk), 2u);
    EXPECT_TRUE(fake::logged(4, "get the match orig_id = 0x506\n"));
}

TEST_F(EventPreferredName, BannerAndScheduleAreApart)
{
    deliver(guide(0x4E, 0,
                  {{.id = wanted,
                    .descriptors = {private_data_specifier(uk), preferred_name_identifier(1)}}}));
    deliver(
        guide(0x50, 0,
              {{.id = wanted,
                .descriptors = {private_data_specifier(other), preferred_name_identifier(2)}}}));
    EXPECT_EQ(name_id(0, in_banner), 1u);
    EXPECT_EQ(name_id(0, in_schedule), 2u);
    EXPECT_EQ(name_id(uk, in_schedule), none);
    EXPECT_EQ(name_id(other, in_banner), none);
}

} // namespace
