# vek_add_component(<name> SOURCES <files...> [PUBLIC_DEPS <targets...>] [PRIVATE_DEPS <targets...>])
# Adds one shared library of the project: hidden symbols by default, versioned, installed and
# exported under the VEK:: namespace.
function(vek_add_component name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  add_library(VEK::${name} ALIAS ${name})
  target_link_libraries(${name} PUBLIC VEKDeclarations ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/VEKExports.map)
  # The sanitizer runtimes are linked into executables only, so shared libraries keep undefined
  # references to them.
  if(NOT VEK_SANITIZE AND NOT VEK_SANITIZE_THREAD)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/VEKExports.map)
  # Installed, each library finds the others beside it, in any prefix and with no
  # LD_LIBRARY_PATH. A RUNPATH serves only the object's own dependencies, so every library carries
  # one; unlike an RPATH it still lets LD_LIBRARY_PATH substitute a library. The build tree keeps
  # CMake's absolute run paths.
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
  target_link_options(${name} PRIVATE -Wl,--enable-new-dtags)
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS ${name} EXPORT VEKTPSLightParserTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
