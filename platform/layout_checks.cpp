// Sizes and offsets of the published structures that the driver uses, compiled for every platform,
// so that the declarations can't diverge. 32-bit numbers for 32-bit targets, 64-bit for 64-bit.

#include <cstddef>
#include <initializer_list>

#include "platform/kernel.h"

namespace {

constexpr std::size_t BitsDependent(std::size_t on32Bits, std::size_t on64Bits) {
  return sizeof(void*) == 4 ? on32Bits : on64Bits;
}

// Compares a published GUID's numbers with its text, in two halves.
constexpr bool GuidReads(unsigned long long head, unsigned long long tail, ULONG data1,
                         USHORT data2, USHORT data3, UCHAR b0, UCHAR b1, UCHAR b2, UCHAR b3,
                         UCHAR b4, UCHAR b5, UCHAR b6, UCHAR b7) {
  unsigned long long last = 0;
  for (const UCHAR byte : {b0, b1, b2, b3, b4, b5, b6, b7}) last = (last << 8) | byte;
  const unsigned long long first = (static_cast<unsigned long long>(data1) << 32) |
                                   (static_cast<unsigned long long>(data2) << 16) | data3;
  return first == head && last == tail;
}

static_assert(sizeof(LONG) == 4);
static_assert(sizeof(ULONG) == 4);
static_assert(sizeof(LARGE_INTEGER) == 8);
static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(BOOLEAN) == 1);

static_assert(sizeof(LIST_ENTRY) == BitsDependent(8, 16));
static_assert(sizeof(KEVENT) == BitsDependent(16, 24));
static_assert(offsetof(KEVENT, Header) == 0);

static_assert(sizeof(KIRQL) == 1);
static_assert(sizeof(KSPIN_LOCK) == BitsDependent(4, 8));
static_assert(sizeof(DISPATCHER_HEADER) == BitsDependent(16, 24));
static_assert(offsetof(DISPATCHER_HEADER, SignalState) == 4);
static_assert(offsetof(DISPATCHER_HEADER, WaitListHead) == 8);
static_assert(sizeof(KSEMAPHORE) == BitsDependent(20, 32));
static_assert(offsetof(KSEMAPHORE, Limit) == BitsDependent(16, 24));
static_assert(sizeof(KMUTEX) == BitsDependent(32, 56));
static_assert(offsetof(KMUTEX, MutantListEntry) == BitsDependent(16, 24));
static_assert(offsetof(KMUTEX, OwnerThread) == BitsDependent(24, 40));
static_assert(offsetof(KMUTEX, Abandoned) == BitsDependent(28, 48));
static_assert(offsetof(KMUTEX, ApcDisable) == BitsDependent(29, 49));
static_assert(sizeof(KTIMER) == BitsDependent(40, 64));
static_assert(offsetof(KTIMER, DueTime) == BitsDependent(16, 24));
static_assert(offsetof(KTIMER, TimerListEntry) == BitsDependent(24, 32));
static_assert(offsetof(KTIMER, Dpc) == BitsDependent(32, 48));
static_assert(offsetof(KTIMER, Period) == BitsDependent(36, 60));
static_assert(sizeof(KDPC) == BitsDependent(32, 64));
static_assert(offsetof(KDPC, Importance) == 1);
static_assert(offsetof(KDPC, Number) == 2);
static_assert(offsetof(KDPC, DpcListEntry) == BitsDependent(4, 8));
static_assert(offsetof(KDPC, DeferredRoutine) == BitsDependent(12, 24));
static_assert(offsetof(KDPC, DeferredContext) == BitsDependent(16, 32));
static_assert(offsetof(KDPC, SystemArgument1) == BitsDependent(20, 40));
static_assert(offsetof(KDPC, SystemArgument2) == BitsDependent(24, 48));
static_assert(offsetof(KDPC, DpcData) == BitsDependent(28, 56));
static_assert(sizeof(KWAIT_BLOCK) == BitsDependent(24, 48));
static_assert(sizeof(WORK_QUEUE_ITEM) == BitsDependent(16, 32));
static_assert(offsetof(WORK_QUEUE_ITEM, WorkerRoutine) == BitsDependent(8, 16));
static_assert(offsetof(WORK_QUEUE_ITEM, Parameter) == BitsDependent(12, 24));
static_assert(sizeof(CLIENT_ID) == BitsDependent(8, 16));

static_assert(sizeof(KFLOATING_SAVE) == BitsDependent(32, 4));

static_assert(sizeof(UNICODE_STRING) == BitsDependent(8, 16));
static_assert(offsetof(UNICODE_STRING, MaximumLength) == 2);
static_assert(offsetof(UNICODE_STRING, Buffer) == BitsDependent(4, 8));

static_assert(sizeof(OBJECT_ATTRIBUTES) == BitsDependent(24, 48));
static_assert(offsetof(OBJECT_ATTRIBUTES, ObjectName) == BitsDependent(8, 16));
static_assert(offsetof(OBJECT_ATTRIBUTES, Attributes) == BitsDependent(12, 24));

static_assert(sizeof(IO_STATUS_BLOCK) == BitsDependent(8, 16));
static_assert(offsetof(IO_STATUS_BLOCK, Information) == BitsDependent(4, 8));

static_assert(sizeof(IRP) == BitsDependent(112, 208));
static_assert(offsetof(IRP, MdlAddress) == BitsDependent(4, 8));
static_assert(offsetof(IRP, Flags) == BitsDependent(8, 16));
static_assert(offsetof(IRP, AssociatedIrp) == BitsDependent(12, 24));
static_assert(offsetof(IRP, ThreadListEntry) == BitsDependent(16, 32));
static_assert(offsetof(IRP, IoStatus) == BitsDependent(24, 48));
static_assert(offsetof(IRP, RequestorMode) == BitsDependent(32, 64));
static_assert(offsetof(IRP, PendingReturned) == BitsDependent(33, 65));
static_assert(offsetof(IRP, StackCount) == BitsDependent(34, 66));
static_assert(offsetof(IRP, CurrentLocation) == BitsDependent(35, 67));
static_assert(offsetof(IRP, Cancel) == BitsDependent(36, 68));
static_assert(offsetof(IRP, CancelIrql) == BitsDependent(37, 69));
static_assert(offsetof(IRP, AllocationFlags) == BitsDependent(39, 71));
static_assert(offsetof(IRP, UserIosb) == BitsDependent(40, 72));
static_assert(offsetof(IRP, UserEvent) == BitsDependent(44, 80));
static_assert(offsetof(IRP, Overlay) == BitsDependent(48, 88));
static_assert(offsetof(IRP, CancelRoutine) == BitsDependent(56, 104));
static_assert(offsetof(IRP, UserBuffer) == BitsDependent(60, 112));
static_assert(offsetof(IRP, Tail.Overlay.DriverContext) == BitsDependent(64, 120));
static_assert(offsetof(IRP, Tail.Overlay.Thread) == BitsDependent(80, 152));
static_assert(offsetof(IRP, Tail.Overlay.ListEntry) == BitsDependent(88, 168));
static_assert(offsetof(IRP, Tail.Overlay.CurrentStackLocation) == BitsDependent(96, 184));
static_assert(offsetof(IRP, Tail.Overlay.OriginalFileObject) == BitsDependent(100, 192));
static_assert(sizeof(KAPC) == BitsDependent(48, 88));

