# The streaming class itself, for every kernel that it is built for.
set(LIDCAM_STREAMING_CLASS_SOURCES
  automation.cpp basic_support.cpp class_mutex.cpp class_rules.cpp clock.cpp clock_requests.cpp data_format.cpp
  device_block.cpp
  device_requests.cpp driver_entry_points.cpp file_names.cpp file_requests.cpp filter_factory.cpp
  filter_properties.cpp filter_requests.cpp object_bag.cpp pin_answer.cpp pin_create.cpp
  pin_intersection.cpp pin_kinds.cpp pin_properties.cpp pin_requests.cpp pin_state.cpp
  pin_worker.cpp power_requests.cpp stream_queue.cpp stream_request.cpp)
list(TRANSFORM LIDCAM_STREAMING_CLASS_SOURCES PREPEND "${CMAKE_CURRENT_LIST_DIR}/")
