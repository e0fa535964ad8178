#pragma once

// The class's own data behind the published objects, and the calls between its files.
//
// The class is kernel code: no exceptions, no run-time library, memory from the pool only, and no
// kernel interface but those of platform/kernel.h, so that it can be built as an image of its own.

#include "platform/host/ks/device/class_rules.h"
#include "platform/host/ks/objects/object_bag.h"
#include "platform/kernel.h"

namespace lidcam::host {

struct DeviceBlock;
struct FilterBlock;
struct PinBlock;

enum class KsObjectKind : ULONG { FilterFactory, Filter, Pin, Clock };

/// Directly precedes a published object; a file object's FsContext points to it.
struct alignas(16) ObjectHead {
  KsObjectKind Kind;
  DeviceBlock* Device;
};

inline ObjectHead& HeadOf(PVOID publishedObject) {
  return static_cast<ObjectHead*>(publishedObject)[-1];
}

/// A pin's place in its device's list of pins.
struct PinLink {
  LIST_ENTRY Entry;
  PinBlock* Pin;
  void (*ReturnFrames)(PinBlock& pin);  ///< completes all of them with STATUS_CANCELLED
};

/// The device. The extension of its functional device object begins with its address.
struct DeviceBlock : KSDEVICE {
  ClassMutex Device;   ///< of KsAcquireDevice(), and of all object bags
  ClassRecord Record;  ///< the driver's use of the class's mutexes
  ObjectBag* Items;
  LIST_ENTRY Factories;      ///< of FilterFactoryBlock, the oldest first; under Device
  LIST_ENTRY Pins;           ///< of PinLink, all open ones; under Device
  volatile LONG Users;       ///< references: the device stack, open files, and requests in progress
  volatile LONG Requests;    ///< in progress, plus one until the device is removed
  KEVENT RequestsEnded;      ///< set when Requests reaches 0
  volatile LONG IsStarting;  ///< its start is in progress: nothing can be opened yet
  volatile LONG IsGone;      ///< no opening or streaming any more: (surprise) removal
  volatile LONG IsRemoved;   ///< files can only be closed
};

struct FilterFactoryBlock {
  ObjectHead Head;
  KSFILTERFACTORY Factory;
  ObjectBag* Items;
  LIST_ENTRY Link;
  UNICODE_STRING ReferenceString;  ///< in the pool
  ULONG CreateItemFlags;
  BOOLEAN IsEnabled;  ///< applications can find it: the device is started
  BOOLEAN IsDropped;  ///< makes no filters, and is freed with the last of its filters; under Device
  LONG OpenFilters;   ///< under Device
};

/// A kind of pin that a filter can have, with the descriptor copied.
struct PinFactoryBlock {
  LIST_ENTRY Link;
  ULONG Id;
  KSPIN_DESCRIPTOR_EX Descriptor;
  ULONG CurrentPins;
};

struct FilterBlock {
  ObjectHead Head;
  KSFILTER Filter;
  ObjectBag* Items;
  ClassMutex Control;  ///< of KsAcquireControl(), and held while the driver makes or changes a pin
  FilterFactoryBlock* Factory;
  LIST_ENTRY PinFactories;  ///< of PinFactoryBlock, by id; under Control
  ULONG PinFactoriesCount;
  PFILE_OBJECT File;
  volatile LONG References;  ///< its file and its pins
};

/// Holds a filter's control mutex around calls of the driver.
class ControlCall {
 public:
  ControlCall(FilterBlock& filter, ClassCall call) : filter_(filter) {
    AcquireControlFor(*filter_.Head.Device, filter_.Control, call);
  }
  ControlCall(const ControlCall&) = delete;
  ControlCall& operator=(const ControlCall&) = delete;
  ~ControlCall() noexcept(false) {
    if (Unwindings() == before_) ReleaseControlOf(*filter_.Head.Device, filter_.Control);
  }

 private:
  const int before_ = Unwindings();
  FilterBlock& filter_;
};

// ---- device_block.cpp, filter_block.cpp and automation.cpp

/// Fills the class's part of a device: mutex, bag, lists.
/// @return STATUS_INSUFFICIENT_RESOURCES
NTSTATUS InitializeDeviceBlock(DeviceBlock& device);
/// Completes all frames of the device's pins with STATUS_CANCELLED: the device is gone, and pins
/// refuse further ones by its IsGone. Passive level, no mutex held.
void ReturnFramesOfAllPins(DeviceBlock& device);
/// Drops the factories and frees the bag's items. The mutex must not be held.
void CleanUpDeviceBlock(DeviceBlock& device);

/// A bag under the device's mutex.
/// @return null without memory
ObjectBag* CreateObjectBag(DeviceBlock& device);
/// Frees the bag with all its items, no mutex held; null is allowed. Passive level.
void DestroyObjectBag(ObjectBag* bag);

/// Keeps a filter alive for one of its pins: the filter's file may be closed before the pin's.
void ReferenceFilter(FilterBlock& filter);
/// The last reference frees the filter. Passive level, no mutex held.
void ReleaseFilter(FilterBlock& filter);

/// A pin's descriptor by its id; null for an unknown one. Under the filter's control mutex.
PinFactoryBlock* FindPinFactory(FilterBlock& filter, ULONG pinId);

/// Answers IOCTL_KS_PROPERTY by the first table that lists the property's set: minimum sizes are
/// checked, the request and the value are copied into memory of the class's own, and basic support
/// with ranges and defaults is answered from the table where the item has no handler for it.
///
/// @param tables  null ones are skipped
/// @return the status; the request is not completed
NTSTATUS AnswerProperty(PIRP irp, const KSAUTOMATION_TABLE* const* tables, ULONG tablesCount);

/// Answers IOCTL_KS_ENABLE_EVENT likewise.
NTSTATUS AnswerEnableEvent(PIRP irp, const KSAUTOMATION_TABLE* const* tables, ULONG tablesCount);

/// Completes a request with the status of AnswerProperty() or another handler, unless that is
/// STATUS_PENDING.
/// @return the status
NTSTATUS CompleteRequest(PIRP irp, NTSTATUS status);

// ---- pin_requests.cpp and its parts

/// Opens a pin of the filter for the request's file object.
/// @param connect       a copy in the pool, whose format follows it; the caller frees it
/// @param connectBytes  of both: at least a KSPIN_CONNECT with a KSDATAFORMAT
NTSTATUS CreatePin(FilterBlock& filter, PIRP irp, const KSPIN_CONNECT& connect, ULONG connectBytes);
/// Opens a pin's clock for the request's file object.
NTSTATUS CreateClock(ObjectHead& pin, PIRP irp);

// Control requests to file objects of pins and clocks. They complete the request themselves.
NTSTATUS DispatchPinControl(ObjectHead& pin, PIRP irp);
NTSTATUS DispatchClockControl(ObjectHead& clock, PIRP irp);
/// IRP_MJ_CLEANUP: stops the pin and completes all its frames.
void CleanUpPin(ObjectHead& pin);
/// IRP_MJ_CLOSE: destroys the object.
void ClosePin(ObjectHead& pin, PIRP irp);
void CloseClock(ObjectHead& clock);
/// The filter of a pin.
FilterBlock& FilterOfPin(ObjectHead& pin);

/// KSPROPSETID_Pin, a property set of filters: kinds of pins, their ranges and intersections.
extern const KSPROPERTY_SET kPinPropertySet;

}  // namespace lidcam::host
