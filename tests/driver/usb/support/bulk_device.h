#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "driver/usb/transfers/bulk_transfers.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::test {

/// A device with a bulk IN pipe (entry 0) and a bulk OUT pipe (entry 1), 64 bytes a packet, over a lower
/// device that keeps each chunk until a test answers it.
class BulkDevice {
 public:
  BulkDevice() : lower_([this](PDEVICE_OBJECT, PIRP irp) { return Take(irp); }) {
    lower_.Device()->StackSize = 1;
    ksDevice_.NextDeviceObject = lower_.Device();
    Record.KsDevice = &ksDevice_;
    Record.Connected = 1;
    Record.DeviceOpen = 1;
    Record.Stream = &Stream;
    Record.PipeTable = pipes_;
    Record.PipeCount = 2;
    void* const information = interface_;
    Record.InterfaceInformation = static_cast<USBD_INTERFACE_INFORMATION*>(information);
    Record.InterfaceInformation->NumberOfPipes = 2;
    Stream.Device = &Record;
    for (std::size_t i = 0; i < 2; ++i) {
      KeInitializeSpinLock(&pipes_[i].Lock);
      InitializeListHead(&pipes_[i].ActiveList);
      InitializeListHead(&pipes_[i].PendingList);
      Pipe(i).MaximumPacketSize = 64;
      Pipe(i).MaximumTransferSize = 256;
      Pipe(i).EndpointAddress = i == 0 ? 0x82 : 0x03;
    }
  }
  BulkDevice(const BulkDevice&) = delete;
  BulkDevice& operator=(const BulkDevice&) = delete;

  USBD_PIPE_INFORMATION& Pipe(std::size_t index) {
    return Record.InterfaceInformation->Pipes[index];
  }
  [[nodiscard]] PipeRecord& Lists(std::size_t index) { return pipes_[index]; }

  NTSTATUS Read(std::uint8_t* buffer, std::uint32_t length, BulkCallback callback = nullptr,
                std::uint8_t repeat = 0) {
    return StartBulkTransfer(Record, nullptr, nullptr, buffer, length, 0, callback, repeat);
  }

  /// Completes the chunk in flight with `bytes` of data counting up.
  void Answer(std::uint32_t bytes, USBD_STATUS status = USBD_STATUS_SUCCESS,
              NTSTATUS irpStatus = STATUS_SUCCESS) {
    PIRP const irp = Kept.front();
    Kept.erase(Kept.begin());
    _URB_BULK_OR_INTERRUPT_TRANSFER& urb = UrbOf(irp);
    for (std::uint32_t i = 0; i < bytes; ++i) {
      static_cast<std::uint8_t*>(urb.TransferBuffer)[i] = next_++;
    }
    urb.TransferBufferLength = bytes;
    urb.Hdr.Status = status;
    KIRQL before{};
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    host::Complete(irp, irpStatus);
    KeLowerIrql(before);
  }

  static _URB_BULK_OR_INTERRUPT_TRANSFER& UrbOf(PIRP irp) {
    return *static_cast<_URB_BULK_OR_INTERRUPT_TRANSFER*>(
        IoGetCurrentIrpStackLocation(irp)->Parameters.Others.Argument1);
  }

  UsbDeviceRecord Record{};
  UsbStreamRecord Stream{};
  std::vector<std::uint32_t> Chunks;  ///< bytes of each chunk sent
  std::vector<PIRP> Kept;
  NTSTATUS SendStatus = STATUS_PENDING;
  std::function<void()> OnSend;  ///< runs ahead of each chunk

 private:
  NTSTATUS Take(PIRP irp) {
    if (OnSend) OnSend();
    Chunks.push_back(UrbOf(irp).TransferBufferLength);
    if (SendStatus == STATUS_PENDING) {
      IoMarkIrpPending(irp);
      Kept.push_back(irp);
      return STATUS_PENDING;
    }
    UrbOf(irp).Hdr.Status = USBD_STATUS_DEVICE_GONE;
    return host::Complete(irp, SendStatus);
  }

  PipeRecord pipes_[2]{};
  alignas(8) std::uint8_t
      interface_[sizeof(USBD_INTERFACE_INFORMATION) + sizeof(USBD_PIPE_INFORMATION)]{};
  KSDEVICE ksDevice_{};
  host::TestDriver lower_;
  std::uint8_t next_ = 0;
};

/// A transfer of a stream's, or one that a test puts into a list.
struct OwnTransfer : BulkTransfer {
  OwnTransfer() : BulkTransfer{} { KeInitializeEvent(&DoneEvent, SynchronizationEvent, FALSE); }
  void Free() {
    if (Irp != nullptr) IoFreeIrp(Irp);
    if (Urb != nullptr) ExFreePool(Urb);
    if (BounceBuffer != nullptr) ExFreePool(BounceBuffer);
  }
};

}  // namespace lidcam::test
