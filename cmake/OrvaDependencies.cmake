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
