include(${CMAKE_CURRENT_LIST_DIR}/support/control.cmake)
