# The tests' own code is compiled without optimisation: most of it runs once, and a build would
# spend most of its time on the assertions' code.
set(lidcam_test_code $<$<CONFIG:Debug>:-O0>)

# Most of a build's time is the tests' own code. It can be compiled once, by a build of its own, and
# linked in several others: with the product by g++, and with the product under sanitizers.
option(LIDCAM_TEST_OBJECTS_ONLY "Compile the tests' own code, for other builds to link, and nothing else" OFF)
if(LIDCAM_TEST_OBJECTS_ONLY)
  # The product, which no object needs, is not built before them.
  set(CMAKE_OPTIMIZE_DEPENDENCIES ON)
endif()
set(LIDCAM_TEST_OBJECTS "" CACHE PATH
  "A build with LIDCAM_TEST_OBJECTS_ONLY whose objects are linked, in place of compiling the tests")

# The program's own code in a build with sanitizers also comes from LIDCAM_TEST_OBJECTS: without
# sanitizers, linked with a driver and a kernel that have them.
set(LIDCAM_PROGRAM_OBJECTS OFF)
if(LIDCAM_TEST_OBJECTS AND LIDCAM_SANITIZE)
  set(LIDCAM_PROGRAM_OBJECTS ON)
endif()

# Precompiles the headers that every test includes.
function(lidcam_test_headers)
  # The tests that use threads, for ThreadSanitizer.
  add_custom_target(threaded_tests)
  add_custom_target(test_objects)
  if(NOT LIDCAM_SHARED_COMPILES OR LIDCAM_TEST_OBJECTS)
    return()
  endif()
  file(WRITE "${CMAKE_BINARY_DIR}/test_headers.cpp" "")
  add_library(lidcam_test_headers OBJECT "${CMAKE_BINARY_DIR}/test_headers.cpp")
  target_link_libraries(lidcam_test_headers PUBLIC lidcam_warnings GTest::gmock GTest::gtest)
  target_compile_definitions(lidcam_test_headers PUBLIC LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  target_compile_options(lidcam_test_headers PRIVATE ${lidcam_test_code})
  add_dependencies(lidcam_test_headers lidcam_system_headers)
  target_precompile_headers(lidcam_test_headers PRIVATE "${lidcam_system_headers}"
    <array> <cstdint> <map> <span> <string> <vector> <gmock/gmock.h> <gtest/gtest.h>)
endfunction()

# How a test's sources are compiled, for a program or for objects of one. All as one source: the
# library's templates are then instantiated once.
function(lidcam_compile_test target optimized libraries)
  target_link_libraries(${target} PRIVATE lidcam_warnings ${libraries} GTest::gmock GTest::gtest)
  target_compile_definitions(${target} PRIVATE LIDCAM_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
  if(NOT optimized)
    target_compile_options(${target} PRIVATE ${lidcam_test_code})
    if(LIDCAM_SHARED_COMPILES)
      target_precompile_headers(${target} REUSE_FROM lidcam_test_headers)
    endif()
  endif()
  if(LIDCAM_SHARED_COMPILES)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
endfunction()

# lidcam_list_objects(TARGET): writes the list of its objects for the builds that link them.
function(lidcam_list_objects name)
  file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/objects/${name}.txt"
    CONTENT "$<JOIN:$<TARGET_OBJECTS:${name}>,\n>\n")
endfunction()

# Objects of a test.
function(lidcam_make_test_objects name optimized libraries sources)
  add_library(${name} OBJECT ${sources})
  lidcam_compile_test(${name} "${optimized}" "${libraries}")
  add_dependencies(test_objects ${name})
  lidcam_list_objects(${name})
endfunction()

# lidcam_read_objects(TARGET VARIABLE): the objects of another build's target.
function(lidcam_read_objects name variable)
  set(list "${LIDCAM_TEST_OBJECTS}/objects/${name}.txt")
  if(NOT EXISTS "${list}")
    message(FATAL_ERROR "LIDCAM_TEST_OBJECTS: ${list} is not there. Configure that folder with the "
                        "same sources first (cmake --preset tests).")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
  file(STRINGS "${list}" objects)
  set_source_files_properties(${objects} PROPERTIES EXTERNAL_OBJECT TRUE)
  set(${variable} ${objects} PARENT_SCOPE)
endfunction()

function(lidcam_link_test_objects name)
  lidcam_read_objects(${name} objects)
  add_executable(${name} ${objects})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()

# ctest's COST of tests that mostly wait: those with threads, and those of the program. One that began last would leave
# the processors idle.
set(lidcam_waits_long 50)

# lidcam_test(NAME [THREADS] [OPTIMIZED] [SHARDS count] SOURCES file... LIBRARIES target...): one
# GoogleTest executable. THREADS marks tests to be run with ThreadSanitizer, OPTIMIZED those whose
# own code runs long, SHARDS those whose cases are divided into several ctest entries, which run
# concurrently and before all others.
function(lidcam_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS;OPTIMIZED" "SHARDS" "SOURCES;LIBRARIES")
  if(LIDCAM_TEST_OBJECTS_ONLY)
    lidcam_make_test_objects(${name} "${arg_OPTIMIZED}" "${arg_LIBRARIES}" "${arg_SOURCES}")
    return()
  endif()
  if(LIDCAM_TEST_OBJECTS)
    lidcam_link_test_objects(${name})
  else()
    add_executable(${name} ${arg_SOURCES})
    lidcam_compile_test(${name} "${arg_OPTIMIZED}" "${arg_LIBRARIES}")
  endif()
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} lidcam_sanitizer_notice
                        GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
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
      set_tests_properties(${test} PROPERTIES LABELS threads COST ${lidcam_waits_long})
    endif()
  endforeach()
endfunction()

# lidcam_python_test(NAME SCRIPT argument...): a test of the program by a script.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
function(lidcam_python_test name script)
  add_test(NAME ${name}
    COMMAND Python3::Interpreter -B "${CMAKE_CURRENT_SOURCE_DIR}/${script}" ${ARGN})
  set_tests_properties(${name} PROPERTIES TIMEOUT 900 COST ${lidcam_waits_long})
endfunction()
