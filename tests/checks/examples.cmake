# The example programs, and the one that the README shows, find the services of a recorded stream.
if(NOT ORVA_EXAMPLES)
    return()
endif()

set(readme ${PROJECT_SOURCE_DIR}/README.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${readme})
file(READ ${readme} text)
string(FIND "${text}" "```c\n" begin)
string(SUBSTRING "${text}" ${begin} -1 text)
string(SUBSTRING "${text}" 5 -1 text)
string(FIND "${text}" "```" end)
string(SUBSTRING "${text}" 0 ${end} text)
file(CONFIGURE OUTPUT readme_client.c CONTENT "${text}" @ONLY)
add_executable(readme_client ${CMAKE_CURRENT_BINARY_DIR}/readme_client.c)
target_compile_options(readme_client PRIVATE -Wall -Wextra -Wpedantic -Werror)
target_link_libraries(readme_client PRIVATE OrvaSi::si OrvaSi::demux OrvaSi::platform)
if(ORVA_SANITIZE)
    set_target_properties(readme_client PROPERTIES LINKER_LANGUAGE CXX)
endif()

add_test(NAME examples.list_services.missing_file COMMAND list_services ${CMAKE_CURRENT_SOURCE_DIR}/no-such.ts)
set_tests_properties(examples.list_services.missing_file PROPERTIES
    PASS_REGULAR_EXPRESSION "no-such\\.ts: [^\n]+" TIMEOUT 20)

set(capture ${ORVA_CAPTURES}/dvbt-czech-mux1-teletext.ts)
if(ORVA_CAPTURES AND EXISTS ${capture})
    add_test(NAME examples.list_services.capture COMMAND list_services ${capture})
    set_tests_properties(examples.list_services.capture PROPERTIES
        PASS_REGULAR_EXPRESSION "257\tCT 1\n258\tCT 2\n259\tCT 24\n260\tCT sport\n264\tCT :D/art\n16641\tCRo RADIOZURNAL\n")
    add_test(NAME examples.readme.capture COMMAND readme_client ${capture})
    set_tests_properties(examples.readme.capture PROPERTIES
        PASS_REGULAR_EXPRESSION "  257  CT 1\n  258  CT 2\n  259  CT 24\n  260  CT sport\n  264  CT :D/art\n16641  CRo RADIOZURNAL\n")
    set_tests_properties(examples.list_services.capture examples.readme.capture PROPERTIES
        ENVIRONMENT "${orva_test_environment}" TIMEOUT 60)
endif()
