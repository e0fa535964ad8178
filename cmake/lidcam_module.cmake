# Libraries with many libraries of their own are behind modules, which the program loads when a command needs one:
# starting it would otherwise take ten times as long. They are found by the program's RUNPATH.
include(GNUInstallDirs)
set(LIDCAM_MODULES "${CMAKE_INSTALL_LIBDIR}/lidcam" CACHE STRING "Folder for the program's modules")
set(lidcam_modules_of_build "${CMAKE_BINARY_DIR}/modules")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# lidcam_module(NAME SOURCES file... LIBRARIES target...)
function(lidcam_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  set_property(GLOBAL APPEND PROPERTY LIDCAM_MODULE_TARGETS ${name})
  add_library(${name} MODULE ${arg_SOURCES} "${CMAKE_SOURCE_DIR}/base/module_version.cpp")
  target_link_libraries(${name} PRIVATE lidcam_warnings ${arg_LIBRARIES})
  target_compile_definitions(${name} PRIVATE LIDCAM_VERSION="${PROJECT_VERSION}")
  # Of the libraries that its parts may need only those that it does need.
  target_link_options(${name} PRIVATE LINKER:--as-needed)
  set_target_properties(${name} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON LIBRARY_OUTPUT_DIRECTORY "${lidcam_modules_of_build}" INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS ${name} LIBRARY DESTINATION "${LIDCAM_MODULES}")
endfunction()

# lidcam_loads_modules(PROGRAM): builds them together with a program that may load them, and finds them.
function(lidcam_loads_modules program)
  get_target_property(folder ${program} BINARY_DIR)
  file(RELATIVE_PATH to_modules "${folder}" "${lidcam_modules_of_build}")
  set_property(TARGET ${program} APPEND PROPERTY BUILD_RPATH "$ORIGIN/${to_modules}")
  get_property(modules GLOBAL PROPERTY LIDCAM_MODULE_TARGETS)
  if(modules)
    add_dependencies(${program} ${modules})
  endif()
endfunction()