static_assert(sizeof(IO_STACK_LOCATION) == BitsDependent(36, 72));
static_assert(offsetof(IO_STACK_LOCATION, Control) == 3);
static_assert(offsetof(IO_STACK_LOCATION, Parameters) == BitsDependent(4, 8));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Others.Argument1) == BitsDependent(4, 8));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Others.Argument4) == BitsDependent(16, 32));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.DeviceIoControl.InputBufferLength) ==
              BitsDependent(8, 16));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.DeviceIoControl.IoControlCode) ==
              BitsDependent(12, 24));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.DeviceIoControl.Type3InputBuffer) ==
              BitsDependent(16, 32));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Read.ByteOffset) == BitsDependent(12, 24));
static_assert(offsetof(IO_STACK_LOCATION, DeviceObject) == BitsDependent(20, 40));
static_assert(offsetof(IO_STACK_LOCATION, FileObject) == BitsDependent(24, 48));
static_assert(offsetof(IO_STACK_LOCATION, CompletionRoutine) == BitsDependent(28, 56));
static_assert(offsetof(IO_STACK_LOCATION, Context) == BitsDependent(32, 64));

static_assert(offsetof(DEVICE_OBJECT, ReferenceCount) == 4);
static_assert(offsetof(DEVICE_OBJECT, DriverObject) == 8);
static_assert(offsetof(DEVICE_OBJECT, NextDevice) == BitsDependent(12, 16));
static_assert(offsetof(DEVICE_OBJECT, AttachedDevice) == BitsDependent(16, 24));
static_assert(offsetof(DEVICE_OBJECT, Flags) == BitsDependent(28, 48));
static_assert(offsetof(DEVICE_OBJECT, Characteristics) == BitsDependent(32, 52));
static_assert(offsetof(DEVICE_OBJECT, DeviceExtension) == BitsDependent(40, 64));
static_assert(offsetof(DEVICE_OBJECT, DeviceType) == BitsDependent(44, 72));
static_assert(offsetof(DEVICE_OBJECT, StackSize) == BitsDependent(48, 76));
static_assert(offsetof(DEVICE_OBJECT, Queue) == BitsDependent(52, 80));
static_assert(offsetof(DEVICE_OBJECT, AlignmentRequirement) == BitsDependent(92, 152));
static_assert(offsetof(DEVICE_OBJECT, DeviceQueue) == BitsDependent(96, 160));
static_assert(offsetof(DEVICE_OBJECT, Dpc) == BitsDependent(116, 200));
static_assert(offsetof(DEVICE_OBJECT, SecurityDescriptor) == BitsDependent(152, 272));
static_assert(offsetof(DEVICE_OBJECT, DeviceLock) == BitsDependent(156, 280));
static_assert(offsetof(DEVICE_OBJECT, DeviceObjectExtension) == BitsDependent(176, 312));
// Its last member: headers differ in the padding at the end, and only the platform allocates one.
static_assert(offsetof(DEVICE_OBJECT, Reserved) == BitsDependent(180, 320));

static_assert(sizeof(DRIVER_OBJECT) == BitsDependent(168, 336));
static_assert(offsetof(DRIVER_OBJECT, DeviceObject) == BitsDependent(4, 8));
static_assert(offsetof(DRIVER_OBJECT, DriverExtension) == BitsDependent(24, 48));
static_assert(offsetof(DRIVER_OBJECT, DriverName) == BitsDependent(28, 56));
static_assert(offsetof(DRIVER_OBJECT, DriverInit) == BitsDependent(44, 88));
static_assert(offsetof(DRIVER_OBJECT, DriverUnload) == BitsDependent(52, 104));
static_assert(offsetof(DRIVER_OBJECT, MajorFunction) == BitsDependent(56, 112));
static_assert(offsetof(DRIVER_EXTENSION, AddDevice) == BitsDependent(4, 8));

static_assert(IRP_MJ_CREATE == 0 && IRP_MJ_CLOSE == 2 && IRP_MJ_READ == 3 && IRP_MJ_WRITE == 4);
static_assert(IRP_MJ_DEVICE_CONTROL == 14 && IRP_MJ_INTERNAL_DEVICE_CONTROL == 15);
static_assert(IRP_MJ_POWER == 22 && IRP_MJ_SYSTEM_CONTROL == 23 && IRP_MJ_PNP == 27);
static_assert(IRP_MJ_MAXIMUM_FUNCTION == 27);
static_assert(SL_PENDING_RETURNED == 0x01 && SL_ERROR_RETURNED == 0x02);
static_assert(SL_INVOKE_ON_CANCEL == 0x20 && SL_INVOKE_ON_SUCCESS == 0x40);
static_assert(SL_INVOKE_ON_ERROR == 0x80);
static_assert(IO_TYPE_DEVICE == 3 && IO_TYPE_DRIVER == 4 && IO_TYPE_IRP == 6);
static_assert(DO_DEVICE_INITIALIZING == 0x80 && DO_POWER_PAGABLE == 0x2000);
static_assert(CTL_CODE(FILE_DEVICE_UNKNOWN, 0, METHOD_NEITHER, FILE_ANY_ACCESS) == 0x220003);

