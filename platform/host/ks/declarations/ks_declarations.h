#pragma once

// Published streaming interfaces, declared for builds without the platform's headers: what a driver
// sees of its device, of a pin and of the formats between them.

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/power_declarations.h"

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = ULONG;

struct GUID {
  ULONG Data1;
  USHORT Data2;
  USHORT Data3;
  UCHAR Data4[8];
};

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};

using REFERENCE_TIME = LONGLONG;
using KSOBJECT_BAG = PVOID;
using PFNKSFREE = void(NTAPI*)(PVOID data);

// ---- Formats.

struct KSDATAFORMAT {
  alignas(8) ULONG FormatSize;
  ULONG Flags;
  ULONG SampleSize;
  ULONG Reserved;
  GUID MajorFormat;
  GUID SubFormat;
  GUID Specifier;
};
using PKSDATAFORMAT = KSDATAFORMAT*;
using KSDATARANGE = KSDATAFORMAT;
using PKSDATARANGE = KSDATARANGE*;

struct KS_BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};
using PKS_BITMAPINFOHEADER = KS_BITMAPINFOHEADER*;

struct KS_VIDEOINFOHEADER {
  RECT rcSource;
  RECT rcTarget;
  DWORD dwBitRate;
  DWORD dwBitErrorRate;
  REFERENCE_TIME AvgTimePerFrame;  // 100 ns
  KS_BITMAPINFOHEADER bmiHeader;
};
using PKS_VIDEOINFOHEADER = KS_VIDEOINFOHEADER*;

struct KS_DATAFORMAT_VIDEOINFOHEADER {
  KSDATAFORMAT DataFormat;
  KS_VIDEOINFOHEADER VideoInfoHeader;
};
using PKS_DATAFORMAT_VIDEOINFOHEADER = KS_DATAFORMAT_VIDEOINFOHEADER*;

// ---- Device and pin.

struct KSDEVICE_DESCRIPTOR;
struct KSPIN_DESCRIPTOR_EX;
struct KSMULTIPLE_ITEM;
using PKSMULTIPLE_ITEM = KSMULTIPLE_ITEM*;

struct KSDEVICE {
  const KSDEVICE_DESCRIPTOR* Descriptor;
  KSOBJECT_BAG Bag;
  PVOID Context;
  PDEVICE_OBJECT FunctionalDeviceObject;
  PDEVICE_OBJECT PhysicalDeviceObject;
  PDEVICE_OBJECT NextDeviceObject;
  BOOLEAN Started;
  SYSTEM_POWER_STATE SystemPowerState;
  DEVICE_POWER_STATE DevicePowerState;
};
using PKSDEVICE = KSDEVICE*;

struct KSIDENTIFIER {
  alignas(8) GUID Set;
  ULONG Id;
  ULONG Flags;
};
using PKSIDENTIFIER = KSIDENTIFIER*;
using KSPIN_INTERFACE = KSIDENTIFIER;
using KSPIN_MEDIUM = KSIDENTIFIER;

struct KSPRIORITY {
  ULONG PriorityClass;
  ULONG PrioritySubClass;
};

enum KSPIN_COMMUNICATION {
  KSPIN_COMMUNICATION_NONE,
  KSPIN_COMMUNICATION_SINK,
  KSPIN_COMMUNICATION_SOURCE,
  KSPIN_COMMUNICATION_BOTH,
  KSPIN_COMMUNICATION_BRIDGE
};

enum KSPIN_DATAFLOW { KSPIN_DATAFLOW_IN = 1, KSPIN_DATAFLOW_OUT };
// The platform's enumerations are as wide as an int, and an application may ask for any number.
enum KSSTATE : int { KSSTATE_STOP, KSSTATE_ACQUIRE, KSSTATE_PAUSE, KSSTATE_RUN };
enum KSRESET { KSRESET_BEGIN, KSRESET_END };

struct KSPIN {
  const KSPIN_DESCRIPTOR_EX* Descriptor;
  KSOBJECT_BAG Bag;
  PVOID Context;
  ULONG Id;
  KSPIN_COMMUNICATION Communication;
  BOOLEAN ConnectionIsExternal;
  KSPIN_INTERFACE ConnectionInterface;
  KSPIN_MEDIUM ConnectionMedium;
  KSPRIORITY ConnectionPriority;
  PKSDATAFORMAT ConnectionFormat;
  PKSMULTIPLE_ITEM AttributeList;
  ULONG StreamHeaderSize;
  KSPIN_DATAFLOW DataFlow;
  KSSTATE DeviceState;
  KSRESET ResetState;
  KSSTATE ClientState;
};
using PKSPIN = KSPIN*;

extern "C" {

/// Takes the device's mutex. Passive level; the holder may take it again.
void NTAPI KsAcquireDevice(PKSDEVICE device);
void NTAPI KsReleaseDevice(PKSDEVICE device);

/// Adds `item` to the bag, which frees it at its own destruction: by `free`, or to the pool if that
/// is null. Takes the device's mutex itself; the caller may hold it.
NTSTATUS NTAPI KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free);

/// Removes `item` from the bag, and frees it if it was in the bag and `free` is set. Takes the
/// device's mutex itself; the caller may hold it.
///
/// @return how often the item was in the bag; 0 if it wasn't
ULONG NTAPI KsRemoveItemFromObjectBag(KSOBJECT_BAG bag, PVOID item, BOOLEAN free);

/// Replaces `*item` by a writable copy in the bag: the first `oldSize` bytes of it, the rest of
/// `newSize` zero. An item that is in the bag already stays if `oldSize` is large enough, and is
/// freed otherwise. Takes the device's mutex itself.
///
/// @return STATUS_INSUFFICIENT_RESOURCES: `*item` is unchanged
NTSTATUS NTAPI _KsEdit(KSOBJECT_BAG bag, PVOID* item, ULONG newSize, ULONG oldSize, ULONG tag);

/// Schedules a call of the pin's process routine and returns: the routine runs on the pin's own
/// worker at passive level, even if `asynchronous` is FALSE, and never twice at once. Up to
/// DISPATCH_LEVEL.
void NTAPI KsPinAttemptProcessing(PKSPIN pin, BOOLEAN asynchronous);

}  // extern "C"
