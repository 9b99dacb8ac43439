# Language level, warnings and sanitizers: the same for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

option(QIV_TESTS "build the tests" ON)
option(QIV_BENCH "build qivbench" OFF)
option(QIV_FUZZ "build the fuzz targets: with libFuzzer (clang), else as programs that replay their corpus" OFF)
set(QIV_SANITIZE "" CACHE STRING "sanitizers, as in -fsanitize=")
set(QIV_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin" CACHE PATH "where programs and the module go")

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${QIV_OUTPUT_DIRECTORY}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${QIV_OUTPUT_DIRECTORY}")

include_directories("${CMAKE_SOURCE_DIR}")
if(WIN32)
  enable_language(RC)
endif()
find_package(Threads REQUIRED)

# What one clone has compiled the next one takes from the cache: paths within a clone do not count.
find_program(QIV_CCACHE ccache)
if(QIV_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${QIV_CCACHE}")
endif()

if(MSVC)
  add_compile_options(/W4 /WX /permissive- /utf-8 /EHsc /guard:cf /Brepro)
  add_link_options(/Brepro /guard:cf /HIGHENTROPYVA /DYNAMICBASE /NXCOMPAT)
else()
  add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Werror)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    add_compile_options(-Wthread-safety)
  elseif(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC bug 105651: a false alarm in std::string's own operator+ with -O2.
    add_compile_options(-Wno-restrict)
  endif()
endif()
if(QIV_SANITIZE)
  add_compile_options(-fsanitize=${QIV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QIV_SANITIZE})
endif()
if(MINGW)
  add_link_options(-static)
endif()

# Header-only libraries of the host (Boost.Asio, Boost.Beast) and the tool (CLI11). A cross build may see them alone,
# not the other headers in /usr/include.
add_library(qiv_boost INTERFACE)
add_library(qiv_cli11 INTERFACE)
if(MINGW)
  set(header_links "${CMAKE_BINARY_DIR}/header-links")
  file(MAKE_DIRECTORY "${header_links}")
  file(CREATE_LINK /usr/include/boost "${header_links}/boost" SYMBOLIC)
  file(CREATE_LINK /usr/include/CLI "${header_links}/CLI" SYMBOLIC)
  target_include_directories(qiv_boost SYSTEM INTERFACE "${header_links}")
  target_include_directories(qiv_cli11 SYSTEM INTERFACE "${header_links}")
  target_link_libraries(qiv_boost INTERFACE ws2_32 mswsock)
endif()
