#include "tests/driver/avstream/support/stub_device.h"

#include <utility>

#include "tests/driver/avstream/support/fake_streaming_class.h"

namespace lidcam::test {

NTSTATUS StubDevice::Note(std::string step, NTSTATUS status) {
  FakeStreamingClass::The().Note(step);
  if (OnStep) OnStep();
  Steps.push_back(std::move(step));
  return status;
}

std::int32_t StubDevice::GetFormatListIndex() {
  FakeStreamingClass::The().Note("format list");
  return ListIndex;
}

std::int32_t StubDevice::GetFormatCount() {
  FakeStreamingClass::The().Note("format count");
  return FormatCount;
}

NTSTATUS StubDevice::StartHardware(PKSDEVICE) {
  return Note("start hardware", Start);
}

NTSTATUS StubDevice::StopHardware() {
  return Note("stop hardware", STATUS_SUCCESS);
}

NTSTATUS StubDevice::OnDeviceGone(std::uint32_t reason) {
  return Note("gone " + std::to_string(reason), STATUS_SUCCESS);
}

NTSTATUS StubDevice::AcquireStream(PKSPIN, PKS_VIDEOINFOHEADER info) {
  AcquiredWith = info;
  return Note("acquire stream", Acquire);
}

NTSTATUS StubDevice::RunStream() {
  if (OnRun) OnRun();
  return Note("run stream", Run);
}

NTSTATUS StubDevice::ReleaseStream() {
  return Note("release stream", Release);
}

NTSTATUS StubDevice::ResumeStream() {
  return Note("resume stream", Resume);
}

NTSTATUS StubDevice::PauseStream() {
  return Note("pause stream", Pause);
}

NTSTATUS StubDevice::PowerDown(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from) {
  return Note("power down " + std::to_string(state) + " " + std::to_string(from), kRefused);
}

NTSTATUS StubDevice::PowerUp(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from,
                             PKS_VIDEOINFOHEADER info) {
  PoweredWith = info;
  return Note("power up " + std::to_string(state) + " " + std::to_string(from), kRefused);
}

}  // namespace lidcam::test
