# How a folder of tests becomes one executable whose tests CTest knows one by one.

include(GoogleTest)
find_package(GTest REQUIRED)

set(TULO_TEST_PREFIX "" CACHE STRING
    "Put before each test's name, to tell this build's tests from another's in one CTest run")

# A folder may set TULO_TEST_FILTER, in the notation of --gtest_filter, for itself and those below it.

# The headers that nearly every test file reads, compiled once for all the executables.
add_library(tulo_test_headers OBJECT ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
target_link_libraries(tulo_test_headers PUBLIC tulo_options GTest::gtest GTest::gmock)
set(TULO_TEST_HEADERS gmock/gmock.h gtest/gtest.h chrono filesystem functional memory optional
                      string thread vector)
list(TRANSFORM TULO_TEST_HEADERS REPLACE "(.+)" "<\\1>" OUTPUT_VARIABLE headers)
target_precompile_headers(tulo_test_headers PRIVATE ${headers})

if(TULO_SANITIZE)
  # Most of the time that a sanitized test takes to build goes into optimising what is only there to
  # call the product, which stays as it is.
  set(TULO_TEST_OPTIONS -O0)
  target_compile_options(tulo_test_headers PRIVATE ${TULO_TEST_OPTIONS})
endif()

# tulo_tests(NAME SOURCES... DEPENDS targets...): the tests of one folder.
function(tulo_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tulo_options ${ARG_DEPENDS} GTest::gmock GTest::gtest
                                        GTest::gtest_main)
  target_compile_options(${name} PRIVATE ${TULO_TEST_OPTIONS})
  target_precompile_headers(${name} REUSE_FROM tulo_test_headers)
  if(CMAKE_DISABLE_PRECOMPILE_HEADERS)
    # A tool that reads the sources sees them as the compiler does.
    list(TRANSFORM TULO_TEST_HEADERS PREPEND "SHELL:-include " OUTPUT_VARIABLE options)
    target_compile_options(${name} PRIVATE ${options})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
                       TEST_PREFIX "${TULO_TEST_PREFIX}" TEST_FILTER "${TULO_TEST_FILTER}"
                       PROPERTIES TIMEOUT 120)
endfunction()
