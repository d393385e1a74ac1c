# Each library exports the names of its list and no other; no C symbol of its objects is left to the linker
# script to hide. Its name, what it needs, how it is bound and hardened.
function(orva_check_exports library list needed) # and the targets whose objects it is made of
    # Clang has its precompiled headers among them.
    list(TRANSFORM ARGN REPLACE "(.+)" "$<FILTER:$<TARGET_OBJECTS:\\1>,EXCLUDE,cmake_pch>" OUTPUT_VARIABLE objects)
    add_test(NAME exports.${library}.library
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh library ${CMAKE_READELF} ${list} $<TARGET_FILE:${library}>)
    add_test(NAME exports.${library}.objects
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh objects ${CMAKE_READELF} ${list} ${objects}
        COMMAND_EXPAND_LISTS)
    if(NOT ORVA_SANITIZE) # is not what is installed
        add_test(NAME exports.${library}.binding
            COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports_binding.sh ${CMAKE_READELF} $<TARGET_FILE:${library}>
                    lib${library}.so.${PROJECT_VERSION_MAJOR} $<CONFIG:Release,RelWithDebInfo,MinSizeRel>
                    $<BOOL:${CMAKE_CROSSCOMPILING}> "${needed}" ${objects}
            COMMAND_EXPAND_LISTS)
    endif()
endfunction()

set(major ${PROJECT_VERSION_MAJOR})
orva_check_exports(orva_si ${PROJECT_SOURCE_DIR}/tests/exports.txt "liborva_platform.so.${major} libglib-2.0.so.0"
    orva_si_objects)
orva_check_exports(orva_platform ${PROJECT_SOURCE_DIR}/platform/exports.txt libc.so.6 orva_platform)
orva_check_exports(orva_demux ${PROJECT_SOURCE_DIR}/demux/exports.txt "liborva_si.so.${major}" orva_demux orva_demux_objects)

if(NOT ORVA_SANITIZE)
    add_test(NAME exports.installed
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports_installed.sh ${CMAKE_COMMAND} ${CMAKE_READELF} ${PROJECT_BINARY_DIR})
endif()
