#pragma once

// Published USB interfaces, declared for builds without the platform's headers: descriptors, URBs
// and the functions that parse configuration descriptors. Names, values and layouts are the
// platform's (platform/layout_checks.cpp asserts the sizes).

#include "platform/host/nt/declarations/nt_declarations.h"

// ---- Descriptors: packed, as on the wire.

#pragma pack(push, 1)

struct USB_COMMON_DESCRIPTOR {
  UCHAR bLength;
  UCHAR bDescriptorType;
};

struct USB_DEVICE_DESCRIPTOR {
  UCHAR bLength;
  UCHAR bDescriptorType;
  USHORT bcdUSB;
  UCHAR bDeviceClass;
  UCHAR bDeviceSubClass;
  UCHAR bDeviceProtocol;
  UCHAR bMaxPacketSize0;
  USHORT idVendor;
  USHORT idProduct;
  USHORT bcdDevice;
  UCHAR iManufacturer;
  UCHAR iProduct;
  UCHAR iSerialNumber;
  UCHAR bNumConfigurations;
};

struct USB_CONFIGURATION_DESCRIPTOR {
  UCHAR bLength;
  UCHAR bDescriptorType;
  USHORT wTotalLength;
  UCHAR bNumInterfaces;
  UCHAR bConfigurationValue;
  UCHAR iConfiguration;
  UCHAR bmAttributes;
  UCHAR MaxPower;
};

struct USB_INTERFACE_DESCRIPTOR {
  UCHAR bLength;
  UCHAR bDescriptorType;
  UCHAR bInterfaceNumber;
  UCHAR bAlternateSetting;
  UCHAR bNumEndpoints;
  UCHAR bInterfaceClass;
  UCHAR bInterfaceSubClass;
  UCHAR bInterfaceProtocol;
  UCHAR iInterface;
};

struct USB_ENDPOINT_DESCRIPTOR {
  UCHAR bLength;
  UCHAR bDescriptorType;
  UCHAR bEndpointAddress;
  UCHAR bmAttributes;
  USHORT wMaxPacketSize;
  UCHAR bInterval;
};

#pragma pack(pop)

using PUSB_COMMON_DESCRIPTOR = USB_COMMON_DESCRIPTOR*;
using PUSB_DEVICE_DESCRIPTOR = USB_DEVICE_DESCRIPTOR*;
using PUSB_CONFIGURATION_DESCRIPTOR = USB_CONFIGURATION_DESCRIPTOR*;
using PUSB_INTERFACE_DESCRIPTOR = USB_INTERFACE_DESCRIPTOR*;
using PUSB_ENDPOINT_DESCRIPTOR = USB_ENDPOINT_DESCRIPTOR*;

#define USB_DEVICE_DESCRIPTOR_TYPE 0x01
#define USB_CONFIGURATION_DESCRIPTOR_TYPE 0x02
#define USB_STRING_DESCRIPTOR_TYPE 0x03
#define USB_INTERFACE_DESCRIPTOR_TYPE 0x04
#define USB_ENDPOINT_DESCRIPTOR_TYPE 0x05

#define USB_ENDPOINT_DIRECTION_MASK 0x80
#define USB_ENDPOINT_TYPE_MASK 0x03

// ---- Functions, flags and status values of URBs.

#define URB_FUNCTION_SELECT_CONFIGURATION 0x0000
#define URB_FUNCTION_SELECT_INTERFACE 0x0001
#define URB_FUNCTION_ABORT_PIPE 0x0002
#define URB_FUNCTION_GET_CURRENT_FRAME_NUMBER 0x0007
#define URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER 0x0009
#define URB_FUNCTION_ISOCH_TRANSFER 0x000A
#define URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE 0x000B
#define URB_FUNCTION_VENDOR_DEVICE 0x0017
#define URB_FUNCTION_SYNC_RESET_PIPE_AND_CLEAR_STALL 0x001E
#define URB_FUNCTION_RESET_PIPE URB_FUNCTION_SYNC_RESET_PIPE_AND_CLEAR_STALL

#define USBD_TRANSFER_DIRECTION 0x00000001U
#define USBD_TRANSFER_DIRECTION_OUT 0U
#define USBD_TRANSFER_DIRECTION_IN 1U
#define USBD_SHORT_TRANSFER_OK 0x00000002U
#define USBD_START_ISO_TRANSFER_ASAP 0x00000004U
#define USBD_DEFAULT_PIPE_TRANSFER 0x00000008U

/// Largest distance of a start frame from the present one, in frames, past or future.
#define USBD_ISO_START_FRAME_RANGE 1024
#define USBD_DEFAULT_MAXIMUM_TRANSFER_SIZE 0xFFFFFFFFU

using USBD_STATUS = LONG;

#define USBD_SUCCESS(Status) (static_cast<USBD_STATUS>(Status) >= 0)
#define USBD_ERROR(Status) (static_cast<USBD_STATUS>(Status) < 0)

