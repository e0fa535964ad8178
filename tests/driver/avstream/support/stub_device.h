#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "driver/avstream/device/capture_device.h"

namespace lidcam::test {

inline constexpr NTSTATUS kRefused = STATUS_IO_TIMEOUT;

/// A device whose hardware only records its calls, with selectable results.
class StubDevice final : public CaptureDevice {
 public:
  explicit StubDevice(PKSDEVICE device) : CaptureDevice(device) {}

  using CaptureDevice::TakeCamera;

  std::int32_t GetFormatListIndex() override;
  std::int32_t GetFormatCount() override;
  NTSTATUS StartHardware(PKSDEVICE device) override;
  NTSTATUS StopHardware() override;
  NTSTATUS OnDeviceGone(std::uint32_t reason) override;
  NTSTATUS AcquireStream(PKSPIN pin, PKS_VIDEOINFOHEADER info) override;
  NTSTATUS RunStream() override;
  NTSTATUS ReleaseStream() override;
  NTSTATUS ResumeStream() override;
  NTSTATUS PauseStream() override;
  NTSTATUS PowerDown(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from) override;
  NTSTATUS PowerUp(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from,
                   PKS_VIDEOINFOHEADER info) override;

  NTSTATUS Start = STATUS_SUCCESS;
  NTSTATUS Acquire = STATUS_SUCCESS;
  NTSTATUS Run = STATUS_SUCCESS;
  NTSTATUS Release = STATUS_SUCCESS;
  NTSTATUS Resume = STATUS_SUCCESS;
  NTSTATUS Pause = STATUS_SUCCESS;
  std::int32_t ListIndex = 0;
  std::int32_t FormatCount = 5;
  PKS_VIDEOINFOHEADER AcquiredWith = nullptr;
  PKS_VIDEOINFOHEADER PoweredWith = nullptr;
  std::function<void()> OnRun;   ///< runs while the stream starts
  std::function<void()> OnStep;  ///< runs during every step
  std::vector<std::string> Steps;

 private:
  NTSTATUS Note(std::string step, NTSTATUS status);
};

}  // namespace lidcam::test
