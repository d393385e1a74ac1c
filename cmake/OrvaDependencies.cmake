# Debian: dvb-apps (libucsi), libglib2.0-dev; the tool also nlohmann-json3-dev and libcli11-dev.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)

# The archive: the packaged shared object has no SONAME.
find_library(ORVA_LIBUCSI libucsi.a REQUIRED)
find_path(ORVA_LIBUCSI_INCLUDE libucsi/section.h REQUIRED)
add_library(orva_ucsi INTERFACE)
target_include_directories(orva_ucsi SYSTEM INTERFACE ${ORVA_LIBUCSI_INCLUDE})
target_link_libraries(orva_ucsi INTERFACE ${ORVA_LIBUCSI})

# The reference of the public headers, in docs/html of the build: cmake --build BUILD --target orva_docs
find_program(ORVA_DOXYGEN doxygen)
if(ORVA_DOXYGEN)
    file(WRITE ${PROJECT_BINARY_DIR}/Doxyfile "@INCLUDE = ${PROJECT_SOURCE_DIR}/docs/Doxyfile
PROJECT_NUMBER = ${PROJECT_VERSION}
OUTPUT_DIRECTORY = ${PROJECT_BINARY_DIR}/docs
WARN_AS_ERROR = FAIL_ON_WARNINGS
")
    add_custom_target(orva_docs COMMAND ${ORVA_DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile
        COMMAND ${CMAKE_COMMAND} -E echo "${PROJECT_BINARY_DIR}/docs/html/index.html"
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
endif()
