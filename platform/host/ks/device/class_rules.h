#pragma once

// The class manual's rules for its mutexes, and how often a driver breaks them.

#include "platform/host/ks/objects/class_mutex.h"
#include "platform/kernel.h"

namespace lidcam::host {

struct DeviceBlock;

/// The driver entry that the class calls while it holds one of its mutexes.
enum class ClassCall : ULONG {
  None,
  Start,
  PostStart,
  Stop,         ///< query, cancel and stop
  RemoveQuery,  ///< query and cancel
  QueryPower,
  SetPower,
  FilterCreate,
  FilterClose,
  FilterRequest,
  PinCreate,
  PinClose,
  PinRequest,  ///< including changes of state and format
  Count,
};

/// The manual's rules that a driver can break.
enum class ClassRule : ULONG {
  DeviceMutexOnce,      ///< "cannot be obtained recursively"
  ControlMutexOnce,     ///< "cannot be obtained recursively"
  DeviceBeforeControl,  ///< the owner of a control mutex should not take the device's
  Count,
};

/// One of the class's two mutexes, with its owner and the call that it is held for.
struct ClassMutex {
  KMUTEX Mutex;
  LIST_ENTRY Held;  ///< of control mutexes: in HeldControls, while it is held
  PKTHREAD Holder;
  ULONG Depth;
  ClassCall Call;  ///< of the outermost hold
};

/// A device's record: what its class has observed.
struct ClassRecord {
  KSPIN_LOCK Lock;          ///< of HeldControls
  LIST_ENTRY HeldControls;  ///< of ClassMutex
  volatile LONG Departures[static_cast<ULONG>(ClassRule::Count)]
                          [static_cast<ULONG>(ClassCall::Count)];
};

void InitializeClassMutex(ClassMutex& mutex);
void InitializeClassRecord(ClassRecord& record);

/// Acquires the device's mutex or a filter's control mutex: by the class around a call of the
/// driver, or by the driver with ClassCall::None. The owner may acquire it again. Passive level.
void AcquireDeviceFor(DeviceBlock& device, ClassCall call);
void ReleaseDeviceOf(DeviceBlock& device);
void AcquireControlFor(DeviceBlock& device, ClassMutex& control, ClassCall call);
void ReleaseControlOf(DeviceBlock& device, ClassMutex& control);

/// Holds the device's mutex around one call of the driver.
class DeviceCall {
 public:
  DeviceCall(DeviceBlock& device, ClassCall call) : device_(device) {
    AcquireDeviceFor(device_, call);
  }
  DeviceCall(const DeviceCall&) = delete;
  DeviceCall& operator=(const DeviceCall&) = delete;
  ~DeviceCall() noexcept(false) {
    if (Unwindings() == before_) ReleaseDeviceOf(device_);
  }

 private:
  const int before_ = Unwindings();
  DeviceBlock& device_;
};

/// How often the device's driver has broken a rule during a call. Any thread.
[[nodiscard]] ULONG DeparturesOf(DeviceBlock& device, ClassRule rule, ClassCall call);

}  // namespace lidcam::host
