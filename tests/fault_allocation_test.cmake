# Every road to memory, threads and locks: g_slice_alloc is wrapped for all tests.
include(${CMAKE_CURRENT_LIST_DIR}/support/fault.cmake)
foreach(function malloc calloc pthread_attr_init pthread_create pthread_mutex_init sem_init sem_wait)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
