# Each library exports the names of its list and no other; no C symbol of its objects is left to the linker
# script to hide.
function(orva_check_exports library list) # and the targets whose objects it is made of
    add_test(NAME exports.${library}.library
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh library ${CMAKE_READELF} ${list} $<TARGET_FILE:${library}>)
    list(TRANSFORM ARGN REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
    add_test(NAME exports.${library}.objects
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh objects ${CMAKE_READELF} ${list} ${objects}
        COMMAND_EXPAND_LISTS)
endfunction()

orva_check_exports(orva_si ${PROJECT_SOURCE_DIR}/tests/exports.txt orva_si_objects)
orva_check_exports(orva_platform ${PROJECT_SOURCE_DIR}/platform/exports.txt orva_platform)
orva_check_exports(orva_demux ${PROJECT_SOURCE_DIR}/demux/exports.txt orva_demux orva_demux_objects)
