#pragma once

#include <cstdarg>

namespace lidcam {

struct CameraContext;

/// Receives one trace line as a printf-style format without a line end, and its arguments.
///
/// @param camera  whose line it is, for comparing only: the record may be gone. Null for a line of a device, a
///                filter or a pin outside a stream, which need no record
///
/// Called on whatever thread the traced event happens on, at that thread's level; must not block.
using CameraTraceSink = void (*)(const CameraContext* camera, const char* format,
                                 std::va_list arguments);

/// Turns the trace on, for all cameras, or off with null. Off is the initial state.
///
/// One canonical line is written per register access ("bus  write bridge FF0A=11", "bus  read  sensor
/// FF0B -> 76"), state change ("stream on", "power off") and frame decision ("frame end bytes=614466
/// expected=614466 good"): the same lines on Windows and on the host.
/// @par Callable at any level
void SetCameraTraceSink(CameraTraceSink sink);

/// Writes one line if the trace is on; costs one load if it is off.
///
/// @param camera  as the sink gets it
/// @par Callable at any level that the sink supports
[[gnu::format(printf, 2, 3)]] void TraceCamera(const CameraContext* camera, const char* format,
                                               ...);

}  // namespace lidcam
