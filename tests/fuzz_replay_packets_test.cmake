# The demultiplexer asks the library itself how far it is behind.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz_replay_test.cmake)
target_link_libraries(${name} PRIVATE orva_demux_objects)
target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/demux/orva_demux_pending.cpp)
