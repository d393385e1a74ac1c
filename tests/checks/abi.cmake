# The binary interface of each library stays as tests/abi describes it, for one kind of machine. Written anew by
#
#     cmake --build --preset dev --target orva_abi
if(ORVA_SANITIZE OR NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
    return()
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)

add_custom_target(orva_abi)
function(orva_check_abi library) # and the headers that declare it
    set(run sh ${CMAKE_CURRENT_SOURCE_DIR}/abi.sh)
    set(arguments ${Python3_EXECUTABLE} ${CMAKE_C_COMPILER} ${PROJECT_SOURCE_DIR}/include
        lib${library}.so.${PROJECT_VERSION_MAJOR} $<TARGET_PROPERTY:${library},BINARY_DIR>/${library}.map
        ${PROJECT_SOURCE_DIR}/tests/abi/lib${library}.abi ${ARGN})
    add_test(NAME abi.${library} COMMAND ${run} check ${arguments} WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    set_tests_properties(abi.${library} PROPERTIES SKIP_RETURN_CODE 77)
    add_custom_command(TARGET orva_abi COMMAND ${run} write ${arguments} WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
        VERBATIM)
endfunction()

orva_check_abi(orva_si orva_si.h)
orva_check_abi(orva_platform orva_platform.h)
orva_check_abi(orva_demux orva_demux.h)
