# The query layer as each compiler makes it at each level of optimisation, under its tests. libucsi stores through pointers
# of other types and lays packed records over bytes, much of it in functions that are compiled into the layer's sources:
# what becomes of that is up to the compiler and its level. Only the layer is compiled again, the tests and the rest of the
# library are those of this build.
set(levels gcc-O0 gcc-O3 clang-O0 clang-O2 clang-O3) # this build is gcc's -O2

get_target_property(layer orva_si_objects SOURCES)
list(FILTER layer INCLUDE REGEX "/dvbtables/")
orva_log_sources(${layer}) # properties of sources end with their folder
set(rest $<FILTER:$<TARGET_OBJECTS:orva_si_objects>,EXCLUDE,/dvbtables/>)

foreach(name ${levels})
    string(REGEX MATCH "^([a-z]+)-(.+)$" _ ${name})
    set(target orva_query_${name})
    add_library(${target} STATIC EXCLUDE_FROM_ALL ${layer})
    orva_settings(${target})
    target_compile_options(${target} PRIVATE -${CMAKE_MATCH_2})
    target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:orva_si_objects,INTERFACE_INCLUDE_DIRECTORIES>)
    target_link_libraries(${target} PRIVATE $<TARGET_PROPERTY:orva_si_objects,INTERFACE_LINK_LIBRARIES>)
    orva_compiled_again(${target})
    if(CMAKE_MATCH_1 STREQUAL "clang")
        set_target_properties(${target} PROPERTIES CXX_COMPILER_LAUNCHER "${orva_test_launcher}")
    endif()
endforeach()

# Every value of every byte is tried at the level of this build.
add_library(query_sweep_of_levels OBJECT EXCLUDE_FROM_ALL query_sweep_test.cpp)
orva_test_settings(query_sweep_of_levels orva_test_precompiled)
target_compile_definitions(query_sweep_of_levels PRIVATE ORVA_SWEEP_STEP=17)
target_include_directories(query_sweep_of_levels PRIVATE $<TARGET_PROPERTY:orva_si_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(query_sweep_of_levels PRIVATE orva_test_fakes)

set(programs codec eit nit pmt query sdt)
list(TRANSFORM programs REPLACE "(.+)" "orva_si_\\1_test")
list(APPEND programs query_sweep_test)

add_custom_target(orva_levels)
set(script "")
foreach(program ${programs})
    set(objects ${program})
    set(options "")
    if(program IN_LIST orva_sharing)
        set(options --together)
    endif()
    if(program STREQUAL query_sweep_test)
        set(objects query_sweep_of_levels)
    endif()
    foreach(level ${levels})
        set(name ${program}.${level})
        add_executable(${name} EXCLUDE_FROM_ALL $<TARGET_OBJECTS:${objects}> ${rest})
        target_link_libraries(${name} PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,orva_query_${level}> orva_test_fakes orva_ucsi PkgConfig::GLIB Threads::Threads
                              orva_test_runner)
        target_link_options(${name} PRIVATE -Wl,--wrap=g_slice_alloc)
        include(${CMAKE_CURRENT_SOURCE_DIR}/${program}.cmake OPTIONAL)
        add_dependencies(orva_levels ${name})
        string(APPEND script "orva_test_of_level(${name} ${options})\n")
    endforeach()
endforeach()

# CTest knows those that are built, under a label of their own. What the sweep does too is left to it.
file(CONFIGURE OUTPUT levels_include.cmake @ONLY CONTENT "function(orva_test_of_level name)
    set(program \"@CMAKE_CURRENT_BINARY_DIR@/\${name}\")
    if(EXISTS \"\${program}\")
        add_test(\${name} \"\${program}\" \${ARGN} --gtest_filter=-*SurvivesAnyByteTakingAnyValue*)
        set_tests_properties(\${name} PROPERTIES LABELS levels @orva_test_properties@)
    endif()
endfunction()
@script@")
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/levels_include.cmake)
