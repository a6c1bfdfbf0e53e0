# Checks that the shared library exports the given symbols with plain names.
# Run as: cmake -DLIB=<path to libqxclassifier.so> -P check_exports.cmake
set(REQUIRED_SYMBOLS
  g_bLog
  classifier_init
  classifier_exit
  classifier_setsimthresh
  classifier_GetLastErrorMsg
  classifier_exec1
  classifier_exec
  classifier_execFile
  classifier_detail)

execute_process(COMMAND nm -D --defined-only ${LIB}
  OUTPUT_VARIABLE NM_OUT RESULT_VARIABLE NM_RC)
if(NOT NM_RC EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
foreach(sym IN LISTS REQUIRED_SYMBOLS)
  if(NOT NM_OUT MATCHES "[ \t][A-Za-z][ \t]${sym}\n")
    message(FATAL_ERROR "${LIB} does not export ${sym}")
  endif()
endforeach()
message(STATUS "all ${REQUIRED_SYMBOLS} exported")