// Structures that a driver receives from applications, plug and play and the power manager.
static_assert(sizeof(FILE_OBJECT) == BitsDependent(128, 216));
static_assert(offsetof(FILE_OBJECT, DeviceObject) == BitsDependent(4, 8));
static_assert(offsetof(FILE_OBJECT, FsContext) == BitsDependent(12, 24));
static_assert(offsetof(FILE_OBJECT, RelatedFileObject) == BitsDependent(32, 64));
static_assert(offsetof(FILE_OBJECT, ReadAccess) == BitsDependent(38, 74));
static_assert(offsetof(FILE_OBJECT, Flags) == BitsDependent(44, 80));
static_assert(offsetof(FILE_OBJECT, FileName) == BitsDependent(48, 88));
static_assert(offsetof(FILE_OBJECT, CurrentByteOffset) == BitsDependent(56, 104));
static_assert(offsetof(FILE_OBJECT, Lock) == BitsDependent(76, 128));
static_assert(offsetof(FILE_OBJECT, CompletionContext) == BitsDependent(108, 176));
static_assert(offsetof(FILE_OBJECT, FileObjectExtension) == BitsDependent(124, 208));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Create.SecurityContext) ==
              BitsDependent(4, 8));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Create.Options) == BitsDependent(8, 16));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Create.FileAttributes) ==
              BitsDependent(12, 24));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Create.ShareAccess) == BitsDependent(14, 26));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Create.EaLength) == BitsDependent(16, 32));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Power.Type) == BitsDependent(8, 16));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Power.State) == BitsDependent(12, 24));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.Power.ShutdownType) == BitsDependent(16, 32));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.StartDevice.AllocatedResources) ==
              BitsDependent(4, 8));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.StartDevice.AllocatedResourcesTranslated) ==
              BitsDependent(8, 16));
static_assert(offsetof(IO_STACK_LOCATION, Parameters.DeviceCapabilities.Capabilities) ==
              BitsDependent(4, 8));
static_assert(IO_TYPE_FILE == 5 && FILE_READ_ACCESS == 1 && FILE_WRITE_ACCESS == 2);
static_assert(IRP_MN_START_DEVICE == 0 && IRP_MN_QUERY_REMOVE_DEVICE == 1);
static_assert(IRP_MN_REMOVE_DEVICE == 2 && IRP_MN_CANCEL_REMOVE_DEVICE == 3);
static_assert(IRP_MN_STOP_DEVICE == 4 && IRP_MN_QUERY_STOP_DEVICE == 5);
static_assert(IRP_MN_CANCEL_STOP_DEVICE == 6 && IRP_MN_QUERY_INTERFACE == 8);
static_assert(IRP_MN_QUERY_CAPABILITIES == 9 && IRP_MN_SURPRISE_REMOVAL == 0x17);
static_assert(IRP_MN_SET_POWER == 2 && IRP_MN_QUERY_POWER == 3);
static_assert(PowerSystemWorking == 1 && PowerSystemShutdown == 6 && PowerSystemMaximum == 7);
static_assert(PowerSystemSleeping1 == 2 && PowerSystemSleeping3 == 4 && PowerSystemHibernate == 5);
static_assert(PowerDeviceUnspecified == 0 && PowerDeviceD0 == 1 && PowerDeviceD1 == 2);
static_assert(PowerDeviceD2 == 3 && PowerDeviceD3 == 4 && PowerDeviceMaximum == 5);
static_assert(PowerActionNone == 0 && PowerActionSleep == 2 && PowerActionHibernate == 3);
static_assert(PowerActionShutdownOff == 6 && PowerActionWarmEject == 7);
static_assert(SystemPowerState == 0 && DevicePowerState == 1 && sizeof(POWER_STATE) == 4);

static_assert(sizeof(KEY_VALUE_FULL_INFORMATION) == 24);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, DataOffset) == 8);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, DataLength) == 12);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, NameLength) == 16);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, Name) == 20);

// USB: URBs and their members.
static_assert(sizeof(USB_DEVICE_DESCRIPTOR) == 18);
static_assert(offsetof(USB_DEVICE_DESCRIPTOR, idVendor) == 8);
static_assert(sizeof(USB_CONFIGURATION_DESCRIPTOR) == 9);
static_assert(offsetof(USB_CONFIGURATION_DESCRIPTOR, wTotalLength) == 2);
static_assert(sizeof(USB_INTERFACE_DESCRIPTOR) == 9);
static_assert(sizeof(USB_ENDPOINT_DESCRIPTOR) == 7);
static_assert(offsetof(USB_ENDPOINT_DESCRIPTOR, wMaxPacketSize) == 4);
static_assert(sizeof(USBD_PIPE_INFORMATION) == BitsDependent(20, 24));
static_assert(offsetof(USBD_PIPE_INFORMATION, PipeType) == 4);
static_assert(offsetof(USBD_PIPE_INFORMATION, PipeHandle) == 8);
static_assert(offsetof(USBD_PIPE_INFORMATION, MaximumTransferSize) == BitsDependent(12, 16));
static_assert(sizeof(USBD_INTERFACE_INFORMATION) == BitsDependent(36, 48));
static_assert(offsetof(USBD_INTERFACE_INFORMATION, AlternateSetting) == 3);
static_assert(offsetof(USBD_INTERFACE_INFORMATION, NumberOfPipes) == BitsDependent(12, 16));
static_assert(offsetof(USBD_INTERFACE_INFORMATION, Pipes) == BitsDependent(16, 24));
static_assert(sizeof(USBD_INTERFACE_LIST_ENTRY) == BitsDependent(8, 16));
static_assert(sizeof(struct _URB_HEADER) == BitsDependent(16, 24));
static_assert(offsetof(struct _URB_HEADER, Function) == 2);
static_assert(offsetof(struct _URB_HEADER, Status) == 4);
static_assert(sizeof(struct _URB_CONTROL_DESCRIPTOR_REQUEST) == BitsDependent(80, 136));
static_assert(offsetof(struct _URB_CONTROL_DESCRIPTOR_REQUEST, Index) == BitsDependent(74, 130));
static_assert(sizeof(struct _URB_CONTROL_VENDOR_OR_CLASS_REQUEST) == BitsDependent(80, 136));
static_assert(offsetof(struct _URB_CONTROL_VENDOR_OR_CLASS_REQUEST, TransferFlags) ==
              BitsDependent(20, 32));
static_assert(offsetof(struct _URB_CONTROL_VENDOR_OR_CLASS_REQUEST, Request) ==
              BitsDependent(73, 129));
