# The platform's own sources instead of the recording platform: its timers run the background services.
target_sources(eit_stress_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/orva_debug.cpp
                                       ${PROJECT_SOURCE_DIR}/platform/orva_timer.cpp)
# Locks are counted for each thread, memory in blocks and bytes, and the runs of the services.
foreach(function Orva_MutexP Orva_MutexV g_slice_free1 Si_SectFlt_ActPfEitBgService
                 Si_SectFlt_ActSchEitBgService)
    target_link_options(eit_stress_test PRIVATE -Wl,--wrap=${function})
endforeach()
