# The names that the table of getters has to know.
set_property(SOURCE query_sweep_test.cpp PROPERTY COMPILE_DEFINITIONS
             ORVA_EXPORTS="${CMAKE_CURRENT_SOURCE_DIR}/exports.txt")
