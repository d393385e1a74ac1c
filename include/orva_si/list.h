/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_LIST_H
#define ORVA_SI_LIST_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t (*SiListCmp)(const void *key, const void *element);

typedef struct si_list_node {
    struct si_list_node *next;
    void *element;
} si_list_node;

typedef struct si_list {
    int32_t nb_elt;
    si_list_node *node;
} si_list;

ORVA_SI_API int32_t si_list_init(si_list **list);
ORVA_SI_API int32_t si_list_uninit(si_list *list);
ORVA_SI_API int32_t si_list_add(si_list *list, void *element, int32_t position);
ORVA_SI_API void *si_list_get(si_list *list, int32_t position);
ORVA_SI_API int32_t si_list_eol(si_list *list, int32_t position);
ORVA_SI_API int32_t si_list_remove(si_list *list, int32_t position);
ORVA_SI_API void *si_list_find(si_list *list, const void *key, SiListCmp comparison);
ORVA_SI_API int32_t si_list_get_pos(si_list *list, const void *element);

#ifdef __cplusplus
}
#endif

#endif
