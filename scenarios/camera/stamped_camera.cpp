#include "scenarios/camera/stamped_camera.h"

#include <algorithm>
#include <cstring>

#include "camera_model/device/descriptors.h"
#include "camera_model/frames/raw_frame_geometry.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "scenarios/run/equal_bytes.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint8_t kDescriptorIn = 0x80;
constexpr std::uint8_t kVendorRequest = 0x40;
constexpr std::uint16_t kSelectRegister = 0xFFFF;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kConfigurationType = 2;
constexpr std::uint8_t kEndpointType = 5;
constexpr std::uint8_t kSetInterfaceType = 0x01;
constexpr std::uint8_t kSetInterface = 11;

constexpr LONGLONG kUnitsInMicroframe = 1250;
constexpr std::uint64_t kMicroframesPerPicture = 267;  // 30 a second
constexpr std::uint64_t kStartDelay = 8;

constexpr std::size_t kNumberAt = 2;
constexpr std::size_t kLevelAt = 16;
constexpr std::size_t kLumaAt = 23;

// No byte of a stamp equals one of a frame's marker.
std::uint8_t StampOf(std::uint32_t number) {
  return static_cast<std::uint8_t>(number & 0x7F);
}

void FillHeader(std::uint32_t number, std::uint8_t luma, std::span<std::uint8_t> header) {
  std::memset(header.data(), 0, header.size());
  header[0] = 0xFF;
  header[1] = 0xD8;
  for (std::size_t i = 0; i < 4; ++i) {
    header[kNumberAt + i] = static_cast<std::uint8_t>(number >> (7 * i) & 0x7F);
  }
  header[kLevelAt] = 3;
  header[kLumaAt] = luma;
}

std::uint32_t NumberIn(std::span<const std::uint8_t> header) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    number |= static_cast<std::uint32_t>(header[kNumberAt + i]) << (7 * i);
  }
  return number;
}

}  // namespace

StampedCamera::StampedCamera(const StampedCameraOptions& options)
    : options_(options), device_(camera_model::UsbDeviceOptions{}) {}

std::uint64_t StampedCamera::Microframe() {
  return static_cast<std::uint64_t>(host::CurrentWorld().Now() / kUnitsInMicroframe);
}

bool StampedCamera::Take(std::uint32_t& count) {
  if (count == 0) return false;
  --count;
  return true;
}

std::uint32_t StampedCamera::FrameNumber() {
  return static_cast<std::uint32_t>(Microframe() / bus::kMicroframesPerFrame);
}

