#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <optional>
#include <tuple>

#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// Element messages when the exposure or the light state has changed:
///
///     lidcam-exposure, auto-exposure=(boolean), exposure=(uint), coarse-gain=(uint), fine-gain=(uint),
///                      exposure-lines=(uint), running-time=(guint64);
///     lidcam-light, state=(string){normal,low,initial,dummy}, running-time=(guint64);
class ExposureMessages {
 public:
  /// Posts what differs from the frame before.
  void Observe(GstElement* element, const lidcam_frame& frame, GstClockTime runningTime);

 private:
  using Exposure =
      std::tuple<std::int32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;

  std::optional<Exposure> exposure_;
  std::optional<lidcam_light_state> light_;
};

}  // namespace lidcam::gstreamer
