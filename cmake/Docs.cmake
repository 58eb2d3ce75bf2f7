# The reference of the public headers: target `docs`, where doxygen is installed.
find_program(TAGPORT_DOXYGEN doxygen)
mark_as_advanced(TAGPORT_DOXYGEN)
if(TAGPORT_DOXYGEN)
  configure_file(docs/Doxyfile ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND ${TAGPORT_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
    COMMENT "Writing the reference to docs/html under the build directory")
endif()
