// SPDX-License-Identifier: LGPL-2.1-or-later
// Layouts that drivers and clients rely on. Records without a pointer are the same everywhere;
// those with one are fixed for 32-bit machines, and for 64-bit ones where a driver fills them.
#ifndef SRC_ORVA_SI_LAYOUT_H
#define SRC_ORVA_SI_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "orva_si/filter.h"
#include "orva_si/list.h"
#include "orva_si/notify.h"
#include "orva_si/store.h"
#include "orva_si/types.h"

static_assert(sizeof(SiWord) == sizeof(void *));

// The block is passed by value. Its first 80 bytes are the same on every machine.
static_assert(std::is_trivially_copyable_v<SiDmxFilterParam> &&
              std::is_standard_layout_v<SiDmxFilterParam>);
static_assert(offsetof(SiDmxFilterParam, pid) == 0);
static_assert(offsetof(SiDmxFilterParam, start_flag) == 2);
static_assert(offsetof(SiDmxFilterParam, list_mode) == 4);
static_assert(offsetof(SiDmxFilterParam, list_length) == 8);
static_assert(offsetof(SiDmxFilterParam, reserved) == 12);
static_assert(offsetof(SiDmxFilterParam, option) == 16);
static_assert(offsetof(SiDmxFilterParam, filter_depth) == 17);
static_assert(offsetof(SiDmxFilterParam, match) == 18);
static_assert(offsetof(SiDmxFilterParam, mask) == 38);
static_assert(offsetof(SiDmxFilterParam, negate) == 58);
static_assert(offsetof(SiDmxFilterParam, padding) == 78);
static_assert(offsetof(SiDmxFilterParam, section_callback) == 80);

// Items of the filter tasks begin alike and carry no pointer.
static_assert(sizeof(task_item) == 12);
static_assert(sizeof(task_item_plain) == 16);
static_assert(sizeof(task_item_nit) == 20);
static_assert(sizeof(task_item_pmt) == 20);
static_assert(sizeof(task_item_dsm) == 16);
static_assert(sizeof(task_item_eit) == 28);
template <class Item>
inline constexpr bool
    begins_as_task_item = std::is_standard_layout_v<Item> &&offsetof(Item, active) ==
                              offsetof(task_item, active) &&
                          offsetof(Item, wanted) == offsetof(task_item, wanted) &&
                          offsetof(Item, finished) == offsetof(task_item, finished);
static_assert(begins_as_task_item<task_item_plain> && begins_as_task_item<task_item_nit> &&
              begins_as_task_item<task_item_pmt> && begins_as_task_item<task_item_dsm> &&
              begins_as_task_item<task_item_eit>);

static_assert(sizeof(SiPmtNotify) == 8);
static_assert(sizeof(SiEitNotify) == 16);
static_assert(offsetof(SiEitNotify, reserved) == 0);
static_assert(offsetof(SiEitNotify, service_id) == 4);
static_assert(offsetof(SiEitNotify, transport_stream_id) == 6);
static_assert(offsetof(SiEitNotify, original_network_id) == 8);
static_assert(offsetof(SiEitNotify, table_id) == 10);
static_assert(offsetof(SiEitNotify, section_number) == 11);
static_assert(offsetof(SiEitNotify, crc) == 12);

static_assert(sizeof(SiTableKey) == 10);
static_assert(offsetof(SiTable, sect_map) == 11);
static_assert(offsetof(SiTable, completed) == 43);
static_assert(offsetof(SiTable, crc) == 44);
static_assert(offsetof(SiTable, psect_list) == 48);

static_assert(sizeof(SiPmtPidList) == 1028);
static_assert(offsetof(SiPmtPidList, count) == 1020);
static_assert(offsetof(SiPmtPidList, cur_prog_num) == 1024);
static_assert(offsetof(SiPmtPidList, cur_pmt_pid) == 1026);

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(SiDmxFilterParam) == 88);
static_assert(offsetof(SiDmxFilterParam, section_list_callback) == 84);
static_assert(sizeof(SiDmxSection) == 20);
static_assert(offsetof(SiDmxSection, PrimaraySectionSize) == 4);
static_assert(offsetof(SiDmxSection, pSecondarySectionData) == 8);
static_assert(offsetof(SiDmxSection, SecondarySectionSize) == 12);
static_assert(offsetof(SiDmxSection, BufferHandle) == 16);
static_assert(sizeof(SiDmxSectionList) == 12);
static_assert(sizeof(SiDmxSectHandler) == 28);
static_assert(sizeof(pid_filter) == 36);
static_assert(sizeof(filter_task) == 36);
static_assert(sizeof(SiDsmccNotify) == 8);
static_assert(sizeof(SiSection) == 12);
static_assert(sizeof(SiTable) == 52);
static_assert(sizeof(SiEitService) == 12);
static_assert(sizeof(SiEitSection) == 12);
static_assert(sizeof(si_list) == 8);
static_assert(sizeof(si_list_node) == 8);
#elif UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(sizeof(SiDmxFilterParam) == 96);
static_assert(offsetof(SiDmxFilterParam, section_list_callback) == 88);
static_assert(sizeof(SiDmxSection) == 40);
static_assert(offsetof(SiDmxSection, PrimaraySectionSize) == 8);
static_assert(offsetof(SiDmxSection, pSecondarySectionData) == 16);
static_assert(offsetof(SiDmxSection, SecondarySectionSize) == 24);
static_assert(offsetof(SiDmxSection, BufferHandle) == 32);
static_assert(sizeof(SiDmxSectHandler) == 56);
static_assert(sizeof(SiDsmccNotify) == 16);
static_assert(sizeof(SiSection) == 16);
#endif

#endif
