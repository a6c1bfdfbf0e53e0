# Install rules: the shared library, the public headers (QXClassifier.h and
# the QXDoc.h and QXExport.h it includes), the qxclassify and qxmakedata
# tools, a CMake package and a pkg-config file.
#
# Layout under the prefix: <libdir>/libqxclassifier.so*,
# <includedir>/qxclassifier/{QXClassifier.h,QXDoc.h,QXExport.h},
# <bindir>/{qxclassify,qxmakedata}, <libdir>/cmake/QXClassifier/ (package
# config, version and the exported target QXClassifier::qxclassifier) and
# <libdir>/pkgconfig/qxclassifier.pc. Both package files find the prefix
# relative to their own place, so `cmake --install --prefix` may choose any
# prefix after configuring.
include(CMakePackageConfigHelpers)

set(QX_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QXClassifier)

install(TARGETS qxclassifier EXPORT QXClassifierTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/Src/Classifier/API/QXClassifier.h
  ${PROJECT_SOURCE_DIR}/Src/Classifier/API/QXDoc.h
  ${PROJECT_SOURCE_DIR}/Src/Classifier/API/QXExport.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qxclassifier)

install(EXPORT QXClassifierTargets
  NAMESPACE QXClassifier::
  DESTINATION ${QX_CMAKE_PACKAGE_DIR})
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/QXClassifierConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QXClassifierConfig.cmake
  INSTALL_DESTINATION ${QX_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/QXClassifierConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/QXClassifierConfig.cmake
  ${PROJECT_BINARY_DIR}/QXClassifierConfigVersion.cmake
  DESTINATION ${QX_CMAKE_PACKAGE_DIR})

# The installed tool finds the installed library next to it.
file(RELATIVE_PATH QX_BIN_TO_LIB
  "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set_target_properties(qxclassify PROPERTIES INSTALL_RPATH "$ORIGIN/${QX_BIN_TO_LIB}")
install(TARGETS qxclassify qxmakedata RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

file(RELATIVE_PATH QX_PC_TO_PREFIX
  "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" QX_PC_TO_PREFIX "${QX_PC_TO_PREFIX}")
file(RELATIVE_PATH QX_PC_LIBDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH QX_PC_INCLUDEDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/qxclassifier.pc.in
  ${PROJECT_BINARY_DIR}/qxclassifier.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qxclassifier.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
