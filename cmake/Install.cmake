# Installs the library, its public headers, the lab and a package, so that a host says
#   find_package(tagport) and target_link_libraries(host PRIVATE tagport::tagport).
# The libraries that tagport needs at run time go with it.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tagport)
set(installed_targets tagport TraceLog LinkDockService)
if(NOT WIN32)
  list(APPEND installed_targets platform_system)
  # The libraries find each other wherever the installed tree is moved.
  set_target_properties(${installed_targets} PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS ${installed_targets} EXPORT tagportTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET tagport-lab)
  set_target_properties(tagport-lab PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS tagport-lab RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_BINARY_DIR}/generated/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
if(TAGPORT_RUNTIME_DLLS)
  install(FILES ${TAGPORT_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT tagportTargets NAMESPACE tagport:: DESTINATION ${package_directory})
configure_package_config_file(cmake/tagportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tagportConfig.cmake INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tagportConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/tagportConfig.cmake ${PROJECT_BINARY_DIR}/tagportConfigVersion.cmake
  DESTINATION ${package_directory})
