# The two closed libraries that the PC has beside tagport: its logger, TraceLog.dll, and its Bluetooth
# client, LinkDockService.dll. They become the targets tagport_tracelog and
# tagport_linkdock.
#
# By default both are the stand-ins of platform/services/standin. A build for Windows may name the real ones
# instead, each by its import library or by the DLL itself; for a DLL an import library is made from
# the names in platform/services/names. Then no stand-in is built, and nothing that needs one.
#
# The names contain the types of the calls, so they are one compiler's: a library of the Microsoft
# compiler is refused by a build with MinGW, and the other way round. Where a real library declares an
# operation in another way than platform/services/TraceLog.h or platform/services/LinkDockService.h, the header and the
# list of names have to be changed to its declaration.
set(TAGPORT_TRACELOG "" CACHE FILEPATH "The PC's TraceLog.dll or its import library (Windows)")
set(TAGPORT_LINKDOCK "" CACHE FILEPATH "The PC's LinkDockService.dll or its import library (Windows)")

set(TAGPORT_STAND_INS TRUE)
if(TAGPORT_TRACELOG OR TAGPORT_LINKDOCK)
  set(TAGPORT_STAND_INS FALSE)
  if(NOT WIN32)
    message(FATAL_ERROR "TAGPORT_TRACELOG and TAGPORT_LINKDOCK are for Windows: "
      "this system has stand-ins alone")
  endif()
  if(NOT TAGPORT_TRACELOG OR NOT TAGPORT_LINKDOCK)
    message(FATAL_ERROR "TAGPORT_TRACELOG and TAGPORT_LINKDOCK: give both or none")
  endif()
endif()

if(MSVC)
  set(names_directory ${PROJECT_SOURCE_DIR}/platform/services/names/msvc)
else()
  set(names_directory ${PROJECT_SOURCE_DIR}/platform/services/names/mingw)
endif()

# Ends the configuration unless `file` has all the names of the .def file.
function(tagport_check_names option file names)
  get_filename_component(extension ${file} LAST_EXT)
  string(TOLOWER "${extension}" extension)
  if(MSVC)
    set(list ${CMAKE_LINKER} /dump /nologo /exports ${file})
  elseif(extension STREQUAL .dll)
    find_program(TAGPORT_OBJDUMP NAMES ${CMAKE_OBJDUMP} x86_64-w64-mingw32-objdump REQUIRED)
    set(list ${TAGPORT_OBJDUMP} --private-headers ${file})
  else()
    find_program(TAGPORT_NM NAMES ${CMAKE_NM} x86_64-w64-mingw32-nm REQUIRED)
    set(list ${TAGPORT_NM} ${file})
  endif()
  execute_process(COMMAND ${list} OUTPUT_VARIABLE found ERROR_QUIET RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${option}: '${file}' is neither a DLL nor an import library")
  endif()
  if(extension STREQUAL .dll AND NOT MSVC)
    # Only the list of exports: a symbol table may have names that nobody else can use.
    string(FIND "${found}" "[Ordinal/Name Pointer] Table\n" start)
    if(start EQUAL -1)
      set(found)
    else()
      string(SUBSTRING "${found}" ${start} -1 found)
    endif()
    set(before "] ")
  elseif(NOT MSVC)
    set(before "__imp_")
  endif()
  # As a separate character, an end of line is the end of each name.
  string(REGEX REPLACE "[ \t\r\n]" "\n" found "\n${found}\n")
  string(REPLACE " " "\n" before "${before}")
  foreach(name IN LISTS names)
    string(FIND "${found}" "${before}${name}\n" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${option}: '${file}' does not have ${name}, "
        "which the library calls. Is it of another compiler?")
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
  set(definition ${names_directory}/${name}.def)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file} ${definition})
  file(STRINGS ${definition} names REGEX "^    ")
  list(TRANSFORM names STRIP)
  tagport_check_names(${option} ${file} "${names}")

  set(library ${file})
  get_filename_component(extension ${file} LAST_EXT)
  string(TOLOWER "${extension}" extension)
  if(extension STREQUAL .dll)
    set(library ${PROJECT_BINARY_DIR}/services/${name}${CMAKE_IMPORT_LIBRARY_SUFFIX})
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/services)
    if(MSVC)
      set(make ${CMAKE_AR} /nologo /machine:x64 /def:${definition} /out:${library})
    else()
      find_program(TAGPORT_DLLTOOL NAMES ${CMAKE_DLLTOOL} x86_64-w64-mingw32-dlltool REQUIRED)
      set(make ${TAGPORT_DLLTOOL} --machine i386:x86-64
        --input-def ${definition} --output-lib ${library})
    endif()
    execute_process(COMMAND ${make} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
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
