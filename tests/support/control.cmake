# What control calls in the other modules: written down, and answered or run as the test says.
foreach(function
        orva_debug_category_new Orva_CreateThread Orva_Init_Lib Orva_Exit_Lib Orva_Sleep
        Orva_Wait2CondTrue Orva_Wait2FuncTrue
        Orva_Si_SetCtlFlag Orva_Si_ResetCtlFlag Orva_Si_SetDetectReady Orva_Si_ResetScanFlag
        Orva_Si_CommScanCase Orva_Si_NotifyUpdate
        Orva_Si_DeleteCaches Orva_Si_EraseAllEitRawData Orva_Si_ResetTimeSection
        Si_Model_ResetPmtPidList Si_Model_ResetCurTuningProgramNum
        Si_CtlHelper_SetTableEnableFlag Si_CtlHelper_ResetTableEnableFlag
        Si_BG_InitServiceList Si_BG_EnableAllService Si_BG_DisableAllService
        Si_SectFlt_InitPidFlts Si_SectFlt_DeInitPidFlts Si_SectFlt_EnableProcessData
        Si_SectFlt_CheckRunningStatus Si_SectFlt_StopAllFilters Si_SectFlt_StopAllDsmFilters
        Si_SectFlt_StartPat Si_SectFlt_StartCat Si_SectFlt_StartNit Si_SectFlt_StartSdtBat
        Si_SectFlt_StartTdtTot
        Si_SectFlt_StartActPfEit Si_SectFlt_StartActSchEit Si_SectFlt_StartOtherPfEit
        Si_SectFlt_StartOtherSchEit
        Si_SectFlt_StopActPfEit Si_SectFlt_StopActSchEit Si_SectFlt_StopOtherPfEit
        Si_SectFlt_StopOtherSchEit Si_SectFlt_StopAllEIT)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
