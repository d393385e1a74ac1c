# Where the library sleeps, the next step of the input happens.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz_replay_test.cmake)
target_link_options(${name} PRIVATE -Wl,--wrap=Orva_Sleep)
