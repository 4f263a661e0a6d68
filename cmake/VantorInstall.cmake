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

configure_file(${PROJECT_SOURCE_DIR}/cmake/vantorutils.pc.in ${PROJECT_BINARY_DIR}/vantorutils.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vantorutils.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
