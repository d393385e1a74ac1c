# What support/fault_driver.h lets fail.
include(${CMAKE_CURRENT_LIST_DIR}/fault.cmake)
foreach(function Orva_Util_Timer_Init Orva_Util_Timer_Add Orva_Util_Timer_Pause Orva_Util_Timer_PauseAll
                 Orva_Util_Timer_Trigger Orva_Util_Timer_UpdateInterval Orva_Util_Timer_GetRunningState)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
