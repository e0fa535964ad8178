#include "tests/driver/usb/support/scripted_stack.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tests/driver/usb/support/platform_log.h"

namespace lidcam::test {
namespace {

PVOID PipeHandle(unsigned index) {
  return reinterpret_cast<PVOID>(std::uintptr_t{0x100} + index);
}

unsigned PipeNumber(USBD_PIPE_HANDLE handle) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(handle) - 0x100);
}

URB& UrbOf(PIRP irp) {
  return *static_cast<URB*>(IoGetCurrentIrpStackLocation(irp)->Parameters.Others.Argument1);
}

std::string N(std::uint32_t number) {
  return std::to_string(number);
}

void CompleteAtDispatch(PIRP irp, NTSTATUS status) {
  KIRQL before = 0;
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  host::Complete(irp, status);
  KeLowerIrql(before);
}

void NTAPI CancelKept(PDEVICE_OBJECT, PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  PlatformLog::Add("stack cancels the request");
  host::Complete(irp, STATUS_CANCELLED);
}

}  // namespace

std::vector<std::uint8_t> DeviceDescriptorBytes() {
  return {18, 1, 0, 2, 0xEF, 2, 1, 64, 0xF0, 0x1A, 0x11, 0x05, 0, 1, 1, 2, 0, 1};
}

std::vector<std::uint8_t> ConfigurationBytes(unsigned settings) {
  std::vector<std::uint8_t> bytes{9, 2, 0, 0, 1, 1, 0, 0x80, 250};
  for (unsigned i = 0; i < settings; ++i) {
    const auto setting = static_cast<std::uint8_t>(i);
    bytes.insert(bytes.end(), {9, 4, 0, setting, 2, 0xFF, 0xFF, 0xFF, 0});
    bytes.insert(bytes.end(), {7, 5, 0x81, 3, 8, 0, 1});
    bytes.insert(bytes.end(), {7, 5, 0x82, 1, 0, 2, 1});
  }
  bytes[2] = static_cast<std::uint8_t>(bytes.size());
  bytes[3] = static_cast<std::uint8_t>(bytes.size() >> 8);
  return bytes;
}

std::string DescribeUrb(const URB& urb) {
  switch (urb.UrbHeader.Function) {
    case 0x0B:
      return "urb get descriptor type=" + N(urb.UrbControlDescriptorRequest.DescriptorType) +
             " length=" + N(urb.UrbControlDescriptorRequest.TransferBufferLength);
    case 0x00:
      return "urb select configuration";
    case 0x01:
      return "urb select setting " + N(urb.UrbSelectInterface.Interface.AlternateSetting);
    case 0x02:
      return "urb abort pipe " + N(PipeNumber(urb.UrbPipeRequest.PipeHandle));
    case 0x1E:
      return "urb reset pipe " + N(PipeNumber(urb.UrbPipeRequest.PipeHandle));
    case 0x07:
      return "urb get frame number";
    case 0x17:
      return "urb vendor requests";
    case 0x0A: {
      const _URB_ISOCH_TRANSFER& iso = urb.UrbIsochronousTransfer;
      if ((iso.TransferFlags & 4) != 0) return "urb iso as soon as possible";
      return "urb iso frame=" + N(iso.StartFrame) + " packets=" + N(iso.NumberOfPackets) +
             " bytes=" + N(iso.TransferBufferLength);
    }
    default:
      return "urb function " + N(urb.UrbHeader.Function);
  }
}

ScriptedStack::ScriptedStack()
    : DeviceDescriptor(DeviceDescriptorBytes()),
      Configuration(ConfigurationBytes(8)),
      PacketSizes{{0, 0},    {1, 128},  {2, 512},  {3, 1024},
                  {4, 2816}, {5, 3072}, {6, 4992}, {7, 5120}},
      driver_([this](PDEVICE_OBJECT, PIRP irp) { return Take(irp); }) {}

