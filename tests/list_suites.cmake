# Asks a test program for its suites and writes them down as tests for CTest.
#
#     cmake -D command=... -D program=orva_si_sdt_test -D options=... -D properties=... -D output=... -P list_suites.cmake
#
# command: the program, behind what runs it when it is built for another machine. whole: all suites are one test.
set(ENV{ASAN_OPTIONS} detect_leaks=0) # of the listing
execute_process(COMMAND ${command} --gtest_list_tests RESULT_VARIABLE result OUTPUT_VARIABLE listing
    ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${program}: ${result}\n${listing}${errors}")
endif()

string(REGEX MATCHALL "(^|\n)[^ \n][^ \n]*\\." suites "${listing}")
if(NOT suites)
    message(FATAL_ERROR "${program} has no tests")
endif()

if(whole) # those of many tests begin first, so that none is left to run alone at the end
    set(suites *)
    string(REGEX MATCHALL "\n  " tests "${listing}")
    list(LENGTH tests count)
    string(APPEND properties " COST ${count}")
endif()
set(script "")
foreach(suite ${suites})
    string(STRIP ${suite} suite)
    set(name "${program}.${suite}")
    string(REGEX REPLACE "\\.\\*?$" "" name ${name})
    set(quoted "")
    foreach(word ${command} "--gtest_filter=${suite}*" ${options})
        string(APPEND quoted " [==[${word}]==]")
    endforeach()
    string(APPEND script "add_test([==[${name}]==]${quoted})\n"
        "set_tests_properties([==[${name}]==] PROPERTIES ${properties})\n")
endforeach()
file(WRITE ${output} "${script}")
