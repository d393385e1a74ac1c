# The query layer compiled at each of ORVA_LEVELS, under its tests. libucsi stores through pointers of other types and lays
# packed records over bytes, much of it in functions that are compiled into the layer's sources: what becomes of that is up
# to the compiler and its level of optimisation. The tests and the rest of the library are compiled once.

get_target_property(layer orva_si_objects SOURCES)
orva_log_sources(${layer}) # properties of sources end with their folder
set(rest ${layer})
list(FILTER layer INCLUDE REGEX "/dvbtables/")
list(FILTER rest EXCLUDE REGEX "/dvbtables/")

function(orva_layer_objects target level)
    add_library(${target} OBJECT EXCLUDE_FROM_ALL ${ARGN})
    orva_settings(${target})
    target_compile_options(${target} PRIVATE -O${level})
    target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:orva_si_objects,INTERFACE_INCLUDE_DIRECTORIES>)
    target_link_libraries(${target} PUBLIC $<TARGET_PROPERTY:orva_si_objects,INTERFACE_LINK_LIBRARIES>)
endfunction()

orva_layer_objects(orva_si_rest 1 ${rest})
foreach(level ${ORVA_LEVELS})
    orva_layer_objects(orva_query_O${level} ${level} ${layer})
endforeach()

add_library(orva_levels_precompiled OBJECT precompiled.cpp)
orva_test_settings(orva_levels_precompiled)
target_precompile_headers(orva_levels_precompiled PRIVATE <gmock/gmock.h> <gtest/gtest.h> <string> <vector>)
target_link_libraries(orva_levels_precompiled PRIVATE GTest::gmock GTest::gtest_main)

set(modules sdt pmt pat nit bat eit query codec descr time)
list(TRANSFORM modules REPLACE "(.+)" "${CMAKE_CURRENT_SOURCE_DIR}/orva_si_\\1*_test.cpp" OUTPUT_VARIABLE patterns)
file(GLOB units CONFIGURE_DEPENDS ${patterns} ${CMAKE_CURRENT_SOURCE_DIR}/query_sweep_test.cpp)
list(FILTER units EXCLUDE REGEX "orva_si_eitstore")
add_custom_target(orva_levels)
foreach(source ${units})
    cmake_path(GET source STEM stem)
    add_library(${stem} OBJECT EXCLUDE_FROM_ALL ${source})
    orva_test_settings(${stem})
    target_precompile_headers(${stem} REUSE_FROM orva_levels_precompiled)
    target_link_libraries(${stem} PRIVATE orva_test_fakes GTest::gmock)
    target_include_directories(${stem} PRIVATE $<TARGET_PROPERTY:orva_si_objects,INTERFACE_INCLUDE_DIRECTORIES>)
    foreach(level ${ORVA_LEVELS})
        set(name ${stem}_O${level})
        add_executable(${name} EXCLUDE_FROM_ALL $<TARGET_OBJECTS:${stem}>)
        target_link_libraries(${name} PRIVATE orva_query_O${level} orva_si_rest orva_test_fakes GTest::gmock GTest::gtest_main)
        target_link_options(${name} PRIVATE -Wl,--wrap=g_slice_alloc)
        include(${CMAKE_CURRENT_SOURCE_DIR}/${stem}.cmake OPTIONAL)
        orva_discover(${name})
        add_dependencies(orva_levels ${name})
    endforeach()
endforeach()

# Every value of every byte is tried by the other presets.
set_property(SOURCE query_sweep_test.cpp APPEND PROPERTY COMPILE_DEFINITIONS ORVA_SWEEP_STEP=5)
