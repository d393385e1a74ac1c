# Every public header compiles alone, as C11 and as C++20, without a warning.
set(header_root ${PROJECT_SOURCE_DIR}/include)
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${header_root} ${header_root}/*.h)
if(NOT headers)
    message(FATAL_ERROR "no public headers in ${header_root}")
endif()
set(header_flags -Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only -I ${header_root})

foreach(header ${headers})
    add_test(NAME headers.${header}.c11
        COMMAND ${CMAKE_C_COMPILER} -std=c11 -Wstrict-prototypes ${header_flags} -x c -include ${header} /dev/null)
    add_test(NAME headers.${header}.c++20
        COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 ${header_flags} -x c++ -include ${header} /dev/null)
endforeach()
