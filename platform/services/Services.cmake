# The two closed libraries that the PC has beside tagport: its logger, TraceLog.dll, and its Bluetooth
# client, LinkDockService.dll. They become the targets tagport_tracelog and
# tagport_linkdock.
#
# By default both are the stand-ins of platform/services/standin. A build for the Microsoft C++ ABI,
# which is theirs, may name the real ones instead, each by its import library or by the DLL itself; for
# a DLL an import library is made from the names in platform/services/names. Then no stand-in is built,
# and nothing that needs one.
#
# Where a real library declares an operation in another way than platform/services/TraceLog.h or
# platform/services/LinkDockService.h, the header has to be changed to its declaration, and
# `scripts/checks/exports --write tagport.dll` writes the list of names.
set(TAGPORT_TRACELOG "" CACHE FILEPATH "The PC's TraceLog.dll or its import library (Windows)")
set(TAGPORT_LINKDOCK "" CACHE FILEPATH "The PC's LinkDockService.dll or its import library (Windows)")

set(TAGPORT_STAND_INS TRUE)
if(TAGPORT_TRACELOG OR TAGPORT_LINKDOCK)
  set(TAGPORT_STAND_INS FALSE)
  if(NOT MSVC)
    message(FATAL_ERROR "TAGPORT_TRACELOG and TAGPORT_LINKDOCK are for the Microsoft C++ ABI: "
      "with ${CMAKE_CXX_COMPILER_ID} there are stand-ins alone")
  endif()
  if(NOT TAGPORT_TRACELOG OR NOT TAGPORT_LINKDOCK)
    message(FATAL_ERROR "TAGPORT_TRACELOG and TAGPORT_LINKDOCK: give both or none")
  endif()
endif()

# Ends the configuration unless `file` has all the names of the .def file.
function(tagport_check_names option file names)
  file(STRINGS ${file} found REGEX "^(__imp_)?[?]")
  if(NOT found)
    message(FATAL_ERROR "${option}: '${file}' is neither a DLL nor an import library "
      "of the Microsoft compiler")
  endif()
  list(TRANSFORM found REPLACE "^__imp_" "")
  foreach(name IN LISTS names)
    if(NOT name IN_LIST found)
      message(FATAL_ERROR "${option}: '${file}' does not have ${name}, which the library calls")
    endif()
  endforeach()
endfunction()

# tagport_service(TARGET NAME OPTION MACRO HEADER): the imported target, and the header that the
# stand-in would generate.
function(tagport_service target name option macro header)
  set(file ${${option}})
  if(NOT EXISTS ${file} OR IS_DIRECTORY ${file})
    message(FATAL_ERROR "${option}: no file '${file}'")
  endif()
  set(definition ${PROJECT_SOURCE_DIR}/platform/services/names/msvc/${name}.def)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file} ${definition})
  file(STRINGS ${definition} names REGEX "^    ")
  list(TRANSFORM names STRIP)
  tagport_check_names(${option} ${file} "${names}")

  set(library ${file})
  get_filename_component(extension ${file} LAST_EXT)
  string(TOLOWER "${extension}" extension)
  if(extension STREQUAL .dll)
    set(library ${PROJECT_BINARY_DIR}/services/${name}.lib)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/services)
    execute_process(
      COMMAND ${CMAKE_AR} /nologo /machine:x64 /def:${definition} /out:${library}
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()

  add_library(${target} SHARED IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES
    IMPORTED_LOCATION ${file} IMPORTED_IMPLIB ${library})
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/platform/services/${header}
    CONTENT "#pragma once\n#define ${macro} __declspec(dllimport)\n")
endfunction()

if(NOT TAGPORT_STAND_INS)
  tagport_service(tagport_tracelog TraceLog TAGPORT_TRACELOG TRACELOG_EXPORT tracelog_export.h)
  tagport_service(tagport_linkdock LinkDockService TAGPORT_LINKDOCK LINKDOCK_EXPORT linkdock_export.h)
  if(TAGPORT_LAB)
    message(STATUS "tagport-lab is left out: it works with the stand-ins alone")
    set(TAGPORT_LAB OFF)
  endif()
endif()
