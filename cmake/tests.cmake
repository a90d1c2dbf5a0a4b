# Programs of GoogleTest cases. Where GoogleTest is missing they are left out.
if(BUILD_TESTING)
  find_package(GTest)
  if(NOT GTest_FOUND)
    message(STATUS "GTest not found: the tests that need it are left out")
  endif()
endif()
include(GoogleTest)

# A test runs for milliseconds and is compiled again by many changes: what it tests is optimised, it is not, and what
# nearly all tests include is compiled once.
if(GTest_FOUND)
  file(CONFIGURE OUTPUT test_headers.cpp CONTENT "")
  add_library(ZRK4test_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/test_headers.cpp)
  target_compile_options(ZRK4test_headers PUBLIC -O0)
  target_link_libraries(ZRK4test_headers PUBLIC GTest::gtest Threads::Threads)
  target_precompile_headers(ZRK4test_headers PRIVATE
    <gtest/gtest.h> <functional> <list> <map> <string> <thread> <vector>)
endif()

# zrk4_test_program(NAME LABEL SOURCES... LIBRARIES...)
# Every case is a test "LABEL.SUITE.CASE" and a process of its own with an IPC namespace of its own; 125: none could be
# had. There is no target NAME without GoogleTest.
function(zrk4_test_program name label)
  if(NOT GTest_FOUND)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ZRK4test_support ${arg_LIBRARIES})
  target_precompile_headers(${name} REUSE_FROM ZRK4test_headers)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin/tests)
  gtest_discover_tests(${name}
    TEST_PREFIX "${label}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${label} TIMEOUT 60 SKIP_RETURN_CODE 125)
endfunction()
