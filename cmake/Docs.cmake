# The page of the manual about the lines of the log.
set(TAGPORT_LOG_PAGE ${PROJECT_BINARY_DIR}/docs/log.md)
set(log_reference ${PROJECT_SOURCE_DIR}/scripts/log-reference)
file(GLOB log_sources CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/src/*/*.cpp ${PROJECT_SOURCE_DIR}/src/*/*.h)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
add_custom_command(OUTPUT ${TAGPORT_LOG_PAGE}
  COMMAND ${Python3_EXECUTABLE} ${log_reference} --manual ${TAGPORT_LOG_PAGE}
  DEPENDS ${log_reference} ${PROJECT_SOURCE_DIR}/docs/log.md.in
    ${PROJECT_SOURCE_DIR}/lab/explain/meanings.txt ${log_sources} VERBATIM)
add_custom_target(tagport_log_page ALL DEPENDS ${TAGPORT_LOG_PAGE})

# The reference of the public headers in HTML: target `tagport_docs`, where doxygen is installed. A
# warning ends it: a public member without a comment, or a comment that names what is not there.
find_program(TAGPORT_DOXYGEN doxygen)
mark_as_advanced(TAGPORT_DOXYGEN)
if(TAGPORT_DOXYGEN)
  configure_file(docs/Doxyfile ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
  file(GLOB headers CONFIGURE_DEPENDS include/tagport/*.h simulator/include/tagport/*.h)
  set(made ${PROJECT_BINARY_DIR}/docs/made)
  add_custom_command(OUTPUT ${made}
    COMMAND ${TAGPORT_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
    COMMAND ${CMAKE_COMMAND} -E touch ${made}
    DEPENDS ${PROJECT_BINARY_DIR}/docs/Doxyfile ${PROJECT_SOURCE_DIR}/docs/reference.md ${headers}
    COMMENT "Writing the reference to docs/html under the build directory" VERBATIM)
  add_custom_target(tagport_docs ALL DEPENDS ${made})
endif()
