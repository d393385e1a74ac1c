# The helpers of the event store wrap what it calls.
include(${CMAKE_CURRENT_LIST_DIR}/orva_si_eitstore_test.cmake)
