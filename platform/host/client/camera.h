#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/host/client/property_client.h"
#include "platform/host/client/video_format.h"
#include "platform/host/nt/io/device_file.h"

namespace lidcam::client {

/// The end of the paths of the camera's interfaces, as in its INF.
inline constexpr char16_t kFilterName[] = u"\\{86D5B265-6B04-4838-ADAE-9718707A7BDC}";

/// A camera as a video application opens it: the filter of an installed driver, reached only by
/// requests to its file. Passive level, one thread at a time; throws ClientError only.
class Camera {
 public:
  /// @param device  any of the camera's device stack
  [[nodiscard]] static Camera Open(PDEVICE_OBJECT device, const std::u16string& name = kFilterName);

  [[nodiscard]] std::vector<GUID> Categories() const;
  [[nodiscard]] ULONG PinCount() const;
  /// The data ranges that a pin can be connected with. Throws for a range that isn't video.
  [[nodiscard]] std::vector<KS_DATARANGE_VIDEO> Ranges(ULONG pin = 0) const;

  /// The format that the driver makes of one of the pin's own ranges.
  /// @param interval  100 ns per frame; none: that of the range
  [[nodiscard]] VideoFormat Intersect(const KS_DATARANGE_VIDEO& range,
                                      std::optional<LONGLONG> interval = {}, ULONG pin = 0) const;
  /// The same for the data range with this picture size.
  /// @throws ClientError (also STATUS_NO_MATCH if no range has the size)
  [[nodiscard]] VideoFormat FormatOf(std::int32_t width, std::int32_t height,
                                     std::optional<LONGLONG> interval = {}, ULONG pin = 0) const;

  /// Value of a property of video processing, camera control or the camera's own set.
  [[nodiscard]] Level GetLevel(const GUID& set, ULONG id) const;
  void SetLevel(const GUID& set, ULONG id, const Level& level) const;

  // PROPSETID_VIDCAP_VIDEOCONTROL, for pin 0.

  /// KS_VideoControlFlags
  [[nodiscard]] ULONG VideoControlCaps() const;
  [[nodiscard]] LONG VideoMode() const;
  void SetVideoMode(LONG mode) const;
  /// Frame intervals, 100 ns, of a picture size.
  [[nodiscard]] std::vector<LONGLONG> FrameIntervals(std::int32_t width, std::int32_t height) const;

  [[nodiscard]] PropertyClient Properties() const { return PropertyClient(*file_); }
  [[nodiscard]] const host::DeviceFile& File() const { return *file_; }

 private:
  explicit Camera(std::unique_ptr<host::DeviceFile> file) : file_(std::move(file)) {}

  std::unique_ptr<host::DeviceFile> file_;
};

}  // namespace lidcam::client
