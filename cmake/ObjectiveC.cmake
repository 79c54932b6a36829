# Objective-C++ for the macOS side: Apple's own, or clang with GNUstep's Foundation, GCC's runtime
# and the stand-ins of tests/apple/sdk, which lets any Linux machine compile and run the sources.

if(NOT APPLE)
  set(CMAKE_OBJCXX_COMPILER ${CMAKE_CXX_COMPILER})
endif()
enable_language(OBJCXX)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)
set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})

add_library(tulo_objectivec INTERFACE)
target_compile_options(tulo_objectivec INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fblocks
                                                 -fno-objc-arc>)
if(APPLE)
  # Calls that extensions must not make are errors.
  target_compile_options(tulo_options INTERFACE -fapplication-extension)
  target_link_libraries(tulo_objectivec INTERFACE "-framework Foundation" "-framework FileProvider"
                                                  "-framework UniformTypeIdentifiers")
  return()
endif()

find_path(TULO_GNUSTEP_INCLUDE Foundation/Foundation.h PATH_SUFFIXES GNUstep REQUIRED)
execute_process(COMMAND gcc -print-file-name=include OUTPUT_VARIABLE gccInclude
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(NOT EXISTS ${gccInclude}/objc/objc.h)
  message(FATAL_ERROR "${gccInclude}/objc/objc.h is missing: the package gobjc has it")
endif()
# Only the runtime's headers are wanted from that folder: its others are those of another compiler.
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/runtime)
file(CREATE_LINK ${gccInclude}/objc ${PROJECT_BINARY_DIR}/runtime/objc SYMBOLIC)

add_library(tulo_gnustep INTERFACE)
target_include_directories(tulo_gnustep SYSTEM INTERFACE
  ${PROJECT_SOURCE_DIR}/tests/apple/sdk/include ${PROJECT_BINARY_DIR}/runtime
  ${TULO_GNUSTEP_INCLUDE})
target_compile_options(tulo_gnustep INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=gcc
  -fobjc-exceptions -fconstant-string-class=NSConstantString>)
target_compile_definitions(tulo_gnustep INTERFACE GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_RUNTIME=1
                                                  _NATIVE_OBJC_EXCEPTIONS)
# The blocks come first: GNUstep's library has functions of the same names that copy nothing.
target_link_libraries(tulo_gnustep INTERFACE BlocksRuntime gnustep-base objc)
target_link_libraries(tulo_objectivec INTERFACE tulo_gnustep tulo_apple_sdk)
