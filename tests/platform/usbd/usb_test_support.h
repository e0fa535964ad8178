#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "bus/usb_bus.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/usbd/device/usb_device_stack.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {

using Bytes = std::vector<std::uint8_t>;

// One configuration of one interface: setting 0 without bandwidth, setting 1 with an interrupt
// endpoint and an isochronous one of 2 x 512 bytes per microframe, setting 2 with one of 3 x 1024.
inline Bytes SmallConfiguration() {
  const auto setting = [](std::uint8_t number, std::uint8_t low, std::uint8_t high) {
    return Bytes{9, 4, 0,    number, 2,   0xFF, 0xFE, 0xFD, 0,  //
                 7, 5, 0x81, 3,      8,   0,    5,              //
                 7, 5, 0x82, 1,      low, high, 1};
  };
  Bytes all{9, 2, 78, 0, 1, 1, 0, 0x80, 250};
  for (const Bytes& part : {setting(0, 0, 0), setting(1, 0x00, 0x0A), setting(2, 0x00, 0x14)}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

/// A scripted bus that records its requests.
class ScriptedBus : public bus::UsbBus {
 public:
  std::function<bus::ControlResult(const bus::SetupPacket&, std::span<std::uint8_t>)> OnControl;
  std::function<bus::UsbStatus(std::uint8_t, std::uint8_t)> OnSetting;
  std::function<bus::IsochronousResult(std::span<std::uint8_t>, std::span<bus::IsochronousPacket>)>
      OnRead;
  std::function<bool()> OnHasReceived;
  std::vector<bus::SetupPacket> Setups;
  std::vector<int> Settings;
  std::vector<LONGLONG> ReadTimes;
  std::vector<int> Aborts;
  bool IsUnplugged = false;

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    if (IsUnplugged) return {bus::UsbStatus::Disconnected, 0};
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
    Setups.push_back(setup);
    return OnControl ? OnControl(setup, data)
                     : bus::ControlResult{bus::UsbStatus::Ok, setup.Length};
  }
  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t setting) override {
    if (IsUnplugged) return bus::UsbStatus::Disconnected;
    Settings.push_back(setting);
    return OnSetting ? OnSetting(interface, setting) : bus::UsbStatus::Ok;
  }
  bus::IsochronousResult ReadIsochronous(std::uint8_t, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override {
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
    ReadTimes.push_back(Now());
    const std::size_t share = buffer.size() / packets.size();
    for (std::size_t i = 0; i < packets.size(); ++i) {
      packets[i] = {static_cast<std::uint32_t>(i * share), 4, bus::UsbStatus::Ok};
      std::memset(buffer.data() + i * share, static_cast<int>(i + 1), 4);
    }
    if (IsUnplugged) return {bus::UsbStatus::Disconnected, 0};
    return OnRead ? OnRead(buffer, packets) : bus::IsochronousResult{};
  }
  bool HasReceived(std::uint8_t, std::size_t) override { return !OnHasReceived || OnHasReceived(); }
  void Abort(std::uint8_t endpoint) override { Aborts.push_back(endpoint); }
  std::uint32_t FrameNumber() override { return 0; }
  void Unplug() override { IsUnplugged = true; }
};

/// A driver's URB with its IRP: sent, waited for, inspected.
class SentUrb {
 public:
  explicit SentUrb(PDEVICE_OBJECT device, std::size_t size = sizeof(URB))
      : device_(device), memory_(size), irp_(IoAllocateIrp(device->StackSize, FALSE)) {
    KeInitializeEvent(&done_, NotificationEvent, FALSE);
    Urb().UrbHeader.Length = static_cast<USHORT>(size);
  }
  SentUrb(const SentUrb&) = delete;
  SentUrb& operator=(const SentUrb&) = delete;
  ~SentUrb() noexcept(false) {
    if (std::uncaught_exceptions() == 0) IoFreeIrp(irp_);
  }

  URB& Urb() { return *reinterpret_cast<URB*>(memory_.data()); }
  PIRP Irp() const { return irp_; }
  USBD_STATUS Status() { return Urb().UrbHeader.Status; }

  NTSTATUS Send() {
    KeClearEvent(&done_);
    irp_->Cancel = FALSE;
    IO_STACK_LOCATION& next = *IoGetNextIrpStackLocation(irp_);
    next.MajorFunction = IRP_MJ_INTERNAL_DEVICE_CONTROL;
    next.Parameters.DeviceIoControl.IoControlCode = IOCTL_INTERNAL_USB_SUBMIT_URB;
    next.Parameters.Others.Argument1 = &Urb();
    IoSetCompletionRoutine(irp_, Completed, this, TRUE, TRUE, TRUE);
    return IofCallDriver(device_, irp_);
  }

  /// @return the packet's status
  NTSTATUS Await() {
    WaitForever(&done_);
    return irp_->IoStatus.Status;
  }

  /// Sends it and waits; a pending request must be completed at DISPATCH_LEVEL.
  NTSTATUS Run() {
    const NTSTATUS sent = Send();
    const NTSTATUS status = Await();
    if (sent != STATUS_PENDING) {
      EXPECT_EQ(sent, status);
    } else {
      EXPECT_EQ(CompletionLevel, DISPATCH_LEVEL);
    }
    return status;
  }

  bool IsDone() { return KeReadStateEvent(&done_) != 0; }

  LONGLONG CompletedAt = -1;
  KIRQL CompletionLevel = PASSIVE_LEVEL;
  std::function<void()> OnCompletion;

 private:
  static NTSTATUS NTAPI Completed(PDEVICE_OBJECT, PIRP, PVOID context) {
    auto& self = *static_cast<SentUrb*>(context);
    self.CompletedAt = Now();
    self.CompletionLevel = KeGetCurrentIrql();
    if (self.OnCompletion) self.OnCompletion();
    KeSetEvent(&self.done_, IO_NO_INCREMENT, FALSE);
    return STATUS_MORE_PROCESSING_REQUIRED;
  }

  PDEVICE_OBJECT device_;
  Bytes memory_;
  PIRP irp_;
  KEVENT done_{};
};

/// Fills the common part of a pipe request.
inline void MakePipeRequest(SentUrb& sent, USHORT function, USBD_PIPE_HANDLE pipe) {
  sent.Urb().UrbHeader.Length = sizeof(_URB_PIPE_REQUEST);
  sent.Urb().UrbHeader.Function = function;
  sent.Urb().UrbPipeRequest.PipeHandle = pipe;
}

inline NTSTATUS RunPipeRequest(PDEVICE_OBJECT device, USHORT function, USBD_PIPE_HANDLE pipe) {
  SentUrb sent(device);
  MakePipeRequest(sent, function, pipe);
  return sent.Run();
}

/// A vendor read with its buffer.
class VendorRead {
 public:
  explicit VendorRead(PDEVICE_OBJECT device, ULONG length = 2,
                      ULONG flags = USBD_TRANSFER_DIRECTION_IN)
      : Sent(device), Data(length, 0xEE) {
    _URB_CONTROL_VENDOR_OR_CLASS_REQUEST& urb = Request();
    urb.Hdr.Length = sizeof(urb);
    urb.Hdr.Function = URB_FUNCTION_VENDOR_DEVICE;
    urb.TransferFlags = flags;
    urb.TransferBufferLength = length;
    urb.TransferBuffer = length == 0 ? nullptr : Data.data();
    urb.Request = 0xA1;
    urb.Value = 0x1234;
    urb.Index = 0xFF09;
  }
  _URB_CONTROL_VENDOR_OR_CLASS_REQUEST& Request() {
    return Sent.Urb().UrbControlVendorClassRequest;
  }
  SentUrb Sent;
  Bytes Data;
};

/// An isochronous read with its buffer.
class IsochronousRead {
 public:
  IsochronousRead(PDEVICE_OBJECT device, const USBD_PIPE_INFORMATION& pipe, ULONG packets = 32)
      : Sent(device, sizeof(_URB_ISOCH_TRANSFER) + packets * sizeof(USBD_ISO_PACKET_DESCRIPTOR)),
        Data(std::size_t{packets} * pipe.MaximumPacketSize, 0xEE) {
    _URB_ISOCH_TRANSFER& urb = Request();
    urb.Hdr.Function = URB_FUNCTION_ISOCH_TRANSFER;
    urb.PipeHandle = pipe.PipeHandle;
    urb.TransferFlags = USBD_TRANSFER_DIRECTION_IN | USBD_START_ISO_TRANSFER_ASAP;
    urb.TransferBufferLength = static_cast<ULONG>(Data.size());
    urb.TransferBuffer = Data.data();
    urb.NumberOfPackets = packets;
    for (ULONG i = 0; i < packets; ++i) Packet(i).Offset = i * pipe.MaximumPacketSize;
  }
  _URB_ISOCH_TRANSFER& Request() { return Sent.Urb().UrbIsochronousTransfer; }
  USBD_ISO_PACKET_DESCRIPTOR& Packet(ULONG i) { return (&Request().IsoPacket[0])[i]; }
  void StartAt(ULONG frame) {
    Request().TransferFlags = USBD_TRANSFER_DIRECTION_IN;
    Request().StartFrame = frame;
  }

  SentUrb Sent;
  Bytes Data;
};

/// A USB stack over a bus, and the first requests of a driver.
class UsbWorld {
 public:
  explicit UsbWorld(bus::UsbBus& bus, const UsbStackOptions& options = {}) : Stack(bus, options) {}

  PDEVICE_OBJECT Device() { return Stack.PhysicalDeviceObject(); }

  /// Selects the only configuration of `descriptor`, with setting 0 of interface 0.
  NTSTATUS Configure(Bytes descriptor) {
    auto* const configuration = reinterpret_cast<PUSB_CONFIGURATION_DESCRIPTOR>(descriptor.data());
    USBD_INTERFACE_LIST_ENTRY list[2]{};
    list[0].InterfaceDescriptor =
        USBD_ParseConfigurationDescriptorEx(configuration, configuration, 0, -1, -1, -1, -1);
    URB* const urb = USBD_CreateConfigurationRequestEx(configuration, list);
    SentUrb sent(Device(), 1024);
    std::memcpy(&sent.Urb(), urb, urb->UrbHeader.Length);
    ExFreePool(urb);
    const NTSTATUS status = sent.Run();
    ConfigurationStatus = sent.Status();
    const _URB_SELECT_CONFIGURATION& request = sent.Urb().UrbSelectConfiguration;
    ConfigurationHandle = request.ConfigurationHandle;
    information_.assign(
        reinterpret_cast<const std::uint8_t*>(&request.Interface),
        reinterpret_cast<const std::uint8_t*>(&request.Interface) + request.Interface.Length);
    return status;
  }

  NTSTATUS SelectSetting(UCHAR setting) {
    SentUrb sent(Device(), 1024);
    _URB_SELECT_INTERFACE& request = sent.Urb().UrbSelectInterface;
    Interface().AlternateSetting = setting;
    request.Hdr.Length = 0x0BAD & 3;  // some drivers leave it unset
    request.Hdr.Function = URB_FUNCTION_SELECT_INTERFACE;
    request.ConfigurationHandle = ConfigurationHandle;
    std::memcpy(static_cast<void*>(&request.Interface), information_.data(), information_.size());
    const NTSTATUS status = sent.Run();
    SettingStatus = sent.Status();
    if (NT_SUCCESS(status)) {
      std::memcpy(information_.data(), static_cast<void*>(&request.Interface), information_.size());
    }
    return status;
  }

  USBD_INTERFACE_INFORMATION& Interface() {
    return *reinterpret_cast<USBD_INTERFACE_INFORMATION*>(information_.data());
  }
  USBD_PIPE_INFORMATION& Pipe(ULONG i) { return (&Interface().Pipes[0])[i]; }

  UsbDeviceStack Stack;
  USBD_CONFIGURATION_HANDLE ConfigurationHandle = nullptr;
  USBD_STATUS ConfigurationStatus = 0;
  USBD_STATUS SettingStatus = 0;

 private:
  Bytes information_;
};

/// Runs `test` with a scripted bus and a stack on it, configured and in setting 1, for some seeds.
/// Checks that no pool memory is left.
inline void WithConfiguredDevice(const std::function<void(ScriptedBus&, UsbWorld&)>& test,
                                 const UsbStackOptions& options = {}, std::uint64_t seeds = 20) {
  const std::size_t blocks = PoolUsageOfAll().Blocks;
  UnderManySeeds(
      [&] {
        ScriptedBus bus;
        UsbWorld world(bus, options);
        ASSERT_EQ(world.Configure(SmallConfiguration()), STATUS_SUCCESS);
        ASSERT_EQ(world.SelectSetting(1), STATUS_SUCCESS);
        bus.Setups.clear();
        bus.Settings.clear();
        test(bus, world);
        EXPECT_EQ(IrpsInFlightAt(world.Device()), 0U);
      },
      seeds);
  EXPECT_EQ(PoolUsageOfAll().Blocks, blocks);
}

}  // namespace lidcam::host
