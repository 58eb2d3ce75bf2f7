# The packages: `cpack` in a build directory of the release preset makes a .tar.gz and a .deb, in
# one of the windows preset a .zip. Each has the components that are installed by default: the first
# two all of them, for development machines; the .zip no stand-ins, for PCs with the real services.
set(CPACK_PACKAGE_NAME tagport)
set(CPACK_PACKAGE_VENDOR "The tagport developers")
# A package that is passed on needs the address of who maintains it; this one takes no mail.
set(TAGPORT_PACKAGE_CONTACT "The tagport developers <tagport@example.org>" CACHE STRING
  "Name and mail address of the packages' maintainer")
mark_as_advanced(TAGPORT_PACKAGE_CONTACT)
set(CPACK_PACKAGE_CONTACT ${TAGPORT_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "looks after the passive NFC tag of a PC or its keyboard")
set(CPACK_PACKAGE_DESCRIPTION
  "A library that keeps a passive NFC tag filled with an NDEF message,
renews the random number in it, and reports phones that enter and leave
the field. With it come a simulated PC for tests of programs that use
the library, and tagport-lab, which shows the library at work.")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES TRUE)
set(CPACK_STRIP_FILES TRUE)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_SYSTEM_NAME win64)
else()
  set(CPACK_GENERATOR TGZ DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS TRUE)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

  # What every Debian package has: a file that makes the dynamic linker look again, the copyright,
  # and the changes in Debian's own form.
  set(directory ${PROJECT_BINARY_DIR}/debian)
  file(WRITE ${directory}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${directory}/triggers)
  string(TIMESTAMP year %Y UTC)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${directory}/copyright
    "Copyright: ${year} ${CPACK_PACKAGE_VENDOR}\n"
    "License: none has been granted so far. The sources name no licence, so copying and changing\n"
    " this package need the permission of the copyright holders.\n")
  file(WRITE ${directory}/changelog
    "tagport (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
    "  * See CHANGELOG.md in this directory.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  find_program(TAGPORT_GZIP gzip REQUIRED)
  mark_as_advanced(TAGPORT_GZIP)
  execute_process(COMMAND ${TAGPORT_GZIP} --best --no-name --force ${directory}/changelog
    COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${directory}/copyright ${directory}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT examples)
endif()
include(CPack)
