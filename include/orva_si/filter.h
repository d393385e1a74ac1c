/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_FILTER_H
#define ORVA_SI_FILTER_H

#include "orva_si/channel.h"
#include "orva_si/store.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** GLib's singly linked list, as the task records carry it. */
typedef struct _GSList GSList;

typedef struct SiDmxSection {
    uint8_t *pPrimaraySectionData;
    uint32_t PrimaraySectionSize;
    uint8_t *pSecondarySectionData;
    uint32_t SecondarySectionSize;
    SiWord BufferHandle;
} SiDmxSection;

typedef struct SiDmxSectionList {
    uint32_t section_count;
    SiDmxSection *section;
    SiWord BufferHandle;
} SiDmxSectionList;

typedef struct SiDmxFilterParam {
    uint16_t pid;
    uint8_t start_flag;
    uint32_t list_mode;
    uint32_t list_length;
    uint32_t reserved;
    uint8_t option;
    uint8_t filter_depth;
    uint8_t match[20];
    uint8_t mask[20];
    uint8_t negate[20];
    uint8_t padding[2];
    uint32_t (*section_callback)(uint32_t, uint32_t, SiWord, struct SiDmxSection *);
    uint32_t (*section_list_callback)(uint32_t, uint32_t, SiWord, struct SiDmxSectionList *);
} SiDmxFilterParam;

typedef struct SiDmxSectHandler {
    uint32_t (*DemuxInit)(uint32_t);
    uint32_t (*FreeSecData)(uint32_t, uint32_t, SiWord);
    uint32_t (*RemoveSecFilter)(uint32_t, uint32_t);
    uint32_t (*EnableSecFilter)(uint32_t, uint32_t);
    uint32_t (*DisableSecFilter)(uint32_t, uint32_t);
    uint32_t (*AddSecFilter)(uint32_t, uint32_t *, SiDmxFilterParam);
    uint32_t (*UpdateSecFilter)(uint32_t, uint32_t, SiDmxFilterParam);
} SiDmxSectHandler;

typedef struct task_item {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
} task_item;

typedef struct task_item_plain {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
    uint8_t version;
} task_item_plain;

typedef struct task_item_nit {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
    uint8_t flag;
    uint16_t network_id;
    uint8_t version;
} task_item_nit;

typedef struct task_item_pmt {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
    uint16_t program_number;
    uint16_t pid;
    uint8_t version;
    uint16_t timeout;
} task_item_pmt;

typedef struct task_item_dsm {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
    uint16_t pid;
} task_item_dsm;

typedef struct task_item_eit {
    uint8_t active;
    uint32_t wanted;
    uint32_t finished;
    uint8_t flag;
    uint8_t table_id;
    uint8_t table_id_mask;
    uint8_t last_table_id;
    uint8_t version;
    uint16_t service_id;
    uint16_t transport_stream_id;
    uint16_t original_network_id;
    uint16_t list_length;
    uint16_t limit;
} task_item_eit;

typedef struct pid_filter {
    uint8_t used;
    uint8_t enabled;
    uint8_t table_id;
    uint16_t pid;
    uint16_t service_id;
    uint16_t filter_id;
    uint8_t option;
    uint8_t ticks;
    task_item *item;
    uint8_t match_table_id;
    uint8_t mask_table_id;
    uint32_t syntax_mode;
    uint8_t version;
    uint8_t current_next;
    uint16_t section_number;
    uint16_t table_id_ext;
    uint16_t header_a;
    uint16_t header_b;
} pid_filter;

typedef struct filter_task {
    uint32_t task_id;
    uint32_t mode;
    GSList *filter_list;
    uint8_t filter_count;
    uint8_t filter_quota;
    GSList *task_list;
    uint16_t task_count;
    uint16_t next_task_index;
    uint32_t (*init_func)(pid_filter *);
    uint32_t (*filter_func)(pid_filter *, void *);
    uint32_t (*flush_task_func)(void *, struct filter_task *);
} filter_task;

