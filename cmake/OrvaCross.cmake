# What the toolchain files share: Debian's cross compiler, and the libraries that tools/sysroot unpacks for it.
# They set orva_arch (Debian's name of the architecture), orva_processor, orva_compiler and orva_multiarch (triplets).
get_filename_component(orva_sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${orva_arch} ABSOLUTE)
if(NOT EXISTS ${orva_sysroot}/made-of)
    message(FATAL_ERROR "There is no ${orva_sysroot}: run tools/sysroot ${orva_arch}")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${orva_processor})
set(CMAKE_C_COMPILER ${orva_compiler}-gcc)
set(CMAKE_CXX_COMPILER ${orva_compiler}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${orva_multiarch})

set(CMAKE_FIND_ROOT_PATH ${orva_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${orva_sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${orva_sysroot}/usr/lib/${orva_multiarch}/pkgconfig:${orva_sysroot}/usr/share/pkgconfig)

# What is built runs from the build directory: a library's own libraries are found there and in the sysroot too.
set(orva_libraries ${orva_sysroot}/usr/lib/${orva_multiarch})
set(orva_runtime /usr/${orva_compiler}/lib)
string(JOIN " " CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--disable-new-dtags -Wl,-rpath,${orva_libraries}:${orva_runtime}
       -Wl,-rpath-link,${orva_libraries})
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,-rpath-link,${orva_libraries})