void StampedCamera::TakeTime() {
  if (options_.Around == nullptr) return;
  LARGE_INTEGER time{};
  time.QuadPart = -options_.Around->NextRequestTime();
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

// The light changes slowly, so that the exposure control has work.
std::uint8_t StampedCamera::LumaOf(std::uint32_t number, std::uint64_t microframe) {
  if (options_.Around != nullptr) return options_.Around->LumaAt(microframe);
  return static_cast<std::uint8_t>(20 + number / 4 % 80);
}

void StampedCamera::NoteAccess(const bus::SetupPacket& setup) {
  if ((setup.RequestType & kVendorRequest) == 0) return;
  const bool isSelect = setup.Index == kSelectRegister;
  hasMixedAccesses_ = hasMixedAccesses_ || (isSelect && isSelected_);
  isSelected_ = isSelect;
}

bus::ControlResult StampedCamera::ControlTransfer(const bus::SetupPacket& setup,
                                                  std::span<std::uint8_t> data) {
  NoteAccess(setup);
  TakeTime();
  if (isUnplugged_) return {bus::UsbStatus::Disconnected, 0};
  if (Take(silentRequests_)) return {bus::UsbStatus::Silent, 0};
  if (Take(stalledRequests_)) return {bus::UsbStatus::Stalled, 0};
  const auto moved = device_.Control(setup, data, Microframe());
  if (!moved) return {bus::UsbStatus::Stalled, 0};
  const bool isConfiguration = setup.RequestType == kDescriptorIn &&
                               setup.Request == kGetDescriptor &&
                               setup.Value >> 8 == kConfigurationType;
  if (isConfiguration && options_.HasTwinPipes) JoinPipes(data.first(*moved));
  return {bus::UsbStatus::Ok, *moved};
}

// Gives the first endpoint of each setting the kind and the size of the second.
void StampedCamera::JoinPipes(std::span<std::uint8_t> configuration) const {
  std::uint8_t* first = nullptr;
  for (std::size_t at = 0; at + 7 <= configuration.size() && configuration[at] != 0;
       at += configuration[at]) {
    std::uint8_t* const descriptor = &configuration[at];
    if (descriptor[1] != kEndpointType) continue;
    if (first == nullptr) {
      first = descriptor;
    } else {
      std::copy_n(descriptor + 3, 4, first + 3);
      first = nullptr;
    }
  }
}

bus::UsbStatus StampedCamera::SelectSetting(std::uint8_t interface, std::uint8_t setting) {
  TakeTime();
  if (isUnplugged_) return bus::UsbStatus::Disconnected;
  if (device_.BytesPerMicroframe(setting) > options_.BandwidthLimit) {
    return bus::UsbStatus::NoBandwidth;
  }
  startedAt_ = Microframe() + kStartDelay;
  sent_.reset();
  return device_.Control({kSetInterfaceType, kSetInterface, setting, interface, 0}, {}, 0)
             ? bus::UsbStatus::Ok
             : bus::UsbStatus::Stalled;
}

std::uint32_t StampedCamera::FrameBytes() const {
  const camera_model::Bridge& bridge = device_.Chip();
  return camera_model::GeometryOf(bridge.AttachedSensor().Model(),
                                  camera_model::SelectedRawSize(bridge))
      .TotalBytes;
}

bus::IsochronousResult StampedCamera::ReadIsochronous(std::uint8_t endpoint,
                                                      std::span<std::uint8_t> buffer,
                                                      std::span<bus::IsochronousPacket> packets) {
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  const std::uint64_t first = Microframe() - packets.size();
  const std::uint32_t limit = device_.BytesPerMicroframe();
  const bool isPicture = endpoint == camera_model::kIsochronousEndpoint || options_.HasTwinPipes;
  bus::UsbStatus status = bus::UsbStatus::Ok;
  if (isUnplugged_) {
    status = bus::UsbStatus::Disconnected;
  } else if (Take(silentReads_)) {
    status = bus::UsbStatus::Silent;
  } else if (Take(failingReads_) || !isPicture || limit == 0 || share < limit) {
    status = bus::UsbStatus::Failed;
  }
  const bool isSending = status == bus::UsbStatus::Ok && device_.Chip().IsSensorRunning();
  const std::uint32_t total = FrameBytes();
  for (std::size_t i = 0; i < packets.size(); ++i) {
    packets[i] = {static_cast<std::uint32_t>(i * share), 0, status};
    if (!isSending) continue;
    packets[i].Length = FillPacket(first + i, total, limit, buffer.subspan(i * share, share));
  }
  if (!packets.empty() && packets[0].Length != 0 && Take(corruptReads_)) buffer[share / 2] ^= 1;
  return {status, static_cast<std::uint32_t>(first)};
}

std::uint32_t StampedCamera::FillPacket(std::uint64_t microframe, std::uint32_t total,
                                        std::uint32_t limit, std::span<std::uint8_t> out) {
  if (microframe < startedAt_) return 0;
  const std::uint64_t period =
      std::max<std::uint64_t>(kMicroframesPerPicture, total / limit + kStartDelay);
  const auto number = static_cast<std::uint32_t>((microframe - startedAt_) / period);
  const std::uint64_t offset = (microframe - startedAt_) % period * limit;
  if (offset >= total) return 0;
  const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(limit, total - offset));
  std::memset(out.data(), StampOf(number), length);
  sent_.set(StampOf(number));
  if (offset == 0) {
    FillHeader(number, LumaOf(number, microframe), out.first(camera_model::kRawHeaderBytes));
  }
  return length;
}

FrameContent StampedCamera::Check(std::span<const std::uint8_t> rawFrame) {
  if (rawFrame.size() <= camera_model::kRawHeaderBytes) return FrameContent::Short;
  const std::uint8_t stamp = StampOf(NumberIn(rawFrame));
  const auto bytes = rawFrame.subspan(camera_model::kRawHeaderBytes);
  const bool isOne = bytes.front() == stamp && AreAllEqual(bytes);
  return rawFrame[0] == 0xFF && rawFrame[1] == 0xD8 && isOne ? FrameContent::Whole
                                                             : FrameContent::Torn;
}

}  // namespace lidcam::scenarios
