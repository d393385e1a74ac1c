# Installs to a folder of its own and builds the example client against it, twice: with find_package and with pkg-config.
file(REMOVE_RECURSE ${work})
set(prefix ${work}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE text)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}: ${result}\n${text}")
    endif()
endfunction()

# A client that runs far enough to speak through the demultiplexer has found all its libraries.
function(check_client client)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${libdir} ${client} ${work}/no-such.ts
        RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE text)
    if(NOT result EQUAL 1 OR NOT text MATCHES "no-such\\.ts: .+")
        message(FATAL_ERROR "${client}: ${result}\n${text}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${build} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${examples} -B ${work}/package -G ${generator} -D CMAKE_PREFIX_PATH=${prefix}
    -D CMAKE_C_COMPILER=${compiler})
run(${CMAKE_COMMAND} --build ${work}/package)
check_client(${work}/package/list_services)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${libdir}/pkgconfig)
execute_process(COMMAND ${pkgconfig} --cflags --libs orva_si orva_demux orva_platform
    RESULT_VARIABLE result OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config: ${result}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${compiler} -std=c11 ${examples}/list_services.c -o ${work}/pkgconfig_client ${flags})
check_client(${work}/pkgconfig_client)
