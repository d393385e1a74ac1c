# Fuzzed bodies. Where time is short, every few values of a byte or a length.
target_link_libraries(${name} PRIVATE orva_fuzz_bodies)
if(CMAKE_CROSSCOMPILING OR ORVA_SANITIZE)
    target_compile_definitions(${name} PRIVATE ORVA_SWEEP_STEP=51)
endif()
