# The warnings of each compiler. They are errors, except in a project that takes this one in: its
# compiler may be newer.
#
# tagport_warnings(TARGET): for everything, tests included, as usage requirements of the target.
# tagport_highest_warnings(TARGET): for a folder of the library. With TAGPORT_HIGHEST_WARNINGS it is
# what the compiler has at most, less what cannot be followed; a newer compiler may find more.
option(TAGPORT_HIGHEST_WARNINGS "Compile the library with every warning that the compiler has" OFF)

function(tagport_warnings target)
  if(MSVC)
    # 4068 is a pragma of another compiler.
    target_compile_options(${target} INTERFACE
      /W4 $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:/WX> /permissive- /utf-8 /EHsc /Zc:__cplusplus /wd4068
      $<$<CXX_COMPILER_ID:Clang>:-Wmicrosoft>)
    # A mutex without code of its own for its construction needs an msvcp140.dll of 2024 or later, and
    # a host may bring an older one: its first lock would crash.
    # 4996 calls functions of the C library deprecated that the standard has.
    target_compile_definitions(${target} INTERFACE
      NOMINMAX WIN32_LEAN_AND_MEAN _CRT_SECURE_NO_WARNINGS _WIN32_WINNT=0x0A00 WINVER=0x0A00
      _DISABLE_CONSTEXPR_MUTEX_CONSTRUCTOR)
    return()
  endif()
  target_compile_options(${target} INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wformat=2
    $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # An optimizing g++ 12 reports an insertion at the end of a vector that was made from a list as a
    # write past its end. Many tests contain that. The library's folders (the object libraries) do
    # not, and keep the warning.
    target_compile_options(${target} INTERFACE
      "$<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,OBJECT_LIBRARY>>:-Wno-array-bounds;-Wno-stringop-overread>")
  endif()
endfunction()

function(tagport_highest_warnings target)
  if(NOT TAGPORT_HIGHEST_WARNINGS OR MSVC)
    return()
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # Left out: other language standards; the size of structures; objects of static storage duration
    # and the functions that a table declares beside itself, which are meant; `switch` with a
    # default; negative capabilities, which the annotations do not use; classes without a file of
    # their own; the reference's \c commands and the attributes of MinGW's own headers.
    target_compile_options(${target} PRIVATE -Weverything
      -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-padded
      -Wno-global-constructors -Wno-exit-time-destructors -Wno-missing-prototypes
      -Wno-switch-enum -Wno-thread-safety-negative -Wno-weak-vtables
      -Wno-documentation-unknown-command -Wno-used-but-marked-unused)
  else()
    target_compile_options(${target} PRIVATE
      -Wshadow -Wold-style-cast -Wsign-conversion -Warith-conversion -Wcast-qual -Wcast-align=strict
      -Wuseless-cast -Wdouble-promotion -Wfloat-equal -Wnull-dereference -Wduplicated-cond
      -Wduplicated-branches -Wlogical-op -Wundef -Wunused-macros -Wredundant-decls -Wredundant-tags
      -Wmismatched-tags -Wextra-semi -Wzero-as-null-pointer-constant -Wsuggest-override
      -Woverloaded-virtual -Wnon-virtual-dtor -Wdeprecated-copy-dtor -Wctor-dtor-privacy
      -Wformat-signedness -Wconditionally-supported -Wimplicit-fallthrough=5 -Wvolatile -Walloca
      -Wvla -Wdate-time)
  endif()
endfunction()
