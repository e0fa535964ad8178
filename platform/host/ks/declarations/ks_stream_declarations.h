#pragma once

// Published interfaces of a running stream: the frames exchanged between an application and a pin,
// their clock, and the calls of the streaming class that a driver makes.

#include "platform/host/ks/declarations/ks_declarations.h"
#include "platform/host/ks/declarations/ks_filter_declarations.h"

// ---- Frames.

struct KSTIME {
  LONGLONG Time;  // 100 ns times Numerator / Denominator
  ULONG Numerator;
  ULONG Denominator;
};

struct KSSTREAM_HEADER {
  ULONG Size;  // including any bytes after it
  ULONG TypeSpecificFlags;
  KSTIME PresentationTime;
  LONGLONG Duration;
  ULONG FrameExtent;  // bytes of the buffer
  ULONG DataUsed;
  PVOID Data;
  ULONG OptionsFlags;
#if UINTPTR_MAX > 0xFFFFFFFF
  ULONG Reserved;
#endif
};
using PKSSTREAM_HEADER = KSSTREAM_HEADER*;

#define KSSTREAM_HEADER_OPTIONSF_SPLICEPOINT 0x00000001U
#define KSSTREAM_HEADER_OPTIONSF_TIMEVALID 0x00000010U
#define KSSTREAM_HEADER_OPTIONSF_DURATIONVALID 0x00000100U

/// Follows the header of every frame of a video pin.
struct KS_FRAME_INFO {
  ULONG ExtendedHeaderSize;
  DWORD dwFrameFlags;
  LONGLONG PictureNumber;
  LONGLONG DropCount;
  HANDLE hDirectDraw;
  HANDLE hSurfaceHandle;
  RECT DirectDrawRect;
  DWORD Reserved1;
  DWORD Reserved2;
  DWORD Reserved3;
  DWORD Reserved4;
};
using PKS_FRAME_INFO = KS_FRAME_INFO*;

// ---- Stream pointers.

enum KSSTREAM_POINTER_STATE { KSSTREAM_POINTER_STATE_UNLOCKED = 0, KSSTREAM_POINTER_STATE_LOCKED };

struct KSSTREAM_POINTER_OFFSET {
  PUCHAR Data;
#if UINTPTR_MAX <= 0xFFFFFFFF
  PVOID Alignment;
#endif
  ULONG Count;
  ULONG Remaining;
};
using PKSSTREAM_POINTER_OFFSET = KSSTREAM_POINTER_OFFSET*;

struct KSSTREAM_POINTER {
  PVOID Context;
  PKSPIN Pin;
  PKSSTREAM_HEADER StreamHeader;
  PKSSTREAM_POINTER_OFFSET Offset;
  KSSTREAM_POINTER_OFFSET OffsetIn;
  KSSTREAM_POINTER_OFFSET OffsetOut;
};
using PKSSTREAM_POINTER = KSSTREAM_POINTER*;

// ---- Clocks.

struct KSRESOLUTION {
  LONGLONG Granularity;  // 100 ns
  LONGLONG Error;
};
using PKSRESOLUTION = KSRESOLUTION*;

/// The base of all interfaces.
struct IUnknown {
  virtual NTSTATUS NTAPI QueryInterface(const GUID& id, PVOID* object) = 0;
  virtual ULONG NTAPI AddRef() = 0;
  virtual ULONG NTAPI Release() = 0;

 protected:
  ~IUnknown() = default;
};

/// A clock as a pin sees it. Up to DISPATCH_LEVEL.
struct IKsReferenceClock : IUnknown {
  virtual LONGLONG NTAPI GetTime() = 0;
  virtual LONGLONG NTAPI GetPhysicalTime() = 0;
  virtual LONGLONG NTAPI GetCorrelatedTime(LONGLONG* systemTime) = 0;
  virtual LONGLONG NTAPI GetCorrelatedPhysicalTime(LONGLONG* systemTime) = 0;
  virtual NTSTATUS NTAPI GetResolution(PKSRESOLUTION resolution) = 0;
  virtual NTSTATUS NTAPI GetState(KSSTATE* state) = 0;

 protected:
  ~IKsReferenceClock() = default;
};
using PIKSREFERENCECLOCK = IKsReferenceClock*;

// ---- Connecting, and a connection's own properties.

/// Follows the name of a pin that is to be opened; a KSDATAFORMAT follows it.
struct KSPIN_CONNECT {
  KSPIN_INTERFACE Interface;
  KSPIN_MEDIUM Medium;
  ULONG PinId;
  HANDLE PinToHandle;
  KSPRIORITY Priority;
};
using PKSPIN_CONNECT = KSPIN_CONNECT*;

struct KSPIN_CINSTANCES {
  ULONG PossibleCount;
  ULONG CurrentCount;
};

enum KSPROPERTY_GENERAL { KSPROPERTY_GENERAL_COMPONENTID };

