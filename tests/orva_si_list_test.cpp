// SPDX-License-Identifier: LGPL-2.1-or-later
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fakes/allocation.h"
#include "orva_si_list.h"
#include "orva_si_loops.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class List : public testing::Test {
protected:
    List() { EXPECT_EQ(si_list_init(&list), 0); }
    ~List() override
    {
        while (si_list_eol(list, 0) == 0)
            si_list_remove(list, 0);
        EXPECT_EQ(si_list_uninit(list), 0);
    }
    List(const List &) = delete;
    List &operator=(const List &) = delete;

    void fill(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            si_list_add(list, &things.at(i), -1);
    }

    // Indices into things, read by position.
    std::vector<std::ptrdiff_t> contents() const
    {
        std::vector<std::ptrdiff_t> found;
        for (std::int32_t i = 0; si_list_eol(list, i) == 0; ++i)
            found.push_back(static_cast<int *>(si_list_get(list, i)) - things.data());
        return found;
    }

    std::array<int, 64> things{};
    si_list *list = nullptr;
};

std::int32_t same_number(const void *key, const void *element)
{
    return *static_cast<const int *>(key) == *static_cast<const int *>(element) ? 0 : -1;
}

TEST_F(List, IsEmptyWhenMade)
{
    EXPECT_EQ(list->nb_elt, 0);
    EXPECT_EQ(si_list_eol(list, 0), 1);
    EXPECT_EQ(si_list_get(list, 0), nullptr);
}

TEST(ListInit, FailsWithoutMemoryAndStoresNull)
{
    si_list unused{};
    si_list *list = &unused;
    fake::fail_allocation(1);
    EXPECT_EQ(si_list_init(&list), -1);
    EXPECT_EQ(list, nullptr);
}

TEST(ListInit, RefusesANullAddress)
{
    EXPECT_EQ(si_list_init(nullptr), -1);
}

TEST(ListNull, IsAnsweredByEveryOperation)
{
    int thing = 0;
    EXPECT_EQ(si_list_uninit(nullptr), -1);
    EXPECT_EQ(si_list_add(nullptr, &thing, 0), -1);
    EXPECT_EQ(si_list_get(nullptr, 0), nullptr);
    EXPECT_EQ(si_list_eol(nullptr, 0), 1);
    EXPECT_EQ(si_list_remove(nullptr, 0), -1);
    EXPECT_EQ(si_list_find(nullptr, &thing, same_number), nullptr);
    EXPECT_EQ(si_list_get_pos(nullptr, &thing), -1);
}

TEST_F(List, AddToAnEmptyListStoresAtPositionZeroWhateverThePosition)
{
    EXPECT_EQ(si_list_add(list, &things[4], 7), 1);
    EXPECT_THAT(contents(), ElementsAre(4));
}

TEST_F(List, AddToAnEmptyListTakesAnyNegativePosition)
{
    EXPECT_EQ(si_list_add(list, &things[4], -5), 1);
    EXPECT_THAT(contents(), ElementsAre(4));
}

