#include "driver/core/base/camera_trace.h"

#include "driver/core/base/shared_value.h"

namespace lidcam {
namespace {

// The type of variable arguments may carry attributes that a template argument would lose.
struct Sink {
  CameraTraceSink Function;
};

constinit Shared<Sink> g_traceSink{Sink{nullptr}};

}  // namespace

void SetCameraTraceSink(CameraTraceSink sink) {
  g_traceSink = Sink{sink};
}

void TraceCamera(const CameraContext* camera, const char* format, ...) {
  const Sink sink = g_traceSink;
  if (sink.Function == nullptr) return;
  std::va_list arguments;
  va_start(arguments, format);
  sink.Function(camera, format, arguments);
  va_end(arguments);
}

}  // namespace lidcam
