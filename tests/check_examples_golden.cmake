# Runs qxclassify on the bundled examples and compares its output with the
# committed golden texts.
# GBK run: the golden file is kept in UTF-8 for review; the --utf8 output must
# equal it byte for byte, the default output its GBK form.
# UTF-8 run (when DATA is given): the UTF-8 sources of the documents with
# --encoding utf8 --data DATA; the library translates, so the output is UTF-8
# (with or without --utf8) and the detail reports have lost their tabs; and a
# made-up rule list whose class names hold blanks and digits.
# Also: a missing rule list, or a missing translator data folder, gives exit
# status 1 and the library's message; an unknown encoding name is bad usage;
# and no log file is written by default.
# Run as: cmake -DTOOL=<qxclassify> -DEXAMPLES=<examples dir> -DGOLDEN=<file>
#   [-DDATA=<data dir> -DGOLDEN_UTF8_INPUT=<file>] -DWORK=<scratch dir>
#   -P check_examples_golden.cmake
function(expect_same actual expected)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${actual} ${expected}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    execute_process(COMMAND diff -u ${expected} ${actual} OUTPUT_VARIABLE diff)
    message(FATAL_ERROR "${actual} differs from ${expected}:\n${diff}")
  endif()
endfunction()

# run_tool(OUTPUT_FILE DOCS_DIR args...): the tool on the rule list and DOCS_DIR.
function(run_tool output_file docs)
  execute_process(COMMAND ${TOOL} ${ARGN} ${EXAMPLES}/rules.txt ${docs}
    WORKING_DIRECTORY ${WORK} OUTPUT_FILE ${output_file}
    RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "qxclassify ${ARGN} failed (${rc}): ${err}")
  endif()
endfunction()

# expect_failure(STATUS MESSAGE args...): the tool with these arguments exits
# with STATUS and writes exactly MESSAGE (or, for status 2, MESSAGE first) to
# standard error.
function(expect_failure status message)
  execute_process(COMMAND ${TOOL} ${ARGN}
    WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  string(FIND "${err}" "${message}" at)
  if(NOT rc EQUAL status OR (status EQUAL 1 AND NOT err STREQUAL message) OR NOT at EQUAL 0)
    message(FATAL_ERROR "qxclassify ${ARGN}: status ${rc}, message '${err}'")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(REAL_PATH ${WORK} WORK)  # as the library's getcwd sees it

run_tool(${WORK}/output_utf8.txt ${EXAMPLES}/docs --utf8)
expect_same(${WORK}/output_utf8.txt ${GOLDEN})

execute_process(COMMAND iconv -f UTF-8 -t GBK ${GOLDEN}
  OUTPUT_FILE ${WORK}/expected_gbk.txt RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "iconv could not convert ${GOLDEN} to GBK")
endif()
run_tool(${WORK}/output_gbk.txt ${EXAMPLES}/docs)
expect_same(${WORK}/output_gbk.txt ${WORK}/expected_gbk.txt)

if(DEFINED DATA)
  run_tool(${WORK}/output_utf8_input.txt ${EXAMPLES}/src/docs --encoding utf8 --data ${DATA})
  expect_same(${WORK}/output_utf8_input.txt ${GOLDEN_UTF8_INPUT})
  run_tool(${WORK}/output_utf8_input_utf8.txt ${EXAMPLES}/src/docs
    --utf8 --encoding utf8 --data ${DATA})
  expect_same(${WORK}/output_utf8_input_utf8.txt ${GOLDEN_UTF8_INPUT})

  # Class names with blanks, the second starting with a digit: the translated
  # result "1 体育 1.00002 财经 1.0000" (no tabs) must still give two classes,
  # and the first one's name must find its detail report.
  set(rule "<effectvalue>1.0</effectvalue><perfectvsmsim>0.9</perfectvsmsim>")
  string(APPEND rule "<imperfectvsmsim>0.5</imperfectvsmsim><subrules><subrulenum>1</subrulenum>")
  string(APPEND rule "<subrule id=\"1\"><operator>OR/TEXT/1</operator>")
  file(WRITE ${WORK}/blanks/rules.utf8.txt "<certainty>0.6</certainty>\n"
    "<rules><rulenum>2</rulenum>\n"
    "<rule id=\"0\"><classid>1 体育</classid><toprule>YES</toprule>${rule}"
    "<value>比赛</value></subrule></subrules></rule>\n"
    "<rule id=\"1\"><classid>2 财经</classid><toprule>YES</toprule>${rule}"
    "<value>股市</value></subrule></subrules></rule>\n</rules>\n")
  execute_process(COMMAND iconv -f UTF-8 -t GBK ${WORK}/blanks/rules.utf8.txt
    OUTPUT_FILE ${WORK}/blanks/rules.txt RESULT_VARIABLE rc)
  file(WRITE ${WORK}/blanks/docs/a.txt "股市比赛\n今天的比赛和股市\n")
  execute_process(COMMAND ${TOOL} --encoding utf8 --data ${DATA}
      ${WORK}/blanks/rules.txt ${WORK}/blanks/docs
    WORKING_DIRECTORY ${WORK} OUTPUT_VARIABLE out RESULT_VARIABLE rc ERROR_VARIABLE err)
  set(expected "encoding: utf8 (code 5)\n== a.txt\n  1 体育 1.0000\n  2 财经 1.0000\n")
  string(APPEND expected "detail of 1 体育:\nRULE0:\nSUBRULE1: 比赛 2\n\n1 documents, 1 with a class\n")
  if(NOT rc EQUAL 0 OR NOT out STREQUAL expected)
    message(FATAL_ERROR "class names with blanks: status ${rc} ${err}, output:\n${out}")
  endif()
else()
  message(STATUS "no translator data folder: the --encoding utf8 runs are skipped")
endif()

set(MISSING ${WORK}/no-such-rules.txt)
expect_failure(1 "qxclassify: Cannot open  file ${MISSING}\n" ${MISSING} ${EXAMPLES}/docs)
# The working directory holds no "Data" folder.
expect_failure(1 "qxclassify: ${WORK}/Data/GBK.pdat cannot load!\n"
  --encoding utf8 ${EXAMPLES}/rules.txt ${EXAMPLES}/src/docs)
expect_failure(2 "qxclassify: unknown encoding 'utf-16'\n"
  --encoding utf-16 ${EXAMPLES}/rules.txt ${EXAMPLES}/docs)

file(GLOB LOGS ${WORK}/*.log ${WORK}/*.err)
if(LOGS)
  message(FATAL_ERROR "qxclassify wrote log files without --log: ${LOGS}")
endif()