#define USBD_STATUS_SUCCESS (static_cast<USBD_STATUS>(0x00000000))
#define USBD_STATUS_PENDING (static_cast<USBD_STATUS>(0x40000000))
#define USBD_STATUS_STALL_PID (static_cast<USBD_STATUS>(0xC0000004))
#define USBD_STATUS_DEV_NOT_RESPONDING (static_cast<USBD_STATUS>(0xC0000005))
#define USBD_STATUS_DATA_OVERRUN (static_cast<USBD_STATUS>(0xC0000008))
#define USBD_STATUS_DATA_UNDERRUN (static_cast<USBD_STATUS>(0xC0000009))
#define USBD_STATUS_NOT_ACCESSED (static_cast<USBD_STATUS>(0xC000000F))
#define USBD_STATUS_XACT_ERROR (static_cast<USBD_STATUS>(0xC0000011))
#define USBD_STATUS_BABBLE_DETECTED (static_cast<USBD_STATUS>(0xC0000012))
#define USBD_STATUS_INVALID_URB_FUNCTION (static_cast<USBD_STATUS>(0x80000200))
#define USBD_STATUS_INVALID_PARAMETER (static_cast<USBD_STATUS>(0x80000300))
#define USBD_STATUS_ERROR_BUSY (static_cast<USBD_STATUS>(0x80000400))
#define USBD_STATUS_INVALID_PIPE_HANDLE (static_cast<USBD_STATUS>(0x80000600))
#define USBD_STATUS_NO_BANDWIDTH (static_cast<USBD_STATUS>(0x80000700))
#define USBD_STATUS_INTERNAL_HC_ERROR (static_cast<USBD_STATUS>(0x80000800))
#define USBD_STATUS_ERROR_SHORT_TRANSFER (static_cast<USBD_STATUS>(0x80000900))
#define USBD_STATUS_BAD_START_FRAME (static_cast<USBD_STATUS>(0xC0000A00))
#define USBD_STATUS_ISOCH_REQUEST_FAILED (static_cast<USBD_STATUS>(0xC0000B00))
#define USBD_STATUS_NOT_SUPPORTED (static_cast<USBD_STATUS>(0xC0000E00))
#define USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR (static_cast<USBD_STATUS>(0xC0000F00))
#define USBD_STATUS_INSUFFICIENT_RESOURCES (static_cast<USBD_STATUS>(0xC0001000))
#define USBD_STATUS_SET_CONFIG_FAILED (static_cast<USBD_STATUS>(0xC0002000))
#define USBD_STATUS_BUFFER_TOO_SMALL (static_cast<USBD_STATUS>(0xC0003000))
#define USBD_STATUS_INTERFACE_NOT_FOUND (static_cast<USBD_STATUS>(0xC0004000))
#define USBD_STATUS_TIMEOUT (static_cast<USBD_STATUS>(0xC0006000))
#define USBD_STATUS_DEVICE_GONE (static_cast<USBD_STATUS>(0xC0007000))
#define USBD_STATUS_CANCELED (static_cast<USBD_STATUS>(0xC0010000))
#define USBD_STATUS_ISO_NOT_ACCESSED_LATE (static_cast<USBD_STATUS>(0xC0050000))

// ---- Pipes and interfaces.

using USBD_PIPE_HANDLE = PVOID;
using USBD_CONFIGURATION_HANDLE = PVOID;
using USBD_INTERFACE_HANDLE = PVOID;

enum USBD_PIPE_TYPE {
  UsbdPipeTypeControl,
  UsbdPipeTypeIsochronous,
  UsbdPipeTypeBulk,
  UsbdPipeTypeInterrupt
};

struct USBD_PIPE_INFORMATION {
  USHORT MaximumPacketSize;  // bytes per microframe, additional transactions included
  UCHAR EndpointAddress;
  UCHAR Interval;
  USBD_PIPE_TYPE PipeType;
  USBD_PIPE_HANDLE PipeHandle;
  ULONG MaximumTransferSize;
  ULONG PipeFlags;
};
using PUSBD_PIPE_INFORMATION = USBD_PIPE_INFORMATION*;

struct USBD_INTERFACE_INFORMATION {
  USHORT Length;  // of this structure with all its pipes
  UCHAR InterfaceNumber;
  UCHAR AlternateSetting;
  UCHAR Class;
  UCHAR SubClass;
  UCHAR Protocol;
  UCHAR Reserved;
  USBD_INTERFACE_HANDLE InterfaceHandle;
  ULONG NumberOfPipes;
  USBD_PIPE_INFORMATION Pipes[1];
};
using PUSBD_INTERFACE_INFORMATION = USBD_INTERFACE_INFORMATION*;

struct USBD_INTERFACE_LIST_ENTRY {
  PUSB_INTERFACE_DESCRIPTOR InterfaceDescriptor;
  PUSBD_INTERFACE_INFORMATION Interface;
};
using PUSBD_INTERFACE_LIST_ENTRY = USBD_INTERFACE_LIST_ENTRY*;

// ---- URBs.

struct URB;

struct _URB_HEADER {
  USHORT Length;
  USHORT Function;
  USBD_STATUS Status;
  PVOID UsbdDeviceHandle;
  ULONG UsbdFlags;
};

