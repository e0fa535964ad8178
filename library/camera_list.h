#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "library/lidcam.h"

namespace lidcam::api {

/// A camera's description with the texts that it points to. Not moved once it is filled.
struct CameraEntry {
  std::string Address;
  std::string Description;
  std::string Unit;
  std::string Holder;
  std::string Sharer;
  std::string Obstacle;
  lidcam_camera_info Info{};

  CameraEntry() = default;
  CameraEntry(const CameraEntry&) = delete;
  CameraEntry& operator=(const CameraEntry&) = delete;
  ~CameraEntry() = default;

  /// Fills the description from the texts.
  void Finish(lidcam_camera_kind kind, std::uint16_t vendor, std::uint16_t product);
};

/// The cameras that can be opened now: plugged in first, then simulated.
[[nodiscard]] std::vector<std::unique_ptr<CameraEntry>> ListCameras();

/// What a camera's address is, without looking for it: kind and identity may be unknown before it is open.
[[nodiscard]] lidcam_camera_kind KindOf(const std::string& address);

/// "Notebook camera 1af0:0511 (simulated)".
[[nodiscard]] std::string DescriptionOf(const std::string& address, std::uint16_t vendor,
                                        std::uint16_t product);

/// The camera that no address stands for: one that is plugged in, if possible one that can be streamed, otherwise the
/// simulated one.
[[nodiscard]] std::string UsualAddress();

}  // namespace lidcam::api
