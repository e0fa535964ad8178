#include "platform/host/ks/pin/requests/streaming_pin.h"

#include <exception>
#include <stdexcept>

namespace lidcam::host {

StreamingPin::StreamingPin(StreamingDevice& device, ProcessRoutine process, PKSDATAFORMAT format)
    : PinBlock(device) {
  ConnectionFormat = format;
  DataFlow = KSPIN_DATAFLOW_OUT;
  Communication = KSPIN_COMMUNICATION_SINK;
  Process = process;
  ProcessesWithoutFrames = true;
  if (!NT_SUCCESS(Worker.Start())) throw std::runtime_error("the kernel gives no system thread");
  Worker.Allow();
}

StreamingPin::~StreamingPin() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  Worker.End();
  Items.Empty();
}

}  // namespace lidcam::host
