# Runs qxmakedata twice into scratch folders and requires the two results and
# the build's own data folder to be the same, byte for byte, file by file.
# -DTOOL=<qxmakedata> -DOPENCC=<dir of the table dumps> -DDATA=<build's Data>
# -DWORK=<scratch dir>
set(_files GBK.pdat GBK.wordlist GBKA.pdat GBKA.wordlist UTF8.pdat UTF8.wordlist
           BIG5.pdat BIG5.wordlist UTF2GBKA.map GBKA2UTF.map BIG2GBK.map GBK2BIG.map
           GBKA2GBK.map GBK2GBKA.map UTF2GBK.map GBK2UTF.map)

file(REMOVE_RECURSE "${WORK}")
foreach(_run a b)
  execute_process(COMMAND "${TOOL}" --opencc "${OPENCC}" --out "${WORK}/${_run}"
    RESULT_VARIABLE _rc OUTPUT_QUIET ERROR_VARIABLE _err)
  if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "qxmakedata run ${_run} failed (${_rc}): ${_err}")
  endif()
endforeach()

foreach(_f IN LISTS _files)
  foreach(_other "${WORK}/b/${_f}" "${DATA}/${_f}")
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${WORK}/a/${_f}" "${_other}"
      RESULT_VARIABLE _diff)
    if(NOT _diff EQUAL 0)
      message(FATAL_ERROR "${WORK}/a/${_f} differs from ${_other}")
    endif()
  endforeach()
endforeach()
file(REMOVE_RECURSE "${WORK}")
message(STATUS "16 files identical in two runs and the build's data folder")
