# The tests' own code is not worth optimising: most of it runs once, and the assertions' code is what
# the compiler would spend most of a build on.
set(lidcam_test_code $<$<CONFIG:Debug>:-O0>)

# The headers that every test includes, compiled once.
function(lidcam_test_headers)
  # Those tests that use threads, for ThreadSanitizer.
  add_custom_target(threaded_tests)
  if(NOT LIDCAM_SHARED_COMPILES)
    return()
  endif()
  file(WRITE "${CMAKE_BINARY_DIR}/test_headers.cpp" "")
  add_library(lidcam_test_headers OBJECT "${CMAKE_BINARY_DIR}/test_headers.cpp")
  target_link_libraries(lidcam_test_headers PUBLIC lidcam_warnings GTest::gmock GTest::gtest)
  target_compile_definitions(lidcam_test_headers PUBLIC LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  target_compile_options(lidcam_test_headers PRIVATE ${lidcam_test_code})
  target_precompile_headers(lidcam_test_headers PRIVATE
    <array> <cstdint> <map> <span> <string> <vector> <gmock/gmock.h> <gtest/gtest.h>)
endfunction()

# lidcam_test(NAME [THREADS] [OPTIMIZED] [SHARDS count] SOURCES file... LIBRARIES target...): one
# GoogleTest executable. THREADS marks tests that ThreadSanitizer is to see, OPTIMIZED those whose own
# code runs long, SHARDS those whose cases are dealt out to several ctest entries, which run at the
# same time and before all others.
function(lidcam_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS;OPTIMIZED" "SHARDS" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE lidcam_warnings ${arg_LIBRARIES}
                        GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(${name} PRIVATE LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  if(NOT arg_OPTIMIZED)
    target_compile_options(${name} PRIVATE ${lidcam_test_code})
    if(LIDCAM_SHARED_COMPILES)
      target_precompile_headers(${name} REUSE_FROM lidcam_test_headers)
    endif()
  endif()
  if(arg_THREADS)
    add_dependencies(threaded_tests ${name})
  endif()
  set(tests ${name})
  if(arg_SHARDS)
    set(tests "")
    foreach(shard RANGE 1 ${arg_SHARDS})
      list(APPEND tests ${name}_${shard})
    endforeach()
  endif()
  set(shard 0)
  foreach(test ${tests})
    add_test(NAME ${test} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${test} PROPERTIES TIMEOUT 600)
    if(arg_SHARDS)
      set_tests_properties(${test} PROPERTIES COST 100
        ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_SHARDS};GTEST_SHARD_INDEX=${shard}")
      math(EXPR shard "${shard} + 1")
    endif()
    if(arg_THREADS)
      set_tests_properties(${test} PROPERTIES LABELS threads)
    endif()
  endforeach()
endfunction()
