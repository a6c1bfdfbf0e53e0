# Installs the build into a scratch prefix, builds a small caller against it
# with nothing but the compiler and pkg-config, and runs it.
# Run as: cmake -DBUILD_DIR=<build tree> -DWORK=<scratch dir> -DCXX=<compiler>
#   -DPKG_CONFIG=<pkg-config> -DSOURCE=<caller .cpp> -DSANITIZE=<ON|OFF>
#   -P install_test.cmake
function(run_or_fail what)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}${err}")
  endif()
  set(RUN_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(PREFIX ${WORK}/prefix)
run_or_fail("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

file(GLOB_RECURSE PC_FILE ${PREFIX}/*/qxclassifier.pc)
if(NOT PC_FILE)
  message(FATAL_ERROR "qxclassifier.pc not installed under ${PREFIX}")
endif()
get_filename_component(PC_DIR "${PC_FILE}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${PC_DIR})

run_or_fail("pkg-config" ${PKG_CONFIG} --cflags --libs qxclassifier)
separate_arguments(FLAGS UNIX_COMMAND "${RUN_OUTPUT}")
run_or_fail("pkg-config libdir" ${PKG_CONFIG} --variable=libdir qxclassifier)
string(STRIP "${RUN_OUTPUT}" LIBDIR)

set(SANITIZER_FLAGS "")
if(SANITIZE)
  set(SANITIZER_FLAGS -fsanitize=address,undefined)
endif()
run_or_fail("compile" ${CXX} -std=c++17 -Wall -Wextra -Werror ${SANITIZER_FLAGS}
  ${SOURCE} ${FLAGS} -Wl,-rpath,${LIBDIR} -o ${WORK}/use_installed)
run_or_fail("run" ${WORK}/use_installed)
message(STATUS "${RUN_OUTPUT}")
