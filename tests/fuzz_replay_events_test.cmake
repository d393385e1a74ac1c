# A body that writes down what the event store tells the filters and the client, and what it frees.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz_replay_test.cmake)
target_link_libraries(${name} PRIVATE orva_fuzz_events)
foreach(function Si_SectFlt_UpdateEit Si_SectFlt_UpdateEitLastTableId Orva_Si_NotifyEit g_slice_free1)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()
