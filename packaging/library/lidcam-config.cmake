include("${CMAKE_CURRENT_LIST_DIR}/lidcam-targets.cmake")
