# Copies the compiler's run-time DLLs into the directory of the DLLs that need them, because a bare
# Windows has none of them.
#
# They are not linked statically: an exception of the standard library may pass from the library to
# its host, as the public header says, and both must then use the same run-time.
set(TAGPORT_RUNTIME_DLLS)
if(MINGW)
  foreach(name libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS ${path})
      find_file(TAGPORT_${name} ${name} PATHS / PATH_SUFFIXES lib bin REQUIRED)
      set(path ${TAGPORT_${name}})
    endif()
    get_filename_component(path ${path} REALPATH)
    file(COPY ${path} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    # Without the compiler's debug data, which is nine tenths of it.
    set(path ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
    execute_process(COMMAND ${CMAKE_STRIP} ${path} COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND TAGPORT_RUNTIME_DLLS ${path})
  endforeach()
  # Their licences, where Debian's packages have them.
  file(GLOB TAGPORT_RUNTIME_LICENCES
    /usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright
    /usr/share/doc/mingw-w64-x86-64-dev/copyright)
endif()
