# What keeps a build from nothing short. A build without it compiles every source by itself, which
# shows that each includes what it needs.
option(LIDCAM_SHARED_COMPILES "Precompile headers, and compile some sources together" ON)

# lidcam_compile_together(TARGET source...): sources of a target as one.
function(lidcam_compile_together target)
  if(LIDCAM_SHARED_COMPILES)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    set_source_files_properties(${ARGN} PROPERTIES UNITY_GROUP together)
  endif()
endfunction()

# lidcam_host_headers(TARGET...): these have the library's headers that most sources of the host world
# include compiled once.
function(lidcam_host_headers)
  if(NOT LIDCAM_SHARED_COMPILES)
    return()
  endif()
  file(WRITE "${CMAKE_BINARY_DIR}/host_headers.cpp" "")
  add_library(lidcam_host_headers OBJECT "${CMAKE_BINARY_DIR}/host_headers.cpp")
  target_link_libraries(lidcam_host_headers PUBLIC lidcam_warnings)
  target_precompile_headers(lidcam_host_headers PRIVATE
    <algorithm> <array> <chrono> <cstdint> <functional> <map> <memory> <mutex> <optional> <span>
    <string> <string_view> <vector>)
  foreach(target ${ARGN})
    target_precompile_headers(${target} REUSE_FROM lidcam_host_headers)
  endforeach()
endfunction()
