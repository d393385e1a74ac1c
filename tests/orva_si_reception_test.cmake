# As for the other tests of the event store.
include(${CMAKE_CURRENT_LIST_DIR}/orva_si_eitstore_test.cmake)
