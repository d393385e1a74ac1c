// SPDX-License-Identifier: LGPL-2.1-or-later
// Layouts and calls that drivers and clients rely on, for both word sizes. Nothing here needs a
// library: the header compiles as C and as C++, for machines too whose libraries are not there.
#ifndef SRC_ORVA_SI_LAYOUT_H
#define SRC_ORVA_SI_LAYOUT_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "orva_platform.h"
#include "orva_si/filter.h"
#include "orva_si/limits.h"
#include "orva_si/list.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/store.h"
#include "orva_si/types.h"

#define SI_BY_WORD(on_32_bits, on_64_bits) (sizeof(void *) == 4 ? (on_32_bits) : (on_64_bits))
#define SI_SIZE(record, bytes) static_assert(sizeof(record) == (bytes), "size of " #record)
#define SI_AT(record, offset, member)                                                              \
    static_assert(offsetof(record, member) == (offset), "place of " #member " in " #record)
#ifdef __cplusplus
#define SI_TYPE(thing, ...) static_assert(__is_same(thing, __VA_ARGS__), "type of " #thing)
#else
#define SI_TYPE(thing, ...)                                                                        \
    static_assert(__builtin_types_compatible_p(thing, __VA_ARGS__), "type of " #thing)
#endif
#define SI_HAS(record, offset, member, ...)                                                        \
    SI_AT(record, offset, member);                                                                 \
    SI_TYPE(__typeof__(((record *)0)->member), __VA_ARGS__)

SI_SIZE(SiWord, sizeof(void *));

// The block is passed by value. Its first 80 bytes are the same on every machine.
SI_SIZE(SiDmxFilterParam, SI_BY_WORD(88, 96));
SI_HAS(SiDmxFilterParam, 0, pid, uint16_t);
SI_HAS(SiDmxFilterParam, 2, start_flag, uint8_t);
SI_HAS(SiDmxFilterParam, 4, list_mode, uint32_t);
SI_HAS(SiDmxFilterParam, 8, list_length, uint32_t);
SI_HAS(SiDmxFilterParam, 12, reserved, uint32_t);
SI_HAS(SiDmxFilterParam, 16, option, uint8_t);
SI_HAS(SiDmxFilterParam, 17, filter_depth, uint8_t);
SI_HAS(SiDmxFilterParam, 18, match, uint8_t[20]);
SI_HAS(SiDmxFilterParam, 38, mask, uint8_t[20]);
SI_HAS(SiDmxFilterParam, 58, negate, uint8_t[20]);
SI_HAS(SiDmxFilterParam, 78, padding, uint8_t[2]);
SI_HAS(SiDmxFilterParam, 80, section_callback,
       uint32_t (*)(uint32_t, uint32_t, SiWord, SiDmxSection *));
SI_HAS(SiDmxFilterParam, SI_BY_WORD(84, 88), section_list_callback,
       uint32_t (*)(uint32_t, uint32_t, SiWord, SiDmxSectionList *));
#ifdef __cplusplus
static_assert(__is_trivially_copyable(SiDmxFilterParam) && __is_standard_layout(SiDmxFilterParam),
              "the block is a plain record");
#endif

SI_SIZE(SiDmxSection, SI_BY_WORD(20, 40));
SI_HAS(SiDmxSection, 0, pPrimaraySectionData, uint8_t *);
SI_HAS(SiDmxSection, SI_BY_WORD(4, 8), PrimaraySectionSize, uint32_t);
SI_HAS(SiDmxSection, SI_BY_WORD(8, 16), pSecondarySectionData, uint8_t *);
SI_HAS(SiDmxSection, SI_BY_WORD(12, 24), SecondarySectionSize, uint32_t);
SI_HAS(SiDmxSection, SI_BY_WORD(16, 32), BufferHandle, SiWord);

SI_SIZE(SiDmxSectionList, SI_BY_WORD(12, 24));
SI_HAS(SiDmxSectionList, 0, section_count, uint32_t);
SI_HAS(SiDmxSectionList, SI_BY_WORD(4, 8), section, SiDmxSection *);
SI_HAS(SiDmxSectionList, SI_BY_WORD(8, 16), BufferHandle, SiWord);

SI_SIZE(SiDmxSectHandler, SI_BY_WORD(28, 56));
SI_HAS(SiDmxSectHandler, 0, DemuxInit, uint32_t (*)(uint32_t));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(4, 8), FreeSecData, uint32_t (*)(uint32_t, uint32_t, SiWord));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(8, 16), RemoveSecFilter, uint32_t (*)(uint32_t, uint32_t));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(12, 24), EnableSecFilter, uint32_t (*)(uint32_t, uint32_t));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(16, 32), DisableSecFilter, uint32_t (*)(uint32_t, uint32_t));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(20, 40), AddSecFilter,
       uint32_t (*)(uint32_t, uint32_t *, SiDmxFilterParam));
