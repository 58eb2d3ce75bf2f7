# Compiles a text file into a target, as the bytes of `symbol` in namespace lab:
#   extern const char symbol[]; extern const std::size_t symbolSize;
# Run as a script it writes that source.
if(CMAKE_SCRIPT_MODE_FILE)
  file(READ ${input} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(REGEX REPLACE "(('....',){16})" "\\1\n" bytes "${bytes}")
  file(WRITE ${output} "#include <cstddef>\nnamespace lab {\n"
    "extern const char ${symbol}[];\nextern const std::size_t ${symbol}Size;\n"
    "const char ${symbol}[] = {\n${bytes}\n};\n"
    "const std::size_t ${symbol}Size = sizeof(${symbol});\n}  // namespace lab\n")
  return()
endif()

set(TAGPORT_EMBED_TEXT ${CMAKE_CURRENT_LIST_FILE})
function(tagport_embed_text target file symbol)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${symbol}.cpp)
  set(input ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  add_custom_command(OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} -Dinput=${input} -Doutput=${source} -Dsymbol=${symbol}
      -P ${TAGPORT_EMBED_TEXT}
    DEPENDS ${input} ${TAGPORT_EMBED_TEXT} VERBATIM)
  target_sources(${target} PRIVATE ${source})
endfunction()
