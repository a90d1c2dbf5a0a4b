# A short run of the look-ups ends well, and its record holds every measurement that was planned.
# usage: cmake -DBENCH=... -DVERDICT=... -DRECORD=... -P channels_run.cmake
execute_process(COMMAND ${BENCH} ${RECORD} --short RESULT_VARIABLE result ERROR_VARIABLE log OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "ended with ${result}:\n${log}")
endif()
execute_process(COMMAND ${VERDICT} ${RECORD} RESULT_VARIABLE result OUTPUT_VARIABLE text)
file(REMOVE ${RECORD})
# Two rows for each of 16 look-ups, one for each of four queries.
if(NOT result EQUAL 0 OR NOT text MATCHES "\ngoals met: [0-9]+ of 36\n$")
  message(FATAL_ERROR "judged with ${result}:\n${text}")
endif()
