# run(COMMAND...): the command has to succeed; what it writes to standard output is in run_output.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}: ${result}\n${output}${errors}")
    endif()
    set(run_output "${output}" PARENT_SCOPE)
endfunction()
