# One interface target has the warnings, so that every target has the same ones. The presets make
# them errors (CMAKE_COMPILE_WARNING_AS_ERROR): another compiler or level of optimisation than ours
# may give false warnings.
add_library(lidcam_warnings INTERFACE)
target_compile_options(lidcam_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wundef -Wcast-qual
  -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough)
target_include_directories(lidcam_warnings INTERFACE "${CMAKE_SOURCE_DIR}")
