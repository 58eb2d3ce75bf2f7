# Installs the library and a CMake package, so that a host needs only
#   find_package(tagport) and target_link_libraries(host PRIVATE tagport::tagport).
#
# Components:
#   library    tagport, its public headers, the CMake package, a file for pkg-config; with
#              BUILD_SHARED_LIBS=OFF a static library
#   stand-ins  the libraries that stand in for the platform's own (the logger, the Bluetooth client
#              and, off Windows, the operating system), with the headers of the two services
#   simulator  off Windows: a simulated PC for the tests of hosts, tagport::simulator
#   lab        tagport-lab
#   devices    on Windows: the simulated devices and their test drivers, signed by nobody
#   examples   the sources of some hosts, and a configuration
#   docs       the manual: what a user of the package reads, and the reference in HTML
#
# Off Windows all are installed by default: the library does not load without the stand-ins. A
# Windows PC has the real services, under the same file names, so `stand-ins` is installed there
# only by name, and so is `devices`:
#   cmake --install BUILD --prefix DIRECTORY --component stand-ins
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tagport)
# The headers have the platform's names. In a directory of their own a host finds them only when it
# links a stand-in, and includes them as the tree does: <platform/services/TraceLog.h>.
set(stand_in_include ${CMAKE_INSTALL_INCLUDEDIR}/tagport/stand-ins)
set(stand_ins tagport_tracelog tagport_linkdock)
set(by_name_only)
if(WIN32)
  set(by_name_only EXCLUDE_FROM_ALL)
else()
  list(APPEND stand_ins tagport_system)
  # The libraries find each other wherever the installed tree is moved.
  set_target_properties(tagport tagport_simulator ${stand_ins} PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
set(library_targets tagport)
if(WIN32 AND NOT BUILD_SHARED_LIBS)
  list(APPEND library_targets tagport_system)  # the libraries of Windows that a host links
endif()

if(MINGW)
  # On Windows nothing else separates what a user gets from what a debugger needs. The build keeps it.
  install(CODE "set(CMAKE_INSTALL_DO_STRIP TRUE)" COMPONENT library)
endif()
install(TARGETS ${library_targets} EXPORT tagportTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_BINARY_DIR}/generated/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library FILES_MATCHING PATTERN "*.h")
if(TAGPORT_RUNTIME_DLLS)
  install(FILES ${TAGPORT_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
  foreach(licence IN LISTS TAGPORT_RUNTIME_LICENCES)
    cmake_path(GET licence PARENT_PATH package)
    cmake_path(GET package FILENAME package)
    install(FILES ${licence} DESTINATION ${CMAKE_INSTALL_DOCDIR}
      RENAME licence-of-${package}.txt COMPONENT library)
  endforeach()
endif()

if(TAGPORT_STAND_INS)
  install(TARGETS ${stand_ins} EXPORT tagportStandIns
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT stand-ins ${by_name_only}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT stand-ins ${by_name_only}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT stand-ins ${by_name_only}
    INCLUDES DESTINATION ${stand_in_include})
  install(FILES
    ${PROJECT_SOURCE_DIR}/platform/services/TraceLog.h
    ${PROJECT_SOURCE_DIR}/platform/services/LinkDockService.h
    ${PROJECT_BINARY_DIR}/generated/platform/services/tracelog_export.h
    ${PROJECT_BINARY_DIR}/generated/platform/services/linkdock_export.h
    DESTINATION ${stand_in_include}/platform/services COMPONENT stand-ins ${by_name_only})
  install(EXPORT tagportStandIns NAMESPACE tagport:: DESTINATION ${package_directory}
    COMPONENT stand-ins ${by_name_only})
endif()

# install_pkgconfig(NAME COMPONENT...): cmake/NAME.pc.in, with the way from its directory to the
# prefix, so that an installed tree can be moved.
set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TAGPORT_PC_PREFIX /${pkgconfig_directory} /)
function(install_pkgconfig name)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_directory} ${ARGN})
endfunction()
set(TAGPORT_PC_LIBS -ltagport)
set(TAGPORT_PC_CFLAGS)
if(NOT BUILD_SHARED_LIBS)
  set(TAGPORT_PC_LIBS "-ltagport -lTraceLog -lLinkDockService -ltagport-emulation -pthread -Wl,-z,nodelete")
  if(WIN32)
    set(TAGPORT_PC_LIBS "-ltagport -lTraceLog -lLinkDockService -lhid -lsetupapi")
  endif()
  set(TAGPORT_PC_CFLAGS -DTAGPORT_STATIC_DEFINE)
endif()
install_pkgconfig(tagport COMPONENT library)
if(TAGPORT_STAND_INS)
  install_pkgconfig(tagport-tracelog COMPONENT stand-ins ${by_name_only})
endif()

if(TARGET tagport_simulator)
  install(TARGETS tagport_simulator EXPORT tagportSimulator
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT simulator
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES
    ${PROJECT_SOURCE_DIR}/simulator/include/tagport/Simulator.h
    ${PROJECT_BINARY_DIR}/generated/simulator/tagport/simulator_export.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tagport COMPONENT simulator)
  install(EXPORT tagportSimulator NAMESPACE tagport:: DESTINATION ${package_directory}
    COMPONENT simulator)
  install_pkgconfig(tagport-simulator COMPONENT simulator)
endif()

set(example_directory ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${example_directory}
  COMPONENT examples)

# They link to each other only: scripts/checks/package looks at the installed ones.
set(manual docs/reference.md docs/lab.md CHANGELOG.md)
list(TRANSFORM manual PREPEND ${PROJECT_SOURCE_DIR}/)
install(FILES ${manual} ${TAGPORT_LOG_PAGE} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)
install(FILES ${PROJECT_SOURCE_DIR}/docs/package.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
  RENAME README.md COMPONENT docs)
if(TARGET tagport_docs)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT docs)
endif()

if(TARGET tagport-lab)
  set_target_properties(tagport-lab PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS tagport-lab
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT lab)
  if(TARGET tagport-relay)
    install(TARGETS tagport-devices tagport-relay tagport-hid tagport-hidbus
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT devices ${by_name_only}
      LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT devices ${by_name_only})
  endif()
endif()

install(EXPORT tagportTargets NAMESPACE tagport:: DESTINATION ${package_directory}
  COMPONENT library)
set(TAGPORT_COMPILER_FAMILY "g++ and clang++")
if(MSVC)
  set(TAGPORT_COMPILER_FAMILY "Microsoft, run-time MultiThreadedDLL")
  if(CMAKE_BUILD_TYPE STREQUAL Debug)
    set(TAGPORT_COMPILER_FAMILY "Microsoft, run-time MultiThreadedDebugDLL")
  endif()
endif()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tagportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tagportConfig.cmake INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tagportConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/tagportConfig.cmake ${PROJECT_BINARY_DIR}/tagportConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT library)
