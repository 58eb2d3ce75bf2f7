# Toolchain for the cross build with clang++: its own warnings, on the headers and libraries of
# Debian's g++-mingw-w64-x86-64-posix. Debian's clang does not find these by itself.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)

list(GET CMAKE_FIND_ROOT_PATH 0 target_root)
set(gcc_for_windows ${CMAKE_CXX_COMPILER})
execute_process(COMMAND ${gcc_for_windows} -print-libgcc-file-name
  OUTPUT_VARIABLE gcc_directory OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(gcc_directory ${gcc_directory} DIRECTORY)

# llvm-strip refuses the compiler's run-time DLLs.
find_program(CMAKE_STRIP x86_64-w64-mingw32-strip REQUIRED)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
# Only the target's headers: -nostdlibinc leaves out /usr/include.
set(target_headers "-isystem ${target_root}/include")
set(target_libraries "-L${gcc_directory} -L${target_root}/lib")
list(APPEND CMAKE_FIND_ROOT_PATH ${gcc_directory})  # the run-time DLLs
set(CMAKE_C_FLAGS_INIT "-nostdlibinc -Wno-unused-command-line-argument ${target_headers}")
set(CMAKE_CXX_FLAGS_INIT "-nostdlibinc -Wno-unused-command-line-argument -isystem ${gcc_directory}/include/c++ \
-isystem ${gcc_directory}/include/c++/x86_64-w64-mingw32 ${target_headers}")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${target_libraries}")
endforeach()
