#pragma once

// Published descriptors by which a driver describes itself to the streaming class: device, filter,
// pin, formats and buffers, with the entries the class calls.

#include "platform/host/ks/declarations/ks_declarations.h"
#include "platform/host/ks/declarations/ks_property_declarations.h"
#include "platform/host/nt/declarations/io_declarations.h"
#include "platform/host/nt/declarations/pnp_declarations.h"

// ---- Objects.

struct KSFILTER_DESCRIPTOR;

struct KSFILTERFACTORY {
  const KSFILTER_DESCRIPTOR* FilterDescriptor;
  KSOBJECT_BAG Bag;
  PVOID Context;
};
using PKSFILTERFACTORY = KSFILTERFACTORY*;

struct KSFILTER {
  const KSFILTER_DESCRIPTOR* Descriptor;
  KSOBJECT_BAG Bag;
  PVOID Context;
};
using PKSFILTER = KSFILTER*;

// ---- The device.

using PFNKSDEVICECREATE = NTSTATUS(NTAPI*)(PKSDEVICE device);
using PFNKSDEVICEPNPSTART = NTSTATUS(NTAPI*)(PKSDEVICE device, PIRP irp,
                                             PCM_RESOURCE_LIST translated,
                                             PCM_RESOURCE_LIST untranslated);
using PFNKSDEVICE = NTSTATUS(NTAPI*)(PKSDEVICE device);
using PFNKSDEVICEIRP = NTSTATUS(NTAPI*)(PKSDEVICE device, PIRP irp);
using PFNKSDEVICEIRPVOID = void(NTAPI*)(PKSDEVICE device, PIRP irp);
using PFNKSDEVICEQUERYCAPABILITIES = NTSTATUS(NTAPI*)(PKSDEVICE device, PIRP irp,
                                                      PDEVICE_CAPABILITIES capabilities);
using PFNKSDEVICEQUERYPOWER = NTSTATUS(NTAPI*)(PKSDEVICE device, PIRP irp,
                                               DEVICE_POWER_STATE deviceTo,
                                               DEVICE_POWER_STATE deviceFrom,
                                               SYSTEM_POWER_STATE systemTo,
                                               SYSTEM_POWER_STATE systemFrom, POWER_ACTION action);
using PFNKSDEVICESETPOWER = void(NTAPI*)(PKSDEVICE device, PIRP irp, DEVICE_POWER_STATE to,
                                         DEVICE_POWER_STATE from);

struct KSDEVICE_DISPATCH {
  PFNKSDEVICECREATE Add;
  PFNKSDEVICEPNPSTART Start;
  PFNKSDEVICE PostStart;
  PFNKSDEVICEIRP QueryStop;
  PFNKSDEVICEIRPVOID CancelStop;
  PFNKSDEVICEIRPVOID Stop;
  PFNKSDEVICEIRP QueryRemove;
  PFNKSDEVICEIRPVOID CancelRemove;
  PFNKSDEVICEIRPVOID Remove;
  PFNKSDEVICEQUERYCAPABILITIES QueryCapabilities;
  PFNKSDEVICEIRPVOID SurpriseRemoval;
  PFNKSDEVICEQUERYPOWER QueryPower;
  PFNKSDEVICESETPOWER SetPower;
  PFNKSDEVICEIRP QueryInterface;
};

#define KSDEVICE_DESCRIPTOR_VERSION 0x100U

struct KSDEVICE_DESCRIPTOR {
  const KSDEVICE_DISPATCH* Dispatch;
  ULONG FilterDescriptorsCount;
  const KSFILTER_DESCRIPTOR* const* FilterDescriptors;
  ULONG Version;
};

// ---- Buffers.

struct KS_COMPRESSION {
  ULONG RatioNumerator;
  ULONG RatioDenominator;
  ULONG RatioConstantMargin;
};

struct KS_FRAMING_RANGE {
  ULONG MinFrameSize;
  ULONG MaxFrameSize;
  ULONG Stepping;
};

struct KS_FRAMING_RANGE_WEIGHTED {
  KS_FRAMING_RANGE Range;
  ULONG InPlaceWeight;
  ULONG NotInPlaceWeight;
};

struct KS_FRAMING_ITEM {
  GUID MemoryType;
  GUID BusType;
  ULONG MemoryFlags;
  ULONG BusFlags;
  ULONG Flags;
  ULONG Frames;
  ULONG FileAlignment;
  ULONG MemoryTypeWeight;
  KS_FRAMING_RANGE PhysicalRange;
  KS_FRAMING_RANGE_WEIGHTED FramingRange;
};
using PKS_FRAMING_ITEM = KS_FRAMING_ITEM*;

