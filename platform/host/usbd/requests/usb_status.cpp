#include "platform/host/usbd/requests/usb_status.h"

namespace lidcam::host {

USBD_STATUS FromBus(bus::UsbStatus status) {
  switch (status) {
    case bus::UsbStatus::Ok:
      return USBD_STATUS_SUCCESS;
    case bus::UsbStatus::Silent:
      return USBD_STATUS_PENDING;
    case bus::UsbStatus::Stalled:
    case bus::UsbStatus::NotRecorded:
      return USBD_STATUS_STALL_PID;
    case bus::UsbStatus::NoBandwidth:
      return USBD_STATUS_NO_BANDWIDTH;
    case bus::UsbStatus::Disconnected:
    case bus::UsbStatus::EndOfCapture:
      return USBD_STATUS_DEVICE_GONE;
    case bus::UsbStatus::TimedOut:
      return USBD_STATUS_TIMEOUT;
    case bus::UsbStatus::Aborted:
      return USBD_STATUS_CANCELED;
    case bus::UsbStatus::Failed:
      return USBD_STATUS_XACT_ERROR;
  }
  return USBD_STATUS_INTERNAL_HC_ERROR;
}

NTSTATUS ToNtStatus(USBD_STATUS status) {
  switch (status) {
    case USBD_STATUS_SUCCESS:
      return STATUS_SUCCESS;
    case USBD_STATUS_INVALID_URB_FUNCTION:
    case USBD_STATUS_INVALID_PARAMETER:
    case USBD_STATUS_INVALID_PIPE_HANDLE:
    case USBD_STATUS_BAD_START_FRAME:
    case USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR:
    case USBD_STATUS_INTERFACE_NOT_FOUND:
      return STATUS_INVALID_PARAMETER;
    case USBD_STATUS_BUFFER_TOO_SMALL:
      return STATUS_BUFFER_TOO_SMALL;
    case USBD_STATUS_NO_BANDWIDTH:
    case USBD_STATUS_INSUFFICIENT_RESOURCES:
      return STATUS_INSUFFICIENT_RESOURCES;
    case USBD_STATUS_NOT_SUPPORTED:
      return STATUS_NOT_SUPPORTED;
    case USBD_STATUS_DEVICE_GONE:
      return STATUS_DEVICE_NOT_CONNECTED;
    case USBD_STATUS_CANCELED:
      return STATUS_CANCELLED;
    case USBD_STATUS_TIMEOUT:
      return STATUS_IO_TIMEOUT;
    case USBD_STATUS_STALL_PID:
    case USBD_STATUS_XACT_ERROR:
    case USBD_STATUS_ERROR_SHORT_TRANSFER:
      return STATUS_DEVICE_DATA_ERROR;
    default:
      return STATUS_UNSUCCESSFUL;
  }
}

}  // namespace lidcam::host
