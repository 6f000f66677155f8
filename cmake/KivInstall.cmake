# Install rules: the library, its headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS KivFramework EXPORT KivFrameworkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/kiv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

set(KIV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KivFramework)
install(EXPORT KivFrameworkTargets
  NAMESPACE KivFramework::
  DESTINATION ${KIV_CMAKE_DIR})
configure_package_config_file(cmake/KivFrameworkConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KivFrameworkConfig.cmake
  INSTALL_DESTINATION ${KIV_CMAKE_DIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/KivFrameworkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KivFrameworkConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KivFrameworkConfigVersion.cmake
  DESTINATION ${KIV_CMAKE_DIR})

# The pkg-config file finds its prefix from its own place, so an installed
# tree can be moved.
file(RELATIVE_PATH KIV_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kivframework.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kivframework.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kivframework.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
