// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_list.h"

#include <atomic>
#include <cstddef>
#include <type_traits>

#include "orva_si_alloc.h"

namespace si {

namespace {

static_assert(std::is_standard_layout_v<list_record> && offsetof(list_record, visible) == 0);
static_assert(offsetof(si_list, node) == sizeof(void *));
static_assert(sizeof(si_list) == 2 * sizeof(void *) && sizeof(si_list_node) == 2 * sizeof(void *));

bool holds(const si_list *list, std::int32_t position)
{
    return list != nullptr && position >= 0 && position < list->nb_elt;
}

// The link in front of a position from 1 to nb_elt. The cursor stays there, so the link at the
// position is one step away, can be removed, and so can the one that follows it then.
si_list_node *link_before(list_record &of, std::int32_t position)
{
    if (position == of.visible.nb_elt && of.tail != nullptr)
        return of.tail;
    if (of.cursor == nullptr || of.cursor_position >= position) {
        of.cursor = of.visible.node;
        of.cursor_position = 0;
    }
    for (; of.cursor_position < position - 1; ++of.cursor_position)
        of.cursor = of.cursor->next;
    return of.cursor;
}

void link_first(list_record &of, si_list_node *link)
{
    link->next = of.visible.node;
    of.visible.node = link;
    ++of.cursor_position;
}

void link_behind(si_list_node *before, si_list_node *link, bool last)
{
    link->next = last ? nullptr : before->next;
    before->next = link;
}

si_list_node *unlink_first(list_record &of)
{
    si_list_node *link = of.visible.node;
    const bool only = of.visible.nb_elt == 1;
    of.visible.node = only ? nullptr : link->next;
    if (only)
        of.tail = nullptr;
    if (of.cursor_position-- == 0)
        of.cursor = nullptr;
    return link;
}

si_list_node *unlink_behind(list_record &of, std::int32_t position)
{
    si_list_node *before = link_before(of, position);
    si_list_node *link = before->next;
    const bool last = position == of.visible.nb_elt - 1;
    before->next = last ? nullptr : link->next;
    if (last)
        of.tail = before;
    return link;
}

// Each list counts its changes from another number, so that what was kept beside one that is gone
// never seems to fit a later one in the same memory.
std::uint64_t first_change()
{
    constexpr std::uint64_t changes_of_one = std::uint64_t{1} << 32;
    static std::atomic<std::uint64_t> next{0};
    return next.fetch_add(changes_of_one, std::memory_order_relaxed);
}

std::int32_t changed(list_record &of, std::int32_t count)
{
    of.visible.nb_elt = count;
    ++of.changes;
    of.keep_visible();
    return count;
}

} // namespace

si_list_node *take_links(si_list *list)
{
    if (list == nullptr || list->nb_elt <= 0)
        return nullptr;
    list_record &of = record_of(list);
    si_list_node *const links = list->node;
    list->node = nullptr;
    of.tail = nullptr;
    of.cursor = nullptr;
    changed(of, 0);
    return links;
}

void keep_companion(si_list *list, list_companion *made)
{
    list_record &of = record_of(list);
    if (of.companion != nullptr)
        release(of.companion, of.companion->size);
    of.companion = made;
}

} // namespace si

using namespace si;

std::int32_t si_list_init(si_list **list)
{
    if (list == nullptr)
        return -1;
    auto *made = allocate_record<list_record>();
    *list = made == nullptr ? nullptr : &made->visible;
    if (made == nullptr)
        return -1;
    made->changes = first_change();
    return 0;
}

std::int32_t si_list_uninit(si_list *list)
{
    if (list == nullptr)
        return -1;
    keep_companion(list, nullptr);
    release_record(reinterpret_cast<list_record *>(list));
    return 0;
}

std::int32_t si_list_add(si_list *list, void *element, std::int32_t position)
{
    if (list == nullptr)
        return -1;
    auto *link = allocate_record<si_list_node>();
    if (link == nullptr)
        return -1;
    link->element = element;

    list_record &of = record_of(list);
    const std::int32_t count = list->nb_elt;
    if (position == -1 || position >= count)
        position = count;
    else if (position < 0)
        position = 1; // any other negative position lies behind the first link

    const bool last = position >= count;
    if (count <= 0) {
        list->node = link;
        of.cursor = nullptr;
    } else if (position == 0) {
        link_first(of, link);
    } else {
        link_behind(link_before(of, position), link, last);
    }
    if (last || count <= 0)
        of.tail = link;
    return changed(of, count + 1);
}

void *si_list_get(si_list *list, std::int32_t position)
{
    if (!holds(list, position))
        return nullptr;
    return position == 0 ? list->node->element
                         : link_before(record_of(list), position)->next->element;
}

std::int32_t si_list_eol(si_list *list, std::int32_t position)
{
    return holds(list, position) ? 0 : 1;
}

std::int32_t si_list_remove(si_list *list, std::int32_t position)
{
    if (!holds(list, position))
        return -1;
    list_record &of = record_of(list);
    release_record(position == 0 ? unlink_first(of) : unlink_behind(of, position));
    return changed(of, list->nb_elt - 1);
}

void *si_list_find(si_list *list, const void *key, SiListCmp comparison)
{
    for (std::int32_t position = 0; holds(list, position); ++position) {
        void *element = si_list_get(list, position);
        if (comparison(key, element) == 0)
            return element;
    }
    return nullptr;
}

std::int32_t si_list_get_pos(si_list *list, const void *element)
{
    for (std::int32_t position = 0; holds(list, position); ++position)
        if (si_list_get(list, position) == element)
            return position;
    return -1;
}
