# The libraries that consist of headers only: targets `tagport_cli11` and `tagport_nlohmann_json`.
#
# Their files are the same for every target system, so a cross build may take them from the machine's
# own include directory. It must find nothing else there (the machine's <stdio.h> would hide the
# target's), so each has a directory in the build tree that contains one link.
function(tagport_header_only name folder header)
  set(target tagport_${name})
  find_path(TAGPORT_${name}_ROOT ${folder}/${header} PATHS /usr/include /usr/local/include
    NO_CMAKE_FIND_ROOT_PATH REQUIRED
    DOC "Directory that holds ${folder}/${header}")
  set(directory ${PROJECT_BINARY_DIR}/header-only/${name})
  file(MAKE_DIRECTORY ${directory})
  file(CREATE_LINK ${TAGPORT_${name}_ROOT}/${folder} ${directory}/${folder}
    SYMBOLIC COPY_ON_ERROR)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${directory})
  mark_as_advanced(TAGPORT_${name}_ROOT)
endfunction()

tagport_header_only(cli11 CLI CLI.hpp)
tagport_header_only(nlohmann_json nlohmann json.hpp)
