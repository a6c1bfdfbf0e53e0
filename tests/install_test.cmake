# Installs the build into a scratch prefix and builds the same small caller
# against it twice, with the compiler and pkg-config only and as a CMake
# project with find_package(QXClassifier), and runs both.
# Run as: cmake -DBUILD_DIR=<build tree> -DWORK=<scratch dir> -DCXX=<compiler>
#   -DPKG_CONFIG=<pkg-config> -DSOURCE_DIR=<tests/install> -DSANITIZE=<ON|OFF>
#   -P install_test.cmake
function(run_or_fail what)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
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
get_filename_component(PC_DIR "${PC_FILE}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${PC_DIR})
run_or_fail("pkg-config" ${PKG_CONFIG} --cflags --libs qxclassifier)
separate_arguments(FLAGS UNIX_COMMAND "${RUN_OUTPUT}")
run_or_fail("pkg-config libdir" ${PKG_CONFIG} --variable=libdir qxclassifier)
set(SAN "")
if(SANITIZE)
  set(SAN -fsanitize=address,undefined)
endif()
run_or_fail("compile" ${CXX} -std=c++17 -Wall -Wextra -Werror ${SAN} ${SOURCE_DIR}/use_installed.cpp
  ${FLAGS} -Wl,-rpath,${RUN_OUTPUT} -o ${WORK}/use_installed)
run_or_fail("run (pkg-config)" ${WORK}/use_installed)
run_or_fail("configure (find_package)" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK}/cmake-build
  -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror ${SAN}")
run_or_fail("build (find_package)" ${CMAKE_COMMAND} --build ${WORK}/cmake-build)
run_or_fail("run (find_package)" ${WORK}/cmake-build/use_installed)