struct KSALLOCATOR_FRAMING_EX {
  ULONG CountItems;
  ULONG PinFlags;
  KS_COMPRESSION OutputCompression;
  ULONG PinWeight;
  KS_FRAMING_ITEM FramingItem[1];
};
using PKSALLOCATOR_FRAMING_EX = KSALLOCATOR_FRAMING_EX*;

#define KSALLOCATOR_REQUIREMENTF_INPLACE_MODIFIER 0x00000001U
#define KSALLOCATOR_REQUIREMENTF_SYSTEM_MEMORY 0x00000002U
#define KSALLOCATOR_REQUIREMENTF_FRAME_INTEGRITY 0x00000004U
#define KSALLOCATOR_REQUIREMENTF_MUST_ALLOCATE 0x00000008U
#define KSALLOCATOR_REQUIREMENTF_PREFERENCES_ONLY 0x80000000U

// ---- Formats.

struct KS_VIDEO_STREAM_CONFIG_CAPS {
  GUID guid;
  ULONG VideoStandard;
  SIZE InputSize;
  SIZE MinCroppingSize;
  SIZE MaxCroppingSize;
  int CropGranularityX;
  int CropGranularityY;
  int CropAlignX;
  int CropAlignY;
  SIZE MinOutputSize;
  SIZE MaxOutputSize;
  int OutputGranularityX;
  int OutputGranularityY;
  int StretchTapsX;
  int StretchTapsY;
  int ShrinkTapsX;
  int ShrinkTapsY;
  alignas(8) LONGLONG MinFrameInterval;  // 100 ns
  alignas(8) LONGLONG MaxFrameInterval;  // 100 ns
  LONG MinBitsPerSecond;
  LONG MaxBitsPerSecond;
};
using PKS_VIDEO_STREAM_CONFIG_CAPS = KS_VIDEO_STREAM_CONFIG_CAPS*;

struct KS_DATARANGE_VIDEO {
  KSDATARANGE DataRange;
  LONG bFixedSizeSamples;
  LONG bTemporalCompression;
  DWORD StreamDescriptionFlags;
  DWORD MemoryAllocationFlags;
  KS_VIDEO_STREAM_CONFIG_CAPS ConfigCaps;
  KS_VIDEOINFOHEADER VideoInfoHeader;
};
using PKS_DATARANGE_VIDEO = KS_DATARANGE_VIDEO*;

#define KS_VIDEOSTREAM_PREVIEW 0x0001
#define KS_VIDEOSTREAM_CAPTURE 0x0002
#define KS_VIDEOSTREAM_STILL 0x1000

// ---- The pin.

struct KSCLOCK_DISPATCH;
struct KSALLOCATOR_DISPATCH;

struct KSATTRIBUTE {
  ULONG Size;
  ULONG Flags;
  GUID Attribute;
};
using PKSATTRIBUTE = KSATTRIBUTE*;

struct KSATTRIBUTE_LIST {
  ULONG Count;
  PKSATTRIBUTE* Attributes;
};
using PKSATTRIBUTE_LIST = KSATTRIBUTE_LIST*;

struct KSP_PIN {
  KSPROPERTY Property;
  ULONG PinId;
  ULONG Reserved;
};
using PKSP_PIN = KSP_PIN*;

using PFNKSPINIRP = NTSTATUS(NTAPI*)(PKSPIN pin, PIRP irp);
using PFNKSPIN = NTSTATUS(NTAPI*)(PKSPIN pin);
using PFNKSPINVOID = void(NTAPI*)(PKSPIN pin);
using PFNKSPINSETDATAFORMAT = NTSTATUS(NTAPI*)(PKSPIN pin, PKSDATAFORMAT oldFormat,
                                               PKSMULTIPLE_ITEM oldAttributeList,
                                               const KSDATARANGE* dataRange,
                                               const KSATTRIBUTE_LIST* attributeRange);
using PFNKSPINSETDEVICESTATE = NTSTATUS(NTAPI*)(PKSPIN pin, KSSTATE toState, KSSTATE fromState);
using PFNKSINTERSECTHANDLEREX = NTSTATUS(NTAPI*)(PVOID context, PIRP irp, PKSP_PIN pin,
                                                 PKSDATARANGE callerRange,
                                                 PKSDATARANGE descriptorRange, ULONG bufferSize,
                                                 PVOID data, PULONG dataSize);

struct KSPIN_DISPATCH {
  PFNKSPINIRP Create;
  PFNKSPINIRP Close;
  PFNKSPIN Process;
  PFNKSPINVOID Reset;
  PFNKSPINSETDATAFORMAT SetDataFormat;
  PFNKSPINSETDEVICESTATE SetDeviceState;
  PFNKSPIN Connect;
  PFNKSPINVOID Disconnect;
  const KSCLOCK_DISPATCH* Clock;
  const KSALLOCATOR_DISPATCH* Allocator;
};

