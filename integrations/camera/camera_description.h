#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lidcam::integrations {

/// A camera cannot be shared. what() is one line that names the input and the reason.
class ShareError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An address, or something else in the arguments, that there is not.
class ShareUsageError : public ShareError {
 public:
  using ShareError::ShareError;
};

/// What lidcam_open() is given.
struct CameraAddress {
  std::string Text;  ///< empty: the camera that is plugged in, otherwise the simulated one
  std::optional<std::string> Light{};
  std::optional<std::string> Faults{};
};

/// A picture control and the value that it had last.
struct CameraControl {
  std::string Name;
  std::string Description;
  std::int32_t Minimum = 0;
  std::int32_t Maximum = 0;
  std::int32_t Step = 1;
  std::int32_t Default = 0;
  std::uint32_t Flags = 0;  ///< lidcam_control_flags
  std::int32_t Value = 0;
};

struct PictureSize {
  std::uint32_t Width = 0;
  std::uint32_t Height = 0;

  bool operator==(const PictureSize&) const = default;
};

/// What does not change while a camera is unplugged.
struct CameraDescription {
  CameraAddress Address;  ///< for the next time, also when it was opened without one
  std::string Unit;       ///< unique on this machine, and stable
  std::string Text;       ///< for a person
  std::vector<PictureSize> Sizes;
  std::vector<CameraControl> Controls;
};

/// Reads what a camera is, and closes it again. Waits until it is there and free.
///
/// @param tell      gets a line when it has to wait
/// @param isEnding  called ten times a second
/// @return nothing if isEnding() was true before the camera was there
/// @throws ShareError for an address that there is not, or a camera that can't be opened for another reason
[[nodiscard]] std::optional<CameraDescription> DescribeCamera(
    CameraAddress address, const std::function<void(const std::string& line)>& tell,
    const std::function<bool()>& isEnding);

}  // namespace lidcam::integrations
