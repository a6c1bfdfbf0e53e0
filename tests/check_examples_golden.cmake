# Runs qxclassify on the bundled examples and compares its output with the
# committed golden text. The golden file is kept in UTF-8 for review: the
# --utf8 output must equal it byte for byte, the default output its GBK form.
# Also: a missing rule list gives exit status 1 and the library's message,
# and no log file is written by default.
# Run as: cmake -DTOOL=<qxclassify> -DEXAMPLES=<examples dir> -DGOLDEN=<file>
#   -DWORK=<scratch dir> -P check_examples_golden.cmake
function(expect_same actual expected)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${actual} ${expected}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    execute_process(COMMAND diff -u ${expected} ${actual} OUTPUT_VARIABLE diff)
    message(FATAL_ERROR "${actual} differs from ${expected}:\n${diff}")
  endif()
endfunction()

function(run_tool output_file)
  execute_process(COMMAND ${TOOL} ${ARGN} ${EXAMPLES}/rules.txt ${EXAMPLES}/docs
    WORKING_DIRECTORY ${WORK} OUTPUT_FILE ${output_file}
    RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "qxclassify ${ARGN} failed (${rc}): ${err}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

run_tool(${WORK}/output_utf8.txt --utf8)
expect_same(${WORK}/output_utf8.txt ${GOLDEN})

execute_process(COMMAND iconv -f UTF-8 -t GBK ${GOLDEN}
  OUTPUT_FILE ${WORK}/expected_gbk.txt RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "iconv could not convert ${GOLDEN} to GBK")
endif()
run_tool(${WORK}/output_gbk.txt)
expect_same(${WORK}/output_gbk.txt ${WORK}/expected_gbk.txt)

set(MISSING ${WORK}/no-such-rules.txt)
execute_process(COMMAND ${TOOL} ${MISSING} ${EXAMPLES}/docs
  WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 1 OR NOT err STREQUAL "qxclassify: Cannot open  file ${MISSING}\n")
  message(FATAL_ERROR "missing rule list: status ${rc}, message '${err}'")
endif()

file(GLOB LOGS ${WORK}/*.log ${WORK}/*.err)
if(LOGS)
  message(FATAL_ERROR "qxclassify wrote log files without --log: ${LOGS}")
endif()
