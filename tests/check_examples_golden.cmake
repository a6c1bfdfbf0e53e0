# Runs qxclassify on the bundled examples and compares its output with the
# golden texts (kept in UTF-8 for review): the --utf8 output byte for byte,
# the default output as its GBK form. With DATA also the UTF-8 sources with
# --encoding utf8 (translated: UTF-8 output either way, tabs lost in the
# detail reports) and class names holding blanks and digits. A missing rule
# list or data folder exits 1 with the library's message, an unknown encoding
# is bad usage, and no log file is written by default.
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

# run_tool(OUTPUT_FILE RULES DOCS_DIR args...): the tool must succeed.
function(run_tool output_file rules docs)
  execute_process(COMMAND ${TOOL} ${ARGN} ${rules} ${docs}
    WORKING_DIRECTORY ${WORK} OUTPUT_FILE ${output_file}
    RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "qxclassify ${ARGN} failed (${rc}): ${err}")
  endif()
endfunction()

# expect_failure(STATUS MESSAGE args...): the tool exits with STATUS and its
# standard error is MESSAGE (for status 2: begins with it).
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

set(RULES ${EXAMPLES}/rules.txt)
run_tool(${WORK}/output_utf8.txt ${RULES} ${EXAMPLES}/docs --utf8)
expect_same(${WORK}/output_utf8.txt ${GOLDEN})
execute_process(COMMAND iconv -f UTF-8 -t GBK ${GOLDEN} OUTPUT_FILE ${WORK}/expected_gbk.txt)
run_tool(${WORK}/output_gbk.txt ${RULES} ${EXAMPLES}/docs)
expect_same(${WORK}/output_gbk.txt ${WORK}/expected_gbk.txt)

if(DEFINED DATA)
  foreach(utf8 "" --utf8)
    run_tool(${WORK}/out.txt ${RULES} ${EXAMPLES}/src/docs ${utf8} --encoding utf8 --data ${DATA})
    expect_same(${WORK}/out.txt ${GOLDEN_UTF8_INPUT})
  endforeach()

  # The translated result "1 体育 1.00002 财经 1.0000" (no tabs) must give two
  # classes, and the first one's name must find its detail report.
  set(r "</classid><toprule>YES</toprule><effectvalue>1.0</effectvalue><imperfectvsmsim>0.5")
  string(APPEND r "</imperfectvsmsim><subrules><subrulenum>1</subrulenum><subrule id=\"1\">")
  string(APPEND r "<operator>OR/TEXT/1</operator><value>")
  set(end "</value></subrule></subrules></rule>\n")
  file(WRITE ${WORK}/blanks/rules.utf8 "<certainty>0.6</certainty><rules><rulenum>2</rulenum>\n"
    "<rule id=\"0\"><classid>1 体育${r}比赛${end}"
    "<rule id=\"1\"><classid>2 财经${r}股市${end}</rules>")
  execute_process(COMMAND iconv -f UTF-8 -t GBK ${WORK}/blanks/rules.utf8
    OUTPUT_FILE ${WORK}/blanks/rules.txt)
  file(WRITE ${WORK}/blanks/docs/a.txt "股市比赛\n今天的比赛和股市\n")
  file(WRITE ${WORK}/blanks/expected.txt "encoding: utf8 (code 5)\n== a.txt\n  1 体育 1.0000\n"
    "  2 财经 1.0000\ndetail of 1 体育:\nRULE0:\nSUBRULE1: 比赛 2\n\n1 documents, 1 with a class\n")
  run_tool(${WORK}/blanks/out.txt ${WORK}/blanks/rules.txt ${WORK}/blanks/docs
    --encoding utf8 --data ${DATA})
  expect_same(${WORK}/blanks/out.txt ${WORK}/blanks/expected.txt)
else()
  message(STATUS "no translator data folder: the --encoding utf8 runs are skipped")
endif()

set(MISSING ${WORK}/no-such-rules.txt)
expect_failure(1 "qxclassify: Cannot open  file ${MISSING}\n" ${MISSING} ${EXAMPLES}/docs)
# The working directory holds no "Data" folder.
expect_failure(1 "qxclassify: ${WORK}/Data/GBK.pdat cannot load!\n"
  --encoding utf8 ${RULES} ${EXAMPLES}/src/docs)
expect_failure(2 "qxclassify: unknown encoding 'utf-16'\n"
  --encoding utf-16 ${RULES} ${EXAMPLES}/docs)

file(GLOB LOGS ${WORK}/*.log ${WORK}/*.err)
if(LOGS)
  message(FATAL_ERROR "qxclassify wrote log files without --log: ${LOGS}")
endif()
