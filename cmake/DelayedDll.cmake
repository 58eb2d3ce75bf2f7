# tagport_delayed(TARGET NAME): TARGET_delayed is the same library, but NAME.dll is looked for at the
# first call of it. The lab starts where it is missing, and beside the PC's own Bluetooth client, which
# does not have the back door of the stand-in.
function(tagport_delayed target name)
  add_library(${target}_delayed INTERFACE)
  add_dependencies(${target}_delayed ${target})
  target_include_directories(${target}_delayed INTERFACE
    $<TARGET_PROPERTY:${target},INTERFACE_INCLUDE_DIRECTORIES>)
  target_link_libraries(${target}_delayed INTERFACE tagport_delayed_loading)
  if(MINGW)
    set(delayed ${CMAKE_CURRENT_BINARY_DIR}/lib${name}Delayed.a)
    target_link_options(${target} PRIVATE
      LINKER:--output-def,${CMAKE_CURRENT_BINARY_DIR}/${name}.def)
    add_custom_command(TARGET ${target} POST_BUILD BYPRODUCTS ${delayed}
      COMMAND ${CMAKE_DLLTOOL} --input-def ${name}.def --dllname ${name}.dll
        --output-delaylib ${delayed}
      WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} VERBATIM)
    target_link_libraries(${target}_delayed INTERFACE ${delayed})
  else()
    target_link_options(${target}_delayed INTERFACE /DELAYLOAD:${name}.dll)
    target_link_libraries(${target}_delayed INTERFACE ${target})
  endif()
endfunction()
