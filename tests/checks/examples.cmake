# The example programs, the one that the README shows, and all code of the documents.
if(NOT ORVA_EXAMPLES)
    return()
endif()

set(strict_c -Wall -Wextra -Wpedantic -Wconversion -Werror)

# The C code of a document: what stands between ```c and ```, one block after the other.
function(orva_code_of document out)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${document})
    file(READ ${PROJECT_SOURCE_DIR}/${document} rest)
    set(code "")
    while(TRUE)
        string(FIND "${rest}" "```c\n" begin)
        if(begin EQUAL -1)
            break()
        endif()
        math(EXPR begin "${begin} + 5")
        string(SUBSTRING "${rest}" ${begin} -1 rest)
        string(FIND "${rest}" "```" end)
        string(SUBSTRING "${rest}" 0 ${end} block)
        string(APPEND code "${block}\n")
        math(EXPR end "${end} + 3")
        string(SUBSTRING "${rest}" ${end} -1 rest)
    endwhile()
    if(code STREQUAL "")
        message(FATAL_ERROR "${document} shows no code")
    endif()
    set(${out} "${code}" PARENT_SCOPE)
endfunction()

orva_code_of(README.md code)
file(CONFIGURE OUTPUT readme_client.c CONTENT "${code}" @ONLY)
add_executable(readme_client ${CMAKE_CURRENT_BINARY_DIR}/readme_client.c)
target_compile_options(readme_client PRIVATE ${strict_c})
target_link_libraries(readme_client PRIVATE OrvaSi::si OrvaSi::demux OrvaSi::platform)
if(ORVA_SANITIZE)
    set_target_properties(readme_client PROPERTIES LINKER_LANGUAGE CXX)
endif()

# The blocks of a guide are parts of one source.
foreach(guide client driver)
    orva_code_of(docs/${guide}-guide.md code)
    file(CONFIGURE OUTPUT ${guide}_guide.c CONTENT "${code}" @ONLY)
    add_library(${guide}_guide_code OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${guide}_guide.c)
    target_compile_options(${guide}_guide_code PRIVATE ${strict_c})
    set_target_properties(${guide}_guide_code PROPERTIES C_EXTENSIONS OFF)
    target_link_libraries(${guide}_guide_code PRIVATE OrvaSi::si OrvaSi::demux OrvaSi::platform)

    add_executable(${guide}_guide ${guide}_guide_main.c)
    target_compile_options(${guide}_guide PRIVATE ${strict_c})
    target_include_directories(${guide}_guide PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
    set_target_properties(${guide}_guide PROPERTIES C_EXTENSIONS OFF)
    target_link_libraries(${guide}_guide PRIVATE OrvaSi::si OrvaSi::demux OrvaSi::platform Threads::Threads)
    if(ORVA_SANITIZE)
        set_target_properties(${guide}_guide PROPERTIES LINKER_LANGUAGE CXX)
    endif()
endforeach()

# Runs an example and compares what it prints.
function(orva_test_example name program status expected)
    set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}.expected)
    file(CONFIGURE OUTPUT ${file} CONTENT "${expected}" @ONLY)
    set(arguments argument second)
    set(given "")
    foreach(value IN LISTS ARGN)
        list(POP_FRONT arguments key)
        list(APPEND given -D ${key}=${value})
    endforeach()
    add_test(NAME examples.${name} COMMAND ${CMAKE_COMMAND} -D program=$<TARGET_FILE:${program}> -D status=${status}
        -D expected=${file} ${given} -P ${CMAKE_CURRENT_SOURCE_DIR}/run_example.cmake)
    set_tests_properties(examples.${name} PROPERTIES ENVIRONMENT "${orva_test_environment}" TIMEOUT 60)
endfunction()

# The sample multiplex, and what is known of it: names that are not ASCII are shown as question marks.
set(sample ${CMAKE_CURRENT_BINARY_DIR}/sample.ts)
add_test(NAME examples.sample COMMAND orva-sample-mux ${sample})
set_tests_properties(examples.sample PROPERTIES FIXTURES_SETUP orva_sample)
set(names "Orva One HD" "?Cty?rka" "???????" "??????" "T?rk? FM" "e??^S?" "???? TV" "?sterreich ?" "Orva Ultra ???")
set(listed "")
set(scanned "")
set(number 100)
foreach(name IN LISTS names)
    math(EXPR number "${number} + 1")
    set(access free)
    if(number EQUAL 109)
        set(access CA)
    endif()
    string(APPEND listed "${number}\t${name}\n")
    string(APPEND scanned "${number}\t${access}\t${name}\n")