enum KSPROPERTY_TOPOLOGY {
  KSPROPERTY_TOPOLOGY_CATEGORIES,
  KSPROPERTY_TOPOLOGY_NODES,
  KSPROPERTY_TOPOLOGY_CONNECTIONS,
  KSPROPERTY_TOPOLOGY_NAME
};

enum KSPROPERTY_PIN {
  KSPROPERTY_PIN_CINSTANCES,
  KSPROPERTY_PIN_CTYPES,
  KSPROPERTY_PIN_DATAFLOW,
  KSPROPERTY_PIN_DATARANGES,
  KSPROPERTY_PIN_DATAINTERSECTION,
  KSPROPERTY_PIN_INTERFACES,
  KSPROPERTY_PIN_MEDIUMS,
  KSPROPERTY_PIN_COMMUNICATION,
  KSPROPERTY_PIN_GLOBALCINSTANCES,
  KSPROPERTY_PIN_NECESSARYINSTANCES,
  KSPROPERTY_PIN_PHYSICALCONNECTION,
  KSPROPERTY_PIN_CATEGORY,
  KSPROPERTY_PIN_NAME,
  KSPROPERTY_PIN_CONSTRAINEDDATARANGES,
  KSPROPERTY_PIN_PROPOSEDATAFORMAT
};

enum KSPROPERTY_CONNECTION {
  KSPROPERTY_CONNECTION_STATE,
  KSPROPERTY_CONNECTION_PRIORITY,
  KSPROPERTY_CONNECTION_DATAFORMAT,
  KSPROPERTY_CONNECTION_ALLOCATORFRAMING,
  KSPROPERTY_CONNECTION_PROPOSEDATAFORMAT,
  KSPROPERTY_CONNECTION_ACQUIREORDERING,
  KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX,
  KSPROPERTY_CONNECTION_STARTAT
};

enum KSPROPERTY_STREAM {
  KSPROPERTY_STREAM_ALLOCATOR,
  KSPROPERTY_STREAM_QUALITY,
  KSPROPERTY_STREAM_DEGRADATION,
  KSPROPERTY_STREAM_MASTERCLOCK
};

enum KSPROPERTY_CLOCK {
  KSPROPERTY_CLOCK_TIME,
  KSPROPERTY_CLOCK_PHYSICALTIME,
  KSPROPERTY_CLOCK_CORRELATEDTIME,
  KSPROPERTY_CLOCK_CORRELATEDPHYSICALTIME,
  KSPROPERTY_CLOCK_RESOLUTION,
  KSPROPERTY_CLOCK_STATE
};

extern "C" {

// ---- The driver and its device. Passive level.

/// Registers the descriptor and takes over the driver's entries.
NTSTATUS NTAPI KsInitializeDriver(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath,
                                  const KSDEVICE_DESCRIPTOR* descriptor);

/// Makes the device's filters available to applications. Without a reference string, the text of
/// the descriptor's ReferenceGuid in braces is used. The descriptor must outlive the factory.
NTSTATUS NTAPI KsCreateFilterFactory(PDEVICE_OBJECT device, const KSFILTER_DESCRIPTOR* descriptor,
                                     PWSTR referenceString, PVOID securityDescriptor, ULONG flags,
                                     PFNKSFILTERFACTORYPOWER sleepCallback,
                                     PFNKSFILTERFACTORYPOWER wakeCallback,
                                     PKSFILTERFACTORY* factory);

/// The device of a filter factory, a filter or a pin. Any level.
PKSDEVICE NTAPI KsGetDevice(PVOID object);

// ---- Filters and pins.

/// Takes the control mutex of the object's filter. Passive level; the holder may take it again.
void NTAPI KsAcquireControl(PVOID object);
void NTAPI KsReleaseControl(PVOID object);

/// Adds a kind of pin to a filter and copies its descriptor. Under the filter's control mutex.
NTSTATUS NTAPI KsFilterCreatePinFactory(PKSFILTER filter, const KSPIN_DESCRIPTOR_EX* descriptor,
                                        PULONG pinId);

/// The filter, or the pin, that a request was sent to; null if it was sent to another object. A
/// request to a pin gives that pin's filter.
PKSFILTER NTAPI KsGetFilterFromIrp(PIRP irp);
PKSPIN NTAPI KsGetPinFromIrp(PIRP irp);

// ---- Streaming. Up to DISPATCH_LEVEL, but for the clock.

/// The oldest frame that the pin has not processed; null if the queue is empty. Its application can
/// cancel it until it is locked.
PKSSTREAM_POINTER NTAPI KsPinGetLeadingEdgeStreamPointer(PKSPIN pin, KSSTREAM_POINTER_STATE state);

/// @param eject  advances the leading edge: the frame is done and goes back to the application
void NTAPI KsStreamPointerUnlock(PKSSTREAM_POINTER pointer, BOOLEAN eject);

/// A reference to the clock that was assigned to the pin. Passive level.
/// @return a failure status if the pin has no clock
NTSTATUS NTAPI KsPinGetReferenceClockInterface(PKSPIN pin, PIKSREFERENCECLOCK* clock);

}  // extern "C"
