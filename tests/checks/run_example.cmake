# Runs an example: its standard output must be what a file holds, its exit status what is expected.
execute_process(COMMAND ${program} ${argument} ${second} OUTPUT_VARIABLE output ERROR_VARIABLE errors
    RESULT_VARIABLE result)
file(READ ${expected} wanted)
if(NOT result STREQUAL status OR NOT output STREQUAL wanted)
    message(FATAL_ERROR "${program}: ${result}\n${output}\nwanted: ${status}\n${wanted}\n${errors}")
endif()
