# Shortens builds without an effect on the product. A build without it compiles every source by
# itself, which shows that each includes all that it uses.
option(LIDCAM_SHARED_COMPILES "Precompile headers, and compile some sources together" ON)

# Most links of a build with tests are tests', and GNU ld takes three times as long for them; larger files, and no
# threads within a link, are quicker still.
find_program(LIDCAM_LLD ld.lld)
mark_as_advanced(LIDCAM_LLD)
if(LIDCAM_LLD AND BUILD_TESTING AND NOT WIN32)
  add_link_options(-fuse-ld=lld LINKER:-O0,--threads=1)
endif()

# g++ collects its garbage first at 128 MB, where the largest sources are at 1.2 GB without any collection. It needs a
# seventh less time when it begins at 500 MB, and a tenth more memory.
if(LIDCAM_SHARED_COMPILES AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
  add_compile_options(--param=ggc-min-heapsize=500000)
endif()

# lidcam_compile_together(TARGET source...): compiles sources of a target as one.
function(lidcam_compile_together target)
  if(LIDCAM_SHARED_COMPILES)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    set_source_files_properties(${ARGN} PROPERTIES UNITY_GROUP together)
  endif()
endfunction()

# lidcam_pixel_loops(SOURCE...): sources whose loops over the samples of a picture become vectors at any level of
# optimisation. g++ 12 ends with an internal error if the precompiled header has another level. Their memory is one
# thread's: ThreadSanitizer's instrumentation of them would take most of the time of its tests. They have no atomics,
# whose uninstrumented inline functions the linker could choose for other sources too.
function(lidcam_pixel_loops)
  set(options -O3)
  if(LIDCAM_THREAD_SANITIZER)
    list(APPEND options -fno-sanitize=thread)
  endif()
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}" SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# lidcam_position_independent(TARGET...): objects that a shared library can contain too, with none of their
# names visible outside of it.
function(lidcam_position_independent)
  set_target_properties(${ARGN} PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# lidcam_compile_rooms_together(TARGET...): compiles the sources of each folder as one, except for
# those with compiler flags or a group of their own.
function(lidcam_compile_rooms_together)
  if(NOT LIDCAM_SHARED_COMPILES)
    return()
  endif()
  foreach(target ${ARGN})
    get_target_property(sources ${target} SOURCES)
    get_target_property(folder ${target} SOURCE_DIR)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    foreach(source IN LISTS sources)
      if(NOT source MATCHES "^[^$]*\\.cpp$")
        continue()
      endif()
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${folder}" NORMALIZE)
      get_source_file_property(flags "${source}" TARGET_DIRECTORY ${target} COMPILE_OPTIONS)
      get_source_file_property(group "${source}" TARGET_DIRECTORY ${target} UNITY_GROUP)
      get_source_file_property(alone "${source}" TARGET_DIRECTORY ${target} SKIP_PRECOMPILE_HEADERS)
      if(flags OR group OR alone)
        continue()
      endif()
      cmake_path(GET source PARENT_PATH room)
      cmake_path(RELATIVE_PATH room BASE_DIRECTORY "${CMAKE_SOURCE_DIR}")
      string(MAKE_C_IDENTIFIER "${room}" room)
      set_source_files_properties("${source}" TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${room})
    endforeach()
  endforeach()
endfunction()

# A precompiled header contains copies of the system's headers. A package's files have the time of
# its packaging, which may be before the last build: neither the build tool nor the compiler's own
# dependencies detect an update of them, and clang++ then refuses the precompiled header. This
# header, the first in each precompiled one, is rewritten when a package changes.
if(LIDCAM_SHARED_COMPILES)
  set(lidcam_system_headers "${CMAKE_BINARY_DIR}/system_headers.h")
  add_custom_target(lidcam_system_headers
    COMMAND "${CMAKE_COMMAND}" "-DOUTPUT=${lidcam_system_headers}"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/cmake/system_headers.cmake"
    BYPRODUCTS "${lidcam_system_headers}"
    VERBATIM)
endif()

# lidcam_precompile_host_headers(NAME TARGET...): precompiles the library's headers that most sources of the host
# include, with the options of the object library NAME.
function(lidcam_precompile_host_headers name)
  file(WRITE "${CMAKE_BINARY_DIR}/${name}.cpp" "")
  add_library(${name} OBJECT "${CMAKE_BINARY_DIR}/${name}.cpp")
  target_link_libraries(${name} PUBLIC lidcam_warnings)
  add_dependencies(${name} lidcam_system_headers)
  target_precompile_headers(${name} PRIVATE "${lidcam_system_headers}"
    <algorithm> <array> <chrono> <cstdint> <functional> <map> <memory> <mutex> <optional> <span>
    <string> <string_view> <vector>)
  foreach(target ${ARGN})
    target_precompile_headers(${target} REUSE_FROM ${name})
  endforeach()
  lidcam_position_independent(${name})
endfunction()

# Code that runs seldom and is long to compile. clang++ spends half of its time on optimising it, and three quarters
# under sanitizers; g++ hardly any.
set(lidcam_cold_code "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT LIDCAM_FUZZ)
  set(lidcam_cold_code $<$<CONFIG:Debug>:-O0>)
endif()

# lidcam_host_headers(TARGET... [COLD TARGET...]): shares precompiled headers between targets of the host. Those
# behind COLD are not optimised, and have their own: precompiled headers have one level of optimisation.
function(lidcam_host_headers)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "COLD")
  set(targets ${arg_UNPARSED_ARGUMENTS})
  if(NOT lidcam_cold_code)
    list(APPEND targets ${arg_COLD})
    set(arg_COLD "")
  endif()
  foreach(target ${arg_COLD})
    target_compile_options(${target} PRIVATE ${lidcam_cold_code})
  endforeach()
  if(NOT LIDCAM_SHARED_COMPILES)
    return()
  endif()
  lidcam_precompile_host_headers(lidcam_host_headers ${targets})
  if(arg_COLD)
    lidcam_precompile_host_headers(lidcam_cold_host_headers ${arg_COLD})
    target_compile_options(lidcam_cold_host_headers PRIVATE ${lidcam_cold_code})
  endif()
endfunction()

# lidcam_precompile_kernel(TARGET...): the platform's headers of a kernel image, three quarters of what the compiler
# does for one of its sources. The code is the same without.
function(lidcam_precompile_kernel)
  if(NOT LIDCAM_SHARED_COMPILES)
    return()
  endif()
  foreach(target ${ARGN})
    add_dependencies(${target} lidcam_system_headers)
    target_precompile_headers(${target} PRIVATE "${lidcam_system_headers}" "${PROJECT_SOURCE_DIR}/platform/kernel.h")
  endforeach()
endfunction()
