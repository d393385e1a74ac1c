# Each library exports the names of its list and no other; no C symbol of its objects is left to the linker
# script to hide.
function(orva_check_exports target objects list)
    add_test(NAME exports.${target}.library
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh library ${CMAKE_READELF} ${list} $<TARGET_FILE:${target}>)
    add_test(NAME exports.${target}.objects
        COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh objects ${CMAKE_READELF} ${list}
                $<TARGET_OBJECTS:${objects}>
        COMMAND_EXPAND_LISTS)
endfunction()

orva_check_exports(orva_si orva_si_objects ${PROJECT_SOURCE_DIR}/tests/exports.txt)
orva_check_exports(orva_platform orva_platform ${PROJECT_SOURCE_DIR}/platform/exports.txt)
orva_check_exports(orva_demux orva_demux ${PROJECT_SOURCE_DIR}/demux/exports.txt)
