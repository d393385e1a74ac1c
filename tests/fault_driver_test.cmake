# The timer facility fails on demand; the section thread waits until a test lets it make the stores.
include(${CMAKE_CURRENT_LIST_DIR}/support/fault.cmake)
foreach(function Orva_Si_InitTables Orva_Util_Timer_Init Orva_Util_Timer_Add Orva_Util_Timer_Pause
                 Orva_Util_Timer_PauseAll Orva_Util_Timer_Trigger Orva_Util_Timer_UpdateInterval
                 Orva_Util_Timer_GetRunningState)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
