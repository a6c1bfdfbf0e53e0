# The layer rule: a file may include headers of its own layer and the layers
# below, never one above. Reads the manifest the build writes (one line per
# file: "<level> <layer> <path>") and checks every #include "..." of every
# listed file; a quoted include of a header that no layer lists fails too, so
# each new header has to be placed in a layer.
# Run as: cmake -DMANIFEST=<build>/qx_layers.txt -P check_layers.cmake
file(STRINGS "${MANIFEST}" lines)
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([0-9]+) ([^ ]+) (.+)$" _ "${line}")
  get_filename_component(name "${CMAKE_MATCH_3}" NAME)
  set(level_${name} ${CMAKE_MATCH_1})
  set(layer_${name} ${CMAKE_MATCH_2})
endforeach()
set(errors "")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([0-9]+) ([^ ]+) (.+)$" _ "${line}")
  set(level ${CMAKE_MATCH_1})
  set(layer ${CMAKE_MATCH_2})
  set(path ${CMAKE_MATCH_3})
  file(STRINGS "${path}" includes REGEX "^#include \"")
  foreach(inc IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*$" "\\1" header "${inc}")
    get_filename_component(hname "${header}" NAME)
    if(NOT DEFINED level_${hname})
      string(APPEND errors "${path}: includes ${header}, which no layer lists\n")
    elseif(level_${hname} GREATER level)
      string(APPEND errors
        "${path} (${layer}) includes ${header} of the higher layer ${layer_${hname}}\n")
    endif()
  endforeach()
endforeach()
if(errors)
  message(FATAL_ERROR "layer rule broken:\n${errors}")
endif()
list(LENGTH lines n)
message(STATUS "layer rule holds for ${n} files")
