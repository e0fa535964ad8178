#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tests/on_wine/client/device/device_file.h"

namespace lidcam::wine {

/// The published value of a property of video processing, camera control, or the camera's own set.
struct Level {
  LONG Value = 0;
  ULONG Flags = 0;  ///< KSPROPERTY_VIDEOPROCAMP_FLAGS_*
  ULONG Led = 0;    ///< of the camera's own property of light and LED; for others, the capabilities

  friend bool operator==(const Level&, const Level&) = default;
};

struct LevelRange {
  LONG Minimum;
  LONG Maximum;
  ULONG Step;
  LONG Default;
};

/// A reply of the streaming class's test double.
struct Answer {
  NTSTATUS Status;
  std::vector<std::byte> Value;
  ULONG Information;
};

/// The camera's filter, as an application opens it.
class CameraFile {
 public:
  explicit CameraFile(const std::wstring& path) : file_(path) {}

  [[nodiscard]] const DeviceFile& File() const { return file_; }

  /// One property request, unchanged; STATUS_DEVICE_NOT_CONNECTED for one that reaches no camera.
  /// @param request  a KSPROPERTY, with any bytes after it
  [[nodiscard]] Answer AskProperty(Target whom, std::span<const std::byte> request,
                                   std::span<const std::byte> value) const;

  [[nodiscard]] ULONG PinCount() const;
  [[nodiscard]] std::vector<KS_DATARANGE_VIDEO> Ranges() const;
  /// The driver's format for a range: a KS_DATAFORMAT_VIDEOINFOHEADER.
  [[nodiscard]] std::vector<std::byte> Intersect(const KS_DATARANGE_VIDEO& range) const;
  /// Frame intervals of a picture size, 100 ns.
  [[nodiscard]] std::vector<LONGLONG> FrameIntervals(LONG width, LONG height) const;

  /// @return the driver's status
  [[nodiscard]] NTSTATUS GetLevel(const GUID& set, ULONG id, Level& level) const;
  [[nodiscard]] NTSTATUS SetLevel(const GUID& set, ULONG id, const Level& level) const;
  /// Range and default of a property.
  [[nodiscard]] LevelRange RangeOf(const GUID& set, ULONG id) const;

 private:
  /// A value whose length the driver determines.
  [[nodiscard]] std::vector<std::byte> GetSized(const GUID& set, ULONG id,
                                                std::span<const std::byte> behindHead,
                                                const std::string& what) const;

  DeviceFile file_;
};

/// A request with a KSPROPERTY and the bytes after it.
[[nodiscard]] std::vector<std::byte> PropertyRequest(const GUID& set, ULONG id, ULONG flags,
                                                     std::span<const std::byte> behindHead = {});

}  // namespace lidcam::wine
