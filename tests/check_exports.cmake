# The shared library exports exactly the public names, unmangled: every
# classifier_ call and g_bLog, nothing else.
# Run as: cmake -DLIB=<path to libqxclassifier.so> -P check_exports.cmake
set(PUBLIC classifier_GetLastErrorMsg classifier_detail classifier_exec classifier_exec1
  classifier_execFile classifier_exit classifier_init classifier_setprogress
  classifier_setsimthresh g_bLog)
execute_process(COMMAND nm -D --defined-only ${LIB} OUTPUT_VARIABLE out COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[0-9a-fA-F]* *[A-Za-z] +([^\n]+)\n" "\\1;" exported "${out}")
string(REGEX REPLACE ";$" "" exported "${exported}")
list(SORT exported)
if(NOT exported STREQUAL PUBLIC)
  message(FATAL_ERROR "${LIB} exports\n  ${exported}\nbut the public names are\n  ${PUBLIC}")
endif()