NTSTATUS ScriptedStack::Take(PIRP irp) {
  URB& urb = UrbOf(irp);
  PlatformLog::Add(DescribeUrb(urb));
  if (urb.UrbHeader.Function == 0x01) {
    SettingsAsked.push_back(urb.UrbSelectInterface.Interface.AlternateSetting);
  }
  if (Decide) {
    const auto verdict = Decide(urb);
    if (verdict) return verdict->IsSilent ? KeepUntilCancelled(irp) : Finish(irp, urb, *verdict);
  }
  if (urb.UrbHeader.Function == 0x0A) return KeepIso(irp);
  if (urb.UrbHeader.Function == 0x02) AbortIso();
  Answer(urb);
  return Finish(irp, urb, {});
}

NTSTATUS ScriptedStack::Finish(PIRP irp, URB& urb, const Verdict& verdict) {
  urb.UrbHeader.Status = verdict.UrbStatus;
  return host::Complete(irp, verdict.Status);
}

void ScriptedStack::Answer(URB& urb) {
  switch (urb.UrbHeader.Function) {
    case 0x0B:
      AnswerDescriptor(urb.UrbControlDescriptorRequest);
      break;
    case 0x00:
      urb.UrbSelectConfiguration.ConfigurationHandle = this;
      FillInterface(urb.UrbSelectConfiguration.Interface);
      break;
    case 0x01:
      FillInterface(urb.UrbSelectInterface.Interface);
      break;
    case 0x07:
      urb.UrbGetCurrentFrameNumber.FrameNumber = FrameNumber;
      break;
    default:
      break;
  }
}

void ScriptedStack::AnswerDescriptor(_URB_CONTROL_DESCRIPTOR_REQUEST& urb) {
  const std::vector<std::uint8_t>& bytes =
      urb.DescriptorType == 1 ? DeviceDescriptor : Configuration;
  urb.TransferBufferLength = std::min(urb.TransferBufferLength, static_cast<ULONG>(bytes.size()));
  std::memcpy(urb.TransferBuffer, bytes.data(), urb.TransferBufferLength);
}

void ScriptedStack::FillInterface(USBD_INTERFACE_INFORMATION& information) {
  if (information.NumberOfPipes < 2) return;
  USBD_PIPE_INFORMATION* const pipes = information.Pipes;
  pipes[0] = {8, 0x81, 1, UsbdPipeTypeInterrupt, PipeHandle(0), 4096, 0};
  pipes[1] = {PacketSizes[information.AlternateSetting],
              0x82,
              1,
              UsbdPipeTypeIsochronous,
              PipeHandle(1),
              1 << 20,
              0};
}

NTSTATUS ScriptedStack::KeepIso(PIRP irp) {
  PlatformLog::WatchIrp(irp);
  IoMarkIrpPending(irp);
  const std::lock_guard guard(isoLock_);
  iso_.push_back(irp);
  return STATUS_PENDING;
}

std::size_t ScriptedStack::IsoOut() const {
  const std::lock_guard guard(isoLock_);
  return iso_.size();
}

bool ScriptedStack::CompleteIso(USBD_STATUS status) {
  PIRP irp = nullptr;
  {
    const std::lock_guard guard(isoLock_);
    if (iso_.empty()) return false;
    irp = iso_.front();
    iso_.erase(iso_.begin());
  }
  UrbOf(irp).UrbHeader.Status = status;
  CompleteAtDispatch(irp, STATUS_SUCCESS);
  return true;
}

void ScriptedStack::AbortIso() {
  for (std::size_t left = IsoOut(); left != 0; --left) CompleteIso(USBD_STATUS_CANCELED);
}

NTSTATUS ScriptedStack::KeepUntilCancelled(PIRP irp) {
  IoMarkIrpPending(irp);
  IoSetCancelRoutine(irp, CancelKept);
  silent_ = irp;
  return STATUS_PENDING;
}

void ScriptedStack::AnswerSilent(NTSTATUS status) {
  IoSetCancelRoutine(silent_, nullptr);
  CompleteAtDispatch(std::exchange(silent_, nullptr), status);
}

}  // namespace lidcam::test
