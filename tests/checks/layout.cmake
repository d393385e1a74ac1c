# The layouts that drivers and clients rely on hold for both word sizes, in C and in C++, whatever this machine's is.
# Nothing is linked: the other word size needs no libraries. Records packed on purpose show that the check would tell.
set(header ${PROJECT_SOURCE_DIR}/Src/orva_si_layout.h)
set(words "")
set(system "")
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(words 64 32)
    # The C library's headers for 32 bits are those for 64, but for a list of functions that it has not: left empty.
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/layout/gnu/stubs-32.h "")
    set(system -idirafter ${CMAKE_CURRENT_BINARY_DIR}/layout -idirafter /usr/include/${CMAKE_CXX_LIBRARY_ARCHITECTURE})
else()
    math(EXPR words "8 * ${CMAKE_SIZEOF_VOID_P}")
endif()

foreach(word ${words})
    set(select "")
    if(system)
        set(select -m${word})
    endif()
    set(options ${select} -Wall -Wextra -Wpedantic -Wshadow -Werror -ffreestanding -fsyntax-only
        -I ${PROJECT_SOURCE_DIR}/include ${system} -include ${header} /dev/null)
    add_test(NAME layout.${word}.c11 COMMAND ${CMAKE_C_COMPILER} -x c -std=c11 ${options})
    add_test(NAME layout.${word}.c++20 COMMAND ${CMAKE_CXX_COMPILER} -x c++ -std=c++20 ${options})
    add_test(NAME layout.${word}.packed COMMAND ${CMAKE_CXX_COMPILER} -x c++ -std=c++20 -fpack-struct=1 ${options})
    set_tests_properties(layout.${word}.packed PROPERTIES PASS_REGULAR_EXPRESSION "place of list_mode in SiDmxFilterParam")
endforeach()
