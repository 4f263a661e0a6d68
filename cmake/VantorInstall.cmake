include(CMakePackageConfigHelpers)

install(TARGETS vantorutils vantorplatform
  EXPORT VantorUtilsTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantor)

file(GLOB VANTOR_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/include/*.h)
file(GLOB VANTOR_PLATFORM_HEADERS ${PROJECT_SOURCE_DIR}/platform/include/*.h)
install(FILES ${VANTOR_PUBLIC_HEADERS} ${VANTOR_PLATFORM_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantor)

install(EXPORT VantorUtilsTargets
  NAMESPACE Vantor::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantorUtils)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VantorUtilsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VantorUtilsConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantorUtils)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantorUtilsConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VantorUtilsConfig.cmake ${PROJECT_BINARY_DIR}/VantorUtilsConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantorUtils)

# The prefix is found from where the .pc file lies, so that an installation made with
# `cmake --install --prefix <dir>` (or moved afterwards) points at its own files.
file(RELATIVE_PATH VANTOR_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" VANTOR_PC_TO_PREFIX "${VANTOR_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/vantorutils.pc.in ${PROJECT_BINARY_DIR}/vantorutils.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vantorutils.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
