/* SPDX-License-Identifier: LGPL-2.1-or-later */
#ifndef ORVA_SI_STORE_H
#define ORVA_SI_STORE_H

#include <pthread.h>

#include "orva_si/list.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SiSection {
    uint16_t pid;
    uint16_t filter_id;
    uint16_t sect_len;
    uint8_t *section;
} SiSection;

typedef struct SiTable {
    uint16_t pid;
    uint8_t table_id;
    uint16_t ext;
    uint16_t ext1;
    uint16_t ext2;
    uint8_t last_section_number;
    uint8_t sect_map[32];
    uint8_t completed;
    uint32_t crc;
    si_list *psect_list;
} SiTable;

typedef struct SiTableKey {
    uint16_t pid;
    uint8_t table_id;
    uint16_t ext;
    uint16_t ext1;
    uint16_t ext2;
} SiTableKey;

typedef struct SiEitService {
    uint16_t original_network_id;
    uint16_t transport_stream_id;
    uint16_t service_id;
    si_list *sections;
} SiEitService;

typedef struct SiEitSection {
    uint16_t table_id;
    uint16_t sect_len;
    uint8_t section_number;
    uint8_t *section;
} SiEitSection;

typedef struct SiPmtPidList {
    struct {
        uint16_t program_number;
        uint16_t pmt_pid;
    } pmtpid_array[255];
    uint32_t count;
    uint16_t cur_prog_num;
    uint16_t cur_pmt_pid;
} SiPmtPidList;

extern ORVA_SI_API pthread_mutex_t Ts_Ctl_Mutex;
extern ORVA_SI_API pthread_mutex_t Ts_Eit_Mutex;
extern ORVA_SI_API pthread_mutex_t Ts_Time_Mutex;

ORVA_SI_API uint32_t Orva_Si_InitTables(void);
ORVA_SI_API si_list *Orva_Si_GetTableList(void);
ORVA_SI_API SiTable *Orva_Si_CreateTable(uint16_t pid, uint8_t table_id, const uint8_t *psection);
ORVA_SI_API SiTable *Orva_Si_FindTableById(uint16_t pid, uint8_t table_id, uint16_t ext, uint16_t ext1, uint16_t ext2);
ORVA_SI_API uint32_t Orva_Si_IsEqualTableById(const SiTable *ptbl, uint16_t pid, uint8_t table_id, uint16_t ext, uint16_t ext1, uint16_t ext2);
ORVA_SI_API int32_t find_table(const void *key, const void *table);
ORVA_SI_API uint32_t Orva_Si_RemoveTable(SiTable *ptbl);
ORVA_SI_API uint32_t Orva_Si_RemoveTableSections(SiTable *ptbl);
ORVA_SI_API uint32_t Orva_Si_DestorySectModel(void);
ORVA_SI_API uint32_t Orva_Si_IsStreamChanged(uint16_t pid, uint8_t table_id, uint16_t ext);
ORVA_SI_API uint32_t Orva_Si_InsertSection(SiTable *ptbl, const SiSection *psection);
ORVA_SI_API uint32_t Orva_Si_CheckTableCompleted(SiTable *ptbl, const SiSection *psect);
ORVA_SI_API uint32_t Orva_Si_RemoveSectInTable(SiTable *ptbl, SiSection *psect);
ORVA_SI_API uint32_t Orva_Si_SetSectMap(uint8_t *map, uint8_t section_number);
ORVA_SI_API uint32_t Orva_Si_TestSectMap(const uint8_t *map, uint8_t section_number);
ORVA_SI_API uint32_t Orva_Si_IsSegSectCompleted(const uint8_t *map, uint8_t last_section_number, const uint8_t *segment_last);
ORVA_SI_API uint32_t Orva_Si_IsCrcEqual(const uint8_t *psect, const uint8_t *psectb);
ORVA_SI_API uint32_t Orva_Si_GetPATCRC(uint32_t *pPATCRC);
ORVA_SI_API uint32_t Orva_Si_GetNITCRC(uint32_t network_id, uint32_t *pNITCRC);
ORVA_SI_API uint32_t Orva_Si_GetSDTCRC(uint32_t transport_stream_id, uint32_t *pSDTCRC);
ORVA_SI_API uint32_t Orva_Si_GetBATCRC(uint32_t bouquet_id, uint32_t *pBATCRC);
ORVA_SI_API uint32_t Si_Model_ProcessModel(SiSection *psection);
ORVA_SI_API uint32_t Si_Model_HandleEitTables(SiSection *psect);
ORVA_SI_API uint32_t Si_Model_CollectTables(SiSection *psection);
ORVA_SI_API SiSection *Si_Model_FindSection(SiTable *ptbl, const SiSection *psection);
ORVA_SI_API int32_t find_section(const void *record, const void *stored);
ORVA_SI_API uint32_t Orva_Si_ListEitImpl(uint16_t original_network_id, uint16_t transport_stream_id, uint16_t service_id, uint8_t table_id, uint8_t section_number, uint16_t sect_len, const uint8_t *section);
ORVA_SI_API si_list *Orva_Si_GetDvbEitList(void);
ORVA_SI_API uint32_t Orva_Si_EraseAllEitRawData(void);
ORVA_SI_API uint32_t Orva_Si_RemoveEitRawData(void);
ORVA_SI_API uint32_t Si_ModListImpl_IsEITCompleted(SiEitService *peit, const uint8_t *section);
ORVA_SI_API uint32_t Si_Model_ResetPmtPidList(void);
ORVA_SI_API uint32_t Si_Model_ResetCurTuningProgramNum(void);
ORVA_SI_API uint32_t Si_Model_UpdateCurPmtInfo(void);
ORVA_SI_API uint32_t Si_Model_GetPmtPid(uint16_t prog_num);
ORVA_SI_API uint32_t Orva_Si_GetPmtPid(uint32_t prog_num);
ORVA_SI_API uint32_t Orva_Si_IsPmtExisted(uint32_t program_number);
ORVA_SI_API uint32_t Orva_Si_IsPmtExistedByPidAndProgNum(uint32_t program_number, uint32_t pmt_pid);
ORVA_SI_API uint32_t Orva_Si_DoAllPmtReady(void);
ORVA_SI_API uint32_t Orva_Si_GetPatProgList(uint16_t *proglist, int32_t *pcount);
ORVA_SI_API uint32_t Orva_Si_DelMissedPmtCaches(void);
ORVA_SI_API uint32_t Orva_Si_DeleteAllPmtCaches(void);
ORVA_SI_API uint32_t Orva_Si_DeleteCaches(uint32_t mode);
ORVA_SI_API uint32_t Orva_Si_ClearCache(void);

#ifdef __cplusplus
}
#endif

#endif
