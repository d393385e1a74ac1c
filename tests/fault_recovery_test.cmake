include(${CMAKE_CURRENT_LIST_DIR}/support/fault_driver.cmake)
