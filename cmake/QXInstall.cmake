# Install rules: the shared library, the public headers (QXClassifier.h and
# the QXDoc.h it includes), the qxclassify tool, and a pkg-config file.
#
# Layout under the prefix: <libdir>/libqxclassifier.so*,
# <includedir>/qxclassifier/{QXClassifier.h,QXDoc.h}, <bindir>/qxclassify and
# <libdir>/pkgconfig/qxclassifier.pc. The .pc file finds the prefix relative
# to its own place (${pcfiledir}), so `cmake --install --prefix` may choose
# any prefix after configuring.
include(GNUInstallDirs)

install(TARGETS qxclassifier
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/Src/Classifier/API/QXClassifier.h
  ${PROJECT_SOURCE_DIR}/Src/Classifier/API/QXDoc.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qxclassifier)

# The installed tool finds the installed library next to it.
file(RELATIVE_PATH QX_BIN_TO_LIB
  "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set_target_properties(qxclassify PROPERTIES INSTALL_RPATH "$ORIGIN/${QX_BIN_TO_LIB}")
install(TARGETS qxclassify RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

file(RELATIVE_PATH QX_PC_TO_PREFIX
  "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" QX_PC_TO_PREFIX "${QX_PC_TO_PREFIX}")
file(RELATIVE_PATH QX_PC_LIBDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH QX_PC_INCLUDEDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/qxclassifier.pc.in
  ${PROJECT_BINARY_DIR}/qxclassifier.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qxclassifier.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
