# Every recorded stream, scanned by the tool, asked for its events and its sections, compared with its golden answer fact by
# fact.
find_package(Python3 COMPONENTS Interpreter)
set(compare ${ORVA_CAPTURES}/../check/compare_golden.py)
if(NOT ORVA_CAPTURES OR NOT EXISTS ${compare} OR NOT Python3_FOUND)
    add_test(NAME captures.scan COMMAND ${CMAKE_COMMAND} -E echo "ORVA_CAPTURES is not given, or python3 is missing")
    set_tests_properties(captures.scan PROPERTIES SKIP_REGULAR_EXPRESSION "ORVA_CAPTURES")
    return()
endif()

file(GLOB streams CONFIGURE_DEPENDS ${ORVA_CAPTURES}/*.ts)
set(commands scan guide)
if(NOT ORVA_SANITIZE AND NOT CMAKE_CROSSCOMPILING) # what it prints comes by the way of the guide
    list(APPEND commands dump)
endif()
foreach(stream ${streams})
    cmake_path(GET stream STEM LAST_ONLY name)
    foreach(command ${commands})
        add_test(NAME captures.${command}.${name}
            COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/captures.sh $<TARGET_FILE:orva-si> ${Python3_EXECUTABLE} ${compare}
                    ${command} ${ORVA_CAPTURES}/golden/${name}.json ${stream})
        set_tests_properties(captures.${command}.${name} PROPERTIES TIMEOUT 120 SKIP_RETURN_CODE 77
            ENVIRONMENT "${orva_test_environment}")
    endforeach()
endforeach()