SI_HAS(SiDmxSectHandler, SI_BY_WORD(24, 48), UpdateSecFilter,
       uint32_t (*)(uint32_t, uint32_t, SiDmxFilterParam));

SI_SIZE(SiLimitCounts, 84);
SI_HAS(SiLimitCounts, 0, tables, SiLimitCount);
SI_HAS(SiLimitCounts, 72, busy_queue, SiLimitCount);
SI_SIZE(SiLimitCount, 12);
SI_HAS(SiLimitCount, 0, refused, uint32_t);
SI_HAS(SiLimitCount, 4, used, uint32_t);
SI_HAS(SiLimitCount, 8, most, uint32_t);

SI_SIZE(pid_filter, SI_BY_WORD(36, 48));
SI_SIZE(filter_task, SI_BY_WORD(36, 64));

// Items of the filter tasks begin alike and carry no pointer.
#define SI_ITEM(item, bytes)                                                                       \
    SI_SIZE(item, bytes);                                                                          \
    SI_HAS(item, 0, active, uint8_t);                                                              \
    SI_HAS(item, 4, wanted, uint32_t);                                                             \
    SI_HAS(item, 8, finished, uint32_t)
SI_ITEM(task_item, 12);
SI_ITEM(task_item_plain, 16);
SI_HAS(task_item_plain, 12, version, uint8_t);
SI_ITEM(task_item_nit, 20);
SI_HAS(task_item_nit, 12, flag, uint8_t);
SI_HAS(task_item_nit, 14, network_id, uint16_t);
SI_HAS(task_item_nit, 16, version, uint8_t);
SI_ITEM(task_item_pmt, 20);
SI_HAS(task_item_pmt, 12, program_number, uint16_t);
SI_HAS(task_item_pmt, 14, pid, uint16_t);
SI_HAS(task_item_pmt, 16, version, uint8_t);
SI_HAS(task_item_pmt, 18, timeout, uint16_t);
SI_ITEM(task_item_dsm, 16);
SI_HAS(task_item_dsm, 12, pid, uint16_t);
SI_ITEM(task_item_eit, 28);
SI_HAS(task_item_eit, 12, flag, uint8_t);
SI_HAS(task_item_eit, 13, table_id, uint8_t);
SI_HAS(task_item_eit, 14, table_id_mask, uint8_t);
SI_HAS(task_item_eit, 15, last_table_id, uint8_t);
SI_HAS(task_item_eit, 16, version, uint8_t);
SI_HAS(task_item_eit, 18, service_id, uint16_t);
SI_HAS(task_item_eit, 20, transport_stream_id, uint16_t);
SI_HAS(task_item_eit, 22, original_network_id, uint16_t);
SI_HAS(task_item_eit, 24, list_length, uint16_t);
SI_HAS(task_item_eit, 26, limit, uint16_t);

SI_SIZE(SiPmtNotify, 8);
SI_HAS(SiPmtNotify, 0, frequency, uint32_t);
SI_HAS(SiPmtNotify, 4, program_number, uint16_t);

SI_SIZE(SiEitNotify, 16);
SI_HAS(SiEitNotify, 0, reserved, uint32_t);
SI_HAS(SiEitNotify, 4, service_id, uint16_t);
SI_HAS(SiEitNotify, 6, transport_stream_id, uint16_t);
SI_HAS(SiEitNotify, 8, original_network_id, uint16_t);
SI_HAS(SiEitNotify, 10, table_id, uint8_t);
SI_HAS(SiEitNotify, 11, section_number, uint8_t);
SI_HAS(SiEitNotify, 12, crc, uint32_t);

SI_SIZE(SiDsmccNotify, SI_BY_WORD(8, 16));
SI_HAS(SiDsmccNotify, 0, pid, uint16_t);
SI_HAS(SiDsmccNotify, 2, length, uint16_t);
SI_HAS(SiDsmccNotify, SI_BY_WORD(4, 8), section, const uint8_t *);

