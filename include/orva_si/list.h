/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * The counted list of untyped pointers in which the store keeps its tables, sections and events.
 *
 * Positions start at 0. The usual walk:
 *
 *     for (position = 0; si_list_eol(list, position) == 0; position++) {
 *         element = si_list_get(list, position);
 *         if (element == NULL)
 *             continue;
 *         ...
 *     }
 *
 * To remove while walking, remove at the position and do not advance. Every step of such a walk, an
 * append and a removal at the position last read take the same time however long the list is.
 *
 * No function logs.
 *
 * @par Arguments
 * - `list`: made by si_list_init
 * - `position`: of an element, from 0 on
 *
 * @par Memory
 * A list never owns its elements: it allocates and frees its own record and its links.
 *
 * @par Threads and locks
 * A list has no lock, and readers move a hidden cursor: one thread at a time. The lists of the
 * store are guarded by the store's mutexes, for readers too.
 */
#ifndef ORVA_SI_LIST_H
#define ORVA_SI_LIST_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Compares a key with an element of a list.
 *
 * @param key      as given to si_list_find
 * @param element  the element; null ones are compared too
 * @return 0 when they match, any other value when not
 */
typedef int32_t (*SiListCmp)(const void *key, const void *element);

/** A link, of GLib's slice allocator. Only count tells which link is the last: its next is not to
 * be followed. */
typedef struct si_list_node {
    struct si_list_node *next; /**< the following link */
    void *element;             /**< what was added; may be null */
} si_list_node;

/** A list. Made by si_list_init alone: the record is larger than what is declared here. */
typedef struct si_list {
    int32_t nb_elt;     /**< number of elements */
    si_list_node *node; /**< first link; meaningless while nb_elt is 0 */
} si_list;

/**
 * Makes an empty list.
 *
 * @param list  receives the list, or null on failure; the caller frees it with si_list_uninit
 * @return 0; -1 when memory is exhausted or list is null
 */
ORVA_SI_API int32_t si_list_init(si_list **list);

/**
 * Frees the record only, neither links nor elements: remove every element first.
 *
 * @return 0; -1 for a null list
 */
ORVA_SI_API int32_t si_list_uninit(si_list *list);

/**
 * Inserts an element.
 *
 * @param element   stays the caller's; may be null
 * @param position  where it will stand; -1 and everything from nb_elt on append, other negative
 * values put it at 1 (at 0 when the list is empty)
 * @return the new number of elements; -1 for a null list or when memory is exhausted, the list
 * being unchanged
 */
ORVA_SI_API int32_t si_list_add(si_list *list, void *element, int32_t position);

/**
 * Tells the element at a position.
 *
 * @return what was added, which may be null; null for a null list and outside 0 to nb_elt - 1
 */
ORVA_SI_API void *si_list_get(si_list *list, int32_t position);

/**
 * Tells whether a position is beyond the end of the list.
 *
 * @return 0 for a position from 0 to nb_elt - 1; else 1, also for a null list
 */
ORVA_SI_API int32_t si_list_eol(si_list *list, int32_t position);

/**
 * Takes the link at a position out and frees it; the element stays the caller's.
 *
 * @return the number of elements left; -1 for a null list and outside 0 to nb_elt - 1
 */
ORVA_SI_API int32_t si_list_remove(si_list *list, int32_t position);

/**
 * The first element that matches a key.
 *
 * @param key         passed to comparison as its first argument
 * @param comparison  called for each element in order, null ones too, until it answers 0; must not
 * be null
 * @return the element; null when none matches or the list is null
 */
ORVA_SI_API void *si_list_find(si_list *list, const void *key, SiListCmp comparison);

/**
 * Tells where an element stands.
 *
 * @param element  compared as a pointer; may be null
 * @return the position of the first link that holds it; -1 when none does or the list is null
 */
ORVA_SI_API int32_t si_list_get_pos(si_list *list, const void *element);

#ifdef __cplusplus
}
#endif

#endif
