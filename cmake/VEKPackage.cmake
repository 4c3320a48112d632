# find_package(VEKTPSLightParser) and pkg-config support for hosts.
include(CMakePackageConfigHelpers)
set(VEK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VEKTPSLightParser)

install(EXPORT VEKTPSLightParserTargets
  NAMESPACE VEK::
  DESTINATION ${VEK_CMAKE_DIR})
configure_package_config_file(cmake/VEKTPSLightParserConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParserConfig.cmake
  INSTALL_DESTINATION ${VEK_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParserConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParserConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParserConfigVersion.cmake
  DESTINATION ${VEK_CMAKE_DIR})

# The .pc file finds its prefix from its own location, so an installed tree can be moved.
file(RELATIVE_PATH VEK_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" VEK_PC_TO_PREFIX "${VEK_PC_TO_PREFIX}")
configure_file(cmake/VEKTPSLightParser.pc.in ${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParser.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VEKTPSLightParser.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
