# The section thread waits until a test lets it make the stores.
include(${CMAKE_CURRENT_LIST_DIR}/support/fault_driver.cmake)
target_link_options(${name} PRIVATE -Wl,--wrap=Orva_Si_InitTables)
