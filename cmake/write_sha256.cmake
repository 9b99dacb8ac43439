# cmake -D FILE=... -P write_sha256.cmake: FILE.sha256 beside FILE, in the form that `sha256sum -c` reads.
file(SHA256 "${FILE}" digest)
cmake_path(GET FILE FILENAME name)
file(WRITE "${FILE}.sha256" "${digest}  ${name}\n")
