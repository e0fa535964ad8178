#pragma once

#include "bus/usb_bus.h"
#include "platform/host/nt/kernel_guards.h"
#include "platform/host/usbd/usb_configuration.h"

namespace lidcam::host {

/// What the stack's parts share about the device: its bus, its lock and all that the lock guards.
struct UsbDeviceState {
  UsbDeviceState(bus::UsbBus& bus, ULONG firstFrame) : Bus(bus), FirstFrame(firstFrame) {
    KeInitializeSpinLock(&Lock);
    KeInitializeEvent(&ControlWork, SynchronizationEvent, FALSE);
    KeInitializeEvent(&ScheduleWork, SynchronizationEvent, FALSE);
  }

  /// Lets both threads look at what there is to do.
  void Wake() {
    KeSetEvent(&ControlWork, IO_NO_INCREMENT, FALSE);
    KeSetEvent(&ScheduleWork, IO_NO_INCREMENT, FALSE);
  }

  bus::UsbBus& Bus;
  const ULONG FirstFrame;  ///< number of the frame in which the frame clock began

  KSPIN_LOCK Lock = 0;
  KEVENT ControlWork{};   ///< for the thread of control requests
  KEVENT ScheduleWork{};  ///< for the thread of the isochronous schedule

  // Under the lock.
  bool IsGone = false;      ///< unplugged: everything ends with USBD_STATUS_DEVICE_GONE
  bool IsStopping = false;  ///< the stack goes: its threads are to end
  UsbConfiguration Configuration;
};

}  // namespace lidcam::host
