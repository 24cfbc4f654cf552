# Builds what "make quick" runs.
add_custom_target(quick_tests)

if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

# To be called once, when all that every target is compiled with is said: half of a test's compile
# time is gtest's and gmock's headers, so these are compiled once for all tests.
function(vmagent_test_headers)
  if(NOT BUILD_TESTING)
    return()
  endif()
  add_executable(vmagent_test_headers EXCLUDE_FROM_ALL tests/TestHeaders.cpp)
  target_link_libraries(vmagent_test_headers PRIVATE GTest::gmock)
  target_precompile_headers(vmagent_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endfunction()

# vmagent_test(NAME <target> SOURCES <file>... [LIBRARIES <target>...] [TIMEOUT <seconds>]
#              [FILTER <gtest filter>] [ALONE] [SLOW])
#
# A test program over gtest and gmock.  ctest lists each of its tests as Suite.Claim, with the label
# "system" where they need root, QEMU and a network of their own, or else "whole": tools/quick.py runs
# such a program at once.  SLOW: a part of "make test" only.  ALONE: it needs the machine's processors,
# so ctest runs no other test beside it.
function(vmagent_test)
  cmake_parse_arguments(PARSE_ARGV 0 arg "ALONE;SLOW" "NAME;TIMEOUT;FILTER" "SOURCES;LIBRARIES")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  if(NOT BUILD_TESTING)
    return()
  endif()
  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  target_precompile_headers(${arg_NAME} REUSE_FROM vmagent_test_headers)
  set(label whole)
  if(arg_SLOW)
    set(label slow)
  elseif(CMAKE_CURRENT_SOURCE_DIR MATCHES "/tests/system$")
    set(label system)
  else()
    add_dependencies(quick_tests ${arg_NAME})
  endif()
  # Listed when ctest starts: a build runs nothing, and a broken program fails the tests only.
  gtest_discover_tests(${arg_NAME}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    TEST_FILTER "${arg_FILTER}"
    PROPERTIES TIMEOUT ${arg_TIMEOUT} RUN_SERIAL ${arg_ALONE} LABELS "${label}")
endfunction()
