#include "platform/host/ks/device/class_rules.h"

#include "platform/host/ks/device/device_block.h"

namespace lidcam::host {
namespace {

void NoteDeparture(DeviceBlock& device, ClassRule rule, ClassCall call) {
  InterlockedIncrement(
      &device.Record.Departures[static_cast<ULONG>(rule)][static_cast<ULONG>(call)]);
}

void Enter(ClassMutex& mutex, ClassCall call) {
  if (mutex.Depth++ != 0) return;
  mutex.Holder = KeGetCurrentThread();
  mutex.Call = call;
}

/// @return true if this ended the outermost hold
bool Leave(ClassMutex& mutex) {
  if (--mutex.Depth != 0) return false;
  mutex.Holder = nullptr;
  mutex.Call = ClassCall::None;
  return true;
}

/// The call during which this thread holds a control mutex; None if it holds none.
ClassCall ControlCallOfThread(ClassRecord& record) {
  ClassCall call = ClassCall::None;
  KIRQL before = 0;
  KeAcquireSpinLock(&record.Lock, &before);
  for (LIST_ENTRY* link = record.HeldControls.Flink; link != &record.HeldControls;
       link = link->Flink) {
    const ClassMutex& control = *CONTAINING_RECORD(link, ClassMutex, Held);
    if (control.Holder == KeGetCurrentThread()) call = control.Call;
  }
  KeReleaseSpinLock(&record.Lock, before);
  return call;
}

}  // namespace

void InitializeClassMutex(ClassMutex& mutex) {
  InitializeMutex(mutex.Mutex);
  mutex.Holder = nullptr;
  mutex.Depth = 0;
  mutex.Call = ClassCall::None;
}

void InitializeClassRecord(ClassRecord& record) {
  KeInitializeSpinLock(&record.Lock);
  InitializeListHead(&record.HeldControls);
}

void AcquireDeviceFor(DeviceBlock& device, ClassCall call) {
  const ClassCall control = ControlCallOfThread(device.Record);
  if (control != ClassCall::None) NoteDeparture(device, ClassRule::DeviceBeforeControl, control);
  AcquireMutex(device.Device.Mutex);
  if (device.Device.Depth != 0) {
    NoteDeparture(device, ClassRule::DeviceMutexOnce, device.Device.Call);
  }
  Enter(device.Device, call);
}

void ReleaseDeviceOf(DeviceBlock& device) {
  Leave(device.Device);
  ReleaseMutex(device.Device.Mutex);
}

void AcquireControlFor(DeviceBlock& device, ClassMutex& control, ClassCall call) {
  AcquireMutex(control.Mutex);
  if (control.Depth != 0) {
    NoteDeparture(device, ClassRule::ControlMutexOnce, control.Call);
    ++control.Depth;
    return;
  }
  KIRQL before = 0;
  KeAcquireSpinLock(&device.Record.Lock, &before);
  Enter(control, call);
  InsertTailList(&device.Record.HeldControls, &control.Held);
  KeReleaseSpinLock(&device.Record.Lock, before);
}

void ReleaseControlOf(DeviceBlock& device, ClassMutex& control) {
  KIRQL before = 0;
  KeAcquireSpinLock(&device.Record.Lock, &before);
  if (Leave(control)) RemoveEntryList(&control.Held);
  KeReleaseSpinLock(&device.Record.Lock, before);
  ReleaseMutex(control.Mutex);
}

ULONG DeparturesOf(DeviceBlock& device, ClassRule rule, ClassCall call) {
  volatile LONG& count =
      device.Record.Departures[static_cast<ULONG>(rule)][static_cast<ULONG>(call)];
  return static_cast<ULONG>(InterlockedCompareExchange(&count, 0, 0));
}

}  // namespace lidcam::host
