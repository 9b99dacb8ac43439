# qiv_library(NAME SOURCES file... LINKS target...): a static library of one folder, with an explicit list of its files.
function(qiv_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS})
endfunction()