static_assert(sizeof(struct _URB_SELECT_INTERFACE) == BitsDependent(56, 80));
static_assert(offsetof(struct _URB_SELECT_INTERFACE, Interface) == BitsDependent(20, 32));
static_assert(sizeof(struct _URB_SELECT_CONFIGURATION) == BitsDependent(60, 88));
static_assert(offsetof(struct _URB_SELECT_CONFIGURATION, Interface) == BitsDependent(24, 40));
static_assert(sizeof(USBD_ISO_PACKET_DESCRIPTOR) == 12);
static_assert(sizeof(struct _URB_ISOCH_TRANSFER) == BitsDependent(96, 152));
static_assert(offsetof(struct _URB_ISOCH_TRANSFER, TransferFlags) == BitsDependent(20, 32));
static_assert(offsetof(struct _URB_ISOCH_TRANSFER, TransferBuffer) == BitsDependent(28, 40));
static_assert(offsetof(struct _URB_ISOCH_TRANSFER, StartFrame) == BitsDependent(72, 128));
static_assert(offsetof(struct _URB_ISOCH_TRANSFER, IsoPacket) == BitsDependent(84, 140));
static_assert(sizeof(struct _URB_BULK_OR_INTERRUPT_TRANSFER) == BitsDependent(72, 128));
static_assert(sizeof(struct _URB_PIPE_REQUEST) == BitsDependent(24, 40));
static_assert(offsetof(struct _URB_PIPE_REQUEST, PipeHandle) == BitsDependent(16, 24));
static_assert(sizeof(struct _URB_GET_CURRENT_FRAME_NUMBER) == BitsDependent(20, 32));
static_assert(offsetof(struct _URB_GET_CURRENT_FRAME_NUMBER, FrameNumber) == BitsDependent(16, 24));

static_assert(URB_FUNCTION_SELECT_CONFIGURATION == 0 && URB_FUNCTION_SELECT_INTERFACE == 1);
static_assert(URB_FUNCTION_ABORT_PIPE == 2 && URB_FUNCTION_GET_CURRENT_FRAME_NUMBER == 7);
static_assert(URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER == 9);
static_assert(URB_FUNCTION_ISOCH_TRANSFER == 0xA && URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE == 0xB);
static_assert(URB_FUNCTION_VENDOR_DEVICE == 0x17 && URB_FUNCTION_RESET_PIPE == 0x1E);
static_assert(IOCTL_INTERNAL_USB_SUBMIT_URB == 0x220003);
static_assert(USBD_TRANSFER_DIRECTION_IN == 1 && USBD_SHORT_TRANSFER_OK == 2 &&
              USBD_START_ISO_TRANSFER_ASAP == 4);
static_assert(USBD_ISO_START_FRAME_RANGE == 1024);
static_assert(UsbdPipeTypeIsochronous == 1 && UsbdPipeTypeInterrupt == 3);
static_assert(static_cast<ULONG>(USBD_STATUS_STALL_PID) == 0xC0000004);
static_assert(static_cast<ULONG>(USBD_STATUS_DEV_NOT_RESPONDING) == 0xC0000005);
static_assert(static_cast<ULONG>(USBD_STATUS_DATA_OVERRUN) == 0xC0000008);
static_assert(static_cast<ULONG>(USBD_STATUS_NOT_ACCESSED) == 0xC000000F);
static_assert(static_cast<ULONG>(USBD_STATUS_XACT_ERROR) == 0xC0000011);
static_assert(static_cast<ULONG>(USBD_STATUS_BABBLE_DETECTED) == 0xC0000012);
static_assert(static_cast<ULONG>(USBD_STATUS_INVALID_URB_FUNCTION) == 0x80000200);
static_assert(static_cast<ULONG>(USBD_STATUS_INVALID_PARAMETER) == 0x80000300);
static_assert(static_cast<ULONG>(USBD_STATUS_INVALID_PIPE_HANDLE) == 0x80000600);
static_assert(static_cast<ULONG>(USBD_STATUS_NO_BANDWIDTH) == 0x80000700);
static_assert(static_cast<ULONG>(USBD_STATUS_ERROR_SHORT_TRANSFER) == 0x80000900);
static_assert(static_cast<ULONG>(USBD_STATUS_BAD_START_FRAME) == 0xC0000A00);
static_assert(static_cast<ULONG>(USBD_STATUS_ISOCH_REQUEST_FAILED) == 0xC0000B00);
static_assert(static_cast<ULONG>(USBD_STATUS_NOT_SUPPORTED) == 0xC0000E00);
static_assert(static_cast<ULONG>(USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR) == 0xC0000F00);
static_assert(static_cast<ULONG>(USBD_STATUS_BUFFER_TOO_SMALL) == 0xC0003000);
static_assert(static_cast<ULONG>(USBD_STATUS_INTERFACE_NOT_FOUND) == 0xC0004000);
static_assert(static_cast<ULONG>(USBD_STATUS_DEVICE_GONE) == 0xC0007000);
static_assert(static_cast<ULONG>(USBD_STATUS_CANCELED) == 0xC0010000);
static_assert(static_cast<ULONG>(USBD_STATUS_ISO_NOT_ACCESSED_LATE) == 0xC0050000);

// Streaming: device, pin and formats.
static_assert(sizeof(KSDATAFORMAT) == 64 && alignof(KSDATAFORMAT) == 8);
static_assert(sizeof(KS_BITMAPINFOHEADER) == 40);
static_assert(sizeof(KS_VIDEOINFOHEADER) == 88);
static_assert(offsetof(KS_VIDEOINFOHEADER, AvgTimePerFrame) == 40);
static_assert(sizeof(KS_DATAFORMAT_VIDEOINFOHEADER) == 152);
static_assert(sizeof(KSDEVICE) == BitsDependent(36, 64));
static_assert(offsetof(KSDEVICE, Bag) == BitsDependent(4, 8));
static_assert(offsetof(KSDEVICE, FunctionalDeviceObject) == BitsDependent(12, 24));
static_assert(offsetof(KSDEVICE, NextDeviceObject) == BitsDependent(20, 40));
static_assert(sizeof(KSPIN) == BitsDependent(112, 136));
static_assert(offsetof(KSPIN, Context) == BitsDependent(8, 16));
static_assert(offsetof(KSPIN, ConnectionFormat) == BitsDependent(80, 96));
static_assert(offsetof(KSPIN, DeviceState) == BitsDependent(96, 120));

