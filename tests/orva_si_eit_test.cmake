include(${CMAKE_CURRENT_LIST_DIR}/orva_si_eitstore_test.cmake)
# A lock that cannot be taken.
foreach(function Orva_MutexP Orva_MutexV)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
