# One function per kind of target; every target of the project is made by one of them.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# On 32-bit machines too files may be large, and time goes on after 2038.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# libucsi stores through pointers of other types, also in functions that are compiled into our own sources.
set(orva_compile_options
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
    $<$<BOOL:${ORVA_WARNINGS_AS_ERRORS}>:-Werror>
    -fno-strict-aliasing
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
)
if(ORVA_SANITIZE)
    # libucsi's records are packed: its byte swaps are misaligned on purpose.
    list(APPEND orva_compile_options -fsanitize=${ORVA_SANITIZE} -fno-sanitize=alignment
         -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ORVA_SANITIZE})
endif()

# Broadcast data is hostile: what is installed checks its stack and, where the compiler optimises, its buffers. Sanitizers
# do better, and want their undefined symbols. Tests are compiled without optimisation, which glibc cannot fortify.
set(orva_link_options -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
set(orva_library_link_options -Wl,--exclude-libs,ALL -Wl,-Bsymbolic-functions)
if(NOT ORVA_SANITIZE)
    list(APPEND orva_compile_options -fstack-protector-strong)
    list(APPEND orva_library_link_options -Wl,-z,defs)
    set(orva_fortify $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:_FORTIFY_SOURCE=2>)
endif()

function(orva_settings target)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${orva_compile_options}>)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/include)
    set(tests ${PROJECT_SOURCE_DIR}/tests)
    cmake_path(IS_PREFIX tests ${CMAKE_CURRENT_SOURCE_DIR} is_test)
    if(NOT is_test)
        target_compile_definitions(${target} PRIVATE ${orva_fortify})
        target_link_options(${target} PRIVATE ${orva_link_options})
    endif()
endfunction()

# What a log line names as its source: the path without extension; modules of several sources speak with one name.
function(orva_log_sources)
    foreach(source ${ARGN})
        cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE name)
        cmake_path(REMOVE_EXTENSION name)
        string(REGEX REPLACE "^(Src/(orva_si_(sectflt|modellistimpl)|dvbtables/orva_si_[a-z]+))_.*" "\\1" name ${name})
        set_property(SOURCE ${source} APPEND PROPERTY COMPILE_DEFINITIONS "SI_SOURCE=\"${name}\"")
    endforeach()
endfunction()

# A shared library that exports exactly the names of a list.
function(orva_shared_library target output exports)
    add_library(${target} SHARED)
    orva_settings(${target})
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${output}.map)
    file(STRINGS ${exports} names REGEX "^[A-Za-z_]")
    list(JOIN names ";\n        " joined)
    string(TOUPPER ${output} node)
    file(CONFIGURE OUTPUT ${script} CONTENT "@node@_1 {\n    global:\n        @joined@;\n    local:\n        *;\n};\n" @ONLY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports})
    target_link_options(${target} PRIVATE -Wl,--version-script=${script} ${orva_library_link_options})
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${output} VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${script})
    target_include_directories(${target} INTERFACE
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endfunction()
