# The headers that every test includes, compiled once.
function(lidcam_test_headers)
  file(WRITE "${CMAKE_BINARY_DIR}/test_headers.cpp" "")
  add_library(lidcam_test_headers OBJECT "${CMAKE_BINARY_DIR}/test_headers.cpp")
  target_link_libraries(lidcam_test_headers PUBLIC lidcam_warnings GTest::gmock GTest::gtest)
  target_compile_definitions(lidcam_test_headers PUBLIC LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  target_precompile_headers(lidcam_test_headers PRIVATE
    <array> <cstdint> <map> <span> <string> <vector> <gmock/gmock.h> <gtest/gtest.h>)
  # Those tests that use threads, for ThreadSanitizer.
  add_custom_target(threaded_tests)
endfunction()

# lidcam_test(NAME [THREADS] SOURCES file... LIBRARIES target...): one GoogleTest executable, one
# ctest entry. THREADS marks tests that ThreadSanitizer is to see.
function(lidcam_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE lidcam_warnings ${arg_LIBRARIES}
                        GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(${name} PRIVATE LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  target_precompile_headers(${name} REUSE_FROM lidcam_test_headers)
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES TIMEOUT 600)
  if(arg_THREADS)
    add_dependencies(threaded_tests ${name})
    set_tests_properties(${name} PROPERTIES LABELS threads)
  endif()
endfunction()
