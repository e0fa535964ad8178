#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "integrations/gstreamer/camera/camera_caps.h"
#include "integrations/gstreamer/camera/frame_buffers.h"
#include "integrations/gstreamer/camera/frame_times.h"
#include "integrations/gstreamer/camera/streaming_camera.h"
#include "integrations/gstreamer/element/exposure_messages.h"

namespace lidcam::gstreamer {

/// What an element has beyond its base class.
struct SourceState {
  explicit SourceState(StreamingCamera::ControlChanged changed, void* element)
      : Session(changed, element) {}

  // Under the element's object lock.
  std::optional<std::string> Camera;
  std::optional<std::string> Faults;

  std::atomic<std::int64_t> ReplugTimeout = -1;  ///< ns; negative: none
  StreamingCamera Session;

  // Of the streaming thread.
  StreamFormat Format;
  FrameBuffers Buffers;
  FrameTimes Times;
  LongestInterval Interval;
  ExposureMessages Exposure;
  std::uint64_t DropsOfStream = 0;
  bool IsRecorded = false;

  // Written by the streaming thread, for all.
  std::atomic<GstClockTime> Latency =
      GST_SECOND / 30;  ///< the camera's usual rate, before a stream
  std::atomic<std::uint64_t> FrameCount = 0;
  std::atomic<std::uint64_t> DropCount = 0;

  GList* BalanceChannels = nullptr;  ///< of GstColorBalanceChannel, in the order of the properties
};

/// The state of an element of CameraSourceType().
[[nodiscard]] SourceState& StateOf(gpointer element);

}  // namespace lidcam::gstreamer
