#pragma once

#include "platform/kernel.h"
#include "tests/on_wine/private_requests.h"

namespace lidcam::wine {

/// A filter's pin and the pin's clock, opened for a program that can't open them by name: file
/// objects unknown to the kernel. The requests of one filter come one at a time, from one thread of
/// the kernel; the frames are completed on any.
class PinConnection {
 public:
  /// Opens a pin.
  /// @param connect  a KSPIN_CONNECT followed by the format
  static NTSTATUS Open(PDEVICE_OBJECT device, FILE_OBJECT& filter, const VOID* connect, ULONG bytes,
                       PinConnection** connection);

  /// Closes the clock and the pin, which completes all frames, and frees the connection.
  void Close();

  /// Opens the pin's clock and makes it the pin's master clock.
  NTSTATUS UseClock();

  /// The file object of the pin or its clock; null for a clock that isn't open.
  FILE_OBJECT* FileOf(Target target);

  /// A frame is sent to the pin, which isn't closed before the frame is completed.
  void BeginFrame();
  void EndFrame();

 private:
  PinConnection(PDEVICE_OBJECT device, FILE_OBJECT& filter);
  NTSTATUS OpenFile(FILE_OBJECT& file, FILE_OBJECT& related, UNICODE_STRING name);
  NTSTATUS SetMasterClock();

  PDEVICE_OBJECT device_;
  FILE_OBJECT& filter_;
  FILE_OBJECT pin_{};
  FILE_OBJECT clock_{};
  volatile LONG frames_ = 1;  ///< in flight, plus one until the pin is closed
  KEVENT framesAreBack_{};
};

}  // namespace lidcam::wine
