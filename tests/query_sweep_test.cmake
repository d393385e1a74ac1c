# The names that the table of getters has to know.
target_compile_definitions(query_sweep_test PRIVATE ORVA_EXPORTS="${CMAKE_CURRENT_SOURCE_DIR}/exports.txt")