// Streaming: properties, events and their tables.
static_assert(sizeof(GUID) == 16 && sizeof(SIZE) == 8 && sizeof(KSMULTIPLE_ITEM) == 8);
static_assert(sizeof(KSPROPERTY) == 24 && alignof(KSPROPERTY) == 8);
static_assert(offsetof(KSPROPERTY, Id) == 16 && offsetof(KSPROPERTY, Flags) == 20);
static_assert(sizeof(KSPROPERTY_DESCRIPTION) == 40);
static_assert(offsetof(KSPROPERTY_DESCRIPTION, PropTypeSet) == 8);
static_assert(offsetof(KSPROPERTY_DESCRIPTION, MembersListCount) == 32);
static_assert(sizeof(KSPROPERTY_MEMBERSHEADER) == 16);
static_assert(sizeof(KSPROPERTY_MEMBERSLIST) == BitsDependent(20, 24));
static_assert(offsetof(KSPROPERTY_MEMBERSLIST, Members) == 16);
static_assert(sizeof(KSPROPERTY_VALUES) == BitsDependent(32, 40));
static_assert(offsetof(KSPROPERTY_VALUES, MembersList) == BitsDependent(28, 32));
static_assert(sizeof(KSPROPERTY_BOUNDS_LONG) == 8);
static_assert(offsetof(KSPROPERTY_BOUNDS_LONG, SignedMaximum) == 4);
static_assert(offsetof(KSPROPERTY_BOUNDS_LONG, UnsignedMaximum) == 4);
static_assert(sizeof(KSPROPERTY_STEPPING_LONG) == 16);
static_assert(offsetof(KSPROPERTY_STEPPING_LONG, Bounds) == 8);
static_assert(sizeof(KSPROPERTY_ITEM) == BitsDependent(40, 72));
static_assert(offsetof(KSPROPERTY_ITEM, GetPropertyHandler) == BitsDependent(4, 8));
static_assert(offsetof(KSPROPERTY_ITEM, MinProperty) == BitsDependent(8, 16));
static_assert(offsetof(KSPROPERTY_ITEM, MinData) == BitsDependent(12, 20));
static_assert(offsetof(KSPROPERTY_ITEM, SetPropertyHandler) == BitsDependent(16, 24));
static_assert(offsetof(KSPROPERTY_ITEM, Values) == BitsDependent(20, 32));
static_assert(offsetof(KSPROPERTY_ITEM, RelationsCount) == BitsDependent(24, 40));
static_assert(offsetof(KSPROPERTY_ITEM, Relations) == BitsDependent(28, 48));
static_assert(offsetof(KSPROPERTY_ITEM, SupportHandler) == BitsDependent(32, 56));
static_assert(offsetof(KSPROPERTY_ITEM, SerializedSize) == BitsDependent(36, 64));
static_assert(sizeof(KSPROPERTY_SET) == BitsDependent(20, 40));
static_assert(offsetof(KSPROPERTY_SET, PropertyItem) == BitsDependent(8, 16));
static_assert(offsetof(KSPROPERTY_SET, FastIoTable) == BitsDependent(16, 32));
static_assert(sizeof(KSMETHOD_ITEM) == BitsDependent(24, 40));
static_assert(sizeof(KSEVENT_ITEM) == BitsDependent(24, 40));
static_assert(offsetof(KSEVENT_ITEM, ExtraEntryData) == 8);
static_assert(offsetof(KSEVENT_ITEM, AddHandler) == BitsDependent(12, 16));
static_assert(offsetof(KSEVENT_ITEM, SupportHandler) == BitsDependent(20, 32));
static_assert(sizeof(KSEVENT_SET) == BitsDependent(12, 24));
static_assert(sizeof(KSEVENTDATA) == BitsDependent(16, 32));
static_assert(sizeof(KSAUTOMATION_TABLE) == BitsDependent(40, 48));
static_assert(offsetof(KSAUTOMATION_TABLE, PropertySets) == 8);
static_assert(offsetof(KSAUTOMATION_TABLE, MethodSetsCount) == BitsDependent(12, 16));
static_assert(offsetof(KSAUTOMATION_TABLE, EventSetsCount) == BitsDependent(24, 32));
static_assert(offsetof(KSAUTOMATION_TABLE, EventSets) == BitsDependent(32, 40));
static_assert(sizeof(KSPROPERTY_VIDEOPROCAMP_S) == 40);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Value) == 24);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Flags) == 28);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Capabilities) == 32);
static_assert(sizeof(KSPROPERTY_CAMERACONTROL_S) == 40);
static_assert(offsetof(KSPROPERTY_CAMERACONTROL_S, Value) == 24);
static_assert(offsetof(KSPROPERTY_CAMERACONTROL_S, Capabilities) == 32);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_CAPS_S) == 32);
static_assert(offsetof(KSPROPERTY_VIDEOCONTROL_CAPS_S, VideoControlCaps) == 28);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S) == 32);
static_assert(offsetof(KSPROPERTY_VIDEOCONTROL_MODE_S, Mode) == 28);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S) == 56);
static_assert(offsetof(KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S, CurrentActualFrameRate) == 40);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S) == 40);
static_assert(offsetof(KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S, Dimensions) == 32);
static_assert(sizeof(KSPROPERTY_DROPPEDFRAMES_CURRENT_S) == 48);
static_assert(offsetof(KSPROPERTY_DROPPEDFRAMES_CURRENT_S, AverageFrameSize) == 40);
static_assert(KSPROPERTY_TYPE_GET == 1 && KSPROPERTY_TYPE_SET == 2);
static_assert(KSPROPERTY_TYPE_SETSUPPORT == 0x100 && KSPROPERTY_TYPE_BASICSUPPORT == 0x200);
static_assert(KSPROPERTY_TYPE_DEFAULTVALUES == 0x10000);
static_assert(KSPROPERTY_MEMBER_STEPPEDRANGES == 2 && KSPROPERTY_MEMBER_VALUES == 3);
static_assert(KSPROPERTY_MEMBER_FLAG_DEFAULT == 1 && VT_I4 == 3);
static_assert(KSPROPERTY_VIDEOPROCAMP_BACKLIGHT_COMPENSATION == 8);
static_assert(KSPROPERTY_CAMERACONTROL_EXPOSURE == 4 && KSPROPERTY_CAMERACONTROL_FOCUS == 6);
static_assert(KSPROPERTY_VIDEOCONTROL_MODE == 3 && KSPROPERTY_CAMERACONTROL_FLAGS_RELATIVE == 0x10);
static_assert(KS_VideoControlFlag_ExternalTriggerEnable == 4 && KS_VideoControlFlag_Trigger == 8);
static_assert(IOCTL_KS_PROPERTY == 0x2F0003 && IOCTL_KS_ENABLE_EVENT == 0x2F0007);

