# Toolchain for the Microsoft C++ ABI with clang-cl: what nearly every host on a PC is built with.
#
# On Windows, in a command prompt of Visual Studio, clang-cl finds headers and libraries by itself.
# Elsewhere TAGPORT_SYSROOT names a directory with Microsoft's headers and import libraries, in the
# layout that `xwin splat` makes:
#   crt/include  crt/lib/x86_64  sdk/include/{ucrt,um,shared}  sdk/lib/{ucrt,um}/x86_64
set(TAGPORT_SYSROOT "" CACHE PATH "Headers and import libraries of the Microsoft ABI")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAGPORT_SYSROOT)

# tagport_tool(VARIABLE NAME): Debian appends the version to the names, and an older one may be there
# without it. Microsoft's C++ library wants 19 at least.
function(tagport_tool variable name)
  find_program(TAGPORT_${variable} NAMES ${name}-21 ${name}-20 ${name}-19 ${name} REQUIRED)
  set(${variable} ${TAGPORT_${variable}} PARENT_SCOPE)
endfunction()
tagport_tool(CMAKE_CXX_COMPILER clang-cl)
set(CMAKE_C_COMPILER ${CMAKE_CXX_COMPILER})
if(CMAKE_HOST_WIN32)
  return()
endif()

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_TRY_COMPILE_CONFIGURATION Release)  # a sysroot may lack the debug run-time
if(NOT EXISTS "${TAGPORT_SYSROOT}/crt/include/vector")
  message(FATAL_ERROR "TAGPORT_SYSROOT: no C++ library in '${TAGPORT_SYSROOT}/crt/include'")
endif()
tagport_tool(CMAKE_LINKER lld-link)
tagport_tool(CMAKE_AR llvm-lib)
tagport_tool(CMAKE_MT llvm-mt)
tagport_tool(CMAKE_RC_COMPILER llvm-rc)
set(headers)
foreach(directory crt/include sdk/include/ucrt sdk/include/um sdk/include/shared)
  string(APPEND headers " /imsvc \"${TAGPORT_SYSROOT}/${directory}\"")
endforeach()
foreach(language C CXX)
  # The version of the Microsoft compiler whose names and layouts are followed: Visual Studio 2022.
  set(CMAKE_${language}_COMPILER_TARGET x86_64-pc-windows-msvc19.44.35207)
  set(CMAKE_${language}_FLAGS_INIT "${headers}")
endforeach()
set(CMAKE_RC_FLAGS_INIT "-I\"${TAGPORT_SYSROOT}/sdk/include/um\"")
foreach(kind EXE SHARED MODULE)
  foreach(directory crt/lib/x86_64 sdk/lib/um/x86_64 sdk/lib/ucrt/x86_64)
    string(APPEND CMAKE_${kind}_LINKER_FLAGS_INIT " /libpath:\"${TAGPORT_SYSROOT}/${directory}\"")
  endforeach()
endforeach()
