#include "library/settings/trace_observer.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#include "driver/core/base/camera_trace.h"

namespace lidcam::app {

struct TraceObservers {
  std::mutex Mutex;
  std::vector<TraceObserver*> List;
  bool IsPaused = false;

  // Never destroyed: an observer may live to the very end of the program.
  static TraceObservers& Instance() {
    static auto* const observers = new TraceObservers;
    return *observers;
  }

  [[gnu::format(printf, 2, 0)]] static void PassOn(const CameraContext* camera, const char* format,
                                                   std::va_list arguments) {
    std::array<char, 160> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    TraceObservers& observers = Instance();
    const std::lock_guard lock(observers.Mutex);
    if (observers.IsPaused) return;
    for (const TraceObserver* observer : observers.List) {
      observer->handler_(camera, line.data());
    }
  }
};

TraceObserver::TraceObserver(Handler handler)
    : TraceObserver(
          CameraHandler([handler = std::move(handler)](
                            const CameraContext*, std::string_view line) { handler(line); })) {}

TraceObserver::TraceObserver(CameraHandler handler) : handler_(std::move(handler)) {
  TraceObservers& observers = TraceObservers::Instance();
  const std::lock_guard lock(observers.Mutex);
  observers.List.push_back(this);
  SetCameraTraceSink(TraceObservers::PassOn);
}

TraceObserver::~TraceObserver() {
  TraceObservers& observers = TraceObservers::Instance();
  const std::lock_guard lock(observers.Mutex);
  std::erase(observers.List, this);
  if (observers.List.empty()) SetCameraTraceSink(nullptr);
}

TracePause::TracePause() {
  TraceObservers& observers = TraceObservers::Instance();
  const std::lock_guard lock(observers.Mutex);
  observers.IsPaused = true;
}

TracePause::~TracePause() {
  TraceObservers& observers = TraceObservers::Instance();
  const std::lock_guard lock(observers.Mutex);
  observers.IsPaused = false;
}

}  // namespace lidcam::app
