#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/kernel.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::test {

/// The stack's result for one request.
struct Verdict {
  NTSTATUS Status = STATUS_SUCCESS;  ///< of the IRP
  USBD_STATUS UrbStatus = USBD_STATUS_SUCCESS;
  bool IsSilent = false;  ///< keeps the request until it is cancelled or AnswerSilent()
};

/// The lower end of the device stack: answers URBs as a camera with `Configuration` would, with one
/// log line each. Isochronous transfers stay in flight until an abort or CompleteIso().
class ScriptedStack {
 public:
  ScriptedStack();

  [[nodiscard]] PDEVICE_OBJECT Device() { return driver_.Device(); }

  /// Decides about a request before the normal answer; none: answer normally.
  std::function<std::optional<Verdict>(URB& urb)> Decide;

  std::vector<std::uint8_t> DeviceDescriptor;
  std::vector<std::uint8_t> Configuration;
  std::map<std::uint8_t, USHORT> PacketSizes;  ///< of the second pipe, by alternate setting
  std::uint32_t FrameNumber = 1000;

  /// Packet size of the device's present setting, and all settings requested, in order.
  std::vector<unsigned> SettingsAsked;

  [[nodiscard]] std::size_t IsoOut() const;

  /// Completes the oldest isochronous transfer at dispatch level; nothing if none is in flight.
  /// @return whether there was one
  bool CompleteIso(USBD_STATUS status);

  /// Completes the request that a silent verdict has kept.
  void AnswerSilent(NTSTATUS status);

 private:
  NTSTATUS Take(PIRP irp);
  NTSTATUS Finish(PIRP irp, URB& urb, const Verdict& verdict);
  void Answer(URB& urb);
  void AnswerDescriptor(_URB_CONTROL_DESCRIPTOR_REQUEST& urb);
  void FillInterface(USBD_INTERFACE_INFORMATION& information);
  NTSTATUS KeepIso(PIRP irp);
  NTSTATUS KeepUntilCancelled(PIRP irp);
  void AbortIso();

  host::TestDriver driver_;
  mutable std::mutex isoLock_;
  std::vector<PIRP> iso_;
  PIRP silent_ = nullptr;
};

/// Descriptors of a camera: 18 bytes, and a configuration of one interface with `settings` alternate
/// settings of an interrupt and an isochronous endpoint each: 193 bytes with eight.
[[nodiscard]] std::vector<std::uint8_t> DeviceDescriptorBytes();
[[nodiscard]] std::vector<std::uint8_t> ConfigurationBytes(unsigned settings);

/// A line that describes an URB.
[[nodiscard]] std::string DescribeUrb(const URB& urb);

}  // namespace lidcam::test
