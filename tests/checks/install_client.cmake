# Installs to a folder, moves that, and builds the examples against what was moved: by the CMake package and by pkg-config.
# Both builds find the services of a sample multiplex, and so does the tool beside its libraries.
include(${CMAKE_CURRENT_LIST_DIR}/install_run.cmake)
file(REMOVE_RECURSE ${work})
set(prefix ${work}/moved/prefix)
set(sample ${work}/sample.ts)
set(service "Orva One HD")

run(${CMAKE_COMMAND} --install ${build} --prefix ${work}/installed)
file(MAKE_DIRECTORY ${work}/moved)
file(RENAME ${work}/installed ${prefix})
run(${sample_mux} ${sample})

run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/orva-si scan ${sample})
if(NOT run_output MATCHES "${service}")
    message(FATAL_ERROR "orva-si scan: ${run_output}")
endif()

# Examples are built as their user gets them.
set(examples ${prefix}/${docdir}/examples)
set(ENV{LD_LIBRARY_PATH} ${prefix}/${libdir})
run(${CMAKE_COMMAND} -S ${examples} -B ${work}/package -G ${generator} -D CMAKE_PREFIX_PATH=${prefix}
    -D CMAKE_C_COMPILER=${compiler})
run(${CMAKE_COMMAND} --build ${work}/package)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${libdir}/pkgconfig)
function(pkgconfig_build program source)
    run(${pkgconfig} --cflags --libs ${ARGN})
    separate_arguments(flags UNIX_COMMAND "${run_output}")
    run(${compiler} -Wall -Wextra -Werror ${source} -o ${program} ${flags} -pthread)
endfunction()

# On the sample, or without it where an example brings its own sections.
function(check_example program)
    file(READ ${examples}/${name}.c text)
    set(input)
    if(text MATCHES "argc")
        set(input ${sample})
    endif()
    run(${program} ${input})
    if(run_output STREQUAL "" OR (input AND NOT run_output MATCHES "${service}"))
        message(FATAL_ERROR "${program}: ${run_output}")
    endif()
endfunction()

file(GLOB sources ${examples}/*.c)
if(NOT sources)
    message(FATAL_ERROR "no examples in ${examples}")
endif()
foreach(source ${sources})
    cmake_path(GET source STEM name)
    pkgconfig_build(${work}/${name} ${source} orva_si orva_demux orva_platform)
    check_example(${work}/${name})
    check_example(${work}/package/${name})
endforeach()

# Each module of pkg-config is enough for a client of its library alone.
foreach(module_call "orva_platform|orva_platform.h|Orva_Util_Delay(1)" "orva_si|orva_si.h|Orva_Si_GetTableList()"
        "orva_demux|orva_demux.h|orva_demux_error_text(ORVA_DEMUX_OK)")
    string(REPLACE "|" ";" module_call "${module_call}")
    list(POP_FRONT module_call module header call)
    file(WRITE ${work}/${module}.c "#include <${header}>\nint main(void)\n{\n    (void)${call};\n    return 0;\n}\n")
    pkgconfig_build(${work}/${module} ${work}/${module}.c ${module})
    run(${work}/${module})
    run(${pkgconfig} --modversion ${module})
    string(STRIP "${run_output}" told)
    if(NOT told STREQUAL version)
        message(FATAL_ERROR "${module} says that its version is ${told}")
    endif()
endforeach()