// A table key is what a table begins with.
#define SI_KEY(record)                                                                             \
    SI_HAS(record, 0, pid, uint16_t);                                                              \
    SI_HAS(record, 2, table_id, uint8_t);                                                          \
    SI_HAS(record, 4, ext, uint16_t);                                                              \
    SI_HAS(record, 6, ext1, uint16_t);                                                             \
    SI_HAS(record, 8, ext2, uint16_t)
SI_SIZE(SiTableKey, 10);
SI_KEY(SiTableKey);
SI_SIZE(SiTable, SI_BY_WORD(52, 56));
SI_KEY(SiTable);
SI_HAS(SiTable, 10, last_section_number, uint8_t);
SI_HAS(SiTable, 11, sect_map, uint8_t[32]);
SI_HAS(SiTable, 43, completed, uint8_t);
SI_HAS(SiTable, 44, crc, uint32_t);
SI_HAS(SiTable, 48, psect_list, si_list *);

SI_SIZE(SiSection, SI_BY_WORD(12, 16));
SI_HAS(SiSection, 0, pid, uint16_t);
SI_HAS(SiSection, 2, filter_id, uint16_t);
SI_HAS(SiSection, 4, sect_len, uint16_t);
SI_HAS(SiSection, 8, section, uint8_t *);

SI_SIZE(SiEitService, SI_BY_WORD(12, 16));
SI_HAS(SiEitService, 0, original_network_id, uint16_t);
SI_HAS(SiEitService, 2, transport_stream_id, uint16_t);
SI_HAS(SiEitService, 4, service_id, uint16_t);
SI_HAS(SiEitService, 8, sections, si_list *);

SI_SIZE(SiEitSection, SI_BY_WORD(12, 16));
SI_HAS(SiEitSection, 0, table_id, uint16_t);
SI_HAS(SiEitSection, 2, sect_len, uint16_t);
SI_HAS(SiEitSection, 4, section_number, uint8_t);
SI_HAS(SiEitSection, 8, section, uint8_t *);

SI_SIZE(si_list, SI_BY_WORD(8, 16));
SI_HAS(si_list, 0, nb_elt, int32_t);
SI_HAS(si_list, SI_BY_WORD(4, 8), node, si_list_node *);
SI_SIZE(si_list_node, SI_BY_WORD(8, 16));
SI_HAS(si_list_node, 0, next, si_list_node *);
SI_HAS(si_list_node, SI_BY_WORD(4, 8), element, void *);

SI_SIZE(SiPmtPidList, 1028);
SI_AT(SiPmtPidList, 0, pmtpid_array);
SI_HAS(SiPmtPidList, 1020, count, uint32_t);
SI_HAS(SiPmtPidList, 1024, cur_prog_num, uint16_t);
SI_HAS(SiPmtPidList, 1026, cur_pmt_pid, uint16_t);

SI_HAS(SiThreadStart, 0, fn, SiThreadFn);
SI_HAS(SiThreadStart, SI_BY_WORD(4, 8), param, void *);
SI_HAS(SiThreadStart, SI_BY_WORD(8, 16), sem, sem_t);

// What may carry an address is a word; all other numbers of a call have 32 bits.
SI_TYPE(SiNotifyFunc, uint32_t (*)(uint32_t, uint32_t, SiWord, uint32_t));
SI_TYPE(SiThreadFn, void *(*)(void *));
SI_TYPE(__typeof__(Si_SectFlt_PidFltCallback),
        uint32_t(uint32_t, uint32_t, SiWord, SiDmxSection *));
SI_TYPE(__typeof__(Si_SectFlt_PidFltSecListCallback),
        uint32_t(uint32_t, uint32_t, SiWord, SiDmxSectionList *));
SI_TYPE(__typeof__(Si_SectFlt_FreeSecData), uint32_t(uint32_t, uint32_t, SiWord));
SI_TYPE(__typeof__(Orva_Util_Timer_Init), int32_t(const char *));
SI_TYPE(__typeof__(Orva_Util_Timer_Add),
        uint32_t(int32_t, const char *, uint32_t (*)(SiWord), SiWord, uint32_t, uint32_t));

#undef SI_KEY
#undef SI_ITEM
#undef SI_HAS
#undef SI_TYPE
#undef SI_AT
#undef SI_SIZE
#undef SI_BY_WORD

#endif
