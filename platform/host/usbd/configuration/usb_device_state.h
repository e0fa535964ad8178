#pragma once

#include <cstdint>

#include "bus/usb_bus.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/usbd/configuration/usb_configuration.h"

namespace lidcam::host {

/// Treatment of frames on a machine that is late.
enum class FrameRule : std::uint8_t {
  Strict,  ///< frames pass: a start frame in the past is refused, and late transfers catch up
  AsSoonAsPossible,  ///< frames pass, and a start frame in the past means the next one
  Patient,  ///< frames wait, for a device whose time halts until it is read: a stream begins
            ///< later, and a late transfer delays all behind it
};

/// Interrupt time in 100 ns.
inline LONGLONG InterruptTime() {
  return static_cast<LONGLONG>(KeQueryInterruptTime());
}

/// How a device is served.
struct UsbStackOptions {
  /// Bus frame number at time 0.
  ULONG FirstFrame = 0;
  FrameRule Frames = FrameRule::Strict;
  /// Whether both threads of the stack look for work at each request: a simulation then has more orders of
  /// threads to try. Otherwise only the request's thread does, and only if it would look too late: each look costs two
  /// context switches.
  bool LooksAtEachRequest = true;
  /// How late a transfer may be completed, in 100 ns, so that threads wake once for several, as a host controller
  /// delays its interrupts. The others, at least half of them, are on the bus meanwhile. 0: each is completed at its
  /// end. Not with FrameRule::Patient.
  LONGLONG CompletionDelay = 0;
  /// The time that frames are counted by, in 100 ns; any level.
  LONGLONG (*Now)() = InterruptTime;
};

/// Shared by the stack's parts: the device's bus, its lock and all that the lock guards.
struct UsbDeviceState {
  UsbDeviceState(bus::UsbBus& bus, const UsbStackOptions& options) : Bus(bus), Options(options) {
    KeInitializeSpinLock(&Lock);
    KeInitializeEvent(&ControlWork, SynchronizationEvent, FALSE);
    KeInitializeEvent(&ScheduleWork, SynchronizationEvent, FALSE);
  }

  /// Wakes both threads to look for work.
  void Wake() {
    KeSetEvent(&ControlWork, IO_NO_INCREMENT, FALSE);
    KeSetEvent(&ScheduleWork, IO_NO_INCREMENT, FALSE);
  }

  bus::UsbBus& Bus;
  const UsbStackOptions Options;

  KSPIN_LOCK Lock = 0;
  KEVENT ControlWork{};   ///< for the thread of control requests
  KEVENT ScheduleWork{};  ///< for the thread of the isochronous schedule

  // Under the lock.
  bool IsGone = false;      ///< unplugged: all requests end with USBD_STATUS_DEVICE_GONE
  bool IsStopping = false;  ///< the stack is being destroyed: its threads must end
  UsbConfiguration Configuration;
};

}  // namespace lidcam::host
