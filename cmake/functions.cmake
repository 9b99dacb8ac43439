# qiv_library(NAME SOURCES file... LINKS target...): a static library of one folder, with an explicit list of its files.
function(qiv_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS})
endfunction()

# qiv_embed_text(TARGET FILE): compiles a text of rules/ into TARGET, whose sources include it with the ending
# .inc instead of .txt as the value of a string constant.
function(qiv_embed_text target file)
  string(REGEX REPLACE "[.]txt$" ".inc" name "${file}")
  set(input "${CMAKE_SOURCE_DIR}/${file}")
  set(output "${CMAKE_BINARY_DIR}/embedded/${name}")
  set(script "${CMAKE_SOURCE_DIR}/cmake/embed_text.cmake")
  add_custom_command(OUTPUT "${output}" DEPENDS "${input}" "${script}" VERBATIM
    COMMAND ${CMAKE_COMMAND} "-DINPUT=${input}" "-DOUTPUT=${output}" -P "${script}")
  target_sources(${target} PRIVATE "${output}")
  target_include_directories(${target} PRIVATE "${CMAKE_BINARY_DIR}/embedded")
endfunction()

# qiv_version_resource(TARGET DESCRIPTION): what Windows shows of a program or library in its properties.
function(qiv_version_resource target description)
  if(NOT WIN32)
    return()
  endif()
  file(STRINGS "${CMAKE_SOURCE_DIR}/LICENSE" qiv_copyright REGEX "^Copyright")
  string(REGEX REPLACE "^.* [0-9]+ " "" qiv_authors "${qiv_copyright}")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(file_type 1)
    set(file_name ${target}.exe)
  else()
    set(file_type 2)
    set(file_name ${target}.dll)
  endif()
  configure_file("${CMAKE_SOURCE_DIR}/cmake/version.rc.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
endfunction()
