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

# Sources of a test that are compiled together: what the library's templates make, the compiler then
# makes once for all of them.
set(lidcam_test_sources_at_once 6)

# lidcam_test(NAME [THREADS] [OPTIMIZED] [SHARDS count] SOURCES file... [ALONE file...]
#             LIBRARIES target...): one GoogleTest executable. THREADS marks tests that ThreadSanitizer is
# to see, OPTIMIZED those whose own code runs long, SHARDS those whose cases are dealt out to several
# ctest entries, which run at the same time and before all others. ALONE are sources whose own names
# others have, too.
function(lidcam_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS;OPTIMIZED" "SHARDS" "SOURCES;ALONE;LIBRARIES")
  add_executable(${name} ${arg_SOURCES} ${arg_ALONE})
  target_link_libraries(${name} PRIVATE lidcam_warnings ${arg_LIBRARIES}
                        GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(${name} PRIVATE LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  if(NOT arg_OPTIMIZED)
    target_compile_options(${name} PRIVATE ${lidcam_test_code})
    if(LIDCAM_SHARED_COMPILES)
      target_precompile_headers(${name} REUSE_FROM lidcam_test_headers)
    endif()
  endif()
  if(LIDCAM_SHARED_COMPILES)
    set_target_properties(${name} PROPERTIES
      UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${lidcam_test_sources_at_once})
    if(arg_ALONE)
      set_source_files_properties(${arg_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
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
