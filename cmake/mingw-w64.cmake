# Toolchain for the cross build: Debian's g++-mingw-w64-x86-64-posix. The thread model is "posix"
# because only that one has std::mutex and std::thread.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Libraries and headers come from the target's directories only, programs from the machine's.
# A host's package for the target is where CMAKE_PREFIX_PATH says.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows 10 and later: what hidsdi.h and setupapi.h declare depends on it.
add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00)