// Streaming: names of sets, categories and formats.
static_assert(GuidReads(0x0000000000000000, 0x0000000000000000, STATIC_GUID_NULL));
static_assert(GuidReads(0x6994AD0593EF11D0, 0xA3CC00A0C9223196, STATIC_KSCATEGORY_VIDEO));
static_assert(GuidReads(0x65E8773D8F5611D0, 0xA3B900A0C9223196, STATIC_KSCATEGORY_CAPTURE));
static_assert(GuidReads(0xFB6C4281035311D1, 0x905F0000C0CC16BA, STATIC_PINNAME_VIDEO_CAPTURE));
static_assert(GuidReads(0x1A8766A062CE11CF, 0xA5D628DB04C10000, STATIC_KSINTERFACESETID_Standard));
static_assert(GuidReads(0x4747B32062CE11CF, 0xA5D628DB04C10000, STATIC_KSMEDIUMSETID_Standard));
static_assert(GuidReads(0x4A6D5FC4789511D1, 0xB06900A0C9062802,
                        STATIC_KSMEMORY_TYPE_KERNEL_NONPAGED));
static_assert(GuidReads(0x146F1A80479111D0, 0xA5D628DB04C10000, STATIC_KSNAME_Pin));
static_assert(GuidReads(0x53172480479111D0, 0xA5D628DB04C10000, STATIC_KSNAME_Clock));
static_assert(GuidReads(0x7364697600000010, 0x800000AA00389B71, STATIC_KSDATAFORMAT_TYPE_VIDEO));
static_assert(GuidReads(0x05589F80C35611CE, 0xBF0100AA0055595A,
                        STATIC_KSDATAFORMAT_SPECIFIER_VIDEOINFO));
static_assert(GuidReads(0xE436EB8E524F11CE, 0x9F530020AF0BA770, STATIC_KSDATAFORMAT_SUBTYPE_NONE));
static_assert(GuidReads(0x0F6417D6C31811D0, 0xA43F00A0C9223196,
                        STATIC_KSDATAFORMAT_SPECIFIER_NONE));
static_assert(GuidReads(0x97E99BA0BDEA11CF, 0xA5D628DB04C10000, STATIC_KSPROPTYPESETID_General));
static_assert(GuidReads(0x1464EDA56A8F11D1, 0x9AA700A0C9223196, STATIC_KSPROPSETID_General));
static_assert(GuidReads(0x720D4AC0753311D0, 0xA5D628DB04C10000, STATIC_KSPROPSETID_Topology));
static_assert(GuidReads(0x8C13496051AD11CF, 0x878A94F801C10000, STATIC_KSPROPSETID_Pin));
static_assert(GuidReads(0x1D58C920AC9B11CF, 0xA5D628DB04C10000, STATIC_KSPROPSETID_Connection));
static_assert(GuidReads(0x65AABA6098AE11CF, 0xA10D0020AFD156E4, STATIC_KSPROPSETID_Stream));
static_assert(GuidReads(0xDF12A4C0AC1711CF, 0xA5D628DB04C10000, STATIC_KSPROPSETID_Clock));
static_assert(GuidReads(0xC6E1336030AC11D0, 0xA18C00A0C9118956,
                        STATIC_PROPSETID_VIDCAP_VIDEOPROCAMP));
static_assert(GuidReads(0xC6E1337030AC11D0, 0xA18C00A0C9118956,
                        STATIC_PROPSETID_VIDCAP_CAMERACONTROL));
static_assert(GuidReads(0x6A2E067028E411D0, 0xA18C00A0C9118956,
                        STATIC_PROPSETID_VIDCAP_VIDEOCONTROL));
static_assert(GuidReads(0xC6E1334430AC11D0, 0xA18C00A0C9118956,
                        STATIC_PROPSETID_VIDCAP_DROPPEDFRAMES));
static_assert(GuidReads(0xDB47DE20F62811D1, 0xBA4100A0C90D2B05, STATIC_KSEVENTSETID_VIDCAPTOSTI));

