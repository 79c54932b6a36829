# Compile and link options that every target of the project shares.

find_program(TULO_CCACHE ccache)
if(TULO_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TULO_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${TULO_CCACHE})
endif()

add_library(tulo_options INTERFACE)
target_include_directories(tulo_options INTERFACE ${PROJECT_SOURCE_DIR}
                                                  ${PROJECT_BINARY_DIR}/generated)
target_compile_options(tulo_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                              -Wold-style-cast -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 14)
  # What these say depends on what was inlined, and these versions are wrong about std::string's
  # operator+; the address sanitizer watches the same ground.
  target_compile_options(tulo_options INTERFACE -Wno-array-bounds -Wno-restrict
                                                -Wno-stringop-overflow -Wno-stringop-overread)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Holds the annotations of platform/linux/Mutex.h against the code.
  target_compile_options(tulo_options INTERFACE -Wthread-safety)
endif()
if(CMAKE_UNITY_BUILD)
  # Files that are compiled as one see one another's local names; the other builds warn.
  target_compile_options(tulo_options INTERFACE -Wno-shadow)
endif()
if(TULO_WERROR)
  target_compile_options(tulo_options INTERFACE -Werror)
endif()
if(TULO_SANITIZE)
  target_compile_options(tulo_options INTERFACE -fsanitize=${TULO_SANITIZE} -fno-omit-frame-pointer
                                                -fno-sanitize-recover=all)
  target_link_options(tulo_options INTERFACE -fsanitize=${TULO_SANITIZE})
  if(TULO_SANITIZE MATCHES "undefined")
    # To look at an object's type it opens a pipe, and takes it for damaged where no descriptor is
    # left, which tests bring about.
    target_compile_options(tulo_options INTERFACE -fno-sanitize=vptr)
    target_link_options(tulo_options INTERFACE -fno-sanitize=vptr)
  endif()
endif()

if(TULO_BUILD_FUZZ)
  # What the fuzz targets run leads them by the branches that it takes.
  target_compile_options(tulo_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# tulo_library(NAME SOURCES... DEPENDS targets...): a library of one folder; static, unless TYPE says
# otherwise.
function(tulo_library name)
  cmake_parse_arguments(ARG "" "TYPE" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(NOT ARG_TYPE)
    set(ARG_TYPE STATIC)
  endif()
  add_library(${name} ${ARG_TYPE} ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC tulo_options ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
endfunction()

if(NOT APPLE AND NOT TULO_GNUSTEP)
  # The standard headers that nearly every file reads, compiled once for the large libraries. Each
  # file includes what it uses nevertheless: the lint preset compiles without.
  add_library(tulo_headers OBJECT ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  target_link_libraries(tulo_headers PUBLIC tulo_options)
  # As the libraries get it from the packages that they use: the flags must be the same.
  target_compile_options(tulo_headers PRIVATE -pthread)
  target_precompile_headers(tulo_headers PRIVATE
    <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <deque> <filesystem>
    <functional> <map> <memory> <mutex> <optional> <shared_mutex> <string> <string_view> <thread>
    <unordered_map> <utility> <vector>)
endif()
