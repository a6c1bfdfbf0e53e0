# Checks that the shared library exports exactly the public names, with plain
# (unmangled) names: every classifier_ call and g_bLog, and nothing else.
# Run as: cmake -DLIB=<path to libqxclassifier.so> -P check_exports.cmake
set(PUBLIC_SYMBOLS
  classifier_GetLastErrorMsg
  classifier_detail
  classifier_exec
  classifier_exec1
  classifier_execFile
  classifier_exit
  classifier_init
  classifier_setprogress
  classifier_setsimthresh
  g_bLog)

execute_process(COMMAND nm -D --defined-only ${LIB}
  OUTPUT_VARIABLE NM_OUT RESULT_VARIABLE NM_RC)
if(NOT NM_RC EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX MATCHALL "[^\n]+" NM_LINES "${NM_OUT}")
set(EXPORTED)
foreach(line IN LISTS NM_LINES)
  string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] +" "" sym "${line}")
  list(APPEND EXPORTED "${sym}")
endforeach()
list(SORT EXPORTED)
if(NOT EXPORTED STREQUAL PUBLIC_SYMBOLS)
  string(REPLACE ";" "\n  " got "${EXPORTED}")
  string(REPLACE ";" "\n  " want "${PUBLIC_SYMBOLS}")
  message(FATAL_ERROR "${LIB} exports\n  ${got}\nbut the public names are\n  ${want}")
endif()
message(STATUS "exactly the ${PUBLIC_SYMBOLS} exported")