// Streaming: descriptors of device, filter, pin and buffers.
static_assert(sizeof(KSDEVICE_DISPATCH) == BitsDependent(56, 112));
static_assert(offsetof(KSDEVICE_DISPATCH, Remove) == BitsDependent(32, 64));
static_assert(offsetof(KSDEVICE_DISPATCH, SetPower) == BitsDependent(48, 96));
static_assert(sizeof(KSDEVICE_DESCRIPTOR) == BitsDependent(16, 32));
static_assert(offsetof(KSDEVICE_DESCRIPTOR, Version) == BitsDependent(12, 24));
static_assert(sizeof(KSFILTER) == BitsDependent(12, 24));
static_assert(sizeof(KSFILTERFACTORY) == BitsDependent(12, 24));
static_assert(sizeof(KSFILTER_DISPATCH) == BitsDependent(16, 32));
static_assert(sizeof(KSFILTER_DESCRIPTOR) == BitsDependent(64, 104));
static_assert(offsetof(KSFILTER_DESCRIPTOR, Version) == BitsDependent(8, 16));
static_assert(offsetof(KSFILTER_DESCRIPTOR, ReferenceGuid) == BitsDependent(16, 24));
static_assert(offsetof(KSFILTER_DESCRIPTOR, PinDescriptorSize) == BitsDependent(24, 36));
static_assert(offsetof(KSFILTER_DESCRIPTOR, Categories) == BitsDependent(36, 56));
static_assert(offsetof(KSFILTER_DESCRIPTOR, NodeDescriptorSize) == BitsDependent(44, 68));
static_assert(offsetof(KSFILTER_DESCRIPTOR, ConnectionsCount) == BitsDependent(52, 80));
static_assert(offsetof(KSFILTER_DESCRIPTOR, ComponentId) == BitsDependent(60, 96));
static_assert(sizeof(KSNODE_DESCRIPTOR) == BitsDependent(16, 24));
static_assert(sizeof(KSTOPOLOGY_CONNECTION) == 16 && sizeof(KSCOMPONENTID) == 72);
static_assert(sizeof(KSPIN_DISPATCH) == BitsDependent(40, 80));
static_assert(offsetof(KSPIN_DISPATCH, Process) == BitsDependent(8, 16));
static_assert(offsetof(KSPIN_DISPATCH, SetDataFormat) == BitsDependent(16, 32));
static_assert(offsetof(KSPIN_DISPATCH, Allocator) == BitsDependent(36, 72));
static_assert(sizeof(KSPIN_DESCRIPTOR) == BitsDependent(48, 88));
static_assert(offsetof(KSPIN_DESCRIPTOR, DataRanges) == BitsDependent(20, 40));
static_assert(offsetof(KSPIN_DESCRIPTOR, DataFlow) == BitsDependent(24, 48));
static_assert(offsetof(KSPIN_DESCRIPTOR, Category) == BitsDependent(32, 56));
static_assert(offsetof(KSPIN_DESCRIPTOR, ConstrainedDataRangesCount) == BitsDependent(40, 72));
static_assert(offsetof(KSPIN_DESCRIPTOR, ConstrainedDataRanges) == BitsDependent(44, 80));
static_assert(sizeof(KSPIN_DESCRIPTOR_EX) == BitsDependent(80, 136));
static_assert(offsetof(KSPIN_DESCRIPTOR_EX, PinDescriptor) == BitsDependent(8, 16));
static_assert(offsetof(KSPIN_DESCRIPTOR_EX, Flags) == BitsDependent(56, 104));
static_assert(offsetof(KSPIN_DESCRIPTOR_EX, AllocatorFraming) == BitsDependent(68, 120));
static_assert(offsetof(KSPIN_DESCRIPTOR_EX, IntersectHandler) == BitsDependent(72, 128));
static_assert(sizeof(KS_FRAMING_ITEM) == 88);
static_assert(offsetof(KS_FRAMING_ITEM, Flags) == 40 && offsetof(KS_FRAMING_ITEM, Frames) == 44);
static_assert(offsetof(KS_FRAMING_ITEM, PhysicalRange) == 56);
static_assert(offsetof(KS_FRAMING_ITEM, FramingRange) == 68);
static_assert(sizeof(KSALLOCATOR_FRAMING_EX) == 112);
static_assert(offsetof(KSALLOCATOR_FRAMING_EX, OutputCompression) == 8);
static_assert(offsetof(KSALLOCATOR_FRAMING_EX, FramingItem) == 24);
static_assert(sizeof(KS_VIDEO_STREAM_CONFIG_CAPS) == 128);
static_assert(offsetof(KS_VIDEO_STREAM_CONFIG_CAPS, InputSize) == 20);
static_assert(offsetof(KS_VIDEO_STREAM_CONFIG_CAPS, CropGranularityX) == 44);
static_assert(offsetof(KS_VIDEO_STREAM_CONFIG_CAPS, MinOutputSize) == 60);
static_assert(offsetof(KS_VIDEO_STREAM_CONFIG_CAPS, MinFrameInterval) == 104);
static_assert(offsetof(KS_VIDEO_STREAM_CONFIG_CAPS, MaxBitsPerSecond) == 124);
static_assert(sizeof(KS_DATARANGE_VIDEO) == 296);
static_assert(offsetof(KS_DATARANGE_VIDEO, bTemporalCompression) == 68);
static_assert(offsetof(KS_DATARANGE_VIDEO, ConfigCaps) == 80);
static_assert(offsetof(KS_DATARANGE_VIDEO, VideoInfoHeader) == 208);
static_assert(sizeof(KSP_PIN) == 32 && sizeof(KSATTRIBUTE) == 24);
static_assert(sizeof(KSATTRIBUTE_LIST) == BitsDependent(8, 16));
static_assert(KSDEVICE_DESCRIPTOR_VERSION == 0x100 && KSCREATE_ITEM_FREEONSTOP == 8);
static_assert(KSFILTER_DESCRIPTOR_VERSION == 0xFFFFFFFF && KS_VIDEOSTREAM_CAPTURE == 2);
static_assert(KSPIN_FLAG_DISPATCH_LEVEL_PROCESSING == 1);
static_assert(KSPIN_FLAG_DO_NOT_INITIATE_PROCESSING == 0x10);
static_assert(KSPIN_FLAG_PROCESS_IN_RUN_STATE_ONLY == 0x10000);
static_assert(KSPIN_FLAG_USE_STANDARD_TRANSPORT == 0x40000);
static_assert(KSALLOCATOR_REQUIREMENTF_SYSTEM_MEMORY == 2);
static_assert(KSALLOCATOR_REQUIREMENTF_PREFERENCES_ONLY == 0x80000000);
static_assert(KSPIN_DATAFLOW_OUT == 2 && KSPIN_COMMUNICATION_BOTH == 3);

