# What support/fault_world.h counts, and where it lets things happen.
foreach(function g_slice_free1 Orva_MutexP Orva_MutexTryP Orva_MutexV Orva_Sleep)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
