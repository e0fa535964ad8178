#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <optional>

#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// What a stream is started with.
struct StreamFormat {
  std::uint32_t Width = 0;
  std::uint32_t Height = 0;
  std::int64_t Interval = 0;  ///< 100 ns

  friend bool operator==(const StreamFormat&, const StreamFormat&) = default;
};

/// The formats of all cameras, for those that are not open: the named frame rates of each size first, then every
/// rate that may be asked for. The caller owns them.
[[nodiscard]] GstCaps* CapsOfAnyCamera();

/// The formats of an open camera, in the same order; null if the library can't tell them. The caller owns them.
[[nodiscard]] GstCaps* CapsOf(lidcam_camera* camera);

/// Of several formats the camera's usual one: 640x480 at 30 frames a second, or what is nearest to it.
///
/// @param caps  taken over
[[nodiscard]] GstCaps* FixedCaps(GstCaps* caps);

/// What fixed caps ask for; nothing if the camera does not have them.
[[nodiscard]] std::optional<StreamFormat> FormatOf(const GstCaps* caps);

}  // namespace lidcam::gstreamer