endforeach()
orva_test_example(list_services list_services 0 "${listed}" ${sample})
orva_test_example(minimal_client minimal_client 0 "${listed}video\t257\nnow\tThe News\n" ${sample} 101)
orva_test_example(minimal_client.no_program minimal_client 0 "${listed}" ${sample})
orva_test_example(minimal_client.not_in_pat minimal_client 1 "${listed}" ${sample} 999)
orva_test_example(scan_with_progress scan_with_progress 0 "${scanned}" ${sample})
set_tests_properties(examples.list_services examples.minimal_client examples.minimal_client.no_program
    examples.minimal_client.not_in_pat examples.scan_with_progress PROPERTIES FIXTURES_REQUIRED orva_sample)

# It prints names as they are broadcast.
add_test(NAME examples.readme COMMAND readme_client ${sample})
set_tests_properties(examples.readme PROPERTIES PASS_REGULAR_EXPRESSION "  101  Orva One HD\n.*  109  Orva Ultra"
    ENVIRONMENT "${orva_test_environment}" TIMEOUT 60 FIXTURES_REQUIRED orva_sample)

# What the guides show: the present event begins at 1767268800, 2026-01-01 12:00 UTC. The schedule has two days, a section
# for each three hours; four of the sixteen are over and empty, in each other one events begin.
set(streams "stream 65281.1001\nstream 65281.1002\nscan cancelled\n")
orva_test_example(client_guide client_guide 0 "on air\nboth
1767268800 +1800 The News\n1767270600 +5400 The Lighthouse Keeper's Cat
schedule 0 1, 12 sections with events\n1767268800 +1800 The News\n${streams}" ${sample} 101)
orva_test_example(client_guide.other_language client_guide 0 "on air\nboth
1767268800 +3600 Wirtschaft für alle\n1767272400 +7200 The Silent Witness
schedule 0 1, 12 sections with events\n1767268800 +3600 Wirtschaft für alle\n${streams}" ${sample} 108)
orva_test_example(client_guide.not_in_pat client_guide 0 "not in the PAT\n${streams}" ${sample} 999)
set_tests_properties(examples.client_guide examples.client_guide.other_language examples.client_guide.not_in_pat
    PROPERTIES FIXTURES_REQUIRED orva_sample)
set(alone "enabled without a setting: no\nover behind slot 6: yes\nover behind slot 4: yes\nlate callbacks: 0\n")
set(pcr_pids "")
foreach(number RANGE 8) # of the sample: programs have 16 PIDs each
    math(EXPR pid "257 + 16 * ${number}")
    math(EXPR program "101 + ${number}")
    string(APPEND pcr_pids "${program} ${pid}\n")
endforeach()
orva_test_example(driver_guide driver_guide 0
    "${alone}${pcr_pids}library: done\noverrun: 0\nfilters left: 0, buffers all came back\n" ${sample})
set_tests_properties(examples.driver_guide PROPERTIES FIXTURES_REQUIRED orva_sample)

# The stream of the driver is in its source.
orva_test_example(minimal_driver minimal_driver 0
    "257\tMinimal One\tvideo PID 257\n513\tHarbor\tin transport stream 2\nbatches\tsome\nbuffers\tall came back\n")

# Nothing comes through this pipe, so that the scan would take ten seconds.
add_test(NAME examples.scan_with_progress.cancel COMMAND sh -c
    "sleep 3 | timeout --preserve-status -s INT 1 '$<TARGET_FILE:scan_with_progress>' -; test $? = 130")
set_tests_properties(examples.scan_with_progress.cancel PROPERTIES ENVIRONMENT "${orva_test_environment}" TIMEOUT 60)

foreach(program list_services minimal_client scan_with_progress)
    add_test(NAME examples.${program}.missing_file COMMAND ${program} ${CMAKE_CURRENT_SOURCE_DIR}/no-such.ts)
    set_tests_properties(examples.${program}.missing_file PROPERTIES
        PASS_REGULAR_EXPRESSION "no-such\\.ts: [^\n]+" TIMEOUT 20)
endforeach()

set(capture ${ORVA_CAPTURES}/dvbt-czech-mux1-teletext.ts)
if(ORVA_CAPTURES AND EXISTS ${capture})
    set(czech "257\tCT 1\n258\tCT 2\n259\tCT 24\n260\tCT sport\n264\tCT :D/art\n16641\tCRo RADIOZURNAL\n")
    foreach(program list_services minimal_client)
        add_test(NAME examples.${program}.capture COMMAND ${program} ${capture})
        set_tests_properties(examples.${program}.capture PROPERTIES PASS_REGULAR_EXPRESSION "${czech}"
            ENVIRONMENT "${orva_test_environment}" TIMEOUT 60)
    endforeach()
    add_test(NAME examples.readme.capture COMMAND readme_client ${capture})
    set_tests_properties(examples.readme.capture PROPERTIES
        PASS_REGULAR_EXPRESSION "  257  CT 1\n  258  CT 2\n  259  CT 24\n  260  CT sport\n  264  CT :D/art\n16641  CRo RADIOZURNAL\n"
        ENVIRONMENT "${orva_test_environment}" TIMEOUT 60)
endif()
