# What is installed is enough to build a client: by the CMake package and by pkg-config. A sanitizer would have to be
# linked into the client too.
if(ORVA_SANITIZE)
    return()
endif()

add_test(NAME install.client
    COMMAND ${CMAKE_COMMAND} -D build=${PROJECT_BINARY_DIR} -D work=${CMAKE_CURRENT_BINARY_DIR}/install
            -D examples=${PROJECT_SOURCE_DIR}/examples -D generator=${CMAKE_GENERATOR} -D compiler=${CMAKE_C_COMPILER}
            -D libdir=${CMAKE_INSTALL_LIBDIR} -D pkgconfig=${PKG_CONFIG_EXECUTABLE}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/install_client.cmake)
set_tests_properties(install.client PROPERTIES TIMEOUT 180)
