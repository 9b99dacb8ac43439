# package_zip: build/QivIpsIIs-VERSION-windows-x64.zip, what an administrator unpacks on a server, and its SHA-256. `cmake --install` lays out the
# same folder elsewhere.
# The module file is completed beside its place and renamed: a server that has the old one mapped keeps it whole.
# Who takes the symbols out writes a time into a Windows file: none, so that the same sources make the same file.
install(CODE "set(ENV{SOURCE_DATE_EPOCH} 0)")
install(TARGETS QivIpsIIs RUNTIME DESTINATION .new LIBRARY DESTINATION .new)
install(CODE "
  set(place \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
  file(RENAME \"\${place}/.new/$<TARGET_FILE_NAME:QivIpsIIs>\" \"\${place}/$<TARGET_FILE_NAME:QivIpsIIs>\")
  file(REMOVE_RECURSE \"\${place}/.new\")")
install(TARGETS qivctl qivsetup RUNTIME DESTINATION .)
install(DIRECTORY rules DESTINATION . PATTERN "README.md" EXCLUDE PATTERN "generate" EXCLUDE)
install(FILES docs/windows-installation.md DESTINATION . RENAME INSTALL.md)
install(FILES packaging/install.ps1 packaging/uninstall.ps1 packaging/README.md DESTINATION .)

set(package_name QivIpsIIs-${PROJECT_VERSION}-windows-x64)
set(package_folder "${CMAKE_BINARY_DIR}/package/${package_name}")
set(package_file "${CMAKE_SOURCE_DIR}/build/${package_name}.zip")
# The same files before their symbols are taken out: who gets a dump of a worker process finds its functions by them.
set(symbols_folder "${CMAKE_BINARY_DIR}/package/${package_name}-symbols")
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(write_archive Python3::Interpreter "${CMAKE_SOURCE_DIR}/cmake/write_archive.py")
add_custom_target(package_zip
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${CMAKE_BINARY_DIR}/package" "${package_file}"
  COMMAND "${CMAKE_COMMAND}" --install "${CMAKE_BINARY_DIR}" --prefix "${package_folder}" --strip
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${symbols_folder}"
  COMMAND "${CMAKE_COMMAND}" -E copy $<TARGET_FILE:QivIpsIIs> $<TARGET_FILE:qivctl> $<TARGET_FILE:qivsetup> "${symbols_folder}"
  COMMAND ${write_archive} "${package_file}" "${package_folder}"
  COMMAND ${write_archive} "${CMAKE_SOURCE_DIR}/build/${package_name}-symbols.zip" "${symbols_folder}"
  DEPENDS QivIpsIIs qivctl qivsetup
  VERBATIM)