struct _URB_HCD_AREA {
  PVOID Reserved8[8];
};

struct _URB_SELECT_INTERFACE {
  _URB_HEADER Hdr;
  USBD_CONFIGURATION_HANDLE ConfigurationHandle;
  USBD_INTERFACE_INFORMATION Interface;
};

struct _URB_SELECT_CONFIGURATION {
  _URB_HEADER Hdr;
  PUSB_CONFIGURATION_DESCRIPTOR ConfigurationDescriptor;
  USBD_CONFIGURATION_HANDLE ConfigurationHandle;
  USBD_INTERFACE_INFORMATION Interface;
};

struct _URB_PIPE_REQUEST {
  _URB_HEADER Hdr;
  USBD_PIPE_HANDLE PipeHandle;
  ULONG Reserved;
};

struct _URB_GET_CURRENT_FRAME_NUMBER {
  _URB_HEADER Hdr;
  ULONG FrameNumber;
};

struct _URB_CONTROL_DESCRIPTOR_REQUEST {
  _URB_HEADER Hdr;
  PVOID Reserved;
  ULONG Reserved0;
  ULONG TransferBufferLength;
  PVOID TransferBuffer;
  PMDL TransferBufferMDL;
  URB* UrbLink;
  _URB_HCD_AREA hca;
  USHORT Reserved1;
  UCHAR Index;
  UCHAR DescriptorType;
  USHORT LanguageId;
  USHORT Reserved2;
};

struct _URB_CONTROL_VENDOR_OR_CLASS_REQUEST {
  _URB_HEADER Hdr;
  PVOID Reserved;
  ULONG TransferFlags;
  ULONG TransferBufferLength;
  PVOID TransferBuffer;
  PMDL TransferBufferMDL;
  URB* UrbLink;
  _URB_HCD_AREA hca;
  UCHAR RequestTypeReservedBits;
  UCHAR Request;
  USHORT Value;
  USHORT Index;
  USHORT Reserved1;
};

struct _URB_BULK_OR_INTERRUPT_TRANSFER {
  _URB_HEADER Hdr;
  USBD_PIPE_HANDLE PipeHandle;
  ULONG TransferFlags;
  ULONG TransferBufferLength;
  PVOID TransferBuffer;
  PMDL TransferBufferMDL;
  URB* UrbLink;
  _URB_HCD_AREA hca;
};

struct USBD_ISO_PACKET_DESCRIPTOR {
  ULONG Offset;
  ULONG Length;
  USBD_STATUS Status;
};
using PUSBD_ISO_PACKET_DESCRIPTOR = USBD_ISO_PACKET_DESCRIPTOR*;

struct _URB_ISOCH_TRANSFER {
  _URB_HEADER Hdr;
  USBD_PIPE_HANDLE PipeHandle;
  ULONG TransferFlags;
  ULONG TransferBufferLength;
  PVOID TransferBuffer;
  PMDL TransferBufferMDL;
  URB* UrbLink;
  _URB_HCD_AREA hca;
  ULONG StartFrame;
  ULONG NumberOfPackets;
  ULONG ErrorCount;
  USBD_ISO_PACKET_DESCRIPTOR IsoPacket[1];
};

struct URB {
  union {
    _URB_HEADER UrbHeader;
    _URB_SELECT_INTERFACE UrbSelectInterface;
    _URB_SELECT_CONFIGURATION UrbSelectConfiguration;
    _URB_PIPE_REQUEST UrbPipeRequest;
    _URB_GET_CURRENT_FRAME_NUMBER UrbGetCurrentFrameNumber;
    _URB_BULK_OR_INTERRUPT_TRANSFER UrbBulkOrInterruptTransfer;
    _URB_ISOCH_TRANSFER UrbIsochronousTransfer;
    _URB_CONTROL_DESCRIPTOR_REQUEST UrbControlDescriptorRequest;
    _URB_CONTROL_VENDOR_OR_CLASS_REQUEST UrbControlVendorClassRequest;
  };
};
using PURB = URB*;

#define IOCTL_INTERNAL_USB_SUBMIT_URB 0x00220003U

extern "C" {

/// Finds the first interface descriptor at or behind `start` that matches; -1 matches everything.
/// Null if none does.
PUSB_INTERFACE_DESCRIPTOR NTAPI USBD_ParseConfigurationDescriptorEx(
    PUSB_CONFIGURATION_DESCRIPTOR configuration, PVOID start, LONG interfaceNumber,
    LONG alternateSetting, LONG interfaceClass, LONG interfaceSubClass, LONG interfaceProtocol);

/// Makes a select configuration URB for the listed interfaces, in pool memory that the caller frees
/// with ExFreePool(), and sets each entry's `Interface` to its part. The list ends with a null
/// descriptor.
PURB NTAPI USBD_CreateConfigurationRequestEx(PUSB_CONFIGURATION_DESCRIPTOR configuration,
                                             PUSBD_INTERFACE_LIST_ENTRY list);

}  // extern "C"
