# Fuzzed bodies, and where their findings are kept.
target_link_libraries(${name} PRIVATE orva_fuzz_bodies)
set_property(SOURCE ${sources_of_${name}} APPEND PROPERTY COMPILE_DEFINITIONS ORVA_FUZZ_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
