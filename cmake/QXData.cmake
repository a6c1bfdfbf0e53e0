# The code translator's data folder: qxmakedata writes the dictionaries, word
# lists and id maps of every encoding into ${PROJECT_BINARY_DIR}/Data, from
# glibc iconv and OpenCC's simplified/traditional tables, which opencc_dict
# dumps as text into ${PROJECT_BINARY_DIR}/opencc first. The target qxdata
# (built by default) reruns the tool only when it or the tables change.
#
# QX_DATA_DIR is the data directory to hand the translator: the folder whose
# "Data" subfolder holds the files.

set(QX_DATA_DIR "${PROJECT_BINARY_DIR}")

if(QX_BUILD_DATA)
  find_program(QX_OPENCC_DICT opencc_dict)
  if(NOT QX_OPENCC_DICT)
    message(WARNING "opencc_dict not found: the translator's data folder is not built; "
                    "run: bash scripts/deps.sh opencc")
  else()
    get_filename_component(_qx_opencc_bin "${QX_OPENCC_DICT}" DIRECTORY)
    find_path(QX_OPENCC_TABLES STCharacters.ocd2
      HINTS "${_qx_opencc_bin}/../share/opencc"
      PATHS /usr/share/opencc /usr/local/share/opencc)
    if(NOT QX_OPENCC_TABLES)
      message(WARNING "OpenCC's tables (STCharacters.ocd2) not found: the translator's data "
                      "folder is not built; run: bash scripts/deps.sh opencc")
    endif()
  endif()
endif()

if(QX_BUILD_DATA AND QX_OPENCC_DICT AND QX_OPENCC_TABLES)
  set(_qx_text_dir "${PROJECT_BINARY_DIR}/opencc")
  set(_qx_texts)
  foreach(_table STCharacters STPhrases TSCharacters TSPhrases)
    add_custom_command(
      OUTPUT "${_qx_text_dir}/${_table}.txt"
      COMMAND ${CMAKE_COMMAND} -E make_directory "${_qx_text_dir}"
      COMMAND "${QX_OPENCC_DICT}" -i "${QX_OPENCC_TABLES}/${_table}.ocd2"
              -o "${_qx_text_dir}/${_table}.txt" -f ocd2 -t text
      DEPENDS "${QX_OPENCC_TABLES}/${_table}.ocd2"
      COMMENT "Dumping OpenCC table ${_table}"
      VERBATIM)
    list(APPEND _qx_texts "${_qx_text_dir}/${_table}.txt")
  endforeach()

  set(_qx_data_files)
  foreach(_name GBK.pdat GBK.wordlist GBKA.pdat GBKA.wordlist UTF8.pdat UTF8.wordlist
                BIG5.pdat BIG5.wordlist UTF2GBKA.map GBKA2UTF.map BIG2GBK.map GBK2BIG.map
                GBKA2GBK.map GBK2GBKA.map UTF2GBK.map GBK2UTF.map)
    list(APPEND _qx_data_files "${QX_DATA_DIR}/Data/${_name}")
  endforeach()
  add_custom_command(
    OUTPUT ${_qx_data_files}
    COMMAND qxmakedata --opencc "${_qx_text_dir}" --out "${QX_DATA_DIR}/Data"
    DEPENDS qxmakedata ${_qx_texts}
    COMMENT "Writing the translator's data folder ${QX_DATA_DIR}/Data"
    VERBATIM)
  add_custom_target(qxdata ALL DEPENDS ${_qx_data_files})
endif()