struct KSPIN_DESCRIPTOR {
  ULONG InterfacesCount;
  const KSPIN_INTERFACE* Interfaces;
  ULONG MediumsCount;
  const KSPIN_MEDIUM* Mediums;
  ULONG DataRangesCount;
  const PKSDATARANGE* DataRanges;
  KSPIN_DATAFLOW DataFlow;
  KSPIN_COMMUNICATION Communication;
  const GUID* Category;
  const GUID* Name;
  __extension__ union {
    alignas(8) LONGLONG Reserved;
    __extension__ struct {
      ULONG ConstrainedDataRangesCount;
      PKSDATARANGE* ConstrainedDataRanges;
    };
  };
};

#define KSFILTER_FLAG_DISPATCH_LEVEL_PROCESSING 0x00000001U
#define KSPIN_FLAG_DISPATCH_LEVEL_PROCESSING KSFILTER_FLAG_DISPATCH_LEVEL_PROCESSING
#define KSPIN_FLAG_DO_NOT_INITIATE_PROCESSING 0x00000010U
#define KSPIN_FLAG_INITIATE_PROCESSING_ON_EVERY_ARRIVAL 0x00000020U
#define KSPIN_FLAG_FRAMES_NOT_REQUIRED_FOR_PROCESSING 0x00000040U
#define KSPIN_FLAG_PROCESS_IN_RUN_STATE_ONLY 0x00010000U
#define KSPIN_FLAG_USE_STANDARD_TRANSPORT 0x00040000U

struct KSPIN_DESCRIPTOR_EX {
  const KSPIN_DISPATCH* Dispatch;
  const KSAUTOMATION_TABLE* AutomationTable;
  KSPIN_DESCRIPTOR PinDescriptor;
  ULONG Flags;
  ULONG InstancesPossible;
  ULONG InstancesNecessary;
  const KSALLOCATOR_FRAMING_EX* AllocatorFraming;
  PFNKSINTERSECTHANDLEREX IntersectHandler;
};
using PKSPIN_DESCRIPTOR_EX = KSPIN_DESCRIPTOR_EX*;

enum KSINTERFACE_STANDARD { KSINTERFACE_STANDARD_STREAMING };
#define KSMEDIUM_TYPE_ANYINSTANCE 0

// ---- The filter.

struct KSPROCESSPIN_INDEXENTRY;
using PKSPROCESSPIN_INDEXENTRY = KSPROCESSPIN_INDEXENTRY*;

using PFNKSFILTERFACTORYPOWER = void(NTAPI*)(PKSFILTERFACTORY factory, DEVICE_POWER_STATE state);
using PFNKSFILTERIRP = NTSTATUS(NTAPI*)(PKSFILTER filter, PIRP irp);
using PFNKSFILTERPROCESS = NTSTATUS(NTAPI*)(PKSFILTER filter, PKSPROCESSPIN_INDEXENTRY index);
using PFNKSFILTERVOID = NTSTATUS(NTAPI*)(PKSFILTER filter);

struct KSFILTER_DISPATCH {
  PFNKSFILTERIRP Create;
  PFNKSFILTERIRP Close;
  PFNKSFILTERPROCESS Process;
  PFNKSFILTERVOID Reset;
};

struct KSNODE_DESCRIPTOR {
  const KSAUTOMATION_TABLE* AutomationTable;
  const GUID* Type;
  const GUID* Name;
#if UINTPTR_MAX <= 0xFFFFFFFF
  PVOID Alignment;
#endif
};

struct KSTOPOLOGY_CONNECTION {
  ULONG FromNode;
  ULONG FromNodePin;
  ULONG ToNode;
  ULONG ToNodePin;
};

struct KSCOMPONENTID {
  GUID Manufacturer;
  GUID Product;
  GUID Component;
  GUID Name;
  ULONG Version;
  ULONG Revision;
};

#define KSFILTER_DESCRIPTOR_VERSION (static_cast<ULONG>(-1))
#define KSCREATE_ITEM_FREEONSTOP 0x00000008U

struct KSFILTER_DESCRIPTOR {
  const KSFILTER_DISPATCH* Dispatch;
  const KSAUTOMATION_TABLE* AutomationTable;
  ULONG Version;
  ULONG Flags;
  const GUID* ReferenceGuid;
  ULONG PinDescriptorsCount;
  ULONG PinDescriptorSize;
  const KSPIN_DESCRIPTOR_EX* PinDescriptors;
  ULONG CategoriesCount;
  const GUID* Categories;
  ULONG NodeDescriptorsCount;
  ULONG NodeDescriptorSize;
  const KSNODE_DESCRIPTOR* NodeDescriptors;
  ULONG ConnectionsCount;
  const KSTOPOLOGY_CONNECTION* Connections;
  const KSCOMPONENTID* ComponentId;
};
using PKSFILTER_DESCRIPTOR = KSFILTER_DESCRIPTOR*;