ORVA_SI_API uint32_t Si_SectFlt_SetDmxSectHandler(SiDmxSectHandler *table);
ORVA_SI_API uint32_t Si_SectFlt_InitPidFlts(SiDmxSectHandler *table);
ORVA_SI_API uint32_t Si_SectFlt_DeInitPidFlts(void);
ORVA_SI_API uint32_t Orva_Si_FreeDmxFilter(uint32_t demux, uint32_t filter_id);
ORVA_SI_API uint32_t Si_SectFlt_DemuxInit(uint32_t demux);
ORVA_SI_API uint32_t Si_SectFlt_FreeSecData(uint32_t demux, uint32_t filter_id, SiWord buffer_handle);
ORVA_SI_API uint32_t Si_SectFlt_RemoveSecFilter(uint32_t demux, uint32_t filter_id);
ORVA_SI_API uint32_t Si_SectFlt_EnableSecFilter(uint32_t demux, uint32_t filter_id);
ORVA_SI_API uint32_t Si_SectFlt_DisableSecFilter(uint32_t demux, uint32_t filter_id);
ORVA_SI_API uint32_t Si_SectFlt_AddSecFilter(uint32_t demux, uint32_t *filter_id, SiDmxFilterParam param);
ORVA_SI_API uint32_t Si_SectFlt_UpdateSecFilter(uint32_t demux, uint32_t filter_id, SiDmxFilterParam param);
ORVA_SI_API uint32_t Si_SectFlt_StartFilter(pid_filter *record, uint32_t list_length);
ORVA_SI_API uint32_t Si_SectFlt_SetSecFilterSetting(const pid_filter *record, uint32_t list_length, SiDmxFilterParam *param);
ORVA_SI_API pid_filter *Si_SectFlt_GetFilterFromFilterList(GSList *list, uint16_t pid, uint8_t table_id, uint16_t service_id);
ORVA_SI_API pid_filter *Si_SectFlt_GetAvalibleDynamicFilter(void);
ORVA_SI_API uint32_t Si_SectFlt_EnableProcessData(uint32_t flag);
ORVA_SI_API uint32_t Si_SectFlt_InitPatFilter(pid_filter *pat_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitCatFilter(pid_filter *cat_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitPmtFilter(pid_filter *pmt_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitNitFilter(pid_filter *nit_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitSdtBatFilter(pid_filter *sdtbat_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitTdtTotFilter(pid_filter *tdttot_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitEitFilter(pid_filter *eit_filter);
ORVA_SI_API uint32_t Si_SectFlt_InitDsmFilter(pid_filter *dsm_filter);
ORVA_SI_API uint32_t Si_SectFlt_StartPat(void);
ORVA_SI_API uint32_t Si_SectFlt_StartCat(void);
ORVA_SI_API uint32_t Si_SectFlt_StartSdtBat(void);
ORVA_SI_API uint32_t Si_SectFlt_StartTdtTot(void);
ORVA_SI_API uint32_t Si_SectFlt_StartNit(uint32_t flag, uint32_t network_id);
ORVA_SI_API uint32_t Si_SectFlt_UpdatePat(uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_UpdateCat(uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_UpdateSdtBat(uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_UpdateNit(uint32_t network_id, uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_StopPat(void);
ORVA_SI_API uint32_t Si_SectFlt_StopCat(void);
ORVA_SI_API uint32_t Si_SectFlt_StopNit(void);
ORVA_SI_API uint32_t Si_SectFlt_StopSdtBat(void);
ORVA_SI_API uint32_t Si_SectFlt_StopTdtTot(void);
ORVA_SI_API uint32_t Si_SectFlt_StopAllFilters(void);
ORVA_SI_API uint32_t Si_SectFlt_CheckRunningStatus(void);
ORVA_SI_API uint32_t Si_SectFlt_StartPatFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_StartCatFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_StartNitFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_StartSdtBatFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_StartTdtTotFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_AddNewTask(filter_task *task, void *item);
ORVA_SI_API uint32_t Si_SectFlt_AddNewFilter(filter_task *task, pid_filter *record);
ORVA_SI_API uint32_t Si_SectFlt_TriggerFilterTask(filter_task *task);
ORVA_SI_API uint32_t Si_SectFlt_RemoveUselessFilters(filter_task *task);
ORVA_SI_API uint32_t Si_SectFlt_SetFilterMode(filter_task *task);
ORVA_SI_API void Si_SectFlt_PollNewTaskFunc(void *record, void *task);
ORVA_SI_API uint32_t Si_SectFlt_StopFilterTask(filter_task *task);
ORVA_SI_API uint32_t Si_SectFlt_PidFltCallback(uint32_t demux, uint32_t filter_id, SiWord reserved, SiDmxSection *section);
ORVA_SI_API uint32_t Si_SectFlt_PidFltSecListCallback(uint32_t demux, uint32_t filter_id, SiWord reserved, SiDmxSectionList *sec_list);
ORVA_SI_API void *Ts_Monitor_Fn(void *param);
ORVA_SI_API uint32_t Si_SectFlt_ProcessModel(SiSection *node);
ORVA_SI_API uint32_t Si_SectFlt_FlushTmpList(void);
ORVA_SI_API uint32_t Si_SectFlt_FlushSectionData(SiSection *node);
ORVA_SI_API uint32_t Si_SectFlt_IsCriticalSection(const uint8_t *section, uint32_t length);
ORVA_SI_API uint32_t Si_SectFlt_StartActPfEit(uint32_t transport_stream_id, uint32_t original_network_id, const uint16_t *sid_array, uint32_t array_count);
ORVA_SI_API uint32_t Si_SectFlt_StartActSchEit(uint32_t transport_stream_id, uint32_t original_network_id, uint32_t cur_sid, const uint16_t *sid_array, uint32_t array_count);
ORVA_SI_API uint32_t Si_SectFlt_StartOtherPfEit(const SiEitRequest *request_array, uint32_t count);
ORVA_SI_API uint32_t Si_SectFlt_StartOtherSchEit(const SiEitRequest *request_array, uint32_t count);
ORVA_SI_API uint32_t Si_SectFlt_StopActPfEit(void);
ORVA_SI_API uint32_t Si_SectFlt_StopActSchEit(void);
ORVA_SI_API uint32_t Si_SectFlt_StopOtherPfEit(void);
ORVA_SI_API uint32_t Si_SectFlt_StopOtherSchEit(void);
ORVA_SI_API uint32_t Si_SectFlt_StopAllEIT(void);
ORVA_SI_API uint32_t Si_SectFlt_UpdateEit(uint32_t table_id, uint32_t service_id, uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_UpdateEitLastTableId(uint32_t table_id, uint32_t service_id, uint32_t last_table_id);
ORVA_SI_API uint32_t Si_SectFlt_RemoveDupEitTasks(filter_task *task);
ORVA_SI_API uint32_t Si_SectFlt_PrintEitFilterTask(void);
ORVA_SI_API uint32_t Si_SectFlt_StartEitFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_IsEitEnabled(uint32_t table_id, uint32_t service_id);
ORVA_SI_API uint32_t Si_SectFlt_AddAvailableFilters(filter_task *task, uint32_t count);
ORVA_SI_API uint32_t Si_SectFlt_ReduceTaskFilterList(filter_task *requester, uint32_t count);
ORVA_SI_API uint32_t Si_SectFlt_ActPfEitBgService(void);
ORVA_SI_API uint32_t Si_SectFlt_ActSchEitBgService(void);
ORVA_SI_API uint32_t Si_SectFlt_StartPmt(const SiPmtPidList *pmtpid_list);
ORVA_SI_API uint32_t Si_SectFlt_UpdatePmt(uint32_t program_number, uint32_t pid, uint32_t version, uint32_t finished);
ORVA_SI_API uint32_t Si_SectFlt_StopPmt(void);
ORVA_SI_API uint32_t Orva_Si_LatchPmt(uint32_t program_number);
ORVA_SI_API uint32_t Orva_Si_UnLatchPmt(uint32_t program_number);
ORVA_SI_API uint32_t Si_SectFlt_PmtBgService(void);
ORVA_SI_API uint32_t Orva_Si_StartDsmFilter(uint32_t pid);
ORVA_SI_API uint32_t Orva_Si_StopDsmFilter(uint32_t pid);
ORVA_SI_API uint32_t Si_SectFlt_StopAllDsmFilters(void);
ORVA_SI_API uint32_t Si_SectFlt_IsDsmccPid(uint32_t pid);
ORVA_SI_API uint32_t Si_SectFlt_StartPmtFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_StartDsmFilterTask(pid_filter *record, void *item);
ORVA_SI_API uint32_t Si_SectFlt_GetPendingCount(void);

#ifdef __cplusplus
}
#endif

#endif
