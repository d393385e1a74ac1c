# What is installed: which files in which component; that it builds and runs clients wherever it is moved; that the tool's
# manual page and completion know what the tool knows. A sanitizer would have to be linked into the clients too.
if(ORVA_SANITIZE)
    return()
endif()

function(orva_install_test name)
    add_test(NAME install.${name}
        COMMAND ${CMAKE_COMMAND} -D build=${PROJECT_BINARY_DIR} -D work=${CMAKE_CURRENT_BINARY_DIR}/install_${name}
                -D source=${PROJECT_SOURCE_DIR} -D libdir=${CMAKE_INSTALL_LIBDIR} -D docdir=${CMAKE_INSTALL_DOCDIR}
                -D version=${PROJECT_VERSION} -D generator=${CMAKE_GENERATOR} -D compiler=${CMAKE_C_COMPILER}
                -D pkgconfig=${PKG_CONFIG_EXECUTABLE} -D sample_mux=$<TARGET_FILE:orva-sample-mux>
                -P ${CMAKE_CURRENT_SOURCE_DIR}/install_${name}.cmake)
    set_tests_properties(install.${name} PROPERTIES TIMEOUT 180)
endfunction()
orva_install_test(components)
orva_install_test(client)

add_test(NAME package.symbols
    COMMAND ${CMAKE_COMMAND} -D source=${PROJECT_SOURCE_DIR} -D version=${PROJECT_VERSION}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/package_symbols.cmake)

find_package(Python3 COMPONENTS Interpreter)
if(Python3_FOUND)
    add_test(NAME install.options
        COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/install_options.py $<TARGET_FILE:orva-si>
                ${PROJECT_SOURCE_DIR}/man/orva-si.1 ${PROJECT_SOURCE_DIR}/tools/orva-si/completion.bash)
    set_tests_properties(install.options PROPERTIES TIMEOUT 120)
endif()

# Whatever groff warns of is a fault of the page.
find_program(ORVA_GROFF groff)
if(ORVA_GROFF)
    add_test(NAME install.manual
        COMMAND ${ORVA_GROFF} -man -Tutf8 -ww -z ${PROJECT_SOURCE_DIR}/man/orva-si.1)
    set_tests_properties(install.manual PROPERTIES FAIL_REGULAR_EXPRESSION "." TIMEOUT 20)
endif()