// Streaming: frames, clocks and connections.
static_assert(sizeof(KSTIME) == 16 && offsetof(KSTIME, Numerator) == 8);
static_assert(offsetof(KSTIME, Denominator) == 12);
static_assert(sizeof(KSSTREAM_HEADER) == BitsDependent(48, 56));
static_assert(offsetof(KSSTREAM_HEADER, PresentationTime) == 8);
static_assert(offsetof(KSSTREAM_HEADER, Duration) == 24);
static_assert(offsetof(KSSTREAM_HEADER, FrameExtent) == 32);
static_assert(offsetof(KSSTREAM_HEADER, DataUsed) == 36);
static_assert(offsetof(KSSTREAM_HEADER, Data) == 40);
static_assert(offsetof(KSSTREAM_HEADER, OptionsFlags) == BitsDependent(44, 48));
static_assert(sizeof(KS_FRAME_INFO) == BitsDependent(64, 72));
static_assert(offsetof(KS_FRAME_INFO, dwFrameFlags) == 4);
static_assert(offsetof(KS_FRAME_INFO, PictureNumber) == 8);
static_assert(offsetof(KS_FRAME_INFO, DropCount) == 16);
static_assert(offsetof(KS_FRAME_INFO, DirectDrawRect) == BitsDependent(32, 40));
static_assert(sizeof(KSSTREAM_POINTER_OFFSET) == 16);
static_assert(offsetof(KSSTREAM_POINTER_OFFSET, Count) == 8);
static_assert(offsetof(KSSTREAM_POINTER_OFFSET, Remaining) == 12);
static_assert(sizeof(KSSTREAM_POINTER) == BitsDependent(48, 64));
static_assert(offsetof(KSSTREAM_POINTER, Pin) == BitsDependent(4, 8));
static_assert(offsetof(KSSTREAM_POINTER, StreamHeader) == BitsDependent(8, 16));
static_assert(offsetof(KSSTREAM_POINTER, Offset) == BitsDependent(12, 24));
static_assert(offsetof(KSSTREAM_POINTER, OffsetIn) == BitsDependent(16, 32));
static_assert(offsetof(KSSTREAM_POINTER, OffsetOut) == BitsDependent(32, 48));
static_assert(sizeof(KSRESOLUTION) == 16 && offsetof(KSRESOLUTION, Error) == 8);
static_assert(sizeof(KSPIN_CONNECT) == BitsDependent(64, 72));
static_assert(offsetof(KSPIN_CONNECT, Medium) == 24 && offsetof(KSPIN_CONNECT, PinId) == 48);
static_assert(offsetof(KSPIN_CONNECT, PinToHandle) == BitsDependent(52, 56));
static_assert(offsetof(KSPIN_CONNECT, Priority) == BitsDependent(56, 64));
static_assert(sizeof(KSPIN_CINSTANCES) == 8);
static_assert(KSSTREAM_HEADER_OPTIONSF_SPLICEPOINT == 0x1);
static_assert(KSSTREAM_HEADER_OPTIONSF_TIMEVALID == 0x10);
static_assert(KSSTREAM_HEADER_OPTIONSF_DURATIONVALID == 0x100);
static_assert(KSPROPERTY_CONNECTION_DATAFORMAT == 2);
static_assert(KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX == 6);
static_assert(KSPROPERTY_STREAM_MASTERCLOCK == 3 && KSPROPERTY_CLOCK_STATE == 5);
static_assert(KSPROPERTY_PIN_DATARANGES == 3 && KSPROPERTY_PIN_DATAINTERSECTION == 4);
static_assert(KSPROPERTY_PIN_PROPOSEDATAFORMAT == 14);
static_assert(IOCTL_KS_READ_STREAM == 0x2F4017 && IOCTL_KS_WRITE_STREAM == 0x2F8013);
static_assert(IOCTL_KS_RESET_STATE == 0x2F001B);
static_assert(KSSTATE_ACQUIRE == 1 && KSSTATE_PAUSE == 2 && KSSTATE_RUN == 3);
static_assert(KSINTERFACE_STANDARD_STREAMING == 0 && KSMEDIUM_TYPE_ANYINSTANCE == 0);

// Published values, as numbers: the driver's requests contain them.
static_assert(NonPagedPool == 0);
static_assert(NotificationEvent == 0 && SynchronizationEvent == 1);
static_assert(Executive == 0 && KernelMode == 0);
static_assert(PASSIVE_LEVEL == 0 && APC_LEVEL == 1 && DISPATCH_LEVEL == 2);
static_assert(HIGH_LEVEL == BitsDependent(31, 15));
static_assert(NotificationTimer == 0 && SynchronizationTimer == 1);
static_assert(WaitAll == 0 && WaitAny == 1);
static_assert(MAXIMUM_WAIT_OBJECTS == 64 && THREAD_WAIT_OBJECTS == 3);
static_assert(CriticalWorkQueue == 0 && DelayedWorkQueue == 1);
static_assert(LOW_REALTIME_PRIORITY == 16);
static_assert(IO_NO_INCREMENT == 0);
static_assert(KeyValueFullInformation == 1);
static_assert(PLUGPLAY_REGKEY_DRIVER == 2);
static_assert(REG_DWORD == 4);
static_assert(REG_OPTION_NON_VOLATILE == 0);
static_assert(KEY_ALL_ACCESS == 0x000F003F);
static_assert(OBJ_CASE_INSENSITIVE == 0x40 && OBJ_OPENIF == 0x80 && OBJ_KERNEL_HANDLE == 0x200);
static_assert(FILE_READ_DATA == 1 && FILE_WRITE_DATA == 2);
static_assert(FILE_ATTRIBUTE_NORMAL == 0x80);
static_assert(FILE_SHARE_READ == 1 && FILE_SHARE_WRITE == 2);
static_assert(FILE_OPEN == 1 && FILE_OVERWRITE_IF == 5);
static_assert(FILE_SYNCHRONOUS_IO_NONALERT == 0x20);
static_assert(static_cast<ULONG>(STATUS_TIMEOUT) == 0x00000102);
static_assert(static_cast<ULONG>(STATUS_BUFFER_OVERFLOW) == 0x80000005);
static_assert(static_cast<ULONG>(STATUS_UNSUCCESSFUL) == 0xC0000001);
static_assert(static_cast<ULONG>(STATUS_END_OF_FILE) == 0xC0000011);
static_assert(static_cast<ULONG>(STATUS_BUFFER_TOO_SMALL) == 0xC0000023);
static_assert(static_cast<ULONG>(STATUS_OBJECT_NAME_NOT_FOUND) == 0xC0000034);
static_assert(static_cast<ULONG>(STATUS_INSUFFICIENT_RESOURCES) == 0xC000009A);
static_assert(static_cast<ULONG>(STATUS_PENDING) == 0x00000103);
static_assert(static_cast<ULONG>(STATUS_INVALID_DEVICE_REQUEST) == 0xC0000010);
static_assert(static_cast<ULONG>(STATUS_MORE_PROCESSING_REQUIRED) == 0xC0000016);
static_assert(static_cast<ULONG>(STATUS_CONTINUE_COMPLETION) == 0);
static_assert(static_cast<ULONG>(STATUS_NO_SUCH_DEVICE) == 0xC000000E);
static_assert(static_cast<ULONG>(STATUS_DELETE_PENDING) == 0xC0000056);
static_assert(static_cast<ULONG>(STATUS_DEVICE_DATA_ERROR) == 0xC000009C);
static_assert(static_cast<ULONG>(STATUS_DEVICE_NOT_CONNECTED) == 0xC000009D);
static_assert(static_cast<ULONG>(STATUS_DEVICE_NOT_READY) == 0xC00000A3);
static_assert(static_cast<ULONG>(STATUS_IO_TIMEOUT) == 0xC00000B5);
static_assert(static_cast<ULONG>(STATUS_NOT_SUPPORTED) == 0xC00000BB);
static_assert(static_cast<ULONG>(STATUS_CANCELLED) == 0xC0000120);
static_assert(static_cast<ULONG>(STATUS_DEVICE_REMOVED) == 0xC00002B6);

}  // namespace