TEST_F(List, AddAppendsForMinusOneAndBeyondTheEnd)
{
    fill(2);
    EXPECT_EQ(si_list_add(list, &things[2], -1), 3);
    EXPECT_EQ(si_list_add(list, &things[3], list->nb_elt + 5), 4);
    EXPECT_EQ(si_list_add(list, &things[4], list->nb_elt), 5);
    EXPECT_THAT(contents(), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(List, AddBelowMinusOneInsertsAtPositionOne)
{
    fill(3);
    EXPECT_EQ(si_list_add(list, &things[9], -2), 4);
    EXPECT_THAT(contents(), ElementsAre(0, 9, 1, 2));
}

TEST_F(List, AddBelowMinusOneInsertsBehindAnOnlyElementAndAppendsGoOn)
{
    fill(1);
    EXPECT_EQ(si_list_add(list, &things[9], INT32_MIN), 2);
    EXPECT_EQ(si_list_add(list, &things[3], -1), 3);
    EXPECT_THAT(contents(), ElementsAre(0, 9, 3));
}

TEST_F(List, AddInsertsBeforeTheElementAtThePosition)
{
    fill(3);
    EXPECT_EQ(si_list_add(list, &things[8], 0), 4);
    EXPECT_EQ(si_list_add(list, &things[9], 2), 5);
    EXPECT_THAT(contents(), ElementsAre(8, 0, 9, 1, 2));
}

TEST_F(List, AddWithoutMemoryLeavesTheListAsItWas)
{
    fill(3);
    const auto changes = si::list_changes(list);
    for (const std::int32_t position : {0, 1, 2, 3, -1, -2}) {
        fake::fail_allocation(1);
        EXPECT_EQ(si_list_add(list, &things[9], position), -1);
    }
    EXPECT_EQ(si::list_changes(list), changes);
    EXPECT_THAT(contents(), ElementsAre(0, 1, 2));
    EXPECT_EQ(si_list_add(list, &things[3], -1), 4);
    EXPECT_THAT(contents(), ElementsAre(0, 1, 2, 3));
}

TEST_F(List, GetOutsideTheListIsNull)
{
    fill(3);
    EXPECT_EQ(si_list_get(list, list->nb_elt), nullptr);
    EXPECT_EQ(si_list_get(list, -1), nullptr);
    EXPECT_EQ(si_list_get(list, INT32_MAX), nullptr);
    EXPECT_EQ(si_list_get(list, 2), &things[2]);
}

TEST_F(List, EndOfListIsReachedAtTheCountAndBelowZero)
{
    fill(2);
    EXPECT_EQ(si_list_eol(list, 0), 0);
    EXPECT_EQ(si_list_eol(list, 1), 0);
    EXPECT_EQ(si_list_eol(list, 2), 1);
    EXPECT_EQ(si_list_eol(list, -1), 1);
}

TEST_F(List, RemoveOfTheOnlyElementLeavesNoneForASecondCall)
{
    fill(1);
    EXPECT_EQ(si_list_remove(list, 0), 0);
    EXPECT_EQ(si_list_remove(list, 0), -1);
}

TEST_F(List, RemoveOutsideTheListIsRefused)
{
    fill(2);
    EXPECT_EQ(si_list_remove(list, -1), -1);
    EXPECT_EQ(si_list_remove(list, 2), -1);
    EXPECT_THAT(contents(), ElementsAre(0, 1));
}

TEST_F(List, RemoveTakesFirstMiddleAndLast)
{
    fill(5);
    EXPECT_EQ(si_list_remove(list, 2), 4);
    EXPECT_EQ(si_list_remove(list, 0), 3);
    EXPECT_EQ(si_list_remove(list, 2), 2);
    EXPECT_THAT(contents(), ElementsAre(1, 3));
}

TEST_F(List, AppendAfterTheLastWasRemovedHangsBehindTheNewLast)
{
    fill(3);
    si_list_remove(list, 2);
    si_list_add(list, &things[7], -1);
    si_list_remove(list, 0);
    si_list_remove(list, 0);
    si_list_remove(list, 0);
    si_list_add(list, &things[8], -1);
    si_list_add(list, &things[9], -1);
    EXPECT_THAT(contents(), ElementsAre(8, 9));
}

TEST_F(List, WalkRemovesAtThePositionWithoutAdvancing)
{
    fill(10);
    for (std::int32_t i = 0; si_list_eol(list, i) == 0;) {
        const auto index = static_cast<int *>(si_list_get(list, i)) - things.data();
        if (index % 3 == 0)
            si_list_remove(list, i);
        else
            ++i;
    }
    EXPECT_THAT(contents(), ElementsAre(1, 2, 4, 5, 7, 8));
}

TEST_F(List, UninitFreesOnlyTheRecord)
{
    si_list *other = nullptr;
    ASSERT_EQ(si_list_init(&other), 0);
    int thing = 42;
    ASSERT_EQ(si_list_add(other, &thing, -1), 1);
    si_list_node *link = other->node;
    EXPECT_EQ(si_list_uninit(other), 0);
    EXPECT_EQ(link->element, &thing);
    EXPECT_EQ(thing, 42);
    g_slice_free1(sizeof(si_list_node), link);
}

TEST_F(List, FindPassesTheKeyFirst)
{
    static const void *key_seen = nullptr;
    static std::vector<const void *> elements_seen;
    fill(3);
    const int key = 5;
    const auto note = [](const void *given, const void *element) -> std::int32_t {
        key_seen = given;
        elements_seen.push_back(element);
        return 1;
    };
    EXPECT_EQ(si_list_find(list, &key, note), nullptr);
    EXPECT_EQ(key_seen, &key);
    EXPECT_THAT(elements_seen, ElementsAre(&things[0], &things[1], &things[2]));
}

TEST_F(List, FindAnswersTheFirstMatch)
{
    things = {3, 5, 5, 7};
    fill(4);
    const int five = 5;
    const int nine = 9;
    EXPECT_EQ(si_list_find(list, &five, same_number), &things[1]);
    EXPECT_EQ(si_list_find(list, &nine, same_number), nullptr);
}

TEST_F(List, PositionIsThatOfTheFirstLinkWithThisPointer)
{
    fill(3);
    si_list_add(list, &things[1], -1);
    EXPECT_EQ(si_list_get_pos(list, &things[1]), 1);
    EXPECT_EQ(si_list_get_pos(list, &things[9]), -1);
    EXPECT_EQ(si_list_get_pos(list, nullptr), -1);
}

TEST_F(List, NullElementsAreKeptAndPassedOverByTheRange)
{
    si_list_add(list, nullptr, -1);
    fill(1);
    si_list_add(list, nullptr, -1);
    EXPECT_EQ(list->nb_elt, 3);
    EXPECT_EQ(si_list_get_pos(list, nullptr), 0);
    std::vector<const int *> met;
    for (int &thing : si::elements<int>(list))
        met.push_back(&thing);
    EXPECT_THAT(met, ElementsAre(&things[0]));
}

TEST_F(List, VisibleMembersAreTheChain)
{
    fill(4);
    si_list_remove(list, 1);
    const si_list_node *link = list->node;
    for (const int index : {0, 2, 3}) {
        EXPECT_EQ(link->element, &things.at(static_cast<std::size_t>(index)));
        link = link->next;
    }
    EXPECT_EQ(link, nullptr);
}

TEST_F(List, BehavesLikeAVectorUnderRandomOperations)
{
    std::mt19937 random{20260101};
    const auto below = [&](std::size_t n) { return static_cast<std::int32_t>(random() % n); };
    std::vector<void *> model;
    for (int step = 0; step < 50000; ++step) {
        void *thing = &things.at(static_cast<std::size_t>(below(things.size())));
        const auto size = static_cast<std::int32_t>(model.size());
        const std::int32_t position = below(model.size() + 3) - 1;
        switch (below(model.size() > 40 ? 7 : 6)) {
        case 0:
        case 1: {
            const auto at = position < 0 || position > size ? size : position;
            model.insert(model.begin() + at, thing);
            ASSERT_EQ(si_list_add(list, thing, position), size + 1);
            break;
        }
        case 2:
        case 6: {
            const bool inside = position >= 0 && position < size;
            if (inside)
                model.erase(model.begin() + position);
            ASSERT_EQ(si_list_remove(list, position), inside ? size - 1 : -1);
            break;
        }
        case 3: {
            const bool inside = position >= 0 && position < size;
            void *expected = inside ? model.at(static_cast<std::size_t>(position)) : nullptr;
            ASSERT_EQ(si_list_get(list, position), expected);
            ASSERT_EQ(si_list_eol(list, position), inside ? 0 : 1);
            break;
        }
        case 4: {
            const auto found = std::ranges::find(model, thing);
            ASSERT_EQ(si_list_get_pos(list, thing),
                      found == model.end() ? -1 : static_cast<std::int32_t>(found - model.begin()));
            break;
        }
        default:
            for (std::int32_t i = 0; i < size; ++i)
                ASSERT_EQ(si_list_get(list, i), model.at(static_cast<std::size_t>(i)));
        }
        ASSERT_EQ(list->nb_elt, static_cast<std::int32_t>(model.size()));
    }
}

// A client's own link, of the allocator that the list frees with.
si_list_node *own_link(void *element, si_list_node *next)
{
    auto *link = static_cast<si_list_node *>(g_slice_alloc(sizeof(si_list_node)));
    *link = {next, element};
    return link;
}

TEST_F(List, FollowsAClientThatTookLinksOutByHand)
{
    fill(6);
    si_list_get(list, 5); // cursor and tail are known now
    si_list_node *third = list->node->next->next;
    for (si_list_node *link = third->next; link != nullptr;) {
        si_list_node *next = link->next;
        g_slice_free1(sizeof(si_list_node), link);
        link = next;
    }
    list->nb_elt = 3;
    EXPECT_THAT(contents(), ElementsAre(0, 1, 2));
    EXPECT_EQ(si_list_add(list, &things[7], -1), 4);
    EXPECT_THAT(contents(), ElementsAre(0, 1, 2, 7));
}

TEST_F(List, FollowsAClientThatPutLinksInByHand)
{
    fill(3);
    si_list_get(list, 2);
    list->node = own_link(&things[9], list->node);
    ++list->nb_elt;
    EXPECT_EQ(si_list_get(list, 2), &things[1]); // behind where the cursor was
    EXPECT_THAT(contents(), ElementsAre(9, 0, 1, 2));
    EXPECT_EQ(si_list_remove(list, 1), 3);
    list->node->next->next->next = own_link(&things[8], nullptr);
    ++list->nb_elt;
    EXPECT_EQ(si_list_add(list, &things[7], -1), 5);
    EXPECT_THAT(contents(), ElementsAre(9, 1, 2, 8, 7));
}

TEST_F(List, FollowsAClientThatExchangedTheFirstLinkByHand)
{
    fill(3);
    si_list_get(list, 2);
    si_list_node *first = list->node;
    list->node = own_link(&things[9], first->next);
    g_slice_free1(sizeof(si_list_node), first);
    EXPECT_THAT(contents(), ElementsAre(9, 1, 2));
}

TEST_F(List, FollowsAClientThatEmptiedItByHand)
{
    fill(1);
    g_slice_free1(sizeof(si_list_node), list->node);
    list->nb_elt = 0;
    list->node = reinterpret_cast<si_list_node *>(std::uintptr_t{0x10}); // meaningless while empty
    EXPECT_THAT(contents(), IsEmpty());
    EXPECT_EQ(si_list_add(list, &things[5], 0), 1);
    EXPECT_EQ(si_list_add(list, &things[6], -1), 2);
    EXPECT_THAT(contents(), ElementsAre(5, 6));
}

TEST_F(List, ChangesGrowByOneWithEveryAddAndRemove)
{
    const auto before = si::list_changes(list);
    fill(2);
    EXPECT_EQ(si::list_changes(list), before + 2);
    si_list_remove(list, 1);
    EXPECT_EQ(si::list_changes(list), before + 3);
    si_list_get(list, 0);
    si_list_find(list, &things[0], same_number);
    si_list_remove(list, 5);
    EXPECT_EQ(si::list_changes(list), before + 3);
}

TEST_F(List, ChangesGrowWhenAClientChangedTheListByHand)
{
    fill(2);
    const auto before = si::list_changes(list);
    list->node = own_link(&things[9], list->node);
    ++list->nb_elt;
    EXPECT_GT(si::list_changes(list), before);
    const auto between = si::list_changes(list);
    si_list_node *first = list->node;
    list->node = first->next;
    --list->nb_elt;
    g_slice_free1(sizeof(si_list_node), first);
    EXPECT_GT(si::list_changes(list), between);
}

// Whatever memory they are made in, and however many elements each has seen.
TEST_F(List, ChangesOfAListAreNotThoseOfAnother)
{
    std::vector<std::uint64_t> met{si::list_changes(list)};
    for (int round = 0; round < 50; ++round) {
        si_list *other = nullptr;
        ASSERT_EQ(si_list_init(&other), 0);
        met.push_back(si::list_changes(other));
        for (int i = 0; i < 3; ++i) {
            si_list_add(other, &things[0], -1);
            met.push_back(si::list_changes(other));
        }
        while (si_list_remove(other, 0) >= 0)
            met.push_back(si::list_changes(other));
        EXPECT_EQ(si_list_uninit(other), 0);
    }
    std::ranges::sort(met);
    EXPECT_EQ(std::ranges::adjacent_find(met), met.end());
}

// Walking and removing at the position of a list this long would take minutes if each step started
// at the front.
TEST_F(List, StepsOfAWalkDoNotGrowWithTheList)
{
    constexpr std::int32_t many = 300000;
    for (std::int32_t i = 0; i < many; ++i)
        ASSERT_EQ(si_list_add(list, &things[0], -1), i + 1);
    std::int32_t met = 0;
    for (int &thing : si::elements<int>(list))
        met += &thing == &things[0] ? 1 : 0;
    EXPECT_EQ(met, many);
    for (std::int32_t i = 0; si_list_eol(list, i) == 0;) {
        ASSERT_NE(si_list_get(list, i), nullptr);
        if (i < 10)
            ++i;
        else
            si_list_remove(list, i);
    }
    EXPECT_EQ(list->nb_elt, 10);
}

} // namespace
